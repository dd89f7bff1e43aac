#include "support/clsCollection.h"

#include <QDataStream>
#include <QFile>
#include <QSaveFile>
#include <utility>

#include "core/ScriptError.h"

namespace velmora {

namespace {

constexpr long kPathFileAccess = 75;
constexpr long kInputPastEnd = 62;
// Marks a file written by SaveToFile, and the layout it uses.
constexpr quint32 kFileMagic = 0x56434F4C;  // "VCOL"
constexpr quint32 kFileLayout = 1;

[[noreturn]] void raiseKeyInUse() {
  throw ScriptError(clsCollection::kKeyInUse,
                    QStringLiteral("The key is already associated with an element of this collection"));
}

[[noreturn]] void raiseSubscript() {
  throw ScriptError(errnum::SubscriptOutOfRange, QStringLiteral("Subscript out of range"));
}

}  // namespace

bool clsCollection::equal(const QVariant& a, const QVariant& b) const {
  const QString left = a.toString(), right = b.toString();
  if (left.size() != right.size()) return false;
  const Qt::CaseSensitivity sensitivity = compare_ == kTextCompare ? Qt::CaseInsensitive : Qt::CaseSensitive;
  return QString::compare(left, right, sensitivity) == 0;
}

size_t clsCollection::indexOf(int32_t position) const {
  if (position < 1 || position > Count()) raiseSubscript();
  return size_t(position - 1);
}

void clsCollection::Add(const QVariant& item, const QVariant& key) {
  const QVariant stored = key.isValid() ? key : QVariant(QString());
  if (KeyExists(stored)) raiseKeyInUse();
  elements_.push_back({item, stored});
}

QVariant clsCollection::item(int32_t position) const { return elements_[indexOf(position)].item; }

void clsCollection::setItem(int32_t position, const QVariant& value) { elements_[indexOf(position)].item = value; }

QVariant clsCollection::key(int32_t position) const { return elements_[indexOf(position)].key; }

void clsCollection::setKey(int32_t position, const QVariant& value) {
  const size_t index = indexOf(position);
  const int32_t holder = KeyIndex(value);
  if (holder != -1 && holder != position) raiseKeyInUse();
  elements_[index].key = value;
}

int32_t clsCollection::KeyIndex(const QVariant& key) const {
  for (size_t i = 0; i < elements_.size(); ++i)
    if (equal(elements_[i].key, key)) return int32_t(i + 1);
  return -1;
}

bool clsCollection::ItemExists(const QVariant& item) const { return ItemIndex(item) != -1; }

int32_t clsCollection::ItemIndex(const QVariant& item) const {
  if (elements_.empty()) raiseSubscript();
  for (size_t i = 0; i < elements_.size(); ++i)
    if (equal(elements_[i].item, item)) return int32_t(i + 1);
  return -1;
}

void clsCollection::RemoveItem(int32_t position) { elements_.erase(elements_.begin() + qsizetype(indexOf(position))); }

void clsCollection::MoveTo(int32_t from, int32_t to) {
  const size_t source = indexOf(from), target = indexOf(to);
  Element moved = std::move(elements_[source]);
  elements_.erase(elements_.begin() + qsizetype(source));
  elements_.insert(elements_.begin() + qsizetype(target), std::move(moved));
}

// An exchange sort: every element is compared with each one after it and the two swap
// places when they stand in the wrong order, so the order of equal items can change.
void clsCollection::sort(int32_t order) {
  const Qt::CaseSensitivity sensitivity = compare_ == kTextCompare ? Qt::CaseInsensitive : Qt::CaseSensitive;
  for (size_t i = 0; i + 1 < elements_.size(); ++i) {
    for (size_t j = i + 1; j < elements_.size(); ++j) {
      const int relation = QString::compare(elements_[i].item.toString(), elements_[j].item.toString(), sensitivity);
      if (order == 1 ? relation > 0 : relation < 0) std::swap(elements_[i], elements_[j]);
    }
  }
}

void clsCollection::SaveToFile(const QString& path) const {
  QSaveFile file(path);
  if (!file.open(QIODevice::WriteOnly))
    throw ScriptError(kPathFileAccess, QStringLiteral("Path/File access error: ") + file.errorString());
  QDataStream out(&file);
  out.setVersion(QDataStream::Qt_6_4);
  out << kFileMagic << kFileLayout << Count();
  for (const Element& element : elements_) out << element.item << element.key;
  if (out.status() != QDataStream::Ok || !file.commit())
    throw ScriptError(kPathFileAccess, QStringLiteral("Path/File access error: ") + file.errorString());
}

void clsCollection::LoadFromFile(const QString& path) {
  RemoveAll();
  QFile file(path);
  if (!file.open(QIODevice::ReadOnly))
    throw ScriptError(kPathFileAccess, QStringLiteral("Path/File access error: ") + file.errorString());
  QDataStream in(&file);
  in.setVersion(QDataStream::Qt_6_4);
  quint32 magic = 0, layout = 0;
  int32_t count = 0;
  in >> magic >> layout >> count;
  const bool ours = in.status() == QDataStream::Ok && magic == kFileMagic && layout == kFileLayout && count >= 0;
  std::vector<Element> loaded;
  for (int32_t i = 0; ours && i < count && in.status() == QDataStream::Ok; ++i) {
    Element element;
    in >> element.item >> element.key;
    loaded.push_back(std::move(element));
  }
  if (!ours || in.status() != QDataStream::Ok)
    throw ScriptError(kInputPastEnd, QStringLiteral("Input past end of file"));
  elements_ = std::move(loaded);
}

}  // namespace velmora
