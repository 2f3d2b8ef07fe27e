// The transmit record and its instance entries as entities: the mstiN collection (order, create-or-return,
// delete) and the attribute identifiers each setter announces.
#include <stptxrx/state/IntxInfo.h>

#include "support/LiveCounts.h"
#include "support/RecordingReactor.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace StpTxRx {
namespace {

using Zek::test::RecordingReactor;

std::vector<std::uint16_t> keysOf(const IntxInfo& info) {
  std::vector<std::uint16_t> keys;
  for (const auto& [key, entry] : info.mstiN()) {
    EXPECT_EQ(entry->key(), key);
    keys.push_back(key.value());
  }
  return keys;
}

const Stp::BridgeId someBridge{4096, 1, Nelk::EthAddr(0, 1, 2, 3, 4, 5)};

TEST(IntxInfoMstiNTest, IteratesInAscendingKeyOrderWhateverTheInsertionOrder) {
  IntxInfo::Ptr info = IntxInfo::IntxInfoIs(0);
  info->mstiNIs(5);
  info->mstiNIs(0);
  info->mstiNIs(2);
  EXPECT_EQ(keysOf(*info), (std::vector<std::uint16_t>{0, 2, 5}));
  EXPECT_EQ(info->mstiNCount(), 3u);

  info->mstiNDel(2);
  info->mstiNIs(65);
  info->mstiNIs(1);
  EXPECT_EQ(keysOf(*info), (std::vector<std::uint16_t>{0, 1, 5, 65}));
}

TEST(IntxInfoMstiNTest, CreateOrReturnOnAPresentKeyReturnsTheSameEntryUnchangedAndSilently) {
  IntxInfo::Ptr info = IntxInfo::IntxInfoIs(0);
  Zek::Ptr<IntxMstiInfo> first = info->mstiNIs(3);
  first->flagsIs(Stp::RstpBpduFlags{0x3c});
  first->bridgeIdIs(someBridge);
  first->remainingHopsIs(7);
  auto onRecord = RecordingReactor::RecordingReactorIs(info);
  auto onEntry = RecordingReactor::RecordingReactorIs(first);

  Zek::Ptr<IntxMstiInfo> again = info->mstiNIs(3);

  EXPECT_EQ(again, first);
  EXPECT_EQ(again->flags(), Stp::RstpBpduFlags{0x3c});
  EXPECT_EQ(again->bridgeId(), someBridge);
  EXPECT_EQ(again->remainingHops(), 7);
  EXPECT_EQ(onRecord->count(), 0u);
  EXPECT_EQ(onEntry->count(), 0u);
  EXPECT_EQ(info->mstiNCount(), 1u);
}

TEST(IntxInfoMstiNTest, DeleteAnnouncesOnlyARemovalAndTheRemovedEntryStaysUsable) {
  IntxInfo::Ptr info = IntxInfo::IntxInfoIs(0);
  info->mstiNIs(1)->remainingHopsIs(9);
  auto rec = RecordingReactor::RecordingReactorIs(info, RecordingReactor::keyAs<Stp::BridgeSystemId>());

  EXPECT_FALSE(info->mstiNDel(4)) << "absent key";
  EXPECT_EQ(rec->count(), 0u);

  Zek::Ptr<IntxMstiInfo> removed = info->mstiNDel(1);
  ASSERT_TRUE(removed);
  EXPECT_EQ(removed->remainingHops(), 9);
  EXPECT_TRUE(removed->zekMarkedForDeletion());
  EXPECT_FALSE(info->mstiN(1));
  EXPECT_EQ(info->mstiNCount(), 0u);
  EXPECT_EQ(rec->ids(), (std::vector<Zek::AttributeId>{265}));
  EXPECT_EQ(rec->keys(), (std::vector<std::string>{"1"}));

  // The key can be used again: a fresh entry, not the removed one.
  Zek::Ptr<IntxMstiInfo> fresh = info->mstiNIs(1);
  EXPECT_NE(fresh, removed);
  EXPECT_EQ(fresh->remainingHops(), 0);
}

TEST(IntxInfoAttributeIdTest, RecordSettersAnnounceTheirDeclaredIds) {
  IntxInfo::Ptr info = IntxInfo::IntxInfoIs(0);
  auto rec = RecordingReactor::RecordingReactorIs(info, RecordingReactor::keyAs<Stp::BridgeSystemId>());

  info->neighborAddrIs(Nelk::EthAddr(0, 0, 0, 0, 0, 1));
  info->stpVersionIs(Stp::StpBpduVersion{2});
  info->intxInfoTypeIs(Stp::StpBpduType{2});
  info->configRevisionLevelIs(1);
  info->configNameStringIs("region");
  info->configDigestIs(Stp::MstpConfigDigest{{1}});
  info->mstiNIs(7);

  // 259 is the key (vlanIdOrZero), which has no setter.
  EXPECT_EQ(rec->ids(), (std::vector<Zek::AttributeId>{258, 260, 261, 262, 263, 264, 265}));
  EXPECT_EQ(rec->keys().back(), "7");
  EXPECT_EQ(IntxInfo::idVlanIdOrZero, 259u);
}

TEST(IntxInfoAttributeIdTest, EntrySettersAnnounceTheirDeclaredIds) {
  IntxInfo::Ptr info = IntxInfo::IntxInfoIs(0);
  Zek::Ptr<IntxMstiInfo> e = info->mstiNIs(0);
  auto rec = RecordingReactor::RecordingReactorIs(e);

  e->flagsIs(Stp::RstpBpduFlags{1});
  e->bridgeIdIs(someBridge);
  e->portIdIs(Stp::PortId(128, 1));
  e->cistRootBridgeIdIs(someBridge);
  e->cistExtRootPathCostIs(1);
  e->cistRegionalRootBridgeIdIs(someBridge);
  e->intRootPathCostIs(1);
  e->regionalRootBridgeIdIs(someBridge);
  e->remainingHopsIs(1);
  e->messageAgeIs(Stp::TimerVal(0, 1));
  e->maxAgeIs(Stp::TimerVal(0, 1));
  e->helloTimeIs(Stp::TimerVal(0, 1));
  e->fwdDelayIs(Stp::TimerVal(0, 1));

  // 258 is the key.
  EXPECT_EQ(rec->ids(), (std::vector<Zek::AttributeId>{259, 260, 261, 262, 263, 264, 265, 266, 267, 268, 269,
                                                       270, 271}));
  for (const auto& n : rec->notifications()) EXPECT_FALSE(n.hasKey) << "scalar attribute " << n.id;
}

TEST(IntxInfoAttributeIdTest, EqualWritesAnnounceNothingUnlessEqualWritesAreSwitchedOn) {
  IntxInfo::Ptr info = IntxInfo::IntxInfoIs(0);
  Zek::Ptr<IntxMstiInfo> e = info->mstiNIs(0);
  e->portIdIs(Stp::PortId(128, 3));
  info->configNameStringIs("region");
  auto onRecord = RecordingReactor::RecordingReactorIs(info);
  auto onEntry = RecordingReactor::RecordingReactorIs(e);

  e->portIdIs(Stp::PortId(128, 3));
  info->configNameStringIs("region");  // equal text in another buffer
  EXPECT_EQ(onRecord->count() + onEntry->count(), 0u);

  Zek::notifyEqualWrites_ = true;
  e->portIdIs(Stp::PortId(128, 3));
  info->configNameStringIs("region");
  info->mstiNIs(0);  // create-or-return of a present key stays silent even so
  Zek::notifyEqualWrites_ = false;
  EXPECT_EQ(onEntry->ids(), (std::vector<Zek::AttributeId>{IntxMstiInfo::idPortId}));
  EXPECT_EQ(onRecord->ids(), (std::vector<Zek::AttributeId>{IntxInfo::idConfigNameString}));
}

TEST(IntxInfoLifetimeTest, ReleasingTheRecordReleasesItsEntriesButNotEntriesStillHeld) {
  Zek::test::LiveCounts before;
  Zek::Ptr<IntxMstiInfo> kept;
  {
    IntxInfo::Ptr info = IntxInfo::IntxInfoIs(3);
    EXPECT_EQ(info->vlanIdOrZero(), Bridging::VlanIdOrNone(3));
    for (std::uint16_t k = 0; k < 10; ++k) info->mstiNIs(k);
    kept = info->mstiN(4);
    EXPECT_EQ(Zek::test::LiveCounts::now("StpTxRx::IntxMstiInfo"), before.at("StpTxRx::IntxMstiInfo") + 10);
  }
  EXPECT_EQ(Zek::test::LiveCounts::now("StpTxRx::IntxMstiInfo"), before.at("StpTxRx::IntxMstiInfo") + 1);
  EXPECT_EQ(kept->key(), Stp::BridgeSystemId(4));
  kept = nullptr;
  EXPECT_TRUE(before.unchanged());
}

}  // namespace
}  // namespace StpTxRx
