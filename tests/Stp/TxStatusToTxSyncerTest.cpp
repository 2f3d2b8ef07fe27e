// The transmit status syncer: full copy, incremental groups, ports, records and counters, the order in
// which destination members and reactors appear, the zombie gate, lifecycle and teardown.
#include <gtest/gtest.h>
#include <stptxrx/Stp/StpTxStatusSyncer.h>
#include <stptxrx/runtime/Entity.h>
#include <stptxrx/runtime/Exception.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "support/AllocCounter.h"
#include "support/LiveCounts.h"
#include "support/RecordingReactor.h"
#include "support/TraceCapture.h"
#include "support/TxTreeBuilder.h"

namespace StpTxRx {
namespace {

using test::mirrorDiff;
using test::portIs;
using test::recordIs;
using Zek::test::LiveCounts;
using Zek::test::RecordingReactor;
using Zek::test::TraceCapture;
using GroupSm = TxStatusToTxSyncer::ZekTxMstStatusSm;
using PortSm = TxStatusToTxSyncer::ZekTxMstStatusSm::ZekTxMstPortStatusSm;

/// Turns Zek::notifyEqualWrites_ on for a scope, so that every write of the syncer is seen.
class EqualWrites {
 public:
  EqualWrites() : saved_(Zek::notifyEqualWrites_) { Zek::notifyEqualWrites_ = true; }
  ~EqualWrites() { Zek::notifyEqualWrites_ = saved_; }
  EqualWrites(const EqualWrites&) = delete;
  EqualWrites& operator=(const EqualWrites&) = delete;

 private:
  bool saved_;
};

/// The syncer's own trace lines (the record syncers' lines left out).
std::vector<std::string> txToTxLines(const TraceCapture& cap) {
  std::vector<std::string> out;
  for (const std::string& t : cap.texts(8)) {
    if (t.rfind("TxToTx", 0) == 0) out.push_back(t);
  }
  return out;
}

class TxToTxTest : public ::testing::Test {
 protected:
  void TearDown() override {
    syncer = nullptr;
    src = nullptr;
    dst = nullptr;
    EXPECT_TRUE(before.unchanged()) << "every syncer, reactor and entity of the test is gone";
  }

  TxStatusToTxSyncer::Ptr make() { return syncer = txStatusToTxSyncerFactory(src, dst); }
  PortSm* portSm(const char* group, const char* intf) const {
    GroupSm* g = syncer->zekTxMstStatusSm(Zek::Name(group));
    return g ? g->zekTxMstPortStatus(IntfId(intf)) : nullptr;
  }
  Zek::Ptr<TxMstPortStatus> dstPort(const char* group, const char* intf) const {
    Zek::Ptr<TxMstStatus> g = dst->txMstStatus(Zek::Name(group));
    return g ? g->txMstPortStatus(IntfId(intf)) : nullptr;
  }

