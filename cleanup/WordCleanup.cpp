#include "cleanup/WordCleanup.h"
#include "core/Yield.h"

#include <QStringList>

#include "cleanup/WordRules.h"
#include "cleanup/clsCSS.h"
#include "core/OptionString.h"
#include "core/Text.h"
#include "support/AutomationNumber.h"
#include "support/RegExp.h"
#include "support/basPublic.h"

namespace velmora {

using word::WordRuleSet;

namespace {

const QString kCrLf = QStringLiteral("\r\n");

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

// The Word pipeline's own steps over the shared rule runner.
class Pipeline : public RulePipeline {
 public:
  Pipeline(const WordRuleSet& rules, const QString& source, const QString& options, RuleTrace* trace)
      : RulePipeline(source, options, trace), rules_(rules) {}
  using RulePipeline::apply;

  QString splitOffHead(QString& text) const;
  QString buildStyleText(const QString& head, QString& pageSize, QString& pageMargin) const;
  QString applyModeTwo(QString text) const;
  QString permittedTags() const;

 private:
  QString pageMarginText(const QString& styleText) const;

  const WordRuleSet& rules_;
};

// Drops the title and everything before it; returns the head without Word's own
// conditional blocks and leaves the rest in `text`. Without "</head>" the whole text is both.
QString Pipeline::splitOffHead(QString& text) const {
  const qsizetype titleEnd = RegExpIndexOf(text, QStringLiteral("</title>"));
  if (titleEnd >= 0) text.remove(0, titleEnd + 8);
  return apply(splitAtHeadEnd(text), rules_.head);
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
  const QString styleText = apply(styleElements(head, rules_.styleElement), rules_.styleTags);
  pageSize = RegExpSubMatch(styleText, QString::fromUtf16(rules_.pageSize), 0);
  pageMargin = pageMarginText(styleText);
  return apply(styleText, rules_.style);
}

QString Pipeline::permittedTags() const {
  QString list = QStringLiteral("p|/p|br");
  if (on(u"opt2image")) list += QStringLiteral("|img");
  if (on(u"opt2table")) list += QStringLiteral("|table|tr|td|th|/table|/tr|/td|/th");
  if (on(u"opt2eq")) {
    if (!on(u"opt2image")) list += QStringLiteral("|img");
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

// The page frame: a table as wide as the document's text area (or, with "pagemargin", as
// the whole page with the margins as padding). Without a usable page size and margins
// the body stays as it is.
QString framePage(const QString& body, const QString& pageSizeText, const QString& pageMarginText,
                  const Pipeline& pipeline) {
  QString width, leftMargin, rightMargin;
  const QString pageSize = trimBlanks(pageSizeText);
  if (!pageSize.isEmpty()) {
    const QStringList parts = pageSize.split(u' ');
    if (parts.size() == 2) width = ToPoints(parts[0]);
  }
  const QString pageMargin = trimBlanks(pageMarginText);
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
  if (pipeline.on(u"pagemargin"))
    frame += QStringLiteral("width:") + width + QStringLiteral("pt;padding:") + pageMargin + QStringLiteral(";");
  else
    frame += QStringLiteral("width:") + pointsText(*widthValue - *leftValue - *rightValue) + QStringLiteral("pt;");
  QString framed = frame + QStringLiteral("\"><tr><td>") + body + QStringLiteral("</td></tr></table>");
  if (pipeline.on(u"pageeffect"))
    framed = QStringLiteral("<table cellspacing=0 cellpadding=0 align=center style=\"border-top:1px solid #000000;"
                            "border-left:1px solid #000000;border-right:3px solid #000000;border-bottom:3px solid "
                            "#000000;\"><tr><td style=\"background-color:#ffffff;\">") +
             framed + QStringLiteral("</td></table>");
  if (pipeline.on(u"pagescroll"))
    framed = QStringLiteral("<div style=\"width:100%;overflow:auto;\">") + framed + QStringLiteral("</div>");
  return framed;
}

}  // namespace

void WordCleanup::OptimizeHTML(const QString& source, const QString& html, const QString& options, QString& style,
                               QString& body, RuleTrace* trace) {
  letPendingEventsRun();
  context_.g_sError.clear();
  style.clear();
  body.clear();
  const WordRuleSet& rules = word::wordRules(variant_);
  const Pipeline pipeline(rules, source, options, trace);
  const bool modeOne = GetOptValue(options, QStringLiteral("optimizemode")) == u"1";

  QString text = html;
  const QString head = pipeline.splitOffHead(text);
  QString pageSize, pageMargin;
  QString styleOut = QStringLiteral("<style>") + kCrLf + pipeline.buildStyleText(head, pageSize, pageMargin) + kCrLf +
                     QStringLiteral("</style>");

  cutOutBody(text);
  letPendingEventsRun();

  text = pipeline.apply(text, rules.body);
  text = pipeline.apply(text, rules.paste);
  if (modeOne) {
    text = pipeline.apply(text, rules.modeOne);
  } else {
    styleOut.clear();  // X0
    text = pipeline.applyModeTwo(text);
  }
  text = pipeline.apply(text, rules.tail);
  if (pipeline.on(u"pagewidth")) text = framePage(text, pageSize, pageMargin, pipeline);

  if (modeOne && pipeline.on(u"opt1css")) {
    text = clsCSS().MergeCssQuick(text, styleOut, trace);
    styleOut.clear();
  }
  if (modeOne && !pipeline.on(u"pagewidth") && !pipeline.on(u"opt1grid"))
    text = pipeline.apply(text, rules.finalUnwrap);

  style = styleOut;
  body = text;
}

}  // namespace velmora
