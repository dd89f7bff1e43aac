#include <gtest/gtest.h>

#include "cleanup/ExcelCleanup.h"
#include "support/RegExp.h"
#include "tests/cleanup/CleanupTesting.h"

namespace velmora {
namespace {

using test::Cleaned;
using test::kAny;

Cleaned clean(const QString& source, const QString& html, const QString& options) {
  Context context;
  Cleaned out;
  ExcelCleanup(context).OptimizeHTML(source, html, options, out.style, out.body, &out.trace);
  return out;
}

// The WPS spreadsheet clean-up: the same pipeline with the workbook's shared sheet.
Cleaned cleanWps(const QString& html, const QString& extraCss, const QString& options) {
  Context context;
  Cleaned out;
  ExcelCleanup(context).OptimizeHTML("import", html, extraCss, options, out.style, out.body, &out.trace);
  return out;
}

QString doc(const QString& name) { return test::fixture("excel/" + name); }
QString inBody(const QString& html) { return "<body>" + html + "</body>"; }

// Each rule and option on a small page: the body and, when given, the style it must give.
TEST(ExcelCleanup, RulesAndOptions) {
  const QString m1 = "optimizemode:1", m2 = "optimizemode:2", emptyStyle = "<style>\r\n\r\n</style>";
  auto styled = [](const QString& css) { return "<head><style>" + css + "</style></head><body></body>"; };
  const QString vmlCss = "\r\nv\\:* {behavior:url(#default#VML);}\r\n.shape {behavior:url(#default#VML);}\r\n"
                         "st1\\:*{behavior:url(#ieooui) }\r\nbr {color:red}\r\n";
  const QString shapeType =
      "<v:shapetype id=\"_x0000_t75\" coordsize=\"21600,21600\" o:spt=\"75\">\r\n<v:stroke joinstyle=\"miter\"/>\r\n"
      "</v:shapetype>";
  const QString picture =
      "<td><!--[if gte vml 1]><v:shape id=\"P1\" style='width:48pt'><v:imagedata src=\"p_files/image001.png\"/>"
      "</v:shape><![endif]--><![if !vml]><span style='mso-ignore:vglayout;position:absolute'><img width=64 "
      "src=\"p_files/image002.png\" v:shapes=\"P1\"></span><![endif]><o:p></o:p><x:ClientData/></td>";
  const QString gridPage = "<head><style>\r\ntd\r\n\t{color:black;\r\n\tborder:none;\r\n\twhite-space:nowrap;}\r\n"
                           ".xl65\r\n\t{border:none;}\r\n</style></head><body><table border=0 cellpadding=0 "
                           "border=0><tr><td>1</td></tr></table><table class=x\r\nborder=0></table></body>";
  const QString cssPage = "<head><style>\r\ntd\r\n\t{color:black;\r\n\tmso-ignore:padding;}\r\n.xl65\r\n\t"
                          "{font-weight:700;\r\n\tfont-family:\"Arial\";}\r\n</style></head><body><table border=0>"
                          "<tr><td class=xl65 style='height:15pt'>a</td><td>b</td></tr></table></body>";
  const QString switched = inBody("<table border=0><tr><td class=x>a</td></tr></table>");
  const QString keptClass = "<table border=0><tr><td class=x>a</td></tr></table>";
  const std::vector<test::Case> cases = {
      {"every style element of the head is collected",
       "<html><head><style id=\"Book_Styles\">\r\n<!--td\r\n\t{color:red;\r\n\tfont-size:11.0pt;}\r\n-->\r\n"
       "</style>\r\n<STYLE type=\"text/css\">.xl65 {font-weight:700}</STYLE></head><body>x</body>",
       m1, "x", "<style>\r\n<!--td {color:red;font-size:11.0pt;}\r\n.xl65 {font-weight:700}\r\n</style>"},
      {"VML behaviour rules stay without opt1vml", styled(vmlCss), m1, kAny,
       "<style>\r\nv\\:* {behavior:url(#default#VML);}\r\n.shape {behavior:url(#default#VML);}\r\nbr {color:red}\r\n"
       "</style>"},
      {"opt1vml drops VML behaviour rules", styled(vmlCss), m1 + ";opt1vml:1", kAny,
       "<style>\r\nbr {color:red}\r\n</style>"},
      {"without style elements the style is an empty element", "<head><title>t</title></head><body>x</body>", m1, kAny,
       emptyStyle},
      {"conditional blocks of the head are not collected",
       "<head><!--[if gte mso 9]><xml><style>td {color:red}</style></xml><![endif]-->"
       "<style>p {margin:0}</style></head><body>x</body>",
       m1, kAny, "<style>\r\np {margin:0}\r\n</style>"},
      {"without a head end the whole text is head and body",
       "<style>td {color:red}</style><table border=0><tr><td>1</td></tr></table>", m1,
       "<style>td {color:red}</style><table border=0><tr><td>1</td></tr></table>",
       "<style>\r\ntd {color:red}\r\n</style>"},
      {"the body is cut between the body tags", "<head></head><BODY link=blue>\r\n<p>a</p>\r\n</BODY>\r\n</html>", m1,
       "\r\n<p>a</p>\r\n"},
      {"without a body tag nothing is cut at the front; the last body end tag ends it",
       "</head><p>a</p></body><p>b</p></body>x", m1, "<p>a</p></body><p>b</p>"},
      {"sheet attributes of cells, tables and divisions go",
       inBody("<div id=\"Div1\" align=center x:publishsource=\"Excel\">\r\n<table border=0 cellpadding=0 x:str>\r\n"
              "<tr><td class=xl67 align=right x:num=\"1234.5\">1,234.50</td><td class=xl67 x:num>9,876.00</td>"
              "<td x:num=\"-3.5\">-3.5</td><td x:str=\"'0012\">0012</td></tr></table></div>"),
       m1,
       "<div id=\"Div1\" align=center>\r\n<table border=0 cellpadding=0>\r\n<tr><td class=xl67 align=right>1,234.50"
       "</td><td class=xl67>9,876.00</td><td x:num=\"-3.5\">-3.5</td><td x:str=\"'0012\">0012</td></tr></table></div>"},
      {"comments without markup and conditional office blocks go",
       inBody("<!--StartFragment-->a<!--[if mso]><b>x</b><![endif]-->b<!--[if !excel]>&nbsp;<![endif]-->"
              "<!----------------------------->c"),
       m1, "ab<!--[if !excel]>&nbsp;<![endif]-->c"},
      {"the paste rules are for the source paste", inBody("<td>" + shapeType + "</td>"), m1, "<td></td>", kAny,
       "paste"},
      {"compared exactly", inBody("<td>" + shapeType + "</td>"), m1, "<td>" + shapeType + "</td>", kAny, "Paste"},
      {"not for import", inBody("<td>" + shapeType + "</td>"), m1, "<td>" + shapeType + "</td>"},
      {"without opt1vml the fallback picture goes and VML stays", inBody(picture), m1,
       "<td><!--[if gte vml 1]><v:shape id=\"P1\" style='width:48pt'><v:imagedata src=\"p_files/image001.png\"/>"
       "</v:shape><![endif]--><o:p></o:p><x:ClientData/></td>"},
      {"with opt1vml the fallback picture stays and VML goes", inBody(picture), m1 + ";opt1vml:1",
       "<td><span style='position:absolute'><img width=64 src=\"p_files/image002.png\"></span></td>"},
      // The first border=0 of a start tag is the one that changes.
      {"opt1table draws the grid and drops border:none of cells", gridPage, m1 + ";opt1table:1",
       "<table border=1 cellpadding=0 border=0><tr><td>1</td></tr></table><table class=x\r border=1></table>",
       "<style>\r\ntd {color:black;;white-space:nowrap;}\r\n.xl65 {border:none;}\r\n</style>"},
      {"no grid without opt1table", gridPage, m1,
       "<table border=0 cellpadding=0 border=0><tr><td>1</td></tr></table><table class=x\r\nborder=0></table>",
       "<style>\r\ntd {color:black;border:none;white-space:nowrap;}\r\n.xl65 {border:none;}\r\n</style>"},
      {"office properties, languages and empty styles go from tags",
       inBody("<col width=90 style='mso-width-source:userset;mso-width-alt:2880;width:68pt'>"
              "<tr style=\"mso-height-source:userset;height:30pt\"><td lang=EN-US "
              "style='mso-ignore:padding'>a</td></tr><img src=a.png v:shapes=\"P1 P2\">"),
       m1, "<col width=90 style='width:68pt'><tr style=\"height:30pt\"><td >a</td></tr><img src=a.png>"},
      {"opt1css is a mode 1 option", cssPage, "optimizemode:2;opt1css:1",
       "<table border=0><tr><td>a</td><td>b</td></tr></table>"},
      // A switch is on for exactly "1"; how the option string is read is tested with the control.
      {"optimizemode:01 is mode 2", switched, "optimizemode:01", "<table border=0><tr><td>a</td></tr></table>"},
      {"optimizemode:true is mode 2", switched, "optimizemode:true", kAny, ""},
      {"no options is mode 2", switched, "", "<table border=0><tr><td>a</td></tr></table>"},
      {"opt1table:yes is off", switched, m1 + ";opt1table:yes", keptClass},
      {"opt1table:1 is on", switched, m1 + ";opt1table:1", "<table border=1><tr><td class=x>a</td></tr></table>"},
      {"an empty text in mode 1", "", m1, "", emptyStyle},
      {"an empty text in mode 2", "", m2 + ";opt2table:1", "", "", "paste"},
      {"a tag that never closes is no tag to the rules", inBody("<td>before <span class=x"), m2,
       "<td>before <span class=x"},
  };
  test::expectCases(cases, [](const test::Case& c) { return clean(c.source, c.html, c.options); });
}

TEST(ExcelCleanup, StartsAfreshAndYieldsToTheEventLoop) {
  test::expectStartsAfresh<ExcelCleanup>("<body><td class=n x:num>1</td></body>", "<td class=n>1</td>", "EB4", 6);
}

// The wps_sheet golden output has no style of its own, so the order is checked here.
TEST(ExcelCleanupWps, TheSharedSheetStandsCleanedAheadOfTheSheetsOwnRules) {
  const QString page = "<head><style>\r\n<!--.xl70\r\n\t{mso-style-parent:style0;\r\n\tcolor:red;}\r\n-->\r\n"
                       "</style></head><body><table border=0><tr><td class=xl70 x:str>a</td></tr></table></body>";
  const QString shared = "td\r\n\t{mso-style-parent:style0;\r\n\tborder:none;}\r\n"
                         ".xl65\r\n\t{mso-number-format:\"General\";\r\n\tfont-weight:700;}\r\n";
  EXPECT_EQ(cleanWps(page, shared, "optimizemode:1").style,
            "<style>\r\ntd {border:none;}\r\n.xl65 {font-weight:700;}\r\n<!--.xl70 {color:red;}\r\n</style>");
}

TEST(ExcelCleanupWps, TheSharedSheetReachesTheCellsOnlyInMode1) {
  EXPECT_EQ(cleanWps(doc("wps_sheet002.htm"), doc("wps_stylesheet.css"), "optimizemode:2").style, "");
  const Cleaned merged = cleanWps(doc("wps_sheet002.htm"), doc("wps_stylesheet.css"), "optimizemode:1;opt1css:1");
  EXPECT_EQ(merged.style, "");
  EXPECT_TRUE(
      merged.body.contains("<td style=\"padding-top:1px;padding-right:1px;padding-left:1px;text-align:general;"
                           "vertical-align:middle;white-space:nowrap;color:#000000;font-size:11.0pt;"
                           "font-weight:400;font-style:normal;text-decoration:none;font-family:宋体;border:none;"
                           "font-weight:700;text-align:center;border:.5pt solid #000000;font-family:宋体;"
                           "height:13.50pt;width:54.00pt;\""))
      << merged.body;
}

TEST(ExcelCleanupDocuments, MatchTheirCheckedOutputs) {
  const QString sheet = doc("published_sheet.htm"), clipboard = doc("clipboard_format.txt");
  const std::pair<const char*, Cleaned> outputs[] = {
      {"published_mode1", clean("import", sheet, "optimizemode:1")},
      {"published_mode1_options",
       clean("import", sheet, "optimizemode:1;opt1vml:1;opt1space:1;opt1table:1;opt1overflow:1")},
      {"published_mode1_css", clean("import", sheet, "optimizemode:1;opt1vml:1;opt1css:1")},
      {"published_mode2", clean("import", sheet, "optimizemode:2")},
      {"published_mode2_options", clean("import", sheet, "optimizemode:2;opt2image:1;opt2space:1;opt2table:1")},
      {"clipboard_mode1", clean("paste", clipboard, "optimizemode:1;opt1vml:1")},
      {"clipboard_mode2", clean("paste", clipboard, "optimizemode:2;opt2image:1")},
      {"wps_sheet_mode1", cleanWps(doc("wps_sheet002.htm"), doc("wps_stylesheet.css"), "optimizemode:1")},
  };
  for (const auto& [name, out] : outputs) test::expectGolden("excel", name, out);
}

// The text a reader sees, without white space (ideographic and no-break spaces included)
// and without the marks where pictures stand: which pictures stay depends on the options.
QString visibleText(const QString& html) { return test::renderedText(html, R"(\s\x{a0}\x{3000}\x{fffc})"); }

// Properties that hold for any sheet, checked on a large one (the fixtures have golden outputs).
void expectCleanedWell(const QString& source, const QString& page) {
  const QString inputText = visibleText(test::bodyOf(page));
  const Cleaned one = clean(source, page, "optimizemode:1;opt1vml:1;opt1table:1");
  for (const QString& tag : test::tagsOf(one.body)) {
    // x:num goes only with a value of digits and dots: a negative number keeps it.
    EXPECT_FALSE(RegExpTest(R"(\s(x:num="[0-9.]+"|x:publishsource=|lang=))", tag)) << tag;
    EXPECT_FALSE(tag.startsWith("<v:") || tag.startsWith("<o:") || tag.startsWith("<x:")) << tag;
    const QString style = RegExpSubMatch(tag, R"(^<\w+\s[^>]*?style=(['"])([^'"]*)\1)", 1);
    EXPECT_FALSE(style.contains("mso-", Qt::CaseInsensitive)) << tag;
  }
  EXPECT_EQ(visibleText(one.body), inputText);
  EXPECT_EQ(visibleText(clean(source, page, "optimizemode:1;opt1css:1").body), inputText);

  const Cleaned two = clean(source, page, "optimizemode:2");
  EXPECT_EQ(two.style, "");
  for (const QString& tag : test::tagsOf(two.body)) EXPECT_TRUE(test::startsLike(tag, "/?(table|tr|td|th)")) << tag;
  EXPECT_EQ(visibleText(two.body), inputText);

  const Cleaned kept = clean(source, page, "optimizemode:2;opt2image:1;opt2table:1");
  for (const QString& tag : test::tagsOf(kept.body))
    EXPECT_TRUE(test::startsLike(tag, "/?(table|tr|td|th)|img")) << tag;
}

TEST(ExcelCleanupDocuments, KeepTheTextDropTheMarkup) {
  const QString page = doc("published_sheet.htm");

  const qsizetype start = page.indexOf(" <tr height=20"), end = page.indexOf(" <![if supportMisalignedColumns]>");
  QString large = page.left(start);
  while (large.size() < 3'000'000) large += page.mid(start, end - start);
  large += page.mid(end);
  expectCleanedWell("import", large);
  const Cleaned spaced = clean("import", large, "optimizemode:1;opt1space:1;opt1overflow:1");
  EXPECT_TRUE(spaced.body.startsWith("<div style=\"width:100%;overflow:auto;\">\r\n"));
  EXPECT_FALSE(spaced.body.contains("\u3000\u3000</td>"));
}

// Bad input: a clear result, never a crash or a hang.

TEST(ExcelCleanupBadInput, BrokenTextAndEndlessBlankRows) {
  const QString broken = "<head><style>td {color:red</style><body><table border=0 x:str><tr><td x:num=\"1\""
                         "<td>open<![if !vml]><img src=a.png>cell</td></body><!--[if gte vml 1]> never closed <v:shape";
  for (const char* options : {"optimizemode:1;opt1vml:1;opt1space:1;opt1table:1;opt1css:1", "optimizemode:1",
                              "optimizemode:2;opt2image:1;opt2space:1;opt2table:1"}) {
    const Cleaned out = clean("paste", broken, options);
    EXPECT_TRUE(visibleText(out.body).contains("opencell")) << options << " gave " << out.body;
  }
  const QString rows = QString("<tr height=20><td> </td><td>\u3000</td>").repeated(20000);
  EXPECT_EQ(clean("import", inBody("<table>" + rows + "</table>"), "optimizemode:1;opt1space:1").body,
            "<table>" + rows + "</table>");
  const QString emptyRows = QString("<tr height=20><td></td>").repeated(20000);
  EXPECT_EQ(clean("import", inBody(emptyRows), "optimizemode:2;opt2space:1").body, emptyRows);
}

// Openers that never close make a lazy rule scan to the end from each of them, so time
// grows with the square of their number: these sizes finish in about a second.
TEST(ExcelCleanupBadInput, BacktrackingBaitFinishesOrFailsClearly) {
  const QString baits[] = {
      "<body><!--[if gte vml 1]>" + QString("<v:shape x>").repeated(5000) + "</body>",
      "<body>" + QString("<![if !vml]>").repeated(3000) + "</body>",
      "<body>" + QString("<td x:num=\"1").repeated(5000) + "</body>",
      "<head><style>" + QString("td {mso-a:\"1\";color:red;").repeated(3000) + "</style></head>",
      "<body><p style='" + QString("mso-a:1").repeated(40) + ">x</p></body>",
  };
  for (const QString& bait : baits) {
    for (const char* options : {"optimizemode:1;opt1vml:1;opt1space:1", "optimizemode:1", "optimizemode:2"}) {
      try {
        EXPECT_LE(clean("paste", bait, options).body.size(), bait.size() + 100);
      } catch (const ScriptError& error) {
        EXPECT_EQ(error.number(), errnum::RegExpGaveUp) << error.description();
      }
    }
  }
}

TEST(ExcelCleanupBadInput, MutatedSheetsSurvive) {
  const QString shared = doc("wps_stylesheet.css");
  test::expectMutationsSurvive(
      {doc("published_sheet.htm"), doc("clipboard_format.txt"), doc("wps_sheet002.htm")},
      {"opt1vml", "opt1space", "opt1table", "opt1overflow", "opt1css", "opt2image", "opt2space", "opt2table"}, 4102, 4,
      {errnum::RegExpGaveUp, errnum::RegExpSyntax}, [&](int round, const QString& html, const QString& options) {
        return round % 4 ? clean(round % 2 ? "paste" : "import", html, options) : cleanWps(html, shared, options);
      });
}

}  // namespace
}  // namespace velmora
