// Seeded random operations on a source TxStatus, with the destination of a syncer (and of a second syncer
// attached, detached and re-attached along the way) compared with the source's image after every step.
//
// The comparison (test::mirrorDiff) states where a destination may differ from its source:
//   - a zero txUpdate counter is absent in the destination (always);
//   - a port that its group already held when the syncer first saw the group has a destination port that
//     stays empty until the next full copy (MirrorExceptions::uncopiedPorts);
//   - a full copy onto a destination port that already held counters keeps those the source lacks when the
//     source's zero counters make the two counter counts equal (MirrorExceptions::staleTxUpdate).
// The model below tracks exactly when each exception arises and ends.
//
// STPTXRX_RANDOM_SEED=<n> runs one seed, STPTXRX_RANDOM_OPS=<n> sets the number of operations per seed.
#include <gtest/gtest.h>
#include <stptxrx/Stp/StpTxStatusSyncer.h>
#include <stptxrx/runtime/Entity.h>

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <random>
#include <set>
#include <string>

#include "support/LiveCounts.h"
#include "support/RecordingReactor.h"
#include "support/TxTreeBuilder.h"

namespace StpTxRx {
namespace {

using test::PortKey;

constexpr const char* groupNames[] = {"g0", "g1", "g2"};
constexpr const char* intfNames[] = {"Ethernet1", "Ethernet2", "Ethernet3/1", "PortChannel7"};
constexpr std::uint16_t vlans[] = {0, 1, 2, 4094};
constexpr std::uint16_t instanceKeys[] = {0, 1, 5, 64};

/// One syncer and the destination it writes, with the exceptions its destination currently has.
struct Mirror {
  Zek::Ptr<TxStatus> dst = TxStatus::TxStatusIs();
  TxStatusToTxSyncer::Ptr syncer;
  test::MirrorExceptions ex;
};

class RandomRun {
 public:
  RandomRun(std::uint32_t seed, std::uint64_t operations) : seed_(seed), operations_(operations), rng_(seed) {}

  void run() {
    // A writer ahead of the syncers: when asked, it fills a new group as soon as it appears, so that the
    // syncers first see the group with ports in it.
    auto filler = Zek::test::RecordingReactor::RecordingReactorIs(src_);
    filler->actionIs([this](Zek::AttributeId id, const void* key) { fill(id, key); });
    main_.syncer = txStatusToTxSyncerFactory(src_, main_.dst);
    check("construction");
    for (step_ = 0; step_ < operations_ && !::testing::Test::HasFailure(); ++step_) {
      const std::string what = perform(pickOp());
      filler->clear();
      check(what);
    }
    if (operations_ >= 20000) {
      // Both exceptions must have come up, or the operation weights no longer reach them.
      EXPECT_TRUE(uncopiedSeen_) << "seed " << seed_ << ": no port was ever present at its group's first copy";
      EXPECT_TRUE(staleSeen_) << "seed " << seed_ << ": no full copy ever left a stale counter";
    }
    Zek::notifyEqualWrites_ = false;
  }

 private:
  std::uint32_t below(std::size_t n) {
    return std::uniform_int_distribution<std::uint32_t>(0, static_cast<std::uint32_t>(n - 1))(rng_);
  }
  bool chance(std::uint32_t percent) { return below(100) < percent; }
  template <class T, std::size_t N>
  const T& any(const T (&pool)[N]) {
    return pool[below(N)];
  }
  std::uint8_t small() { return static_cast<std::uint8_t>(below(3)); }

