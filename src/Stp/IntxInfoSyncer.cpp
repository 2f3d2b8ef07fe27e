#include <stptxrx/Stp/IntxInfoSyncer.h>
#include <stptxrx/Stp/SyncerTrace.h>
#include <stptxrx/runtime/Reconcile.h>

#include <array>
#include <cstdint>
#include <mutex>
#include <new>
#include <type_traits>
#include <utility>

#if defined(__SANITIZE_ADDRESS__)
#define STPTXRX_POOL_BYPASS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define STPTXRX_POOL_BYPASS 1
#endif
#endif

namespace StpTxRx {

ZEK_TYPE_DEFINE(IntxInfoSyncer, "StpTxRx::IntxInfoSyncer")
ZEK_TYPE_DEFINE(IntxInfoSyncer::ZekSource, "StpTxRx::IntxInfoSyncer::ZekSource")
ZEK_TYPE_DEFINE(IntxInfoSyncer::ZekMstiNSm, "StpTxRx::IntxInfoSyncer::ZekMstiNSm")

namespace {

constexpr const char* typeName = "IntxInfoSyncer";
constexpr const char* mstiNName = "mstiN";
constexpr const char* label = "IntxInfoSyncer";
constexpr const char* mstiNSmLabel = "IntxInfoSyncer::ZekMstiNSm";

/// Fixed-size blocks carved from chunks of `blocksPerChunk`, recycled through a free list. Every chunk
/// goes back to the heap when the last live block is freed, so a torn-down syncer tree leaves nothing
/// behind. Shares the runtime's threading rule: guarded only while Zek::threadSafePointers_ is on.
class BlockPool {
 public:
  /// Blocks of `blockSize` octets rounded up to `alignment` (at most the fundamental alignment, which
  /// every chunk and its header have), so that consecutive blocks stay aligned for the object type.
  BlockPool(std::size_t blockSize, std::size_t alignment)
      : blockSize_((blockSize + alignment - 1) / alignment * alignment) {}
  BlockPool(const BlockPool&) = delete;
  BlockPool& operator=(const BlockPool&) = delete;

  std::size_t blockSize() const { return blockSize_; }

  void* allocate() {
    if (!Zek::threadSafePointers_) return take();
    std::lock_guard<std::mutex> lock(mutex_);
    return take();
  }
  void deallocate(void* p) noexcept {
    if (!Zek::threadSafePointers_) return give(p);
    std::lock_guard<std::mutex> lock(mutex_);
    give(p);
  }

 private:
  static constexpr std::size_t blocksPerChunk = 256;
  struct FreeBlock {
    FreeBlock* next;
  };
  struct Chunk {
    Chunk* next;
  };
  // Blocks start after a header as large as the strictest fundamental alignment.
  static constexpr std::size_t chunkHeader = alignof(std::max_align_t);

  // Freed blocks first; otherwise the next untouched block of the newest chunk, so that a fresh chunk is
  // not written all over (threading a free list through it) before its blocks are used. Either way a
  // fresh chunk hands its blocks out in address order.
  void* take() {
    void* b;
    if (free_) {
      b = free_;
      free_ = free_->next;
    } else {
      if (unused_ == chunkEnd_) grow();
      b = unused_;
      unused_ += blockSize_;
    }
    ++live_;
    return b;
  }
  void give(void* p) noexcept {
    auto* b = static_cast<FreeBlock*>(p);
    b->next = free_;
    free_ = b;
    if (--live_ == 0) releaseChunks();
  }
  void grow() {
    auto* raw = static_cast<unsigned char*>(::operator new(chunkHeader + blockSize_ * blocksPerChunk));
    auto* chunk = reinterpret_cast<Chunk*>(raw);
    chunk->next = chunks_;
    chunks_ = chunk;
    unused_ = raw + chunkHeader;
    chunkEnd_ = unused_ + blockSize_ * blocksPerChunk;
  }
  void releaseChunks() noexcept {
    while (chunks_) {
      Chunk* next = chunks_->next;
      ::operator delete(chunks_);
      chunks_ = next;
    }
    free_ = nullptr;
    unused_ = chunkEnd_ = nullptr;
  }

