// The control's paste flows end to end: another program (xclip) owns the desktop clipboard
// on a real X server, the control reads it, and the pictures go to the reference receiver.
#include <gtest/gtest.h>
#include <QBuffer>
#include <QClipboard>
#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QProcess>
#include <QUrl>

#include <zlib.h>
#include <functional>

#include "clipboard/basClipBoard.h"
#include "control/Velmora5.h"
#include "host/StandardProducers.h"
#include "tests/common/TestSupport.h"
#include "tests/upload/ReceiverProcess.h"

namespace velmora {
namespace {

using test::ReceiverProcess;
using test::waitUntil;

QByteArray encoded(const QImage& image, const char* format = "PNG") {
  QByteArray bytes;
  QBuffer buffer(&bytes);
  buffer.open(QIODevice::WriteOnly);
  image.save(&buffer, format);
  return bytes;
}

// A picture no encoder can shrink by accident: a gradient under seeded noise.
QImage screenshotLike(int width, int height) {
  QImage picture(width, height, QImage::Format_RGB32);
  uint32_t seed = 777;
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      seed = seed * 1664525u + 1013904223u;
      picture.setPixel(x, y, qRgb(x * 255 / width, y * 255 / height, int(seed >> 24)));
    }
  return picture;
}

QByteArray bigEndian32(uint32_t value) {
  const char bytes[] = {char(value >> 24), char(value >> 16), char(value >> 8), char(value)};
  return QByteArray(bytes, 4);
}

QByteArray pngChunk(const QByteArray& type, const QByteArray& data) {
  return bigEndian32(uint32_t(data.size())) + type + data +
         bigEndian32(uint32_t(
             crc32(0, reinterpret_cast<const Bytef*>((type + data).constData()), uInt(type.size() + data.size()))));
}

// A black-and-white PNG of any size, built by hand: a few kilobytes on the clipboard that
// stand for gigabytes once drawn in colour.
QByteArray blankMonochromePng(uint32_t width, uint32_t height) {
  const qsizetype rowBytes = 1 + (width + 7) / 8;  // the filter byte, then one bit a pixel
  const QByteArray rows(rowBytes * height, '\0');
  const QByteArray header = bigEndian32(width) + bigEndian32(height) + QByteArray("\x01\x00\x00\x00\x00", 5);
  return QByteArray("\x89PNG\r\n\x1A\n", 8) + pngChunk("IHDR", header) +
         pngChunk("IDAT", qCompress(rows, 9).mid(4)) +  // qCompress puts the length in front of the zlib stream
         pngChunk("IEND", {});
}

class PasteFlows : public ::testing::Test {
 protected:
  void SetUp() override {
    if (qEnvironmentVariableIsEmpty("DISPLAY") || QGuiApplication::platformName() != u"xcb")
      GTEST_SKIP() << "needs an X server: run under xvfb-run";
    changes_ = QObject::connect(QGuiApplication::clipboard(), &QClipboard::dataChanged, [this] { ++changeCount_; });
    control = std::make_unique<Velmora5>(context, standardProducers());
    control->setSendUrl(receiver.url("/upload?page=paste"));
    control->setLocalExt("png|jpg|gif");
    control->setLocalSize("4096");
  }

  void TearDown() override {
    if (owner_.state() != QProcess::NotRunning) {
      owner_.kill();
      owner_.waitForFinished();
    }
    QObject::disconnect(changes_);
  }

  // xclip takes the clipboard with one target; returns once this process has seen it change hands.
  void offer(const QString& mimeType, const QByteArray& bytes) {
    const QString file = temp.write("offered-" + QString::number(++files_), bytes);
    const int changesBefore = changeCount_;
    owner_.start("xclip", {"-quiet", "-selection", "clipboard", "-t", mimeType, "-i", file});
    ASSERT_TRUE(owner_.waitForStarted()) << "xclip is missing";
    ASSERT_TRUE(waitUntil([&] { return changeCount_ > changesBefore; }))
        << "the clipboard did not change hands; " << owner_.readAllStandardError().toStdString();
  }

  // Runs a flow until the control reports its end.
  void finish(const std::function<void()>& flow) {
    flow();
    ASSERT_TRUE(waitUntil([&] { return control->Status() == "ok"; }, 30000)) << "the flow did not end";
  }

