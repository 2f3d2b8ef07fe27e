// IntxInfoChangeSm: what the change counter counts under the notification switch, the zombie step,
// re-pointing of its reactors, unbinding and release (a marked reactor: SyncerLifecycleTest).
#include <stptxrx/Stp/StpIntxInfoChangeSm.h>
#include <stptxrx/runtime/Exception.h>

#include "support/LiveCounts.h"
#include "support/TxTreeBuilder.h"

#include <gtest/gtest.h>

namespace StpTxRx {
namespace {

TEST(IntxInfoChangeSm, NotificationSwitchZombieStepRePointingAndReleaseDecideWhatIsCounted) {
  Zek::test::LiveCounts before;
  {
    auto none = intxInfoChangeSmFactory(nullptr, 0);  // legal: watches nothing, reports 1
    EXPECT_TRUE(none->intxInfoDel() == nullptr && none->updatedFieldCount() == 1u);
    IntxInfo::Ptr record = test::recordOf(1, {0, 1});
    auto sm = intxInfoChangeSmFactory(record, 10);
    EXPECT_THROW(sm->mstiNIs(nullptr), Zek::MutatorArgNullPointerException);
    // Notifications off stop the counting of both reactor kinds (the mark: SyncerLifecycleTest).
    sm->hasNotificationActiveIs(false), record->stpVersionIs(StpBpduVersion{3}), record->mstiN(0)->flagsIs(RstpBpduFlags{0x3c});
    sm->hasNotificationActiveIs(true), record->stpVersionIs(StpBpduVersion{4}), record->mstiN(0)->flagsIs(RstpBpduFlags{0x3d});
    EXPECT_EQ(sm->updatedFieldCount(), 3u);
    // Re-pointed at the entry it already watches, a zombie stays one.
    sm->zekMstiN(1)->zekDoZombieReactors(true), sm->mstiNIs(record->mstiN(1));
    record->mstiN(1)->flagsIs(RstpBpduFlags{0x3d}), record->mstiNIs(2);  // the reactor of 2 is still made
    EXPECT_TRUE(sm->updatedFieldCount() == 4u && sm->zekMstiN(2)) << "the zombie step alone counted";
    sm->zekIntxInfo()->onAttribute(IntxInfo::idMstiN, nullptr);  // a null key: nothing
    // An instance reactor re-pointed at another record's entry replays its thirteen fields once (not again
    // for the entry it already watches) and then follows that entry.
    IntxInfo::Ptr foreign = test::recordOf(2, {0});
    sm->mstiNIs(foreign->mstiN(0)), sm->zekMstiN(0)->notifierIs(foreign->mstiN(0));
    foreign->mstiN(0)->flagsIs(RstpBpduFlags{0x11}), record->mstiN(0)->flagsIs(RstpBpduFlags{0x12});
    EXPECT_EQ(sm->updatedFieldCount(), 18u);
    sm->zekIntxInfo()->notifierIs(nullptr);  // unbinding counts nothing, and nothing is heard after
    record->stpVersionIs(StpBpduVersion{6}), record->mstiNDel(2);
    EXPECT_TRUE(sm->updatedFieldCount() == 18u && sm->zekMstiN(2));
    // Released, a reactor held elsewhere is a detached zombie (brought back: SyncerLifecycleTest).
    Zek::Ptr<IntxInfoChangeSm::ZekMstiN> kept = sm->zekMstiN(0);
    sm = nullptr;
    EXPECT_TRUE(!kept->owner() && kept->zekMarkedForDeletion() && !kept->hasNotificationActive());
  }
  EXPECT_TRUE(before.unchanged());
}

}  // namespace
}  // namespace StpTxRx
