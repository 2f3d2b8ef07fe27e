#include <stptxrx/Stp/SyncerTrace.h>

namespace StpTxRx {

// Created lazily behind the function-local static: all calls come from the one activity thread.
Zek::TraceHandle* txStatusSyncerTraceHandle() {
  static Zek::TraceHandle* const handle = Zek::traceHandleIs("StpTxStatusSyncer");
  return handle;
}

Zek::TraceHandle* rxStatusSyncerTraceHandle() {
  static Zek::TraceHandle* const handle = Zek::traceHandleIs("StpRxStatusSyncer");
  return handle;
}

}  // namespace StpTxRx
