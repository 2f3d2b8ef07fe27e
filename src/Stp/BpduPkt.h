#pragma once
// The one packet path of every BPDU encoder (library-internal).
#include <stptxrx/net/EthAddr.h>
#include <stptxrx/net/Pkt.h>
#include <stptxrx/state/BpduWire.h>
#include <stptxrx/state/StpTypes.h>

#include <cstdint>

namespace Zek {
class TraceHandle;
}

namespace StpTxRx {

/// The "StpTxRx" trace handle, read in line on the frame paths (the exported _defaultTraceHandle() is
/// the same handle). Set on first use; the library runs on one thread.
extern Zek::TraceHandle* frameTraceHandle;
Zek::TraceHandle* frameTraceHandleIs();
inline Zek::TraceHandle* frameTrace() { return frameTraceHandle ? frameTraceHandle : frameTraceHandleIs(); }

/// A packet from the global packet manager holding the link header (tagged when `tagged`, with the low
/// 12 bits of `vlan`) for a body of `size` octets; `*bpdu` is set to the body start. Null, with the
/// level-3 trace "Packet allocation failed" and `*bpdu` untouched, when the manager has no packet.
Nelk::Pkt::Ptr newBpduPkt(const Nelk::EthAddr& srcMac, std::uint32_t size, bool tagged, Bridging::VlanIdOrNone vlan,
                          Stp::CommonBpdu** bpdu);

}  // namespace StpTxRx