  LiveCounts before;  // first member: taken before anything of the test exists
  Zek::Ptr<TxStatus> src = TxStatus::TxStatusIs();
  Zek::Ptr<TxStatus> dst = TxStatus::TxStatusIs();
  TxStatusToTxSyncer::Ptr syncer;
};

// ---------------------------------------------------------------------------------------------------------
// Full copy at construction

TEST_F(TxToTxTest, ConstructionCopiesTheWholeTreeInTheSpecifiedOrder) {
  recordIs(*src, "g1", "Ethernet1", 10, {0, 3}, 5);
  portIs(*src, "g1", "Ethernet1")->txUpdateIs(10, 3);
  portIs(*src, "g1", "Ethernet1")->txNewInfoIs(4);
  portIs(*src, "g1", "Ethernet1")->txHelloWhenOnIs(TimerVal(1, 2));
  src->heartbeatTimeoutIs(3.5);

  TraceCapture cap({"StpTxStatusSyncer/8"});
  make();

  EXPECT_EQ(mirrorDiff(*src, *dst), "");
  // The port's own copies run before its group creates the destination port; only the top-level pass,
  // which re-runs the group's full copy, finds the port and fills it.
  EXPECT_EQ(txToTxLines(cap), (std::vector<std::string>{
                                  "TxToTx::ZekTxMstPortStatusSm[g1|Et1]::handleInitialized() ",
                                  "TxToTx::ZekTxMstStatusSm[g1]::handleInitialized() ",
                                  "TxToTx::ZekTxMstPortStatusSm[g1|Et1]::handleInitialized() ",
                                  "TxToTx::ZekTxMstStatusSm[g1]::handleTxMstPortStatus() setting txMstPortStatus for "
                                  "Ethernet1",
                                  "TxToTx::handleInitialized() ",
                                  "TxToTx::ZekTxMstStatusSm[g1]::handleInitialized() ",
                                  "TxToTx::ZekTxMstPortStatusSm[g1|Et1]::handleInitialized() ",
                                  "TxToTx::ZekTxMstPortStatusSm[g1|Et1]::handleTxInfo() setting vlan=10",
                                  "TxToTx::ZekTxMstPortStatusSm[g1|Et1]::handleTxUpdate() setting vlan=10",
                                  "TxToTx::ZekTxMstStatusSm[g1]::handleTxMstPortStatus() setting txMstPortStatus for "
                                  "Ethernet1",
                                  "TxToTx::handleTxMstStatus() creating g1",
                              }));
  // Every record names the handle, level, module and the method that the text names.
  for (const auto& line : cap.lines()) {
    if (line.text.rfind("TxToTx", 0) != 0) continue;
    EXPECT_EQ(line.handle, "StpTxStatusSyncer");
    EXPECT_EQ(line.level, 8);
    EXPECT_EQ(line.file, "Stp/StpTxStatusSyncer");
    EXPECT_NE(line.text.find("::" + line.function + "() "), std::string::npos) << line.text;
  }
  EXPECT_TRUE(syncer->initialized());
  GroupSm* g = syncer->zekTxMstStatusSm("g1");
  ASSERT_NE(g, nullptr);
  EXPECT_TRUE(g->initialized());
  EXPECT_EQ(g->dest(), dst->txMstStatus("g1"));
  PortSm* p = portSm("g1", "Ethernet1");
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(p->dest(), dstPort("g1", "Ethernet1"));
  // The record syncer of VLAN 10 joins the two records and is named group + "|" + short name.
  Zek::Ptr<IntxInfoSyncer> rs = p->txInfoSyncer(10);
  ASSERT_TRUE(rs);
  EXPECT_EQ(rs->parentId(), "g1|Et1");
  EXPECT_EQ(rs->vlanIdOrZero(), VlanIdOrNone(10));
  EXPECT_EQ(rs->source(), portIs(*src, "g1", "Ethernet1")->txInfo(10));
  EXPECT_EQ(rs->dest(), dstPort("g1", "Ethernet1")->txInfo(10));
  EXPECT_TRUE(rs->hasNotificationActive());
}

TEST_F(TxToTxTest, FullCopyDeletesStaleDestinationMembersOnlyWhenCountsDiffer) {
  recordIs(*src, "g1", "Ethernet1", 10, {0});
  portIs(*src, "g1", "Ethernet1")->txUpdateIs(10, 1);
  // Stale at every level: a group, a port, a record, a counter.
  dst->txMstStatusIs("old");
  recordIs(*dst, "g1", "Ethernet1", 20, {1});
  portIs(*dst, "g1", "Ethernet9");
  portIs(*dst, "g1", "Ethernet1")->txUpdateIs(30, 9);

  TraceCapture cap({"StpTxStatusSyncer/8"});
  make();

  EXPECT_EQ(mirrorDiff(*src, *dst), "");
  std::vector<std::string> lines = txToTxLines(cap);
  auto has = [&](const std::string& l) { return std::find(lines.begin(), lines.end(), l) != lines.end(); };
  EXPECT_TRUE(has("TxToTx::handleTxMstStatus() deleting old"));
  EXPECT_TRUE(has("TxToTx::ZekTxMstStatusSm[g1]::handleTxMstPortStatus() deleting txMstPortStatus for Ethernet9"));
  EXPECT_TRUE(has("TxToTx::ZekTxMstPortStatusSm[g1|Et1]::handleTxInfo() deleting vlan=20"));
  EXPECT_TRUE(has("TxToTx::ZekTxMstPortStatusSm[g1|Et1]::handleTxUpdate() deleting vlan=30"));
  // The counts differ (2 and 1), so the second pass visits every destination group in the destination's
  // order ("old" was inserted first) and sets g1 a second time.
  const std::vector<std::string> top(lines.end() - 3, lines.end());
  EXPECT_EQ(top, (std::vector<std::string>{"TxToTx::handleTxMstStatus() creating g1",
                                           "TxToTx::handleTxMstStatus() deleting old",
                                           "TxToTx::handleTxMstStatus() creating g1"}));

  // Equal counts: the second pass is skipped, so a re-run traces each group once.
  cap.clear();
  syncer->handleInitialized();
  lines = txToTxLines(cap);
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "TxToTx::handleTxMstStatus() creating g1"), 1);
}

