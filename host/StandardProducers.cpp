#include "host/StandardProducers.h"

#include "cleanup/clsQuickFormat.h"
#include "clipboard/clsFlashHeader.h"
#include "office/OfficeEngines.h"
#include "printing/clsStrandelAPI.h"

namespace velmora {

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

std::unique_ptr<WordEngine> StandardProducers::createWordEngine(Context& context, const QString& engine) {
  return velmora::createWordEngine(context, engine);
}

std::unique_ptr<ExcelEngine> StandardProducers::createExcelEngine(Context& context, const QString& engine) {
  return velmora::createExcelEngine(context, engine);
}

std::unique_ptr<SlideExporter> StandardProducers::createSlideExporter(Context& context) {
  return std::make_unique<UnavailableEngine>(context, QStringLiteral("PowerPoint.Application"));
}

std::unique_ptr<DocumentPrinter> StandardProducers::createDocumentPrinter(Context& context) {
  return std::make_unique<UnavailableEngine>(context, QStringLiteral("Word.Application"));
}

std::unique_ptr<FlashHeaderReader> StandardProducers::createFlashHeaderReader(Context& context) {
  return std::make_unique<clsFlashHeader>(context);
}

std::unique_ptr<QuickFormatter> StandardProducers::createQuickFormatter(Context& context) {
  return std::make_unique<clsQuickFormat>(context);
}

std::unique_ptr<CaptureTool> StandardProducers::createCaptureTool(Context& context) {
  return std::make_unique<UnavailableCapture>(context);
}

bool StandardProducers::IsPrinterExist(const QString& printerName) {
  return clsStrandelAPI().IsPrinterExist(printerName);
}

ProducerFactory& standardProducers() {
  static StandardProducers factory;
  return factory;
}

}  // namespace velmora
