// The receive dynamic syncers, beyond what RxRandomTest checks against its model: exact traces and levels,
// write order, the update-count rules spelled out, "no destination" and the destination looked up on
// every use, reinstantiation errors, sourceIs/sourceDel, notifications off, no allocation when tracing is
// off.
#include <stptxrx/Stp/StpRxStatusSyncer.h>
#include <stptxrx/runtime/Exception.h>

#include "support/AllocCounter.h"
#include "support/RecordingReactor.h"
#include "support/TraceCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace StpTxRx {
namespace {

using Zek::test::RecordingReactor;
using Lines = std::vector<std::pair<int, std::string>>;
using Ids = std::vector<Zek::AttributeId>;

const IntfId et1("Ethernet1");
const std::string kPort = "RxMstPortStatusToRxDynamicSyncer[G|Et1]::";
const std::string kGroup = "RxMstStatusToRxDynamicSyncer[G]::";

struct Capture : Zek::test::TraceCapture {
  Capture() : TraceCapture({"StpRxStatusSyncer/7-8"}) {}
  Lines leveled() const {
    Lines out;
    for (const auto& line : lines()) out.emplace_back(line.level, line.text);
    return out;
  }
};

class RxSyncerTest : public ::testing::Test {
 protected:
  void TearDown() override { Zek::notifyEqualWrites_ = false; }
  RxMstPortStatusToRxDynamicSyncer::Ptr portSyncer() {
    return rxMstPortStatusToRxDynamicSyncerFactory("G", et1, srcPort, dst);
  }

