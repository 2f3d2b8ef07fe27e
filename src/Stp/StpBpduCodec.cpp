// BPDU decoding, validation and encoding of every kind, driven by the field table of StpBpduCodec.h.
#include <stptxrx/Stp/StpBpduCodec.h>
#include <stptxrx/Stp/StpTxRxUtils.h>
#include <stptxrx/runtime/Trace.h>

#include "BpduPkt.h"

#include <bitset>
#include <ostream>
#include <type_traits>

namespace StpTxRx {

using Stp::BridgeSystemId;
using Stp::CommonBpdu;
using Stp::ConfigBpdu;
using Stp::MstBpdu;
using Stp::MstiConfigMessage;
using Stp::RstpBpdu;

// ---- texts

const char* bpduEncodeErrorText(BpduEncodeError error) {
  switch (error) {
    case BpduEncodeError::none: return "encoded";
    case BpduEncodeError::missingInput: return "no record, or no port to send from";
    case BpduEncodeError::unsupportedKind: return "no BPDU kind for this version and type";
    case BpduEncodeError::noCistEntry: return "record has no common-instance entry";
    case BpduEncodeError::nameTooLong: return "configuration name longer than 32 octets";
    case BpduEncodeError::tooManyMstis: return "more than 64 MSTIs";
    case BpduEncodeError::mstiIdOutOfRange: return "MSTI key above 4095";
    case BpduEncodeError::allocationFailed: return "packet allocation failed";
  }
  return "unknown error";
}

// ---- the table walks

namespace {

constexpr std::uint8_t configType = 0x00;
constexpr std::uint8_t tcnType = 0x80;
constexpr std::uint16_t mstiIdMask = 0x0fff;
constexpr std::uint16_t maxLengthField = 1500;  // larger values of the length/type field are EtherTypes

template <class View>
const View* viewAt(const std::uint8_t* p) {
  return reinterpret_cast<const View*>(p);
}

using bpdu::reader;
using bpdu::writer;

// Setters compared as template arguments: equal member pointers name the same type.
template <auto Setter>
struct SetterTag {};

// Bit i set when the entry attribute at declaration position i is a row of `table`.
template <class Table>
constexpr std::uint32_t carriedMask(Table table) {
  std::uint32_t mask = 0;
  int i = 0;
  IntxMstiInfo::forEachField([&](auto field) {
    table([&](auto row) {
      if (std::is_same_v<SetterTag<decltype(row)::set>, SetterTag<decltype(field)::set>>) mask |= 1u << i;
    });
    ++i;
  });
  return mask;
}

template <bool Mst>
constexpr std::uint32_t cistMask = carriedMask([](auto visit) { bpdu::forEachCistField<Mst>(visit); });
constexpr std::uint32_t mstiMask = carriedMask([](auto visit) { bpdu::forEachMstiField(visit); });
static_assert(cistMask<false> == 0b1111000011111 && cistMask<true> == 0b1111101111111 && mstiMask == 0b0000111000111);

// Zeroes the attributes of `entry` that a BPDU kind does not carry, so that a decode gives the same
// record whatever the entry held before.
template <std::uint32_t Carried>
void zeroUncarried(IntxMstiInfo& entry) {
  int i = 0;
  IntxMstiInfo::forEachField([&](auto field) {
    using F = decltype(field);
    using V = std::remove_cvref_t<decltype((entry.*F::get)())>;
    if (!(Carried & (1u << i))) (entry.*F::set)(V{});
    ++i;
  });
}

// The configuration identifier of a BPDU that carries none.
constexpr Stp::MstConfigId noConfigId{};

std::uint16_t mstidOf(const MstiConfigMessage& m) {
  return static_cast<std::uint16_t>(m.regionalRootIdentifier.priorityAndExtension.value() & mstiIdMask);
}

// ---- parsing: everything a fill needs, checked before anything is written

struct EthernetHeader {
  std::array<std::uint8_t, 6> destinationAddress;  ///< IEEE 802.3 Destination Address
  std::array<std::uint8_t, 6> sourceAddress;       ///< IEEE 802.3 Source Address
  Nelk::NetU16 lengthOrType;                       ///< IEEE 802.3 Length/Type (or the 802.1Q TPID)
};
static_assert(sizeof(EthernetHeader) == 14);

struct VlanTag {
  Nelk::NetU16 tagControl;    ///< IEEE 802.1Q TCI: PCP bits 15-13, DEI bit 12, VID bits 11-0
  Nelk::NetU16 lengthOrType;  ///< IEEE 802.3 Length/Type after the tag
};
static_assert(sizeof(VlanTag) == 4);

struct Parsed {
  BpduDecodeResult result;
  const std::uint8_t* body = nullptr;

