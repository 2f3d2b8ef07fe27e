// Packet costs beside a baseline in the same binary: taking a packet from a warm pool, prepending 53
// octets of head data, filling them and releasing the packet, beside filling 53 octets of a stack
// buffer. Heap allocations per packet are reported as "allocs/iter"; with a warm pool the figure is 0.
#include <stptxrx/net/Pkt.h>

#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <cstring>

#include "BenchSupport.h"

namespace {

using StpTxRx::bench::AllocationsPerIteration;

constexpr std::size_t frameSize = 53;  // link header (17) + RST BPDU body (36)

std::array<std::uint8_t, frameSize> frameBytes() {
  std::array<std::uint8_t, frameSize> f{};
  for (std::size_t i = 0; i < f.size(); ++i) f[i] = static_cast<std::uint8_t>(i * 7);
  return f;
}

void pktCycle(benchmark::State& state, Nelk::PktManager& manager) {
  const auto frame = frameBytes();
  manager.newPkt();  // warm the pool: one packet and its buffer exist from here on
  AllocationsPerIteration allocs;
  for (auto _ : state) {
    Nelk::Pkt::Ptr p = manager.newPkt();
    std::memcpy(p->headDataIs(frameSize), frame.data(), frameSize);
    benchmark::DoNotOptimize(p->data());
  }
  allocs.report(state);
}

void BM_PktNewHeadDataRelease(benchmark::State& state) {
  Nelk::PktManager manager;
  pktCycle(state, manager);
}
BENCHMARK(BM_PktNewHeadDataRelease);

void BM_PktNewHeadDataRelease_Global(benchmark::State& state) { pktCycle(state, Nelk::globalPktManager()); }
BENCHMARK(BM_PktNewHeadDataRelease_Global);

void BM_Baseline_StackBuffer(benchmark::State& state) {
  const auto frame = frameBytes();
  for (auto _ : state) {
    std::uint8_t buffer[frameSize];
    std::memcpy(buffer, frame.data(), frameSize);
    benchmark::DoNotOptimize(buffer);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_Baseline_StackBuffer);

}  // namespace

BENCHMARK_MAIN();
