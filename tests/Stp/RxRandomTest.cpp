// Seeded random walk over the whole receive side: a TxStatusToRxSyncer gives the destination its shape
// from a transmit status, an RxStatusToRxDynamicSyncer copies a source receive status into it. Random
// changes hit the transmit shape (groups and ports added, removed, keys re-used) and the source (the five
// status scalars, port values, received records, update counts including zero, groups and ports). After
// every step the destination is compared with a model of what it must hold:
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
#include <sstream>
#include <string>
#include <vector>

namespace StpTxRx {
namespace {

const char* const kGroups[] = {"A", "B", "C"};
const IntfId kIntfs[] = {IntfId("Ethernet1"), IntfId("Ethernet2"), IntfId("Ethernet3"), IntfId("Ethernet4")};
const VlanIdOrNone kVlans[] = {VlanIdOrNone(0), VlanIdOrNone(5), VlanIdOrNone(10)};
const double kDoubles[] = {0.0, 0.5, 1.5};
const PortCounters kCounters[] = {PortCounters{}, PortCounters{1, 0, 0, 0}, PortCounters{1, 2, 3, 4}};
const char* const kRegions[] = {"", "r1", "r2"};

/// The parts of a received record that the walk changes.
struct Record {
  unsigned rev = 0;
  std::string region;
  std::map<std::uint16_t, std::pair<unsigned, unsigned>> entries;  // key -> (flags, remainingHops)
  bool operator==(const Record&) const = default;
};

Record recordOf(const IntxInfo& info) {
  Record r{info.configRevisionLevel(), info.configNameString().str(), {}};
  for (const auto& [key, e] : info.mstiN()) r.entries[key.value()] = {e->flags().value, e->remainingHops()};
  return r;
}

struct PortModel {
  std::uint32_t bpduCount = 0;
  double rateLimitInterval = 0.0;
  std::uint32_t rateLimitMaxCount = 0;
  bool rateLimitEnabled = false;
  PortCounters counters;
  PortCounters localCounters;
  std::map<std::uint16_t, std::pair<std::uint32_t, Record>> vlans;  // vlan -> (updates passed on, record)
};

struct TopModel {
  std::uint32_t localHeartbeat = 0;
  std::uint32_t peerHeartbeat = 0;
  double updateCtrTime = 0.0;
  double localUpdateCtrTime = 0.0;
  double peerUpdateCtrTime = 0.0;
};

using PortKey = std::pair<std::string, std::string>;  // group, interface

class RandomWalk {
 public:
  RandomWalk(unsigned seed, bool equalWrites) : rng_(seed), equalWrites_(equalWrites) {
    tx_ = TxStatus::TxStatusIs();
    src_ = RxStatus::RxStatusIs();
    dyn_ = RxStatus::RxStatusIs();
    // Some state before the syncers exist, so that construction has something to copy.
    for (int i = 0; i < 6; ++i) shapeOp();
    for (int i = 0; i < 12; ++i) sourceOp();
    const bool valuesFirst = pick(4) == 0;
    if (valuesFirst) buildValues();
    shape_ = txStatusToRxSyncerFactory(tx_, dyn_);
    for (const auto& [g, group] : tx_->txMstStatus()) {
      for (const auto& [intf, port] : group->txMstPortStatus()) ports_[{g.str(), intf.name().str()}] = PortModel{};
    }
    if (!valuesFirst) buildValues();
  }

  void step() {
    const unsigned r = pick(1000);
    if (r < 80) {
      shapeOp();
    } else if (r < 998) {
      sourceOp();
    } else {
      values_ = nullptr;  // destruction leaves the destination as it is
      buildValues();
    }
  }

