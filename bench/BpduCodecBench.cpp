// BPDU codec costs, each beside a baseline in the same binary:
//  - generateIntxInfoFromPkt of an RST frame and of an MST frame with two MSTIs into a record that
//    already holds what the frame carries (the steady state of a port receiving the same BPDU every hello
//    time), beside a memcpy of the same octets; and the PVST+ RST frame of the same record, beside the
//    IEEE one (target: within 1.2x, no allocation);
//  - generateBpduFromIntxInfo of an MST record with 16 MSTIs and of an RST record on a warm packet pool,
//    beside a hand-written straight-line writer of the same octets through the same wire views into a
//    stack buffer (no packet, no table walk, no checks). Each writer's octets are compared with the
//    encoder's before timing; a mismatch skips the benchmark with an error.
// Frames are counted as items (items_per_second). Heap allocations per frame are reported as
// "allocs/iter"; the expected figure is 0 everywhere.
#include <stptxrx/Stp/StpBpduCodec.h>
#include <stptxrx/Stp/StpTxRxUtils.h>
#include <stptxrx/net/Pkt.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "BenchSupport.h"

namespace {

using namespace StpTxRx;

using StpTxRx::bench::AllocationsPerIteration;
using StpTxRx::bench::bareEncodeRst;
using StpTxRx::bench::writeLinkHeader;

const Nelk::EthAddr portMac(0x02, 0x00, 0x00, 0x00, 0x00, 0x07);
const Nelk::EthAddr rootMac(0x00, 0x11, 0x22, 0x33, 0x44, 0x55);
const Nelk::EthAddr bridgeMac(0x00, 0xaa, 0xbb, 0xcc, 0xdd, 0xee);

constexpr std::size_t maxFrameSize = sizeof(BpduLinkHeader) + Stp::MstBpdu::wireSize +
                                     Stp::MstBpdu::maxMstiCount * Stp::MstiConfigMessage::wireSize;

// ---- records and frames

// The common-instance values an RST BPDU carries; an MST record adds its three own ones.
void fillCist(IntxMstiInfo& e) {
  e.flagsIs(Stp::RstpBpduFlags{0x3c});
  e.cistRootBridgeIdIs(Stp::BridgeId{32768, 0, rootMac});
  e.cistExtRootPathCostIs(20000);
  e.bridgeIdIs(Stp::BridgeId{4096, 0, bridgeMac});
  e.portIdIs(Stp::PortId(128, 3));
  e.maxAgeIs(Stp::TimerVal(0x14, 0x00));
  e.helloTimeIs(Stp::TimerVal(0x02, 0x00));
  e.fwdDelayIs(Stp::TimerVal(0x0f, 0x00));
}

IntxInfo::Ptr rstRecord() {
  IntxInfo::Ptr info = IntxInfo::IntxInfoIs(Bridging::VlanIdOrNone());
  info->stpVersionIs(Stp::StpBpduVersion{Stp::RstpBpdu::rstVersion});
  info->intxInfoTypeIs(Stp::StpBpduType{Stp::RstpBpdu::rstType});
  fillCist(*info->mstiNIs(Stp::BridgeSystemId(0)));
  return info;
}

IntxInfo::Ptr mstRecord(std::uint16_t mstis) {
  IntxInfo::Ptr info = IntxInfo::IntxInfoIs(Bridging::VlanIdOrNone());
  info->stpVersionIs(Stp::StpBpduVersion{Stp::MstBpdu::mstVersion});
  info->intxInfoTypeIs(Stp::StpBpduType{Stp::RstpBpdu::rstType});
  info->configNameStringIs(Zek::String("region-1"));
  info->configRevisionLevelIs(7);
  info->configDigestIs(Stp::MstpConfigDigest{{0xac, 0x36, 0x17, 0x7f, 0x50, 0x28, 0x3c, 0xd4, 0xb8, 0x38, 0x21, 0xd8,
                                              0xab, 0x26, 0xde, 0x62}});
  Zek::Ptr<IntxMstiInfo> cist = info->mstiNIs(Stp::BridgeSystemId(0));
  fillCist(*cist);
  cist->cistRegionalRootBridgeIdIs(Stp::BridgeId{4096, 0, bridgeMac});
  cist->intRootPathCostIs(2000);
  cist->remainingHopsIs(20);
  for (std::uint16_t k = 1; k <= mstis; ++k) {
    Zek::Ptr<IntxMstiInfo> e = info->mstiNIs(Stp::BridgeSystemId(k));
    e->flagsIs(Stp::RstpBpduFlags{0x7c});
    e->regionalRootBridgeIdIs(Stp::BridgeId{8192, k, bridgeMac});
    e->intRootPathCostIs(20000u * k);
    e->bridgeIdIs(Stp::BridgeId{static_cast<std::uint16_t>((k % 16) << 12), k, bridgeMac});
    e->portIdIs(Stp::PortId(static_cast<std::uint8_t>((k % 16) << 4), 3));
    e->remainingHopsIs(19);
  }
  return info;
}

Stp::MstPortSm::Ptr benchPortSm() {
  return Stp::MstPortSm::MstPortSmIs(Stp::Port::PortIs(Nelk::IntfId("Ethernet1"), portMac));
}

// The octets the library encodes for `info`; empty when it does not.
std::vector<std::uint8_t> encodedFrame(const IntxInfo::Ptr& info) {
  const BpduEncodeResult r = generateBpduFromIntxInfo(benchPortSm(), info, false, Bridging::VlanIdOrNone());
  if (!r) return {};
  return std::vector<std::uint8_t>(r.pkt->data(), r.pkt->data() + r.pkt->size());
}

// ---- decoding

// The PVST+ frame of `info` for VLAN 10, untagged (the port's native VLAN).
std::vector<std::uint8_t> pvstFrame(const IntxInfo::Ptr& info) {
  const BpduEncodeResult r = generatePvstBpduFromIntxInfo(benchPortSm(), info, false, 10);
  if (!r) return {};
  return std::vector<std::uint8_t>(r.pkt->data(), r.pkt->data() + r.pkt->size());
}

void decodeIntoExistingRecord(benchmark::State& state, const IntxInfo::Ptr& source, BpduKind kind,
                              bool pvst = false) {
  const std::vector<std::uint8_t> frame = pvst ? pvstFrame(source) : encodedFrame(source);
  IntxInfo::Ptr record = IntxInfo::IntxInfoIs(Bridging::VlanIdOrNone());
  source->neighborAddrIs(portMac);  // what a decode sets from the frame's source
  // The first decode creates the entries and the name; every later one finds them in place.
  if (frame.empty() || generateIntxInfoFromPkt(frame.data(), frame.size(), record.get()).kind != kind ||
      !record->sameContent(*source)) {
    state.SkipWithError("the frame does not decode to its source record");
    return;
  }
  AllocationsPerIteration allocs;
  for (auto _ : state) {
    BpduDecodeResult r = generateIntxInfoFromPkt(frame.data(), frame.size(), record.get());
    benchmark::DoNotOptimize(r);
  }
  allocs.report(state);
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(frame.size()));
}

