// IntxInfoSyncer: the exact writes and traces of each step, the deletion mark, the
// zombie and notification switches, re-pointing, null arguments, reactors held beyond their owner, the
// block pool and the hot path.
#include <stptxrx/Stp/IntxInfoSyncer.h>

#include "support/AllocCounter.h"
#include "support/LiveCounts.h"
#include "support/RecordLog.h"
#include "support/Script.h"
#include "support/TxTreeBuilder.h"

namespace StpTxRx {
namespace {

using test::RecordLog;
using test::recordOf;

/// The writes `pattern` stands for, as RecordLog::take() gives them.
const auto writes = RecordLog::expand;

class IntxInfoSyncerTest : public ::testing::Test {
 protected:
  void TearDown() override {
    syncer = nullptr, src = dst = other = nullptr;
    EXPECT_TRUE(before.unchanged());
  }
  void make() { syncer = intxInfoSyncerFactory(src, dst, 0, "G|Et1"); }

  Zek::test::LiveCounts before;
  // The traces name the source's VLAN (7), not the syncer's key.
  IntxInfo::Ptr src = recordOf(1, {0, 3}, 7), dst = recordOf(50, {0, 3}), other = recordOf(40, {3, 6});
  Zek::Ptr<IntxInfoSyncer> syncer;
};

TEST_F(IntxInfoSyncerTest, EachStepWritesAndTracesExactlyThis) {
  IntxMstiInfo::Ptr removed;
  RecordLog log(dst);
  Zek::test::TraceCapture cap({"StpTxStatusSyncer"});  // every level
  Zek::test::play(cap, "StpTxStatusSyncer Stp/StpTxStatusSyncer",
                  {{"IntxInfoSyncer::ZekMstiNSm[", "sm["}, {"IntxInfoSyncer[G|Et1|7]::", "7:"}, {"IntxInfoSyncer[G|Et1|0]::", "0:"}},
                  [&] { return log.take(); }, {
      // Record level once; each entry by its syncer's own full copy, then by the owner's (the entries exist, so
      // no mstiN write; equal counts skip the pass over destination keys).
      {"construction", [&] { make(); },
       "sm[0]::handleInitialized() |sm[0]::copyAllData() |sm[3]::handleInitialized() |sm[3]::copyAllData() |"
       "7:handleInitialized() |7:handleMstiN() setting mstiId=0|sm[0]::copyAllData() |7:handleMstiN() setting mstiId=3|"
       "sm[3]::copyAllData() ", writes("R 0 3 0 3")},
      {"every attribute written, new values then equal ones", [&] {
         EXPECT_TRUE(syncer->initialized() && syncer->zekMstiN(0)->initialized());
         for (int twice = 0; twice < 2; ++twice) test::fillRecord(*src, 9), test::fillEntry(*src->mstiN(3), 9);
       }, "", writes("R 3 R 3")},
      // The destination entry exists before its syncer, which copies the blank entry, then each write.
      {"entry added and filled", [&] { test::fillEntry(*src->mstiNIs(5), 77); },
       "7:handleMstiN() setting mstiId=5|sm[5]::handleInitialized() |sm[5]::copyAllData() ", writes("+5 5 5")},
      {"entry removed (marked for deletion), then written", [&] {
         (removed = src->mstiNDel(5))->flagsIs(RstpBpduFlags{0x7f});
         EXPECT_TRUE(removed->zekMarkedForDeletion());
       },
       "7:handleMstiN() deleting mstiId=5", "-5"},
      // Re-pointed at a record with entries 3 and 6: the record level, the thirteen fields of the re-pointed
      // syncer of 3; the new syncer of 6 finds no destination entry; 0's syncer goes, its entry stays.
      {"source re-pointed, twice", [&] {
         syncer->zekSource()->notifierIs(other), syncer->zekSource()->notifierIs(other);
         syncer->zekMstiN(3)->mstiNIs(other->mstiN(3));  // what it watches already: nothing
       },
       "sm[6]::handleInitialized() ", writes("R 3")},
      {"full copy", [&] { syncer->handleInitialized(); },
       "0:handleInitialized() |0:handleMstiN() setting mstiId=3|sm[3]::copyAllData() |0:handleMstiN() setting mstiId=6|"
       "sm[6]::copyAllData() |0:handleMstiN() deleting mstiId=0|0:handleMstiN() setting mstiId=3|0:handleMstiN() setting mstiId=6",
       writes("3 +6 6 -0")},
      // Marked for deletion with notifications on: record-level copies go on, the mstiN handler and the entries'
      // copies stop, the per-instance syncers still follow the source's entries.
      {"reactors marked for deletion", [&] {
         syncer->zekSource()->zekMarkedForDeletionIs(true);
         syncer->zekMstiN(3)->zekMarkedForDeletionIs(true);
         other->stpVersionIs(StpBpduVersion{3}), other->mstiN(3)->remainingHopsIs(1), other->mstiNIs(9);
       }, "sm[9]::handleInitialized() ", "stpVersion"},
      {"marks cleared; a null key or the record's key: nothing", [&] {
         syncer->zekSource()->zekMarkedForDeletionIs(false);
         syncer->zekMstiN(3)->zekMarkedForDeletionIs(false);
         other->mstiN(9)->remainingHopsIs(1);
         syncer->zekSource()->onAttribute(IntxInfo::idMstiN, nullptr);
         syncer->zekSource()->onAttribute(IntxInfo::idVlanIdOrZero, nullptr);
       }, "", ""},
      {"zombie: nothing at all", [&] {
         syncer->zekDoZombieReactors(true);
         other->stpVersionIs(StpBpduVersion{4}), other->mstiN(3)->remainingHopsIs(2), other->mstiNIs(10);
         syncer->zekMstiN(3)->onAttribute(IntxMstiInfo::idPortId, nullptr);  // delivered anyway: no handler runs
       }, "", ""},
      {"revived with notifications off, then on", [&] {
         syncer->zekDoZombieReactors(false);
         syncer->hasNotificationActiveIs(false);
         other->mstiN(3)->remainingHopsIs(3);
         syncer->hasNotificationActiveIs(true);
         other->mstiN(6)->portIdIs(PortId(0x90, 9));
       }, "", "6.portId"},
      // The full copy catches up with the entries missed meanwhile (10 has no syncer to copy it), not with the
      // record level.
      {"full copy again", [&] { syncer->handleInitialized(); },
       "0:handleInitialized() |0:handleMstiN() setting mstiId=3|sm[3]::copyAllData() |0:handleMstiN() setting mstiId=6|"
       "sm[6]::copyAllData() |0:handleMstiN() setting mstiId=9|sm[9]::copyAllData() |0:handleMstiN() setting mstiId=10",
       writes("3 6 +9 9 +10")},
      {"source detached", [&] {
         EXPECT_EQ(syncer->sourceDel(), other);
         EXPECT_EQ(syncer->sourceDel(), nullptr);
         EXPECT_EQ(syncer->keyInfo(), "[G|Et1|0]");
         other->stpVersionIs(StpBpduVersion{5}), other->mstiNIs(11), other->mstiN(6)->portIdIs(PortId(0x90, 10));
       }, "", "6.portId"},
      {"syncer released", [&] { syncer = nullptr; }, "", ""},
  });
}

// (A reactor held beyond its syncer: SyncerLifecycleTest's teardown and ownerless cases.)
TEST_F(IntxInfoSyncerTest, NullArgumentsRaiseAndADestinationEntryDeletedBehindItsBackIsRefoundByTheFullCopy) {
  EXPECT_THROW(intxInfoSyncerFactory(nullptr, dst, 0, "x"), Zek::MutatorArgNullPointerException);
  EXPECT_THROW(intxInfoSyncerFactory(src, nullptr, 0, "x"), Zek::MutatorArgNullPointerException);
  make();
  EXPECT_THROW(syncer->mstiNIs(nullptr), Zek::MutatorArgNullPointerException);
  EXPECT_EQ(syncer->zekMstiNCount(), 2u);
  // A destination entry deleted behind the syncer's back still receives until the next full copy.
  IntxMstiInfo::Ptr detached = dst->mstiNDel(0);
  src->mstiN(0)->maxAgeIs(TimerVal(0x14, 0));
  EXPECT_EQ(detached->maxAge(), TimerVal(0x14, 0));
  syncer->handleInitialized();
  EXPECT_EQ(syncer->zekMstiN(0)->destMstiN(), dst->mstiN(0));
}

TEST_F(IntxInfoSyncerTest, HandlersAllocateNothingWithoutText) {
  make();
  src->mstiN(0)->remainingHopsIs(0), src->stpVersionIs(StpBpduVersion{0});  // call sites register once
  Zek::test::AllocScope scope;
  for (std::uint8_t v = 1; v <= 100; ++v) src->mstiN(0)->remainingHopsIs(v), src->stpVersionIs(StpBpduVersion{v});
  EXPECT_EQ(scope.count(), 0u);
  EXPECT_TRUE(src->sameContent(*dst));
}

// Per-instance syncers live in pooled blocks: blocks freed while others live are handed out again, and once
// the last one goes, every byte is given back.
TEST_F(IntxInfoSyncerTest, PooledSyncersAreReusedAndATornDownSyncerGivesEveryByteBack) {
  make();  // registers the call sites for good
  src->mstiNIs(5);  // stays: the pool keeps its chunk
  for (std::uint32_t round = 0; round < 3; ++round) {
    src->mstiNDel(3), src->mstiNDel(0);
    test::fillEntry(*src->mstiNIs(0), round), test::fillEntry(*src->mstiNIs(3), round + 1);
  }
  EXPECT_TRUE(src->sameContent(*dst));
  syncer = nullptr, Zek::test::countBytesIs(true);
  const std::int64_t before = Zek::test::liveBytes();
  make(), syncer->mstiNIs(other->mstiN(6)), syncer = nullptr;
  EXPECT_EQ(Zek::test::liveBytes(), before);
  Zek::test::countBytesIs(false);
}

}  // namespace
}  // namespace StpTxRx
