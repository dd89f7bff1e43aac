#include "office/clsMicrosoftExcel.h"

#include <QFile>

#include "core/OptionString.h"
#include "core/Text.h"
#include "core/Yield.h"
#include "office/CleanupAside.h"
#include "office/SheetWebPage.h"
#include "support/basPublic.h"

namespace velmora {

clsMicrosoftExcel::clsMicrosoftExcel(Context& context, std::unique_ptr<OfficeAutomation> office)
    : context_(context), application_(std::move(office), QStringLiteral("Excel.Application")) {}

Result<QString> clsMicrosoftExcel::GetExcelWorkSheetName(const QString& file) {
  letPendingEventsRun();
  if (const Outcome created = application_.create(); !created) return created.failure();
  OfficeJob job{OfficeJob::Kind::SheetNames, absolutePath(file), {}, {}};
  const OfficeAnswer names = application_.run(job);
  if (!names.ok()) return stageFailure(names);
  return names.names.join(QStringLiteral("\r\n"));
}

Result<StyledHtml> clsMicrosoftExcel::Excel2HTML(const QString& file, int16_t sheet, const QString& options) {
  letPendingEventsRun();
  if (const Outcome created = application_.create(); !created) return created.failure();

  const QString folder = context_.g_sTempFolder;
  const QString workbookPage = folder + QStringLiteral("Velmora_Temp_Excel_Workbook.html");
  QFile::remove(workbookPage);  // the split below must find this call's page, or none
  OfficeJob job{OfficeJob::Kind::SheetPages, absolutePath(file), workbookPage, {}};
  job.sheet = sheet;
  const OfficeAnswer saved = application_.run(job);
  if (!saved.ok()) return stageFailure(saved);
  StyledHtml html;
  if (saved.sheets.isEmpty()) return html;  // no visible sheet: nothing to import
  if (!FileExists(workbookPage))
    return Failure{QStringLiteral("ReadFile:"), QStringLiteral("no page was written for ") + file};
  // Sheets without content have no part in the page, so they give no page and add nothing.
  const Result<QList<int>> pages = splitIntoSheetPages(workbookPage, folder, saved.sheets);
  if (!pages) return pages.failure();
  for (const int number : pages.value()) {
    const QString page = sheetPagePath(folder, number);
    if (!FileExists(page)) return Failure{QStringLiteral("ReadFile:"), page + QStringLiteral(" was not written")};
    const StyledHtml cleaned = cleanUpSheetAside(context_, QStringLiteral("import"), ReadTextFile(page), {}, options);
    html.style += cleaned.style;
    html.body += cleaned.body;
  }
  return html;
}

Result<QString> clsMicrosoftExcel::Excel2Images(const QString& file, int16_t sheet, const QString& options) {
  letPendingEventsRun();
  const QString imageType = pictureTypeOption(options);
  if (const Outcome created = application_.create(); !created) return created.failure();

  OfficeJob job{OfficeJob::Kind::SheetPictures, absolutePath(file), context_.g_sTempFolder + GetTimeStamp(), imageType};
  job.sheet = sheet;  // a number the workbook does not have draws nothing
  const OfficeAnswer drawn = application_.run(job);
  if (!drawn.ok()) return stageFailure(drawn);
  QString html;
  for (const QString& picture : drawn.files) html += pictureFragment(picture);
  return html;
}

}  // namespace velmora
