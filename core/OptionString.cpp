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

QString pictureTypeOption(const QString& options) {
  const QString type = GetOptValue(options, QStringLiteral("imgtype"));
  return type == u"gif" || type == u"png" ? type : QStringLiteral("jpg");
}

QString apiOption(const QString& options) {
  const QString api = GetOptValue(options, QStringLiteral("api"));
  return api == u"0" || api == u"2" ? api : QStringLiteral("1");
}

}  // namespace velmora
