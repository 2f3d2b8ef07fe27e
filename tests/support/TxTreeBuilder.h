#pragma once
// Building transmit status trees for tests and benchmarks, and comparing a destination tree with the image
// of its source under the transmit status syncer. Header-only; needs nothing but the library.
#include <stptxrx/state/TxStatus.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <utility>

namespace StpTxRx::test {

/// `prefix` followed by `n` in decimal ("Ethernet" 3 -> "Ethernet3").
inline Zek::String numbered(const char* prefix, unsigned n) {
  std::string s(prefix);
  s.append(std::to_string(n));
  return Zek::String(s);
}

/// Writes every attribute of an instance entry with values derived from `seed`: two different seeds give
/// different values in every attribute (modulo the attribute's width), so a missed copy shows.
inline void fillEntry(IntxMstiInfo& e, std::uint32_t seed) {
  const auto b = [seed](unsigned k) { return static_cast<std::uint8_t>(seed * 7u + k); };
  e.flagsIs(RstpBpduFlags{b(1)});
  e.bridgeIdIs(BridgeId{static_cast<std::uint16_t>(0x1000u * (seed % 16u)), b(2), Nelk::EthAddr(0, 1, 2, 3, 4, b(3))});
  e.portIdIs(PortId(b(4), static_cast<std::uint16_t>(seed + 5u)));
  e.cistRootBridgeIdIs(BridgeId{b(6), b(7), Nelk::EthAddr(b(8), 0, 0, 0, 0, 1)});
  e.cistExtRootPathCostIs(seed * 1000u + 9u);
  e.cistRegionalRootBridgeIdIs(BridgeId{b(10), 0, Nelk::EthAddr(0, 0, 0, 0, b(11), 2)});
  e.intRootPathCostIs(seed * 100u + 12u);
  e.regionalRootBridgeIdIs(BridgeId{b(13), 1, Nelk::EthAddr(0, 0, 0, b(14), 0, 3)});
  e.remainingHopsIs(b(15));
  e.messageAgeIs(TimerVal(b(16), 0));
  e.maxAgeIs(TimerVal(b(17), 1));
  e.helloTimeIs(TimerVal(b(18), 2));
  e.fwdDelayIs(TimerVal(b(19), 3));
}

/// Writes the six record-level attributes of a transmit record from `seed` (as fillEntry).
inline void fillRecord(IntxInfo& r, std::uint32_t seed) {
  const auto b = [seed](unsigned k) { return static_cast<std::uint8_t>(seed * 11u + k); };
  r.neighborAddrIs(Nelk::EthAddr(2, 0, 0, 0, b(1), b(2)));
  r.stpVersionIs(StpBpduVersion{b(3)});
  r.intxInfoTypeIs(StpBpduType{b(4)});
  r.configRevisionLevelIs(static_cast<unsigned short>(seed + 5u));
  r.configNameStringIs(numbered("region-", seed));
  MstpConfigDigest d;
  for (unsigned i = 0; i < d.octets.size(); ++i) d.octets[i] = b(6 + i);
  r.configDigestIs(d);
}

/// The port `intf` of group `group`, both created when absent.
inline Zek::Ptr<TxMstPortStatus> portIs(TxStatus& status, const char* group, const char* intf) {
  return status.txMstStatusIs(Zek::Name(group))->txMstPortStatusIs(IntfId(intf));
}

/// The record of `vlan` on port `intf` of `group` (all created when absent), its record-level attributes
/// written from `seed`, with one entry per key of `instances`, each filled from seed + key.
inline Zek::Ptr<IntxInfo> recordIs(TxStatus& status, const char* group, const char* intf, VlanIdOrNone vlan,
                                   std::initializer_list<std::uint16_t> instances, std::uint32_t seed = 1) {
  Zek::Ptr<IntxInfo> record = portIs(status, group, intf)->txInfoIs(vlan);
  fillRecord(*record, seed);
  for (std::uint16_t key : instances) fillEntry(*record->mstiNIs(key), seed + key);
  return record;
}

/// A regular tree: `groups` groups ("g0", ...), each with `ports` ports ("Ethernet1", ...), each port with
/// `vlans` records (VLANs 1, 2, ...) of `instances` entries (keys 0, 1, ...), every attribute written,
/// one non-zero txUpdate counter per record, txNewInfo and txHelloWhenOn set.
inline void buildTree(TxStatus& status, unsigned groups, unsigned ports, unsigned vlans, unsigned instances,
                      std::uint32_t seed = 1) {
  status.heartbeatTimeoutIs(2.5);
  for (unsigned g = 0; g < groups; ++g) {
    Zek::Ptr<TxMstStatus> group = status.txMstStatusIs(numbered("g", g));
    for (unsigned p = 0; p < ports; ++p) {
      Zek::Ptr<TxMstPortStatus> port = group->txMstPortStatusIs(IntfId(numbered("Ethernet", p + 1)));
      port->txNewInfoIs(seed + p);
      port->txHelloWhenOnIs(TimerVal(2, static_cast<std::uint8_t>(p)));
      for (unsigned v = 0; v < vlans; ++v) {
        const VlanIdOrNone vlan(static_cast<std::uint16_t>(v + 1));
        Zek::Ptr<IntxInfo> record = port->txInfoIs(vlan);
        fillRecord(*record, seed + p + v);
        for (unsigned i = 0; i < instances; ++i) {
          fillEntry(*record->mstiNIs(static_cast<std::uint16_t>(i)), seed + p + v + i);
        }
        port->txUpdateIs(vlan, seed + v + 1);
      }
    }
  }
}

/// (group name, interface name) of a port, as the exceptions below name it.
using PortKey = std::pair<std::string, std::string>;

/// Where a destination legitimately differs from its source under the transmit status syncer, besides
/// the rule that a zero `txUpdate` counter is absent in the destination.
struct MirrorExceptions {
  /// Ports present when their group was first copied, whose destination port exists but has not been
  /// filled by a full copy since: the destination port must be completely empty.
  std::set<PortKey> uncopiedPorts;
  /// Per port, `txUpdate` VLANs that the destination keeps although the source has no counter for them:
  /// left by a full copy onto a destination port that already held them, when the source's zero
  /// counters made the two counter counts equal. The destination must hold exactly these besides the
  /// source's non-zero counters.
  std::map<PortKey, std::set<std::uint16_t>> staleTxUpdate;
};

/// Every difference between `dst` and the image of `src` under the syncer, one line each ("" when none).
/// Each collection is walked on the source side; the destination side is walked only when its size shows
/// members that the source walk did not meet.
inline std::string mirrorDiff(const TxStatus& src, const TxStatus& dst, const MirrorExceptions& ex = {}) {
  std::optional<std::ostringstream> text;  // built at the first difference
  const auto out = [&]() -> std::ostream& {
    if (!text) text.emplace();
    return *text;
  };
  if (!(src.heartbeatTimeout() == dst.heartbeatTimeout())) {
    out() << "heartbeatTimeout " << dst.heartbeatTimeout() << ", source " << src.heartbeatTimeout() << "\n";
  }
  const bool anyException = !ex.uncopiedPorts.empty() || !ex.staleTxUpdate.empty();
  std::size_t groupsMet = 0;
  for (const auto& [name, sg] : src.txMstStatus()) {
    Zek::Ptr<TxMstStatus const> dg = dst.txMstStatus(name);
    if (!dg) {
      out() << "missing group " << name << "\n";
      continue;
    }
    ++groupsMet;
    std::size_t portsMet = 0;
    for (const auto& [intf, sp] : sg->txMstPortStatus()) {
      // Streams "group|interface" in front of a difference.
      const auto at = [&out, &name = name, &intf = intf]() -> std::ostream& { return out() << name << "|" << intf; };
      Zek::Ptr<TxMstPortStatus const> dp = dg->txMstPortStatus(intf);
      if (!dp) {
        at() << ": missing port\n";
        continue;
      }
      ++portsMet;
      const PortKey key = anyException ? PortKey(name.str(), intf.name().str()) : PortKey();
      if (anyException && ex.uncopiedPorts.count(key)) {
        if (dp->txInfo().size() || dp->txUpdate().size() || dp->txNewInfo() != 0 ||
            !(dp->txHelloWhenOn() == TimerVal())) {
          at() << ": uncopied port is not empty\n";
        }
        continue;
      }
      if (dp->txNewInfo() != sp->txNewInfo()) {
        at() << ": txNewInfo " << dp->txNewInfo() << ", source " << sp->txNewInfo() << "\n";
      }
      if (!(dp->txHelloWhenOn() == sp->txHelloWhenOn())) {
        at() << ": txHelloWhenOn " << dp->txHelloWhenOn() << ", source " << sp->txHelloWhenOn() << "\n";
      }
      // Counters: the source's non-zero ones exactly, plus the allowed stale ones.
      std::size_t countersMet = 0;
      for (const auto& [vlan, value] : sp->txUpdate()) {
        const auto d = dp->txUpdate(vlan);
        if (d) ++countersMet;
        if (value == 0 && d) at() << ": txUpdate vlan=" << vlan << " is " << *d << ", source 0 (absent)\n";
        if (value != 0 && d != value) {
          at() << ": txUpdate vlan=" << vlan << " is " << (d ? std::to_string(*d) : "absent") << ", source " << value
               << "\n";
        }
      }
      const auto staleIt = anyException ? ex.staleTxUpdate.find(key) : ex.staleTxUpdate.end();
      if (staleIt != ex.staleTxUpdate.end()) {
        for (std::uint16_t vlan : staleIt->second) {
          if (!dp->txUpdate(vlan)) at() << ": stale txUpdate vlan=" << vlan << " is gone\n";
        }
      }
      if (dp->txUpdate().size() != countersMet) {
        for (const auto& [vlan, value] : dp->txUpdate()) {
          const bool stale = staleIt != ex.staleTxUpdate.end() && staleIt->second.count(vlan.value());
          if (!sp->txUpdate(vlan) && !stale) at() << ": extra txUpdate vlan=" << vlan << "\n";
        }
      }
      // Records.
      std::size_t recordsMet = 0;
      for (const auto& [vlan, sr] : sp->txInfo()) {
        Zek::Ptr<IntxInfo const> dr = dp->txInfo(vlan);
        if (!dr) {
          at() << ": missing record vlan=" << vlan << "\n";
          continue;
        }
        ++recordsMet;
        if (!sr->sameContent(*dr)) {
          at() << ": record vlan=" << vlan << " differs:\n  dest   " << *dr << "\n  source " << *sr << "\n";
          for (const auto& [k, se] : sr->mstiN()) {
            Zek::Ptr<IntxMstiInfo const> de = dr->mstiN(k);
            if (de && !se->sameValues(*de)) out() << "  entry " << k << ": dest " << *de << " source " << *se << "\n";
          }
        }
      }
      if (dp->txInfo().size() != recordsMet) {
        for (const auto& [vlan, dr] : dp->txInfo()) {
          if (!sp->txInfo(vlan)) at() << ": extra record vlan=" << vlan << "\n";
        }
      }
    }
    if (dg->txMstPortStatus().size() != portsMet) {
      for (const auto& [intf, dp] : dg->txMstPortStatus()) {
        if (!sg->txMstPortStatus(intf)) out() << name << ": extra port " << intf << "\n";
      }
    }
  }
  if (dst.txMstStatus().size() != groupsMet) {
    for (const auto& [name, dg] : dst.txMstStatus()) {
      if (!src.txMstStatus(name)) out() << "extra group " << name << "\n";
    }
  }
  return text ? text->str() : std::string();
}

}  // namespace StpTxRx::test
