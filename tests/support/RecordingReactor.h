#pragma once
// A reactor that records every notification of the entity it watches.
#include <stptxrx/runtime/Notifiee.h>
#include <stptxrx/runtime/Ptr.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

namespace Zek::test {

/// Watches any entity and records each onAttribute as (attribute id, decoded key), in order. Registered and
/// active from construction on; the base destructor unregisters it.
///
///   auto rec = RecordingReactor::RecordingReactorIs(txStatus, RecordingReactor::keyAs<Zek::Name>());
///   txStatus->txMstStatusIs("g");
///   EXPECT_EQ(rec->ids(), (std::vector<Zek::AttributeId>{TxStatus::idTxMstStatus}));
///   EXPECT_EQ(rec->keys(), (std::vector<std::string>{"g"}));
///
/// Keys are decoded by the decoder given at construction (none, or no key: ""). An optional action runs
/// after each recording; tests use it to act from inside a dispatch.
class RecordingReactor : public NotifieeConst {
 public:
  using KeyDecoder = std::function<std::string(AttributeId id, const void* key)>;
  using Action = std::function<void(AttributeId id, const void* key)>;

  /// Decoder for entities whose collection keys all have type `Key` (streamed with operator<<).
  template <class Key>
  static KeyDecoder keyAs() {
    return [](AttributeId, const void* key) {
      std::ostringstream os;
      os << *static_cast<const Key*>(key);
      return os.str();
    };
  }

  explicit RecordingReactor(const Ptr<PtrInterface const>& notifier, KeyDecoder decoder = {})
      : decoder_(std::move(decoder)) {
    notifierIs(notifier);
    isRegisteredNotifieeIs(true);
    hasNotificationActiveIs(true);
  }
  static Ptr<RecordingReactor> RecordingReactorIs(const Ptr<PtrInterface const>& notifier, KeyDecoder decoder = {}) {
    return Ptr<RecordingReactor>(new RecordingReactor(notifier, std::move(decoder)));
  }

  void onAttribute(AttributeId id, const void* key) override {
    ids_.push_back(id);
    keys_.push_back(key && decoder_ ? decoder_(id, key) : std::string());
    if (action_) action_(id, key);
  }

  /// Runs `action` after every recorded notification (null: none).
  void actionIs(Action action) { action_ = std::move(action); }

  const std::vector<AttributeId>& ids() const { return ids_; }
  const std::vector<std::string>& keys() const { return keys_; }
  std::size_t count() const { return ids_.size(); }
  std::size_t count(AttributeId id) const { return static_cast<std::size_t>(std::count(ids_.begin(), ids_.end(), id)); }
  void clear() { ids_.clear(), keys_.clear(); }

 private:
  KeyDecoder decoder_;
  Action action_;
  std::vector<AttributeId> ids_;
  std::vector<std::string> keys_;
};

}  // namespace Zek::test
