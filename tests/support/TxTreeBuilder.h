#pragma once
// Filling transmit records and status trees for tests and benchmarks. Header-only; needs nothing but the
// library.
#include <stptxrx/state/TxStatus.h>

#include <cstdint>
#include <string>

namespace StpTxRx::test {

/// Writes the attributes of an instance entry selected by `mask` (bit k: the k-th of the thirteen, in
/// declaration order) with values derived from `seed`: two different seeds give different values in every
/// attribute (modulo its width), so a missed copy shows.
inline void fillEntry(IntxMstiInfo& e, std::uint32_t seed, std::uint32_t mask = ~0u) {
  const auto b = [seed](unsigned k) { return static_cast<std::uint8_t>(seed * 7u + k); };
  if (mask & 1u << 0) e.flagsIs(RstpBpduFlags{b(1)});
  if (mask & 1u << 1) e.bridgeIdIs(BridgeId{std::uint16_t(0x1000u * (seed % 16u)), b(2), Nelk::EthAddr(0, 1, 2, 3, 4, b(3))});
  if (mask & 1u << 2) e.portIdIs(PortId(b(4), static_cast<std::uint16_t>(seed + 5u)));
  if (mask & 1u << 3) e.cistRootBridgeIdIs(BridgeId{b(6), b(7), Nelk::EthAddr(b(8), 0, 0, 0, 0, 1)});
  if (mask & 1u << 4) e.cistExtRootPathCostIs(seed * 1000u + 9u);
  if (mask & 1u << 5) e.cistRegionalRootBridgeIdIs(BridgeId{b(10), 0, Nelk::EthAddr(0, 0, 0, 0, b(11), 2)});
  if (mask & 1u << 6) e.intRootPathCostIs(seed * 100u + 12u);
  if (mask & 1u << 7) e.regionalRootBridgeIdIs(BridgeId{b(13), 1, Nelk::EthAddr(0, 0, 0, b(14), 0, 3)});
  if (mask & 1u << 8) e.remainingHopsIs(b(15));
  if (mask & 1u << 9) e.messageAgeIs(TimerVal(b(16), 0));
  if (mask & 1u << 10) e.maxAgeIs(TimerVal(b(17), 1));
  if (mask & 1u << 11) e.helloTimeIs(TimerVal(b(18), 2));
  if (mask & 1u << 12) e.fwdDelayIs(TimerVal(b(19), 3));
}

/// Writes the six record-level attributes of a transmit record selected by `mask`, from `seed` (as fillEntry).
inline void fillRecord(IntxInfo& r, std::uint32_t seed, std::uint32_t mask = ~0u) {
  const auto b = [seed](unsigned k) { return static_cast<std::uint8_t>(seed * 11u + k); };
  if (mask & 1u << 0) r.neighborAddrIs(Nelk::EthAddr(2, 0, 0, 0, b(1), b(2)));
  if (mask & 1u << 1) r.stpVersionIs(StpBpduVersion{b(3)});
  if (mask & 1u << 2) r.intxInfoTypeIs(StpBpduType{b(4)});
  if (mask & 1u << 3) r.configRevisionLevelIs(static_cast<unsigned short>(seed + 5u));
  if (mask & 1u << 4) r.configNameStringIs(Zek::String("region-" + std::to_string(seed)));
  MstpConfigDigest d;
  for (unsigned i = 0; i < d.octets.size(); ++i) d.octets[i] = b(6 + i);
  if (mask & 1u << 5) r.configDigestIs(d);
}

/// `r` with its record-level attributes written from `seed` and one entry per key of `keys`, each filled
/// from seed + key.
inline Zek::Ptr<IntxInfo> filled(Zek::Ptr<IntxInfo> r, std::uint32_t seed, std::initializer_list<std::uint16_t> keys) {
  fillRecord(*r, seed);
  for (std::uint16_t k : keys) fillEntry(*r->mstiNIs(k), seed + k);
  return r;
}

/// A detached record of `vlan`, filled (see filled()).
inline Zek::Ptr<IntxInfo> recordOf(std::uint32_t seed, std::initializer_list<std::uint16_t> keys, std::uint16_t vlan = 0) {
  return filled(IntxInfo::IntxInfoIs(vlan), seed, keys);
}

/// The port `intf` of group `group`, both created when absent.
inline Zek::Ptr<TxMstPortStatus> portIs(TxStatus& status, const char* group, const char* intf) {
  return status.txMstStatusIs(Zek::Name(group))->txMstPortStatusIs(IntfId(intf));
}

/// The record of `vlan` on port `intf` of `group` (all created when absent), filled (see filled()).
inline Zek::Ptr<IntxInfo> recordIs(TxStatus& status, const char* group, const char* intf, VlanIdOrNone vlan,
                                   std::initializer_list<std::uint16_t> instances, std::uint32_t seed = 1) {
  return filled(portIs(status, group, intf)->txInfoIs(vlan), seed, instances);
}

}  // namespace StpTxRx::test
