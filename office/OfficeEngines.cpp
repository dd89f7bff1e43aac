#include "office/OfficeEngines.h"

#include "cleanup/ExcelCleanup.h"
#include "cleanup/WordCleanup.h"
#include "clipboard/ClipboardPicture.h"

namespace velmora {

namespace {

// clsMicrosoftWord and clsWPSWord.
class WordDocumentEngine : public WordEngine {
 public:
  WordDocumentEngine(Context& context, bool wps) : context_(context), wps_(wps) {}

  bool Word2HTML(const QString&, QString&) override { return fail(); }
  void OptimizeHTML(const QString& source, const QString& html, const QString& options, QString& style,
                    QString& body) override {
    WordCleanup(context_, wps_ ? WordCleanup::Variant::WPS : WordCleanup::Variant::Word)
        .OptimizeHTML(source, html, options, style, body);
  }
  bool Word2Images(const QString&, const QString&, QString&) override { return fail(); }
  bool WordPaste2Image(const QString& options, QString& body) override {
    return velmora::WordPaste2Image(context_, options, body);
  }

 private:
  bool fail() {
    context_.g_sError = creationFailure(wps_ ? QStringLiteral("WPS.Application") : QStringLiteral("Word.Application"));
    return false;
  }
  Context& context_;
  bool wps_;
};

// clsMicrosoftExcel and clsWPSExcel.
class WorkbookEngine : public ExcelEngine {
 public:
  WorkbookEngine(Context& context, bool wps) : context_(context), wps_(wps) {}

  bool GetExcelWorkSheetName(const QString&, QString&) override { return fail(); }
  bool Excel2HTML(const QString&, int16_t, const QString&, QString&, QString&) override { return fail(); }
  bool Excel2Images(const QString&, int16_t, const QString&, QString&) override { return fail(); }
  void OptimizeHTML(const QString& source, const QString& html, const QString& options, QString& style,
                    QString& body) override {
    ExcelCleanup(context_).OptimizeHTML(source, html, options, style, body);
  }

 private:
  bool fail() {
    context_.g_sError = creationFailure(wps_ ? QStringLiteral("ET.Application") : QStringLiteral("Excel.Application"));
    return false;
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
