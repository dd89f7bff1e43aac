#pragma once
#include <QString>
#include <QVariant>
#include <cstdint>
#include <vector>

namespace velmora {

// An ordered list of items, each with an optional key, addressed by position (1 to
// Count()) or found by key. Unlike a plain map it can give a key back from a position,
// replace an item in place and tell where a key stands. Items and keys are any values;
// they are compared as text.
//
// Errors are raised as ScriptError: 9 "Subscript out of range" for a position outside
// 1..Count(), 475 when a key is already in use.
class clsCollection {
 public:
  static constexpr long kKeyInUse = 475;
  static constexpr int32_t kBinaryCompare = 0;
  static constexpr int32_t kTextCompare = 1;

  // Appends `item`; a missing key is the empty text. A key already present raises 475
  // and leaves the collection as it was.
  void Add(const QVariant& item, const QVariant& key = QVariant());

  int32_t Count() const { return int32_t(elements_.size()); }
  int32_t Lower() const { return 1; }
  // 0: keys and items match exactly; 1: without regard to case. Any other value counts
  // as 0.
  int32_t Compare() const { return compare_; }
  void setCompare(int32_t mode) { compare_ = mode; }

  QVariant item(int32_t position) const;
  void setItem(int32_t position, const QVariant& value);
  QVariant key(int32_t position) const;
  // Raises 475 when another element already has `value` as its key.
  void setKey(int32_t position, const QVariant& value);

  bool KeyExists(const QVariant& key) const { return KeyIndex(key) != -1; }
  // The first position whose key equals `key`, or -1.
  int32_t KeyIndex(const QVariant& key) const;
  // Both raise 9 on an empty collection.
  bool ItemExists(const QVariant& item) const;
  // The first position whose item equals `item`, or -1.
  int32_t ItemIndex(const QVariant& item) const;

  // Removes the element; the later ones move down by one. Raises 9 for a bad position.
  void RemoveItem(int32_t position);
  void RemoveItemEx(int32_t position) { RemoveItem(position); }
  void RemoveAll() { elements_.clear(); }
  // Takes the element at `from` out and puts it back so that it stands at `to`.
  void MoveTo(int32_t from, int32_t to);
  // Orders the elements by their items' text: `order` 1 ascending, anything else
  // descending. Keys travel with their items; equal items keep their order.
  void sort(int32_t order = 1);

  // Writes the count and every (item, key) pair; LoadFromFile empties the collection and
  // reads such a file back. A file that cannot be written or read raises ScriptError
  // (75 for access, 62 for a file that ends too early or is not such a file).
  void SaveToFile(const QString& path) const;
  void LoadFromFile(const QString& path);

 private:
  struct Element {
    QVariant item;
    QVariant key;
  };

  bool equal(const QVariant& a, const QVariant& b) const;
  // Throws 9 unless `position` is in 1..Count(); returns its index in elements_.
  size_t indexOf(int32_t position) const;

  std::vector<Element> elements_;
  int32_t compare_ = kBinaryCompare;
};

}  // namespace velmora
