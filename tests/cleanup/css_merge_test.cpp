#include <gtest/gtest.h>

#include <QStringList>

#include "cleanup/clsCSS.h"
#include "core/ScriptError.h"

namespace velmora {
namespace {

// Compares texts and shows them as text when they differ.
testing::AssertionResult sameText(const char* actualExpr, const char* expectedExpr, const QString& actual,
                                  const QString& expected) {
  if (actual == expected) return testing::AssertionSuccess();
  return testing::AssertionFailure() << actualExpr << " is\n  " << actual.toStdString() << "\nexpected "
                                     << expectedExpr << "\n  " << expected.toStdString();
}
#define EXPECT_TEXT(actual, expected) EXPECT_PRED_FORMAT2(sameText, actual, expected)

QString quick(const QString& html, const QString& css, RuleTrace* trace = nullptr) {
  return clsCSS().MergeCssQuick(html, css, trace);
}

QString full(const QString& html, const QString& css) { return clsCSS().MergeCss(html, css); }

QStringList ruleNames(const RuleTrace& trace) {
  QStringList names;
  for (const RuleTrace::Step& step : trace.steps) names << step.rule;
  return names;
}

TEST(CssMergeQuick, SheetDeclarationsGoAheadOfTheElementsOwn) {
  EXPECT_TEXT(quick(R"(<p class=MsoNormal style="color:red">)", "p.MsoNormal {margin:0cm; font-size:10.5pt;}"),
            R"(<p style="margin:0cm; font-size:10.5pt;color:red"  >)");
}

TEST(CssMergeQuick, StyleElementWithLineBreaksTabsAndComments) {
  const QString css =
      "<style>\r\n<!--\r\ntd.xl65\r\n\t{color:blue;\r\n\tfont-family:\"Times New Roman\";}\r\n-->\r\n</style>";
  EXPECT_TEXT(quick("<table><tr><td class=xl65>1</td><td>2</td></tr></table>", css),
            "<table><tr><td style=\"color:blue;font-family:'Times New Roman'\">1</td><td>2</td></tr></table>");
}

TEST(CssMergeQuick, OnlySelectorsOfLettersAndDotsApply) {
  const QString html = "<h1 class=t>a</h1><h2>b</h2><p>c</p><div id=x><p class=q>d</p></div><a href=u>e</a>";
  EXPECT_TEXT(quick(html, "h1, h2, p {color:red} #x {margin:0} a:link {color:blue} div p {padding:0}"),
            R"(<h1>a</h1><h2>b</h2><p style="color:red">c</p><div id=x><p style="color:red">d</p></div>)"
            R"(<a href=u>e</a>)");
}

TEST(CssMergeQuick, RulesOfOneSelectorJoinInTheirOrder) {
  EXPECT_TEXT(quick("<p>x</p>", "p {margin:0;}\r\nb {font-weight:bold}\r\nP {color:red;}"),
            R"(<p style="margin:0;color:red">x</p>)");
}

TEST(CssMergeQuick, ClassRulesThenTagClassRulesThenTheElementsOwn) {
  const QString merged = quick(R"(<p class='a' style="own:1">x</p><span class="A">y</span>)",
                               ".a {c:1} p.a {t:2} span {s:3}");
  EXPECT_TEXT(merged, R"(<p style="c:1;t:2;own:1"    >x</p><span style="s:3;c:1"  >y</span>)");
}

TEST(CssMergeQuick, SingleQuotedStylesBecomeDoubleQuoted) {
  EXPECT_TEXT(quick(R"(<td style='font-family:"Arial";color:red'>1</td>)", "td {width:10pt}"),
            R"(<td style="width:10pt;font-family:'Arial';color:red"  >1</td>)");
}

TEST(CssMergeQuick, WithoutRulesTheHtmlComesBackUntouched) {
  const QString html = R"(<p class=a style='font-family:"Arial"'>x</p>)";
  EXPECT_TEXT(quick(html, ""), html);
  EXPECT_TEXT(quick(html, "<style>\r\n</style>"), html);
  EXPECT_TEXT(quick(html, "/* nothing */ @import url(x.css);"), html);
}

TEST(CssMergeQuick, ClassesGoEvenWithoutARuleForThem) {
  EXPECT_TEXT(quick("<p class=unknown>x</p><br>", "br {clear:both}"), R"(<p>x</p><br style="clear:both">)");
}

TEST(CssMergeQuick, TraceNamesEachPassAndItsSelector) {
  RuleTrace trace;
  quick("<p class=MsoNormal>x</p>", "p.MsoNormal {margin:0} .unused {x:1} td {y:2}", &trace);
  EXPECT_EQ(ruleNames(trace), QStringList({"quote-class", "tag.class p.msonormal", "drop-classes"}));
}

TEST(CssMergeQuick, ASelectorThatIsNoValidPatternRaises) {
  try {
    quick("<p class=a>x</p>", "p.a(b {color:red}");
    FAIL() << "no error";
  } catch (const ScriptError& error) {
    EXPECT_EQ(error.number(), errnum::RegExpSyntax);
  }
}

TEST(CssMerge, ClassedElementsGetTagClassThenClassDeclarationsAheadOfTheirOwn) {
  const QString css = "p.note {margin:0} .note {color:\"red\"} .other {x:1}";
  EXPECT_TEXT(full(R"(<p class="note" style='font:"A"'>x</p><div class=note>y</div><b class='none'>z</b>)", css),
            R"(<p style="color:'red';margin:0;font:'A'">x</p><div style="color:'red'">y</div><b>z</b>)");
}

TEST(CssMerge, TagRulesReachOnlyStartTagsWithAttributes) {
  EXPECT_TEXT(full(R"(<p>a</p><p align=center>b</p><P style="x:1">c</P>)", "p {margin:0}"),
            R"(<p>a</p><p align=center style="margin:0">b</p><P style="margin:0;x:1">c</P>)");
}

TEST(CssMerge, AStyleWhoseQuoteNeverClosesIsLeftAsItIs) {
  EXPECT_TEXT(full(R"(<p class=a style="x>y)", ".a {c:1}"), R"(<p style="x>y)");
}

TEST(CssMerge, ASelectorThatMatchesItsOwnReplacementStopsInsteadOfDoubling) {
  // "x|b" makes the tag pattern an alternation that matches "b c>", and the merged text
  // holds "b c>" again: every match would double the page.
  QString html;
  for (int i = 0; i < 60; ++i) html += "<i b c>x</i>";
  try {
    full(html, "x|b {d:b c>}");
    FAIL() << "no error";
  } catch (const ScriptError& error) {
    EXPECT_EQ(error.number(), errnum::OutOfMemory);
  }
  // A large sheet on many start tags is no such case.
  const QString sheet = "i {" + QString(2000, u'x') + ":1} .a {y:2}";
  EXPECT_EQ(full(html.replace("<i b c>", "<i class=a b>"), sheet).count(QString(2000, u'x') + ":1;y:2"), 60);
}

TEST(CssMerge, WithoutRulesOnlyTheClassesGo) {
  EXPECT_TEXT(full("<p class=a>x</p>", ""), "<p>x</p>");
  EXPECT_TEXT(full("<p>x</p>", "p"), "<p>x</p>");
}

}  // namespace
}  // namespace velmora
