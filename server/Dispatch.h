#pragma once
#include <QObject>
#include <QVariant>
#include <QVariantList>
#include <QVariantMap>
#include <memory>

#include "core/Context.h"
#include "core/Producers.h"
#include "server/TypeLibrary.h"

namespace velmora {

// Late-bound access to a control, the way a page's script reaches it: members found by
// name in the type library, omitted optional arguments filled with their defaults,
// arguments converted with automation's rules. Every failure a script would see (unknown
// member, wrong argument count, a type mismatch, an error the member raises) is thrown as
// ScriptError. The command line and the agent both go through here.
class Dispatch {
 public:
  Dispatch(QObject& control, const ClassInfo& cls);

  QVariant invoke(const QString& member, const QVariantList& args);
  QVariant get(const QString& property) const;
  void put(const QString& property, const QVariant& value);
  // Every readable property by name.
  QVariantMap readableProperties() const;

  const ClassInfo& classInfo() const { return cls_; }
  const MemberInfo& method(const QString& name) const;

 private:
  QObject& control_;
  const ClassInfo& cls_;
};

// Converts a script value to the member's parameter type with automation's rules:
// numbers and numeric text to integers (nearest, half to even; Overflow outside the
// range), "true"/"false" and numbers to booleans, anything to text. Throws ScriptError.
QVariant coerce(const QVariant& value, VarType type);

// Creates the control named `className` ("Velmora5", "VelmoraMFU5") in `context`, its flows
// served by `producers`; throws ScriptError when the class cannot be created.
std::unique_ptr<QObject> CreateControl(const QString& className, Context& context, ProducerFactory& producers);

}  // namespace velmora