  QString stored(qsizetype post) const {
    return QString::fromLatin1(ReceiverProcess::field(receiver.posts().value(post), "stored"));
  }
  QString addressOf(qsizetype post) const { return receiver.url("/files/" + stored(post)); }
  QByteArray storedBytes(qsizetype post) const {
    QFile file(receiver.root() + "/" + stored(post));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
  }
  static QString picturePasted(const QString& src) { return "<img src=\"" + src + "\" border=0><br>"; }

  test::ScopedTempRoot temp;
  Context context;
  ReceiverProcess receiver;
  std::unique_ptr<Velmora5> control;

 private:
  QProcess owner_;
  QMetaObject::Connection changes_;
  int changeCount_ = 0;
  int files_ = 0;
};

TEST_F(PasteFlows, TheFlagNamesWhatTheClipboardOffers) {
  EXPECT_EQ(control->GetClipboardFlag(), "0|0|0|0|0|0") << "a fresh X server has an empty clipboard";
  offer("image/png", encoded(screenshotLike(4, 4)));
  EXPECT_EQ(control->GetClipboardFlag(), "1|0|0|0|0|0");
}

TEST_F(PasteFlows, APastedPngArrivesAtTheServerPixelForPixel) {
  const QImage original = screenshotLike(320, 200);
  offer("image/png", encoded(original));

  finish([&] { control->PasteImage("imgtype:png"); });
  EXPECT_EQ(control->Error(), "");
  ASSERT_EQ(receiver.posts().size(), 1);
  EXPECT_EQ(control->Body(), picturePasted(addressOf(0)));
  EXPECT_EQ(control->SavedFiles(), addressOf(0));
  EXPECT_TRUE(control->OriginalFiles().endsWith(".png")) << control->OriginalFiles().toStdString();

  const QImage arrived = QImage::fromData(storedBytes(0), "PNG");
  ASSERT_FALSE(arrived.isNull());
  EXPECT_EQ(arrived.convertToFormat(QImage::Format_RGB32), original);
}

TEST_F(PasteFlows, APastedPictureWithoutImgtypeIsSentAsJpeg) {
  offer("image/png", encoded(screenshotLike(64, 48)));
  finish([&] { control->PasteImage(""); });
  ASSERT_EQ(receiver.posts().size(), 1);
  EXPECT_TRUE(control->OriginalFiles().endsWith(".jpg"));
  EXPECT_TRUE(storedBytes(0).startsWith("\xFF\xD8\xFF"));
}

TEST_F(PasteFlows, PastedHtmlHasItsLocalPictureUploadedAndItsReferenceRewritten) {
  const QByteArray pictureBytes = encoded(screenshotLike(20, 10));
  const QString picture = temp.write("copied page/photo.png", pictureBytes);
  const QString address = "file://" + QString(picture).replace(" ", "%20");
  offer("text/html", ("<meta charset='utf-8'><p>Seen <b>here</b>: <img src=\"" + address + "\"></p>").toUtf8());

  // The simple clean-up keeps pictures only when asked to.
  finish([&] { control->PasteWord("mode:html;opt2image:1"); });
  EXPECT_EQ(control->Error(), "");
  ASSERT_EQ(receiver.posts().size(), 1) << control->Body().toStdString();
  EXPECT_EQ(storedBytes(0), pictureBytes);
  EXPECT_EQ(control->OriginalFiles(), "photo.png");
  EXPECT_TRUE(control->Body().contains("src=\"" + addressOf(0) + "\"")) << control->Body().toStdString();
  EXPECT_FALSE(control->Body().contains("file:")) << control->Body().toStdString();
  EXPECT_TRUE(control->Body().contains("here")) << control->Body().toStdString();
}

TEST_F(PasteFlows, PastedFilesAreFilteredByTypeSizeAndKind) {
  control->setLocalExt("png|jpg");
  control->setLocalSize("2");
  const QString kept = temp.write("files/a kept.png", test::asPicture("a.png", QByteArray(2048, 'k')));
  const QString excluded = temp.write("files/b.exe", "MZ");
  const QString oversize = temp.write("files/c big.png", QByteArray(2049, 'b'));
  const QString folder = temp.path() + "/files/d folder.png";
  ASSERT_TRUE(QDir().mkpath(folder));
  QByteArray uriList;
  for (const QString& path : {oversize, folder, excluded, kept})
    uriList += QUrl::fromLocalFile(path).toEncoded() + "\r\n";
  offer("text/uri-list", uriList);
  EXPECT_EQ(control->GetClipboardFlag(), "0|0|0|1|0|0");

  finish([&] { control->PasteFileList(""); });
  EXPECT_EQ(control->Error(), "");
  ASSERT_EQ(receiver.posts().size(), 1);
  EXPECT_EQ(storedBytes(0), test::asPicture("a.png", QByteArray(2048, 'k')));
  EXPECT_EQ(control->Body(), picturePasted(addressOf(0)));
  EXPECT_EQ(control->OriginalFiles(), "a kept.png");
}

TEST_F(PasteFlows, PastingFilesWhenTheClipboardHoldsNoneChangesNothingMore) {
  offer("text/plain", "just words");
  control->PasteFileList("");
  EXPECT_EQ(control->Body(), "");
  EXPECT_EQ(control->Status(), "") << "no flow ran";
  EXPECT_TRUE(receiver.posts().isEmpty());
}

// ---- Bad input ------------------------------------------------------------------------

TEST_F(PasteFlows, AGiganticPictureEndsTheFlowWithAClearWord) {
  offer("image/png", blankMonochromePng(20000, 20000));
  for (const char* options : {"imgtype:png", "imgtype:jpg", "imgtype:gif"}) {
    finish([&] { control->PasteImage(options); });
    EXPECT_TRUE(control->Error().startsWith("GDIPlus:")) << control->Error().toStdString();
    EXPECT_TRUE(control->Error().contains("20000")) << control->Error().toStdString();
    EXPECT_EQ(control->Body(), "");
  }
  EXPECT_TRUE(receiver.posts().isEmpty());
  EXPECT_TRUE(QDir(context.g_sTempFolder).isEmpty()) << "no half-written picture is left";
}

TEST_F(PasteFlows, APictureThatIsNoPictureEndsTheFlowWithAClearWord) {
  offer("image/png", QByteArray("\x89PNG\r\n\x1A\n", 8) + "cut short");
  finish([&] { control->PasteImage("imgtype:png"); });
  EXPECT_TRUE(control->Error().startsWith("GDIPlus:the clipboard picture is in a form that cannot be read"))
      << control->Error().toStdString();
  EXPECT_TRUE(receiver.posts().isEmpty());
}

// A program may offer the block itself, under the name "HTML Format", with offsets that
// point anywhere: its page is framed anew.
TEST_F(PasteFlows, AnHtmlFormatWhoseOffsetsLieIsPastedFromItsPage) {
  const QByteArray block = "Version:0.9\r\nStartHTML:0000099999\r\nEndHTML:0000000003\r\nStartFragment:9999999999\r\n"
                           "EndFragment:-000000001\r\nSourceURL:http://example.com/a/page.html\r\n"
                           "<html><body><!--StartFragment--><p>kept <b>words</b></p><!--EndFragment--></body></html>";
  offer("HTML Format", block);
  EXPECT_EQ(control->GetClipboardFlag(), "0|0|0|0|1|0");

  finish([&] { control->PasteWord("mode:html"); });
  EXPECT_EQ(control->Error(), "");
  EXPECT_TRUE(control->Body().contains("kept")) << control->Body().toStdString();
  EXPECT_TRUE(control->Body().contains("words")) << control->Body().toStdString();
  EXPECT_FALSE(control->Body().contains("StartHTML")) << control->Body().toStdString();

  const QString html = GetClipboardHTML();
  const qsizetype start = GetHTMLFormatHeader(html, "StartHTML").toLongLong();
  const qsizetype end = GetHTMLFormatHeader(html, "EndHTML").toLongLong();
  EXPECT_EQ(html.toUtf8().mid(start, end - start),
            "<html><body><!--StartFragment--><p>kept <b>words</b></p><!--EndFragment--></body></html>")
      << "the readers get offsets that hold";

  control->QuickFormat();
  EXPECT_EQ(control->Error(), "");
  EXPECT_EQ(control->Body(), "") << "no page address to place the piece with";
  EXPECT_EQ(control->Style(), "");
}

}  // namespace
}  // namespace velmora
