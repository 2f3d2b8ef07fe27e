#pragma once
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Zek {

/// Hash collection that iterates in insertion order (deterministic traces and tests).
///
/// Iteration tolerates any change of the collection by the loop body: an iterator holds a copy of the
/// current member (for counted pointers, a reference that keeps it alive) and a position; removed members
/// leave a hole that live iterators skip, and holes are compacted only while no iterator exists. A member
/// is never visited twice; a member added during the walk is visited when the walk reaches it.
///
/// Pointers returned by find()/insert() stay valid until the next insert or erase.
template <class K, class V, class Hash = std::hash<K>>
class HashMap {
  struct Slot {
    K key;
    V value;
    bool live;
  };

 public:
  using key_type = K;
  using mapped_type = V;
  using value_type = std::pair<K, V>;

  HashMap() = default;
  explicit HashMap(std::size_t initialSize) {
    slots_.reserve(initialSize);
    index_.reserve(initialSize);
  }
  HashMap(const HashMap&) = delete;
  HashMap& operator=(const HashMap&) = delete;

  /// Room for `n` members without growing (a capacity hint; contents and order are unchanged).
  void reserve(std::size_t n) {
    slots_.reserve(n);
    index_.reserve(n);
  }

  std::size_t size() const { return live_; }
  bool empty() const { return live_ == 0; }

  V* find(const K& key) {
    auto it = index_.find(key);
    return it == index_.end() ? nullptr : &slots_[it->second].value;
  }
  const V* find(const K& key) const { return const_cast<HashMap*>(this)->find(key); }
  bool contains(const K& key) const { return index_.count(key) != 0; }

  /// Inserts (key, value) unless the key is present. Returns the stored value and whether it is new.
  std::pair<V*, bool> insert(const K& key, V value) {
    auto [it, inserted] = index_.try_emplace(key, static_cast<std::uint32_t>(slots_.size()));
    if (!inserted) return {&slots_[it->second].value, false};
    slots_.push_back(Slot{key, std::move(value), true});
    ++live_;
    return {&slots_.back().value, true};
  }

  /// Removes `key`; returns its value, or nothing when absent.
  std::optional<V> erase(const K& key) {
    auto it = index_.find(key);
    if (it == index_.end()) return std::nullopt;
    Slot& slot = slots_[it->second];
    index_.erase(it);
    std::optional<V> removed(std::move(slot.value));
    slot.value = V();
    slot.live = false;
    --live_;
    maybeCompact();
    return removed;
  }

  /// Removes every member. Values are released after the collection is already empty, so a destructor
  /// that looks back into the collection sees it empty.
  void clear() {
    std::vector<Slot> old;
    if (iterators_ == 0) {
      old.swap(slots_);
    } else {
      old.reserve(live_);
      for (Slot& s : slots_) {
        if (s.live) old.push_back(Slot{s.key, std::move(s.value), false});
        s.value = V();
        s.live = false;
      }
    }
    index_.clear();
    live_ = 0;
  }

  class const_iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = HashMap::value_type;
    using difference_type = std::ptrdiff_t;
    using pointer = const value_type*;
    using reference = const value_type&;

    const_iterator(const HashMap* m, std::size_t pos) : m_(m), pos_(pos) {
      ++m_->iterators_;
      settle();
    }
    const_iterator(const const_iterator& o) : m_(o.m_), pos_(o.pos_), cur_(o.cur_) { ++m_->iterators_; }
    const_iterator& operator=(const const_iterator& o) {
      if (this != &o) {
        --m_->iterators_;
        m_ = o.m_;
        pos_ = o.pos_;
        cur_ = o.cur_;
        ++m_->iterators_;
      }
      return *this;
    }
    ~const_iterator() { --m_->iterators_; }

    reference operator*() const { return *cur_; }
    pointer operator->() const { return &*cur_; }
    const_iterator& operator++() {
      ++pos_;
      settle();
      return *this;
    }
    bool operator==(std::default_sentinel_t) const { return pos_ >= m_->slots_.size(); }

   private:
    void settle() {
      const auto& slots = m_->slots_;
      while (pos_ < slots.size() && !slots[pos_].live) ++pos_;
      if (pos_ < slots.size()) {
        cur_.emplace(slots[pos_].key, slots[pos_].value);
      } else {
        cur_.reset();
      }
    }

    const HashMap* m_;
    std::size_t pos_;
    std::optional<value_type> cur_;
  };

  const_iterator begin() const { return const_iterator(this, 0); }
  std::default_sentinel_t end() const { return {}; }

 private:
  void maybeCompact() {
    std::size_t holes = slots_.size() - live_;
    if (iterators_ != 0 || holes < 8 || holes < live_) return;
    std::vector<Slot> kept;
    kept.reserve(live_);
    for (Slot& s : slots_) {
      if (s.live) {
        index_[s.key] = static_cast<std::uint32_t>(kept.size());
        kept.push_back(std::move(s));
      }
    }
    slots_.swap(kept);
  }

  std::vector<Slot> slots_;
  std::unordered_map<K, std::uint32_t, Hash> index_;
  std::size_t live_ = 0;
  mutable std::uint32_t iterators_ = 0;
};

/// Collection sorted by key (`operator<`), held in a sorted vector: at most a few dozen members
/// (spanning-tree instances, VLAN records of a port).
///
/// Iteration is in ascending key order and tolerates changes by the loop body: the iterator remembers the
/// collection's change counter and, when it has moved, continues with the smallest key greater than the
/// one it holds.
///
/// Lookups come mostly in ascending runs (a full copy walks one collection and looks each key up in the
/// others) or repeat the key just found: find() tries the member after the last one found, then that one,
/// and a key above every member, before it searches; insert() appends without searching when the key is
/// above every member. The remembered position is written by const lookups too: like every entity, an
/// OrderedMap is read and written by one thread at a time.
template <class K, class V>
class OrderedMap {
 public:
  using key_type = K;
  using mapped_type = V;
  using value_type = std::pair<K, V>;

