// Whole-record copy: the order and number of writes an observer of the destination sees, entry creation and
// removal, and observers that change the records in the middle of the copy.
#include <stptxrx/Stp/StpTxRxCommon.h>

#include "support/LiveCounts.h"
#include "support/RecordLog.h"
#include "support/TxTreeBuilder.h"

#include <gtest/gtest.h>

#include <string>

namespace StpTxRx {
namespace {

using test::RecordLog;
/// The entry keys of `info` in order, each followed by a space.
std::string keysOf(const IntxInfo& info) {
  std::string keys;
  for (const auto& entry : info.mstiN()) keys += std::to_string(entry.first.value()) + " ";
  return keys;
}

class CopyIntxInfoTest : public ::testing::Test {
 protected:
  void SetUp() override { Zek::notifyEqualWrites_ = true; }  // the copy must write even equal values
  void TearDown() override {
    Zek::notifyEqualWrites_ = false;
    EXPECT_TRUE(src->sameContent(*dst));
    src = dst = nullptr;
    EXPECT_TRUE(before.unchanged());
  }
  Zek::test::LiveCounts before;
  IntxInfo::Ptr src, dst;
};

TEST_F(CopyIntxInfoTest, WritesEveryValueThenEachSourceEntryCreatingMissingOnesThenRemovesSurplusInKeyOrder) {
  // Equal record values and entry 0: written all the same.
  src = test::recordOf(10, {5, 0}, 0), dst = test::recordOf(10, {7, 0, 1}, 7);
  const Zek::Ptr<IntxMstiInfo> zero = dst->mstiN(0);
  RecordLog log(dst);
  copyIntxInfo(src, dst);
  EXPECT_EQ(log.take(), RecordLog::expand("R 0 +5 5 -1 -7"));
  EXPECT_EQ(dst->mstiN(0), zero) << "entries are kept, not replaced";
  EXPECT_EQ(dst->vlanIdOrZero(), VlanIdOrNone(7)) << "the key is not copied";
}

// The removal pass trusts the counts: with as many destination entries as source entries it does not look
// at the keys. Removing the entry about to be copied and the next one, and adding one ahead of the walk and
// one behind it, leaves both records with three entries but different keys.
TEST_F(CopyIntxInfoTest, SourceChangedMidCopyIsFollowedFromTheNextKeyAndEqualCountsSkipRemoval) {
  src = test::recordOf(10, {0, 2, 5}, 0), dst = test::recordOf(20, {}, 0);
  RecordLog log(dst);
  log.hook = [this](const std::string& line) {
    if (line != "+2") return;
    src->mstiNDel(2), src->mstiNDel(5);
    test::fillEntry(*src->mstiNIs(8), 40), test::fillEntry(*src->mstiNIs(1), 41);
  };
  copyIntxInfo(src, dst);
  EXPECT_EQ(log.take(), RecordLog::expand("R +0 0 +2 2 +8 8"));
  EXPECT_EQ(keysOf(*src) + "| " + keysOf(*dst), "0 1 8 | 0 2 8 ");
  src->mstiNDel(1), src->mstiNIs(2)->valuesIs(dst->mstiN(2).get());  // equal again, for the teardown check
}

// After its first write only the copy holds entry 3: a copy that did not hold it would write the twelve
// remaining attributes into freed memory, which the sanitizer build reports.
TEST_F(CopyIntxInfoTest, AnEntryRemovedAndReleasedDuringItsFirstWriteTakesTheRemainingWrites) {
  src = test::recordOf(10, {0, 3, 5}, 0), dst = test::recordOf(20, {0}, 0);
  Zek::Ptr<Zek::test::RecordingReactor> watcher;
  auto observer = Zek::test::RecordingReactor::RecordingReactorIs(dst, [&](Zek::AttributeId id, const void* key) {
    if (id != IntxInfo::idMstiN || static_cast<const BridgeSystemId*>(key)->value() != 3 || watcher) return;
    watcher = Zek::test::RecordingReactor::RecordingReactorIs(
        dst->mstiN(3), [&](Zek::AttributeId, const void*) { watcher->notifierIs(nullptr), dst->mstiNDel(3); });
  });
  copyIntxInfo(src, dst);
  EXPECT_EQ(keysOf(*dst), "0 5 ");
  EXPECT_EQ(watcher->ids().size(), 1u);
  src->mstiNDel(3);
}

}  // namespace
}  // namespace StpTxRx
