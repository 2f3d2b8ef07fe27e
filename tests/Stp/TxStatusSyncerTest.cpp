// TxStatusToTxSyncer: the exact traces and destination writes of each step, the order in which destination
// members and reactors come and go, the deletion mark and notification switch, re-pointing, reactors
// unbound by the destination's readers, null trees, reinstantiation errors, teardown and the hot path.
#include <stptxrx/Stp/StpTxStatusSyncer.h>

#include "support/AllocCounter.h"
#include "support/LiveCounts.h"
#include "support/RecordingReactor.h"
#include "support/Script.h"
#include "support/TxTreeBuilder.h"

#include <utility>

namespace StpTxRx {
namespace {

using test::portIs;
using test::recordIs;
using Zek::test::RecordingReactor;

constexpr const char* origin = "StpTxStatusSyncer Stp/StpTxStatusSyncer";

/// Every write to a transmit tree above the records, at every level (members created later included), as
/// "+g1" / "-g1" (group), "g1+Et1" (port), "Et1+10" (record), "Et1:u10" (counter), "Et1:new", "Et1:hello",
/// "heartbeat"; take() returns them space-separated and starts afresh.
struct TreeLog {
  explicit TreeLog(const TxStatus::Ptr& t) {
    watch(t, [this, t = t.get()](Zek::AttributeId id, const void* key) {
      const Zek::Name name = key ? *static_cast<const Zek::Name*>(key) : Zek::Name();
      add(id == TxStatus::idHeartbeatTimeout ? "heartbeat" : (t->txMstStatus(name) ? "+" : "-") + name.str());
      if (t->txMstStatus(name)) group(t->txMstStatus(name));
    });
    for (const auto& [name, g] : t->txMstStatus()) group(t->txMstStatus(name));
  }
  std::string take() { return std::exchange(log_, ""); }
  void group(const TxMstStatus::Ptr& g) {
    watch(g, [this, g = g.get()](Zek::AttributeId, const void* key) {
      const IntfId& intf = *static_cast<const IntfId*>(key);
      add(g->name().str() + (g->txMstPortStatus(intf) ? "+" : "-") + intf.shortName().str());
      if (Zek::Ptr<TxMstPortStatus> p = g->txMstPortStatus(intf)) port(p);
    });
    for (const auto& [intf, p] : g->txMstPortStatus()) port(g->txMstPortStatus(intf));
  }
  void port(const TxMstPortStatus::Ptr& p) {
    watch(p, [this, p = p.get()](Zek::AttributeId id, const void* key) {
      const std::string at = p->intfId().shortName().str(), vlan = key ? std::to_string(static_cast<const VlanIdOrNone*>(key)->value()) : "";
      add(id == TxMstPortStatus::idTxInfo ? at + (p->txInfo(std::stoi(vlan)) ? "+" : "-") + vlan
          : id == TxMstPortStatus::idTxUpdate ? at + ":u" + vlan : at + (id == TxMstPortStatus::idTxNewInfo ? ":new" : ":hello"));
    });
  }
  void watch(const Zek::Ptr<Zek::PtrInterface const>& n, RecordingReactor::Action action) {
    reactors_.push_back(RecordingReactor::RecordingReactorIs(n, std::move(action)));
  }
  void add(const std::string& write) { log_ += (log_.empty() ? "" : " ") + write; }
  std::vector<Zek::Ptr<RecordingReactor>> reactors_;
  std::string log_;
};

class TxToTxTest : public ::testing::Test {
 protected:
  void TearDown() override {
    syncer = nullptr, src = dst = nullptr;
    EXPECT_TRUE(before.unchanged()) << "every syncer, reactor and entity of the test is gone";
  }
  void make() { syncer = txStatusToTxSyncerFactory(src, dst); }
  TxStatusToTxSyncer::ZekTxMstStatusSm::ZekTxMstPortStatusSm* portSm(const char* intf = "Ethernet1") const {
    auto* g = syncer->zekTxMstStatusSm("g1");
    return g ? g->zekTxMstPortStatus(IntfId(intf)) : nullptr;
  }
  static inline const Zek::test::TraceCapture::Abbreviations labels = {
      {"TxToTx::ZekTxMstStatusSm[g1]::", "G:"}, {"TxToTx::ZekTxMstPortStatusSm[g1|Et1]::", "P:"}, {"TxToTx::", "T:"}};