  /// The first difference between destination and model, or "".
  std::string difference() const {
    std::ostringstream os;
    std::set<std::string> txGroups, dynGroups;
    for (const auto& [g, group] : tx_->txMstStatus()) txGroups.insert(g.str());
    for (const auto& [g, group] : dyn_->rxMstStatus()) dynGroups.insert(g.str());
    if (txGroups != dynGroups) return "destination groups differ from the transmit groups";
    std::size_t portCount = 0;
    for (const auto& [g, group] : dyn_->rxMstStatus()) {
      for (const auto& [intf, port] : group->rxMstPortStatus()) {
        ++portCount;
        auto it = ports_.find({g.str(), intf.name().str()});
        if (it == ports_.end()) return "unexpected destination port " + g.str() + "|" + intf.name().str();
        if (!tx_->txMstStatus(g)->txMstPortStatus(intf)) return "destination port not in the transmit shape";
        const PortModel& m = it->second;
        os << g << "|" << intf << ": ";
        if (port->bpduCount() != m.bpduCount) return os.str() + "bpduCount";
        if (port->rateLimitInterval() != m.rateLimitInterval) return os.str() + "rateLimitInterval";
        if (port->rateLimitMaxCount() != m.rateLimitMaxCount) return os.str() + "rateLimitMaxCount";
        if (port->rateLimitEnabled() != m.rateLimitEnabled) return os.str() + "rateLimitEnabled";
        if (!(port->counters() == m.counters)) return os.str() + "counters";
        if (!(port->localCounters() == m.localCounters)) return os.str() + "localCounters";
        if (!(port->peerCounters() == PortCounters{})) return os.str() + "peerCounters written";
        if (port->rxUpdate().size() != m.vlans.size() || port->rxInfo().size() != m.vlans.size()) {
          return os.str() + "per-VLAN entries";
        }
        for (const auto& [vlan, expected] : m.vlans) {
          if (port->rxUpdate(vlan) != expected.first) return os.str() + "rxUpdate(" + std::to_string(vlan) + ")";
          Zek::Ptr<IntxInfo const> info = port->rxInfo(vlan);
          if (!info || !(recordOf(*info) == expected.second)) return os.str() + "rxInfo(" + std::to_string(vlan) + ")";
        }
        os.str("");
      }
    }
    if (portCount != ports_.size()) return "destination ports missing";
    if (dyn_->localHeartbeat() != top_.localHeartbeat || dyn_->peerHeartbeat() != top_.peerHeartbeat ||
        dyn_->updateCtrTime() != top_.updateCtrTime || dyn_->localUpdateCtrTime() != top_.localUpdateCtrTime ||
        dyn_->peerUpdateCtrTime() != top_.peerUpdateCtrTime || dyn_->updateCtr() != 0) {
      return "status scalars";
    }
    // One child per source group and port: added by notifications and scans, removed by notifications.
    if (values_->mstDynSyncerSmCount() != src_->rxMstStatus().size()) return "group children";
    for (const auto& [g, group] : src_->rxMstStatus()) {
      const RxMstStatusToRxDynamicSyncer* child = values_->mstDynSyncerSm(g);
      if (!child || child->source() != group || child->mstDynPortSmCount() != group->rxMstPortStatus().size()) {
        return "port children of " + g.str();
      }
    }
    if (shape_->zekTxMstStatusCount() != tx_->txMstStatus().size()) return "shape reactors";
    return "";
  }

  std::string lastOp() const { return lastOp_; }

  void release() {
    values_ = nullptr;
    shape_ = nullptr;
    tx_ = nullptr;
    src_ = nullptr;
    dyn_ = nullptr;
  }

 private:
  unsigned pick(unsigned n) { return std::uniform_int_distribution<unsigned>(0, n - 1)(rng_); }
  template <class T, std::size_t N>
  const T& any(const T (&pool)[N]) {
    return pool[pick(N)];
  }

  void buildValues() {
    values_ = rxStatusToRxDynamicSyncerFactory(src_, dyn_);
    top_ = TopModel{src_->localHeartbeat(), src_->peerHeartbeat(), src_->updateCtrTime(), src_->localUpdateCtrTime(),
                    src_->peerUpdateCtrTime()};
    // Each port child's first copy: the six scalars, where the destination port exists.
    for (const auto& [g, group] : src_->rxMstStatus()) {
      for (const auto& [intf, port] : group->rxMstPortStatus()) firstCopy(g.str(), intf, *port);
    }
  }

  void firstCopy(const std::string& g, const IntfId& intf, const RxMstPortStatus& s) {
    auto it = ports_.find({g, intf.name().str()});
    if (it == ports_.end()) return;
    PortModel& m = it->second;
    m.bpduCount = s.bpduCount();
    m.rateLimitInterval = s.rateLimitInterval();
    m.rateLimitMaxCount = s.rateLimitMaxCount();
    m.rateLimitEnabled = s.rateLimitEnabled();
    m.counters = s.counters();
    m.localCounters = s.localCounters();
  }

  /// The destination model of a source port, when the values syncer runs and the destination exists.
  PortModel* passedOnTo(const std::string& g, const IntfId& intf) {
    if (!values_) return nullptr;
    auto it = ports_.find({g, intf.name().str()});
    return it == ports_.end() ? nullptr : &it->second;
  }

