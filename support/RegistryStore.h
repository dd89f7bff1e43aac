#pragma once
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <cstdint>
#include <functional>
#include <optional>

namespace velmora {

// Root keys, named by their handles.
namespace registryroot {
constexpr uint32_t ClassesRoot = 0x80000000;
constexpr uint32_t CurrentUser = 0x80000001;
constexpr uint32_t LocalMachine = 0x80000002;
constexpr uint32_t Users = 0x80000003;
}  // namespace registryroot

// Value types.
namespace registrytype {
constexpr uint32_t String = 1;
constexpr uint32_t ExpandString = 2;  // text with %NAME% environment references
constexpr uint32_t Binary = 3;
constexpr uint32_t Number = 4;           // 32 bits
constexpr uint32_t BigEndianNumber = 5;  // 32 bits
constexpr uint32_t StringList = 7;
}  // namespace registrytype

// A value as the store keeps it: text (QString) for the string types, quint32 for the
// numbers, QStringList for a list, QByteArray for binary and any other type.
struct RegistryValue {
  uint32_t type = registrytype::String;
  QVariant data;
};

// Keys and typed values kept in one JSON file, "registry.json", in a folder of their own.
// Key paths are split at "\" (a trailing "\" is ignored, an empty segment refused); paths
// and value names match without regard to case and keep the spelling they were made
// with. The value named "" is the key's default value.
//
// Any number of stores, in this process or others, may share the folder: every change
// holds a lock file beside the data, reads the file afresh and replaces it whole, so no
// change is torn or lost. A damaged file reads as empty and the next change replaces it.
class RegistryStore {
 public:
  explicit RegistryStore(const QString& folder = defaultFolder()) : folder_(folder) {}

  // $VELMORA_REGISTRY_DIR, else "<runtime folder>/velmora/registry"; "" when the runtime
  // folder is unknown.
  static QString defaultFolder();
  static bool isRoot(uint32_t root);

  const QString& folder() const { return folder_; }
  QString filePath() const;

  std::optional<RegistryValue> readValue(uint32_t root, const QString& path, const QString& name) const;
  bool keyExists(uint32_t root, const QString& path) const;
  QStringList valueNames(uint32_t root, const QString& path) const;
  QStringList subkeyNames(uint32_t root, const QString& path) const;

  // Each makes the key and any missing parents. False when the path is refused or the
  // file cannot be locked or written.
  [[nodiscard]] bool writeValue(uint32_t root, const QString& path, const QString& name, const RegistryValue& value);
  [[nodiscard]] bool createKey(uint32_t root, const QString& path);
  // Removes the key with all its subkeys; a root cannot be deleted. False when missing.
  [[nodiscard]] bool deleteKey(uint32_t root, const QString& path);
  // False when the key or the value is missing.
  [[nodiscard]] bool deleteValue(uint32_t root, const QString& path, const QString& name);

 private:
  using KeyChange = std::function<bool(QJsonObject& key)>;

  QJsonObject load() const;
  // The key at `path`, or nothing when it or its root is missing or the path is refused.
  std::optional<QJsonObject> findKey(uint32_t root, const QString& path) const;
  // Under the lock: applies `change` to the key named by `segments` (made when `create`)
  // and saves the file when the change says it succeeded.
  bool changeKey(uint32_t root, const QStringList& segments, bool create, const KeyChange& change);
  bool changeKey(uint32_t root, const QString& path, bool create, const KeyChange& change);
  bool save(const QJsonObject& document) const;

  QString folder_;
};

}  // namespace velmora
