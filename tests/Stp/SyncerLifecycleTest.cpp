// Zombie state, deletion marks and teardown, across every level of the syncers: the zombie step and the
// destructor reach every machine below the one they start at, a marked reactor neither copies nor
// counts, a machine whose owner is gone runs no owner code, and a port machine without a source writes
// the zero of every value.
#include <stptxrx/Stp/StpIntxInfoChangeSm.h>
#include <stptxrx/Stp/StpTxStatusSyncer.h>

#include "support/LiveCounts.h"
#include "support/TxTreeBuilder.h"

#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>
#include <tuple>

namespace StpTxRx {
namespace {

using GroupSm = TxStatusToTxSyncer::ZekTxMstStatusSm;
using PortSm = GroupSm::ZekTxMstPortStatusSm;

/// Everything a transmit status holds, as text: two trees print alike exactly when they hold the same.
std::string snapshot(const TxStatus& status) {
  std::ostringstream os;
  os << status.heartbeatTimeout();
  for (const auto& [name, group] : status.txMstStatus()) {
    os << " [" << name.str();
    for (const auto& [intf, port] : group->txMstPortStatus()) {
      os << " " << intf.name().str() << " new=" << port->txNewInfo() << " hello=" << port->txHelloWhenOn();
      for (const auto& [vlan, count] : port->txUpdate()) os << " u" << vlan.value() << "=" << count;
      for (const auto& [vlan, record] : port->txInfo()) os << " {" << *record << "}";
    }
  }
  return os.str();
}

enum Level { Top, Group, Port, Record, Entry };

/// A source with group g1, port Ethernet1, record 10 with entries 0 and 1, mirrored by a syncer; the
/// machines of every level held so that a test can look at them after their owners went.
struct MirroredTree {
  TxStatus::Ptr src = [] {
    TxStatus::Ptr s = TxStatus::TxStatusIs();
    test::recordIs(*s, "g1", "Ethernet1", 10, {0, 1});
    test::portIs(*s, "g1", "Ethernet1")->txUpdateIs(10, 3);
    return s;
  }();
  TxStatus::Ptr dst = TxStatus::TxStatusIs();
  TxStatusToTxSyncer::Ptr syncer = txStatusToTxSyncerFactory(src, dst);
  Zek::Ptr<GroupSm> group = syncer->zekTxMstStatusSm("g1");
  Zek::Ptr<PortSm> port = group->zekTxMstPortStatus(IntfId("Ethernet1"));
  Zek::Ptr<IntxInfoSyncer> record = port->txInfoSyncer(10);
  Zek::Ptr<IntxInfoSyncer::ZekMstiNSm> entry = record->zekMstiN(1);
};

/// Below the level reached, nothing follows the source any more: writes of every kind under it (new
/// members included) leave the destination as it was.
void expectFrozenBelow(const MirroredTree& t, Level level) {
  const std::string frozen = snapshot(*t.dst);
  const Zek::Ptr<TxMstPortStatus> p = test::portIs(*t.src, "g1", "Ethernet1");
  const Zek::Ptr<IntxInfo> r = p->txInfo(10);
  r->mstiN(1)->flagsIs(RstpBpduFlags{0x55});
  if (level <= Port) p->txNewInfoIs(7), p->txUpdateIs(10, 9);
  if (level <= Group) {
    p->txHelloWhenOnIs(TimerVal(3, 0)), p->txUpdateIs(11, 1), p->txInfoIs(20), test::portIs(*t.src, "g1", "Ethernet2");
    r->stpVersionIs(StpBpduVersion{9}), r->mstiNIs(5), r->mstiNDel(0);
  }
  EXPECT_EQ(snapshot(*t.dst), frozen);
}

// The zombie step started at one level reaches every machine at and below it, switches them off, and
// leaves the ones above alone.
TEST(SyncerLifecycle, ZombieStepReachesEveryMachineBelowWhereItStarts) {
  for (const Level from : {Top, Group, Port, Record}) {
    SCOPED_TRACE(from);
    MirroredTree t;
    ASSERT_EQ(snapshot(*t.dst), snapshot(*t.src));
    const std::function<void(bool)> start[] = {
        [&](bool z) { t.syncer->zekDoZombieReactors(z); }, [&](bool z) { t.group->zekDoZombieReactors(z); },
        [&](bool z) { t.port->zekDoZombieReactors(z); }, [&](bool z) { t.record->zekDoZombieReactors(z); }};
    start[from](true);
    const auto expectSwitched = [from](Level level, const auto& m) {
      EXPECT_EQ(m->zekMarkedForDeletion(), level >= from) << "level " << level;
      // A record syncer is no reactor: its zombie step switches what it owns, not itself.
      EXPECT_TRUE(level == Record || m->hasNotificationActive() == (level < from)) << "level " << level;
    };
    expectSwitched(Group, t.group), expectSwitched(Port, t.port), expectSwitched(Record, t.record);
    expectSwitched(Entry, t.entry);
    expectFrozenBelow(t, from);
    start[from](false);  // and back: the machines follow their sources again from the next write
    test::portIs(*t.src, "g1", "Ethernet1")->txInfo(10)->mstiN(1)->flagsIs(RstpBpduFlags{0x66});
    EXPECT_EQ(test::portIs(*t.dst, "g1", "Ethernet1")->txInfo(10)->mstiN(1)->flags(), RstpBpduFlags{0x66});
  }
}

// A teardown started at one level (the syncer released, or a group, port or record machine deleted)
// reaches every machine below it through the destructors in between: a machine held from outside is a
// switched-off zombie without an owner.
TEST(SyncerLifecycle, TeardownReachesEveryMachineBelowThroughTheDestructorsBetween) {
  const std::function<void(MirroredTree&)> start[] = {
      [](MirroredTree& t) { t.syncer = nullptr; }, [](MirroredTree& t) { t.syncer->txMstStatusDel("g1"); },
      [](MirroredTree& t) { t.group->txMstPortStatusDel(IntfId("Ethernet1")); },
      [](MirroredTree& t) { t.port->txInfoSyncerDel(10); }};
  for (const Level from : {Top, Group, Port, Record}) {
    for (const Level kept : {Group, Port, Record, Entry}) {
      if (kept <= from) continue;
      SCOPED_TRACE(testing::Message() << "from level " << from << ", kept level " << kept);
      Zek::test::LiveCounts before;
      {
        MirroredTree t;
        // Held: the machines above the start (the start needs them) and the one kept; the others go with
        // their owners.
        if (kept != Group && Group >= from) t.group = nullptr;
        if (kept != Port && Port >= from) t.port = nullptr;
        if (kept != Record && Record >= from) t.record = nullptr;
        if (kept != Entry) t.entry = nullptr;
        start[from](t);
        const auto dead = [](const auto& m) { return m->zekMarkedForDeletion() && !m->hasNotificationActive(); };
        EXPECT_TRUE(kept == Group ? dead(t.group) && !t.group->owner() : kept == Port ? dead(t.port) && !t.port->owner()
                    : kept == Entry ? dead(t.entry) && !t.entry->owner() : dead(t.record));
        expectFrozenBelow(t, kept);
      }
      EXPECT_TRUE(before.unchanged());
    }
  }
}

// A port machine whose source is gone writes the zero of every value it copies (0 new-info, the zero
// timer, counters and records deleted), each handler its own value only.
TEST(SyncerLifecycle, PortMachineWithoutSourceWritesZeroes) {
  const std::pair<std::function<void(PortSm&)>, int> rows[] = {  // a handler, the values it zeroes
      {[](PortSm& p) { p.zek_handleTxMstPortStatus_txNewInfo(); }, 1},
      {[](PortSm& p) { p.zek_handleTxMstPortStatus_txHelloWhenOn(); }, 2},
      {[](PortSm& p) { p.handleTxUpdate(10); }, 4}, {[](PortSm& p) { p.handleTxInfo(10); }, 8},
      {[](PortSm& p) { p.handleInitialized(); }, 15}};
  for (const auto& [handle, zeroed] : rows) {
    SCOPED_TRACE(zeroed);
    MirroredTree t;
    Zek::Ptr<TxMstPortStatus> d = test::portIs(*t.dst, "g1", "Ethernet1");
    t.port->notifierIs(nullptr);
    // Values a wrong default would leave or write.
    d->txNewInfoIs(5), d->txHelloWhenOnIs(TimerVal(2, 1)), d->txUpdateIs(10, 4), d->txInfoIs(10);
    handle(*t.port);
    // Bit 0: new-info 0; 1: the zero timer; 2: no counter left; 3: record 10 deleted.
    EXPECT_EQ((d->txNewInfo() == 0) | (d->txHelloWhenOn() == TimerVal()) << 1 | d->txUpdate().empty() << 2 | !d->txInfo(10) << 3,
              zeroed);
  }
}

// A change counter's reactor marked for deletion counts nothing; a mark on the other kind does not stop
// it; instance reactors are made whatever the mark.
TEST(SyncerLifecycle, ChangeCounterReactorsMarkedForDeletionCountNothing) {
  const auto recordWrite = [](IntxInfo& r) { r.stpVersionIs(StpBpduVersion{7}), r.configRevisionLevelIs(9); };
  const auto entryWrite = [](IntxInfo& r) { r.mstiN(1)->flagsIs(RstpBpduFlags{0x21}), r.mstiN(1)->maxAgeIs(TimerVal(9, 0)); };
  const std::tuple<bool, std::function<void(IntxInfo&)>, unsigned> rows[] = {  // record marked (else entry)
      {true, recordWrite, 0}, {false, recordWrite, 2}, {false, entryWrite, 0}, {true, entryWrite, 2}};
  for (const auto& [markRecord, write, counted] : rows) {
    SCOPED_TRACE(testing::Message() << markRecord << counted);
    IntxInfo::Ptr record = test::recordOf(1, {0, 1});
    auto sm = intxInfoChangeSmFactory(record, 10);
    sm->zekIntxInfo()->zekMarkedForDeletionIs(markRecord), sm->zekMstiN(1)->zekMarkedForDeletionIs(!markRecord);
    const unsigned start = sm->updatedFieldCount();
    write(*record);
    EXPECT_EQ(sm->updatedFieldCount() - start, counted);
    EXPECT_TRUE(record->mstiNIs(3) && sm->zekMstiN(3));
  }
}

// Reactors whose owner is gone hear their source and run none of the owner's code: no copy, no count.
TEST(SyncerLifecycle, ReactorsWithoutOwnerRunNoOwnerCode) {
  IntxInfo::Ptr source = test::recordOf(1, {0}), dest = IntxInfo::IntxInfoIs(0);
  auto syncer = intxInfoSyncerFactory(source, dest, 0, "g|Et1");
  auto counter = intxInfoChangeSmFactory(source, 0);
  Zek::Ptr<IntxInfoSyncer::ZekMstiNSm> copier = syncer->zekMstiN(0);
  Zek::Ptr<IntxInfoSyncer::ZekSource> recordCopier = syncer->zekSource();
  Zek::Ptr<IntxInfoChangeSm::ZekMstiN> counted = counter->zekMstiN(0);
  syncer = nullptr, counter = nullptr;
  // Brought back to life by hand, they are bound and switched on but have no owner.
  copier->zekDoZombieReactors(false), counted->zekDoZombieReactors(false), recordCopier->hasNotificationActiveIs(true);
  ASSERT_TRUE(copier->hasNotificationActive() && !copier->owner() && !counted->owner());
  const std::string before = (std::ostringstream() << *dest).str();
  // Without an owner the full copy finds no destination entry, so the field copies after it have none.
  copier->handleInitialized(), counted->zek_handleMstiN();
  source->mstiN(0)->flagsIs(RstpBpduFlags{0x77}), source->stpVersionIs(StpBpduVersion{9});
  EXPECT_EQ((std::ostringstream() << *dest).str(), before);
}

}  // namespace
}  // namespace StpTxRx
