// Counted pointers (in both reference-count modes), type registry, exceptions, assertions and counted
// strings.
#include <stptxrx/runtime/Assert.h>
#include <stptxrx/runtime/Entity.h>
#include <stptxrx/runtime/Exception.h>
#include <stptxrx/runtime/Ptr.h>
#include <stptxrx/runtime/String.h>
#include <stptxrx/runtime/TypeRegistry.h>

#include "support/AllocCounter.h"
#include "support/LiveCounts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

namespace Zek::test {
namespace {

struct Counted : PtrInterface {
  explicit Counted(int* destroyed) : destroyed_(destroyed) {}
  ~Counted() override { ++*destroyed_; }
  int* destroyed_;
};
struct Derived : Counted {
  using Counted::Counted;
};

class PtrTest : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override { threadSafePointers_ = GetParam(); }
  void TearDown() override { threadSafePointers_ = false; }
};

TEST_P(PtrTest, EveryPtrCountsOnceAndTheLastOneDestroysOnce) {
  int destroyed = 0;
  auto* raw = new Derived(&destroyed);
  EXPECT_EQ(raw->references(), 0u);
  Ptr<Derived> a(raw);
  Ptr<Derived> b = a, c;
  c = b;
  c = static_cast<const Ptr<Derived>&>(c);  // self-assignment
  Ptr<Counted const> view = c;              // const and base views share the count
  Ptr<Derived> moved = std::move(b);        // a move transfers the reference
  EXPECT_FALSE(b);
  EXPECT_EQ(raw->references(), 4u);
  EXPECT_EQ(ptr_cast<Derived const>(view).get(), raw);
  a = moved = c = nullptr;
  EXPECT_EQ(destroyed, 0) << "the const view alone keeps the object";
  Derived* released = Ptr<Derived>(raw).release();  // gives up a reference without dropping it
  EXPECT_EQ(raw->references(), 2u);
  released->deleteRef();
  view = Ptr<Counted const>(new Counted(&destroyed));  // reassignment releases the old object
  EXPECT_EQ(destroyed, 1);
  view = nullptr;
  EXPECT_EQ(destroyed, 2);
}

INSTANTIATE_TEST_SUITE_P(BothModes, PtrTest, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "ThreadSafe" : "Plain"; });

class Tracked : public PtrInterface {
  ZEK_TYPE(Tracked);

 public:
  Tracked() = default;
  Tracked(const Tracked&) : PtrInterface() {}
};

}  // namespace

ZEK_TYPE_DEFINE(Tracked, "Zek::test::Tracked")

namespace {

// The live counts behind every "nothing left behind" check, and LiveCounts naming what did not return.
TEST(TypeRegistryTest, TypesRegisterAtLoadAndCountLiveObjects) {
  EXPECT_FALSE(threadSafePointers_ || notifyEqualWrites_) << "both process-wide switches start off";
  const TypeNode* node = typeNode("Zek::test::Tracked");
  ASSERT_EQ(node, Tracked::zekTypeNode()) << "registered by the static initializer, before any object exists";
  const std::int64_t total = liveObjectCount();
  LiveCounts before;
  Ptr<Tracked> a(new Tracked);
  Ptr<Tracked> b(new Tracked(*a));  // a copy is one more object
  EXPECT_TRUE(a->fwkType() == node && liveObjectCount() == total + 2);
  EXPECT_EQ(std::string(before.unchanged().message()), "live object counts differ:\n  Zek::test::Tracked: 2 live, expected 0");
  a = b = nullptr;
  EXPECT_TRUE(before.unchanged());
}

TEST(ExceptionTest, TextsNameTypeAttributeAndValues) {
  using ::testing::StrEq;
  EXPECT_THAT([] { throwMutatorArgNullPointerException("StpTxRx::TxStatusToTxSyncer", "zekTxMstStatusSm"); },
              ::testing::ThrowsMessage<MutatorArgNullPointerException>(
                  StrEq("StpTxRx::TxStatusToTxSyncer::zekTxMstStatusSm: null pointer argument")));
  EXPECT_THAT([] { throwMutatorReinstantiating("StpTxRx::Owner", "txInfoSyncer", "old", "new"); },
              ::testing::ThrowsMessage<MutatorReinstantiatingException>(
                  StrEq("StpTxRx::Owner::txInfoSyncer: reinstantiating with new, existing old")));
  EXPECT_THAT([] { throwRangeException("no member \"x\" [1]: 100%"); },
              ::testing::ThrowsMessage<RangeException>(StrEq("no member \"x\" [1]: 100%")));
}

void checkedFunction(int vlan) { ZEK_ASSERT(!vlan); }

TEST(AssertDeathTest, PrintsFileLineFunctionAndExpressionThenAborts) {
  checkedFunction(0);  // holds: nothing happens
  EXPECT_DEATH(checkedFunction(5),
               "RuntimeMiscTest\\.cpp:[0-9]+: void Zek::test::[^ ]*anonymous[^:]*::checkedFunction\\(int\\): "
               "Assertion `!vlan' failed");
  EXPECT_DEATH(ZEK_ASSERT_IN("Nelk::Pkt::Ptr StpTxRx::StpTxRxGetPkt(...)", 1 == 2),
               ":[0-9]+: Nelk::Pkt::Ptr StpTxRx::StpTxRxGetPkt\\(\\.\\.\\.\\): Assertion `1 == 2' failed");
  EXPECT_EXIT(ZEK_ASSERT(0), ::testing::KilledBySignal(SIGABRT), "Assertion `0' failed");
}

// Copies and assignments share one buffer and release the old one; the byte count sees the library's own
// allocations, or every "allocates nothing" check would be vacuous.
TEST(StringTest, CopiesAndAssignmentsShareOneBufferAndFreeTheOldOne) {
  countBytesIs(true);
  const std::int64_t empty = liveBytes();
  {
    String a("group-one");
    const std::int64_t one = liveBytes();
    EXPECT_GT(one, empty);
    {
      String b("other"), c(a);
      b = a;
      c = b;
      b = static_cast<const String&>(b);
      EXPECT_EQ(liveBytes(), one) << "the old buffer is freed, no new one made";
      EXPECT_TRUE(b.c_str() == a.c_str() && c == "group-one");
      String m("moved");
      m = std::move(b);
      EXPECT_TRUE(m.c_str() == a.c_str() && b.empty());
    }
    EXPECT_EQ(liveBytes(), one) << "the last holder alone frees the buffer";
    EXPECT_EQ(a + "|" + String("Et1"), "group-one|Et1");
  }
  EXPECT_EQ(liveBytes(), empty);
  countBytesIs(false);
}

}  // namespace
}  // namespace Zek::test
