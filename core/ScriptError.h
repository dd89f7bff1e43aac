#pragma once
#include <QString>
#include <stdexcept>

namespace velmora {

// An automation error that reaches the page's script as a failed call: an invalid
// regular expression, a clipboard that cannot be opened, an overflowing LocalSize.
// Failures of the work itself never take this road; they leave a word in g_sError.
// `source` names the raising class for a script that tells errors apart by their origin
// ("velmora.cRegistry"); most errors leave it empty.
class ScriptError : public std::runtime_error {
 public:
  ScriptError(long number, const QString& description, const QString& source = QString())
      : std::runtime_error(description.toStdString()), number_(number), description_(description), source_(source) {}
  long number() const { return number_; }
  const QString& description() const { return description_; }
  const QString& source() const { return source_; }

 private:
  long number_;
  QString description_;
  QString source_;
};

// Error numbers the automation layer itself uses.
namespace errnum {
constexpr long Overflow = 6;
constexpr long OutOfMemory = 7;
constexpr long SubscriptOutOfRange = 9;
constexpr long TypeMismatch = 13;
constexpr long ArgumentNotOptional = 449;
constexpr long WrongNumberOfArguments = 450;
constexpr long PropertyOrMethodNotFound = 438;
constexpr long InvalidProcedureCall = 5;
constexpr long RegExpSyntax = 5017;
constexpr long RegExpGaveUp = 5020;  // the engine could not finish a match
}  // namespace errnum

}  // namespace velmora
