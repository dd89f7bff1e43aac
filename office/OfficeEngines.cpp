#include "office/OfficeEngines.h"

#include "cleanup/ExcelCleanup.h"
#include "cleanup/WordCleanup.h"
#include "clipboard/ClipboardPicture.h"
#include "office/clsMicrosoftWord.h"

namespace velmora {

namespace {

// clsMicrosoftWord on LibreOffice Writer, and clsWPSWord, which fails as on a machine
// without WPS.
class WordDocumentEngine : public WordEngine {
 public:
  WordDocumentEngine(Context& context, bool wps) : context_(context), wps_(wps) {}

  Result<QString> Word2HTML(const QString& file) override {
    if (wps_) return unavailable();
    return clsMicrosoftWord(context_, createLibreOfficeAutomation()).Word2HTML(file);
  }
  StyledHtml OptimizeHTML(const QString& source, const QString& html, const QString& options) override {
    StyledHtml out;
    WordCleanup(context_, wps_ ? WordCleanup::Variant::WPS : WordCleanup::Variant::Word)
        .OptimizeHTML(source, html, options, out.style, out.body);
    return out;
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

// clsMicrosoftExcel and clsWPSExcel.
class WorkbookEngine : public ExcelEngine {
 public:
  WorkbookEngine(Context& context, bool wps) : context_(context), wps_(wps) {}

  Result<QString> GetExcelWorkSheetName(const QString&) override { return unavailable(); }
  Result<StyledHtml> Excel2HTML(const QString&, int16_t, const QString&) override { return unavailable(); }
  Result<QString> Excel2Images(const QString&, int16_t, const QString&) override { return unavailable(); }
  StyledHtml OptimizeHTML(const QString& source, const QString& html, const QString& options) override {
    StyledHtml out;
    ExcelCleanup(context_).OptimizeHTML(source, html, options, out.style, out.body);
    return out;
  }

 private:
  Failure unavailable() const {
    return creationFailure(wps_ ? QStringLiteral("ET.Application") : QStringLiteral("Excel.Application"));
  }
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
