// Text trace (level settings, the cost of an off level, sinks) and binary trace (call-site texts, the ring).
#include <stptxrx/runtime/BinaryTrace.h>
#include <stptxrx/runtime/Reactor.h>
#include <stptxrx/runtime/Trace.h>

#include "support/AllocCounter.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace Zek::test::bt {

struct Widget {  // each returns the line of its call site
  int member(int) const { ZEK_BINARY_TRACE(); return __LINE__; }
  int withLambda() const { return [] { ZEK_BINARY_TRACE(); return __LINE__; }(); }
};

}  // namespace Zek::test::bt

namespace Zek::test {
namespace {

std::uint16_t levelsOf(const char* handle) { return traceHandleIs(handle)->levels(); }

// Each test uses its own handle names; the capture puts levels, rules and sink back as they were. Levels are
// bit masks: 0x100 is level 8. Each step: a setting, then what handles read after it.
TEST(TraceLevelsTest, SettingsSetLevelsOfExistingAndLaterHandlesAndMalformedOnesChangeNothing) {
  TraceCapture cap;
  traceHandleIs("TlBad")->levelsIs(0x10);  // a malformed setting is rejected and changes nothing
  for (const char* bad : {"TlBad/8,TlBad/x", "TlBad/10", "TlBad/3-1", "/3", "TlBad/1-", "TlBad/-2", "TlNew/8,*/1/2"}) {
    EXPECT_TRUE(!traceLevelsIs(bad) && levelsOf("TlBad") == 0x10) << bad;
  }
  EXPECT_EQ(levelsOf("TlNew"), 0u) << "no item of a rejected setting is kept";
  traceHandleIs("TlExisting");
  traceHandleIs("TlApi")->levelsIs(0x20);
  const struct { const char* setting; std::vector<std::pair<const char*, unsigned>> levels; } steps[] = {
      // a bare name switches levels 0 to 9; levels set by API survive settings for other handles
      {"TlOne/8,TlRange/2-3,TlAll", {{"TlOne", 0x100}, {"TlRange", 0xc}, {"TlAll", 0x3ff}, {"TlApi", 0x20}}},
      {" TlOne/7 , ,TlAll/- ", {{"TlOne", 0x180}, {"TlAll", 0}}},  // a later item adds; '-' switches off
      // a rule reaches existing handles and those created after it
      {"*/1,TlNamed/2", {{"TlExisting", 0x2}, {"TlFuture", 0x2}, {"TlNamed", 0x6}}}};
  for (const auto& step : steps) {
    ASSERT_TRUE(cap.levelsIs(step.setting)) << step.setting;
    for (const auto& [handle, levels] : step.levels) EXPECT_EQ(levelsOf(handle), levels) << step.setting << handle;
  }
}

TEST(TraceLevelsDeathTest, StartupLevelsComeFromTheEnvironment) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a fresh process that reads the variable
  ::setenv("STPTXRX_TRACE", "TlEnv/8,TlEnvRange/2-3", 1);
  EXPECT_EXIT(std::exit(levelsOf("TlEnv") == 0x100 && levelsOf("TlEnvRange") == 0xc ? 0 : 1),
              ::testing::ExitedWithCode(0), "");
  ::setenv("STPTXRX_TRACE", "TlEnv/x", 1);
  EXPECT_EXIT(std::exit(levelsOf("TlEnv")), ::testing::ExitedWithCode(0),
              "STPTXRX_TRACE: cannot parse \"TlEnv/x\"; tracing stays off");
  ::unsetenv("STPTXRX_TRACE");
}

TEST(TraceSinkTest, OffLevelBuildsNoTextAndOnLevelReachesTheSinkWithItsSource) {
  TraceCapture cap({"TlCost/8"});
  TraceHandle* h = traceHandleIs("TlCost");
  int streamed = 0;  // how often a message text was built
  AllocScope scope;
  for (int i = 0; i < 100; ++i) ZEK_TRACE(h, 7, "value " << (++streamed, "streamed") << std::string(100, 'x'));
  EXPECT_TRUE(scope.count() == 0 && streamed == 0) << "an off level builds no text";
  ZEK_TRACE(h, 8, "value " << (++streamed, "streamed"));
  ZEK_SYNCER_TRACE(h, 8, "Stp/StpTxStatusSyncer", "TxStatusToTxSyncer", "[g]", "handleTxMstStatus", "create " << 2);
  ASSERT_TRUE(streamed == 1 && cap.lines().size() == 2u);
  EXPECT_TRUE(cap.lines()[0].level == 8 && cap.lines()[0].file.ends_with("tests/runtime/TraceTest") &&
              cap.lines()[0].function == "TestBody" && cap.lines()[1].file == "Stp/StpTxStatusSyncer");
  EXPECT_EQ(cap.texts(),
            (std::vector<std::string>{"value streamed", "TxStatusToTxSyncer[g]::handleTxMstStatus() create 2"}));

  traceSinkIs(nullptr);  // the stderr sink, until the capture puts its own back
  ::testing::internal::CaptureStderr();
  const int line = __LINE__ + 1;
  ZEK_TRACE_FROM(h, 8, "/x/src/Stp/StpTxRxUtils.cpp", "hello " << 42);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "TlCost/8 Stp/StpTxRxUtils:" + std::to_string(line) + " TestBody: hello 42\n");
}

class BinaryTraceTest : public ::testing::Test {
 protected:
  void SetUp() override { BinaryTrace::clear(); }
  void TearDown() override { BinaryTrace::enabledIs(true), BinaryTrace::clear(); }
  static std::string newestText() {
    BinaryTrace::Record r{};
    return BinaryTrace::recent(0, r) ? BinaryTrace::messageText(r.message) : "nothing recorded";
  }
};

