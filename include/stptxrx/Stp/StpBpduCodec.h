#pragma once
// BPDUs of every kind in both directions: decoding and validating a received frame into a transmit
// record (generateIntxInfoFromPkt), encoding a record into a Configuration, TCN, RST or MST BPDU frame
// (generateBpduFromIntxInfo), and the receive helper that files a received BPDU into a port's receive
// status (receiveBpdu). Both directions walk the one field table below, so a field is mapped once.
#include <stptxrx/net/EthAddr.h>
#include <stptxrx/net/Pkt.h>
#include <stptxrx/runtime/Export.h>
#include <stptxrx/runtime/Ptr.h>
#include <stptxrx/runtime/String.h>
#include <stptxrx/state/AgentTypes.h>
#include <stptxrx/state/BpduVerdict.h>
#include <stptxrx/state/BpduWire.h>
#include <stptxrx/state/IntxInfo.h>
#include <stptxrx/state/RxStatus.h>
#include <stptxrx/state/StpTypes.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iosfwd>
#include <string_view>
#include <utility>

namespace StpTxRx {

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

// Codecs: `encode(value, context)` gives the wire member's value, `decode(wire, context, current)` the
// record value (`current` lets a codec keep a shared value that is already equal instead of building a
// new one).
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
  static constexpr Stp::BridgeIdWire encode(const Stp::BridgeId& v, const FieldContext&) { return Stp::bridgeIdWire(v); }
  static constexpr Stp::BridgeId decode(const Stp::BridgeIdWire& w, const FieldContext&, const Stp::BridgeId&) {
    return bridgeIdOf(w);
  }
};
struct PortIdCodec {
  static constexpr Nelk::NetU16 encode(Stp::PortId v, const FieldContext&) { return Stp::portIdWire(v); }
  static constexpr Stp::PortId decode(Nelk::NetU16 w, const FieldContext&, Stp::PortId) { return portIdOf(w); }
};
/// An MSTI regional root carries the MSTID in its system id extension, whatever the record holds there.
struct MstiRegionalRootCodec {
  static constexpr Stp::BridgeIdWire encode(const Stp::BridgeId& v, const FieldContext& c) {
    return Stp::bridgeIdWire(Stp::BridgeId{v.priority, c.mstid.value(), v.address});
  }
  static constexpr Stp::BridgeId decode(const Stp::BridgeIdWire& w, const FieldContext&, const Stp::BridgeId&) {
    return bridgeIdOf(w);
  }
};
/// MSTI Bridge Priority: the top four bits of the priority in bits 8-5 of the octet.
struct MstiBridgePriorityCodec {
  static constexpr std::uint8_t encode(const Stp::BridgeId& v, const FieldContext&) {
    return static_cast<std::uint8_t>((v.priority >> 12) << 4);
  }
  static constexpr Stp::BridgeId decode(std::uint8_t w, const FieldContext& c, const Stp::BridgeId&) {
    return Stp::BridgeId{static_cast<std::uint16_t>((w >> 4) << 12), c.mstid.value(), c.cistBridgeAddress};
  }
};
/// MSTI Port Priority: the top four bits of the port priority in bits 8-5 of the octet.
struct MstiPortPriorityCodec {
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

// ---------------------------------------------------------------------------------------------------
// Kinds and verdicts
// ---------------------------------------------------------------------------------------------------

/// What a decode found. Addresses and the tag are filled as far as the frame reached; everything else
/// only for a valid BPDU.
struct BpduDecodeResult {
  BpduKind kind = BpduKind::Rejected;
  BpduReason reject = BpduReason::none;       ///< why the kind is Rejected (rateLimited: never decoded)
  BpduReason rstFallback = BpduReason::none;  ///< for a version 3+ RST: the MST rule the BPDU broke
  bool tagged = false;                        ///< an 802.1Q tag stood before the length
  Bridging::VlanIdOrNone vlan;                ///< the tag's VLAN id (low 12 bits), 0 when untagged
  Nelk::EthAddr destination;                  ///< reported, not checked: any destination is accepted
  Nelk::EthAddr source;
  std::uint16_t bpduLength = 0;               ///< BPDU octets the 802.3 length declares (LLC excluded)
  std::uint8_t mstiCount = 0;                 ///< MSTI configuration messages of an MST BPDU

