#include "office/clsWPSExcel.h"

#include "core/Yield.h"
#include "office/CleanupAside.h"
#include "support/basPublic.h"

namespace velmora {

namespace {

Failure unreadable(const QString& path) {
  return {QStringLiteral("ReadFile:"), QStringLiteral("there is no file ") + path};
}

// "|2" for the sheet asked for, or "|001|003" for every sheet holding a filled cell.
QString sheetList(int16_t sheet, const QList<int>& filled) {
  if (sheet != 0) return u'|' + QString::number(sheet);
  QString list;
  for (const int number : filled) list += u'|' + PadNumber(number, 3, 0);
  return list;
}

}  // namespace

clsWPSExcel::clsWPSExcel(Context& context, std::unique_ptr<OfficeAutomation> office)
    : context_(context), application_(std::move(office), QStringLiteral("ET.Application")) {}

Result<QString> clsWPSExcel::GetExcelWorkSheetName(const QString& file) {
  letPendingEventsRun();
  if (const Outcome created = application_.create(); !created) return created.failure();
  const OfficeAnswer names = application_.run({OfficeJob::Kind::SheetNames, absolutePath(file), {}, {}});
  if (!names.ok()) return stageFailure(names);
  return names.names.join(QStringLiteral("\r\n"));
}

Result<StyledHtml> clsWPSExcel::Excel2HTML(const QString& file, int16_t sheet, const QString& options) {
  letPendingEventsRun();
  if (const Outcome created = application_.create(); !created) return created.failure();
  const QString folder = context_.g_sTempFolder;
  const QString workbookPage = folder + QStringLiteral("Velmora_Temp_ET.htm");
  const QString pages = folder + QStringLiteral("Velmora_Temp_ET.files/");
  const OfficeAnswer saved = application_.run({OfficeJob::Kind::WorkbookPage, absolutePath(file), workbookPage, {}});
  if (!saved.ok()) return stageFailure(saved);
  const QString list = sheetList(sheet, saved.sheets);
  if (list.isEmpty()) return Failure{};  // every sheet is empty: nothing, and no error either

  const auto clean = [&](const QString& page, const QString& extraCss) {
    return cleanUpSheetAside(context_, QStringLiteral("import"), ReadTextFile(page), extraCss, options);
  };
  // Without the folder, WPS saved the workbook as one page: that is the import, whichever
  // sheet was asked for.
  if (!FolderExists(pages)) {
    if (!FileExists(workbookPage)) return unreadable(workbookPage);
    return clean(workbookPage, {});
  }
  const QString styleSheet = pages + QStringLiteral("stylesheet.css");
  const QString extraCss = FileExists(styleSheet) ? ReadTextFile(styleSheet) : QString();
  StyledHtml html;
  for (const QString& entry : list.split(u'|', Qt::SkipEmptyParts)) {
    const QString page = pages + QStringLiteral("sheet") + PadNumber(entry.toInt(), 3, 0) + QStringLiteral(".htm");
    if (!FileExists(page)) return unreadable(page);
    const StyledHtml cleaned = clean(page, extraCss);
    html.style += cleaned.style;
    html.body += cleaned.body;
  }
  return html;
}

}  // namespace velmora
