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

void tracePktAllocationFailed() {
  ZEK_TRACE_AT(frameTrace(), 3, __FILE__, "StpTxRxGetPkt", "Packet allocation failed");
}

namespace {
// StpTxRxGetPkt's body, in line in generatePktFromIntxInfo too: the untagged IEEE link is then known when
// compiling and its header is written as a few stores. Its records name StpTxRxGetPkt.
// `function` is the one its assertion names.
[[gnu::always_inline]] inline Nelk::Pkt::Ptr getPkt(Bridging::VlanIdOrNone vlan, const Nelk::EthAddr& srcMac, U32 size,
                                                    Stp::CommonBpdu** bpdu, const char* function) {
  ZEK_TRACE_AT(frameTrace(), 8, __FILE__, "StpTxRxGetPkt",
               "StpTxRxGetPkt" << ": called for vlan " << vlan << " src mac: " << srcMac << " size: " << size);
  ZEK_ASSERT_IN(function, !vlan);
  return newBpduPkt(bpduLinkOf(BpduEncapsulation::ieee, srcMac, false, vlan), size, bpdu);
}
}  // namespace

Nelk::Pkt::Ptr StpTxRxGetPkt(Bridging::VlanIdOrNone vlan, Nelk::EthAddr srcMac, U32 size, Stp::CommonBpdu** bpdu) {
  return getPkt(vlan, srcMac, size, bpdu, __PRETTY_FUNCTION__);
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
  Nelk::Pkt::Ptr pkt = getPkt(Bridging::VlanIdOrNone(), portAddr, Stp::RstpBpdu::wireSize, &bpdu, function);
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