  Zek::test::LiveCounts before;  // first member: taken before anything of the test exists
  TxStatus::Ptr src = TxStatus::TxStatusIs(), dst = TxStatus::TxStatusIs();
  TxStatusToTxSyncer::Ptr syncer;
};

TEST_F(TxToTxTest, EachStepWritesAndTracesExactlyThis) {
  recordIs(*src, "g1", "Ethernet1", 10, {0, 3}, 5);
  TxMstPortStatus::Ptr p = portIs(*src, "g1", "Ethernet1");
  p->txUpdateIs(10, 3), p->txNewInfoIs(4), p->txHelloWhenOnIs(TimerVal(1, 2));
  src->heartbeatTimeoutIs(3.5);
  TreeLog log(dst);
  Zek::Ptr<IntxInfoSyncer> recordSyncer;
  Zek::test::TraceCapture cap({"StpTxStatusSyncer/8"});
  Zek::test::play(cap, origin, labels, [&] { return log.take(); }, {
      // The port's own copy runs before its group creates the destination port; only the top-level pass, which
      // re-runs the group's full copy, finds the port and fills it. The record syncer's lines are its own.
      {"construction", [&] {
         make(), recordSyncer = portSm()->txInfoSyncer(10);
         EXPECT_TRUE(syncer->initialized() && syncer->zekTxMstStatusSm("g1")->initialized() && portSm()->initialized());
       },
       "P:handleInitialized() |G:handleInitialized() |P:handleInitialized() |"
       "G:handleTxMstPortStatus() setting txMstPortStatus for Ethernet1|T:handleInitialized() |G:handleInitialized() |"
       "P:handleInitialized() |P:handleTxInfo() setting vlan=10|IntxInfoSyncer::ZekMstiNSm[0]::handleInitialized() |"
       "IntxInfoSyncer::ZekMstiNSm[3]::handleInitialized() |IntxInfoSyncer[g1|Et1|10]::handleInitialized() |"
       "IntxInfoSyncer[g1|Et1|10]::handleMstiN() setting mstiId=0|IntxInfoSyncer::ZekMstiNSm[0]::copyAllData() |"
       "IntxInfoSyncer[g1|Et1|10]::handleMstiN() setting mstiId=3|IntxInfoSyncer::ZekMstiNSm[3]::copyAllData() |"
       "P:handleTxUpdate() setting vlan=10|G:handleTxMstPortStatus() setting txMstPortStatus for Ethernet1|T:handleTxMstStatus() creating g1",
       "heartbeat +g1 g1+Et1 Et1+10 Et1:u10 Et1:hello Et1:new"},
      // A counter change: the silent mirror, then the handler's traced write of the same value. A zero counter is
      // deleted (the handler's second delete finds nothing); a zero for an absent one writes nothing.
      {"counter", [&] { p->txUpdateIs(10, 5); }, "P:handleTxUpdate() setting vlan=10", "Et1:u10 Et1:u10"},
      {"zero counters", [&] { p->txUpdateIs(10, 0), p->txUpdateIs(11, 0); },
       "P:handleTxUpdate() deleting vlan=10|P:handleTxUpdate() deleting vlan=11", "Et1:u10"},
      {"scalars and heartbeat: one untraced write each", [&] {
         p->txNewInfoIs(12), p->txHelloWhenOnIs(TimerVal(3, 4)), src->heartbeatTimeoutIs(3.5);
       }, "", "Et1:new Et1:hello heartbeat"},
      // The full copy: records (kept: no write), the source's counters, then, as the source's zero counters make
      // the counts differ, the destination's counters again; txHelloWhenOn, txNewInfo.
      {"port full copy", [&] { p->txUpdateIs(10, 1), portSm()->handleInitialized(); },
       "P:handleTxUpdate() setting vlan=10|P:handleInitialized() |P:handleTxInfo() setting vlan=10|"
       "P:handleTxUpdate() setting vlan=10|P:handleTxUpdate() deleting vlan=11|P:handleTxUpdate() setting vlan=10",
       "Et1:u10 Et1:u10 Et1:u10 Et1:u10 Et1:hello Et1:new"},
      {"record added and removed", [&] { p->txInfoIs(20), p->txInfoDel(20); },
       "P:handleTxInfo() setting vlan=20|IntxInfoSyncer[g1|Et1|20]::handleInitialized() |P:handleTxInfo() deleting vlan=20",
       "Et1+20 Et1-20"},
      {"group and port added", [&] { portIs(*src, "g2", "Ethernet2")->txNewInfoIs(6); },
       "T:handleTxMstStatus() creating g2|T:ZekTxMstStatusSm[g2]::handleInitialized() |"
       "T:ZekTxMstStatusSm[g2]::handleTxMstPortStatus() setting txMstPortStatus for Ethernet2|"
       "T:ZekTxMstPortStatusSm[g2|Et2]::handleInitialized() ",
       "+g2 g2+Et2 Et2:hello Et2:new Et2:new"},
      // Marked for deletion with notifications on: the heartbeat and the silent counter mirror follow, the
      // handlers stop, but the reactors still follow the source's members (a new group's reactor creates its
      // destination group).
      {"reactors marked for deletion", [&] {
         syncer->zekSource()->zekMarkedForDeletionIs(true);
         syncer->zekTxMstStatusSm("g2")->zekMarkedForDeletionIs(true);
         portSm()->zekMarkedForDeletionIs(true);
         src->heartbeatTimeoutIs(5.0), src->txMstStatusIs("g3");
         src->txMstStatus("g2")->txMstPortStatusDel(IntfId("Ethernet2"));
         p->txNewInfoIs(13), p->txHelloWhenOnIs(TimerVal(5, 6)), p->txUpdateIs(10, 7), p->txInfoIs(30);
         EXPECT_EQ(syncer->zekTxMstStatusSm("g2")->zekTxMstPortStatusCount(), 0u);
       }, "T:ZekTxMstStatusSm[g3]::handleInitialized() ", "heartbeat +g3 Et1:u10"},
      {"marks cleared; notifications off, then on; a null key or another id: nothing", [&] {
         syncer->zekSource()->onAttribute(TxStatus::idTxMstStatus, nullptr);
         syncer->zekTxMstStatusSm("g1")->onAttribute(TxMstStatus::idTxMstPortStatus, nullptr);
         syncer->zekTxMstStatusSm("g1")->onAttribute(TxMstStatus::idName, &p->intfId());
         portSm()->onAttribute(TxMstPortStatus::idTxInfo, nullptr), portSm()->onAttribute(TxMstPortStatus::idTxUpdate, nullptr);
         portSm()->onAttribute(TxMstPortStatus::idIntfId, nullptr);
         syncer->zekSource()->zekMarkedForDeletionIs(false);
         syncer->zekTxMstStatusSm("g2")->zekMarkedForDeletionIs(false);
         portSm()->zekMarkedForDeletionIs(false);
         syncer->hasNotificationActiveIs(false);
         EXPECT_FALSE(recordSyncer->hasNotificationActive());
         p->txNewInfoIs(14), src->txMstStatusIs("g4"), src->heartbeatTimeoutIs(6.0);
         syncer->hasNotificationActiveIs(true);
         EXPECT_TRUE(recordSyncer->hasNotificationActive());
         p->txNewInfoIs(15);
       }, "", "Et1:new"},
      // Without a source the top level stops (a group counts as absent when its handler is called); the
      // port machines already built go on following their ports.
      {"source detached", [&] {
         EXPECT_EQ(syncer->sourceDel(), src);
         EXPECT_FALSE(syncer->source() || syncer->sourceDel());
         src->heartbeatTimeoutIs(9.0), src->txMstStatusIs("g5"), syncer->handleTxMstStatus("g2");
         p->txNewInfoIs(16);
       }, "T:handleTxMstStatus() deleting g2", "-g2 Et1:new"},
      // A removed port takes its reactor and record syncers; the destination port is deleted, not emptied.
      {"port removed", [&] { src->txMstStatus("g1")->txMstPortStatusDel(IntfId("Ethernet1")); },
       "G:handleTxMstPortStatus() deleting txMstPortStatus for Ethernet1", "g1-Et1"},
      {"reactors deleted, then the syncer: nothing written", [&] {
         EXPECT_TRUE(recordSyncer->zekMarkedForDeletion() && !recordSyncer->zekSource()->hasNotificationActive());
         EXPECT_EQ(syncer->txMstStatusDel("g3"), src->txMstStatus("g3"));
         EXPECT_FALSE(syncer->txMstStatusDel("g3"));
         syncer->zekTxMstStatusSm("g1")->txMstPortStatusDelAll();
         EXPECT_EQ(syncer->zekTxMstStatusSm("g1")->zekTxMstPortStatusCount(), 0u);
         syncer->txMstStatusDelAll();
         EXPECT_EQ(syncer->zekTxMstStatusSmCount(), 0u);
         recordSyncer = nullptr;
         syncer = nullptr;
       }, "", ""},
  });
}

TEST_F(TxToTxTest, CounterScalarAndHeartbeatChangesAreMirroredWithoutAllocating) {
  TxMstPortStatus::Ptr p = portIs(*src, "g1", "Ethernet1");
  const auto write = [&](std::uint8_t i) { p->txUpdateIs(10, i), p->txNewInfoIs(i), p->txHelloWhenOnIs(TimerVal(0, i)), src->heartbeatTimeoutIs(i); };
  make(), write(1);  // registers each handler's call site
  Zek::test::AllocScope scope;
  for (std::uint8_t i = 2; i < 20; ++i) write(i);
  EXPECT_EQ(scope.count(), 0u);
  const TxMstPortStatus::Ptr d = portIs(*dst, "g1", "Ethernet1");
  EXPECT_TRUE(dst->heartbeatTimeout() == 19.0 && d->txNewInfo() == 19u && d->txUpdate(10) == 19u && d->txHelloWhenOn() == TimerVal(0, 19));
}

TEST_F(TxToTxTest, NullSourceEmptiesTheDestinationAndNullDestinationIsNeverWritten) {
  dst->heartbeatTimeoutIs(7.0), dst->txMstStatusIs("g1");
  syncer = TxStatusToTxSyncer::TxStatusToTxSyncerIs(nullptr, dst);
  EXPECT_TRUE(dst->heartbeatTimeout() == 0.0 && dst->txMstStatus().empty() && !syncer->sourceDel());
  recordIs(*src, "g1", "Ethernet1", 10, {0});
  syncer = TxStatusToTxSyncer::TxStatusToTxSyncerIs(src, nullptr);
  EXPECT_FALSE(portSm()->dest() || syncer->zekTxMstStatusSm("g1")->dest());
  // Every kind of change reaches a handler that has nothing to write (and must not dereference it).
  TxMstPortStatus::Ptr p = portIs(*src, "g1", "Ethernet1");
  src->heartbeatTimeoutIs(1.0), src->txMstStatusIs("g2"), portIs(*src, "g1", "Ethernet2");
  p->txUpdateIs(10, 2), p->txNewInfoIs(2), p->txHelloWhenOnIs(TimerVal(1, 1)), p->txInfoIs(11);
  src->txMstStatusDel("g1"), syncer->handleInitialized();
  EXPECT_EQ(syncer->zekTxMstStatusSmCount(), 1u);
}

TEST_F(TxToTxTest, RecordSyncersAreNotReinstantiatedAndMutatorsRefuseNull) {
  recordIs(*src, "g1", "Ethernet1", 20, {0}), make();
  auto* p = portSm();
  Zek::Ptr<IntxInfoSyncer> rs = p->txInfoSyncer(20);
  IntxInfo::Ptr other = IntxInfo::IntxInfoIs(20);
  // Create-or-return refuses other arguments, naming the one that differs, and keeps the syncer.
  const std::string type = "TxStatusToTxSyncer::ZekTxMstStatusSm::ZekTxMstPortStatusSm::txInfoSyncer.";
  EXPECT_EQ(Zek::test::reinstantiationOf([&] { p->txInfoSyncerIs(other, rs->dest(), 20, "g1|Et1"); }), type + "source");
  EXPECT_EQ(Zek::test::reinstantiationOf([&] { p->txInfoSyncerIs(rs->source(), other, 20, "g1|Et1"); }), type + "dest");
  EXPECT_EQ(Zek::test::reinstantiationOf([&] { p->txInfoSyncerIs(rs->source(), rs->dest(), 20, "g1|Et2"); }), type + "parentId");
  EXPECT_EQ(p->txInfoSyncerIs(rs->source(), rs->dest(), 20, "g1|Et1"), rs);
  EXPECT_THROW(p->txInfoSyncerIs(nullptr, other, 11, "x"), Zek::MutatorArgNullPointerException);
  EXPECT_THROW(syncer->txMstStatusIs(nullptr), Zek::MutatorArgNullPointerException);
  EXPECT_THROW(syncer->zekTxMstStatusSm("g1")->txMstPortStatusIs(nullptr), Zek::MutatorArgNullPointerException);
  EXPECT_EQ(p->txInfoSyncerCount(), 1u) << "a refused call makes nothing";
}

// Re-pointing only re-binds (the port reactor also mirrors the counters); the full copy is the owner's
// handleInitialized().
TEST_F(TxToTxTest, RepointingRebindsWithoutACopy) {
  recordIs(*src, "g1", "Ethernet1", 10, {0});
  portIs(*src, "g1", "Ethernet1")->txUpdateIs(10, 5), portIs(*src, "g1", "Ethernet2")->txNewInfoIs(2), make();
  TxStatus::Ptr other = TxStatus::TxStatusIs();
  TxMstPortStatus::Ptr p1 = portIs(*other, "g1", "Ethernet1");
  recordIs(*other, "g1", "Ethernet1", 11, {1}, 4), p1->txUpdateIs(11, 3);
  auto* g = syncer->zekTxMstStatusSm("g1");
  auto* kept = portSm();
  const Zek::Ptr<TxMstPortStatus const> old1 = kept->txMstPortStatus();
  TreeLog writes(dst);
  Zek::test::TraceCapture cap({"StpTxStatusSyncer/0-9"});
  Zek::notifyEqualWrites_ = true;  // the port it watches: nothing, not even an equal write
  kept->txMstPortStatusIs(old1), kept->notifierIs(old1);
  Zek::notifyEqualWrites_ = false;
  EXPECT_EQ(syncer->txMstStatusIs(other->txMstStatus("g1")).get(), g) << "kept, not rebuilt";
  EXPECT_EQ(g->txMstStatus(), other->txMstStatus("g1"));
  EXPECT_TRUE(portSm() == kept && kept->txMstPortStatus() == old1 && portSm("Ethernet2")) << "ports untouched";
  EXPECT_EQ(writes.take(), "");
  EXPECT_TRUE(g->txMstPortStatusIs(p1).get() == kept && kept->txMstPortStatus() == p1) << "kept, re-pointed";
  EXPECT_EQ(writes.take(), "Et1:u11 Et1:u10") << "the counters mirrored, nothing else";
  EXPECT_TRUE(cap.texts().empty());
  TxMstPortStatus::Ptr d1 = dst->txMstStatus("g1")->txMstPortStatus(IntfId("Ethernet1"));
  EXPECT_TRUE(d1->txUpdate().size() == 1 && d1->txUpdate(11) == 3u && d1->txInfo(10) && !d1->txInfo(11));
  p1->txNewInfoIs(5);
  EXPECT_EQ(d1->txNewInfo(), 5u) << "and it follows the new port";
  g->handleInitialized();
  EXPECT_TRUE(d1->txInfo(11) && !d1->txInfo(10) && !dst->txMstStatus("g1")->txMstPortStatus(IntfId("Ethernet2")));
}

// A reader of the destination that detaches the source, or deletes the group reactor, from inside the
// handler: the reactor that called the handler must notice and stop.
TEST_F(TxToTxTest, ReactorsUnboundByADestinationReaderStop) {
  make();
  auto reader = RecordingReactor::RecordingReactorIs(dst, [&](Zek::AttributeId, const void*) { syncer->sourceDel(); });
  src->txMstStatusIs("g1");
  EXPECT_TRUE(dst->txMstStatus("g1") && !syncer->zekTxMstStatusSm("g1")) << "no reactor built once detached";
  make();
  reader = RecordingReactor::RecordingReactorIs(dst->txMstStatus("g1"), [&](Zek::AttributeId, const void*) { syncer->txMstStatusDel("g1"); });
  Zek::test::TraceCapture cap({"StpTxStatusSyncer/8"});
  portIs(*src, "g1", "Ethernet1");
  EXPECT_FALSE(syncer->zekTxMstStatusSm("g1"));
  EXPECT_EQ(cap.texts(), std::vector<std::string>{"TxToTx::ZekTxMstStatusSm[g1]::handleTxMstPortStatus() setting txMstPortStatus for Ethernet1"});
  reader = nullptr;
}

}  // namespace
}  // namespace StpTxRx
