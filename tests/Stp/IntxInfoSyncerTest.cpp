// IntxInfoSyncer: the writes and traces of the full copy and of each change, entries added and removed,
// re-pointing, source release, zombies, notification switching, teardown, the hot path, and a seeded
// randomized run (stale destinations, equal writes, a second syncer) against a deep comparison.
#include <stptxrx/Stp/IntxInfoSyncer.h>
#include <stptxrx/runtime/BinaryTrace.h>
#include <stptxrx/runtime/Exception.h>

#include "support/AllocCounter.h"
#include "support/LiveCounts.h"
#include "support/RecordingReactor.h"
#include "support/TraceCapture.h"
#include "support/TxTreeBuilder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace StpTxRx {
namespace {

using Zek::test::RecordingReactor;
using Ids = std::vector<Zek::AttributeId>;
using Texts = std::vector<std::string>;

// The six copied record-level attributes, in copy order (also the order test::fillRecord writes them in).
const Ids recordIds = {IntxInfo::idNeighborAddr,        IntxInfo::idStpVersion,       IntxInfo::idIntxInfoType,
                       IntxInfo::idConfigRevisionLevel, IntxInfo::idConfigNameString, IntxInfo::idConfigDigest};

/// The thirteen entry attributes in declaration order (the copy order, and test::fillEntry's), `times` over.
Ids entryIds(int times) {
  Ids ids;
  for (int i = 0; i < times * IntxMstiInfo::fieldCount; ++i) {
    ids.push_back(static_cast<Zek::AttributeId>(IntxMstiInfo::idFlags + i % IntxMstiInfo::fieldCount));
  }
  return ids;
}

/// A record with an entry per key, every value derived from `seed`.
IntxInfo::Ptr recordOf(std::uint32_t seed, std::initializer_list<std::uint16_t> keys, std::uint16_t vlan = 0) {
  IntxInfo::Ptr r = IntxInfo::IntxInfoIs(VlanIdOrNone(vlan));
  test::fillRecord(*r, seed);
  for (std::uint16_t k : keys) test::fillEntry(*r->mstiNIs(k), seed + k);
  return r;
}

template <class T>
Zek::Ptr<RecordingReactor> rec(const Zek::Ptr<T>& watched) {
  return RecordingReactor::RecordingReactorIs(watched, RecordingReactor::keyAs<BridgeSystemId>());
}

::testing::AssertionResult sameContent(const IntxInfo::Ptr& src, const IntxInfo::Ptr& dst) {
  if (src->sameContent(*dst)) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "\n  source      " << *src << "\n  destination " << *dst;
}

class IntxInfoSyncerTest : public ::testing::Test {
 protected:
  ~IntxInfoSyncerTest() override { Zek::notifyEqualWrites_ = savedEqualWrites_; }

  static Zek::Ptr<IntxInfoSyncer> syncerOn(const IntxInfo::Ptr& src, const IntxInfo::Ptr& dst) {
    return intxInfoSyncerFactory(src, dst, VlanIdOrNone(0), "G|Et1");
  }
  /// A source with an entry per key, an empty destination and the syncer between them.
  void build(std::initializer_list<std::uint16_t> keys) {
    src_ = recordOf(1, keys);
    dst_ = IntxInfo::IntxInfoIs(VlanIdOrNone(0));
    syncer_ = syncerOn(src_, dst_);
  }