  const Parsed& reject(BpduReason why) {
    result.kind = BpduKind::Rejected;
    result.reject = why;
    return *this;
  }
  const MstiConfigMessage& msti(std::size_t i) const {
    return *viewAt<MstiConfigMessage>(body + MstBpdu::wireSize + i * MstiConfigMessage::wireSize);
  }
};

// The MST rule a version 3+ BPDU of `size` octets breaks, or none.
BpduReason mstRuleBroken(const MstBpdu& m, std::size_t size) {
  if (m.version1Length != 0) return BpduReason::mstVersion1Length;
  const std::uint16_t v3 = m.version3Length.value();
  if (v3 < MstBpdu::version3LengthBase || (v3 - MstBpdu::version3LengthBase) % MstiConfigMessage::wireSize != 0 ||
      (v3 - MstBpdu::version3LengthBase) / MstiConfigMessage::wireSize > MstBpdu::maxMstiCount) {
    return BpduReason::mstVersion3Length;
  }
  // The Version 3 Length counts the octets after itself.
  if (RstpBpdu::wireSize + sizeof(m.version3Length) + v3 > size) return BpduReason::mstBeyondBpdu;
  return BpduReason::none;
}

Parsed parseBody(Parsed p, std::size_t size) {
  BpduDecodeResult& r = p.result;
  if (size < CommonBpdu::wireSize) return p.reject(BpduReason::bpduTooShort);
  const auto& common = *viewAt<CommonBpdu>(p.body);
  if (common.protocolIdentifier.value() != 0) return p.reject(BpduReason::protocolIdentifier);
  const std::uint8_t version = common.protocolVersionIdentifier;
  switch (common.bpduType) {
    case configType: {
      if (size < ConfigBpdu::wireSize) return p.reject(BpduReason::configTooShort);
      const auto& config = *viewAt<ConfigBpdu>(p.body);
      if (config.messageAge.wire() >= config.maxAge.wire()) return p.reject(BpduReason::messageAgeNotBelowMaxAge);
      r.kind = BpduKind::Config;
      return p;
    }
    case tcnType:
      r.kind = BpduKind::Tcn;
      return p;
    case RstpBpdu::rstType:
      if (version < RstpBpdu::rstVersion) return p.reject(BpduReason::unknownType);
      if (size < RstpBpdu::wireSize) return p.reject(BpduReason::rstTooShort);
      r.kind = BpduKind::Rst;
      if (version == RstpBpdu::rstVersion) return p;
      break;
    default:
      return p.reject(BpduReason::unknownType);
  }

  // Version 3 or higher: MST when every MST rule holds, otherwise read as RST (as an RST-only bridge).
  if (size < MstBpdu::wireSize) {
    r.rstFallback = BpduReason::mstTooShort;
    return p;
  }
  const auto& mst = *viewAt<MstBpdu>(p.body);
  r.rstFallback = mstRuleBroken(mst, size);
  if (r.rstFallback != BpduReason::none) return p;

  const std::size_t count = (mst.version3Length.value() - MstBpdu::version3LengthBase) / MstiConfigMessage::wireSize;
  std::bitset<mstiIdMask + 1> seen;
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint16_t id = mstidOf(p.msti(i));
    if (id == 0) return p.reject(BpduReason::mstiIdZero);
    if (seen.test(id)) return p.reject(BpduReason::mstiIdRepeated);
    seen.set(id);
  }
  r.kind = BpduKind::Mst;
  r.mstiCount = static_cast<std::uint8_t>(count);
  return p;
}

Parsed parseFrame(const std::uint8_t* frame, std::size_t size) {
  Parsed p;
  BpduDecodeResult& r = p.result;
  if (size < sizeof(EthernetHeader)) return p.reject(BpduReason::frameTooShort);
  const auto& ethernet = *viewAt<EthernetHeader>(frame);
  r.destination = Nelk::EthAddr(ethernet.destinationAddress);
  r.source = Nelk::EthAddr(ethernet.sourceAddress);
  std::size_t offset = sizeof(EthernetHeader);
  std::uint16_t length = ethernet.lengthOrType.value();
  if (length == vlanTagProtocolId) {
    if (size < offset + sizeof(VlanTag)) return p.reject(BpduReason::frameTooShort);
    const auto& tag = *viewAt<VlanTag>(frame + offset);
    r.tagged = true;
    r.vlan = Bridging::VlanIdOrNone(static_cast<std::uint16_t>(tag.tagControl.value() & 0x0fff));
    length = tag.lengthOrType.value();
    offset += sizeof(VlanTag);
  }
  if (length > maxLengthField) return p.reject(BpduReason::notLengthField);
  if (length < sizeof(LlcHeader)) return p.reject(BpduReason::lengthBelowLlc);
  if (length > size - offset) return p.reject(BpduReason::lengthBeyondFrame);
  const auto& llc = *viewAt<LlcHeader>(frame + offset);
  if (llc.dsap != stpLlcSap || llc.ssap != stpLlcSap || llc.control != llcControlUi) {
    return p.reject(BpduReason::notStpLlc);
  }
  p.body = frame + offset + sizeof(LlcHeader);
  r.bpduLength = static_cast<std::uint16_t>(length - sizeof(LlcHeader));
  return parseBody(p, r.bpduLength);
}

// ---- filling a record from a valid parse

template <bool Mst>
void fillCist(const ConfigBpdu& view, IntxInfo& info) {
  const Zek::Ptr<IntxMstiInfo> cist = info.mstiNIs(BridgeSystemId(0));
  zeroUncarried<cistMask<Mst>>(*cist);
  const bpdu::FieldContext context{};
  if constexpr (Mst) {
    bpdu::forEachCistField<true>(reader(static_cast<const MstBpdu&>(view), *cist, context));
  } else {
    bpdu::forEachCistField<false>(reader(view, *cist, context));
  }
}

void fill(const Parsed& p, IntxInfo& info) {
  const BpduKind kind = p.result.kind;
  const bpdu::FieldContext none{};
  if (kind == BpduKind::Tcn) {
    bpdu::forEachCommonField(reader(*viewAt<CommonBpdu>(p.body), info, none));
    return;
  }
  // Record-level attributes in declaration order, as a whole-record copy writes them.
  info.neighborAddrIs(p.result.source);
  bpdu::forEachCommonField(reader(*viewAt<CommonBpdu>(p.body), info, none));
  const auto& mst = *viewAt<MstBpdu>(p.body);  // read below only when the kind is Mst
  bpdu::forEachConfigIdField(reader(kind == BpduKind::Mst ? mst.configId : noConfigId, info, none));

  if (kind != BpduKind::Mst) {
    fillCist<false>(*viewAt<ConfigBpdu>(p.body), info);
  } else {
    fillCist<true>(mst, info);
    const Nelk::EthAddr cistAddress = bpdu::bridgeIdOf(mst.cistBridgeIdentifier).address;
    const std::uint16_t cistPort = bpdu::portIdOf(mst.portIdentifier).portNumber;
    for (std::size_t i = 0; i < p.result.mstiCount; ++i) {
      const MstiConfigMessage& message = p.msti(i);
      const bpdu::FieldContext context{BridgeSystemId(mstidOf(message)), cistAddress, cistPort};
      const Zek::Ptr<IntxMstiInfo> entry = info.mstiNIs(context.mstid);
      zeroUncarried<mstiMask>(*entry);
      bpdu::forEachMstiField(reader(message, *entry, context));
    }
  }

  // Every carried key is in the record now, so equal counts mean nothing else is there.
  if (info.mstiNCount() == std::size_t{1} + p.result.mstiCount) return;
  for (const auto& entry : info.mstiN()) {
    const BridgeSystemId key = entry.first;
    bool carried = key == BridgeSystemId(0);
    for (std::size_t i = 0; !carried && i < p.result.mstiCount; ++i) carried = mstidOf(p.msti(i)) == key.value();
    if (!carried) info.mstiNDel(key);
  }
}

}  // namespace

