// Frame construction costs, each beside a baseline in the same binary:
//  - generatePktFromIntxInfo on a warm packet pool, beside a bare encode of the same 53 octets (same
//    record, same packed views) into a stack buffer;
//  - the floor of the former: the same writer into a pooled packet, with the handles passed by value;
//  - StpTxRxGetPkt for a 36-octet body, beside writing the same 17 header octets into a stack buffer.
// Text tracing stays off (unless STPTXRX_TRACE switches it on). Heap allocations per iteration are
// reported as "allocs/iter"; the expected figure once the pool is warm is 0.
#include <stptxrx/Stp/StpTxRxUtils.h>
#include <stptxrx/net/Pkt.h>

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>

#include "BenchSupport.h"

namespace {

using namespace StpTxRx;

using StpTxRx::bench::AllocationsPerIteration;

const Nelk::EthAddr portMac(0x02, 0x00, 0x00, 0x00, 0x00, 0x07);

IntxInfo::Ptr benchRecord() {
  IntxInfo::Ptr info = IntxInfo::IntxInfoIs(0);
  info->stpVersionIs(Stp::StpBpduVersion{2});
  for (std::uint16_t key : {0, 1, 2, 3}) {  // a few instances besides the common one
    Zek::Ptr<IntxMstiInfo> e = info->mstiNIs(key);
    e->flagsIs(Stp::RstpBpduFlags{0x3c});
    e->cistRootBridgeIdIs(Stp::BridgeId{32768, 1, Nelk::EthAddr(0x00, 0x11, 0x22, 0x33, 0x44, 0x55)});
    e->cistExtRootPathCostIs(20000);
    e->bridgeIdIs(Stp::BridgeId{4096, key, Nelk::EthAddr(0x00, 0xaa, 0xbb, 0xcc, 0xdd, 0xee)});
    e->portIdIs(Stp::PortId(128, 3));
    e->maxAgeIs(Stp::TimerVal(0x14, 0x00));
    e->helloTimeIs(Stp::TimerVal(0x02, 0x00));
    e->fwdDelayIs(Stp::TimerVal(0x0f, 0x00));
  }
  return info;
}

void BM_GeneratePktFromIntxInfo(benchmark::State& state) {
  IntxInfo::Ptr info = benchRecord();
  Stp::MstPortSm::Ptr portSm = Stp::MstPortSm::MstPortSmIs(Stp::Port::PortIs(Nelk::IntfId("Ethernet1"), portMac));
  generatePktFromIntxInfo(portSm, info, false);  // warm the pool
  AllocationsPerIteration allocs;
  for (auto _ : state) {
    Nelk::Pkt::Ptr pkt = generatePktFromIntxInfo(portSm, info, false);
    benchmark::DoNotOptimize(pkt->data());
  }
  allocs.report(state);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_GeneratePktFromIntxInfo);

// Baseline: the same 53 octets from the same record and port, through the same views, into a stack
// buffer: no packet, no pointer passing, no trace checks, no assertions.
void BM_BareEncodeIntoStackBuffer(benchmark::State& state) {
  IntxInfo::Ptr info = benchRecord();
  Stp::Port::Ptr port = Stp::Port::PortIs(Nelk::IntfId("Ethernet1"), portMac);
  AllocationsPerIteration allocs;
  for (auto _ : state) {
    alignas(8) std::uint8_t frame[53];
    std::size_t written = StpTxRx::bench::bareEncodeRst(*info, port->portAddr(), frame);
    benchmark::DoNotOptimize(written);
    benchmark::DoNotOptimize(frame);
    benchmark::ClobberMemory();
  }
  allocs.report(state);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_BareEncodeIntoStackBuffer);

// The floor of generatePktFromIntxInfo as described: its two handles passed by value, the port's handle,
// a packet taken from and given back to the warm pool, and the same bare writer into that packet. What
// the encoder costs above this row is its own; what this row costs above the bare writer it cannot shed.
void BM_FloorPooledPacketAndBareEncode(benchmark::State& state) {
  IntxInfo::Ptr info = benchRecord();
  Stp::MstPortSm::Ptr portSm = Stp::MstPortSm::MstPortSmIs(Stp::Port::PortIs(Nelk::IntfId("Ethernet1"), portMac));
  Nelk::globalPktManager().newPkt();  // warm the pool
  AllocationsPerIteration allocs;
  for (auto _ : state) {
    Stp::MstPortSm::Ptr byValueSm = portSm;
    IntxInfo::Ptr byValueInfo = info;
    benchmark::DoNotOptimize(byValueSm.get());
    benchmark::DoNotOptimize(byValueInfo.get());
    Nelk::Pkt::Ptr pkt = Nelk::globalPktManager().newPkt();
    std::uint8_t* frame = pkt->headDataIs(sizeof(BpduLinkHeader) + Stp::RstpBpdu::wireSize);
    std::size_t written = StpTxRx::bench::bareEncodeRst(*byValueInfo, byValueSm->port()->portAddr(), frame);
    benchmark::DoNotOptimize(written);
    benchmark::DoNotOptimize(pkt->data());
  }
  allocs.report(state);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FloorPooledPacketAndBareEncode);

void BM_StpTxRxGetPkt(benchmark::State& state) {
  Stp::CommonBpdu* bpdu = nullptr;
  StpTxRxGetPkt(Bridging::VlanIdOrNone(), portMac, 36, &bpdu);  // warm the pool
  AllocationsPerIteration allocs;
  for (auto _ : state) {
    Nelk::Pkt::Ptr pkt = StpTxRxGetPkt(Bridging::VlanIdOrNone(), portMac, 36, &bpdu);
    benchmark::DoNotOptimize(bpdu);
  }
  allocs.report(state);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_StpTxRxGetPkt);

// Baseline: the same 17 header octets through the same view into a stack buffer.
void BM_LinkHeaderIntoStackBuffer(benchmark::State& state) {
  Nelk::EthAddr src = portMac;
  AllocationsPerIteration allocs;
  for (auto _ : state) {
    alignas(8) std::uint8_t frame[17];
    benchmark::DoNotOptimize(src);
    auto* header = reinterpret_cast<BpduLinkHeader*>(frame);
    header->destinationAddress = bridgeGroupAddress.octets();
    header->sourceAddress = src.octets();
    header->length = 39;
    header->llc = LlcHeader{stpLlcSap, stpLlcSap, llcControlUi};
    benchmark::DoNotOptimize(frame);
    benchmark::ClobberMemory();
  }
  allocs.report(state);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_LinkHeaderIntoStackBuffer);

}  // namespace

BENCHMARK_MAIN();
