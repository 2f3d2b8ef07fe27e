// The syncer mechanism (Owner, Reactor, SourceSlot, ChildSet) exercised through a two-level fake syncer:
// a ShelfSyncer watches a Shelf, holds one ZekItemSm per item, and each of those holds one ZekPartSm per
// part of its item.
#include <stptxrx/runtime/Reactor.h>
#include <stptxrx/runtime/TypeRegistry.h>

#include "TestEntities.h"
#include "support/LiveCounts.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Zek::test {
namespace {

std::vector<std::string>* journal = nullptr;
void note(const std::string& s) {
  if (journal) journal->push_back(s);
}

class ShelfSyncer;
class ZekItemSm;

class ZekPartSm : public Reactor<Item, ZekItemSm> {
  ZEK_TYPE(ZekPartSm);

 public:
  ZekPartSm(const Ptr<Item const>& part, ZekItemSm* owner) : Reactor(part, owner) {}
  static int keyOf(const Item& part) { return std::stoi(part.name().str()); }

 protected:
  void zombieStateChanging(bool zombie) override;
};

class ZekItemSm : public Reactor<Item, ShelfSyncer> {
  ZEK_TYPE(ZekItemSm);

 public:
  ZekItemSm(const Ptr<Item const>& item, ShelfSyncer* owner) : Reactor(item, owner) { copyParts(); }
  ~ZekItemSm() override { parts_.release(); }
  static Name keyOf(const Item& item) { return item.name(); }

  void notifierIs(const Ptr<PtrInterface const>& p) override {
    note("repoint " + name());
    bind(ptr_cast<Item const>(p));
    copyParts();
  }
  void onAttribute(AttributeId id, const void* key) override {
    if (id == Item::weightId && !zekMarkedForDeletion()) note("weight " + name());
    if (id == Item::partId && key && watched()) {
      const int k = *static_cast<const int*>(key);
      parts_.mirror(k, watched()->part(k), this, "ZekItemSm", "partSm");
    }
  }
  std::string name() const { return watched() ? watched()->name().str() : "?"; }
  ChildSet<int, ZekPartSm, OrderedMap> parts_;

 protected:
  void passNotificationActive(bool active) override { parts_.hasNotificationActiveIs(active); }
  void passZombie(bool zombie) override { parts_.zekDoZombieReactors(zombie); }
  void zombieStateChanging(bool zombie) override;

 private:
  void copyParts() {
    for (const auto& [k, part] : watched()->parts()) parts_.is(Ptr<Item const>(part), this, "ZekItemSm", "partSm");
  }
};

class ShelfSyncer : public Owner {
  ZEK_TYPE(ShelfSyncer);

 public:
  class ZekSource : public Reactor<Shelf, ShelfSyncer> {
    ZEK_TYPE(ZekSource);

   public:
    ZekSource(const Ptr<Shelf const>& shelf, ShelfSyncer* owner) : Reactor(shelf, owner) {}
    void onAttribute(AttributeId id, const void* key) override {
      if (id != Shelf::itemId || !key) return;
      const Name& k = *static_cast<const Name*>(key);
      if (!zekMarkedForDeletion() && owner()) owner()->handleItem(k);
      // The owner may be gone now (a handler released it): then nothing more is done.
      if (owner() && watched()) owner()->items_.mirror(k, watched()->item(k), owner(), "ShelfSyncer", "itemSm");
    }

   protected:
    void zombieStateChanging(bool zombie) override {
      note(std::string(zombie ? "zombie" : "revive") + " source, owner marked " +
           std::to_string(owner() && owner()->zekMarkedForDeletion()));
    }
  };

  static Ptr<ShelfSyncer> ShelfSyncerIs(const Ptr<Shelf const>& shelf) {
    Ptr<ShelfSyncer> s(new ShelfSyncer(shelf));
    s->hasNotificationActiveIs(true);
    return s;
  }
  ~ShelfSyncer() override {
    zekDoZombieReactors(true);
    source_.release();
    items_.release();
  }

  void handleItem(const Name& k) {
    note("handleItem " + k.str());
    if (onHandle) onHandle(k);
  }

  std::function<void(const Name&)> onHandle;
  SourceSlot<ZekSource> source_;
  ChildSet<Name, ZekItemSm> items_{4};

 protected:
  void passNotificationActive(bool active) override {
    source_.hasNotificationActiveIs(active);
    items_.hasNotificationActiveIs(active);
  }
  void passZombie(bool zombie) override {
    source_.zekDoZombieReactors(zombie);
    items_.zekDoZombieReactors(zombie);
  }

