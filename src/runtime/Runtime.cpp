// Pointers, strings, exceptions, assertions and the type registry: the small non-template parts of the
// runtime.
#include <stptxrx/runtime/Assert.h>
#include <stptxrx/runtime/Entity.h>
#include <stptxrx/runtime/Exception.h>
#include <stptxrx/runtime/Ptr.h>
#include <stptxrx/runtime/String.h>
#include <stptxrx/runtime/TypeRegistry.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <new>
#include <ostream>
#include <unordered_map>

namespace Zek {

bool threadSafePointers_ = false;
bool notifyEqualWrites_ = false;

PtrInterface::~PtrInterface() = default;

// ---- assertions

void assertionFailed(const char* expression, const char* file, int line, const char* function) noexcept {
  std::fprintf(stderr, "%s:%d: %s: Assertion `%s' failed.\n", file, line, function, expression);
  std::fflush(stderr);
  std::abort();
}

// ---- String

String::String(std::string_view s) {
  if (s.empty()) return;
  void* mem = ::operator new(offsetof(Rep, data) + s.size() + 1);
  rep_ = static_cast<Rep*>(mem);
  rep_->refs = 1;
  rep_->size = s.size();
  std::memcpy(rep_->data, s.data(), s.size());
  rep_->data[s.size()] = '\0';
}

String& String::operator=(const String& o) noexcept {
  if (rep_ != o.rep_) {
    o.retain();
    release();
    rep_ = o.rep_;
  }
  return *this;
}

String& String::operator=(String&& o) noexcept {
  if (this != &o) {
    release();
    rep_ = o.rep_;
    o.rep_ = nullptr;
  }
  return *this;
}

void String::release() noexcept {
  if (rep_ && --rep_->refs == 0) ::operator delete(rep_);
  rep_ = nullptr;
}

String& String::operator+=(std::string_view s) {
  if (s.empty()) return *this;
  std::string joined;
  joined.reserve(size() + s.size());
  joined.append(view()).append(s);
  *this = String(std::string_view(joined));
  return *this;
}

std::ostream& operator<<(std::ostream& os, const String& s) { return os << s.view(); }

// ---- exceptions

void throwMutatorArgNullPointerException(std::string_view type, std::string_view attribute) {
  std::string what;
  what.append(type).append("::").append(attribute).append(": null pointer argument");
  throw MutatorArgNullPointerException(std::move(what));
}

std::string identityText(const void* object, std::string_view type, std::string_view detail) {
  if (!object) return "(null)";
  char address[32];
  std::snprintf(address, sizeof address, "%p", object);
  std::string text;
  if (!type.empty()) text.append(type).append("@");
  text.append(address);
  if (!detail.empty()) text.append(" ").append(detail);
  return text;
}

void throwMutatorReinstantiating(std::string_view type, std::string_view attribute, std::string_view oldValue,
                                 std::string_view newValue) {
  std::string what;
  what.append(type)
      .append("::")
      .append(attribute)
      .append(": reinstantiating with ")
      .append(newValue)
      .append(", existing ")
      .append(oldValue);
  throw MutatorReinstantiatingException(std::move(what));
}

void throwRangeException(std::string_view text) { throw RangeException(std::string(text)); }

// ---- type registry

namespace {
struct Registry {
  std::deque<TypeNode> nodes;  // stable addresses
  std::unordered_map<std::string, TypeNode*> byName;
};
Registry& registry() {
  static Registry* r = new Registry;  // never destroyed: nodes outlive every static object
  return *r;
}
}  // namespace

TypeNode* typeNodeIs(const char* name) {
  Registry& r = registry();
  auto it = r.byName.find(name);
  if (it != r.byName.end()) return it->second;
  TypeNode* node = &r.nodes.emplace_back(name);
  r.byName.emplace(name, node);
  return node;
}

TypeNode* typeNode(const char* name) {
  Registry& r = registry();
  auto it = r.byName.find(name);
  return it == r.byName.end() ? nullptr : it->second;
}

void typeNodesForEach(const std::function<void(const TypeNode&)>& visit) {
  for (const TypeNode& n : registry().nodes) visit(n);
}

std::int64_t liveObjectCount() {
  std::int64_t total = 0;
  for (const TypeNode& n : registry().nodes) total += n.liveCount();
  return total;
}

// ---- notifiee list and reactors

void NotifieeList::add(NotifieeConst* n) {
  if (size_ == capacity_) {
    // Grows by copying; a dispatch in progress indexes the array afresh on every step.
    NotifieeConst** old = slots();
    auto* grown = new NotifieeConst*[capacity_ * 2];
    std::copy(old, old + size_, grown);
    if (capacity_ != inlineCapacity) delete[] old;
    heap_ = grown;
    capacity_ *= 2;
  }
  slots()[size_++] = n;
  ++live_;
}

void NotifieeList::remove(NotifieeConst* n) {
  NotifieeConst** s = slots();
  for (std::uint32_t i = 0; i < size_; ++i) {
    if (s[i] == n) {
      s[i] = nullptr;
      --live_;
      break;
    }
  }
  if (depth_ == 0) compact();
}

void NotifieeList::compact() {
  if (live_ == size_) return;  // no holes
  NotifieeConst** s = slots();
  size_ = static_cast<std::uint32_t>(std::remove(s, s + size_, nullptr) - s);
}

namespace {
// Holds a counted reference for the duration of a delivery, unless the object has none yet (a reactor
// or entity still inside its constructor must not be released by the dispatcher).
class DispatchHold {
 public:
  explicit DispatchHold(const PtrInterface* p) noexcept : p_(p->references() ? p : nullptr) {
    if (p_) p_->newRef();
  }
  DispatchHold(const DispatchHold&) = delete;
  DispatchHold& operator=(const DispatchHold&) = delete;
  ~DispatchHold() {
    if (p_) p_->deleteRef();
  }

