#include <QRegularExpression>
#include <gtest/gtest.h>

#include "platform/ClipboardMime.h"

namespace velmora::clipboardmime {
namespace {

struct ParsedBlock {
  QMap<QString, QString> headers;
  QByteArray bytes;
  QByteArray html() const { return slice("StartHTML", "EndHTML"); }
  QByteArray fragment() const { return slice("StartFragment", "EndFragment"); }
  QByteArray slice(const QString& from, const QString& to) const {
    const qsizetype start = headers.value(from).toLongLong();
    return bytes.mid(start, headers.value(to).toLongLong() - start);
  }
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

TEST(HtmlFormatBlock, AFragmentIsFramedWithByteOffsetsThatHoldForNonAsciiText) {
  const QString fragment = QString::fromUtf8("<p>Grüße, 中文 <b>粗体</b> 😀</p>");
  const QByteArray block = htmlFormatBlock(fragment, "https://example.com/页面?q=1");
  const ParsedBlock parsed = parse(block);

  EXPECT_TRUE(block.startsWith("Version:0.9\r\nStartHTML:"));
  EXPECT_EQ(parsed.headers.keys(),
            QStringList({"EndFragment", "EndHTML", "SourceURL", "StartFragment", "StartHTML", "Version"}));
  for (const char* name : {"StartHTML", "EndHTML", "StartFragment", "EndFragment"})
    EXPECT_TRUE(QRegularExpression("^\\d{10}$").match(parsed.headers.value(name)).hasMatch()) << name;
  EXPECT_EQ(parsed.headers.value("SourceURL"), "https://example.com/%E9%A1%B5%E9%9D%A2?q=1");
  EXPECT_EQ(parsed.fragment(), fragment.toUtf8());
  EXPECT_EQ(parsed.html(), "<html><body><!--StartFragment-->" + fragment.toUtf8() + "<!--EndFragment--></body></html>");
  EXPECT_EQ(parsed.headers.value("EndHTML").toLongLong(), block.size());
  // The header is ASCII, so StartHTML is also where the HTML starts in the decoded text.
  EXPECT_EQ(QString::fromUtf8(block).mid(parsed.headers.value("StartHTML").toInt()).left(6), "<html>");
}

TEST(HtmlFormatBlock, WithoutASourceTheHeaderHasNoSourceUrlLine) {
  const QByteArray block = htmlFormatBlock("x", QString());
  EXPECT_FALSE(block.contains("SourceURL"));
  EXPECT_EQ(parse(block).fragment(), "x");
}

TEST(HtmlFormatBlock, TheCharsetDeclarationBrowsersPrependIsDropped) {
  EXPECT_EQ(parse(htmlFormatBlock("<meta charset='utf-8'><b>x</b>", {})).fragment(), "<b>x</b>");
  EXPECT_EQ(parse(htmlFormatBlock("<meta http-equiv=\"content-type\" content=\"text/html; charset=utf-8\"><i>y</i>", {}))
                .fragment(),
            "<i>y</i>");
  EXPECT_EQ(parse(htmlFormatBlock("<meta name=\"x\"><i>y</i>", {})).fragment(), "<meta name=\"x\"><i>y</i>");
}

TEST(HtmlFormatBlock, AWholeDocumentKeepsItsHeadAndMarksItsBody) {
  const QString document = QString::fromUtf8(
      "<html><head><style>p{color:red}</style></head><BODY lang=ZH-CN>\r\n<p>正文</p>\r\n</body></html>");
  const ParsedBlock parsed = parse(htmlFormatBlock(document, {}));
  EXPECT_EQ(parsed.fragment(), QString::fromUtf8("\r\n<p>正文</p>\r\n").toUtf8());
  EXPECT_EQ(parsed.html(),
            QString::fromUtf8("<html><head><style>p{color:red}</style></head><BODY lang=ZH-CN><!--StartFragment-->"
                              "\r\n<p>正文</p>\r\n<!--EndFragment--></body></html>")
                .toUtf8());
  // A body that is never closed runs to the end.
  EXPECT_EQ(parse(htmlFormatBlock("<body><p>a</p>", {})).fragment(), "<p>a</p>");
}

TEST(HtmlFormatBlock, HtmlThatCarriesMarkersKeepsThem) {
  const QString html = "<html><body><div><!--StartFragment--><p>a</p><!--EndFragment--></div></body></html>";
  const ParsedBlock parsed = parse(htmlFormatBlock(html, {}));
  EXPECT_EQ(parsed.html(), html.toUtf8());
  EXPECT_EQ(parsed.fragment(), "<p>a</p>");
}

TEST(HtmlFormatBlock, TheHtmlOfABlockComesBack) {
  const QString html = QString::fromUtf8("<p>中</p>");
  const QByteArray block = htmlFormatBlock(html, "http://a/");
  EXPECT_EQ(htmlOfHtmlFormatBlock(block), parse(block).html());
  EXPECT_EQ(htmlOfHtmlFormatBlock("<p>no header</p>"), "<p>no header</p>");
  EXPECT_EQ(htmlOfHtmlFormatBlock("Version:0.9\r\nStartHTML:0000000035\r\n<p>a</p>"), "<p>a</p>");
  // Offsets that lie: the HTML is what follows the header lines.
  EXPECT_EQ(htmlOfHtmlFormatBlock("StartHTML:0000009999\r\n<p>a</p>"), "<p>a</p>");
  EXPECT_EQ(htmlOfHtmlFormatBlock("Version:0.9\r\nStartHTML:0000009999\r\nEndHTML:0000000001\r\n"
                                  "SourceURL:http://a/b\r\n<p>a</p>"),
            "<p>a</p>");
  EXPECT_EQ(htmlOfHtmlFormatBlock("Note:x\r\n<p>a</p>"), "Note:x\r\n<p>a</p>") << "no header without StartHTML";
}

TEST(OfferedHtml, DecodedAsUtf8UnlessItStartsWithAUtf16Mark) {
  const QString text = QString::fromUtf8("<p>中文 é</p>");
  QByteArray le("\xFF\xFE");
  QByteArray be("\xFE\xFF");
  for (const QChar c : text) {
    le += char(c.unicode() & 0xFF);
    le += char(c.unicode() >> 8);
    be += char(c.unicode() >> 8);
    be += char(c.unicode() & 0xFF);
  }
  EXPECT_EQ(decodeHtml(le + QByteArray(2, '\0')), text);
  EXPECT_EQ(decodeHtml(be), text);
  EXPECT_EQ(decodeHtml("\xEF\xBB\xBF" + text.toUtf8()), text);
  EXPECT_EQ(decodeHtml(text.toUtf8()), text);
}

TEST(OfferedHtml, SourceUrlIsTheFirstLineInEitherEncoding) {
  EXPECT_EQ(decodeSourceUrl("https://example.com/a\n"), "https://example.com/a");
  const QString moz = "https://example.com/b\nTitle";
  const QByteArray mozBytes(reinterpret_cast<const char*>(moz.utf16()), moz.size() * 2);
  EXPECT_EQ(decodeSourceUrl(mozBytes), "https://example.com/b");
  EXPECT_EQ(decodeSourceUrl(QByteArray()), "");
}

TEST(UriList, OnlyLocalFilesBecomePathsPercentDecoded) {
  const QByteArray list =
      "# copied from the file manager\r\n"
      "file:///home/u/%E4%B8%AD%E6%96%87%20%231.txt\r\n"
      "http://example.com/page.html\r\n"
      "file://localhost/tmp/a%2Bb.png\r\n"
      "file://otherhost/share/x.txt\r\n"
      "\r\n"
      "not a uri at all\r\n"
      "file:///tmp/last";
  EXPECT_EQ(localFilesOfUriList(list),
            QStringList({QString::fromUtf8("/home/u/中文 #1.txt"), "/tmp/a+b.png", "/tmp/last"}));
  EXPECT_TRUE(localFilesOfUriList("https://example.com/\n").isEmpty());
  EXPECT_TRUE(localFilesOfUriList("").isEmpty());
}

TEST(UriList, FilesAreWrittenAsEncodedFileUris) {
  const QStringList paths = {QString::fromUtf8("/home/u/中 文.txt"), "/tmp/100%.png"};
  const QByteArray list = uriListOfFiles(paths);
  EXPECT_EQ(list, "file:///home/u/%E4%B8%AD%20%E6%96%87.txt\r\nfile:///tmp/100%25.png\r\n");
  EXPECT_EQ(localFilesOfUriList(list), paths);
}

TEST(MimeTypes, AreSortedIntoPresentedFormats) {
  EXPECT_EQ(classify("text/plain"), Presented::Text);
  EXPECT_EQ(classify("text/plain;charset=utf-8"), Presented::Text);
  EXPECT_EQ(classify("UTF8_STRING"), Presented::Text);
  EXPECT_EQ(classify("text/html"), Presented::Html);
  EXPECT_EQ(classify("image/png"), Presented::Image);
  EXPECT_EQ(classify("image/jpeg"), Presented::Image);
  EXPECT_EQ(classify("text/uri-list"), Presented::FileList);
  EXPECT_EQ(classify("text/rtf"), Presented::RichText);
  EXPECT_EQ(classify("TARGETS"), Presented::Hidden);
  EXPECT_EQ(classify("SAVE_TARGETS"), Presented::Hidden);
  EXPECT_EQ(classify("OwnerLink"), Presented::Named);
  EXPECT_EQ(classify("Kingsoft WPS 9.0 Format"), Presented::Named);
  EXPECT_EQ(classify("text/x-moz-url-priv"), Presented::Named);
}

}  // namespace
}  // namespace velmora::clipboardmime
