#include <stptxrx/Stp/SyncerTrace.h>
#include <stptxrx/Stp/TxStatusToTxSyncer.h>
#include <stptxrx/runtime/Reconcile.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace StpTxRx {

using PortSm = TxStatusToTxSyncer::ZekTxMstStatusSm::ZekTxMstPortStatusSm;

ZEK_TYPE_DEFINE(TxStatusToTxSyncer, "StpTxRx::TxStatusToTxSyncer")
ZEK_TYPE_DEFINE(TxStatusToTxSyncer::ZekSource, "StpTxRx::TxStatusToTxSyncer::ZekSource")
ZEK_TYPE_DEFINE(TxStatusToTxSyncer::ZekTxMstStatusSm, "StpTxRx::TxStatusToTxSyncer::ZekTxMstStatusSm")
ZEK_TYPE_DEFINE(TxStatusToTxSyncer::ZekTxMstStatusSm::ZekTxMstPortStatusSm,
                "StpTxRx::TxStatusToTxSyncer::ZekTxMstStatusSm::ZekTxMstPortStatusSm")

namespace {

constexpr const char* syncerType = "TxStatusToTxSyncer";
constexpr const char* groupSmType = "TxStatusToTxSyncer::ZekTxMstStatusSm";
constexpr const char* portSmType = "TxStatusToTxSyncer::ZekTxMstStatusSm::ZekTxMstPortStatusSm";
constexpr const char* label = "TxToTx";
constexpr const char* groupLabel = "TxToTx::ZekTxMstStatusSm";
constexpr const char* portLabel = "TxToTx::ZekTxMstPortStatusSm";

/// Value text of a record in a reinstantiation error: its identity, which is what differs.
std::string recordText(const IntxInfo* record) {
  if (!record) return Zek::identityText(nullptr);
  return Zek::identityText(record, "IntxInfo", "vlan=" + std::to_string(unsigned{record->vlanIdOrZero().value()}));
}

}  // namespace

// =========================================================================================================
// TxStatusToTxSyncer

TxStatusToTxSyncer::Ptr TxStatusToTxSyncer::TxStatusToTxSyncerIs(const Zek::Ptr<TxStatus const>& source,
                                                                 const Zek::Ptr<TxStatus>& dest) {
  return Zek::activated(new TxStatusToTxSyncer(source, dest));
}

TxStatusToTxSyncer::Ptr txStatusToTxSyncerFactory(const Zek::Ptr<TxStatus const>& source,
                                                  const Zek::Ptr<TxStatus>& dest) {
  return TxStatusToTxSyncer::TxStatusToTxSyncerIs(source, dest);
}

TxStatusToTxSyncer::TxStatusToTxSyncer(const Zek::Ptr<TxStatus const>& source, const Zek::Ptr<TxStatus>& dest)
    : dest_(dest) {
  source_.create(source, this);
  // The mirrored scalar first, once, before any member: the image of an absent source is 0.0.
  if (dest_) dest_->heartbeatTimeoutIs(source ? source->heartbeatTimeout() : 0.0);
  if (source) {
    zekTxMstStatusSm_.mirrorAll(
        source->txMstStatus(), [&](const Zek::Name& name) { return source->txMstStatus(name) != nullptr; }, this,
        syncerType, "txMstStatus");
  }
  handleInitialized();
}

// Zombie first (reaches the source reactor and every group and port reactor while back pointers are still
// set), then detach and release. The destination is released, never emptied.
TxStatusToTxSyncer::~TxStatusToTxSyncer() {
  Zek::teardown(*this, source_, zekTxMstStatusSm_);
  dest_ = nullptr;
}

void TxStatusToTxSyncer::passNotificationActive(bool active) {
  Zek::passNotificationActiveTo(active, source_, zekTxMstStatusSm_);
}

void TxStatusToTxSyncer::passZombie(bool zombie) { Zek::passZombieTo(zombie, source_, zekTxMstStatusSm_); }