  /// The key of a random member of a collection view; nothing when it is empty.
  template <class View>
  std::optional<typename View::key_type> pick(const View& view) {
    std::uint32_t k = view.size() ? below(view.size()) : 0;
    for (const auto& [key, member] : view) {
      if (k-- == 0) return key;
    }
    return std::nullopt;
  }
  /// A random member at each level, each inside the one above; null from the first empty level down.
  struct Path {
    Zek::Ptr<TxMstStatus> g;
    Zek::Ptr<TxMstPortStatus> p;
    Zek::Ptr<IntxInfo> r;
    Zek::Ptr<IntxMstiInfo> e;
  };
  Path anyPath() {
    Path at;
    if (auto k = pick(src_->txMstStatus())) at.g = src_->txMstStatus(*k);
    if (auto k = at.g ? pick(at.g->txMstPortStatus()) : std::nullopt) at.p = at.g->txMstPortStatus(*k);
    if (auto k = at.p ? pick(at.p->txInfo()) : std::nullopt) at.r = at.p->txInfo(*k);
    if (auto k = at.r ? pick(at.r->mstiN()) : std::nullopt) at.e = at.r->mstiN(*k);
    return at;
  }

  void fill(Zek::AttributeId id, const void* key) {
    if (!fillNext_ || id != TxStatus::idTxMstStatus || !key) return;
    Zek::Ptr<TxMstStatus> g = src_->txMstStatus(*static_cast<const Zek::Name*>(key));
    if (!g) return;
    fillNext_ = false;
    for (std::uint32_t n = 1 + below(2); n > 0; --n) {
      Zek::Ptr<TxMstPortStatus> p = g->txMstPortStatusIs(IntfId(any(intfNames)));
      p->txNewInfoIs(below(4));
      p->txUpdateIs(any(vlans), below(3));
      Zek::Ptr<IntxInfo> r = p->txInfoIs(any(vlans));
      test::fillRecord(*r, below(5));
      test::fillEntry(*r->mstiNIs(any(instanceKeys)), below(5));
    }
  }

  /// Exceptions after a full copy of `m` (of one group only when `onlyGroup` is given) that is about to run
  /// on the current source and destination: no port stays uncopied; a destination port keeps the counters
  /// the source lacks exactly when their number equals the number of the source's zero counters.
  void fullCopyAhead(Mirror& m, const Zek::Name* onlyGroup = nullptr) {
    if (!onlyGroup) m.ex = {};
    for (const auto& [name, sg] : src_->txMstStatus()) {
      if (onlyGroup && !(name == *onlyGroup)) continue;
      Zek::Ptr<TxMstStatus const> dg = m.dst->txMstStatus(name);
      for (const auto& [intf, sp] : sg->txMstPortStatus()) {
        const PortKey key(name.str(), intf.name().str());
        m.ex.uncopiedPorts.erase(key);
        m.ex.staleTxUpdate.erase(key);
        Zek::Ptr<TxMstPortStatus const> dp = dg ? dg->txMstPortStatus(intf) : nullptr;
        if (!dp) continue;
        std::set<std::uint16_t> extra;
        for (const auto& [vlan, value] : dp->txUpdate()) {
          if (!sp->txUpdate(vlan)) extra.insert(vlan.value());
        }
        std::size_t zeros = 0;
        for (const auto& [vlan, value] : sp->txUpdate()) zeros += value == 0;
        if (!extra.empty() && extra.size() == zeros) {
          m.ex.staleTxUpdate[key] = extra;
          staleSeen_ = true;
        }
      }
    }
  }

  /// Drops the exceptions of ports that left the source.
  void forgetRemovedPorts() {
    const auto gone = [&](const PortKey& k) {
      Zek::Ptr<TxMstStatus const> g = src_->txMstStatus(Zek::Name(k.first));
      return !g || !g->txMstPortStatus(IntfId(Zek::String(k.second)));
    };
    for (Mirror* m : {&main_, &late_}) {
      std::erase_if(m->ex.uncopiedPorts, gone);
      std::erase_if(m->ex.staleTxUpdate, [&](const auto& e) { return gone(e.first); });
    }
  }

