#include "office/CompanionFolder.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QUrl>

#include "support/basPublic.h"

namespace velmora {

CompanionFolder::CompanionFolder(const QString& savedPage, const QString& companion)
    : folder_(QFileInfo(savedPage).absolutePath() + u'/'),
      base_(QFileInfo(savedPage).completeBaseName()),
      companionName_(QFileInfo(companion).fileName()) {}

Outcome CompanionFolder::prepare() const {
  const QString companion = folder_ + companionName_;
  DeleteFolder(companion);
  if (!QDir().mkpath(companion))
    return Failure{QStringLiteral("ReadFile:"), QStringLiteral("cannot create ") + companion};
  return {};
}

QString CompanionFolder::gather(const QString& html) {
  static const QRegularExpression source(QStringLiteral(R"((<img\b[^>]*?\bsrc=")([^"]*)("))"),
                                         QRegularExpression::CaseInsensitiveOption);
  QString out;
  qsizetype last = 0;
  for (QRegularExpressionMatchIterator it = source.globalMatch(html); it.hasNext();) {
    const QRegularExpressionMatch m = it.next();
    QString src = m.captured(2);
    if (const QString name = ownPictureName(src); !name.isEmpty()) {
      const QString target = folder_ + companionName_ + u'/' + name;
      if (QFileInfo::exists(target) || QFile::copy(folder_ + name, target)) {
        taken_.insert(name);
        src = (companionName_ + u'/' + name).toHtmlEscaped();
      }
    }
    out += html.mid(last, m.capturedStart(2) - last) + src;
    last = m.capturedEnd(2);
  }
  return out + html.mid(last);
}

void CompanionFolder::dropOriginals() const {
  for (const QString& name : taken_) QFile::remove(folder_ + name);
}

QString CompanionFolder::ownPictureName(const QString& src) const {
  QString path = QUrl::fromPercentEncoding(src.toUtf8());
  if (path.startsWith(u"file://")) path = QUrl(src).toLocalFile();
  const QString name = path.startsWith(folder_) ? path.mid(folder_.size()) : path;
  if (name.contains(u'/') || name.contains(u'\\') || !name.startsWith(base_ + QStringLiteral("_html_"))) return {};
  const QFileInfo file(folder_ + name);
  return file.isFile() && !file.isSymLink() ? name : QString();
}

}  // namespace velmora
