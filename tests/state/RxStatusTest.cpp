// The receive port's update counters: which increments and writes notify, and what they store.
#include <stptxrx/state/RxStatus.h>

#include "support/RecordingReactor.h"

#include <gtest/gtest.h>

namespace StpTxRx {
namespace {

// Each row: whether the entry exists before, the amount, the equal-writes switch; then whether the
// increment notifies and the value it leaves.
TEST(RxStatus, UpdateCounterWritesNotifyOnlyWhenTheyChangeSomething) {
  const struct Row { bool exists; std::uint32_t amount; bool equalWritesNotify, notifies; std::uint32_t after; } rows[] = {
      {true, 0, false, false, 5},  // nothing changes: no notification
      {true, 0, true, true, 5},    // unless every write notifies
      {true, 2, false, true, 7},   {false, 0, false, true, 0},  // creating the entry is a change
      {false, 3, false, true, 3}};
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.exists << " " << row.amount << " " << row.equalWritesNotify);
    RxMstPortStatus::Ptr port = RxStatus::RxStatusIs()->rxMstStatusIs("G")->rxMstPortStatusIs(IntfId("Ethernet1"));
    if (row.exists) port->rxUpdateIs(10, 5);
    auto rec = Zek::test::RecordingReactor::RecordingReactorIs(port);
    Zek::notifyEqualWrites_ = row.equalWritesNotify;
    port->rxUpdateInc(10, row.amount);
    Zek::notifyEqualWrites_ = false;
    EXPECT_TRUE(rec->count(RxMstPortStatus::idRxUpdate) == (row.notifies ? 1u : 0u) && port->rxUpdate(10) == row.after);
  }
  RxMstPortStatus::Ptr port = RxStatus::RxStatusIs()->rxMstStatusIs("G")->rxMstPortStatusIs(IntfId("Ethernet1"));
  port->rxUpdateIs(10, 5);
  auto rec = Zek::test::RecordingReactor::RecordingReactorIs(port);
  port->rxUpdateIs(10, 5);
  EXPECT_EQ(rec->count(RxMstPortStatus::idRxUpdate), 0u) << "an equal write through the setter notifies nobody either";
}

}  // namespace
}  // namespace StpTxRx
