// Counted pointers in both reference-count modes (plain and atomic).
#include <stptxrx/runtime/Ptr.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace Zek {
namespace {

struct Base : PtrInterface {
  explicit Base(int* destroyed) : destroyed_(destroyed) {}
  ~Base() override { ++*destroyed_; }
  int* destroyed_;
};
struct Derived : Base {
  using Base::Base;
  int value = 7;
};

/// Goes back to a free list instead of being deleted (the way pooled objects use onZeroReferences).
struct Recycled : PtrInterface {
  int zeroes = 0;
  void onZeroReferences() override { ++zeroes; }
  ~Recycled() override = default;
};

class PtrTest : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override { threadSafePointers_ = GetParam(); }
  void TearDown() override { threadSafePointers_ = false; }
  int destroyed = 0;
};

TEST_P(PtrTest, CountsStartAtZeroAndEachPtrAddsOne) {
  auto* raw = new Derived(&destroyed);
  EXPECT_EQ(raw->references(), 0u);
  Ptr<Derived> a(raw);
  EXPECT_EQ(raw->references(), 1u);
  Ptr<Derived> b = a;
  Ptr<Derived> c;
  c = b;
  EXPECT_EQ(raw->references(), 3u);
  const Ptr<Derived>& alias = c;
  c = alias;  // self-assignment keeps the count
  EXPECT_EQ(raw->references(), 3u);
  Ptr<Derived> d = std::move(b);
  EXPECT_FALSE(b);
  EXPECT_EQ(raw->references(), 3u) << "a move transfers the reference";
  d = nullptr;
  c = nullptr;
  EXPECT_EQ(raw->references(), 1u);
  EXPECT_EQ(destroyed, 0);
}

TEST_P(PtrTest, DestroyedExactlyOnceWhenTheLastReferenceGoes) {
  {
    Ptr<Derived> a(new Derived(&destroyed));
    Ptr<Derived> b = a;
    a = nullptr;
    EXPECT_EQ(destroyed, 0);
    Ptr<Derived> other(new Derived(&destroyed));
    b = other;  // reassignment releases the old object
    EXPECT_EQ(destroyed, 1);
  }
  EXPECT_EQ(destroyed, 2);
}

TEST_P(PtrTest, ConvertsToConstAndToBaseSharingTheCount) {
  Ptr<Derived> d(new Derived(&destroyed));
  Ptr<Derived const> dc = d;
  Ptr<Base const> bc = dc;
  Ptr<PtrInterface const> any = d;
  EXPECT_EQ(d->references(), 4u);
  EXPECT_TRUE(bc == d);
  EXPECT_EQ(dc->value, 7);
  Ptr<Base const> moved = std::move(dc);
  EXPECT_FALSE(dc);
  EXPECT_EQ(d->references(), 4u);
  Ptr<Derived const> back = ptr_cast<Derived const>(moved);
  EXPECT_EQ(back.get(), d.get());
  EXPECT_EQ(d->references(), 5u);
  static_assert(!std::is_convertible_v<Ptr<Derived const>, Ptr<Derived>>, "const does not convert away");
  static_assert(!std::is_convertible_v<Ptr<Base>, Ptr<Derived>>, "no implicit downcast");
  d = nullptr;
  dc = nullptr;
  any = nullptr;
  moved = nullptr;
  bc = nullptr;
  EXPECT_EQ(destroyed, 0) << "the const view alone keeps the object";
  back = nullptr;
  EXPECT_EQ(destroyed, 1);
}

TEST_P(PtrTest, ReleaseGivesUpTheReferenceWithoutDropping) {
  Ptr<Derived> a(new Derived(&destroyed));
  Derived* raw = a.release();
  EXPECT_FALSE(a);
  EXPECT_EQ(raw->references(), 1u);
  raw->deleteRef();
  EXPECT_EQ(destroyed, 1);
}

TEST_P(PtrTest, ZeroReferencesRunsTheOverrideInsteadOfDelete) {
  Recycled r;
  {
    Ptr<Recycled> a(&r);
    Ptr<Recycled const> b = a;
  }
  EXPECT_EQ(r.zeroes, 1);
  EXPECT_EQ(r.references(), 0u);
  { Ptr<Recycled> again(&r); }
  EXPECT_EQ(r.zeroes, 2);
}

TEST_P(PtrTest, NullIsALegalValue) {
  Ptr<Derived> n;
  Ptr<Derived const> nc = n;
  Ptr<Derived> copy = n;
  copy = n;
  EXPECT_FALSE(nc);
  EXPECT_TRUE(n == nullptr);
  EXPECT_TRUE(n == nc);
  EXPECT_EQ(std::hash<Ptr<Derived>>()(n), std::hash<Derived*>()(nullptr));
}

INSTANTIATE_TEST_SUITE_P(BothModes, PtrTest, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "ThreadSafe" : "Plain"; });

TEST(PtrThreadSafeTest, ConcurrentCopiesKeepTheCountExact) {
  threadSafePointers_ = true;
  int destroyed = 0;
  {
    Ptr<Derived> shared(new Derived(&destroyed));
    std::atomic<bool> go{false};
    std::vector<std::thread> workers;
    for (int t = 0; t < 4; ++t) {
      workers.emplace_back([&] {
        while (!go.load()) {
        }
        for (int i = 0; i < 100000; ++i) {
          Ptr<Derived> copy = shared;
          Ptr<Base const> view = copy;
        }
      });
    }
    go = true;
    for (auto& w : workers) w.join();
    EXPECT_EQ(shared->references(), 1u);
    EXPECT_EQ(destroyed, 0);
  }
  EXPECT_EQ(destroyed, 1);
  threadSafePointers_ = false;
}

}  // namespace
}  // namespace Zek
