// Runtime costs, each beside its baseline in the same binary:
//  - an attribute write that notifies one reactor (Entity::attributeIs -> dispatch -> onAttribute),
//    beside a bare virtual call of the same handler;
//  - a counted pointer copy with plain and with atomic counts, beside a raw pointer copy;
//  - a text trace whose level is off, beside an empty loop (target: about 1 ns, no allocation);
//  - one block timed by the binary trace (two counter reads and a ring record), beside the two counter
//    reads alone: what every syncer handler pays for its timer, and the floor of that cost here.
// Heap allocations per iteration are reported as "allocs/iter"; every figure here should be 0.
#include <stptxrx/runtime/BinaryTrace.h>
#include <stptxrx/runtime/Entity.h>
#include <stptxrx/runtime/Notifiee.h>
#include <stptxrx/runtime/Ptr.h>
#include <stptxrx/runtime/Trace.h>

#include <benchmark/benchmark.h>

#include <cstdint>

#include "BenchSupport.h"

namespace {

using StpTxRx::bench::AllocationsPerIteration;

class Gauge : public Zek::Entity {
 public:
  static constexpr Zek::AttributeId valueId = Zek::firstAttributeId;
  std::uint64_t value() const { return value_; }
  void valueIs(std::uint64_t v) { attributeIs(value_, v, valueId); }

 private:
  std::uint64_t value_ = 0;
};

class Counting : public Zek::NotifieeConst {
 public:
  explicit Counting(const Zek::Ptr<Zek::PtrInterface const>& n) {
    notifierIs(n);
    isRegisteredNotifieeIs(true);
    hasNotificationActiveIs(true);
  }
  void onAttribute(Zek::AttributeId id, const void*) override { hits_ += id; }
  std::uint64_t hits() const { return hits_; }

 private:
  std::uint64_t hits_ = 0;
};

void BM_SetterNotifyingOneReactor(benchmark::State& state) {
  Zek::Ptr<Gauge> gauge(new Gauge);
  Zek::Ptr<Counting> reactor(new Counting(gauge));
  std::uint64_t v = 0;
  AllocationsPerIteration allocs;
  for (auto _ : state) gauge->valueIs(++v);  // a new value each time: every write notifies
  allocs.report(state);
  benchmark::DoNotOptimize(reactor->hits());
}
BENCHMARK(BM_SetterNotifyingOneReactor);

void BM_Baseline_VirtualCall(benchmark::State& state) {
  Zek::Ptr<Gauge> gauge(new Gauge);
  Zek::Ptr<Counting> reactor(new Counting(gauge));
  Zek::NotifieeConst* target = reactor.get();
  AllocationsPerIteration allocs;
  for (auto _ : state) {
    benchmark::DoNotOptimize(target);  // the compiler cannot see through to the final type
    target->onAttribute(Gauge::valueId, nullptr);
  }
  allocs.report(state);
  benchmark::DoNotOptimize(reactor->hits());
}
BENCHMARK(BM_Baseline_VirtualCall);

struct Payload : Zek::PtrInterface {};

void ptrCopy(benchmark::State& state, bool threadSafe) {
  Zek::threadSafePointers_ = threadSafe;
  Zek::Ptr<Payload> p(new Payload);
  AllocationsPerIteration allocs;
  for (auto _ : state) {
    Zek::Ptr<Payload> copy = p;
    benchmark::DoNotOptimize(copy);
  }
  allocs.report(state);
  p = nullptr;
  Zek::threadSafePointers_ = false;
}
void BM_PtrCopy_Plain(benchmark::State& state) { ptrCopy(state, false); }
void BM_PtrCopy_ThreadSafe(benchmark::State& state) { ptrCopy(state, true); }
BENCHMARK(BM_PtrCopy_Plain);
BENCHMARK(BM_PtrCopy_ThreadSafe);

void BM_Baseline_RawPointerCopy(benchmark::State& state) {
  Zek::Ptr<Payload> p(new Payload);
  Payload* raw = p.get();
  for (auto _ : state) {
    Payload* copy = raw;
    benchmark::DoNotOptimize(copy);
  }
}
BENCHMARK(BM_Baseline_RawPointerCopy);

void BM_TraceLevelOff(benchmark::State& state) {
  Zek::TraceHandle* handle = Zek::traceHandleIs("RuntimeBench");
  handle->levelsIs(0);
  std::uint64_t i = 0;
  AllocationsPerIteration allocs;
  for (auto _ : state) {
    ZEK_TRACE(handle, 8, "TxStatusToTxSyncer::handleTxMstStatus() create " << ++i);
    benchmark::DoNotOptimize(i);
  }
  allocs.report(state);
}
BENCHMARK(BM_TraceLevelOff);

void BM_Baseline_EmptyLoop(benchmark::State& state) {
  std::uint64_t i = 0;
  for (auto _ : state) {
    ++i;
    benchmark::DoNotOptimize(i);
  }
}
BENCHMARK(BM_Baseline_EmptyLoop);

void BM_BinaryTraceBlock(benchmark::State& state) {
  std::uint64_t i = 0;
  for (auto _ : state) {
    ZEK_BINARY_TRACE();
    benchmark::DoNotOptimize(++i);
  }
  if (Zek::BinaryTrace::recordCount() < static_cast<std::uint64_t>(state.iterations())) {
    state.SkipWithError("blocks not recorded");
  }
}
BENCHMARK(BM_BinaryTraceBlock);

void BM_Baseline_TwoCounterReads(benchmark::State& state) {
  for (auto _ : state) {
    const std::uint64_t start = Zek::BinaryTrace::now();
    benchmark::DoNotOptimize(Zek::BinaryTrace::now() - start);
  }
}
BENCHMARK(BM_Baseline_TwoCounterReads);

}  // namespace

BENCHMARK_MAIN();
