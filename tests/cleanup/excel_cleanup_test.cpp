#include <gtest/gtest.h>

#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTextDocument>
#include <QTimer>

#include "cleanup/ExcelCleanup.h"
#include "cleanup/ExcelRules.h"
#include "cleanup/WordRules.h"
#include "support/RegExp.h"
#include "core/ScriptError.h"
#include "support/basPublic.h"
#include "tests/common/TestSupport.h"

namespace velmora {
namespace {

// Compares texts and shows them as text when they differ.
testing::AssertionResult sameText(const char* actualExpr, const char* expectedExpr, const QString& actual,
                                  const QString& expected) {
  if (actual == expected) return testing::AssertionSuccess();
  auto shown = [](const QString& text) { return (text.size() > 800 ? text.left(800) + "..." : text).toStdString(); };
  return testing::AssertionFailure() << actualExpr << " is\n  " << shown(actual) << "\nexpected " << expectedExpr
                                     << "\n  " << shown(expected);
}
#define EXPECT_TEXT(actual, expected) EXPECT_PRED_FORMAT2(sameText, actual, expected)

struct Cleaned {
  QString style;
  QString body;
  RuleTrace trace;
};

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

QString modeOne(const QString& body, const QString& options = {}, const QString& source = "import") {
  return clean(source, "<body>" + body + "</body>", "optimizemode:1;" + options).body;
}

QString modeTwo(const QString& body, const QString& options = {}, const QString& source = "import") {
  return clean(source, "<body>" + body + "</body>", "optimizemode:2;" + options).body;
}

// The style of a page whose head holds `css` in one style element.
QString styleOf(const QString& css, const QString& options = "optimizemode:1") {
  return clean("import", "<head><style>" + css + "</style></head><body></body>", options).style;
}

QString fixture(const QString& name) { return ReadTextFile(test::testData("excel/" + name)); }

QStringList namesOf(const excel::RuleList& list) {
  QStringList names;
  for (const excel::ConditionalRule& entry : list) names << QString::fromUtf16(entry.rule.name);
  return names;
}

QString tracedRules(const RuleTrace& trace) {
  QStringList names;
  for (const RuleTrace::Step& step : trace.steps) names << step.rule;
  return names.join(u' ');
}

// ---------------------------------------------------------------------------------------
// The tables.

TEST(ExcelRules, StandInTheirOrder) {
  const excel::ExcelRuleSet& rules = excel::excelRules();
  EXPECT_EQ(namesOf(rules.head), QStringList({"EH1"}));
  EXPECT_EQ(namesOf(rules.styleTags), QStringList({"ES1"}));
  EXPECT_EQ(namesOf(rules.style), QStringList({"ES2", "ES3", "ES4", "ES5", "ES6", "ES7", "ES8", "ES9", "ES10", "ES11",
                                               "ES12", "ES13", "ES14", "ES15", "ES16"}));
  EXPECT_EQ(namesOf(rules.body), QStringList({"EB1", "EB2", "EB3", "EB4", "EB5", "EB6"}));
  EXPECT_EQ(namesOf(rules.paste), QStringList({"EP1", "EP2", "EP2"}));
  EXPECT_EQ(namesOf(rules.modeOneBeforeScroll), QStringList({"EK1b", "EK1", "EK2", "EK3", "EK4", "EK5", "EK6"}));
  EXPECT_EQ(namesOf(rules.modeOneAfterScroll), QStringList({"EK8", "EK9", "EK10", "EK11", "EK12"}));
  EXPECT_EQ(namesOf(rules.modeTwoBeforeFilter), QStringList({"EX1", "EX2"}));
  EXPECT_EQ(namesOf(rules.modeTwoAfterFilter),
            QStringList({"EX4", "EX5", "EX6", "EX7", "EX8", "EX9", "EX10", "EX11", "EX12"}));
}

TEST(ExcelRules, EveryPatternCompiles) {
  const excel::ExcelRuleSet& rules = excel::excelRules();
  for (const excel::RuleList* list : {&rules.head, &rules.styleTags, &rules.style, &rules.body, &rules.paste,
                                      &rules.modeOneBeforeScroll, &rules.modeOneAfterScroll,
                                      &rules.modeTwoBeforeFilter, &rules.modeTwoAfterFilter})
    for (const excel::ConditionalRule& entry : *list)
      EXPECT_NO_THROW(RegExp(QString::fromUtf16(entry.rule.pattern)).test({})) << QString::fromUtf16(entry.rule.name).toStdString();
  EXPECT_NO_THROW(RegExp(QString::fromUtf16(rules.styleElement)).test({}));
  EXPECT_NO_THROW(RegExp(excel::tagFilterPattern(QString::fromUtf16(rules.permittedTags))).test({}));
}

// The paste rule EP2 is the Word pipeline's P2; the two must not drift apart.
TEST(ExcelRules, PictureRuleOfThePasteIsTheWordOne) {
  QStringList wordP2, excelEP2;
  for (const word::ConditionalRule& entry : word::wordRules(WordCleanup::Variant::Word).paste)
    if (QStringView(entry.rule.name) == u"P2")
      wordP2 << QString::fromUtf16(entry.rule.pattern) + " -> " + QString::fromUtf16(entry.rule.replacement);
  for (const excel::ConditionalRule& entry : excel::excelRules().paste)
    if (QStringView(entry.rule.name) == u"EP2")
      excelEP2 << QString::fromUtf16(entry.rule.pattern) + " -> " + QString::fromUtf16(entry.rule.replacement);
  EXPECT_EQ(excelEP2, wordP2);
  EXPECT_EQ(excelEP2.size(), 2);
}

// ---------------------------------------------------------------------------------------
// Head, style and body cut.

TEST(ExcelCleanupStyle, CollectsEveryStyleElementOfTheHeadWithItsAttributes) {
  const QString page = "<html><head><style id=\"Book_Styles\">\r\n<!--td\r\n\t{color:red;\r\n\tfont-size:11.0pt;}\r\n-->"
                       "\r\n</style>\r\n<STYLE type=\"text/css\">.xl65 {font-weight:700}</STYLE></head><body>x</body>";
  const Cleaned out = clean("import", page, "optimizemode:1");
  EXPECT_TEXT(out.style, "<style>\r\n<!--td {color:red;font-size:11.0pt;}\r\n.xl65 {font-weight:700}\r\n</style>");
  EXPECT_TEXT(out.body, "x");
}

TEST(ExcelCleanupStyle, OfficePropertiesPageRulesAndEmptyRulesGo) {
  EXPECT_TEXT(styleOf("\r\n<!--table\r\n\t{mso-displayed-decimal-separator:\"\\.\";\r\n"
                      "\tmso-displayed-thousand-separator:\"\\,\";}\r\n"
                      "@page\r\n\t{margin:.75in .7in .75in .7in;\r\n\tmso-header-margin:.3in;}\r\n"
                      ".xl66\r\n\t{mso-style-parent:style0;\r\n\tmso-number-format:\"\\#\\,\\#\\#0\\.00\";\r\n"
                      "\tborder:.5pt solid windowtext;\r\n\tmso-pattern:black none;}\r\n"
                      "tr\r\n\t{mso-height-source:auto;}\r\n-->\r\n"),
              "<style>\r\n.xl66 {border:.5pt solid windowtext;}\r\n</style>");
}

TEST(ExcelCleanupStyle, VmlBehaviourRulesGoOnlyWithOpt1vml) {
  const QString css = "\r\nv\\:* {behavior:url(#default#VML);}\r\n.shape {behavior:url(#default#VML);}\r\n"
                      "st1\\:*{behavior:url(#ieooui) }\r\nbr {color:red}\r\n";
  EXPECT_TEXT(styleOf(css), "<style>\r\nv\\:* {behavior:url(#default#VML);}\r\n"
                            ".shape {behavior:url(#default#VML);}\r\nbr {color:red}\r\n</style>");
  EXPECT_TEXT(styleOf(css, "optimizemode:1;opt1vml:1"), "<style>\r\nbr {color:red}\r\n</style>");
}

TEST(ExcelCleanupStyle, WithoutStyleElementsTheStyleIsAnEmptyElement) {
  EXPECT_TEXT(clean("import", "<head><title>t</title></head><body>x</body>", "optimizemode:1").style,
              "<style>\r\n\r\n</style>");
}

TEST(ExcelCleanupStyle, HeadConditionalBlocksAreNotCollected) {
  const QString page = "<head><!--[if gte mso 9]><xml><style>td {color:red}</style></xml><![endif]-->"
                       "<style>p {margin:0}</style></head><body>x</body>";
  EXPECT_TEXT(clean("import", page, "optimizemode:1").style, "<style>\r\np {margin:0}\r\n</style>");
}

TEST(ExcelCleanupStyle, WithoutHeadEndTheWholeTextIsHeadAndBody) {
  const Cleaned out = clean("import", "<style>td {color:red}</style><table border=0><tr><td>1</td></tr></table>",
                            "optimizemode:1");
  EXPECT_TEXT(out.style, "<style>\r\ntd {color:red}\r\n</style>");
  EXPECT_TEXT(out.body, "<style>td {color:red}</style><table border=0><tr><td>1</td></tr></table>");
}

TEST(ExcelCleanupBody, IsCutBetweenTheBodyTags) {
  EXPECT_TEXT(clean("import", "<head></head><BODY link=blue>\r\n<p>a</p>\r\n</BODY>\r\n</html>", "optimizemode:1").body,
              "\r\n<p>a</p>\r\n");
  // Without "<body" nothing is cut at the front; the last "</body>" ends the body.
  EXPECT_TEXT(clean("import", "</head><p>a</p></body><p>b</p></body>x", "optimizemode:1").body,
              "<p>a</p></body><p>b</p>");
}

TEST(ExcelCleanupBody, SheetAttributesOfCellsTablesAndDivisionsGo) {
  const QString sheet = "<div id=\"Div1\" align=center x:publishsource=\"Excel\">\r\n"
                        "<table border=0 cellpadding=0 x:str>\r\n"
                        "<tr><td class=xl67 align=right x:num=\"1234.5\">1,234.50</td>"
                        "<td class=xl67 x:num>9,876.00</td><td x:num=\"-3.5\">-3.5</td>"
                        "<td x:str=\"'0012\">0012</td></tr></table></div>";
  EXPECT_TEXT(modeOne(sheet), "<div id=\"Div1\" align=center>\r\n<table border=0 cellpadding=0>\r\n"
                              "<tr><td class=xl67 align=right>1,234.50</td><td class=xl67>9,876.00</td>"
                              "<td x:num=\"-3.5\">-3.5</td><td x:str=\"'0012\">0012</td></tr></table></div>");
}

TEST(ExcelCleanupBody, CommentsWithoutMarkupGoConditionalOfficeBlocksToo) {
  EXPECT_TEXT(modeOne("<!--StartFragment-->a<!--[if mso]><b>x</b><![endif]-->b<!--[if !excel]>&nbsp;<![endif]-->"
                      "<!----------------------------->c"),
              "ab<!--[if !excel]>&nbsp;<![endif]-->c");
}

// ---------------------------------------------------------------------------------------
// Paste rules.

const QString kShapeType =
    "<v:shapetype id=\"_x0000_t75\" coordsize=\"21600,21600\" o:spt=\"75\">\r\n<v:stroke joinstyle=\"miter\"/>\r\n"
    "</v:shapetype>";
const QString kShape =
    "<v:shape id=\"Picture_x0020_1\" type=\"#_x0000_t75\" style='position:absolute;margin-left:0;width:48pt;"
    "height:30pt;z-index:1'>\r\n<v:imagedata src=\"file:///C:/Temp/clip_image001.png\" o:title=\"\"/>\r\n"
    "<x:ClientData ObjectType=\"Pict\"></x:ClientData>\r\n</v:shape>";

TEST(ExcelCleanupPaste, AShapeWithoutFallbackImageBecomesAnImage) {
  EXPECT_TEXT(modeOne("<td>" + kShapeType + kShape + "</td>", "", "paste"),
              "<td><img border=0 src=\"file:///C:/Temp/clip_image001.png\" style=\"width:48pt;height:30pt\"></td>");
}

TEST(ExcelCleanupPaste, ShapesGoWhenAnImageIsAlreadyThere) {
  EXPECT_TEXT(modeOne("<td>" + kShapeType + kShape + "<img src=\"a.png\"></td>", "", "paste"),
              "<td><img src=\"a.png\"></td>");
}

TEST(ExcelCleanupPaste, OnlyForTheSourcePasteExactly) {
  const QString cell = "<td>" + kShapeType + "</td>";
  EXPECT_TEXT(modeOne(cell, "", "paste"), "<td></td>");
  EXPECT_TEXT(modeOne(cell, "", "Paste"), cell);
  EXPECT_TEXT(modeOne(cell, "", "import"), cell);
}

// ---------------------------------------------------------------------------------------
// Mode 1.

const QString kPicture =
    "<td><!--[if gte vml 1]><v:shape id=\"P1\" style='width:48pt'><v:imagedata src=\"p_files/image001.png\"/>"
    "</v:shape><![endif]--><![if !vml]><span style='mso-ignore:vglayout;position:absolute'><img width=64 "
    "src=\"p_files/image002.png\" v:shapes=\"P1\"></span><![endif]><o:p></o:p><x:ClientData/></td>";

TEST(ExcelCleanupModeOne, WithoutOpt1vmlTheFallbackPictureGoesAndVmlStays) {
  EXPECT_TEXT(modeOne(kPicture), "<td><!--[if gte vml 1]><v:shape id=\"P1\" style='width:48pt'><v:imagedata "
                                 "src=\"p_files/image001.png\"/></v:shape><![endif]--><o:p></o:p><x:ClientData/></td>");
}

TEST(ExcelCleanupModeOne, WithOpt1vmlTheFallbackPictureStaysAndVmlGoes) {
  EXPECT_TEXT(modeOne(kPicture, "opt1vml:1"),
              "<td><span style='position:absolute'><img width=64 src=\"p_files/image002.png\"></span></td>");
}

TEST(ExcelCleanupModeOne, Opt1spaceDropsRowsOfBlankCells) {
  const QString rows = "<table>\r\n <tr height=20 style='height:15.0pt'>\r\n  <td height=20>\u3000</td>\r\n"
                       "  <td>\u3000\u3000</td>\r\n  <td> </td>\r\n  <td></td>\r\n </tr>\r\n"
                       " <tr height=20>\r\n  <td>\u3000</td>\r\n  <td>&nbsp;</td>\r\n </tr>\r\n"
                       " <tr height=20><td>a</td></tr>\r\n<tr><td></td></tr></table>";
  EXPECT_TEXT(modeOne(rows, "opt1space:1"),
              "<table>\r\n \r\n <tr height=20>\r\n  <td>\u3000</td>\r\n  <td>&nbsp;</td>\r\n </tr>\r\n"
              " <tr height=20><td>a</td></tr>\r\n<tr><td></td></tr></table>");
  EXPECT_TEXT(modeOne(rows), rows);
}

TEST(ExcelCleanupModeOne, Opt1tableDrawsTheGridAndDropsBorderNoneOfCells) {
  const QString page = "<head><style>\r\ntd\r\n\t{color:black;\r\n\tborder:none;\r\n\twhite-space:nowrap;}\r\n"
                       ".xl65\r\n\t{border:none;}\r\n</style></head><body><table border=0 cellpadding=0 "
                       "border=0><tr><td>1</td></tr></table><table class=x\r\nborder=0></table></body>";
  const Cleaned with = clean("import", page, "optimizemode:1;opt1table:1");
  EXPECT_TEXT(with.style, "<style>\r\ntd {color:black;;white-space:nowrap;}\r\n.xl65 {border:none;}\r\n</style>");
  // The first border=0 of a start tag is the one that changes.
  EXPECT_TEXT(with.body, "<table border=1 cellpadding=0 border=0><tr><td>1</td></tr></table>"
                         "<table class=x\r border=1></table>");
  const Cleaned without = clean("import", page, "optimizemode:1");
  EXPECT_TEXT(without.style,
              "<style>\r\ntd {color:black;border:none;white-space:nowrap;}\r\n.xl65 {border:none;}\r\n</style>");
  EXPECT_TEXT(without.body, "<table border=0 cellpadding=0 border=0><tr><td>1</td></tr></table>"
                            "<table class=x\r\nborder=0></table>");
}

TEST(ExcelCleanupModeOne, Opt1overflowPutsTheBodyInAScrollingBoxOnLinesOfItsOwn) {
  EXPECT_TEXT(modeOne("<table><tr><td>1</td></tr></table>", "opt1overflow:1"),
              "<div style=\"width:100%;overflow:auto;\">\r\n<table><tr><td>1</td></tr></table>\r\n</div>");
}

TEST(ExcelCleanupModeOne, OfficePropertiesLanguagesAndEmptyStylesGoFromTags) {
  EXPECT_TEXT(modeOne("<col width=90 style='mso-width-source:userset;mso-width-alt:2880;width:68pt'>"
                      "<tr style=\"mso-height-source:userset;height:30pt\"><td lang=EN-US "
                      "style='mso-ignore:padding'>a</td></tr><img src=a.png v:shapes=\"P1 P2\">"),
              "<col width=90 style='width:68pt'><tr style=\"height:30pt\"><td >a</td></tr><img src=a.png>");
}

TEST(ExcelCleanupModeOne, Opt1cssFoldsTheSheetIntoTheCellsAndEmptiesTheStyle) {
  const QString page = "<head><style>\r\ntd\r\n\t{color:black;\r\n\tmso-ignore:padding;}\r\n.xl65\r\n\t"
                       "{font-weight:700;\r\n\tfont-family:\"Arial\";}\r\n</style></head><body><table border=0>"
                       "<tr><td class=xl65 style='height:15pt'>a</td><td>b</td></tr></table></body>";
  const Cleaned merged = clean("import", page, "optimizemode:1;opt1css:1");
  EXPECT_TEXT(merged.style, "");
  EXPECT_TEXT(merged.body, "<table border=0><tr><td style=\"color:black;font-weight:700;font-family:'Arial';"
                           "height:15pt\"    >a</td><td style=\"color:black\">b</td></tr></table>");
  EXPECT_TRUE(tracedRules(merged.trace).contains("tag td"));
  EXPECT_TEXT(clean("import", page, "optimizemode:2;opt1css:1").body,
              "<table border=0><tr><td>a</td><td>b</td></tr></table>");
}

// ---------------------------------------------------------------------------------------
// Mode 2.

const QString kCellContent =
    "<div align=center><table border=0 class=xl66 style='border-collapse:collapse' x:str><col width=90>"
    "<tbody><tr height=20 style='height:15pt'><td class=xl65 lang=EN-US>a<br>b</td><th>c</th>"
    "<td><p>d</p><span><font>e</font></span><img src=x.png v:shapes=\"P1\"></td></tr></tbody></table></div>";

TEST(ExcelCleanupModeTwo, KeepsOnlyTableStructureAndText) {
  const Cleaned out = clean("import", "<head><style>td {color:red}</style></head><body>" + kCellContent + "</body>",
                            "optimizemode:2");
  EXPECT_TEXT(out.style, "");
  EXPECT_TEXT(out.body, "<table border=0><tr height=20><td -US>ab</td><th>c</th><td>de</td></tr></table>");
}

TEST(ExcelCleanupModeTwo, Opt2imageKeepsImagesWithoutShapes) {
  EXPECT_TEXT(modeTwo(kCellContent, "opt2image:1"),
              "<table border=0><tr height=20><td -US>ab</td><th>c</th><td>de<img src=x.png></td></tr></table>");
}

TEST(ExcelCleanupModeTwo, PicturesComeFromTheFallbackNotFromVml) {
  EXPECT_TEXT(modeTwo(kPicture, "opt2image:1"), "<td><img width=64 src=\"p_files/image002.png\"></td>");
  EXPECT_TEXT(modeTwo(kPicture), "<td></td>");
}

TEST(ExcelCleanupModeTwo, Opt2spaceDropsRowsOfEmptyCellsOnly) {
  const QString rows = "<table><tr height=20>\r\n<td class=x></td>\r\n<td></td>\r\n</tr><tr height=20><td>\u3000</td>"
                       "</tr><tr><td></td></tr></table>";
  EXPECT_TEXT(modeTwo(rows, "opt2space:1"), "<table><tr height=20><td>\u3000</td></tr><tr><td></td></tr></table>");
  EXPECT_TEXT(modeTwo(rows), "<table><tr height=20>\r\n<td></td>\r\n<td></td>\r\n</tr><tr height=20><td>\u3000</td>"
                             "</tr><tr><td></td></tr></table>");
}

TEST(ExcelCleanupModeTwo, Opt2tableGivesBorderlessTablesAGrid) {
  EXPECT_TEXT(modeTwo("<table border=0 cellpadding=0><tr><td>1</td></tr></table><table border=1></table>",
                      "opt2table:1"),
              "<table border=1 style=\"border-collapse:collapse;\" cellpadding=0><tr><td>1</td></tr></table>"
              "<table border=1></table>");
}

// ---------------------------------------------------------------------------------------
// Options, outputs and the event loop.

TEST(ExcelCleanup, OptionsAreOnOnlyWhenExactlyOne) {
  const QString html = "<body><table border=0><tr><td class=x>a</td></tr></table></body>";
  EXPECT_TEXT(clean("import", html, "OptimizeMode : 1").body, "<table border=0><tr><td class=x>a</td></tr></table>");
  EXPECT_TEXT(clean("import", html, "optimizemode:01").body, "<table border=0><tr><td>a</td></tr></table>");
  EXPECT_TEXT(clean("import", html, "optimizemode:true").style, "");
  EXPECT_TEXT(clean("import", html, "").body, "<table border=0><tr><td>a</td></tr></table>");
  EXPECT_TEXT(clean("import", html, "optimizemode:1;opt1table:yes").body,
              "<table border=0><tr><td class=x>a</td></tr></table>");
  EXPECT_TEXT(clean("import", html, "optimizemode:1;opt1table:1:1").body,
              "<table border=0><tr><td class=x>a</td></tr></table>");
  EXPECT_TEXT(clean("import", html, "optimizemode:1;opt1table:1").body,
              "<table border=1><tr><td class=x>a</td></tr></table>");
}

TEST(ExcelCleanup, StartsAfreshAndYieldsToTheEventLoop) {
  Context context;
  context.g_sError = "SaveAs:earlier";
  QString style = "old style", body = "old body";
  bool delivered = false;
  QTimer::singleShot(0, [&] { delivered = true; });
  RuleTrace trace;
  ExcelCleanup(context).OptimizeHTML("import", "<body><td class=n x:num>1</td></body>", "optimizemode:1", style, body,
                                     &trace);
  EXPECT_TRUE(delivered);
  EXPECT_TEXT(context.g_sError, "");
  EXPECT_TEXT(style, "<style>\r\n\r\n</style>");
  EXPECT_TEXT(body, "<td class=n>1</td>");
  ASSERT_EQ(trace.steps.size(), 1u);
  EXPECT_TEXT(trace.steps[0].rule, "EB4");
  EXPECT_EQ(trace.steps[0].sizeBefore - trace.steps[0].sizeAfter, 6);
}

TEST(ExcelCleanup, TraceNamesTheRulesThatChangedSomething) {
  const Cleaned out = clean("paste", fixture("clipboard_format.txt"), "optimizemode:2;opt2image:1");
  EXPECT_TEXT(tracedRules(out.trace),
              "ES1 ES6 ES8 ES9 ES10 ES11 ES12 ES13 ES14 ES16 EB2 EP1 EP2 EX2 EX3 EX5 EX6 EX9 EX11 EX12");
}

// ---------------------------------------------------------------------------------------
// The WPS spreadsheet clean-up.

TEST(ExcelCleanupWps, TheSharedSheetStandsCleanedAheadOfTheSheetsOwnRules) {
  const QString page = "<head><style>\r\n<!--.xl70\r\n\t{mso-style-parent:style0;\r\n\tcolor:red;}\r\n-->\r\n"
                       "</style></head><body><table border=0><tr><td class=xl70 x:str>a</td></tr></table></body>";
  const QString shared = "td\r\n\t{mso-style-parent:style0;\r\n\tborder:none;}\r\n"
                         ".xl65\r\n\t{mso-number-format:\"General\";\r\n\tfont-weight:700;}\r\n";
  const Cleaned out = cleanWps(page, shared, "optimizemode:1");
  EXPECT_TEXT(out.style, "<style>\r\ntd {border:none;}\r\n.xl65 {font-weight:700;}\r\n<!--.xl70 {color:red;}\r\n</style>");
  EXPECT_TEXT(out.body, "<table border=0><tr><td class=xl70 x:str>a</td></tr></table>");
  EXPECT_TRUE(tracedRules(out.trace).startsWith("ES1 extra CSS ")) << tracedRules(out.trace).toStdString();

  // Everything else is the spreadsheet pipeline's: no shared sheet, no difference.
  const Cleaned plain = clean("import", page, "optimizemode:1");
  const Cleaned none = cleanWps(page, "", "optimizemode:1");
  EXPECT_TEXT(none.style, plain.style);
  EXPECT_TEXT(none.body, plain.body);
  EXPECT_TEXT(cleanWps(page, shared, "optimizemode:2").style, "");
}

TEST(ExcelCleanupWps, TheSharedSheetReachesTheCellsThroughOpt1css) {
  const Cleaned out = cleanWps(fixture("wps_sheet002.htm"), fixture("wps_stylesheet.css"), "optimizemode:1;opt1css:1");
  EXPECT_TEXT(out.style, "");
  EXPECT_TRUE(out.body.contains("<td style=\"padding-top:1px;padding-right:1px;padding-left:1px;text-align:general;"
                                "vertical-align:middle;white-space:nowrap;color:#000000;font-size:11.0pt;"
                                "font-weight:400;font-style:normal;text-decoration:none;font-family:宋体;border:none;"
                                "font-weight:700;text-align:center;border:.5pt solid #000000;font-family:宋体;"
                                "height:13.50pt;width:54.00pt;\""))
      << out.body.toStdString();
}

// ---------------------------------------------------------------------------------------
// Whole documents.

void expectGolden(const QString& name, const Cleaned& out) {
  EXPECT_TEXT(out.style, fixture("golden/" + name + ".style.html")) << name.toStdString();
  EXPECT_TEXT(out.body, fixture("golden/" + name + ".body.html")) << name.toStdString();
}

TEST(ExcelCleanupDocuments, MatchTheirCheckedOutputs) {
  const QString sheet = fixture("published_sheet.htm");
  const QString clipboard = fixture("clipboard_format.txt");
  expectGolden("published_mode1", clean("import", sheet, "optimizemode:1"));
  expectGolden("published_mode1_options",
               clean("import", sheet, "optimizemode:1;opt1vml:1;opt1space:1;opt1table:1;opt1overflow:1"));
  expectGolden("published_mode1_css", clean("import", sheet, "optimizemode:1;opt1vml:1;opt1css:1"));
  expectGolden("published_mode2", clean("import", sheet, "optimizemode:2"));
  expectGolden("published_mode2_options", clean("import", sheet, "optimizemode:2;opt2image:1;opt2space:1;opt2table:1"));
  expectGolden("clipboard_mode1", clean("paste", clipboard, "optimizemode:1;opt1vml:1"));
  expectGolden("clipboard_mode2", clean("paste", clipboard, "optimizemode:2;opt2image:1"));
  expectGolden("wps_sheet_mode1",
               cleanWps(fixture("wps_sheet002.htm"), fixture("wps_stylesheet.css"), "optimizemode:1"));
}

QString bodyOf(const QString& page) {
  QString text = page;
  const qsizetype at = text.indexOf("<body", 0, Qt::CaseInsensitive);
  if (at >= 0) text = text.mid(text.indexOf('>', at) + 1);
  return text.left(text.lastIndexOf("</body>", -1, Qt::CaseInsensitive));
}

// The text a reader sees, without white space (ideographic and no-break spaces included)
// and without the marks where pictures stand: which pictures stay depends on the options.
QString visibleText(const QString& html) {
  QTextDocument rendered;
  rendered.setHtml(html);
  return rendered.toPlainText().remove(QRegularExpression(R"([\s\x{a0}\x{3000}\x{fffc}]+)"));
}

QStringList tagsOf(const QString& html) {
  QStringList tags;
  for (const RegExpMatch& match : RegExp("<[^>]*>").execute(html)) tags << match.value;
  return tags;
}

bool startsLike(const QString& tag, const QString& permitted) {
  return QRegularExpression("^<(" + permitted + ")", QRegularExpression::CaseInsensitiveOption).match(tag).hasMatch();
}

// Properties that hold for any sheet, checked on the fixtures and on a large one.
void expectCleanedWell(const QString& source, const QString& page) {
  const QString inputText = visibleText(bodyOf(page));
  const Cleaned one = clean(source, page, "optimizemode:1;opt1vml:1;opt1table:1");
  for (const QString& tag : tagsOf(one.body)) {
    // x:num goes only with a value of digits and dots: a negative number keeps it.
    EXPECT_FALSE(RegExpTest(R"(\s(x:num="[0-9.]+"|x:publishsource=|lang=))", tag)) << tag.toStdString();
    EXPECT_FALSE(tag.startsWith("<v:") || tag.startsWith("<o:") || tag.startsWith("<x:")) << tag.toStdString();
    const QString style = RegExpSubMatch(tag, R"(^<\w+\s[^>]*?style=(['"])([^'"]*)\1)", 1);
    EXPECT_FALSE(style.contains("mso-", Qt::CaseInsensitive)) << tag.toStdString();
  }
  EXPECT_TEXT(visibleText(one.body), inputText);
  EXPECT_TEXT(visibleText(clean(source, page, "optimizemode:1;opt1css:1").body), inputText);

  const Cleaned two = clean(source, page, "optimizemode:2");
  EXPECT_TEXT(two.style, "");
  for (const QString& tag : tagsOf(two.body)) EXPECT_TRUE(startsLike(tag, "/?(table|tr|td|th)")) << tag.toStdString();
  EXPECT_TEXT(visibleText(two.body), inputText);

  const Cleaned kept = clean(source, page, "optimizemode:2;opt2image:1;opt2table:1");
  for (const QString& tag : tagsOf(kept.body))
    EXPECT_TRUE(startsLike(tag, "/?(table|tr|td|th)|img")) << tag.toStdString();
}

TEST(ExcelCleanupDocuments, KeepTheTextDropTheMarkup) {
  expectCleanedWell("import", fixture("published_sheet.htm"));
  expectCleanedWell("paste", fixture("clipboard_format.txt"));
  expectCleanedWell("import", fixture("wps_sheet002.htm"));
}

TEST(ExcelCleanupDocuments, ALargeSheet) {
  const QString page = fixture("published_sheet.htm");
  const qsizetype start = page.indexOf(" <tr height=20");
  const qsizetype end = page.indexOf(" <![if supportMisalignedColumns]>");
  QString large = page.left(start);
  while (large.size() < 3'000'000) large += page.mid(start, end - start);
  large += page.mid(end);
  expectCleanedWell("import", large);
  const Cleaned spaced = clean("import", large, "optimizemode:1;opt1space:1;opt1overflow:1");
  EXPECT_TRUE(spaced.body.startsWith("<div style=\"width:100%;overflow:auto;\">\r\n"));
  EXPECT_FALSE(spaced.body.contains("\u3000\u3000</td>"));
}

// ---------------------------------------------------------------------------------------
// Bad input: a clear result, never a crash or a hang.

TEST(ExcelCleanupBadInput, EmptyAndBrokenTextGiveAClearResult) {
  Cleaned out = clean("import", "", "optimizemode:1");
  EXPECT_TEXT(out.style, "<style>\r\n\r\n</style>");
  EXPECT_TEXT(out.body, "");
  out = clean("paste", "", "optimizemode:2;opt2table:1");
  EXPECT_TEXT(out.style, "");
  EXPECT_TEXT(out.body, "");

  const QString broken = "<head><style>td {color:red</style><body><table border=0 x:str><tr><td x:num=\"1\""
                         "<td>open<![if !vml]><img src=a.png>cell</td></body><!--[if gte vml 1]> never closed <v:shape";
  for (const char* options : {"optimizemode:1;opt1vml:1;opt1space:1;opt1table:1;opt1css:1",
                              "optimizemode:1", "optimizemode:2;opt2image:1;opt2space:1;opt2table:1"}) {
    out = clean("paste", broken, options);
    EXPECT_TRUE(visibleText(out.body).contains("opencell")) << options << " gave " << out.body.toStdString();
  }
  // A tag that never closes is no tag to the rules.
  EXPECT_TEXT(modeTwo("<td>before <span class=x"), "<td>before <span class=x");
}

TEST(ExcelCleanupBadInput, ManyRowsOfBlankCellsWithoutEnd) {
  const QString rows = QString("<tr height=20><td> </td><td>\u3000</td>").repeated(20000);
  EXPECT_TEXT(modeOne("<table>" + rows + "</table>", "opt1space:1"), "<table>" + rows + "</table>");
  const QString emptyRows = QString("<tr height=20><td></td>").repeated(20000);
  EXPECT_TEXT(modeTwo(emptyRows, "opt2space:1"), QString("<tr height=20><td></td>").repeated(20000));
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
        const Cleaned out = clean("paste", bait, options);
        EXPECT_LE(out.body.size(), bait.size() + 100);
      } catch (const ScriptError& error) {
        EXPECT_EQ(error.number(), errnum::RegExpGaveUp) << error.description().toStdString();
      }
    }
  }
}

