// The transmit status syncer: the exact trace of the full copy, the order in which destination members and
// reactors appear and go, write order, the zombie gate, lifecycle and teardown. Copy correctness over many
// changes is the random test's work (TxStatusRandomTest.cpp).
#include <gtest/gtest.h>
#include <stptxrx/Stp/StpTxStatusSyncer.h>
#include <stptxrx/runtime/Entity.h>
#include <stptxrx/runtime/Exception.h>

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
using PortSm = TxStatusToTxSyncer::ZekTxMstStatusSm::ZekTxMstPortStatusSm;
using Lines = std::vector<std::string>;
using Ids = std::vector<Zek::AttributeId>;

class TxToTxTest : public ::testing::Test {
 protected:
  void TearDown() override {
    syncer = nullptr;
    src = dst = nullptr;
    Zek::notifyEqualWrites_ = false;
    EXPECT_TRUE(before.unchanged()) << "every syncer, reactor and entity of the test is gone";
  }
  void make() { syncer = txStatusToTxSyncerFactory(src, dst); }
  PortSm* portSm(const char* intf = "Ethernet1") const {
    auto* g = syncer->zekTxMstStatusSm(Zek::Name("g1"));
    return g ? g->zekTxMstPortStatus(IntfId(intf)) : nullptr;
  }
  Zek::Ptr<TxMstPortStatus> dstPort(const char* intf = "Ethernet1") const {
    Zek::Ptr<TxMstStatus> g = dst->txMstStatus(Zek::Name("g1"));
    return g ? g->txMstPortStatus(IntfId(intf)) : nullptr;
  }
  /// The syncer's own level-8 trace lines since the last call (the record syncers' lines left out).
  Lines traced() {
    Lines out;
    for (const std::string& t : cap->texts(8)) {
      if (t.rfind("TxToTx", 0) == 0) out.push_back(t);
    }
    cap->clear();
    return out;
  }

  LiveCounts before;  // first member: taken before anything of the test exists
  Zek::Ptr<TxStatus> src = TxStatus::TxStatusIs();
  Zek::Ptr<TxStatus> dst = TxStatus::TxStatusIs();
  TxStatusToTxSyncer::Ptr syncer;
  std::optional<Zek::test::TraceCapture> cap{std::in_place, std::initializer_list<std::string_view>{"StpTxStatusSyncer/8"}};
};

TEST_F(TxToTxTest, ConstructionTracesEveryLevelAndCopiesTheWholeTree) {
  recordIs(*src, "g1", "Ethernet1", 10, {0, 3}, 5);
  portIs(*src, "g1", "Ethernet1")->txUpdateIs(10, 3);
  portIs(*src, "g1", "Ethernet1")->txNewInfoIs(4);
  portIs(*src, "g1", "Ethernet1")->txHelloWhenOnIs(TimerVal(1, 2));
  src->heartbeatTimeoutIs(3.5);
  make();
  EXPECT_EQ(mirrorDiff(*src, *dst), "");
  // The port's own copy runs before its group creates the destination port; only the top-level pass,
  // which re-runs the group's full copy, finds the port and fills it.
  const std::string group = "TxToTx::ZekTxMstStatusSm[g1]::", port = "TxToTx::ZekTxMstPortStatusSm[g1|Et1]::";
  EXPECT_EQ(traced(), (Lines{port + "handleInitialized() ", group + "handleInitialized() ",
                             port + "handleInitialized() ",
                             group + "handleTxMstPortStatus() setting txMstPortStatus for Ethernet1",
                             "TxToTx::handleInitialized() ", group + "handleInitialized() ",
                             port + "handleInitialized() ", port + "handleTxInfo() setting vlan=10",
                             port + "handleTxUpdate() setting vlan=10",
                             group + "handleTxMstPortStatus() setting txMstPortStatus for Ethernet1",
                             "TxToTx::handleTxMstStatus() creating g1"}));
  for (const auto& line : cap->lines()) {
    EXPECT_EQ(line.handle, "StpTxStatusSyncer");
    EXPECT_EQ(line.level, 8);
    EXPECT_EQ(line.file, "Stp/StpTxStatusSyncer");
    EXPECT_NE(line.text.find("::" + line.function + "() "), std::string::npos) << line.text;
  }
  EXPECT_TRUE(syncer->initialized() && syncer->zekTxMstStatusSm("g1")->initialized());
  ASSERT_EQ(portSm()->dest(), dstPort());
  // The record syncer joins the two records of VLAN 10 and is named group + "|" + short name.
  Zek::Ptr<IntxInfoSyncer> rs = portSm()->txInfoSyncer(10);
  ASSERT_TRUE(rs);
  EXPECT_EQ(rs->parentId(), "g1|Et1");
  EXPECT_EQ(rs->source(), portIs(*src, "g1", "Ethernet1")->txInfo(10));
  EXPECT_EQ(rs->dest(), dstPort()->txInfo(10));
  EXPECT_TRUE(rs->hasNotificationActive());
}

