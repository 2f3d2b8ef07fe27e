#pragma once
// The field table of the BPDU codec (library-internal): which record attribute each wire field of each
// BPDU kind maps to, how its value is encoded and decoded, and what the encoders refuse because it does
// not fit its field. The decoder and every encoder walk these rows, so a field is mapped once.
#include <stptxrx/Stp/BpduEncode.h>
#include <stptxrx/net/EthAddr.h>
#include <stptxrx/runtime/String.h>
#include <stptxrx/state/BpduWire.h>
#include <stptxrx/state/IntxInfo.h>
#include <stptxrx/state/StpTypes.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace StpTxRx {

// The wire views, named unqualified by the codec sources that walk this table.
using Stp::BridgeSystemId;
using Stp::CommonBpdu;
using Stp::ConfigBpdu;
using Stp::MstBpdu;
using Stp::MstiConfigMessage;
using Stp::PvstBpdu;
using Stp::RstpBpdu;

// ---------------------------------------------------------------------------------------------------
// The field table
//
// Record <-> wire, per kind (E0 is the mstiN entry keyed 0, Ek the entry keyed by an MSTI's MSTID):
//
//   every kind     stpVersion <-> Protocol Version Identifier, intxInfoType <-> BPDU Type
//   Config, RST    E0: flags, cistRootBridgeId <-> Root Identifier, cistExtRootPathCost <-> Root Path
//                  Cost, bridgeId <-> Bridge Identifier (offset 17), portId, messageAge, maxAge,
//                  helloTime, fwdDelay
//   MST            E0 as for RST, but offset 17 is the CIST Regional Root Identifier <->
//                  cistRegionalRootBridgeId; and intRootPathCost <-> CIST Internal Root Path Cost,
//                  bridgeId <-> CIST Bridge Identifier, remainingHops <-> CIST Remaining Hops;
//                  configNameString (32 octets, zero-padded; trailing zeros dropped on decode),
//                  configRevisionLevel, configDigest <-> MST Configuration Identifier
//   each MSTI      Ek: flags, regionalRootBridgeId <-> MSTI Regional Root Identifier (its system id
//                  extension is k), intRootPathCost, bridgeId <-> MSTI Bridge Priority (priority only;
//                  decoded with extension k and the CIST bridge address), portId <-> MSTI Port Priority
//                  (priority only; decoded with the CIST port number), remainingHops
//   TCN            nothing but version and type
//
// Bridge and port identifiers use the encodings of Stp::bridgeIdWire / Stp::portIdWire and their exact
// inverses (priority from bits 15-12, extension or port number from bits 11-0).
// ---------------------------------------------------------------------------------------------------

