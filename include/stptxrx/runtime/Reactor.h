#pragma once
#include <stptxrx/runtime/Collections.h>
#include <stptxrx/runtime/Exception.h>
#include <stptxrx/runtime/Notifiee.h>
#include <stptxrx/runtime/Ptr.h>
#include <stptxrx/runtime/Trace.h>

#include <string_view>
#include <type_traits>
#include <utility>

// The shape every syncer and state machine shares: a reactor with a typed notifier and a plain back
// pointer to its owner; owners that pass notification and zombie state on to what they own; the slot that
// owns a syncer's source reactor; and the keyed collection of child state machines.
//
// Ownership: owners hold reactors and children by counted pointer; reactors hold a plain back pointer to
// their owner, which the owner clears before it releases them. A reactor whose back pointer is null runs
// no owner code.
//
// Zombies: a reactor whose owner is going away is marked for deletion and its notifications are switched
// off; it stays allocated while references remain, but its handlers no longer run. An owner applies the
// zombie state first to everything it owns, then to itself.

namespace Zek {

/// `initialized()` / `initializedIs()`: set at the end of a full copy. A plain flag; setting it starts
/// nothing.
class Initializable {
 public:
  bool initialized() const { return initialized_; }
  void initializedIs(bool initialized) { initialized_ = initialized; }

 private:
  bool initialized_ = false;
};

/// Base of every top-level syncer (and of the change counting machine): a counted object that passes its
/// notification and zombie state on to the reactors and children it owns.
class STPTXRX_EXPORT Owner : public PtrInterface {
 public:
  /// No-op when `active` is the current state; otherwise sets it here, then on everything owned.
  void hasNotificationActiveIs(bool active) override {
    if (active == hasNotificationActive()) return;
    PtrInterface::hasNotificationActiveIs(active);
    passNotificationActive(active);
  }
  /// No-op when `zombie` is the current state; otherwise applies it to everything owned, then here.
  virtual void zekDoZombieReactors(bool zombie) {
    if (zombie == zekMarkedForDeletion()) return;
    passZombie(zombie);
    zekMarkedForDeletionIs(zombie);
  }

 protected:
  /// Pass the state on to the source reactor and every child, in that order.
  virtual void passNotificationActive(bool active) = 0;
  virtual void passZombie(bool zombie) = 0;
};

/// Base of every reactor: watches a `Notifier` (const) and holds a plain back pointer to `OwnerT`.
///
/// The constructor binds and registers without running any handler; notifications stay off until the
/// creator switches them on. A reactor that owns children of its own overrides passNotificationActive
/// and passZombie.
template <class Notifier, class OwnerT>
class Reactor : public NotifieeConst {
 public:
  using NotifierType = Notifier;
  using OwnerType = OwnerT;

  OwnerT* owner() const { return owner_; }
  void ownerIs(OwnerT* owner) { owner_ = owner; }

  /// The watched object, or null.
  const Notifier* watched() const { return static_cast<const Notifier*>(notifier().get()); }
  Ptr<Notifier const> watchedPtr() const { return Ptr<Notifier const>(watched()); }

  void hasNotificationActiveIs(bool active) override {
    if (active == hasNotificationActive()) return;
    NotifieeConst::hasNotificationActiveIs(active);
    passNotificationActive(active);
  }

  /// The zombie step: no-op when `zombie` is the current state; otherwise the owned children first, then
  /// notifications switched to `!zombie` (when bound), then the mark itself.
  virtual void zekDoZombieReactors(bool zombie) {
    if (zombie == zekMarkedForDeletion()) return;
    passZombie(zombie);
    if (notifier()) hasNotificationActiveIs(!zombie);
    zombieStateChanging(zombie);
    zekMarkedForDeletionIs(zombie);
  }

 protected:
  Reactor(const Ptr<Notifier const>& notifier, OwnerT* owner) : owner_(owner) {
    NotifieeConst::notifierIs(notifier);
    isRegisteredNotifieeIs(true);
  }

  /// Binds to `p` and keeps the registration, without any copying (the base step of every override).
  void bind(const Ptr<Notifier const>& p) { NotifieeConst::notifierIs(p); }

  virtual void passNotificationActive(bool) {}
  virtual void passZombie(bool) {}
  /// Runs inside the zombie step, after notifications were switched and before the mark is stored.
  virtual void zombieStateChanging(bool) {}

 private:
  OwnerT* owner_;
};

/// The one disconnect sequence of a reactor its owner has already taken out: made a zombie while its
/// back pointer is still set (so that its own children are reached), back pointer cleared,
/// notifications off, released. Returns what it watched; null for a null `reactor`.
template <class R>
Ptr<typename R::NotifierType const> disconnect(Ptr<R> reactor) {
  if (!reactor) return {};
  reactor->zekDoZombieReactors(true);
  reactor->ownerIs(nullptr);
  reactor->hasNotificationActiveIs(false);
  return reactor->watchedPtr();
}

/// The owning slot of a syncer's source reactor (`ZekSource`).
template <class Source>
class SourceSlot {
 public:
  using Notifier = typename Source::NotifierType;

