#include "support/clsRegistry.h"

#include "core/ScriptError.h"

#include <cmath>
#include <limits>

namespace velmora {
namespace {

const QString kSource = QStringLiteral("velmora.cRegistry");

ScriptError registryError(const QString& description) {
  return ScriptError(clsRegistry::kRegistryError, description, kSource);
}

ScriptError typeMismatch(uint32_t type, const QString& wanted) {
  return ScriptError(errnum::TypeMismatch,
                     QStringLiteral("Type mismatch: registry value type %1 takes %2").arg(type).arg(wanted), kSource);
}

// "%" and another "%" at least two characters on: room for a name between them.
bool holdsReference(const QString& text) {
  const qsizetype first = text.indexOf(u'%');
  return first >= 0 && text.indexOf(u'%', first + 2) >= 0;
}

// Each %NAME% of a set variable becomes its value. An unknown name stays as written, and
// its closing "%" may open the next reference.
QString expandEnvironment(const QString& text) {
  QString expanded;
  qsizetype from = 0;
  for (;;) {
    const qsizetype open = text.indexOf(u'%', from);
    const qsizetype close = open < 0 ? -1 : text.indexOf(u'%', open + 1);
    if (close < 0) break;
    const QString name = text.mid(open + 1, close - open - 1);
    expanded += text.mid(from, open - from);
    if (!name.isEmpty() && qEnvironmentVariableIsSet(name.toLocal8Bit().constData())) {
      expanded += qEnvironmentVariable(name.toLocal8Bit().constData());
      from = close + 1;
    } else {
      expanded += u'%' + name;
      from = close;
    }
  }
  return expanded + text.mid(from);
}

bool isNumber(const QVariant& value) {
  switch (value.typeId()) {
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Float:
    case QMetaType::Double: return true;
  }
  return false;
}

// Scripts hand numbers over as doubles as often as integers: any whole number in the
// 32-bit range will do.
std::optional<qint32> wholeNumber(const QVariant& value) {
  if (!isNumber(value)) return std::nullopt;
  const double number = value.toDouble();
  if (std::trunc(number) != number || number < std::numeric_limits<qint32>::min() ||
      number > std::numeric_limits<qint32>::max())
    return std::nullopt;
  return qint32(number);
}

// The store keeps numbers as numbers, not as bytes, so a big-endian number needs no
// reversal: it reads as the number written.
QVariant scriptForm(const RegistryValue& value) {
  switch (value.type) {
    case registrytype::String: return value.data.toString();
    case registrytype::StringList: return value.data.toStringList().join(QChar(0));
    case registrytype::ExpandString: return expandEnvironment(value.data.toString());
    case registrytype::Number:
    case registrytype::BigEndianNumber: return qint32(value.data.toUInt());
  }
  return value.data.toByteArray();
}

}  // namespace

void clsRegistry::setMachine(const QString& name) {
  if (name.startsWith(QStringLiteral("\\\\")))
    machine_ = name;
  else
    machine_ = name.size() >= 3 ? QStringLiteral("\\\\") + name : QString();
}

QVariant clsRegistry::Value() {
  if (!isLocal()) return default_;
  const std::optional<RegistryValue> found = store_.readValue(classKey_, sectionKey_, valueKey_);
  if (!found) return default_;
  valueType_ = found->type;
  return scriptForm(*found);
}

void clsRegistry::setValue(const QVariant& value) {
  const std::optional<RegistryValue> stored = storedForm(value);
  if (!isLocal() || !stored || !store_.writeValue(classKey_, sectionKey_, valueKey_, *stored))
    throw registryError(QStringLiteral("Failed to set registry value Key: '") + where() + QStringLiteral("',Key: '") +
                        valueKey_ + QStringLiteral("' to value: '") + value.toString() + u'\'');
}

QVariant clsRegistry::ValueEx(uint32_t root, const QString& path, const QString& name, uint32_t type,
                              const QVariant& fallback) {
  point(root, path, name, type);
  default_ = fallback;
  return Value();
}

void clsRegistry::setValueEx(uint32_t root, const QString& path, const QString& name, uint32_t type,
                             const QVariant& value) {
  point(root, path, name, type);
  setValue(value);
}

bool clsRegistry::KeyExists() const { return isLocal() && store_.keyExists(classKey_, sectionKey_); }

void clsRegistry::CreateKey() {
  if (!isLocal() || !store_.createKey(classKey_, sectionKey_))
    throw registryError(QStringLiteral("Failed to create registry Key: '") + sectionKey_);
}

void clsRegistry::DeleteKey() {
  if (!isLocal() || !store_.deleteKey(classKey_, sectionKey_))
    throw registryError(QStringLiteral("Failed to delete registry Key: '") + where());
}

void clsRegistry::DeleteValue() {
  if (!KeyExists()) throw registryError(QStringLiteral("Failed to open key '") + where() + "' for delete access");
  if (!store_.deleteValue(classKey_, sectionKey_, valueKey_))
    throw registryError(QStringLiteral("Failed to delete registry Key: '") + where() + QStringLiteral("',Key: '") +
                        valueKey_);
}

QStringList clsRegistry::EnumerateValues() const {
  return isLocal() ? store_.valueNames(classKey_, sectionKey_) : QStringList();
}

QStringList clsRegistry::EnumerateSections() const {
  return isLocal() ? store_.subkeyNames(classKey_, sectionKey_) : QStringList();
}

void clsRegistry::point(uint32_t root, const QString& path, const QString& name, uint32_t type) {
  classKey_ = root;
  sectionKey_ = path;
  valueKey_ = name;
  valueType_ = type;
}

std::optional<RegistryValue> clsRegistry::storedForm(const QVariant& value) const {
  switch (valueType_) {
    case registrytype::String:
    case registrytype::ExpandString: {
      const QString text = value.toString();
      return RegistryValue{holdsReference(text) ? registrytype::ExpandString : registrytype::String, text};
    }
    case registrytype::Binary:
      if (value.typeId() != QMetaType::QByteArray) throw typeMismatch(valueType_, QStringLiteral("a byte array"));
      return RegistryValue{registrytype::Binary, value};
    case registrytype::Number:
    case registrytype::BigEndianNumber: {
      const std::optional<qint32> number = wholeNumber(value);
      if (!number) throw typeMismatch(valueType_, QStringLiteral("a whole number from -2147483648 to 2147483647"));
      return RegistryValue{registrytype::Number, quint32(*number)};
    }
  }
  return std::nullopt;
}

// The root in decimal and the key path, as the error texts give them.
QString clsRegistry::where() const { return QString::number(classKey_) + QStringLiteral("',Section: '") + sectionKey_; }

}  // namespace velmora
