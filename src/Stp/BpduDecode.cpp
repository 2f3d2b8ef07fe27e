// BPDU decoding and validation of every kind, IEEE and PVST+, driven by the field table.
#include <stptxrx/Stp/BpduDecode.h>

#include "BpduDecoder.h"
#include "BpduFieldTable.h"

#include <bitset>
#include <type_traits>

namespace StpTxRx {

using bpdu::configType;
using bpdu::mstidOf;
using bpdu::tcnType;

namespace {

template <class View>
const View* viewAt(const std::uint8_t* p) {
  return reinterpret_cast<const View*>(p);
}

using bpdu::reader;

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


// ---- parsing: everything a fill needs, checked before anything is written

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

const ParsedBpdu& parseBody(ParsedBpdu& p, std::size_t size) {
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
  std::bitset<bpdu::mstiIdMask + 1> seen;
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

// The PVST+ rules, then the BPDU rules of its kind; the originating VLAN of a valid one.
const ParsedBpdu& parsePvstBody(ParsedBpdu& p) {
  BpduDecodeResult& r = p.result;
  const std::size_t size = r.bpduLength;
  if (size >= CommonBpdu::wireSize) {
    const auto& common = *viewAt<CommonBpdu>(p.body);
    if (common.protocolIdentifier.value() == 0 && common.protocolVersionIdentifier >= MstBpdu::mstVersion) {
      return p.reject(BpduReason::pvstVersion);
    }
  }
  if (!parseBody(p, size).result.valid()) return p;
  if (r.kind == BpduKind::Tcn) {
    r.originatingVlan = r.vlan;
    return p;
  }
  // Config and RST: the TLV stands at offset 36 (a Configuration BPDU is padded with one 0 octet).
  if (size <= RstpBpdu::wireSize) return p.reject(BpduReason::pvstNoVlanTlv);
  if (size < PvstBpdu::wireSize) return p.reject(BpduReason::pvstTlvTooShort);
  const Stp::PvstVlanTlv& tlv = viewAt<PvstBpdu>(p.body)->originatingVlan;
  if (tlv.type.value() != Stp::PvstVlanTlv::vlanType) return p.reject(BpduReason::pvstNoVlanTlv);
  if (tlv.length.value() != Stp::PvstVlanTlv::vlanLength) return p.reject(BpduReason::pvstTlvLength);
  const std::uint16_t vlan = tlv.vlan.value();
  if (vlan == 0 || vlan > maxVlanId) return p.reject(BpduReason::pvstVlanOutOfRange);
  // A priority tag (VLAN 0) names no VLAN: such a frame is on the native VLAN, as an untagged one.
  if (r.vlan && r.vlan.value() != vlan) return p.reject(BpduReason::pvstVlanMismatch);
  r.originatingVlan = vlan;
  return p;
}

}  // namespace

ParsedBpdu parseBpduFrame(const std::uint8_t* frame, std::size_t size) {
  ParsedBpdu p;
  BpduDecodeResult& r = p.result;
  const Nelk::LlcFrame f = Nelk::parseLlcLink(frame, size);
  r.destination = f.link.destination;
  r.source = f.link.source;
  r.tagged = f.link.tagged;
  r.vlan = f.link.vlan();
  switch (f.verdict) {
    case Nelk::LinkVerdict::ok: break;
    case Nelk::LinkVerdict::frameTooShort: return p.reject(BpduReason::frameTooShort);
    case Nelk::LinkVerdict::notLengthField: return p.reject(BpduReason::notLengthField);
    case Nelk::LinkVerdict::lengthBelowLlc: return p.reject(BpduReason::lengthBelowLlc);
    case Nelk::LinkVerdict::lengthBeyondFrame: return p.reject(BpduReason::lengthBeyondFrame);
  }
  p.body = f.payload;
  r.bpduLength = static_cast<std::uint16_t>(f.payloadSize);
  if (f.link.snap) {
    if (f.link.snapHeader.oui != pvstOui || f.link.snapHeader.protocolId.value() != pvstProtocolId) {
      return p.reject(BpduReason::notPvstSnap);
    }
    r.encapsulation = BpduEncapsulation::pvst;
    return parsePvstBody(p);
  }
  const Nelk::LlcHeader& llc = f.link.llc;
  if (llc.dsap != stpLlcSap || llc.ssap != stpLlcSap || llc.control != llcControlUi) {
    return p.reject(BpduReason::notStpLlc);
  }
  return parseBody(p, r.bpduLength);
}


// ---- filling a record from a valid parse

namespace {

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

}  // namespace

void fillRecord(const ParsedBpdu& p, IntxInfo& info) {
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

// ---- decoding

BpduDecodeResult generateIntxInfoFromPkt(const std::uint8_t* frame, std::size_t size, IntxInfo* intxInfo) {
  const ParsedBpdu p = parseBpduFrame(frame, size);
  if (intxInfo && p.result.valid()) fillRecord(p, *intxInfo);
  return p.result;
}

BpduDecodeResult generateIntxInfoFromPkt(const Nelk::Pkt::Ptr& pkt, IntxInfo::Ptr intxInfo) {
  if (!pkt) return generateIntxInfoFromPkt(nullptr, 0, intxInfo.get());
  return generateIntxInfoFromPkt(pkt->data(), pkt->size(), intxInfo.get());
}

}  // namespace StpTxRx
