#pragma once
// Counting of global operator new calls, for tests and benchmarks that prove a path allocates nothing, and
// of live heap bytes, for benchmarks that measure memory.
//
// AllocCounter.cpp replaces the global operator new/delete (every form) with versions that forward to
// malloc/free and count each allocation in a per-thread counter. The replacement is linked into any
// program that uses allocations() or AllocScope, and then also counts the allocations made inside the
// shared library. The file depends on nothing but the standard library, so a benchmark can link it
// without GoogleTest.
#include <cstdint>

namespace Zek::test {

/// Number of operator new calls made by the calling thread since it started.
std::uint64_t allocations() noexcept;

/// Byte counting (off by default, so that counting calls stays one increment): while it is on for the
/// calling thread, every block that thread allocates adds its usable size (malloc_usable_size) to
/// liveBytes() and every block it frees subtracts it. Memory measurements switch it on around the code
/// they measure; blocks allocated while it was off and freed while it is on make the figure too low.
void countBytesIs(bool on) noexcept;
/// Usable heap bytes allocated minus freed by the calling thread while byte counting was on.
std::int64_t liveBytes() noexcept;

/// Counts the operator new calls the calling thread makes between construction and count().
///
///   Zek::test::AllocScope scope;
///   doWork();
///   EXPECT_EQ(scope.count(), 0u);
struct AllocScope {
  /// Allocations made since construction.
  std::uint64_t count() const noexcept { return allocations() - start; }
  const std::uint64_t start = allocations();
};

}  // namespace Zek::test
