#include <gtest/gtest.h>
#include <QRegularExpression>

#include "platform/ClipboardMime.h"
#include "tests/common/Helpers.h"

namespace velmora::clipboardmime {
namespace {

struct ParsedBlock {
  QMap<QString, QString> headers;
  QByteArray bytes;
  QByteArray slice(const QString& from, const QString& to) const {
    const qsizetype start = headers.value(from).toLongLong();
    return bytes.mid(start, headers.value(to).toLongLong() - start);
  }
  QByteArray html() const { return slice("StartHTML", "EndHTML"); }
  QByteArray fragment() const { return slice("StartFragment", "EndFragment"); }
};

ParsedBlock parse(const QByteArray& block) {
  ParsedBlock parsed{{}, block};
  static const QRegularExpression line(R"(^(\w+):([^\r\n]*)\r\n)");
  QString rest = QString::fromUtf8(block);
  for (QRegularExpressionMatch m = line.match(rest); m.hasMatch(); m = line.match(rest)) {
    parsed.headers.insert(m.captured(1), m.captured(2));
    rest = rest.mid(m.capturedEnd());
  }
  return parsed;
}

// The rest of the block, the fragment markers, the header names and the byte offsets (EndHTML
// included) are read back by the clipboard tests on the X server and the control's paste flows.
TEST(HtmlFormatBlock, HeaderLinesHoldTenDigitOffsetsAndAnEncodedSource) {
  const QByteArray block = htmlFormatBlock(QString::fromUtf8("<p>中文</p>"), "https://example.com/页面?q=1");
  const ParsedBlock parsed = parse(block);
  for (const char* name : {"StartHTML", "EndHTML", "StartFragment", "EndFragment"})
    EXPECT_TRUE(QRegularExpression("^\\d{10}$").match(parsed.headers.value(name)).hasMatch()) << name;
  EXPECT_EQ(parsed.headers.value("SourceURL"), "https://example.com/%E9%A1%B5%E9%9D%A2?q=1");
  EXPECT_FALSE(htmlFormatBlock("x", QString()).contains("SourceURL")) << "no source, no line";
}

TEST(HtmlFormatBlock, FragmentsDocumentsAndMarkedHtml) {
  const QString document = QString::fromUtf8(
      "<html><head><style>p{color:red}</style></head><BODY lang=ZH-CN>\r\n<p>正文</p>\r\n</body></html>");
  const QString marked = "<html><body><div><!--StartFragment--><p>a</p><!--EndFragment--></div></body></html>";
  const struct {
    const char* name;
    QString html;
    QByteArray fragment, wholeHtml;  // wholeHtml checked when given
  } cases[] = {
      {"a fragment is wrapped", "x", "x", "<html><body><!--StartFragment-->x<!--EndFragment--></body></html>"},
      {"a charset declaration in front is dropped",
       "<meta http-equiv=\"content-type\" content=\"text/html; "
       "charset=utf-8\"><i>y</i>",
       "<i>y</i>",
       {}},
      {"other meta elements stay", "<meta name=\"x\"><i>y</i>", "<meta name=\"x\"><i>y</i>", {}},
      {"a whole document keeps its head and marks its body", document,
       QString::fromUtf8("\r\n<p>正文</p>\r\n").toUtf8(),
       QString::fromUtf8("<html><head><style>p{color:red}</style></head><BODY lang=ZH-CN><!--StartFragment-->"
                         "\r\n<p>正文</p>\r\n<!--EndFragment--></body></html>")
           .toUtf8()},
      {"a body that is never closed runs to the end", "<body><p>a</p>", "<p>a</p>", {}},
      {"html that carries markers keeps them", marked, "<p>a</p>", marked.toUtf8()},
  };
  for (const auto& c : cases) {
    const ParsedBlock parsed = parse(htmlFormatBlock(c.html, {}));
    EXPECT_EQ(parsed.fragment(), c.fragment) << c.name;
    if (!c.wholeHtml.isEmpty()) {
      EXPECT_EQ(parsed.html(), c.wholeHtml) << c.name;
    }
  }
}

TEST(HtmlFormatBlock, TheHtmlOfABlockComesBackEvenWhenTheOffsetsLie) {
  const QByteArray block = htmlFormatBlock(QString::fromUtf8("<p>中</p>"), "http://a/");
  EXPECT_EQ(htmlOfHtmlFormatBlock(block), parse(block).html());
  const std::pair<QByteArray, QByteArray> cases[] = {
      {"<p>no header</p>", "<p>no header</p>"},
      {"Version:0.9\r\nStartHTML:0000000035\r\n<p>a</p>", "<p>a</p>"},
      // Offsets that lie: the HTML is what follows the header lines.
      {"StartHTML:0000009999\r\n<p>a</p>", "<p>a</p>"},
      {"Version:0.9\r\nStartHTML:0000009999\r\nEndHTML:0000000001\r\nSourceURL:http://a/b\r\n<p>a</p>", "<p>a</p>"},
      {"Note:x\r\n<p>a</p>", "Note:x\r\n<p>a</p>"},  // no header without StartHTML
  };
  for (const auto& [text, html] : cases) EXPECT_EQ(htmlOfHtmlFormatBlock(text), html) << text;
}

TEST(OfferedHtml, DecodedAsUtf8UnlessItStartsWithAUtf16Mark) {
  const QString text = QString::fromUtf8("<p>中文 é</p>");
  QByteArray le("\xFF\xFE"), be("\xFE\xFF");
  for (const QChar c : text) {
    le += char(c.unicode() & 0xFF);
    le += char(c.unicode() >> 8);
    be += char(c.unicode() >> 8);
    be += char(c.unicode() & 0xFF);
  }
  for (const QByteArray& bytes : {le + QByteArray(2, '\0'), be, "\xEF\xBB\xBF" + text.toUtf8(), text.toUtf8()})
    EXPECT_EQ(decodeHtml(bytes), text) << bytes;
  // The source address is the first line, in either encoding.
  EXPECT_EQ(decodeSourceUrl("https://example.com/a\n"), "https://example.com/a");
  EXPECT_EQ(decodeSourceUrl(QByteArray()), "");
}

TEST(UriList, OnlyLocalFilesBecomePathsPercentDecodedAndBack) {
  const QByteArray list = "# copied from the file manager\r\nfile:///home/u/%E4%B8%AD%E6%96%87%20%231.txt\r\n"
                          "http://example.com/page.html\r\nfile://localhost/tmp/a%2Bb.png\r\n"
                          "file://otherhost/share/x.txt\r\n\r\nnot a uri at all\r\nfile:///tmp/last";
  EXPECT_EQ(localFilesOfUriList(list),
            QStringList({QString::fromUtf8("/home/u/中文 #1.txt"), "/tmp/a+b.png", "/tmp/last"}));
  EXPECT_TRUE(localFilesOfUriList("https://example.com/\n").isEmpty());

  const QStringList paths = {QString::fromUtf8("/home/u/中 文.txt"), "/tmp/100%.png"};
  EXPECT_EQ(uriListOfFiles(paths), "file:///home/u/%E4%B8%AD%20%E6%96%87.txt\r\nfile:///tmp/100%25.png\r\n");
  EXPECT_EQ(localFilesOfUriList(uriListOfFiles(paths)), paths);
}

TEST(MimeTypes, AreSortedIntoPresentedFormats) {
  const std::pair<const char*, Presented> cases[] = {
      {"text/plain", Presented::Text},          {"text/plain;charset=utf-8", Presented::Text},
      {"UTF8_STRING", Presented::Text},         {"text/html", Presented::Html},
      {"image/png", Presented::Image},          {"image/jpeg", Presented::Image},
      {"text/uri-list", Presented::FileList},   {"text/rtf", Presented::RichText},
      {"TARGETS", Presented::Hidden},           {"SAVE_TARGETS", Presented::Hidden},
      {"OwnerLink", Presented::Named},          {"Kingsoft WPS 9.0 Format", Presented::Named},
      {"text/x-moz-url-priv", Presented::Named}};
  for (const auto& [type, presented] : cases) EXPECT_EQ(classify(type), presented) << type;
}

}  // namespace
}  // namespace velmora::clipboardmime