// ---- decoding

BpduDecodeResult generateIntxInfoFromPkt(const std::uint8_t* frame, std::size_t size, IntxInfo* intxInfo) {
  const Parsed p = parseFrame(frame, size);
  if (intxInfo && p.result.valid()) fill(p, *intxInfo);
  return p.result;
}

BpduDecodeResult generateIntxInfoFromPkt(const Nelk::Pkt::Ptr& pkt, IntxInfo::Ptr intxInfo) {
  if (!pkt) return generateIntxInfoFromPkt(nullptr, 0, intxInfo.get());
  return generateIntxInfoFromPkt(pkt->data(), pkt->size(), intxInfo.get());
}

namespace {

// Counts a frame (and `dropped` frames of the rate limit not yet published) into the port's counters
// and bpduCount: one write of each.
void countIs(RxMstPortStatus& port, const BpduDecodeResult& r, std::uint32_t dropped) {
  PortCounters counters = port.counters();
  if (r.valid()) {
    ++counters.of(r.kind);
  } else {
    ++counters.of(r.reject);
    ++counters.rejected;
  }
  counters.rateLimited += dropped;
  port.countersIs(counters);
  port.bpduCountIs(port.bpduCount() + 1 + dropped);
}

BpduDecodeResult receive(RxMstPortStatus& port, Bridging::VlanIdOrNone vlan, const std::uint8_t* frame,
                         std::size_t size, std::uint32_t dropped) {
  const Parsed p = parseFrame(frame, size);
  if (!p.result.valid()) {
    ZEK_TRACE(frameTrace(), 7,
              "receiveBpdu: " << port.intfId() << " vlan " << vlan << " from " << p.result.source
                              << ": reject: " << bpduReasonText(p.result.reject));
  } else {
    ZEK_TRACE(frameTrace(), 8,
              "receiveBpdu: " << port.intfId() << " vlan " << vlan << " from " << p.result.source << ": "
                              << p.result.kind);
    fill(p, *port.rxInfoIs(vlan));
    port.rxUpdateInc(vlan, 1);
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

// ---- encoding

BpduKind bpduKindOf(Stp::StpBpduVersion version, Stp::StpBpduType type) {
  if (type.value == configType && version.value <= 1) return BpduKind::Config;
  if (type.value == tcnType && version.value <= 1) return BpduKind::Tcn;
  if (type.value == RstpBpdu::rstType && version.value == RstpBpdu::rstVersion) return BpduKind::Rst;
  if (type.value == RstpBpdu::rstType && version.value >= MstBpdu::mstVersion) return BpduKind::Mst;
  return BpduKind::Rejected;
}

namespace {

// What an encode needs to know before it takes a packet.
struct EncodePlan {
  BpduKind kind = BpduKind::Rejected;
  const IntxMstiInfo* cist = nullptr;  // the record's entry 0 (held by the record for the call)
  std::size_t mstiCount = 0;
};

// What makes `info` unencodable as `plan.kind`, or none; fills the rest of `plan`.
BpduEncodeError planEncode(const IntxInfo& info, EncodePlan& plan) {
  if (plan.kind == BpduKind::Rejected) return BpduEncodeError::unsupportedKind;
  if (plan.kind == BpduKind::Tcn) return BpduEncodeError::none;
  plan.cist = info.mstiNEntry(BridgeSystemId(0));
  if (!plan.cist) return BpduEncodeError::noCistEntry;
  if (plan.kind != BpduKind::Mst) return BpduEncodeError::none;
  if (info.configNameString().size() > Stp::MstConfigId::nameSize) return BpduEncodeError::nameTooLong;
  plan.mstiCount = info.mstiNCount() - 1;
  if (plan.mstiCount > MstBpdu::maxMstiCount) return BpduEncodeError::tooManyMstis;
  return BpduEncodeError::none;  // MSTI keys are checked as their messages are written
}

std::size_t bodySizeOf(const EncodePlan& plan) {
  switch (plan.kind) {
    case BpduKind::Config: return ConfigBpdu::wireSize;
    case BpduKind::Tcn: return CommonBpdu::wireSize;
    case BpduKind::Rst: return RstpBpdu::wireSize;
    default: return MstBpdu::wireSize + plan.mstiCount * MstiConfigMessage::wireSize;
  }
}

// Writes the body; mstiIdOutOfRange (the body then half written) for an MSTI key that does not fit in 12
// bits, none otherwise.
BpduEncodeError writeBody(const EncodePlan& plan, const IntxInfo& info, CommonBpdu* body) {
  const bpdu::FieldContext none{};
  body->protocolIdentifier = 0;
  bpdu::forEachCommonField(writer(*body, info, none));
  if (plan.kind == BpduKind::Tcn) return BpduEncodeError::none;

  if (plan.kind != BpduKind::Mst) {
    auto& config = *static_cast<ConfigBpdu*>(body);
    bpdu::forEachCistField<false>(writer(config, *plan.cist, none));
    if (plan.kind == BpduKind::Rst) static_cast<RstpBpdu&>(config).version1Length = 0;
    return BpduEncodeError::none;
  }

  auto& mst = *static_cast<MstBpdu*>(body);
  bpdu::forEachCistField<true>(writer(mst, *plan.cist, none));
  mst.version1Length = 0;
  mst.version3Length =
      static_cast<std::uint16_t>(MstBpdu::version3LengthBase + plan.mstiCount * MstiConfigMessage::wireSize);
  mst.configId.formatSelector = 0;
  bpdu::forEachConfigIdField(writer(mst.configId, info, none));

  auto* message = reinterpret_cast<MstiConfigMessage*>(reinterpret_cast<std::uint8_t*>(body) + MstBpdu::wireSize);
  for (const auto& [key, entry] : info.mstiN()) {
    if (key == BridgeSystemId(0)) continue;
    if (key.value() > mstiIdMask) return BpduEncodeError::mstiIdOutOfRange;
    bpdu::forEachMstiField(writer(*message++, *entry, bpdu::FieldContext{key}));
  }
  return BpduEncodeError::none;
}

}  // namespace

BpduEncodeResult generateBpduFromIntxInfo(const Stp::MstPortSm::Ptr& portSm, const IntxInfo::Ptr& intxInfo,
                                          bool tagged, Bridging::VlanIdOrNone vlan) {
  ZEK_TRACE(frameTrace(), 8,
            "generateBpduFromIntxInfo: Called for " << IntxInfo::PtrConst(intxInfo) << " tagged: " << tagged
                                                    << " vlan: " << vlan);
  BpduEncodeResult result;
  EncodePlan plan;
  if (!intxInfo || !portSm || !portSm->port()) {
    result.error = BpduEncodeError::missingInput;
  } else {
    result.kind = plan.kind = bpduKindOf(intxInfo->stpVersion(), intxInfo->intxInfoType());
    result.error = planEncode(*intxInfo, plan);
  }
  if (result.error != BpduEncodeError::none) {
    ZEK_TRACE(frameTrace(), 2, "generateBpduFromIntxInfo: " << bpduEncodeErrorText(result.error));
    return result;
  }

  Stp::CommonBpdu* body = nullptr;
  result.pkt =
      newBpduPkt(portSm->port()->portAddr(), static_cast<std::uint32_t>(bodySizeOf(plan)), tagged, vlan, &body);
  if (!result.pkt) {
    ZEK_TRACE(frameTrace(), 2, "generateBpdu: failed to allocate pkt ");
    result.error = BpduEncodeError::allocationFailed;
    return result;
  }
  result.error = writeBody(plan, *intxInfo, body);
  if (result.error != BpduEncodeError::none) {
    result.pkt = nullptr;  // back to the pool, never seen
    ZEK_TRACE(frameTrace(), 2, "generateBpduFromIntxInfo: " << bpduEncodeErrorText(result.error));
  }
  return result;
}

}  // namespace StpTxRx
