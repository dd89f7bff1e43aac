#include "host/StandardProducers.h"

#include "cleanup/clsQuickFormat.h"
#include "clipboard/clsFlashHeader.h"
#include "office/OfficeEngines.h"
#include "office/clsPPT.h"
#include "office/clsPrintToFile.h"
#include "printing/clsStrandelAPI.h"

namespace velmora {

namespace {

class UnavailableCapture : public CaptureTool {
 public:
  Outcome Capture() override { return creationFailure(QStringLiteral("Velmora.Capture")); }
};

}  // namespace

std::unique_ptr<WordEngine> StandardProducers::createWordEngine(Context& context, const QString& engine) {
  return velmora::createWordEngine(context, engine);
}

std::unique_ptr<ExcelEngine> StandardProducers::createExcelEngine(Context& context, const QString& engine) {
  return velmora::createExcelEngine(context, engine);
}

std::unique_ptr<SlideExporter> StandardProducers::createSlideExporter(Context& context) {
  return std::make_unique<clsPPT>(context, createLibreOfficeAutomation());
}

std::unique_ptr<DocumentPrinter> StandardProducers::createDocumentPrinter(Context& context) {
  return std::make_unique<clsPrintToFile>(context, createLibreOfficeAutomation());
}

std::unique_ptr<FlashHeaderReader> StandardProducers::createFlashHeaderReader(Context& context) {
  return std::make_unique<clsFlashHeader>(context);
}

std::unique_ptr<QuickFormatter> StandardProducers::createQuickFormatter(Context& context) {
  return std::make_unique<clsQuickFormat>(context);
}

std::unique_ptr<CaptureTool> StandardProducers::createCaptureTool(Context&) {
  return std::make_unique<UnavailableCapture>();
}

bool StandardProducers::IsPrinterExist(const QString& printerName) {
  return clsStrandelAPI().IsPrinterExist(printerName);
}

ProducerFactory& standardProducers() {
  static StandardProducers factory;
  return factory;
}

}  // namespace velmora
