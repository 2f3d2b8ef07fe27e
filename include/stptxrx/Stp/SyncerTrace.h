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
#define STP_TX_SYNCER_TRACE(level, label, keyInfo, method, rest) \
  STP_TX_SYNCER_TRACE_LINE(level, __LINE__, label, keyInfo, method, rest)

/// As STP_TX_SYNCER_TRACE from a helper, reported from its caller's `line` (the handler's, taken as a default
/// argument) rather than the helper's own.
#define STP_TX_SYNCER_TRACE_LINE(level, line, label, keyInfo, method, rest)                                   \
  ZEK_SYNCER_TRACE_LINE(::StpTxRx::txStatusSyncerTraceHandle(), level, "Stp/StpTxStatusSyncer", line, label, \
                        keyInfo, method, rest)

/// Progress trace of a receive-side syncer (handle "StpRxStatusSyncer", module Stp/StpRxStatusSyncer).
#define STP_RX_SYNCER_TRACE(level, label, keyInfo, method, rest) \
  STP_RX_SYNCER_TRACE_LINE(level, __LINE__, label, keyInfo, method, rest)

/// As STP_RX_SYNCER_TRACE from a helper, reported from its caller's `line` (the handler's, taken as a default
/// argument) rather than the helper's own.
#define STP_RX_SYNCER_TRACE_LINE(level, line, label, keyInfo, method, rest)                                   \
  ZEK_SYNCER_TRACE_LINE(::StpTxRx::rxStatusSyncerTraceHandle(), level, "Stp/StpRxStatusSyncer", line, label, \
                        keyInfo, method, rest)

namespace StpTxRx {

/// The one-key step of a transmit-side syncer: when the source has the member, the level-8 trace `made` +
/// key and `make()`; otherwise `dropped` + key and `drop()`. The trace is reported from the calling
/// handler's `line`; no text is built (not even `sm.keyInfo()`) while level 8 is off.
template <class Sm, class Key, class Make, class Drop>
void syncTxMember(const Sm& sm, const char* label, const char* method, bool inSource, const Key& key,
                  const char* made, const Make& make, const char* dropped, const Drop& drop,
                  int line = __builtin_LINE()) {
  if (inSource) {
    STP_TX_SYNCER_TRACE_LINE(8, line, label, sm.keyInfo(), method, made << key);
    make();
  } else {
    STP_TX_SYNCER_TRACE_LINE(8, line, label, sm.keyInfo(), method, dropped << key);
    drop();
  }
}

}  // namespace StpTxRx
