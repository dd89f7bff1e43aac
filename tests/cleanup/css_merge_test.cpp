#include <gtest/gtest.h>

#include "cleanup/clsCSS.h"
#include "tests/common/Helpers.h"

namespace velmora {
namespace {

struct Case {
  const char* name;
  QString html, css, merged;
};

// The quick merge: every rule of a selector of letters and dots goes ahead of the element's own style.
TEST(CssMergeQuick, FoldsTheSheetIntoTheStartTags) {
  const QString unquoted = R"(<p class=a style='font-family:"Arial"'>x</p>)";
  const Case cases[] = {
      {"sheet declarations go ahead of the element's own", R"(<p class=MsoNormal style="color:red">)",
       "p.MsoNormal {margin:0cm; font-size:10.5pt;}", R"(<p style="margin:0cm; font-size:10.5pt;color:red"  >)"},
      {"a style element with line breaks, tabs and comments", "<table><tr><td class=xl65>1</td><td>2</td></tr></table>",
       "<style>\r\n<!--\r\ntd.xl65\r\n\t{color:blue;\r\n\tfont-family:\"Times New Roman\";}\r\n-->\r\n</style>",
       "<table><tr><td style=\"color:blue;font-family:'Times New Roman'\">1</td><td>2</td></tr></table>"},
      {"only selectors of letters and dots apply",
       "<h1 class=t>a</h1><h2>b</h2><p>c</p><div id=x><p class=q>d</p></div><a href=u>e</a>",
       "h1, h2, p {color:red} #x {margin:0} a:link {color:blue} div p {padding:0}",
       R"(<h1>a</h1><h2>b</h2><p style="color:red">c</p><div id=x><p style="color:red">d</p></div><a href=u>e</a>)"},
      {"rules of one selector join in their order", "<p>x</p>",
       "p {margin:0;}\r\nb {font-weight:bold}\r\nP {color:red;}", R"(<p style="margin:0;color:red">x</p>)"},
      {"class rules, then tag.class rules, then the element's own",
       R"(<p class='a' style="own:1">x</p><span class="A">y</span>)", ".a {c:1} p.a {t:2} span {s:3}",
       R"(<p style="c:1;t:2;own:1"    >x</p><span style="s:3;c:1"  >y</span>)"},
      {"single quoted styles become double quoted", R"(<td style='font-family:"Arial";color:red'>1</td>)",
       "td {width:10pt}", R"(<td style="width:10pt;font-family:'Arial';color:red"  >1</td>)"},
      {"no sheet leaves the html untouched", unquoted, "", unquoted},
      {"an empty style element too", unquoted, "<style>\r\n</style>", unquoted},
      {"comments and at-rules are no rules", unquoted, "/* nothing */ @import url(x.css);", unquoted},
      {"classes go even without a rule for them", "<p class=unknown>x</p><br>", "br {clear:both}",
       R"(<p>x</p><br style="clear:both">)"},
  };
  for (const Case& c : cases) EXPECT_EQ(clsCSS().MergeCssQuick(c.html, c.css), c.merged) << c.name;

  RuleTrace trace;
  clsCSS().MergeCssQuick("<p class=MsoNormal>x</p>", "p.MsoNormal {margin:0} .unused {x:1} td {y:2}", &trace);
  QStringList names;
  for (const RuleTrace::Step& step : trace.steps) names << step.rule;
  EXPECT_EQ(names, QStringList({"quote-class", "tag.class p.msonormal", "drop-classes"}));

  EXPECT_EQ(test::errorNumberOf([] { clsCSS().MergeCssQuick("<p class=a>x</p>", "p.a(b {color:red}"); }),
            errnum::RegExpSyntax)
      << "a selector that is no valid pattern";
}

TEST(CssMerge, FoldsTheSheetIntoClassedElementsAndTagsWithAttributes) {
  const Case cases[] = {
      {"tag.class then class declarations go ahead of the element's own",
       R"(<p class="note" style='font:"A"'>x</p><div class=note>y</div><b class='none'>z</b>)",
       "p.note {margin:0} .note {color:\"red\"} .other {x:1}",
       R"(<p style="color:'red';margin:0;font:'A'">x</p><div style="color:'red'">y</div><b>z</b>)"},
      {"tag rules reach only start tags with attributes", R"(<p>a</p><p align=center>b</p><P style="x:1">c</P>)",
       "p {margin:0}", R"(<p>a</p><p align=center style="margin:0">b</p><P style="margin:0;x:1">c</P>)"},
      {"a style whose quote never closes is left as it is", R"(<p class=a style="x>y)", ".a {c:1}", R"(<p style="x>y)"},
      {"without rules only the classes go", "<p class=a>x</p>", "", "<p>x</p>"},
      {"a rule without declarations is none", "<p>x</p>", "p", "<p>x</p>"},
  };
  for (const Case& c : cases) EXPECT_EQ(clsCSS().MergeCss(c.html, c.css), c.merged) << c.name;
}

TEST(CssMerge, ASelectorThatMatchesItsOwnReplacementStopsInsteadOfDoubling) {
  // "x|b" makes the tag pattern an alternation that matches "b c>", and the merged text
  // holds "b c>" again: every match would double the page.
  QString html = QString("<i b c>x</i>").repeated(60);
  EXPECT_EQ(test::errorNumberOf([&] { clsCSS().MergeCss(html, "x|b {d:b c>}"); }), errnum::OutOfMemory);
  // A large sheet on many start tags is no such case.
  const QString sheet = "i {" + QString(2000, u'x') + ":1} .a {y:2}";
  const QString merged = clsCSS().MergeCss(html.replace("<i b c>", "<i class=a b>"), sheet);
  EXPECT_EQ(merged.count(QString(2000, u'x') + ":1;y:2"), 60);
}

}  // namespace
}  // namespace velmora