  const std::size_t blockSize_;
  FreeBlock* free_ = nullptr;
  unsigned char* unused_ = nullptr;    // next never-used block of the newest chunk
  unsigned char* chunkEnd_ = nullptr;  // end of the newest chunk
  Chunk* chunks_ = nullptr;
  std::size_t live_ = 0;
  std::mutex mutex_;
};

[[maybe_unused]] BlockPool& mstiNSmPool() {  // unused when sanitizers take the heap
  // Never destroyed: syncers may be released from static destructors.
  static_assert(alignof(IntxInfoSyncer::ZekMstiNSm) <= alignof(std::max_align_t));
  static BlockPool* pool = new BlockPool(sizeof(IntxInfoSyncer::ZekMstiNSm), alignof(IntxInfoSyncer::ZekMstiNSm));
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
  Zek::Ptr<IntxInfoSyncer> syncer(new IntxInfoSyncer(source, dest, vlanIdOrZero, std::move(parentId)));
  syncer->hasNotificationActiveIs(true);
  return syncer;
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
  zekDoZombieReactors(true);
  source_.release();
  zekMstiN_.release();
  dest_ = nullptr;
}

void IntxInfoSyncer::passNotificationActive(bool active) {
  source_.hasNotificationActiveIs(active);
  zekMstiN_.hasNotificationActiveIs(active);
}

void IntxInfoSyncer::passZombie(bool zombie) {
  source_.zekDoZombieReactors(zombie);
  zekMstiN_.zekDoZombieReactors(zombie);
}

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
  if (src && src->mstiNEntry(mstiId)) {
    STP_TX_SYNCER_TRACE(8, label, keyInfo(), "handleMstiN", "setting mstiId=" << mstiId);
    dest_->mstiNIs(mstiId);
  } else {
    STP_TX_SYNCER_TRACE(8, label, keyInfo(), "handleMstiN", "deleting mstiId=" << mstiId);
    dest_->mstiNDel(mstiId);
  }
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

void IntxInfoSyncer::copyRecordFields() {
  zek_handleIntxInfo_neighborAddr();
  zek_handleIntxInfo_stpVersion();
  zek_handleIntxInfo_intxInfoType();
  zek_handleIntxInfo_configRevisionLevel();
  zek_handleIntxInfo_configNameString();
  zek_handleIntxInfo_configDigest();
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
  switch (id) {
    case IntxInfo::idNeighborAddr:
      if (watched() && owner()) owner()->zek_handleIntxInfo_neighborAddr();
      return;
    case IntxInfo::idStpVersion:
      if (watched() && owner()) owner()->zek_handleIntxInfo_stpVersion();
      return;
    case IntxInfo::idIntxInfoType:
      if (watched() && owner()) owner()->zek_handleIntxInfo_intxInfoType();
      return;
    case IntxInfo::idConfigRevisionLevel:
      if (watched() && owner()) owner()->zek_handleIntxInfo_configRevisionLevel();
      return;
    case IntxInfo::idConfigNameString:
      if (watched() && owner()) owner()->zek_handleIntxInfo_configNameString();
      return;
    case IntxInfo::idConfigDigest:
      if (watched() && owner()) owner()->zek_handleIntxInfo_configDigest();
      return;
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
#ifdef STPTXRX_POOL_BYPASS
  return ::operator new(size);
#else
  // A class derived from this one (none today) is larger than a block; it takes the heap.
  if (size != sizeof(ZekMstiNSm)) return ::operator new(size);
  return mstiNSmPool().allocate();
#endif
}

void IntxInfoSyncer::ZekMstiNSm::operator delete(void* p, std::size_t size) noexcept {
  if (!p) return;
#ifdef STPTXRX_POOL_BYPASS
  (void)size;
  ::operator delete(p);
#else
  if (size != sizeof(ZekMstiNSm)) return ::operator delete(p);
  mstiNSmPool().deallocate(p);
#endif
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

namespace {
// The thirteen per-field handlers in declaration order (IntxMstiInfo::fieldIndex): notifications
// dispatch through it by attribute id, and re-pointing replays it whole.
using Handler = void (IntxInfoSyncer::ZekMstiNSm::*)();
constexpr std::array<Handler, IntxMstiInfo::fieldCount> fieldHandlers = {
    &IntxInfoSyncer::ZekMstiNSm::zek_handleMstiN_flags,
    &IntxInfoSyncer::ZekMstiNSm::zek_handleMstiN_bridgeId,
    &IntxInfoSyncer::ZekMstiNSm::zek_handleMstiN_portId,
    &IntxInfoSyncer::ZekMstiNSm::zek_handleMstiN_cistRootBridgeId,
    &IntxInfoSyncer::ZekMstiNSm::zek_handleMstiN_cistExtRootPathCost,
    &IntxInfoSyncer::ZekMstiNSm::zek_handleMstiN_cistRegionalRootBridgeId,
    &IntxInfoSyncer::ZekMstiNSm::zek_handleMstiN_intRootPathCost,
    &IntxInfoSyncer::ZekMstiNSm::zek_handleMstiN_regionalRootBridgeId,
    &IntxInfoSyncer::ZekMstiNSm::zek_handleMstiN_remainingHops,
    &IntxInfoSyncer::ZekMstiNSm::zek_handleMstiN_messageAge,
    &IntxInfoSyncer::ZekMstiNSm::zek_handleMstiN_maxAge,
    &IntxInfoSyncer::ZekMstiNSm::zek_handleMstiN_helloTime,
    &IntxInfoSyncer::ZekMstiNSm::zek_handleMstiN_fwdDelay,
};

}  // namespace

void IntxInfoSyncer::ZekMstiNSm::onAttribute(Zek::AttributeId id, const void*) {
  if (zekMarkedForDeletion()) return;
  const int field = IntxMstiInfo::fieldIndex(id);  // -1: the key, or anything unknown
  if (field >= 0) (this->*fieldHandlers[field])();
}

void IntxInfoSyncer::ZekMstiNSm::notifierIs(const Zek::Ptr<Zek::PtrInterface const>& p) {
  if (p == notifier()) return;
  bind(Zek::ptr_cast<IntxMstiInfo const>(p));
  if (!p) return;
  // Every field replayed as if written; a destination reader may turn this syncer into a zombie midway.
  for (Handler h : fieldHandlers) {
    if (!zekMarkedForDeletion()) (this->*h)();
  }
}

}  // namespace StpTxRx
