// The rate-limited receive path of a port (BpduReceiver).
#include "BpduTestFrames.h"

#include "support/RecordingReactor.h"

#include <algorithm>

namespace StpTxRx::bpdutest {
namespace {

// Rate limit: a script of frame arrival times and changes of the port's settings ("max=N", "interval=S",
// "off", "on"), the verdict of each frame (A went on, D dropped) and the number of counter writes before
// the final flush.
TEST(BpduReceiverTest, WindowsOpenAtTheFirstFrameAfterTheLastEndDropsArePublishedOncePerWindow) {
  const struct { const char* script; const char* verdicts; std::size_t writes; } table[] = {
      {"max=2 0 1 2 9.99 10 11 12 25", "AADDAADA", 5},  // a frame at the end of a window opens the next
      {"max=0 0 1 20", "DDD", 1},                        // the window at 20 publishes the first two drops
      {"off 0 0 0", "AAA", 3},
      {"max=1 0 1 off 2 on 3 4", "ADAAD", 3},            // off closes the window; on opens one at the next frame
      {"max=1 0 1 max=3 2 3 4", "ADAAD", 3},             // a changed count acts within the window
      {"max=1 0 1 interval=1 2", "ADA", 2},              // and so does a changed interval
  };
  Zek::notifyEqualWrites_ = true;
  const Octets frame = mst();
  for (const auto& row : table) {
    SCOPED_TRACE(row.script);
    RxMstPortStatus::Ptr port = RxStatus::RxStatusIs()->rxMstStatusIs("g")->rxMstPortStatusIs(Nelk::IntfId("Et1"));
    port->rateLimitEnabledIs(true);
    port->rateLimitIntervalIs(10);
    BpduReceiver receiver(port);
    auto writes = Zek::test::RecordingReactor::RecordingReactorIs(port);
    std::istringstream script(row.script);
    std::string verdicts, step;
    while (script >> step) {
      if (step == "off" || step == "on") {
        port->rateLimitEnabledIs(step == "on");
      } else if (step.rfind("max=", 0) == 0) {
        port->rateLimitMaxCountIs(static_cast<std::uint32_t>(std::stoul(step.substr(4))));
      } else if (step.rfind("interval=", 0) == 0) {
        port->rateLimitIntervalIs(std::stod(step.substr(9)));
      } else {
        const BpduDecodeResult r = receiver.frameIs(1, frame.data(), frame.size(), std::stod(step));
        verdicts += r.reject == BpduReason::rateLimited ? 'D' : (r.valid() ? 'A' : '?');
      }
    }
    EXPECT_EQ(verdicts, row.verdicts);
    EXPECT_EQ(writes->count(RxMstPortStatus::idCounters), row.writes);
    const auto dropped = static_cast<std::uint32_t>(std::count(verdicts.begin(), verdicts.end(), 'D'));
    EXPECT_EQ(port->counters().rateLimited + receiver.pendingDropped(), dropped);
    const std::size_t flushWrites = receiver.pendingDropped() > 0 ? 1 : 0;
    receiver.flush();
    receiver.flush();
    EXPECT_EQ(writes->count(RxMstPortStatus::idCounters), row.writes + flushWrites) << "a second flush writes nothing";
    EXPECT_EQ(port->counters().rateLimited, dropped);
    EXPECT_EQ(port->counters().mstRx, verdicts.size() - dropped);
    EXPECT_EQ(port->bpduCount(), verdicts.size());
  }
  Zek::notifyEqualWrites_ = false;
}

}  // namespace
}  // namespace StpTxRx::bpdutest
