// Zombie state, deletion marks and teardown, across every level of the syncers: the zombie step and the
// destructor reach every machine below the one they start at, a marked reactor neither copies nor
// counts, a machine whose owner is gone runs no owner code, and a port machine without a source writes
// the zero of every value; and what the change counter counts.
#include <stptxrx/Stp/StpIntxInfoChangeSm.h>
#include <stptxrx/Stp/StpTxStatusSyncer.h>
#include <stptxrx/runtime/Exception.h>

#include "support/LiveCounts.h"
#include "support/TxTreeBuilder.h"

#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>
#include <vector>

namespace StpTxRx {
namespace {

using test::recordIs;
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
    os << "]";
  }
  return os.str();
}

/// A source with group g1, port Ethernet1, record 10 with entries 0 and 1, mirrored by a syncer; the
/// machines of every level held so that a test can look at them after their owners went.
struct MirroredTree {
  TxStatus::Ptr src = TxStatus::TxStatusIs();
  TxStatus::Ptr dst = TxStatus::TxStatusIs();
  TxStatusToTxSyncer::Ptr syncer;
  Zek::Ptr<GroupSm> group;
  Zek::Ptr<PortSm> port;
  Zek::Ptr<IntxInfoSyncer> record;
  Zek::Ptr<IntxInfoSyncer::ZekMstiNSm> entry;

  MirroredTree() {
    recordIs(*src, "g1", "Ethernet1", 10, {0, 1});
    test::portIs(*src, "g1", "Ethernet1")->txUpdateIs(10, 3);
    syncer = txStatusToTxSyncerFactory(src, dst);
    group = syncer->zekTxMstStatusSm("g1");
    port = group->zekTxMstPortStatus(IntfId("Ethernet1"));
    record = port->txInfoSyncer(10);
    entry = record->zekMstiN(1);
  }
  /// One write of every kind below the group, new members included.
  void writeBelowGroup() const {
    Zek::Ptr<TxMstPortStatus> p = test::portIs(*src, "g1", "Ethernet1");
    p->txNewInfoIs(7), p->txHelloWhenOnIs(TimerVal(3, 0)), p->txUpdateIs(10, 9), p->txUpdateIs(11, 1);
    Zek::Ptr<IntxInfo> r = p->txInfo(10);
    r->stpVersionIs(StpBpduVersion{9}), r->mstiN(1)->flagsIs(RstpBpduFlags{0x55}), r->mstiNIs(5), r->mstiNDel(0);
    p->txInfoIs(20);
    test::portIs(*src, "g1", "Ethernet2");
  }
};

/// Below the level reached, nothing follows the source any more: writes of every kind under it leave
/// the destination as it was.
void expectFrozenBelow(const MirroredTree& t, int level) {
  const std::string frozen = snapshot(*t.dst);
  const Zek::Ptr<TxMstPortStatus> p = test::portIs(*t.src, "g1", "Ethernet1");
  if (level <= 1) {
    t.writeBelowGroup();
  } else if (level == 2) {
    p->txNewInfoIs(7), p->txUpdateIs(10, 9), p->txInfo(10)->mstiN(1)->flagsIs(RstpBpduFlags{0x55});
  } else {
    p->txInfo(10)->mstiN(1)->flagsIs(RstpBpduFlags{0x55});
  }
  EXPECT_EQ(snapshot(*t.dst), frozen);
}

enum Level { Top, Group, Port, Record, Entry };

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
    const struct {
      Level level;
      bool zombie, active;
    } machines[] = {{Group, t.group->zekMarkedForDeletion(), t.group->hasNotificationActive()},
                    {Port, t.port->zekMarkedForDeletion(), t.port->hasNotificationActive()},
                    {Record, t.record->zekMarkedForDeletion(), t.record->hasNotificationActive()},
                    {Entry, t.entry->zekMarkedForDeletion(), t.entry->hasNotificationActive()}};
    for (const auto& m : machines) {
      EXPECT_EQ(m.zombie, m.level >= from) << "level " << m.level;
      // A record syncer is no reactor: its zombie step switches what it owns, not itself.
      EXPECT_TRUE(m.level == Record || m.active == (m.level < from)) << "level " << m.level;
    }
    expectFrozenBelow(t, from == Top ? Group : from);
    start[from](false);  // and back: the machines follow their sources again from the next write
    test::portIs(*t.src, "g1", "Ethernet1")->txInfo(10)->mstiN(1)->flagsIs(RstpBpduFlags{0x66});
    EXPECT_EQ(test::portIs(*t.dst, "g1", "Ethernet1")->txInfo(10)->mstiN(1)->flags(), RstpBpduFlags{0x66});
  }
}