  RxStatus::Ptr src = RxStatus::RxStatusIs();
  RxStatus::Ptr dst = RxStatus::RxStatusIs();
  RxMstPortStatus::Ptr srcPort = src->rxMstStatusIs("G")->rxMstPortStatusIs(et1);
  RxMstPortStatus::Ptr dstPort = dst->rxMstStatusIs("G")->rxMstPortStatusIs(et1);
};

TEST_F(RxSyncerTest, RxUpdatePassesOneUpdateAndTheRecordPerCountChange) {
  auto syncer = portSyncer();
  Capture cap;
  srcPort->rxInfoIs(10)->mstiNIs(3)->remainingHopsIs(4);
  EXPECT_EQ(dstPort->rxInfo(10), nullptr) << "a record change alone passes nothing on";
  srcPort->rxUpdateInc(10, 1);
  ASSERT_NE(dstPort->rxInfo(10), nullptr);
  EXPECT_TRUE(dstPort->rxInfo(10)->sameContent(*srcPort->rxInfo(10)));
  srcPort->rxInfo(10)->mstiNDel(3);
  srcPort->rxUpdateIs(10, 5);  // a jump to 5 is one more update passed on, with the record
  EXPECT_EQ(dstPort->rxUpdate(10), 2u);
  EXPECT_EQ(dstPort->rxInfo(10)->mstiNCount(), 0u);
  // Count 0 with the record still there counts as absent: record deleted first, then the count.
  auto rec = RecordingReactor::RecordingReactorIs(dstPort);
  srcPort->rxUpdateIs(10, 0);
  EXPECT_EQ(rec->ids(), (Ids{RxMstPortStatus::idRxInfo, RxMstPortStatus::idRxUpdate}));
  EXPECT_EQ(dstPort->rxUpdate().size() + dstPort->rxInfo().size(), 0u);
  srcPort->rxUpdateInc(20, 1);  // a count without a record is absent too
  EXPECT_EQ(dstPort->rxUpdate().size(), 0u);
  EXPECT_EQ(cap.leveled(), (Lines{{8, kPort + "handleRxUpdate() creating/updating vlan=10"},
                                  {8, kPort + "handleRxUpdate() creating/updating vlan=10"},
                                  {8, kPort + "handleRxUpdate() deleting vlan=10"},
                                  {8, kPort + "handleRxUpdate() deleting vlan=20"}}));
}

TEST_F(RxSyncerTest, FirstCopyWritesTheSixScalarsInOrderOnceAndHandlersWriteWithoutComparing) {
  srcPort->bpduCountIs(4);
  srcPort->rxInfoIs(10);
  srcPort->rxUpdateInc(10, 1);
  Zek::notifyEqualWrites_ = true;
  auto rec = RecordingReactor::RecordingReactorIs(dstPort);
  Capture cap;
  auto syncer = portSyncer();
  EXPECT_EQ(rec->ids(), (Ids{264, 265, 266, 267, 261, 262})) << "no peer counters, no VLAN data";
  EXPECT_EQ(cap.leveled(), (Lines{{8, kPort + "handleInitialized() "}}));
  syncer->handleInitialized();
  srcPort->bpduCountIs(4);
  EXPECT_EQ(rec->ids(), (Ids{264, 265, 266, 267, 261, 262, 264})) << "one first copy; no compare";
}

TEST_F(RxSyncerTest, WithoutDestinationTracesAtLevel7AndLooksItUpAgainOnEveryUse) {
  dst->rxMstStatusDel("G");
  Capture cap;
  auto syncer = portSyncer();
  srcPort->rateLimitEnabledIs(true);
  srcPort->rxInfoIs(10);
  srcPort->rxUpdateInc(10, 1);
  EXPECT_EQ(cap.leveled(), (Lines{{8, kPort + "handleInitialized() "},
                                  {7, kPort + "handleInitialized() no destination"},
                                  {7, kPort + "handleRateLimitEnabled() no destination"},
                                  {7, kPort + "handleRxUpdate() no destination"}}));
  EXPECT_EQ(dst->rxMstStatus("G"), nullptr) << "nothing is created";
  // A port that appears later is filled by the next notification of each attribute only.
  RxMstPortStatus::Ptr late = dst->rxMstStatusIs("G")->rxMstPortStatusIs(et1);
  EXPECT_EQ(syncer->dest(), late);
  srcPort->bpduCountIs(3);
  EXPECT_EQ(late->bpduCount(), 3u);
  EXPECT_FALSE(late->rateLimitEnabled());
  // Deleted and created again: the next handler writes into the new port.
  dst->rxMstStatus("G")->rxMstPortStatusDel(et1);
  RxMstPortStatus::Ptr again = dst->rxMstStatus("G")->rxMstPortStatusIs(et1);
  srcPort->rxUpdateInc(10, 1);
  EXPECT_EQ(again->rxUpdate(10), 1u);
  EXPECT_EQ(late->rxUpdate(10), 0u);
}

TEST_F(RxSyncerTest, PortPropagationAllocatesNothingAndSourceDelStopsIt) {
  auto syncer = portSyncer();
  srcPort->rxInfoIs(10)->mstiNIs(2);
  srcPort->rxUpdateInc(10, 1);  // creates the destination record and entry once
  srcPort->bpduCountIs(1);      // registers the binary trace call sites once
  Zek::test::AllocScope scope;
  for (std::uint32_t i = 2; i < 50; ++i) {
    srcPort->bpduCountIs(i);
    srcPort->rxUpdateInc(10, 1);
  }
  EXPECT_EQ(scope.count(), 0u);
  EXPECT_EQ(syncer->sourceDel(), srcPort);
  EXPECT_EQ(syncer->sourceDel(), nullptr);
  srcPort->bpduCountIs(60);
  syncer->handleBpduCount();  // no source: writes nothing
  EXPECT_EQ(dstPort->bpduCount(), 49u);
  EXPECT_TRUE(srcPort->notifieeList()->empty());
}

TEST_F(RxSyncerTest, GroupScanIsTracedAndChildrenComeWithoutADestination) {
  RxMstStatus::Ptr srcG = src->rxMstStatus("G");
  Capture cap;
  auto group = rxMstStatusToRxDynamicSyncerFactory("G", srcG, dst);
  srcG->rxMstPortStatusIs(IntfId("Ethernet2"));
  srcG->rxMstPortStatusDel(et1);
  EXPECT_EQ(cap.leveled(), (Lines{{8, kGroup + "handleInitialized() "},
                                  {8, kGroup + "handleMstPortStatus() scanning list"},
                                  {8, kGroup + "handleMstPortStatus() creating intf=Ethernet1"},
                                  {8, kPort + "handleInitialized() "},
                                  {8, kGroup + "handleMstPortStatus() creating intf=Ethernet2"},
                                  {8, "RxMstPortStatusToRxDynamicSyncer[G|Et2]::handleInitialized() "},
                                  {7, "RxMstPortStatusToRxDynamicSyncer[G|Et2]::handleInitialized() no destination"},
                                  {8, kGroup + "handleMstPortStatus() deleting intf=Ethernet1"}}));
  EXPECT_EQ(dst->rxMstStatus("G")->rxMstPortStatus(et1), dstPort) << "the destination port stays";
}

TEST_F(RxSyncerTest, RecreatingAChildFromOtherValuesRaisesNamingTheAttribute) {
  auto group = rxMstStatusToRxDynamicSyncerFactory("G", src->rxMstStatus("G"), dst);
  auto child = group->mstDynPortSm(et1);
  EXPECT_EQ(group->mstDynPortSmIs("G", et1, srcPort, dst).get(), child);
  auto expectRaise = [](auto&& call, const char* attribute) {
    try {
      call();
      ADD_FAILURE() << "no exception for " << attribute;
    } catch (const Zek::MutatorReinstantiatingException& e) {
      EXPECT_THAT(e.what(), ::testing::HasSubstr(std::string("::") + attribute + ":")) << e.what();
    }
  };
  auto other = RxStatus::RxStatusIs();
  expectRaise([&] { group->mstDynPortSmIs("H", et1, srcPort, dst); }, "mstName");
  auto otherPort = other->rxMstStatusIs("G")->rxMstPortStatusIs(et1);
  expectRaise([&] { group->mstDynPortSmIs("G", et1, otherPort, dst); }, "source");
  expectRaise([&] { group->mstDynPortSmIs("G", et1, srcPort, other); }, "rxStatus");
  EXPECT_EQ(group->mstDynPortSm(et1), child) << "nothing changed";
  auto top = rxStatusToRxDynamicSyncerFactory(src, dst);
  expectRaise([&] { top->mstDynSyncerSmIs("G", other->rxMstStatus("G"), dst); }, "source");
}

TEST_F(RxSyncerTest, StatusCopiesScalarsInOrderAndFollowsSourceIsSourceDelAndNotificationsOff) {
  src->updateCtrIs(77);
  src->peerUpdateCtrTimeIs(5.5);
  Zek::notifyEqualWrites_ = true;
  auto rec = RecordingReactor::RecordingReactorIs(dst);
  auto syncer = rxStatusToRxDynamicSyncerFactory(nullptr, dst);  // no source: 0 written
  EXPECT_EQ(rec->ids(), (Ids{259, 260, 262, 263, 264})) << "no update counter";
  syncer->sourceIs(src);
  EXPECT_EQ(dst->peerUpdateCtrTime(), 5.5);
  // Another source: copied and scanned; children of groups only the former source had stay.
  RxStatus::Ptr other = RxStatus::RxStatusIs();
  other->rxMstStatusIs("K");
  syncer->sourceIs(other);
  EXPECT_EQ(dst->peerUpdateCtrTime(), 0.0);
  EXPECT_EQ(syncer->mstDynSyncerSmCount(), 2u);
  src->peerUpdateCtrTimeIs(1.5);
  EXPECT_EQ(dst->peerUpdateCtrTime(), 0.0) << "the former source is no longer watched";
  RxStatus::Ptr clash = RxStatus::RxStatusIs();
  clash->rxMstStatusIs("K");
  EXPECT_THROW(syncer->sourceIs(clash), Zek::MutatorReinstantiatingException);
  // Notifications off at the top reach the port level.
  syncer->sourceIs(src);
  syncer->hasNotificationActiveIs(false);
  srcPort->bpduCountIs(4);
  syncer->hasNotificationActiveIs(true);
  EXPECT_EQ(dstPort->bpduCount(), 0u);
  srcPort->bpduCountIs(5);
  EXPECT_EQ(dstPort->bpduCount(), 5u);
  // sourceDel runs an empty scan and keeps the children; a second one does nothing.
  Capture cap;
  EXPECT_EQ(syncer->sourceDel(), src);
  EXPECT_EQ(syncer->sourceDel(), nullptr);
  EXPECT_EQ(cap.texts(), (std::vector<std::string>{"RxStatusToRxDynamicSyncer::handleMstStatus() scanning list"}));
  EXPECT_EQ(syncer->mstDynSyncerSmCount(), 2u);
  EXPECT_TRUE(rxStatusToRxDynamicSyncerFactory(RxStatus::RxStatusIs(), nullptr)->initialized());
}

}  // namespace
}  // namespace StpTxRx
