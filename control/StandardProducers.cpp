#include "control/Producers.h"

#include "printing/clsStrandelAPI.h"

namespace velmora {

namespace {

// The description a flow reports when the engine behind a program identifier cannot be
// created on this machine.
QString unavailable(const QString& progId) {
  if (progId.startsWith(u"WPS.") || progId.startsWith(u"ET.") || progId.startsWith(u"WPP."))
    return progId + QStringLiteral(": WPS Office is not installed on this system");
  return progId + QStringLiteral(": this engine is not available in this build of Velmora");
}

// Every member fails the way the component behaves where its engine cannot be created:
// the error text is cleared as the member starts, then "CreateObject:" and the reason.
class UnavailableEngine : public WordEngine, public ExcelEngine, public SlideExporter, public DocumentPrinter,
                          public FlashHeaderReader, public QuickFormatter {
 public:
  UnavailableEngine(Context& context, QString progId) : context_(context), progId_(std::move(progId)) {}

  bool Word2HTML(const QString&, QString&) override { return fail(); }
  void OptimizeHTML(const QString&, const QString&, const QString&, QString& style, QString& body) override {
    style.clear();
    body.clear();
    fail();
  }
  bool Word2Images(const QString&, const QString&, QString&) override { return fail(); }
  bool WordPaste2Image(const QString&, QString&) override { return fail(); }
  bool GetExcelWorkSheetName(const QString&, QString&) override { return fail(); }
  bool Excel2HTML(const QString&, int16_t, const QString&, QString&, QString&) override { return fail(); }
  bool Excel2Images(const QString&, int16_t, const QString&, QString&) override { return fail(); }
  bool PPT2Images(const QString&, const QString&, QString&) override { return fail(); }
  bool Parse(const QString&) override { return fail(); }
  int16_t Width() const override { return 0; }
  int16_t Height() const override { return 0; }
  void QuickFormat(QString&, QString&) override { fail(); }

 private:
  bool fail() {
    context_.g_sError = QStringLiteral("CreateObject:") + unavailable(progId_);
    return false;
  }
  Context& context_;
  QString progId_;
};

class UnavailableCapture : public CaptureTool {
 public:
  UnavailableCapture(Context& context) : context_(context) {}
  void Capture() override {
    context_.g_sError = QStringLiteral("CreateObject:") + unavailable(QStringLiteral("Velmora.Capture"));
  }

 private:
  Context& context_;
};

}  // namespace

std::unique_ptr<WordEngine> ProducerFactory::createWordEngine(Context& context, const QString& engine) {
  return std::make_unique<UnavailableEngine>(context, engine == u"wps" ? QStringLiteral("WPS.Application")
                                                                       : QStringLiteral("Word.Application"));
}

std::unique_ptr<ExcelEngine> ProducerFactory::createExcelEngine(Context& context, const QString& engine) {
  return std::make_unique<UnavailableEngine>(context, engine == u"wps" ? QStringLiteral("ET.Application")
                                                                       : QStringLiteral("Excel.Application"));
}

std::unique_ptr<SlideExporter> ProducerFactory::createSlideExporter(Context& context) {
  return std::make_unique<UnavailableEngine>(context, QStringLiteral("PowerPoint.Application"));
}

std::unique_ptr<DocumentPrinter> ProducerFactory::createDocumentPrinter(Context& context) {
  return std::make_unique<UnavailableEngine>(context, QStringLiteral("Word.Application"));
}

std::unique_ptr<FlashHeaderReader> ProducerFactory::createFlashHeaderReader(Context& context) {
  return std::make_unique<UnavailableEngine>(context, QStringLiteral("Velmora.FlashHeader"));
}

std::unique_ptr<QuickFormatter> ProducerFactory::createQuickFormatter(Context& context) {
  return std::make_unique<UnavailableEngine>(context, QStringLiteral("Velmora.QuickFormat"));
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
