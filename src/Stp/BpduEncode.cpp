// BPDU encoding of every kind, IEEE and PVST+, driven by the field table: what does not fit the wire is
// refused before a packet is taken, so a refusal writes and sends nothing.
#include <stptxrx/Stp/BpduEncode.h>

#include <stptxrx/runtime/Trace.h>

#include "BpduFieldTable.h"
#include "BpduPkt.h"

#include <ostream>

namespace StpTxRx {

using bpdu::checker;
using bpdu::writer;

// ---- texts

namespace {

struct ErrorNames {
  const char* name;
  const char* text;
};

// Indexed by BpduEncodeError.
constexpr ErrorNames errorNames[] = {
    {"none", "encoded"},
    {"missingInput", "no record, or no port to send from"},
    {"unsupportedKind", "no BPDU kind for this version and type"},
    {"noCistEntry", "record has no common-instance entry"},
    {"nameTooLong", "configuration name longer than 32 octets"},
    {"tooManyMstis", "more than 64 MSTIs"},
    {"mstiIdOutOfRange", "MSTI key above 4095"},
    {"allocationFailed", "packet allocation failed"},
    {"tagVlanOutOfRange", "tag VLAN above 4094"},
    {"bridgePriorityStep", "bridge priority not a multiple of 4096"},
    {"systemIdExtensionOutOfRange", "system id extension above 4095"},
    {"portPriorityStep", "port priority not a multiple of 16"},
    {"portNumberOutOfRange", "port number above 4095"},
    {"pvstVlanOutOfRange", "PVST+ VLAN outside 1-4094"},
    {"pvstMst", "MST BPDU has no PVST+ form"},
};
static_assert(std::size(errorNames) == static_cast<std::size_t>(BpduEncodeError::pvstMst) + 1);

const ErrorNames& errorNamesOf(BpduEncodeError error) {
  const auto i = static_cast<std::size_t>(error);
  static constexpr ErrorNames unknown{"unknown", "unknown error"};
  return i < std::size(errorNames) ? errorNames[i] : unknown;
}

}  // namespace

const char* bpduEncodeErrorText(BpduEncodeError error) { return errorNamesOf(error).text; }
const char* bpduEncodeErrorName(BpduEncodeError error) { return errorNamesOf(error).name; }

BpduKind bpduKindOf(Stp::StpBpduVersion version, Stp::StpBpduType type) {
  if (type.value == bpdu::configType && version.value <= 1) return BpduKind::Config;
  if (type.value == bpdu::tcnType && version.value <= 1) return BpduKind::Tcn;
  if (type.value == RstpBpdu::rstType && version.value == RstpBpdu::rstVersion) return BpduKind::Rst;
  if (type.value == RstpBpdu::rstType && version.value >= MstBpdu::mstVersion) return BpduKind::Mst;
  return BpduKind::Rejected;
}

namespace {

// What an encode needs to know before it takes a packet.
struct EncodePlan {
  BpduEncapsulation encapsulation = BpduEncapsulation::ieee;
  BpduKind kind = BpduKind::Rejected;
  const IntxMstiInfo* cist = nullptr;  // the record's entry 0 (held by the record for the call)
  std::size_t mstiCount = 0;
  Bridging::VlanIdOrNone vlan;         // PVST+: the originating VLAN
};

// What makes `info` unencodable as `plan.kind`, or none; fills the rest of `plan`. Every row the kind
// writes is checked here, so that the body, once begun, is written whole.
BpduEncodeError planEncode(const IntxInfo& info, EncodePlan& plan) {
  if (plan.kind == BpduKind::Rejected) return BpduEncodeError::unsupportedKind;
  if (plan.kind == BpduKind::Mst && plan.encapsulation == BpduEncapsulation::pvst) return BpduEncodeError::pvstMst;
  if (plan.kind == BpduKind::Tcn) return BpduEncodeError::none;
  plan.cist = info.mstiNEntry(BridgeSystemId(0));
  if (!plan.cist) return BpduEncodeError::noCistEntry;
  BpduEncodeError error = BpduEncodeError::none;
  if (plan.kind != BpduKind::Mst) {
    bpdu::forEachCistField<false>(checker(*plan.cist, error));
    return error;
  }
  bpdu::forEachCistField<true>(checker(*plan.cist, error));
  if (error != BpduEncodeError::none) return error;
  if (info.configNameString().size() > Stp::MstConfigId::nameSize) return BpduEncodeError::nameTooLong;
  plan.mstiCount = info.mstiNCount() - 1;
  if (plan.mstiCount > MstBpdu::maxMstiCount) return BpduEncodeError::tooManyMstis;
  for (const auto& [key, entry] : info.mstiN()) {
    if (key == BridgeSystemId(0)) continue;
    if (key.value() > bpdu::mstiIdMask) return BpduEncodeError::mstiIdOutOfRange;
    bpdu::forEachMstiField(checker(*entry, error));
    if (error != BpduEncodeError::none) return error;
  }
  return BpduEncodeError::none;
}

std::size_t bodySizeOf(const EncodePlan& plan) {
  const bool pvst = plan.encapsulation == BpduEncapsulation::pvst;
  switch (plan.kind) {
    case BpduKind::Config: return pvst ? PvstBpdu::wireSize : ConfigBpdu::wireSize;
    case BpduKind::Tcn: return CommonBpdu::wireSize;
    case BpduKind::Rst: return pvst ? PvstBpdu::wireSize : RstpBpdu::wireSize;
    default: return MstBpdu::wireSize + plan.mstiCount * MstiConfigMessage::wireSize;
  }
}

// Writes the body of a planned encode.
void writeBody(const EncodePlan& plan, const IntxInfo& info, CommonBpdu* body) {
  const bpdu::FieldContext none{};
  body->protocolIdentifier = 0;
  bpdu::forEachCommonField(writer(*body, info, none));
  if (plan.kind == BpduKind::Tcn) return;

  if (plan.kind != BpduKind::Mst) {
    auto& config = *static_cast<ConfigBpdu*>(body);
    bpdu::forEachCistField<false>(writer(config, *plan.cist, none));
    // A Configuration BPDU has only these two flags; the record keeps whatever else it holds.
    if (plan.kind == BpduKind::Config) {
      config.flags &= ConfigBpdu::topologyChangeFlag | ConfigBpdu::topologyChangeAckFlag;
    }
    if (plan.encapsulation == BpduEncapsulation::ieee) {
      if (plan.kind == BpduKind::Rst) static_cast<RstpBpdu&>(config).version1Length = 0;
      return;
    }
    auto& pvst = static_cast<PvstBpdu&>(config);
    pvst.version1Length = 0;  // a Configuration BPDU's pad octet, an RST BPDU's Version 1 Length
    pvst.originatingVlan.type = Stp::PvstVlanTlv::vlanType;
    pvst.originatingVlan.length = Stp::PvstVlanTlv::vlanLength;
    pvst.originatingVlan.vlan = plan.vlan.value();
    return;
  }

  auto& mst = *static_cast<MstBpdu*>(body);
  bpdu::forEachCistField<true>(writer(mst, *plan.cist, none));
  mst.version1Length = 0;
  mst.version3Length =
      static_cast<std::uint16_t>(MstBpdu::version3LengthBase + plan.mstiCount * MstiConfigMessage::wireSize);
  mst.configId.formatSelector = 0;
  bpdu::forEachConfigIdField(writer(mst.configId, info, none));

  auto* message = reinterpret_cast<MstiConfigMessage*>(&mst + 1);
  for (const auto& [key, entry] : info.mstiN()) {
    if (key == BridgeSystemId(0)) continue;
    bpdu::forEachMstiField(writer(*message++, *entry, bpdu::FieldContext{key}));
  }
}

// The VLAN rule of an encapsulation: an IEEE frame's tag carries 0 to 4094 (0: priority only); a PVST+
// frame names a VLAN, 1 to 4094, tagged or not.
BpduEncodeError vlanFits(BpduEncapsulation e, bool tagged, Bridging::VlanIdOrNone vlan) {
  if (e == BpduEncapsulation::pvst) {
    return vlan && vlan.value() <= maxVlanId ? BpduEncodeError::none : BpduEncodeError::pvstVlanOutOfRange;
  }
  return !tagged || vlan.value() <= maxVlanId ? BpduEncodeError::none : BpduEncodeError::tagVlanOutOfRange;
}

BpduEncodeResult encode(const char* caller, BpduEncapsulation e, const Stp::MstPortSm::Ptr& portSm,
                        const IntxInfo::Ptr& intxInfo, bool tagged, Bridging::VlanIdOrNone vlan) {
  ZEK_TRACE(frameTrace(), 8,
            caller << ": Called for " << IntxInfo::PtrConst(intxInfo) << " tagged: " << tagged << " vlan: " << vlan);
  BpduEncodeResult result;
  EncodePlan plan;
  plan.encapsulation = e;
  plan.vlan = vlan;
  if (!intxInfo || !portSm || !portSm->port()) {
    result.error = BpduEncodeError::missingInput;
  } else {
    result.kind = plan.kind = bpduKindOf(intxInfo->stpVersion(), intxInfo->intxInfoType());
    result.error = vlanFits(e, tagged, vlan);
    if (result.error == BpduEncodeError::none) result.error = planEncode(*intxInfo, plan);
  }
  if (result.error != BpduEncodeError::none) {
    ZEK_TRACE_AT(frameTrace(), 2, __FILE__, caller, caller << ": " << bpduEncodeErrorText(result.error));
    return result;
  }

  Stp::CommonBpdu* body = nullptr;
  result.pkt = newBpduPkt(bpduLinkOf(e, portSm->port()->portAddr(), tagged, vlan),
                          static_cast<std::uint32_t>(bodySizeOf(plan)), &body);
  if (!result.pkt) {
    ZEK_TRACE_AT(frameTrace(), 2, __FILE__, caller, "generateBpdu: failed to allocate pkt ");
    result.error = BpduEncodeError::allocationFailed;
    return result;
  }
  writeBody(plan, *intxInfo, body);
  return result;
}

}  // namespace

BpduEncodeResult generateBpduFromIntxInfo(const Stp::MstPortSm::Ptr& portSm, const IntxInfo::Ptr& intxInfo,
                                          bool tagged, Bridging::VlanIdOrNone vlan) {
  return encode("generateBpduFromIntxInfo", BpduEncapsulation::ieee, portSm, intxInfo, tagged, vlan);
}

BpduEncodeResult generatePvstBpduFromIntxInfo(const Stp::MstPortSm::Ptr& portSm, const IntxInfo::Ptr& intxInfo,
                                              bool tagged, Bridging::VlanIdOrNone vlan) {
  return encode("generatePvstBpduFromIntxInfo", BpduEncapsulation::pvst, portSm, intxInfo, tagged, vlan);
}

BpduEncodeResult generateBpduFromIntxInfo(BpduEncapsulation e, const Stp::MstPortSm::Ptr& portSm,
                                          const IntxInfo::Ptr& intxInfo, bool tagged, Bridging::VlanIdOrNone vlan) {
  return e == BpduEncapsulation::pvst ? generatePvstBpduFromIntxInfo(portSm, intxInfo, tagged, vlan)
                                      : generateBpduFromIntxInfo(portSm, intxInfo, tagged, vlan);
}

}  // namespace StpTxRx