// A teardown started at one level (a release or a deletion) reaches every machine below it through the
// destructors in between: a machine held from outside is a switched-off zombie without an owner.
TEST(SyncerLifecycle, TeardownReachesEveryMachineBelowThroughTheDestructorsBetween) {
  struct Row {
    const char* what;
    Level from;
    std::function<void(MirroredTree&)> start;
  };
  const std::vector<Row> rows = {
      {"syncer released", Top, [](MirroredTree& t) { t.syncer = nullptr; }},
      {"group machine deleted", Group, [](MirroredTree& t) { t.syncer->txMstStatusDel("g1"); }},
      {"port machine deleted", Port, [](MirroredTree& t) { t.group->txMstPortStatusDel(IntfId("Ethernet1")); }},
      {"record syncer deleted", Record, [](MirroredTree& t) { t.port->txInfoSyncerDel(10); }},
  };
  for (const Row& row : rows) {
    for (const Level kept : {Group, Port, Record, Entry}) {
      if (kept <= row.from) continue;
      SCOPED_TRACE(std::string(row.what) + ", kept level " + std::to_string(kept));
      Zek::test::LiveCounts before;
      {
        MirroredTree t;
        // Held: the machines above the start (the start needs them) and the one kept; the others go with
        // their owners.
        if (kept != Group && Group >= row.from) t.group = nullptr;
        if (kept != Port && Port >= row.from) t.port = nullptr;
        if (kept != Record && Record >= row.from) t.record = nullptr;
        if (kept != Entry) t.entry = nullptr;
        row.start(t);
        const auto dead = [](const auto& m) { return m->zekMarkedForDeletion() && !m->hasNotificationActive(); };
        EXPECT_TRUE(kept == Group ? dead(t.group) && !t.group->owner() : kept == Port ? dead(t.port) && !t.port->owner()
                    : kept == Entry ? dead(t.entry) && !t.entry->owner() : dead(t.record));
        expectFrozenBelow(t, kept);
      }
      EXPECT_TRUE(before.unchanged());
    }
  }
}

// A port machine whose source is gone writes the zero of every value it copies: 0 new-info, the zero
// timer, and counters and records deleted.
TEST(SyncerLifecycle, PortMachineWithoutSourceWritesZeroes) {
  struct Row {
    const char* what;
    std::function<void(PortSm&)> handle;
    std::function<bool(const TxMstPortStatus&)> zeroed;
  };
  const std::vector<Row> rows = {
      {"txNewInfo", [](PortSm& p) { p.zek_handleTxMstPortStatus_txNewInfo(); },
       [](const TxMstPortStatus& d) { return d.txNewInfo() == 0; }},
      {"txHelloWhenOn", [](PortSm& p) { p.zek_handleTxMstPortStatus_txHelloWhenOn(); },
       [](const TxMstPortStatus& d) { return d.txHelloWhenOn() == TimerVal(); }},
      {"txUpdate", [](PortSm& p) { p.handleTxUpdate(10); },
       [](const TxMstPortStatus& d) { return !d.txUpdate(10).has_value(); }},
      {"txInfo", [](PortSm& p) { p.handleTxInfo(10); }, [](const TxMstPortStatus& d) { return !d.txInfo(10); }},
      {"full copy", [](PortSm& p) { p.handleInitialized(); },
       [](const TxMstPortStatus& d) {
         return d.txNewInfo() == 0 && d.txHelloWhenOn() == TimerVal() && d.txUpdate().size() == 0 && !d.txInfo(10);
       }},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    MirroredTree t;
    Zek::Ptr<TxMstPortStatus> d = test::portIs(*t.dst, "g1", "Ethernet1");
    t.port->notifierIs(nullptr);
    // Values a wrong default would leave or write.
    d->txNewInfoIs(5), d->txHelloWhenOnIs(TimerVal(2, 1)), d->txUpdateIs(10, 4), d->txInfoIs(10);
    row.handle(*t.port);
    EXPECT_TRUE(row.zeroed(*d));
  }
}

