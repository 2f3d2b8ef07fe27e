#pragma once
#include <stptxrx/runtime/BinaryTrace.h>
#include <stptxrx/runtime/Export.h>
#include <stptxrx/runtime/Reactor.h>
#include <stptxrx/runtime/Trace.h>

// Trace handles of the syncers. Every syncer handler starts with ZEK_BINARY_TRACE() and reports progress
// at level 8 ("no destination" at 7) in the form label + keyInfo() + "::" + method + "() " + action + key.

namespace StpTxRx {

/// Handle "StpTxStatusSyncer": the transmit status syncers, the transmit information syncer and the
/// transmit-to-receive syncer. Created on first use, never destroyed.
STPTXRX_EXPORT Zek::TraceHandle* txStatusSyncerTraceHandle();

/// Handle "StpRxStatusSyncer": the receive dynamic syncers.
STPTXRX_EXPORT Zek::TraceHandle* rxStatusSyncerTraceHandle();

}  // namespace StpTxRx

/// Progress trace of a transmit-side syncer (handle "StpTxStatusSyncer", module Stp/StpTxStatusSyncer).
#define STP_TX_SYNCER_TRACE(level, label, keyInfo, method, rest)                                         \
  ZEK_SYNCER_TRACE(::StpTxRx::txStatusSyncerTraceHandle(), level, "Stp/StpTxStatusSyncer", label, keyInfo, \
                   method, rest)

/// Progress trace of a receive-side syncer (handle "StpRxStatusSyncer", module Stp/StpRxStatusSyncer).
#define STP_RX_SYNCER_TRACE(level, label, keyInfo, method, rest) \
  STP_RX_SYNCER_TRACE_LINE(level, __LINE__, label, keyInfo, method, rest)

/// As STP_RX_SYNCER_TRACE from a helper, reported from its caller's `line` (the handler's, taken as a default
/// argument) rather than the helper's own.
#define STP_RX_SYNCER_TRACE_LINE(level, line, label, keyInfo, method, rest)                                   \
  ZEK_SYNCER_TRACE_LINE(::StpTxRx::rxStatusSyncerTraceHandle(), level, "Stp/StpRxStatusSyncer", line, label, \
                        keyInfo, method, rest)
