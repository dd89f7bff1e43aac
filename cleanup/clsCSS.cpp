#include "cleanup/clsCSS.h"

#include <QRegularExpression>
#include <vector>

#include "support/RegExp.h"

namespace velmora {

namespace {

// One entry per selector, in the order met: key = selector trimmed and lower-cased, value
// = its declarations, joined with ";" when the selector occurs in several rules.
struct RuleEntry {
  QString key;
  QString declarations;
};

const char16_t kStyleTags[] = uR"re(</?style>)re";
const char16_t kRule[] = uR"re(([a-zA-Z\.\#][^\{\}]*?)\{([^\}]+?)\})re";
const char16_t kLineBreaksAndTabs[] = uR"re([\r\n\t]+)re";
const char16_t kTabs[] = uR"re(\t+)re";
const char16_t kLineBreaks[] = uR"re([\r\n]+)re";

// Quoting of the HTML made uniform before the passes, in order.
struct Step {
  const char16_t* pattern;
  const char16_t* replacement;
  bool untilStable;
};
const Step kNormaliseQuoting[] = {
    {uR"re((<[^>]*?)(\sclass\s*=\s*)('?)([a-zA-Z0-9]+)\3([^>]*?>))re", uR"re($1 class="$4"$5)re", false},
    {uR"re((<[^>]*?\sstyle\s*=\s*'[^>']*?)"([^>']*?'[^>]*?>))re", uR"re($1VELMORAQUOT$2)re", true},
    {uR"re((<[^>]*?)(\sstyle\s*=\s*)'([^>']*?)'([^>]*?>))re", uR"re($1 style="$3"$4)re", false},
    {uR"re((<[^>]*?)VELMORAQUOT([^>]*?>))re", uR"re($1'$2)re", true},
};
const Step kJoinStyles = {uR"re((<[a-zA-Z]+?)(?=\s)([^>]*)\sstyle="([^">]*?)"([^>]*)\sstyle="([^">]*?)"([^>]*>))re",
                          uR"re($1$2 style="$3;$5" $4 $6)re", true};
const Step kRemoveClasses = {uR"re((<[^>]*?)\sclass="[^">]*"([^>]*>))re", uR"re($1$2)re", false};

QString apply(const QString& text, const Step& step) {
  const QString pattern = QString::fromUtf16(step.pattern), replacement = QString::fromUtf16(step.replacement);
  return step.untilStable ? RegExpReplaceAll(text, pattern, replacement) : RegExpReplace(text, pattern, replacement);
}

QString trimBlanksAndBreaks(const QString& text) { return text.trimmed(); }

std::vector<RuleEntry> readRules(QString css) {
  css = RegExpReplace(css, QString::fromUtf16(kStyleTags), QString());
  css.replace(u'"', u'\'');
  std::vector<RuleEntry> table;
  for (const RegExpMatch& rule : RegExp(QString::fromUtf16(kRule)).execute(css)) {
    QString declarations =
        trimBlanksAndBreaks(RegExpReplace(rule.subMatches.value(1), QString::fromUtf16(kLineBreaksAndTabs), QString()));
    if (declarations.endsWith(u';')) declarations.chop(1);
    for (QString selector : rule.subMatches.value(0).split(u',')) {
      selector = RegExpReplace(selector, QString::fromUtf16(kTabs), QStringLiteral(" "));
      selector = trimBlanksAndBreaks(RegExpReplace(selector, QString::fromUtf16(kLineBreaks), QString())).toLower();
      if (selector.isEmpty()) continue;
      auto found = std::find_if(table.begin(), table.end(), [&](const RuleEntry& e) { return e.key == selector; });
      if (found != table.end()) found->declarations += u';' + declarations;
      else table.push_back({selector, declarations});
    }
  }
  return table;
}

// Applies, last entry first, every entry `selects` accepts, with the pattern it builds,
// and removes those entries from the table.
template <typename Selects, typename PatternOf>
QString pass(QString html, std::vector<RuleEntry>& table, Selects selects, PatternOf patternOf) {
  for (qsizetype i = qsizetype(table.size()) - 1; i >= 0; --i) {
    if (!selects(table[size_t(i)].key)) continue;
    html = RegExpReplace(html, patternOf(table[size_t(i)].key),
                         QStringLiteral("$1 style=\"") + table[size_t(i)].declarations + QStringLiteral("\"$2"));
    table.erase(table.begin() + i);
  }
  return html;
}

}  // namespace

QString clsCSS::MergeCssQuick(const QString& html, const QString& css) {
  std::vector<RuleEntry> table = readRules(css);
  if (table.empty()) return html;
  QString result = html;
  for (const Step& step : kNormaliseQuoting) result = apply(result, step);

  result = pass(
      result, table, [](const QString& key) { return key.indexOf(u'.', 1) > 0; },
      [](const QString& key) {
        const qsizetype dot = key.indexOf(u'.');
        return QStringLiteral("(<") + key.left(dot) + QStringLiteral(R"re()(?=\s)([^>]*\sclass=")re") + key.mid(dot + 1) +
               QStringLiteral(R"re("[^>]*?>))re");
      });
  result = pass(
      result, table, [](const QString& key) { return key.startsWith(u'.'); },
      [](const QString& key) {
        return QStringLiteral(R"re((<[a-zA-Z]+?)(?=\s)([^>]*\sclass=")re") + key.mid(1) + QStringLiteral(R"re("[^>]*?>))re");
      });
  result = pass(
      result, table, [](const QString& key) { return !RegExpTest(QStringLiteral("[^a-zA-Z]+"), key); },
      [](const QString& key) { return QStringLiteral("(<") + key + QStringLiteral(R"re()(?=[\s>])([^>]*?>))re"); });

  result = apply(result, kJoinStyles);
  return apply(result, kRemoveClasses);
}

}  // namespace velmora
