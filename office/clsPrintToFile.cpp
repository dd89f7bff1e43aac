#include "office/clsPrintToFile.h"

#include <QFile>
#include <QScopeGuard>

#include "core/OptionString.h"
#include "core/Text.h"
#include "core/Yield.h"
#include "office/OfficeApplication.h"
#include "support/basPublic.h"

namespace velmora {

namespace {

const QString kPrinter = QStringLiteral("VelmoraPrinter");

// A page's side, given in hundredths of a millimetre, in whole tenths of a millimetre (the
// word processor's centimetres with two decimals), as thousandths of a millimetre. The
// office's sizes are off by a hundredth either way from what the document says (10 cm may
// read 9999), so the nearest tenth is taken rather than the one below: A4's 21000 or
// 21001 are 210000.
int thousandths(int hundredthsOfMm) { return (hundredthsOfMm + 5) / 10 * 100; }

}  // namespace

clsPrintToFile::clsPrintToFile(Context& context, std::unique_ptr<OfficeAutomation> office, PrintLimits limits,
                               clsStrandelAPI printer)
    : context_(context), office_(std::move(office)), limits_(limits), printer_(printer) {}

bool clsPrintToFile::paperFor(const QSize& page, QString& form) {
  const QSize size(thousandths(page.width()), thousandths(page.height()));
  if (printer_.FindFormBySize(kPrinter, size, form)) return true;
  form = QStringLiteral("%1x%2").arg(size.width()).arg(size.height());
  return printer_.AddPaperForm(kPrinter, size, form);
}

bool clsPrintToFile::writeSettings(const QString& imageType, const QString& baseName) {
  if (!printer_.SetParam(kPrinter, QStringLiteral("file_format"), imageType)) return false;
  const std::pair<const char*, QString> rest[] = {
      {"originalname", QStringLiteral("false")},
      {"jobid", QStringLiteral("false")},
      {"file_name", baseName},
      {"jpg_quality", QStringLiteral("100")},
      {"color", imageType == u"gif" ? QStringLiteral("8") : QStringLiteral("24")},
      {"path", context_.g_sTempFolder},
      {"load_extapp", QStringLiteral("false")},
  };
  for (const auto& [name, value] : rest) printer_.SetParam(kPrinter, QString::fromLatin1(name), value);
  printer_.ResetStatus(kPrinter);
  return true;
}

Result<QString> clsPrintToFile::Word2Images(const QString& file, const QString& options) {
  letPendingEventsRun();
  // The print server is what knows its printers: when it does not answer, that is the
  // reason to give, not the printer's absence.
  if (!printer_.IsPrinterExist(kPrinter)) {
    if (!printer_.IsPrintSpoolerRunning() && !printer_.StartPrintSpooler())
      return statusWord(QStringLiteral("Printer:SpoolerNotRunning"));
    if (!printer_.IsPrinterExist(kPrinter)) return statusWord(QStringLiteral("Printer:NotExist"));
  }
  QString previous;
  if (!printer_.SetDefaultPrinter(kPrinter, previous)) return statusWord(QStringLiteral("Printer:SetDefault"));
  letPendingEventsRun();
  if (!printer_.SetDefaultPaperSize(kPrinter, QStringLiteral("A4"))) return statusWord(QStringLiteral("Printer:A4"));

  const QString imageType = pictureTypeOption(options);
  const QString api = apiOption(options);
  if (const Outcome created =
          createAsAsked(*office_, api, QStringLiteral("Word.Application"), QStringLiteral("WPS.Application"));
      !created)
    return created.failure();

  // The word processor's print: the document as PDF, which carries each page's own size.
  const QString pdf = context_.g_sTempFolder + QStringLiteral("Velmora_Temp_Print.pdf");
  const auto removePdf = qScopeGuard([&] { QFile::remove(pdf); });
  const OfficeAnswer saved = office_->run({OfficeJob::Kind::PdfDocument, absolutePath(file), pdf, {}});
  letPendingEventsRun();
  if (!saved.ok()) return stageFailure(saved);
  // The printer's paper follows the first page, as the word processor sets it.
  QString form;
  const bool known = paperFor(saved.firstPage, form);
  if (!known || form != u"A4") {
    if (!known || !printer_.SetDefaultPaperSize(kPrinter, form)) return statusWord(QStringLiteral("Printer:") + form);
  }

  const QString baseName = GetTimeStamp();
  if (!writeSettings(imageType, baseName)) return statusWord(QStringLiteral("Printer:Registry"));
  const bool printed = printer_.PrintFile(pdf) || printer_.PrintFile(file);
  letPendingEventsRun();
  if (!printed) return statusWord(QStringLiteral("PrintOut"));
  if (!printer_.IsEnd(kPrinter, limits_.begin, limits_.end)) return statusWord(QStringLiteral("Printer:Timeout"));

  QString html;
  const int count = printer_.GetFileCount(kPrinter);
  for (int i = 1; i <= count; ++i)
    html += pictureFragment(context_.g_sTempFolder + baseName + u'_' + QString::number(i) + u'.' + imageType);
  if (!previous.isEmpty() && previous != kPrinter) printer_.SetDefaultPrinter(previous, previous);
  return html;
}

}  // namespace velmora
