#include "office/SheetWebPage.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>

#include "office/CompanionFolder.h"

namespace velmora {

namespace {

Failure readFailure(const QString& why) { return {QStringLiteral("ReadFile:"), why}; }

struct SheetSection {
  int place = 0;  // the sheet's place in the saved copy, from 0
  QString table;
};

// Each sheet's part of the workbook page: from the end of its anchor and heading to the
// separator LibreOffice writes after it (or the next anchor, or the end of the body).
QList<SheetSection> sectionsOf(const QString& body) {
  static const QRegularExpression anchor(QStringLiteral(R"re(<a name="table(\d+)">[\s\S]*?</a>)re"),
                                         QRegularExpression::CaseInsensitiveOption);
  static const QRegularExpression end(QStringLiteral(R"re(<!-- \*+ -->|<a name="table\d+">|</body>)re"),
                                      QRegularExpression::CaseInsensitiveOption);
  const auto upToTheEnd = [&](qsizetype from) {
    const QRegularExpressionMatch stop = end.match(body, from);
    return body.mid(from, (stop.hasMatch() ? stop.capturedStart() : body.size()) - from).trimmed();
  };
  QList<SheetSection> sections;
  for (QRegularExpressionMatchIterator it = anchor.globalMatch(body); it.hasNext();) {
    const QRegularExpressionMatch m = it.next();
    sections.append({m.captured(1).toInt(), upToTheEnd(m.capturedEnd())});
  }
  // A workbook of one sheet is written without the links and the anchor.
  if (sections.isEmpty() && body.contains(QStringLiteral("<table"), Qt::CaseInsensitive))
    sections.append({0, upToTheEnd(0)});
  return sections;
}

// The values LibreOffice keeps beside a number cell's text (sdval, sdnum) are its own; the
// sheet's page shows the text.
QString withoutOfficeCellData(const QString& table) {
  static const QRegularExpression data(QStringLiteral(R"re(\s+sd(?:val|num)="[^"]*")re"),
                                       QRegularExpression::CaseInsensitiveOption);
  return QString(table).remove(data);
}

Outcome writePage(const QString& path, const QString& html) {
  QSaveFile page(path);
  if (!page.open(QIODevice::WriteOnly) || page.write(html.toUtf8()) < 0 || !page.commit())
    return readFailure(path + QStringLiteral(": ") + page.errorString());
  return {};
}

}  // namespace

QString sheetPagePath(const QString& workingFolder, int sheetNumber) {
  return workingFolder + QStringLiteral("Velmora_Temp_Excel_Sheet") + QString::number(sheetNumber) +
         QStringLiteral(".html");
}

Result<QList<int>> splitIntoSheetPages(const QString& workbookPage, const QString& workingFolder,
                                       const QList<int>& sheetNumbers) {
  QFile file(workbookPage);
  if (!file.open(QIODevice::ReadOnly)) return readFailure(workbookPage + QStringLiteral(": ") + file.errorString());
  const QString html = QString::fromUtf8(file.readAll());  // LibreOffice writes its pages in UTF-8
  file.close();
  static const QRegularExpression bodyStart(QStringLiteral(R"(<body[^>]*>)"),
                                            QRegularExpression::CaseInsensitiveOption);
  const QRegularExpressionMatch body = bodyStart.match(html);
  const QString head = body.hasMatch() ? html.left(body.capturedEnd()) : QStringLiteral("<html><body>");

  QList<int> written;
  QList<CompanionFolder> folders;
  for (const SheetSection& section : sectionsOf(body.hasMatch() ? html.mid(body.capturedEnd()) : html)) {
    const int number = sheetNumbers.value(section.place);
    if (number <= 0) continue;  // a sheet the office was not asked for
    const QString page = sheetPagePath(workingFolder, number);
    const QFileInfo pageInfo(page);
    CompanionFolder& pictures =
        folders.emplace_back(workbookPage, pageInfo.absolutePath() + u'/' + pageInfo.completeBaseName() + "_files");
    if (const Outcome ready = pictures.prepare(); !ready) return ready.failure();
    const QString division =
        QStringLiteral("<div id=\"Velmora_Excel_Sheet_Div%1\" align=center x:publishsource=\"Excel\">\n").arg(number);
    const Outcome saved =
        writePage(page, head + u'\n' + division + pictures.gather(withoutOfficeCellData(section.table)) +
                            QStringLiteral("\n</div>\n</body>\n</html>\n"));
    if (!saved) return saved.failure();
    written << number;
  }
  for (const CompanionFolder& pictures : folders) pictures.dropOriginals();
  QFile::remove(workbookPage);
  return written;
}

}  // namespace velmora
