#pragma once
#include <stptxrx/net/IntfId.h>
#include <stptxrx/runtime/Collections.h>
#include <stptxrx/runtime/Entity.h>
#include <stptxrx/runtime/Export.h>
#include <stptxrx/runtime/String.h>
#include <stptxrx/runtime/TypeRegistry.h>
#include <stptxrx/state/IntxInfo.h>
#include <stptxrx/state/StpTypes.h>

#include <cstdint>
#include <optional>

// The transmit status of a spanning-tree agent: TxStatus -> TxMstStatus per group (by name) ->
// TxMstPortStatus per interface -> what is to be transmitted on that port, per VLAN. Passive entities:
// every change notifies the reactors that watch them; members are created empty by their parent's
// `...Is(key)` and removed with everything below them by `...Del(key)`.

namespace StpTxRx {

using Nelk::IntfId;

/// One port of one group: the per-VLAN transmit records (`txInfo`), the per-VLAN update counters
/// (`txUpdate`), `txNewInfo` and `txHelloWhenOn`.
class STPTXRX_EXPORT TxMstPortStatus : public Zek::Entity {
 public:
  using Ptr = Zek::Ptr<TxMstPortStatus>;
  using TxUpdateMap = Zek::HashMap<VlanIdOrNone, std::uint32_t>;
  using TxInfoMap = Zek::HashMap<VlanIdOrNone, Zek::Ptr<IntxInfo>>;

  static constexpr Zek::AttributeId idIntfId = 258;
  static constexpr Zek::AttributeId idTxUpdate = 259;
  static constexpr Zek::AttributeId idTxNewInfo = 260;
  static constexpr Zek::AttributeId idTxHelloWhenOn = 261;
  static constexpr Zek::AttributeId idTxInfo = 262;

  const IntfId& intfId() const { return intfId_; }

  /// The counter of `vlan`, or nothing when it has no entry.
  std::optional<std::uint32_t> txUpdate(VlanIdOrNone vlan) const {
    const auto* v = txUpdate_.find(vlan);
    return v ? std::optional<std::uint32_t>(*v) : std::nullopt;
  }
  const TxUpdateMap& txUpdate() const { return txUpdate_; }
  void txUpdateIs(VlanIdOrNone vlan, std::uint32_t value) { valueIs(txUpdate_, vlan, value, idTxUpdate); }
  void txUpdateDel(VlanIdOrNone vlan) { valueDel(txUpdate_, vlan, idTxUpdate); }

  std::uint32_t txNewInfo() const { return txNewInfo_; }
  void txNewInfoIs(std::uint32_t v) { attributeIs(txNewInfo_, v, idTxNewInfo); }

  Stp::TimerVal txHelloWhenOn() const { return txHelloWhenOn_; }
  void txHelloWhenOnIs(Stp::TimerVal v) { attributeIs(txHelloWhenOn_, v, idTxHelloWhenOn); }

  Zek::Ptr<IntxInfo const> txInfo(VlanIdOrNone vlan) const { return find(vlan); }
  Zek::Ptr<IntxInfo> txInfo(VlanIdOrNone vlan) { return find(vlan); }
  Zek::MemberView<TxInfoMap, IntxInfo> txInfo() const { return Zek::MemberView<TxInfoMap, IntxInfo>(txInfo_); }
  /// The record of `vlan`, created empty (its key set to `vlan`) when absent.
  Zek::Ptr<IntxInfo> txInfoIs(VlanIdOrNone vlan);
  /// Removes and returns the record of `vlan`; null when absent.
  Zek::Ptr<IntxInfo> txInfoDel(VlanIdOrNone vlan) { return memberDel(txInfo_, vlan, idTxInfo); }

 private:
  friend class TxMstStatus;
  explicit TxMstPortStatus(IntfId intf) : intfId_(std::move(intf)) {}
  Zek::Ptr<IntxInfo> find(VlanIdOrNone vlan) const {
    const auto* p = txInfo_.find(vlan);
    return p ? *p : Zek::Ptr<IntxInfo>();
  }