namespace bpdu {

/// BPDU Type octets of the Configuration and TCN BPDU (RST and MST: RstpBpdu::rstType).
inline constexpr std::uint8_t configType = 0x00;
inline constexpr std::uint8_t tcnType = 0x80;
/// The MSTID bits of an MSTI Regional Root Identifier's first word.
inline constexpr std::uint16_t mstiIdMask = 0x0fff;

/// The MSTID of an MSTI message.
inline std::uint16_t mstidOf(const Stp::MstiConfigMessage& m) {
  return static_cast<std::uint16_t>(m.regionalRootIdentifier.priorityAndExtension.value() & mstiIdMask);
}

/// What a field's wire form may depend on besides its own value: the instance it belongs to and, for an
/// MSTI's priority octets, the CIST bridge address and port number of the same BPDU.
struct FieldContext {
  Stp::BridgeSystemId mstid;
  Nelk::EthAddr cistBridgeAddress{};   ///< read by decoding only
  std::uint16_t cistPortNumber = 0;    ///< read by decoding only
};

/// Stp::BridgeId from its 8-octet wire form: the inverse of Stp::bridgeIdWire.
constexpr Stp::BridgeId bridgeIdOf(const Stp::BridgeIdWire& w) {
  const std::uint16_t word = w.priorityAndExtension.value();
  return Stp::BridgeId{static_cast<std::uint16_t>(word & 0xf000), static_cast<std::uint16_t>(word & 0x0fff),
                       Nelk::EthAddr(w.address)};
}
/// Stp::PortId from its 16-bit wire word: the inverse of Stp::portIdWire.
constexpr Stp::PortId portIdOf(Nelk::NetU16 w) {
  return Stp::PortId(static_cast<std::uint8_t>((w.value() >> 12) << 4), static_cast<std::uint16_t>(w.value() & 0x0fff));
}

// What an identifier's field can hold: a bridge priority in steps of 4096 (bits 15-12), a port priority
// in steps of 16 (bits 15-12 of the port identifier), a system id extension or port number up to 4095
// (bits 11-0).
constexpr BpduEncodeError bridgePriorityFits(std::uint16_t priority) {
  return priority % 4096 == 0 ? BpduEncodeError::none : BpduEncodeError::bridgePriorityStep;
}
constexpr BpduEncodeError portPriorityFits(std::uint8_t priority) {
  return priority % 16 == 0 ? BpduEncodeError::none : BpduEncodeError::portPriorityStep;
}
constexpr BpduEncodeError bridgeIdFits(const Stp::BridgeId& v) {
  if (v.systemIdExtension > 0x0fff) return BpduEncodeError::systemIdExtensionOutOfRange;
  return bridgePriorityFits(v.priority);
}
constexpr BpduEncodeError portIdFits(Stp::PortId v) {
  if (v.portNumber > 0x0fff) return BpduEncodeError::portNumberOutOfRange;
  return portPriorityFits(v.priority);
}

// Codecs: `encode(value, context)` gives the wire member's value, `decode(wire, context, current)` the
// record value (`current` lets a codec keep a shared value that is already equal instead of building a
// new one), and, where a value can be too wide for its field, `fits(value)` says why it is refused
// (BpduEncodeError::none when it fits). A codec without `fits` carries every value of its type.
struct OctetCodec {  // one-octet values that are moved unchanged
  template <class V>
  static constexpr std::uint8_t encode(const V& v, const FieldContext&) {
    if constexpr (requires { v.value; }) {
      return v.value;
    } else {
      return v;
    }
  }
  template <class V>
  static constexpr V decode(std::uint8_t w, const FieldContext&, const V&) {
    if constexpr (requires { V{w}.value; }) {
      return V{w};
    } else {
      return static_cast<V>(w);
    }
  }
};
struct U16Codec {
  static constexpr Nelk::NetU16 encode(std::uint16_t v, const FieldContext&) { return Nelk::NetU16(v); }
  static constexpr std::uint16_t decode(Nelk::NetU16 w, const FieldContext&, std::uint16_t) { return w.value(); }
};
struct CostCodec {
  static constexpr Nelk::NetU32 encode(Stp::PathCost v, const FieldContext&) { return Nelk::NetU32(v); }
  static constexpr Stp::PathCost decode(Nelk::NetU32 w, const FieldContext&, Stp::PathCost) { return w.value(); }
};
struct TimerCodec {
  static constexpr Stp::TimerVal encode(Stp::TimerVal v, const FieldContext&) { return v; }
  static constexpr Stp::TimerVal decode(Stp::TimerVal w, const FieldContext&, Stp::TimerVal) { return w; }
};
struct BridgeIdCodec {
  static constexpr BpduEncodeError fits(const Stp::BridgeId& v) { return bridgeIdFits(v); }
  static constexpr Stp::BridgeIdWire encode(const Stp::BridgeId& v, const FieldContext&) { return Stp::bridgeIdWire(v); }
  static constexpr Stp::BridgeId decode(const Stp::BridgeIdWire& w, const FieldContext&, const Stp::BridgeId&) {
    return bridgeIdOf(w);
  }
};
struct PortIdCodec {
  static constexpr BpduEncodeError fits(Stp::PortId v) { return portIdFits(v); }
  static constexpr Nelk::NetU16 encode(Stp::PortId v, const FieldContext&) { return Stp::portIdWire(v); }
  static constexpr Stp::PortId decode(Nelk::NetU16 w, const FieldContext&, Stp::PortId) { return portIdOf(w); }
};
/// An MSTI regional root carries the MSTID in its system id extension, whatever the record holds there.
struct MstiRegionalRootCodec {
  static constexpr BpduEncodeError fits(const Stp::BridgeId& v) { return bridgePriorityFits(v.priority); }
  static constexpr Stp::BridgeIdWire encode(const Stp::BridgeId& v, const FieldContext& c) {
    return Stp::bridgeIdWire(Stp::BridgeId{v.priority, c.mstid.value(), v.address});
  }
  static constexpr Stp::BridgeId decode(const Stp::BridgeIdWire& w, const FieldContext&, const Stp::BridgeId&) {
    return bridgeIdOf(w);
  }
};
/// MSTI Bridge Priority: the top four bits of the priority in bits 8-5 of the octet.
struct MstiBridgePriorityCodec {
  static constexpr BpduEncodeError fits(const Stp::BridgeId& v) { return bridgePriorityFits(v.priority); }
  static constexpr std::uint8_t encode(const Stp::BridgeId& v, const FieldContext&) {
    return static_cast<std::uint8_t>((v.priority >> 12) << 4);
  }
  static constexpr Stp::BridgeId decode(std::uint8_t w, const FieldContext& c, const Stp::BridgeId&) {
    return Stp::BridgeId{static_cast<std::uint16_t>((w >> 4) << 12), c.mstid.value(), c.cistBridgeAddress};
  }
};
/// MSTI Port Priority: the top four bits of the port priority in bits 8-5 of the octet.
struct MstiPortPriorityCodec {
  static constexpr BpduEncodeError fits(Stp::PortId v) { return portPriorityFits(v.priority); }
  static constexpr std::uint8_t encode(Stp::PortId v, const FieldContext&) { return v.priority & 0xf0; }
  static constexpr Stp::PortId decode(std::uint8_t w, const FieldContext& c, Stp::PortId) {
    return Stp::PortId(static_cast<std::uint8_t>(w & 0xf0), c.cistPortNumber);
  }
};
/// Configuration Name: up to 32 octets, zero-padded. Decoding keeps the record's string when it is
/// already equal (no allocation); encoding a longer name is refused before the table is walked.
struct ConfigNameCodec {
  using Wire = std::array<std::uint8_t, Stp::MstConfigId::nameSize>;
  static Wire encode(const Zek::String& v, const FieldContext&) {
    Wire w{};
    std::copy_n(v.view().begin(), std::min(v.size(), w.size()), w.begin());
    return w;
  }
  static Zek::String decode(const Wire& w, const FieldContext&, const Zek::String& current) {
    // The padding is found eight octets at a time: most BPDUs carry a short name or none at all.
    std::size_t n = w.size();
    for (; n > 0; n -= sizeof(std::uint64_t)) {
      std::uint64_t word;
      std::memcpy(&word, w.data() + n - sizeof word, sizeof word);
      if (word != 0) break;
    }
    while (n > 0 && w[n - 1] == 0) --n;
    const std::string_view name(reinterpret_cast<const char*>(w.data()), n);
    return current == name ? current : Zek::String(name);
  }
};
struct DigestCodec {
  static constexpr std::array<std::uint8_t, 16> encode(const Stp::MstpConfigDigest& v, const FieldContext&) {
    return v.octets;
  }
  static constexpr Stp::MstpConfigDigest decode(const std::array<std::uint8_t, 16>& w, const FieldContext&,
                                                const Stp::MstpConfigDigest&) {
    return Stp::MstpConfigDigest{w};
  }
};

/// One row of the table: the wire member of a view, the record attribute's getter and setter, and the
/// codec between them.
template <auto Wire, auto Get, auto Set, class Codec>
struct Field {
  static constexpr auto wire = Wire;
  static constexpr auto get = Get;
  static constexpr auto set = Set;
  using codec = Codec;
};

/// A visitor that writes each row it is given from `source` into `view` (encoding).
template <class View, class Source>
constexpr auto writer(View& view, const Source& source, const FieldContext& context) {
  return [&view, &source, &context](auto row) {
    using Row = decltype(row);
    view.*Row::wire = Row::codec::encode((source.*Row::get)(), context);
  };
}

/// A visitor that finds the first row whose value in `source` does not fit its wire field; `error` keeps
/// the first refusal (it must start as none).
template <class Source>
constexpr auto checker(const Source& source, BpduEncodeError& error) {
  return [&source, &error](auto row) {
    using Row = decltype(row);
    if constexpr (requires { Row::codec::fits((source.*Row::get)()); }) {
      if (error == BpduEncodeError::none) error = Row::codec::fits((source.*Row::get)());
    }
  };
}

/// A visitor that writes each row it is given from `view` into `target` through its setter (decoding).
template <class View, class Target>
constexpr auto reader(const View& view, Target& target, const FieldContext& context) {
  return [&view, &target, &context](auto row) {
    using Row = decltype(row);
    (target.*Row::set)(Row::codec::decode(view.*Row::wire, context, (target.*Row::get)()));
  };
}

using E = IntxMstiInfo;

/// The record-level rows of every kind (view: CommonBpdu).
template <class Visit>
constexpr void forEachCommonField(Visit&& visit) {
  visit(Field<&Stp::CommonBpdu::protocolVersionIdentifier, &IntxInfo::stpVersion, &IntxInfo::stpVersionIs, OctetCodec>{});
  visit(Field<&Stp::CommonBpdu::bpduType, &IntxInfo::intxInfoType, &IntxInfo::intxInfoTypeIs, OctetCodec>{});
}

/// The record-level rows of the MST Configuration Identifier (view: MstConfigId), in the record's
/// declaration order.
template <class Visit>
constexpr void forEachConfigIdField(Visit&& visit) {
  visit(Field<&Stp::MstConfigId::revisionLevel, &IntxInfo::configRevisionLevel, &IntxInfo::configRevisionLevelIs,
              U16Codec>{});
  visit(Field<&Stp::MstConfigId::name, &IntxInfo::configNameString, &IntxInfo::configNameStringIs, ConfigNameCodec>{});
  visit(Field<&Stp::MstConfigId::digest, &IntxInfo::configDigest, &IntxInfo::configDigestIs, DigestCodec>{});
}

/// The rows of the common-instance entry (view: ConfigBpdu, or MstBpdu when `Mst`).
template <bool Mst, class Visit>
constexpr void forEachCistField(Visit&& visit) {
  using C = Stp::ConfigBpdu;
  visit(Field<&C::flags, &E::flags, &E::flagsIs, OctetCodec>{});
  visit(Field<&C::rootIdentifier, &E::cistRootBridgeId, &E::cistRootBridgeIdIs, BridgeIdCodec>{});
  visit(Field<&C::rootPathCost, &E::cistExtRootPathCost, &E::cistExtRootPathCostIs, CostCodec>{});
  if constexpr (Mst) {
    visit(Field<&C::bridgeIdentifier, &E::cistRegionalRootBridgeId, &E::cistRegionalRootBridgeIdIs, BridgeIdCodec>{});
  } else {
    visit(Field<&C::bridgeIdentifier, &E::bridgeId, &E::bridgeIdIs, BridgeIdCodec>{});
  }
  visit(Field<&C::portIdentifier, &E::portId, &E::portIdIs, PortIdCodec>{});
  visit(Field<&C::messageAge, &E::messageAge, &E::messageAgeIs, TimerCodec>{});
  visit(Field<&C::maxAge, &E::maxAge, &E::maxAgeIs, TimerCodec>{});
  visit(Field<&C::helloTime, &E::helloTime, &E::helloTimeIs, TimerCodec>{});
  visit(Field<&C::forwardDelay, &E::fwdDelay, &E::fwdDelayIs, TimerCodec>{});
  if constexpr (Mst) {
    using M = Stp::MstBpdu;
    visit(Field<&M::cistInternalRootPathCost, &E::intRootPathCost, &E::intRootPathCostIs, CostCodec>{});
    visit(Field<&M::cistBridgeIdentifier, &E::bridgeId, &E::bridgeIdIs, BridgeIdCodec>{});
    visit(Field<&M::cistRemainingHops, &E::remainingHops, &E::remainingHopsIs, OctetCodec>{});
  }
}

/// The rows of one MSTI entry (view: MstiConfigMessage).
template <class Visit>
constexpr void forEachMstiField(Visit&& visit) {
  using M = Stp::MstiConfigMessage;
  visit(Field<&M::flags, &E::flags, &E::flagsIs, OctetCodec>{});
  visit(Field<&M::regionalRootIdentifier, &E::regionalRootBridgeId, &E::regionalRootBridgeIdIs, MstiRegionalRootCodec>{});
  visit(Field<&M::internalRootPathCost, &E::intRootPathCost, &E::intRootPathCostIs, CostCodec>{});
  visit(Field<&M::bridgePriority, &E::bridgeId, &E::bridgeIdIs, MstiBridgePriorityCodec>{});
  visit(Field<&M::portPriority, &E::portId, &E::portIdIs, MstiPortPriorityCodec>{});
  visit(Field<&M::remainingHops, &E::remainingHops, &E::remainingHopsIs, OctetCodec>{});
}

}  // namespace bpdu

}  // namespace StpTxRx
