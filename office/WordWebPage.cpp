#include "office/WordWebPage.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>
#include <optional>

#include "office/CompanionFolder.h"

namespace velmora {

namespace {

Failure readFailure(const QString& why) { return {QStringLiteral("ReadFile:"), why}; }

QString points(double value) { return QString::number(value, 'f', 1) + QStringLiteral("pt"); }

// The value of one declaration of a CSS block ("margin-left"), or "".
QString declaration(const QString& block, const QString& name) {
  const QRegularExpression pattern(QStringLiteral("(?:^|[;{\\s])") + QRegularExpression::escape(name) +
                                   QStringLiteral("\\s*:\\s*([^;}]+)"));
  return pattern.match(block).captured(1).trimmed();
}

// Top, right, bottom, left from the shorthand's one to four values, then the longhands.
QStringList marginsOf(const QString& block) {
  QStringList sides(4, QStringLiteral("0pt"));
  const QStringList shorthand = declaration(block, QStringLiteral("margin")).split(u' ', Qt::SkipEmptyParts);
  if (!shorthand.isEmpty()) {
    const int n = int(shorthand.size());
    sides = {shorthand[0], shorthand[n > 1 ? 1 : 0], shorthand[n > 2 ? 2 : 0], shorthand[n > 3 ? 3 : (n > 1 ? 1 : 0)]};
  }
  const char* names[] = {"margin-top", "margin-right", "margin-bottom", "margin-left"};
  for (int i = 0; i < 4; ++i)
    if (const QString side = declaration(block, QString::fromLatin1(names[i])); !side.isEmpty()) sides[i] = side;
  return sides;
}

// A CSS length ("8.27in", "2cm", "12pt") in points; nothing for anything else.
std::optional<double> cssLengthInPoints(const QString& length) {
  static const QRegularExpression pattern(QStringLiteral(R"(^\s*([0-9]*\.?[0-9]+)\s*(in|cm|mm|pt|pc|px)\s*$)"));
  const QRegularExpressionMatch m = pattern.match(length);
  if (!m.hasMatch()) return std::nullopt;
  const double value = m.captured(1).toDouble();
  const QString unit = m.captured(2);
  if (unit == u"in") return value * 72;
  if (unit == u"cm") return value * 72 / 2.54;
  if (unit == u"mm") return value * 72 / 25.4;
  if (unit == u"pc") return value * 12;
  if (unit == u"px") return value * 0.75;
  return value;
}

QString inPoints(const QString& length) {
  const std::optional<double> value = cssLengthInPoints(length);
  return value ? points(*value) : length;
}

// "@page { size: 8.27in 11.69in; margin-left: 0.79in; ... }" becomes
// "@page WordSection1 {size:595.4pt 841.7pt; margin:28.1pt 28.1pt 28.1pt 56.9pt;}".
QString wordPageRule(const QString& block) {
  QStringList size = declaration(block, QStringLiteral("size")).split(u' ', Qt::SkipEmptyParts);
  for (QString& length : size) length = inPoints(length);
  QStringList margins = marginsOf(block);
  for (QString& length : margins) length = inPoints(length);
  QString rule = QStringLiteral("@page WordSection1\n\t{");
  if (size.size() == 2) rule += QStringLiteral("size:") + size.join(u' ') + QStringLiteral(";\n\t");
  return rule + QStringLiteral("margin:") + margins.join(u' ') +
         QStringLiteral(";}\ndiv.WordSection1\n\t{page:WordSection1;}");
}

QString reshapeStyle(QString html) {
  static const QRegularExpression pageRule(QStringLiteral(R"(@page\s*\{[^}]*\})"));
  const QRegularExpressionMatch page = pageRule.match(html);
  if (page.hasMatch()) html.replace(page.capturedStart(), page.capturedLength(), wordPageRule(page.captured()));
  static const QRegularExpression style(QStringLiteral(R"(<style[^>]*>([\s\S]*?)</style>)"),
                                        QRegularExpression::CaseInsensitiveOption);
  QString out;
  qsizetype last = 0;
  for (QRegularExpressionMatchIterator it = style.globalMatch(html); it.hasNext();) {
    const QRegularExpressionMatch m = it.next();
    out += html.mid(last, m.capturedStart() - last) + QStringLiteral("<style>\n<!--") + m.captured(1) +
           QStringLiteral("-->\n</style>");
    last = m.capturedEnd();
  }
  return out + html.mid(last);
}

}  // namespace

Outcome shapeAsWordPage(const QString& pagePath) {
  QFile file(pagePath);
  if (!file.open(QIODevice::ReadOnly)) return readFailure(pagePath + QStringLiteral(": ") + file.errorString());
  const QString html = QString::fromUtf8(file.readAll());  // LibreOffice writes its pages in UTF-8
  file.close();

  const QFileInfo page(pagePath);
  CompanionFolder pictures(pagePath, page.absolutePath() + u'/' + page.completeBaseName() + QStringLiteral("_files"));
  if (const Outcome ready = pictures.prepare(); !ready) return ready;
  const QString out = pictures.gather(html);

  QSaveFile shaped(pagePath);
  if (!shaped.open(QIODevice::WriteOnly) || shaped.write(reshapeStyle(out).toUtf8()) < 0 || !shaped.commit())
    return readFailure(pagePath + QStringLiteral(": ") + shaped.errorString());
  pictures.dropOriginals();
  return {};
}

}  // namespace velmora
