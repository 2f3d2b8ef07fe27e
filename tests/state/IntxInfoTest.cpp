// The transmit record's mstiN collection: key order, create-or-return, and removal as announced to
// observers. The collection mechanics themselves (equal writes, marking, reuse of a key) are the
// runtime's and tested there; setter ids and content through copyIntxInfo's write-order tests.
#include <stptxrx/state/IntxInfo.h>

#include "support/RecordingReactor.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace StpTxRx {
namespace {

using Zek::test::RecordingReactor;

TEST(IntxInfoMstiNTest, KeyOrderCreateOrReturnAndDelete) {
  IntxInfo::Ptr info = IntxInfo::IntxInfoIs(0);
  for (std::uint16_t k : {5, 0, 65, 2}) info->mstiNIs(k);
  Zek::Ptr<IntxMstiInfo> two = info->mstiN(2);
  two->remainingHopsIs(9);
  auto onRecord = RecordingReactor::RecordingReactorIs(info, RecordingReactor::keyAs<Stp::BridgeSystemId>());

  EXPECT_EQ(info->mstiNIs(2), two) << "a present key returns its entry, unchanged and silently";
  EXPECT_EQ(two->remainingHops(), 9);
  EXPECT_FALSE(info->mstiNDel(4)) << "absent key";
  EXPECT_EQ(onRecord->count(), 0u);

  EXPECT_EQ(info->mstiNDel(2), two);
  EXPECT_TRUE(two->zekMarkedForDeletion());
  EXPECT_EQ(onRecord->ids(), (std::vector<Zek::AttributeId>{IntxInfo::idMstiN}));
  EXPECT_EQ(onRecord->keys(), (std::vector<std::string>{"2"}));
  std::vector<std::uint16_t> keys;
  for (const auto& [key, entry] : info->mstiN()) {
    EXPECT_EQ(entry->key(), key);
    keys.push_back(key.value());
  }
  EXPECT_EQ(keys, (std::vector<std::uint16_t>{0, 5, 65}));
  EXPECT_EQ(info->mstiNCount(), 3u);
}

}  // namespace
}  // namespace StpTxRx
