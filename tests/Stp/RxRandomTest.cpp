// Seeded random walk over the whole receive side: a TxStatusToRxSyncer gives the destination its shape
// from a transmit status, an RxStatusToRxDynamicSyncer copies a source receive status into it. Random
// changes hit the transmit shape (groups and ports added, removed, keys re-used) and the source (status
// scalars, port values, received records, update counts including zero, groups and ports). After every
// step the destination must equal a model:
//   - exactly the transmit shape;
//   - per port, the last value of each attribute passed on while that destination port existed (a port
//     created later starts empty and is filled by the next notification of each attribute);
//   - per VLAN, the number of updates passed on and the record as it was at the last one.
// The seed (and the step) is printed on failure; STPTXRX_RANDOM_SEED=<n> reruns one seed.
#include <stptxrx/Stp/StpRxStatusSyncer.h>
#include <stptxrx/Stp/TxStatusToRxSyncer.h>

#include "support/LiveCounts.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <random>
#include <set>
#include <string>

namespace StpTxRx {
namespace {

const char* const kGroups[] = {"A", "B", "C"};
const IntfId kIntfs[] = {IntfId("Ethernet1"), IntfId("Ethernet2"), IntfId("Ethernet3"), IntfId("Ethernet4")};
const VlanIdOrNone kVlans[] = {VlanIdOrNone(0), VlanIdOrNone(5), VlanIdOrNone(10)};
const double kDoubles[] = {0.0, 0.5, 1.5};
const PortCounters kCounters[] = {PortCounters{}, PortCounters{1, 0, 0, 0}, PortCounters{1, 2, 3, 4}};

/// The parts of a received record the walk changes; `present` tells a count without a record apart.
struct Record {
  bool present = false;
  unsigned rev = 0;
  std::string region;
  std::map<std::uint16_t, std::pair<unsigned, unsigned>> entries;  // key -> (flags, remainingHops)
  bool operator==(const Record&) const = default;
};

Record recordOf(const IntxInfo& info) {
  Record r{true, info.configRevisionLevel(), info.configNameString().str(), {}};
  for (const auto& [key, e] : info.mstiN()) r.entries[key.value()] = {e->flags().value, e->remainingHops()};
  return r;
}

struct PortModel {
  std::uint32_t bpduCount = 0, rateLimitMaxCount = 0;
  double rateLimitInterval = 0.0;
  bool rateLimitEnabled = false;
  PortCounters counters, localCounters, peerCounters;  // peer counters are never passed on
  std::map<std::uint16_t, std::pair<std::uint32_t, Record>> vlans;  // vlan -> (updates passed on, record)
  bool operator==(const PortModel&) const = default;
};

PortModel snapshot(const RxMstPortStatus& p) {
  PortModel m{p.bpduCount(), p.rateLimitMaxCount(), p.rateLimitInterval(), p.rateLimitEnabled(),
              p.counters(), p.localCounters(), p.peerCounters(), {}};
  for (const auto& [vlan, n] : p.rxUpdate()) m.vlans[vlan.value()].first = n;
  for (const auto& [vlan, info] : p.rxInfo()) m.vlans[vlan.value()].second = recordOf(*info);
  return m;
}

struct TopModel {
  std::uint32_t localHeartbeat = 0, peerHeartbeat = 0;
  std::uint64_t updateCtr = 0;  // never copied
  double updateCtrTime = 0.0, localUpdateCtrTime = 0.0, peerUpdateCtrTime = 0.0;
  bool operator==(const TopModel&) const = default;
};

TopModel snapshot(const RxStatus& s, bool withCtr) {
  return {s.localHeartbeat(), s.peerHeartbeat(), withCtr ? s.updateCtr() : 0, s.updateCtrTime(),
          s.localUpdateCtrTime(), s.peerUpdateCtrTime()};
}

using PortKey = std::pair<std::string, std::string>;  // group, interface

class RandomWalk {
 public:
  explicit RandomWalk(unsigned seed) : rng_(seed) {
    // Some state before the syncers exist, so that construction has something to copy.
    for (int i = 0; i < 6; ++i) shapeOp();
    for (int i = 0; i < 12; ++i) sourceOp();
    const bool valuesFirst = pick(4) == 0;
    if (valuesFirst) buildValues();
    shape_ = txStatusToRxSyncerFactory(tx_, dyn_);
    reshape();
    if (!valuesFirst) buildValues();
  }

  void step() {
    const unsigned r = pick(1000);
    if (r < 80) return shapeOp();
    if (r < 998) return sourceOp();
    values_ = nullptr;  // destruction leaves the destination as it is
    buildValues();
  }

