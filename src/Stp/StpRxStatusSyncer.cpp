#include <stptxrx/Stp/StpRxStatusSyncer.h>
#include <stptxrx/Stp/StpTxRxCommon.h>
#include <stptxrx/Stp/SyncerTrace.h>
#include <stptxrx/runtime/Exception.h>


namespace StpTxRx {

ZEK_TYPE_DEFINE(RxStatusToRxDynamicSyncer, "StpTxRx::RxStatusToRxDynamicSyncer")
ZEK_TYPE_DEFINE(RxStatusToRxDynamicSyncer::ZekSource, "StpTxRx::RxStatusToRxDynamicSyncer::ZekSource")
ZEK_TYPE_DEFINE(RxMstStatusToRxDynamicSyncer, "StpTxRx::RxMstStatusToRxDynamicSyncer")
ZEK_TYPE_DEFINE(RxMstStatusToRxDynamicSyncer::ZekSource, "StpTxRx::RxMstStatusToRxDynamicSyncer::ZekSource")
ZEK_TYPE_DEFINE(RxMstPortStatusToRxDynamicSyncer, "StpTxRx::RxMstPortStatusToRxDynamicSyncer")
ZEK_TYPE_DEFINE(RxMstPortStatusToRxDynamicSyncer::ZekSource,
                "StpTxRx::RxMstPortStatusToRxDynamicSyncer::ZekSource")

namespace {

constexpr const char* kTop = "RxStatusToRxDynamicSyncer";
constexpr const char* kGroup = "RxMstStatusToRxDynamicSyncer";
constexpr const char* kPort = "RxMstPortStatusToRxDynamicSyncer";

/// Raises the reinstantiation error for `attribute` of `type` when the existing object differs.
void checkSame(const char* type, const char* attribute, const void* existing, const void* requested) {
  if (existing != requested) {
    Zek::throwMutatorReinstantiating(type, attribute, Zek::identityText(existing), Zek::identityText(requested));
  }
}

}  // namespace

// =========================================================================================================
// RxMstPortStatusToRxDynamicSyncer

void RxMstPortStatusToRxDynamicSyncer::ZekSource::onAttribute(Zek::AttributeId id, const void* key) {
  RxMstPortStatusToRxDynamicSyncer* o = owner();
  if (zekMarkedForDeletion() || !o) return;
  switch (id) {
    case RxMstPortStatus::idRxUpdate:
      if (key) o->handleRxUpdate(*static_cast<const VlanIdOrNone*>(key));
      break;
    case RxMstPortStatus::idCounters:
      o->handleCounters();
      break;
    case RxMstPortStatus::idLocalCounters:
      o->handleLocalCounters();
      break;
    case RxMstPortStatus::idBpduCount:
      o->handleBpduCount();
      break;
    case RxMstPortStatus::idRateLimitInterval:
      o->handleRateLimitInterval();
      break;
    case RxMstPortStatus::idRateLimitMaxCount:
      o->handleRateLimitMaxCount();
      break;
    case RxMstPortStatus::idRateLimitEnabled:
      o->handleRateLimitEnabled();
      break;
    default:  // rxInfo alone passes nothing on; the peer counters are not copied
      break;
  }
}

void RxMstPortStatusToRxDynamicSyncer::ZekSource::notifierIs(const Zek::Ptr<Zek::PtrInterface const>& p) {
  if (p == notifier()) return;
  bind(Zek::ptr_cast<RxMstPortStatus const>(p));
  if (!p) return;
  // Each step re-reads the owner and the mark: a handler's write may reach an observer that deletes us.
  using Handler = void (RxMstPortStatusToRxDynamicSyncer::*)();
  static constexpr Handler kCopyOrder[] = {
      &RxMstPortStatusToRxDynamicSyncer::handleBpduCount,         &RxMstPortStatusToRxDynamicSyncer::handleRateLimitInterval,
      &RxMstPortStatusToRxDynamicSyncer::handleRateLimitMaxCount, &RxMstPortStatusToRxDynamicSyncer::handleRateLimitEnabled,
      &RxMstPortStatusToRxDynamicSyncer::handleCounters,          &RxMstPortStatusToRxDynamicSyncer::handleLocalCounters};
  for (Handler h : kCopyOrder) {
    if (zekMarkedForDeletion() || !owner()) return;
    (owner()->*h)();
  }
}

RxMstPortStatusToRxDynamicSyncer::RxMstPortStatusToRxDynamicSyncer(const Zek::Name& mstName, const IntfId& intfId,
                                                                   const Zek::Ptr<RxMstPortStatus const>& source,
                                                                   const Zek::Ptr<RxStatus>& rxStatus)
    : mstName_(mstName), intfId_(intfId) {
  source_.create(source, this);
  rxStatus_ = rxStatus;
  handleInitialized();
}

RxMstPortStatusToRxDynamicSyncer::~RxMstPortStatusToRxDynamicSyncer() {
  Zek::teardown(*this, source_);
  rxStatus_ = nullptr;
}

RxMstPortStatusToRxDynamicSyncer::Ptr RxMstPortStatusToRxDynamicSyncer::RxMstPortStatusToRxDynamicSyncerIs(
    const Zek::Name& mstName, const IntfId& intfId, const Zek::Ptr<RxMstPortStatus const>& source,
    const Zek::Ptr<RxStatus>& rxStatus) {
  return Zek::activated(new RxMstPortStatusToRxDynamicSyncer(mstName, intfId, source, rxStatus));
}

RxMstPortStatusToRxDynamicSyncer::Ptr rxMstPortStatusToRxDynamicSyncerFactory(
    const Zek::Name& mstName, const IntfId& intfId, const Zek::Ptr<RxMstPortStatus const>& source,
    const Zek::Ptr<RxStatus>& rxStatus) {
  return RxMstPortStatusToRxDynamicSyncer::RxMstPortStatusToRxDynamicSyncerIs(mstName, intfId, source, rxStatus);
}

Zek::String RxMstPortStatusToRxDynamicSyncer::keyInfo() const {
  return "[" + mstName_ + "|" + intfId_.shortName() + "]";
}

Zek::Ptr<RxMstPortStatus> RxMstPortStatusToRxDynamicSyncer::dest() const {
  // Looked up on every use, never cached: TxStatusToRxSyncer may delete and re-create the destination
  // group or port at any time, and the next handler must find the new one.
  Zek::Ptr<RxMstStatus> group = rxStatus_->rxMstStatus(mstName_);
  return group ? group->rxMstPortStatus(intfId_) : Zek::Ptr<RxMstPortStatus>();
}

void RxMstPortStatusToRxDynamicSyncer::handleInitialized() {
  ZEK_BINARY_TRACE();
  STP_RX_SYNCER_TRACE(8, kPort, keyInfo(), "handleInitialized", "");
  if (initialized()) return;
  if (const RxMstPortStatus* s = src()) {
    if (Zek::Ptr<RxMstPortStatus> d = dest()) {
      d->bpduCountIs(s->bpduCount());
      d->rateLimitIntervalIs(s->rateLimitInterval());
      d->rateLimitMaxCountIs(s->rateLimitMaxCount());
      d->rateLimitEnabledIs(s->rateLimitEnabled());
      d->countersIs(s->counters());
      d->localCountersIs(s->localCounters());
    } else {
      STP_RX_SYNCER_TRACE(7, kPort, keyInfo(), "handleInitialized", "no destination");
    }
  }
  initializedIs(true);
}

template <auto Get, auto Set>
void RxMstPortStatusToRxDynamicSyncer::copyScalar(const char* method, int line) {
  const RxMstPortStatus* s = src();
  if (!s) return;
  Zek::Ptr<RxMstPortStatus> d = dest();
  if (!d) {
    STP_RX_SYNCER_TRACE_LINE(7, line, kPort, keyInfo(), method, "no destination");
    return;
  }
  STP_RX_SYNCER_TRACE_LINE(8, line, kPort, keyInfo(), method, "");
  Zek::copyAttribute<Get, Set>(s, *d);
}

void RxMstPortStatusToRxDynamicSyncer::handleBpduCount() {
  ZEK_BINARY_TRACE();
  copyScalar<&RxMstPortStatus::bpduCount, &RxMstPortStatus::bpduCountIs>("handleBpduCount");
}

void RxMstPortStatusToRxDynamicSyncer::handleRateLimitInterval() {
  ZEK_BINARY_TRACE();
  copyScalar<&RxMstPortStatus::rateLimitInterval, &RxMstPortStatus::rateLimitIntervalIs>("handleRateLimitInterval");
}

void RxMstPortStatusToRxDynamicSyncer::handleRateLimitMaxCount() {
  ZEK_BINARY_TRACE();
  copyScalar<&RxMstPortStatus::rateLimitMaxCount, &RxMstPortStatus::rateLimitMaxCountIs>("handleRateLimitMaxCount");
}

void RxMstPortStatusToRxDynamicSyncer::handleRateLimitEnabled() {
  ZEK_BINARY_TRACE();
  copyScalar<&RxMstPortStatus::rateLimitEnabled, &RxMstPortStatus::rateLimitEnabledIs>("handleRateLimitEnabled");
}

void RxMstPortStatusToRxDynamicSyncer::handleCounters() {
  ZEK_BINARY_TRACE();
  copyScalar<&RxMstPortStatus::counters, &RxMstPortStatus::countersIs>("handleCounters");
}

void RxMstPortStatusToRxDynamicSyncer::handleLocalCounters() {
  ZEK_BINARY_TRACE();
  copyScalar<&RxMstPortStatus::localCounters, &RxMstPortStatus::localCountersIs>("handleLocalCounters");
}

void RxMstPortStatusToRxDynamicSyncer::handleRxUpdate(VlanIdOrNone vlan) {
  ZEK_BINARY_TRACE();
  const RxMstPortStatus* s = src();
  if (!s) return;
  Zek::Ptr<RxMstPortStatus> d = dest();
  if (!d) {
    STP_RX_SYNCER_TRACE(7, kPort, keyInfo(), "handleRxUpdate", "no destination");
    return;
  }
  // A zero count with a record still present counts as absent: the agent clears the count first.
  Zek::Ptr<IntxInfo const> info = s->rxInfo(vlan);
  if (s->rxUpdate(vlan) != 0 && info) {
    STP_RX_SYNCER_TRACE(8, kPort, keyInfo(), "handleRxUpdate", "creating/updating vlan=" << vlan);
    copyIntxInfo(std::move(info), d->rxInfoIs(vlan));
    // Counts the updates passed on, whatever the source's own count is.
    d->rxUpdateInc(vlan, 1);
  } else {
    STP_RX_SYNCER_TRACE(8, kPort, keyInfo(), "handleRxUpdate", "deleting vlan=" << vlan);
    d->rxInfoDel(vlan);
    d->rxUpdateDel(vlan);
  }
}

Zek::Ptr<RxMstPortStatus const> RxMstPortStatusToRxDynamicSyncer::sourceDel() { return source_.del(); }

void RxMstPortStatusToRxDynamicSyncer::passNotificationActive(bool active) {
  Zek::passNotificationActiveTo(active, source_);
}

void RxMstPortStatusToRxDynamicSyncer::passZombie(bool zombie) { Zek::passZombieTo(zombie, source_); }

// =========================================================================================================
// RxMstStatusToRxDynamicSyncer

void RxMstStatusToRxDynamicSyncer::ZekSource::onAttribute(Zek::AttributeId id, const void* key) {
  if (id != RxMstStatus::idRxMstPortStatus || !key) return;
  if (!zekMarkedForDeletion() && owner()) owner()->handleMstPortStatus(*static_cast<const IntfId*>(key));
}

RxMstStatusToRxDynamicSyncer::RxMstStatusToRxDynamicSyncer(const Zek::Name& mstName,
                                                           const Zek::Ptr<RxMstStatus const>& source,
                                                           const Zek::Ptr<RxStatus>& rxStatus)
    : mstName_(mstName) {
  source_.create(source, this);
  rxStatus_ = rxStatus;
  handleInitialized();
}

RxMstStatusToRxDynamicSyncer::~RxMstStatusToRxDynamicSyncer() {
  Zek::teardown(*this, source_, mstDynPortSm_);
  rxStatus_ = nullptr;
}

RxMstStatusToRxDynamicSyncer::Ptr RxMstStatusToRxDynamicSyncer::RxMstStatusToRxDynamicSyncerIs(
    const Zek::Name& mstName, const Zek::Ptr<RxMstStatus const>& source, const Zek::Ptr<RxStatus>& rxStatus) {
  return Zek::activated(new RxMstStatusToRxDynamicSyncer(mstName, source, rxStatus));
}

RxMstStatusToRxDynamicSyncer::Ptr rxMstStatusToRxDynamicSyncerFactory(const Zek::Name& mstName,
                                                                      const Zek::Ptr<RxMstStatus const>& source,
                                                                      const Zek::Ptr<RxStatus>& rxStatus) {
  return RxMstStatusToRxDynamicSyncer::RxMstStatusToRxDynamicSyncerIs(mstName, source, rxStatus);
}

Zek::String RxMstStatusToRxDynamicSyncer::keyInfo() const { return "[" + mstName_ + "]"; }

void RxMstStatusToRxDynamicSyncer::handleInitialized() {
  ZEK_BINARY_TRACE();
  STP_RX_SYNCER_TRACE(8, kGroup, keyInfo(), "handleInitialized", "");
  if (initialized()) return;
  handleMstPortStatus();
  initializedIs(true);
}

void RxMstStatusToRxDynamicSyncer::handleMstPortStatus() {
  ZEK_BINARY_TRACE();
  STP_RX_SYNCER_TRACE(8, kGroup, keyInfo(), "handleMstPortStatus", "scanning list");
  Zek::Ptr<RxMstStatus const> src = source();
  if (!src) return;
  for (const auto& [intf, port] : src->rxMstPortStatus()) handleMstPortStatus(intf);
}

void RxMstStatusToRxDynamicSyncer::handleMstPortStatus(const IntfId& intf) {
  ZEK_BINARY_TRACE();
  Zek::Ptr<RxMstStatus const> src = source();
  Zek::Ptr<RxMstPortStatus const> port = src ? src->rxMstPortStatus(intf) : nullptr;
  if (!port) {
    STP_RX_SYNCER_TRACE(8, kGroup, keyInfo(), "handleMstPortStatus", "deleting intf=" << intf);
    mstDynPortSmDel(intf);
  } else {
    STP_RX_SYNCER_TRACE(8, kGroup, keyInfo(), "handleMstPortStatus", "creating intf=" << intf);
    mstDynPortSmIs(mstName_, intf, port, rxStatus_);
  }
}

RxMstPortStatusToRxDynamicSyncer::Ptr RxMstStatusToRxDynamicSyncer::mstDynPortSmIs(
    const Zek::Name& mstName, const IntfId& intf, const Zek::Ptr<RxMstPortStatus const>& source,
    const Zek::Ptr<RxStatus>& rxStatus) {
  return mstDynPortSm_.instantiate(
      intf,
      [&](const RxMstPortStatusToRxDynamicSyncer& existing) {
        if (!(existing.mstName() == mstName)) {
          Zek::throwMutatorReinstantiating(kPort, "mstName", existing.mstName().view(), mstName.view());
        }
        checkSame(kPort, "source", existing.source().get(), source.get());
        checkSame(kPort, "rxStatus", existing.rxStatus().get(), rxStatus.get());
      },
      [&] {
        return RxMstPortStatusToRxDynamicSyncer::RxMstPortStatusToRxDynamicSyncerIs(mstName, intf, source, rxStatus);
      });
}

RxMstPortStatusToRxDynamicSyncer::Ptr RxMstStatusToRxDynamicSyncer::mstDynPortSmDel(const IntfId& intf) {
  return mstDynPortSm_.take(intf);
}

void RxMstStatusToRxDynamicSyncer::mstDynPortSmDelAll() {
  mstDynPortSm_.forEach([&](const IntfId& intf, RxMstPortStatusToRxDynamicSyncer&) { mstDynPortSm_.take(intf); });
}

Zek::Ptr<RxMstStatus const> RxMstStatusToRxDynamicSyncer::sourceDel() { return source_.del(); }

void RxMstStatusToRxDynamicSyncer::passNotificationActive(bool active) {
  Zek::passNotificationActiveTo(active, source_, mstDynPortSm_);
}

void RxMstStatusToRxDynamicSyncer::passZombie(bool zombie) { Zek::passZombieTo(zombie, source_, mstDynPortSm_); }

// =========================================================================================================
// RxStatusToRxDynamicSyncer

void RxStatusToRxDynamicSyncer::ZekSource::onAttribute(Zek::AttributeId id, const void* key) {
  RxStatusToRxDynamicSyncer* o = owner();
  if (!o) return;
  if (id == RxStatus::idRxMstStatus) {
    if (key && !zekMarkedForDeletion()) o->handleMstStatus(*static_cast<const Zek::Name*>(key));
    return;
  }
  // The scalar copies do not consult the deletion mark.
  if (!watched() || !o->rxStatus()) return;
  switch (id) {
    case RxStatus::idLocalHeartbeat:
      o->zek_handleRxStatus_localHeartbeat();
      break;
    case RxStatus::idPeerHeartbeat:
      o->zek_handleRxStatus_peerHeartbeat();
      break;
    case RxStatus::idUpdateCtrTime:
      o->zek_handleRxStatus_updateCtrTime();
      break;
    case RxStatus::idLocalUpdateCtrTime:
      o->zek_handleRxStatus_localUpdateCtrTime();
      break;
    case RxStatus::idPeerUpdateCtrTime:
      o->zek_handleRxStatus_peerUpdateCtrTime();
      break;
    default:  // the agent's update counter is not copied
      break;
  }
}

void RxStatusToRxDynamicSyncer::ZekSource::notifierIs(const Zek::Ptr<Zek::PtrInterface const>& p) {
  if (p == notifier()) return;
  bind(Zek::ptr_cast<RxStatus const>(p));
  if (p && owner()) owner()->copyScalars();
}

RxStatusToRxDynamicSyncer::RxStatusToRxDynamicSyncer(const Zek::Ptr<RxStatus const>& source,
                                                     const Zek::Ptr<RxStatus>& rxStatus) {
  source_.create(source, this);
  rxStatus_ = rxStatus;
  copyScalars();
  handleInitialized();
}

RxStatusToRxDynamicSyncer::~RxStatusToRxDynamicSyncer() {
  Zek::teardown(*this, source_, mstDynSyncerSm_);
  rxStatus_ = nullptr;
}

RxStatusToRxDynamicSyncer::Ptr RxStatusToRxDynamicSyncer::RxStatusToRxDynamicSyncerIs(
    const Zek::Ptr<RxStatus const>& source, const Zek::Ptr<RxStatus>& rxStatus) {
  return Zek::activated(new RxStatusToRxDynamicSyncer(source, rxStatus));
}

RxStatusToRxDynamicSyncer::Ptr rxStatusToRxDynamicSyncerFactory(const Zek::Ptr<RxStatus const>& source,
                                                                const Zek::Ptr<RxStatus>& rxStatus) {
  return RxStatusToRxDynamicSyncer::RxStatusToRxDynamicSyncerIs(source, rxStatus);
}

void RxStatusToRxDynamicSyncer::copyScalars() {
  zek_handleRxStatus_localHeartbeat();
  zek_handleRxStatus_peerHeartbeat();
  zek_handleRxStatus_updateCtrTime();
  zek_handleRxStatus_localUpdateCtrTime();
  zek_handleRxStatus_peerUpdateCtrTime();
}

template <auto Get, auto Set>
void RxStatusToRxDynamicSyncer::copyScalar() {
  if (!rxStatus_) return;
  Zek::copyAttribute<Get, Set>(source_ ? source_.get()->watched() : nullptr, *rxStatus_);
}

void RxStatusToRxDynamicSyncer::zek_handleRxStatus_localHeartbeat() {
  ZEK_BINARY_TRACE();
  copyScalar<&RxStatus::localHeartbeat, &RxStatus::localHeartbeatIs>();
}

void RxStatusToRxDynamicSyncer::zek_handleRxStatus_peerHeartbeat() {
  ZEK_BINARY_TRACE();
  copyScalar<&RxStatus::peerHeartbeat, &RxStatus::peerHeartbeatIs>();
}

void RxStatusToRxDynamicSyncer::zek_handleRxStatus_updateCtrTime() {
  ZEK_BINARY_TRACE();
  copyScalar<&RxStatus::updateCtrTime, &RxStatus::updateCtrTimeIs>();
}

void RxStatusToRxDynamicSyncer::zek_handleRxStatus_localUpdateCtrTime() {
  ZEK_BINARY_TRACE();
  copyScalar<&RxStatus::localUpdateCtrTime, &RxStatus::localUpdateCtrTimeIs>();
}

void RxStatusToRxDynamicSyncer::zek_handleRxStatus_peerUpdateCtrTime() {
  ZEK_BINARY_TRACE();
  copyScalar<&RxStatus::peerUpdateCtrTime, &RxStatus::peerUpdateCtrTimeIs>();
}

void RxStatusToRxDynamicSyncer::handleInitialized() {
  ZEK_BINARY_TRACE();
  STP_RX_SYNCER_TRACE(8, kTop, keyInfo(), "handleInitialized", "");
  if (initialized()) return;
  handleMstStatus();
  initializedIs(true);
}

void RxStatusToRxDynamicSyncer::handleMstStatus() {
  ZEK_BINARY_TRACE();
  STP_RX_SYNCER_TRACE(8, kTop, keyInfo(), "handleMstStatus", "scanning list");
  Zek::Ptr<RxStatus const> src = source();
  if (!src) return;
  for (const auto& [name, group] : src->rxMstStatus()) handleMstStatus(name);
}

void RxStatusToRxDynamicSyncer::handleMstStatus(const Zek::Name& name) {
  ZEK_BINARY_TRACE();
  Zek::Ptr<RxStatus const> src = source();
  Zek::Ptr<RxMstStatus const> group = src ? src->rxMstStatus(name) : nullptr;
  if (!group) {
    STP_RX_SYNCER_TRACE(8, kTop, keyInfo(), "handleMstStatus", "deleting " << name);
    mstDynSyncerSmDel(name);
  } else {
    STP_RX_SYNCER_TRACE(8, kTop, keyInfo(), "handleMstStatus", "creating " << name);
    mstDynSyncerSmIs(name, group, rxStatus_);
  }
}

RxMstStatusToRxDynamicSyncer::Ptr RxStatusToRxDynamicSyncer::mstDynSyncerSmIs(
    const Zek::Name& name, const Zek::Ptr<RxMstStatus const>& source, const Zek::Ptr<RxStatus>& rxStatus) {
  return mstDynSyncerSm_.instantiate(
      name,
      [&](const RxMstStatusToRxDynamicSyncer& existing) {
        checkSame(kGroup, "source", existing.source().get(), source.get());
        checkSame(kGroup, "rxStatus", existing.rxStatus().get(), rxStatus.get());
      },
      [&] { return RxMstStatusToRxDynamicSyncer::RxMstStatusToRxDynamicSyncerIs(name, source, rxStatus); });
}

RxMstStatusToRxDynamicSyncer::Ptr RxStatusToRxDynamicSyncer::mstDynSyncerSmDel(const Zek::Name& name) {
  return mstDynSyncerSm_.take(name);
}

void RxStatusToRxDynamicSyncer::mstDynSyncerSmDelAll() {
  mstDynSyncerSm_.forEach(
      [&](const Zek::Name& name, RxMstStatusToRxDynamicSyncer&) { mstDynSyncerSm_.take(name); });
}

void RxStatusToRxDynamicSyncer::sourceIs(const Zek::Ptr<RxStatus const>& source) {
  ZekSource* reactor = source_.get();
  if (reactor && reactor->notifier() == source) return;
  if (reactor) {
    reactor->notifierIs(source);  // copies the five scalars
  } else if (source) {
    source_.create(source, this);
    copyScalars();  // what pointing a new reactor at the source does
  }
  source_.zekDoZombieReactors(zekMarkedForDeletion());
  handleMstStatus();
}

Zek::Ptr<RxStatus const> RxStatusToRxDynamicSyncer::sourceDel() {
  if (!source_) return {};
  Zek::Ptr<RxStatus const> former = source_.del();
  handleMstStatus();  // no source remains: an empty scan
  return former;
}

void RxStatusToRxDynamicSyncer::passNotificationActive(bool active) {
  Zek::passNotificationActiveTo(active, source_, mstDynSyncerSm_);
}

void RxStatusToRxDynamicSyncer::passZombie(bool zombie) { Zek::passZombieTo(zombie, source_, mstDynSyncerSm_); }

}  // namespace StpTxRx