TEST_F(TxToTxTest, ZeroCounterWithEqualCountsLeavesAStaleDestinationCounter) {
  // Source {10: 0, 11: 5} against a destination holding {30: 9}: the source pass deletes 10 (absent
  // anyway) and sets 11; the counts are then equal (2 and 2) and the destination pass is skipped.
  portIs(*src, "g1", "Ethernet1")->txUpdateIs(10, 0);
  portIs(*src, "g1", "Ethernet1")->txUpdateIs(11, 5);
  portIs(*dst, "g1", "Ethernet1")->txUpdateIs(30, 9);
  make();
  EXPECT_EQ(dstPort("g1", "Ethernet1")->txUpdate(11), 5u);
  EXPECT_EQ(dstPort("g1", "Ethernet1")->txUpdate(10), std::nullopt);
  EXPECT_EQ(dstPort("g1", "Ethernet1")->txUpdate(30), 9u);
  test::MirrorExceptions ex;
  ex.staleTxUpdate[{"g1", "Ethernet1"}] = {30};
  EXPECT_EQ(mirrorDiff(*src, *dst, ex), "");
}

TEST_F(TxToTxTest, NullSourceWritesZeroHeartbeatAndEmptiesTheDestination) {
  dst->heartbeatTimeoutIs(7.0);
  dst->txMstStatusIs("g1");
  TraceCapture cap({"StpTxStatusSyncer/8"});
  syncer = TxStatusToTxSyncer::TxStatusToTxSyncerIs(nullptr, dst);
  EXPECT_EQ(dst->heartbeatTimeout(), 0.0);
  EXPECT_EQ(dst->txMstStatus().size(), 0u);
  EXPECT_EQ(txToTxLines(cap),
            (std::vector<std::string>{"TxToTx::handleInitialized() ", "TxToTx::handleTxMstStatus() deleting g1"}));
  EXPECT_EQ(syncer->zekSource(), nullptr);
  EXPECT_EQ(syncer->zekTxMstStatusSmCount(), 0u);
  EXPECT_FALSE(syncer->sourceDel());
}

TEST_F(TxToTxTest, NullDestinationIsNeverWritten) {
  recordIs(*src, "g1", "Ethernet1", 10, {0});
  syncer = TxStatusToTxSyncer::TxStatusToTxSyncerIs(src, nullptr);
  GroupSm* g = syncer->zekTxMstStatusSm("g1");
  ASSERT_NE(g, nullptr);
  EXPECT_FALSE(g->dest());
  ASSERT_NE(portSm("g1", "Ethernet1"), nullptr);
  EXPECT_FALSE(portSm("g1", "Ethernet1")->dest());
  // Every kind of change reaches a handler that has nothing to write.
  src->heartbeatTimeoutIs(1.0);
  src->txMstStatusIs("g2");
  portIs(*src, "g1", "Ethernet2");
  portIs(*src, "g1", "Ethernet1")->txUpdateIs(10, 2);
  portIs(*src, "g1", "Ethernet1")->txNewInfoIs(2);
  portIs(*src, "g1", "Ethernet1")->txInfoIs(11);
  src->txMstStatusDel("g1");
  syncer->handleInitialized();
  EXPECT_EQ(syncer->zekTxMstStatusSmCount(), 1u);
}

// ---------------------------------------------------------------------------------------------------------
// Groups and ports as they come and go

TEST_F(TxToTxTest, NewGroupIsCreatedBeforeItsReactorAndNewPortsAreCopiedAtOnce) {
  make();
  auto rec = RecordingReactor::RecordingReactorIs(dst);
  std::vector<bool> reactorExisted;
  rec->actionIs([&](Zek::AttributeId id, const void*) {
    if (id == TxStatus::idTxMstStatus) reactorExisted.push_back(syncer->zekTxMstStatusSm("g2") != nullptr);
  });
  TraceCapture cap({"StpTxStatusSyncer/8"});
  Zek::Ptr<TxMstStatus> g2 = src->txMstStatusIs("g2");
  EXPECT_EQ(reactorExisted, (std::vector<bool>{false})) << "destination group before its reactor";
  ASSERT_TRUE(dst->txMstStatus("g2"));
  EXPECT_EQ(dst->txMstStatus("g2")->txMstPortStatus().size(), 0u);
  ASSERT_NE(syncer->zekTxMstStatusSm("g2"), nullptr);
  EXPECT_EQ(txToTxLines(cap), (std::vector<std::string>{"TxToTx::handleTxMstStatus() creating g2",
                                                        "TxToTx::ZekTxMstStatusSm[g2]::handleInitialized() "}));

  // A port added later: destination port first, then its reactor, whose full copy fills it at once.
  cap.clear();
  Zek::Ptr<TxMstPortStatus> p = g2->txMstPortStatusIs(IntfId("Ethernet2"));
  EXPECT_EQ(txToTxLines(cap),
            (std::vector<std::string>{
                "TxToTx::ZekTxMstStatusSm[g2]::handleTxMstPortStatus() setting txMstPortStatus for Ethernet2",
                "TxToTx::ZekTxMstPortStatusSm[g2|Et2]::handleInitialized() "}));
  ASSERT_NE(portSm("g2", "Ethernet2"), nullptr);
  EXPECT_EQ(portSm("g2", "Ethernet2")->dest(), dstPort("g2", "Ethernet2"));
  p->txNewInfoIs(6);
  recordIs(*src, "g2", "Ethernet2", 7, {0, 1});
  EXPECT_EQ(mirrorDiff(*src, *dst), "");
}

