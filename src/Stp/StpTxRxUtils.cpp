#include <stptxrx/Stp/StpTxRxUtils.h>

#include <stptxrx/Stp/StpBpduCodec.h>
#include <stptxrx/runtime/Assert.h>
#include <stptxrx/runtime/Exception.h>

#include "BpduPkt.h"

namespace StpTxRx {

// A plain pointer rather than a guarded static: the library runs on one thread, and this sits on the
// frame path.
Zek::TraceHandle* frameTraceHandle = nullptr;

Zek::TraceHandle* frameTraceHandleIs() { return frameTraceHandle = Zek::traceHandleIs("StpTxRx"); }

Zek::TraceHandle* _defaultTraceHandle() { return frameTrace(); }

const Zek::String nsPrefix("ns-");

// ---- priorities

Stp::BridgePriority checkedBridgePriority(std::uint16_t value) {
  // The lower bound is 0, which an unsigned value cannot undercut.
  if (value > Stp::BridgePriority::maxBridgePriority) {
    Zek::throwRangeException(
        "BridgePriority::value < BridgePriority::minBridgePriority or > BridgePriority::maxBridgePriority not "
        "allowed");
  }
  return Stp::BridgePriority{value};
}

Stp::BridgePriority bridgePriority(Stp::CompressedBridgePriority c) {
  // Keeping 16 bits first is what makes 16 wrap to 0 instead of failing the range check.
  return checkedBridgePriority(static_cast<std::uint16_t>(c.value << 12));
}

std::uint8_t portPriority(Stp::CompressedPortPriority c) { return static_cast<std::uint8_t>(c.value << 4); }

// ---- link headers

namespace {

constexpr LlcHeader stpLlcHeader{stpLlcSap, stpLlcSap, llcControlUi};

// The 802.3 length counts the LLC header and the body.
constexpr std::uint16_t llcLength(U32 bodySize) { return static_cast<std::uint16_t>(bodySize + sizeof(LlcHeader)); }

}  // namespace

Stp::CommonBpdu* writeBpduLinkHeader(std::uint8_t* frame, const Nelk::EthAddr& srcMac, U32 bodySize) {
  auto* header = reinterpret_cast<BpduLinkHeader*>(frame);
  header->destinationAddress = bridgeGroupAddress.octets();
  header->sourceAddress = srcMac.octets();
  header->length = llcLength(bodySize);
  header->llc = stpLlcHeader;
  return reinterpret_cast<Stp::CommonBpdu*>(header + 1);
}

Stp::CommonBpdu* writeBpduLinkHeader(std::uint8_t* frame, const Nelk::EthAddr& srcMac, U32 bodySize,
                                     Bridging::VlanIdOrNone vlan) {
  auto* header = reinterpret_cast<TaggedBpduLinkHeader*>(frame);
  header->destinationAddress = bridgeGroupAddress.octets();
  header->sourceAddress = srcMac.octets();
  header->tagProtocolId = vlanTagProtocolId;
  // Priority code point 7 in bits 15-13, drop eligible indicator (bit 12) clear, VLAN id in bits 11-0.
  header->tagControl = static_cast<std::uint16_t>((bpduTagPriority << 13) | (vlan.value() & 0x0fff));
  header->length = llcLength(bodySize);
  header->llc = stpLlcHeader;
  return reinterpret_cast<Stp::CommonBpdu*>(header + 1);
}

// ---- frame allocation

Nelk::Pkt::Ptr newBpduPkt(const Nelk::EthAddr& srcMac, U32 size, bool tagged, Bridging::VlanIdOrNone vlan,
                          Stp::CommonBpdu** bpdu) {
  Nelk::Pkt::Ptr pkt = Nelk::globalPktManager().newPkt();
  if (!pkt) {
    ZEK_TRACE_AT(frameTrace(), 3, __FILE__, "StpTxRxGetPkt", "Packet allocation failed");
    return pkt;
  }
  // The header goes into the packet's head room (the packet library replaces the buffer when it is too
  // small); the body follows it in the same buffer and is written by the caller in place.
  if (tagged) {
    *bpdu = writeBpduLinkHeader(pkt->headDataIs(size + taggedBpduLinkHeaderSize), srcMac, size, vlan);
  } else {
    *bpdu = writeBpduLinkHeader(pkt->headDataIs(size + bpduLinkHeaderSize), srcMac, size);
  }
  return pkt;
}

Nelk::Pkt::Ptr StpTxRxGetPkt(Bridging::VlanIdOrNone vlan, Nelk::EthAddr srcMac, U32 size, Stp::CommonBpdu** bpdu) {
  ZEK_TRACE(frameTrace(), 8,
            "StpTxRxGetPkt" << ": called for vlan " << vlan << " src mac: " << srcMac << " size: " << size);
  ZEK_ASSERT(!vlan);
  return newBpduPkt(srcMac, size, false, vlan, bpdu);
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
  // rows the BPDU codec writes for an RST BPDU, in that order.
  bpdu::forEachCistField<false>(bpdu::writer(static_cast<Stp::ConfigBpdu&>(*rst), *cist, bpdu::FieldContext{}));
  rst->version1Length = 0;
  return pkt;
}

// ---- decisions

bool mstBpdufilterPkt(Zek::Ptr<Stp::PortConfig const> portConfig, Zek::Ptr<Stp::StpiPortStatus const> portStatus,
                      Zek::Ptr<Stp::Config const> config) {
  const Stp::BpdufilterMode mode = portConfig->bpdufilterMode();
  if (mode == Stp::BpdufilterMode::enabled) return true;
  if (mode != Stp::BpdufilterMode::followDefault) return false;
  if (!portConfig->bpdufilterDefaultAllowed()) return false;
  if (!portStatus) return false;
  if (!portStatus->bpdufilterDefaultOper()) return false;
  return config->bpdufilterDefault();
}

bool logSpanTreeIntf(Stp::IntfLoggingMode first, Stp::IntfLoggingMode second) {
  if (second == Stp::IntfLoggingMode::on) return true;
  return second == Stp::IntfLoggingMode::useDefault && first == Stp::IntfLoggingMode::on;
}

}  // namespace StpTxRx