  void shapeOp() {
    const Zek::Name g = any(kGroups);
    const IntfId& intf = any(kIntfs);
    TxMstStatus::Ptr group = tx_->txMstStatus(g);
    // Mostly growth, so that most source ports have a destination most of the time.
    const unsigned r = pick(20);
    switch (r < 6 ? 0 : r < 7 ? 1 : r < 16 ? 2 : 3) {
      case 0:
        lastOp_ = "tx group add " + g.str();
        tx_->txMstStatusIs(g);
        break;
      case 1:
        lastOp_ = "tx group del " + g.str();
        if (tx_->txMstStatusDel(g) && shape_) {
          for (auto it = ports_.begin(); it != ports_.end();) it = it->first.first == g.str() ? ports_.erase(it) : ++it;
        }
        break;
      case 2:
        lastOp_ = "tx port add " + g.str() + "|" + intf.name().str();
        if (group && !group->txMstPortStatus(intf)) {
          group->txMstPortStatusIs(intf);
          if (shape_) ports_[{g.str(), intf.name().str()}] = PortModel{};
        }
        break;
      default:
        lastOp_ = "tx port del " + g.str() + "|" + intf.name().str();
        if (group && group->txMstPortStatusDel(intf) && shape_) ports_.erase({g.str(), intf.name().str()});
        break;
    }
  }

  void sourceOp() {
    const Zek::Name g = any(kGroups);
    const IntfId& intf = any(kIntfs);
    RxMstStatus::Ptr group = src_->rxMstStatus(g);
    RxMstPortStatus::Ptr port = group ? group->rxMstPortStatus(intf) : nullptr;
    const unsigned r = pick(100);
    lastOp_ = "source op " + std::to_string(r) + " on " + g.str() + "|" + intf.name().str();
    if (r < 3) {
      src_->rxMstStatusIs(g);
    } else if (r < 4) {
      src_->rxMstStatusDel(g);
    } else if (r < 10) {
      if (group && !port) {
        RxMstPortStatus::Ptr added = group->rxMstPortStatusIs(intf);
        if (values_) firstCopy(g.str(), intf, *added);
      }
    } else if (r < 12) {
      if (group) group->rxMstPortStatusDel(intf);
    } else if (r < 20) {
      topScalarOp();
    } else if (port) {
      portOp(g.str(), intf, *port, r);
    }
  }

  /// Whether writing `v` over `current` notifies the syncer.
  template <class T>
  bool changes(const T& current, const T& v) const {
    return equalWrites_ || !(current == v);
  }

  void topScalarOp() {
    const std::uint32_t n = pick(3);
    const double d = any(kDoubles);
    switch (pick(6)) {
      case 0:
        if (changes(src_->localHeartbeat(), n) && values_) top_.localHeartbeat = n;
        src_->localHeartbeatIs(n);
        break;
      case 1:
        if (changes(src_->peerHeartbeat(), n) && values_) top_.peerHeartbeat = n;
        src_->peerHeartbeatIs(n);
        break;
      case 2:
        if (changes(src_->updateCtrTime(), d) && values_) top_.updateCtrTime = d;
        src_->updateCtrTimeIs(d);
        break;
      case 3:
        if (changes(src_->localUpdateCtrTime(), d) && values_) top_.localUpdateCtrTime = d;
        src_->localUpdateCtrTimeIs(d);
        break;
      case 4:
        if (changes(src_->peerUpdateCtrTime(), d) && values_) top_.peerUpdateCtrTime = d;
        src_->peerUpdateCtrTimeIs(d);
        break;
      default:
        src_->updateCtrIs(pick(3));
        break;
    }
  }

