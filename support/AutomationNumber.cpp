#include "support/AutomationNumber.h"

#include <QLocale>

namespace velmora {

std::optional<double> NumericValue(const QString& text) {
  bool ok = false;
  const double value = QLocale::c().toDouble(text.trimmed(), &ok);
  if (!ok || !std::isfinite(value)) return std::nullopt;
  return value;
}

}  // namespace velmora
