#pragma once
// The library's version. The macros are those of the headers a program was compiled against;
// StpTxRx::versionNumber() and versionText() are those of the library it runs with. CMake reads its
// project version from the three macros below, so they are the one place the version is written.
#include <stptxrx/runtime/Export.h>

#define STPTXRX_VERSION_MAJOR 0
#define STPTXRX_VERSION_MINOR 2
#define STPTXRX_VERSION_PATCH 0

/// major * 10000 + minor * 100 + patch, for comparisons in #if.
#define STPTXRX_VERSION (STPTXRX_VERSION_MAJOR * 10000 + STPTXRX_VERSION_MINOR * 100 + STPTXRX_VERSION_PATCH)

namespace StpTxRx {

/// STPTXRX_VERSION as the running library was built: differs from the macro when a program runs with
/// another build of the library than the headers it was compiled with.
STPTXRX_EXPORT unsigned versionNumber();
/// "MAJOR.MINOR.PATCH" of the running library; a static string.
STPTXRX_EXPORT const char* versionText();

}  // namespace StpTxRx
