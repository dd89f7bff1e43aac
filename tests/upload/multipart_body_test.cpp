#include <QBuffer>
#include <QFile>
#include <QRegularExpression>
#include <gtest/gtest.h>

#include "tests/common/TestSupport.h"
#include "upload/clsXmlHttpPost.h"

namespace velmora {
namespace {

QByteArray boundaryOf(const clsXmlHttpPost& post) {
  return post.ContentType().section(QStringLiteral("boundary="), 1).toLatin1();
}

// `text` with "{B}" standing for the instance's boundary.
QByteArray expected(const clsXmlHttpPost& post, QByteArray text) { return text.replace("{B}", boundaryOf(post)); }

TEST(MultipartBody, UploadOfOneFileIsByteForByteTheFormTheServerExpects) {
  clsXmlHttpPost post;
  post.setCharset("utf-8");
  (void)post.AddForm("originalfile", "C:/pics/a b.png");
  (void)post.AddFile("uploadfile", "C:/pics/a b.png", QByteArray("\x89PNG\r\n\x00\xff", 8));
  EXPECT_TRUE(post.Data().isEmpty()) << "nothing before AddEnd";
  (void)post.AddEnd();

  EXPECT_EQ(post.ContentType(), "multipart/form-data; boundary=" + boundaryOf(post));
  static const char golden[] =
      "\r\n"
      "--{B}\r\n"
      "Content-Disposition: form-data; name=\"originalfile\"\r\n"
      "\r\n"
      "C:/pics/a b.png\r\n"
      "--{B}\r\n"
      "Content-Disposition: form-data; name=\"uploadfile\"; filename=\"C:/pics/a b.png\"\r\n"
      "Content-Type: application/octet-stream\r\n"
      "\r\n"
      "\x89PNG\r\n\x00\xff"
      "\r\n"
      "--{B}--\r\n";
  EXPECT_EQ(post.Data(), expected(post, QByteArray(golden, sizeof golden - 1)));
}

TEST(MultipartBody, BoundaryHasItsShapeAndDiffersBetweenInstances) {
  const QRegularExpression shape(QStringLiteral("^-{27}7d51[0-9]{5,6}[0-9]{5,6}$"));
  const QString first = QString::fromLatin1(boundaryOf(clsXmlHttpPost()));
  EXPECT_TRUE(shape.match(first).hasMatch()) << first.toStdString();
  bool differs = false;
  for (int i = 0; i < 5 && !differs; ++i) differs = QString::fromLatin1(boundaryOf(clsXmlHttpPost())) != first;
  EXPECT_TRUE(differs);
  for (int i = 0; i < 200; ++i) {
    const QString boundary = clsXmlHttpPost::GenerateBoundary();
    ASSERT_TRUE(shape.match(boundary).hasMatch()) << boundary.toStdString();
    ASSERT_GE(boundary.size(), 41);
  }
}

TEST(MultipartBody, TextIsWrittenInTheCharsetWithoutAByteOrderMark) {
  struct Case {
    const char* charset;
    QByteArray value;  // how "é图" is written
  } cases[] = {
      {"utf-8", "\xC3\xA9\xE5\x9B\xBE"},
      {"UTF-8", "\xC3\xA9\xE5\x9B\xBE"},
      {"gb2312", "\xA8\xA6\xCD\xBC"},
      {"Unicode", QByteArray("\xE9\x00\xFE\x56", 4)},
  };
  for (const Case& c : cases) {
    clsXmlHttpPost post;
    post.setCharset(c.charset);
    (void)post.AddForm("f", QString::fromUtf8("\xC3\xA9\xE5\x9B\xBE"));
    (void)post.AddEnd();
    const QByteArray& body = post.Data();
    EXPECT_FALSE(body.startsWith("\xEF\xBB\xBF") || body.startsWith("\xFF\xFE")) << c.charset;
    const bool utf16 = QByteArray(c.charset).toUpper() == "UNICODE";
    const QByteArray head = utf16 ? QByteArray("\r\0\n\0", 4) : QByteArray("\r\n");
    EXPECT_TRUE(body.startsWith(head)) << c.charset;
    EXPECT_TRUE(body.contains(c.value)) << c.charset << " " << body.toHex().toStdString();
  }
}

TEST(MultipartBody, NamesAreWrittenAsTheyAreQuotesAndAll) {
  clsXmlHttpPost post;
  (void)post.AddFile("up\"load", "C:/a \"b\".png", QByteArray());
  (void)post.AddEnd();
  EXPECT_TRUE(post.Data().contains("name=\"up\"load\"; filename=\"C:/a \"b\".png\"\r\n"));
  EXPECT_TRUE(post.Data().contains("application/octet-stream\r\n\r\n\r\n--")) << "empty content, then the delimiter";
}

TEST(MultipartBody, AnUnknownCharsetIsAnErrorNotAFallback) {
  clsXmlHttpPost post;
  post.setCharset("x-no-such-charset");
  const Outcome added = post.AddForm("originalfile", "a.png");
  ASSERT_FALSE(added);
  EXPECT_EQ(added.failure().word, clsXmlHttpPost::kSendWord);
  EXPECT_TRUE(added.failure().description.contains("x-no-such-charset")) << added.failure().description.toStdString();
}

TEST(MultipartBody, FileContentComesFromDevicesAndPathsUnchanged) {
  test::ScopedTempRoot temp;
  QByteArray bytes(300 * 1024, '\0');
  for (qsizetype i = 0; i < bytes.size(); ++i) bytes[i] = char(i * 7);
  const QString path = temp.write("p.png", bytes);

  clsXmlHttpPost fromPath;
  (void)fromPath.AddFile("uploadfile", "p.png", path);
  (void)fromPath.AddEnd();
  clsXmlHttpPost fromArray;
  (void)fromArray.AddFile("uploadfile", "p.png", bytes);
  (void)fromArray.AddEnd();
  EXPECT_EQ(fromPath.Data().size(), fromArray.Data().size());
  EXPECT_TRUE(fromPath.Data().contains(bytes));

  // A device of unknown size is read in pieces.
  struct Pipe : QIODevice {
    QByteArray data;
    qint64 at = 0;
    bool isSequential() const override { return true; }
    qint64 readData(char* out, qint64 max) override {
      const qint64 n = std::min(max, qint64(data.size()) - at);
      memcpy(out, data.constData() + at, size_t(n));
      at += n;
      return n;
    }
    qint64 writeData(const char*, qint64) override { return -1; }
  } sequential;
  sequential.data = bytes;
  sequential.open(QIODevice::ReadOnly);
  clsXmlHttpPost fromDevice;
  (void)fromDevice.AddFile("uploadfile", "p.png", sequential);
  (void)fromDevice.AddEnd();
  EXPECT_TRUE(fromDevice.Data().contains(bytes));
}

TEST(MultipartBody, ContentThatCannotBeReadIsAContentFailure) {
  clsXmlHttpPost post;
  QFile notOpen(QStringLiteral("/nonexistent/a.png"));
  const Outcome fromPath = post.AddFile("uploadfile", "a.png", QStringLiteral("/nonexistent/a.png"));
  const Outcome fromDevice = post.AddFile("uploadfile", "a.png", notOpen);  // a device never opened
  for (const Outcome& added : {fromPath, fromDevice}) {
    ASSERT_FALSE(added);
    EXPECT_EQ(added.failure().word, clsXmlHttpPost::kReadWord);
    EXPECT_FALSE(added.failure().description.isEmpty());
  }
}

}  // namespace
}  // namespace velmora
