// The receive dynamic syncers: per port (values, received records and update counts, "no destination",
// the destination looked up on every use), per group and for the whole status (children added by scans
// and notifications, removed only by notifications; reinstantiation errors; sourceIs and sourceDel).
#include <stptxrx/Stp/StpRxStatusSyncer.h>
#include <stptxrx/Stp/TxStatusToRxSyncer.h>
#include <stptxrx/runtime/Exception.h>

#include "support/AllocCounter.h"
#include "support/LiveCounts.h"
#include "support/RecordingReactor.h"
#include "support/TraceCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace StpTxRx {
namespace {

using ::testing::HasSubstr;
using Zek::test::RecordingReactor;
using Zek::test::TraceCapture;
using Lines = std::vector<std::pair<int, std::string>>;

const IntfId et1("Ethernet1");
const IntfId et2("Ethernet2");
const char* const kTrace = "StpRxStatusSyncer/7-8";

Lines leveled(const TraceCapture& cap) {
  Lines out;
  for (const auto& line : cap.lines()) out.emplace_back(line.level, line.text);
  return out;
}

/// A record with a distinct configuration and entries `keys`, each carrying `seed`-derived values.
void fill(IntxInfo& info, unsigned seed, std::initializer_list<std::uint16_t> keys) {
  info.configRevisionLevelIs(static_cast<unsigned short>(seed));
  info.configNameStringIs("region" + std::to_string(seed));
  for (std::uint16_t k : keys) {
    auto e = info.mstiNIs(k);
    e->flagsIs(RstpBpduFlags{static_cast<std::uint8_t>(seed + k)});
    e->remainingHopsIs(static_cast<unsigned char>(k + 1));
  }
}

class RxSyncerTest : public ::testing::Test {
 protected:
  /// Source and destination both hold group G with port Ethernet1.
  void SetUp() override {
    src = RxStatus::RxStatusIs();
    srcPort = src->rxMstStatusIs("G")->rxMstPortStatusIs(et1);
    dst = RxStatus::RxStatusIs();
    dstPort = dst->rxMstStatusIs("G")->rxMstPortStatusIs(et1);
  }
  void TearDown() override { Zek::notifyEqualWrites_ = false; }

  RxMstPortStatusToRxDynamicSyncer::Ptr portSyncer() {
    return rxMstPortStatusToRxDynamicSyncerFactory("G", et1, srcPort, dst);
  }

