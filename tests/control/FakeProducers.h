#pragma once
#include <QPointer>
#include <QSet>
#include <QStringList>

#include "host/StandardProducers.h"

namespace velmora::test {

// Producers that record what the control asked of them and succeed or fail as told: an
// engine named in `failing` fails with the word "<engine>:" and "failed". The Flash
// reader and quick format are the standard ones.
class FakeProducers : public StandardProducers {
 public:
  QStringList calls;
  QSet<QString> failing;
  QString producedBody = QStringLiteral("<p>made</p>");
  QString producedStyle = QStringLiteral("<style>p{}</style>");
  bool printerExists = false;
  QPointer<CaptureTool> lastCapture;

  std::unique_ptr<WordEngine> createWordEngine(Context&, const QString& engine) override;
  std::unique_ptr<ExcelEngine> createExcelEngine(Context&, const QString& engine) override;
  std::unique_ptr<SlideExporter> createSlideExporter(Context&) override;
  std::unique_ptr<DocumentPrinter> createDocumentPrinter(Context&) override;
  std::unique_ptr<CaptureTool> createCaptureTool(Context&) override;
  bool IsPrinterExist(const QString& name) override {
    calls << QStringLiteral("IsPrinterExist:") + name;
    return printerExists;
  }

  // Records one producer step and answers `value`, or the engine's failure.
  template <typename T>
  Result<T> step(const QString& engine, const QString& member, T value) {
    calls << engine + u'.' + member;
    if (failing.contains(engine)) return Failure{engine + u':', QStringLiteral("failed")};
    return value;
  }
};

namespace fake {

class Word : public WordEngine {
 public:
  Word(FakeProducers& f, QString e) : f_(f), e_(std::move(e)) {}
  Result<QString> Word2HTML(const QString&) override { return f_.step(e_, "Word2HTML", f_.producedBody); }
  StyledHtml OptimizeHTML(const QString& source, const QString& html, const QString&) override {
    f_.calls << e_ + QStringLiteral(".OptimizeHTML:") + source;
    return {f_.producedStyle, html};
  }
  Result<QString> Word2Images(const QString&, const QString&) override {
    return f_.step(e_, "Word2Images", f_.producedBody);
  }
  Result<QString> WordPaste2Image(const QString& options) override {
    return f_.step(e_, "WordPaste2Image:" + options, f_.producedBody);
  }

 private:
  FakeProducers& f_;
  QString e_;
};

class Excel : public ExcelEngine {
 public:
  Excel(FakeProducers& f, QString e) : f_(f), e_(std::move(e)) {}
  Result<QString> GetExcelWorkSheetName(const QString&) override {
    return f_.step(e_, "GetExcelWorkSheetName", e_ + QStringLiteral("-names"));
  }
  Result<StyledHtml> Excel2HTML(const QString&, int16_t sheet, const QString&) override {
    return f_.step(e_, QStringLiteral("Excel2HTML:%1").arg(sheet), StyledHtml{f_.producedStyle, f_.producedBody});
  }
  Result<QString> Excel2Images(const QString&, int16_t sheet, const QString&) override {
    return f_.step(e_, QStringLiteral("Excel2Images:%1").arg(sheet), f_.producedBody);
  }
  StyledHtml OptimizeHTML(const QString& source, const QString& html, const QString&) override {
    f_.calls << e_ + QStringLiteral(".OptimizeHTML:") + source;
    return {f_.producedStyle, html};
  }

 private:
  FakeProducers& f_;
  QString e_;
};

class Slides : public SlideExporter, public DocumentPrinter {
 public:
  Slides(FakeProducers& f, QString e) : f_(f), e_(std::move(e)) {}
  Result<QString> PPT2Images(const QString&, const QString&) override {
    return f_.step(e_, "PPT2Images", f_.producedBody);
  }
  Result<QString> Word2Images(const QString&, const QString&) override {
    return f_.step(e_, "Word2Images", f_.producedBody);
  }

 private:
  FakeProducers& f_;
  QString e_;
};

class Screen : public CaptureTool {
 public:
  explicit Screen(FakeProducers& f) : f_(f) {}
  Outcome Capture() override {
    f_.calls << QStringLiteral("capture.Capture");
    return {};
  }

 private:
  FakeProducers& f_;
};

}  // namespace fake

inline std::unique_ptr<WordEngine> FakeProducers::createWordEngine(Context&, const QString& engine) {
  return std::make_unique<fake::Word>(*this, engine);
}
inline std::unique_ptr<ExcelEngine> FakeProducers::createExcelEngine(Context&, const QString& engine) {
  return std::make_unique<fake::Excel>(*this, engine);
}
inline std::unique_ptr<SlideExporter> FakeProducers::createSlideExporter(Context&) {
  return std::make_unique<fake::Slides>(*this, QStringLiteral("ppt"));
}
inline std::unique_ptr<DocumentPrinter> FakeProducers::createDocumentPrinter(Context&) {
  return std::make_unique<fake::Slides>(*this, QStringLiteral("printer"));
}
inline std::unique_ptr<CaptureTool> FakeProducers::createCaptureTool(Context&) {
  auto tool = std::make_unique<fake::Screen>(*this);
  lastCapture = tool.get();
  return tool;
}

}  // namespace velmora::test
