#include "cleanup/WordCleanup.h"

#include <QCoreApplication>
#include <QStringList>

#include "cleanup/WordRules.h"
#include "cleanup/clsCSS.h"
#include "core/OptionString.h"
#include "support/AutomationNumber.h"
#include "support/RegExp.h"
#include "support/basPublic.h"
#include "core/Text.h"

namespace velmora {

using word::Condition;
using word::RuleList;
using word::SourceIs;
using word::WordRuleSet;

namespace {

const QString kCrLf = QStringLiteral("\r\n");

// The caller's options: a switch is on when its value is exactly "1".
class Switches {
 public:
  explicit Switches(const QString& options) : options_(options) {}
  bool on(QStringView key) const { return GetOptValue(options_, key.toString()) == u"1"; }

 private:
  const QString& options_;
};


// Numbers in page texts are written with up to 15 significant digits, a "." and no
// trailing zeros, and never with an exponent, which CSS would not read.
QString pointsText(double value) {
  const QString written = QString::number(value, 'g', 15);
  const qsizetype exponentAt = written.indexOf(u'e');
  if (exponentAt < 0) return written;
  const int exponent = written.mid(exponentAt + 1).toInt();
  QString fixed = QString::number(written.toDouble(), 'f', std::max(0, 14 - exponent));
  if (fixed.contains(u'.')) {
    while (fixed.endsWith(u'0')) fixed.chop(1);
    if (fixed.endsWith(u'.')) fixed.chop(1);
  }
  return fixed;
}

// One call's view of the tables: decides each rule's condition and applies it.
class Pipeline {
 public:
  Pipeline(const WordRuleSet& rules, const QString& source, const Switches& switches, RuleTrace* trace)
      : rules_(rules), source_(source), switches_(switches), trace_(trace) {}

  QString apply(QString text, const RuleList& list) const {
    for (const word::ConditionalRule& entry : list)
      if (holds(entry.when, text)) text = applyRule(text, entry.rule, trace_);
    return text;
  }
  QString apply(const QString& text, const Rule& rule) const { return applyRule(text, rule, trace_); }

  QString splitOffHead(QString& text) const;
  QString buildStyleText(const QString& head, QString& pageSize, QString& pageMargin) const;
  QString applyModeTwo(QString text) const;
  QString permittedTags() const;

 private:
  bool holds(const Condition& when, const QString& text) const {
    if (when.option && !switches_.on(when.option)) return false;
    if (when.optionOff && switches_.on(when.optionOff)) return false;
    if (!sourceHolds(when.source)) return false;
    if (when.textMatches && !RegExpTest(QString::fromUtf16(when.textMatches), text)) return false;
    return true;
  }
  bool sourceHolds(SourceIs wanted) const {
    switch (wanted) {
      case SourceIs::Any: return true;
      case SourceIs::Import: return source_ == u"import";
      case SourceIs::NotImport: return source_ != u"import";
      case SourceIs::Paste: return source_ == u"paste";
    }
    return false;
  }
  QString pageMarginText(const QString& styleText) const;

