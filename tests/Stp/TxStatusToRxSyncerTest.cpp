// TxStatusToRxSyncer: the exact traces and the receive status's group and port shape after each step,
// the deletion mark and notification switch, re-pointing, reactors without owner or unbound by the
// destination's readers, null trees and teardown.
#include <stptxrx/Stp/StpTxStatusSyncer.h>

#include "support/LiveCounts.h"
#include "support/RecordingReactor.h"
#include "support/Script.h"

#include <set>

namespace StpTxRx {
namespace {

using Zek::test::RecordingReactor;

constexpr const char* origin = "StpTxStatusSyncer Stp/StpTxStatusSyncer";

class TxToRxTest : public ::testing::Test {
 protected:
  void SetUp() override {  // group A with Ethernet1 and Ethernet2, group B without ports
    groupA->txMstPortStatusIs(et1), groupA->txMstPortStatusIs(IntfId("Ethernet2")), tx->txMstStatusIs("B");
  }
  void TearDown() override {
    syncer = nullptr, tx = nullptr, groupA = nullptr, rx = nullptr;
    EXPECT_TRUE(before.unchanged());
  }
  /// The receive status's groups and ports, as "A:Ethernet1,Ethernet2 B:".
  std::string shape() const {
    std::string s;
    for (const auto& [name, group] : rx->rxMstStatus()) {
      std::set<std::string> ports;  // in name order
      for (const auto& [intf, port] : group->rxMstPortStatus()) ports.insert(intf.name().str());
      s += (s.empty() ? "" : " ") + name.str() + ":";
      for (const auto& p : ports) s += (s.back() == ':' ? "" : ",") + p;
    }
    return s;
  }
  Zek::test::LiveCounts before;
  const IntfId et1{"Ethernet1"};
  TxStatus::Ptr tx = TxStatus::TxStatusIs();
  TxMstStatus::Ptr groupA = tx->txMstStatusIs("A");
  RxStatus::Ptr rx = RxStatus::RxStatusIs();
  TxStatusToRxSyncer::Ptr syncer;
};

TEST_F(TxToRxTest, EachStepTracesAndShapesExactlyThis) {
  RxMstStatus::Ptr stale = rx->rxMstStatusIs("Z"), keptA = rx->rxMstStatusIs("A");
  keptA->rxMstPortStatusIs(IntfId("Ethernet9"));
  keptA->rxMstPortStatusIs(et1)->bpduCountIs(42);
  TxStatus::Ptr other = TxStatus::TxStatusIs();
  Zek::Ptr<TxStatusToRxSyncer::ZekSource> extra;
  Zek::test::TraceCapture cap({"StpTxStatusSyncer/7-8"});
  Zek::test::play(cap, origin, {{"TxToRx::ZekTxMstStatusSm[A]::", "A:"}, {"TxToRx::ZekTxMstStatusSm[B]::", "B:"},
                        {"TxToRx::ZekTxMstStatusSm[C]::", "C:"}, {"TxToRx::ZekTxMstStatusSm[D]::", "D:"}, {"TxToRx::", "T:"}},
                  [&] { return shape(); }, {
      // Group reactors first (each with its own pass), then the syncer's pass; stale entries go untraced and
      // existing ones keep their values.
      {"construction", [&] {
         syncer = txStatusToRxSyncerFactory(tx, rx);
         EXPECT_TRUE(stale->zekMarkedForDeletion() && keptA->rxMstPortStatus(et1)->bpduCount() == 42);
         EXPECT_EQ(syncer->zekTxMstStatus("A")->rxMstStatus(), keptA);
       },
       "A:handleInitialized() |A:handleTxMstPortStatus() setting rxMstPortStatus for Et1|"
       "A:handleTxMstPortStatus() setting rxMstPortStatus for Et2|B:handleInitialized() |T:handleInitialized() |"
       "T:handleTxMstStatus() setting rxMstStatus A|T:handleTxMstStatus() setting rxMstStatus B",
       "A:Ethernet1,Ethernet2 B:"},
      {"members added and removed", [&] { groupA->txMstPortStatusDel(IntfId("Ethernet2")), tx->txMstStatusDel("B"), tx->txMstStatusIs("C"); },
       "A:handleTxMstPortStatus() deleting rxMstPortStatus for Et2|T:handleTxMstStatus() deleting rxMstStatus B|"
       "T:handleTxMstStatus() setting rxMstStatus C|C:handleInitialized() ", "A:Ethernet1 C:"},
      {"reactor deleted: no change; a new one runs its pass at once", [&] {
         Zek::Ptr<TxStatusToRxSyncer::ZekTxMstStatusSm> a = syncer->zekTxMstStatus("A");
         EXPECT_EQ(syncer->txMstStatusDel("A"), groupA);
         EXPECT_TRUE(!syncer->txMstStatusDel("A") && a->zekMarkedForDeletion() && !a->owner());
         groupA->txMstPortStatusIs(IntfId("Ethernet3"));
         auto* made = syncer->txMstStatusIs(groupA).get();
         EXPECT_EQ(made, syncer->zekTxMstStatus("A"));
         EXPECT_THROW(syncer->txMstStatusIs(nullptr), Zek::MutatorArgNullPointerException);
       }, "A:handleInitialized() |A:handleTxMstPortStatus() setting rxMstPortStatus for Et1|"
          "A:handleTxMstPortStatus() setting rxMstPortStatus for Et3", "A:Ethernet1,Ethernet3 C:"},
      {"marked for deletion: the reactor's handler stops; a null key or another id: nothing", [&] {
         syncer->zekTxMstStatus("A")->onAttribute(TxMstStatus::idTxMstPortStatus, nullptr);
         syncer->zekTxMstStatus("A")->onAttribute(TxMstStatus::idName, &et1);
         syncer->zekTxMstStatus("A")->zekMarkedForDeletionIs(true);
         groupA->txMstPortStatusDel(IntfId("Ethernet3"));
         syncer->zekTxMstStatus("A")->zekMarkedForDeletionIs(false);
       }, "", "A:Ethernet1,Ethernet3 C:"},
      // A source reactor re-pointed at another tree mirrors its groups in the group reactors.
      {"source reactor re-pointed", [&] {
         other->txMstStatusIs("C"), other->txMstStatusIs("D");
         extra = new TxStatusToRxSyncer::ZekSource(tx, syncer.get());
         extra->notifierIs(other), extra->notifierIs(other);
         const Zek::Name c("C");
         extra->onAttribute(TxStatus::idTxMstStatus, nullptr), extra->onAttribute(TxStatus::idHeartbeatTimeout, &c);
         EXPECT_TRUE(!syncer->zekTxMstStatus("A") && syncer->zekTxMstStatus("C")->txMstStatus() == other->txMstStatus("C"));
         extra->ownerIs(nullptr);
         syncer->txMstStatusDelAll();
         EXPECT_EQ(syncer->zekTxMstStatusCount(), 0u);
         syncer->txMstStatusIs(groupA);
       }, "D:handleInitialized() |A:handleInitialized() |A:handleTxMstPortStatus() setting rxMstPortStatus for Et1",
       "A:Ethernet1 C: D:"},
      // Notifications off stop the syncer and on resumes it without replaying; sourceDel stops the top.
      {"notifications off and on, source detached", [&] {
         syncer->hasNotificationActiveIs(false);
         groupA->txMstPortStatusIs(IntfId("Ethernet4")), tx->txMstStatusIs("E");
         syncer->hasNotificationActiveIs(true);
         EXPECT_EQ(syncer->sourceDel(), tx);
         tx->txMstStatusDel("C"), groupA->txMstPortStatusIs(IntfId("Ethernet5"));
       }, "A:handleTxMstPortStatus() setting rxMstPortStatus for Et5", "A:Ethernet1,Ethernet5 C: D:"},
      {"a group handler without a source deletes", [&] { syncer->handleTxMstStatus("A"); },
       "T:handleTxMstStatus() deleting rxMstStatus A", "C: D:"},
      {"a group reactor without its group empties its destination group", [&] {
         syncer->zekTxMstStatus("A")->notifierIs(nullptr);
         rx->rxMstStatusIs("A")->rxMstPortStatusIs(et1);
         syncer->zekTxMstStatus("A")->handleInitialized();
       }, "A:handleInitialized() ", "C: D: A:"},
      {"and the syncer's pass without a source deletes every group", [&] { syncer->handleInitialized(); },
       "T:handleInitialized() ", ""},
      {"released: destination left as it is", [&] {
         rx->rxMstStatusIs("K");
         syncer = nullptr, extra = nullptr;
         EXPECT_TRUE(tx->notifieeList()->empty() && groupA->notifieeList()->empty());
       }, "", "K:"},
      {"without a source: empty, and nothing to clean without a destination", [&] {
         syncer = txStatusToRxSyncerFactory(nullptr, rx);
         EXPECT_EQ(syncer->zekTxMstStatusCount(), 0u);
         EXPECT_TRUE(txStatusToRxSyncerFactory(nullptr, nullptr)->initialized());
       }, "T:handleInitialized() |T:handleInitialized() ", ""},
  });
}

TEST_F(TxToRxTest, ReactorsWithoutOwnerOrUnboundByADestinationReaderStop) {
  Zek::Ptr<TxStatusToRxSyncer::ZekTxMstStatusSm> orphan(new TxStatusToRxSyncer::ZekTxMstStatusSm(groupA, nullptr));
  EXPECT_TRUE(!orphan->initialized() && !orphan->rxMstStatus());
  syncer = txStatusToRxSyncerFactory(tx, rx);
  auto reader = RecordingReactor::RecordingReactorIs(rx, [&](Zek::AttributeId, const void*) { syncer->sourceDel(); });
  tx->txMstStatusIs("C");
  EXPECT_TRUE(rx->rxMstStatus("C") && !syncer->zekTxMstStatus("C"));
}

}  // namespace
}  // namespace StpTxRx
