#include <gtest/gtest.h>
#include <QRegularExpression>
#include <QSet>

#include "upload/clsXmlHttpPost.h"

namespace velmora {
namespace {

QByteArray boundaryOf(const clsXmlHttpPost& post) {
  return post.ContentType().section(QStringLiteral("boundary="), 1).toLatin1();
}

// Names are written as they are, quotes and all.
TEST(MultipartBody, UploadOfOneFileIsByteForByteTheFormTheServerExpects) {
  clsXmlHttpPost post;
  post.setCharset("utf-8");
  (void)post.AddForm("originalfile", "C:/pics/a \"b\".png");
  (void)post.AddFile("uploadfile", "C:/pics/a \"b\".png", QByteArray("\x89PNG\r\n\x00\xff", 8));
  EXPECT_TRUE(post.Data().isEmpty()) << "nothing before AddEnd";
  (void)post.AddEnd();

  EXPECT_EQ(post.ContentType(), "multipart/form-data; boundary=" + boundaryOf(post));
  static const char golden[] =
      "\r\n"
      "--{B}\r\n"
      "Content-Disposition: form-data; name=\"originalfile\"\r\n"
      "\r\n"
      "C:/pics/a \"b\".png\r\n"
      "--{B}\r\n"
      "Content-Disposition: form-data; name=\"uploadfile\"; filename=\"C:/pics/a \"b\".png\"\r\n"
      "Content-Type: application/octet-stream\r\n"
      "\r\n"
      "\x89PNG\r\n\x00\xff"
      "\r\n"
      "--{B}--\r\n";
  EXPECT_EQ(post.Data(), QByteArray(golden, sizeof golden - 1).replace("{B}", boundaryOf(post)));  // {B}: the boundary
}

TEST(MultipartBody, BoundaryHasItsShapeAndDiffersBetweenInstances) {
  const QRegularExpression shape(QStringLiteral("^-{27}7d51[0-9]{5,6}[0-9]{5,6}$"));
  QSet<QString> boundaries;
  for (int i = 0; i < 100; ++i)
    boundaries << QString::fromLatin1(boundaryOf(clsXmlHttpPost())) << clsXmlHttpPost::GenerateBoundary();
  for (const QString& boundary : boundaries) EXPECT_TRUE(shape.match(boundary).hasMatch()) << boundary.toStdString();
  EXPECT_GT(boundaries.size(), 1);
}

TEST(MultipartBody, TextIsWrittenInTheCharsetWithoutAByteOrderMark) {
  const std::pair<const char*, QByteArray> cases[] = {// how "é图" is written
                                                      {"utf-8", "\xC3\xA9\xE5\x9B\xBE"},
                                                      {"UTF-8", "\xC3\xA9\xE5\x9B\xBE"},
                                                      {"gb2312", "\xA8\xA6\xCD\xBC"},
                                                      {"Unicode", QByteArray("\xE9\x00\xFE\x56", 4)}};
  for (const auto& [charset, value] : cases) {
    clsXmlHttpPost post;
    post.setCharset(charset);
    (void)post.AddForm("f", QString::fromUtf8("\xC3\xA9\xE5\x9B\xBE"));
    (void)post.AddEnd();
    const QByteArray& body = post.Data();
    const QByteArray head = QByteArray(charset) == "Unicode" ? QByteArray("\r\0\n\0", 4) : QByteArray("\r\n");
    EXPECT_TRUE(body.startsWith(head)) << charset << ": no byte-order mark";
    EXPECT_TRUE(body.contains(value)) << charset << " " << body.toHex().toStdString();
  }
}

}  // namespace
}  // namespace velmora
