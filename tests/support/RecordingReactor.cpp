#include "support/RecordingReactor.h"

#include <algorithm>

namespace Zek::test {

RecordingReactor::RecordingReactor(const Ptr<PtrInterface const>& notifier, KeyDecoder decoder)
    : decoder_(std::move(decoder)) {
  notifierIs(notifier);
  isRegisteredNotifieeIs(true);
  hasNotificationActiveIs(true);
}

Ptr<RecordingReactor> RecordingReactor::RecordingReactorIs(const Ptr<PtrInterface const>& notifier,
                                                           KeyDecoder decoder) {
  return Ptr<RecordingReactor>(new RecordingReactor(notifier, std::move(decoder)));
}

void RecordingReactor::onAttribute(AttributeId id, const void* key) {
  log_.push_back(Notification{id, key != nullptr, key && decoder_ ? decoder_(id, key) : std::string()});
  if (action_) action_(id, key);
}

std::vector<AttributeId> RecordingReactor::ids() const {
  std::vector<AttributeId> out;
  out.reserve(log_.size());
  for (const Notification& n : log_) out.push_back(n.id);
  return out;
}

std::vector<std::string> RecordingReactor::keys() const {
  std::vector<std::string> out;
  out.reserve(log_.size());
  for (const Notification& n : log_) out.push_back(n.key);
  return out;
}

std::size_t RecordingReactor::count(AttributeId id) const {
  return static_cast<std::size_t>(
      std::count_if(log_.begin(), log_.end(), [id](const Notification& n) { return n.id == id; }));
}

}  // namespace Zek::test
