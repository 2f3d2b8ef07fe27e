#pragma once
#include <stptxrx/runtime/Export.h>
#include <stptxrx/runtime/Ptr.h>

#include <cstdint>

namespace Zek {

/// Numeric attribute identifier. Entities number their attributes in declaration order from 258; a key
/// counts as an attribute where it is declared, which need not be first (IntxInfo's key is 259, after
/// neighborAddr), and an entity without a key (TxStatus) numbers only its attributes.
using AttributeId = std::uint32_t;
inline constexpr AttributeId firstAttributeId = 258;

class NotifieeConst;

/// The reactors registered on one notifier, in registration order.
///
/// Dispatch is synchronous and re-entrant: a reactor may, while it runs, write the notifier (nested
/// dispatch), register or unregister reactors (itself included) or release the last reference to itself.
/// Unregistering during a dispatch clears the slot and the list is compacted when the outermost dispatch
/// ends; a reactor registered during a dispatch does not receive the notification being delivered. The
/// dispatcher holds a counted reference on each reactor while it runs it.
///
/// The first two slots live inside the list itself: nearly every entity has one or two reactors, so
/// delivery reaches the reactor without a trip through a separately allocated array. The inline slots
/// share their storage with the pointer to the heap array (a list is one or the other, told apart by its
/// capacity), which keeps the list, and so every entity, 16 octets smaller.
class STPTXRX_EXPORT NotifieeList {
 public:
  NotifieeList() = default;
  NotifieeList(const NotifieeList&) = delete;
  NotifieeList& operator=(const NotifieeList&) = delete;
  ~NotifieeList() {
    if (capacity_ != inlineCapacity) delete[] heap_;
  }

  bool empty() const { return live_ == 0; }
  std::size_t size() const { return live_; }

  void add(NotifieeConst* n);
  void remove(NotifieeConst* n);

  /// Delivers onAttribute(id, key) to every registered reactor whose notifications are active.
  void dispatch(const PtrInterface* notifier, AttributeId id, const void* key);

 private:
  void compact();
  NotifieeConst** slots() { return capacity_ == inlineCapacity ? inline_ : heap_; }

  static constexpr std::uint32_t inlineCapacity = 2;
  union {
    NotifieeConst* inline_[inlineCapacity] = {};  // while capacity_ == inlineCapacity
    NotifieeConst** heap_;                        // a heap array of capacity_ slots otherwise
  };
  std::uint32_t size_ = 0;  // slots in use, holes included; holes exist exactly when live_ != size_
  std::uint32_t capacity_ = inlineCapacity;
  std::uint32_t live_ = 0;
  std::uint32_t depth_ = 0;
};

/// Base of every reactor: watches one notifier (held by counted pointer, const) and receives its
/// attribute changes through onAttribute while registered and while its notifications are active.
class STPTXRX_EXPORT NotifieeConst : public PtrInterface {
 public:
  NotifieeConst() = default;

  const Ptr<PtrInterface const>& notifier() const { return notifier_; }

  /// Binds the reactor to `p` (null unbinds). A registered reactor moves its registration to `p`.
  /// Derived reactors override this to copy on re-pointing and call the base to do the binding.
  virtual void notifierIs(const Ptr<PtrInterface const>& p);

  bool isRegisteredNotifiee() const { return registered_; }
  /// Adds the reactor to (or removes it from) its notifier's list of notifiees.
  void isRegisteredNotifieeIs(bool registered);

  /// Called after attribute `id` of the notifier changed; `key` points at the member's key for a
  /// collection attribute and is null for a scalar. The default ignores everything.
  virtual void onAttribute(AttributeId id, const void* key);

 protected:
  ~NotifieeConst() override;

 private:
  Ptr<PtrInterface const> notifier_;
  bool registered_ = false;
};

}  // namespace Zek
