// The syncer mechanism (Owner, Reactor, SourceSlot, ChildSet) through a fake syncer: a NodeSyncer watches
// a Node and holds one ZekNodeSm per child; each ZekNodeSm holds one ZekNodeSm per part of its node.
#include <stptxrx/runtime/Reactor.h>
#include <stptxrx/runtime/TypeRegistry.h>

#include "TestEntities.h"
#include "support/LiveCounts.h"

#include <gtest/gtest.h>

#include <functional>

namespace Zek::test {
namespace {

using Events = std::vector<std::string>;
Events events;

class ZekNodeSm : public Reactor<Node, PtrInterface> {
  ZEK_TYPE(ZekNodeSm);

 public:
  ZekNodeSm(const Ptr<Node const>& node, PtrInterface* owner) : Reactor(node, owner) { copyParts(); }
  ~ZekNodeSm() override { parts_.release(); }
  static Name keyOf(const Node& node) { return node.name(); }
  std::string name() const { return watched()->name().str(); }

  void notifierIs(const Ptr<PtrInterface const>& p) override {
    events.push_back("repoint " + name());
    bind(ptr_cast<Node const>(p));
    copyParts();
  }
  void onAttribute(AttributeId id, const void* key) override {
    if (id == Node::labelId) events.push_back("label " + name());
    if (id != Node::partId) return;
    const int k = *static_cast<const int*>(key);
    parts_.mirror(Name(std::to_string(k)), watched()->part(k), this, "ZekNodeSm", "partSm");
  }
  ChildSet<Name, ZekNodeSm, OrderedMap> parts_;

 protected:
  void passNotificationActive(bool active) override { parts_.hasNotificationActiveIs(active); }
  void passZombie(bool zombie) override { parts_.zekDoZombieReactors(zombie); }
  // Journals the step with the state of the back pointer at that moment.
  void zombieStateChanging(bool zombie) override {
    const char* owned = !owner() ? " orphan" : owner()->zekMarkedForDeletion() ? " owner-marked" : "";
    events.push_back((zombie ? "zombie " : "revive ") + name() + owned);
  }

 private:
  void copyParts() {
    for (const auto& [k, part] : watched()->parts()) parts_.is(Ptr<Node const>(part), this, "ZekNodeSm", "partSm");
  }
};

class NodeSyncer : public Owner {
  ZEK_TYPE(NodeSyncer);

 public:
  class ZekSource : public Reactor<Node, NodeSyncer> {
   public:
    ZekSource(const Ptr<Node const>& node, NodeSyncer* owner) : Reactor(node, owner) {}
    void onAttribute(AttributeId id, const void* key) override {
      if (id != Node::childId) return;
      const Name& k = *static_cast<const Name*>(key);
      events.push_back("handle " + k.str());
      if (auto handle = owner()->onHandle) handle();
      // The handler may have released the syncer: its back pointer is then null and nothing more runs.
      if (owner()) owner()->children_.mirror(k, watched()->child(k), owner(), "NodeSyncer", "childSm");
    }

   protected:
    void zombieStateChanging(bool zombie) override { events.push_back(zombie ? "zombie source" : "revive source"); }
  };

  static Ptr<NodeSyncer> NodeSyncerIs(const Ptr<Node const>& node) {
    Ptr<NodeSyncer> s(new NodeSyncer(node));
    s->hasNotificationActiveIs(true);
    return s;
  }
  ~NodeSyncer() override {
    zekDoZombieReactors(true);
    source_.release();
    children_.release();
  }

  std::function<void()> onHandle;
  SourceSlot<ZekSource> source_;
  ChildSet<Name, ZekNodeSm> children_{4};

 protected:
  void passNotificationActive(bool active) override {
    source_.hasNotificationActiveIs(active);
    children_.hasNotificationActiveIs(active);
  }
  void passZombie(bool zombie) override {
    source_.zekDoZombieReactors(zombie);
    children_.zekDoZombieReactors(zombie);
  }

 private:
  explicit NodeSyncer(const Ptr<Node const>& node) {
    source_.create(node, this);
    for (const auto& [k, c] : node->children()) children_.is(Ptr<Node const>(c), this, "NodeSyncer", "childSm");
  }
};

}  // namespace

ZEK_TYPE_DEFINE(ZekNodeSm, "Zek::test::ZekNodeSm")
ZEK_TYPE_DEFINE(NodeSyncer, "Zek::test::NodeSyncer")

namespace {

class SyncerMechanismTest : public ::testing::Test {
 protected:
  void SetUp() override {
    node->childIs("a")->partIs(2);
    node->child("a")->partIs(1);
    node->childIs("b");
    syncer = NodeSyncer::NodeSyncerIs(node);
    events.clear();
  }
  void TearDown() override {
    syncer = nullptr;
    EXPECT_TRUE(before.unchanged());
    EXPECT_EQ(node->references(), 1u) << "no reactor left on the node";
  }
  ZekNodeSm* child(const char* k) const { return syncer->children_.find(k); }
  ZekNodeSm* part(const char* k) const { return child("a")->parts_.find(k); }
  Ptr<ZekNodeSm> childIs(const Ptr<Node>& n) { return syncer->children_.is(n, syncer.get(), "NodeSyncer", "childSm"); }

