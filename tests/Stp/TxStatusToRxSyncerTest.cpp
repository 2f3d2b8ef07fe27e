// The transmit-to-receive syncer: the destination receive status follows the group and port shape of the
// transmit status, at construction (stale entries removed only when the counts differ) and on every
// change; tracing; deleting reactors, disconnecting and destroying leave the destination as it is.
#include <stptxrx/Stp/TxStatusToRxSyncer.h>
#include <stptxrx/runtime/Exception.h>

#include "support/LiveCounts.h"
#include "support/RecordingReactor.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

namespace StpTxRx {
namespace {

using Shape = std::map<std::string, std::set<std::string>>;
using Zek::test::RecordingReactor;
using Zek::test::TraceCapture;

const IntfId et1("Ethernet1");
const IntfId et2("Ethernet2");
const IntfId et9("Ethernet9");

Shape shapeOf(const RxStatus& rx) {
  Shape s;
  for (const auto& [name, group] : rx.rxMstStatus()) {
    auto& ports = s[name.str()];
    for (const auto& [intf, port] : group->rxMstPortStatus()) ports.insert(intf.name().str());
  }
  return s;
}

/// (level, text) of every captured line.
std::vector<std::pair<int, std::string>> leveled(const TraceCapture& cap) {
  std::vector<std::pair<int, std::string>> out;
  for (const auto& line : cap.lines()) out.emplace_back(line.level, line.text);
  return out;
}

class TxStatusToRxSyncerTest : public ::testing::Test {
 protected:
  /// Source: group A with Ethernet1 and Ethernet2, group B without ports.
  void SetUp() override {
    tx = TxStatus::TxStatusIs();
    groupA = tx->txMstStatusIs("A");
    groupA->txMstPortStatusIs(et1);
    groupA->txMstPortStatusIs(et2);
    tx->txMstStatusIs("B");
    rx = RxStatus::RxStatusIs();
  }

