// HashMap and OrderedMap: walks whose body changes the collection, and hash-map compaction.
#include <stptxrx/runtime/Collections.h>
#include <stptxrx/runtime/Ptr.h>

#include "support/AllocCounter.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace Zek {
namespace {

/// A counted member that runs `gone` when it is destroyed.
struct Member : PtrInterface {
  Member(int k, std::function<void()> gone) : key(k), gone(std::move(gone)) {}
  ~Member() override { gone(); }
  int key;
  std::function<void()> gone;
};

template <class Map>
class MapWalkTest : public ::testing::Test {
 protected:
  void TearDown() override { map.clear(); }
  void add(std::initializer_list<int> keys) {
    for (int k : keys) map.insert(k, Ptr<Member>(new Member(k, [this] { ++released, sizesAtRelease.push_back(map.size()); })));
  }
  /// Walks the map, running `body` on each key; returns the keys visited.
  std::vector<int> walk(const std::function<void(int)>& body = {}) {
    std::vector<int> visited;
    for (const auto& [k, v] : map) {
      visited.push_back(k);
      if (body) body(k);
      EXPECT_EQ(v->key, k) << "the iterator keeps the current member alive";
    }
    return visited;
  }
  std::vector<int> inOrder(std::vector<int> hash, std::vector<int> ordered) const {
    return std::is_same_v<Map, OrderedMap<int, Ptr<Member>>> ? ordered : hash;
  }
  std::vector<std::size_t> sizesAtRelease;
  int released = 0;
  Map map;
};

using MapTypes = ::testing::Types<HashMap<int, Ptr<Member>>, OrderedMap<int, Ptr<Member>>>;
TYPED_TEST_SUITE(MapWalkTest, MapTypes);

// Deleting the current member, members behind and ahead, adding members, re-inserting the current key and
// clearing, each inside a walk: every member is visited once in the collection's order, except a re-inserted
// key, which is a new member in hash order.
TYPED_TEST(MapWalkTest, ChangesInsideAWalkVisitEachLiveMemberOnceInTheCollectionsOrder) {
  this->add({5, 0, 2, 9, 4});
  EXPECT_EQ(this->walk([&](int k) { this->map.erase(k); }), this->inOrder({5, 0, 2, 9, 4}, {0, 2, 4, 5, 9}));
  this->add({1, 2, 3, 4, 5, 6});
  bool again = false;
  const auto visited = this->walk([&](int k) {
    if (k != 2 || std::exchange(again, true)) return;
    for (int gone : {1, 3, 5, 2}) this->map.erase(gone);  // behind, next, further ahead, current
    this->add({0, 7, 2});
  });
  EXPECT_EQ(visited, this->inOrder({1, 2, 4, 6, 0, 7, 2}, {1, 2, 4, 6, 7}));
  this->sizesAtRelease.clear();
  EXPECT_EQ(this->walk([&](int) { this->map.clear(); }).size(), 1u);
  this->add({7, 8});
  EXPECT_EQ(this->walk(), (std::vector<int>{7, 8})) << "usable after a clear inside a walk";
  this->map.clear();
  EXPECT_EQ(this->sizesAtRelease, (std::vector<std::size_t>(7, 0))) << "destructors look back into an empty map";
  EXPECT_EQ(this->released, 16);
}

// Erasing most members compacts the slot vector, but never under a live walk (it would lose its place).
TEST(HashMapCompactionTest, LookupsAndOrderSurviveCompactionWhichWaitsForLiveWalks) {
  HashMap<std::string, int> map(4);
  for (int i = 0; i < 40; ++i) map.insert("k" + std::to_string(i), i);
  std::vector<int> visited;
  for (const auto& [k, v] : map) {
    visited.push_back(v);
    for (int i = 0; v == 20 && i < 40; ++i) {
      if (i % 4 != 3 && i != 20) map.erase("k" + std::to_string(i));
    }
  }
  EXPECT_TRUE(visited.size() == 26u && visited.back() == 39) << "the walk went on in place";
  map.erase("k20");  // no walk left: compacts
  for (int i = 0; i < 40; ++i) {
    const int* v = map.find("k" + std::to_string(i));
    EXPECT_EQ(v ? *v : -1, i % 4 == 3 ? i : -1) << i;
  }
  map.insert("late", 100);
  visited.clear();
  for (const auto& [k, v] : map) visited.push_back(v);
  EXPECT_EQ(visited, (std::vector<int>{3, 7, 11, 15, 19, 23, 27, 31, 35, 39, 100})) << "order survives compaction";
}

// Compaction rebuilds the slot array (one allocation) exactly when the holes reach eight and the live count;
// iterators copied and assigned must not leave it waiting for a walk that has ended.
TEST(HashMapCompactionTest, CompactsOnceTheHolesReachEightAndTheLiveCount) {
  for (int size : {16, 10}) {  // at 16 the live count decides, at 10 the eight holes
    HashMap<int, int> map;
    for (int i = 0; i < size; ++i) map.insert(i, i);
    {
      auto it = map.begin(), other = map.begin();
      auto copy = ++it;
      other = copy;
      EXPECT_EQ((*++other).first, 2) << "an assigned iterator goes on from where its source is";
    }
    std::vector<std::uint64_t> allocations;
    for (int i = 0; i < 8; ++i) {
      test::AllocScope scope;
      map.erase(i);
      allocations.push_back(scope.count());
    }
    EXPECT_EQ(allocations, (std::vector<std::uint64_t>{0, 0, 0, 0, 0, 0, 0, 1})) << size;
    const auto walking = map.begin();  // clear() under a live iterator moves the members out into one array
    test::AllocScope scope;
    map.clear();
    EXPECT_TRUE(scope.count() == 1 && map.empty());
  }
}

}  // namespace
}  // namespace Zek
