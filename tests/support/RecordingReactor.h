#pragma once
// A reactor that records every notification of the entity it watches.
#include <stptxrx/runtime/Notifiee.h>
#include <stptxrx/runtime/Ptr.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <vector>

namespace Zek::test {

/// Watches any entity and records the attribute id of each onAttribute, in order. Registered and active from
/// construction on; the base destructor unregisters it. An optional action (given at construction or by
/// actionIs) runs after each recording; tests use it to act from inside a dispatch.
///
///   auto rec = RecordingReactor::RecordingReactorIs(txStatus);
///   txStatus->txMstStatusIs("g");
///   EXPECT_EQ(rec->ids(), (std::vector<Zek::AttributeId>{TxStatus::idTxMstStatus}));
class RecordingReactor : public NotifieeConst {
 public:
  using Action = std::function<void(AttributeId id, const void* key)>;

  explicit RecordingReactor(const Ptr<PtrInterface const>& notifier, Action action = nullptr) : action_(std::move(action)) {
    notifierIs(notifier), isRegisteredNotifieeIs(true), hasNotificationActiveIs(true);
  }
  static Ptr<RecordingReactor> RecordingReactorIs(const Ptr<PtrInterface const>& notifier, Action action = nullptr) {
    return Ptr<RecordingReactor>(new RecordingReactor(notifier, std::move(action)));
  }

  void onAttribute(AttributeId id, const void* key) override {
    ids_.push_back(id);
    if (action_) action_(id, key);
  }

  /// Runs `action` after every recorded notification (null: none).
  void actionIs(Action action) { action_ = std::move(action); }

  const std::vector<AttributeId>& ids() const { return ids_; }
  std::size_t count(AttributeId id) const { return static_cast<std::size_t>(std::count(ids_.begin(), ids_.end(), id)); }
  void clear() { ids_.clear(); }

 private:
  Action action_;
  std::vector<AttributeId> ids_;
};

}  // namespace Zek::test
