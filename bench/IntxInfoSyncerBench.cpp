// IntxInfoSyncer costs, each beside a baseline in the same binary:
//  - one entry attribute written on the source and propagated to the destination (binary trace on and
//    off), beside the same source write followed by a direct field copy through one virtual call;
//  - the construction (and release) of a syncer over a record with 65 entries, beside building the same
//    destination by direct setter calls.
// Text tracing stays off (unless STPTXRX_TRACE switches it on). Heap allocations per iteration are
// reported as "allocs/iter".
#include <stptxrx/Stp/IntxInfoSyncer.h>
#include <stptxrx/runtime/BinaryTrace.h>

#include <benchmark/benchmark.h>

#include <cstdint>

#include "BenchSupport.h"

namespace {

using namespace StpTxRx;

using StpTxRx::bench::AllocationsPerIteration;

void fillEntry(IntxMstiInfo& e, std::uint16_t k) {
  const auto v = static_cast<std::uint8_t>(k);
  e.flagsIs(RstpBpduFlags{v});
  e.bridgeIdIs(BridgeId{0x8000, k, Nelk::EthAddr(0, 1, 2, 3, 4, v)});
  e.portIdIs(PortId(0x80, k));
  e.cistRootBridgeIdIs(BridgeId{0x1000, k, Nelk::EthAddr(0, 1, 2, 3, 5, v)});
  e.cistExtRootPathCostIs(20000u + k);
  e.cistRegionalRootBridgeIdIs(BridgeId{0x2000, k, Nelk::EthAddr(0, 1, 2, 3, 6, v)});
  e.intRootPathCostIs(2000u + k);
  e.regionalRootBridgeIdIs(BridgeId{0x3000, k, Nelk::EthAddr(0, 1, 2, 3, 7, v)});
  e.remainingHopsIs(20);
  e.messageAgeIs(TimerVal(1, v));
  e.maxAgeIs(TimerVal(20, 0));
  e.helloTimeIs(TimerVal(2, 0));
  e.fwdDelayIs(TimerVal(15, 0));
}

IntxInfo::Ptr recordWithEntries(std::uint16_t count) {
  IntxInfo::Ptr r = IntxInfo::IntxInfoIs(VlanIdOrNone(1));
  r->neighborAddrIs(Nelk::EthAddr(0, 0x1c, 0x73, 0, 0, 1));
  r->stpVersionIs(StpBpduVersion{3});
  r->intxInfoTypeIs(StpBpduType{2});
  r->configRevisionLevelIs(7);
  r->configNameStringIs("region");
  MstpConfigDigest d;
  d.octets[0] = 0xac;
  r->configDigestIs(d);
  for (std::uint16_t k = 0; k < count; ++k) fillEntry(*r->mstiNIs(BridgeSystemId(k)), k);
  return r;
}

// ---- one attribute

/// The baseline's copier: one virtual call that copies the field.
struct FieldCopier {
  virtual ~FieldCopier() = default;
  virtual void copy() = 0;
};

struct FlagsCopier final : FieldCopier {
  FlagsCopier(IntxMstiInfo::PtrConst s, IntxMstiInfo::Ptr d) : src(std::move(s)), dst(std::move(d)) {}
  void copy() override { dst->flagsIs(src->flags()); }
  IntxMstiInfo::PtrConst src;
  IntxMstiInfo::Ptr dst;
};

void BM_AttributeDirectCopyBaseline(benchmark::State& state) {
  IntxInfo::Ptr src = recordWithEntries(1);
  IntxInfo::Ptr dst = recordWithEntries(1);
  IntxMstiInfo::Ptr entry = src->mstiN(BridgeSystemId(0));
  FlagsCopier concrete(entry, dst->mstiN(BridgeSystemId(0)));
  FieldCopier* copier = &concrete;
  benchmark::DoNotOptimize(copier);  // keep the call virtual
  std::uint8_t v = 0;
  AllocationsPerIteration allocs;
  for (auto _ : state) {
    entry->flagsIs(RstpBpduFlags{++v});
    copier->copy();
  }
  allocs.report(state);
  if (!(dst->mstiN(BridgeSystemId(0))->flags() == entry->flags())) state.SkipWithError("not copied");
}
BENCHMARK(BM_AttributeDirectCopyBaseline);

/// Source entry write -> ZekMstiNSm::onAttribute -> zek_handleMstiN_flags -> destination setter.
void BM_AttributeThroughSyncer(benchmark::State& state) {
  const bool binaryTrace = state.range(0) != 0;
  const bool wasOn = Zek::BinaryTrace::enabled();
  Zek::BinaryTrace::enabledIs(binaryTrace);
  IntxInfo::Ptr src = recordWithEntries(1);
  IntxInfo::Ptr dst = IntxInfo::IntxInfoIs(VlanIdOrNone(1));
  auto syncer = intxInfoSyncerFactory(src, dst, VlanIdOrNone(1), "G|Et1");
  IntxMstiInfo::Ptr entry = src->mstiN(BridgeSystemId(0));
  std::uint8_t v = 0;
  entry->flagsIs(RstpBpduFlags{++v});  // call site registered before counting
  AllocationsPerIteration allocs;
  for (auto _ : state) entry->flagsIs(RstpBpduFlags{++v});
  allocs.report(state);
  if (!(dst->mstiN(BridgeSystemId(0))->flags() == entry->flags())) state.SkipWithError("not propagated");
  Zek::BinaryTrace::enabledIs(wasOn);
}
BENCHMARK(BM_AttributeThroughSyncer)->ArgName("binaryTrace")->Arg(1)->Arg(0);

// ---- construction over 65 entries

/// A fresh destination filled by direct setter calls: record level, then every entry.
void BM_Construction65DirectCopyBaseline(benchmark::State& state) {
  IntxInfo::Ptr src = recordWithEntries(65);
  for (auto _ : state) {
    IntxInfo::Ptr dst = IntxInfo::IntxInfoIs(VlanIdOrNone(1));
    dst->neighborAddrIs(src->neighborAddr());
    dst->stpVersionIs(src->stpVersion());
    dst->intxInfoTypeIs(src->intxInfoType());
    dst->configRevisionLevelIs(src->configRevisionLevel());
    dst->configNameStringIs(src->configNameString());
    dst->configDigestIs(src->configDigest());
    for (const auto& [key, s] : src->mstiN()) {
      IntxMstiInfo::Ptr d = dst->mstiNIs(key);
      d->flagsIs(s->flags());
      d->bridgeIdIs(s->bridgeId());
      d->portIdIs(s->portId());
      d->cistRootBridgeIdIs(s->cistRootBridgeId());
      d->cistExtRootPathCostIs(s->cistExtRootPathCost());
      d->cistRegionalRootBridgeIdIs(s->cistRegionalRootBridgeId());
      d->intRootPathCostIs(s->intRootPathCost());
      d->regionalRootBridgeIdIs(s->regionalRootBridgeId());
      d->remainingHopsIs(s->remainingHops());
      d->messageAgeIs(s->messageAge());
      d->maxAgeIs(s->maxAge());
      d->helloTimeIs(s->helloTime());
      d->fwdDelayIs(s->fwdDelay());
    }
    benchmark::DoNotOptimize(dst.get());
  }
}
BENCHMARK(BM_Construction65DirectCopyBaseline);

/// IntxInfoSyncerIs over a fresh destination (the full copy creates the 65 entries), then its release;
/// with the binary trace on (the default) and off, which tells the handlers' block timers apart.
void BM_Construction65ThroughSyncer(benchmark::State& state) {
  IntxInfo::Ptr src = recordWithEntries(65);
  const bool wasOn = Zek::BinaryTrace::enabled();
  Zek::BinaryTrace::enabledIs(state.range(0) != 0);
  for (auto _ : state) {
    IntxInfo::Ptr dst = IntxInfo::IntxInfoIs(VlanIdOrNone(1));
    auto syncer = intxInfoSyncerFactory(src, dst, VlanIdOrNone(1), "G|Et1");
    benchmark::DoNotOptimize(syncer.get());
  }
  Zek::BinaryTrace::enabledIs(wasOn);
}
BENCHMARK(BM_Construction65ThroughSyncer)->ArgName("binaryTrace")->Arg(1)->Arg(0);

}  // namespace

BENCHMARK_MAIN();
