#include "cleanup/ExcelCleanup.h"

#include <QCoreApplication>
#include <QStringList>

#include "cleanup/ExcelRules.h"
#include "cleanup/clsCSS.h"
#include "core/OptionString.h"
#include "support/RegExp.h"

namespace velmora {

using excel::Condition;
using excel::ExcelRuleSet;
using excel::RuleList;
using excel::Target;

namespace {

const QString kCrLf = QStringLiteral("\r\n");

// One call's view of the tables: decides each rule's condition and applies it to the body
// or, for the one rule that edits it, to the style output.
class Pipeline {
 public:
  Pipeline(const ExcelRuleSet& rules, const QString& source, const QString& options, RuleTrace* trace)
      : rules_(rules), paste_(source == u"paste"), options_(options), trace_(trace) {}

  bool on(QStringView key) const { return GetOptValue(options_, key.toString()) == u"1"; }

  QString apply(QString text, const RuleList& list) const {
    for (const excel::ConditionalRule& entry : list)
      if (holds(entry.when, text)) text = applyRule(text, entry.rule, trace_);
    return text;
  }
  void apply(QString& body, QString& style, const RuleList& list) const {
    for (const excel::ConditionalRule& entry : list) {
      QString& text = entry.target == Target::Style ? style : body;
      if (holds(entry.when, text)) text = applyRule(text, entry.rule, trace_);
    }
  }
  // A step that is no pattern, recorded in the trace under its name.
  void step(const char16_t* name, QString& text, const QString& result) const {
    if (trace_) trace_->record(QString::fromUtf16(name), text, result);
    text = result;
  }

  QString splitOffHead(QString& text) const;
  QString buildStyleText(const QString& head, const QString& extraCss) const;
  void applyModeOne(QString& body, QString& style) const;
  QString applyModeTwo(QString body) const;

 private:
  bool holds(const Condition& when, const QString& text) const {
    if (when.option && !on(when.option)) return false;
    if (when.optionOff && on(when.optionOff)) return false;
    if (when.pasteOnly && !paste_) return false;
    if (when.textMatches && !RegExpTest(QString::fromUtf16(when.textMatches), text)) return false;
    return true;
  }

  const ExcelRuleSet& rules_;
  const bool paste_;
  const QString& options_;
  RuleTrace* trace_;
};

// Returns the head without Office's own conditional blocks and leaves what follows it in
// `text`. Without "</head>" the whole text is both.
QString Pipeline::splitOffHead(QString& text) const {
  QString head = text;
  const qsizetype headEnd = RegExpIndexOf(text, QStringLiteral("</head>"));
  if (headEnd >= 0) {
    head = text.left(headEnd);
    text = text.mid(headEnd + 7);
  }
  return apply(head, rules_.head);
}

// The sheet's CSS from the style elements of the head; a workbook's shared sheet
// (`extraCss`) goes ahead of it before the cleaning, so both are cleaned together.
QString Pipeline::buildStyleText(const QString& head, const QString& extraCss) const {
  QStringList elements;
  for (const RegExpMatch& match : RegExp(QString::fromUtf16(rules_.styleElement)).execute(head))
    elements << match.value;
  QString styleText = apply(elements.join(kCrLf), rules_.styleTags);
  if (!extraCss.isEmpty()) step(u"extra CSS", styleText, extraCss + kCrLf + styleText);
  return apply(styleText, rules_.style);
}

void Pipeline::applyModeOne(QString& body, QString& style) const {
  apply(body, style, rules_.modeOneBeforeScroll);
  if (on(u"opt1overflow"))
    step(u"EK7", body, QStringLiteral("<div style=\"width:100%;overflow:auto;\">") + kCrLf + body + kCrLf +
                           QStringLiteral("</div>"));
  body = apply(body, rules_.modeOneAfterScroll);
}

QString Pipeline::applyModeTwo(QString body) const {
  body = apply(body, rules_.modeTwoBeforeFilter);
  QString permitted = QString::fromUtf16(rules_.permittedTags);
  if (on(u"opt2image")) permitted += QString::fromUtf16(rules_.permittedImage);
  const QString filter = excel::tagFilterPattern(permitted);
  body = applyRule(body, Rule{u"EX3", reinterpret_cast<const char16_t*>(filter.utf16()), u""}, trace_);
  return apply(body, rules_.modeTwoAfterFilter);
}

// Keeps what lies between the body's start tag and its end tag.
void cutOutBody(QString& text) {
  qsizetype at = RegExpIndexOf(text, QStringLiteral("<body"));
  if (at >= 0) {
    text.remove(0, at + 5);
    at = text.indexOf(u'>');
    if (at >= 0) text.remove(0, at + 1);
  }
  at = text.lastIndexOf(u"</body>", -1, Qt::CaseInsensitive);
  if (at >= 0) text.truncate(at);
}

}  // namespace

void ExcelCleanup::OptimizeHTML(const QString& source, const QString& html, const QString& options, QString& style,
                                QString& body, RuleTrace* trace) {
  OptimizeHTML(source, html, QString(), options, style, body, trace);
}

void ExcelCleanup::OptimizeHTML(const QString& source, const QString& html, const QString& extraCss,
                                const QString& options, QString& style, QString& body, RuleTrace* trace) {
  QCoreApplication::processEvents();
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
  QCoreApplication::processEvents();

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