  void portOp(const std::string& g, const IntfId& intf, RxMstPortStatus& port, unsigned r) {
    PortModel* m = passedOnTo(g, intf);
    const VlanIdOrNone vlan = any(kVlans);
    if (r < 45) {
      const std::uint32_t n = pick(3);
      const double d = any(kDoubles);
      const PortCounters& c = any(kCounters);
      switch (pick(7)) {
        case 0:
          if (m && changes(port.bpduCount(), n)) m->bpduCount = n;
          port.bpduCountIs(n);
          break;
        case 1:
          if (m && changes(port.rateLimitInterval(), d)) m->rateLimitInterval = d;
          port.rateLimitIntervalIs(d);
          break;
        case 2:
          if (m && changes(port.rateLimitMaxCount(), n)) m->rateLimitMaxCount = n;
          port.rateLimitMaxCountIs(n);
          break;
        case 3:
          if (m && changes(port.rateLimitEnabled(), n == 1)) m->rateLimitEnabled = n == 1;
          port.rateLimitEnabledIs(n == 1);
          break;
        case 4:
          if (m && changes(port.counters(), c)) m->counters = c;
          port.countersIs(c);
          break;
        case 5:
          if (m && changes(port.localCounters(), c)) m->localCounters = c;
          port.localCountersIs(c);
          break;
        default:
          port.peerCountersIs(c);
          break;
      }
    } else if (r < 70) {
      // Received records: created, changed or deleted without touching the count (nothing passed on).
      switch (pick(6)) {
        case 0:
          port.rxInfoDel(vlan);
          break;
        case 1:
        case 5:
          port.rxInfoIs(vlan)->configRevisionLevelIs(static_cast<unsigned short>(pick(4)));
          break;
        case 2:
          port.rxInfoIs(vlan)->configNameStringIs(any(kRegions));
          break;
        case 3:
          port.rxInfoIs(vlan)->mstiNDel(static_cast<std::uint16_t>(pick(3)));
          break;
        default: {
          auto e = port.rxInfoIs(vlan)->mstiNIs(static_cast<std::uint16_t>(pick(3)));
          e->flagsIs(RstpBpduFlags{static_cast<std::uint8_t>(pick(4))});
          e->remainingHopsIs(static_cast<unsigned char>(pick(4)));
          break;
        }
      }
    } else {
      // Update counts: set (zero included), raised (by zero too) or deleted.
      const bool existed = port.rxUpdate().find(vlan) != nullptr;
      const std::uint32_t before = port.rxUpdate(vlan);
      bool notifies = false;
      switch (pick(6)) {
        case 0:
        case 1: {
          const std::uint32_t n = pick(3);
          notifies = !existed || changes(before, n);
          port.rxUpdateIs(vlan, n);
          break;
        }
        case 2:
        case 3:
        case 4: {
          const std::uint32_t n = pick(4) == 0 ? 0 : 1;
          notifies = !existed || n != 0 || equalWrites_;
          port.rxUpdateInc(vlan, n);
          break;
        }
        default:
          notifies = existed;
          port.rxUpdateDel(vlan);
          break;
      }
      if (m && notifies) {
        Zek::Ptr<IntxInfo const> info = port.rxInfo(vlan);
        if (port.rxUpdate(vlan) != 0 && info) {
          auto& entry = m->vlans[vlan.value()];
          entry.first += 1;
          entry.second = recordOf(*info);
        } else {
          m->vlans.erase(vlan.value());
        }
      }
    }
  }

  std::mt19937 rng_;
  bool equalWrites_;
  TxStatus::Ptr tx_;
  RxStatus::Ptr src_;
  RxStatus::Ptr dyn_;
  TxStatusToRxSyncer::Ptr shape_;
  RxStatusToRxDynamicSyncer::Ptr values_;
  std::map<PortKey, PortModel> ports_;  // exactly the destination ports the shape holds
  TopModel top_;
  std::string lastOp_;
};

TEST(RxRandomTest, DestinationHoldsWhatWasPassedOnWhereTheShapeHasAPlace) {
  std::vector<unsigned> seeds;
  if (const char* env = std::getenv("STPTXRX_RANDOM_SEED")) {
    seeds.push_back(static_cast<unsigned>(std::strtoul(env, nullptr, 10)));
  } else {
    for (unsigned s = 1; s <= 30; ++s) seeds.push_back(s * 7919u);
  }
  constexpr int kSteps = 5000;  // 30 seeds: 1.5 * 10^5 operations
  Zek::test::LiveCounts before;
  for (unsigned seed : seeds) {
    const bool equalWrites = seed % 2 == 1;
    Zek::notifyEqualWrites_ = equalWrites;
    {
      RandomWalk walk(seed, equalWrites);
      std::string diff = walk.difference();
      ASSERT_EQ(diff, "") << "seed " << seed << " after construction";
      for (int step = 0; step < kSteps; ++step) {
        walk.step();
        diff = walk.difference();
        if (!diff.empty()) {
          Zek::notifyEqualWrites_ = false;
          FAIL() << "seed " << seed << " step " << step << " (" << walk.lastOp() << "): " << diff;
        }
      }
      walk.release();
    }
    Zek::notifyEqualWrites_ = false;
    ASSERT_TRUE(before.unchanged()) << "seed " << seed;
  }
}

}  // namespace
}  // namespace StpTxRx