  LiveCounts before;  // taken before anything is built
  Ptr<Node> node{new Node};
  Ptr<NodeSyncer> syncer;
};

TEST_F(SyncerMechanismTest, MirrorsMembersAndFollowsChanges) {
  ASSERT_EQ(syncer->children_.size(), 2u);
  EXPECT_EQ(child("a")->owner(), syncer.get());
  EXPECT_EQ(part("1")->owner(), child("a"));
  EXPECT_TRUE(part("1")->hasNotificationActive());
  node->childIs("c");
  node->childDel("b");
  node->child("a")->partDel(2);
  EXPECT_EQ(events, (Events{"handle c", "handle b", "zombie b", "zombie 2"}))
      << "made a zombie while the back pointer is still set";
  EXPECT_TRUE(child("c"));
  EXPECT_FALSE(child("b"));
  EXPECT_FALSE(part("2"));
  EXPECT_THROW(childIs(nullptr), MutatorArgNullPointerException);
}

TEST_F(SyncerMechanismTest, ZombiesPropagateChildrenFirstAndSilenceEveryHandler) {
  syncer->zekDoZombieReactors(true);
  EXPECT_EQ(events, (Events{"zombie source", "zombie 1", "zombie 2", "zombie a", "zombie b"}))
      << "every owner is marked only after what it owns";
  EXPECT_FALSE(syncer->source_.get()->hasNotificationActive());
  EXPECT_FALSE(part("2")->hasNotificationActive());
  events.clear();
  syncer->zekDoZombieReactors(true);
  node->childIs("ignored");
  node->child("a")->labelIs("ignored");
  EXPECT_TRUE(events.empty()) << "a repeated step is a no-op, and zombies run no handler";
  Ptr<ZekNodeSm> late = childIs(Ptr<Node>(new Node("late")));
  EXPECT_TRUE(late->zekMarkedForDeletion()) << "a new child takes its owner's zombie state";
  EXPECT_FALSE(late->hasNotificationActive());
  syncer->children_.del("late");

  events.clear();
  syncer->zekDoZombieReactors(false);
  EXPECT_TRUE(part("2")->hasNotificationActive());
  EXPECT_EQ(events, (Events{"revive source", "revive 1 owner-marked", "revive 2 owner-marked",
                            "revive a owner-marked", "revive b owner-marked"}));
}

TEST_F(SyncerMechanismTest, NotificationActivePropagatesOnlyOnARealChange) {
  syncer->hasNotificationActiveIs(false);
  node->childIs("unseen");
  EXPECT_TRUE(events.empty());
  syncer->hasNotificationActiveIs(true);
  EXPECT_TRUE(part("1")->hasNotificationActive()) << "switched back on down to the grandchildren";
  part("1")->hasNotificationActiveIs(false);  // switched off on its own
  syncer->hasNotificationActiveIs(true);
  child("a")->hasNotificationActiveIs(true);
  EXPECT_FALSE(part("1")->hasNotificationActive()) << "owners told what they already are pass nothing on";
}

TEST_F(SyncerMechanismTest, DelReturnsTheWatchedObjectAndLeavesAnOrphanedSilentZombie) {
  Ptr<NodeSyncer::ZekSource> source(syncer->source_.get());
  EXPECT_EQ(syncer->source_.del(), node);
  EXPECT_FALSE(syncer->source_.del()) << "nothing left to return";
  Ptr<ZekNodeSm> a(child("a"));
  EXPECT_EQ(syncer->children_.del("a"), node->child("a"));
  EXPECT_FALSE(syncer->children_.del("absent"));
  EXPECT_TRUE(source->zekMarkedForDeletion() && a->zekMarkedForDeletion());
  EXPECT_FALSE(source->hasNotificationActive() || a->hasNotificationActive());
  EXPECT_FALSE(source->owner() || a->owner());
  EXPECT_EQ(events, (Events{"zombie source", "zombie 1", "zombie 2", "zombie a"}));
  node->childIs("after");
  EXPECT_EQ(events.size(), 4u);
}

TEST_F(SyncerMechanismTest, ExistingChildIsRepointedNotRebuilt) {
  Ptr<ZekNodeSm> a(child("a"));
  Ptr<Node> other(new Node("a"));
  other->partIs(7);
  childIs(node->child("a"));
  EXPECT_TRUE(events.empty()) << "same member: nothing to do";
  EXPECT_EQ(childIs(other), a);
  EXPECT_EQ(events, (Events{"repoint a"}));
  EXPECT_TRUE(node->child("a")->notifieeList()->empty()) << "the registration moved";
  EXPECT_TRUE(a->parts_.find("7"));
  other->labelIs("x");
  node->child("a")->labelIs("x");
  EXPECT_EQ(events, (Events{"repoint a", "label a"}));
}

TEST_F(SyncerMechanismTest, HandlerReleasingItsOwnSyncerIsSafe) {
  syncer->onHandle = [&] { syncer = nullptr; };
  node->childIs("last straw");
  EXPECT_FALSE(syncer);
  EXPECT_TRUE(before.unchanged());
}

TEST_F(SyncerMechanismTest, ReleasingTheSyncerLeavesNoLiveObjectOnceOutsideHoldersLetGo) {
  EXPECT_EQ(LiveCounts::now("Zek::test::ZekNodeSm"), before.at("Zek::test::ZekNodeSm") + 4);
  node->childIs("c")->partIs(3);  // built incrementally, after the syncer
  Ptr<ZekNodeSm> outlives(child("c"));
  syncer = nullptr;
  EXPECT_FALSE(before.unchanged()) << "a reactor held elsewhere is still alive";
  EXPECT_EQ(outlives->owner(), nullptr) << "its back pointer was cleared before the owner let go";
  EXPECT_TRUE(outlives->zekMarkedForDeletion());
  outlives = nullptr;
}

}  // namespace
}  // namespace Zek::test
