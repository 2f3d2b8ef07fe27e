#pragma once
#include <cstddef>
#include <optional>
#include <type_traits>
#include <utility>

// The full copy of one keyed collection, written once for every syncer and copy that needs it.

namespace Zek {

namespace detail {

template <class T>
struct IsOptional : std::false_type {};
template <class T>
struct IsOptional<std::optional<T>> : std::true_type {};

/// The key of an element of a walked range: `first` of a (key, value) pair, or the element itself.
template <class E>
decltype(auto) keyOfElement(const E& e) {
  if constexpr (requires { e.first; }) {
    return (e.first);
  } else {
    return (e);
  }
}

/// The range itself, what a pointer points at, or what an optional holds (null when absent).
template <class R>
const auto* present(const R& range) {
  if constexpr (IsOptional<R>::value) {
    return range ? &*range : nullptr;
  } else if constexpr (std::is_pointer_v<R>) {
    return range;
  } else {
    return &range;
  }
}

/// Calls `f(key, value)` when it takes both and the element is a pair, `f(key)` otherwise.
template <class F, class E>
void visitElement(F& f, const E& e) {
  if constexpr (requires { f(e.first, e.second); }) {
    f(e.first, e.second);
  } else {
    f(keyOfElement(e));
  }
}

}  // namespace detail

/// Keys of a collection that may be absent, for reconcile(): `project(*owner)` when `owner` is non-null,
/// nothing otherwise. A projection that returns a reference (a map the owner keeps) gives a pointer to
/// it, null when absent, so the live collection is walked and nothing is copied; one that returns a
/// view by value gives a std::optional of it.
template <class T, class Project>
auto keysOf(const T* owner, Project&& project) {
  using Result = decltype(project(*owner));
  if constexpr (std::is_lvalue_reference_v<Result>) {
    return owner ? &project(*owner) : nullptr;
  } else {
    using View = std::remove_cvref_t<Result>;
    return owner ? std::optional<View>(project(*owner)) : std::optional<View>();
  }
}

/// The full copy of a keyed collection: `handleOne` for every element of `sourceKeys`, in the range's
/// order; then, only when the destination's size differs from `sourceCount()` (both read after the
/// first walk), `sweepOne(key)` for every element of `destKeys`.
///
/// Why the count suffices: after the first walk every source key has its destination member, so equal
/// counts mean equal key sets and the sweep is skipped. A caller that walks something other than the
/// source (its own children) passes the source's count explicitly and accepts that equal counts skip the
/// sweep even when the sets differ.
///
/// Ranges: anything with size() and a range-for whose elements are (key, value) pairs or plain keys; a
/// pointer to one or a std::optional of one (keysOf) stands for a range that may be absent: an absent source walks nothing,
/// an absent destination skips the sweep. `handleOne` takes (key, value) when it can, else the key;
/// `sweepOne` takes the key. Both may change either collection while they run: the walks are range-fors,
/// so a change is survived exactly as far as the range's iterators survive it (the entity collections'
/// do). Nothing is allocated here.
template <class SourceKeys, class DestKeys, class HandleOne, class SweepOne, class SourceCount>
void reconcile(const SourceKeys& sourceKeys, const DestKeys& destKeys, HandleOne&& handleOne, SweepOne&& sweepOne,
               SourceCount&& sourceCount) {
  if (const auto* source = detail::present(sourceKeys)) {
    for (const auto& element : *source) detail::visitElement(handleOne, element);
  }
  const auto* dest = detail::present(destKeys);
  if (!dest || dest->size() == static_cast<std::size_t>(sourceCount())) return;
  for (const auto& element : *dest) sweepOne(detail::keyOfElement(element));
}

/// reconcile() whose source count is the size of `sourceKeys` (0 when absent).
template <class SourceKeys, class DestKeys, class HandleOne, class SweepOne>
void reconcile(const SourceKeys& sourceKeys, const DestKeys& destKeys, HandleOne&& handleOne, SweepOne&& sweepOne) {
  reconcile(sourceKeys, destKeys, std::forward<HandleOne>(handleOne), std::forward<SweepOne>(sweepOne), [&] {
    const auto* source = detail::present(sourceKeys);
    return source ? source->size() : std::size_t{0};
  });
}

}  // namespace Zek
