// Notification dispatch: order, the active gate, and re-entrancy (handlers that write, add or remove
// members, register, unregister or release reactors while a dispatch runs).
#include "TestEntities.h"
#include "support/RecordingReactor.h"

#include <gtest/gtest.h>

#include <vector>

namespace Zek::test {
namespace {

/// Appends its name to a shared journal on every notification, then runs an optional action.
class Named : public RecordingReactor {
 public:
  Named(const Ptr<PtrInterface const>& n, std::vector<std::string>* journal, std::string name, int* destroyed)
      : RecordingReactor(n), journal_(journal), name_(std::move(name)), destroyed_(destroyed) {}
  ~Named() override {
    if (destroyed_) ++*destroyed_;
  }
  void onAttribute(AttributeId id, const void* key) override {
    journal_->push_back(name_);
    RecordingReactor::onAttribute(id, key);
  }

 private:
  std::vector<std::string>* journal_;
  std::string name_;
  int* destroyed_;
};

class DispatchTest : public ::testing::Test {
 protected:
  Ptr<Named> reactor(const std::string& name) {
    return Ptr<Named>(new Named(shelf, &journal, name, &destroyed));
  }
  Ptr<Shelf> shelf{new Shelf};
  std::vector<std::string> journal;
  int destroyed = 0;
};

TEST_F(DispatchTest, DeliversInRegistrationOrderToActiveRegisteredReactorsOnly) {
  auto a = reactor("a"), b = reactor("b"), c = reactor("c"), d = reactor("d");
  b->hasNotificationActiveIs(false);
  c->isRegisteredNotifieeIs(false);
  shelf->labelIs("x");
  EXPECT_EQ(journal, (std::vector<std::string>{"a", "d"}));
  EXPECT_EQ(shelf->notifieeList()->size(), 3u);
  c->isRegisteredNotifieeIs(true);  // back at the end
  b->hasNotificationActiveIs(true);
  journal.clear();
  shelf->labelIs("y");
  EXPECT_EQ(journal, (std::vector<std::string>{"a", "b", "d", "c"}));
}

TEST_F(DispatchTest, HandlerWritingItsNotifierNestsAndEveryoneSeesBothWrites) {
  auto a = reactor("a"), b = reactor("b");
  std::vector<std::string> labelsSeenByB;
  a->actionIs([&](AttributeId, const void*) {
    if (shelf->label() == "first") shelf->labelIs("second");
  });
  b->actionIs([&](AttributeId, const void*) { labelsSeenByB.push_back(shelf->label()); });
  shelf->labelIs("first");
  // a(first) -> nested [a(second), b(second)] -> b(first)
  EXPECT_EQ(journal, (std::vector<std::string>{"a", "a", "b", "b"}));
  EXPECT_EQ(labelsSeenByB, (std::vector<std::string>{"second", "second"})) << "the value is read, not carried";
}

TEST_F(DispatchTest, HandlerAddingAndRemovingMembersNotifiesWithTheRightKeys) {
  auto a = RecordingReactor::RecordingReactorIs(shelf, RecordingReactor::keyAs<Name>());
  auto b = RecordingReactor::RecordingReactorIs(shelf, RecordingReactor::keyAs<Name>());
  a->actionIs([&](AttributeId id, const void* key) {
    if (id != Shelf::itemId) return;
    const Name& k = *static_cast<const Name*>(key);
    if (k == "new") shelf->itemIs("added-by-handler");
    if (k == "added-by-handler") shelf->itemDel("new");
  });
  shelf->itemIs("new");
  EXPECT_EQ(a->keys(), (std::vector<std::string>{"new", "added-by-handler", "new"}));
  EXPECT_EQ(b->keys(), (std::vector<std::string>{"new", "added-by-handler", "new"}));
  EXPECT_FALSE(shelf->item("new"));
  EXPECT_TRUE(shelf->item("added-by-handler"));
}

TEST_F(DispatchTest, ReactorReleasingItsOwnLastReferenceSurvivesUntilItReturns) {
  Ptr<Named> self = reactor("self");
  auto after = reactor("after");
  int destroyedInsideHandler = -1;
  self->actionIs([&](AttributeId, const void*) {
    self = nullptr;  // the test held the only reference
    destroyedInsideHandler = destroyed;
  });
  shelf->labelIs("x");
  EXPECT_EQ(destroyedInsideHandler, 0) << "the dispatcher holds a reference while the reactor runs";
  EXPECT_EQ(destroyed, 1) << "released when its handler returned";
  EXPECT_EQ(journal, (std::vector<std::string>{"self", "after"}));
  EXPECT_EQ(after->count(), 1u);
  EXPECT_EQ(shelf->notifieeList()->size(), 1u);
}

TEST_F(DispatchTest, ReactorUnregisteredOrReleasedBeforeItsTurnIsNotCalled) {
  auto a = reactor("a"), b = reactor("b"), c = reactor("c"), d = reactor("d");
  a->actionIs([&](AttributeId, const void*) {
    b->isRegisteredNotifieeIs(false);
    c = nullptr;  // destroyed while the dispatch runs
  });
  shelf->labelIs("x");
  EXPECT_EQ(journal, (std::vector<std::string>{"a", "d"}));
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(shelf->notifieeList()->size(), 2u);
}

TEST_F(DispatchTest, RemovingAnEarlierReactorSkipsNoLaterOne) {
  auto a = reactor("a"), b = reactor("b"), c = reactor("c"), d = reactor("d");
  c->actionIs([&](AttributeId, const void*) {
    a->isRegisteredNotifieeIs(false);
    b = nullptr;
  });
  shelf->labelIs("x");
  EXPECT_EQ(journal, (std::vector<std::string>{"a", "b", "c", "d"}));
  journal.clear();
  shelf->labelIs("y");
  EXPECT_EQ(journal, (std::vector<std::string>{"c", "d"}));
}

TEST_F(DispatchTest, ReactorRegisteredDuringADispatchGetsOnlyLaterNotifications) {
  auto a = reactor("a");
  Ptr<Named> late;
  a->actionIs([&](AttributeId, const void*) {
    if (!late) late = reactor("late");
  });
  shelf->labelIs("x");
  EXPECT_EQ(journal, (std::vector<std::string>{"a"}));
  ASSERT_TRUE(late);
  shelf->labelIs("y");
  EXPECT_EQ(journal, (std::vector<std::string>{"a", "a", "late"}));
}

TEST_F(DispatchTest, ReactorRegisteredDuringADispatchGetsANestedNotification) {
  auto a = reactor("a");
  Ptr<Named> late;
  a->actionIs([&](AttributeId, const void*) {
    if (late) return;
    late = reactor("late");
    shelf->labelIs("nested");
  });
  shelf->labelIs("x");
  EXPECT_EQ(journal, (std::vector<std::string>{"a", "a", "late"}));
}

// Removals inside a nested dispatch must not compact the list under the outer one (the outer loop
// would then skip a live reactor or read past the end).
TEST_F(DispatchTest, RemovalsInANestedDispatchKeepTheOuterDispatchIntact) {
  auto a = reactor("a"), b = reactor("b"), c = reactor("c"), d = reactor("d");
  b->actionIs([&](AttributeId, const void*) {
    if (shelf->label() == "outer") shelf->labelIs("inner");
  });
  c->actionIs([&](AttributeId, const void*) {
    if (shelf->label() == "inner" && a) {
      a = nullptr;                       // already called in both dispatches
      b->isRegisteredNotifieeIs(false);  // is running the outer dispatch right now
    }
  });
  shelf->labelIs("outer");
  // outer: a, b -> inner: a, b, c (removes a and b), d -> outer continues: c, d
  EXPECT_EQ(journal, (std::vector<std::string>{"a", "b", "a", "b", "c", "d", "c", "d"}));
  EXPECT_EQ(shelf->notifieeList()->size(), 2u);
  journal.clear();
  shelf->labelIs("after");
  EXPECT_EQ(journal, (std::vector<std::string>{"c", "d"}));
}

TEST_F(DispatchTest, ReactorMovingToAnotherNotifierDuringADispatch) {
  Ptr<Shelf> other(new Shelf);
  auto a = reactor("a"), b = reactor("b");
  a->actionIs([&](AttributeId, const void*) { b->notifierIs(other); });
  shelf->labelIs("x");
  EXPECT_EQ(journal, (std::vector<std::string>{"a"}));
  other->labelIs("y");
  EXPECT_EQ(journal, (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(shelf->notifieeList()->size(), 1u);
  EXPECT_EQ(other->notifieeList()->size(), 1u);
  b->notifierIs(nullptr);
  EXPECT_TRUE(other->notifieeList()->empty());
  other->labelIs("z");
  EXPECT_EQ(b->count(), 1u);
}

TEST_F(DispatchTest, ManyRegistrationChangesLeaveAConsistentList) {
  std::vector<Ptr<Named>> rs;
  for (int i = 0; i < 20; ++i) rs.push_back(reactor(std::to_string(i)));
  rs[0]->actionIs([&](AttributeId, const void*) {
    for (int i = 1; i < 20; i += 2) rs[static_cast<std::size_t>(i)] = nullptr;
    for (int i = 0; i < 5; ++i) rs.push_back(reactor("n" + std::to_string(i)));
  });
  shelf->labelIs("x");
  EXPECT_EQ(journal.size(), 10u);  // 0 and the even ones; none of the new ones
  EXPECT_EQ(shelf->notifieeList()->size(), 15u);
  journal.clear();
  rs[0]->actionIs(nullptr);
  shelf->labelIs("y");
  EXPECT_EQ(journal.size(), 15u);
  EXPECT_EQ(journal.back(), "n4");
}

TEST_F(DispatchTest, ReactorsAreReleasedWithTheirOwnersAndLeaveNothingRegistered) {
  {
    auto a = reactor("a");
    auto b = reactor("b");
    EXPECT_EQ(shelf->references(), 3u) << "each reactor holds its notifier";
  }
  EXPECT_EQ(destroyed, 2);
  EXPECT_TRUE(shelf->notifieeList()->empty());
  EXPECT_EQ(shelf->references(), 1u);
}

}  // namespace
}  // namespace Zek::test
