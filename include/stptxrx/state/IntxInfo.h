#pragma once
#include <stptxrx/runtime/Collections.h>
#include <stptxrx/runtime/Entity.h>
#include <stptxrx/runtime/Export.h>
#include <stptxrx/runtime/String.h>
#include <stptxrx/runtime/TypeRegistry.h>
#include <stptxrx/state/StpTypes.h>

#include <iosfwd>
#include <type_traits>

namespace StpTxRx {

using Bridging::VlanIdOrNone;
using Stp::BridgeId;
using Stp::BridgeSystemId;
using Stp::MstpConfigDigest;
using Stp::PathCost;
using Stp::PortId;
using Stp::RstpBpduFlags;
using Stp::StpBpduType;
using Stp::StpBpduVersion;
using Stp::TimerVal;

/// The thirteen instance attributes of IntxMstiInfo in declaration order, as a list macro: `X(name)`
/// once per attribute. Every list that must name each attribute (the field visitor, the per-field
/// handlers of the reactors on an entry) expands this one, so none can miss or reorder one.
#define STPTXRX_MSTI_FIELDS(X)                                                                            \
  X(flags) X(bridgeId) X(portId) X(cistRootBridgeId) X(cistExtRootPathCost) X(cistRegionalRootBridgeId) \
  X(intRootPathCost) X(regionalRootBridgeId) X(remainingHops) X(messageAge) X(maxAge) X(helloTime)     \
  X(fwdDelay)

/// Declares `void zek_handleMstiN_<name>();`: one per-field handler of a reactor on an entry.
#define STPTXRX_MSTI_FIELD_HANDLER(name) void zek_handleMstiN_##name();

/// One spanning-tree instance's entry of an IntxInfo: priority vectors, flags and timers of that instance.
/// Created by IntxInfo::mstiNIs; a removed entry stays valid for holders of a pointer to it. Attributes
/// start at their types' zero.
class STPTXRX_EXPORT IntxMstiInfo : public Zek::Entity {
 public:
  using Ptr = Zek::Ptr<IntxMstiInfo>;
  using PtrConst = Zek::Ptr<IntxMstiInfo const>;

  // Attribute identifiers, in declaration order (the key first).
  static constexpr Zek::AttributeId idKey = 258;
  static constexpr Zek::AttributeId idFlags = 259;
  static constexpr Zek::AttributeId idBridgeId = 260;
  static constexpr Zek::AttributeId idPortId = 261;
  static constexpr Zek::AttributeId idCistRootBridgeId = 262;
  static constexpr Zek::AttributeId idCistExtRootPathCost = 263;
  static constexpr Zek::AttributeId idCistRegionalRootBridgeId = 264;
  static constexpr Zek::AttributeId idIntRootPathCost = 265;
  static constexpr Zek::AttributeId idRegionalRootBridgeId = 266;
  static constexpr Zek::AttributeId idRemainingHops = 267;
  static constexpr Zek::AttributeId idMessageAge = 268;
  static constexpr Zek::AttributeId idMaxAge = 269;
  static constexpr Zek::AttributeId idHelloTime = 270;
  static constexpr Zek::AttributeId idFwdDelay = 271;

  BridgeSystemId key() const { return key_; }
  RstpBpduFlags flags() const { return flags_; }
  const BridgeId& bridgeId() const { return bridgeId_; }
  PortId portId() const { return portId_; }
  const BridgeId& cistRootBridgeId() const { return cistRootBridgeId_; }
  PathCost cistExtRootPathCost() const { return cistExtRootPathCost_; }
  const BridgeId& cistRegionalRootBridgeId() const { return cistRegionalRootBridgeId_; }
  PathCost intRootPathCost() const { return intRootPathCost_; }
  const BridgeId& regionalRootBridgeId() const { return regionalRootBridgeId_; }
  unsigned char remainingHops() const { return remainingHops_; }
  TimerVal messageAge() const { return messageAge_; }
  TimerVal maxAge() const { return maxAge_; }
  TimerVal helloTime() const { return helloTime_; }
  TimerVal fwdDelay() const { return fwdDelay_; }

