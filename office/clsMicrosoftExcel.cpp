#include "office/clsMicrosoftExcel.h"

#include <QFile>
#include <QFileInfo>

#include "core/OptionString.h"
#include "core/Text.h"
#include "core/Yield.h"
#include "office/CleanupAside.h"
#include "office/SheetWebPage.h"
#include "support/basPublic.h"

namespace velmora {

namespace {

Failure stageFailure(const OfficeAnswer& answer) { return {answer.failedStage + u':', answer.description}; }

// The office helper runs in a folder of its own: a relative path means the caller's folder.
QString absolute(const QString& file) { return QFileInfo(file).absoluteFilePath(); }

}  // namespace

clsMicrosoftExcel::clsMicrosoftExcel(Context& context, std::unique_ptr<OfficeAutomation> office)
    : context_(context), office_(std::move(office)) {}

Outcome clsMicrosoftExcel::createApplication() {
  const Outcome created = office_->CreateObject(QStringLiteral("Excel.Application"));
  letPendingEventsRun();
  return created;
}

OfficeAnswer clsMicrosoftExcel::runJob(const OfficeJob& job) {
  OfficeAnswer answer = office_->run(job);
  letPendingEventsRun();
  return answer;
}

Result<QString> clsMicrosoftExcel::GetExcelWorkSheetName(const QString& file) {
  letPendingEventsRun();
  if (const Outcome created = createApplication(); !created) return created.failure();
  OfficeJob job{OfficeJob::Kind::SheetNames, absolute(file), {}, {}};
  const OfficeAnswer names = runJob(job);
  if (!names.ok()) return stageFailure(names);
  return names.names.join(QStringLiteral("\r\n"));
}

Result<StyledHtml> clsMicrosoftExcel::Excel2HTML(const QString& file, int16_t sheet, const QString& options) {
  letPendingEventsRun();
  if (const Outcome created = createApplication(); !created) return created.failure();

  const QString folder = context_.g_sTempFolder;
  const QString workbookPage = folder + QStringLiteral("Velmora_Temp_Excel_Workbook.html");
  QFile::remove(workbookPage);  // the split below must find this call's page, or none
  OfficeJob job{OfficeJob::Kind::SheetPages, absolute(file), workbookPage, {}};
  job.sheet = sheet;
  const OfficeAnswer saved = runJob(job);
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
  QString imageType = GetOptValue(options, QStringLiteral("imgtype"));
  if (imageType != u"gif" && imageType != u"png") imageType = QStringLiteral("jpg");
  if (const Outcome created = createApplication(); !created) return created.failure();

  OfficeJob job{OfficeJob::Kind::SheetPictures, absolute(file), context_.g_sTempFolder + GetTimeStamp(), imageType};
  job.sheet = sheet;  // a number the workbook does not have draws nothing
  const OfficeAnswer drawn = runJob(job);
  if (!drawn.ok()) return stageFailure(drawn);
  QString html;
  for (const QString& picture : drawn.files) html += pictureFragment(picture);
  return html;
}

}  // namespace velmora
