#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTextDocument>
#include <QTimer>

#include "cleanup/WordCleanup.h"
#include "cleanup/WordRules.h"
#include "support/RegExp.h"
#include "core/ScriptError.h"
#include "support/basPublic.h"
#include "tests/common/TestSupport.h"

namespace velmora {
namespace {

using Variant = WordCleanup::Variant;

// Compares texts and shows them as text when they differ.
testing::AssertionResult sameText(const char* actualExpr, const char* expectedExpr, const QString& actual,
                                  const QString& expected) {
  if (actual == expected) return testing::AssertionSuccess();
  auto shown = [](const QString& text) { return (text.size() > 600 ? text.left(600) + "..." : text).toStdString(); };
  return testing::AssertionFailure() << actualExpr << " is\n  " << shown(actual) << "\nexpected " << expectedExpr
                                     << "\n  " << shown(expected);
}
#define EXPECT_TEXT(actual, expected) EXPECT_PRED_FORMAT2(sameText, actual, expected)

struct Cleaned {
  QString style;
  QString body;
};

Cleaned clean(const QString& source, const QString& html, const QString& options, Variant variant = Variant::Word,
              RuleTrace* trace = nullptr) {
  Context context;
  Cleaned out;
  WordCleanup(context, variant).OptimizeHTML(source, html, options, out.style, out.body, trace);
  return out;
}

// The body alone, with mode 1 and the given extra options.
QString modeOne(const QString& body, const QString& options = {}, const QString& source = "import",
                Variant variant = Variant::Word) {
  return clean(source, "<body>" + body + "</body>", "optimizemode:1;" + options, variant).body;
}

QString modeTwo(const QString& body, const QString& options = {}, const QString& source = "import",
                Variant variant = Variant::Word) {
  return clean(source, "<body>" + body + "</body>", "optimizemode:2;" + options, variant).body;
}

QString fixture(const QString& name) { return ReadTextFile(test::testData("word/" + name)); }

QStringList ruleNames(const word::RuleList& list) {
  QStringList names;
  for (const word::ConditionalRule& entry : list) names << QString::fromUtf16(entry.rule.name);
  return names;
}

// The characters a reader sees, in order: tags and comments gone, and no white space, since
// where blocks break lines is the renderer's business.
QString visibleText(QString html) {
  html.remove(QRegularExpression("<!--.*?-->", QRegularExpression::DotMatchesEverythingOption));
  html.remove(QRegularExpression("<[^>]*>"));
  html.replace("&nbsp;", " ");
  return html.remove(QRegularExpression(R"([\s\x{a0}]+)"));
}

QString bodyOf(const QString& page) {
  const qsizetype start = page.indexOf('>', page.indexOf("<body", 0, Qt::CaseInsensitive)) + 1;
  return page.mid(start, page.lastIndexOf("</body>", -1, Qt::CaseInsensitive) - start);
}

QStringList tagsOf(const QString& html) {
  QStringList tags;
  QRegularExpressionMatchIterator it = QRegularExpression("<[^>]*>").globalMatch(html);
  while (it.hasNext()) tags << it.next().captured();
  return tags;
}

// ---------------------------------------------------------------------------------------
// The tables.

TEST(WordRules, RunInTheirDocumentedOrder) {
  const word::WordRuleSet& rules = word::wordRules(Variant::Word);
  EXPECT_EQ(ruleNames(rules.head), QStringList{"H1"});
  EXPECT_EQ(ruleNames(rules.styleTags), QStringList{"S1"});
  EXPECT_TEXT(ruleNames(rules.style).join(','), "S2,S3,S4,S5,S6,S7,S8,S9,S10,S11,S12,S13,S14,S15,S16,S17");
  EXPECT_TEXT(ruleNames(rules.body).join(','), "B1,B2,B3,B4,B5,B6,B7");
  EXPECT_TEXT(ruleNames(rules.paste).join(','), "P1,P2,P2");
  EXPECT_TEXT(ruleNames(rules.modeOne).join(','), "K1,K2,K2b,K3,K4,K5,K6,K7,K6,K7,K8,K9,K10,K11,K12,K13,K14,K15,K16");
  EXPECT_TEXT(ruleNames(rules.modeTwoBeforeFilter).join(','), "X1,X2,X3,X4,X5,X6,X7,X8,X9,X10");
  EXPECT_TEXT(ruleNames(rules.modeTwoAfterFilter).join(','), "X12,X13,X14,X15,X16,X17,X18,X19");
  EXPECT_TEXT(ruleNames(rules.tail).join(','), "T1,T2,T3,T4");
  EXPECT_TEXT(QString::fromUtf16(rules.finalUnwrap.name), "F1");
}

TEST(WordRules, EveryPatternCompilesAndOnlyTheDocumentedRulesRepeat) {
  QStringList repeating;
  for (Variant variant : {Variant::Word, Variant::WPS}) {
    const word::WordRuleSet& rules = word::wordRules(variant);
    for (const word::RuleList* list : {&rules.head, &rules.styleTags, &rules.style, &rules.body, &rules.paste,
                                       &rules.modeOne, &rules.modeTwoBeforeFilter, &rules.modeTwoAfterFilter,
                                       &rules.tail}) {
      for (const word::ConditionalRule& entry : *list) {
        EXPECT_NO_THROW(RegExp(QString::fromUtf16(entry.rule.pattern))) << QString::fromUtf16(entry.rule.name).toStdString();
        if (entry.rule.untilStable && variant == Variant::Word) repeating << QString::fromUtf16(entry.rule.name);
      }
    }
    for (const char16_t* pattern : {rules.styleElement, rules.pageSize, rules.pageMargin})
      EXPECT_NO_THROW(RegExp(QString::fromUtf16(pattern)));
  }
  EXPECT_TEXT(repeating.join(','), "S10,S15,B3,K11,K12,X17,T2,T3");
  EXPECT_NO_THROW(RegExp(word::tagFilterPattern("p|/p|br|img")));
}

// ---------------------------------------------------------------------------------------
// Head, style and body.

TEST(WordCleanup, SplitsHeadStyleAndBody) {
  // Without title, head and body tags the whole text is head and body.
  const QString bare = "<style>p.a {color:red;}</style><p class=a>x</p>";
  Cleaned out = clean("import", bare, "optimizemode:1");
  EXPECT_TEXT(out.style, "<style>\r\np.a {color:red;}\r\n</style>");
  EXPECT_TEXT(out.body, bare);

  // Two style elements make one Style; no style element makes an empty one.
  out = clean("import", "<head><style>p {color:red;}</style><style>h2 {color:blue;}</style></head><body>x</body>",
              "optimizemode:1");
  EXPECT_TEXT(out.style, "<style>\r\np {color:red;}\r\nh2 {color:blue;}\r\n</style>");
  EXPECT_TEXT(clean("import", "<body>x</body>", "optimizemode:1").style, "<style>\r\n\r\n</style>");

  // The cuts ignore case; what precedes the title goes; the last body end tag counts.
  out = clean("import",
              "<HTML><HEAD><style>b {x:y;}</style><TITLE>t</TITLE><style>p {color:red;}</style></HEAD>"
              "<BODY lang=EN><p>a</p></BODY>tail</body>end",
              "optimizemode:1");
  EXPECT_TEXT(out.style, "<style>\r\np {color:red;}\r\n</style>");
  EXPECT_TEXT(out.body, "<p>a</p></BODY>tail");

  // Style elements in Word's "gte mso" blocks are Word's own.
  out = clean("import", "<head><!--[if gte mso 10]><style>x {a:b;}</style><![endif]--><style>p {c:d;}</style></head>",
              "optimizemode:1");
  EXPECT_TEXT(out.style, "<style>\r\np {c:d;}\r\n</style>");
}

TEST(WordCleanup, StyleRulesTidyWordsSheet) {
  const QString head =
      "<head><style>\r\n<!--\r\n /* Font Definitions */\r\n @font-face\r\n\t{font-family:SimSun;\r\n"
      "\tmso-font-charset:134;}\r\n /* Style Definitions */\r\n p.MsoNormal, li.MsoNormal\r\n"
      "\t{mso-style-parent:\"\";\r\n\tmargin:0cm;\r\n\tfont-size:10.5pt;\r\n\tmso-bidi-font-size:11.0pt;}\r\n"
      "a:link, span.MsoHyperlink\r\n\t{color:blue;}\r\nspan.SpellE\r\n\t{mso-style-name:\"\";\r\n\tmso-spl-e:yes;}\r\n"
      "@page WordSection1\r\n\t{size:595.3pt 841.9pt;}\r\ndiv.Section1\r\n\t{page:Section1;}\r\n"
      "st1\\:*{behavior:url(#ieooui) }\r\n-->\r\n</style></head>";
  EXPECT_TEXT(clean("import", head, "optimizemode:1").style,
            "<style>\r\np.MsoNormal, li.MsoNormal {margin:0cm;font-size:10.5pt;}\r\n</style>");

  const QString vml =
      "<head><style>\r\nv\\:* {behavior:url(#default#VML);}\r\n.shape {behavior:url(#default#VML);}\r\n"
      "p {color:red;}\r\n</style></head>";
  EXPECT_TEXT(clean("paste", vml, "optimizemode:1").style,
            "<style>\r\nv\\:* {behavior:url(#default#VML);}\r\n.shape {behavior:url(#default#VML);}\r\n"
            "p {color:red;}\r\n</style>");
  EXPECT_TEXT(clean("paste", vml, "optimizemode:1;opt1vml:1").style, "<style>\r\np {color:red;}\r\n</style>");
  // Mode 2 has no style at all.
  EXPECT_TEXT(clean("paste", vml, "optimizemode:2").style, "");
}

TEST(WordCleanup, CommonBodyRules) {
  EXPECT_TEXT(modeOne("<p><a name=\"_Toc1\"></a><a name=x>Title</a><o:p>&nbsp;</o:p></p>"
                    "<table><tr style='h'>\r\n <td>a</td>\r\n <span></span> <td>b</td>\r\n</tr></table>"
                    "<!--[if mso]><x>y</x><![endif]--><!-- note -->"),
            "<p>Title</p><table><tr style='h'><td>a</td><td>b</td></tr></table>");

  // WPS clears everything between cells, Word only spans and white space.
  const QString row = "<table><tr><th>h</th><o:p>junk</o:p><td>x</td><![if !x]></tr></table>";
  EXPECT_TEXT(modeOne(row), row);
  EXPECT_TEXT(modeOne(row, {}, "import", Variant::WPS), "<table><tr><th>h</th><td>x</td></tr></table>");
}

TEST(WordCleanup, PasteTurnsVmlOnlyPicturesIntoImages) {
  const QString vmlOnly =
      "<p><v:shapetype id=\"_x0000_t75\" coordsize=\"21600,21600\"><v:stroke joinstyle=\"miter\"/></v:shapetype>"
      "<v:shape id=\"Picture_x0020_1\" style='width:150pt;height:100pt;visibility:visible'>"
      "<v:imagedata src=\"file:///C:/Users/lin/AppData/Local/Temp/msohtmlclip1/01/clip_image001.png\" o:title=\"\"/>"
      "</v:shape></p>";
  EXPECT_TEXT(modeOne(vmlOnly, {}, "paste"),
            "<p><img border=0 src=\"file:///C:/Users/lin/AppData/Local/Temp/msohtmlclip1/01/clip_image001.png\" "
            "style=\"width:150pt;height:100pt\"></p>");
  // With an image tag present the shapes simply go.
  EXPECT_TEXT(modeOne("<p><img src=\"a.png\"><v:shape id=\"s\" style='width:1pt;height:2pt'><v:imagedata src=\"b.png\"/>"
                    "</v:shape></p>",
                    {}, "paste"),
            "<p><img src=\"a.png\"></p>");
  // Only the source "paste", compared exactly.
  EXPECT_TEXT(modeOne(vmlOnly, {}, "import"), vmlOnly);
  EXPECT_TEXT(modeOne(vmlOnly, {}, "Paste"), vmlOnly);
}

// ---------------------------------------------------------------------------------------
// Options, one family at a time.

TEST(WordCleanup, ModeOneAlwaysDropsWordsPrivateMarkup) {
  EXPECT_TEXT(modeOne("<p class=MsoNormal style='mso-pagination:none;color:red;mso-bidi-font-size:11pt' lang=EN-US>"
                    "<st1:City w:st=\"on\">Beijing</st1:City><span style=\"mso-spacerun:yes\">&nbsp;</span>"
                    "<img width=1 src=\"a.gif\" v:shapes=\"_x0000_i1025\"></p>"),
            "<p class=MsoNormal style='color:red;'>Beijing<span>&nbsp;</span><img width=1 src=\"a.gif\"></p>");
  // An empty paragraph keeps a no-break space, in both modes.
  EXPECT_TEXT(modeOne("<p class=MsoNormal></p>"), "<p class=MsoNormal>&nbsp;</p>");
  EXPECT_TEXT(modeTwo("<p class=MsoNormal></p>"), "<p>&nbsp;</p>");
}

TEST(WordCleanup, ModeOneOptions) {
  // opt1vml: the pictures for browsers without VML stay, otherwise they go.
  const QString picture = "<p><!--[if gte vml 1]><v:shape/><![endif]--><![if !vml]><img src=\"a.gif\"><![endif]></p>";
  EXPECT_TEXT(modeOne(picture), "<p>&nbsp;</p>");
  EXPECT_TEXT(modeOne(picture, "opt1vml:1"), "<p><img src=\"a.gif\"></p>");

  // opt1absolute.
  const QString absolute = "<p style='position: absolute;top:1pt'>x</p>";
  EXPECT_TEXT(modeOne(absolute), absolute);
  EXPECT_TEXT(modeOne(absolute, "opt1absolute:1"), "<p style=';top:1pt'>x</p>");

  // opt1margin: negative left margins and offsets become 0.
  const QString margins = "<p style='margin-left:-12.0pt;text-indent:-1pt'>x</p><span style='position:relative;"
                          "left:-3.5pt'>y</span>";
  EXPECT_TEXT(modeOne(margins), margins);
  EXPECT_TEXT(modeOne(margins, "opt1margin:1"),
            "<p style='margin-left:0pt;text-indent:-1pt'>x</p><span style='position:relative;left:0pt'>y</span>");

  // opt1space: paragraphs with nothing but tags and no-break spaces go.
  const QString spaced = "<p class=MsoNormal><span>&nbsp;</span></p><p class=MsoNormal>text</p>";
  EXPECT_TEXT(modeOne(spaced), spaced);
  EXPECT_TEXT(modeOne(spaced, "opt1space:1"), "<p class=MsoNormal>text</p>");

  // opt1grid unwraps the section's div; otherwise only a bare div goes (F1), and not with
  // pagewidth.
  const QString section = "\r\n<div class=WordSection1 style='layout-grid:15.6pt'>\r\n<p>x</p>\r\n</div>\r\n";
  EXPECT_TEXT(modeOne(section), section);
  EXPECT_TEXT(modeOne(section, "opt1grid:1"), "\r\n<p>x</p>\r\n");
  EXPECT_TEXT(modeOne("<div>\r\n<p>x</p>\r\n</div>"), "\r\n<p>x</p>\r\n");
  EXPECT_TEXT(modeOne("<div>\r\n<p>x</p>\r\n</div>", "pagewidth:1"), "<div>\r\n<p>x</p>\r\n</div>");
}

TEST(WordCleanup, ModeOneEquationPictures) {
  const QString lowered = "<p><sub><img width=52 height=24 src=\"e.gif\" style='width:39pt;height:18pt'></sub></p>";
  const QString raised = "<p><span style='position:relative;top:5.0pt;mso-text-raise:-5.0pt'><img width=48 height=22 "
                         "src=\"e.gif\" style='width:36pt;height:16.5pt'></span></p>";
  const QString middle = "<p class=MsoNormal style='vertical-align:middle'>Ratio <img width=33 src=\"r.gif\"> holds</p>";

  EXPECT_TEXT(modeOne(lowered, "opt1eq:1", "import"),
            "<p><img style=\"vertical-align:middle;\" width=52 height=24 src=\"e.gif\" ></p>");
  EXPECT_TEXT(modeOne(lowered, "opt1eq:1", "paste"), lowered);
  EXPECT_TEXT(modeOne(raised, "opt1eq:1", "paste"),
            "<p><img style=\"vertical-align:middle;\" width=48 height=22 src=\"e.gif\" ></p>");
  EXPECT_TEXT(modeOne(middle, "opt1eq:1"),
            "<p class=MsoNormal style='vertical-align:middle'>Ratio <img style=\"vertical-align:middle;\" width=33 "
            "src=\"r.gif\"> holds</p>");
  EXPECT_TEXT(modeOne(middle, "opt1eq:1", "import", Variant::WPS), middle);  // WPS has no K8
  EXPECT_TEXT(modeOne(lowered), lowered);
  EXPECT_TEXT(modeOne(middle), middle);
}

TEST(WordCleanup, ModeTwoOptions) {
  const QString mixed = "<h1 class=x>Title</h1><p class=MsoNormal style='color:red' lang=EN-US><b>bold</b> "
                        "<img src=\"a.gif\"><br clear=all><pre>code</pre></p><table><tr><td>c</td></tr></table>"
                        "<sub>2</sub>";
  // Only p, /p and br stay (and tags that start with those letters). X8 takes the
  // language's word characters only, so "-US" stays behind.
  EXPECT_TEXT(modeTwo(mixed), "Title<p -US>bold <br clear=all><pre>code</pre></p>c2");
  EXPECT_TEXT(modeTwo(mixed, "opt2image:1"), "Title<p -US>bold <img src=\"a.gif\"><br clear=all><pre>code</pre></p>c2");
  EXPECT_TEXT(modeTwo(mixed, "opt2table:1"),
            "Title<p -US>bold <br clear=all><pre>code</pre></p><table style=\"border-collapse:collapse;\" border=1 "
            "bordercolor=\"#000000\"><tr><td>c</td></tr></table>2");
  EXPECT_TEXT(modeTwo("<p>a</p><p class=x>b</p>", "opt2indent:1"),
            "<p style=\"text-indent:2em;\">a</p><p style=\"text-indent:2em;\">b</p>");
  EXPECT_TEXT(modeTwo("<p>a</p><p class=x>b</p>", "opt2ptobr:1"), "a<br>b<br>");

  // opt2eq keeps sub and sup and sets equation pictures in the middle of the line.
  EXPECT_TEXT(modeTwo("<p>x<sup>2</sup><sub><img src=\"e.gif\"></sub></p>", "opt2eq:1"),
            "<p>x<sup>2</sup><img style=\"vertical-align:middle;\" src=\"e.gif\"></p>");
  const QString middle = "<p style='vertical-align:middle'>a <img src=\"r.gif\"> b</p>";
  EXPECT_TEXT(modeTwo(middle, "opt2eq:1"), "<p>a <img style=\"vertical-align:middle;\" src=\"r.gif\"> b</p>");
  EXPECT_TEXT(modeTwo(middle, "opt2eq:1", "import", Variant::WPS), "<p>a <img src=\"r.gif\"> b</p>");  // no X3
  const QString raised = "<p><span style='mso-text-raise:-5pt'><img src=\"e.gif\"></span></p>";
  EXPECT_TEXT(modeTwo(raised, "opt2eq:1", "paste"), "<p><img style=\"vertical-align:middle;\" src=\"e.gif\"></p>");
  EXPECT_TEXT(modeTwo(raised, "opt2eq:1", "import"), "<p><img src=\"e.gif\"></p>");
}

QString pageWith(const QString& pageRule) {
  return "<html><head><style>\r\n@page WordSection1\r\n\t{" + pageRule +
         "}\r\ndiv.WordSection1\r\n\t{page:WordSection1;}\r\n</style></head><body><p>x</p></body></html>";
}

TEST(WordCleanup, PageFrame) {
  const QString frameStart =
      "<table border=0 cellpadding=0 cellspacing=0 align=center style=\"overflow-x:hidden;word-break:break-all;";
  const QString points = pageWith("size:595.3pt 841.9pt;\r\n\tmargin:72.0pt 90.0pt 72.0pt 90.0pt;\r\n\tmso-header-margin:42.55pt;");
  EXPECT_TEXT(clean("import", points, "optimizemode:1;pagewidth:1").body,
            frameStart + "width:415.3pt;\"><tr><td><p>x</p></td></tr></table>");
  EXPECT_TEXT(clean("import", points, "optimizemode:2;pagewidth:1").body,
            frameStart + "width:415.3pt;\"><tr><td><p>x</p></td></tr></table>");
  EXPECT_TEXT(clean("import", pageWith("size:21.0cm 29.7cm;margin:2.54cm 3.17cm 2.54cm 3.17cm;"), "optimizemode:1;pagewidth:1").body,
            frameStart + "width:415.611pt;\"><tr><td><p>x</p></td></tr></table>");
  EXPECT_TEXT(clean("import", points, "optimizemode:1;pagewidth:1;pagemargin:1").body,
            frameStart + "width:595.3pt;padding:72.0pt 90.0pt 72.0pt 90.0pt;\"><tr><td><p>x</p></td></tr></table>");
  EXPECT_TEXT(clean("import", points, "optimizemode:1;pagewidth:1;pageeffect:1;pagescroll:1").body,
            "<div style=\"width:100%;overflow:auto;\"><table cellspacing=0 cellpadding=0 align=center "
            "style=\"border-top:1px solid #000000;border-left:1px solid #000000;border-right:3px solid #000000;"
            "border-bottom:3px solid #000000;\"><tr><td style=\"background-color:#ffffff;\">" +
                frameStart + "width:415.3pt;\"><tr><td><p>x</p></td></tr></table></td></table></div>");
  // The frame options do nothing without pagewidth.
  EXPECT_TEXT(clean("import", points, "optimizemode:1;pagemargin:1;pageeffect:1;pagescroll:1").body, "<p>x</p>");

  // No frame without a usable size and four margins.
  for (const QString& rule : {QString("size:595.3pt 841.9pt;margin:72.0pt 90.0pt 72.0pt;"),
                              QString("size:595.3pt 841.9pt;margin:72.0pt 90.0pt;"),
                              QString("size:8.27in 11.69in;margin:1in 1in 1in 1in;"),
                              QString("size:595.3pt;margin:72.0pt 90.0pt 72.0pt 90.0pt;"),
                              QString("margin:72.0pt 90.0pt 72.0pt 90.0pt;")})
    EXPECT_TEXT(clean("import", pageWith(rule), "optimizemode:1;pagewidth:1").body, "<p>x</p>") << rule.toStdString();

  // WPS writes the four margins one by one; Word does not read them.
  const QString sides = pageWith("margin-top:72.0000pt;margin-bottom:72.0000pt;margin-left:90.0000pt;"
                                 "margin-right:90.0000pt;size:595.3000pt 841.9000pt;");
  EXPECT_TEXT(clean("import", sides, "optimizemode:1;pagewidth:1").body, "<p>x</p>");
  EXPECT_TEXT(clean("import", sides, "optimizemode:1;pagewidth:1", Variant::WPS).body,
            frameStart + "width:415.3pt;\"><tr><td><p>x</p></td></tr></table>");
  EXPECT_TEXT(clean("import", sides, "optimizemode:1;pagewidth:1;pagemargin:1", Variant::WPS).body,
            frameStart + "width:595.3000pt;padding:72.0000pt 90.0000pt 72.0000pt 90.0000pt;\"><tr><td><p>x</p></td></tr></table>");
  const QString threeSides = pageWith("margin-top:72pt;margin-bottom:72pt;margin-left:90pt;size:595.3pt 841.9pt;");
  EXPECT_TEXT(clean("import", threeSides, "optimizemode:1;pagewidth:1", Variant::WPS).body, "<p>x</p>");
}

TEST(WordCleanup, SwitchesAreOnOnlyForExactlyOne) {
  const QString html = "<head><style>p {color:red;}</style></head><body><p class=x>a</p></body>";
  EXPECT_TEXT(clean("import", html, "OptimizeMode : 1").body, "<p class=x>a</p>");
  EXPECT_TEXT(clean("import", html, "optimizemode:01").body, "<p>a</p>");
  EXPECT_TEXT(clean("import", html, "optimizemode:true").style, "");
  EXPECT_TEXT(clean("import", html, "").body, "<p>a</p>");
  const QString spaced = "<p class=MsoNormal><span>&nbsp;</span></p>";
  EXPECT_TEXT(modeOne(spaced, "opt1space:yes"), "<p class=MsoNormal><span>&nbsp;</span></p>");
  EXPECT_TEXT(modeOne(spaced, "opt1space:1:1"), "<p class=MsoNormal><span>&nbsp;</span></p>");
}

TEST(WordCleanup, StartsAfreshAndYieldsToTheEventLoop) {
  Context context;
  context.g_sError = "SaveAs:earlier";
  QString style = "old style", body = "old body";
  bool delivered = false;
  QTimer::singleShot(0, [&] { delivered = true; });
  RuleTrace trace;
  WordCleanup(context).OptimizeHTML("import", "<body><o:p></o:p>x</body>", "optimizemode:1", style, body, &trace);
  EXPECT_TRUE(delivered);
  EXPECT_TEXT(context.g_sError, "");
  EXPECT_TEXT(style, "<style>\r\n\r\n</style>");
  EXPECT_TEXT(body, "x");
  ASSERT_EQ(trace.steps.size(), 1u);
  EXPECT_TEXT(trace.steps[0].rule, "B1");
  EXPECT_EQ(trace.steps[0].sizeBefore - trace.steps[0].sizeAfter, 11);
}

// ---------------------------------------------------------------------------------------
// Whole documents.

void expectGolden(const QString& name, const Cleaned& out) {
  EXPECT_TEXT(out.style, fixture("golden/" + name + ".style.html")) << name.toStdString();
  EXPECT_TEXT(out.body, fixture("golden/" + name + ".body.html")) << name.toStdString();
}

TEST(WordCleanupDocuments, MatchTheirCheckedOutputs) {
  expectGolden("saved_page_mode1", clean("import", fixture("saved_page.htm"), "optimizemode:1"));
  expectGolden("saved_page_mode2", clean("import", fixture("saved_page.htm"), "optimizemode:2"));
  expectGolden("clipboard_mode1", clean("paste", fixture("clipboard_format.txt"), "optimizemode:1;opt1vml:1;opt1eq:1"));
  expectGolden("wps_page_mode1", clean("import", fixture("wps_page.htm"), "optimizemode:1;pagewidth:1", Variant::WPS));
}

// Properties that hold for any document, checked on the fixtures and on a large one.
void expectCleanedWell(const QString& source, const QString& page, Variant variant) {
  const QString inputText = visibleText(bodyOf(page));
  const QString allModeOne = "optimizemode:1;opt1vml:1;opt1absolute:1;opt1eq:1;opt1margin:1;opt1grid:1";
  const Cleaned one = clean(source, page, allModeOne, variant);
  for (const QString& tag : tagsOf(one.body)) {
    const QString style = RegExpSubMatch(tag, R"(\sstyle=(['"])([^'"]*)\1)", 1);
    EXPECT_FALSE(style.contains("mso-", Qt::CaseInsensitive)) << tag.toStdString();
  }
  EXPECT_TEXT(visibleText(one.body), inputText);

  const Cleaned two = clean(source, page, "optimizemode:2", variant);
  for (const QString& tag : tagsOf(two.body))
    EXPECT_TRUE(QRegularExpression("^<(/?p|br)", QRegularExpression::CaseInsensitiveOption).match(tag).hasMatch())
        << tag.toStdString();
  QTextDocument rendered;
  rendered.setHtml(two.body);
  EXPECT_TEXT(rendered.toPlainText().remove(QRegularExpression(R"([\s\x{a0}]+)")), inputText);

  const Cleaned kept = clean(source, page, "optimizemode:2;opt2image:1;opt2table:1;opt2eq:1", variant);
  for (const QString& tag : tagsOf(kept.body))
    EXPECT_TRUE(QRegularExpression("^<(/?(p|br|img|table|tr|td|th|sub|sup))", QRegularExpression::CaseInsensitiveOption)
                    .match(tag)
                    .hasMatch())
        << tag.toStdString();
}

TEST(WordCleanupDocuments, KeepTheTextDropTheMarkup) {
  expectCleanedWell("import", fixture("saved_page.htm"), Variant::Word);
  expectCleanedWell("paste", fixture("clipboard_format.txt"), Variant::Word);
  expectCleanedWell("import", fixture("wps_page.htm"), Variant::WPS);
}

TEST(WordCleanupDocuments, ALargeDocument) {
  const QString page = fixture("saved_page.htm");
  const qsizetype start = page.indexOf("<h1>");
  const qsizetype end = page.indexOf("</div>", start);
  QString large = page.left(start);
  while (large.size() < 3'000'000) large += page.mid(start, end - start);
  large += page.mid(end);
  expectCleanedWell("import", large, Variant::Word);
  const Cleaned framed = clean("import", large, "optimizemode:1;pagewidth:1;opt1css:0");
  EXPECT_TRUE(framed.body.startsWith("<table border=0 cellpadding=0 cellspacing=0 align=center"));
}

// ---------------------------------------------------------------------------------------
// Bad input: a clear result, never a crash or a hang.

TEST(WordCleanupBadInput, EmptyAndBrokenTextGiveAClearResult) {
  Cleaned out = clean("import", "", "optimizemode:1");
  EXPECT_TEXT(out.style, "<style>\r\n\r\n</style>");
  EXPECT_TEXT(out.body, "");
  out = clean("paste", "", "optimizemode:2;pagewidth:1");
  EXPECT_TEXT(out.style, "");
  EXPECT_TEXT(out.body, "");

  const QString broken = "<head><style>p {color:red</style><body><p class=MsoNormal style='mso-x:1'><span>"
                         "open<div><table><tr><td>cell</p></body><!-- never closed <o:p>";
  for (const char* options : {"optimizemode:1;opt1vml:1;opt1space:1;opt1grid:1", "optimizemode:2;opt2table:1"}) {
    out = clean("paste", broken, options);
    EXPECT_TEXT(visibleText(out.body), "opencell") << options;
  }
  // A tag that never closes is no tag to the rules.
  EXPECT_TEXT(modeTwo("<p>before <span class=x"), "<p>before <span class=x");
}

TEST(WordCleanupBadInput, DeepNesting) {
  const int depth = 3000;
  QString nested, empty;
  for (int i = 0; i < depth; ++i) nested += "<span style='mso-bidi-font-size:11pt'><div><b>";
  nested += "core";
  for (int i = 0; i < depth; ++i) nested += "</b></div></span>";
  for (int i = 0; i < depth; ++i) empty += "<span lang=EN-US>";
  for (int i = 0; i < depth; ++i) empty += "</span>";

  const QString one = modeOne(nested);
  EXPECT_TEXT(visibleText(one), "core");
  EXPECT_FALSE(one.contains("mso-"));
  EXPECT_TEXT(modeTwo(nested), "core");
  EXPECT_TEXT(modeOne("<p>" + empty + "</p>"), "<p>&nbsp;</p>");
}

TEST(WordCleanupBadInput, BacktrackingBaitFinishesOrFailsClearly) {
  // Long runs that lazy patterns walk over many times, but that still finish.
  const QString runs = "<p>" + QString("<a name=x>").repeated(2000) + QString("&nbsp;").repeated(20000) +
                       "<st1:x>" + QString("a").repeated(100000) + "</p>";
  EXPECT_TEXT(visibleText(modeTwo(runs)), QString("a").repeated(100000));
  const QString styleRuns = "<head><style>" + QString("p {mso-a:1;color:red;}").repeated(5000) + "</style></head>";
  EXPECT_TEXT(clean("import", styleRuns, "optimizemode:1").style,
              "<style>\r\n" + QString("p {color:red;}\r\n").repeated(4999) + "p {color:red;}\r\n</style>");
}

TEST(WordCleanupBadInput, FiftyMegabytesOfPastedHtml) {
  // The clipboard fixture's body again and again: mode 2 keeps only permitted tags, and
  // the text a reader sees is every copy's text.
  const QString page = fixture("clipboard_format.txt");
  const QString body = bodyOf(page);
  const qsizetype copies = 50'000'000 / body.size() + 1;
  const QString head = page.left(page.indexOf('>', page.indexOf("<body", 0, Qt::CaseInsensitive)) + 1);
  const Cleaned out = clean("paste", head + body.repeated(copies) + "</body></html>", "optimizemode:2");
  const QString copyText = visibleText(clean("paste", page, "optimizemode:2").body);
  EXPECT_EQ(visibleText(out.body).size(), copyText.size() * copies);
  EXPECT_FALSE(out.body.contains("mso-", Qt::CaseInsensitive));
  EXPECT_FALSE(out.body.contains("<span", Qt::CaseInsensitive));
}

TEST(WordCleanupBadInput, OpenersThatNeverCloseStopAtTheEnginesLimit) {
  // Each conditional opener makes the lazy rules scan to the end of the text: time would
  // grow with the square of it. The engine gives up instead, with a clear error.
  const QString bait = "<body>" + QString("<![if !vml]><!--[if gte vml 1]>").repeated(100'000) + "</body>";
  const ScopedRegExpTimeLimit limit(std::chrono::milliseconds(500));
  try {
    clean("paste", bait, "optimizemode:1;opt1vml:1");
    FAIL() << "expected a ScriptError";
  } catch (const ScriptError& error) {
    EXPECT_EQ(error.number(), errnum::RegExpGaveUp);
    EXPECT_TRUE(error.description().contains("time limit")) << error.description().toStdString();
  }
}

// Mutated documents with every option on or off: each call either gives a result or a
// clear ScriptError.
TEST(WordCleanupBadInput, MutatedDocumentsSurvive) {
  const QStringList documents = {fixture("saved_page.htm"), fixture("clipboard_format.txt"), fixture("wps_page.htm")};
  const QStringList keys = {"opt1vml", "opt1absolute", "opt1eq", "opt1margin", "opt1space", "opt1grid",
                            "opt2image", "opt2table", "opt2eq", "opt2indent", "opt2ptobr", "pagewidth",
                            "pagemargin", "pageeffect", "pagescroll"};
  QRandomGenerator random(4101);
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
      const Cleaned out = clean(round % 2 ? "paste" : "import", html, options,
                                round % 3 ? Variant::Word : Variant::WPS);
      EXPECT_FALSE(out.body.size() > html.size() + 2000) << options.toStdString();
    } catch (const ScriptError& error) {
      EXPECT_EQ(error.number(), errnum::RegExpGaveUp);
    }
  }
}

// A match the engine cannot finish is the caller's error, reported to the script as a
// failed call; the outputs stay cleared.
TEST(WordCleanupBadInput, AnUnfinishedMatchReachesTheCaller) {
  const QString bait = "<body><p style='" + QString("mso-a:1").repeated(40) + ">x</p></body>";
  Context context;
  context.g_sError = "old";
  QString style = "s", body = "b";
  try {
    WordCleanup(context).OptimizeHTML("import", bait, "optimizemode:1", style, body);
    FAIL() << "expected a ScriptError";
  } catch (const ScriptError& error) {
    EXPECT_EQ(error.number(), errnum::RegExpGaveUp);
    EXPECT_TRUE(error.description().contains("mso-"));
  }
  EXPECT_TEXT(style, "");
  EXPECT_TEXT(body, "");
  EXPECT_TEXT(context.g_sError, "");
}

}  // namespace
}  // namespace velmora
