#pragma once
#include <stptxrx/runtime/Export.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>

namespace Zek {

class TypeNode;
class NotifieeList;
class NotifieeConst;

/// Process-wide switch: reference counts are changed atomically when on, with plain arithmetic when off
/// (the default). Flip it only while no other thread touches runtime objects.
STPTXRX_EXPORT extern bool threadSafePointers_;

/// Base of every entity, reactor and syncer: an intrusive reference count and the two flags the runtime
/// reads, *notification active* and *marked for deletion*.
///
/// Counts start at 0; each `Ptr` adds one. When the count drops back to 0 `onZeroReferences()` runs,
/// which deletes the object. Objects are therefore always created with `new` and handed to a `Ptr`.
class STPTXRX_EXPORT PtrInterface {
 public:
  /// The reactor base (Notifiee.h), also reachable under this class as `PtrInterface::NotifieeConst`.
  using NotifieeConst = ::Zek::NotifieeConst;

  PtrInterface() = default;
  PtrInterface(const PtrInterface&) = delete;
  PtrInterface& operator=(const PtrInterface&) = delete;

  void newRef() const noexcept {
    if (threadSafePointers_) {
      std::atomic_ref<std::uint32_t>(refs_).fetch_add(1, std::memory_order_relaxed);
    } else {
      ++refs_;
    }
  }
  void deleteRef() const noexcept {
    std::uint32_t left;
    if (threadSafePointers_) {
      left = std::atomic_ref<std::uint32_t>(refs_).fetch_sub(1, std::memory_order_acq_rel) - 1;
    } else {
      left = --refs_;
    }
    if (left == 0) handleZeroRef();
  }
  std::uint32_t references() const noexcept { return refs_; }

  /// The list of reactors watching this object; null for objects that notify nobody.
  virtual NotifieeList* notifieeList() const { return nullptr; }

  bool hasNotificationActive() const { return notificationActive_; }
  /// Switches delivery of notifications on or off. Owners override it to pass the value on to every
  /// reactor they own (and do nothing when the value is already the current one).
  virtual void hasNotificationActiveIs(bool active) { notificationActive_ = active; }

  bool zekMarkedForDeletion() const { return markedForDeletion_; }
  void zekMarkedForDeletionIs(bool marked) { markedForDeletion_ = marked; }

  /// Kept for the runtime's slot order; reference counting does not depend on it.
  virtual void zeroReferencesIs(bool) {}

  /// The registered type of the object (null for untracked classes).
  virtual const TypeNode* fwkType() const { return nullptr; }

 protected:
  virtual ~PtrInterface();

  /// Runs when the last reference goes; deletes the object.
  virtual void onZeroReferences() { delete this; }

 private:
  void handleZeroRef() const noexcept { const_cast<PtrInterface*>(this)->onZeroReferences(); }

  mutable std::uint32_t refs_ = 0;
  bool notificationActive_ = false;
  bool markedForDeletion_ = false;
};

/// Intrusive counted pointer to a PtrInterface. Null is a legal value everywhere and means "absent".
/// `Ptr<T const>` is the read-only view; a `Ptr<T>` converts to it implicitly.
template <class T>
class Ptr {
 public:
  using element_type = T;

  constexpr Ptr() noexcept = default;
  constexpr Ptr(std::nullptr_t) noexcept {}
  Ptr(T* p) noexcept : p_(p) {  // NOLINT(google-explicit-constructor): a raw pointer adopts a reference
    if (p_) p_->newRef();
  }
  Ptr(const Ptr& o) noexcept : p_(o.p_) {
    if (p_) p_->newRef();
  }
  Ptr(Ptr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  Ptr(const Ptr<U>& o) noexcept : p_(o.get()) {  // NOLINT(google-explicit-constructor)
    if (p_) p_->newRef();
  }
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  Ptr(Ptr<U>&& o) noexcept : p_(o.release()) {}  // NOLINT(google-explicit-constructor)
  ~Ptr() {
    if (p_) p_->deleteRef();
  }

  Ptr& operator=(const Ptr& o) noexcept {
    Ptr(o).swap(*this);
    return *this;
  }
  Ptr& operator=(Ptr&& o) noexcept {
    Ptr(std::move(o)).swap(*this);
    return *this;
  }
  Ptr& operator=(std::nullptr_t) noexcept {
    Ptr().swap(*this);
    return *this;
  }

  T* get() const noexcept { return p_; }
  T* operator->() const noexcept { return p_; }
  T& operator*() const noexcept { return *p_; }
  explicit operator bool() const noexcept { return p_ != nullptr; }

  void swap(Ptr& o) noexcept { std::swap(p_, o.p_); }

  /// Gives up the reference without releasing it; the caller owns it.
  T* release() noexcept { return std::exchange(p_, nullptr); }

 private:
  T* p_ = nullptr;
};

template <class T, class U>
bool operator==(const Ptr<T>& a, const Ptr<U>& b) noexcept {
  return a.get() == b.get();
}
template <class T>
bool operator==(const Ptr<T>& a, std::nullptr_t) noexcept {
  return a.get() == nullptr;
}

/// Static downcast between counted pointers (the caller knows the dynamic type).
template <class T, class U>
Ptr<T> ptr_cast(const Ptr<U>& p) noexcept {
  return Ptr<T>(static_cast<T*>(p.get()));
}

}  // namespace Zek

template <class T>
struct std::hash<Zek::Ptr<T>> {
  std::size_t operator()(const Zek::Ptr<T>& p) const noexcept { return std::hash<T*>()(p.get()); }
};