  void flagsIs(RstpBpduFlags v) { attributeIs(flags_, v, idFlags); }
  void bridgeIdIs(const BridgeId& v) { attributeIs(bridgeId_, v, idBridgeId); }
  void portIdIs(PortId v) { attributeIs(portId_, v, idPortId); }
  void cistRootBridgeIdIs(const BridgeId& v) { attributeIs(cistRootBridgeId_, v, idCistRootBridgeId); }
  void cistExtRootPathCostIs(PathCost v) { attributeIs(cistExtRootPathCost_, v, idCistExtRootPathCost); }
  void cistRegionalRootBridgeIdIs(const BridgeId& v) {
    attributeIs(cistRegionalRootBridgeId_, v, idCistRegionalRootBridgeId);
  }
  void intRootPathCostIs(PathCost v) { attributeIs(intRootPathCost_, v, idIntRootPathCost); }
  void regionalRootBridgeIdIs(const BridgeId& v) { attributeIs(regionalRootBridgeId_, v, idRegionalRootBridgeId); }
  void remainingHopsIs(unsigned char v) { attributeIs(remainingHops_, v, idRemainingHops); }
  void messageAgeIs(TimerVal v) { attributeIs(messageAge_, v, idMessageAge); }
  void maxAgeIs(TimerVal v) { attributeIs(maxAge_, v, idMaxAge); }
  void helloTimeIs(TimerVal v) { attributeIs(helloTime_, v, idHelloTime); }
  void fwdDelayIs(TimerVal v) { attributeIs(fwdDelay_, v, idFwdDelay); }

  /// True when every attribute but the key is equal.
  bool sameValues(const IntxMstiInfo& o) const;

  /// One attribute as compile-time member pointers (`get`, `set`), so that visitors call them directly.
  template <auto Get, auto Set>
  struct Field {
    static constexpr auto get = Get;
    static constexpr auto set = Set;
  };

  /// Calls `visit(Field<getter, setter>{})` for the thirteen attributes, in declaration order: the one
  /// list of the fields that every whole-entry copy and comparison walks.
  template <class Visit>
  static constexpr void forEachField(Visit&& visit) {
#define STPTXRX_VISIT_FIELD(name) visit(Field<&IntxMstiInfo::name, &IntxMstiInfo::name##Is>{});
    STPTXRX_MSTI_FIELDS(STPTXRX_VISIT_FIELD)
#undef STPTXRX_VISIT_FIELD
  }

  /// Writes the thirteen attributes of `src` (their zero values when `src` is null) through the setters,
  /// in declaration order, without comparing first: the setters decide whether a write notifies.
  void valuesIs(const IntxMstiInfo* src) {
    forEachField([&](auto field) {
      using F = decltype(field);
      using V = std::remove_cvref_t<decltype((this->*F::get)())>;
      (this->*F::set)(src ? (src->*F::get)() : V{});
    });
  }

  /// Number of attributes besides the key.
  static constexpr int fieldCount = 13;
  /// Position (0 to 12, declaration order) of the field attribute `id`; -1 for the key and unknown ids.
  /// Reactors on an entry keep their thirteen per-field handlers in a table in this order.
  static constexpr int fieldIndex(Zek::AttributeId id) {
    return id >= idFlags && id <= idFwdDelay ? static_cast<int>(id - idFlags) : -1;
  }

 private:
  friend class IntxInfo;
  explicit IntxMstiInfo(BridgeSystemId key) : key_(key) {}

  BridgeSystemId key_;
  RstpBpduFlags flags_;
  BridgeId bridgeId_;
  PortId portId_;
  BridgeId cistRootBridgeId_;
  PathCost cistExtRootPathCost_ = 0;
  BridgeId cistRegionalRootBridgeId_;
  PathCost intRootPathCost_ = 0;
  BridgeId regionalRootBridgeId_;
  unsigned char remainingHops_ = 0;
  TimerVal messageAge_;
  TimerVal maxAge_;
  TimerVal helloTime_;
  TimerVal fwdDelay_;

  ZEK_TYPE(IntxMstiInfo);
};

/// The contents of one BPDU of one port on one VLAN: version, type, MST configuration identifier, and
/// one IntxMstiInfo per spanning-tree instance in `mstiN`, ordered by key. The transmit side holds what
/// the port is to send next (TxMstPortStatus::txInfo); the receive side holds, in the same type, what
/// the port last received (RxMstPortStatus::rxInfo).
///
/// Created with IntxInfo::IntxInfoIs(vlan) or by its owner (TxMstPortStatus::txInfoIs,
/// RxMstPortStatus::rxInfoIs); `vlanIdOrZero` is its key, fixed at creation. New records hold zeros and
/// no entries.
class STPTXRX_EXPORT IntxInfo : public Zek::Entity {
 public:
  using Ptr = Zek::Ptr<IntxInfo>;
  using PtrConst = Zek::Ptr<IntxInfo const>;
  using MstiNMap = Zek::OrderedMap<BridgeSystemId, Zek::Ptr<IntxMstiInfo>>;