 private:
  explicit ShelfSyncer(const Ptr<Shelf const>& shelf) {
    source_.create(shelf, this);
    for (const auto& [k, item] : shelf->items()) items_.is(Ptr<Item const>(item), this, "ShelfSyncer", "itemSm");
  }
};

void ZekPartSm::zombieStateChanging(bool zombie) {
  note(std::string(zombie ? "zombie" : "revive") + " part " + (owner() ? owner()->name() : "?") + "/" +
       watched()->name().str() + ", owner marked " + std::to_string(owner() && owner()->zekMarkedForDeletion()));
}
void ZekItemSm::zombieStateChanging(bool zombie) {
  note(std::string(zombie ? "zombie" : "revive") + " item " + name() + ", owner marked " +
       std::to_string(owner() && owner()->zekMarkedForDeletion()));
}

}  // namespace

ZEK_TYPE_DEFINE(ZekPartSm, "Zek::test::ZekPartSm")
ZEK_TYPE_DEFINE(ZekItemSm, "Zek::test::ZekItemSm")
ZEK_TYPE_DEFINE(ShelfSyncer, "Zek::test::ShelfSyncer")
ZEK_TYPE_DEFINE(ShelfSyncer::ZekSource, "Zek::test::ShelfSyncer::ZekSource")

namespace {

class SyncerMechanismTest : public ::testing::Test {
 protected:
  void SetUp() override {
    journal = &events;
    shelf->itemIs("a")->partIs(2);
    shelf->item("a")->partIs(1);
    shelf->itemIs("b");
    syncer = ShelfSyncer::ShelfSyncerIs(shelf);
  }
  void TearDown() override {
    syncer = nullptr;
    journal = nullptr;
  }
  ZekItemSm* item(const char* k) const { return syncer->items_.find(k); }

