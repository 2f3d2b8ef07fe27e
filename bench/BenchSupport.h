#pragma once
// Shared by the benchmarks: heap allocations made inside the timed loop, reported per iteration as the
// counter "allocs/iter" (every benchmark executable links the counting operator new of the test support),
// and the bare RST frame writer that the frame encoders are measured against.
#include "support/AllocCounter.h"

#include <benchmark/benchmark.h>
#include <stptxrx/Stp/StpTxRxUtils.h>

#include <cstddef>
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

/// The untagged link header for a body of `bodySize` octets, straight into `frame`; returns the header.
inline BpduLinkHeader* writeLinkHeader(std::uint8_t* frame, const Nelk::EthAddr& src, std::size_t bodySize) {
  auto* header = reinterpret_cast<BpduLinkHeader*>(frame);
  header->destinationAddress = bridgeGroupAddress.octets();
  header->sourceAddress = src.octets();
  header->length = static_cast<std::uint16_t>(sizeof(LlcHeader) + bodySize);
  header->llc = LlcHeader{stpLlcSap, stpLlcSap, llcControlUi};
  return header;
}

/// The fields from the root identifier to the version 1 length, which RST and MST BPDUs share, from the
/// common instance `cist`; the bridge identifier field gets `bridge` (an MST BPDU carries the CIST regional
/// root there).
template <class View>
void writeCistFields(View* b, const IntxMstiInfo& cist, const Stp::BridgeId& bridge) {
  b->rootIdentifier = Stp::bridgeIdWire(cist.cistRootBridgeId());
  b->rootPathCost = cist.cistExtRootPathCost();
  b->bridgeIdentifier = Stp::bridgeIdWire(bridge);
  b->portIdentifier = Stp::portIdWire(cist.portId());
  b->messageAge = cist.messageAge();
  b->maxAge = cist.maxAge();
  b->helloTime = cist.helloTime();
  b->forwardDelay = cist.fwdDelay();
  b->version1Length = 0;
}

/// The baseline of the RST encoders: the frame of `info`'s common instance written straight into `frame`
/// through the same wire views (no packet, no table walk, no checks); returns its size.
inline std::size_t bareEncodeRst(const IntxInfo& info, const Nelk::EthAddr& src, std::uint8_t* frame) {
  BpduLinkHeader* header = writeLinkHeader(frame, src, Stp::RstpBpdu::wireSize);
  auto* rst = Stp::RstpBpdu::of(reinterpret_cast<Stp::CommonBpdu*>(header + 1));
  rst->protocolIdentifier = 0;
  rst->protocolVersionIdentifier = Stp::RstpBpdu::rstVersion;
  rst->bpduType = Stp::RstpBpdu::rstType;
  const IntxMstiInfo* cist = info.mstiN(Stp::BridgeSystemId(0)).get();
  rst->rstpFlagsIs(cist->flags());
  writeCistFields(rst, *cist, cist->bridgeId());
  return sizeof(BpduLinkHeader) + Stp::RstpBpdu::wireSize;
}

}  // namespace StpTxRx::bench
