#pragma once
// The receive path of a port: a received frame filed into the port's receive status and counted
// (receiveBpdu), and the same behind the port's BPDU rate limit (BpduReceiver).
#include <stptxrx/Stp/BpduDecode.h>
#include <stptxrx/net/Pkt.h>
#include <stptxrx/runtime/Export.h>
#include <stptxrx/state/RxStatus.h>
#include <stptxrx/state/StpTypes.h>

#include <cstddef>
#include <cstdint>
#include <utility>

namespace StpTxRx {

/// Files a frame received on `port`, counting it: a valid BPDU is decoded into `port->rxInfoIs(V)`,
/// then `rxUpdate(V)` rises by 1, then the count of its kind in `counters` (and `pvstRx` for a PVST+
/// BPDU) and `bpduCount` by 1; a rejected frame raises only its reason's count (and the total of
/// rejects) in `counters` and `bpduCount` (no record is created). V is `vlan`, the caller's choice of
/// record, for an IEEE BPDU; for a PVST+ BPDU it is its originating VLAN (a Config or RST BPDU's TLV, a
/// TCN's tag), and `vlan` is taken as the port's native VLAN for an untagged PVST+ TCN.
/// `port` must not be null. Level-8 trace per BPDU, level-7 per reject.
STPTXRX_EXPORT BpduDecodeResult receiveBpdu(const RxMstPortStatus::Ptr& port, Bridging::VlanIdOrNone vlan,
                                            const std::uint8_t* frame, std::size_t size);
STPTXRX_EXPORT BpduDecodeResult receiveBpdu(const RxMstPortStatus::Ptr& port, Bridging::VlanIdOrNone vlan,
                                            const Nelk::Pkt::Ptr& pkt);

/// The receive path of one port with its BPDU rate limit, held by the agent beside the port's
/// RxMstPortStatus (which it keeps by counted pointer).
///
/// Every frame handed in meets the rate limit first, before any decoding. While the port's
/// `rateLimitEnabled` is on, a window opens at the first frame that arrives while none is open and
/// lasts `rateLimitInterval` seconds (a frame at exactly its end opens the next one); its first
/// `rateLimitMaxCount` frames go on to receiveBpdu, the others are dropped with the verdict
/// BpduReason::rateLimited. The three attributes are read at each frame, so a change acts at once;
/// while the limit is off every frame goes on and no window is open.
///
/// Dropped frames are counted here, not in the status: they reach `counters.rateLimited` and
/// `bpduCount` with the next write of the port's counters (the next frame that goes on), when a
/// window opens that admits nothing, or at flush(). A flood therefore costs no status write per
/// dropped frame. Times are the caller's clock in seconds; the library reads no clock.
class STPTXRX_EXPORT BpduReceiver {
 public:
  explicit BpduReceiver(RxMstPortStatus::Ptr port) : port_(std::move(port)) {}

  /// Takes one frame that arrived at `now`; see the class comment.
  BpduDecodeResult frameIs(Bridging::VlanIdOrNone vlan, const std::uint8_t* frame, std::size_t size, double now);
  BpduDecodeResult frameIs(Bridging::VlanIdOrNone vlan, const Nelk::Pkt::Ptr& pkt, double now);
  /// Publishes the dropped frames not yet in the status (one write of counters and bpduCount, none
  /// when there are none).
  void flush();

  /// Dropped frames not yet published.
  std::uint32_t pendingDropped() const { return pendingDropped_; }
  const RxMstPortStatus::Ptr& port() const { return port_; }

 private:
  RxMstPortStatus::Ptr port_;
  bool windowOpen_ = false;
  double windowStart_ = 0;
  std::uint32_t windowAdmitted_ = 0;
  std::uint32_t pendingDropped_ = 0;
};


}  // namespace StpTxRx
