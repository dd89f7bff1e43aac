#include "office/OfficeEngines.h"

#include "cleanup/ExcelCleanup.h"
#include "cleanup/WordCleanup.h"
#include "clipboard/ClipboardPicture.h"
#include "core/Aside.h"
#include "office/clsMicrosoftWord.h"

namespace velmora {

namespace {

// A clean-up runs aside (core/Aside.h) on a copy of the page's context, so that the page's
// other calls meanwhile never race with it; what the clean-up leaves in the error text is
// the page's once it is done.
template <class Cleanup>
StyledHtml cleanUpAside(Context& context, Cleanup cleanup) {
  Context aside = context;
  StyledHtml out = runAside([&] { return cleanup(aside); });
  context.g_sError = aside.g_sError;
  return out;
}

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

// clsMicrosoftExcel and clsWPSExcel.
class WorkbookEngine : public ExcelEngine {
 public:
  WorkbookEngine(Context& context, bool wps) : context_(context), wps_(wps) {}

  Result<QString> GetExcelWorkSheetName(const QString&) override { return unavailable(); }
  Result<StyledHtml> Excel2HTML(const QString&, int16_t, const QString&) override { return unavailable(); }
  Result<QString> Excel2Images(const QString&, int16_t, const QString&) override { return unavailable(); }
  StyledHtml OptimizeHTML(const QString& source, const QString& html, const QString& options) override {
    return cleanUpAside(context_, [=](Context& aside) {
      StyledHtml out;
      ExcelCleanup(aside).OptimizeHTML(source, html, options, out.style, out.body);
      return out;
    });
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
