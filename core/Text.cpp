#include "core/Text.h"

#include <algorithm>

namespace velmora {

QString trimBlanks(const QString& text) {
  qsizetype first = 0, last = text.size();
  while (first < last && text[first] == u' ') ++first;
  while (last > first && text[last - 1] == u' ') --last;
  return text.mid(first, last - first);
}

QString fileNameOf(const QString& path) {
  return path.mid(std::max(path.lastIndexOf(u'/'), path.lastIndexOf(u'\\')) + 1);
}

QString pictureFragment(const QString& path) {
  return QStringLiteral("<img src=\"") + path + QStringLiteral("\" border=0><br>");
}

}  // namespace velmora
