// The receive path of one port under a BPDU flood, beside decoding the same frame alone:
//  - a flood of 10^6 frames 1 µs apart with the rate limit at 10 per second: nearly every frame is
//    dropped before decoding (the figure per frame is the cost of a drop);
//  - one admitted frame through the receiver with the limit off (decode, record write, counters);
//  - the baseline: generateIntxInfoFromPkt of the same frame into an existing record.
// Text tracing stays off (unless STPTXRX_TRACE switches it on); "allocs/iter" must be 0.
#include <stptxrx/Stp/StpBpduCodec.h>
#include <stptxrx/state/RxStatus.h>

#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "BenchSupport.h"

namespace {

using namespace StpTxRx;
using StpTxRx::bench::AllocationsPerIteration;

std::vector<std::uint8_t> rstFrame() {
  IntxInfo::Ptr info = IntxInfo::IntxInfoIs(0);
  info->stpVersionIs(Stp::StpBpduVersion{2});
  info->intxInfoTypeIs(Stp::StpBpduType{2});
  auto cist = info->mstiNIs(0);
  cist->flagsIs(Stp::RstpBpduFlags{0x3c});
  cist->cistRootBridgeIdIs(Stp::BridgeId{32768, 1, Nelk::EthAddr(0x00, 0x11, 0x22, 0x33, 0x44, 0x55)});
  cist->maxAgeIs(Stp::TimerVal(0x14, 0x00));
  auto sm = Stp::MstPortSm::MstPortSmIs(Stp::Port::PortIs(Nelk::IntfId("Ethernet1"), Nelk::EthAddr(2, 0, 0, 0, 0, 7)));
  Nelk::Pkt::Ptr pkt = generateBpduFromIntxInfo(sm, info, false, 0).pkt;
  return std::vector<std::uint8_t>(pkt->data(), pkt->data() + pkt->size());
}

RxMstPortStatus::Ptr port(bool limited) {
  RxMstPortStatus::Ptr p = RxStatus::RxStatusIs()->rxMstStatusIs("mst")->rxMstPortStatusIs(Nelk::IntfId("Ethernet1"));
  p->rateLimitEnabledIs(limited);
  p->rateLimitMaxCountIs(10);
  p->rateLimitIntervalIs(1.0);
  return p;
}

void BM_FloodWithRateLimit(benchmark::State& state) {
  const std::vector<std::uint8_t> frame = rstFrame();
  RxMstPortStatus::Ptr p = port(true);
  BpduReceiver receiver(p);
  AllocationsPerIteration allocs;
  double now = 0;
  for (auto _ : state) {
    for (int i = 0; i < 1000000; ++i) {
      benchmark::DoNotOptimize(receiver.frameIs(1, frame.data(), frame.size(), now));
      now += 1e-6;
    }
  }
  receiver.flush();
  allocs.report(state);
  state.SetItemsProcessed(state.iterations() * 1000000);
  state.counters["admitted"] = static_cast<double>(p->counters().rstRx) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_FloodWithRateLimit)->Unit(benchmark::kMillisecond);

void BM_AdmittedFrame(benchmark::State& state) {
  const std::vector<std::uint8_t> frame = rstFrame();
  BpduReceiver receiver(port(false));
  receiver.frameIs(1, frame.data(), frame.size(), 0);  // the record exists from here on
  AllocationsPerIteration allocs;
  for (auto _ : state) benchmark::DoNotOptimize(receiver.frameIs(1, frame.data(), frame.size(), 0));
  allocs.report(state);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_AdmittedFrame);

// Baseline: the decode alone, into an existing record.
void BM_DecodeAlone(benchmark::State& state) {
  const std::vector<std::uint8_t> frame = rstFrame();
  IntxInfo::Ptr info = IntxInfo::IntxInfoIs(0);
  generateIntxInfoFromPkt(frame.data(), frame.size(), info.get());
  AllocationsPerIteration allocs;
  for (auto _ : state) benchmark::DoNotOptimize(generateIntxInfoFromPkt(frame.data(), frame.size(), info.get()));
  allocs.report(state);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_DecodeAlone);

}  // namespace

BENCHMARK_MAIN();
