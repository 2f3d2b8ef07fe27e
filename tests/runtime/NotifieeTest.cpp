// Entity writes and their notification (with and without notifyEqualWrites_), and dispatch: order, the
// active gate, re-entrancy (handlers that write, add or remove members, register, unregister, move or
// release reactors while a dispatch runs) and the growth of the reactor list.
#include <stptxrx/runtime/Entity.h>
#include <stptxrx/runtime/String.h>

#include "support/AllocCounter.h"
#include "support/RecordingReactor.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Zek::test {
namespace {

using Journal = std::vector<std::string>;

/// An entity with one attribute of each kind; members are nodes named after their key.
class Node : public Entity {
 public:
  static constexpr AttributeId labelId = firstAttributeId + 1, countId = labelId + 1, childId = labelId + 2;
  explicit Node(Name name = {}) : name_(std::move(name)) {}
  const std::string& label() const { return label_; }
  void labelIs(const std::string& l) { attributeIs(label_, l, labelId); }
  const int* count(const Name& k) const { return counts_.find(k); }
  void countIs(const Name& k, int v) { valueIs(counts_, k, v, countId); }
  bool countDel(const Name& k) { return valueDel(counts_, k, countId); }
  Ptr<Node> child(const Name& k) const { return children_.find(k) ? *children_.find(k) : Ptr<Node>(); }
  Ptr<Node> childIs(const Name& k) { return memberIs(children_, k, childId, [&] { return Ptr<Node>(new Node(k)); }); }
  Ptr<Node> childDel(const Name& k) { return memberDel(children_, k, childId); }

 private:
  Name name_;
  std::string label_;
  HashMap<Name, int> counts_;
  HashMap<Name, Ptr<Node>> children_;
};

class EntityWriteTest : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override { notifyEqualWrites_ = GetParam(); }
  void TearDown() override { notifyEqualWrites_ = false; }
  Ptr<Node> node{new Node};
  Ptr<RecordingReactor> rec = RecordingReactor::RecordingReactorIs(node, RecordingReactor::keyAs<Name>());
};