  /// The first difference between destination and model, or "".
  std::string difference() const {
    std::set<PortKey> dynShape;
    std::map<PortKey, PortModel> seen;
    for (const auto& [g, group] : dyn_->rxMstStatus()) {
      dynShape.insert({g.str(), ""});
      for (const auto& [intf, p] : group->rxMstPortStatus()) {
        dynShape.insert({g.str(), intf.name().str()});
        seen[{g.str(), intf.name().str()}] = snapshot(*p);
      }
    }
    if (txShape() != dynShape || shape_->zekTxMstStatusCount() != tx_->txMstStatus().size()) return "shape";
    if (seen != ports_) return "port values";
    // The values syncer always runs, so the status scalars (not the update counter) are the source's.
    if (!(snapshot(*dyn_, true) == snapshot(*src_, false))) return "status scalars";
    // One child per source group and port: added by notifications and scans, removed by notifications.
    if (values_->mstDynSyncerSmCount() != src_->rxMstStatus().size()) return "group children";
    for (const auto& [g, group] : src_->rxMstStatus()) {
      const RxMstStatusToRxDynamicSyncer* child = values_->mstDynSyncerSm(g);
      if (!child || child->source() != group || child->mstDynPortSmCount() != group->rxMstPortStatus().size()) {
        return "port children of " + g.str();
      }
    }
    return "";
  }

 private:
  unsigned pick(unsigned n) { return std::uniform_int_distribution<unsigned>(0, n - 1)(rng_); }
  template <class T, std::size_t N>
  const T& any(const T (&pool)[N]) {
    return pool[pick(N)];
  }
  /// Records `v` as passed on when writing it over `current` notifies the syncer.
  template <class T>
  void passOn(T& field, const T& current, const T& v) const {
    if (Zek::notifyEqualWrites_ || !(current == v)) field = v;
  }

  void buildValues() {
    values_ = rxStatusToRxDynamicSyncerFactory(src_, dyn_);
    for (const auto& [g, group] : src_->rxMstStatus()) {
      for (const auto& [intf, port] : group->rxMstPortStatus()) firstCopy(g.str(), intf, *port);
    }
  }

  /// A port child's first copy: the six scalars, where the destination port exists; no VLAN data.
  void firstCopy(const std::string& g, const IntfId& intf, const RxMstPortStatus& s) {
    if (PortModel* m = passedOnTo(g, intf)) {
      *m = PortModel{s.bpduCount(), s.rateLimitMaxCount(), s.rateLimitInterval(), s.rateLimitEnabled(),
                     s.counters(), s.localCounters(), {}, std::move(m->vlans)};
    }
  }

  /// The destination model of a source port, when the values syncer runs and the destination exists.
  PortModel* passedOnTo(const std::string& g, const IntfId& intf) {
    auto it = ports_.find({g, intf.name().str()});
    return values_ && it != ports_.end() ? &it->second : nullptr;
  }

  /// The shape syncer's part of the model: the destination ports are exactly the transmit ports, and a
  /// port that appears starts empty.
  void reshape() {
    std::map<PortKey, PortModel> next;
    for (const PortKey& key : txShape()) {
      if (!key.second.empty()) next[key] = std::move(ports_[key]);
    }
    ports_ = std::move(next);
  }

  /// The transmit groups, as (name, ""), and ports.
  std::set<PortKey> txShape() const {
    std::set<PortKey> shape;
    for (const auto& [g, group] : tx_->txMstStatus()) {
      shape.insert({g.str(), ""});
      for (const auto& [intf, p] : group->txMstPortStatus()) shape.insert({g.str(), intf.name().str()});
    }
    return shape;
  }

  void shapeOp() {
    const Zek::Name g = any(kGroups);
    TxMstStatus::Ptr group = tx_->txMstStatus(g);
    const unsigned r = pick(20);  // mostly growth, so that most source ports have a destination
    if (r < 6) tx_->txMstStatusIs(g);
    else if (r < 7) tx_->txMstStatusDel(g);
    else if (group && r < 16) group->txMstPortStatusIs(any(kIntfs));
    else if (group) group->txMstPortStatusDel(any(kIntfs));
    if (shape_) reshape();
  }

  void sourceOp() {
    const Zek::Name g = any(kGroups);
    const IntfId& intf = any(kIntfs);
    RxMstStatus::Ptr group = src_->rxMstStatus(g);
    RxMstPortStatus::Ptr port = group ? group->rxMstPortStatus(intf) : nullptr;
    const unsigned r = pick(100);
    if (r < 3) {
      src_->rxMstStatusIs(g);
    } else if (r < 4) {
      src_->rxMstStatusDel(g);
    } else if (r < 12) {
      if (group && r < 10 && !port) firstCopy(g.str(), intf, *group->rxMstPortStatusIs(intf));
      if (group && r >= 10) group->rxMstPortStatusDel(intf);
    } else if (r < 20) {
      const std::uint32_t n = pick(3);
      const double d = any(kDoubles);
      switch (pick(6)) {
        case 0: src_->localHeartbeatIs(n); break;
        case 1: src_->peerHeartbeatIs(n); break;
        case 2: src_->updateCtrTimeIs(d); break;
        case 3: src_->localUpdateCtrTimeIs(d); break;
        case 4: src_->peerUpdateCtrTimeIs(d); break;
        default: src_->updateCtrIs(n);
      }
    } else if (port) {
      portOp(passedOnTo(g.str(), intf), *port, r);
    }
  }