// Baseline: the same octets copied into a stack buffer.
void memcpyFrame(benchmark::State& state, const IntxInfo::Ptr& source) {
  const std::vector<std::uint8_t> frame = encodedFrame(source);
  AllocationsPerIteration allocs;
  for (auto _ : state) {
    alignas(8) std::uint8_t copy[maxFrameSize];
    const std::uint8_t* from = frame.data();
    std::size_t size = frame.size();
    benchmark::DoNotOptimize(from);
    benchmark::DoNotOptimize(size);
    std::memcpy(copy, from, size);
    benchmark::DoNotOptimize(copy);
    benchmark::ClobberMemory();
  }
  allocs.report(state);
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(frame.size()));
}

void BM_DecodeRst(benchmark::State& state) { decodeIntoExistingRecord(state, rstRecord(), BpduKind::Rst); }
BENCHMARK(BM_DecodeRst);

// PVST+ against the IEEE decode above (same record, same binary): the SNAP header and the
// originating-VLAN TLV are what it adds.
void BM_DecodePvstRst(benchmark::State& state) { decodeIntoExistingRecord(state, rstRecord(), BpduKind::Rst, true); }
BENCHMARK(BM_DecodePvstRst);

void BM_MemcpyRstFrame(benchmark::State& state) { memcpyFrame(state, rstRecord()); }
BENCHMARK(BM_MemcpyRstFrame);

void BM_DecodeMst2(benchmark::State& state) { decodeIntoExistingRecord(state, mstRecord(2), BpduKind::Mst); }
BENCHMARK(BM_DecodeMst2);

void BM_MemcpyMst2Frame(benchmark::State& state) { memcpyFrame(state, mstRecord(2)); }
BENCHMARK(BM_MemcpyMst2Frame);

// ---- encoding: straight-line writers of the baselines (the RST one is shared with the frame benchmark)