// A change counter counts each write its reactors hear, and nothing once a reactor is marked for
// deletion; instance reactors are made and dropped whatever the mark.
// A change counter's reactor marked for deletion counts nothing; a mark on the other kind does not stop
// it (IntxInfoChangeSmTest counts the unmarked writes); instance reactors are made whatever the mark.
TEST(SyncerLifecycle, ChangeCounterReactorsMarkedForDeletionCountNothing) {
  const auto recordWrite = [](IntxInfo& r) { r.stpVersionIs(StpBpduVersion{7}), r.configRevisionLevelIs(9); };
  const auto entryWrite = [](IntxInfo& r) { r.mstiN(1)->flagsIs(RstpBpduFlags{0x21}), r.mstiN(1)->maxAgeIs(TimerVal(9, 0)); };
  const struct {
    bool markRecord, markEntry;
    std::function<void(IntxInfo&)> write;
    unsigned counted;
  } rows[] = {{true, false, recordWrite, 0}, {false, true, recordWrite, 2}, {false, true, entryWrite, 0}, {true, false, entryWrite, 2}};
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.markRecord << row.counted);
    IntxInfo::Ptr record = test::recordOf(1, {0, 1});
    auto sm = intxInfoChangeSmFactory(record, 10);
    sm->zekIntxInfo()->zekMarkedForDeletionIs(row.markRecord);
    sm->zekMstiN(1)->zekMarkedForDeletionIs(row.markEntry);
    const unsigned start = sm->updatedFieldCount();
    row.write(*record);
    EXPECT_EQ(sm->updatedFieldCount() - start, row.counted);
    record->mstiNIs(3);
    EXPECT_TRUE(sm->zekMstiN(3));
  }
}

// Reactors whose owner is gone hear their source and run none of the owner's code: no copy, no count.
TEST(SyncerLifecycle, ReactorsWithoutOwnerRunNoOwnerCode) {
  IntxInfo::Ptr source = test::recordOf(1, {0});
  IntxInfo::Ptr dest = IntxInfo::IntxInfoIs(0);
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

// The change counter: what it counts under the notification switch, the zombie step, re-pointing of its
// reactors, unbinding and release.
TEST(IntxInfoChangeSm, NotificationSwitchZombieStepRePointingAndReleaseDecideWhatIsCounted) {
  Zek::test::LiveCounts before;
  {
    auto none = intxInfoChangeSmFactory(nullptr, 0);  // legal: watches nothing, reports 1
    EXPECT_EQ(none->intxInfoDel(), nullptr);
    EXPECT_EQ(none->updatedFieldCount(), 1u);
    IntxInfo::Ptr record = test::recordOf(1, {0, 1});
    auto sm = intxInfoChangeSmFactory(record, 10);
    EXPECT_THROW(sm->mstiNIs(nullptr), Zek::MutatorArgNullPointerException);
    // Notifications off stop the counting of both reactor kinds (for the mark, see the table above).
    sm->hasNotificationActiveIs(false);
    record->stpVersionIs(StpBpduVersion{3});
    record->mstiN(0)->flagsIs(RstpBpduFlags{0x3c});
    sm->hasNotificationActiveIs(true);
    record->stpVersionIs(StpBpduVersion{4});
    record->mstiN(0)->flagsIs(RstpBpduFlags{0x3d});
    EXPECT_EQ(sm->updatedFieldCount(), 3u);
    sm->zekMstiN(1)->zekDoZombieReactors(true);
    sm->mstiNIs(record->mstiN(1));  // the entry it already watches: it stays a zombie
    record->mstiN(1)->flagsIs(RstpBpduFlags{0x3d});
    record->mstiNIs(2);  // the reactor is still made
    EXPECT_EQ(sm->updatedFieldCount(), 4u) << "the zombie step alone counted";
    EXPECT_TRUE(sm->zekMstiN(2));
    sm->zekIntxInfo()->onAttribute(IntxInfo::idMstiN, nullptr);  // a null key: nothing
    // An instance reactor re-pointed at another record's entry replays its thirteen fields once (not again
    // for the entry it already watches) and then follows that entry.
    IntxInfo::Ptr foreign = test::recordOf(2, {0});
    sm->mstiNIs(foreign->mstiN(0)), sm->zekMstiN(0)->notifierIs(foreign->mstiN(0));
    foreign->mstiN(0)->flagsIs(RstpBpduFlags{0x11});
    record->mstiN(0)->flagsIs(RstpBpduFlags{0x12});
    EXPECT_EQ(sm->updatedFieldCount(), 18u);
    sm->zekIntxInfo()->notifierIs(nullptr);  // unbinding counts nothing, and nothing is heard after
    record->stpVersionIs(StpBpduVersion{6});
    record->mstiNDel(2);
    EXPECT_EQ(sm->updatedFieldCount(), 18u);
    EXPECT_TRUE(sm->zekMstiN(2));
    // Released, a reactor held elsewhere is a detached zombie (brought back: ReactorsWithoutOwnerRunNoOwnerCode).
    Zek::Ptr<IntxInfoChangeSm::ZekMstiN> kept = sm->zekMstiN(0);
    sm = nullptr;
    EXPECT_TRUE(!kept->owner() && kept->zekMarkedForDeletion() && !kept->hasNotificationActive());
  }
  EXPECT_TRUE(before.unchanged());
}

}  // namespace
}  // namespace StpTxRx
