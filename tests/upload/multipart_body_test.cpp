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
  post.AddForm("originalfile", "C:/pics/a b.png");
  post.AddFile("uploadfile", "C:/pics/a b.png", QByteArray("\x89PNG\r\n\x00\xff", 8));
  EXPECT_TRUE(post.Data().isEmpty()) << "nothing before AddEnd";
  post.AddEnd();

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
    post.AddForm("f", QString::fromUtf8("\xC3\xA9\xE5\x9B\xBE"));
    post.AddEnd();
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
  post.AddFile("up\"load", "C:/a \"b\".png", QByteArray());
  post.AddEnd();
  EXPECT_TRUE(post.Data().contains("name=\"up\"load\"; filename=\"C:/a \"b\".png\"\r\n"));
  EXPECT_TRUE(post.Data().contains("application/octet-stream\r\n\r\n\r\n--")) << "empty content, then the delimiter";
}

TEST(MultipartBody, AnUnknownCharsetIsAnErrorNotAFallback) {
  clsXmlHttpPost post;
  post.setCharset("x-no-such-charset");
  try {
    post.AddForm("originalfile", "a.png");
    FAIL() << "expected a failure";
  } catch (const clsXmlHttpPost::Failure& failure) {
    EXPECT_EQ(failure.kind, clsXmlHttpPost::Failure::Kind::Text);
    EXPECT_TRUE(failure.description.contains("x-no-such-charset")) << failure.description.toStdString();
  }
}

TEST(MultipartBody, FileContentComesFromDevicesAndPathsUnchanged) {
  test::ScopedTempRoot temp;
  QByteArray bytes(300 * 1024, '\0');
  for (qsizetype i = 0; i < bytes.size(); ++i) bytes[i] = char(i * 7);
  const QString path = temp.write("p.png", bytes);

  clsXmlHttpPost fromPath;
  fromPath.AddFile("uploadfile", "p.png", path);
  fromPath.AddEnd();
  clsXmlHttpPost fromArray;
  fromArray.AddFile("uploadfile", "p.png", bytes);
  fromArray.AddEnd();
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
  fromDevice.AddFile("uploadfile", "p.png", sequential);
  fromDevice.AddEnd();
  EXPECT_TRUE(fromDevice.Data().contains(bytes));
}

TEST(MultipartBody, ContentThatCannotBeReadIsAContentFailure) {
  clsXmlHttpPost post;
  QFile notOpen(QStringLiteral("/nonexistent/a.png"));
  EXPECT_THROW(post.AddFile("uploadfile", "a.png", QStringLiteral("/nonexistent/a.png")), clsXmlHttpPost::Failure);
  try {
    post.AddFile("uploadfile", "a.png", notOpen);  // a device that was never opened
    FAIL() << "expected a failure";
  } catch (const clsXmlHttpPost::Failure& failure) {
    EXPECT_EQ(failure.kind, clsXmlHttpPost::Failure::Kind::Content);
    EXPECT_FALSE(failure.description.isEmpty());
  }
}

}  // namespace
}  // namespace velmora
