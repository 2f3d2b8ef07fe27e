#pragma once
// Shared by every benchmark: heap allocations made inside the timed loop, reported per iteration as the
// counter "allocs/iter". Every benchmark executable links the counting operator new of the test support.
#include "support/AllocCounter.h"

#include <benchmark/benchmark.h>

#include <cstdint>

namespace StpTxRx::bench {

/// Construct right before the timed loop; call report(state) right after it.
class AllocationsPerIteration {
 public:
  AllocationsPerIteration() : start_(Zek::test::allocations()) {}
  void report(benchmark::State& state) const {
    state.counters["allocs/iter"] = benchmark::Counter(static_cast<double>(Zek::test::allocations() - start_),
                                                      benchmark::Counter::kAvgIterations);
  }

 private:
  std::uint64_t start_;
};

}  // namespace StpTxRx::bench
