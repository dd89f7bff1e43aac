#include "cleanup/WordRules.h"

#include <algorithm>

namespace velmora::word {

namespace {

constexpr bool kUntilStable = true;

// Conditions the tables use more than once.
constexpr Condition withVml{.option = u"opt1vml"};
constexpr Condition fromPaste{.source = SourceIs::Paste};

WordRuleSet makeWordRules() {
  WordRuleSet set;

  set.head = {
      {{u"H1", uR"re(<!--\[if gte mso [0-9]+\]>[\s\S]+?<!\[endif\]-->)re", u""}},
  };

  set.styleElement = uR"re(<style>[\s\S]+?</style>)re";
  set.styleTags = {
      {{u"S1", uR"re(</?style>)re", u""}},
  };
  set.pageSize = uR"re(@page\s[^\{]+?\{[^\}]*?size:([^;\}]+);[^\}]*?\})re";
  set.pageMargin = uR"re(@page\s[^\{]+?\{[^\}]*?margin:([^;\}]+);[^\}]*?\})re";
  set.pageMarginSides = {nullptr, nullptr, nullptr, nullptr};

  set.style = {
      {{u"S2", uR"re(st[0-9]+\\:\*\s*\{\s*behavior:url\(#ieooui\)[^\}]*?\})re", u""}},
      {{u"S3", uR"re([\w]+\\:\*\s*\{\s*behavior:url\(#default#VML\)[^\}]*?\})re", u""}, withVml},
      {{u"S4", uR"re([\w\.]+\s*\{\s*behavior:url\(#default#VML\)[^\}]*?\})re", u""}, withVml},
      {{u"S5", uR"re(<!--\s+)re", u""}},
      {{u"S6", uR"re(\s+-->)re", u""}},
      {{u"S7", uR"re(/\*[\w\s]+\*/)re", u""}},
      {{u"S8", uR"re(@[^\{";]+?\{[^\}]*?\})re", u""}},
      {{u"S9", uR"re(([\s\}])a:[a-zA-Z\,\.\s]+?\{[^\}]*?\})re", u"$1"}},
      {{u"S10", uR"re((\{[^\}]*?)(mso-[\w\-]+:[^;\}]+;?)+([^}]*?\}))re", u"$1$3", kUntilStable}},
      {{u"S11", uR"re(page:Section[0-9]+;?)re", u""}},
      {{u"S12", uR"re([^\s\}\{][^\}\{]+?\{\s*?\})re", u""}},
      {{u"S13", uR"re(\s*\{\s*)re", u" {"}},
      {{u"S14", uR"re(\s*\}\s*)re", u"}\r\n"}},
      {{u"S15", uR"re(\{((?:[\w\-]+:[^\};]+;)+)\s+([^\}]*?\}))re", u"{$1$2", kUntilStable}},
      {{u"S16", uR"re((\r\n)+)re", u"\r\n"}},
      {{u"S17", uR"re(\s*([^\s](?:[^a]|a)+[^\s])\s*)re", u"$1"}},
  };

  set.body = {
      {{u"B1", uR"re(<o:p>(&nbsp;)*</o:p>)re", u""}},
      {{u"B2", uR"re(<a\s+name[^>]*?>([\s\S]*?)</a>)re", u"$1"}},
      {{u"B3", uR"re(<span[^>]*?></span>)re", u"", kUntilStable}},
      {{u"B4", uR"re((<tr(?=[\s>])[^>]*?>)[\s\S]*?(<t[dh][\s>]))re", u"$1$2"}},
      {{u"B5", uR"re((</t[dh]>)(?:</?span[^>]*?>|\s)+?(<t[dh][\s>]|</tr>))re", u"$1$2"}},
      {{u"B6", uR"re(<!--\[if mso[^>]*?>[\s\S]*?<!\[endif\]-->)re", u""}},
      {{u"B7", uR"re(<!--[\s\S]*?-->)re", u""}},
  };

  // P2 has two forms: with an image tag already in the text the VML shapes simply go,
  // otherwise a shape with a picture becomes an image tag of the shape's size.
  set.paste = {
      {{u"P1", uR"re(<v:shapetype[^>]*?>[\s\S]*?</v:shapetype>)re", u""}, fromPaste},
      {{u"P2", uR"re(<v:shape(?=\s)[^>]*?>[\s\S]*?</v:shape>)re", u""},
       {.source = SourceIs::Paste, .textMatches = uR"re(<img\s)re"}},
      {{u"P2",
        uR"re(<v:shape(?=\s)[^>]*?(width:[^>;'"]+)[^>]*?(height:[^>;'"]+)[^>]*?>[\s\S]*?<v:imagedata[^>]*?\ssrc\s*=\s*"([^>"]+?)"[^>]*?>[\s\S]*?</v:shape>)re",
        uR"re(<img border=0 src="$3" style="$1;$2">)re"},
       fromPaste},
  };