  const WordRuleSet& rules_;
  const QString& source_;
  const Switches& switches_;
  RuleTrace* trace_;
};

// Drops the title and everything before it; returns the head without Word's own
// conditional blocks and leaves the rest in `text`. Without "</head>" the whole text is both.
QString Pipeline::splitOffHead(QString& text) const {
  const qsizetype titleEnd = RegExpIndexOf(text, QStringLiteral("</title>"));
  if (titleEnd >= 0) text.remove(0, titleEnd + 8);
  QString head = text;
  const qsizetype headEnd = RegExpIndexOf(text, QStringLiteral("</head>"));
  if (headEnd >= 0) {
    head = text.left(headEnd);
    text = text.mid(headEnd + 7);
  }
  return apply(head, rules_.head);
}

QString Pipeline::pageMarginText(const QString& styleText) const {
  const QString margin = RegExpSubMatch(styleText, QString::fromUtf16(rules_.pageMargin), 0);
  if (!margin.isEmpty() || !rules_.pageMarginSides[0]) return margin;
  QStringList sides;  // top, right, bottom, left: the shorthand's order
  for (const char16_t* pattern : rules_.pageMarginSides)
    sides << RegExpSubMatch(styleText, QString::fromUtf16(pattern), 0);
  return sides.join(u' ');
}

// The document's CSS from the style elements of the head, and the page size and margins
// of its @page rule.
QString Pipeline::buildStyleText(const QString& head, QString& pageSize, QString& pageMargin) const {
  QStringList elements;
  for (const RegExpMatch& match : RegExp(QString::fromUtf16(rules_.styleElement)).execute(head))
    elements << match.value;
  const QString styleText = apply(elements.join(kCrLf), rules_.styleTags);
  pageSize = RegExpSubMatch(styleText, QString::fromUtf16(rules_.pageSize), 0);
  pageMargin = pageMarginText(styleText);
  return apply(styleText, rules_.style);
}

QString Pipeline::permittedTags() const {
  QString list = QStringLiteral("p|/p|br");
  if (switches_.on(u"opt2image")) list += QStringLiteral("|img");
  if (switches_.on(u"opt2table")) list += QStringLiteral("|table|tr|td|th|/table|/tr|/td|/th");
  if (switches_.on(u"opt2eq")) {
    if (!switches_.on(u"opt2image")) list += QStringLiteral("|img");
    list += QStringLiteral("|sub|sup|/sub|/sup");
  }
  return list;
}

QString Pipeline::applyModeTwo(QString text) const {
  text = apply(text, rules_.modeTwoBeforeFilter);
  const QString filter = word::tagFilterPattern(permittedTags());
  text = apply(text, Rule{u"X11", reinterpret_cast<const char16_t*>(filter.utf16()), u""});
  return apply(text, rules_.modeTwoAfterFilter);
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

// The page frame: a table as wide as the document's text area (or, with "pagemargin", as
// the whole page with the margins as padding). Without a usable page size and margins
// the body stays as it is.
QString framePage(const QString& body, const QString& pageSizeText, const QString& pageMarginText,
                  const Switches& switches) {
  QString width, leftMargin, rightMargin;
  const QString pageSize = TrimBlanks(pageSizeText);
  if (!pageSize.isEmpty()) {
    const QStringList parts = pageSize.split(u' ');
    if (parts.size() == 2) width = ToPoints(parts[0]);
  }
  const QString pageMargin = TrimBlanks(pageMarginText);
  if (!pageMargin.isEmpty()) {
    const QStringList parts = pageMargin.split(u' ');
    if (parts.size() == 4) {
      leftMargin = ToPoints(parts[3]);
      rightMargin = ToPoints(parts[1]);
    }
  }
  const std::optional<double> widthValue = NumericValue(width);
  const std::optional<double> leftValue = NumericValue(leftMargin);
  const std::optional<double> rightValue = NumericValue(rightMargin);
  if (!widthValue || !leftValue || !rightValue) return body;

  QString frame = QStringLiteral(
      "<table border=0 cellpadding=0 cellspacing=0 align=center style=\"overflow-x:hidden;word-break:break-all;");
  if (switches.on(u"pagemargin"))
    frame += QStringLiteral("width:") + width + QStringLiteral("pt;padding:") + pageMargin + QStringLiteral(";");
  else
    frame += QStringLiteral("width:") + pointsText(*widthValue - *leftValue - *rightValue) + QStringLiteral("pt;");
  QString framed = frame + QStringLiteral("\"><tr><td>") + body + QStringLiteral("</td></tr></table>");
  if (switches.on(u"pageeffect"))
    framed = QStringLiteral(
                 "<table cellspacing=0 cellpadding=0 align=center style=\"border-top:1px solid #000000;"
                 "border-left:1px solid #000000;border-right:3px solid #000000;border-bottom:3px solid "
                 "#000000;\"><tr><td style=\"background-color:#ffffff;\">") +
             framed + QStringLiteral("</td></table>");
  if (switches.on(u"pagescroll"))
    framed = QStringLiteral("<div style=\"width:100%;overflow:auto;\">") + framed + QStringLiteral("</div>");
  return framed;
}

}  // namespace

void WordCleanup::OptimizeHTML(const QString& source, const QString& html, const QString& options, QString& style,
                               QString& body, RuleTrace* trace) {
  QCoreApplication::processEvents();
  context_.g_sError.clear();
  style.clear();
  body.clear();
  const Switches switches(options);
  const WordRuleSet& rules = word::wordRules(variant_);
  const Pipeline pipeline(rules, source, switches, trace);
  const bool modeOne = GetOptValue(options, QStringLiteral("optimizemode")) == u"1";

  QString text = html;
  const QString head = pipeline.splitOffHead(text);
  QString pageSize, pageMargin;
  QString styleOut = QStringLiteral("<style>") + kCrLf + pipeline.buildStyleText(head, pageSize, pageMargin) + kCrLf +
                     QStringLiteral("</style>");

  cutOutBody(text);
  QCoreApplication::processEvents();

  text = pipeline.apply(text, rules.body);
  text = pipeline.apply(text, rules.paste);
  if (modeOne) {
    text = pipeline.apply(text, rules.modeOne);
  } else {
    styleOut.clear();  // X0
    text = pipeline.applyModeTwo(text);
  }
  text = pipeline.apply(text, rules.tail);
  if (switches.on(u"pagewidth")) text = framePage(text, pageSize, pageMargin, switches);

  if (modeOne && switches.on(u"opt1css")) {
    text = clsCSS().MergeCssQuick(text, styleOut, trace);
    styleOut.clear();
  }
  if (modeOne && !switches.on(u"pagewidth") && !switches.on(u"opt1grid")) text = pipeline.apply(text, rules.finalUnwrap);

  style = styleOut;
  body = text;
}

}  // namespace velmora
