// Frame construction of the described system: the "StpTxRx" trace handle, packet allocation with the
// link header (the one packet path of every BPDU encoder) and the RST encoder.
#include <stptxrx/Stp/StpTxRxUtils.h>

#include <stptxrx/runtime/Assert.h>

#include "BpduFieldTable.h"
#include "BpduPkt.h"

namespace StpTxRx {

// A plain pointer rather than a guarded static: the library runs on one thread, and this sits on the
// frame path.
Zek::TraceHandle* frameTraceHandle = nullptr;

Zek::TraceHandle* frameTraceHandleIs() { return frameTraceHandle = Zek::traceHandleIs("StpTxRx"); }

Zek::TraceHandle* _defaultTraceHandle() { return frameTrace(); }

namespace {
// Module constant "ns-", built when the library loads; nothing reads it.
[[maybe_unused]] const Zek::String nsPrefix("ns-");
}  // namespace

// ---- frame allocation

Nelk::Pkt::Ptr newBpduPkt(const Nelk::LlcLink& link, U32 size, Stp::CommonBpdu** bpdu) {
  Nelk::Pkt::Ptr pkt = Nelk::globalPktManager().newPkt();
  if (!pkt) {
    ZEK_TRACE_AT(frameTrace(), 3, __FILE__, "StpTxRxGetPkt", "Packet allocation failed");
    return pkt;
  }
  // The header goes into the packet's head room (the packet library replaces the buffer when it is too
  // small); the body follows it in the same buffer and is written by the caller in place.
  const std::size_t headerSize = link.headerSize();
  *bpdu = reinterpret_cast<Stp::CommonBpdu*>(Nelk::writeLlcLink(pkt->headDataIs(size + headerSize), link, size));
  return pkt;
}

Nelk::Pkt::Ptr StpTxRxGetPkt(Bridging::VlanIdOrNone vlan, Nelk::EthAddr srcMac, U32 size, Stp::CommonBpdu** bpdu) {
  ZEK_TRACE(frameTrace(), 8,
            "StpTxRxGetPkt" << ": called for vlan " << vlan << " src mac: " << srcMac << " size: " << size);
  ZEK_ASSERT(!vlan);
  return newBpduPkt(bpduLinkOf(BpduEncapsulation::ieee, srcMac, false, vlan), size, bpdu);
}

Nelk::Pkt::Ptr StpTxRxGetPvstPkt(Stp::MstPortSm*, U32, Stp::CommonBpdu**, Bridging::VlanIdOrNone) {
  ZEK_TRACE(frameTrace(), 8,
            "Nelk::Pkt::Ptr StpTxRx::StpTxRxGetPvstPkt(Stp::MstPortSm*, U32, Stp::CommonBpdu**, "
            "Bridging::VlanIdOrNone)");
  return nullptr;
}

// ---- RST BPDU encoding

Nelk::Pkt::Ptr generatePktFromIntxInfo(Stp::MstPortSm::Ptr portSm, IntxInfo::Ptr intxInfo, bool tagged) {
  static constexpr const char* function =
      "Nelk::Pkt::Ptr StpTxRx::generatePktFromIntxInfo(Stp::MstPortSm::Ptr, StpTxRx::IntxInfo::Ptr, bool)";
  ZEK_TRACE(frameTrace(), 8,
            "generatePktFromIntxInfo" << ": Called for " << IntxInfo::PtrConst(intxInfo) << " tagged: " << tagged);

  // Only the RST version is encoded here; MST and the other versions are built elsewhere.
  if (!(intxInfo->stpVersion() == Stp::StpBpduVersion{Stp::RstpBpdu::rstVersion})) ZEK_ASSERT_IN(function, 0);
  const std::uint16_t vlan = intxInfo->vlanIdOrZero().value();
  ZEK_ASSERT_IN(function, vlan == 0);
  ZEK_ASSERT_IN(function, !tagged);

  const Nelk::EthAddr& portAddr = portSm->port()->portAddr();
  Stp::CommonBpdu* bpdu = nullptr;
  Nelk::Pkt::Ptr pkt = StpTxRxGetPkt(Bridging::VlanIdOrNone(), portAddr, Stp::RstpBpdu::wireSize, &bpdu);
  if (!pkt) {
    ZEK_TRACE(frameTrace(), 2, "generateBpdu: failed to allocate pkt ");
    return pkt;
  }

  Stp::RstpBpdu* rst = Stp::RstpBpdu::of(bpdu);
  rst->protocolIdentifier = 0;
  rst->protocolVersionIdentifier = Stp::RstpBpdu::rstVersion;
  rst->bpduType = Stp::RstpBpdu::rstType;

  // The common instance's entry; its presence is the caller's promise.
  const IntxMstiInfo* cist = intxInfo->mstiNEntry(Stp::BridgeSystemId(0));
  // Flags, root identifier, root path cost, bridge identifier, port identifier and the four timers: the
  // rows the BPDU codec writes for an RST BPDU, in that order. The identifiers are masked by their
  // encodings, as described; the every-kind encoder refuses what this one masks.
  bpdu::forEachCistField<false>(bpdu::writer(static_cast<Stp::ConfigBpdu&>(*rst), *cist, bpdu::FieldContext{}));
  rst->version1Length = 0;
  return pkt;
}

}  // namespace StpTxRx
