// HashMap and OrderedMap: iteration order, and walks whose body changes the collection.
#include <stptxrx/runtime/Collections.h>
#include <stptxrx/runtime/Ptr.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Zek {
namespace {

/// A counted member that reports its destruction and may look back into its collection when it goes.
struct Member : PtrInterface {
  explicit Member(int k, std::vector<int>* destroyed) : key(k), destroyed_(destroyed) {}
  ~Member() override {
    if (destroyed_) destroyed_->push_back(key);
    if (onDestroy) onDestroy();
  }
  int key;
  std::vector<int>* destroyed_;
  std::function<void()> onDestroy;
};

template <class Map>
struct MapTraits;
template <>
struct MapTraits<HashMap<int, Ptr<Member>>> {
  static std::vector<int> order(std::vector<int> inserted) { return inserted; }  // insertion order
};
template <>
struct MapTraits<OrderedMap<int, Ptr<Member>>> {
  static std::vector<int> order(std::vector<int> inserted) {
    std::sort(inserted.begin(), inserted.end());
    return inserted;
  }
};

template <class Map>
class MapWalkTest : public ::testing::Test {
 protected:
  void add(std::initializer_list<int> keys) {
    for (int k : keys) {
      inserted.push_back(k);
      map.insert(k, Ptr<Member>(new Member(k, &destroyed)));
    }
  }
  std::vector<int> keys() const {
    std::vector<int> out;
    for (const auto& [k, v] : map) {
      EXPECT_EQ(v->key, k);
      out.push_back(k);
    }
    return out;
  }
  std::vector<int> expected(std::vector<int> keys) const { return MapTraits<Map>::order(std::move(keys)); }