TEST_F(TxToTxTest, RemovedGroupIsDeletedBeforeItsReactorAndItsPortsAreNotDeletedOneByOne) {
  recordIs(*src, "g1", "Ethernet1", 10, {0});
  portIs(*src, "g1", "Ethernet2");
  make();
  LiveCounts withGroup;
  Zek::Ptr<TxMstStatus> dstGroup = dst->txMstStatus("g1");
  auto groupRec = RecordingReactor::RecordingReactorIs(dstGroup);
  auto rec = RecordingReactor::RecordingReactorIs(dst);
  std::vector<bool> reactorExisted;
  rec->actionIs(
      [&](Zek::AttributeId, const void*) { reactorExisted.push_back(syncer->zekTxMstStatusSm("g1") != nullptr); });
  TraceCapture cap({"StpTxStatusSyncer/8"});
  src->txMstStatusDel("g1");
  EXPECT_EQ(reactorExisted, (std::vector<bool>{true})) << "destination group deleted while its reactor lives";
  EXPECT_EQ(syncer->zekTxMstStatusSm("g1"), nullptr);
  EXPECT_FALSE(dst->txMstStatus("g1"));
  EXPECT_EQ(groupRec->count(), 0u) << "no port of the deleted group is deleted one by one";
  EXPECT_EQ(dstGroup->txMstPortStatus().size(), 2u);
  EXPECT_EQ(txToTxLines(cap), (std::vector<std::string>{"TxToTx::handleTxMstStatus() deleting g1"}));
  EXPECT_EQ(LiveCounts::now("StpTxRx::TxStatusToTxSyncer::ZekTxMstStatusSm"),
            withGroup.at("StpTxRx::TxStatusToTxSyncer::ZekTxMstStatusSm") - 1);
  EXPECT_EQ(LiveCounts::now("StpTxRx::TxStatusToTxSyncer::ZekTxMstStatusSm::ZekTxMstPortStatusSm"),
            withGroup.at("StpTxRx::TxStatusToTxSyncer::ZekTxMstStatusSm::ZekTxMstPortStatusSm") - 2);
  EXPECT_EQ(LiveCounts::now("StpTxRx::IntxInfoSyncer"), withGroup.at("StpTxRx::IntxInfoSyncer") - 1);
}

TEST_F(TxToTxTest, RemovedPortTakesItsReactorAndRecordSyncersButNotTheirRecords) {
  recordIs(*src, "g1", "Ethernet1", 10, {0});
  make();
  Zek::Ptr<TxMstPortStatus> dp = dstPort("g1", "Ethernet1");
  Zek::Ptr<IntxInfoSyncer> rs = portSm("g1", "Ethernet1")->txInfoSyncer(10);
  TraceCapture cap({"StpTxStatusSyncer/8"});
  src->txMstStatus("g1")->txMstPortStatusDel(IntfId("Ethernet1"));
  EXPECT_EQ(txToTxLines(cap), (std::vector<std::string>{"TxToTx::ZekTxMstStatusSm[g1]::handleTxMstPortStatus() "
                                                        "deleting txMstPortStatus for Ethernet1"}));
  EXPECT_EQ(portSm("g1", "Ethernet1"), nullptr);
  EXPECT_FALSE(dstPort("g1", "Ethernet1"));
  EXPECT_TRUE(dp->txInfo(10)) << "the removed destination port keeps its records";
  EXPECT_TRUE(rs->zekMarkedForDeletion()) << "the record syncer went down with its port reactor";
  ASSERT_NE(rs->zekSource(), nullptr);
  EXPECT_FALSE(rs->zekSource()->hasNotificationActive());
}

TEST_F(TxToTxTest, HeartbeatTimeoutFollowsAtOnceUntracedAndPastTheDeletionMark) {
  make();
  TraceCapture cap({"StpTxStatusSyncer/8"});
  src->heartbeatTimeoutIs(4.25);
  EXPECT_EQ(dst->heartbeatTimeout(), 4.25);
  EXPECT_TRUE(cap.texts().empty());

  // Marked for deletion with notifications still on: the heartbeat still follows, the group handler does
  // not run, but the reactor for the new group is still built (and creates its destination group itself).
  syncer->zekSource()->zekMarkedForDeletionIs(true);
  src->heartbeatTimeoutIs(5.0);
  EXPECT_EQ(dst->heartbeatTimeout(), 5.0);
  src->txMstStatusIs("g1");
  EXPECT_EQ(txToTxLines(cap), (std::vector<std::string>{"TxToTx::ZekTxMstStatusSm[g1]::handleInitialized() "}));
  EXPECT_NE(syncer->zekTxMstStatusSm("g1"), nullptr);
  syncer->zekSource()->zekMarkedForDeletionIs(false);
}