  TxStatus::Ptr tx;
  TxMstStatus::Ptr groupA;
  RxStatus::Ptr rx;
  Zek::test::LiveCounts before;
};

// ---------------------------------------------------------------------------------------------------
// Construction and the full pass
// ---------------------------------------------------------------------------------------------------

TEST_F(TxStatusToRxSyncerTest, ConstructionGivesTheShapeRemovesStaleEntriesAndTracesEachStep) {
  RxMstStatus::Ptr staleGroup = rx->rxMstStatusIs("Z");
  RxMstStatus::Ptr keptA = rx->rxMstStatusIs("A");
  RxMstPortStatus::Ptr keptPort = keptA->rxMstPortStatusIs(et1);
  keptA->rxMstPortStatusIs(et9);
  keptPort->bpduCountIs(42);

  TraceCapture cap({"StpTxStatusSyncer/7-8"});
  auto syncer = txStatusToRxSyncerFactory(tx, rx);

  EXPECT_EQ(shapeOf(*rx), (Shape{{"A", {"Ethernet1", "Ethernet2"}}, {"B", {}}}));
  EXPECT_EQ(rx->rxMstStatus("A"), keptA) << "an existing group is kept, not rebuilt";
  EXPECT_EQ(keptA->rxMstPortStatus(et1), keptPort);
  EXPECT_EQ(keptPort->bpduCount(), 42u) << "no values are copied or cleared";
  EXPECT_TRUE(staleGroup->zekMarkedForDeletion());
  EXPECT_TRUE(syncer->initialized());
  EXPECT_EQ(syncer->zekTxMstStatusCount(), 2u);
  ASSERT_NE(syncer->zekTxMstStatus("A"), nullptr);
  EXPECT_EQ(syncer->zekTxMstStatus("A")->rxMstStatus(), keptA);
  EXPECT_TRUE(syncer->zekTxMstStatus("A")->initialized());

  // Group reactors first (each with its own pass), then the syncer's pass; stale entries go untraced.
  const std::vector<std::pair<int, std::string>> expected{
      {8, "TxToRx::ZekTxMstStatusSm[A]::handleInitialized() "},
      {8, "TxToRx::ZekTxMstStatusSm[A]::handleTxMstPortStatus() setting rxMstPortStatus for Et1"},
      {8, "TxToRx::ZekTxMstStatusSm[A]::handleTxMstPortStatus() setting rxMstPortStatus for Et2"},
      {8, "TxToRx::ZekTxMstStatusSm[B]::handleInitialized() "},
      {8, "TxToRx::handleInitialized() "},
      {8, "TxToRx::handleTxMstStatus() setting rxMstStatus A"},
      {8, "TxToRx::handleTxMstStatus() setting rxMstStatus B"},
  };
  EXPECT_EQ(leveled(cap), expected);
  for (const auto& line : cap.lines()) {
    EXPECT_EQ(line.handle, "StpTxStatusSyncer");
    EXPECT_EQ(line.file, "Stp/StpTxStatusSyncer");
  }
}

TEST_F(TxStatusToRxSyncerTest, EqualCountsSkipTheStalePassesAndLeaveTheDestinationUntouched) {
  RxMstStatus::Ptr a = rx->rxMstStatusIs("A");
  a->rxMstPortStatusIs(et1);
  a->rxMstPortStatusIs(et2);
  rx->rxMstStatusIs("B");
  auto recTop = RecordingReactor::RecordingReactorIs(rx);
  auto recA = RecordingReactor::RecordingReactorIs(a);

  auto syncer = TxStatusToRxSyncer::TxStatusToRxSyncerIs(tx, rx);
  EXPECT_EQ(recTop->count(), 0u);
  EXPECT_EQ(recA->count(), 0u);

  // Rerunning the full pass is harmless and still complete: no guard on `initialized`.
  rx->rxMstStatusIs("C");
  rx->rxMstStatus("B")->rxMstPortStatusIs(et9);
  syncer->handleInitialized();
  EXPECT_EQ(shapeOf(*rx), (Shape{{"A", {"Ethernet1", "Ethernet2"}}, {"B", {"Ethernet9"}}}))
      << "the syncer's pass removes the extra group; ports are the group reactors' business";
  syncer->zekTxMstStatus("B")->handleInitialized();
  EXPECT_EQ(shapeOf(*rx), (Shape{{"A", {"Ethernet1", "Ethernet2"}}, {"B", {}}}));
}

TEST_F(TxStatusToRxSyncerTest, NullSourceBuildsNoReactorAndLeavesTheDestinationAlone) {
  rx->rxMstStatusIs("Z")->rxMstPortStatusIs(et1);
  TraceCapture cap({"StpTxStatusSyncer/7-8"});
  auto syncer = txStatusToRxSyncerFactory(nullptr, rx);
  EXPECT_EQ(syncer->source(), nullptr);
  EXPECT_TRUE(syncer->initialized());
  EXPECT_EQ(syncer->zekTxMstStatusCount(), 0u);
  EXPECT_EQ(shapeOf(*rx), (Shape{{"Z", {"Ethernet1"}}}));
  EXPECT_EQ(cap.texts(8), (std::vector<std::string>{"TxToRx::handleInitialized() "}));
  EXPECT_EQ(syncer->sourceDel(), nullptr);
}

// ---------------------------------------------------------------------------------------------------
// Changes of the source
// ---------------------------------------------------------------------------------------------------

TEST_F(TxStatusToRxSyncerTest, PortsAndGroupsFollowTheSourceWithTheHandlerBeforeTheReactor) {
  auto syncer = txStatusToRxSyncerFactory(tx, rx);
  TraceCapture cap({"StpTxStatusSyncer/7-8"});

  groupA->txMstPortStatusDel(et2);
  EXPECT_EQ(shapeOf(*rx)["A"], (std::set<std::string>{"Ethernet1"}));
  EXPECT_EQ(leveled(cap), (std::vector<std::pair<int, std::string>>{
                              {8, "TxToRx::ZekTxMstStatusSm[A]::handleTxMstPortStatus() deleting rxMstPortStatus for Et2"}}));

  cap.clear();
  groupA->txMstPortStatusIs(IntfId("PortChannel10"));
  EXPECT_EQ(shapeOf(*rx)["A"], (std::set<std::string>{"Ethernet1", "PortChannel10"}));
  EXPECT_EQ(cap.texts(8), (std::vector<std::string>{
                              "TxToRx::ZekTxMstStatusSm[A]::handleTxMstPortStatus() setting rxMstPortStatus for Po10"}));

  cap.clear();
  RxMstStatus::Ptr destB = rx->rxMstStatus("B");
  EXPECT_NE(tx->txMstStatusDel("B"), nullptr);
  EXPECT_EQ(rx->rxMstStatus("B"), nullptr);
  EXPECT_TRUE(destB->zekMarkedForDeletion());
  EXPECT_EQ(syncer->zekTxMstStatus("B"), nullptr) << "the group's reactor goes with it";
  EXPECT_EQ(cap.texts(8), (std::vector<std::string>{"TxToRx::handleTxMstStatus() deleting rxMstStatus B"}));

  // A new group: the handler creates the destination group, then the new reactor runs its pass.
  cap.clear();
  TxMstStatus::Ptr c = tx->txMstStatusIs("C");
  EXPECT_EQ(cap.texts(8), (std::vector<std::string>{"TxToRx::handleTxMstStatus() setting rxMstStatus C",
                                                    "TxToRx::ZekTxMstStatusSm[C]::handleInitialized() "}));
  c->txMstPortStatusIs(et9);
  EXPECT_EQ(shapeOf(*rx), (Shape{{"A", {"Ethernet1", "PortChannel10"}}, {"C", {"Ethernet9"}}}));

  // A re-used key gets a new reactor on the new group object.
  tx->txMstStatusDel("C");
  TxMstStatus::Ptr c2 = tx->txMstStatusIs("C");
  ASSERT_NE(syncer->zekTxMstStatus("C"), nullptr);
  EXPECT_EQ(syncer->zekTxMstStatus("C")->txMstStatus(), c2);
  EXPECT_EQ(shapeOf(*rx)["C"], std::set<std::string>{});
  c->txMstPortStatusIs(et1);
  EXPECT_EQ(shapeOf(*rx)["C"], std::set<std::string>{}) << "the old group object is no longer watched";
  c2->txMstPortStatusIs(et2);
  EXPECT_EQ(shapeOf(*rx)["C"], (std::set<std::string>{"Ethernet2"}));
}

TEST_F(TxStatusToRxSyncerTest, NotificationsOffStopTheSyncerAndOnResumesIt) {
  auto syncer = txStatusToRxSyncerFactory(tx, rx);
  syncer->hasNotificationActiveIs(false);
  tx->txMstStatusIs("C");
  groupA->txMstPortStatusDel(et1);
  EXPECT_EQ(shapeOf(*rx), (Shape{{"A", {"Ethernet1", "Ethernet2"}}, {"B", {}}}));
  syncer->hasNotificationActiveIs(true);
  groupA->txMstPortStatusDel(et2);
  tx->txMstStatusDel("B");
  EXPECT_EQ(shapeOf(*rx), (Shape{{"A", {"Ethernet1"}}})) << "missed changes are not replayed";
}

// ---------------------------------------------------------------------------------------------------
// Reactor mutators, disconnection, destruction
// ---------------------------------------------------------------------------------------------------

TEST_F(TxStatusToRxSyncerTest, ReactorMutatorsNeverTouchTheDestination) {
  auto syncer = txStatusToRxSyncerFactory(tx, rx);
  EXPECT_THROW(syncer->txMstStatusIs(nullptr), Zek::MutatorArgNullPointerException);

  auto reactorA = syncer->txMstStatusIs(groupA);
  EXPECT_EQ(reactorA.get(), syncer->zekTxMstStatus("A")) << "create-or-return gives the existing reactor";

  EXPECT_EQ(syncer->txMstStatusDel("A"), groupA);
  EXPECT_EQ(syncer->txMstStatusDel("A"), nullptr);
  EXPECT_TRUE(reactorA->zekMarkedForDeletion());
  EXPECT_EQ(reactorA->owner(), nullptr);
  groupA->txMstPortStatusDel(et1);
  EXPECT_EQ(shapeOf(*rx)["A"], (std::set<std::string>{"Ethernet1", "Ethernet2"})) << "no reactor, no change";

  syncer->txMstStatusDelAll();
  EXPECT_EQ(syncer->zekTxMstStatusCount(), 0u);
  EXPECT_EQ(shapeOf(*rx), (Shape{{"A", {"Ethernet1", "Ethernet2"}}, {"B", {}}}));

  // Recreating a reactor runs its pass at once.
  syncer->txMstStatusIs(groupA);
  EXPECT_EQ(shapeOf(*rx)["A"], (std::set<std::string>{"Ethernet2"}));
}

TEST_F(TxStatusToRxSyncerTest, SourceDelFreezesTheDestinationAndDestructionLeavesIt) {
  {
    auto syncer = txStatusToRxSyncerFactory(tx, rx);
    TraceCapture cap({"StpTxStatusSyncer/7-8"});
    EXPECT_EQ(syncer->sourceDel(), tx);
    EXPECT_EQ(syncer->source(), nullptr);
    tx->txMstStatusIs("C");
    tx->txMstStatusDel("B");
    EXPECT_EQ(shapeOf(*rx), (Shape{{"A", {"Ethernet1", "Ethernet2"}}, {"B", {}}}));
    // The group reactors stay connected to their groups.
    groupA->txMstPortStatusDel(et2);
    EXPECT_EQ(shapeOf(*rx)["A"], (std::set<std::string>{"Ethernet1"}));
    EXPECT_EQ(cap.texts(8).size(), 1u);
    syncer->handleInitialized();
    EXPECT_EQ(shapeOf(*rx), (Shape{{"A", {"Ethernet1"}}, {"B", {}}})) << "no source: the passes do nothing";
  }
  // The syncer is gone; what it built stays, and nothing watches the source any more.
  EXPECT_EQ(shapeOf(*rx), (Shape{{"A", {"Ethernet1"}}, {"B", {}}}));
  EXPECT_TRUE(tx->notifieeList()->empty());
  EXPECT_TRUE(groupA->notifieeList()->empty());
  tx = nullptr;
  groupA = nullptr;
  rx = nullptr;
  EXPECT_TRUE(before.unchanged());
}

TEST_F(TxStatusToRxSyncerTest, DestroyingTheSyncerUnregistersEverythingAndFreesAllReactors) {
  {
    auto syncer = txStatusToRxSyncerFactory(tx, rx);
    EXPECT_EQ(Zek::test::LiveCounts::now("StpTxRx::TxStatusToRxSyncer::ZekTxMstStatusSm"),
              before.at("StpTxRx::TxStatusToRxSyncer::ZekTxMstStatusSm") + 2);
  }
  const Shape built{{"A", {"Ethernet1", "Ethernet2"}}, {"B", {}}};
  EXPECT_EQ(shapeOf(*rx), built);
  tx->txMstStatusDel("A");
  EXPECT_EQ(shapeOf(*rx), built);
  tx = nullptr;
  groupA = nullptr;
  rx = nullptr;
  EXPECT_TRUE(before.unchanged());
}

}  // namespace
}  // namespace StpTxRx
