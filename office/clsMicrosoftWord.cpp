#include "office/clsMicrosoftWord.h"

#include <QFile>

#include "core/OptionString.h"
#include "core/Text.h"
#include "core/Yield.h"
#include "office/WordWebPage.h"
#include "support/basPublic.h"

namespace velmora {

clsMicrosoftWord::clsMicrosoftWord(Context& context, std::unique_ptr<OfficeAutomation> office, QString progId)
    : context_(context), application_(std::move(office), std::move(progId)) {}

Result<QString> clsMicrosoftWord::Word2HTML(const QString& file) {
  letPendingEventsRun();
  const QString pagePath = context_.g_sTempFolder + QStringLiteral("Velmora_Temp_Word_Doc.html");
  if (const Outcome created = application_.create(); !created) return created.failure();

  QFile::remove(pagePath);  // the read-back below must find this call's page, or none
  const OfficeAnswer saved = application_.run({OfficeJob::Kind::WebPage, absolutePath(file), pagePath, {}});
  if (saved.failedStage == u"CreateObject" || saved.failedStage == u"Open") return stageFailure(saved);
  // A failed save is not reported for itself: whether the page exists decides.
  if (!FileExists(pagePath))
    return Failure{QStringLiteral("ReadFile:"),
                   saved.ok() ? QStringLiteral("no page was written for ") + file : saved.description};
  if (const Outcome shaped = shapeAsWordPage(pagePath); !shaped) return shaped.failure();
  return ReadTextFile(pagePath);
}

Result<QString> clsMicrosoftWord::Word2Images(const QString& file, const QString& options) {
  letPendingEventsRun();
  const QString imageType = pictureTypeOption(options);
  if (const Outcome created = application_.create(); !created) return created.failure();

  const QString stem = context_.g_sTempFolder + GetTimeStamp();
  const OfficeAnswer drawn = application_.run({OfficeJob::Kind::PagePictures, absolutePath(file), stem, imageType});
  // A page that could not be saved is left out and the others still come; but an office
  // that stopped while drawing (it crashed, or passed its time limit) leaves nothing to
  // show, and the user hears why rather than getting an empty import.
  if (!drawn.ok()) return stageFailure(drawn);
  QString html;
  for (const QString& picture : drawn.files) html += pictureFragment(picture);
  return html;
}

}  // namespace velmora