TEST_F(TxToTxTest, PortPresentAtItsGroupsFirstCopyStaysEmptyUntilTheNextFullCopy) {
  // A writer ahead of the syncer fills each new group as soon as it appears, so the syncer first sees
  // the group with a port already in it.
  auto filler = RecordingReactor::RecordingReactorIs(src);
  filler->actionIs([&](Zek::AttributeId id, const void* key) {
    if (id != TxStatus::idTxMstStatus || !key) return;
    const Zek::Name name = *static_cast<const Zek::Name*>(key);
    if (!src->txMstStatus(name)) return;
    recordIs(*src, name.c_str(), "Ethernet1", 10, {0}, 3);
    portIs(*src, name.c_str(), "Ethernet1")->txUpdateIs(10, 2);
    portIs(*src, name.c_str(), "Ethernet1")->txNewInfoIs(8);
  });
  make();
  TraceCapture cap({"StpTxStatusSyncer/8"});
  src->txMstStatusIs("g1");
  EXPECT_EQ(txToTxLines(cap),
            (std::vector<std::string>{
                "TxToTx::handleTxMstStatus() creating g1",
                "TxToTx::ZekTxMstPortStatusSm[g1|Et1]::handleInitialized() ",
                "TxToTx::ZekTxMstStatusSm[g1]::handleInitialized() ",
                "TxToTx::ZekTxMstPortStatusSm[g1|Et1]::handleInitialized() ",
                "TxToTx::ZekTxMstStatusSm[g1]::handleTxMstPortStatus() setting txMstPortStatus for Ethernet1",
            }));
  PortSm* p = portSm("g1", "Ethernet1");
  ASSERT_NE(p, nullptr);
  EXPECT_FALSE(p->dest());
  EXPECT_EQ(p->txInfoSyncerCount(), 0u);
  test::MirrorExceptions uncopied;
  uncopied.uncopiedPorts.insert({"g1", "Ethernet1"});
  EXPECT_EQ(mirrorDiff(*src, *dst, uncopied), "");

  // Later changes of that port find no destination port and write nothing.
  portIs(*src, "g1", "Ethernet1")->txNewInfoIs(9);
  portIs(*src, "g1", "Ethernet1")->txUpdateIs(11, 4);
  recordIs(*src, "g1", "Ethernet1", 12, {1});
  EXPECT_EQ(mirrorDiff(*src, *dst, uncopied), "");

  // The next full copy finds the destination port and copies the whole port.
  syncer->handleInitialized();
  EXPECT_EQ(p->dest(), dstPort("g1", "Ethernet1"));
  EXPECT_EQ(p->txInfoSyncerCount(), 2u);
  EXPECT_EQ(mirrorDiff(*src, *dst), "");
}

// ---------------------------------------------------------------------------------------------------------
// Port content

TEST_F(TxToTxTest, CounterChangeIsWrittenTwiceAndAZeroCounterIsDeleted) {
  portIs(*src, "g1", "Ethernet1");
  make();
  EqualWrites equal;
  auto rec = RecordingReactor::RecordingReactorIs(dstPort("g1", "Ethernet1"), RecordingReactor::keyAs<VlanIdOrNone>());
  TraceCapture cap({"StpTxStatusSyncer/8"});

  portIs(*src, "g1", "Ethernet1")->txUpdateIs(10, 5);
  EXPECT_EQ(dstPort("g1", "Ethernet1")->txUpdate(10), 5u);
  EXPECT_EQ(rec->ids(), (std::vector<Zek::AttributeId>{TxMstPortStatus::idTxUpdate, TxMstPortStatus::idTxUpdate}))
      << "the silent mirror, then the handler's write";
  EXPECT_EQ(rec->keys(), (std::vector<std::string>{"10", "10"}));
  EXPECT_EQ(txToTxLines(cap),
            (std::vector<std::string>{"TxToTx::ZekTxMstPortStatusSm[g1|Et1]::handleTxUpdate() setting vlan=10"}));

  rec->clear();
  cap.clear();
  portIs(*src, "g1", "Ethernet1")->txUpdateIs(10, 0);
  EXPECT_EQ(dstPort("g1", "Ethernet1")->txUpdate(10), std::nullopt) << "a zero counter is absent";
  EXPECT_EQ(rec->ids(), (std::vector<Zek::AttributeId>{TxMstPortStatus::idTxUpdate}))
      << "the handler's second delete finds nothing to remove";
  EXPECT_EQ(txToTxLines(cap),
            (std::vector<std::string>{"TxToTx::ZekTxMstPortStatusSm[g1|Et1]::handleTxUpdate() deleting vlan=10"}));

  // An absent counter written as zero by the source: nothing to delete, one trace line.
  rec->clear();
  cap.clear();
  portIs(*src, "g1", "Ethernet1")->txUpdateIs(11, 0);
  EXPECT_EQ(rec->count(), 0u);
  EXPECT_EQ(txToTxLines(cap),
            (std::vector<std::string>{"TxToTx::ZekTxMstPortStatusSm[g1|Et1]::handleTxUpdate() deleting vlan=11"}));
}

