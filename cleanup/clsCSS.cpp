#include "cleanup/clsCSS.h"

#include <algorithm>
#include <functional>

#include "core/ScriptError.h"
#include "core/Text.h"
#include "support/RegExp.h"
#include "support/clsCollection.h"

namespace velmora {

namespace {

constexpr bool kUntilStable = true;

// ---------------------------------------------------------------------------------------
// Reading the style sheet into the rule table.

const Rule kStyleTags{u"css-style-tags", uR"re(</?style>)re", u""};
// Group 1: the selectors, group 2: the declarations.
const char16_t kCssRule[] = uR"re(([a-zA-Z\.\#][^\{\}]*?)\{([^\}]+?)\})re";
const Rule kDeclarationBreaks{u"css-declaration-breaks", uR"re([\r\n\t]+)re", u""};
const Rule kSelectorTabs{u"css-selector-tabs", uR"re(\t+)re", u" "};
const Rule kSelectorBreaks{u"css-selector-breaks", uR"re([\r\n]+)re", u""};

// ---------------------------------------------------------------------------------------
// MergeCssQuick, in this order.

// The quoting of class and style attributes made uniform, so that the passes can look for
// class="name" and the join for style="...".
const Rule kQuickQuoting[] = {
    {u"quote-class", uR"re((<[^>]*?)(\sclass\s*=\s*)('?)([a-zA-Z0-9]+)\3([^>]*?>))re", uR"re($1 class="$4"$5)re"},
    {u"mark-double-quotes", uR"re((<[^>]*?\sstyle\s*=\s*'[^>']*?)"([^>']*?'[^>]*?>))re", uR"re($1VELMORAQUOT$2)re",
     kUntilStable},
    {u"quote-style", uR"re((<[^>]*?)(\sstyle\s*=\s*)'([^>']*?)'([^>]*?>))re", uR"re($1 style="$3"$4)re"},
    {u"unmark-quotes", uR"re((<[^>]*?)VELMORAQUOT([^>]*?>))re", uR"re($1'$2)re", kUntilStable},
};

// One pass over the rule table: which keys it takes and the pattern it builds from a key.
// Every pass puts a new style attribute right after the tag name.
struct QuickPass {
  const char16_t* name;
  std::function<bool(const QString& key)> takes;
  std::function<QString(const QString& key)> pattern;
};

const QuickPass kQuickPasses[] = {
    {u"tag.class", [](const QString& key) { return key.indexOf(u'.', 1) > 0; },
     [](const QString& key) {
       const qsizetype dot = key.indexOf(u'.');
       return QStringLiteral("(<") + key.left(dot) + QStringLiteral(R"re()(?=\s)([^>]*\sclass=")re") +
              key.mid(dot + 1) + QStringLiteral(R"re("[^>]*?>))re");
     }},
    {u".class", [](const QString& key) { return key.startsWith(u'.'); },
     [](const QString& key) {
       return QStringLiteral(R"re((<[a-zA-Z]+?)(?=\s)([^>]*\sclass=")re") + key.mid(1) +
              QStringLiteral(R"re("[^>]*?>))re");
     }},
    {u"tag", [](const QString& key) { return !RegExpTest(QStringLiteral(uR"re([^a-zA-Z]+)re"), key); },
     [](const QString& key) { return QStringLiteral("(<") + key + QStringLiteral(R"re()(?=[\s>])([^>]*?>))re"); }},
};

const Rule kJoinStyles{u"join-styles",
                       uR"re((<[a-zA-Z]+?)(?=\s)([^>]*)\sstyle="([^">]*?)"([^>]*)\sstyle="([^">]*?)"([^>]*>))re",
                       uR"re($1$2 style="$3;$5" $4 $6)re", kUntilStable};
const Rule kDropClasses{u"drop-classes", uR"re((<[^>]*?)\sclass="[^">]*"([^>]*>))re", uR"re($1$2)re"};

// ---------------------------------------------------------------------------------------
// MergeCss.

// Group 1: the tag name, 2: what stands before the class, 4: its quote, 5: the class
// name, 6: what follows it.
const char16_t kClassedStartTag[] = uR"re(<([a-zA-Z]+?)(?=\s)([^>]*)(\sclass\s*=\s*)(["']?)([\w]+)\4([^>]*?)>)re";
const char16_t kStartTagWithAttributesTail[] = uR"re((?=\s)[^>]*?>)re";
const char16_t kHasStyle[] = uR"re(\sstyle\s*=\s*['"])re";
// Group 1: the tag up to "style=", 2: the quote, 3: the declarations, 4: the rest.
const char16_t kStyleAttribute[] = uR"re(([^>]+?\sstyle\s*=)\s*(['"])([^>]*?)\2([^>]*?>))re";

// ---------------------------------------------------------------------------------------

// A rule whose pattern or replacement is built from the sheet; `name`, `pattern` and
// `replacement` must outlive the call.
QString applyBuilt(const QString& text, const QString& name, const QString& pattern, const QString& replacement,
                   RuleTrace* trace) {
  const Rule rule{reinterpret_cast<const char16_t*>(name.utf16()), reinterpret_cast<const char16_t*>(pattern.utf16()),
                  reinterpret_cast<const char16_t*>(replacement.utf16())};
  return applyRule(text, rule, trace);
}

