#include "core/OptionString.h"

#include <QStringList>

#include "core/Text.h"

namespace velmora {

QString GetOptValue(const QString& options, const QString& key, const QString& defaultValue,
                    const QString& itemSeparator, const QString& keySeparator) {
  if (options.isEmpty()) return defaultValue;
  const QString wanted = key.toLower();
  for (const QString& item : options.split(itemSeparator)) {
    const QStringList pieces = item.split(keySeparator);
    if (pieces.size() == 2 && trimBlanks(pieces[0]).toLower() == wanted) return trimBlanks(pieces[1]);
  }
  return defaultValue;
}

}  // namespace velmora