 private:
  const PtrInterface* p_;
};
}  // namespace

void NotifieeList::dispatch(const PtrInterface* notifier, AttributeId id, const void* key) {
  DispatchHold holdNotifier(notifier);
  struct Depth {
    NotifieeList* list;
    explicit Depth(NotifieeList* l) : list(l) { ++list->depth_; }
    Depth(const Depth&) = delete;
    Depth& operator=(const Depth&) = delete;
    ~Depth() {
      if (--list->depth_ == 0 && list->live_ != list->size_) list->compact();  // holes left by removals
    }
  } depth(this);
  // Reactors added during this dispatch sit beyond `count` and do not receive this notification.
  const std::uint32_t count = size_;
  for (std::uint32_t i = 0; i < count; ++i) {
    // A branch, not a select of the array: predicted, it keeps the capacity load off the path to the
    // reactor.
    NotifieeConst* n = capacity_ == inlineCapacity ? inline_[i] : heap_[i];
    if (!n || !n->hasNotificationActive()) continue;
    DispatchHold holdReactor(n);
    n->onAttribute(id, key);
  }
}

void NotifieeConst::notifierIs(const Ptr<PtrInterface const>& p) {
  if (p == notifier_) return;
  if (registered_ && notifier_) {
    if (NotifieeList* list = notifier_->notifieeList()) list->remove(this);
  }
  Ptr<PtrInterface const> old = std::move(notifier_);
  notifier_ = p;
  if (registered_ && notifier_) {
    if (NotifieeList* list = notifier_->notifieeList()) list->add(this);
  }
}

void NotifieeConst::isRegisteredNotifieeIs(bool registered) {
  if (registered == registered_) return;
  registered_ = registered;
  if (!notifier_) return;
  NotifieeList* list = notifier_->notifieeList();
  if (!list) return;
  if (registered) {
    list->add(this);
  } else {
    list->remove(this);
  }
}

void NotifieeConst::onAttribute(AttributeId, const void*) {}

NotifieeConst::~NotifieeConst() {
  if (registered_ && notifier_) {
    if (NotifieeList* list = notifier_->notifieeList()) list->remove(this);
  }
}

}  // namespace Zek
