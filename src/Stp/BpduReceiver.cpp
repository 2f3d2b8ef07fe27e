// The receive path of a port: filing a received BPDU into its receive status, counting every frame, and
// the BPDU rate limit in front of it.
#include <stptxrx/Stp/BpduReceiver.h>

#include <stptxrx/runtime/Trace.h>

#include "BpduDecoder.h"
#include "BpduPkt.h"

#include <ostream>

namespace StpTxRx {

namespace {

// Counts a frame (and `dropped` frames of the rate limit not yet published) into the port's counters
// and bpduCount: one write of each.
void countIs(RxMstPortStatus& port, const BpduDecodeResult& r, std::uint32_t dropped) {
  PortCounters counters = port.counters();
  if (r.valid()) {
    ++counters.of(r.kind);
    if (r.pvst()) ++counters.pvstRx;
  } else {
    ++counters.of(r.reject);
    ++counters.rejected;
  }
  counters.rateLimited += dropped;
  port.countersIs(counters);
  port.bpduCountIs(port.bpduCount() + 1 + dropped);
}

// The record a valid BPDU is filed under: the caller's for an IEEE BPDU; for a PVST+ BPDU its
// originating VLAN, or the caller's (the port's native VLAN) for an untagged TCN.
Bridging::VlanIdOrNone recordVlanOf(const BpduDecodeResult& r, Bridging::VlanIdOrNone vlan) {
  return r.pvst() && r.originatingVlan ? r.originatingVlan : vlan;
}

BpduDecodeResult receive(RxMstPortStatus& port, Bridging::VlanIdOrNone vlan, const std::uint8_t* frame,
                         std::size_t size, std::uint32_t dropped) {
  const ParsedBpdu p = parseBpduFrame(frame, size);
  if (!p.result.valid()) {
    ZEK_TRACE_AT(frameTrace(), 7, __FILE__, "receiveBpdu",
                 "receiveBpdu: " << port.intfId() << " vlan " << vlan << " from " << p.result.source
                                 << ": reject: " << bpduReasonText(p.result.reject));
  } else {
    const Bridging::VlanIdOrNone recordVlan = recordVlanOf(p.result, vlan);
    ZEK_TRACE_AT(frameTrace(), 8, __FILE__, "receiveBpdu",
                 "receiveBpdu: " << port.intfId() << " vlan " << recordVlan << " from " << p.result.source << ": "
                                 << p.result.kind << (p.result.pvst() ? " pvst" : ""));
    fillRecord(p, *port.rxInfoIs(recordVlan));
    port.rxUpdateInc(recordVlan, 1);
  }
  countIs(port, p.result, dropped);
  return p.result;
}

}  // namespace

BpduDecodeResult receiveBpdu(const RxMstPortStatus::Ptr& port, Bridging::VlanIdOrNone vlan, const std::uint8_t* frame,
                             std::size_t size) {
  return receive(*port, vlan, frame, size, 0);
}

BpduDecodeResult receiveBpdu(const RxMstPortStatus::Ptr& port, Bridging::VlanIdOrNone vlan,
                             const Nelk::Pkt::Ptr& pkt) {
  if (!pkt) return receive(*port, vlan, nullptr, 0, 0);
  return receive(*port, vlan, pkt->data(), pkt->size(), 0);
}

// ---- rate-limited receive

BpduDecodeResult BpduReceiver::frameIs(Bridging::VlanIdOrNone vlan, const std::uint8_t* frame, std::size_t size,
                                       double now) {
  RxMstPortStatus& port = *port_;
  if (!port.rateLimitEnabled()) {
    windowOpen_ = false;
  } else {
    // `!(now < end)` also opens a window when the times are not numbers, rather than never again.
    if (!windowOpen_ || !(now < windowStart_ + port.rateLimitInterval())) {
      windowOpen_ = true;
      windowStart_ = now;
      windowAdmitted_ = 0;
      if (port.rateLimitMaxCount() == 0) flush();  // no admitted frame will carry the last window's drops
    }
    if (windowAdmitted_ >= port.rateLimitMaxCount()) {
      ++pendingDropped_;
      BpduDecodeResult dropped;
      dropped.reject = BpduReason::rateLimited;
      return dropped;
    }
    ++windowAdmitted_;
  }
  return receive(port, vlan, frame, size, std::exchange(pendingDropped_, 0));
}

BpduDecodeResult BpduReceiver::frameIs(Bridging::VlanIdOrNone vlan, const Nelk::Pkt::Ptr& pkt, double now) {
  if (!pkt) return frameIs(vlan, nullptr, 0, now);
  return frameIs(vlan, pkt->data(), pkt->size(), now);
}

void BpduReceiver::flush() {
  if (pendingDropped_ == 0) return;
  PortCounters counters = port_->counters();
  counters.rateLimited += pendingDropped_;
  port_->countersIs(counters);
  port_->bpduCountIs(port_->bpduCount() + pendingDropped_);
  pendingDropped_ = 0;
}

}  // namespace StpTxRx
