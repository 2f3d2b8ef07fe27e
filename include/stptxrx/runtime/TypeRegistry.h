#pragma once
#include <stptxrx/runtime/Export.h>

#include <cstdint>
#include <functional>
#include <string>

namespace Zek {

/// Registered descriptor of one runtime class: its qualified name and the number of its objects that are
/// alive right now. Nodes are created once, never destroyed, and compared by address.
///
/// The live count is how tests prove that deleting a syncer or a subtree leaves nothing behind. It is a
/// plain counter: the runtime is single-threaded apart from reference counts.
class STPTXRX_EXPORT TypeNode {
 public:
  explicit TypeNode(std::string name) : name_(std::move(name)) {}
  TypeNode(const TypeNode&) = delete;
  TypeNode& operator=(const TypeNode&) = delete;

  const std::string& name() const { return name_; }
  std::int64_t liveCount() const { return live_; }
  std::uint64_t allocations() const { return allocations_; }

  void trackAllocation() {
    ++live_;
    ++allocations_;
  }
  void trackDeallocation() { --live_; }

 private:
  std::string name_;
  std::int64_t live_ = 0;
  std::uint64_t allocations_ = 0;
};

/// Returns the node registered under `name`, registering it on first use. Called from static initializers
/// of the classes (so every type is known once the library is loaded) and from their accessors.
STPTXRX_EXPORT TypeNode* typeNodeIs(const char* name);

/// The node registered under `name`, or null.
STPTXRX_EXPORT TypeNode* typeNode(const char* name);

/// Visits every registered node in registration order.
STPTXRX_EXPORT void typeNodesForEach(const std::function<void(const TypeNode&)>& visit);

/// Sum of the live counts of every registered type.
STPTXRX_EXPORT std::int64_t liveObjectCount();

/// Member object that counts one live object of `Class` (its `zekTypeNode()`) for as long as it exists.
/// Placed in every tracked class by ZEK_TYPE; copies count as new objects. It holds nothing, so that the
/// count costs the tracked object no space (tens of thousands of entries and reactors carry one).
template <class Class>
class LiveObject {
 public:
  LiveObject() { Class::zekTypeNode()->trackAllocation(); }
  LiveObject(const LiveObject&) : LiveObject() {}
  LiveObject& operator=(const LiveObject&) { return *this; }
  ~LiveObject() { Class::zekTypeNode()->trackDeallocation(); }
};

}  // namespace Zek

/// Declares the type node of a runtime class: a static accessor `zekTypeNode()`, the `fwkType()` override
/// and the live-object counter. Pair with ZEK_TYPE_DEFINE in the class's source file.
#define ZEK_TYPE(Class)                                                    \
 public:                                                                   \
  static ::Zek::TypeNode* zekTypeNode();                                   \
  const ::Zek::TypeNode* fwkType() const override { return zekTypeNode(); } \
                                                                           \
 private:                                                                  \
  [[no_unique_address]] ::Zek::LiveObject<Class> zekLive_

#define ZEK_TYPE_CONCAT2(a, b) a##b
#define ZEK_TYPE_CONCAT(a, b) ZEK_TYPE_CONCAT2(a, b)

/// Defines the accessor declared by ZEK_TYPE and registers the type when the library is loaded.
#define ZEK_TYPE_DEFINE(Class, qualifiedName)                                        \
  ::Zek::TypeNode* Class::zekTypeNode() {                                           \
    static ::Zek::TypeNode* const node = ::Zek::typeNodeIs(qualifiedName);          \
    return node;                                                                    \
  }                                                                                 \
  namespace {                                                                       \
  [[maybe_unused]] ::Zek::TypeNode* const ZEK_TYPE_CONCAT(zekTypeAtLoad_, __LINE__) = \
      Class::zekTypeNode();                                                         \
  }
