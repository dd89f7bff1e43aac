#include <gtest/gtest.h>

#include "cleanup/WordCleanup.h"
#include "support/RegExp.h"
#include "tests/cleanup/CleanupTesting.h"

namespace velmora {
namespace {

using Variant = WordCleanup::Variant;
using test::Cleaned;

Cleaned clean(const QString& source, const QString& html, const QString& options, Variant variant = Variant::Word) {
  Context context;
  Cleaned out;
  WordCleanup(context, variant).OptimizeHTML(source, html, options, out.style, out.body, &out.trace);
  return out;
}

QString doc(const QString& name) { return test::fixture("word/" + name); }

// The characters a reader sees, in order: tags and comments gone, and no white space, since
// where blocks break lines is the renderer's business.
QString visibleText(QString html) {
  html.remove(QRegularExpression("<!--.*?-->", QRegularExpression::DotMatchesEverythingOption));
  html.remove(QRegularExpression("<[^>]*>"));
  html.replace("&nbsp;", " ");
  return html.remove(QRegularExpression(R"([\s\x{a0}]+)"));
}

using test::kAny;
constexpr bool WPS = true;

void expectCases(const std::vector<test::Case>& cases, bool wrapInBody) {
  test::expectCases(cases, [&](const test::Case& c) {
    return clean(c.source, wrapInBody ? "<body>" + c.html + "</body>" : c.html, c.options,
                 c.wps ? Variant::WPS : Variant::Word);
  });
}

// Each rule and option on a small body.
TEST(WordCleanup, BodyRulesAndOptions) {
  const QString m1 = "optimizemode:1", m2 = "optimizemode:2";
  const QString row = "<table><tr><th>h</th><o:p>junk</o:p><td>x</td><![if !x]></tr></table>";
  const QString vmlOnly =
      "<p><v:shapetype id=\"_x0000_t75\" coordsize=\"21600,21600\"><v:stroke joinstyle=\"miter\"/></v:shapetype>"
      "<v:shape id=\"Picture_x0020_1\" style='width:150pt;height:100pt;visibility:visible'>"
      "<v:imagedata src=\"file:///C:/Users/dev/AppData/Local/Temp/msohtmlclip1/01/clip_image001.png\" o:title=\"\"/>"
      "</v:shape></p>";
  const QString lowered = "<p><sub><img width=52 height=24 src=\"e.gif\" style='width:39pt;height:18pt'></sub></p>";
  const QString middle =
      "<p class=MsoNormal style='vertical-align:middle'>Ratio <img width=33 src=\"r.gif\"> holds</p>";
  const QString mixed = "<h1 class=x>Title</h1><p class=MsoNormal style='color:red' lang=EN-US><b>bold</b> "
                        "<img src=\"a.gif\"><br clear=all><pre>code</pre></p><table><tr><td>c</td></tr></table>"
                        "<sub>2</sub>";
  const QString middle2 = "<p style='vertical-align:middle'>a <img src=\"r.gif\"> b</p>";
  const QString raised2 = "<p><span style='mso-text-raise:-5pt'><img src=\"e.gif\"></span></p>";
  const QString eqImg = "<img style=\"vertical-align:middle;\" ";
  // A mode 1 option: the body without it (empty: the html unchanged), then with it.
  const struct {
    const char* option;
    QString html, off, on;
  } switches[] = {
      {"opt1absolute", "<p style='position: absolute;top:1pt'>x</p>", "", "<p style=';top:1pt'>x</p>"},
      {"opt1margin",
       "<p style='margin-left:-12.0pt;text-indent:-1pt'>x</p><span style='position:relative;left:-3.5pt'>y", "",
       "<p style='margin-left:0pt;text-indent:-1pt'>x</p><span style='position:relative;left:0pt'>y"},
      {"opt1space", "<p class=MsoNormal><span>&nbsp;</span></p><p class=MsoNormal>text</p>", "",
       "<p class=MsoNormal>text</p>"},
      {"opt1grid", "\r\n<div class=WordSection1 style='layout-grid:15.6pt'>\r\n<p>x</p>\r\n</div>\r\n", "",
       "\r\n<p>x</p>\r\n"},
      {"pagewidth", "<div>\r\n<p>x</p>\r\n</div>", "\r\n<p>x</p>\r\n", "<div>\r\n<p>x</p>\r\n</div>"},
      {"opt1eq", lowered, "", "<p>" + eqImg + "width=52 height=24 src=\"e.gif\" ></p>"},
      {"opt1eq", middle, "",
       "<p class=MsoNormal style='vertical-align:middle'>Ratio " + eqImg + "width=33 src=\"r.gif\"> holds</p>"},
  };
  std::vector<test::Case> cases;
  for (const auto& s : switches) {
    cases.push_back({s.option, s.html, m1, s.off.isEmpty() ? s.html : s.off});
    cases.push_back({s.option, s.html, m1 + ";" + s.option + ":1", s.on});
  }
  cases.insert(
      cases.end(),
      std::initializer_list<test::Case>{
          {"anchors, empty o:p, white space between cells, comments and conditional blocks go",
           "<p><a name=\"_Toc1\"></a><a name=x>Title</a><o:p>&nbsp;</o:p></p><table><tr style='h'>\r\n <td>a</td>\r\n "
           "<span></span> <td>b</td>\r\n</tr></table><!--[if mso]><x>y</x><![endif]--><!-- note -->",
           m1, "<p>Title</p><table><tr style='h'><td>a</td><td>b</td></tr></table>"},
          {"Word clears only spans and white space between cells", row, m1, row},
          {"WPS clears everything between cells", row, m1, "<table><tr><th>h</th><td>x</td></tr></table>", kAny,
           "import", WPS},
          {"a pasted VML-only picture becomes an image", vmlOnly, m1,
           "<p><img border=0 src=\"file:///C:/Users/dev/AppData/Local/Temp/msohtmlclip1/01/clip_image001.png\" "
           "style=\"width:150pt;height:100pt\"></p>",
           kAny, "paste"},
          {"with an image tag present the pasted shapes simply go",
           "<p><img src=\"a.png\"><v:shape id=\"s\" style='width:1pt;height:2pt'><v:imagedata src=\"b.png\"/>"
           "</v:shape></p>",
           m1, "<p><img src=\"a.png\"></p>", kAny, "paste"},
          {"VML pictures are turned into images only for the source paste", vmlOnly, m1, vmlOnly},
          {"the source is compared exactly", vmlOnly, m1, vmlOnly, kAny, "Paste"},
          {"mode 1 drops Word's private markup",
           "<p class=MsoNormal style='mso-pagination:none;color:red;mso-bidi-font-size:11pt' lang=EN-US>"
           "<st1:City w:st=\"on\">Beijing</st1:City><span style=\"mso-spacerun:yes\">&nbsp;</span>"
           "<img width=1 src=\"a.gif\" v:shapes=\"_x0000_i1025\"></p>",
           m1, "<p class=MsoNormal style='color:red;'>Beijing<span>&nbsp;</span><img width=1 src=\"a.gif\"></p>"},
          {"but not a pasted one", lowered, m1 + ";opt1eq:1", lowered, kAny, "paste"},
          {"WPS leaves pictures of middle-aligned paragraphs", middle, m1 + ";opt1eq:1", middle, kAny, "import", WPS},
          // X8 takes the language's word characters only, so "-US" stays behind.
          {"opt2image keeps images", mixed, m2 + ";opt2image:1",
           "Title<p -US>bold <img src=\"a.gif\"><br clear=all><pre>code</pre></p>c2"},
          {"opt2table keeps tables with a grid", mixed, m2 + ";opt2table:1",
           "Title<p -US>bold <br clear=all><pre>code</pre></p><table style=\"border-collapse:collapse;\" border=1 "
           "bordercolor=\"#000000\"><tr><td>c</td></tr></table>2"},
          {"opt2indent", "<p>a</p><p class=x>b</p>", m2 + ";opt2indent:1",
           "<p style=\"text-indent:2em;\">a</p><p style=\"text-indent:2em;\">b</p>"},
          {"opt2ptobr", "<p>a</p><p class=x>b</p>", m2 + ";opt2ptobr:1", "a<br>b<br>"},
          {"opt2eq keeps sub and sup and sets equation pictures in the middle",
           "<p>x<sup>2</sup><sub><img src=\"e.gif\"></sub></p>", m2 + ";opt2eq:1",
           "<p>x<sup>2</sup>" + eqImg + "src=\"e.gif\"></p>"},
          {"opt2eq on middle-aligned paragraphs", middle2, m2 + ";opt2eq:1", "<p>a " + eqImg + "src=\"r.gif\"> b</p>"},
          {"WPS has no mode 2 middle-aligned rule", middle2, m2 + ";opt2eq:1", "<p>a <img src=\"r.gif\"> b</p>", kAny,
           "import", WPS},
          {"opt2eq on a pasted raised picture", raised2, m2 + ";opt2eq:1", "<p>" + eqImg + "src=\"e.gif\"></p>", kAny,
           "paste"},
          {"opt2eq leaves an imported raised picture", raised2, m2 + ";opt2eq:1", "<p><img src=\"e.gif\"></p>"},
          {"a switch is on only for exactly 1", "<p class=MsoNormal><span>&nbsp;</span></p>", m1 + ";opt1space:yes",
           "<p class=MsoNormal><span>&nbsp;</span></p>"},
          {"a tag that never closes is no tag to the rules", "<p>before <span class=x", m2, "<p>before <span class=x"},
      });
  expectCases(cases, true);
}

QString pageWith(const QString& pageRule) {
  return "<html><head><style>\r\n@page WordSection1\r\n\t{" + pageRule +
         "}\r\ndiv.WordSection1\r\n\t{page:WordSection1;}\r\n</style></head><body><p>x</p></body></html>";
}

// Whole pages: how head, style and body are cut, the sheet's rules, the page frame, the switches.
TEST(WordCleanup, PagesStylesAndFrames) {
  const QString bare = "<style>p.a {color:red;}</style><p class=a>x</p>";
  const QString vml = "<head><style>\r\nv\\:* {behavior:url(#default#VML);}\r\n.shape {behavior:url(#default#VML);}\r\n"
                      "p {color:red;}\r\n</style></head>";
  const QString frame =
      "<table border=0 cellpadding=0 cellspacing=0 align=center style=\"overflow-x:hidden;word-break:break-all;";
  const QString framed = frame + "width:415.3pt;\"><tr><td><p>x</p></td></tr></table>";
  const QString points =
      pageWith("size:595.3pt 841.9pt;\r\n\tmargin:72.0pt 90.0pt 72.0pt 90.0pt;\r\n\tmso-header-margin:42.55pt;");
  const QString sides = pageWith("margin-top:72.0000pt;margin-bottom:72.0000pt;margin-left:90.0000pt;"
                                 "margin-right:90.0000pt;size:595.3000pt 841.9000pt;");
  const QString switched = "<head><style>p {color:red;}</style></head><body><p class=x>a</p></body>";
  const QString cssPage = "<html><head><style>\r\n<!--\r\np.MsoNormal\r\n\t{mso-style-parent:\"\";\r\n\tmargin:0cm;\r\n"
                          "\tfont-size:10.5pt;}\r\n-->\r\n</style></head><body lang=ZH-CN><div>\r\n<p class=MsoNormal "
                          "style='color:red'>x</p>\r\n</div></body></html>";
  const QString emptyStyle = "<style>\r\n\r\n</style>";
  const QString m1 = "optimizemode:1";
  std::vector<test::Case> cases = {
      {"without title, head and body tags the whole text is head and body", bare, m1, bare,
       "<style>\r\np.a {color:red;}\r\n</style>"},
      {"two style elements make one style",
       "<head><style>p {color:red;}</style><style>h2 {color:blue;}</style></head><body>x</body>", m1, kAny,
       "<style>\r\np {color:red;}\r\nh2 {color:blue;}\r\n</style>"},
      {"no style element makes an empty one", "<body>x</body>", m1, kAny, emptyStyle},
      {"the cuts ignore case, what precedes the title goes, the last body end tag counts",
       "<HTML><HEAD><style>b {x:y;}</style><TITLE>t</TITLE><style>p {color:red;}</style></HEAD>"
       "<BODY lang=EN><p>a</p></BODY>tail</body>end",
       m1, "<p>a</p></BODY>tail", "<style>\r\np {color:red;}\r\n</style>"},
      {"style elements in gte mso blocks are Word's own",
       "<head><!--[if gte mso 10]><style>x {a:b;}</style><![endif]--><style>p {c:d;}</style></head>", m1, kAny,
       "<style>\r\np {c:d;}\r\n</style>"},
      {"VML behaviour rules stay without opt1vml", vml, m1, kAny,
       "<style>\r\nv\\:* {behavior:url(#default#VML);}\r\n.shape {behavior:url(#default#VML);}\r\n"
       "p {color:red;}\r\n</style>",
       "paste"},
      {"opt1css folds the sheet into the elements in mode 1", cssPage, m1 + ";opt1css:1",
       "\r\n<p style=\"margin:0cm;font-size:10.5pt;color:red\"  >x</p>\r\n", ""},
      {"opt1css is only a mode 1 option", cssPage, "optimizemode:2;opt1css:1", "\r\n<p>x</p>\r\n", ""},
      {"opt1css:0 keeps the sheet", cssPage, m1 + ";opt1css:0", "\r\n<p class=MsoNormal style='color:red'>x</p>\r\n",
       "<style>\r\np.MsoNormal {margin:0cm;font-size:10.5pt;}\r\n</style>"},
      {"a frame of the page width in mode 1", points, m1 + ";pagewidth:1", framed},
      {"a frame of the page width in mode 2", points, "optimizemode:2;pagewidth:1", framed},
      {"a page size in centimetres", pageWith("size:21.0cm 29.7cm;margin:2.54cm 3.17cm 2.54cm 3.17cm;"),
       m1 + ";pagewidth:1", frame + "width:415.611pt;\"><tr><td><p>x</p></td></tr></table>"},
      {"pagemargin", points, m1 + ";pagewidth:1;pagemargin:1",
       frame + "width:595.3pt;padding:72.0pt 90.0pt 72.0pt 90.0pt;\"><tr><td><p>x</p></td></tr></table>"},
      {"pageeffect and pagescroll", points, m1 + ";pagewidth:1;pageeffect:1;pagescroll:1",
       "<div style=\"width:100%;overflow:auto;\"><table cellspacing=0 cellpadding=0 align=center "
       "style=\"border-top:1px solid #000000;border-left:1px solid #000000;border-right:3px solid #000000;"
       "border-bottom:3px solid #000000;\"><tr><td style=\"background-color:#ffffff;\">" +
           framed + "</td></table></div>"},
      {"the frame options do nothing without pagewidth", points, m1 + ";pagemargin:1;pageeffect:1;pagescroll:1",
       "<p>x</p>"},
      {"Word does not read margins written one by one", sides, m1 + ";pagewidth:1", "<p>x</p>"},
      {"WPS with pagemargin", sides, m1 + ";pagewidth:1;pagemargin:1",
       frame + "width:595.3000pt;padding:72.0000pt 90.0000pt 72.0000pt 90.0000pt;\"><tr><td><p>x</p></td></tr></table>",
       kAny, "import", WPS},
      {"WPS needs all four sides",
       pageWith("margin-top:72pt;margin-bottom:72pt;margin-left:90pt;size:595.3pt 841.9pt;"), m1 + ";pagewidth:1",
       "<p>x</p>", kAny, "import", WPS},
      // A switch is on for exactly "1"; how the option string is read is tested with the control.
      {"optimizemode:1 keeps classes", switched, "optimizemode:1", "<p class=x>a</p>"},
      {"optimizemode:01 is mode 2", switched, "optimizemode:01", "<p>a</p>"},
      {"optimizemode:true is mode 2", switched, "optimizemode:true", kAny, ""},
      {"no options is mode 2", switched, "", "<p>a</p>"},
      {"an empty text in mode 1", "", m1, "", emptyStyle},
      {"an empty text in mode 2", "", "optimizemode:2;pagewidth:1", "", "", "paste"},
  };
  // No frame without a usable size and four margins.
  for (const char* rule : {"size:595.3pt 841.9pt;margin:72.0pt 90.0pt 72.0pt;",
                           "size:595.3pt 841.9pt;margin:72.0pt 90.0pt;", "size:8.27in 11.69in;margin:1in 1in 1in 1in;",
                           "size:595.3pt;margin:72.0pt 90.0pt 72.0pt 90.0pt;", "margin:72.0pt 90.0pt 72.0pt 90.0pt;"})
    cases.push_back({rule, pageWith(rule), m1 + ";pagewidth:1", "<p>x</p>"});
  expectCases(cases, false);
}

TEST(WordCleanup, StartsAfreshAndYieldsToTheEventLoop) {
  test::expectStartsAfresh<WordCleanup>("<body><o:p></o:p>x</body>", "x", "B1", 11);
}

TEST(WordCleanupDocuments, MatchTheirCheckedOutputs) {
  test::expectGolden("word", "saved_page_mode1", clean("import", doc("saved_page.htm"), "optimizemode:1"));
  test::expectGolden("word", "saved_page_mode2", clean("import", doc("saved_page.htm"), "optimizemode:2"));
  test::expectGolden("word", "clipboard_mode1",
                     clean("paste", doc("clipboard_format.txt"), "optimizemode:1;opt1vml:1;opt1eq:1"));
  test::expectGolden("word", "wps_page_mode1",
                     clean("import", doc("wps_page.htm"), "optimizemode:1;pagewidth:1", Variant::WPS));
}

// Properties that hold for any document, checked on a large one and on the WPS page in mode 2
// (the golden outputs check the fixtures otherwise).
void expectCleanedWell(const QString& source, const QString& page, Variant variant) {
  const QString inputText = visibleText(test::bodyOf(page));
  const Cleaned one =
      clean(source, page, "optimizemode:1;opt1vml:1;opt1absolute:1;opt1eq:1;opt1margin:1;opt1grid:1", variant);
  for (const QString& tag : test::tagsOf(one.body))
    EXPECT_FALSE(RegExpSubMatch(tag, R"(\sstyle=(['"])([^'"]*)\1)", 1).contains("mso-", Qt::CaseInsensitive)) << tag;
  EXPECT_EQ(visibleText(one.body), inputText);

  const Cleaned two = clean(source, page, "optimizemode:2", variant);
  for (const QString& tag : test::tagsOf(two.body)) EXPECT_TRUE(test::startsLike(tag, "/?p|br")) << tag;
  EXPECT_EQ(test::renderedText(two.body), inputText);

  const Cleaned kept = clean(source, page, "optimizemode:2;opt2image:1;opt2table:1;opt2eq:1", variant);
  for (const QString& tag : test::tagsOf(kept.body))
    EXPECT_TRUE(test::startsLike(tag, "/?(p|br|img|table|tr|td|th|sub|sup)")) << tag;
}

TEST(WordCleanupDocuments, KeepTheTextDropTheMarkup) {
  const QString page = doc("saved_page.htm");

  const qsizetype start = page.indexOf("<h1>"), end = page.indexOf("</div>", start);
  QString large = page.left(start);
  while (large.size() < 3'000'000) large += page.mid(start, end - start);
  large += page.mid(end);
  expectCleanedWell("import", large, Variant::Word);
  expectCleanedWell("import", doc("wps_page.htm"), Variant::WPS);
  EXPECT_TRUE(clean("import", large, "optimizemode:1;pagewidth:1;opt1css:0")
                  .body.startsWith("<table border=0 cellpadding=0 cellspacing=0 align=center"));
}

// Bad input: a clear result, never a crash or a hang.

TEST(WordCleanupBadInput, BrokenAndDeeplyNestedText) {
  const QString broken = "<head><style>p {color:red</style><body><p class=MsoNormal style='mso-x:1'><span>"
                         "open<div><table><tr><td>cell</p></body><!-- never closed <o:p>";
  for (const char* options : {"optimizemode:1;opt1vml:1;opt1space:1;opt1grid:1", "optimizemode:2;opt2table:1"})
    EXPECT_EQ(visibleText(clean("paste", broken, options).body), "opencell") << options;

  const QString nested = QString("<span style='mso-bidi-font-size:11pt'><div><b>").repeated(3000) + "core" +
                         QString("</b></div></span>").repeated(3000);
  const QString empty = QString("<span lang=EN-US>").repeated(3000) + QString("</span>").repeated(3000);
  const QString one = clean("import", "<body>" + nested + "</body>", "optimizemode:1").body;
  EXPECT_EQ(visibleText(one), "core");
  EXPECT_FALSE(one.contains("mso-"));
  EXPECT_EQ(clean("import", "<body>" + nested + "</body>", "optimizemode:2").body, "core");
  EXPECT_EQ(clean("import", "<body><p>" + empty + "</p></body>", "optimizemode:1").body, "<p>&nbsp;</p>");
}

TEST(WordCleanupBadInput, LongRunsForLazyPatternsFinish) {
  const QString runs = "<p>" + QString("<a name=x>").repeated(2000) + QString("&nbsp;").repeated(20000) + "<st1:x>" +
                       QString("a").repeated(100000) + "</p>";
  EXPECT_EQ(visibleText(clean("import", "<body>" + runs + "</body>", "optimizemode:2").body),
            QString("a").repeated(100000));
  const QString styleRuns = "<head><style>" + QString("p {mso-a:1;color:red;}").repeated(5000) + "</style></head>";
  EXPECT_EQ(clean("import", styleRuns, "optimizemode:1").style,
            "<style>\r\n" + QString("p {color:red;}\r\n").repeated(5000) + "</style>");
}

TEST(WordCleanupBadInput, FiftyMegabytesOfPastedHtml) {
  // The clipboard fixture's body again and again: mode 2 keeps only permitted tags, and
  // the text a reader sees is every copy's text.
  const QString page = doc("clipboard_format.txt");
  const QString body = test::bodyOf(page);
  const qsizetype copies = 50'000'000 / body.size() + 1;
  const QString head = page.left(page.indexOf('>', page.indexOf("<body", 0, Qt::CaseInsensitive)) + 1);
  const Cleaned out = clean("paste", head + body.repeated(copies) + "</body></html>", "optimizemode:2");
  EXPECT_EQ(visibleText(out.body).size(), visibleText(clean("paste", page, "optimizemode:2").body).size() * copies);
  EXPECT_FALSE(out.body.contains("mso-", Qt::CaseInsensitive));
  EXPECT_FALSE(out.body.contains("<span", Qt::CaseInsensitive));
}

// A match the engine cannot finish is the caller's error, reported to the script as a
// failed call; the outputs stay cleared.
TEST(WordCleanupBadInput, AnUnfinishedMatchReachesTheCaller) {
  Context context;
  context.g_sError = "old";
  QString style = "s", body = "b";
  const ScriptError error = test::errorOf([&] {
    WordCleanup(context).OptimizeHTML("import", "<body><p style='" + QString("mso-a:1").repeated(40) + ">x</p></body>",
                                      "optimizemode:1", style, body);
  });
  EXPECT_EQ(error.number(), errnum::RegExpGaveUp);
  EXPECT_TRUE(error.description().contains("mso-"));
  EXPECT_EQ(style, "");
  EXPECT_EQ(body, "");
  EXPECT_EQ(context.g_sError, "");
}

TEST(WordCleanupBadInput, MutatedDocumentsSurvive) {
  test::expectMutationsSurvive(
      {doc("saved_page.htm"), doc("clipboard_format.txt"), doc("wps_page.htm")},
      {"opt1vml", "opt1absolute", "opt1eq", "opt1margin", "opt1space", "opt1grid", "opt2image", "opt2table", "opt2eq",
       "opt2indent", "opt2ptobr", "pagewidth", "pagemargin", "pageeffect", "pagescroll"},
      4101, 1, {errnum::RegExpGaveUp}, [](int round, const QString& html, const QString& options) {
        return clean(round % 2 ? "paste" : "import", html, options, round % 3 ? Variant::Word : Variant::WPS);
      });
}

}  // namespace
}  // namespace velmora
