#include "office/clsPPT.h"

#include <cmath>

#include "clipboard/clsSaveBitmapAs.h"
#include "core/OptionString.h"
#include "core/Yield.h"
#include "office/OfficeApplication.h"
#include "support/basPublic.h"

namespace velmora {

namespace {

// The text in front of the slide number in the exported names: "Slide1.png", "Slide11.png"
// and "Slide21.PNG" all give "Slide".
QString slidePrefix(const QString& firstListed) {
  QString prefix = firstListed.chopped(std::min<qsizetype>(5, firstListed.size()));
  while (!prefix.isEmpty() && prefix.back().isDigit()) prefix.chop(1);
  return prefix;
}

// A width in pixels, or 0 when "tw" is missing, not a number or not above 0.
int targetWidth(const QString& options) {
  bool number = false;
  const double width = GetOptValue(options, QStringLiteral("tw")).toDouble(&number);
  return number && width >= 0.5 && width < 1e6 ? int(std::lround(width)) : 0;
}

}  // namespace

clsPPT::clsPPT(Context& context, std::unique_ptr<OfficeAutomation> office)
    : context_(context), office_(std::move(office)) {}

Result<QString> clsPPT::PPT2Images(const QString& file, const QString& options) {
  letPendingEventsRun();
  const QString imageType = pictureTypeOption(options);
  const QString api = apiOption(options);
  const int width = targetWidth(options);

  if (const Outcome created =
          createAsAsked(*office_, api, QStringLiteral("PowerPoint.Application"), QStringLiteral("WPP.Application"));
      !created)
    return created.failure();
  const QString folder = context_.g_sTempFolder + GetTimeStamp() + u'/';
  OfficeJob job{OfficeJob::Kind::SlidePictures, absolutePath(file), folder + QStringLiteral("Slide"), imageType};
  const OfficeAnswer exported = office_->run(job);
  letPendingEventsRun();
  if (exported.failedStage == u"CreateObject" || exported.failedStage == u"Open") return stageFailure(exported);
  // A failed export is not reported for itself: the listing below finds no slides.
  const qsizetype count = exported.files.size();

  QStringList listed;
  ListFiles(listed, folder, {}, QStringLiteral("1.") + imageType);
  if (listed.isEmpty()) return statusWord(QStringLiteral("NoMatchFile"));
  const QString prefix = slidePrefix(listed.first());
  if (prefix.isEmpty()) return statusWord(QStringLiteral("NoFoundKey"));
  QString html;
  for (qsizetype i = 1; i <= count; ++i) {
    QString name = folder + prefix + QString::number(i) + u'.' + imageType;
    if (width > 0) {
      const QString scaled = folder + prefix + QString::number(i) + QStringLiteral("s.") + imageType;
      ResizeImageFile(name, scaled, width, -1);
      name = scaled;
    }
    html += QStringLiteral("<img src=\"") + name + QStringLiteral("\" border=0><br>");
  }
  return html;
}

}  // namespace velmora