  /// A random operation number for perform(), by the weights (percent) of its cases.
  int pickOp() {
    static constexpr std::uint32_t weights[] = {3, 1, 10, 2, 8, 3, 8, 3, 10, 20, 18, 6, 2, 3, 3};
    std::uint32_t r = below(100);
    int op = 0;
    while (r >= weights[op]) r -= weights[op++];
    return op;
  }

  /// Operation `op`; one that needs a member where there is none adds one of that level instead.
  std::string perform(int op) {
    static constexpr int needs[] = {0, 0, 1, 2, 2, 2, 3, 3, 3, 4, 2, 2, 0, 0, 0};  // levels: group .. entry
    static constexpr int adds[] = {0, 0, 2, 4, 6};                                  // the op adding each level
    const Path at = anyPath();
    const int missing = !at.g ? 1 : !at.p ? 2 : !at.r ? 3 : !at.e ? 4 : 5;
    if (needs[op] >= missing) return perform(adds[missing]);
    const std::uint16_t vlan = any(vlans), key = any(instanceKeys);
    switch (op) {
      case 0: {  // add a group (re-using names), sometimes filled as it appears
        const char* name = any(groupNames);
        fillNext_ = !src_->txMstStatus(name) && chance(40);
        const bool filled = fillNext_;
        src_->txMstStatusIs(name);
        fillNext_ = false;
        for (Mirror* m : {&main_, &late_}) {
          if (!filled || !m->syncer) continue;
          for (const auto& [intf, p] : src_->txMstStatus(name)->txMstPortStatus()) {
            m->ex.uncopiedPorts.insert(PortKey(name, intf.name().str()));
            uncopiedSeen_ = true;
          }
        }
        return std::string("txMstStatusIs ") + name + (filled ? " (filled)" : "");
      }
      case 1: {  // remove a group (sometimes an absent one)
        const char* name = any(groupNames);
        src_->txMstStatusDel(name);
        forgetRemovedPorts();
        return std::string("txMstStatusDel ") + name;
      }
      case 2:
        at.g->txMstPortStatusIs(IntfId(any(intfNames)));
        return "txMstPortStatusIs";
      case 3:
        at.g->txMstPortStatusDel(at.p->intfId());
        forgetRemovedPorts();
        return "txMstPortStatusDel";
      case 4:
        if (chance(50)) test::fillRecord(*at.p->txInfoIs(vlan), below(4));
        return at.p->txInfoIs(vlan), "txInfoIs " + std::to_string(vlan);
      case 5:
        return at.p->txInfoDel(vlan), "txInfoDel " + std::to_string(vlan);
      case 6:
        if (chance(50)) test::fillEntry(*at.r->mstiNIs(key), below(4));
        return at.r->mstiNIs(key), "mstiNIs " + std::to_string(key);
      case 7:
        return at.r->mstiNDel(key), "mstiNDel " + std::to_string(key);
      case 8:  // one record-level attribute, equal values included
        return test::fillRecord(*at.r, small(), 1u << below(6)), "record attribute";
      case 9:  // one entry attribute, equal values included
        return test::fillEntry(*at.e, small(), 1u << below(13)), "entry attribute";
      case 10: {  // a counter, zeros and equal values included
        // An absent counter is not announced, so a stale one stays.
        if (chance(25)) return at.p->txUpdateDel(vlan), "txUpdateDel " + std::to_string(vlan);
        const std::uint32_t value = below(3);
        at.p->txUpdateIs(vlan, value);
        for (Mirror* m : {&main_, &late_}) {
          auto it = m->ex.staleTxUpdate.find(PortKey(at.g->name().str(), at.p->intfId().name().str()));
          if (it != m->ex.staleTxUpdate.end()) it->second.erase(vlan);
        }
        return "txUpdateIs " + std::to_string(vlan) + " " + std::to_string(value);
      }
      case 11:
        if (chance(50)) return at.p->txNewInfoIs(below(3)), "txNewInfoIs";
        return at.p->txHelloWhenOnIs(TimerVal(0, small())), "txHelloWhenOnIs";
      case 12:
        return src_->heartbeatTimeoutIs(0.5 * below(3)), "heartbeatTimeoutIs";
      case 13: {  // a full copy re-run, of the whole tree or of one group
        Mirror& m = late_.syncer && chance(50) ? late_ : main_;
        if (chance(50) || !at.g) {
          fullCopyAhead(m);
          return m.syncer->handleInitialized(), "handleInitialized";
        }
        fullCopyAhead(m, &at.g->name());
        m.syncer->zekTxMstStatusSm(at.g->name())->handleInitialized();
        return "ZekTxMstStatusSm::handleInitialized " + at.g->name().str();
      }
      default:
        return lateMirror();
    }
  }

