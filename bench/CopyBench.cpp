// Whole-record copy costs for a record with 65 instance entries, no reactors, each beside a baseline in
// the same binary:
//  - copyIntxInfo onto an equal record, beside a plain assignment of the same values held in plain
//    structs (what the copy costs beyond moving the data);
//  - copyIntxInfo onto an empty record (entries created, then released with the record), beside
//    building the same record by direct setter calls (what the copy costs beyond creating the entries).
// Heap allocations per iteration are reported as "allocs/iter"; the equal case allocates nothing.
#include <stptxrx/Stp/StpTxRxCommon.h>

#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>

#include "BenchSupport.h"

namespace {

using namespace StpTxRx;

using StpTxRx::bench::AllocationsPerIteration;

constexpr std::uint16_t entryCount = 65;

void fillEntry(IntxMstiInfo& e, std::uint16_t k) {
  const auto v = static_cast<std::uint8_t>(k);
  e.flagsIs(Stp::RstpBpduFlags{v});
  e.bridgeIdIs(Stp::BridgeId{0x8000, k, Nelk::EthAddr(0, 1, 2, 3, 4, v)});
  e.portIdIs(Stp::PortId(0x80, k));
  e.cistRootBridgeIdIs(Stp::BridgeId{0x1000, k, Nelk::EthAddr(0, 1, 2, 3, 5, v)});
  e.cistExtRootPathCostIs(20000u + k);
  e.cistRegionalRootBridgeIdIs(Stp::BridgeId{0x2000, k, Nelk::EthAddr(0, 1, 2, 3, 6, v)});
  e.intRootPathCostIs(2000u + k);
  e.regionalRootBridgeIdIs(Stp::BridgeId{0x3000, k, Nelk::EthAddr(0, 1, 2, 3, 7, v)});
  e.remainingHopsIs(20);
  e.messageAgeIs(Stp::TimerVal(0, v));
  e.maxAgeIs(Stp::TimerVal(0x14, 0));
  e.helloTimeIs(Stp::TimerVal(0x02, 0));
  e.fwdDelayIs(Stp::TimerVal(0x0f, 0));
}

const Zek::String regionName("region");

void fillRecord(IntxInfo& info) {
  info.neighborAddrIs(Nelk::EthAddr(0, 0, 0, 0, 0, 1));
  info.stpVersionIs(Stp::StpBpduVersion{3});
  info.intxInfoTypeIs(Stp::StpBpduType{2});
  info.configRevisionLevelIs(7);
  info.configNameStringIs(regionName);
  info.configDigestIs(Stp::MstpConfigDigest{{1, 2, 3, 4}});
  for (std::uint16_t k = 0; k < entryCount; ++k) fillEntry(*info.mstiNIs(k), k);
}

IntxInfo::Ptr fullRecord() {
  IntxInfo::Ptr info = IntxInfo::IntxInfoIs(0);
  fillRecord(*info);
  return info;
}

void BM_CopyIntxInfoOntoEqual(benchmark::State& state) {
  IntxInfo::Ptr src = fullRecord();
  IntxInfo::Ptr dst = fullRecord();
  AllocationsPerIteration allocs;
  for (auto _ : state) {
    copyIntxInfo(src, dst);
    benchmark::ClobberMemory();
  }
  allocs.report(state);
  state.SetItemsProcessed(state.iterations() * entryCount);
}
BENCHMARK(BM_CopyIntxInfoOntoEqual);

// Baseline: the same values held in plain structs, assigned member by member.
struct PlainEntry {
  Stp::RstpBpduFlags flags;
  Stp::BridgeId bridgeId;
  Stp::PortId portId;
  Stp::BridgeId cistRootBridgeId;
  Stp::PathCost cistExtRootPathCost;
  Stp::BridgeId cistRegionalRootBridgeId;
  Stp::PathCost intRootPathCost;
  Stp::BridgeId regionalRootBridgeId;
  unsigned char remainingHops;
  Stp::TimerVal messageAge, maxAge, helloTime, fwdDelay;
};
struct PlainRecord {
  Nelk::EthAddr neighborAddr;
  Stp::StpBpduVersion stpVersion;
  Stp::StpBpduType intxInfoType;
  unsigned short configRevisionLevel;
  Zek::String configNameString;
  Stp::MstpConfigDigest configDigest;
  std::array<PlainEntry, entryCount> entries;
};

PlainRecord plainOf(const IntxInfo& info) {
  PlainRecord p{info.neighborAddr(), info.stpVersion(), info.intxInfoType(), info.configRevisionLevel(),
                info.configNameString(), info.configDigest(), {}};
  std::size_t i = 0;
  for (const auto& [key, e] : info.mstiN()) {
    p.entries[i++] = PlainEntry{e->flags(), e->bridgeId(), e->portId(), e->cistRootBridgeId(),
                                e->cistExtRootPathCost(), e->cistRegionalRootBridgeId(), e->intRootPathCost(),
                                e->regionalRootBridgeId(), e->remainingHops(), e->messageAge(), e->maxAge(),
                                e->helloTime(), e->fwdDelay()};
  }
  return p;
}

void BM_PlainStructCopyBaseline(benchmark::State& state) {
  const PlainRecord src = plainOf(*fullRecord());
  PlainRecord dst = src;
  AllocationsPerIteration allocs;
  for (auto _ : state) {
    benchmark::DoNotOptimize(&src);
    dst = src;
    benchmark::DoNotOptimize(&dst);
    benchmark::ClobberMemory();
  }
  allocs.report(state);
  state.SetItemsProcessed(state.iterations() * entryCount);
}
BENCHMARK(BM_PlainStructCopyBaseline);

void BM_CopyIntxInfoOntoEmpty(benchmark::State& state) {
  IntxInfo::Ptr src = fullRecord();
  AllocationsPerIteration allocs;
  for (auto _ : state) {
    IntxInfo::Ptr dst = IntxInfo::IntxInfoIs(0);
    copyIntxInfo(src, dst);
    benchmark::DoNotOptimize(dst.get());
  }
  allocs.report(state);
  state.SetItemsProcessed(state.iterations() * entryCount);
}
BENCHMARK(BM_CopyIntxInfoOntoEmpty);

// Baseline: the same record built by direct setter calls (entries created and released the same way).
void BM_BuildRecordBySettersBaseline(benchmark::State& state) {
  AllocationsPerIteration allocs;
  for (auto _ : state) {
    IntxInfo::Ptr dst = IntxInfo::IntxInfoIs(0);
    fillRecord(*dst);
    benchmark::DoNotOptimize(dst.get());
  }
  allocs.report(state);
  state.SetItemsProcessed(state.iterations() * entryCount);
}
BENCHMARK(BM_BuildRecordBySettersBaseline);

}  // namespace

BENCHMARK_MAIN();
