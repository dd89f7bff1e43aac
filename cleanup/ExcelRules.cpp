#include "cleanup/ExcelRules.h"

#include "cleanup/WordRules.h"

namespace velmora::excel {

namespace {

constexpr bool kUntilStable = true;

// Conditions the tables use more than once.
constexpr Condition withVml{.option = u"opt1vml"};
constexpr Condition fromPaste{.source = SourceIs::Paste};

ExcelRuleSet makeExcelRules() {
  ExcelRuleSet set;

  set.head = {
      {{u"EH1", uR"re(<!--\[if gte mso [0-9]+\]>([^a]|a)+?<!\[endif\]-->)re", u""}},
  };

  // Unlike Word's, Excel's style elements may carry attributes.
  set.styleElement = uR"re(<style.*?>([^a]|a)+?</style>)re";
  set.styleTags = {
      {{u"ES1", uR"re(</?style.*?>)re", u""}},
  };

  set.style = {
      {{u"ES2", uR"re(st[0-9]+\\:\*\s*\{\s*behavior:url\(#ieooui\)[^\}]*?\})re", u""}},
      {{u"ES3", uR"re([\w]+\\:\*\s*\{\s*behavior:url\(#default#VML\)[^\}]*?\})re", u""}, withVml},
      {{u"ES4", uR"re([\w\.]+\s*\{\s*behavior:url\(#default#VML\)[^\}]*?\})re", u""}, withVml},
      {{u"ES5", uR"re(<!--\s+)re", u""}},
      {{u"ES6", uR"re(\s+-->)re", u""}},
      {{u"ES7", uR"re(/\*[\w\s]+\*/)re", u""}},
      {{u"ES8", uR"re(@[^\{";]+?\{[^\}]*?\})re", u""}},
      // Office properties whose values are quoted go first, quotes and all.
      {{u"ES9", uR"re((\{[^\}]*?)(mso-[\w\-]+:"[^\}\n]+?";?)+([^}]*?\}))re", u"$1$3", kUntilStable}},
      {{u"ES10", uR"re((\{[^\}]*?)(mso-[\w\-]+:[^;\}]+;?)+([^}]*?\}))re", u"$1$3", kUntilStable}},
      {{u"ES11", uR"re([^\s\}\{][^\}\{]+?\{\s*?\})re", u""}},
      {{u"ES12", uR"re(\s*\{\s*)re", u" {"}},
      {{u"ES13", uR"re(\s*\}\s*)re", u"}\r\n"}},
      {{u"ES14", uR"re(\{((?:[\w\-]+:[^\};]+;)+)\s+([^\}]*?\}))re", u"{$1$2", kUntilStable}},
      {{u"ES15", uR"re((\r\n)+)re", u"\r\n"}},
      {{u"ES16", uR"re(\s*([^\s](?:[^a]|a)+[^\s])\s*)re", u"$1"}},
  };

  set.body = {
      {{u"EB1", uR"re(<!--\[if mso[^>]*?>([^a]|a)*?<!\[endif\]-->)re", u""}},
      {{u"EB2", uR"re(<!--[^>]*?-->)re", u""}},
      {{u"EB3", uR"re((<td\s[^>]*?)\sx:num="[0-9\.]+?"([^>]*?>))re", u"$1$2"}},
      {{u"EB4", uR"re((<td\s[^>]*?)\sx:num>)re", u"$1>"}},
      {{u"EB5", uR"re((<table(?=\s)[^>]*?)\sx:str([^>]*?>))re", u"$1$2"}},
      {{u"EB6", uR"re((<div(?=\s)[^>]*?)\sx:publishsource="Excel"([^>]*?>))re", u"$1$2"}},
  };

  set.paste = {
      {{u"EP1", uR"re(<v:shapetype[^>]*?>([^a]|a)*?</v:shapetype>)re", u""}, fromPaste},
  };
  // EP2 is the Word pipeline's P2 unchanged, taken from the Word table in both its forms:
  // with an image tag already in the text the VML shapes simply go, otherwise a shape with
  // a picture becomes an image tag of the shape's size.
  for (const ConditionalRule& entry : word::wordRules(WordCleanup::Variant::Word).paste) {
    if (QStringView(entry.rule.name) != u"P2") continue;
    set.paste.push_back({{u"EP2", entry.rule.pattern, entry.rule.replacement, entry.rule.untilStable},
                         {.source = SourceIs::Paste, .textMatches = entry.when.textMatches}});
  }

