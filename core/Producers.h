#pragma once
#include <QObject>
#include <QString>
#include <memory>

#include "core/Context.h"
#include "core/Result.h"

namespace velmora {

// The automation classes the editor control's flows create afresh for every call. Each
// producer hands back its result, or the Failure that stopped it; the control turns that
// into its error text. The control reaches them only through these interfaces, so hosts
// and tests can supply others.

// What every HTML route ends in: complete style elements (or nothing) and the content
// without html, head or body tags.
struct StyledHtml {
  QString style;
  QString body;
};

// clsMicrosoftWord / clsWPSWord. The WPS engine has no picture members.
class WordEngine {
 public:
  virtual ~WordEngine() = default;
  // The document as the web page the office program saves, read back as text.
  virtual Result<QString> Word2HTML(const QString& file) = 0;
  virtual StyledHtml OptimizeHTML(const QString& source, const QString& html, const QString& options) = 0;
  // The body: one picture fragment per page.
  virtual Result<QString> Word2Images(const QString& file, const QString& options) = 0;
  // The body: the clipboard's picture as one fragment, or "" when it holds none.
  virtual Result<QString> WordPaste2Image(const QString& options) = 0;
};

// clsMicrosoftExcel / clsWPSExcel. The WPS engine has no sheet-image member.
class ExcelEngine {
 public:
  virtual ~ExcelEngine() = default;
  // The sheets' names in workbook order, joined by CR LF.
  virtual Result<QString> GetExcelWorkSheetName(const QString& file) = 0;
  virtual Result<StyledHtml> Excel2HTML(const QString& file, int16_t sheetIndex, const QString& options) = 0;
  virtual Result<QString> Excel2Images(const QString& file, int16_t sheetIndex, const QString& options) = 0;
  virtual StyledHtml OptimizeHTML(const QString& source, const QString& html, const QString& options) = 0;
};

// clsPPT: slides to pictures; the body holds one fragment per slide.
class SlideExporter {
 public:
  virtual ~SlideExporter() = default;
  virtual Result<QString> PPT2Images(const QString& file, const QString& options) = 0;
};

// clsPrintToFile: a document printed to pictures through the virtual printer.
class DocumentPrinter {
 public:
  virtual ~DocumentPrinter() = default;
  virtual Result<QString> Word2Images(const QString& file, const QString& options) = 0;
};

// clsFlashHeader: the size of a Flash movie.
class FlashHeaderReader {
 public:
  virtual ~FlashHeaderReader() = default;
  virtual bool Parse(const QString& file) = 0;
  virtual int16_t Width() const = 0;
  virtual int16_t Height() const = 0;
};

// clsQuickFormat: builds a page template from copied web content.
class QuickFormatter {
 public:
  virtual ~QuickFormatter() = default;
  virtual void QuickFormat(QString& style, QString& body) = 0;
};

// clsCapture: runs on the user's screen and reports "ok" or "cancel" through ReturnValue;
// a capture that cannot start fails at once.
class CaptureTool : public QObject {
  Q_OBJECT
 public:
  using QObject::QObject;
  virtual Outcome Capture() = 0;
 signals:
  void ReturnValue(const QString& value);
};

// "CreateObject:" and the reason, as a producer reports an engine it cannot create.
Failure creationFailure(const QString& progId);

// Creates the producers a control's flows use. Hosts hand the control the standard one
// (host/StandardProducers.h); tests hand it others. Which engine an import asks for:
// "word"/"wps" for documents, "excel"/"wps" for sheets.
class ProducerFactory {
 public:
  virtual ~ProducerFactory() = default;
  virtual std::unique_ptr<WordEngine> createWordEngine(Context& context, const QString& engine) = 0;
  virtual std::unique_ptr<ExcelEngine> createExcelEngine(Context& context, const QString& engine) = 0;
  virtual std::unique_ptr<SlideExporter> createSlideExporter(Context& context) = 0;
  virtual std::unique_ptr<DocumentPrinter> createDocumentPrinter(Context& context) = 0;
  virtual std::unique_ptr<FlashHeaderReader> createFlashHeaderReader(Context& context) = 0;
  virtual std::unique_ptr<QuickFormatter> createQuickFormatter(Context& context) = 0;
  virtual std::unique_ptr<CaptureTool> createCaptureTool(Context& context) = 0;
  virtual bool IsPrinterExist(const QString& printerName) = 0;
};

}  // namespace velmora
