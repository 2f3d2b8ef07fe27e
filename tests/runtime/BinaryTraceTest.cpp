// Binary trace: call-site texts from the compiler's function signatures, the ring, switching and dump.
#include <stptxrx/runtime/BinaryTrace.h>

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace Zek::test::bt {

// Call sites of every shape a handler may have. Each returns the line of its ZEK_BINARY_TRACE().
int freeFunction() {
  ZEK_BINARY_TRACE();
  return __LINE__ - 1;
}

struct Widget {
  int member(int) const {
    ZEK_BINARY_TRACE();
    return __LINE__ - 1;
  }
  static int staticMember() {
    ZEK_BINARY_TRACE();
    return __LINE__ - 1;
  }
  int operator()(int) const {
    ZEK_BINARY_TRACE();
    return __LINE__ - 1;
  }
  bool operator<(const Widget&) const {
    ZEK_BINARY_TRACE();
    line = __LINE__ - 1;
    return false;
  }
  int withLambda() {
    return [] {
      ZEK_BINARY_TRACE();
      return __LINE__ - 1;
    }();
  }
  static inline int line = 0;
};

template <class T>
struct Box {
  int put(const std::vector<T>&) {
    ZEK_BINARY_TRACE();
    return __LINE__ - 1;
  }
};

template <class T>
std::vector<std::pair<T, int>> makeList(int* line) {
  ZEK_BINARY_TRACE();
  *line = __LINE__ - 1;
  return {};
}

}  // namespace Zek::test::bt

namespace {
struct Anonymous {
  int handle() {
    ZEK_BINARY_TRACE();
    return __LINE__ - 1;
  }
};
}  // namespace

namespace Zek::test {
namespace {

std::string newestText() {
  BinaryTrace::Record r{};
  EXPECT_TRUE(BinaryTrace::recent(0, r));
  return BinaryTrace::messageText(r.message);
}

std::string at(const char* name, int line) { return std::string(name) + "():" + std::to_string(line); }

class BinaryTraceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    BinaryTrace::enabledIs(true);
    BinaryTrace::clear();
  }
  void TearDown() override {
    BinaryTrace::enabledIs(true);
    BinaryTrace::clear();
  }
};

TEST_F(BinaryTraceTest, CallSiteTextIsQualifiedNameParenthesesAndLine) {
  int line = bt::freeFunction();
  EXPECT_EQ(newestText(), at("Zek::test::bt::freeFunction", line));
  line = bt::Widget().member(1);
  EXPECT_EQ(newestText(), at("Zek::test::bt::Widget::member", line)) << "parameters and const dropped";
  line = bt::Widget::staticMember();
  EXPECT_EQ(newestText(), at("Zek::test::bt::Widget::staticMember", line));
  line = bt::Widget()(1);
  EXPECT_EQ(newestText(), at("Zek::test::bt::Widget::operator()", line));
  line = bt::Widget().withLambda();
  EXPECT_EQ(newestText(), at("Zek::test::bt::Widget::withLambda", line)) << "a lambda reports its function";
}

TEST_F(BinaryTraceTest, TemplatesKeepTheirParametersAndDropTheReturnType) {
  int line = bt::Box<int>().put({});
#if defined(__clang__)
  EXPECT_EQ(newestText(), at("Zek::test::bt::Box<int>::put", line));  // this compiler names the argument
#else
  EXPECT_EQ(newestText(), at("Zek::test::bt::Box<T>::put", line));
#endif
  bt::makeList<std::pair<int, int>>(&line);
  EXPECT_EQ(newestText(), at("Zek::test::bt::makeList", line));
}

TEST_F(BinaryTraceTest, OperatorsWithAngleBracketsAndAnonymousNamespaces) {
  (void)(bt::Widget() < bt::Widget());
  EXPECT_EQ(newestText(), at("Zek::test::bt::Widget::operator<", bt::Widget::line));
  int line = Anonymous().handle();
  std::string text = newestText();
  // "{anonymous}::..." or "(anonymous namespace)::...", as the compiler spells it
  EXPECT_TRUE(text == at("{anonymous}::Anonymous::handle", line) ||
              text == at("(anonymous namespace)::Anonymous::handle", line))
      << text;
}