  set.modeOneBeforeScroll = {
      {{u"EK1b", uR"re(<!\[if !vml\]>([^a]|a)+?<!\[endif\]>)re", u""}, {.optionOff = u"opt1vml"}},
      {{u"EK1", uR"re(<!--\[if gte vml 1\]>([^a]|a)+?<!\[endif\]-->)re", u""}, withVml},
      {{u"EK2", uR"re(<!\[if !vml\]>(([^a]|a)+?)<!\[endif\]>)re", u"$1"}, withVml},
      {{u"EK3", uR"re(</?[vox]:[a-z]+[^>]*?>)re", u""}, withVml},
      {{u"EK4", uR"re(<tr\s[^>]*?>\s*?(<td[^>]*?>[\s\u3000]*?</td>\s*?)+?</tr>)re", u""}, {.option = u"opt1space"}},
      {{u"EK5", uR"re((\std\s*\{[^\}]*?)border\s*:\s*none([^\}]*?\}))re", u"$1$2"},
       {.option = u"opt1table"},
       Target::Style},
      {{u"EK6", uR"re((<table(?=\s)[^>]*?)\sborder=0([^>]*?>))re", u"$1 border=1$2"}, {.option = u"opt1table"}},
  };

  set.modeOneAfterScroll = {
      {{u"EK8", uR"re((<\w+\s+[^>]*?style='[^'>]*?)(mso-[\w\-]+:[^;'>]+;?)+([^'>]*?'[^>]*?>))re", u"$1$3",
        kUntilStable}},
      {{u"EK9", uR"re((<\w+\s+[^>]*?style="[^">]*?)(mso-[\w\-]+:[^;">]+;?)+([^">]*?"[^>]*?>))re", u"$1$3",
        kUntilStable}},
      {{u"EK10", uR"re((<\w+\s+[^>]*?)style=(['"])\s*?\2([^>]*?>))re", u"$1$3"}},
      {{u"EK11", uR"re((<\w+[^>]*?)\slang=[\w\-]+([^>]*?>))re", u"$1$2"}},
      {{u"EK12", uR"re((<img[^>]*?)\sv:shapes="[^<>"]*"([^>]*?>))re", u"$1$2"}},
  };

  set.modeTwoBeforeFilter = {
      {{u"EX1", uR"re(<!--\[if gte vml 1\]>([^a]|a)+?<!\[endif\]-->)re", u""}},
      {{u"EX2", uR"re(<!\[if !vml\]>(([^a]|a)+?)<!\[endif\]>)re", u"$1"}},
  };
  set.permittedTags = u"table|tr|td|th|/table|/tr|/td|/th";
  set.permittedImage = u"|img";

  set.modeTwoAfterFilter = {
      {{u"EX4", uR"re(<tr\s[^>]*?>\s*?(<td[^>]*?></td>\s*?)+?</tr>)re", u""}, {.option = u"opt2space"}},
      {{u"EX5", uR"re((<\w+?\s+?[^>]*?)class=\w*([^>]*?>))re", u"$1$2"}},
      {{u"EX6", uR"re((<\w+?\s+?[^>]*?)style='[^<>']*'([^>]*?>))re", u"$1$2"}},
      {{u"EX7", uR"re((<\w+?\s+?[^>]*?)style=\"[^<>\"]*\"([^>]*?>))re", u"$1$2"}},
      {{u"EX8", uR"re((<\w+?\s+?[^>]*?)lang=\w*([^>]*?>))re", u"$1$2"}},
      {{u"EX9", uR"re((<img[^>]*?)\sv:shapes="[^<>"]*"([^>]*?>))re", u"$1$2"}},
      {{u"EX10", uR"re(<table([^>]*?)\sborder=0([^>]*?)>)re",
        uR"re(<table$1 border=1 style="border-collapse:collapse;"$2>)re"},
       {.option = u"opt2table"}},
      {{u"EX11", uR"re((<\w[^>]*?)\s\s+([^>]*?>))re", u"$1 $2", kUntilStable}},
      {{u"EX12", uR"re((<\w[^>]*?)\s>)re", u"$1>"}},
  };
  return set;
}

}  // namespace

const ExcelRuleSet& excelRules() {
  static const ExcelRuleSet rules = makeExcelRules();
  return rules;
}

QString tagFilterPattern(const QString& permitted) {
  return QStringLiteral("<(?!(") + permitted + QStringLiteral("))+?[^>]*?>");
}

}  // namespace velmora::excel
