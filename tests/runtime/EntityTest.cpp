// Attribute writes: when each kind of write notifies, with and without notifyEqualWrites_.
#include "TestEntities.h"
#include "support/RecordingReactor.h"

#include <gtest/gtest.h>

namespace Zek::test {
namespace {

class EntityWriteTest : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override { notifyEqualWrites_ = GetParam(); }
  void TearDown() override { notifyEqualWrites_ = false; }
  bool equalWritesNotify() const { return GetParam(); }

  Ptr<Shelf> shelf{new Shelf};
  Ptr<RecordingReactor> rec = RecordingReactor::RecordingReactorIs(
      shelf, [](AttributeId id, const void* key) {
        return id == Shelf::binId ? std::to_string(*static_cast<const int*>(key))
                                  : static_cast<const Name*>(key)->str();
      });
};

TEST_P(EntityWriteTest, ScalarNotifiesAChangeAndAnEqualWriteOnlyWithTheSwitch) {
  std::string seen;
  rec->actionIs([&](AttributeId, const void*) { seen = shelf->label(); });
  shelf->labelIs("a");
  EXPECT_EQ(seen, "a") << "the value is stored before anyone is notified";
  shelf->labelIs("a");
  shelf->labelIs("b");
  std::vector<AttributeId> expected{Shelf::labelId};
  if (equalWritesNotify()) expected.push_back(Shelf::labelId);
  expected.push_back(Shelf::labelId);
  EXPECT_EQ(rec->ids(), expected);
  EXPECT_FALSE(rec->notifications()[0].hasKey) << "a scalar carries no key";
  EXPECT_EQ(shelf->label(), "b");
}

TEST_P(EntityWriteTest, ValueMapNotifiesWithTheKey) {
  shelf->countIs("k", 1);  // new entry
  shelf->countIs("k", 1);  // equal
  shelf->countIs("k", 2);  // change
  shelf->countIs("j", 0);  // new entry with a default-like value
  EXPECT_EQ(rec->count(), equalWritesNotify() ? 4u : 3u);
  EXPECT_EQ(rec->keys().front(), "k");
  EXPECT_EQ(rec->keys().back(), "j");
  ASSERT_TRUE(shelf->count("k"));
  EXPECT_EQ(*shelf->count("k"), 2);
  EXPECT_EQ(*shelf->count("j"), 0);
}

TEST_P(EntityWriteTest, ValueMapDeleteNotifiesOnlyWhenItRemoves) {
  shelf->countIs("k", 1);
  rec->clear();
  EXPECT_FALSE(shelf->countDel("absent"));
  EXPECT_EQ(rec->count(), 0u) << "deleting an absent key does nothing, even with the switch";
  const int* seenDuringDelete = reinterpret_cast<const int*>(1);
  rec->actionIs([&](AttributeId, const void*) { seenDuringDelete = shelf->count("k"); });
  EXPECT_TRUE(shelf->countDel("k"));
  EXPECT_EQ(rec->keys(), (std::vector<std::string>{"k"}));
  EXPECT_EQ(seenDuringDelete, nullptr) << "the entry is gone when the reactors run";
  EXPECT_FALSE(shelf->countDel("k"));
  EXPECT_EQ(rec->count(), 1u);
}

TEST_P(EntityWriteTest, CollectionCreateOrReturnNotifiesOnlyWhenItCreates) {
  Ptr<Item> seenDuringCreate;
  rec->actionIs([&](AttributeId, const void*) { seenDuringCreate = shelf->item("x"); });
  Ptr<Item> x = shelf->itemIs("x");
  ASSERT_TRUE(x);
  EXPECT_EQ(seenDuringCreate, x) << "the member is in the collection when the reactors run";
  EXPECT_EQ(x->name(), "x");
  Ptr<Item> again = shelf->itemIs("x");
  EXPECT_EQ(again, x) << "the existing member is returned";
  EXPECT_EQ(rec->keys(), (std::vector<std::string>{"x"})) << "and nothing is notified, even with the switch";
  EXPECT_EQ(shelf->items().size(), 1u);
}

TEST_P(EntityWriteTest, CollectionDeleteReturnsTheMarkedMemberAndNotifiesOnce) {
  Ptr<Item> x = shelf->itemIs("x");
  shelf->binIs(3);
  rec->clear();
  EXPECT_FALSE(shelf->itemDel("absent"));
  EXPECT_FALSE(shelf->binDel(4));
  EXPECT_EQ(rec->count(), 0u) << "deleting an absent key does nothing";
  bool presentDuringDelete = true;
  rec->actionIs([&](AttributeId, const void*) { presentDuringDelete = static_cast<bool>(shelf->item("x")); });
  Ptr<Item> removed = shelf->itemDel("x");
  EXPECT_EQ(removed, x);
  EXPECT_TRUE(removed->zekMarkedForDeletion());
  EXPECT_FALSE(presentDuringDelete);
  rec->actionIs(nullptr);
  EXPECT_TRUE(shelf->binDel(3));
  EXPECT_EQ(rec->ids(), (std::vector<AttributeId>{Shelf::itemId, Shelf::binId}));
  EXPECT_EQ(rec->keys(), (std::vector<std::string>{"x", "3"}));
  EXPECT_FALSE(shelf->itemDel("x"));
  EXPECT_EQ(rec->count(), 2u);
}

TEST_P(EntityWriteTest, ReusedKeyMakesANewMember) {
  Ptr<Item> first = shelf->itemIs("x");
  first->weightIs(5);
  shelf->itemDel("x");
  Ptr<Item> second = shelf->itemIs("x");
  EXPECT_NE(second, first);
  EXPECT_EQ(second->weight(), 0);
  EXPECT_FALSE(second->zekMarkedForDeletion());
  EXPECT_EQ(rec->count(), 3u);
}

TEST_P(EntityWriteTest, MembersNotifyTheirOwnReactorsNotTheCollections) {
  Ptr<Item> x = shelf->itemIs("x");
  auto onItem = RecordingReactor::RecordingReactorIs(x);
  rec->clear();
  x->weightIs(3);
  x->weightIs(3);
  EXPECT_EQ(rec->count(), 0u);
  EXPECT_EQ(onItem->count(), equalWritesNotify() ? 2u : 1u);
}

TEST_P(EntityWriteTest, WritesWithoutReactorsAreSilent) {
  rec = nullptr;
  shelf->labelIs("a");
  shelf->countIs("k", 1);
  shelf->itemIs("x");
  EXPECT_EQ(shelf->label(), "a");
  EXPECT_TRUE(shelf->notifieeList()->empty());
}

INSTANTIATE_TEST_SUITE_P(EqualWrites, EntityWriteTest, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "Notify" : "Silent"; });

}  // namespace
}  // namespace Zek::test
