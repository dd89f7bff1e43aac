#pragma once
#include <gtest/gtest.h>

#include <QByteArray>
#include <QMap>
#include <QString>
#include <functional>
#include <optional>
#include <ostream>

#include "core/ScriptError.h"

// Failures show texts as text: gtest prints a QString as its characters, a QByteArray as
// an escaped string, and `<< text` in a message writes the text.
inline void PrintTo(const QString& text, std::ostream* os) { *os << '"' << text.toStdString() << '"'; }
inline void PrintTo(const QByteArray& bytes, std::ostream* os) { *os << testing::PrintToString(bytes.toStdString()); }
inline std::ostream& operator<<(std::ostream& os, const QString& text) { return os << text.toStdString(); }
inline std::ostream& operator<<(std::ostream& os, const QByteArray& bytes) {
  return os << testing::PrintToString(bytes.toStdString());
}

namespace velmora::test {

// The ScriptError a call raises; one numbered 0 when it raises none.
inline ScriptError errorOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const ScriptError& error) {
    return error;
  }
  return ScriptError(0, {});
}
inline long errorNumberOf(const std::function<void()>& call) { return errorOf(call).number(); }

// Sets environment variables (a null value unsets one) and puts the old values back at the end.
class ScopedEnvironment {
 public:
  ScopedEnvironment() = default;
  ScopedEnvironment(const char* name, const QByteArray& value) { set(name, value); }
  void set(const char* name, const QByteArray& value) {
    if (!saved_.contains(name))
      saved_.insert(name, qEnvironmentVariableIsSet(name) ? std::optional(qgetenv(name)) : std::nullopt);
    if (value.isNull())
      qunsetenv(name);
    else
      qputenv(name, value);
  }
  ~ScopedEnvironment() {
    for (auto it = saved_.cbegin(); it != saved_.cend(); ++it) {
      if (it.value())
        qputenv(it.key().constData(), *it.value());
      else
        qunsetenv(it.key().constData());
    }
  }

 private:
  QMap<QByteArray, std::optional<QByteArray>> saved_;
};

}  // namespace velmora::test