void TxStatusToTxSyncer::handleInitialized() {
  ZEK_BINARY_TRACE();
  STP_TX_SYNCER_TRACE(8, label, keyInfo(), "handleInitialized", "");
  // Each group's own full copy, then this level's handler; every source group with a machine then has its
  // destination group, so a count that differs from the source's means destination groups it lacks.
  const Zek::Ptr<TxStatus> dst = dest_;
  Zek::reconcile(
      zekTxMstStatusSm_.map(), Zek::keysOf(dst.get(), [](const TxStatus& d) { return d.txMstStatus(); }),
      [this](const Zek::Name& name, const Zek::Ptr<ZekTxMstStatusSm>& sm) {
        sm->handleInitialized();
        handleTxMstStatus(name);
      },
      [this](const Zek::Name& name) { handleTxMstStatus(name); },
      [this] {
        const Zek::Ptr<TxStatus const> src = source();
        return src ? src->txMstStatus().size() : 0;
      });
  initializedIs(true);
}

void TxStatusToTxSyncer::handleTxMstStatus(Zek::String name) {
  ZEK_BINARY_TRACE();
  Zek::Ptr<TxStatus> dst = dest_;
  if (!dst) return;
  const TxStatus* src = source_ ? source_.get()->watched() : nullptr;
  syncTxMember(
      *this, label, "handleTxMstStatus", src && src->txMstStatus(name), name, "creating ",
      [&] { dst->txMstStatusIs(name); }, "deleting ", [&] { dst->txMstStatusDel(name); });
}

Zek::Ptr<TxStatusToTxSyncer::ZekTxMstStatusSm> TxStatusToTxSyncer::txMstStatusIs(
    const Zek::Ptr<TxMstStatus const>& group) {
  return zekTxMstStatusSm_.is(group, this, syncerType, "txMstStatus");
}

Zek::Ptr<TxMstStatus const> TxStatusToTxSyncer::txMstStatusDel(Zek::Name name) { return zekTxMstStatusSm_.del(name); }

void TxStatusToTxSyncer::txMstStatusDelAll() { zekTxMstStatusSm_.delAll(); }

TxStatusToTxSyncer::ZekTxMstStatusSm* TxStatusToTxSyncer::zekTxMstStatusSm(const Zek::Name& name) const {
  return zekTxMstStatusSm_.find(name);
}

std::size_t TxStatusToTxSyncer::zekTxMstStatusSmCount() const { return zekTxMstStatusSm_.size(); }

Zek::Ptr<TxStatus const> TxStatusToTxSyncer::sourceDel() { return source_.del(); }

// =========================================================================================================
// ZekSource

void TxStatusToTxSyncer::ZekSource::onAttribute(Zek::AttributeId id, const void* key) {
  switch (id) {
    case TxStatus::idHeartbeatTimeout: {
      // No trace, no comparison and no zombie gate: the value follows the source as long as the reactor
      // is bound and owned.
      const TxStatus* src = watched();
      TxStatusToTxSyncer* o = owner();
      if (src && o && o->dest_) o->dest_->heartbeatTimeoutIs(src->heartbeatTimeout());
      return;
    }
    case TxStatus::idTxMstStatus: {
      if (!key) return;
      // A copy of the key: the handler may remove the member the notification's key lives in.
      const Zek::Name name = *static_cast<const Zek::Name*>(key);
      if (!zekMarkedForDeletion() && owner()) owner()->handleTxMstStatus(name);
      // The handler may have made the owner drop this reactor (sourceDel() from an observer of the
      // destination); the dispatcher's reference keeps it alive and owner() tells whether it is owned.
      const TxStatus* src = watched();
      TxStatusToTxSyncer* o = owner();
      if (!src || !o) return;
      o->zekTxMstStatusSm_.mirror(name, src->txMstStatus(name), o, syncerType, "txMstStatus");
      return;
    }
    default:
      return;
  }
}

// =========================================================================================================
// ZekTxMstStatusSm

TxStatusToTxSyncer::ZekTxMstStatusSm::ZekTxMstStatusSm(const Zek::Ptr<TxMstStatus const>& group,
                                                       TxStatusToTxSyncer* owner)
    : Reactor(group, owner), name_(group->name()) {
  mirrorPorts(*group);
  handleInitialized();
}

TxStatusToTxSyncer::ZekTxMstStatusSm::~ZekTxMstStatusSm() {
  Zek::teardown(*this, zekTxMstPortStatus_);
  dest_ = nullptr;
}

void TxStatusToTxSyncer::ZekTxMstStatusSm::passNotificationActive(bool active) {
  Zek::passNotificationActiveTo(active, zekTxMstPortStatus_);
}

void TxStatusToTxSyncer::ZekTxMstStatusSm::passZombie(bool zombie) { Zek::passZombieTo(zombie, zekTxMstPortStatus_); }

