#include "cleanup/RuleTable.h"

#include "support/RegExp.h"

namespace velmora {

void RuleTrace::record(const QString& rule, const QString& before, const QString& after) {
  if (before != after) steps.push_back({rule, before.size(), after.size()});
}

QString applyRule(const QString& text, const Rule& rule, RuleTrace* trace) {
  const QString pattern = QString::fromUtf16(rule.pattern);
  const QString replacement = QString::fromUtf16(rule.replacement);
  QString result = rule.untilStable ? RegExpReplaceAll(text, pattern, replacement)
                                    : RegExpReplace(text, pattern, replacement);
  if (trace) {
    trace->record(QString::fromUtf16(rule.name), text, result);
    if (trace->observer) trace->observer(rule, text, result);
  }
  return result;
}

}  // namespace velmora
