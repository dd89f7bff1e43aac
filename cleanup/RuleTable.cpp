#include "cleanup/RuleTable.h"

#include <QStringList>

#include "core/OptionString.h"
#include "support/RegExp.h"

namespace velmora {

void RuleTrace::record(const QString& rule, const QString& before, const QString& after, const Rule* table) {
  if (before == after) return;
  steps.push_back({rule, before.size(), after.size(), table ? QString::fromUtf16(table->pattern) : QString(),
                   table ? QString::fromUtf16(table->replacement) : QString()});
}

QString applyRule(const QString& text, const Rule& rule, RuleTrace* trace) {
  const QString pattern = QString::fromUtf16(rule.pattern);
  const QString replacement = QString::fromUtf16(rule.replacement);
  QString result =
      rule.untilStable ? RegExpReplaceAll(text, pattern, replacement) : RegExpReplace(text, pattern, replacement);
  if (trace) {
    trace->record(QString::fromUtf16(rule.name), text, result, &rule);
    if (trace->observer) trace->observer(rule, text, result);
  }
  return result;
}

bool RulePipeline::on(QStringView key) const { return GetOptValue(options_, key.toString()) == u"1"; }

QString RulePipeline::apply(QString text, const RuleList& list) const {
  for (const ConditionalRule& entry : list)
    if (holds(entry.when, text)) text = applyRule(text, entry.rule, trace_);
  return text;
}

void RulePipeline::apply(QString& body, QString& style, const RuleList& list) const {
  for (const ConditionalRule& entry : list) {
    QString& text = entry.target == Target::Style ? style : body;
    if (holds(entry.when, text)) text = applyRule(text, entry.rule, trace_);
  }
}

void RulePipeline::step(const char16_t* name, QString& text, const QString& result) const {
  if (trace_) trace_->record(QString::fromUtf16(name), text, result);
  text = result;
}

QString RulePipeline::styleElements(const QString& head, const char16_t* elementPattern) const {
  QStringList elements;
  for (const RegExpMatch& match : RegExp(QString::fromUtf16(elementPattern)).execute(head)) elements << match.value;
  return elements.join(QStringLiteral("\r\n"));
}

QString RulePipeline::splitAtHeadEnd(QString& text) const {
  const qsizetype headEnd = RegExpIndexOf(text, QStringLiteral("</head>"));
  if (headEnd < 0) return text;
  QString head = text.left(headEnd);
  text = text.mid(headEnd + 7);
  return head;
}

bool RulePipeline::holds(const Condition& when, const QString& text) const {
  if (when.option && !on(when.option)) return false;
  if (when.optionOff && on(when.optionOff)) return false;
  if (!sourceHolds(when.source)) return false;
  if (when.textMatches && !RegExpTest(QString::fromUtf16(when.textMatches), text)) return false;
  return true;
}

bool RulePipeline::sourceHolds(SourceIs wanted) const {
  switch (wanted) {
    case SourceIs::Any: return true;
    case SourceIs::Import: return source_ == u"import";
    case SourceIs::NotImport: return source_ != u"import";
    case SourceIs::Paste: return source_ == u"paste";
  }
  return false;
}

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

}  // namespace velmora