  Source* get() const { return reactor_.get(); }
  explicit operator bool() const { return static_cast<bool>(reactor_); }
  /// The watched source, or null.
  Ptr<Notifier const> source() const { return reactor_ ? reactor_->watchedPtr() : Ptr<Notifier const>(); }

  /// Creates the reactor on `source` (nothing when null) with notifications on.
  void create(const Ptr<Notifier const>& source, typename Source::OwnerType* owner) {
    if (!source) return;
    reactor_ = Ptr<Source>(new Source(source, owner));
    reactor_->hasNotificationActiveIs(true);
  }
  /// Installs an already built reactor.
  void adopt(Ptr<Source> reactor) { reactor_ = std::move(reactor); }

  /// Disconnects: takes the reactor out, makes it a zombie, clears its back pointer, switches its
  /// notifications off, releases it and returns what it watched (null when there was none).
  Ptr<Notifier const> del() { return disconnect(std::move(reactor_)); }

  /// Takes the reactor out without touching it.
  Ptr<Source> take() { return std::move(reactor_); }

  void hasNotificationActiveIs(bool active) {
    if (reactor_) reactor_->hasNotificationActiveIs(active);
  }
  void zekDoZombieReactors(bool zombie) {
    if (reactor_) reactor_->zekDoZombieReactors(zombie);
  }
  /// Owner destruction: clear the back pointer (the reactor is already a zombie), then release.
  void release() {
    if (reactor_) reactor_->ownerIs(nullptr);
    reactor_ = nullptr;
  }

 private:
  Ptr<Source> reactor_;
};

/// The keyed collection of an owner's children, shared by every syncer. `Map` is HashMap (hash order =
/// insertion order) or OrderedMap (ascending key).
///
/// Two kinds of child use it: reactors that mirror one member of a source collection (created or
/// re-pointed by `is`, removed by `del`, which returns the member they watched), and child syncers built
/// from construction values (`instantiate`, `take`). Walks (forEach) tolerate children being added or
/// removed by the visited child.
///
/// `Map` is a variadic template template parameter so that HashMap, whose third parameter (the hash) has
/// a default, matches on every compiler (clang does not relax template template matching by default).
template <class Key, class Child, template <class...> class Map = HashMap>
class ChildSet {
 public:
  ChildSet() = default;
  explicit ChildSet(std::size_t initialSize) requires std::is_constructible_v<Map<Key, Ptr<Child>>, std::size_t>
      : map_(initialSize) {}

  std::size_t size() const { return map_.size(); }
  bool empty() const { return map_.empty(); }
  Child* find(const Key& key) const {
    const Ptr<Child>* c = map_.find(key);
    return c ? c->get() : nullptr;
  }
  Ptr<Child> findPtr(const Key& key) const {
    const Ptr<Child>* c = map_.find(key);
    return c ? *c : Ptr<Child>();
  }

  /// Create-or-return for a reactor child mirroring `member`. Null `member`: the null-pointer exception
  /// naming `type` and `attribute`. An existing child that already watches `member` is returned as it is
  /// (its own zombie state included). One that watches another object is re-pointed (its notifierIs
  /// override) rather than rebuilt; a new one is built from (member, owner) (its constructor runs its
  /// own full copy), switched on and inserted. A re-pointed or new child then gets the owner's zombie
  /// state.
  // (`C` defers the use of Child::NotifierType to the call, so that child syncers without a notifier can
  // use the rest of the collection.)
  template <class OwnerT, class C = Child>
  Ptr<Child> is(const Ptr<typename C::NotifierType const>& member, OwnerT* owner, std::string_view type,
                std::string_view attribute) {
    if (!member) throwMutatorArgNullPointerException(type, attribute);
    const Key key = Child::keyOf(*member);
    Ptr<Child> child = findPtr(key);
    if (child) {
      if (child->notifier() == member) return child;
      child->notifierIs(member);
    } else {
      child = Ptr<Child>(new Child(member, owner));
      child->hasNotificationActiveIs(true);
      map_.insert(key, child);
    }
    child->zekDoZombieReactors(owner->zekMarkedForDeletion());
    return child;
  }

  /// Deletes a reactor child: out of the collection, made a zombie while its back pointer is still set,
  /// back pointer cleared, notifications off, released. Returns the member it watched (null when absent).
  template <class C = Child>
  Ptr<typename C::NotifierType const> del(const Key& key) {
    return disconnect(take(key));
  }