  LiveCounts before;  // taken before anything is built
  std::vector<std::string> events;
  Ptr<Shelf> shelf{new Shelf};
  Ptr<ShelfSyncer> syncer;
};

TEST_F(SyncerMechanismTest, BuildsOneChildPerMemberAndFollowsChanges) {
  ASSERT_EQ(syncer->items_.size(), 2u);
  ASSERT_TRUE(item("a"));
  EXPECT_EQ(item("a")->owner(), syncer.get());
  EXPECT_EQ(item("a")->parts_.size(), 2u);
  EXPECT_TRUE(item("a")->hasNotificationActive());
  EXPECT_TRUE(item("a")->parts_.find(1)->hasNotificationActive());
  shelf->itemIs("c");
  shelf->itemDel("b");
  shelf->item("a")->partDel(2);
  EXPECT_EQ(events, (std::vector<std::string>{"handleItem c", "handleItem b", "zombie item b, owner marked 0",
                                              "zombie part a/2, owner marked 0"}));
  EXPECT_TRUE(item("c"));
  EXPECT_FALSE(item("b"));
  EXPECT_FALSE(item("a")->parts_.find(2));
}

TEST_F(SyncerMechanismTest, ZombiesPropagateChildrenFirstThenTheOwner) {
  syncer->zekDoZombieReactors(true);
  EXPECT_EQ(events, (std::vector<std::string>{
                        "zombie source, owner marked 0",
                        "zombie part a/1, owner marked 0",
                        "zombie part a/2, owner marked 0",
                        "zombie item a, owner marked 0",
                        "zombie item b, owner marked 0",
                    }));
  EXPECT_TRUE(syncer->zekMarkedForDeletion());
  EXPECT_TRUE(syncer->source_.get()->zekMarkedForDeletion());
  EXPECT_FALSE(syncer->source_.get()->hasNotificationActive()) << "a zombie's notifications are off";
  EXPECT_FALSE(item("a")->parts_.find(2)->hasNotificationActive());
  events.clear();
  syncer->zekDoZombieReactors(true);
  EXPECT_TRUE(events.empty()) << "no-op when already a zombie";
  shelf->itemIs("ignored");
  shelf->item("a")->weightIs(5);
  EXPECT_TRUE(events.empty()) << "zombies run no handler";

  syncer->zekDoZombieReactors(false);
  EXPECT_FALSE(syncer->zekMarkedForDeletion());
  EXPECT_TRUE(item("a")->parts_.find(2)->hasNotificationActive());
  EXPECT_EQ(events.size(), 5u);
  EXPECT_EQ(events.front(), "revive source, owner marked 1");
}

TEST_F(SyncerMechanismTest, NewChildTakesTheOwnersZombieState) {
  syncer->zekDoZombieReactors(true);
  Ptr<Item> loose(new Item("loose"));
  Ptr<ZekItemSm> child = syncer->items_.is(Ptr<Item const>(loose), syncer.get(), "ShelfSyncer", "itemSm");
  EXPECT_TRUE(child->zekMarkedForDeletion());
  EXPECT_FALSE(child->hasNotificationActive());
}

TEST_F(SyncerMechanismTest, NotificationActivePropagatesAndIsANoOpWhenUnchanged) {
  syncer->hasNotificationActiveIs(false);
  EXPECT_FALSE(syncer->source_.get()->hasNotificationActive());
  EXPECT_FALSE(item("b")->hasNotificationActive());
  EXPECT_FALSE(item("a")->parts_.find(1)->hasNotificationActive());
  shelf->itemIs("unseen");
  EXPECT_TRUE(events.empty());
  syncer->hasNotificationActiveIs(true);
  EXPECT_TRUE(item("a")->parts_.find(1)->hasNotificationActive());

  // One reactor switched off on its own stays off when its owners are told what they already are.
  item("a")->parts_.find(1)->hasNotificationActiveIs(false);
  syncer->hasNotificationActiveIs(true);
  item("a")->hasNotificationActiveIs(true);
  EXPECT_FALSE(item("a")->parts_.find(1)->hasNotificationActive());
  item("a")->hasNotificationActiveIs(false);
  item("a")->hasNotificationActiveIs(true);
  EXPECT_TRUE(item("a")->parts_.find(1)->hasNotificationActive()) << "a real change reaches every child";
}

TEST_F(SyncerMechanismTest, SourceSlotDelReturnsTheSourceAndZombiesTheReactor) {
  Ptr<ShelfSyncer::ZekSource> reactor(syncer->source_.get());
  ASSERT_EQ(shelf->notifieeList()->size(), 1u);
  Ptr<Shelf const> returned = syncer->source_.del();
  EXPECT_EQ(returned, shelf);
  EXPECT_FALSE(syncer->source_);
  EXPECT_FALSE(syncer->source_.source());
  EXPECT_TRUE(reactor->zekMarkedForDeletion());
  EXPECT_FALSE(reactor->hasNotificationActive());
  EXPECT_EQ(reactor->owner(), nullptr);
  EXPECT_EQ(events.front(), "zombie source, owner marked 0");
  events.clear();
  shelf->itemIs("after");
  EXPECT_TRUE(events.empty());
  EXPECT_EQ(syncer->items_.size(), 2u) << "children stay";
  reactor = nullptr;
  EXPECT_TRUE(shelf->notifieeList()->empty());
  EXPECT_FALSE(syncer->source_.del()) << "a second del has nothing to return";
}

TEST_F(SyncerMechanismTest, ChildSetDelReturnsTheMemberAndZombiesTheChild) {
  Ptr<ZekItemSm> a(item("a"));
  Ptr<Item const> returned = syncer->items_.del("a");
  EXPECT_EQ(returned, shelf->item("a"));
  EXPECT_FALSE(item("a"));
  EXPECT_TRUE(a->zekMarkedForDeletion());
  EXPECT_FALSE(a->hasNotificationActive());
  EXPECT_EQ(a->owner(), nullptr);
  EXPECT_TRUE(a->parts_.find(1)->zekMarkedForDeletion());
  EXPECT_EQ(events, (std::vector<std::string>{"zombie part a/1, owner marked 0", "zombie part a/2, owner marked 0",
                                              "zombie item a, owner marked 0"}))
      << "made a zombie while its back pointer is still set";
  EXPECT_FALSE(syncer->items_.del("absent"));
}

TEST_F(SyncerMechanismTest, NullMemberRaisesTheNullPointerException) {
  try {
    syncer->items_.is(Ptr<Item const>(), syncer.get(), "ShelfSyncer", "itemSm");
    FAIL() << "no exception";
  } catch (const MutatorArgNullPointerException& e) {
    EXPECT_STREQ(e.what(), "ShelfSyncer::itemSm: null pointer argument");
  }
  EXPECT_EQ(syncer->items_.size(), 2u);
}

TEST_F(SyncerMechanismTest, ExistingChildIsRepointedNotRebuilt) {
  Ptr<ZekItemSm> a(item("a"));
  Ptr<Item> other(new Item("a"));
  other->partIs(7);
  syncer->items_.is(Ptr<Item const>(shelf->item("a")), syncer.get(), "ShelfSyncer", "itemSm");
  EXPECT_TRUE(events.empty()) << "same member: nothing to do";
  Ptr<ZekItemSm> same = syncer->items_.is(Ptr<Item const>(other), syncer.get(), "ShelfSyncer", "itemSm");
  EXPECT_EQ(same, a);
  EXPECT_EQ(events, (std::vector<std::string>{"repoint a"}));
  EXPECT_EQ(a->notifier(), other);
  EXPECT_TRUE(shelf->item("a")->notifieeList()->empty()) << "the registration moved";
  EXPECT_EQ(other->notifieeList()->size(), 1u);
  EXPECT_TRUE(a->parts_.find(7));
  events.clear();
  other->weightIs(3);
  shelf->item("a")->weightIs(3);
  EXPECT_EQ(events, (std::vector<std::string>{"weight a"}));
}

TEST_F(SyncerMechanismTest, WalksAndDeleteAllTolerateChangesByTheVisitedChild) {
  shelf->itemIs("c");
  std::vector<std::string> visited;
  syncer->items_.forEach([&](const Name& k, ZekItemSm&) {
    visited.push_back(k.str());
    if (k == "a") syncer->items_.del("b");
  });
  EXPECT_EQ(visited, (std::vector<std::string>{"a", "c"}));
  events.clear();
  syncer->items_.delAll();
  EXPECT_TRUE(syncer->items_.empty());
  EXPECT_EQ(events, (std::vector<std::string>{"zombie part a/1, owner marked 0", "zombie part a/2, owner marked 0",
                                              "zombie item a, owner marked 0", "zombie item c, owner marked 0"}));
}

TEST_F(SyncerMechanismTest, ReleaseClearsBackPointersBeforeLettingGo) {
  Ptr<ZekItemSm> kept(item("a"));
  syncer->items_.release();
  EXPECT_TRUE(syncer->items_.empty());
  EXPECT_EQ(kept->owner(), nullptr);
}

TEST_F(SyncerMechanismTest, InstantiateChecksAnExistingChildAndBuildsANewOne) {
  ChildSet<int, ShelfSyncer, OrderedMap> syncers;
  int made = 0, checked = 0;
  auto make = [&] {
    ++made;
    return ShelfSyncer::ShelfSyncerIs(shelf);
  };
  Ptr<ShelfSyncer> first = syncers.instantiate(1, [&](ShelfSyncer&) { ++checked; }, make);
  Ptr<ShelfSyncer> again = syncers.instantiate(1, [&](ShelfSyncer&) { ++checked; }, make);
  EXPECT_EQ(first, again);
  EXPECT_EQ(made, 1);
  EXPECT_EQ(checked, 1);
  EXPECT_THROW(syncers.instantiate(
                   1, [](ShelfSyncer&) { throwMutatorReinstantiating("Owner", "syncer", "1", "2"); }, make),
               MutatorReinstantiatingException);
  EXPECT_TRUE(first->hasNotificationActive());
  EXPECT_EQ(syncers.take(1), first);
  EXPECT_FALSE(syncers.take(1));
}

TEST_F(SyncerMechanismTest, HandlerReleasingItsOwnSyncerIsSafe) {
  syncer->onHandle = [&](const Name&) { syncer = nullptr; };
  shelf->itemIs("last straw");
  EXPECT_FALSE(syncer);
  EXPECT_EQ(events.front(), "handleItem last straw");
  EXPECT_TRUE(shelf->notifieeList()->empty());
  EXPECT_TRUE(before.unchanged());
}

TEST_F(SyncerMechanismTest, ReleasingTheSyncerLeavesNoLiveObject) {
  EXPECT_EQ(LiveCounts::now("Zek::test::ZekPartSm"), before.at("Zek::test::ZekPartSm") + 2);
  EXPECT_EQ(LiveCounts::now("Zek::test::ZekItemSm"), before.at("Zek::test::ZekItemSm") + 2);
  EXPECT_EQ(LiveCounts::now("Zek::test::ShelfSyncer::ZekSource"), 1);
  shelf->itemIs("c")->partIs(3);  // built incrementally, after the syncer
  Ptr<ZekItemSm> outlives(item("c"));
  syncer = nullptr;
  EXPECT_FALSE(before.unchanged()) << "a reactor held elsewhere is still alive";
  EXPECT_EQ(outlives->owner(), nullptr);
  EXPECT_TRUE(outlives->zekMarkedForDeletion());
  outlives = nullptr;
  EXPECT_TRUE(before.unchanged());
  EXPECT_EQ(shelf->references(), 1u);
}

}  // namespace
}  // namespace Zek::test
