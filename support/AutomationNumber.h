#pragma once
#include <QString>
#include <cmath>
#include <limits>
#include <optional>

#include "core/ScriptError.h"

namespace velmora {

// The platform's text-to-number rules for properties that take numbers as text: blanks
// around the text, a sign, a decimal fraction and an exponent are accepted, always with
// "." as the decimal separator. Anything else is not a number.
std::optional<double> NumericValue(const QString& text);

// A number converted to an integer type the automation way: a fraction goes to the
// nearest integer and a half to the even one; outside the type's range is an Overflow.
template <typename Int>
Int RoundToInteger(double value) {
  const double rounded = std::nearbyint(value);  // the default rounding mode sends halves to even
  if (!(rounded >= double(std::numeric_limits<Int>::min()) && rounded <= double(std::numeric_limits<Int>::max())))
    throw ScriptError(errnum::Overflow, QStringLiteral("Overflow"));
  return static_cast<Int>(rounded);
}

}  // namespace velmora