  OrderedMap() = default;
  OrderedMap(const OrderedMap&) = delete;
  OrderedMap& operator=(const OrderedMap&) = delete;

  /// Room for `n` members without growing (a capacity hint; contents and order are unchanged).
  void reserve(std::size_t n) { items_.reserve(n); }

  std::size_t size() const { return items_.size(); }
  bool empty() const { return items_.empty(); }
  std::uint64_t version() const { return version_; }

  V* find(const K& key) {
    const std::size_t n = items_.size();
    for (std::size_t i : {hint_ + 1, hint_}) {
      if (i < n && !(items_[i].first < key) && !(key < items_[i].first)) {
        hint_ = i;
        return &items_[i].second;
      }
    }
    if (n == 0 || items_[n - 1].first < key) return nullptr;  // above every member: about to be appended
    auto it = lowerBound(key);
    if (it == items_.end() || key < it->first) return nullptr;
    hint_ = static_cast<std::size_t>(it - items_.begin());
    return &it->second;
  }
  const V* find(const K& key) const { return const_cast<OrderedMap*>(this)->find(key); }
  bool contains(const K& key) const { return find(key) != nullptr; }

  std::pair<V*, bool> insert(const K& key, V value) {
    if (items_.empty() || items_.back().first < key) {
      grow();
      items_.emplace_back(key, std::move(value));
      ++version_;
      hint_ = items_.size() - 1;
      return {&items_.back().second, true};
    }
    auto it = lowerBound(key);
    if (it != items_.end() && !(key < it->first)) return {&it->second, false};
    const auto at = it - items_.begin();
    grow();
    it = items_.insert(items_.begin() + at, value_type(key, std::move(value)));
    ++version_;
    hint_ = static_cast<std::size_t>(at);
    return {&it->second, true};
  }

  std::optional<V> erase(const K& key) {
    auto it = lowerBound(key);
    if (it == items_.end() || key < it->first) return std::nullopt;
    std::optional<V> removed(std::move(it->second));
    items_.erase(it);
    ++version_;
    return removed;
  }

  void clear() {
    std::vector<value_type> old;
    old.swap(items_);
    ++version_;
  }

  class const_iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = OrderedMap::value_type;
    using difference_type = std::ptrdiff_t;
    using pointer = const value_type*;
    using reference = const value_type&;

    const_iterator(const OrderedMap* m, std::size_t pos) : m_(m), pos_(pos), version_(m->version_) { load(); }

    reference operator*() const { return *cur_; }
    pointer operator->() const { return &*cur_; }
    const_iterator& operator++() {
      if (version_ == m_->version_) {
        ++pos_;
      } else {
        auto it = std::upper_bound(m_->items_.begin(), m_->items_.end(), cur_->first,
                                   [](const K& k, const value_type& e) { return k < e.first; });
        pos_ = static_cast<std::size_t>(it - m_->items_.begin());
        version_ = m_->version_;
      }
      load();
      return *this;
    }
    bool operator==(std::default_sentinel_t) const { return !cur_; }

   private:
    void load() {
      if (pos_ < m_->items_.size()) {
        cur_.emplace(m_->items_[pos_]);
      } else {
        cur_.reset();
      }
    }

    const OrderedMap* m_;
    std::size_t pos_;
    std::uint64_t version_;
    std::optional<value_type> cur_;
  };

  const_iterator begin() const { return const_iterator(this, 0); }
  std::default_sentinel_t end() const { return {}; }

 private:
  // Makes room for one more member, growing by half rather than doubling: a record's few dozen entries
  // are held by tens of thousands of records, where a doubled array leaves up to half of it unused.
  void grow() {
    if (items_.size() == items_.capacity()) items_.reserve(items_.size() + items_.size() / 2 + 1);
  }

  typename std::vector<value_type>::iterator lowerBound(const K& key) {
    return std::lower_bound(items_.begin(), items_.end(), key,
                            [](const value_type& e, const K& k) { return e.first < k; });
  }

  std::vector<value_type> items_;
  std::uint64_t version_ = 0;
  mutable std::size_t hint_ = 0;  // index of the member last found or inserted (may be stale: checked)
};

}  // namespace Zek

namespace Zek {

template <class T>
class Ptr;

/// Read-only view of an entity collection: iterates (key, Ptr<T const>) in the collection's order, so
/// that a reader of a const entity cannot reach mutable members. Same mutation tolerance as the map.
template <class Map, class T>
class MemberView {
 public:
  using key_type = typename Map::key_type;
  using value_type = std::pair<key_type, Ptr<T const>>;

  explicit MemberView(const Map& map) : map_(&map) {}
  std::size_t size() const { return map_->size(); }
  bool empty() const { return map_->empty(); }

  class iterator {
   public:
    explicit iterator(typename Map::const_iterator it) : it_(std::move(it)) {}
    value_type operator*() const { return value_type(it_->first, it_->second); }
    iterator& operator++() {
      ++it_;
      return *this;
    }
    bool operator==(std::default_sentinel_t s) const { return it_ == s; }

   private:
    typename Map::const_iterator it_;
  };
  iterator begin() const { return iterator(map_->begin()); }
  std::default_sentinel_t end() const { return {}; }

 private:
  const Map* map_;
};

}  // namespace Zek
