#pragma once
#include <stptxrx/net/IntfId.h>
#include <stptxrx/runtime/Collections.h>
#include <stptxrx/runtime/Entity.h>
#include <stptxrx/runtime/Export.h>
#include <stptxrx/runtime/String.h>
#include <stptxrx/runtime/TypeRegistry.h>
#include <stptxrx/state/BpduVerdict.h>
#include <stptxrx/state/IntxInfo.h>
#include <stptxrx/state/StpTypes.h>

#include <cstdint>

// The receive status: RxStatus -> RxMstStatus per group (same names as the transmit side) ->
// RxMstPortStatus per interface, holding what was learned from received BPDUs. Passive entities; members
// are created empty by their parent's `...Is(key)` and removed with everything below by `...Del(key)`.

namespace StpTxRx {

using Nelk::IntfId;

/// Receive status of one port in one group.
class STPTXRX_EXPORT RxMstPortStatus : public Zek::Entity {
 public:
  using Ptr = Zek::Ptr<RxMstPortStatus>;
  using RxUpdateMap = Zek::HashMap<VlanIdOrNone, std::uint32_t>;
  using RxInfoMap = Zek::HashMap<VlanIdOrNone, Zek::Ptr<IntxInfo>>;

  static constexpr Zek::AttributeId idIntfId = 258;
  static constexpr Zek::AttributeId idRxUpdate = 259;
  static constexpr Zek::AttributeId idRxInfo = 260;
  static constexpr Zek::AttributeId idCounters = 261;
  static constexpr Zek::AttributeId idLocalCounters = 262;
  static constexpr Zek::AttributeId idPeerCounters = 263;
  static constexpr Zek::AttributeId idBpduCount = 264;
  static constexpr Zek::AttributeId idRateLimitInterval = 265;
  static constexpr Zek::AttributeId idRateLimitMaxCount = 266;
  static constexpr Zek::AttributeId idRateLimitEnabled = 267;

  const IntfId& intfId() const { return intfId_; }

  /// Count of received-information updates of `vlan`; 0 when it has no entry.
  std::uint32_t rxUpdate(VlanIdOrNone vlan) const {
    const auto* v = rxUpdate_.find(vlan);
    return v ? *v : 0;
  }
  const RxUpdateMap& rxUpdate() const { return rxUpdate_; }
  /// Adds `amount` to the entry of `vlan`, creating it at 0 first. Wraps modulo 2^32.
  void rxUpdateInc(VlanIdOrNone vlan, std::uint32_t amount);
  /// Sets the entry of `vlan` (for the writers that own the source status).
  void rxUpdateIs(VlanIdOrNone vlan, std::uint32_t value) { valueIs(rxUpdate_, vlan, value, idRxUpdate); }
  void rxUpdateDel(VlanIdOrNone vlan) { valueDel(rxUpdate_, vlan, idRxUpdate); }

  Zek::Ptr<IntxInfo const> rxInfo(VlanIdOrNone vlan) const { return find(vlan); }
  Zek::Ptr<IntxInfo> rxInfo(VlanIdOrNone vlan) { return find(vlan); }
  Zek::MemberView<RxInfoMap, IntxInfo> rxInfo() const { return Zek::MemberView<RxInfoMap, IntxInfo>(rxInfo_); }
  /// The record of `vlan`, created empty (its key set to `vlan`) when absent.
  Zek::Ptr<IntxInfo> rxInfoIs(VlanIdOrNone vlan);
  Zek::Ptr<IntxInfo> rxInfoDel(VlanIdOrNone vlan) { return memberDel(rxInfo_, vlan, idRxInfo); }

  const PortCounters& counters() const { return counters_; }
  void countersIs(const PortCounters& v) { attributeIs(counters_, v, idCounters); }
  const PortCounters& localCounters() const { return localCounters_; }
  void localCountersIs(const PortCounters& v) { attributeIs(localCounters_, v, idLocalCounters); }
  /// Peer counterpart of `counters`; kept by the agent, never copied by the receive syncers.
  const PortCounters& peerCounters() const { return peerCounters_; }
  void peerCountersIs(const PortCounters& v) { attributeIs(peerCounters_, v, idPeerCounters); }

  std::uint32_t bpduCount() const { return bpduCount_; }
  void bpduCountIs(std::uint32_t v) { attributeIs(bpduCount_, v, idBpduCount); }
  double rateLimitInterval() const { return rateLimitInterval_; }
  void rateLimitIntervalIs(const double& v) { attributeIs(rateLimitInterval_, v, idRateLimitInterval); }
  std::uint32_t rateLimitMaxCount() const { return rateLimitMaxCount_; }
  void rateLimitMaxCountIs(std::uint32_t v) { attributeIs(rateLimitMaxCount_, v, idRateLimitMaxCount); }
  bool rateLimitEnabled() const { return rateLimitEnabled_; }
  void rateLimitEnabledIs(bool v) { attributeIs(rateLimitEnabled_, v, idRateLimitEnabled); }

 private:
  friend class RxMstStatus;
  explicit RxMstPortStatus(IntfId intf) : intfId_(std::move(intf)) {}
  Zek::Ptr<IntxInfo> find(VlanIdOrNone vlan) const {
    const auto* p = rxInfo_.find(vlan);
    return p ? *p : Zek::Ptr<IntxInfo>();
  }

