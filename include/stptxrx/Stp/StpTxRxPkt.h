#pragma once
// Packet allocation for one BPDU: a packet from the global packet manager with the link header written
// in front of the body, which the caller then writes in place.
#include <stptxrx/Stp/BpduLink.h>
#include <stptxrx/net/EthAddr.h>
#include <stptxrx/net/Pkt.h>
#include <stptxrx/runtime/Export.h>
#include <stptxrx/state/AgentTypes.h>
#include <stptxrx/state/StpTypes.h>

namespace StpTxRx {

/// A packet holding an untagged BPDU frame of 17 + `size` octets: link header written, body left to the
/// caller. On success `*bpdu` points at the first body octet (frame + 17) inside the packet's data; the
/// packet owns the memory, so the pointer is valid while the caller holds the packet.
///
/// `vlan` must be none: anything else is a programming error (assertion "!vlan", process abort).
/// When the global packet manager has no packet to give (its live limit is reached) the result is null,
/// `*bpdu` is left as it was and a level-3 "Packet allocation failed" is traced. `bpdu` must not be null.
STPTXRX_EXPORT Nelk::Pkt::Ptr StpTxRxGetPkt(Bridging::VlanIdOrNone vlan, Nelk::EthAddr srcMac, U32 size,
                                            Stp::CommonBpdu** bpdu);

/// Entry for per-VLAN BPDUs, which this entry does not build: traces at level 8 and returns null,
/// never writing `*bpdu`. Callers treat the result as an allocation failure. No argument is read.
/// (PVST+ frames are built by generatePvstBpduFromIntxInfo, StpBpduCodec.h.)
STPTXRX_EXPORT Nelk::Pkt::Ptr StpTxRxGetPvstPkt(Stp::MstPortSm* portSm, U32 size, Stp::CommonBpdu** bpdu,
                                                Bridging::VlanIdOrNone vlan);

}  // namespace StpTxRx