TEST_F(BinaryTraceTest, CallSiteTextIsTheQualifiedNameWithoutReturnTypeOrParameters) {
  int line = bt::Widget().member(1);
  EXPECT_EQ(newestText(), "Zek::test::bt::Widget::member():" + std::to_string(line));
  line = bt::Widget().withLambda();
  EXPECT_EQ(newestText(), "Zek::test::bt::Widget::withLambda():" + std::to_string(line)) << "a lambda names its function";
  // Signatures as either compiler spells them.
  const std::pair<const char*, const char*> cases[] = {
      {"void (anonymous namespace)::Fake::handle(int)", "(anonymous namespace)::Fake::handle"},
      {"void {anonymous}::Fake::handle(int)", "{anonymous}::Fake::handle"},
      {"bool Ns::W::operator<(const Ns::W &) const", "Ns::W::operator<"}, {"main", "main"},
      {"Ns::W &Ns::W::operator<<(int)", "Ns::W::operator<<"}, {"Ns::W& Ns::W::operator>>(int)", "Ns::W::operator>>"},
      {"Ns::W *Ns::P::operator->() const", "Ns::P::operator->"}, {"Ns::Free::Free()", "Ns::Free::Free"},
      {"auto Ns::W::operator<=>(const Ns::W &) const", "Ns::W::operator<=>"}, {"void Ns::F::operator()(int) const", "Ns::F::operator()"},
      {"auto Ns::W::f()::(anonymous class)::operator()() const", "Ns::W::f"},
      {"std::function<void (int)> Ns::make(std::function<void (int)>)", "Ns::make"},
      {"void Ns::C<T>::m() [with T = std::map<int, int>]", "Ns::C<T>::m"},
      {"std::map<int, std::vector<int> > Ns::C<int, std::less<int> >::m() const", "Ns::C<int, std::less<int> >::m"}};
  for (const auto& [pretty, name] : cases) {
    EXPECT_EQ(BinaryTrace::messageText(BinaryTrace::callSiteIs(pretty, __FILE__, 9)), std::string(name) + "():9")
        << pretty;
  }
}

TEST_F(BinaryTraceTest, CallSiteRegistersOnceAndTheRingKeepsTheLatestRecordsWhileOnAndDumpsThemOldestFirst) {
  BinaryTrace::Record first{}, r{};
  bt::Widget().member(1);
  ASSERT_TRUE(BinaryTrace::recent(0, first));
  BinaryTrace::enabledIs(false);
  bt::Widget().member(1);
  EXPECT_EQ(BinaryTrace::recordCount(), 1u) << "switched off: nothing recorded";
  BinaryTrace::enabledIs(true);
  bt::Widget().member(1);
  ASSERT_TRUE(BinaryTrace::recordCount() == 2u && BinaryTrace::recent(0, r));
  EXPECT_TRUE(r.message == first.message && r.start >= first.start) << "one call site, registered once";
  BinaryTrace::clear();
  const std::uint32_t m = BinaryTrace::callSiteIs("int Ns::C<int>::m(int) const", __FILE__, 7);
  const std::uint64_t total = BinaryTrace::ringSize + 10;
  for (std::uint64_t i = 0; i < total; ++i) BinaryTrace::record(m, i, 1);
  EXPECT_TRUE(BinaryTrace::recordCount() == total && !BinaryTrace::recent(BinaryTrace::ringSize, r));
  std::ostringstream full;
  BinaryTrace::dump(full);
  const std::string text = full.str();
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), BinaryTrace::ringSize);
  EXPECT_TRUE(text.starts_with("Ns::C<int>::m():7 start=10 elapsed=1\n")) << "the oldest record kept";
  EXPECT_TRUE(text.ends_with("start=" + std::to_string(total - 1) + " elapsed=1\n"));
  BinaryTrace::record(m, 0, std::uint64_t{1} << 40);
  EXPECT_TRUE(BinaryTrace::recent(0, r) && r.elapsed == 0xffffffffu) << "a longer time is kept as the longest";
}

TEST_F(BinaryTraceTest, RunHandsABlockEndOnlyToTheNextBlockOfItsOwnLevelAndToTheEnclosingEnd) {
  const std::uint32_t m = BinaryTrace::callSiteIs("void Ns::R::h()", __FILE__, 1);
  {
    BinaryTrace::BlockTimer enclosing(m);
    BinaryTrace::Run run(&enclosing);
    { BinaryTrace::BlockTimer first(m); }
    {
      BinaryTrace::BlockTimer second(m);
      { BinaryTrace::BlockTimer nested1(m); }
      { BinaryTrace::BlockTimer nested2(m); }
    }
  }
  BinaryTrace::Record first{}, nested1{}, nested2{}, second{}, enclosing{};
  for (auto [back, r] : {std::pair{4u, &first}, {3u, &nested1}, {2u, &nested2}, {1u, &second}, {0u, &enclosing}}) {
    ASSERT_TRUE(BinaryTrace::recordCount() == 5u && BinaryTrace::recent(back, *r));
  }
  const auto end = [](const BinaryTrace::Record& r) { return r.start + r.elapsed; };
  EXPECT_EQ(second.start, end(first)) << "the run's next block starts where its last one ended";
  EXPECT_GT(nested2.start, end(nested1)) << "blocks nested in a run's block read the counter";
  EXPECT_EQ(end(enclosing), end(second)) << "the enclosing block ends where the run's last block ended";
}

}  // namespace
}  // namespace Zek::test