  IntfId intfId_;
  RxUpdateMap rxUpdate_;
  RxInfoMap rxInfo_;
  PortCounters counters_;
  PortCounters localCounters_;
  PortCounters peerCounters_;
  std::uint32_t bpduCount_ = 0;
  double rateLimitInterval_ = 0.0;
  std::uint32_t rateLimitMaxCount_ = 0;
  bool rateLimitEnabled_ = false;

  ZEK_TYPE(RxMstPortStatus);
};

/// One group (by name) of the receive status: its ports.
class STPTXRX_EXPORT RxMstStatus : public Zek::Entity {
 public:
  using Ptr = Zek::Ptr<RxMstStatus>;
  using PortMap = Zek::HashMap<IntfId, Zek::Ptr<RxMstPortStatus>>;

  static constexpr Zek::AttributeId idName = 258;
  static constexpr Zek::AttributeId idRxMstPortStatus = 259;

  const Zek::Name& name() const { return name_; }

  Zek::Ptr<RxMstPortStatus const> rxMstPortStatus(const IntfId& intf) const { return find(intf); }
  Zek::Ptr<RxMstPortStatus> rxMstPortStatus(const IntfId& intf) { return find(intf); }
  Zek::MemberView<PortMap, RxMstPortStatus> rxMstPortStatus() const {
    return Zek::MemberView<PortMap, RxMstPortStatus>(ports_);
  }
  Zek::Ptr<RxMstPortStatus> rxMstPortStatusIs(const IntfId& intf);
  Zek::Ptr<RxMstPortStatus> rxMstPortStatusDel(const IntfId& intf) {
    return memberDel(ports_, intf, idRxMstPortStatus);
  }

 private:
  friend class RxStatus;
  explicit RxMstStatus(Zek::Name name) : name_(std::move(name)) {}
  Zek::Ptr<RxMstPortStatus> find(const IntfId& intf) const {
    const auto* p = ports_.find(intf);
    return p ? *p : Zek::Ptr<RxMstPortStatus>();
  }

  Zek::Name name_;
  PortMap ports_;

  ZEK_TYPE(RxMstStatus);
};

/// The root of a receive status tree: groups by name, heartbeats and counter-update times.
class STPTXRX_EXPORT RxStatus : public Zek::Entity {
 public:
  using Ptr = Zek::Ptr<RxStatus>;
  using GroupMap = Zek::HashMap<Zek::Name, Zek::Ptr<RxMstStatus>>;

  static constexpr Zek::AttributeId idRxMstStatus = 258;
  static constexpr Zek::AttributeId idLocalHeartbeat = 259;
  static constexpr Zek::AttributeId idPeerHeartbeat = 260;
  static constexpr Zek::AttributeId idUpdateCtr = 261;
  static constexpr Zek::AttributeId idUpdateCtrTime = 262;
  static constexpr Zek::AttributeId idLocalUpdateCtrTime = 263;
  static constexpr Zek::AttributeId idPeerUpdateCtrTime = 264;

  /// A new, empty status with no owner.
  static Ptr RxStatusIs();

  Zek::Ptr<RxMstStatus const> rxMstStatus(const Zek::Name& name) const { return find(name); }
  Zek::Ptr<RxMstStatus> rxMstStatus(const Zek::Name& name) { return find(name); }
  Zek::MemberView<GroupMap, RxMstStatus> rxMstStatus() const { return Zek::MemberView<GroupMap, RxMstStatus>(groups_); }
  Zek::Ptr<RxMstStatus> rxMstStatusIs(const Zek::Name& name);
  Zek::Ptr<RxMstStatus> rxMstStatusDel(const Zek::Name& name) { return memberDel(groups_, name, idRxMstStatus); }

  std::uint32_t localHeartbeat() const { return localHeartbeat_; }
  void localHeartbeatIs(std::uint32_t v) { attributeIs(localHeartbeat_, v, idLocalHeartbeat); }
  std::uint32_t peerHeartbeat() const { return peerHeartbeat_; }
  void peerHeartbeatIs(std::uint32_t v) { attributeIs(peerHeartbeat_, v, idPeerHeartbeat); }
  /// Number of counter updates; kept by the agent, never copied by the receive syncers.
  std::uint64_t updateCtr() const { return updateCtr_; }
  void updateCtrIs(std::uint64_t v) { attributeIs(updateCtr_, v, idUpdateCtr); }
  double updateCtrTime() const { return updateCtrTime_; }
  void updateCtrTimeIs(const double& v) { attributeIs(updateCtrTime_, v, idUpdateCtrTime); }
  double localUpdateCtrTime() const { return localUpdateCtrTime_; }
  void localUpdateCtrTimeIs(const double& v) { attributeIs(localUpdateCtrTime_, v, idLocalUpdateCtrTime); }
  double peerUpdateCtrTime() const { return peerUpdateCtrTime_; }
  void peerUpdateCtrTimeIs(const double& v) { attributeIs(peerUpdateCtrTime_, v, idPeerUpdateCtrTime); }

 private:
  RxStatus() = default;
  Zek::Ptr<RxMstStatus> find(const Zek::Name& name) const {
    const auto* p = groups_.find(name);
    return p ? *p : Zek::Ptr<RxMstStatus>();
  }

  GroupMap groups_;
  std::uint32_t localHeartbeat_ = 0;
  std::uint32_t peerHeartbeat_ = 0;
  std::uint64_t updateCtr_ = 0;
  double updateCtrTime_ = 0.0;
  double localUpdateCtrTime_ = 0.0;
  double peerUpdateCtrTime_ = 0.0;

  ZEK_TYPE(RxStatus);
};

}  // namespace StpTxRx