  IntfId intfId_;
  TxUpdateMap txUpdate_;
  std::uint32_t txNewInfo_ = 0;
  Stp::TimerVal txHelloWhenOn_;
  TxInfoMap txInfo_;

  ZEK_TYPE(TxMstPortStatus);
};

/// One group (by name) of the transmit status: its ports.
class STPTXRX_EXPORT TxMstStatus : public Zek::Entity {
 public:
  using Ptr = Zek::Ptr<TxMstStatus>;
  using PortMap = Zek::HashMap<IntfId, Zek::Ptr<TxMstPortStatus>>;

  static constexpr Zek::AttributeId idName = 258;
  static constexpr Zek::AttributeId idTxMstPortStatus = 259;

  const Zek::Name& name() const { return name_; }

  Zek::Ptr<TxMstPortStatus const> txMstPortStatus(const IntfId& intf) const { return find(intf); }
  Zek::Ptr<TxMstPortStatus> txMstPortStatus(const IntfId& intf) { return find(intf); }
  Zek::MemberView<PortMap, TxMstPortStatus> txMstPortStatus() const {
    return Zek::MemberView<PortMap, TxMstPortStatus>(ports_);
  }
  Zek::Ptr<TxMstPortStatus> txMstPortStatusIs(const IntfId& intf);
  Zek::Ptr<TxMstPortStatus> txMstPortStatusDel(const IntfId& intf) {
    return memberDel(ports_, intf, idTxMstPortStatus);
  }

 private:
  friend class TxStatus;
  explicit TxMstStatus(Zek::Name name) : name_(std::move(name)) {}
  Zek::Ptr<TxMstPortStatus> find(const IntfId& intf) const {
    const auto* p = ports_.find(intf);
    return p ? *p : Zek::Ptr<TxMstPortStatus>();
  }

  Zek::Name name_;
  PortMap ports_;

  ZEK_TYPE(TxMstStatus);
};

/// The root of a transmit status tree: groups by name and the heartbeat timeout (seconds).
class STPTXRX_EXPORT TxStatus : public Zek::Entity {
 public:
  using Ptr = Zek::Ptr<TxStatus>;
  using GroupMap = Zek::HashMap<Zek::Name, Zek::Ptr<TxMstStatus>>;

  static constexpr Zek::AttributeId idTxMstStatus = 258;
  static constexpr Zek::AttributeId idHeartbeatTimeout = 259;

  /// A new, empty status with no owner.
  static Ptr TxStatusIs();

  Zek::Ptr<TxMstStatus const> txMstStatus(const Zek::Name& name) const { return find(name); }
  Zek::Ptr<TxMstStatus> txMstStatus(const Zek::Name& name) { return find(name); }
  Zek::MemberView<GroupMap, TxMstStatus> txMstStatus() const { return Zek::MemberView<GroupMap, TxMstStatus>(groups_); }
  Zek::Ptr<TxMstStatus> txMstStatusIs(const Zek::Name& name);
  Zek::Ptr<TxMstStatus> txMstStatusDel(const Zek::Name& name) { return memberDel(groups_, name, idTxMstStatus); }

  double heartbeatTimeout() const { return heartbeatTimeout_; }
  void heartbeatTimeoutIs(const double& v) { attributeIs(heartbeatTimeout_, v, idHeartbeatTimeout); }

 private:
  TxStatus() = default;
  Zek::Ptr<TxMstStatus> find(const Zek::Name& name) const {
    const auto* p = groups_.find(name);
    return p ? *p : Zek::Ptr<TxMstStatus>();
  }

  GroupMap groups_;
  double heartbeatTimeout_ = 0.0;

  ZEK_TYPE(TxStatus);
};

}  // namespace StpTxRx
