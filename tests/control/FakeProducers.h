#pragma once
#include <QPointer>
#include <QSet>
#include <QStringList>

#include "host/StandardProducers.h"

namespace velmora::test {

// Producers that record what the control asked of them and succeed or fail as told: an
// engine named in `failing` returns false with "<engine>:failed" in the error text. The
// Flash reader and quick format are the standard ones.
class FakeProducers : public StandardProducers {
 public:
  QStringList calls;
  QSet<QString> failing;
  QString producedBody = QStringLiteral("<p>made</p>");
  QString producedStyle = QStringLiteral("<style>p{}</style>");
  bool printerExists = false;
  QPointer<CaptureTool> lastCapture;

  std::unique_ptr<WordEngine> createWordEngine(Context& context, const QString& engine) override;
  std::unique_ptr<ExcelEngine> createExcelEngine(Context& context, const QString& engine) override;
  std::unique_ptr<SlideExporter> createSlideExporter(Context& context) override;
  std::unique_ptr<DocumentPrinter> createDocumentPrinter(Context& context) override;
  std::unique_ptr<CaptureTool> createCaptureTool(Context& context) override;
  bool IsPrinterExist(const QString& name) override {
    calls << QStringLiteral("IsPrinterExist:") + name;
    return printerExists;
  }

  // Runs one producer step: records it, writes the error text as a producer does.
  bool step(Context& context, const QString& engine, const QString& member);
};

}  // namespace velmora::test

namespace velmora::test {

inline bool FakeProducers::step(Context& context, const QString& engine, const QString& member) {
  calls << engine + u'.' + member;
  context.g_sError.clear();
  if (!failing.contains(engine)) return true;
  context.g_sError = engine + QStringLiteral(":failed");
  return false;
}

namespace fake {

class Word : public WordEngine {
 public:
  Word(FakeProducers& f, Context& c, QString e) : f_(f), c_(c), e_(std::move(e)) {}
  bool Word2HTML(const QString&, QString& html) override {
    html = f_.producedBody;
    return f_.step(c_, e_, QStringLiteral("Word2HTML"));
  }
  void OptimizeHTML(const QString& source, const QString& html, const QString&, QString& style,
                    QString& body) override {
    f_.calls << e_ + QStringLiteral(".OptimizeHTML:") + source;
    style = f_.producedStyle;
    body = html;
  }
  bool Word2Images(const QString&, const QString&, QString& body) override { return picture(QStringLiteral("Word2Images"), body); }
  bool WordPaste2Image(const QString& options, QString& body) override {
    return picture(QStringLiteral("WordPaste2Image:") + options, body);
  }

 private:
  bool picture(const QString& member, QString& body) {
    body = f_.producedBody;
    return f_.step(c_, e_, member);
  }
  FakeProducers& f_;
  Context& c_;
  QString e_;
};

class Excel : public ExcelEngine {
 public:
  Excel(FakeProducers& f, Context& c, QString e) : f_(f), c_(c), e_(std::move(e)) {}
  bool GetExcelWorkSheetName(const QString&, QString& names) override {
    names = e_ + QStringLiteral("-names");
    return f_.step(c_, e_, QStringLiteral("GetExcelWorkSheetName"));
  }
  bool Excel2HTML(const QString&, int16_t sheet, const QString&, QString& style, QString& body) override {
    style = f_.producedStyle;
    body = f_.producedBody;
    return f_.step(c_, e_, QStringLiteral("Excel2HTML:%1").arg(sheet));
  }
  bool Excel2Images(const QString&, int16_t sheet, const QString&, QString& body) override {
    body = f_.producedBody;
    return f_.step(c_, e_, QStringLiteral("Excel2Images:%1").arg(sheet));
  }
  void OptimizeHTML(const QString& source, const QString& html, const QString&, QString& style,
                    QString& body) override {
    f_.calls << e_ + QStringLiteral(".OptimizeHTML:") + source;
    style = f_.producedStyle;
    body = html;
  }

 private:
  FakeProducers& f_;
  Context& c_;
  QString e_;
};

class Slides : public SlideExporter, public DocumentPrinter {
 public:
  Slides(FakeProducers& f, Context& c, QString e) : f_(f), c_(c), e_(std::move(e)) {}
  bool PPT2Images(const QString&, const QString&, QString& body) override {
    body = f_.producedBody;
    return f_.step(c_, e_, QStringLiteral("PPT2Images"));
  }
  bool Word2Images(const QString&, const QString&, QString& body) override {
    body = f_.producedBody;
    return f_.step(c_, e_, QStringLiteral("Word2Images"));
  }

 private:
  FakeProducers& f_;
  Context& c_;
  QString e_;
};

class Screen : public CaptureTool {
 public:
  explicit Screen(FakeProducers& f) : f_(f) {}
  void Capture() override { f_.calls << QStringLiteral("capture.Capture"); }

 private:
  FakeProducers& f_;
};

}  // namespace fake

inline std::unique_ptr<WordEngine> FakeProducers::createWordEngine(Context& context, const QString& engine) {
  return std::make_unique<fake::Word>(*this, context, engine);
}
inline std::unique_ptr<ExcelEngine> FakeProducers::createExcelEngine(Context& context, const QString& engine) {
  return std::make_unique<fake::Excel>(*this, context, engine);
}
inline std::unique_ptr<SlideExporter> FakeProducers::createSlideExporter(Context& context) {
  return std::make_unique<fake::Slides>(*this, context, QStringLiteral("ppt"));
}
inline std::unique_ptr<DocumentPrinter> FakeProducers::createDocumentPrinter(Context& context) {
  return std::make_unique<fake::Slides>(*this, context, QStringLiteral("printer"));
}
inline std::unique_ptr<CaptureTool> FakeProducers::createCaptureTool(Context&) {
  auto tool = std::make_unique<fake::Screen>(*this);
  lastCapture = tool.get();
  return tool;
}

}  // namespace velmora::test
