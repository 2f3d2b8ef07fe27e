#pragma once
#include <stptxrx/runtime/Assert.h>
#include <stptxrx/runtime/Export.h>
#include <stptxrx/runtime/Ptr.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

namespace Nelk {

class PktManager;

/// The storage of a packet: a fixed number of octets, shared by counted pointer. Created by the packet
/// library; a packet's data is a window into it.
class STPTXRX_EXPORT PktBuffer : public Zek::PtrInterface {
 public:
  using Ptr = Zek::Ptr<PktBuffer>;

  /// A new buffer of `capacity` octets (contents unspecified).
  static Ptr PktBufferIs(std::size_t capacity);

  std::size_t capacity() const { return capacity_; }
  std::uint8_t* bytes() { return bytes_.get(); }
  const std::uint8_t* bytes() const { return bytes_.get(); }

 private:
  explicit PktBuffer(std::size_t capacity);
  ~PktBuffer() override;

  std::unique_ptr<std::uint8_t[]> bytes_;
  std::size_t capacity_;
};

/// One packet: the window [data(), data() + size()) of its shared buffer, with headRoom() free octets in
/// front of it. Packets come only from a PktManager (`newPkt`); when the last `Pkt::Ptr` goes the packet
/// returns to its manager's pool, buffer included.
///
/// Invariants (checked with ZEK_ASSERT when the packet is handed out and when head data is added; a
/// failure aborts): a packet always has a buffer, and its window lies inside that buffer. The accessors
/// rely on them unchecked.
class STPTXRX_EXPORT Pkt : public Zek::PtrInterface {
 public:
  using Ptr = Zek::Ptr<Pkt>;

  std::uint8_t* data() { return buffer_->bytes() + offset_; }
  const std::uint8_t* data() const { return buffer_->bytes() + offset_; }
  std::size_t size() const { return size_; }
  /// Free octets in front of the data.
  std::size_t headRoom() const { return offset_; }

  /// Prepends `n` octets of head data (their contents unspecified) and returns the new data start: the
  /// data then starts `n` octets earlier and is `n` longer. When the head room is shorter than `n` the
  /// shared buffer is replaced by a new one of the old buffer's capacity plus `n`, the existing data
  /// copied behind the new head room (the head room left afterwards is the one there was before; the
  /// space behind the data is kept too). `n` = 0 changes nothing. Other holders of the old buffer keep it.
  std::uint8_t* headDataIs(std::size_t n) {
    ZEK_ASSERT(buffer_);
    ZEK_ASSERT(offset_ <= buffer_->capacity() && size_ <= buffer_->capacity() - offset_);
    // In line while the head room holds `n` (a pooled packet and a BPDU always); growHead() otherwise.
    if (n > offset_) return growHead(n);
    offset_ -= n;
    size_ += n;
    return buffer_->bytes() + offset_;
  }

  /// The shared buffer; never null.
  const Zek::Ptr<PktBuffer>& buffer() const { return buffer_; }

  /// The manager the packet returns to.
  PktManager* manager() const { return manager_; }

 protected:
  /// Last reference gone: back to the manager's pool (or freed when the pool is full).
  void onZeroReferences() override;

 private:
  friend class PktManager;
  Pkt(PktManager* manager, Zek::Ptr<PktBuffer> buffer);
  ~Pkt() override;

  /// Empty again, with the whole buffer as head room.
  void reset();
  /// headDataIs(n) when the head room is shorter than `n`: the data moves to a larger buffer.
  std::uint8_t* growHead(std::size_t n);

  PktManager* manager_;
  Zek::Ptr<PktBuffer> buffer_;
  std::size_t offset_ = 0;  // data start inside the buffer (= head room)
  std::size_t size_ = 0;
  Pkt* nextPooled_ = nullptr;  // free list link while the packet sits in the pool
};

/// Hands out packets from a recycling pool.
///
/// A new packet is empty and has `defaultHeadRoom` octets of head room, enough for a tagged link header
/// and a BPDU body. Released packets return to the pool with their buffer (made empty with full head
/// room), so once the pool is warm a packet costs no allocation. The pool keeps at most `pooledLimit()`
/// packets (default `defaultPooledLimit`); beyond that, released packets are freed. A buffer that is
/// shared with someone else when its packet comes back, or that grew beyond `maxPooledBufferSize`, is
/// not kept: the packet gets a fresh default buffer when it is handed out again.
///
/// The live limit caps the packets handed out and not yet released: `newPkt` returns null while
/// `liveCount() == liveLimit()`; 0 means no limit (the default). This is how callers meet allocation
/// failure.
///
/// Threads: the pool and the counts are guarded by a mutex while Zek::threadSafePointers_ is on (packets
/// may then be released on any thread); with the switch off the manager is single-threaded like the rest
/// of the runtime. A manager must outlive its packets (asserted on destruction).
class STPTXRX_EXPORT PktManager {
 public:
  static constexpr std::size_t defaultHeadRoom = 128;
  static constexpr std::size_t defaultPooledLimit = 256;
  static constexpr std::size_t maxPooledBufferSize = 4096;

  PktManager() = default;
  PktManager(const PktManager&) = delete;
  PktManager& operator=(const PktManager&) = delete;
  ~PktManager();

  /// A new empty packet, or null when the live limit is reached.
  Pkt::Ptr newPkt() {
    // In line, the steady state of a single-threaded sender: a pooled packet that kept its buffer, below
    // the live limit. Everything else (a lock, a fresh packet or buffer, the limit) takes newPktSlow().
    Pkt* pkt = pool_;
    if (Zek::threadSafePointers_ || !pkt || !pkt->buffer_ || (liveLimit_ != 0 && live_ >= liveLimit_)) {
      return newPktSlow();
    }
    ++live_;
    pool_ = pkt->nextPooled_;
    pkt->nextPooled_ = nullptr;
    --pooled_;
    // Pkt::reset() without its buffer check: the buffer was tested above.
    pkt->offset_ = pkt->buffer_->capacity();
    pkt->size_ = 0;
    return Pkt::Ptr(pkt);
  }

  std::size_t liveLimit() const { return liveLimit_; }
  /// 0: unlimited. Lowering it below liveCount() only stops new packets until enough are released.
  void liveLimitIs(std::size_t limit) { liveLimit_ = limit; }
  /// Packets handed out and not yet released.
  std::size_t liveCount() const { return live_; }

  /// Released packets kept for reuse.
  std::size_t pooledCount() const { return pooled_; }
  std::size_t pooledLimit() const { return pooledLimit_; }
  /// Frees pooled packets beyond the new limit at once.
  void pooledLimitIs(std::size_t limit);

 private:
  friend class Pkt;
  Pkt::Ptr newPktSlow();
  void released(Pkt* pkt);
  void trimPool(std::size_t keep);

  std::mutex mutex_;
  Pkt* pool_ = nullptr;  // free list
  std::size_t pooled_ = 0;
  std::size_t pooledLimit_ = defaultPooledLimit;
  std::size_t live_ = 0;
  std::size_t liveLimit_ = 0;
};

/// The process-wide packet manager; created on first use and never destroyed.
STPTXRX_EXPORT PktManager& globalPktManager();

}  // namespace Nelk
