#pragma once
// One small entity with an attribute of each kind the runtime supports; nothing in it is spanning tree.
#include <stptxrx/runtime/Entity.h>
#include <stptxrx/runtime/String.h>

#include <string>

namespace Zek::test {

/// Nodes nest: `child` members (hash order, keyed by name) and `part` members (key order, keyed by number)
/// are nodes themselves, named after their key.
class Node : public Entity {
 public:
  static constexpr AttributeId labelId = firstAttributeId + 1;  // scalar
  static constexpr AttributeId countId = labelId + 1;           // value map Name -> int
  static constexpr AttributeId childId = labelId + 2;           // entity collection, insertion order
  static constexpr AttributeId partId = labelId + 3;            // entity collection, by key

  explicit Node(Name name = {}) : name_(std::move(name)) {}
  const Name& name() const { return name_; }

  const std::string& label() const { return label_; }
  void labelIs(const std::string& l) { attributeIs(label_, l, labelId); }

  const int* count(const Name& k) const { return counts_.find(k); }
  void countIs(const Name& k, int v) { valueIs(counts_, k, v, countId); }
  bool countDel(const Name& k) { return valueDel(counts_, k, countId); }

  Ptr<Node> child(const Name& k) const { return member(children_, k); }
  Ptr<Node> childIs(const Name& k) { return memberIs(children_, k, childId, [&] { return Ptr<Node>(new Node(k)); }); }
  Ptr<Node> childDel(const Name& k) { return memberDel(children_, k, childId); }
  const HashMap<Name, Ptr<Node>>& children() const { return children_; }

  Ptr<Node> part(int k) const { return member(parts_, k); }
  Ptr<Node> partIs(int k) {
    return memberIs(parts_, k, partId, [&] { return Ptr<Node>(new Node(Name(std::to_string(k)))); });
  }
  Ptr<Node> partDel(int k) { return memberDel(parts_, k, partId); }
  const OrderedMap<int, Ptr<Node>>& parts() const { return parts_; }

 private:
  template <class Map, class K>
  static Ptr<Node> member(const Map& map, const K& k) {
    const Ptr<Node>* p = map.find(k);
    return p ? *p : Ptr<Node>();
  }

  Name name_;
  std::string label_;
  HashMap<Name, int> counts_;
  HashMap<Name, Ptr<Node>> children_;
  OrderedMap<int, Ptr<Node>> parts_;
};

}  // namespace Zek::test