TEST_F(TxToTxTest, ScalarsAreWrittenOnceUntracedAndTheFullCopyWritesInOrder) {
  recordIs(*src, "g1", "Ethernet1", 10, {0});
  portIs(*src, "g1", "Ethernet1")->txUpdateIs(10, 1);
  make();
  EqualWrites equal;
  auto rec = RecordingReactor::RecordingReactorIs(dstPort("g1", "Ethernet1"));
  TraceCapture cap({"StpTxStatusSyncer/8"});

  portIs(*src, "g1", "Ethernet1")->txNewInfoIs(12);
  portIs(*src, "g1", "Ethernet1")->txHelloWhenOnIs(TimerVal(3, 4));
  EXPECT_EQ(dstPort("g1", "Ethernet1")->txNewInfo(), 12u);
  EXPECT_EQ(dstPort("g1", "Ethernet1")->txHelloWhenOn(), TimerVal(3, 4));
  EXPECT_EQ(rec->ids(),
            (std::vector<Zek::AttributeId>{TxMstPortStatus::idTxNewInfo, TxMstPortStatus::idTxHelloWhenOn}));
  EXPECT_TRUE(cap.texts().empty());

  // Re-run on a copied port: records (kept, so no notification), counters, txHelloWhenOn, txNewInfo.
  rec->clear();
  portSm("g1", "Ethernet1")->handleInitialized();
  EXPECT_EQ(rec->ids(), (std::vector<Zek::AttributeId>{TxMstPortStatus::idTxUpdate, TxMstPortStatus::idTxHelloWhenOn,
                                                       TxMstPortStatus::idTxNewInfo}));
}

TEST_F(TxToTxTest, CounterScalarAndHeartbeatChangesAllocateNothing) {
  recordIs(*src, "g1", "Ethernet1", 10, {0});
  Zek::Ptr<TxMstPortStatus> p = portIs(*src, "g1", "Ethernet1");
  p->txUpdateIs(10, 1);
  make();
  p->txUpdateIs(10, 2);  // first run of each handler registers its binary trace call site
  p->txNewInfoIs(1);
  p->txHelloWhenOnIs(TimerVal(0, 1));
  Zek::test::AllocScope scope;
  for (std::uint8_t i = 3; i < 20; ++i) {
    p->txUpdateIs(10, i);
    p->txNewInfoIs(i);
    p->txHelloWhenOnIs(TimerVal(0, i));
    src->heartbeatTimeoutIs(i);
  }
  EXPECT_EQ(scope.count(), 0u);
  EXPECT_EQ(dstPort("g1", "Ethernet1")->txUpdate(10), 19u);
  EXPECT_EQ(dst->heartbeatTimeout(), 19.0);
}

TEST_F(TxToTxTest, RecordsComeAndGoWithTheirSyncers) {
  portIs(*src, "g1", "Ethernet1");
  make();
  PortSm* p = portSm("g1", "Ethernet1");
  LiveCounts withoutRecord;
  TraceCapture cap({"StpTxStatusSyncer/8"});

  Zek::Ptr<IntxInfo> record = recordIs(*src, "g1", "Ethernet1", 20, {0, 4}, 9);
  EXPECT_EQ(txToTxLines(cap),
            (std::vector<std::string>{"TxToTx::ZekTxMstPortStatusSm[g1|Et1]::handleTxInfo() setting vlan=20"}));
  EXPECT_TRUE(p->txInfoSyncerHas(20));
  EXPECT_EQ(mirrorDiff(*src, *dst), "");

  cap.clear();
  Zek::Ptr<IntxInfo> dstRecord = dstPort("g1", "Ethernet1")->txInfo(20);
  portIs(*src, "g1", "Ethernet1")->txInfoDel(20);
  EXPECT_EQ(txToTxLines(cap),
            (std::vector<std::string>{"TxToTx::ZekTxMstPortStatusSm[g1|Et1]::handleTxInfo() deleting vlan=20"}));
  EXPECT_FALSE(dstPort("g1", "Ethernet1")->txInfo(20));
  EXPECT_FALSE(p->txInfoSyncerHas(20));
  EXPECT_FALSE(p->txInfoSyncer(20));
  record = nullptr;
  dstRecord = nullptr;
  EXPECT_TRUE(withoutRecord.unchanged()) << "the record syncer and its per-instance syncers are gone";
}

