// Counted pointers (in both reference-count modes), type registry, exceptions, assertions, counted
// strings and the block pool.
#include <stptxrx/runtime/Assert.h>
#include <stptxrx/runtime/BlockPool.h>
#include <stptxrx/runtime/Entity.h>
#include <stptxrx/runtime/Exception.h>
#include <stptxrx/runtime/Ptr.h>
#include <stptxrx/runtime/String.h>
#include <stptxrx/runtime/TypeRegistry.h>

#include "support/AllocCounter.h"
#include "support/LiveCounts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <random>
#include <set>

namespace Zek::test {
namespace {

struct Counted : PtrInterface {
  explicit Counted(int* destroyed) : destroyed_(destroyed) {}
  ~Counted() override { ++*destroyed_; }
  int* destroyed_;
};
struct Derived : Counted { using Counted::Counted; };

struct PtrTest : ::testing::TestWithParam<bool> {
  void SetUp() override { threadSafePointers_ = GetParam(); }
  void TearDown() override { threadSafePointers_ = false; }
};

TEST_P(PtrTest, EveryPtrCountsOnceAndTheLastOneDestroysOnce) {
  int destroyed = 0;
  auto* raw = new Derived(&destroyed);
  EXPECT_EQ(raw->references(), 0u);
  Ptr<Derived> a(raw), b = a, c;
  c = b;
  c = static_cast<const Ptr<Derived>&>(c);  // self-assignment
  Ptr<Counted const> view = c;              // const and base views share the count
  Ptr<Derived> moved = std::move(b);        // a move transfers the reference
  EXPECT_TRUE(!b && raw->references() == 4u && ptr_cast<Derived const>(view).get() == raw);
  a = moved = c = nullptr;
  EXPECT_EQ(destroyed, 0) << "the const view alone keeps the object";
  Derived* released = Ptr<Derived>(raw).release();  // gives up a reference without dropping it
  EXPECT_EQ(raw->references(), 2u);
  released->deleteRef();
  view = Ptr<Counted const>(new Counted(&destroyed));  // reassignment releases the old object
  const int afterReassignment = destroyed;
  view = nullptr;
  EXPECT_TRUE(afterReassignment == 1 && destroyed == 2);
}

INSTANTIATE_TEST_SUITE_P(BothModes, PtrTest, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "ThreadSafe" : "Plain"; });

class Tracked : public PtrInterface {
  ZEK_TYPE(Tracked);

 public:
  Tracked() = default;
  Tracked(const Tracked&) : PtrInterface() {}
};
ZEK_TYPE_DEFINE(Tracked, "Zek::test::Tracked")

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
    String a("group-one"), b("other"), c(a);
    const std::int64_t one = liveBytes();
    c = b = a;
    b = static_cast<const String&>(b);
    EXPECT_TRUE(liveBytes() < one && b.c_str() == a.c_str() && c == "group-one") << "the old buffer is freed";
    String m("moved");
    m = std::move(b);
    EXPECT_TRUE(m.c_str() == a.c_str() && b.empty() && a + "|" + String("Et1") == "group-one|Et1");
    m = c = String();
  }
  EXPECT_EQ(liveBytes(), empty);
  countBytesIs(false);
}

// A seeded model: random allocate/free steps over several chunks; every live block is distinct, aligned,
// keeps what was written into it until it is freed, and the pool's live count follows the model's.
TEST(BlockPoolTest, RandomAllocateAndFreeKeepsBlocksDistinctAlignedAndIntact) {
  for (const auto& [size, alignment] : {std::pair<std::size_t, std::size_t>{24, 8}, {40, 16}, {8, 8}, {100, 4}}) {
    BlockPool pool(size, alignment);
    EXPECT_TRUE(pool.blockSize() >= size && pool.blockSize() % alignment == 0);
    const unsigned seed = 0x5eedu + static_cast<unsigned>(size);
    std::mt19937 rng(seed);
    std::vector<std::pair<void*, unsigned char>> live;  // block, the octet it was filled with
    const auto intact = [&](const auto& l) {
      auto* bytes = static_cast<unsigned char*>(l.first);
      return std::all_of(bytes, bytes + size, [&](unsigned char b) { return b == l.second; });
    };
    for (int step = 0; step < 3000; ++step) {
      if (step == 1500 || step == 2999) {  // grown past several chunks: drain to zero, midway and at the end
        std::set<void*> distinct;
        for (const auto& l : live) ASSERT_TRUE(intact(l) && distinct.insert(l.first).second) << seed << "/" << step;
        for (const auto& l : std::exchange(live, {})) pool.deallocate(l.first);
        pool.deallocate(nullptr);
      } else if (live.empty() || rng() % 3 != 0) {
        void* p = pool.allocate();
        ASSERT_EQ(reinterpret_cast<std::uintptr_t>(p) % alignment, 0u) << seed;
        std::memset(p, live.emplace_back(p, static_cast<unsigned char>(rng())).second, size);
      } else {
        const std::size_t i = rng() % live.size();
        ASSERT_TRUE(intact(live[i])) << seed << "/" << step;
        pool.deallocate(live[i].first);
        live.erase(live.begin() + static_cast<std::ptrdiff_t>(i));
      }
      ASSERT_TRUE(!BlockPool::pooled || pool.live() == live.size()) << seed << "/" << step;
    }
  }
}

}  // namespace
}  // namespace Zek::test
