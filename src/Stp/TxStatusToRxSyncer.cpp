#include <stptxrx/Stp/SyncerTrace.h>
#include <stptxrx/Stp/TxStatusToRxSyncer.h>
#include <stptxrx/runtime/Reconcile.h>

namespace StpTxRx {

ZEK_TYPE_DEFINE(TxStatusToRxSyncer, "StpTxRx::TxStatusToRxSyncer")
ZEK_TYPE_DEFINE(TxStatusToRxSyncer::ZekSource, "StpTxRx::TxStatusToRxSyncer::ZekSource")
ZEK_TYPE_DEFINE(TxStatusToRxSyncer::ZekTxMstStatusSm, "StpTxRx::TxStatusToRxSyncer::ZekTxMstStatusSm")

namespace {
constexpr const char* kType = "StpTxRx::TxStatusToRxSyncer";
}  // namespace

// ---------------------------------------------------------------------------------------------------------
// ZekSource

void TxStatusToRxSyncer::ZekSource::onAttribute(Zek::AttributeId id, const void* key) {
  if (id != TxStatus::idTxMstStatus || !key) return;
  const Zek::Name& name = *static_cast<const Zek::Name*>(key);
  if (!zekMarkedForDeletion() && owner()) owner()->handleTxMstStatus(name);
  // The handler may have released the owner's hold on this reactor (sourceDel from an observer of the
  // destination); the dispatcher's reference keeps it alive, and owner() tells whether it is still owned.
  if (!watched() || !owner()) return;
  Zek::Ptr<TxMstStatus const> group = watched()->txMstStatus(name);
  owner()->zekTxMstStatus_.mirror(name, group, owner(), kType, "txMstStatus");
}

void TxStatusToRxSyncer::ZekSource::notifierIs(const Zek::Ptr<Zek::PtrInterface const>& p) {
  if (p == notifier()) return;
  bind(Zek::ptr_cast<TxStatus const>(p));
  TxStatusToRxSyncer* o = owner();
  Zek::Ptr<TxStatus const> src = watchedPtr();
  if (!o || !src) return;
  o->zekTxMstStatus_.mirrorAll(
      src->txMstStatus(), [&](const Zek::Name& name) { return static_cast<bool>(src->txMstStatus(name)); }, o,
      kType, "txMstStatus");
}

// ---------------------------------------------------------------------------------------------------------
// ZekTxMstStatusSm

TxStatusToRxSyncer::ZekTxMstStatusSm::ZekTxMstStatusSm(const Zek::Ptr<TxMstStatus const>& group,
                                                       TxStatusToRxSyncer* owner)
    : Reactor(group, owner), name_(group->name()) {
  handleInitialized();
}

Zek::String TxStatusToRxSyncer::ZekTxMstStatusSm::keyInfo() const { return "[" + name_ + "]"; }

void TxStatusToRxSyncer::ZekTxMstStatusSm::handleInitialized() {
  ZEK_BINARY_TRACE();
  STP_TX_SYNCER_TRACE(8, "TxToRx::ZekTxMstStatusSm", keyInfo(), "handleInitialized", "");
  if (owner()) rxMstStatus_ = owner()->rxStatus()->rxMstStatusIs(name_);
  if (!rxMstStatus_) return;
  // A missing source group is an empty one: nothing to visit, and every destination port is stale.
  Zek::Ptr<TxMstStatus const> src = watchedPtr();
  Zek::reconcile(
      Zek::keysOf(src.get(), [](const TxMstStatus& s) { return s.txMstPortStatus(); }),
      rxMstStatus_->rxMstPortStatus(), [this](const IntfId& intf) { handleTxMstPortStatus(intf); },
      [this, &src](const IntfId& intf) {
        if (!src || !src->txMstPortStatus(intf)) rxMstStatus_->rxMstPortStatusDel(intf);
      });
  initializedIs(true);
}

void TxStatusToRxSyncer::ZekTxMstStatusSm::handleTxMstPortStatus(const IntfId& intf) {
  ZEK_BINARY_TRACE();
  const TxMstStatus* src = watched();
  if (src && src->txMstPortStatus(intf)) {
    STP_TX_SYNCER_TRACE(8, "TxToRx::ZekTxMstStatusSm", keyInfo(), "handleTxMstPortStatus",
                        "setting rxMstPortStatus for " << intf.shortName());
    if (rxMstStatus_) rxMstStatus_->rxMstPortStatusIs(intf);
  } else {
    STP_TX_SYNCER_TRACE(8, "TxToRx::ZekTxMstStatusSm", keyInfo(), "handleTxMstPortStatus",
                        "deleting rxMstPortStatus for " << intf.shortName());
    if (rxMstStatus_) rxMstStatus_->rxMstPortStatusDel(intf);
  }
}

void TxStatusToRxSyncer::ZekTxMstStatusSm::onAttribute(Zek::AttributeId id, const void* key) {
  if (id != TxMstStatus::idTxMstPortStatus || !key) return;
  if (!zekMarkedForDeletion()) handleTxMstPortStatus(*static_cast<const IntfId*>(key));
}

// ---------------------------------------------------------------------------------------------------------
// TxStatusToRxSyncer

TxStatusToRxSyncer::TxStatusToRxSyncer(const Zek::Ptr<TxStatus const>& source, const Zek::Ptr<RxStatus>& rxStatus)
    : rxStatus_(rxStatus) {
  source_.create(source, this);
  if (source) {
    zekTxMstStatus_.mirrorAll(
        source->txMstStatus(), [&](const Zek::Name& name) { return static_cast<bool>(source->txMstStatus(name)); },
        this, kType, "txMstStatus");
  }
  handleInitialized();
}

TxStatusToRxSyncer::~TxStatusToRxSyncer() {
  Zek::teardown(*this, source_, zekTxMstStatus_);
  rxStatus_ = nullptr;
}

TxStatusToRxSyncer::Ptr TxStatusToRxSyncer::TxStatusToRxSyncerIs(const Zek::Ptr<TxStatus const>& source,
                                                                 const Zek::Ptr<RxStatus>& rxStatus) {
  return Zek::activated(new TxStatusToRxSyncer(source, rxStatus));
}

TxStatusToRxSyncer::Ptr txStatusToRxSyncerFactory(const Zek::Ptr<TxStatus const>& source,
                                                  const Zek::Ptr<RxStatus>& rxStatus) {
  return TxStatusToRxSyncer::TxStatusToRxSyncerIs(source, rxStatus);
}

TxStatusToRxSyncer::ZekTxMstStatusSm::Ptr TxStatusToRxSyncer::txMstStatusIs(const Zek::Ptr<TxMstStatus const>& group) {
  return zekTxMstStatus_.is(group, this, kType, "txMstStatus");
}

Zek::Ptr<TxMstStatus const> TxStatusToRxSyncer::txMstStatusDel(const Zek::Name& name) {
  return zekTxMstStatus_.del(name);
}

void TxStatusToRxSyncer::txMstStatusDelAll() { zekTxMstStatus_.delAll(); }

void TxStatusToRxSyncer::handleTxMstStatus(const Zek::Name& name) {
  ZEK_BINARY_TRACE();
  Zek::Ptr<TxStatus const> src = source();
  syncTxMember(
      *this, "TxToRx", "handleTxMstStatus", src && src->txMstStatus(name), name, "setting rxMstStatus ",
      [&] { rxStatus_->rxMstStatusIs(name); }, "deleting rxMstStatus ", [&] { rxStatus_->rxMstStatusDel(name); });
}

void TxStatusToRxSyncer::handleInitialized() {
  ZEK_BINARY_TRACE();
  STP_TX_SYNCER_TRACE(8, "TxToRx", keyInfo(), "handleInitialized", "");
  // A missing source is an empty one: nothing to visit, and every destination group is stale. A null
  // destination is only legal without a source, and then there is nothing to clean.
  Zek::Ptr<TxStatus const> src = source();
  Zek::reconcile(
      Zek::keysOf(src.get(), [](const TxStatus& s) { return s.txMstStatus(); }),
      Zek::keysOf(rxStatus_.get(), [](const RxStatus& d) { return d.rxMstStatus(); }),
      [this](const Zek::Name& name) { handleTxMstStatus(name); },
      [this, &src](const Zek::Name& name) {
        if (!src || !src->txMstStatus(name)) rxStatus_->rxMstStatusDel(name);
      });
  initializedIs(true);
}

Zek::Ptr<TxStatus const> TxStatusToRxSyncer::sourceDel() { return source_.del(); }

void TxStatusToRxSyncer::passNotificationActive(bool active) {
  Zek::passNotificationActiveTo(active, source_, zekTxMstStatus_);
}

void TxStatusToRxSyncer::passZombie(bool zombie) { Zek::passZombieTo(zombie, source_, zekTxMstStatus_); }

}  // namespace StpTxRx