TEST_F(TxToTxTest, NullSourceEmptiesTheDestinationAndNullDestinationIsNeverWritten) {
  dst->heartbeatTimeoutIs(7.0);
  dst->txMstStatusIs("g1");
  syncer = TxStatusToTxSyncer::TxStatusToTxSyncerIs(nullptr, dst);
  EXPECT_EQ(dst->heartbeatTimeout(), 0.0);
  EXPECT_EQ(dst->txMstStatus().size(), 0u);
  EXPECT_EQ(traced(), (Lines{"TxToTx::handleInitialized() ", "TxToTx::handleTxMstStatus() deleting g1"}));
  EXPECT_FALSE(syncer->sourceDel());

  recordIs(*src, "g1", "Ethernet1", 10, {0});
  syncer = TxStatusToTxSyncer::TxStatusToTxSyncerIs(src, nullptr);
  ASSERT_NE(portSm(), nullptr);
  EXPECT_FALSE(portSm()->dest() || syncer->zekTxMstStatusSm("g1")->dest());
  // Every kind of change reaches a handler that has nothing to write (and must not dereference it).
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

TEST_F(TxToTxTest, DestinationMembersAreCreatedBeforeAndDeletedWhileTheirReactorsExist) {
  make();
  traced();
  std::vector<bool> groupReactorSeen;
  auto rec = RecordingReactor::RecordingReactorIs(dst);
  rec->actionIs([&](Zek::AttributeId, const void*) { groupReactorSeen.push_back(syncer->zekTxMstStatusSm("g1") != nullptr); });
  Zek::Ptr<TxMstStatus> g1 = src->txMstStatusIs("g1");
  EXPECT_EQ(traced(), (Lines{"TxToTx::handleTxMstStatus() creating g1", "TxToTx::ZekTxMstStatusSm[g1]::handleInitialized() "}));
  // A port added later: destination port first, then its reactor, whose full copy fills it at once.
  g1->txMstPortStatusIs(IntfId("Ethernet1"))->txNewInfoIs(6);
  g1->txMstPortStatusIs(IntfId("Ethernet2"));
  EXPECT_EQ(traced(), (Lines{"TxToTx::ZekTxMstStatusSm[g1]::handleTxMstPortStatus() setting txMstPortStatus for Ethernet1",
                             "TxToTx::ZekTxMstPortStatusSm[g1|Et1]::handleInitialized() ",
                             "TxToTx::ZekTxMstStatusSm[g1]::handleTxMstPortStatus() setting txMstPortStatus for Ethernet2",
                             "TxToTx::ZekTxMstPortStatusSm[g1|Et2]::handleInitialized() "}));
  recordIs(*src, "g1", "Ethernet1", 10, {0});
  ASSERT_EQ(mirrorDiff(*src, *dst), "");
  traced();

  // A removed port takes its reactor and record syncers; the removed destination port keeps its records.
  Zek::Ptr<TxMstPortStatus> dp = dstPort();
  Zek::Ptr<IntxInfoSyncer> rs = portSm()->txInfoSyncer(10);
  g1->txMstPortStatusDel(IntfId("Ethernet1"));
  EXPECT_EQ(traced(), (Lines{"TxToTx::ZekTxMstStatusSm[g1]::handleTxMstPortStatus() deleting txMstPortStatus for Ethernet1"}));
  EXPECT_FALSE(portSm() || dstPort());
  EXPECT_TRUE(dp->txInfo(10));
  EXPECT_TRUE(rs->zekMarkedForDeletion()) << "the record syncer went down with its port reactor";
  EXPECT_FALSE(rs->zekSource()->hasNotificationActive());
  rs = nullptr;

  // A removed group: the destination group is deleted while its reactor lives, its ports are not deleted
  // one by one, and every reactor below it is gone.
  Zek::Ptr<TxMstStatus> dstGroup = dst->txMstStatus("g1");
  auto groupRec = RecordingReactor::RecordingReactorIs(dstGroup);
  src->txMstStatusDel("g1");
  EXPECT_EQ(groupReactorSeen, (std::vector<bool>{false, true}));
  EXPECT_EQ(traced(), (Lines{"TxToTx::handleTxMstStatus() deleting g1"}));
  EXPECT_FALSE(syncer->zekTxMstStatusSm("g1") || dst->txMstStatus("g1"));
  EXPECT_EQ(groupRec->count(), 0u);
  EXPECT_EQ(dstGroup->txMstPortStatus().size(), 1u);
  for (const char* type : {"StpTxRx::TxStatusToTxSyncer::ZekTxMstStatusSm", "StpTxRx::IntxInfoSyncer",
                           "StpTxRx::TxStatusToTxSyncer::ZekTxMstStatusSm::ZekTxMstPortStatusSm"}) {
    EXPECT_EQ(LiveCounts::now(type), before.at(type)) << type;
  }
}

TEST_F(TxToTxTest, HeartbeatFollowsUntracedAndPastTheDeletionMarkWhichStopsTheGroupHandler) {
  make();
  traced();
  src->heartbeatTimeoutIs(4.25);
  EXPECT_EQ(dst->heartbeatTimeout(), 4.25);
  EXPECT_TRUE(cap->texts().empty());
  // Marked for deletion with notifications still on: the heartbeat still follows, the group handler does
  // not run, but the reactor for the new group is still built (and creates its destination group itself).
  syncer->zekSource()->zekMarkedForDeletionIs(true);
  src->heartbeatTimeoutIs(5.0);
  EXPECT_EQ(dst->heartbeatTimeout(), 5.0);
  src->txMstStatusIs("g1");
  EXPECT_EQ(traced(), (Lines{"TxToTx::ZekTxMstStatusSm[g1]::handleInitialized() "}));
  EXPECT_NE(syncer->zekTxMstStatusSm("g1"), nullptr);
  syncer->zekSource()->zekMarkedForDeletionIs(false);
}

TEST_F(TxToTxTest, PortWritesComeInTheirOrderAndAZeroCounterIsDeleted) {
  Zek::Ptr<TxMstPortStatus> p = portIs(*src, "g1", "Ethernet1");
  recordIs(*src, "g1", "Ethernet1", 10, {0});
  make();
  Zek::notifyEqualWrites_ = true;
  auto rec = RecordingReactor::RecordingReactorIs(dstPort(), RecordingReactor::keyAs<VlanIdOrNone>());
  traced();
  const std::string port = "TxToTx::ZekTxMstPortStatusSm[g1|Et1]::";
  // A counter change: the silent mirror, then the handler's traced write of the same value.
  p->txUpdateIs(10, 5);
  EXPECT_EQ(dstPort()->txUpdate(10), 5u);
  EXPECT_EQ(rec->ids(), (Ids{TxMstPortStatus::idTxUpdate, TxMstPortStatus::idTxUpdate}));
  EXPECT_EQ(rec->keys(), (Lines{"10", "10"}));
  EXPECT_EQ(traced(), (Lines{port + "handleTxUpdate() setting vlan=10"}));
  // Zero: deleted (the handler's second delete finds nothing); a zero for an absent counter writes nothing.
  rec->clear();
  p->txUpdateIs(10, 0);
  p->txUpdateIs(11, 0);
  EXPECT_EQ(dstPort()->txUpdate(10), std::nullopt);
  EXPECT_EQ(rec->ids(), (Ids{TxMstPortStatus::idTxUpdate}));
  EXPECT_EQ(traced(), (Lines{port + "handleTxUpdate() deleting vlan=10", port + "handleTxUpdate() deleting vlan=11"}));
  // Scalars: one untraced write each.
  rec->clear();
  p->txNewInfoIs(12);
  p->txHelloWhenOnIs(TimerVal(3, 4));
  EXPECT_EQ(rec->ids(), (Ids{TxMstPortStatus::idTxNewInfo, TxMstPortStatus::idTxHelloWhenOn}));
  EXPECT_TRUE(traced().empty());
  // The full copy: records (kept, so no notification), the source's counters, then, as the source's zero
  // counter makes the counts differ, the destination's counters again; txHelloWhenOn, txNewInfo.
  p->txUpdateIs(10, 1);
  rec->clear();
  portSm()->handleInitialized();
  EXPECT_EQ(rec->ids(), (Ids{TxMstPortStatus::idTxUpdate, TxMstPortStatus::idTxUpdate,
                             TxMstPortStatus::idTxHelloWhenOn, TxMstPortStatus::idTxNewInfo}));
  EXPECT_EQ(mirrorDiff(*src, *dst), "");
}

TEST_F(TxToTxTest, CounterScalarAndHeartbeatChangesAllocateNothing) {
  cap.reset();
  recordIs(*src, "g1", "Ethernet1", 10, {0});
  Zek::Ptr<TxMstPortStatus> p = portIs(*src, "g1", "Ethernet1");
  make();
  for (std::uint8_t i = 1; i < 20; ++i) {
    // The first round registers each handler's binary trace call site.
    std::optional<Zek::test::AllocScope> scope;
    if (i > 1) scope.emplace();
    p->txUpdateIs(10, i);
    p->txNewInfoIs(i);
    p->txHelloWhenOnIs(TimerVal(0, i));
    src->heartbeatTimeoutIs(i);
    EXPECT_EQ(scope ? scope->count() : 0u, 0u) << "round " << int{i};
  }
  EXPECT_EQ(mirrorDiff(*src, *dst), "");
}

TEST_F(TxToTxTest, RecordSyncersComeAndGoWithTheirRecordsAndAreNotReinstantiated) {
  portIs(*src, "g1", "Ethernet1");
  make();
  PortSm* p = portSm();
  LiveCounts withoutRecord;
  traced();
  Zek::Ptr<IntxInfo> record = recordIs(*src, "g1", "Ethernet1", 20, {0, 4}, 9);
  EXPECT_EQ(traced(), (Lines{"TxToTx::ZekTxMstPortStatusSm[g1|Et1]::handleTxInfo() setting vlan=20"}));
  Zek::Ptr<IntxInfoSyncer> rs = p->txInfoSyncer(20);
  ASSERT_TRUE(rs);

  // Create-or-return refuses other arguments, naming the one that differs, and keeps the syncer.
  Zek::Ptr<IntxInfo> other = IntxInfo::IntxInfoIs(20);
  const auto refused = [&](const Zek::Ptr<IntxInfo const>& s, const Zek::Ptr<IntxInfo>& d, const char* name) {
    try {
      p->txInfoSyncerIs(s, d, 20, name);
    } catch (const Zek::MutatorReinstantiatingException& e) {
      EXPECT_EQ(p->txInfoSyncer(20), rs);
      return std::string(e.what());
    }
    return std::string("no exception");
  };
  EXPECT_NE(refused(other, rs->dest(), "g1|Et1").find("txInfoSyncer.source:"), std::string::npos);
  EXPECT_NE(refused(rs->source(), other, "g1|Et1").find("txInfoSyncer.dest:"), std::string::npos);
  EXPECT_NE(refused(rs->source(), rs->dest(), "g1|Et2").find("txInfoSyncer.parentId:"), std::string::npos);
  EXPECT_EQ(p->txInfoSyncerIs(rs->source(), rs->dest(), 20, "g1|Et1"), rs);
  EXPECT_THROW(p->txInfoSyncerIs(nullptr, other, 11, "x"), Zek::MutatorArgNullPointerException);
  EXPECT_THROW(syncer->txMstStatusIs(nullptr), Zek::MutatorArgNullPointerException);
  EXPECT_THROW(syncer->zekTxMstStatusSm("g1")->txMstPortStatusIs(nullptr), Zek::MutatorArgNullPointerException);
  EXPECT_FALSE(p->txInfoSyncerHas(11));

  portIs(*src, "g1", "Ethernet1")->txInfoDel(20);
  EXPECT_EQ(traced(), (Lines{"TxToTx::ZekTxMstPortStatusSm[g1|Et1]::handleTxInfo() deleting vlan=20"}));
  EXPECT_FALSE(dstPort()->txInfo(20) || p->txInfoSyncer(20));
  record = other = nullptr;
  rs = nullptr;
  EXPECT_TRUE(withoutRecord.unchanged()) << "the record syncer and its per-instance syncers are gone";
}

TEST_F(TxToTxTest, SourceDelAndNotificationsOffStopCopying) {
  recordIs(*src, "g1", "Ethernet1", 10, {0});
  make();
  syncer->hasNotificationActiveIs(false);
  EXPECT_FALSE(portSm()->txInfoSyncer(10)->hasNotificationActive());
  portIs(*src, "g1", "Ethernet1")->txNewInfoIs(3);
  src->txMstStatusIs("g2");
  EXPECT_EQ(dstPort()->txNewInfo(), 0u);
  EXPECT_FALSE(dst->txMstStatus("g2"));
  syncer->hasNotificationActiveIs(true);
  EXPECT_TRUE(portSm()->txInfoSyncer(10)->hasNotificationActive());
  portIs(*src, "g1", "Ethernet1")->txNewInfoIs(4);
  EXPECT_EQ(dstPort()->txNewInfo(), 4u);

  EXPECT_EQ(syncer->sourceDel(), src);
  EXPECT_FALSE(syncer->source() || syncer->sourceDel());
  src->heartbeatTimeoutIs(9.0);
  src->txMstStatusIs("g3");
  EXPECT_EQ(dst->heartbeatTimeout(), 0.0);
  EXPECT_FALSE(dst->txMstStatus("g3"));
  EXPECT_NE(syncer->zekTxMstStatusSm("g1"), nullptr) << "group reactors stay";
  // Without a source every group counts as absent, but only when someone calls the handler.
  EXPECT_TRUE(dst->txMstStatus("g1"));
  syncer->handleTxMstStatus("g1");
  EXPECT_FALSE(dst->txMstStatus("g1"));
}

TEST_F(TxToTxTest, DeletingReactorsOrTheSyncerLeavesTheDestinationAsItIs) {
  test::buildTree(*src, 2, 3, 2, 3);
  make();
  auto rec = RecordingReactor::RecordingReactorIs(dst);
  EXPECT_EQ(syncer->txMstStatusDel("g0"), src->txMstStatus("g0"));
  EXPECT_FALSE(syncer->txMstStatusDel("g0"));
  syncer->zekTxMstStatusSm("g1")->txMstPortStatusDelAll();
  EXPECT_EQ(syncer->zekTxMstStatusSm("g1")->zekTxMstPortStatusCount(), 0u);
  syncer->txMstStatusDelAll();
  EXPECT_EQ(syncer->zekTxMstStatusSmCount(), 0u);
  src->txMstStatus("g1")->txMstPortStatusIs(IntfId("Ethernet1"))->txNewInfoIs(77);  // no reactor left to copy it
  EXPECT_EQ(rec->count(), 0u) << "deleting reactors writes nothing";
  EXPECT_EQ(dstPort()->txNewInfo(), 1u);

  // A second syncer on the same trees, destroyed: the destination keeps every member and value.
  make();
  EXPECT_GT(LiveCounts::now("StpTxRx::IntxInfoSyncer::ZekMstiNSm"), before.at("StpTxRx::IntxInfoSyncer::ZekMstiNSm"));
  rec->clear();
  syncer = nullptr;
  EXPECT_EQ(rec->count(), 0u);
  EXPECT_EQ(mirrorDiff(*src, *dst), "");
  for (const char* type : {"StpTxRx::TxStatusToTxSyncer", "StpTxRx::TxStatusToTxSyncer::ZekSource",
                           "StpTxRx::TxStatusToTxSyncer::ZekTxMstStatusSm", "StpTxRx::IntxInfoSyncer",
                           "StpTxRx::TxStatusToTxSyncer::ZekTxMstStatusSm::ZekTxMstPortStatusSm",
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
  auto* g = syncer->zekTxMstStatusSm("g1");
  EXPECT_EQ(syncer->txMstStatusIs(other->txMstStatus("g1")).get(), g) << "kept, not rebuilt";
  EXPECT_EQ(g->txMstStatus(), other->txMstStatus("g1"));
  EXPECT_EQ(portSm()->txMstPortStatus(), other->txMstStatus("g1")->txMstPortStatus(IntfId("Ethernet1")));
  EXPECT_EQ(portSm("Ethernet2"), nullptr);
  // The group now mirrors the other tree's group; the new port stays empty until the next full copy.
  test::MirrorExceptions ex;
  ex.uncopiedPorts.insert({"g1", "Ethernet3"});
  other->heartbeatTimeoutIs(dst->heartbeatTimeout());
  EXPECT_EQ(mirrorDiff(*other, *dst, ex), "");
  other->txMstStatus("g1")->txMstPortStatus(IntfId("Ethernet1"))->txNewInfoIs(5);
  EXPECT_EQ(dstPort()->txNewInfo(), 5u);
  syncer = nullptr;
}

}  // namespace
}  // namespace StpTxRx