// The rule table: one entry per selector (trimmed, lower-cased) holding its declarations,
// those of a selector met again appended after a ";".
clsCollection readRules(QString css, bool singleQuotes) {
  css = applyRule(css, kStyleTags);
  if (singleQuotes) css.replace(u'"', u'\'');
  clsCollection table;
  for (const RegExpMatch& match : RegExp(QString::fromUtf16(kCssRule)).execute(css)) {
    QString declarations = trimBlanks(applyRule(match.subMatches.value(1), kDeclarationBreaks));
    if (declarations.endsWith(u';')) declarations.chop(1);
    for (QString selector : match.subMatches.value(0).split(u',')) {
      selector = applyRule(selector, kSelectorTabs);
      selector = trimBlanks(applyRule(selector, kSelectorBreaks)).toLower();
      if (selector.isEmpty()) continue;
      const int32_t at = table.KeyIndex(selector);
      if (at != -1)
        table.setItem(at, table.item(at).toString() + u';' + declarations);
      else
        table.Add(declarations, selector);
    }
  }
  return table;
}

// Writes `declarations` into a start tag, ahead of its own style declarations.
QString MergeStyleIntoTag(const QString& tag, QString declarations) {
  declarations.replace(u'"', u'\'');
  if (!RegExpTest(QString::fromUtf16(kHasStyle), tag))
    return tag.chopped(1) + QStringLiteral(R"( style=")") + declarations + QStringLiteral("\">");
  const std::optional<RegExpMatch> match = RegExp(QString::fromUtf16(kStyleAttribute)).firstMatch(tag);
  if (!match) return tag;  // a style attribute whose quote is never closed
  QString own = match->subMatches.value(2);
  own.replace(u'"', u'\'');
  return match->subMatches.value(0) + u'"' + declarations + u';' + own + u'"' + match->subMatches.value(3);
}

// Replaces every occurrence of `from`, as plain text with its case. A selector that is no
// plain name (say "p|") makes a pattern that matches bits of text that the replacement
// contains again, and the text then doubles with each match: past what the sheet could
// ever add to the page's start tags, the merge stops with an error instead.
void replaceText(QString& html, const QString& from, const QString& to, qsizetype largest) {
  if (from.isEmpty() || from == to) return;
  const qsizetype occurrences = html.count(from, Qt::CaseSensitive);
  if (html.size() + occurrences * (to.size() - from.size()) > largest) {
    throw ScriptError(errnum::OutOfMemory,
                      QStringLiteral("Out of memory: merging the style sheet would make the HTML larger than %1 "
                                     "characters (a selector that is not a plain name?)")
                          .arg(largest));
  }
  html.replace(from, to, Qt::CaseSensitive);
}

// The most a merge can add: every start tag takes the declarations of at most three rules
// (tag.class, .class and its tag), with their quotes and separators.
qsizetype largestMerge(const QString& html, const clsCollection& table) {
  qsizetype longest = 0;
  for (int32_t i = 1; i <= table.Count(); ++i) longest = std::max(longest, table.item(i).toString().size());
  return html.size() + (html.count(u'<') + 1) * 3 * (longest + 16);
}

}  // namespace

QString clsCSS::MergeCssQuick(const QString& html, const QString& css, RuleTrace* trace) {
  clsCollection table = readRules(css, true);
  if (table.Count() == 0) return html;

  QString result = html;
  for (const Rule& rule : kQuickQuoting) result = applyRule(result, rule, trace);

  for (const QuickPass& pass : kQuickPasses) {
    for (int32_t i = table.Count(); i >= 1; --i) {
      const QString key = table.key(i).toString();
      if (!pass.takes(key)) continue;
      const QString name = QString::fromUtf16(pass.name) + u' ' + key;
      const QString replacement =
          QStringLiteral(R"re($1 style=")re") + table.item(i).toString() + QStringLiteral(R"re("$2)re");
      result = applyBuilt(result, name, pass.pattern(key), replacement, trace);
      table.RemoveItem(i);
    }
  }

  result = applyRule(result, kJoinStyles, trace);
  return applyRule(result, kDropClasses, trace);
}

QString clsCSS::MergeCss(const QString& html, const QString& css) {
  const clsCollection table = readRules(css, false);
  QString result = html;
  const qsizetype largest = largestMerge(html, table);

  for (const RegExpMatch& element : RegExp(QString::fromUtf16(kClassedStartTag)).execute(html)) {
    const QStringList& group = element.subMatches;
    const QString tagName = group.value(0), className = group.value(4);
    QString tag = u'<' + tagName + group.value(1) + group.value(5) + u'>';
    const int32_t tagClass = table.KeyIndex(tagName.toLower() + u'.' + className.toLower());
    if (tagClass != -1) tag = MergeStyleIntoTag(tag, table.item(tagClass).toString());
    const int32_t classOnly = table.KeyIndex(u'.' + className.toLower());
    if (classOnly != -1) tag = MergeStyleIntoTag(tag, table.item(classOnly).toString());
    replaceText(result, element.value, tag, largest);
  }

  for (int32_t i = 1; i <= table.Count(); ++i) {
    const QString key = table.key(i).toString();
    if (key.contains(u'.')) continue;
    const QString declarations = table.item(i).toString();
    for (const RegExpMatch& tag : RegExp(u'<' + key + QString::fromUtf16(kStartTagWithAttributesTail)).execute(result))
      replaceText(result, tag.value, MergeStyleIntoTag(tag.value, declarations), largest);
  }
  return result;
}

}  // namespace velmora
