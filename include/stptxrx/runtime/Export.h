#pragma once
// Symbol visibility of the public API. The library is built with hidden visibility; only what carries
// STPTXRX_EXPORT is part of its ABI.
#if defined(_WIN32)
#define STPTXRX_EXPORT
#else
#define STPTXRX_EXPORT __attribute__((visibility("default")))
#endif