  /// Attaches, detaches or re-attaches the second syncer; sometimes flips the equal-writes switch.
  std::string lateMirror() {
    if (chance(30)) {
      Zek::notifyEqualWrites_ = !Zek::notifyEqualWrites_;
      return Zek::notifyEqualWrites_ ? "notifyEqualWrites on" : "notifyEqualWrites off";
    }
    if (late_.syncer) {
      if (!chance(10)) return "nothing";
      late_.syncer = nullptr;
      // Destroying the syncer leaves its destination exactly as it was (the source has not moved yet).
      EXPECT_EQ(test::mirrorDiff(*src_, *late_.dst, late_.ex), "")
          << "destination changed by the syncer's destruction (seed " << seed_ << ", step " << step_ << ")";
      return "late syncer destroyed";
    }
    if (!chance(20)) return "nothing";
    const bool fresh = chance(25);
    if (fresh) late_.dst = TxStatus::TxStatusIs();
    fullCopyAhead(late_);
    late_.syncer = txStatusToTxSyncerFactory(src_, late_.dst);
    return fresh ? "late syncer attached to an empty destination" : "late syncer re-attached to its old destination";
  }

  void check(const std::string& what) {
    for (const Mirror* m : {&main_, &late_}) {
      const std::string diff = m->syncer ? test::mirrorDiff(*src_, *m->dst, m->ex) : "";
      if (!diff.empty()) {
        ADD_FAILURE() << "seed " << seed_ << ", step " << step_ << " (" << what << "), "
                      << (m == &main_ ? "main" : "late") << " syncer:\n"
                      << diff;
        return;
      }
    }
  }

  std::uint32_t seed_;
  std::uint64_t operations_;
  std::uint64_t step_ = 0;
  std::mt19937 rng_;
  Zek::Ptr<TxStatus> src_ = TxStatus::TxStatusIs();
  Mirror main_;
  Mirror late_;
  bool fillNext_ = false;
  bool uncopiedSeen_ = false;
  bool staleSeen_ = false;
};

std::uint64_t envNumber(const char* name, std::uint64_t fallback) {
  const char* v = std::getenv(name);
  return v && *v ? std::strtoull(v, nullptr, 10) : fallback;
}

class TxStatusRandomTest : public ::testing::TestWithParam<std::uint32_t> {};

TEST_P(TxStatusRandomTest, DestinationsFollowTheSourceThroughRandomOperations) {
  const std::uint32_t seed = static_cast<std::uint32_t>(envNumber("STPTXRX_RANDOM_SEED", GetParam()));
  if (std::getenv("STPTXRX_RANDOM_SEED") && GetParam() != 1) GTEST_SKIP() << "one seed given";
  SCOPED_TRACE("seed " + std::to_string(seed));
  Zek::test::LiveCounts before;
  RandomRun(seed, envNumber("STPTXRX_RANDOM_OPS", 25000)).run();
  EXPECT_TRUE(before.unchanged()) << "seed " << seed << ": everything released";
}

INSTANTIATE_TEST_SUITE_P(Seeds, TxStatusRandomTest, ::testing::Values(1u, 2u, 3u, 4u));

}  // namespace
}  // namespace StpTxRx
