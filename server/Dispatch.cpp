#include "server/Dispatch.h"

#include <QMetaMethod>

#include "control/Velmora5.h"
#include "core/ScriptError.h"
#include "support/AutomationNumber.h"

namespace velmora {

namespace {

[[noreturn]] void fail(long number, const QString& text) { throw ScriptError(number, text); }

template <typename Int>
Int toInteger(const QVariant& value) {
  if (value.typeId() == QMetaType::Bool) return value.toBool() ? -1 : 0;
  std::optional<double> number;
  if (value.typeId() == QMetaType::QString) {
    number = NumericValue(value.toString());
  } else {
    bool ok = false;
    const double d = value.toDouble(&ok);
    if (ok) number = d;
  }
  if (!number) fail(errnum::TypeMismatch, QStringLiteral("Type mismatch"));
  return RoundToInteger<Int>(*number);
}

bool toBoolean(const QVariant& value) {
  if (value.typeId() == QMetaType::Bool) return value.toBool();
  if (value.typeId() == QMetaType::QString) {
    const QString text = value.toString().trimmed();
    if (text.compare(u"true", Qt::CaseInsensitive) == 0) return true;
    if (text.compare(u"false", Qt::CaseInsensitive) == 0) return false;
  }
  return toInteger<int32_t>(value) != 0;
}

QString toText(const QVariant& value) {
  if (value.typeId() == QMetaType::Bool) return value.toBool() ? QStringLiteral("True") : QStringLiteral("False");
  if (value.isNull()) return QString();
  if (!value.canConvert<QString>()) fail(errnum::TypeMismatch, QStringLiteral("Type mismatch"));
  return value.toString();
}

// Argument storage for one call through the meta-object system.
struct Argument {
  QString text;
  bool boolean = false;
  int16_t int16 = 0;
  int32_t int32 = 0;

  void* address(VarType type) {
    switch (type) {
      case VarType::Bool: return &boolean;
      case VarType::Int16: return &int16;
      case VarType::Int32: return &int32;
      default: return &text;
    }
  }
  void set(const QVariant& value, VarType type) {
    const QVariant converted = coerce(value, type);
    switch (type) {
      case VarType::Bool: boolean = converted.toBool(); break;
      case VarType::Int16: int16 = static_cast<int16_t>(converted.toInt()); break;
      case VarType::Int32: int32 = converted.toInt(); break;
      default: text = converted.toString(); break;
    }
  }
  QVariant value(VarType type) const {
    switch (type) {
      case VarType::Void: return {};
      case VarType::Bool: return boolean;
      case VarType::Int16: return int16;
      case VarType::Int32: return int32;
      default: return text;
    }
  }
};

int metaMethodIndex(const QObject& object, const QByteArray& name, qsizetype argumentCount) {
  const QMetaObject* meta = object.metaObject();
  for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
    const QMetaMethod method = meta->method(i);
    if (method.name() == name && method.parameterCount() == argumentCount) return i;
  }
  return -1;
}

// Calls through the control's own generated dispatcher, so that a ScriptError thrown by a
// member travels back here through our code only.
QVariant call(QObject& control, const QByteArray& name, const std::vector<VarType>& types, const QVariantList& values,
              VarType result) {
  const int index = metaMethodIndex(control, name, values.size());
  if (index < 0)
    fail(errnum::PropertyOrMethodNotFound, QStringLiteral("Object doesn't support this property or method"));
  std::vector<Argument> arguments(values.size() + 1);
  std::vector<void*> argv(values.size() + 1);
  argv[0] = result == VarType::Void ? nullptr : arguments[0].address(result);
  for (qsizetype i = 0; i < values.size(); ++i) {
    arguments[i + 1].set(values[i], types[i]);
    argv[i + 1] = arguments[i + 1].address(types[i]);
  }
  control.qt_metacall(QMetaObject::InvokeMetaMethod, index, argv.data());
  return arguments[0].value(result);
}

}  // namespace

QVariant coerce(const QVariant& value, VarType type) {
  switch (type) {
    case VarType::Bool: return toBoolean(value);
    case VarType::Int16: return toInteger<int16_t>(value);
    case VarType::Int32: return toInteger<int32_t>(value);
    case VarType::String: return toText(value);
    case VarType::Void: break;
  }
  return {};
}

Dispatch::Dispatch(QObject& control, const ClassInfo& cls) : control_(control), cls_(cls) {}

const MemberInfo& Dispatch::method(const QString& name) const {
  const MemberInfo* member = findMember(cls_.dispatch, name, MemberKind::Method);
  if (!member)
    fail(errnum::PropertyOrMethodNotFound, QStringLiteral("Object doesn't support this property or method: ") + name);
  return *member;
}

QVariant Dispatch::invoke(const QString& name, const QVariantList& args) {
  const MemberInfo& member = method(name);
  if (args.size() > qsizetype(member.params.size()))
    fail(errnum::WrongNumberOfArguments, QStringLiteral("Wrong number of arguments or invalid property assignment"));
  QVariantList values = args;
  std::vector<VarType> types;
  for (size_t i = 0; i < member.params.size(); ++i) {
    const ParamInfo& param = member.params[i];
    types.push_back(param.type);
    if (qsizetype(i) < args.size()) continue;
    if (!param.optional) fail(errnum::ArgumentNotOptional, QStringLiteral("Argument not optional: ") + param.name);
    values.append(QString::fromUtf8(param.defaultValue));
  }
  return call(control_, member.name, types, values, member.result);
}

QVariant Dispatch::get(const QString& name) const {
  const MemberInfo* member = findMember(cls_.dispatch, name, MemberKind::PropertyGet);
  if (!member)
    fail(errnum::PropertyOrMethodNotFound, QStringLiteral("Object doesn't support this property or method: ") + name);
  return control_.property(member->name);
}

void Dispatch::put(const QString& name, const QVariant& value) {
  const MemberInfo* member = findMember(cls_.dispatch, name, MemberKind::PropertyPut);
  if (!member)
    fail(errnum::PropertyOrMethodNotFound, QStringLiteral("Object doesn't support this property or method: ") + name);
  const QByteArray setter = QByteArray("set") + member->name;
  call(control_, setter, {member->params[0].type}, {value}, VarType::Void);
}

QVariantMap Dispatch::readableProperties() const {
  QVariantMap properties;
  for (const MemberInfo& member : cls_.dispatch.members)
    if (member.kind == MemberKind::PropertyGet) properties.insert(member.name, control_.property(member.name));
  return properties;
}

std::unique_ptr<QObject> CreateControl(const QString& className, Context& context, ProducerFactory& producers) {
  const ClassInfo* cls = findClass(className);
  if (cls && QLatin1String(cls->name) == QLatin1String("Velmora5"))
    return std::make_unique<Velmora5>(context, producers);
  fail(429, QStringLiteral("ActiveX component can't create object: ") + className);
}

}  // namespace velmora
