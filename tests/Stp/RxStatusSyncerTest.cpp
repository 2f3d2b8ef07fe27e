// The receive dynamic syncers: the exact traces, levels and writes of each step, the scalars followed,
// "no destination", the deletion mark, notification switching, re-pointing and re-attaching sources,
// reinstantiation errors and the hot path.
#include <stptxrx/Stp/StpRxStatusSyncer.h>

#include "support/RecordingReactor.h"
#include "support/Script.h"

#include <set>

namespace StpTxRx {
namespace {

using Ids = std::vector<Zek::AttributeId>;

const IntfId et1("Ethernet1");

class RxSyncerTest : public ::testing::Test {
 protected:
  void TearDown() override { Zek::notifyEqualWrites_ = false; }

  RxStatus::Ptr src = RxStatus::RxStatusIs(), dst = RxStatus::RxStatusIs();
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
  src->updateCtrIs(77), src->peerUpdateCtrTimeIs(5.5);
  Zek::notifyEqualWrites_ = true;
  dst->localHeartbeatIs(3), dst->peerHeartbeatIs(3), dst->updateCtrTimeIs(3), dst->localUpdateCtrTimeIs(3), dst->peerUpdateCtrTimeIs(3);
  auto rec = Zek::test::RecordingReactor::RecordingReactorIs(dst);
  top = rxStatusToRxDynamicSyncerFactory(nullptr, dst);  // no source: 0 written
  EXPECT_EQ(rec->ids(), (Ids{259, 260, 262, 263, 264})) << "no update counter";
  EXPECT_EQ(dst->localHeartbeat() + dst->peerHeartbeat() + dst->updateCtrTime() + dst->localUpdateCtrTime() + dst->peerUpdateCtrTime(), 0);
  top->sourceIs(src);
  EXPECT_EQ(dst->peerUpdateCtrTime(), 5.5);
  src->localHeartbeatIs(1), src->peerHeartbeatIs(2), src->updateCtrTimeIs(3), src->localUpdateCtrTimeIs(4), src->peerUpdateCtrTimeIs(5);
  EXPECT_EQ(rec->ids(), (Ids{259, 260, 262, 263, 264, 259, 260, 262, 263, 264, 259, 260, 262, 263, 264}));
  EXPECT_TRUE(dst->localHeartbeat() == 1 && dst->peerHeartbeat() == 2 && dst->updateCtrTime() == 3 && dst->localUpdateCtrTime() == 4);
  Zek::Ptr<RxStatusToRxDynamicSyncer::ZekSource> extra(new RxStatusToRxDynamicSyncer::ZekSource(src, top.get()));
  dst->localHeartbeatIs(42), extra->notifierIs(nullptr);
  EXPECT_EQ(dst->localHeartbeat(), 42u) << "unbinding copies nothing";
  extra->ownerIs(nullptr);
  // Another source: copied and scanned; children of groups only the former source had stay.
  RxStatus::Ptr other = RxStatus::RxStatusIs();
  other->rxMstStatusIs("K"), top->sourceIs(other);
  EXPECT_TRUE(dst->peerUpdateCtrTime() == 0.0 && top->mstDynSyncerSmCount() == 2u);
  src->peerUpdateCtrTimeIs(1.5);
  EXPECT_EQ(dst->peerUpdateCtrTime(), 0.0) << "the former source is no longer watched";
  // A child asked for again with other values raises, naming the attribute that differs, and stays.
  const auto raised = [](auto&& call) { return Zek::test::reinstantiationOf(call); };
  const RxStatus::Ptr clash = RxStatus::RxStatusIs();
  EXPECT_EQ(raised([&] { clash->rxMstStatusIs("K"), top->sourceIs(clash); }), "RxMstStatusToRxDynamicSyncer::source");
  EXPECT_EQ(raised([&] { top->mstDynSyncerSmIs("K", other->rxMstStatus("K"), src); }), "RxMstStatusToRxDynamicSyncer::rxStatus");
  auto group = rxMstStatusToRxDynamicSyncerFactory("G", src->rxMstStatus("G"), dst);
  auto* child = group->mstDynPortSm(et1);
  EXPECT_EQ(group->mstDynPortSmIs("G", et1, srcPort, dst).get(), child);
  EXPECT_EQ(raised([&] { group->mstDynPortSmIs("H", et1, srcPort, dst); }), "RxMstPortStatusToRxDynamicSyncer::mstName");
  EXPECT_EQ(raised([&] { group->mstDynPortSmIs("G", et1, other->rxMstStatusIs("G")->rxMstPortStatusIs(et1), dst); }),
            "RxMstPortStatusToRxDynamicSyncer::source");
  EXPECT_EQ(raised([&] { group->mstDynPortSmIs("G", et1, srcPort, other); }), "RxMstPortStatusToRxDynamicSyncer::rxStatus");
  EXPECT_EQ(group->mstDynPortSm(et1), child);
  RxMstPortStatusToRxDynamicSyncer::Ptr held = child;  // held beyond its group's life: a zombie
  group = nullptr;
  EXPECT_TRUE(held->zekMarkedForDeletion());
  top->mstDynSyncerSmDelAll();
  EXPECT_EQ(top->mstDynSyncerSmCount(), 0u);
  EXPECT_TRUE(rxStatusToRxDynamicSyncerFactory(RxStatus::RxStatusIs(), nullptr)->initialized());
}

// Detached from its source, the top syncer stops following the scalars and the group set; the group and
// port syncers it built go on following their own source members.
TEST_F(RxSyncerTest, SourceDelStopsTheTopItsChildrenGoOn) {
  top = rxStatusToRxDynamicSyncerFactory(src, dst);
  EXPECT_EQ(top->sourceDel(), src);
  src->localHeartbeatIs(5), src->rxMstStatusIs("H"), srcPort->bpduCountIs(7), src->rxMstStatus("G")->rxMstPortStatusIs(IntfId("Ethernet2"));
  EXPECT_TRUE(dst->localHeartbeat() == 0u && !top->mstDynSyncerSm("H"));
  EXPECT_TRUE(dstPort->bpduCount() == 7u && top->mstDynSyncerSm("G")->mstDynPortSm(IntfId("Ethernet2")));
}

// Trace records point at the handler that traced, also when a shared helper emits the record: each
// handler's records carry its own name, its own line and the module the syncer traces as; with a
// destination port the record is the level-8 progress line, without one "no destination" at 7.
TEST_F(RxSyncerTest, EveryScalarHandlerTracesItsOwnNameAndLineAtBothLevels) {
  top = rxStatusToRxDynamicSyncerFactory(src, dst);
  PortCounters counters;
  const std::pair<std::string, std::function<void(std::uint32_t)>> writes[] = {
      {"handleBpduCount", [&](std::uint32_t v) { srcPort->bpduCountIs(v); }},
      {"handleRateLimitInterval", [&](std::uint32_t v) { srcPort->rateLimitIntervalIs(v); }},
      {"handleRateLimitMaxCount", [&](std::uint32_t v) { srcPort->rateLimitMaxCountIs(v); }},
      {"handleRateLimitEnabled", [&](std::uint32_t) { srcPort->rateLimitEnabledIs(!srcPort->rateLimitEnabled()); }},
      {"handleCounters", [&](std::uint32_t v) { counters.configRx = v, srcPort->countersIs(counters); }},
      {"handleLocalCounters", [&](std::uint32_t v) { counters.rstRx = v, srcPort->localCountersIs(counters); }}};
  for (const int level : {8, 7}) {
    if (level == 7) dst->rxMstStatus("G")->rxMstPortStatusDel(et1);
    Zek::test::TraceCapture cap({"StpRxStatusSyncer/7-8"});
    std::set<int> lines;
    std::uint32_t value = level * 10u;
    for (const auto& [handler, write] : writes) {
      SCOPED_TRACE(handler);
      cap.clear(), write(++value);
      ASSERT_EQ(cap.lines().size(), 1u);
      const auto& line = cap.lines().front();
      EXPECT_EQ(line.function + " " + line.file + " " + std::to_string(line.level), handler + " Stp/StpRxStatusSyncer " + std::to_string(level));
      EXPECT_EQ(line.text, "RxMstPortStatusToRxDynamicSyncer[G|Et1]::" + handler + "() " + (level == 8 ? "" : "no destination"));
      EXPECT_TRUE(lines.insert(line.line).second) << "a line another handler reports";
    }
  }
}

}  // namespace
}  // namespace StpTxRx