TEST_P(EntityWriteTest, ValuesAreStoredBeforeTheyNotifyEqualOnesNotifyOnlyWithTheSwitchMembersOnlyWhenMade) {
  Journal seen;  // what the reactor reads at each notification
  rec->actionIs([&](AttributeId id, const void* key) {
    const int* count = node->count("k");
    seen.push_back(id == Node::labelId ? node->label() : id == Node::childId ? (node->child("x") ? "x" : "gone")
                                                       : count               ? std::to_string(*count) : "none");
    EXPECT_EQ(key != nullptr, id != Node::labelId) << "a member or value write carries its key";
  });
  for (const char* l : {"a", "a", "b"}) node->labelIs(l);
  for (int v : {1, 1, 2}) node->countIs("k", v);
  EXPECT_FALSE(node->countDel("absent"));
  EXPECT_TRUE(node->countDel("k"));
  Ptr<Node> x = node->childIs("x");
  EXPECT_EQ(node->childIs("x"), x) << "create-or-return returns the existing member, silently";
  EXPECT_FALSE(node->childDel("absent"));
  EXPECT_EQ(node->childDel("x"), x);
  EXPECT_TRUE(x->zekMarkedForDeletion());
  EXPECT_EQ(seen, GetParam() ? (Journal{"a", "a", "b", "1", "1", "2", "none", "x", "gone"})
                             : (Journal{"a", "b", "1", "2", "none", "x", "gone"}));
  EXPECT_EQ(rec->keys().back(), "x");
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

TEST_F(DispatchTest, RegistrationOrderToActiveRegisteredReactorsAndAListThatGrowsByDoubling) {
  auto a = reactor("a"), b = reactor("b"), c = reactor("c"), d = reactor("d");
  b->hasNotificationActiveIs(false);
  c->isRegisteredNotifieeIs(false);
  EXPECT_EQ(labelled("x"), (Journal{"a", "d"}));
  EXPECT_EQ(node->notifieeList()->size(), 3u);
  c->isRegisteredNotifieeIs(true);  // back at the end
  b->hasNotificationActiveIs(true);
  EXPECT_EQ(labelled("y"), (Journal{"a", "b", "d", "c"}));
  // Moved one by one to a fresh entity, nine reactors take three allocations of the list: 4, 8, 16 slots.
  Ptr<Node> other(new Node);
  std::vector<Ptr<Named>> more{a, b, c, d, reactor("e"), reactor("f"), reactor("g"), reactor("h"), reactor("i")};
  AllocScope scope;
  for (auto& r : more) r->notifierIs(other);
  EXPECT_EQ(scope.count(), 3u);
  journal.clear();
  other->labelIs("z");
  EXPECT_EQ(journal, (Journal{"a", "b", "c", "d", "e", "f", "g", "h", "i"}));
  EXPECT_TRUE(node->notifieeList()->empty());
  a = b = c = d = nullptr;
  more.clear();
  EXPECT_TRUE(other->notifieeList()->empty());
  EXPECT_EQ(node->references(), 1u) << "each reactor held its notifier until released";
}

TEST_F(DispatchTest, HandlersWritingTheirNotifierNestAndEveryoneSeesTheLatestValueAndKey) {
  auto a = reactor("a"), b = reactor("b");
  Journal seenByB;
  a->actionIs([&](AttributeId id, const void* key) {
    if (id == Node::labelId && node->label() == "first") node->labelIs("second");
    if (id == Node::childId && *static_cast<const Name*>(key) == "new") node->childIs("added"), node->childDel("new");
  });
  b->actionIs([&](AttributeId id, const void* key) {
    seenByB.push_back(id == Node::labelId ? node->label() : static_cast<const Name*>(key)->str());
  });
  // a(first) -> nested [a(second), b(second)] -> b(first): the value is read, not carried.
  EXPECT_EQ(labelled("first"), (Journal{"a", "a", "b", "b"}));
  node->childIs("new");
  EXPECT_EQ(seenByB, (Journal{"second", "second", "added", "new", "new"}));
  EXPECT_TRUE(node->child("added") && !node->child("new"));
}

// Nine reactors: the list lives in its grown array. The third releases, unregisters or moves reactors
// already called and not yet called (and itself, the last reference); none is called twice, skipped
// wrongly or called after its removal, and the releasing one lives until it returns.
TEST_F(DispatchTest, RemovalsDuringADispatchSkipOnlyTheRemoved) {
  Ptr<Node> other(new Node);
  auto a = reactor("a"), b = reactor("b"), c = reactor("c"), d = reactor("d"), e = reactor("e"), f = reactor("f"),
       g = reactor("g");
  int destroyedInside = -1;
  c->actionIs([&](AttributeId, const void*) {
    if (!a) return;
    a = nullptr;
    b->isRegisteredNotifieeIs(false);
    d->isRegisteredNotifieeIs(false);
    e = nullptr;
    f->notifierIs(other);
    c = nullptr;  // the last reference outside the dispatcher
    destroyedInside = destroyed;
  });
  EXPECT_EQ(labelled("x"), (Journal{"a", "b", "c", "g"}));
  EXPECT_EQ(destroyedInside, 2) << "the dispatcher holds a reference while the reactor runs";
  EXPECT_EQ(destroyed, 3);
  EXPECT_EQ(node->notifieeList()->size(), 1u);
  EXPECT_EQ(labelled("y"), (Journal{"g"}));
  journal.clear();
  other->labelIs("z");
  EXPECT_EQ(journal, (Journal{"f"}));
}

// Removals inside a nested dispatch must not compact the list under the outer one (the outer loop would then
// skip a live reactor or read past the end).
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

// Three reactors sit in a heap array of four; registering two more in mid-dispatch replaces that array under
// the running dispatch. The new reactors get nested and later notifications, never the current one.
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
