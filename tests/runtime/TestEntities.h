#pragma once
// Small entities and a fake syncer for the runtime tests: nothing in them is spanning tree.
#include <stptxrx/runtime/Entity.h>
#include <stptxrx/runtime/String.h>

#include <string>

namespace Zek::test {

/// A member of Shelf's collections; its key is its name. Items nest: an item's parts are items named
/// after their number.
class Item : public Entity {
 public:
  static constexpr AttributeId nameId = firstAttributeId;      // 258, the key
  static constexpr AttributeId weightId = firstAttributeId + 1;
  static constexpr AttributeId partId = firstAttributeId + 2;  // entity collection, by key

  explicit Item(Name name) : name_(std::move(name)) {}
  const Name& name() const { return name_; }
  int weight() const { return weight_; }
  void weightIs(int w) { attributeIs(weight_, w, weightId); }

  Ptr<Item> part(int k) const {
    const Ptr<Item>* p = parts_.find(k);
    return p ? *p : Ptr<Item>();
  }
  Ptr<Item> partIs(int k) {
    return memberIs(parts_, k, partId, [&] { return Ptr<Item>(new Item(Name(std::to_string(k)))); });
  }
  Ptr<Item> partDel(int k) { return memberDel(parts_, k, partId); }
  const OrderedMap<int, Ptr<Item>>& parts() const { return parts_; }

 private:
  Name name_;
  int weight_ = 0;
  OrderedMap<int, Ptr<Item>> parts_;
};

/// An entity with one attribute of each kind the runtime supports.
class Shelf : public Entity {
 public:
  static constexpr AttributeId labelId = firstAttributeId;      // scalar
  static constexpr AttributeId countId = firstAttributeId + 1;  // value map Name -> int
  static constexpr AttributeId itemId = firstAttributeId + 2;   // entity collection, insertion order
  static constexpr AttributeId binId = firstAttributeId + 3;    // entity collection, by key

  const std::string& label() const { return label_; }
  void labelIs(const std::string& l) { attributeIs(label_, l, labelId); }

  const int* count(const Name& k) const { return counts_.find(k); }
  void countIs(const Name& k, int v) { valueIs(counts_, k, v, countId); }
  bool countDel(const Name& k) { return valueDel(counts_, k, countId); }

  Ptr<Item> item(const Name& k) const {
    const Ptr<Item>* p = items_.find(k);
    return p ? *p : Ptr<Item>();
  }
  Ptr<Item> itemIs(const Name& k) {
    return memberIs(items_, k, itemId, [&] { return Ptr<Item>(new Item(k)); });
  }
  Ptr<Item> itemDel(const Name& k) { return memberDel(items_, k, itemId); }
  const HashMap<Name, Ptr<Item>>& items() const { return items_; }

  Ptr<Item> bin(int k) const {
    const Ptr<Item>* p = bins_.find(k);
    return p ? *p : Ptr<Item>();
  }
  Ptr<Item> binIs(int k) {
    return memberIs(bins_, k, binId, [&] { return Ptr<Item>(new Item(Name(std::to_string(k)))); });
  }
  Ptr<Item> binDel(int k) { return memberDel(bins_, k, binId); }
  const OrderedMap<int, Ptr<Item>>& bins() const { return bins_; }

 private:
  std::string label_;
  HashMap<Name, int> counts_;
  HashMap<Name, Ptr<Item>> items_;
  OrderedMap<int, Ptr<Item>> bins_;
};

}  // namespace Zek::test