// The MST frame of `info` into `frame`; returns its size.
std::size_t bareEncodeMst(const IntxInfo& info, const Nelk::EthAddr& src, std::uint8_t* frame) {
  const std::size_t mstis = info.mstiNCount() - 1;
  const std::size_t bodySize = Stp::MstBpdu::wireSize + mstis * Stp::MstiConfigMessage::wireSize;
  BpduLinkHeader* header = writeLinkHeader(frame, src, bodySize);
  auto* body = reinterpret_cast<std::uint8_t*>(header + 1);
  auto* mst = static_cast<Stp::MstBpdu*>(reinterpret_cast<Stp::CommonBpdu*>(body));
  mst->protocolIdentifier = 0;
  mst->protocolVersionIdentifier = info.stpVersion().value;
  mst->bpduType = info.intxInfoType().value;
  const IntxMstiInfo* cist = info.mstiN(Stp::BridgeSystemId(0)).get();
  mst->flags = cist->flags().value;
  bench::writeCistFields(mst, *cist, cist->cistRegionalRootBridgeId());
  mst->version3Length =
      static_cast<std::uint16_t>(Stp::MstBpdu::version3LengthBase + mstis * Stp::MstiConfigMessage::wireSize);
  mst->configId.formatSelector = 0;
  const std::string_view name = info.configNameString().view();
  mst->configId.name.fill(0);
  std::copy_n(name.begin(), std::min(name.size(), mst->configId.name.size()), mst->configId.name.begin());
  mst->configId.revisionLevel = info.configRevisionLevel();
  mst->configId.digest = info.configDigest().octets;
  mst->cistInternalRootPathCost = cist->intRootPathCost();
  mst->cistBridgeIdentifier = Stp::bridgeIdWire(cist->bridgeId());
  mst->cistRemainingHops = cist->remainingHops();
  auto* message = reinterpret_cast<Stp::MstiConfigMessage*>(body + Stp::MstBpdu::wireSize);
  for (const auto& [key, entry] : info.mstiN()) {
    if (key == Stp::BridgeSystemId(0)) continue;
    message->flags = entry->flags().value;
    const Stp::BridgeId& root = entry->regionalRootBridgeId();
    message->regionalRootIdentifier = Stp::bridgeIdWire(Stp::BridgeId{root.priority, key.value(), root.address});
    message->internalRootPathCost = entry->intRootPathCost();
    message->bridgePriority = static_cast<std::uint8_t>((entry->bridgeId().priority >> 12) << 4);
    message->portPriority = static_cast<std::uint8_t>(entry->portId().priority & 0xf0);
    message->remainingHops = entry->remainingHops();
    ++message;
  }
  return sizeof(BpduLinkHeader) + bodySize;
}

void encodeOnWarmPool(benchmark::State& state, const IntxInfo::Ptr& info) {
  Stp::MstPortSm::Ptr portSm = benchPortSm();
  if (!generateBpduFromIntxInfo(portSm, info, false, Bridging::VlanIdOrNone())) {  // warms the pool
    state.SkipWithError("the record does not encode");
    return;
  }
  AllocationsPerIteration allocs;
  for (auto _ : state) {
    BpduEncodeResult r = generateBpduFromIntxInfo(portSm, info, false, Bridging::VlanIdOrNone());
    std::uint8_t* data = r.pkt->data();
    benchmark::DoNotOptimize(data);
  }
  allocs.report(state);
  state.SetItemsProcessed(state.iterations());
}

// Baseline: the same octets from the same record and port through the bare writer `Write` (a template
// argument, so the writer is inlined into the loop as the library's code is into its own).
template <auto Write>
void bareEncode(benchmark::State& state, const IntxInfo::Ptr& info) {
  Stp::Port::Ptr port = Stp::Port::PortIs(Nelk::IntfId("Ethernet1"), portMac);
  alignas(8) std::uint8_t check[maxFrameSize];
  const std::size_t size = Write(*info, port->portAddr(), check);
  const std::vector<std::uint8_t> expected = encodedFrame(info);
  if (expected.size() != size || !std::equal(expected.begin(), expected.end(), check)) {
    state.SkipWithError("the bare writer writes other octets than the encoder");
    return;
  }
  AllocationsPerIteration allocs;
  for (auto _ : state) {
    alignas(8) std::uint8_t frame[maxFrameSize];
    std::size_t written = Write(*info, port->portAddr(), frame);
    benchmark::DoNotOptimize(written);
    benchmark::DoNotOptimize(frame);
    benchmark::ClobberMemory();
  }
  allocs.report(state);
  state.SetItemsProcessed(state.iterations());
}

void BM_EncodeMst16(benchmark::State& state) { encodeOnWarmPool(state, mstRecord(16)); }
BENCHMARK(BM_EncodeMst16);

void BM_BareEncodeMst16IntoStackBuffer(benchmark::State& state) { bareEncode<bareEncodeMst>(state, mstRecord(16)); }
BENCHMARK(BM_BareEncodeMst16IntoStackBuffer);

void BM_EncodeRst(benchmark::State& state) { encodeOnWarmPool(state, rstRecord()); }
BENCHMARK(BM_EncodeRst);

void BM_BareEncodeRstIntoStackBuffer(benchmark::State& state) { bareEncode<bareEncodeRst>(state, rstRecord()); }
BENCHMARK(BM_BareEncodeRstIntoStackBuffer);

}  // namespace

BENCHMARK_MAIN();