  Zek::test::LiveCounts before;
  RxStatus::Ptr src;
  RxMstPortStatus::Ptr srcPort;
  RxStatus::Ptr dst;
  RxMstPortStatus::Ptr dstPort;
};

// ---------------------------------------------------------------------------------------------------
// Per port
// ---------------------------------------------------------------------------------------------------

TEST_F(RxSyncerTest, PortRxUpdateCopiesTheRecordAndCountsOnePerUpdatePassedOn) {
  auto syncer = portSyncer();
  TraceCapture cap({kTrace});
  fill(*srcPort->rxInfoIs(10), 1, {0, 3});
  EXPECT_EQ(dstPort->rxInfo(10), nullptr) << "a record change alone passes nothing on";

  srcPort->rxUpdateInc(10, 1);
  ASSERT_NE(dstPort->rxInfo(10), nullptr);
  EXPECT_TRUE(dstPort->rxInfo(10)->sameContent(*srcPort->rxInfo(10)));
  EXPECT_EQ(dstPort->rxUpdate(10), 1u);
  EXPECT_EQ(leveled(cap), (Lines{{8, "RxMstPortStatusToRxDynamicSyncer[G|Et1]::handleRxUpdate() creating/updating vlan=10"}}));

  // The source count jumps to 5: one more update passed on, whatever the jump.
  fill(*srcPort->rxInfoIs(10), 2, {0});
  srcPort->rxInfo(10)->mstiNDel(3);
  srcPort->rxUpdateIs(10, 5);
  EXPECT_EQ(dstPort->rxUpdate(10), 2u);
  EXPECT_TRUE(dstPort->rxInfo(10)->sameContent(*srcPort->rxInfo(10)));
  EXPECT_EQ(dstPort->rxInfo(10)->mstiNCount(), 1u);

  // A record change without a count change leaves the destination alone.
  auto rec = RecordingReactor::RecordingReactorIs(dstPort);
  srcPort->rxInfo(10)->configRevisionLevelIs(99);
  EXPECT_EQ(dstPort->rxInfo(10)->configRevisionLevel(), 2u);
  EXPECT_EQ(rec->count(), 0u);

  // Count 0 with the record still there counts as absent: record first, then count.
  cap.clear();
  srcPort->rxUpdateIs(10, 0);
  EXPECT_NE(srcPort->rxInfo(10), nullptr);
  EXPECT_EQ(dstPort->rxInfo(10), nullptr);
  EXPECT_EQ(dstPort->rxUpdate().size(), 0u);
  EXPECT_EQ(rec->ids(), (std::vector<Zek::AttributeId>{RxMstPortStatus::idRxInfo, RxMstPortStatus::idRxUpdate}));
  EXPECT_EQ(leveled(cap), (Lines{{8, "RxMstPortStatusToRxDynamicSyncer[G|Et1]::handleRxUpdate() deleting vlan=10"}}));

  // A count without a record is absent too.
  srcPort->rxUpdateInc(20, 1);
  EXPECT_EQ(dstPort->rxInfo(20), nullptr);
  EXPECT_EQ(dstPort->rxUpdate(20), 0u);
}

TEST_F(RxSyncerTest, PortScalarsAreCopiedAsTheyStandWithEntryTraces) {
  auto syncer = portSyncer();
  TraceCapture cap({kTrace});
  srcPort->bpduCountIs(3);
  srcPort->bpduCountIs(2);
  EXPECT_EQ(dstPort->bpduCount(), 2u);
  srcPort->rateLimitIntervalIs(2.5);
  srcPort->rateLimitMaxCountIs(7);
  srcPort->rateLimitEnabledIs(true);
  srcPort->countersIs(PortCounters{1, 2, 3, 4});
  srcPort->localCountersIs(PortCounters{5, 6, 7, 8});
  srcPort->peerCountersIs(PortCounters{9, 9, 9, 9});
  EXPECT_EQ(dstPort->rateLimitInterval(), 2.5);
  EXPECT_EQ(dstPort->rateLimitMaxCount(), 7u);
  EXPECT_TRUE(dstPort->rateLimitEnabled());
  EXPECT_EQ(dstPort->counters(), (PortCounters{1, 2, 3, 4}));
  EXPECT_EQ(dstPort->localCounters(), (PortCounters{5, 6, 7, 8}));
  EXPECT_EQ(dstPort->peerCounters(), PortCounters{}) << "the peer counters are not copied";
  const std::string p = "RxMstPortStatusToRxDynamicSyncer[G|Et1]::";
  EXPECT_EQ(leveled(cap), (Lines{{8, p + "handleBpduCount() "},
                                 {8, p + "handleBpduCount() "},
                                 {8, p + "handleRateLimitInterval() "},
                                 {8, p + "handleRateLimitMaxCount() "},
                                 {8, p + "handleRateLimitEnabled() "},
                                 {8, p + "handleCounters() "},
                                 {8, p + "handleLocalCounters() "}}));

  // No handler compares before it writes: with equal writes announced, an equal value is written again.
  Zek::notifyEqualWrites_ = true;
  auto rec = RecordingReactor::RecordingReactorIs(dstPort);
  srcPort->bpduCountIs(2);
  EXPECT_EQ(rec->ids(), (std::vector<Zek::AttributeId>{RxMstPortStatus::idBpduCount}));
}

TEST_F(RxSyncerTest, PortFirstCopyWritesTheSixScalarsInOrderAndNoVlanData) {
  srcPort->bpduCountIs(4);
  srcPort->rateLimitMaxCountIs(3);
  srcPort->localCountersIs(PortCounters{1, 0, 0, 0});
  fill(*srcPort->rxInfoIs(10), 1, {0});
  srcPort->rxUpdateInc(10, 1);
  Zek::notifyEqualWrites_ = true;
  auto rec = RecordingReactor::RecordingReactorIs(dstPort);
  TraceCapture cap({kTrace});

  auto syncer = portSyncer();
  EXPECT_TRUE(syncer->initialized());
  EXPECT_EQ(rec->ids(), (std::vector<Zek::AttributeId>{264, 265, 266, 267, 261, 262}));
  EXPECT_EQ(dstPort->bpduCount(), 4u);
  EXPECT_EQ(dstPort->rateLimitMaxCount(), 3u);
  EXPECT_EQ(dstPort->localCounters(), (PortCounters{1, 0, 0, 0}));
  EXPECT_EQ(dstPort->rxInfo().size(), 0u);
  EXPECT_EQ(dstPort->rxUpdate(10), 0u);
  EXPECT_EQ(leveled(cap), (Lines{{8, "RxMstPortStatusToRxDynamicSyncer[G|Et1]::handleInitialized() "}}));

  rec->clear();
  syncer->handleInitialized();
  EXPECT_EQ(rec->count(), 0u) << "the first copy runs once";
}

TEST_F(RxSyncerTest, PortWithoutDestinationTracesAtLevel7AndIsLookedUpAgainOnEveryUse) {
  dst->rxMstStatusDel("G");
  TraceCapture cap({kTrace});
  auto syncer = portSyncer();
  EXPECT_TRUE(syncer->initialized());
  const std::string p = "RxMstPortStatusToRxDynamicSyncer[G|Et1]::";
  EXPECT_EQ(leveled(cap), (Lines{{8, p + "handleInitialized() "}, {7, p + "handleInitialized() no destination"}}));

  cap.clear();
  srcPort->bpduCountIs(1);
  srcPort->rateLimitIntervalIs(1.0);
  srcPort->rateLimitMaxCountIs(1);
  srcPort->rateLimitEnabledIs(true);
  srcPort->countersIs(PortCounters{1, 0, 0, 0});
  srcPort->localCountersIs(PortCounters{1, 0, 0, 0});
  fill(*srcPort->rxInfoIs(10), 1, {0});
  srcPort->rxUpdateInc(10, 1);
  EXPECT_EQ(leveled(cap), (Lines{{7, p + "handleBpduCount() no destination"},
                                 {7, p + "handleRateLimitInterval() no destination"},
                                 {7, p + "handleRateLimitMaxCount() no destination"},
                                 {7, p + "handleRateLimitEnabled() no destination"},
                                 {7, p + "handleCounters() no destination"},
                                 {7, p + "handleLocalCounters() no destination"},
                                 {7, p + "handleRxUpdate() no destination"}}));
  EXPECT_EQ(dst->rxMstStatus("G"), nullptr) << "nothing is created";

  // The group alone is not enough.
  RxMstStatus::Ptr g = dst->rxMstStatusIs("G");
  cap.clear();
  srcPort->bpduCountIs(2);
  EXPECT_EQ(cap.texts(7), (std::vector<std::string>{p + "handleBpduCount() no destination"}));
  EXPECT_EQ(g->rxMstPortStatus().size(), 0u);

  // A port that appears later is filled by the next notification of each attribute only.
  RxMstPortStatus::Ptr late = g->rxMstPortStatusIs(et1);
  srcPort->bpduCountIs(3);
  EXPECT_EQ(late->bpduCount(), 3u);
  EXPECT_EQ(late->rateLimitMaxCount(), 0u);

  // Deleted and created again: the next handler writes into the new port.
  g->rxMstPortStatusDel(et1);
  RxMstPortStatus::Ptr again = g->rxMstPortStatusIs(et1);
  srcPort->rxUpdateInc(10, 1);
  EXPECT_EQ(again->rxUpdate(10), 1u);
  EXPECT_EQ(late->rxUpdate(10), 0u);
}

TEST_F(RxSyncerTest, PortSourceDelStopsCopyingAndHandlersWithoutSourceWriteNothing) {
  auto syncer = portSyncer();
  srcPort->bpduCountIs(5);
  EXPECT_EQ(syncer->sourceDel(), srcPort);
  EXPECT_EQ(syncer->sourceDel(), nullptr);
  srcPort->bpduCountIs(6);
  fill(*srcPort->rxInfoIs(10), 1, {0});
  srcPort->rxUpdateInc(10, 1);
  syncer->handleBpduCount();
  syncer->handleRxUpdate(10);
  EXPECT_EQ(dstPort->bpduCount(), 5u);
  EXPECT_EQ(dstPort->rxInfo().size(), 0u);
  EXPECT_TRUE(srcPort->notifieeList()->empty());
}

TEST_F(RxSyncerTest, PortPropagationAllocatesNothingWithTracingOff) {
  auto syncer = portSyncer();
  fill(*srcPort->rxInfoIs(10), 1, {0, 1, 2});
  srcPort->rxUpdateInc(10, 1);  // creates the destination record and entries once
  srcPort->bpduCountIs(1);      // registers the binary trace call sites once
  Zek::test::AllocScope scope;
  for (std::uint32_t i = 2; i < 50; ++i) {
    srcPort->bpduCountIs(i);
    srcPort->rxUpdateInc(10, 1);
  }
  EXPECT_EQ(scope.count(), 0u);
  EXPECT_EQ(dstPort->bpduCount(), 49u);
  EXPECT_EQ(dstPort->rxUpdate(10), 49u);
}

// ---------------------------------------------------------------------------------------------------
// Per group
// ---------------------------------------------------------------------------------------------------

TEST_F(RxSyncerTest, GroupFollowsPortsAddedAndRemovedWithoutTouchingTheDestinationPort) {
  RxMstStatus::Ptr srcG = src->rxMstStatus("G");
  TraceCapture cap({kTrace});
  auto syncer = rxMstStatusToRxDynamicSyncerFactory("G", srcG, dst);
  EXPECT_EQ(leveled(cap), (Lines{{8, "RxMstStatusToRxDynamicSyncer[G]::handleInitialized() "},
                                 {8, "RxMstStatusToRxDynamicSyncer[G]::handleMstPortStatus() scanning list"},
                                 {8, "RxMstStatusToRxDynamicSyncer[G]::handleMstPortStatus() creating intf=Ethernet1"},
                                 {8, "RxMstPortStatusToRxDynamicSyncer[G|Et1]::handleInitialized() "}}));

  // A port without a destination still gets its child, which reports "no destination".
  cap.clear();
  RxMstPortStatus::Ptr p2 = srcG->rxMstPortStatusIs(et2);
  ASSERT_NE(syncer->mstDynPortSm(et2), nullptr);
  EXPECT_EQ(syncer->mstDynPortSm(et2)->source(), p2);
  EXPECT_EQ(leveled(cap), (Lines{{8, "RxMstStatusToRxDynamicSyncer[G]::handleMstPortStatus() creating intf=Ethernet2"},
                                 {8, "RxMstPortStatusToRxDynamicSyncer[G|Et2]::handleInitialized() "},
                                 {7, "RxMstPortStatusToRxDynamicSyncer[G|Et2]::handleInitialized() no destination"}}));

  srcPort->bpduCountIs(8);
  cap.clear();
  srcG->rxMstPortStatusDel(et1);
  EXPECT_EQ(syncer->mstDynPortSm(et1), nullptr);
  EXPECT_EQ(dst->rxMstStatus("G")->rxMstPortStatus(et1), dstPort) << "the destination port stays";
  EXPECT_EQ(dstPort->bpduCount(), 8u);
  EXPECT_EQ(cap.texts(), (std::vector<std::string>{
                             "RxMstStatusToRxDynamicSyncer[G]::handleMstPortStatus() deleting intf=Ethernet1"}));
  srcPort->bpduCountIs(9);
  EXPECT_EQ(dstPort->bpduCount(), 8u) << "the removed child copies nothing more";

  syncer->mstDynPortSmDelAll();
  EXPECT_EQ(syncer->mstDynPortSmCount(), 0u);
  EXPECT_EQ(syncer->sourceDel(), srcG);
  srcG->rxMstPortStatusIs(et1);
  EXPECT_EQ(syncer->mstDynPortSmCount(), 0u);
}

TEST_F(RxSyncerTest, RecreatingAChildFromOtherValuesRaisesNamingTheAttribute) {
  auto group = rxMstStatusToRxDynamicSyncerFactory("G", src->rxMstStatus("G"), dst);
  auto child = group->mstDynPortSm(et1);
  ASSERT_NE(child, nullptr);
  EXPECT_EQ(group->mstDynPortSmIs("G", et1, srcPort, dst).get(), child);

  auto expectRaise = [](auto&& call, const char* attribute) {
    try {
      call();
      ADD_FAILURE() << "no exception for " << attribute;
    } catch (const Zek::MutatorReinstantiatingException& e) {
      EXPECT_THAT(e.what(), HasSubstr(std::string("::") + attribute + ":")) << e.what();
    }
  };
  auto otherPort = RxStatus::RxStatusIs()->rxMstStatusIs("G")->rxMstPortStatusIs(et1);
  expectRaise([&] { group->mstDynPortSmIs("H", et1, srcPort, dst); }, "mstName");
  expectRaise([&] { group->mstDynPortSmIs("G", et1, otherPort, dst); }, "source");
  expectRaise([&] { group->mstDynPortSmIs("G", et1, srcPort, RxStatus::RxStatusIs()); }, "rxStatus");
  EXPECT_EQ(group->mstDynPortSm(et1), child) << "nothing changed";

  auto top = rxStatusToRxDynamicSyncerFactory(src, dst);
  expectRaise([&] { top->mstDynSyncerSmIs("G", RxStatus::RxStatusIs()->rxMstStatusIs("G"), dst); }, "source");
  expectRaise([&] { top->mstDynSyncerSmIs("G", src->rxMstStatus("G"), RxStatus::RxStatusIs()); }, "rxStatus");
}

// ---------------------------------------------------------------------------------------------------
// Whole status
// ---------------------------------------------------------------------------------------------------

TEST_F(RxSyncerTest, StatusScalarsAreCopiedInOrderAndAsTheyStand) {
  src->localHeartbeatIs(1);
  src->peerHeartbeatIs(5);
  src->updateCtrIs(77);
  src->updateCtrTimeIs(3.5);
  src->localUpdateCtrTimeIs(4.5);
  src->peerUpdateCtrTimeIs(5.5);
  Zek::notifyEqualWrites_ = true;
  auto rec = RecordingReactor::RecordingReactorIs(dst);
  auto syncer = rxStatusToRxDynamicSyncerFactory(src, dst);
  EXPECT_EQ(rec->ids(), (std::vector<Zek::AttributeId>{259, 260, 262, 263, 264}));
  EXPECT_EQ(dst->updateCtr(), 0u) << "the update counter is not copied";
  EXPECT_EQ(dst->peerUpdateCtrTime(), 5.5);

  src->peerHeartbeatIs(7);
  EXPECT_EQ(dst->peerHeartbeat(), 7u) << "a copy, not a sum";
  src->localUpdateCtrTimeIs(1.25);
  EXPECT_EQ(dst->localUpdateCtrTime(), 1.25);
  src->updateCtrIs(78);
  EXPECT_EQ(dst->updateCtr(), 0u);

  // No source: the scalars are written as 0. No destination: skipped.
  auto empty = rxStatusToRxDynamicSyncerFactory(nullptr, dst);
  EXPECT_EQ(dst->peerHeartbeat(), 0u);
  EXPECT_EQ(dst->updateCtrTime(), 0.0);
  EXPECT_EQ(empty->mstDynSyncerSmCount(), 0u);
  auto blind = rxStatusToRxDynamicSyncerFactory(RxStatus::RxStatusIs(), nullptr);
  EXPECT_TRUE(blind->initialized());
}

TEST_F(RxSyncerTest, StatusChildrenComeWithGroupsAndGoOnlyOnNotification) {
  TraceCapture cap({kTrace});
  auto syncer = rxStatusToRxDynamicSyncerFactory(src, dst);
  const Lines all = leveled(cap);
  ASSERT_GE(all.size(), 4u);
  EXPECT_EQ(Lines(all.begin(), all.begin() + 3),
            (Lines{{8, "RxStatusToRxDynamicSyncer::handleInitialized() "},
                   {8, "RxStatusToRxDynamicSyncer::handleMstStatus() scanning list"},
                   {8, "RxStatusToRxDynamicSyncer::handleMstStatus() creating G"}}));
  EXPECT_EQ(cap.lines()[3].text, "RxMstStatusToRxDynamicSyncer[G]::handleInitialized() ");

  cap.clear();
  RxMstStatus::Ptr h = src->rxMstStatusIs("H");
  EXPECT_EQ(cap.texts()[0], "RxStatusToRxDynamicSyncer::handleMstStatus() creating H");
  ASSERT_NE(syncer->mstDynSyncerSm("H"), nullptr);
  EXPECT_EQ(syncer->mstDynSyncerSm("H")->source(), h);

  srcPort->bpduCountIs(3);
  cap.clear();
  src->rxMstStatusDel("G");
  EXPECT_EQ(cap.texts(), (std::vector<std::string>{"RxStatusToRxDynamicSyncer::handleMstStatus() deleting G"}));
  EXPECT_EQ(syncer->mstDynSyncerSm("G"), nullptr);
  EXPECT_EQ(dst->rxMstStatus("G")->rxMstPortStatus(et1)->bpduCount(), 3u) << "copied data stays";

  // Notifications switched off at the top reach the port level; on again resumes.
  RxMstPortStatus::Ptr hp = h->rxMstPortStatusIs(et2);
  RxMstPortStatus::Ptr dstHp = dst->rxMstStatusIs("H")->rxMstPortStatusIs(et2);
  syncer->hasNotificationActiveIs(false);
  hp->bpduCountIs(4);
  src->peerHeartbeatIs(4);
  EXPECT_EQ(dstHp->bpduCount(), 0u);
  EXPECT_EQ(dst->peerHeartbeat(), 0u);
  syncer->hasNotificationActiveIs(true);
  hp->bpduCountIs(5);
  EXPECT_EQ(dstHp->bpduCount(), 5u);
}

TEST_F(RxSyncerTest, SourceIsRescansKeepingChildrenAndSourceDelRunsAnEmptyScan) {
  auto syncer = rxStatusToRxDynamicSyncerFactory(src, dst);
  TraceCapture cap({kTrace});
  syncer->sourceIs(src);
  EXPECT_TRUE(cap.lines().empty()) << "the same source: nothing";

  RxStatus::Ptr other = RxStatus::RxStatusIs();
  other->peerHeartbeatIs(9);
  RxMstStatus::Ptr k = other->rxMstStatusIs("K");
  syncer->sourceIs(other);
  EXPECT_EQ(dst->peerHeartbeat(), 9u);
  EXPECT_NE(syncer->mstDynSyncerSm("G"), nullptr) << "a group only the former source had keeps its child";
  ASSERT_NE(syncer->mstDynSyncerSm("K"), nullptr);
  EXPECT_EQ(cap.texts()[0], "RxStatusToRxDynamicSyncer::handleMstStatus() scanning list");
  src->peerHeartbeatIs(1);
  EXPECT_EQ(dst->peerHeartbeat(), 9u) << "the former source is no longer watched";

  // A group of the same name held by another object: the scan's check raises.
  RxStatus::Ptr clash = RxStatus::RxStatusIs();
  clash->rxMstStatusIs("K");
  EXPECT_THROW(syncer->sourceIs(clash), Zek::MutatorReinstantiatingException);

  cap.clear();
  EXPECT_EQ(syncer->sourceDel(), clash);
  EXPECT_EQ(cap.texts(), (std::vector<std::string>{"RxStatusToRxDynamicSyncer::handleMstStatus() scanning list"}));
  EXPECT_EQ(syncer->mstDynSyncerSmCount(), 2u) << "children stay";
  cap.clear();
  EXPECT_EQ(syncer->sourceDel(), nullptr);
  EXPECT_TRUE(cap.lines().empty());

  // From no reactor at all: sourceIs builds one, copies and scans.
  auto late = rxStatusToRxDynamicSyncerFactory(nullptr, dst);
  late->sourceIs(other);
  EXPECT_EQ(late->source(), other);
  EXPECT_EQ(dst->peerHeartbeat(), 9u);
  ASSERT_NE(late->mstDynSyncerSm("K"), nullptr);
  other->localHeartbeatIs(3);
  EXPECT_EQ(dst->localHeartbeat(), 3u);
}

TEST_F(RxSyncerTest, WithTheShapeSyncerPortsRecreatedOnTheTransmitSideAreUsedByTheNextUpdate) {
  TxStatus::Ptr tx = TxStatus::TxStatusIs();
  TxMstStatus::Ptr txG = tx->txMstStatusIs("G");
  txG->txMstPortStatusIs(et1);
  RxStatus::Ptr dyn = RxStatus::RxStatusIs();
  {
    auto shape = txStatusToRxSyncerFactory(tx, dyn);
    auto values = rxStatusToRxDynamicSyncerFactory(src, dyn);
    fill(*srcPort->rxInfoIs(10), 1, {0});
    srcPort->rxUpdateInc(10, 1);
    EXPECT_EQ(dyn->rxMstStatus("G")->rxMstPortStatus(et1)->rxUpdate(10), 1u);

    txG->txMstPortStatusDel(et1);
    srcPort->rxUpdateInc(10, 1);  // no destination now
    txG->txMstPortStatusIs(et1);
    RxMstPortStatus::Ptr fresh = dyn->rxMstStatus("G")->rxMstPortStatus(et1);
    EXPECT_EQ(fresh->rxUpdate(10), 0u);
    srcPort->rxUpdateInc(10, 1);
    EXPECT_EQ(fresh->rxUpdate(10), 1u);
    EXPECT_TRUE(fresh->rxInfo(10)->sameContent(*srcPort->rxInfo(10)));
  }
  EXPECT_EQ(dyn->rxMstStatus("G")->rxMstPortStatus(et1)->rxUpdate(10), 1u) << "destruction leaves the destination";
  EXPECT_TRUE(src->notifieeList()->empty());
  EXPECT_TRUE(srcPort->notifieeList()->empty());
  tx = nullptr;
  txG = nullptr;
  dyn = nullptr;
  src = nullptr;
  srcPort = nullptr;
  dst = nullptr;
  dstPort = nullptr;
  EXPECT_TRUE(before.unchanged());
}

}  // namespace
}  // namespace StpTxRx