std::string TxStatusToTxSyncer::ZekTxMstStatusSm::keyInfo() const {
  std::string s;
  s.reserve(name_.size() + 2);
  s.append("[").append(name_.view()).append("]");
  return s;
}

void TxStatusToTxSyncer::ZekTxMstStatusSm::mirrorPorts(const TxMstStatus& group) {
  zekTxMstPortStatus_.mirrorAll(
      group.txMstPortStatus(), [&](const IntfId& intf) { return group.txMstPortStatus(intf) != nullptr; }, this,
      groupSmType, "txMstPortStatus");
}

void TxStatusToTxSyncer::ZekTxMstStatusSm::handleInitialized() {
  ZEK_BINARY_TRACE();
  STP_TX_SYNCER_TRACE(8, groupLabel, keyInfo(), "handleInitialized", "");
  if (TxStatusToTxSyncer* o = owner(); o && o->dest()) {
    Zek::Ptr<TxMstStatus> dg = o->dest()->txMstStatusIs(name_);
    if (dg != dest_) dest_ = std::move(dg);
  }
  // Each port's own full copy runs before this level's handler creates its destination port.
  const Zek::Ptr<TxMstStatus> dg = dest_;
  Zek::reconcile(
      zekTxMstPortStatus_.map(), Zek::keysOf(dg.get(), [](const TxMstStatus& d) { return d.txMstPortStatus(); }),
      [this](const IntfId& intf, const Zek::Ptr<ZekTxMstPortStatusSm>& sm) {
        sm->handleInitialized();
        handleTxMstPortStatus(intf);
      },
      [this](const IntfId& intf) { handleTxMstPortStatus(intf); },
      [this] {
        const TxMstStatus* src = watched();
        return src ? src->txMstPortStatus().size() : 0;
      });
  initializedIs(true);
}

void TxStatusToTxSyncer::ZekTxMstStatusSm::handleTxMstPortStatus(IntfId intf) {
  ZEK_BINARY_TRACE();
  Zek::Ptr<TxMstStatus> dg = dest_;
  if (!dg) return;
  const TxMstStatus* src = watched();
  syncTxMember(
      *this, groupLabel, "handleTxMstPortStatus", src && src->txMstPortStatus(intf), intf,
      "setting txMstPortStatus for ", [&] { dg->txMstPortStatusIs(intf); }, "deleting txMstPortStatus for ",
      [&] { dg->txMstPortStatusDel(intf); });
}

Zek::Ptr<TxMstPortStatus const> TxStatusToTxSyncer::ZekTxMstStatusSm::txMstPortStatusDel(IntfId intf) {
  return zekTxMstPortStatus_.del(intf);
}

Zek::Ptr<PortSm> TxStatusToTxSyncer::ZekTxMstStatusSm::txMstPortStatusIs(const Zek::Ptr<TxMstPortStatus const>& port) {
  return zekTxMstPortStatus_.is(port, this, groupSmType, "txMstPortStatus");
}

void TxStatusToTxSyncer::ZekTxMstStatusSm::txMstPortStatusDelAll() { zekTxMstPortStatus_.delAll(); }

PortSm* TxStatusToTxSyncer::ZekTxMstStatusSm::zekTxMstPortStatus(const IntfId& intf) const {
  return zekTxMstPortStatus_.find(intf);
}

std::size_t TxStatusToTxSyncer::ZekTxMstStatusSm::zekTxMstPortStatusCount() const { return zekTxMstPortStatus_.size(); }

void TxStatusToTxSyncer::ZekTxMstStatusSm::onAttribute(Zek::AttributeId id, const void* key) {
  if (id != TxMstStatus::idTxMstPortStatus || !key) return;
  const IntfId intf = *static_cast<const IntfId*>(key);
  if (!zekMarkedForDeletion()) handleTxMstPortStatus(intf);
  const TxMstStatus* src = watched();
  if (!src || !owner()) return;
  zekTxMstPortStatus_.mirror(intf, src->txMstPortStatus(intf), this, groupSmType, "txMstPortStatus");
}

void TxStatusToTxSyncer::ZekTxMstStatusSm::notifierIs(const Zek::Ptr<Zek::PtrInterface const>& p) {
  // Re-pointing only re-binds: the port machines keep watching the ports they watch, and nothing is
  // written or traced. An owner that wants the new group copied calls handleInitialized().
  if (p == notifier()) return;
  bind(Zek::ptr_cast<TxMstStatus const>(p));
}

