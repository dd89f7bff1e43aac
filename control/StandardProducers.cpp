#include "control/Producers.h"

#include "cleanup/clsQuickFormat.h"
#include "clipboard/clsFlashHeader.h"
#include "office/OfficeEngines.h"
#include "printing/clsStrandelAPI.h"

namespace velmora {

QString creationFailure(const QString& progId) {
  if (progId.startsWith(u"WPS.") || progId.startsWith(u"ET.") || progId.startsWith(u"WPP."))
    return QStringLiteral("CreateObject:") + progId + QStringLiteral(": WPS Office is not installed on this system");
  return QStringLiteral("CreateObject:") + progId +
         QStringLiteral(": this engine is not available in this build of Velmora");
}

namespace {

// Every member fails the way the component behaves where its engine cannot be created:
// the error text is cleared as the member starts, then "CreateObject:" and the reason.
class UnavailableEngine : public SlideExporter, public DocumentPrinter {
 public:
  UnavailableEngine(Context& context, QString progId) : context_(context), progId_(std::move(progId)) {}

  bool Word2Images(const QString&, const QString&, QString&) override { return fail(); }
  bool PPT2Images(const QString&, const QString&, QString&) override { return fail(); }

 private:
  bool fail() {
    context_.g_sError = creationFailure(progId_);
    return false;
  }
  Context& context_;
  QString progId_;
};

class UnavailableCapture : public CaptureTool {
 public:
  UnavailableCapture(Context& context) : context_(context) {}
  void Capture() override {
    context_.g_sError = creationFailure(QStringLiteral("Velmora.Capture"));
  }

 private:
  Context& context_;
};

}  // namespace

std::unique_ptr<WordEngine> ProducerFactory::createWordEngine(Context& context, const QString& engine) {
  return velmora::createWordEngine(context, engine);
}

std::unique_ptr<ExcelEngine> ProducerFactory::createExcelEngine(Context& context, const QString& engine) {
  return velmora::createExcelEngine(context, engine);
}

std::unique_ptr<SlideExporter> ProducerFactory::createSlideExporter(Context& context) {
  return std::make_unique<UnavailableEngine>(context, QStringLiteral("PowerPoint.Application"));
}

std::unique_ptr<DocumentPrinter> ProducerFactory::createDocumentPrinter(Context& context) {
  return std::make_unique<UnavailableEngine>(context, QStringLiteral("Word.Application"));
}

std::unique_ptr<FlashHeaderReader> ProducerFactory::createFlashHeaderReader(Context& context) {
  return std::make_unique<clsFlashHeader>(context);
}

std::unique_ptr<QuickFormatter> ProducerFactory::createQuickFormatter(Context& context) {
  return std::make_unique<clsQuickFormat>(context);
}

std::unique_ptr<CaptureTool> ProducerFactory::createCaptureTool(Context& context) {
  return std::make_unique<UnavailableCapture>(context);
}

bool ProducerFactory::IsPrinterExist(const QString& printerName) {
  return clsStrandelAPI().IsPrinterExist(printerName);
}

ProducerFactory& ProducerFactory::standard() {
  static ProducerFactory factory;
  return factory;
}

}  // namespace velmora
