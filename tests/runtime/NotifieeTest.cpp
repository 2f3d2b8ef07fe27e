// Dispatch of notifications: order, the active gate and re-entrancy (handlers that write, add or remove
// members, register, unregister, move or release reactors while a dispatch runs), and the growth of the
// reactor list. Any entity does; the transmit status is at hand (heartbeatTimeout a scalar, txMstStatus a
// collection). What a write notifies is the syncer tests' business.
#include <stptxrx/state/TxStatus.h>

#include "support/AllocCounter.h"
#include "support/RecordingReactor.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Zek::test {
namespace {

using Journal = std::vector<std::string>;
using StpTxRx::TxStatus;

class DispatchTest : public ::testing::Test {
 protected:
  /// Appends its name to the journal on every notification (then runs its action, if any).
  struct Named : RecordingReactor {
    Named(DispatchTest* t, std::string name) : RecordingReactor(t->node), t(t), name(std::move(name)) {}
    ~Named() override { ++t->destroyed; }
    void onAttribute(AttributeId id, const void* key) override {
      t->journal.push_back(name), RecordingReactor::onAttribute(id, key);
    }
    DispatchTest* t;
    std::string name;
  };
  Ptr<Named> reactor(std::string name) { return Ptr<Named>(new Named(this, std::move(name))); }
  /// What a write of `value` to `to` (the node when null) notifies.
  Journal written(double value, TxStatus* to = nullptr) {
    journal.clear();
    (to ? to : node.get())->heartbeatTimeoutIs(value);
    return journal;
  }
  TxStatus::Ptr node = TxStatus::TxStatusIs();
  Journal journal;
  int destroyed = 0;
};

TEST_F(DispatchTest, RegistrationOrderToActiveRegisteredReactorsAndAListThatGrowsByDoubling) {
  auto a = reactor("a"), b = reactor("b"), c = reactor("c"), d = reactor("d");
  b->hasNotificationActiveIs(false);
  c->isRegisteredNotifieeIs(false);
  EXPECT_TRUE(written(1) == (Journal{"a", "d"}) && node->notifieeList()->size() == 3u);
  c->isRegisteredNotifieeIs(true);  // back at the end
  b->hasNotificationActiveIs(true);
  a->notifierIs(node);  // the notifier it has: it keeps its place
  EXPECT_EQ(written(2), (Journal{"a", "b", "d", "c"}));
  // Moved one by one to a fresh entity, eight reactors take two allocations of the list: 4 and 8 slots.
  TxStatus::Ptr other = TxStatus::TxStatusIs();
  std::vector<Ptr<Named>> more{a, b, c, d, reactor("e"), reactor("f"), reactor("g"), reactor("h")};
  AllocScope scope;
  for (auto& r : more) r->notifierIs(other);
  EXPECT_EQ(scope.count(), 2u);
  for (int i = 0; i < 20; ++i) a->isRegisteredNotifieeIs(false), a->isRegisteredNotifieeIs(true);
  EXPECT_EQ(scope.count(), 2u) << "a removed slot is reused, not left as a hole";
  EXPECT_EQ(written(3, other.get()), (Journal{"b", "c", "d", "e", "f", "g", "h", "a"}));
  EXPECT_TRUE(node->notifieeList()->empty());
  a = b = c = d = nullptr;
  more.clear();
  EXPECT_TRUE(other->notifieeList()->empty() && node->references() == 1u) << "each reactor held its notifier";
}

TEST_F(DispatchTest, HandlersWritingTheirNotifierNestAndEveryoneSeesTheLatestValueAndKey) {
  auto a = reactor("a"), b = reactor("b");
  Journal seenByB;
  a->actionIs([&](AttributeId id, const void* key) {
    if (id == TxStatus::idHeartbeatTimeout && node->heartbeatTimeout() == 1) node->heartbeatTimeoutIs(2);
    if (key && *static_cast<const Name*>(key) == "new") node->txMstStatusIs("added"), node->txMstStatusDel("new");
  });
  b->actionIs([&](AttributeId, const void* key) {
    seenByB.push_back(key ? static_cast<const Name*>(key)->str() : std::to_string(node->heartbeatTimeout()));
  });
  // a(1) -> nested [a(2), b(2)] -> b(1): the value is read, not carried.
  EXPECT_EQ(written(1), (Journal{"a", "a", "b", "b"}));
  node->txMstStatusIs("new");
  EXPECT_EQ(seenByB, (Journal{"2.000000", "2.000000", "added", "new", "new"}));
  EXPECT_TRUE(node->txMstStatus("added") && !node->txMstStatus("new"));
}

// Seven reactors: the list lives in its grown array. The third releases, unregisters or moves reactors
// already called and not yet called (and itself, the last reference); none is called twice, skipped wrongly
// or called after its removal, and the releasing one lives until it returns.
TEST_F(DispatchTest, RemovalsDuringADispatchSkipOnlyTheRemoved) {
  TxStatus::Ptr other = TxStatus::TxStatusIs();
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
  EXPECT_EQ(written(1), (Journal{"a", "b", "c", "g"}));
  EXPECT_EQ(destroyedInside, 2) << "the dispatcher holds a reference while the reactor runs";
  EXPECT_TRUE(destroyed == 3 && node->notifieeList()->size() == 1u);
  EXPECT_EQ(written(2), (Journal{"g"}));
  EXPECT_EQ(written(3, other.get()), (Journal{"f"}));
}

// Removals inside a nested dispatch must not compact the list under the outer one (the outer loop would then
// skip a live reactor or read past the end); reactors registered during a dispatch get only later
// notifications, even when they make the list replace its array under the running dispatch.
TEST_F(DispatchTest, ChangesOfTheListInANestedDispatchKeepTheOuterDispatchIntact) {
  auto a = reactor("a"), b = reactor("b"), c = reactor("c"), d = reactor("d");
  std::vector<Ptr<Named>> late;
  b->actionIs([&](AttributeId, const void*) { if (node->heartbeatTimeout() == 1) node->heartbeatTimeoutIs(2); });
  c->actionIs([&](AttributeId, const void*) {
    if (node->heartbeatTimeout() != 2 || !a) return;
    a = nullptr;                       // already called in both dispatches
    b->isRegisteredNotifieeIs(false);  // running the outer dispatch right now
    for (const char* n : {"l1", "l2"}) late.push_back(reactor(n));
  });
  // outer: a, b -> inner: a, b, c (removes a and b, adds l1 and l2), d -> outer continues: c, d
  EXPECT_EQ(written(1), (Journal{"a", "b", "a", "b", "c", "d", "c", "d"}));
  EXPECT_EQ(written(3), (Journal{"c", "d", "l1", "l2"}));
}

// Registration and binding are independent (re-pointing a registered reactor moves it: the first test):
// re-pointed while unregistered, a reactor is on neither list, and registering joins the notifier bound then.
TEST_F(DispatchTest, AReactorRePointedWhileUnregisteredJoinsOnlyTheNotifierBoundWhenItRegisters) {
  auto a = reactor("a");
  TxStatus::Ptr other = TxStatus::TxStatusIs();
  a->isRegisteredNotifieeIs(false);
  a->notifierIs(other);
  EXPECT_TRUE(written(1, other.get()).empty() && other->notifieeList()->empty() && node->notifieeList()->empty());
  a->isRegisteredNotifieeIs(true);
  EXPECT_TRUE(written(2).empty()) << "not the notifier it had";
  EXPECT_EQ(written(3, other.get()), Journal{"a"});
}

}  // namespace
}  // namespace Zek::test
