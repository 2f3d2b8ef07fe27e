#pragma once
#include <stptxrx/runtime/Export.h>
#include <stptxrx/runtime/Ptr.h>

#include <cstddef>
#include <mutex>

#if defined(__SANITIZE_ADDRESS__)
#define STPTXRX_BLOCK_POOL_BYPASS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define STPTXRX_BLOCK_POOL_BYPASS 1
#endif
#endif

namespace Zek {

/// Fixed-size blocks carved from chunks of `blocksPerChunk`, recycled through a free list: the allocator
/// of objects that are made and dropped in large numbers (a syncer's per-entry machines).
///
/// Every chunk goes back to the heap when the last live block is freed, so a torn-down tree of such
/// objects leaves nothing behind. Shares the runtime's threading rule: guarded only while
/// threadSafePointers_ is on. Under AddressSanitizer every block comes from the heap instead, so that the
/// sanitizer sees each object's life. A pool is not copyable; its blocks must all be freed to it.
class STPTXRX_EXPORT BlockPool {
 public:
  /// Blocks of `blockSize` octets rounded up to `alignment` (at most the fundamental alignment, which
  /// every chunk and its header have), so that consecutive blocks stay aligned for the object type.
  BlockPool(std::size_t blockSize, std::size_t alignment)
      : blockSize_((blockSize + alignment - 1) / alignment * alignment) {}
  BlockPool(const BlockPool&) = delete;
  BlockPool& operator=(const BlockPool&) = delete;

  std::size_t blockSize() const { return blockSize_; }
  /// False where the heap hands out every block (AddressSanitizer builds).
#ifdef STPTXRX_BLOCK_POOL_BYPASS
  static constexpr bool pooled = false;
#else
  static constexpr bool pooled = true;
#endif
  /// Blocks handed out and not yet freed (0 when not pooled).
  std::size_t live() const { return live_; }

  /// One block of blockSize() octets; throws std::bad_alloc when the heap has no chunk to give.
  void* allocate() {
#ifdef STPTXRX_BLOCK_POOL_BYPASS
    return ::operator new(blockSize_);
#else
    if (!threadSafePointers_) return take();
    std::lock_guard<std::mutex> lock(mutex_);
    return take();
#endif
  }
  /// Returns a block of this pool; null is ignored.
  void deallocate(void* p) noexcept {
    if (!p) return;
#ifdef STPTXRX_BLOCK_POOL_BYPASS
    ::operator delete(p);
#else
    if (!threadSafePointers_) return give(p);
    std::lock_guard<std::mutex> lock(mutex_);
    give(p);
#endif
  }

 private:
  static constexpr std::size_t blocksPerChunk = 256;
  struct FreeBlock {
    FreeBlock* next;
  };
  struct Chunk {
    Chunk* next;
  };

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
  void grow();
  void releaseChunks() noexcept;

  const std::size_t blockSize_;
  FreeBlock* free_ = nullptr;
  unsigned char* unused_ = nullptr;    // next never-used block of the newest chunk
  unsigned char* chunkEnd_ = nullptr;  // end of the newest chunk
  Chunk* chunks_ = nullptr;
  std::size_t live_ = 0;
  std::mutex mutex_;
};

}  // namespace Zek