// =========================================================================================================
// ZekTxMstPortStatusSm

PortSm::ZekTxMstPortStatusSm(const Zek::Ptr<TxMstPortStatus const>& port, ZekTxMstStatusSm* owner)
    : Reactor(port, owner), intf_(port->intfId()), parentId_(owner->name() + "|" + intf_.shortName()) {
  // No destination port is known yet, so there are no counters to mirror on binding.
  handleInitialized();
}

PortSm::~ZekTxMstPortStatusSm() {
  Zek::teardown(*this, txInfoSyncer_);
  dest_ = nullptr;
}

void PortSm::passNotificationActive(bool active) { Zek::passNotificationActiveTo(active, txInfoSyncer_); }

void PortSm::passZombie(bool zombie) { Zek::passZombieTo(zombie, txInfoSyncer_); }

std::string PortSm::keyInfo() const {
  std::string s;
  s.reserve(parentId_.size() + 2);
  s.append("[").append(parentId_.view()).append("]");
  return s;
}

void PortSm::handleInitialized() {
  ZEK_BINARY_TRACE();
  STP_TX_SYNCER_TRACE(8, portLabel, keyInfo(), "handleInitialized", "");
  ZekTxMstStatusSm* o = owner();
  Zek::Ptr<TxMstStatus> dg = o ? o->dest() : Zek::Ptr<TxMstStatus>();
  if (dg) {
    Zek::Ptr<TxMstPortStatus> dp = dg->txMstPortStatus(intf_);
    if (dp != dest_) {
      // The record syncers write into records of the previous destination port.
      txInfoSyncerDelAll();
      dest_ = dp;
    }
    if (dp) {
      Zek::Ptr<TxMstPortStatus const> src = watchedPtr();
      const auto txInfo = [this](VlanIdOrNone vlan) { handleTxInfo(vlan); };
      Zek::reconcile(Zek::keysOf(src.get(), [](const TxMstPortStatus& s) { return s.txInfo(); }), dp->txInfo(),
                     txInfo, txInfo);
      const auto txUpdate = [this](VlanIdOrNone vlan) { handleTxUpdate(vlan); };
      Zek::reconcile(Zek::keysOf(src.get(), [](const TxMstPortStatus& s) -> const auto& { return s.txUpdate(); }),
                     dp->txUpdate(), txUpdate, txUpdate);
      dp->txHelloWhenOnIs(src ? src->txHelloWhenOn() : Stp::TimerVal());
      dp->txNewInfoIs(src ? src->txNewInfo() : 0u);
    }
  }
  initializedIs(true);
}

void PortSm::handleTxInfo(VlanIdOrNone vlan) {
  ZEK_BINARY_TRACE();
  Zek::Ptr<TxMstPortStatus> dp = dest_;
  if (!dp) return;
  const TxMstPortStatus* src = watched();
  Zek::Ptr<IntxInfo const> record = src ? src->txInfo(vlan) : Zek::Ptr<IntxInfo const>();
  if (record) {
    STP_TX_SYNCER_TRACE(8, portLabel, keyInfo(), "handleTxInfo", "setting vlan=" << vlan);
    Zek::Ptr<IntxInfo> dstRecord = dp->txInfoIs(vlan);
    txInfoSyncerIs(record, dstRecord, vlan, parentId_);
  } else {
    STP_TX_SYNCER_TRACE(8, portLabel, keyInfo(), "handleTxInfo", "deleting vlan=" << vlan);
    dp->txInfoDel(vlan);
    txInfoSyncerDel(vlan);
  }
}

std::uint32_t PortSm::sourceTxUpdate(VlanIdOrNone vlan) const {
  const TxMstPortStatus* src = watched();
  return src ? src->txUpdate(vlan).value_or(0u) : 0u;
}

void PortSm::txUpdateWrite(TxMstPortStatus& dst, VlanIdOrNone vlan, std::uint32_t value) {
  // A counter of 0 is treated as absent: it is removed from the destination, never copied.
  if (value != 0) {
    dst.txUpdateIs(vlan, value);
  } else {
    dst.txUpdateDel(vlan);
  }
}

void PortSm::handleTxUpdate(VlanIdOrNone vlan) {
  ZEK_BINARY_TRACE();
  Zek::Ptr<TxMstPortStatus> dp = dest_;
  if (!dp) return;
  const std::uint32_t value = sourceTxUpdate(vlan);
  if (value != 0) {
    STP_TX_SYNCER_TRACE(8, portLabel, keyInfo(), "handleTxUpdate", "setting vlan=" << vlan);
  } else {
    STP_TX_SYNCER_TRACE(8, portLabel, keyInfo(), "handleTxUpdate", "deleting vlan=" << vlan);
  }
  txUpdateWrite(*dp, vlan, value);
}

