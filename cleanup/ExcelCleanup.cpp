#include "cleanup/ExcelCleanup.h"
#include "core/Yield.h"

#include <QStringList>

#include "cleanup/ExcelRules.h"
#include "cleanup/clsCSS.h"
#include "core/OptionString.h"
#include "support/RegExp.h"

namespace velmora {

using excel::ExcelRuleSet;

namespace {

const QString kCrLf = QStringLiteral("\r\n");

// The Excel pipeline's own steps over the shared rule runner.
class Pipeline : public RulePipeline {
 public:
  Pipeline(const ExcelRuleSet& rules, const QString& source, const QString& options, RuleTrace* trace)
      : RulePipeline(source, options, trace), rules_(rules) {}
  using RulePipeline::apply;

  // The head without Office's own conditional blocks; what follows it stays in `text`.
  QString splitOffHead(QString& text) const { return apply(splitAtHeadEnd(text), rules_.head); }
  QString buildStyleText(const QString& head, const QString& extraCss) const;
  void applyModeOne(QString& body, QString& style) const;
  QString applyModeTwo(QString body) const;

 private:
  const ExcelRuleSet& rules_;
};

// The sheet's CSS from the style elements of the head; a workbook's shared sheet
// (`extraCss`) goes ahead of it before the cleaning, so both are cleaned together.
QString Pipeline::buildStyleText(const QString& head, const QString& extraCss) const {
  QString styleText = apply(styleElements(head, rules_.styleElement), rules_.styleTags);
  if (!extraCss.isEmpty()) step(u"extra CSS", styleText, extraCss + kCrLf + styleText);
  return apply(styleText, rules_.style);
}

void Pipeline::applyModeOne(QString& body, QString& style) const {
  apply(body, style, rules_.modeOneBeforeScroll);
  if (on(u"opt1overflow"))
    step(u"EK7", body,
         QStringLiteral("<div style=\"width:100%;overflow:auto;\">") + kCrLf + body + kCrLf + QStringLiteral("</div>"));
  body = apply(body, rules_.modeOneAfterScroll);
}

QString Pipeline::applyModeTwo(QString body) const {
  body = apply(body, rules_.modeTwoBeforeFilter);
  QString permitted = QString::fromUtf16(rules_.permittedTags);
  if (on(u"opt2image")) permitted += QString::fromUtf16(rules_.permittedImage);
  const QString filter = excel::tagFilterPattern(permitted);
  body = apply(body, Rule{u"EX3", reinterpret_cast<const char16_t*>(filter.utf16()), u""});
  return apply(body, rules_.modeTwoAfterFilter);
}

}  // namespace

void ExcelCleanup::OptimizeHTML(const QString& source, const QString& html, const QString& options, QString& style,
                                QString& body, RuleTrace* trace) {
  OptimizeHTML(source, html, QString(), options, style, body, trace);
}

void ExcelCleanup::OptimizeHTML(const QString& source, const QString& html, const QString& extraCss,
                                const QString& options, QString& style, QString& body, RuleTrace* trace) {
  letPendingEventsRun();
  context_.g_sError.clear();
  style.clear();
  body.clear();
  const Pipeline pipeline(excel::excelRules(), source, options, trace);
  const bool modeOne = GetOptValue(options, QStringLiteral("optimizemode")) == u"1";

  QString text = html;
  const QString head = pipeline.splitOffHead(text);
  QString styleOut =
      QStringLiteral("<style>") + kCrLf + pipeline.buildStyleText(head, extraCss) + kCrLf + QStringLiteral("</style>");

  cutOutBody(text);
  letPendingEventsRun();

  const ExcelRuleSet& rules = excel::excelRules();
  text = pipeline.apply(text, rules.body);
  text = pipeline.apply(text, rules.paste);
  if (modeOne) {
    pipeline.applyModeOne(text, styleOut);
  } else {
    styleOut.clear();  // EX0
    text = pipeline.applyModeTwo(text);
  }

  if (modeOne && pipeline.on(u"opt1css")) {
    text = clsCSS().MergeCssQuick(text, styleOut, trace);
    styleOut.clear();
  }
  style = styleOut;
  body = text;
}

}  // namespace velmora
