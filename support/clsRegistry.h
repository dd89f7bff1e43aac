#pragma once
#include <QString>
#include <QStringList>
#include <QVariant>
#include <cstdint>
#include <optional>

#include "support/RegistryStore.h"

namespace velmora {

// Reads and writes one registry value at a time: the value ValueKey of key SectionKey
// below root ClassKey, typed by ValueType. Reads never raise: a value that cannot be read
// gives Default. Failed changes raise ScriptError 26001 from "velmora.cRegistry"; data
// that does not fit ValueType raises 13.
class clsRegistry {
 public:
  static constexpr long kRegistryError = 26001;

  explicit clsRegistry(const QString& folder = RegistryStore::defaultFolder()) : store_(folder) {}

  uint32_t ClassKey() const { return classKey_; }
  void setClassKey(uint32_t root) { classKey_ = root; }
  const QString& SectionKey() const { return sectionKey_; }
  void setSectionKey(const QString& path) { sectionKey_ = path; }
  const QString& ValueKey() const { return valueKey_; }
  void setValueKey(const QString& name) { valueKey_ = name; }
  // After a successful read, the type found.
  uint32_t ValueType() const { return valueType_; }
  void setValueType(uint32_t type) { valueType_ = type; }
  const QVariant& Default() const { return default_; }
  void setDefault(const QVariant& value) { default_ = value; }
  // "\\name" for another computer. Only this computer's store is served: with a machine
  // named, reads give Default and changes raise.
  const QString& Machine() const { return machine_; }
  void setMachine(const QString& name);
  // There is one view of the store here, not a 32-bit and a 64-bit one: nothing changes.
  void setAccess64bit(bool) {}

  // Text for types 1 and 7 (a list as its items joined by "\0"), 2 with %NAME% expanded
  // from the environment, a 32-bit number for 4 and 5, bytes for any other type.
  QVariant Value();
  // Makes the key. Types 1 and 2 take text (kept as type 2 when it holds a %NAME%
  // reference), 3 a byte array, 4 and 5 a whole number (kept as type 4).
  void setValue(const QVariant& value);
  // The same as Value and setValue after setting the properties from the arguments.
  QVariant ValueEx(uint32_t root, const QString& path, const QString& name, uint32_t type, const QVariant& fallback);
  void setValueEx(uint32_t root, const QString& path, const QString& name, uint32_t type, const QVariant& value);

  bool KeyExists() const;
  void CreateKey();
  // Removes the key with its subkeys.
  void DeleteKey();
  void DeleteValue();
  QStringList EnumerateValues() const;
  QStringList EnumerateSections() const;

 private:
  bool isLocal() const { return machine_.isEmpty(); }
  void point(uint32_t root, const QString& path, const QString& name, uint32_t type);
  // The value as the store keeps it for ValueType; nothing for a type that cannot be
  // written. Raises 13 for data that does not fit the type.
  std::optional<RegistryValue> storedForm(const QVariant& value) const;
  QString where() const;

  RegistryStore store_;
  uint32_t classKey_ = registryroot::CurrentUser;
  QString sectionKey_;
  QString valueKey_;
  uint32_t valueType_ = registrytype::String;
  QVariant default_;
  QString machine_;
};

}  // namespace velmora
