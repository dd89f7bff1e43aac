#include "office/OfficeEngines.h"

#include "cleanup/WordCleanup.h"
#include "clipboard/ClipboardPicture.h"
#include "office/CleanupAside.h"
#include "office/clsMicrosoftExcel.h"
#include "office/clsMicrosoftWord.h"
#include "office/clsWPSExcel.h"

namespace velmora {

namespace {

// clsMicrosoftWord on LibreOffice Writer, and clsWPSWord, the same steps on WPS Writer
// (which fails to be created, as on any machine without WPS).
class WordDocumentEngine : public WordEngine {
 public:
  WordDocumentEngine(Context& context, bool wps) : context_(context), wps_(wps) {}

  Result<QString> Word2HTML(const QString& file) override {
    // WPS Writer saves its page as Word does, without the web options.
    const QString progId = wps_ ? QStringLiteral("WPS.Application") : QStringLiteral("Word.Application");
    return clsMicrosoftWord(context_, createLibreOfficeAutomation(), progId).Word2HTML(file);
  }
  StyledHtml OptimizeHTML(const QString& source, const QString& html, const QString& options) override {
    const auto variant = wps_ ? WordCleanup::Variant::WPS : WordCleanup::Variant::Word;
    return cleanUpAside(context_, [=](Context& aside) {
      StyledHtml out;
      WordCleanup(aside, variant).OptimizeHTML(source, html, options, out.style, out.body);
      return out;
    });
  }
  Result<QString> Word2Images(const QString& file, const QString& options) override {
    if (wps_) return unavailable();
    return clsMicrosoftWord(context_, createLibreOfficeAutomation()).Word2Images(file, options);
  }
  Result<QString> WordPaste2Image(const QString& options) override {
    return velmora::WordPaste2Image(context_.g_sTempFolder, options);
  }

 private:
  Failure unavailable() const { return creationFailure(QStringLiteral("WPS.Application")); }
  Context& context_;
  bool wps_;
};

// clsMicrosoftExcel on LibreOffice Calc, and clsWPSExcel (WPS has no sheet pictures).
class WorkbookEngine : public ExcelEngine {
 public:
  WorkbookEngine(Context& context, bool wps) : context_(context), wps_(wps) {}

  Result<QString> GetExcelWorkSheetName(const QString& file) override {
    if (wps_) return clsWPSExcel(context_, createLibreOfficeAutomation()).GetExcelWorkSheetName(file);
    return excel().GetExcelWorkSheetName(file);
  }
  Result<StyledHtml> Excel2HTML(const QString& file, int16_t sheet, const QString& options) override {
    if (wps_) return clsWPSExcel(context_, createLibreOfficeAutomation()).Excel2HTML(file, sheet, options);
    return excel().Excel2HTML(file, sheet, options);
  }
  Result<QString> Excel2Images(const QString& file, int16_t sheet, const QString& options) override {
    if (wps_) return unavailable();
    return excel().Excel2Images(file, sheet, options);
  }
  StyledHtml OptimizeHTML(const QString& source, const QString& html, const QString& options) override {
    return cleanUpSheetAside(context_, source, html, {}, options);
  }

 private:
  Failure unavailable() const { return creationFailure(QStringLiteral("ET.Application")); }
  clsMicrosoftExcel excel() { return clsMicrosoftExcel(context_, createLibreOfficeAutomation()); }
  Context& context_;
  bool wps_;
};

}  // namespace

std::unique_ptr<WordEngine> createWordEngine(Context& context, const QString& engine) {
  return std::make_unique<WordDocumentEngine>(context, engine == u"wps");
}

std::unique_ptr<ExcelEngine> createExcelEngine(Context& context, const QString& engine) {
  return std::make_unique<WorkbookEngine>(context, engine == u"wps");
}

}  // namespace velmora