TEST_F(TxToTxTest, RecordSyncerIsNotReinstantiatedWithOtherArguments) {
  recordIs(*src, "g1", "Ethernet1", 10, {0});
  make();
  PortSm* p = portSm("g1", "Ethernet1");
  Zek::Ptr<IntxInfoSyncer> rs = p->txInfoSyncer(10);
  ASSERT_TRUE(rs);
  Zek::Ptr<IntxInfo> otherRecord = IntxInfo::IntxInfoIs(10);
  auto expectRefused = [&](const Zek::Ptr<IntxInfo const>& s, const Zek::Ptr<IntxInfo>& d, const char* name,
                           const std::string& attribute) {
    try {
      p->txInfoSyncerIs(s, d, 10, name);
      ADD_FAILURE() << "no exception for a differing " << attribute;
    } catch (const Zek::MutatorReinstantiatingException& e) {
      EXPECT_NE(std::string(e.what()).find("txInfoSyncer." + attribute + ":"), std::string::npos) << e.what();
    }
    EXPECT_EQ(p->txInfoSyncer(10), rs) << "the existing syncer is kept";
  };
  expectRefused(otherRecord, rs->dest(), "g1|Et1", "source");
  expectRefused(rs->source(), otherRecord, "g1|Et1", "dest");
  expectRefused(rs->source(), rs->dest(), "g1|Et2", "parentId");
  EXPECT_EQ(p->txInfoSyncerIs(rs->source(), rs->dest(), 10, "g1|Et1"), rs);

  EXPECT_THROW(syncer->txMstStatusIs(nullptr), Zek::MutatorArgNullPointerException);
  EXPECT_THROW(syncer->zekTxMstStatusSm("g1")->txMstPortStatusIs(nullptr), Zek::MutatorArgNullPointerException);
  EXPECT_THROW(p->txInfoSyncerIs(nullptr, otherRecord, 11, "x"), Zek::MutatorArgNullPointerException);
  EXPECT_FALSE(p->txInfoSyncerHas(11));
}

TEST_F(TxToTxTest, RecordSyncerRemovalReturnsTheSyncerAndLeavesTheRecords) {
  recordIs(*src, "g1", "Ethernet1", 10, {0});
  recordIs(*src, "g1", "Ethernet1", 20, {0});
  make();
  PortSm* p = portSm("g1", "Ethernet1");
  Zek::Ptr<IntxInfoSyncer> rs = p->txInfoSyncer(10);
  EXPECT_EQ(p->txInfoSyncerDel(10), rs);
  EXPECT_FALSE(p->txInfoSyncerDel(10));
  p->txInfoSyncerDelAll();
  EXPECT_EQ(p->txInfoSyncerCount(), 0u);
  EXPECT_EQ(dstPort("g1", "Ethernet1")->txInfo().size(), 2u);
}

// ---------------------------------------------------------------------------------------------------------
// Lifecycle

TEST_F(TxToTxTest, SourceDelFreezesTheDestination) {
  recordIs(*src, "g1", "Ethernet1", 10, {0});
  make();
  Zek::Ptr<TxStatus const> former = syncer->sourceDel();
  EXPECT_EQ(former, src);
  EXPECT_FALSE(syncer->source());
  EXPECT_FALSE(syncer->sourceDel());
  src->heartbeatTimeoutIs(9.0);
  src->txMstStatusIs("g2");
  EXPECT_EQ(dst->heartbeatTimeout(), 0.0);
  EXPECT_FALSE(dst->txMstStatus("g2"));
  EXPECT_NE(syncer->zekTxMstStatusSm("g1"), nullptr) << "group reactors stay";
  // Without a source every group counts as absent, but only when someone calls the handler.
  EXPECT_TRUE(dst->txMstStatus("g1"));
  syncer->handleTxMstStatus("g1");
  EXPECT_FALSE(dst->txMstStatus("g1"));
}

TEST_F(TxToTxTest, NotificationsOffStopsCopyingAtEveryLevel) {
  recordIs(*src, "g1", "Ethernet1", 10, {0});
  make();
  syncer->hasNotificationActiveIs(false);
  EXPECT_FALSE(syncer->zekSource()->hasNotificationActive());
  EXPECT_FALSE(portSm("g1", "Ethernet1")->hasNotificationActive());
  EXPECT_FALSE(portSm("g1", "Ethernet1")->txInfoSyncer(10)->hasNotificationActive());
  portIs(*src, "g1", "Ethernet1")->txNewInfoIs(3);
  src->txMstStatusIs("g2");
  EXPECT_EQ(dstPort("g1", "Ethernet1")->txNewInfo(), 0u);
  EXPECT_FALSE(dst->txMstStatus("g2"));
  syncer->hasNotificationActiveIs(true);
  EXPECT_TRUE(portSm("g1", "Ethernet1")->txInfoSyncer(10)->hasNotificationActive());
  portIs(*src, "g1", "Ethernet1")->txNewInfoIs(4);
  EXPECT_EQ(dstPort("g1", "Ethernet1")->txNewInfo(), 4u);
}

