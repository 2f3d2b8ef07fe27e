#pragma once
// The trace handle of BPDU frame construction and of the BPDU codec.
#include <stptxrx/runtime/Export.h>
#include <stptxrx/runtime/Trace.h>

namespace StpTxRx {

/// The trace handle of frame construction, named "StpTxRx": created on the first call (no lock; the
/// library runs on one thread) and never destroyed.
STPTXRX_EXPORT Zek::TraceHandle* _defaultTraceHandle();

}  // namespace StpTxRx