  set.modeOne = {
      {{u"K1", uR"re(<!--\[if gte vml 1\]>[\s\S]+?<!\[endif\]-->)re", u""}, withVml},
      {{u"K2", uR"re(<!\[if !vml\]>([\s\S]+?)<!\[endif\]>)re", u"$1"}, withVml},
      {{u"K2b", uR"re(<!\[if !vml\]>[\s\S]+?<!\[endif\]>)re", u""}, {.optionOff = u"opt1vml"}},
      {{u"K3", uR"re(<(st[0-9]+:\w+)[^>]*?>((?:[^a]|a)+?)</\1>)re", u"$2"}},
      {{u"K4", uR"re(<(\w[^>]*?style=[^>]*?)position:\s*?absolute([^>]*?)>)re", u"<$1$2>"},
       {.option = u"opt1absolute"}},
      {{u"K5", uR"re(<p\s+?[^>]*?>(<\w[^>]*?>)*?(&nbsp;)*?(</\w[^>]*?>)*?</p>)re", u""}, {.option = u"opt1space"}},
      {{u"K6", uR"re((<sub><img\s+?[^>]*?)style=['"][^>]*?['"]([^>]*?></sub>))re", u"$1$2"},
       {.option = u"opt1eq", .source = SourceIs::Import}},
      {{u"K7", uR"re(<sub>(<img)(\s+?[^>]*?>)</sub>)re", uR"re($1 style="vertical-align:middle;"$2)re"},
       {.option = u"opt1eq", .source = SourceIs::Import}},
      {{u"K6", uR"re((<span[^>]*?mso-text-raise[^>]*><img\s+?[^>]*?)style=['"][^>]*?['"]([^>]*?></span>))re", u"$1$2"},
       {.option = u"opt1eq", .source = SourceIs::NotImport}},
      {{u"K7", uR"re(<span[^>]*?mso-text-raise[^>]*>(<img)(\s+?[^>]*?>)</span>)re",
        uR"re($1 style="vertical-align:middle;"$2)re"},
       {.option = u"opt1eq", .source = SourceIs::NotImport}},
      {{u"K8",
        uR"re((<p(?=\s)[^>]*?\sstyle\s*=\s*['"][^>]*?vertical-align\s*:\s*middle[^>]*?['"][^>]*?>[\s\S]*?<img)(\s[^>]+?>[\s\S]*?</p>))re",
        uR"re($1 style="vertical-align:middle;"$2)re"},
       {.option = u"opt1eq"}},
      {{u"K9", uR"re((<\w+[^>]*?\sstyle=[^>]*?)margin-left:\s*?-[0-9\.]+([^>]*?>))re", u"$1margin-left:0$2"},
       {.option = u"opt1margin"}},
      {{u"K10", uR"re((<\w+[^>]*?\sstyle=[^>]*?)left:\s*?-[0-9\.]+([^>]*?>))re", u"$1left:0$2"},
       {.option = u"opt1margin"}},
      {{u"K11", uR"re((<\w+\s+[^>]*?style='[^'>]*?)(mso-[\w\-]+:[^;'>]+;?)+([^'>]*?'[^>]*?>))re", u"$1$3",
        kUntilStable}},
      {{u"K12", uR"re((<\w+\s+[^>]*?style="[^">]*?)(mso-[\w\-]+:[^;">]+;?)+([^">]*?"[^>]*?>))re", u"$1$3",
        kUntilStable}},
      {{u"K13", uR"re((<\w+\s+[^>]*?)style=(['"])\s*?\2([^>]*?>))re", u"$1$3"}},
      {{u"K14", uR"re((<\w+[^>]*?)\slang=[\w\-]+([^>]*?>))re", u"$1$2"}},
      {{u"K15", uR"re((<img[^>]*?)\sv:shapes="[^<>"]*"([^>]*?>))re", u"$1$2"}},
      {{u"K16", uR"re(^\s*<div(?=[\s>])[^>]*>([\s\S]+)</div>\s*$)re", u"$1"}, {.option = u"opt1grid"}},
  };

  set.modeTwoBeforeFilter = {
      {{u"X1", uR"re(<!--\[if gte vml 1\]>[\s\S]+?<!\[endif\]-->)re", u""}},
      {{u"X2", uR"re(<!\[if !vml\]>([\s\S]+?)<!\[endif\]>)re", u"$1"}},
      {{u"X3",
        uR"re((<p(?=\s)[^>]*?\sstyle\s*=\s*['"][^>]*?vertical-align\s*:\s*middle[^>]*?['"][^>]*?>[\s\S]*?)(<img\s[^>]*?>)([\s\S]*?</p>))re",
        u"$1<sub>$2</sub>$3"},
       {.option = u"opt2eq"}},
      {{u"X4", uR"re(<span[^>]*?mso-text-raise[^>]*>(<img\s+?[^>]*?>)</span>)re", u"<sub>$1</sub>"},
       {.option = u"opt2eq", .source = SourceIs::Paste}},
      {{u"X5", uR"re((<\w+?\s+?[^>]*?)class=\w*([^>]*?>))re", u"$1$2"}},
      {{u"X6", uR"re((<\w+?\s+?[^>]*?)style='[^<>']*'([^>]*?>))re", u"$1$2"}},
      {{u"X7", uR"re((<\w+?\s+?[^>]*?)style=\"[^<>\"]*\"([^>]*?>))re", u"$1$2"}},
      {{u"X8", uR"re((<\w+?\s+?[^>]*?)lang=\w*([^>]*?>))re", u"$1$2"}},
      {{u"X9", uR"re((<img[^>]*?)\sv:shapes="[^<>"]*"([^>]*?>))re", u"$1$2"}},
      {{u"X10", uR"re(<!--[^>]*?-->)re", u""}},
  };

  set.modeTwoAfterFilter = {
      {{u"X12", uR"re(<sub>(<img)(\s+?[^>]*?>)</sub>)re", uR"re($1 style="vertical-align:middle;"$2)re"},
       {.option = u"opt2eq"}},
      {{u"X13", uR"re((<table)([^>]*?>))re",
        uR"re($1 style="border-collapse:collapse;" border=1 bordercolor="#000000"$2)re"},
       {.option = u"opt2table"}},
      {{u"X14", uR"re((<p)([^>]*?>))re", uR"re($1 style="text-indent:2em;"$2)re"}, {.option = u"opt2indent"}},
      {{u"X15", uR"re(<p[^>]*?>)re", u""}, {.option = u"opt2ptobr"}},
      {{u"X16", uR"re(</p>)re", u"<br>"}, {.option = u"opt2ptobr"}},
      {{u"X17", uR"re((<\w[^>]*?)\s\s+([^>]*?>))re", u"$1 $2", kUntilStable}},
      {{u"X18", uR"re((<\w[^>]*?)\s>)re", u"$1>"}},
      {{u"X19", uR"re(^\s*<div(?=[\s>])[^>]*>([\s\S]+)</div>\s*$)re", u"$1"}},
  };

  set.tail = {
      {{u"T1", uR"re((<\w+)\s+>)re", u"$1>"}},
      {{u"T2", uR"re(<(span|font|b|strong|u|underline|i|a)(?=[\s\>])[^>]*?></\1>)re", u"", kUntilStable}},
      {{u"T3", uR"re(<span>(<span(?=[\s>])[^>]*?>[^<]*?</span>)</span>)re", u"$1", kUntilStable}},
      {{u"T4", uR"re((<p(?=[\s\>])[^>]*?>)(</p>))re", u"$1&nbsp;$2"}},
  };

  set.finalUnwrap = {u"F1", uR"re(^\s*<div\s*>([\s\S]+)</div>\s*$)re", u"$1"};
  return set;
}

void applyChange(RuleList& list, const RuleChange& change) {
  if (change.remove) {
    std::erase_if(list, [&](const ConditionalRule& entry) { return QStringView(entry.rule.name) == change.name; });
    return;
  }
  for (ConditionalRule& entry : list) {
    if (QStringView(entry.rule.name) != change.name) continue;
    if (change.pattern) entry.rule.pattern = change.pattern;
    if (change.when) entry.when = *change.when;
  }
}

WordRuleSet makeWpsRules() {
  WordRuleSet set = makeWordRules();
  // WPS Writer may write the four sides of the page margin separately.
  set.pageMarginSides = {
      uR"re(@page\s[^\{]+?\{[^\}]*?margin-top:([^;\}]+);[^\}]*?\})re",
      uR"re(@page\s[^\{]+?\{[^\}]*?margin-right:([^;\}]+);[^\}]*?\})re",
      uR"re(@page\s[^\{]+?\{[^\}]*?margin-bottom:([^;\}]+);[^\}]*?\})re",
      uR"re(@page\s[^\{]+?\{[^\}]*?margin-left:([^;\}]+);[^\}]*?\})re",
  };
  for (const RuleChange& change : wpsChanges())
    for (RuleList* list : {&set.head, &set.styleTags, &set.style, &set.body, &set.paste, &set.modeOne,
                           &set.modeTwoBeforeFilter, &set.modeTwoAfterFilter, &set.tail})
      applyChange(*list, change);
  return set;
}

}  // namespace

const std::vector<RuleChange>& wpsChanges() {
  static const std::vector<RuleChange> changes = {
      // WPS writes row and cell boundaries with more between them than spans and blanks.
      {.name = u"B4", .pattern = uR"re((<tr(?=[\s>])[^>]*?>)[\s\S]*?(<t[dh](?=[\s>])))re"},
      {.name = u"B5", .pattern = uR"re((</t[dh]>)[\s\S]*?(<(?:td|th|/tr)(?=[\s>])))re"},
      // Its equation pictures sit in raised spans, never in middle-aligned paragraphs.
      {.name = u"K8", .remove = true},
      {.name = u"X3", .remove = true},
      {.name = u"X4", .when = fromPaste},
  };
  return changes;
}

const WordRuleSet& wordRules(WordCleanup::Variant variant) {
  static const WordRuleSet word = makeWordRules();
  static const WordRuleSet wps = makeWpsRules();
  return variant == WordCleanup::Variant::WPS ? wps : word;
}

QString tagFilterPattern(const QString& permitted) {
  return QStringLiteral("<(?!(") + permitted + QStringLiteral("))+?[^>]*?>");
}

}  // namespace velmora::word