TEST_F(TxToTxTest, DeletingReactorsOrTheSyncerLeavesTheDestinationAsItIs) {
  test::buildTree(*src, 2, 3, 2, 3);
  make();
  ASSERT_EQ(mirrorDiff(*src, *dst), "");
  auto rec = RecordingReactor::RecordingReactorIs(dst);

  Zek::Ptr<TxMstStatus const> watched = syncer->txMstStatusDel("g0");
  EXPECT_EQ(watched, src->txMstStatus("g0"));
  EXPECT_FALSE(syncer->txMstStatusDel("g0"));
  syncer->zekTxMstStatusSm("g1")->txMstPortStatusDelAll();
  EXPECT_EQ(syncer->zekTxMstStatusSm("g1")->zekTxMstPortStatusCount(), 0u);
  syncer->txMstStatusDelAll();
  EXPECT_EQ(syncer->zekTxMstStatusSmCount(), 0u);
  src->txMstStatus("g1")->txMstPortStatusIs(IntfId("Ethernet1"))->txNewInfoIs(77);  // no reactor left to copy it
  EXPECT_EQ(dst->txMstStatus("g1")->txMstPortStatus(IntfId("Ethernet1"))->txNewInfo(), 1u);
  EXPECT_EQ(rec->count(), 0u) << "deleting reactors writes nothing";

  // A second syncer on the same trees, destroyed: the destination keeps every member and value.
  syncer = nullptr;
  make();
  ASSERT_EQ(mirrorDiff(*src, *dst), "");
  LiveCounts withSyncer;
  ASSERT_GT(withSyncer.at("StpTxRx::TxStatusToTxSyncer::ZekTxMstStatusSm::ZekTxMstPortStatusSm"), 0);
  rec->clear();
  syncer = nullptr;
  EXPECT_EQ(rec->count(), 0u);
  EXPECT_EQ(mirrorDiff(*src, *dst), "");
  for (const char* type :
       {"StpTxRx::TxStatusToTxSyncer", "StpTxRx::TxStatusToTxSyncer::ZekSource",
        "StpTxRx::TxStatusToTxSyncer::ZekTxMstStatusSm",
        "StpTxRx::TxStatusToTxSyncer::ZekTxMstStatusSm::ZekTxMstPortStatusSm", "StpTxRx::IntxInfoSyncer",
        "StpTxRx::IntxInfoSyncer::ZekSource", "StpTxRx::IntxInfoSyncer::ZekMstiNSm"}) {
    EXPECT_EQ(LiveCounts::now(type), before.at(type)) << type;
  }
}

TEST_F(TxToTxTest, RepointedGroupReactorFollowsTheOtherGroup) {
  recordIs(*src, "g1", "Ethernet1", 10, {0});
  portIs(*src, "g1", "Ethernet2")->txNewInfoIs(2);
  make();
  // Another tree's group of the same name, with one port in common (other content) and one new port.
  Zek::Ptr<TxStatus> other = TxStatus::TxStatusIs();
  recordIs(*other, "g1", "Ethernet1", 11, {1}, 4);
  portIs(*other, "g1", "Ethernet1")->txUpdateIs(11, 3);
  portIs(*other, "g1", "Ethernet3");
  GroupSm* g = syncer->zekTxMstStatusSm("g1");
  EXPECT_EQ(syncer->txMstStatusIs(other->txMstStatus("g1")).get(), g) << "kept, not rebuilt";
  EXPECT_EQ(g->txMstStatus(), other->txMstStatus("g1"));
  ASSERT_NE(portSm("g1", "Ethernet1"), nullptr);
  EXPECT_EQ(portSm("g1", "Ethernet1")->txMstPortStatus(),
            other->txMstStatus("g1")->txMstPortStatus(IntfId("Ethernet1")));
  EXPECT_EQ(portSm("g1", "Ethernet2"), nullptr);
  // The group now mirrors the other tree's group; the new port stays empty until the next full copy.
  test::MirrorExceptions ex;
  ex.uncopiedPorts.insert({"g1", "Ethernet3"});
  other->heartbeatTimeoutIs(dst->heartbeatTimeout());
  EXPECT_EQ(mirrorDiff(*other, *dst, ex), "");
  other->txMstStatus("g1")->txMstPortStatus(IntfId("Ethernet1"))->txNewInfoIs(5);
  EXPECT_EQ(dstPort("g1", "Ethernet1")->txNewInfo(), 5u);
  syncer = nullptr;
}

}  // namespace
}  // namespace StpTxRx