// Mutated sheets with random options: each call either gives a result or a clear
// ScriptError.
TEST(ExcelCleanupBadInput, MutatedSheetsSurvive) {
  const QStringList documents = {fixture("published_sheet.htm"), fixture("clipboard_format.txt"),
                                 fixture("wps_sheet002.htm")};
  const QStringList keys = {"opt1vml", "opt1space", "opt1table", "opt1overflow", "opt1css",
                            "opt2image", "opt2space", "opt2table"};
  QRandomGenerator random(4102);
  for (int round = 0; round < 150; ++round) {
    QString html = documents[round % documents.size()];
    for (int edit = 0; edit < 6; ++edit) {
      const qsizetype at = random.bounded(int(html.size()));
      if (random.bounded(2)) html.remove(at, random.bounded(40));
      else html.insert(at, html.mid(random.bounded(int(html.size())), random.bounded(40)));
    }
    QString options = random.bounded(2) ? "optimizemode:1" : "optimizemode:2";
    for (const QString& key : keys)
      if (random.bounded(2)) options += ";" + key + ":1";
    try {
      const Cleaned out = round % 4 ? clean(round % 2 ? "paste" : "import", html, options)
                                    : cleanWps(html, fixture("wps_stylesheet.css"), options);
      EXPECT_FALSE(out.body.size() > 4 * html.size() + 2000) << options.toStdString();
    } catch (const ScriptError& error) {
      EXPECT_TRUE(error.number() == errnum::RegExpGaveUp || error.number() == errnum::RegExpSyntax)
          << error.description().toStdString();
    }
  }
}

}  // namespace
}  // namespace velmora