  const bool savedEqualWrites_ = Zek::notifyEqualWrites_;  // restored: tests flip this process-wide switch
  Zek::test::LiveCounts before_;
  IntxInfo::Ptr src_;
  IntxInfo::Ptr dst_;
  Zek::Ptr<IntxInfoSyncer> syncer_;
};

// ---- writes and traces

TEST_F(IntxInfoSyncerTest, FullCopyWritesRecordOnceAndEachEntryTwiceWithExactTraces) {
  Zek::notifyEqualWrites_ = true;
  IntxInfo::Ptr src = recordOf(1, {0, 3}, 7);  // the traces name the source's VLAN, not the syncer's key
  IntxInfo::Ptr dst = recordOf(50, {0, 3});
  auto onDst = rec(dst), onDst0 = rec(dst->mstiN(0)), onDst3 = rec(dst->mstiN(3));
  Zek::test::TraceCapture cap({"StpTxStatusSyncer"});  // every level

  auto syncer = syncerOn(src, dst);

  EXPECT_TRUE(sameContent(src, dst));
  // Record level once; the entries exist, so no mstiN write. Each entry is written by its per-instance
  // syncer's own full copy, then by the owner's; equal counts skip the pass over destination keys.
  EXPECT_EQ(onDst->ids(), recordIds);
  EXPECT_EQ(onDst0->ids(), entryIds(2));
  EXPECT_EQ(onDst3->ids(), entryIds(2));
  EXPECT_EQ(cap.texts(), (Texts{"IntxInfoSyncer::ZekMstiNSm[0]::handleInitialized() ",
                                "IntxInfoSyncer::ZekMstiNSm[0]::copyAllData() ",
                                "IntxInfoSyncer::ZekMstiNSm[3]::handleInitialized() ",
                                "IntxInfoSyncer::ZekMstiNSm[3]::copyAllData() ",
                                "IntxInfoSyncer[G|Et1|7]::handleInitialized() ",
                                "IntxInfoSyncer[G|Et1|7]::handleMstiN() setting mstiId=0",
                                "IntxInfoSyncer::ZekMstiNSm[0]::copyAllData() ",
                                "IntxInfoSyncer[G|Et1|7]::handleMstiN() setting mstiId=3",
                                "IntxInfoSyncer::ZekMstiNSm[3]::copyAllData() "}));
  for (const auto& line : cap.lines()) {
    EXPECT_EQ(line.handle + "/" + std::to_string(line.level) + " " + line.file,
              "StpTxStatusSyncer/8 Stp/StpTxStatusSyncer");
  }
  EXPECT_TRUE(syncer->initialized() && syncer->zekMstiN(0)->initialized());
}

TEST_F(IntxInfoSyncerTest, EachChangeWritesThatAttributeOnceEvenWhenEqualAndTracesNothing) {
  build({0, 7});
  Zek::notifyEqualWrites_ = true;
  auto onDst = rec(dst_), onDst0 = rec(dst_->mstiN(0)), onDst7 = rec(dst_->mstiN(7));
  Zek::test::TraceCapture cap({"StpTxStatusSyncer/8"});
  // Every attribute written one by one, first with new values, then with the same ones again.
  for (int twice = 0; twice < 2; ++twice) {
    test::fillRecord(*src_, 9);
    test::fillEntry(*src_->mstiN(7), 9);
  }
  EXPECT_TRUE(sameContent(src_, dst_));
  Ids both = recordIds;
  both.insert(both.end(), recordIds.begin(), recordIds.end());
  EXPECT_EQ(onDst->ids(), both);
  EXPECT_EQ(onDst7->ids(), entryIds(2));
  EXPECT_EQ(onDst0->count(), 0u);
  EXPECT_TRUE(cap.texts().empty());
}

TEST_F(IntxInfoSyncerTest, AddedEntryIsCreatedBeforeItsSyncerAndRemovedOneDeletedBeforeItsSyncerGoes) {
  build({0});
  auto onDst = rec(dst_);
  std::vector<bool> syncerThere;  // at each destination mstiN notification
  onDst->actionIs([&](Zek::AttributeId, const void*) { syncerThere.push_back(syncer_->zekMstiN(3)); });
  Zek::test::TraceCapture cap({"StpTxStatusSyncer"});
  src_->mstiNIs(3);
  test::fillEntry(*src_->mstiN(3), 77);
  EXPECT_TRUE(sameContent(src_, dst_));
  Zek::test::LiveCounts withTwo;
  IntxMstiInfo::Ptr removed = src_->mstiNDel(3);
  removed->flagsIs(RstpBpduFlags{0x7f});  // reaches nothing now
  EXPECT_TRUE(sameContent(src_, dst_));
  EXPECT_EQ(syncerThere, (std::vector<bool>{false, true}));
  EXPECT_EQ(onDst->keys(), (Texts{"3", "3"}));
  EXPECT_EQ(Zek::test::LiveCounts::now("StpTxRx::IntxInfoSyncer::ZekMstiNSm"),
            withTwo.at("StpTxRx::IntxInfoSyncer::ZekMstiNSm") - 1);
  // copyAllData traces only when it finds the destination entry.
  EXPECT_EQ(cap.texts(), (Texts{"IntxInfoSyncer[G|Et1|0]::handleMstiN() setting mstiId=3",
                                "IntxInfoSyncer::ZekMstiNSm[3]::handleInitialized() ",
                                "IntxInfoSyncer::ZekMstiNSm[3]::copyAllData() ",
                                "IntxInfoSyncer[G|Et1|0]::handleMstiN() deleting mstiId=3"}));
  EXPECT_EQ(cap.texts(8), cap.texts());
}

TEST_F(IntxInfoSyncerTest, HandlersRecordBinaryTraceOnlyWhenEnabledAndAllocateNothingWithoutText) {
  const bool wasOn = Zek::BinaryTrace::enabled();
  Zek::BinaryTrace::enabledIs(true);
  auto newest = [] {  // the outermost handler finishes last, so its record is the newest
    Zek::BinaryTrace::Record r{};
    EXPECT_TRUE(Zek::BinaryTrace::recent(0, r));
    const std::string& text = Zek::BinaryTrace::messageText(r.message);
    return text.substr(0, text.rfind(':'));
  };
  build({0});
  EXPECT_EQ(newest(), "StpTxRx::IntxInfoSyncer::handleInitialized()");
  src_->mstiN(0)->fwdDelayIs(TimerVal(0, 9));
  EXPECT_EQ(newest(), "StpTxRx::IntxInfoSyncer::ZekMstiNSm::zek_handleMstiN_fwdDelay()");
  src_->configNameStringIs("other");
  EXPECT_EQ(newest(), "StpTxRx::IntxInfoSyncer::zek_handleIntxInfo_configNameString()");
  syncer_->handleMstiN(2);
  EXPECT_EQ(newest(), "StpTxRx::IntxInfoSyncer::handleMstiN()");
  for (const bool binaryTrace : {true, false}) {
    SCOPED_TRACE(binaryTrace ? "binary trace on" : "binary trace off");
    Zek::BinaryTrace::enabledIs(binaryTrace);
    // A call site registers (and allocates its text) the first time it runs in the process.
    src_->mstiN(0)->remainingHopsIs(0);
    src_->stpVersionIs(StpBpduVersion{0});
    const std::uint64_t records = Zek::BinaryTrace::recordCount();
    Zek::test::AllocScope scope;
    for (std::uint8_t v = 1; v <= 100; ++v) {
      src_->mstiN(0)->remainingHopsIs(v);
      src_->stpVersionIs(StpBpduVersion{v});
    }
    EXPECT_EQ(scope.count(), 0u);
    EXPECT_EQ(Zek::BinaryTrace::recordCount() > records, binaryTrace);
    EXPECT_TRUE(sameContent(src_, dst_));
  }
  Zek::BinaryTrace::enabledIs(wasOn);
}

// ---- re-pointing, source release, zombies, notification switching, teardown

TEST_F(IntxInfoSyncerTest, RePointingCopiesWithoutCreatingOrDeletingDestinationEntries) {
  build({0, 1, 2});
  IntxInfo::Ptr second = recordOf(40, {1, 2, 6});
  Zek::notifyEqualWrites_ = true;
  auto onDst = rec(dst_), onDst1 = rec(dst_->mstiN(1));
  IntxInfoSyncer::ZekMstiNSm* sm1 = syncer_->zekMstiN(1);
  Zek::test::TraceCapture cap({"StpTxStatusSyncer/8"});

  syncer_->zekSource()->notifierIs(second);
  syncer_->zekSource()->notifierIs(second);  // already watched: nothing

  EXPECT_EQ(onDst->ids(), recordIds);
  EXPECT_EQ(syncer_->zekMstiN(1), sm1);  // re-pointed, not rebuilt: thirteen writes in order
  EXPECT_EQ(onDst1->ids(), entryIds(1));
  EXPECT_TRUE(dst_->mstiN(1)->sameValues(*second->mstiN(1)));
  // 0 loses its syncer but stays in the destination; 6 gets a syncer but no destination entry.
  EXPECT_EQ(syncer_->zekMstiN(0), nullptr);
  EXPECT_TRUE(dst_->mstiN(0));
  ASSERT_NE(syncer_->zekMstiN(6), nullptr);
  EXPECT_FALSE(syncer_->zekMstiN(6)->destMstiN());
  EXPECT_EQ(cap.texts(), Texts{"IntxInfoSyncer::ZekMstiNSm[6]::handleInitialized() "});
  syncer_->handleInitialized();
  EXPECT_TRUE(sameContent(second, dst_));
}

TEST_F(IntxInfoSyncerTest, MutatorsAndSourceDelDetachReactorsButNeverTouchTheDestination) {
  EXPECT_THROW(syncerOn(nullptr, recordOf(1, {})), Zek::MutatorArgNullPointerException);
  EXPECT_THROW(syncerOn(recordOf(1, {}), nullptr), Zek::MutatorArgNullPointerException);
  EXPECT_TRUE(before_.unchanged());
  build({0, 1});
  EXPECT_THROW(syncer_->mstiNIs(nullptr), Zek::MutatorArgNullPointerException);
  IntxInfo::Ptr other = recordOf(30, {1});
  IntxInfoSyncer::ZekMstiNSm* sm1 = syncer_->zekMstiN(1);
  EXPECT_EQ(syncer_->mstiNIs(src_->mstiN(1)).get(), sm1);
  EXPECT_EQ(syncer_->mstiNIs(other->mstiN(1)).get(), sm1);  // re-pointed, and copies from it at once
  EXPECT_TRUE(dst_->mstiN(1)->sameValues(*other->mstiN(1)));
  EXPECT_EQ(syncer_->mstiNDel(1), other->mstiN(1));
  EXPECT_EQ(syncer_->mstiNDel(1), nullptr);
  EXPECT_EQ(dst_->mstiNCount(), 2u);
  // The source detached: record-level changes and new entries are no longer seen, entries still are.
  EXPECT_EQ(syncer_->sourceDel(), src_);
  EXPECT_EQ(syncer_->sourceDel(), nullptr);
  EXPECT_EQ(syncer_->keyInfo(), "[G|Et1|0]");  // the VLAN of no source
  EXPECT_EQ(Zek::test::LiveCounts::now("StpTxRx::IntxInfoSyncer::ZekSource"),
            before_.at("StpTxRx::IntxInfoSyncer::ZekSource"));
  src_->stpVersionIs(StpBpduVersion{3});
  src_->mstiNIs(5);
  src_->mstiN(0)->helloTimeIs(TimerVal(2, 0));
  EXPECT_NE(dst_->stpVersion(), StpBpduVersion{3});
  EXPECT_FALSE(dst_->mstiN(5));
  EXPECT_EQ(dst_->mstiN(0)->helloTime(), TimerVal(2, 0));
}

TEST_F(IntxInfoSyncerTest, ZombieAndNotificationSwitchReachEveryReactor) {
  build({0, 1});
  syncer_->zekDoZombieReactors(true);
  EXPECT_TRUE(syncer_->zekSource()->zekMarkedForDeletion() && syncer_->zekMstiN(1)->zekMarkedForDeletion());
  src_->mstiN(1)->portIdIs(PortId(0x80, 9));
  src_->configRevisionLevelIs(77);
  src_->mstiNIs(4);
  syncer_->zekMstiN(1)->onAttribute(IntxMstiInfo::idPortId, nullptr);  // delivered anyway: no handler runs
  EXPECT_NE(dst_->mstiN(1)->portId(), PortId(0x80, 9));
  EXPECT_NE(dst_->configRevisionLevel(), 77);
  EXPECT_FALSE(dst_->mstiN(4));
  syncer_->zekDoZombieReactors(false);
  syncer_->hasNotificationActiveIs(false);
  src_->mstiN(0)->remainingHopsIs(19);
  EXPECT_NE(dst_->mstiN(0)->remainingHops(), 19);
  syncer_->hasNotificationActiveIs(true);
  src_->mstiN(1)->portIdIs(PortId(0x90, 9));
  EXPECT_EQ(dst_->mstiN(1)->portId(), PortId(0x90, 9));
  // The full copy catches up with the entries missed meanwhile, not with the record level.
  syncer_->handleInitialized();
  EXPECT_EQ(dst_->mstiN(0)->remainingHops(), 19);
  EXPECT_TRUE(dst_->mstiN(4));
  EXPECT_NE(dst_->configRevisionLevel(), 77);
  src_->configRevisionLevelIs(78);
  EXPECT_TRUE(sameContent(src_, dst_));
}

TEST_F(IntxInfoSyncerTest, DestinationKeepsWhatItHoldsWhenTheSyncerGoesOrLooksAway) {
  build({0, 1, 2});
  // An entry deleted from the destination behind the syncer's back still receives until the next full copy.
  IntxMstiInfo::Ptr detached = dst_->mstiNDel(2);
  src_->mstiN(2)->maxAgeIs(TimerVal(0x14, 0));
  EXPECT_EQ(detached->maxAge(), TimerVal(0x14, 0));
  syncer_->handleInitialized();
  EXPECT_EQ(syncer_->zekMstiN(2)->destMstiN(), dst_->mstiN(2));
  EXPECT_TRUE(sameContent(src_, dst_));
  detached = nullptr;

  Zek::Ptr<IntxInfoSyncer::ZekMstiNSm> kept = syncer_->zekMstiN(1);
  auto onDst = rec(dst_);
  Zek::notifyEqualWrites_ = true;
  syncer_ = nullptr;
  EXPECT_EQ(onDst->count(), 0u);
  EXPECT_TRUE(sameContent(src_, dst_));
  // A per-instance syncer held elsewhere outlives its owner as a detached zombie that copies nothing.
  EXPECT_EQ(kept->owner(), nullptr);
  src_->mstiN(1)->flagsIs(RstpBpduFlags{0x33});
  EXPECT_NE(dst_->mstiN(1)->flags(), RstpBpduFlags{0x33});
  kept = nullptr;
  onDst = nullptr;
  src_ = dst_ = nullptr;
  EXPECT_TRUE(before_.unchanged());
}

// ---- randomized

/// Source operations drawn at random: entries added and removed (keys from a small pool, so deleted keys
/// come back), attributes written from few seeds (equal writes are frequent), destinations starting
/// stale, a second syncer attached late and sometimes replaced. After each step every destination equals
/// the source and every per-instance syncer joins the source and destination entries of its key.
class RandomRun {
 public:
  explicit RandomRun(std::uint32_t seed) : rng_(seed) {}

