#include <stptxrx/Stp/IntxInfoSyncer.h>
#include <stptxrx/Stp/SyncerTrace.h>
#include <stptxrx/runtime/BlockPool.h>
#include <stptxrx/runtime/Reconcile.h>

#include "MstiFieldHandlers.h"

#include <cstdint>
#include <type_traits>
#include <utility>

namespace StpTxRx {

ZEK_TYPE_DEFINE(IntxInfoSyncer, "StpTxRx::IntxInfoSyncer")
ZEK_TYPE_DEFINE(IntxInfoSyncer::ZekSource, "StpTxRx::IntxInfoSyncer::ZekSource")
ZEK_TYPE_DEFINE(IntxInfoSyncer::ZekMstiNSm, "StpTxRx::IntxInfoSyncer::ZekMstiNSm")

namespace {

constexpr const char* typeName = "IntxInfoSyncer";
constexpr const char* mstiNName = "mstiN";
constexpr const char* label = "IntxInfoSyncer";
constexpr const char* mstiNSmLabel = "IntxInfoSyncer::ZekMstiNSm";

Zek::BlockPool& mstiNSmPool() {
  // Never destroyed: syncers may be released from static destructors.
  static_assert(alignof(IntxInfoSyncer::ZekMstiNSm) <= alignof(std::max_align_t));
  static Zek::BlockPool* pool = new Zek::BlockPool(sizeof(IntxInfoSyncer::ZekMstiNSm), alignof(IntxInfoSyncer::ZekMstiNSm));
  return *pool;
}

}  // namespace

// ---- IntxInfoSyncer

Zek::Ptr<IntxInfoSyncer> IntxInfoSyncer::IntxInfoSyncerIs(const Zek::Ptr<IntxInfo const>& source,
                                                          const Zek::Ptr<IntxInfo>& dest, VlanIdOrNone vlanIdOrZero,
                                                          Zek::String parentId) {
  // The full copy reads both records without testing them; refuse before anything is built.
  if (!source) Zek::throwMutatorArgNullPointerException(typeName, "source");
  if (!dest) Zek::throwMutatorArgNullPointerException(typeName, "dest");
  return Zek::activated(new IntxInfoSyncer(source, dest, vlanIdOrZero, std::move(parentId)));
}

Zek::Ptr<IntxInfoSyncer> intxInfoSyncerFactory(const Zek::Ptr<IntxInfo const>& source, const Zek::Ptr<IntxInfo>& dest,
                                               VlanIdOrNone vlanIdOrZero, Zek::String parentId) {
  return IntxInfoSyncer::IntxInfoSyncerIs(source, dest, vlanIdOrZero, std::move(parentId));
}

IntxInfoSyncer::IntxInfoSyncer(const Zek::Ptr<IntxInfo const>& source, const Zek::Ptr<IntxInfo>& dest,
                               VlanIdOrNone vlanIdOrZero, Zek::String parentId)
    : dest_(dest), vlanIdOrZero_(vlanIdOrZero), parentId_(std::move(parentId)) {
  source_.create(source, this);
  // Record level first, once; the entries are left to the per-instance syncers and the full copy.
  copyRecordFields();
  if (source) mirrorMstiN(*source);
  handleInitialized();
}

// Zombie first (it reaches the source reactor and every per-instance syncer while their back pointers are
// still set), then detach and release. The destination is released, never emptied.
IntxInfoSyncer::~IntxInfoSyncer() {
  Zek::teardown(*this, source_, zekMstiN_);
  dest_ = nullptr;
}

void IntxInfoSyncer::passNotificationActive(bool active) { Zek::passNotificationActiveTo(active, source_, zekMstiN_); }

void IntxInfoSyncer::passZombie(bool zombie) { Zek::passZombieTo(zombie, source_, zekMstiN_); }

std::string IntxInfoSyncer::keyInfo() const {
  const IntxInfo* src = sourceRecord();
  std::string text;
  text.reserve(parentId_.size() + 10);
  text.append("[").append(parentId_.view()).append("|");
  text.append(std::to_string(src ? int{src->vlanIdOrZero().value()} : 0)).append("]");
  return text;
}

Zek::Ptr<IntxInfo const> IntxInfoSyncer::sourceDel() { return source_.del(); }

void IntxInfoSyncer::handleInitialized() {
  ZEK_BINARY_TRACE();
  STP_TX_SYNCER_TRACE(8, label, keyInfo(), "handleInitialized", "");
  // The walks call the handlers back to back (a lookup and a loop step between them).
  ZEK_BINARY_TRACE_RUN(handlers);
  // Held for the walks: the handlers write the destination, whose readers may do anything.
  const Zek::Ptr<IntxInfo const> src = source();
  const Zek::Ptr<IntxInfo> dst = dest_;
  // The source collection is walked (not the per-instance syncers), the handler before the entry's copy,
  // so that the destination entry exists when copyAllData looks it up.
  // Only a differing count reveals extra destination entries; with equal counts the pass is skipped.
  Zek::reconcile(
      Zek::keysOf(src.get(), [](const IntxInfo& s) { return s.mstiN(); }), dst->mstiN(),
      [this](BridgeSystemId mstiId) {
        handleMstiN(mstiId);
        // Every source key has its per-instance syncer unless the source changed while notifications
        // were off; then there is nothing to copy with.
        if (ZekMstiNSm* sm = zekMstiN_.find(mstiId)) sm->copyAllData();
      },
      [this](BridgeSystemId mstiId) { handleMstiN(mstiId); });
  initializedIs(true);
}

void IntxInfoSyncer::handleMstiN(BridgeSystemId mstiId) {
  ZEK_BINARY_TRACE();
  const IntxInfo* src = sourceRecord();
  syncTxMember(
      *this, label, "handleMstiN", src && src->mstiNEntry(mstiId), mstiId, "setting mstiId=",
      [&] { dest_->mstiNIs(mstiId); }, "deleting mstiId=", [&] { dest_->mstiNDel(mstiId); });
}

template <auto Get, auto Set>
void IntxInfoSyncer::copyRecordField() {
  Zek::copyAttribute<Get, Set>(sourceRecord(), *dest_);
}

void IntxInfoSyncer::zek_handleIntxInfo_neighborAddr() {
  ZEK_BINARY_TRACE();
  copyRecordField<&IntxInfo::neighborAddr, &IntxInfo::neighborAddrIs>();
}
void IntxInfoSyncer::zek_handleIntxInfo_stpVersion() {
  ZEK_BINARY_TRACE();
  copyRecordField<&IntxInfo::stpVersion, &IntxInfo::stpVersionIs>();
}
void IntxInfoSyncer::zek_handleIntxInfo_intxInfoType() {
  ZEK_BINARY_TRACE();
  copyRecordField<&IntxInfo::intxInfoType, &IntxInfo::intxInfoTypeIs>();
}
void IntxInfoSyncer::zek_handleIntxInfo_configRevisionLevel() {
  ZEK_BINARY_TRACE();
  copyRecordField<&IntxInfo::configRevisionLevel, &IntxInfo::configRevisionLevelIs>();
}
void IntxInfoSyncer::zek_handleIntxInfo_configNameString() {
  ZEK_BINARY_TRACE();
  copyRecordField<&IntxInfo::configNameString, &IntxInfo::configNameStringIs>();
}
void IntxInfoSyncer::zek_handleIntxInfo_configDigest() {
  ZEK_BINARY_TRACE();
  copyRecordField<&IntxInfo::configDigest, &IntxInfo::configDigestIs>();
}

namespace {
// The record-level handlers by attribute id, in the declaration order of IntxInfo's fields: the source
// reactor dispatches through this one table and a full copy runs it in order.
struct RecordFieldHandler {
  Zek::AttributeId id;
  void (IntxInfoSyncer::*handler)();
};
constexpr RecordFieldHandler recordFieldHandlers[] = {
    {IntxInfo::idNeighborAddr, &IntxInfoSyncer::zek_handleIntxInfo_neighborAddr},
    {IntxInfo::idStpVersion, &IntxInfoSyncer::zek_handleIntxInfo_stpVersion},
    {IntxInfo::idIntxInfoType, &IntxInfoSyncer::zek_handleIntxInfo_intxInfoType},
    {IntxInfo::idConfigRevisionLevel, &IntxInfoSyncer::zek_handleIntxInfo_configRevisionLevel},
    {IntxInfo::idConfigNameString, &IntxInfoSyncer::zek_handleIntxInfo_configNameString},
    {IntxInfo::idConfigDigest, &IntxInfoSyncer::zek_handleIntxInfo_configDigest},
};
}  // namespace

void IntxInfoSyncer::copyRecordFields() {
  for (const RecordFieldHandler& f : recordFieldHandlers) (this->*f.handler)();
}

Zek::Ptr<IntxInfoSyncer::ZekMstiNSm> IntxInfoSyncer::mstiNIs(const Zek::Ptr<IntxMstiInfo const>& entry) {
  return zekMstiN_.is(entry, this, typeName, mstiNName);
}

Zek::Ptr<IntxMstiInfo const> IntxInfoSyncer::mstiNDel(BridgeSystemId key) { return zekMstiN_.del(key); }

void IntxInfoSyncer::mstiNDelAll() { zekMstiN_.delAll(); }

void IntxInfoSyncer::mirrorMstiN(const IntxInfo& record) {
  zekMstiN_.mirrorAll(
      record.mstiN(), [&record](BridgeSystemId key) { return record.mstiNEntry(key) != nullptr; }, this,
      typeName, mstiNName);
}

// ---- ZekSource

IntxInfoSyncer::ZekSource::ZekSource(const Zek::Ptr<IntxInfo const>& source, IntxInfoSyncer* owner)
    : Reactor(source, owner) {}

void IntxInfoSyncer::ZekSource::onAttribute(Zek::AttributeId id, const void* key) {
  // Record-level copies run for a zombie too; only a detached or unbound reactor skips them.
  for (const RecordFieldHandler& f : recordFieldHandlers) {
    if (f.id != id) continue;
    if (watched() && owner()) (owner()->*f.handler)();
    return;
  }
  switch (id) {
    case IntxInfo::idMstiN: {
      if (!key) return;
      const BridgeSystemId mstiId = *static_cast<const BridgeSystemId*>(key);
      // The destination entry first, so that a new per-instance syncer finds it in its own full copy.
      if (!zekMarkedForDeletion() && owner()) owner()->handleMstiN(mstiId);
      // The handler may have detached this reactor (its readers may do anything); look again.
      if (watched() && owner()) {
        owner()->zekMstiN_.mirror(mstiId, watched()->mstiN(mstiId), owner(), typeName, mstiNName);
      }
      return;
    }
    default:  // vlanIdOrZero is the record's key and never changes; anything else is not ours
      return;
  }
}

void IntxInfoSyncer::ZekSource::notifierIs(const Zek::Ptr<Zek::PtrInterface const>& p) {
  if (p == notifier()) return;
  bind(Zek::ptr_cast<IntxInfo const>(p));
  if (!watched() || !owner()) return;
  owner()->copyRecordFields();
  owner()->mirrorMstiN(*watched());
}

// ---- ZekMstiNSm

void* IntxInfoSyncer::ZekMstiNSm::operator new(std::size_t size) {
  // A class derived from this one (none today) is larger than a block; it takes the heap.
  if (size != sizeof(ZekMstiNSm)) return ::operator new(size);
  return mstiNSmPool().allocate();
}

void IntxInfoSyncer::ZekMstiNSm::operator delete(void* p, std::size_t size) noexcept {
  if (p && size != sizeof(ZekMstiNSm)) return ::operator delete(p);
  mstiNSmPool().deallocate(p);
}

IntxInfoSyncer::ZekMstiNSm::ZekMstiNSm(const Zek::Ptr<IntxMstiInfo const>& entry, IntxInfoSyncer* owner)
    : Reactor(entry, owner), key_(entry ? entry->key() : BridgeSystemId()) {
  handleInitialized();
}

std::string IntxInfoSyncer::ZekMstiNSm::keyInfo() const {
  const IntxMstiInfo* src = watched();
  std::string text("[");
  text.append(std::to_string(unsigned{(src ? src->key() : key_).value()})).append("]");
  return text;
}

void IntxInfoSyncer::ZekMstiNSm::handleInitialized() {
  ZEK_BINARY_TRACE();
  STP_TX_SYNCER_TRACE(8, mstiNSmLabel, keyInfo(), "handleInitialized", "");
  ZEK_BINARY_TRACE_RUN(copy);  // this block ends where the copy's ends
  copyAllData();
  initializedIs(true);
}

void IntxInfoSyncer::ZekMstiNSm::copyAllData() {
  ZEK_BINARY_TRACE();
  const IntxMstiInfo* src = watched();
  const IntxInfoSyncer* o = owner();
  destMstiN_ = o ? o->dest_->mstiN(src ? src->key() : key_) : Zek::Ptr<IntxMstiInfo>();
  if (!destMstiN_) return;
  STP_TX_SYNCER_TRACE(8, mstiNSmLabel, keyInfo(), "copyAllData", "");
  // Held: a reader of the destination may make this syncer look its entry up again meanwhile.
  const Zek::Ptr<IntxMstiInfo> dst = destMstiN_;
  copyAllFields(*dst);
}

void IntxInfoSyncer::ZekMstiNSm::copyAllFields(IntxMstiInfo& dst) { dst.valuesIs(watched()); }

template <auto Get, auto Set>
void IntxInfoSyncer::ZekMstiNSm::copyField() {
  if (IntxMstiInfo* dst = destMstiN_.get()) Zek::copyAttribute<Get, Set>(watched(), *dst);
}

void IntxInfoSyncer::ZekMstiNSm::zek_handleMstiN_flags() {
  ZEK_BINARY_TRACE();
  copyField<&IntxMstiInfo::flags, &IntxMstiInfo::flagsIs>();
}
void IntxInfoSyncer::ZekMstiNSm::zek_handleMstiN_bridgeId() {
  ZEK_BINARY_TRACE();
  copyField<&IntxMstiInfo::bridgeId, &IntxMstiInfo::bridgeIdIs>();
}
void IntxInfoSyncer::ZekMstiNSm::zek_handleMstiN_portId() {
  ZEK_BINARY_TRACE();
  copyField<&IntxMstiInfo::portId, &IntxMstiInfo::portIdIs>();
}
void IntxInfoSyncer::ZekMstiNSm::zek_handleMstiN_cistRootBridgeId() {
  ZEK_BINARY_TRACE();
  copyField<&IntxMstiInfo::cistRootBridgeId, &IntxMstiInfo::cistRootBridgeIdIs>();
}
void IntxInfoSyncer::ZekMstiNSm::zek_handleMstiN_cistExtRootPathCost() {
  ZEK_BINARY_TRACE();
  copyField<&IntxMstiInfo::cistExtRootPathCost, &IntxMstiInfo::cistExtRootPathCostIs>();
}
void IntxInfoSyncer::ZekMstiNSm::zek_handleMstiN_cistRegionalRootBridgeId() {
  ZEK_BINARY_TRACE();
  copyField<&IntxMstiInfo::cistRegionalRootBridgeId, &IntxMstiInfo::cistRegionalRootBridgeIdIs>();
}
void IntxInfoSyncer::ZekMstiNSm::zek_handleMstiN_intRootPathCost() {
  ZEK_BINARY_TRACE();
  copyField<&IntxMstiInfo::intRootPathCost, &IntxMstiInfo::intRootPathCostIs>();
}
void IntxInfoSyncer::ZekMstiNSm::zek_handleMstiN_regionalRootBridgeId() {
  ZEK_BINARY_TRACE();
  copyField<&IntxMstiInfo::regionalRootBridgeId, &IntxMstiInfo::regionalRootBridgeIdIs>();
}
void IntxInfoSyncer::ZekMstiNSm::zek_handleMstiN_remainingHops() {
  ZEK_BINARY_TRACE();
  copyField<&IntxMstiInfo::remainingHops, &IntxMstiInfo::remainingHopsIs>();
}
void IntxInfoSyncer::ZekMstiNSm::zek_handleMstiN_messageAge() {
  ZEK_BINARY_TRACE();
  copyField<&IntxMstiInfo::messageAge, &IntxMstiInfo::messageAgeIs>();
}
void IntxInfoSyncer::ZekMstiNSm::zek_handleMstiN_maxAge() {
  ZEK_BINARY_TRACE();
  copyField<&IntxMstiInfo::maxAge, &IntxMstiInfo::maxAgeIs>();
}
void IntxInfoSyncer::ZekMstiNSm::zek_handleMstiN_helloTime() {
  ZEK_BINARY_TRACE();
  copyField<&IntxMstiInfo::helloTime, &IntxMstiInfo::helloTimeIs>();
}
void IntxInfoSyncer::ZekMstiNSm::zek_handleMstiN_fwdDelay() {
  ZEK_BINARY_TRACE();
  copyField<&IntxMstiInfo::fwdDelay, &IntxMstiInfo::fwdDelayIs>();
}

void IntxInfoSyncer::ZekMstiNSm::onAttribute(Zek::AttributeId id, const void*) { dispatchMstiField(*this, id); }

void IntxInfoSyncer::ZekMstiNSm::notifierIs(const Zek::Ptr<Zek::PtrInterface const>& p) {
  if (p == notifier()) return;
  bind(Zek::ptr_cast<IntxMstiInfo const>(p));
  if (!p) return;
  // Every field replayed as if written; a destination reader may turn this syncer into a zombie midway.
  replayMstiFields(*this);
}

}  // namespace StpTxRx