  // Attribute identifiers, in declaration order.
  static constexpr Zek::AttributeId idNeighborAddr = 258;
  static constexpr Zek::AttributeId idVlanIdOrZero = 259;
  static constexpr Zek::AttributeId idStpVersion = 260;
  static constexpr Zek::AttributeId idIntxInfoType = 261;
  static constexpr Zek::AttributeId idConfigRevisionLevel = 262;
  static constexpr Zek::AttributeId idConfigNameString = 263;
  static constexpr Zek::AttributeId idConfigDigest = 264;
  static constexpr Zek::AttributeId idMstiN = 265;

  /// A new record with no owner.
  static Ptr IntxInfoIs(VlanIdOrNone vlanIdOrZero);

  const Nelk::EthAddr& neighborAddr() const { return neighborAddr_; }
  VlanIdOrNone vlanIdOrZero() const { return vlanIdOrZero_; }
  StpBpduVersion stpVersion() const { return stpVersion_; }
  StpBpduType intxInfoType() const { return intxInfoType_; }
  unsigned short configRevisionLevel() const { return configRevisionLevel_; }
  const Zek::String& configNameString() const { return configNameString_; }
  const MstpConfigDigest& configDigest() const { return configDigest_; }

  void neighborAddrIs(const Nelk::EthAddr& v) { attributeIs(neighborAddr_, v, idNeighborAddr); }
  void stpVersionIs(StpBpduVersion v) { attributeIs(stpVersion_, v, idStpVersion); }
  void intxInfoTypeIs(StpBpduType v) { attributeIs(intxInfoType_, v, idIntxInfoType); }
  void configRevisionLevelIs(unsigned short v) { attributeIs(configRevisionLevel_, v, idConfigRevisionLevel); }
  /// The string is shared, not duplicated.
  void configNameStringIs(Zek::String v) { attributeIs(configNameString_, std::move(v), idConfigNameString); }
  void configDigestIs(const MstpConfigDigest& v) { attributeIs(configDigest_, v, idConfigDigest); }

  /// The entry for `key`, or null.
  Zek::Ptr<IntxMstiInfo const> mstiN(BridgeSystemId key) const { return lookup(key); }
  /// The entry for `key` without taking a reference (null when absent): for readers that finish with it
  /// before anything can change the record, such as an encoder.
  const IntxMstiInfo* mstiNEntry(BridgeSystemId key) const {
    const auto* p = mstiN_.find(key);
    return p ? p->get() : nullptr;
  }
  Zek::Ptr<IntxMstiInfo> mstiN(BridgeSystemId key) { return lookup(key); }
  /// All entries in ascending key order (tolerates changes during the walk).
  Zek::MemberView<MstiNMap, IntxMstiInfo> mstiN() const { return Zek::MemberView<MstiNMap, IntxMstiInfo>(mstiN_); }
  std::size_t mstiNCount() const { return mstiN_.size(); }
  /// The entry for `key`, created (and announced) when absent; an existing entry is returned unchanged.
  Zek::Ptr<IntxMstiInfo> mstiNIs(BridgeSystemId key);
  /// Removes the entry for `key` and returns it; null (and no notification) when absent.
  Zek::Ptr<IntxMstiInfo> mstiNDel(BridgeSystemId key);

  /// True when every copied attribute and every entry (keys and values) are equal; the key is ignored.
  bool sameContent(const IntxInfo& o) const;

 private:
  explicit IntxInfo(VlanIdOrNone vlan) : vlanIdOrZero_(vlan) {}

  Zek::Ptr<IntxMstiInfo> lookup(BridgeSystemId key) const {
    const auto* p = mstiN_.find(key);
    return p ? *p : Zek::Ptr<IntxMstiInfo>();
  }

  Nelk::EthAddr neighborAddr_;
  VlanIdOrNone vlanIdOrZero_;
  StpBpduVersion stpVersion_;
  StpBpduType intxInfoType_;
  unsigned short configRevisionLevel_ = 0;
  Zek::String configNameString_;
  MstpConfigDigest configDigest_;
  MstiNMap mstiN_;

  ZEK_TYPE(IntxInfo);
};

/// Prints the record on one line: vlan, version, type, neighbour, configuration, then every instance
/// entry in full, in key order: "msti=[IntxMstiInfo(0 flags=0x3c ...), IntxMstiInfo(1 ...)]".
STPTXRX_EXPORT std::ostream& operator<<(std::ostream& os, const IntxInfo& info);
/// As above; prints "(null)" for a null pointer.
STPTXRX_EXPORT std::ostream& operator<<(std::ostream& os, const Zek::Ptr<IntxInfo const>& info);
/// Prints one entry: key, flags, identifiers, costs, hops and timers (as wire octets).
STPTXRX_EXPORT std::ostream& operator<<(std::ostream& os, const IntxMstiInfo& entry);

}  // namespace StpTxRx
