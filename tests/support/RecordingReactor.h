#pragma once
// A reactor that records every notification of the entity it watches.
#include <stptxrx/runtime/Notifiee.h>
#include <stptxrx/runtime/Ptr.h>

#include <cstddef>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

namespace Zek::test {

/// Watches any entity and records each onAttribute as (attribute id, key present, decoded key), in
/// order. Registered and active from construction on; the base destructor unregisters it.
///
///   auto rec = RecordingReactor::RecordingReactorIs(txStatus, RecordingReactor::keyAs<Zek::Name>());
///   txStatus->txMstStatusIs("g");
///   EXPECT_EQ(rec->ids(), (std::vector<Zek::AttributeId>{TxStatus::txMstStatusId}));
///   EXPECT_EQ(rec->keys(), (std::vector<std::string>{"g"}));
///
/// Keys are decoded by the decoder given at construction (none: keys are recorded as ""). A decoder sees
/// the attribute id, so one entity with several key types can be decoded by switching on it.
/// An optional action runs after each recording; tests use it to act from inside a dispatch.
class RecordingReactor : public NotifieeConst {
 public:
  using KeyDecoder = std::function<std::string(AttributeId id, const void* key)>;
  using Action = std::function<void(AttributeId id, const void* key)>;

  struct Notification {
    AttributeId id;
    bool hasKey;      ///< key pointer was non-null
    std::string key;  ///< decoded key ("" without a key or a decoder)
  };

  /// Decoder for entities whose collection keys all have type `Key` (streamed with operator<<).
  template <class Key>
  static KeyDecoder keyAs() {
    return [](AttributeId, const void* key) {
      std::ostringstream os;
      os << *static_cast<const Key*>(key);
      return os.str();
    };
  }

  explicit RecordingReactor(const Ptr<PtrInterface const>& notifier, KeyDecoder decoder = {});
  static Ptr<RecordingReactor> RecordingReactorIs(const Ptr<PtrInterface const>& notifier,
                                                  KeyDecoder decoder = {});

  void onAttribute(AttributeId id, const void* key) override;

  /// Runs `action` after every recorded notification (null: none).
  void actionIs(Action action) { action_ = std::move(action); }

  const std::vector<Notification>& notifications() const { return log_; }
  std::vector<AttributeId> ids() const;
  std::vector<std::string> keys() const;
  std::size_t count() const { return log_.size(); }
  std::size_t count(AttributeId id) const;
  void clear() { log_.clear(); }

 private:
  KeyDecoder decoder_;
  Action action_;
  std::vector<Notification> log_;
};

}  // namespace Zek::test
