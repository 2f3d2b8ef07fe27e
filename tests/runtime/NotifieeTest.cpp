// Attribute writes and their notification (with and without notifyEqualWrites_), and dispatch: order,
// the active gate, and re-entrancy (handlers that write, add or remove members, register, unregister,
// move or release reactors while a dispatch runs).
#include "TestEntities.h"
#include "support/RecordingReactor.h"

#include <gtest/gtest.h>

#include <vector>

namespace Zek::test {
namespace {

using Journal = std::vector<std::string>;

class EntityWriteTest : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override { notifyEqualWrites_ = GetParam(); }
  void TearDown() override { notifyEqualWrites_ = false; }
  Ptr<Node> node{new Node};
  Ptr<RecordingReactor> rec = RecordingReactor::RecordingReactorIs(node, [](AttributeId id, const void* key) {
    return id == Node::partId ? std::to_string(*static_cast<const int*>(key)) : static_cast<const Name*>(key)->str();
  });
};

TEST_P(EntityWriteTest, ScalarAndValueWritesAreStoredBeforeTheNotificationAndEqualOnesNotifyOnlyWithTheSwitch) {
  Journal seen;
  rec->actionIs([&](AttributeId, const void* key) {
    const int* count = node->count("k");
    seen.push_back(!key ? node->label() : count ? std::to_string(*count) : "gone");
  });
  for (const char* l : {"a", "a", "b"}) node->labelIs(l);
  for (int v : {1, 1, 2}) node->countIs("k", v);
  EXPECT_FALSE(node->countDel("absent"));
  EXPECT_TRUE(node->countDel("k"));
  EXPECT_EQ(seen, GetParam() ? (Journal{"a", "a", "b", "1", "1", "2", "gone"}) : (Journal{"a", "b", "1", "2", "gone"}));
  EXPECT_EQ(rec->keys().back(), "k") << "a value write carries its key";
}

TEST_P(EntityWriteTest, CollectionNotifiesOnlyCreationAndRemovalAndMarksTheRemovedMember) {
  Ptr<Node> seen;
  rec->actionIs([&](AttributeId, const void*) { seen = node->child("x"); });
  Ptr<Node> x = node->childIs("x");
  EXPECT_EQ(seen, x) << "the member is in the collection when the reactors run";
  EXPECT_EQ(node->childIs("x"), x) << "create-or-return returns the existing member";
  EXPECT_FALSE(node->childDel("absent") || node->partDel(4));
  EXPECT_EQ(rec->count(), 1u) << "no notification for an existing or absent member, even with the switch";
  EXPECT_EQ(node->childDel("x"), x);
  EXPECT_FALSE(seen) << "the member is gone when the reactors run";
  EXPECT_TRUE(x->zekMarkedForDeletion());
  node->partIs(3);
  EXPECT_TRUE(node->partDel(3));
  EXPECT_EQ(rec->ids(), (std::vector<AttributeId>{Node::childId, Node::childId, Node::partId, Node::partId}));
  EXPECT_EQ(rec->keys(), (Journal{"x", "x", "3", "3"}));
}

INSTANTIATE_TEST_SUITE_P(EqualWrites, EntityWriteTest, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "Notify" : "Silent"; });

/// Appends its name to a shared journal on every notification (then runs its action, if any).
struct Named : RecordingReactor {
  Named(const Ptr<PtrInterface const>& n, Journal* journal, std::string name, int* destroyed)
      : RecordingReactor(n), journal(journal), name(std::move(name)), destroyed(destroyed) {}
  ~Named() override { ++*destroyed; }
  void onAttribute(AttributeId id, const void* key) override {
    journal->push_back(name);
    RecordingReactor::onAttribute(id, key);
  }
  Journal* journal;
  std::string name;
  int* destroyed;
};

class DispatchTest : public ::testing::Test {
 protected:
  Ptr<Named> reactor(const std::string& name) { return Ptr<Named>(new Named(node, &journal, name, &destroyed)); }
  Journal labelled(const std::string& label) {
    journal.clear();
    node->labelIs(label);
    return journal;
  }
  Ptr<Node> node{new Node};
  Journal journal;
  int destroyed = 0;
};

TEST_F(DispatchTest, RegistrationOrderToActiveRegisteredReactorsOnly) {
  auto a = reactor("a"), b = reactor("b"), c = reactor("c"), d = reactor("d");
  b->hasNotificationActiveIs(false);
  c->isRegisteredNotifieeIs(false);
  EXPECT_EQ(labelled("x"), (Journal{"a", "d"}));
  EXPECT_EQ(node->notifieeList()->size(), 3u);
  c->isRegisteredNotifieeIs(true);  // back at the end
  b->hasNotificationActiveIs(true);
  EXPECT_EQ(labelled("y"), (Journal{"a", "b", "d", "c"}));
  a = b = c = d = nullptr;
  EXPECT_TRUE(node->notifieeList()->empty());
  EXPECT_EQ(node->references(), 1u) << "each reactor held its notifier until released";
}

