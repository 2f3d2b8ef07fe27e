// The transmit-to-receive syncer beyond what RxRandomTest checks against its model: exact traces, stale
// entries, a missing source counting as empty, full passes rerun without guard, reactor mutators,
// notifications off, sourceDel and destruction leaving the destination as it is.
#include <stptxrx/Stp/TxStatusToRxSyncer.h>
#include <stptxrx/runtime/Exception.h>

#include "support/LiveCounts.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

namespace StpTxRx {
namespace {

using Shape = std::map<std::string, std::set<std::string>>;
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

class TxStatusToRxSyncerTest : public ::testing::Test {
 protected:
  /// Source: group A with Ethernet1 and Ethernet2, group B without ports.
  void SetUp() override {
    groupA->txMstPortStatusIs(et1);
    groupA->txMstPortStatusIs(et2);
    tx->txMstStatusIs("B");
  }

  Zek::test::LiveCounts before;
  TxStatus::Ptr tx = TxStatus::TxStatusIs();
  TxMstStatus::Ptr groupA = tx->txMstStatusIs("A");
  RxStatus::Ptr rx = RxStatus::RxStatusIs();
  const Shape built{{"A", {"Ethernet1", "Ethernet2"}}, {"B", {}}};
};

TEST_F(TxStatusToRxSyncerTest, ConstructionKeepsExistingEntriesRemovesStaleOnesAndTracesEachStep) {
  RxMstStatus::Ptr stale = rx->rxMstStatusIs("Z");
  RxMstStatus::Ptr keptA = rx->rxMstStatusIs("A");
  keptA->rxMstPortStatusIs(et9);
  keptA->rxMstPortStatusIs(et1)->bpduCountIs(42);
  TraceCapture cap({"StpTxStatusSyncer/7-8"});
  auto syncer = txStatusToRxSyncerFactory(tx, rx);
  EXPECT_EQ(shapeOf(*rx), built);
  EXPECT_EQ(rx->rxMstStatus("A"), keptA);
  EXPECT_EQ(keptA->rxMstPortStatus(et1)->bpduCount(), 42u) << "no values are copied or cleared";
  EXPECT_TRUE(stale->zekMarkedForDeletion());
  EXPECT_EQ(syncer->zekTxMstStatus("A")->rxMstStatus(), keptA);
  // Group reactors first (each with its own pass), then the syncer's pass; stale entries go untraced.
  const std::string a = "TxToRx::ZekTxMstStatusSm[A]::";
  const std::vector<std::pair<int, std::string>> expected{
      {8, a + "handleInitialized() "},
      {8, a + "handleTxMstPortStatus() setting rxMstPortStatus for Et1"},
      {8, a + "handleTxMstPortStatus() setting rxMstPortStatus for Et2"},
      {8, "TxToRx::ZekTxMstStatusSm[B]::handleInitialized() "},
      {8, "TxToRx::handleInitialized() "},
      {8, "TxToRx::handleTxMstStatus() setting rxMstStatus A"},
      {8, "TxToRx::handleTxMstStatus() setting rxMstStatus B"},
      {8, a + "handleTxMstPortStatus() deleting rxMstPortStatus for Et2"},
      {8, "TxToRx::handleTxMstStatus() deleting rxMstStatus B"},
      {8, "TxToRx::handleTxMstStatus() setting rxMstStatus C"},
      {8, "TxToRx::ZekTxMstStatusSm[C]::handleInitialized() "}};
  groupA->txMstPortStatusDel(et2);
  tx->txMstStatusDel("B");
  tx->txMstStatusIs("C");  // the handler creates the destination group before the new reactor's pass
  std::vector<std::pair<int, std::string>> seen;
  for (const auto& line : cap.lines()) {
    seen.emplace_back(line.level, line.text);
    EXPECT_EQ(line.handle, "StpTxStatusSyncer");
  }
  EXPECT_EQ(seen, expected);
}

TEST_F(TxStatusToRxSyncerTest, AMissingSourceCountsAsEmptyAndDeletesEveryDestinationEntry) {
  rx->rxMstStatusIs("Z")->rxMstPortStatusIs(et1);
  TraceCapture cap({"StpTxStatusSyncer/7-8"});
  auto empty = txStatusToRxSyncerFactory(nullptr, rx);
  EXPECT_EQ(empty->zekTxMstStatusCount(), 0u);
  EXPECT_TRUE(rx->rxMstStatus().empty());
  EXPECT_EQ(cap.texts(8), (std::vector<std::string>{"TxToRx::handleInitialized() "})) << "stale pass untraced";
  EXPECT_TRUE(txStatusToRxSyncerFactory(nullptr, nullptr)->initialized()) << "nothing to clean";

  auto syncer = txStatusToRxSyncerFactory(tx, rx);
  EXPECT_EQ(syncer->sourceDel(), tx);
  tx->txMstStatusIs("C");  // not seen any more
  EXPECT_EQ(shapeOf(*rx), built);
  cap.clear();
  syncer->handleTxMstStatus("A");
  EXPECT_EQ(cap.texts(8), (std::vector<std::string>{"TxToRx::handleTxMstStatus() deleting rxMstStatus A"}));
  syncer->zekTxMstStatus("A")->notifierIs(nullptr);
  rx->rxMstStatusIs("A")->rxMstPortStatusIs(et1);
  syncer->zekTxMstStatus("A")->handleInitialized();
  EXPECT_EQ(shapeOf(*rx), (Shape{{"A", {}}, {"B", {}}})) << "a group reactor without its group";
  syncer->handleInitialized();
  EXPECT_TRUE(rx->rxMstStatus().empty());
}

TEST_F(TxStatusToRxSyncerTest, ReactorMutatorsSourceDelAndDestructionLeaveTheDestination) {
  {
    auto syncer = txStatusToRxSyncerFactory(tx, rx);
    EXPECT_THROW(syncer->txMstStatusIs(nullptr), Zek::MutatorArgNullPointerException);
    auto reactorA = syncer->txMstStatusIs(groupA);
    EXPECT_EQ(reactorA.get(), syncer->zekTxMstStatus("A")) << "create-or-return";
    EXPECT_EQ(syncer->txMstStatusDel("A"), groupA);
    EXPECT_EQ(syncer->txMstStatusDel("A"), nullptr);
    EXPECT_TRUE(reactorA->zekMarkedForDeletion() && !reactorA->owner());
    groupA->txMstPortStatusDel(et1);
    EXPECT_EQ(shapeOf(*rx), built) << "no reactor, no change";
    syncer->txMstStatusIs(groupA);  // a new reactor runs its pass at once
    EXPECT_EQ(shapeOf(*rx)["A"], (std::set<std::string>{"Ethernet2"}));
    syncer->txMstStatusDelAll();
    EXPECT_EQ(syncer->zekTxMstStatusCount(), 0u);
    syncer->txMstStatusIs(groupA);

    // Notifications off stop the syncer and on resumes it without replaying; sourceDel stops the top.
    syncer->hasNotificationActiveIs(false);
    groupA->txMstPortStatusDel(et2);
    tx->txMstStatusIs("C");
    syncer->hasNotificationActiveIs(true);
    EXPECT_EQ(syncer->sourceDel(), tx);
    tx->txMstStatusDel("B");
    groupA->txMstPortStatusIs(et9);
    EXPECT_EQ(shapeOf(*rx), (Shape{{"A", {"Ethernet2", "Ethernet9"}}, {"B", {}}}));
  }
  EXPECT_EQ(shapeOf(*rx), (Shape{{"A", {"Ethernet2", "Ethernet9"}}, {"B", {}}}));
  EXPECT_TRUE(tx->notifieeList()->empty());
  EXPECT_TRUE(groupA->notifieeList()->empty());
  tx = nullptr;
  groupA = nullptr;
  rx = nullptr;
  EXPECT_TRUE(before.unchanged());
}

}  // namespace
}  // namespace StpTxRx
