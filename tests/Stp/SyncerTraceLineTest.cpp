// Trace records point at the handler that traced, also when a shared helper emits the record: each
// handler's records carry its own name, its own line and the module the syncer traces as.
#include <stptxrx/Stp/StpRxStatusSyncer.h>

#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <set>
#include <string>

namespace StpTxRx {
namespace {

TEST(SyncerTraceLine, EveryScalarHandlerReportsItsOwnNameAndLineAtBothLevels) {
  const IntfId et1("Ethernet1");
  RxStatus::Ptr src = RxStatus::RxStatusIs();
  RxStatus::Ptr dst = RxStatus::RxStatusIs();
  RxMstPortStatus::Ptr port = src->rxMstStatusIs("G")->rxMstPortStatusIs(et1);
  Zek::Ptr<RxMstPortStatus> dstPort = dst->rxMstStatusIs("G")->rxMstPortStatusIs(et1);
  RxStatusToRxDynamicSyncer::Ptr syncer = rxStatusToRxDynamicSyncerFactory(src, dst);
  PortCounters counters;
  counters.configRx = 3;
  const std::map<std::string, std::function<void(int)>> writes = {
      {"handleBpduCount", [&](int v) { port->bpduCountIs(static_cast<std::uint32_t>(v)); }},
      {"handleRateLimitInterval", [&](int v) { port->rateLimitIntervalIs(v); }},
      {"handleRateLimitMaxCount", [&](int v) { port->rateLimitMaxCountIs(static_cast<std::uint32_t>(v)); }},
      {"handleRateLimitEnabled", [&](int) { port->rateLimitEnabledIs(!port->rateLimitEnabled()); }},
      {"handleCounters", [&](int v) { counters.configRx = static_cast<std::uint32_t>(v), port->countersIs(counters); }},
      {"handleLocalCounters", [&](int v) { counters.rstRx = static_cast<std::uint32_t>(v), port->localCountersIs(counters); }},
  };
  // With a destination port the record is the level-8 progress line; without one, "no destination" at 7.
  for (const bool withDestination : {true, false}) {
    if (!withDestination) dst->rxMstStatus("G")->rxMstPortStatusDel(et1);
    Zek::test::TraceCapture cap({"StpRxStatusSyncer/7-8"});
    std::set<int> lines;
    int value = withDestination ? 10 : 20;
    for (const auto& [handler, write] : writes) {
      cap.clear();
      write(++value);
      ASSERT_EQ(cap.lines().size(), 1u) << handler;
      const auto& line = cap.lines().front();
      EXPECT_EQ(line.function, handler);
      EXPECT_EQ(line.file, "Stp/StpRxStatusSyncer");
      EXPECT_EQ(line.level, withDestination ? 8 : 7) << handler;
      EXPECT_EQ(line.text, "RxMstPortStatusToRxDynamicSyncer[G|Et1]::" + handler + "() " +
                               (withDestination ? "" : "no destination"));
      EXPECT_GT(line.line, 0);
      EXPECT_TRUE(lines.insert(line.line).second) << handler << " reports a line another handler reports";
    }
  }
}

}  // namespace
}  // namespace StpTxRx