  std::vector<int> destroyed;  // declared first: members report into it when the map goes
  std::vector<int> inserted;
  Map map;
};

using MapTypes = ::testing::Types<HashMap<int, Ptr<Member>>, OrderedMap<int, Ptr<Member>>>;
class MapNames {
 public:
  template <class T>
  static std::string GetName(int) {
    return std::is_same_v<T, HashMap<int, Ptr<Member>>> ? "HashMap" : "OrderedMap";
  }
};
TYPED_TEST_SUITE(MapWalkTest, MapTypes, MapNames);

TYPED_TEST(MapWalkTest, IteratesInTheCollectionsOrder) {
  this->add({5, 0, 2});
  EXPECT_EQ(this->keys(), this->expected({5, 0, 2}));  // HashMap 5,0,2; OrderedMap 0,2,5
  EXPECT_EQ(this->map.size(), 3u);
  ASSERT_TRUE(this->map.find(2));
  EXPECT_EQ((*this->map.find(2))->key, 2);
  EXPECT_FALSE(this->map.find(1));
  auto [slot, inserted] = this->map.insert(2, Ptr<Member>(new Member(99, nullptr)));
  EXPECT_FALSE(inserted) << "insert keeps an existing member";
  EXPECT_EQ((*slot)->key, 2);
}

TYPED_TEST(MapWalkTest, DeletingTheCurrentMemberContinuesWithTheNext) {
  this->add({5, 0, 2, 9, 4});
  std::vector<int> visited;
  for (const auto& [k, v] : this->map) {
    visited.push_back(k);
    this->map.erase(k);
    EXPECT_EQ(v->key, k) << "the iterator keeps the current member alive";
    EXPECT_EQ(std::count(this->destroyed.begin(), this->destroyed.end(), k), 0);
  }
  EXPECT_EQ(visited, this->expected({5, 0, 2, 9, 4}));
  EXPECT_TRUE(this->map.empty());
  EXPECT_EQ(this->destroyed.size(), 5u);
}

TYPED_TEST(MapWalkTest, DeletingOtherMembersNeverVisitsTwiceOrVisitsTheDeleted) {
  this->add({1, 2, 3, 4, 5, 6});
  std::vector<int> visited;
  for (const auto& [k, v] : this->map) {
    visited.push_back(k);
    if (k == 2) {
      this->map.erase(1);  // behind
      this->map.erase(3);  // next
      this->map.erase(5);  // further ahead
    }
  }
  EXPECT_EQ(visited, (std::vector<int>{1, 2, 4, 6}));
  EXPECT_EQ(this->keys(), (std::vector<int>{2, 4, 6}));
}

TYPED_TEST(MapWalkTest, ReinsertingTheCurrentKeyDoesNotRepeatItInOrderedWalks) {
  this->add({1, 2, 3});
  std::vector<int> visited;
  bool reinserted = false;
  for (const auto& [k, v] : this->map) {
    visited.push_back(k);
    if (k == 2 && !reinserted) {
      reinserted = true;
      this->map.erase(2);
      this->map.insert(2, Ptr<Member>(new Member(2, nullptr)));
    }
  }
  // An ordered walk continues after key 2; a hash walk meets the re-inserted member again at the end,
  // as the new member it is.
  if (std::is_same_v<TypeParam, OrderedMap<int, Ptr<Member>>>) {
    EXPECT_EQ(visited, (std::vector<int>{1, 2, 3}));
  } else {
    EXPECT_EQ(visited, (std::vector<int>{1, 2, 3, 2}));
  }
}

TYPED_TEST(MapWalkTest, ClearDuringAWalkEndsItAndReleasesAfterEmptying) {
  this->add({1, 2, 3});
  std::vector<std::size_t> sizeSeenByDestructor;
  for (int k : {1, 2, 3}) {
    (*this->map.find(k))->onDestroy = [&] { sizeSeenByDestructor.push_back(this->map.size()); };
  }
  std::vector<int> visited;
  for (const auto& [k, v] : this->map) {
    visited.push_back(k);
    this->map.clear();
  }
  EXPECT_EQ(visited, (std::vector<int>{this->expected({1, 2, 3}).front()}));
  EXPECT_TRUE(this->map.empty());
  EXPECT_EQ(this->destroyed.size(), 3u);
  EXPECT_EQ(sizeSeenByDestructor, (std::vector<std::size_t>{0, 0, 0}));
  this->add({7});
  EXPECT_EQ(this->keys(), (std::vector<int>{7})) << "usable after a clear inside a walk";
}

TYPED_TEST(MapWalkTest, ClearOutsideAWalkReleasesAfterEmptying) {
  this->add({1, 2});
  std::vector<std::size_t> sizeSeenByDestructor;
  (*this->map.find(1))->onDestroy = [&] { sizeSeenByDestructor.push_back(this->map.size()); };
  this->map.clear();
  EXPECT_EQ(sizeSeenByDestructor, (std::vector<std::size_t>{0}));
  EXPECT_EQ(this->destroyed.size(), 2u);
}

TYPED_TEST(MapWalkTest, MembersAddedDuringAWalk) {
  this->add({10, 20});
  std::vector<int> visited;
  for (const auto& [k, v] : this->map) {
    visited.push_back(k);
    if (k == 10) this->add({30, 5});
  }
  // Hash order visits both additions (appended); key order visits only the greater key.
  if (std::is_same_v<TypeParam, OrderedMap<int, Ptr<Member>>>) {
    EXPECT_EQ(visited, (std::vector<int>{10, 20, 30}));
  } else {
    EXPECT_EQ(visited, (std::vector<int>{10, 20, 30, 5}));
  }
}

TYPED_TEST(MapWalkTest, NestedWalksWithDeletion) {
  this->add({1, 2, 3, 4});
  std::vector<std::pair<int, int>> pairs;
  for (const auto& [outer, v1] : this->map) {
    for (const auto& [inner, v2] : this->map) {
      pairs.emplace_back(outer, inner);
      if (inner == outer) this->map.erase(inner);
    }
  }
  EXPECT_EQ(pairs, (std::vector<std::pair<int, int>>{
                       {1, 1}, {1, 2}, {1, 3}, {1, 4}, {2, 2}, {2, 3}, {2, 4}, {3, 3}, {3, 4}, {4, 4}}));
  EXPECT_TRUE(this->map.empty());
}

// Many erasures compact the hash map's slot vector; order and lookups must survive the renumbering.
TEST(HashMapCompactionTest, LookupsAndOrderSurviveCompaction) {
  HashMap<std::string, int> map(4);
  for (int i = 0; i < 40; ++i) map.insert("k" + std::to_string(i), i);
  for (int i = 0; i < 40; ++i) {
    if (i % 4 != 3) map.erase("k" + std::to_string(i));
  }
  ASSERT_EQ(map.size(), 10u);
  std::vector<int> values;
  for (const auto& [k, v] : map) values.push_back(v);
  EXPECT_EQ(values, (std::vector<int>{3, 7, 11, 15, 19, 23, 27, 31, 35, 39}));
  for (int i = 3; i < 40; i += 4) {
    const int* v = map.find("k" + std::to_string(i));
    ASSERT_TRUE(v) << i;
    EXPECT_EQ(*v, i);
  }
  EXPECT_FALSE(map.find("k0"));
  map.insert("late", 100);
  EXPECT_EQ(*map.find("late"), 100);
  EXPECT_EQ(*map.erase("k39"), 39);
  EXPECT_EQ(map.size(), 10u);
}

TEST(HashMapCompactionTest, NoCompactionUnderALiveIterator) {
  HashMap<int, int> map;
  for (int i = 0; i < 30; ++i) map.insert(i, i);
  std::vector<int> visited;
  for (const auto& [k, v] : map) {
    visited.push_back(k);
    // Erasing everything else from inside the walk would compact (and renumber) without the guard.
    if (k == 0) {
      for (int i = 1; i < 30; i += 2) map.erase(i);
    }
  }
  std::vector<int> evens;
  for (int i = 0; i < 30; i += 2) evens.push_back(i);
  EXPECT_EQ(visited, evens);
  for (int i = 0; i < 30; i += 2) EXPECT_EQ(*map.find(i), i);
}

TEST(HashMapCompactionTest, CopiedIteratorsCountAsLiveWalks) {
  HashMap<int, int> map;
  for (int i = 0; i < 30; ++i) map.insert(i, i);
  auto it = map.begin();
  auto copy = it;
  for (int i = 1; i < 30; ++i) map.erase(i);
  ++copy;
  EXPECT_TRUE(copy == std::default_sentinel);
  EXPECT_EQ(it->first, 0);
  EXPECT_EQ(*map.find(0), 0);
}

}  // namespace
}  // namespace Zek
