// Receive dynamic syncer costs on one group of 1024 ports (shape given by a TxStatusToRxSyncer, values
// copied by an RxStatusToRxDynamicSyncer), each beside a baseline in the same binary:
//  - one rxUpdate notification of a port whose received record has 65 instance entries: the record is
//    copied into the destination and the destination count raised; beside copyIntxInfo alone between two
//    records of the same size;
//  - one bpduCount write propagated to the destination port (binary trace on and off); beside the same
//    write on an unwatched port followed by a direct setter call on the destination.
// Text tracing stays off (unless STPTXRX_TRACE switches it on). Heap allocations per iteration are
// reported as "allocs/iter".
#include <stptxrx/Stp/StpRxStatusSyncer.h>
#include <stptxrx/Stp/StpTxRxCommon.h>
#include <stptxrx/Stp/TxStatusToRxSyncer.h>
#include <stptxrx/runtime/BinaryTrace.h>

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

#include "BenchSupport.h"

namespace {

using namespace StpTxRx;

constexpr int kPorts = 1024;
constexpr std::uint16_t kEntries = 65;
const VlanIdOrNone kVlan(10);

using StpTxRx::bench::AllocationsPerIteration;

void fillRecord(IntxInfo& r) {
  r.neighborAddrIs(Nelk::EthAddr(0, 0x1c, 0x73, 0, 0, 1));
  r.stpVersionIs(StpBpduVersion{3});
  r.intxInfoTypeIs(StpBpduType{2});
  r.configRevisionLevelIs(7);
  r.configNameStringIs("region");
  for (std::uint16_t k = 0; k < kEntries; ++k) {
    auto e = r.mstiNIs(k);
    const auto v = static_cast<std::uint8_t>(k);
    e->flagsIs(RstpBpduFlags{v});
    e->bridgeIdIs(BridgeId{0x8000, k, Nelk::EthAddr(0, 1, 2, 3, 4, v)});
    e->portIdIs(PortId(0x80, k));
    e->cistRootBridgeIdIs(BridgeId{0x1000, k, Nelk::EthAddr(0, 1, 2, 3, 5, v)});
    e->cistExtRootPathCostIs(20000u + k);
    e->cistRegionalRootBridgeIdIs(BridgeId{0x2000, k, Nelk::EthAddr(0, 1, 2, 3, 6, v)});
    e->intRootPathCostIs(2000u + k);
    e->regionalRootBridgeIdIs(BridgeId{0x3000, k, Nelk::EthAddr(0, 1, 2, 3, 7, v)});
    e->remainingHopsIs(20);
    e->messageAgeIs(TimerVal(1, v));
    e->maxAgeIs(TimerVal(20, 0));
    e->helloTimeIs(TimerVal(2, 0));
    e->fwdDelayIs(TimerVal(15, 0));
  }
}

IntfId intf(int i) { return IntfId(("Ethernet" + std::to_string(i)).c_str()); }

/// One group "G" of 1024 ports on the transmit side, the source and the destination, with both syncers.
struct ReceiveSide {
  ReceiveSide() {
    tx = TxStatus::TxStatusIs();
    src = RxStatus::RxStatusIs();
    dst = RxStatus::RxStatusIs();
    TxMstStatus::Ptr txG = tx->txMstStatusIs("G");
    RxMstStatus::Ptr srcG = src->rxMstStatusIs("G");
    for (int i = 1; i <= kPorts; ++i) {
      txG->txMstPortStatusIs(intf(i));
      srcG->rxMstPortStatusIs(intf(i));
    }
    shape = txStatusToRxSyncerFactory(tx, dst);
    values = rxStatusToRxDynamicSyncerFactory(src, dst);
    srcPort = srcG->rxMstPortStatus(intf(kPorts / 2));
    dstPort = dst->rxMstStatus("G")->rxMstPortStatus(intf(kPorts / 2));
    fillRecord(*srcPort->rxInfoIs(kVlan));
    srcPort->rxUpdateInc(kVlan, 1);  // the destination record and its entries exist from here on
  }

  TxStatus::Ptr tx;
  RxStatus::Ptr src;
  RxStatus::Ptr dst;
  TxStatusToRxSyncer::Ptr shape;
  RxStatusToRxDynamicSyncer::Ptr values;
  RxMstPortStatus::Ptr srcPort;
  RxMstPortStatus::Ptr dstPort;
};

// ---- the received record: one rxUpdate notification, beside copyIntxInfo alone

void BM_RxUpdateCopiesRecord(benchmark::State& state) {
  ReceiveSide side;
  const bool changing = state.range(0) != 0;
  Zek::Ptr<IntxInfo> record = side.srcPort->rxInfo(kVlan);
  unsigned short rev = 0;
  AllocationsPerIteration allocs;
  for (auto _ : state) {
    if (changing) record->configRevisionLevelIs(++rev);  // one attribute differs at each copy
    side.srcPort->rxUpdateInc(kVlan, 1);
  }
  allocs.report(state);
  benchmark::DoNotOptimize(side.dstPort->rxUpdate(kVlan));
}
BENCHMARK(BM_RxUpdateCopiesRecord)->ArgName("changing")->Arg(0)->Arg(1);

void BM_Baseline_CopyIntxInfoAlone(benchmark::State& state) {
  IntxInfo::Ptr from = IntxInfo::IntxInfoIs(kVlan);
  IntxInfo::Ptr to = IntxInfo::IntxInfoIs(kVlan);
  fillRecord(*from);
  copyIntxInfo(from, to);
  const bool changing = state.range(0) != 0;
  unsigned short rev = 0;
  AllocationsPerIteration allocs;
  for (auto _ : state) {
    if (changing) from->configRevisionLevelIs(++rev);
    copyIntxInfo(from, to);
  }
  allocs.report(state);
  benchmark::DoNotOptimize(to->configRevisionLevel());
}
BENCHMARK(BM_Baseline_CopyIntxInfoAlone)->ArgName("changing")->Arg(0)->Arg(1);

// ---- a scalar: bpduCount propagated, beside a direct copy

void BM_BpduCountPropagated(benchmark::State& state) {
  ReceiveSide side;
  const bool binaryTrace = state.range(0) != 0;
  const bool wasOn = Zek::BinaryTrace::enabled();
  Zek::BinaryTrace::enabledIs(binaryTrace);
  std::uint32_t n = 0;
  AllocationsPerIteration allocs;
  for (auto _ : state) side.srcPort->bpduCountIs(++n);
  allocs.report(state);
  Zek::BinaryTrace::enabledIs(wasOn);
  if (side.dstPort->bpduCount() != n) state.SkipWithError("not propagated");
}
BENCHMARK(BM_BpduCountPropagated)->ArgName("binaryTrace")->Arg(0)->Arg(1);

void BM_Baseline_BpduCountDirectCopy(benchmark::State& state) {
  ReceiveSide side;
  RxMstPortStatus::Ptr unwatched = RxStatus::RxStatusIs()->rxMstStatusIs("G")->rxMstPortStatusIs(intf(1));
  std::uint32_t n = 0;
  AllocationsPerIteration allocs;
  for (auto _ : state) {
    unwatched->bpduCountIs(++n);
    side.dstPort->bpduCountIs(unwatched->bpduCount());
  }
  allocs.report(state);
  benchmark::DoNotOptimize(side.dstPort->bpduCount());
}
BENCHMARK(BM_Baseline_BpduCountDirectCopy);

}  // namespace

BENCHMARK_MAIN();