  void portOp(PortModel* m, RxMstPortStatus& port, unsigned r) {
    PortModel ignored;
    PortModel& pm = m ? *m : ignored;
    const VlanIdOrNone vlan = any(kVlans);
    const std::uint32_t n = pick(3);
    if (r < 45) {
      const double d = any(kDoubles);
      const PortCounters& c = any(kCounters);
      switch (pick(7)) {
        case 0: passOn(pm.bpduCount, port.bpduCount(), n); port.bpduCountIs(n); break;
        case 1: passOn(pm.rateLimitInterval, port.rateLimitInterval(), d); port.rateLimitIntervalIs(d); break;
        case 2: passOn(pm.rateLimitMaxCount, port.rateLimitMaxCount(), n); port.rateLimitMaxCountIs(n); break;
        case 3: passOn(pm.rateLimitEnabled, port.rateLimitEnabled(), n == 1); port.rateLimitEnabledIs(n == 1); break;
        case 4: passOn(pm.counters, port.counters(), c); port.countersIs(c); break;
        case 5: passOn(pm.localCounters, port.localCounters(), c); port.localCountersIs(c); break;
        default: port.peerCountersIs(c);
      }
    } else if (r < 70) {
      // Received records: created, changed or deleted without touching the count (nothing passed on).
      const std::uint16_t key = static_cast<std::uint16_t>(pick(3));
      switch (pick(6)) {
        case 0: port.rxInfoDel(vlan); break;
        case 1: port.rxInfoIs(vlan)->configRevisionLevelIs(static_cast<unsigned short>(pick(4))); break;
        case 2: port.rxInfoIs(vlan)->configNameStringIs(pick(2) ? "r1" : ""); break;
        case 3: port.rxInfoIs(vlan)->mstiNDel(key); break;
        case 4: port.rxInfoIs(vlan)->mstiNIs(key)->flagsIs(RstpBpduFlags{std::uint8_t(pick(4))}); break;
        default: port.rxInfoIs(vlan)->mstiNIs(key)->remainingHopsIs(static_cast<unsigned char>(pick(4)));
      }
    } else {
      // Update counts: set (zero included), raised (by zero too) or deleted.
      const bool existed = port.rxUpdate().find(vlan) != nullptr;
      const std::uint32_t before = port.rxUpdate(vlan);
      const unsigned op = pick(6);
      if (op < 2) port.rxUpdateIs(vlan, n);
      else if (op < 5) port.rxUpdateInc(vlan, n % 2);
      else port.rxUpdateDel(vlan);
      const bool notifies = op == 5 ? existed : !existed || Zek::notifyEqualWrites_ || port.rxUpdate(vlan) != before;
      // One more update passed on per notification; a count of 0 or a missing record is absent.
      Zek::Ptr<IntxInfo const> info = port.rxInfo(vlan);
      if (notifies && port.rxUpdate(vlan) != 0 && info) {
        pm.vlans[vlan.value()] = {pm.vlans[vlan.value()].first + 1, recordOf(*info)};
      } else if (notifies) {
        pm.vlans.erase(vlan.value());
      }
    }
  }

  std::mt19937 rng_;
  TxStatus::Ptr tx_ = TxStatus::TxStatusIs();
  RxStatus::Ptr src_ = RxStatus::RxStatusIs();
  RxStatus::Ptr dyn_ = RxStatus::RxStatusIs();
  TxStatusToRxSyncer::Ptr shape_;
  RxStatusToRxDynamicSyncer::Ptr values_;
  std::map<PortKey, PortModel> ports_;  // exactly the destination ports the shape holds
};

TEST(RxRandomTest, DestinationHoldsWhatWasPassedOnWhereTheShapeHasAPlace) {
  const char* env = std::getenv("STPTXRX_RANDOM_SEED");
  constexpr int kSteps = 5000;  // 30 seeds: 1.5 * 10^5 operations
  Zek::test::LiveCounts before;
  for (unsigned i = 1; i <= (env ? 1u : 30u); ++i) {
    const unsigned seed = env ? static_cast<unsigned>(std::strtoul(env, nullptr, 10)) : i * 7919u;
    Zek::notifyEqualWrites_ = seed % 2 == 1;
    {
      RandomWalk walk(seed);
      std::string diff = walk.difference();
      for (int step = 0; diff.empty() && step < kSteps; ++step) {
        walk.step();
        diff = walk.difference();
        if (!diff.empty()) diff = "step " + std::to_string(step) + ": " + diff;
      }
      Zek::notifyEqualWrites_ = false;
      ASSERT_EQ(diff, "") << "seed " << seed;
    }
    ASSERT_TRUE(before.unchanged()) << "seed " << seed;
  }
}

}  // namespace
}  // namespace StpTxRx