TEST_F(DispatchTest, HandlerWritingItsNotifierNestsAndEveryoneSeesTheLatestValue) {
  auto a = reactor("a"), b = reactor("b");
  Journal seenByB;
  a->actionIs([&](AttributeId, const void*) {
    if (node->label() == "first") node->labelIs("second");
  });
  b->actionIs([&](AttributeId, const void*) { seenByB.push_back(node->label()); });
  // a(first) -> nested [a(second), b(second)] -> b(first)
  EXPECT_EQ(labelled("first"), (Journal{"a", "a", "b", "b"}));
  EXPECT_EQ(seenByB, (Journal{"second", "second"})) << "the value is read, not carried";
}

TEST_F(DispatchTest, HandlerAddingAndRemovingMembersNotifiesWithTheRightKeys) {
  auto a = RecordingReactor::RecordingReactorIs(node, RecordingReactor::keyAs<Name>());
  auto b = RecordingReactor::RecordingReactorIs(node, RecordingReactor::keyAs<Name>());
  a->actionIs([&](AttributeId, const void* key) {
    const Name& k = *static_cast<const Name*>(key);
    if (k == "new") node->childIs("added");
    if (k == "added") node->childDel("new");
  });
  node->childIs("new");
  for (const auto& r : {a, b}) EXPECT_EQ(r->keys(), (Journal{"new", "added", "new"}));
  EXPECT_FALSE(node->child("new"));
  EXPECT_TRUE(node->child("added"));
}

TEST_F(DispatchTest, ReactorReleasingItsOwnLastReferenceSurvivesUntilItReturns) {
  Ptr<Named> self = reactor("self");
  auto after = reactor("after");
  int destroyedInside = -1;
  self->actionIs([&](AttributeId, const void*) {
    self = nullptr;  // the only reference outside the dispatcher
    destroyedInside = destroyed;
  });
  EXPECT_EQ(labelled("x"), (Journal{"self", "after"}));
  EXPECT_EQ(destroyedInside, 0) << "the dispatcher holds a reference while the reactor runs";
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(node->notifieeList()->size(), 1u);
}

// Seven reactors: the list lives in its grown array. The middle one releases, unregisters or moves
// reactors already called and not yet called; none is called twice, skipped wrongly or after removal.
TEST_F(DispatchTest, RemovalsDuringADispatchSkipOnlyTheRemoved) {
  Ptr<Node> other(new Node);
  auto a = reactor("a"), b = reactor("b"), c = reactor("c"), d = reactor("d"), e = reactor("e"), f = reactor("f"),
       g = reactor("g");
  c->actionIs([&](AttributeId, const void*) {
    if (!a) return;
    a = nullptr;
    b->isRegisteredNotifieeIs(false);
    d->isRegisteredNotifieeIs(false);
    e = nullptr;
    f->notifierIs(other);
  });
  EXPECT_EQ(labelled("x"), (Journal{"a", "b", "c", "g"}));
  EXPECT_EQ(destroyed, 2);
  EXPECT_EQ(node->notifieeList()->size(), 2u);
  EXPECT_EQ(labelled("y"), (Journal{"c", "g"}));
  journal.clear();
  other->labelIs("z");
  EXPECT_EQ(journal, (Journal{"f"}));
}

// Removals inside a nested dispatch must not compact the list under the outer one (the outer loop would
// then skip a live reactor or read past the end).
TEST_F(DispatchTest, RemovalsInANestedDispatchKeepTheOuterDispatchIntact) {
  auto a = reactor("a"), b = reactor("b"), c = reactor("c"), d = reactor("d");
  b->actionIs([&](AttributeId, const void*) {
    if (node->label() == "outer") node->labelIs("inner");
  });
  c->actionIs([&](AttributeId, const void*) {
    if (node->label() != "inner" || !a) return;
    a = nullptr;                       // already called in both dispatches
    b->isRegisteredNotifieeIs(false);  // running the outer dispatch right now
  });
  // outer: a, b -> inner: a, b, c (removes a and b), d -> outer continues: c, d
  EXPECT_EQ(labelled("outer"), (Journal{"a", "b", "a", "b", "c", "d", "c", "d"}));
  EXPECT_EQ(labelled("after"), (Journal{"c", "d"}));
}

// Three reactors sit in a heap array of four; registering two more in mid-dispatch replaces that array
// under the running dispatch. The new reactors get nested and later notifications, never the current one.
TEST_F(DispatchTest, ReactorsRegisteredDuringADispatchGetOnlyLaterNotifications) {
  auto a = reactor("a"), b = reactor("b"), c = reactor("c");
  std::vector<Ptr<Named>> late;
  a->actionIs([&](AttributeId, const void*) {
    if (!late.empty()) return;
    for (const char* n : {"l1", "l2"}) late.push_back(reactor(n));
    node->labelIs("nested");
  });
  // outer a -> nested [a, b, c, l1, l2] -> outer b, c
  EXPECT_EQ(labelled("x"), (Journal{"a", "a", "b", "c", "l1", "l2", "b", "c"}));
  EXPECT_EQ(labelled("y"), (Journal{"a", "b", "c", "l1", "l2"}));
}

}  // namespace
}  // namespace Zek::test
