// Text trace: level specs, handles created after a rule, the cost of an off level, sinks.
#include <stptxrx/runtime/Reactor.h>
#include <stptxrx/runtime/Trace.h>

#include "support/AllocCounter.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>

namespace Zek::test {
namespace {

constexpr std::uint16_t bit(int level) { return static_cast<std::uint16_t>(1u << level); }

/// Counts how often it is streamed: proves whether a message text was built.
struct Streamed {
  int* count;
};
std::ostream& operator<<(std::ostream& os, const Streamed& s) {
  ++*s.count;
  return os << "streamed";
}

struct Throwing {};
std::ostream& operator<<(std::ostream& os, const Throwing&) {
  throw std::runtime_error("no text");
  return os;
}

/// Each test uses its own handle names and leaves levels and sink as it found them.
class TraceLevelsTest : public ::testing::Test {
 protected:
  TraceCapture cap;
};

TEST_F(TraceLevelsTest, SingleLevelRangeAndBareName) {
  ASSERT_TRUE(traceLevelsIs("TlOne/8,TlRange/2-3,TlAll"));
  EXPECT_EQ(traceHandleIs("TlOne")->levels(), bit(8));
  EXPECT_EQ(traceHandleIs("TlRange")->levels(), bit(2) | bit(3));
  EXPECT_EQ(traceHandleIs("TlAll")->levels(), 0x3ff) << "a bare name switches levels 0 to 9";
  EXPECT_TRUE(traceHandleIs("TlRange")->enabled(3));
  EXPECT_FALSE(traceHandleIs("TlRange")->enabled(4));
  ASSERT_TRUE(traceLevelsIs(" TlOne/7 , ,TlAll/- "));
  EXPECT_EQ(traceHandleIs("TlOne")->levels(), bit(7) | bit(8)) << "a later item adds the levels it names";
  EXPECT_EQ(traceHandleIs("TlAll")->levels(), 0u) << "'-' switches a handle off";
}

TEST_F(TraceLevelsTest, WildcardReachesExistingAndFutureHandles) {
  TraceHandle* existing = traceHandleIs("TlWildExisting");
  ASSERT_TRUE(traceLevelsIs("*/1,TlWildNamed/2"));
  EXPECT_EQ(existing->levels(), bit(1));
  EXPECT_EQ(traceHandleIs("TlWildFuture")->levels(), bit(1)) << "created after the rule, gets its level";
  EXPECT_EQ(traceHandleIs("TlWildNamed")->levels(), bit(1) | bit(2));
  ASSERT_TRUE(traceLevelsIs("*/-"));
  EXPECT_EQ(traceHandleIs("TlWildNamed")->levels(), 0u);
}

TEST_F(TraceLevelsTest, HandleCreatedAfterTheRuleGetsTheLevel) {
  ASSERT_TRUE(traceLevelsIs("TlCreatedLater/8"));
  EXPECT_EQ(traceHandleIs("TlCreatedLater")->levels(), bit(8));
  EXPECT_EQ(traceHandleIs("TlCreatedLater"), traceHandleIs("TlCreatedLater")) << "one handle per name";
}

TEST_F(TraceLevelsTest, MalformedSpecIsRejectedAndChangesNothing) {
  TraceHandle* h = traceHandleIs("TlMalformed");
  h->levelsIs(bit(4));
  for (const char* bad : {"TlMalformed/8,TlMalformed/x", "TlMalformed/10", "TlMalformed/3-1", "/3",
                          "TlMalformed/1-", "TlMalformed/-2", "TlMalformed/8,*/1/2"}) {
    EXPECT_FALSE(traceLevelsIs(bad)) << bad;
    EXPECT_EQ(h->levels(), bit(4)) << bad;
  }
  EXPECT_EQ(traceHandleIs("TlMalformedNew")->levels(), 0u) << "no rule of a rejected spec is kept";
}

TEST_F(TraceLevelsTest, LevelsSetByApiSurviveSpecsForOtherHandles) {
  TraceHandle* h = traceHandleIs("TlApi");
  h->levelsIs(bit(5));
  ASSERT_TRUE(traceLevelsIs("TlApiOther/8"));
  EXPECT_EQ(h->levels(), bit(5));
}

TEST(TraceLevelMaskTest, ParsesTheLevelPart) {
  std::uint16_t mask = 0xffff;
  EXPECT_TRUE(traceLevelMaskOf("0", mask));
  EXPECT_EQ(mask, bit(0));
  EXPECT_TRUE(traceLevelMaskOf("9", mask));
  EXPECT_EQ(mask, bit(9));
  EXPECT_TRUE(traceLevelMaskOf("0-9", mask));
  EXPECT_EQ(mask, 0x3ff);
  EXPECT_TRUE(traceLevelMaskOf("-", mask));
  EXPECT_EQ(mask, 0u);
  mask = 0x55;
  EXPECT_FALSE(traceLevelMaskOf("a", mask));
  EXPECT_FALSE(traceLevelMaskOf("5-", mask));
  EXPECT_FALSE(traceLevelMaskOf("+5", mask));
  EXPECT_EQ(mask, 0x55) << "untouched on failure";
}

TEST(TraceEnvironmentTest, StartupLevelsComeFromTheEnvironment) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a fresh process that reads the variable
  ::setenv("STPTXRX_TRACE", "TlEnv/8,TlEnvRange/2-3", 1);
  EXPECT_EXIT(
      {
        bool ok = traceHandleIs("TlEnv")->levels() == bit(8) &&
                  traceHandleIs("TlEnvRange")->levels() == (bit(2) | bit(3));
        std::exit(ok ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
  ::setenv("STPTXRX_TRACE", "TlEnv/x", 1);
  EXPECT_EXIT(std::exit(traceHandleIs("TlEnv")->levels() == 0 ? 0 : 1), ::testing::ExitedWithCode(0),
              "STPTXRX_TRACE: cannot parse \"TlEnv/x\"; tracing stays off");
  ::unsetenv("STPTXRX_TRACE");
}

TEST(TraceCostTest, OffLevelBuildsNoTextAndAllocatesNothing) {
  TraceCapture cap({"TlCost/8"});
  TraceHandle* h = traceHandleIs("TlCost");
  int streamed = 0;
  AllocScope scope;
  for (int i = 0; i < 100; ++i) ZEK_TRACE(h, 7, "value " << Streamed{&streamed} << std::string(100, 'x'));
  EXPECT_EQ(scope.count(), 0u);
  EXPECT_EQ(streamed, 0);
  EXPECT_TRUE(cap.lines().empty());
  ZEK_TRACE(h, 8, "value " << Streamed{&streamed});
  EXPECT_EQ(streamed, 1);
  EXPECT_EQ(cap.texts(), (std::vector<std::string>{"value streamed"}));
}

TEST(TraceSinkTest, CapturingSinkGetsHandleLevelFileFunctionAndText) {
  TraceCapture cap({"TlSink/3,TlSyncer/8"});
  const int line = __LINE__ + 1;
  ZEK_TRACE(traceHandleIs("TlSink"), 3, "Packet allocation failed");
  ZEK_TRACE_FROM(traceHandleIs("TlSink"), 3, "Stp/StpTxRxUtils", "from " << 2);
  ZEK_SYNCER_TRACE(traceHandleIs("TlSyncer"), 8, "Stp/StpTxStatusSyncer", "TxStatusToTxSyncer", "[g]",
                   "handleTxMstStatus", "create " << "g");
  ASSERT_EQ(cap.lines().size(), 3u);
  const auto& first = cap.lines()[0];
  EXPECT_EQ(first.handle, "TlSink");
  EXPECT_EQ(first.level, 3);
  EXPECT_TRUE(first.file.ends_with("tests/runtime/TraceTest")) << first.file << ": extension dropped";
  EXPECT_EQ(first.function, "TestBody");
  EXPECT_EQ(first.text, "Packet allocation failed");
  EXPECT_EQ(cap.lines()[1].file, "Stp/StpTxRxUtils");
  EXPECT_EQ(cap.lines()[1].text, "from 2");
  EXPECT_EQ(cap.lines()[2].file, "Stp/StpTxStatusSyncer");
  EXPECT_EQ(cap.lines()[2].text, "TxStatusToTxSyncer[g]::handleTxMstStatus() create g");
  (void)line;
}

TEST(TraceSinkTest, StderrSinkWritesOneLinePerMessage) {
  traceHandleIs("TlStderr")->levelsIs(bit(2));
  ::testing::internal::CaptureStderr();
  const int line = __LINE__ + 1;
  ZEK_TRACE_FROM(traceHandleIs("TlStderr"), 2, "/x/src/Stp/StpTxRxUtils.cpp", "hello " << 42);
  std::string out = ::testing::internal::GetCapturedStderr();
  traceHandleIs("TlStderr")->levelsIs(0);
  EXPECT_EQ(out, "TlStderr/2 Stp/StpTxRxUtils:" + std::to_string(line) + " TestBody: hello 42\n");
}

TEST(TraceDeathTest, ExceptionWhileBuildingAMessageEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        traceHandleIs("TlThrow")->levelsIs(bit(1));
        ZEK_TRACE(traceHandleIs("TlThrow"), 1, "x" << Throwing{});
      },
      "");
}

}  // namespace
}  // namespace Zek::test
