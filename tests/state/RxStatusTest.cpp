// The receive status entities: the per-VLAN update counter map and the received-record collection, the
// group and port collections, and the identifiers their notifications carry (the receive syncers
// dispatch on them).
#include <stptxrx/runtime/Entity.h>
#include <stptxrx/state/RxStatus.h>

#include "support/LiveCounts.h"
#include "support/RecordingReactor.h"

#include <gtest/gtest.h>

namespace StpTxRx {
namespace {

using Zek::test::RecordingReactor;

class RxStatusTest : public ::testing::Test {
 protected:
  void SetUp() override {
    status = RxStatus::RxStatusIs();
    port = status->rxMstStatusIs("g")->rxMstPortStatusIs(IntfId("Ethernet1"));
    rec = RecordingReactor::RecordingReactorIs(port, [](Zek::AttributeId id, const void* key) {
      return key && (id == RxMstPortStatus::idRxUpdate || id == RxMstPortStatus::idRxInfo)
                 ? std::to_string(static_cast<const VlanIdOrNone*>(key)->value())
                 : std::string();
    });
  }
  void TearDown() override { Zek::notifyEqualWrites_ = false; }

  RxStatus::Ptr status;
  RxMstPortStatus::Ptr port;
  Zek::Ptr<RecordingReactor> rec;
};

TEST_F(RxStatusTest, RxUpdateCountsFromZeroCreatingTheEntryAndNotifiesWithTheVlan) {
  EXPECT_EQ(port->rxUpdate(10), 0u) << "no entry reads 0";
  EXPECT_EQ(port->rxUpdate().size(), 0u);
  port->rxUpdateInc(10, 1);
  EXPECT_EQ(port->rxUpdate(10), 1u);
  port->rxUpdateInc(10, 4);
  EXPECT_EQ(port->rxUpdate(10), 5u);
  EXPECT_EQ(rec->keys(), (std::vector<std::string>{"10", "10"}));
  EXPECT_EQ(rec->count(RxMstPortStatus::idRxUpdate), 2u);

  // Creating an entry with amount 0 is a change; adding 0 to an existing one is not (unless every write
  // notifies).
  rec->clear();
  port->rxUpdateInc(20, 0);
  EXPECT_EQ(port->rxUpdate().size(), 2u);
  port->rxUpdateInc(20, 0);
  EXPECT_EQ(rec->count(), 1u);
  Zek::notifyEqualWrites_ = true;
  port->rxUpdateInc(20, 0);
  EXPECT_EQ(rec->count(), 2u);
}

TEST_F(RxStatusTest, DeletingAbsentVlanEntriesChangesNothing) {
  port->rxUpdateInc(10, 3);
  port->rxInfoIs(10);
  rec->clear();
  port->rxUpdateDel(11);
  EXPECT_EQ(port->rxInfoDel(11), nullptr);
  EXPECT_EQ(rec->count(), 0u) << "no notification for an absent key";
  EXPECT_EQ(port->rxUpdate(10), 3u);
  EXPECT_NE(port->rxInfo(10), nullptr);

  port->rxUpdateDel(10);
  Zek::Ptr<IntxInfo> removed = port->rxInfoDel(10);
  ASSERT_NE(removed, nullptr);
  EXPECT_TRUE(removed->zekMarkedForDeletion());
  EXPECT_EQ(port->rxUpdate(10), 0u);
  EXPECT_EQ(port->rxInfo(10), nullptr);
  EXPECT_EQ(rec->ids(), (std::vector<Zek::AttributeId>{RxMstPortStatus::idRxUpdate, RxMstPortStatus::idRxInfo}));
}

TEST_F(RxStatusTest, RxInfoIsReturnsTheSameRecordKeyedByItsVlan) {
  Zek::Ptr<IntxInfo> first = port->rxInfoIs(10);
  Zek::Ptr<IntxInfo> second = port->rxInfoIs(10);
  EXPECT_EQ(first, second);
  EXPECT_EQ(first->vlanIdOrZero(), VlanIdOrNone(10));
  EXPECT_EQ(rec->count(RxMstPortStatus::idRxInfo), 1u) << "only the creation notifies";
  EXPECT_EQ(port->rxInfo().size(), 1u);
}

TEST_F(RxStatusTest, ScalarWritesNotifyWithTheirOwnIdentifiersInDeclarationOrder) {
  port->countersIs(PortCounters{1, 2, 3, 4});
  port->localCountersIs(PortCounters{5, 0, 0, 0});
  port->peerCountersIs(PortCounters{6, 0, 0, 0});
  port->bpduCountIs(7);
  port->rateLimitIntervalIs(1.5);
  port->rateLimitMaxCountIs(8);
  port->rateLimitEnabledIs(true);
  EXPECT_EQ(rec->ids(), (std::vector<Zek::AttributeId>{261, 262, 263, 264, 265, 266, 267}));
  EXPECT_EQ(port->counters(), (PortCounters{1, 2, 3, 4}));

  auto top = RecordingReactor::RecordingReactorIs(status);
  status->localHeartbeatIs(1);
  status->peerHeartbeatIs(2);
  status->updateCtrIs(3);
  status->updateCtrTimeIs(4.0);
  status->localUpdateCtrTimeIs(5.0);
  status->peerUpdateCtrTimeIs(6.0);
  status->rxMstStatusIs("h");
  EXPECT_EQ(top->ids(), (std::vector<Zek::AttributeId>{259, 260, 261, 262, 263, 264, 258}));
}

TEST(RxStatusTreeTest, DeletingAGroupMarksItAndDropsEverythingBelowOnceReleased) {
  Zek::test::LiveCounts before;
  {
    RxStatus::Ptr status = RxStatus::RxStatusIs();
    RxMstStatus::Ptr g = status->rxMstStatusIs("g");
    EXPECT_EQ(status->rxMstStatusIs("g"), g);
    g->rxMstPortStatusIs(IntfId("Ethernet1"))->rxInfoIs(1)->mstiNIs(0);
    EXPECT_EQ(status->rxMstStatusDel("x"), nullptr);
    EXPECT_EQ(status->rxMstStatusDel("g"), g);
    EXPECT_TRUE(g->zekMarkedForDeletion());
    EXPECT_EQ(status->rxMstStatus("g"), nullptr);
    EXPECT_NE(g->rxMstPortStatus(IntfId("Ethernet1")), nullptr) << "a holder keeps the removed subtree";
  }
  EXPECT_TRUE(before.unchanged());
}

}  // namespace
}  // namespace StpTxRx
