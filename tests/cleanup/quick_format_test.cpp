#include <gtest/gtest.h>

#include "cleanup/clsQuickFormat.h"
#include "tests/common/Helpers.h"
#include "tests/common/HttpServer.h"

namespace velmora {
namespace {

// An "HTML Format" block as a browser leaves it; StartHTML is the offset of the HTML.
QString clipboardBlock(const QString& sourceUrl, const QString& html) {
  const QString head = QStringLiteral("Version:0.9\r\nStartHTML:%1\r\nEndHTML:0000000000\r\nSourceURL:%2\r\n");
  const qsizetype headSize = head.arg("0000000000", sourceUrl).size();
  return head.arg(headSize, 10, 10, QChar('0')).arg(sourceUrl) + html;
}

TEST(QuickFormat, ResolvesLinksAgainstThePageFolder) {
  const std::pair<const char*, const char*> cases[] = {
      {"../../c.css", "http://server/c.css"},
      {"../../../c.css", "http://server/c.css"},
      {"../c.css", "http://server/a/c.css"},
      {"/x.css", "http://server/x.css"},
      {"./x.css", "http://server/a/b/x.css"},
      {"x.css", "http://server/a/b/x.css"},
      {"https://cdn.example/y.css", "https://cdn.example/y.css"},
  };
  for (const auto& [link, resolved] : cases) EXPECT_EQ(clsQuickFormat::ResolveUrl("http://server/a/b", link), resolved);
  EXPECT_EQ(clsQuickFormat::ResolveUrl("https://server/a", "//cdn.example/y.css"), "https://cdn.example/y.css");
}

class QuickFormatTest : public ::testing::Test {
 protected:
  test::HttpServer server;
  Context context;
  clsQuickFormat formatter{context};
  QString style, body;
};

TEST_F(QuickFormatTest, BuildsATemplateWithTheSheetsInline) {
  server.route("/site/main.css", {200, "p { color: red }"});
  server.route("/theme.css", {200, "h1 { font: bold }"});
  const QString page = "<html><head><link rel=StyleSheet href=\"main.css\"><link rel=icon href=\"fav.ico\">"
                       "<link href='/theme.css' rel=stylesheet><link rel=stylesheet href=\"gone.css\">"
                       "<script>var x = '<p>';</script><!-- note --><style type=text/css>b{}</style></head>"
                       "<body><div class=page><!--StartFragment--><p>copied</p><!--EndFragment--></div></body></html>";
  formatter.QuickFormatFrom(clipboardBlock(server.url("/site/page.html"), page), style, body);

  const QString sheets = "<style>\r\np { color: red }\r\n</style>\r\n<link rel=icon href=\"fav.ico\">\r\n"
                         "<style>\r\nh1 { font: bold }\r\n</style>\r\n<style type=text/css>b{}</style>";
  EXPECT_EQ(body, "<html><head>\r\n" + sheets +
                      "</head><body><div class=page><span id=Velmora_Temp_Span>&nbsp;</span></div></body></html>");
  EXPECT_EQ(style, "<style>\r\np { color: red }\r\n</style>\r\n<style>\r\nh1 { font: bold }\r\n</style>\r\n"
                   "<style type=text/css>b{}</style>\r\n");
}

TEST_F(QuickFormatTest, GivesNothingForContentItCannotPlace) {
  const QString page = "<body><!--StartFragment-->x<!--EndFragment--></body>";
  const QString cases[] = {
      "",
      clipboardBlock("file:///home/u/page.html", page),
      clipboardBlock("ftp://server/page.html", page),
      clipboardBlock(server.url("/p.html"), "<body>no markers</body>"),
      clipboardBlock(server.url("/p.html"), "<!--EndFragment-->x<!--StartFragment-->"),
      "Version:0.9\r\nStartHTML:12a\r\nSourceURL:http://s/p\r\n" + page,
      "Version:0.9\r\nStartHTML:999999\r\nSourceURL:http://s/p\r\n" + page,
  };
  for (const QString& text : cases) {
    formatter.QuickFormatFrom(text, style, body);
    EXPECT_EQ(style, "") << text;
    EXPECT_EQ(body, "") << text;
  }
}

}  // namespace
}  // namespace velmora
