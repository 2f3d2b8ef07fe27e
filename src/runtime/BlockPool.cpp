#include <stptxrx/runtime/BlockPool.h>

#include <new>

namespace Zek {

namespace {
// Blocks start after a header as large as the strictest fundamental alignment.
constexpr std::size_t chunkHeader = alignof(std::max_align_t);
}  // namespace

void BlockPool::grow() {
  auto* raw = static_cast<unsigned char*>(::operator new(chunkHeader + blockSize_ * blocksPerChunk));
  auto* chunk = reinterpret_cast<Chunk*>(raw);
  chunk->next = chunks_;
  chunks_ = chunk;
  unused_ = raw + chunkHeader;
  chunkEnd_ = unused_ + blockSize_ * blocksPerChunk;
}

void BlockPool::releaseChunks() noexcept {
  while (chunks_) {
    Chunk* next = chunks_->next;
    ::operator delete(chunks_);
    chunks_ = next;
  }
  free_ = nullptr;
  unused_ = chunkEnd_ = nullptr;
}

}  // namespace Zek
