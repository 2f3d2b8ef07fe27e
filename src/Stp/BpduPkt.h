#pragma once
// The one packet path of every BPDU encoder (library-internal).
#include <stptxrx/net/LinkLayer.h>
#include <stptxrx/net/Pkt.h>
#include <stptxrx/state/BpduWire.h>

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

/// The level-3 trace "Packet allocation failed" of the frame paths (out of line: the cold branch).
void tracePktAllocationFailed();

/// A packet from the global packet manager holding the header of `link` for a body of `size` octets;
/// `*bpdu` is set to the body start. Null, with the level-3 trace "Packet allocation failed" and `*bpdu`
/// untouched, when the manager has no packet. In line, so that a link known when compiling is written
/// as a few stores.
[[gnu::always_inline]] inline Nelk::Pkt::Ptr newBpduPkt(const Nelk::LlcLink& link, std::uint32_t size, Stp::CommonBpdu** bpdu) {
  Nelk::Pkt::Ptr pkt = Nelk::globalPktManager().newPkt();
  if (!pkt) {
    tracePktAllocationFailed();
    return pkt;
  }
  // The header goes into the packet's head room (the packet library replaces the buffer when it is too
  // small); the body follows it in the same buffer and is written by the caller in place.
  *bpdu = reinterpret_cast<Stp::CommonBpdu*>(Nelk::putLlcLink(pkt->headDataIs(size + link.headerSize()), link, size));
  return pkt;
}

}  // namespace StpTxRx
