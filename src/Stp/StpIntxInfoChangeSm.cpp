#include <stptxrx/Stp/StpIntxInfoChangeSm.h>

#include "MstiFieldHandlers.h"

namespace StpTxRx {

ZEK_TYPE_DEFINE(IntxInfoChangeSm, "StpTxRx::IntxInfoChangeSm")
ZEK_TYPE_DEFINE(IntxInfoChangeSm::ZekIntxInfo, "StpTxRx::IntxInfoChangeSm::ZekIntxInfo")
ZEK_TYPE_DEFINE(IntxInfoChangeSm::ZekMstiN, "StpTxRx::IntxInfoChangeSm::ZekMstiN")

namespace {
constexpr const char* typeName = "IntxInfoChangeSm";
constexpr const char* mstiNName = "mstiN";
}  // namespace

// ---- IntxInfoChangeSm

Zek::Ptr<IntxInfoChangeSm> IntxInfoChangeSm::IntxInfoChangeSmIs(const Zek::Ptr<IntxInfo const>& intxInfo,
                                                                VlanIdOrNone vlanIdOrZero) {
  return Zek::activated(new IntxInfoChangeSm(intxInfo, vlanIdOrZero));
}

Zek::Ptr<IntxInfoChangeSm> intxInfoChangeSmFactory(const Zek::Ptr<IntxInfo const>& intxInfo,
                                                   VlanIdOrNone vlanIdOrZero) {
  return IntxInfoChangeSm::IntxInfoChangeSmIs(intxInfo, vlanIdOrZero);
}

IntxInfoChangeSm::IntxInfoChangeSm(const Zek::Ptr<IntxInfo const>& intxInfo, VlanIdOrNone vlanIdOrZero)
    : vlanIdOrZero_(vlanIdOrZero) {
  if (!intxInfo) return;
  intxInfo_.create(intxInfo, this);
  // New instance reactors count nothing, and none exists yet to be re-pointed or removed: the counter
  // stays at 1.
  mirrorMstiN(*intxInfo);
}

// The zombie step reaches every instance reactor while its back pointer is still set (counting 1 each),
// then the reactors are detached and released. The record is never touched.
IntxInfoChangeSm::~IntxInfoChangeSm() {
  Zek::teardown(*this, intxInfo_, zekMstiN_);
}

void IntxInfoChangeSm::passNotificationActive(bool active) {
  Zek::passNotificationActiveTo(active, intxInfo_, zekMstiN_);
}

void IntxInfoChangeSm::passZombie(bool zombie) { Zek::passZombieTo(zombie, intxInfo_, zekMstiN_); }

Zek::Ptr<IntxInfo const> IntxInfoChangeSm::intxInfoDel() { return intxInfo_.del(); }

Zek::Ptr<IntxInfoChangeSm::ZekMstiN> IntxInfoChangeSm::mstiNIs(const Zek::Ptr<IntxMstiInfo const>& entry) {
  return zekMstiN_.is(entry, this, typeName, mstiNName);
}

Zek::Ptr<IntxMstiInfo const> IntxInfoChangeSm::mstiNDel(BridgeSystemId key) { return zekMstiN_.del(key); }

void IntxInfoChangeSm::mstiNDelAll() { zekMstiN_.delAll(); }

void IntxInfoChangeSm::mirrorMstiN(const IntxInfo& record) {
  zekMstiN_.mirrorAll(
      record.mstiN(), [&record](BridgeSystemId key) { return record.mstiNEntry(key) != nullptr; }, this,
      typeName, mstiNName);
}

// ---- ZekIntxInfo

IntxInfoChangeSm::ZekIntxInfo::ZekIntxInfo(const Zek::Ptr<IntxInfo const>& intxInfo, IntxInfoChangeSm* owner)
    : Reactor(intxInfo, owner) {}

void IntxInfoChangeSm::ZekIntxInfo::onAttribute(Zek::AttributeId id, const void* key) {
  switch (id) {
    case IntxInfo::idNeighborAddr:
    case IntxInfo::idStpVersion:
    case IntxInfo::idIntxInfoType:
    case IntxInfo::idConfigRevisionLevel:
    case IntxInfo::idConfigNameString:
    case IntxInfo::idConfigDigest:
      if (!zekMarkedForDeletion() && owner()) owner()->incUpdatedFieldCount();
      return;
    case IntxInfo::idMstiN: {
      // Keeping the instance reactors in step is the machine's own bookkeeping, so it runs for a zombie
      // too; it needs the record and the machine.
      if (!key || !watched() || !owner()) return;
      const BridgeSystemId mstiId = *static_cast<const BridgeSystemId*>(key);
      if (Zek::Ptr<IntxMstiInfo const> entry = watched()->mstiN(mstiId)) {
        owner()->mstiNIs(entry);
      } else {
        owner()->mstiNDel(mstiId);
      }
      return;
    }
    default:  // vlanIdOrZero (the record's key) and anything unknown
      return;
  }
}

void IntxInfoChangeSm::ZekIntxInfo::notifierIs(const Zek::Ptr<Zek::PtrInterface const>& p) {
  if (p == notifier()) return;
  bind(Zek::ptr_cast<IntxInfo const>(p));
  if (p && !zekMarkedForDeletion() && owner()) owner()->incUpdatedFieldCount();
  if (watched() && owner() && p) owner()->mirrorMstiN(*watched());
}

// ---- ZekMstiN

IntxInfoChangeSm::ZekMstiN::ZekMstiN(const Zek::Ptr<IntxMstiInfo const>& entry, IntxInfoChangeSm* owner)
    : Reactor(entry, owner), key_(entry ? entry->key() : BridgeSystemId()) {}

void IntxInfoChangeSm::ZekMstiN::zek_handleMstiN() {
  if (IntxInfoChangeSm* o = owner()) o->incUpdatedFieldCount();
}

#define STPTXRX_COUNT_FIELD(name) \
  void IntxInfoChangeSm::ZekMstiN::zek_handleMstiN_##name() { zek_handleMstiN(); }
STPTXRX_MSTI_FIELDS(STPTXRX_COUNT_FIELD)
#undef STPTXRX_COUNT_FIELD

void IntxInfoChangeSm::ZekMstiN::onAttribute(Zek::AttributeId id, const void*) { dispatchMstiField(*this, id); }

void IntxInfoChangeSm::ZekMstiN::notifierIs(const Zek::Ptr<Zek::PtrInterface const>& p) {
  if (p == notifier()) return;
  bind(Zek::ptr_cast<IntxMstiInfo const>(p));
  if (!p) return;
  // Re-pointing replays every field as if each had been written; the zombie test is the one a
  // notification would make.
  replayMstiFields(*this);
}

void IntxInfoChangeSm::ZekMstiN::zombieStateChanging(bool) { zek_handleMstiN(); }

}  // namespace StpTxRx
