// The receive status entities: when the per-VLAN update counter and the received-record collection
// notify (the receive syncers pass on one update per notification), and what a deleted group leaves.
#include <stptxrx/runtime/Entity.h>
#include <stptxrx/state/RxStatus.h>

#include "support/LiveCounts.h"
#include "support/RecordingReactor.h"

#include <gtest/gtest.h>

#include <vector>

namespace StpTxRx {
namespace {

TEST(RxStatusTest, VlanEntriesNotifyOnlyWhenTheyChangeAndDeletedGroupsAreReleased) {
  Zek::test::LiveCounts before;
  {
    RxStatus::Ptr status = RxStatus::RxStatusIs();
    RxMstStatus::Ptr g = status->rxMstStatusIs("g");
    EXPECT_EQ(status->rxMstStatusIs("g"), g);
    RxMstPortStatus::Ptr port = g->rxMstPortStatusIs(IntfId("Ethernet1"));
    auto rec = Zek::test::RecordingReactor::RecordingReactorIs(port);
    port->rxUpdateInc(10, 1);
    port->rxUpdateInc(10, 4);
    port->rxUpdateInc(20, 0);  // creating an entry with 0 is a change; adding 0 to one is not
    port->rxUpdateInc(20, 0);
    port->rxUpdateDel(11);  // nor is deleting an absent entry
    EXPECT_EQ(port->rxInfoDel(11), nullptr);
    EXPECT_EQ(port->rxUpdate(10), 5u);
    EXPECT_EQ(port->rxInfoIs(10), port->rxInfoIs(10));
    EXPECT_EQ(port->rxInfo(10)->vlanIdOrZero(), VlanIdOrNone(10));
    EXPECT_EQ(rec->ids(), (std::vector<Zek::AttributeId>{RxMstPortStatus::idRxUpdate, RxMstPortStatus::idRxUpdate,
                                                         RxMstPortStatus::idRxUpdate, RxMstPortStatus::idRxInfo}));
    Zek::notifyEqualWrites_ = true;
    port->rxUpdateInc(20, 0);
    Zek::notifyEqualWrites_ = false;
    EXPECT_EQ(rec->count(), 5u) << "with equal writes announced, adding 0 notifies";
    Zek::Ptr<IntxInfo> removed = port->rxInfoDel(10);
    EXPECT_TRUE(removed && removed->zekMarkedForDeletion());
    port->rxInfoIs(1)->mstiNIs(0);
    EXPECT_EQ(status->rxMstStatusDel("g"), g);
    EXPECT_TRUE(g->zekMarkedForDeletion());
    EXPECT_EQ(g->rxMstPortStatus(IntfId("Ethernet1")), port) << "a holder keeps the removed subtree";
  }
  EXPECT_TRUE(before.unchanged());
}

}  // namespace
}  // namespace StpTxRx