  void run(int steps) {
    Zek::notifyEqualWrites_ = pick(2) == 0;
    src_ = IntxInfo::IntxInfoIs(VlanIdOrNone(static_cast<std::uint16_t>(pick(4095))));
    for (int i = pick(4); i > 0; --i) test::fillEntry(*src_->mstiNIs(key()), value());
    attach(0);
    for (int step = 0; step < steps && !::testing::Test::HasFailure(); ++step) {
      if (step == steps / 3) attach(1);
      const char* op = randomOp();
      for (int s = 0; s < 2; ++s) check(step, op, s);
    }
  }

 private:
  int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng_); }
  std::uint16_t key() { return static_cast<std::uint16_t>(pick(8) == 0 ? 64 : pick(6)); }
  std::uint32_t value() { return static_cast<std::uint32_t>(pick(4)); }

  /// Syncer `s` onto a new destination with stale values and keys, or onto what the previous one left.
  void attach(int s) {
    syncer_[s] = nullptr;
    if (!dst_[s] || pick(2) == 0) {
      dst_[s] = IntxInfo::IntxInfoIs(src_->vlanIdOrZero());
      test::fillRecord(*dst_[s], value() + 10);
      for (int i = pick(5); i > 0; --i) test::fillEntry(*dst_[s]->mstiNIs(key()), value() + 10);
    }
    syncer_[s] = intxInfoSyncerFactory(src_, dst_[s], src_->vlanIdOrZero(), s ? "G|Et2" : "G|Et1");
  }

  const char* randomOp() {
    const int op = pick(10);
    if (op < 2) return src_->mstiNIs(key()), "add entry";
    if (op == 2) return src_->mstiNDel(key()), "remove entry";
    if (op < 5) return test::fillRecord(*src_, value()), "record attributes";
    if (op == 9 && syncer_[1] && pick(50) == 0) return attach(1), "replace second syncer";
    std::vector<IntxMstiInfo::Ptr> entries;
    for (const auto& [k, e] : src_->mstiN()) entries.push_back(src_->mstiN(k));
    if (entries.empty()) return "nothing";
    test::fillEntry(*entries[static_cast<std::size_t>(pick(static_cast<int>(entries.size())))], value());
    return "entry attributes";
  }

  void check(int step, const char* op, int s) {
    if (!syncer_[s]) return;
    const IntxInfo::Ptr& dst = dst_[s];
    bool joined = syncer_[s]->zekMstiNCount() == src_->mstiNCount();
    for (const auto& [k, e] : src_->mstiN()) {
      const IntxInfoSyncer::ZekMstiNSm* sm = syncer_[s]->zekMstiN(k);
      joined = joined && sm && sm->mstiN() == e && sm->destMstiN() == dst->mstiN(k);
    }
    if (joined && src_->sameContent(*dst)) return;
    ADD_FAILURE() << "step " << step << " (" << op << "), syncer " << s
                  << (joined ? "" : ": per-instance syncers do not join their entries") << "\n  source      "
                  << *src_ << "\n  destination " << *dst;
  }

  std::mt19937 rng_;
  IntxInfo::Ptr src_;
  IntxInfo::Ptr dst_[2];
  Zek::Ptr<IntxInfoSyncer> syncer_[2];  // declared last: released first
};

TEST_F(IntxInfoSyncerTest, RandomizedSourceOperationsKeepEveryDestinationEqual) {
  const char* env = std::getenv("STPTXRX_SEED");  // replays one run
  for (std::uint32_t i = 1; i <= (env ? 1u : 20u) && !HasFailure(); ++i) {
    const std::uint32_t seed = env ? static_cast<std::uint32_t>(std::strtoul(env, nullptr, 0)) : i * 7919u;
    SCOPED_TRACE("seed " + std::to_string(seed) + " (STPTXRX_SEED=" + std::to_string(seed) + " replays it)");
    RandomRun(seed).run(5000);
  }
  EXPECT_TRUE(before_.unchanged());
  for (const char* type : {"StpTxRx::IntxInfoSyncer", "StpTxRx::IntxInfoSyncer::ZekSource",
                           "StpTxRx::IntxInfoSyncer::ZekMstiNSm", "StpTxRx::IntxInfo", "StpTxRx::IntxMstiInfo"}) {
    EXPECT_EQ(Zek::test::LiveCounts::now(type), 0) << type;
  }
}

}  // namespace
}  // namespace StpTxRx