// Signatures as either compiler spells them, including shapes this compiler does not produce here.
TEST_F(BinaryTraceTest, SignatureSpellingsOfBothCompilers) {
  const std::pair<const char*, const char*> cases[] = {
      {"void (anonymous namespace)::Fake::handle(int)", "(anonymous namespace)::Fake::handle"},
      {"void {anonymous}::Fake::handle(int)", "{anonymous}::Fake::handle"},
      {"bool Ns::W::operator<(const Ns::W &) const", "Ns::W::operator<"},
      {"Ns::W &Ns::W::operator<<(int)", "Ns::W::operator<<"},
      {"Ns::W& Ns::W::operator>>(int)", "Ns::W::operator>>"},
      {"auto Ns::W::operator<=>(const Ns::W &) const", "Ns::W::operator<=>"},
      {"Ns::W *Ns::P::operator->() const", "Ns::P::operator->"},
      {"void Ns::F::operator()(int) const", "Ns::F::operator()"},
      {"auto Ns::W::f()::(anonymous class)::operator()() const", "Ns::W::f"},
      {"std::function<void (int)> Ns::make(std::function<void (int)>)", "Ns::make"},
      {"void Ns::C<T>::m() [with T = std::map<int, int>]", "Ns::C<T>::m"},
      {"std::map<int, std::vector<int> > Ns::C<int, std::less<int> >::m() const", "Ns::C<int, std::less<int> >::m"},
      {"Ns::Free::Free()", "Ns::Free::Free"},
      {"main", "main"},
  };
  for (const auto& [pretty, name] : cases) {
    EXPECT_EQ(BinaryTrace::messageText(BinaryTrace::callSiteIs(pretty, __FILE__, 9)), std::string(name) + "():9")
        << pretty;
  }
}

TEST_F(BinaryTraceTest, CallSiteRegistersOnceAndRecordsEachRun) {
  bt::freeFunction();
  BinaryTrace::Record first{};
  ASSERT_TRUE(BinaryTrace::recent(0, first));
  bt::freeFunction();
  BinaryTrace::Record second{};
  ASSERT_TRUE(BinaryTrace::recent(0, second));
  EXPECT_EQ(first.message, second.message);
  EXPECT_EQ(BinaryTrace::recordCount(), 2u);
  EXPECT_GE(second.start, first.start);
}

TEST_F(BinaryTraceTest, SwitchedOffRecordsNothing) {
  BinaryTrace::enabledIs(false);
  bt::freeFunction();
  EXPECT_EQ(BinaryTrace::recordCount(), 0u);
  BinaryTrace::Record r{};
  EXPECT_FALSE(BinaryTrace::recent(0, r));
  BinaryTrace::enabledIs(true);
  bt::freeFunction();
  EXPECT_EQ(BinaryTrace::recordCount(), 1u);
}

TEST_F(BinaryTraceTest, TimerSwitchedOffMidwayStillClosesItsRecord) {
  {
    BinaryTrace::BlockTimer timer(BinaryTrace::callSiteIs("void f()", __FILE__, __LINE__));
    BinaryTrace::enabledIs(false);
  }
  EXPECT_EQ(BinaryTrace::recordCount(), 1u) << "a timer started while on records on exit";
}

TEST_F(BinaryTraceTest, RingKeepsTheLatestRecordsWhenItWraps) {
  const std::uint32_t a = BinaryTrace::callSiteIs("void Ring::a()", __FILE__, 1);
  const std::uint32_t b = BinaryTrace::callSiteIs("void Ring::b()", __FILE__, 2);
  const std::uint64_t total = BinaryTrace::ringSize + 10;
  for (std::uint64_t i = 0; i < total; ++i) BinaryTrace::record(i < 10 ? a : b, i, 1);
  EXPECT_EQ(BinaryTrace::recordCount(), total);
  BinaryTrace::Record r{};
  ASSERT_TRUE(BinaryTrace::recent(0, r));
  EXPECT_EQ(r.start, total - 1);
  ASSERT_TRUE(BinaryTrace::recent(BinaryTrace::ringSize - 1, r));
  EXPECT_EQ(r.start, 10u) << "the oldest record kept";
  EXPECT_FALSE(BinaryTrace::recent(BinaryTrace::ringSize, r));

  std::ostringstream os;
  BinaryTrace::dump(os);
  std::istringstream lines(os.str());
  std::string first, line, last;
  std::getline(lines, first);
  std::size_t count = 1;
  while (std::getline(lines, line)) {
    ++count;
    last = line;
  }
  EXPECT_EQ(count, BinaryTrace::ringSize);
  EXPECT_EQ(first, "Ring::b():2 start=10 elapsed=1");
  EXPECT_EQ(last, "Ring::b():2 start=" + std::to_string(total - 1) + " elapsed=1");
}

TEST_F(BinaryTraceTest, DumpOfAPartlyFilledRingIsOldestFirst) {
  const std::uint32_t m = BinaryTrace::callSiteIs("int Ns::C<int>::m(int) const", __FILE__, 7);
  BinaryTrace::record(m, 100, 5);
  BinaryTrace::record(m, 200, 6);
  std::ostringstream os;
  BinaryTrace::dump(os);
  EXPECT_EQ(os.str(), "Ns::C<int>::m():7 start=100 elapsed=5\nNs::C<int>::m():7 start=200 elapsed=6\n");
  BinaryTrace::clear();
  std::ostringstream empty;
  BinaryTrace::dump(empty);
  EXPECT_EQ(empty.str(), "");
  EXPECT_EQ(BinaryTrace::messageText(0xffffffffu), "");
}

}  // namespace
}  // namespace Zek::test
