// Replacement of the global allocation functions: forward to malloc/free and count every allocation in
// a thread-local counter. A thread-local of a trivial type needs no initialisation call, so the counter
// is usable from the first allocation of the program on (static initializers included).
#include "support/AllocCounter.h"

#include <cstdlib>
#include <malloc.h>
#include <new>

namespace {

thread_local std::uint64_t allocationCount = 0;
thread_local bool countingBytes = false;
thread_local std::int64_t liveByteCount = 0;

void* counted(void* p) noexcept {
  if (countingBytes) liveByteCount += static_cast<std::int64_t>(malloc_usable_size(p));
  return p;
}

void release(void* p) noexcept {
  if (countingBytes && p) liveByteCount -= static_cast<std::int64_t>(malloc_usable_size(p));
  std::free(p);
}

void* allocate(std::size_t size) {
  ++allocationCount;
  if (void* p = std::malloc(size ? size : 1)) return counted(p);
  throw std::bad_alloc();
}

void* allocateAligned(std::size_t size, std::align_val_t alignment) {
  ++allocationCount;
  std::size_t align = static_cast<std::size_t>(alignment);
  if (align < sizeof(void*)) align = sizeof(void*);
  void* p = nullptr;
  if (posix_memalign(&p, align, size ? size : 1) != 0) throw std::bad_alloc();
  return counted(p);
}

// A nothrow form: the allocation, or null where it would throw.
template <class Allocate>
void* orNull(Allocate&& allocate) noexcept {
  try {
    return allocate();
  } catch (...) {
    return nullptr;
  }
}

}  // namespace

namespace Zek::test {
std::uint64_t allocations() noexcept { return allocationCount; }
void countBytesIs(bool on) noexcept { countingBytes = on; }
std::int64_t liveBytes() noexcept { return liveByteCount; }
}  // namespace Zek::test

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return orNull([=] { return allocate(size); }); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return orNull([=] { return allocate(size); }); }
void* operator new(std::size_t size, std::align_val_t a) { return allocateAligned(size, a); }
void* operator new[](std::size_t size, std::align_val_t a) { return allocateAligned(size, a); }
void* operator new(std::size_t size, std::align_val_t a, const std::nothrow_t&) noexcept {
  return orNull([=] { return allocateAligned(size, a); });
}
void* operator new[](std::size_t size, std::align_val_t a, const std::nothrow_t&) noexcept {
  return orNull([=] { return allocateAligned(size, a); });
}

void operator delete(void* p) noexcept { release(p); }
void operator delete[](void* p) noexcept { release(p); }
void operator delete(void* p, std::size_t) noexcept { release(p); }
void operator delete[](void* p, std::size_t) noexcept { release(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { release(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { release(p); }
void operator delete(void* p, std::align_val_t) noexcept { release(p); }
void operator delete[](void* p, std::align_val_t) noexcept { release(p); }
void operator delete(void* p, std::size_t, std::align_val_t) noexcept { release(p); }
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept { release(p); }
void operator delete(void* p, std::align_val_t, const std::nothrow_t&) noexcept { release(p); }
void operator delete[](void* p, std::align_val_t, const std::nothrow_t&) noexcept { release(p); }
