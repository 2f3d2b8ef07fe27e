// Packets, their shared buffers and the recycling packet manager.
#include <stptxrx/net/Pkt.h>
#include <stptxrx/runtime/Assert.h>

#include <cstring>
#include <mutex>
#include <utility>

namespace Nelk {

// ---- PktBuffer

PktBuffer::PktBuffer(std::size_t capacity) : bytes_(new std::uint8_t[capacity]), capacity_(capacity) {}

PktBuffer::~PktBuffer() = default;

PktBuffer::Ptr PktBuffer::PktBufferIs(std::size_t capacity) { return Ptr(new PktBuffer(capacity)); }

// ---- Pkt

Pkt::Pkt(PktManager* manager, Zek::Ptr<PktBuffer> buffer) : manager_(manager), buffer_(std::move(buffer)) {
  reset();
}

Pkt::~Pkt() = default;

void Pkt::reset() {
  ZEK_ASSERT(buffer_);
  offset_ = buffer_->capacity();
  size_ = 0;
}

std::uint8_t* Pkt::growHead(std::size_t n) {
  // Same layout in a buffer n octets longer: everything moves n octets back, so the data gains the
  // missing head room and the head room left after the prepend equals the one there was before.
  Zek::Ptr<PktBuffer> grown = PktBuffer::PktBufferIs(buffer_->capacity() + n);
  if (size_) std::memcpy(grown->bytes() + offset_ + n, buffer_->bytes() + offset_, size_);
  buffer_ = std::move(grown);
  size_ += n;
  return buffer_->bytes() + offset_;
}

void Pkt::onZeroReferences() { manager_->released(this); }

// ---- PktManager

namespace {
// Locks the pool's mutex only while pointers are thread safe; otherwise the manager is single-threaded.
[[gnu::always_inline]] inline std::unique_lock<std::mutex> poolLock(std::mutex& m) {
  return Zek::threadSafePointers_ ? std::unique_lock<std::mutex>(m) : std::unique_lock<std::mutex>();
}
}  // namespace

PktManager::~PktManager() {
  ZEK_ASSERT(live_ == 0);
  trimPool(0);
}

Pkt::Ptr PktManager::newPktSlow() {
  Pkt* pkt = nullptr;
  {
    const auto lock = poolLock(mutex_);
    if (liveLimit_ != 0 && live_ >= liveLimit_) return nullptr;
    ++live_;
    if (pool_) {
      pkt = pool_;
      pool_ = pkt->nextPooled_;
      pkt->nextPooled_ = nullptr;
      --pooled_;
    }
  }
  if (!pkt) return Pkt::Ptr(new Pkt(this, PktBuffer::PktBufferIs(defaultHeadRoom)));
  if (!pkt->buffer_) pkt->buffer_ = PktBuffer::PktBufferIs(defaultHeadRoom);
  pkt->reset();
  return Pkt::Ptr(pkt);
}

void PktManager::released(Pkt* pkt) {
  // A buffer someone else still holds, or one that grew too large, is not recycled.
  if (pkt->buffer_ && (pkt->buffer_->references() != 1 || pkt->buffer_->capacity() > maxPooledBufferSize)) {
    pkt->buffer_ = nullptr;
  }
  {
    const auto lock = poolLock(mutex_);
    --live_;
    if (pooled_ < pooledLimit_) {
      pkt->nextPooled_ = pool_;
      pool_ = pkt;
      ++pooled_;
      return;
    }
  }
  delete pkt;
}

void PktManager::pooledLimitIs(std::size_t limit) {
  {
    const auto lock = poolLock(mutex_);
    pooledLimit_ = limit;
  }
  trimPool(limit);
}

void PktManager::trimPool(std::size_t keep) {
  Pkt* freed = nullptr;
  {
    const auto lock = poolLock(mutex_);
    while (pooled_ > keep) {
      Pkt* pkt = pool_;
      pool_ = pkt->nextPooled_;
      --pooled_;
      pkt->nextPooled_ = freed;
      freed = pkt;
    }
  }
  while (freed) {
    Pkt* next = freed->nextPooled_;
    delete freed;
    freed = next;
  }
}

PktManager& globalPktManager() {
  static PktManager* manager = new PktManager;  // never destroyed: packets may be released at exit
  return *manager;
}

}  // namespace Nelk
