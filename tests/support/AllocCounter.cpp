// Replacement of the global allocation functions: forward to malloc/free and count every allocation in
// a thread-local counter. A thread-local of a trivial type needs no initialisation call, so the counter
// is usable from the first allocation of the program on (static initializers included).
// Only the base forms are replaced: the standard library's array, nothrow and sized forms forward to them.
// The sized deletes stay, or -Wsized-deallocation complains about an unsized one alone.
#include "support/AllocCounter.h"

#include <algorithm>
#include <cstdlib>
#include <malloc.h>
#include <new>

namespace {

thread_local std::uint64_t allocationCount = 0;
thread_local bool countingBytes = false;
thread_local std::int64_t liveByteCount = 0;

void* counted(void* p) {
  if (!p) throw std::bad_alloc();
  ++allocationCount;
  if (countingBytes) liveByteCount += static_cast<std::int64_t>(malloc_usable_size(p));
  return p;
}

void release(void* p) noexcept {
  if (countingBytes && p) liveByteCount -= static_cast<std::int64_t>(malloc_usable_size(p));
  std::free(p);
}

}  // namespace

namespace Zek::test {
std::uint64_t allocations() noexcept { return allocationCount; }
void countBytesIs(bool on) noexcept { countingBytes = on; }
std::int64_t liveBytes() noexcept { return liveByteCount; }
}  // namespace Zek::test

void* operator new(std::size_t size) { return counted(std::malloc(size ? size : 1)); }
void* operator new(std::size_t size, std::align_val_t a) {
  void* p = nullptr;
  const std::size_t align = std::max(static_cast<std::size_t>(a), sizeof(void*));
  return counted(posix_memalign(&p, align, size ? size : 1) == 0 ? p : nullptr);
}
void operator delete(void* p) noexcept { release(p); }
void operator delete(void* p, std::size_t) noexcept { release(p); }
void operator delete(void* p, std::align_val_t) noexcept { release(p); }
void operator delete(void* p, std::size_t, std::align_val_t) noexcept { release(p); }
