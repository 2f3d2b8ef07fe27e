// The receive dynamic syncers: the exact traces, levels and writes of each step, the scalars followed,
// "no destination", the deletion mark, notification switching, re-pointing and re-attaching sources,
// reinstantiation errors and the hot path.
#include <stptxrx/Stp/StpRxStatusSyncer.h>
#include <stptxrx/runtime/Exception.h>

#include "support/RecordingReactor.h"
#include "support/Script.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace StpTxRx {
namespace {

using Ids = std::vector<Zek::AttributeId>;

const IntfId et1("Ethernet1");

class RxSyncerTest : public ::testing::Test {
 protected:
  void TearDown() override { Zek::notifyEqualWrites_ = false; }

  RxStatus::Ptr src = RxStatus::RxStatusIs();
  RxStatus::Ptr dst = RxStatus::RxStatusIs();
  RxMstPortStatus::Ptr srcPort = src->rxMstStatusIs("G")->rxMstPortStatusIs(et1);
  RxMstPortStatus::Ptr dstPort = dst->rxMstStatusIs("G")->rxMstPortStatusIs(et1);
  RxStatusToRxDynamicSyncer::Ptr top;
};

TEST_F(RxSyncerTest, EachStepWritesAndTracesExactlyThis) {
  srcPort->bpduCountIs(4);
  srcPort->rxInfoIs(10);
  srcPort->rxUpdateInc(10, 1);
  RxMstPortStatus::Ptr other = RxStatus::RxStatusIs()->rxMstStatusIs("G")->rxMstPortStatusIs(et1);
  Zek::Ptr<RxMstPortStatusToRxDynamicSyncer::ZekSource> extra;
  Zek::test::TraceCapture cap({"StpRxStatusSyncer/7-8"});
  auto rec = Zek::test::RecordingReactor::RecordingReactorIs(dstPort);
  // The destination port's writes, by attribute id: 259 rxUpdate, 260 rxInfo, 261 counters, 262 local
  // counters, 264 bpduCount, 265 interval, 266 max count, 267 enabled.
  const auto writes = [&] {
    std::string ids;
    for (Zek::AttributeId id : rec->ids()) ids += (ids.empty() ? "" : " ") + std::to_string(id);
    rec->clear();
    return ids;
  };
  Zek::test::play(cap, "StpRxStatusSyncer Stp/StpRxStatusSyncer",
                  {{"RxMstPortStatusToRxDynamicSyncer[G|Et1]::", "P:"}, {"RxMstStatusToRxDynamicSyncer[G]::", "G:"},
                   {"RxStatusToRxDynamicSyncer::", "T:"}, {"RxMstPortStatusToRxDynamicSyncer[G|Et3]::", "P3:"}},
                  writes, {
      // The six scalars in their order, once; no peer counters, no VLAN data.
      {"construction", [&] { top = rxStatusToRxDynamicSyncerFactory(src, dst); },
       "T:handleInitialized() |T:handleMstStatus() scanning list|T:handleMstStatus() creating G|G:handleInitialized() |"
       "G:handleMstPortStatus() scanning list|G:handleMstPortStatus() creating intf=Ethernet1|P:handleInitialized() ",
       "264 265 266 267 261 262"},
      {"full copies again: nothing", [&] { top->handleInitialized(), top->mstDynSyncerSm("G")->handleInitialized(); },
       "T:handleInitialized() |G:handleInitialized() ", ""},
      {"an equal value is written all the same", [&] { srcPort->bpduCountIs(4); }, "P:handleBpduCount() ", "264"},
      {"a record change alone passes nothing on", [&] { srcPort->rxInfoIs(10)->mstiNIs(3)->remainingHopsIs(4); }, "", ""},
      // Each count change passes one update on with the record; count 0 with the record still there counts as
      // absent (record deleted first, then the count), and so does a count without a record.
      {"count raised", [&] { srcPort->rxUpdateIs(10, 5); }, "P:handleRxUpdate() creating/updating vlan=10", "260 259"},
      {"count raised again", [&] { srcPort->rxUpdateInc(10, 1); }, "P:handleRxUpdate() creating/updating vlan=10", "259"},
      {"count zero", [&] { srcPort->rxUpdateIs(10, 0); }, "P:handleRxUpdate() deleting vlan=10", "260 259"},
      {"count without record", [&] { srcPort->rxUpdateInc(20, 1); }, "P:handleRxUpdate() deleting vlan=20", ""},
      {"peer counters and the update counter are not copied", [&] {
         srcPort->peerCountersIs(PortCounters{1, 2, 3, 4}), src->updateCtrIs(7);
       }, "", ""},
      {"notifications off, then on", [&] {
         top->hasNotificationActiveIs(false);
         srcPort->bpduCountIs(6), src->rxMstStatus("G")->rxMstPortStatusIs(IntfId("Ethernet2"));
         top->hasNotificationActiveIs(true);
         srcPort->rateLimitEnabledIs(true);
       }, "P:handleRateLimitEnabled() ", "267"},
      // A port source reactor re-pointed copies the six scalars from its new port.
      {"port source reactor re-pointed", [&] {
         extra = new RxMstPortStatusToRxDynamicSyncer::ZekSource(srcPort, top->mstDynSyncerSm("G")->mstDynPortSm(et1));
         extra->notifierIs(other), extra->notifierIs(other);
         extra->onAttribute(RxMstPortStatus::idRxUpdate, nullptr);  // a null key: nothing
       }, "P:handleBpduCount() |P:handleRateLimitInterval() |P:handleRateLimitMaxCount() |P:handleRateLimitEnabled() |"
          "P:handleCounters() |P:handleLocalCounters() ", "264 265 266 267 261 262"},
      {"port source detached: no handler writes", [&] {
         extra->ownerIs(nullptr);
         RxMstPortStatusToRxDynamicSyncer* port = top->mstDynSyncerSm("G")->mstDynPortSm(et1);
         EXPECT_EQ(port->sourceDel(), srcPort);
         EXPECT_EQ(port->sourceDel(), nullptr);
         srcPort->bpduCountIs(60);
         port->handleBpduCount(), port->handleRxUpdate(10);
         EXPECT_TRUE(srcPort->notifieeList()->empty());
       }, "", ""},
      // Without a destination port the handlers trace at level 7 and write nothing, nor create anything.
      {"destination group gone", [&] {
         dst->rxMstStatusDel("G");
         src->rxMstStatus("G")->rxMstPortStatusIs(IntfId("Ethernet3"))->bpduCountIs(1);
         src->rxMstStatus("G")->rxMstPortStatus(IntfId("Ethernet3"))->rxUpdateInc(1, 1);
         EXPECT_FALSE(dst->rxMstStatus("G"));
       }, "G:handleMstPortStatus() creating intf=Ethernet3|P3:handleInitialized() |7 P3:handleInitialized() no destination|"
          "7 P3:handleBpduCount() no destination|7 P3:handleRxUpdate() no destination", ""},
      {"port removed from the source: its child goes, the destination port stays", [&] {
         src->rxMstStatus("G")->rxMstPortStatusDel(IntfId("Ethernet3"));
       }, "G:handleMstPortStatus() deleting intf=Ethernet3", ""},
      // sourceDel runs an empty scan and keeps the children; sourceIs re-attaches and copies the scalars.
      {"status source detached and re-attached", [&] {
         src->peerUpdateCtrTimeIs(1.5);
         EXPECT_EQ(top->sourceDel(), src);
         EXPECT_EQ(top->sourceDel(), nullptr);
         src->peerUpdateCtrTimeIs(2.5);
         EXPECT_EQ(dst->peerUpdateCtrTime(), 1.5) << "kept, not zeroed";
         top->sourceIs(src);
         EXPECT_EQ(dst->peerUpdateCtrTime(), 2.5);
         src->localHeartbeatIs(9);
         EXPECT_EQ(dst->localHeartbeat(), 9u) << "the new source reactor is switched on";
       }, "T:handleMstStatus() scanning list|T:handleMstStatus() scanning list|T:handleMstStatus() creating G", ""},
      {"a zombie re-attached hears nothing", [&] {
         top->sourceDel();
         top->zekDoZombieReactors(true);
         top->sourceIs(src);
         src->localHeartbeatIs(10), src->rxMstStatus("G")->rxMstPortStatusIs(IntfId("Ethernet5"));
         EXPECT_EQ(dst->localHeartbeat(), 9u);
       }, "T:handleMstStatus() scanning list|T:handleMstStatus() scanning list|T:handleMstStatus() creating G", ""},
  });
  extra = nullptr;
  top = nullptr;
}

TEST_F(RxSyncerTest, ScalarsCopyInOrderAndReinstantiationNamesTheAttribute) {
  src->updateCtrIs(77);
  src->peerUpdateCtrTimeIs(5.5);
  Zek::notifyEqualWrites_ = true;
  auto rec = Zek::test::RecordingReactor::RecordingReactorIs(dst);
  dst->localHeartbeatIs(3), dst->peerHeartbeatIs(3), dst->updateCtrTimeIs(3), dst->localUpdateCtrTimeIs(3), dst->peerUpdateCtrTimeIs(3);
  rec->clear();
  top = rxStatusToRxDynamicSyncerFactory(nullptr, dst);  // no source: 0 written
  EXPECT_EQ(rec->ids(), (Ids{259, 260, 262, 263, 264})) << "no update counter";
  EXPECT_EQ(dst->localHeartbeat() + dst->peerHeartbeat() + dst->updateCtrTime() + dst->localUpdateCtrTime() + dst->peerUpdateCtrTime(), 0);
  top->sourceIs(src);
  EXPECT_EQ(dst->peerUpdateCtrTime(), 5.5);
  src->localHeartbeatIs(1), src->peerHeartbeatIs(2), src->updateCtrTimeIs(3), src->localUpdateCtrTimeIs(4), src->peerUpdateCtrTimeIs(5);
  EXPECT_EQ(rec->ids(), (Ids{259, 260, 262, 263, 264, 259, 260, 262, 263, 264, 259, 260, 262, 263, 264}));
  EXPECT_TRUE(dst->localHeartbeat() == 1 && dst->peerHeartbeat() == 2 && dst->updateCtrTime() == 3 && dst->localUpdateCtrTime() == 4);
  Zek::Ptr<RxStatusToRxDynamicSyncer::ZekSource> extra(new RxStatusToRxDynamicSyncer::ZekSource(src, top.get()));
  dst->localHeartbeatIs(42);
  extra->notifierIs(nullptr);
  EXPECT_EQ(dst->localHeartbeat(), 42u) << "unbinding copies nothing";
  extra->ownerIs(nullptr);
  // Another source: copied and scanned; children of groups only the former source had stay.
  RxStatus::Ptr other = RxStatus::RxStatusIs();
  other->rxMstStatusIs("K");
  top->sourceIs(other);
  EXPECT_EQ(dst->peerUpdateCtrTime(), 0.0);
  EXPECT_EQ(top->mstDynSyncerSmCount(), 2u);
  src->peerUpdateCtrTimeIs(1.5);
  EXPECT_EQ(dst->peerUpdateCtrTime(), 0.0) << "the former source is no longer watched";
  // A child asked for again with other values raises, naming the attribute that differs, and stays.
  const auto raised = [](auto&& call) { return Zek::test::reinstantiationOf(call); };
  RxStatus::Ptr clash = RxStatus::RxStatusIs();
  clash->rxMstStatusIs("K");
  EXPECT_EQ(raised([&] { top->sourceIs(clash); }), "RxMstStatusToRxDynamicSyncer::source");
  EXPECT_EQ(raised([&] { top->mstDynSyncerSmIs("K", other->rxMstStatus("K"), src); }), "RxMstStatusToRxDynamicSyncer::rxStatus");
  auto group = rxMstStatusToRxDynamicSyncerFactory("G", src->rxMstStatus("G"), dst);
  auto* child = group->mstDynPortSm(et1);
  EXPECT_EQ(group->mstDynPortSmIs("G", et1, srcPort, dst).get(), child);
  EXPECT_EQ(raised([&] { group->mstDynPortSmIs("H", et1, srcPort, dst); }), "RxMstPortStatusToRxDynamicSyncer::mstName");
  EXPECT_EQ(raised([&] { group->mstDynPortSmIs("G", et1, other->rxMstStatusIs("G")->rxMstPortStatusIs(et1), dst); }),
            "RxMstPortStatusToRxDynamicSyncer::source");
  EXPECT_EQ(raised([&] { group->mstDynPortSmIs("G", et1, srcPort, other); }), "RxMstPortStatusToRxDynamicSyncer::rxStatus");
  EXPECT_EQ(group->mstDynPortSm(et1), child);
  {  // a port syncer held beyond its group's life is a zombie
    RxMstPortStatusToRxDynamicSyncer::Ptr held = child;
    group = nullptr;
    EXPECT_TRUE(held->zekMarkedForDeletion());
    group = rxMstStatusToRxDynamicSyncerFactory("G", src->rxMstStatus("G"), dst);
    child = group->mstDynPortSm(et1);
  }
  EXPECT_EQ(group->mstDynPortSmDel(et1).get(), child);
  group->mstDynPortSmIs("G", et1, srcPort, dst);
  group->mstDynPortSmDelAll();
  EXPECT_EQ(group->mstDynPortSmCount(), 0u);
  top->mstDynSyncerSmDelAll();
  EXPECT_EQ(top->mstDynSyncerSmCount(), 0u);
  EXPECT_TRUE(rxStatusToRxDynamicSyncerFactory(RxStatus::RxStatusIs(), nullptr)->initialized());
}

// Detached from its source, the top syncer stops following the scalars and the group set; the group and
// port syncers it built go on following their own source members.
TEST(RxSyncerSourceDelTest, TheTopStopsItsChildrenGoOn) {
  RxStatus::Ptr src = RxStatus::RxStatusIs(), dst = RxStatus::RxStatusIs();
  RxMstPortStatus::Ptr port = src->rxMstStatusIs("G")->rxMstPortStatusIs(IntfId("Ethernet1"));
  RxMstPortStatus::Ptr dstPort = dst->rxMstStatusIs("G")->rxMstPortStatusIs(IntfId("Ethernet1"));
  auto top = rxStatusToRxDynamicSyncerFactory(src, dst);
  EXPECT_EQ(top->sourceDel(), src);
  src->localHeartbeatIs(5), src->rxMstStatusIs("H"), port->bpduCountIs(7);
  src->rxMstStatus("G")->rxMstPortStatusIs(IntfId("Ethernet2"));
  EXPECT_EQ(dst->localHeartbeat(), 0u);
  EXPECT_FALSE(top->mstDynSyncerSm("H"));
  EXPECT_EQ(dstPort->bpduCount(), 7u);
  EXPECT_TRUE(top->mstDynSyncerSm("G")->mstDynPortSm(IntfId("Ethernet2")));
}

}  // namespace
}  // namespace StpTxRx
