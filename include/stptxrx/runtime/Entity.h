#pragma once
#include <stptxrx/runtime/Collections.h>
#include <stptxrx/runtime/Export.h>
#include <stptxrx/runtime/Notifiee.h>
#include <stptxrx/runtime/Ptr.h>

#include <type_traits>
#include <utility>

namespace Zek {

/// Process-wide switch: when on, every attribute write notifies even if it stores an equal value (tests
/// that check the number and order of writes turn it on). Default off: a write notifies only a change.
STPTXRX_EXPORT extern bool notifyEqualWrites_;

/// Base of every entity: owns the notifiee list, and holds the one set of helpers through which every
/// attribute write goes, so that "store, then notify the reactors" has a single definition.
///
/// Notification rules: a scalar write and a value-map write notify when the stored value changes (or
/// always, with notifyEqualWrites_); a collection's create-or-return notifies only when it creates, and
/// its delete only when it removes. Collection notifications carry a pointer to the member's key, valid
/// for the duration of the dispatch.
class STPTXRX_EXPORT Entity : public PtrInterface {
 public:
  NotifieeList* notifieeList() const override { return &notifiees_; }

 protected:
  Entity() = default;

  void notify(AttributeId id, const void* key = nullptr) const {
    if (!notifiees_.empty()) notifiees_.dispatch(this, id, key);
  }

  /// Scalar attribute write.
  template <class T, class V>
  void attributeIs(T& field, V&& value, AttributeId id) {
    if (!(field == value)) {
      field = std::forward<V>(value);
    } else if (!notifyEqualWrites_) {
      return;
    }
    notify(id);
  }

  /// Entity collection create-or-return: the member under `key`, made by `make()` and announced when new.
  template <class Map, class Make>
  typename Map::mapped_type memberIs(Map& map, const typename Map::key_type& key, AttributeId id,
                                     Make&& make) {
    if (auto* existing = map.find(key)) return *existing;
    typename Map::mapped_type member = make();
    map.insert(key, member);
    notify(id, &key);
    return member;
  }

  /// Entity collection delete: removes and returns the member under `key` (null when absent, and then
  /// nobody is notified). The removed member is marked for deletion; holders of a pointer keep it valid.
  template <class Map>
  typename Map::mapped_type memberDel(Map& map, const typename Map::key_type& key, AttributeId id) {
    auto removed = map.erase(key);
    if (!removed) return {};
    if (*removed) (*removed)->zekMarkedForDeletionIs(true);
    notify(id, &key);
    return std::move(*removed);
  }

  /// Value collection write (key to plain value).
  template <class Map>
  void valueIs(Map& map, const typename Map::key_type& key, const typename Map::mapped_type& value,
               AttributeId id) {
    auto [slot, inserted] = map.insert(key, value);
    if (!inserted) {
      if (*slot == value && !notifyEqualWrites_) return;
      *slot = value;
    }
    notify(id, &key);
  }

  /// Value collection delete; true when an entry was removed (and announced).
  template <class Map>
  bool valueDel(Map& map, const typename Map::key_type& key, AttributeId id) {
    if (!map.erase(key)) return false;
    notify(id, &key);
    return true;
  }

 private:
  mutable NotifieeList notifiees_;
};

/// The one scalar copy of the syncers: the attribute read by `Get` from `src` (the attribute type's zero
/// when `src` is null) written into `dst` by `Set`, without comparing first; whether an equal write
/// notifies is the setter's business.
template <auto Get, auto Set, class E>
inline void copyAttribute(const E* src, E& dst) {
  using Value = std::remove_cvref_t<decltype((std::declval<const E&>().*Get)())>;
  if (src) {
    (dst.*Set)((src->*Get)());
  } else {
    (dst.*Set)(Value{});
  }
}

}  // namespace Zek