  /// Removes every reactor child with del(), in iteration order.
  void delAll() {
    for (const auto& entry : map_) del(entry.first);
  }

  /// The incremental step after a handler ran for `key`: a child for the source member, or none.
  template <class OwnerT, class C = Child>
  void mirror(const Key& key, const Ptr<typename C::NotifierType const>& member, OwnerT* owner,
              std::string_view type, std::string_view attribute) {
    if (member) {
      is(member, owner, type, attribute);
    } else {
      del(key);
    }
  }

  /// The whole-collection step of construction and re-pointing: `is` for every member of `members` (a
  /// const view iterated as (key, member), in its order), then `del` for every child whose key
  /// `has(key)` says the source no longer holds.
  template <class Members, class Has, class OwnerT>
  void mirrorAll(const Members& members, Has&& has, OwnerT* owner, std::string_view type,
                 std::string_view attribute) {
    // Built at construction, the collection ends up as large as the source: one allocation, no growth.
    if (map_.empty()) map_.reserve(members.size());
    for (const auto& [key, member] : members) is(member, owner, type, attribute);
    for (const auto& entry : map_) {
      if (!has(entry.first)) del(entry.first);
    }
  }

  /// Create-or-return for a child built from construction values. `check(child)` must raise the
  /// reinstantiation error when the existing child differs; `make()` builds a new one, which is switched
  /// on and inserted.
  template <class Check, class Make>
  Ptr<Child> instantiate(const Key& key, Check&& check, Make&& make) {
    if (Ptr<Child> existing = findPtr(key)) {
      check(*existing);
      return existing;
    }
    Ptr<Child> child = make();
    child->hasNotificationActiveIs(true);
    map_.insert(key, child);
    return child;
  }

  /// Removes and returns the child under `key` (null when absent), untouched.
  Ptr<Child> take(const Key& key) {
    auto removed = map_.erase(key);
    return removed ? std::move(*removed) : Ptr<Child>();
  }

  /// Visits every child as (key, child); the walk tolerates changes made by `visit`.
  template <class Visit>
  void forEach(Visit&& visit) const {
    for (const auto& entry : map_) visit(entry.first, *entry.second);
  }

  void hasNotificationActiveIs(bool active) {
    for (const auto& entry : map_) entry.second->hasNotificationActiveIs(active);
  }
  void zekDoZombieReactors(bool zombie) {
    for (const auto& entry : map_) entry.second->zekDoZombieReactors(zombie);
  }

  /// Owner destruction: clear every child's back pointer, then empty the collection (releasing them).
  void release() {
    if constexpr (requires(Child& c) { c.ownerIs(nullptr); }) {
      for (const auto& entry : map_) entry.second->ownerIs(nullptr);
    }
    map_.clear();
  }

  const Map<Key, Ptr<Child>>& map() const { return map_; }

 private:
  Map<Key, Ptr<Child>> map_;
};

/// What a creator returns: the object just built by `raw` (its constructor done), counted and with its
/// notifications switched on.
template <class T>
Ptr<T> activated(T* raw) {
  Ptr<T> p(raw);
  p->hasNotificationActiveIs(true);
  return p;
}

/// The notification switch passed on to what an owner owns (source slots, child sets), in the order given.
template <class... Parts>
void passNotificationActiveTo(bool active, Parts&... parts) {
  (parts.hasNotificationActiveIs(active), ...);
}

/// The zombie state passed on to what an owner owns, in the order given.
template <class... Parts>
void passZombieTo(bool zombie, Parts&... parts) {
  (parts.zekDoZombieReactors(zombie), ...);
}

/// An owner's destruction: the zombie step first (it reaches everything owned while back pointers are
/// still set), then each part releases what it holds, clearing back pointers, in the order given. What
/// the owner writes (its destination) is released by the caller, never emptied.
template <class OwnerT, class... Parts>
void teardown(OwnerT& owner, Parts&... parts) {
  owner.zekDoZombieReactors(true);
  (parts.release(), ...);
}

}  // namespace Zek

/// A syncer's text trace: label + keyInfo + "::" + method + "() " + rest (a streamed expression), on
/// `handle` at `level`, reported from source `file`, this line and function `method`; nothing is built
/// when the level is off.
#define ZEK_SYNCER_TRACE(handle, level, file, label, keyInfo, method, rest) \
  ZEK_SYNCER_TRACE_LINE(handle, level, file, __LINE__, label, keyInfo, method, rest)

/// As ZEK_SYNCER_TRACE from a helper, reported from the caller's `line` (see ZEK_TRACE_AT_LINE).
#define ZEK_SYNCER_TRACE_LINE(handle, level, file, line, label, keyInfo, method, rest) \
  ZEK_TRACE_AT_LINE(handle, level, file, line, method, label << keyInfo << "::" << method << "() " << rest)