void PortSm::zek_handleTxMstPortStatus_txNewInfo() {
  ZEK_BINARY_TRACE();
  if (!dest_) return;
  const TxMstPortStatus* src = watched();
  dest_->txNewInfoIs(src ? src->txNewInfo() : 0u);
}

void PortSm::zek_handleTxMstPortStatus_txHelloWhenOn() {
  ZEK_BINARY_TRACE();
  if (!dest_) return;
  const TxMstPortStatus* src = watched();
  dest_->txHelloWhenOnIs(src ? src->txHelloWhenOn() : Stp::TimerVal());
}

Zek::Ptr<IntxInfoSyncer> PortSm::txInfoSyncerIs(const Zek::Ptr<IntxInfo const>& source, const Zek::Ptr<IntxInfo>& dest,
                                                VlanIdOrNone vlan, Zek::String name) {
  return txInfoSyncer_.instantiate(
      vlan,
      [&](const IntxInfoSyncer& existing) {
        if (existing.source() != source) {
          Zek::throwMutatorReinstantiating(portSmType, "txInfoSyncer.source", recordText(existing.source().get()),
                                           recordText(source.get()));
        }
        if (existing.dest() != dest) {
          Zek::throwMutatorReinstantiating(portSmType, "txInfoSyncer.dest", recordText(existing.dest().get()),
                                           recordText(dest.get()));
        }
        if (!(existing.parentId() == name)) {
          Zek::throwMutatorReinstantiating(portSmType, "txInfoSyncer.parentId", existing.parentId().view(),
                                           name.view());
        }
      },
      [&] { return IntxInfoSyncer::IntxInfoSyncerIs(source, dest, vlan, std::move(name)); });
}

Zek::Ptr<IntxInfoSyncer> PortSm::txInfoSyncerDel(VlanIdOrNone vlan) { return txInfoSyncer_.take(vlan); }

void PortSm::txInfoSyncerDelAll() { txInfoSyncer_.release(); }

void PortSm::onAttribute(Zek::AttributeId id, const void* key) {
  switch (id) {
    case TxMstPortStatus::idTxNewInfo:
      if (!zekMarkedForDeletion()) zek_handleTxMstPortStatus_txNewInfo();
      return;
    case TxMstPortStatus::idTxHelloWhenOn:
      if (!zekMarkedForDeletion()) zek_handleTxMstPortStatus_txHelloWhenOn();
      return;
    case TxMstPortStatus::idTxInfo:
      if (key && !zekMarkedForDeletion()) handleTxInfo(*static_cast<const VlanIdOrNone*>(key));
      return;
    case TxMstPortStatus::idTxUpdate: {
      if (!key) return;
      const VlanIdOrNone vlan = *static_cast<const VlanIdOrNone*>(key);
      // The silent mirror runs whatever the deletion mark; the handler then writes the same value again,
      // with its trace.
      if (Zek::Ptr<TxMstPortStatus> dp = dest_; dp && watched()) txUpdateWrite(*dp, vlan, sourceTxUpdate(vlan));
      if (!zekMarkedForDeletion()) handleTxUpdate(vlan);
      return;
    }
    default:
      return;
  }
}

void PortSm::notifierIs(const Zek::Ptr<Zek::PtrInterface const>& p) {
  // Re-pointing re-binds and, with a known destination port, mirrors the counters; the record syncers
  // keep the records they watch and no handler runs (handleInitialized() is the full copy).
  if (p == notifier()) return;
  bind(Zek::ptr_cast<TxMstPortStatus const>(p));
  if (Zek::Ptr<TxMstPortStatus> dp = dest_) {
    // Every non-zero source counter written, then every destination counter the source lacks deleted.
    if (const TxMstPortStatus* src = watched()) {
      for (const auto& [vlan, value] : src->txUpdate()) {
        if (value != 0) txUpdateWrite(*dp, vlan, value);
      }
    }
    for (const auto& [vlan, value] : dp->txUpdate()) {
      if (sourceTxUpdate(vlan) == 0) txUpdateWrite(*dp, vlan, 0);
    }
  }
}

}  // namespace StpTxRx