  /// A BPDU of one of the four kinds (a default result is not valid).
  bool valid() const { return kind != BpduKind::Rejected; }
};

// ---------------------------------------------------------------------------------------------------
// Decoding
// ---------------------------------------------------------------------------------------------------

/// Decodes and validates the Ethernet frame of `size` octets at `frame` (destination, source, an
/// optional 802.1Q tag, the 802.3 length, LLC 42 42 03, the BPDU; octets after the declared length,
/// padding and FCS, are ignored) and, when it is a valid BPDU, fills `intxInfo` per the field table:
/// neighborAddr is the frame's source; the fields an entry does not carry are zeroed; entries the BPDU
/// does not carry are removed (as copyIntxInfo would), existing ones reused, MSTI entries written in
/// the order of their messages. A TCN writes only stpVersion and intxInfoType and leaves the rest.
///
/// A rejected frame leaves `intxInfo` untouched. Never reads outside [frame, frame + size), never
/// aborts, allocates nothing when the record already has the entries (and configuration name) that
/// the BPDU carries. `intxInfo` may be null: the frame is then only validated. `frame` may be null
/// when `size` is 0.
STPTXRX_EXPORT BpduDecodeResult generateIntxInfoFromPkt(const std::uint8_t* frame, std::size_t size,
                                                        IntxInfo* intxInfo);
/// As above for the data of `pkt`; a null packet is an empty frame.
STPTXRX_EXPORT BpduDecodeResult generateIntxInfoFromPkt(const Nelk::Pkt::Ptr& pkt, IntxInfo::Ptr intxInfo);

/// Files a frame received on `port`, counting it: a valid BPDU is decoded into `port->rxInfoIs(vlan)`,
/// then `rxUpdate(vlan)` rises by 1, then the count of its kind in `counters` and `bpduCount` by 1; a
/// rejected frame raises only its reason's count (and the total of rejects) in `counters` and
/// `bpduCount` (no record is created). `vlan` is the caller's choice of record, not the frame's tag.
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

// ---------------------------------------------------------------------------------------------------
// Encoding
// ---------------------------------------------------------------------------------------------------

/// Why a record was not encoded.
enum class BpduEncodeError : std::uint8_t {
  none,
  missingInput,      ///< "no record, or no port to send from"
  unsupportedKind,   ///< "no BPDU kind for this version and type"
  noCistEntry,       ///< "record has no common-instance entry"
  nameTooLong,       ///< "configuration name longer than 32 octets"
  tooManyMstis,      ///< "more than 64 MSTIs"
  mstiIdOutOfRange,  ///< "MSTI key above 4095"
  allocationFailed,  ///< "packet allocation failed"
};
STPTXRX_EXPORT const char* bpduEncodeErrorText(BpduEncodeError error);

/// A built frame, or why there is none.
struct BpduEncodeResult {
  Nelk::Pkt::Ptr pkt;
  BpduEncodeError error = BpduEncodeError::none;
  BpduKind kind = BpduKind::Rejected;
  explicit operator bool() const { return static_cast<bool>(pkt); }
};

/// The kind a record's stpVersion and intxInfoType name: version 0/1 type 0x00 Config, version 0/1 type
/// 0x80 TCN, version 2 type 2 RST, version 3 or higher type 2 MST; anything else Rejected.
STPTXRX_EXPORT BpduKind bpduKindOf(Stp::StpBpduVersion version, Stp::StpBpduType type);

/// Builds the BPDU frame that `intxInfo` names (bpduKindOf), sent from the MAC address of `portSm`'s
/// port record, untagged or, when `tagged`, with an 802.1Q tag (priority 7, VLAN id the low 12 bits of
/// `vlan`; `vlan` is not read otherwise). Sizes: Config 35, TCN 4, RST 36 (the octets
/// generatePktFromIntxInfo writes), MST 102 + 16 per MSTI; the protocol version octet is the record's.
/// An MST BPDU carries the entries other than key 0 as MSTI messages in ascending key order.
///
/// Errors come back in the result, with a null packet and nothing else changed: a null record, state
/// machine or port record; an unsupported version/type; no entry keyed 0 (Config, RST, MST); for MST a
/// name longer than 32 octets, more than 64 MSTIs or a key above 4095; no packet (the level-3 and
/// level-2 traces of the RST path). Traces the call at level 8 (no text built otherwise). Allocates
/// nothing but the packet, nothing at all when the packet pool is warm.
STPTXRX_EXPORT BpduEncodeResult generateBpduFromIntxInfo(const Stp::MstPortSm::Ptr& portSm,
                                                         const IntxInfo::Ptr& intxInfo, bool tagged,
                                                         Bridging::VlanIdOrNone vlan);

}  // namespace StpTxRx
