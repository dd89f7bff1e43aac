#include <gtest/gtest.h>
#include <QFile>
#include <QImage>
#include <QImageReader>
#include <algorithm>
#include <cmath>
#include <tuple>

#include "clipboard/clsSaveBitmapAs.h"
#include "tests/common/Helpers.h"
#include "tests/common/TestSupport.h"

namespace velmora {
namespace {

QImage sample() {
  QImage image(64, 48, QImage::Format_RGB32);
  for (int y = 0; y < image.height(); ++y)
    for (int x = 0; x < image.width(); ++x) image.setPixel(x, y, qRgb(x * 4, y * 5, (x ^ y) * 3));
  return image;
}

class SaveBitmap : public ::testing::Test {
 protected:
  test::ScopedTempRoot temp;
  clsSaveBitmapAs saver;
  QString path(const QString& name) { return temp.path() + "/" + name; }
};

TEST_F(SaveBitmap, TheExtensionChoosesTheFormatOthersSaveNothing) {
  const std::pair<const char*, const char*> cases[] = {
      {"a.png", "png"}, {"b.JPG", "jpeg"}, {"c.gif", "gif"}, {"d.bmp", "bmp"}, {"e.tif", "tiff"}};
  for (const auto& [name, format] : cases) {
    ASSERT_TRUE(saver.SavePictureFromHDC(sample(), path(name))) << name << saver.lastError();
    QImageReader reader(path(name));
    EXPECT_EQ(reader.format(), format) << name;
    EXPECT_EQ(reader.size(), QSize(64, 48));
  }
  EXPECT_EQ(QImage(path("a.png")).convertToFormat(QImage::Format_RGB32), sample()) << "PNG keeps every pixel";

  for (const char* name : {"a.jpeg", "a.tiff", "noext", "a.webp"}) {
    EXPECT_FALSE(saver.SavePictureFromHDC(sample(), path(name))) << name;
    EXPECT_FALSE(QFile::exists(path(name)));
    EXPECT_FALSE(saver.lastError().isEmpty());
  }
  EXPECT_FALSE(saver.SavePictureFromHDC(QImage(), path("empty.png")));
  EXPECT_FALSE(saver.SavePictureFromHDC(sample(), path("no/such/folder/a.gif")));
}

// Peak signal-to-noise ratio of `b` against `a`, in dB.
double psnr(const QImage& a, const QImage& b) {
  double squares = 0;
  for (int y = 0; y < a.height(); ++y)
    for (int x = 0; x < a.width(); ++x) {
      const QRgb p = a.pixel(x, y), q = b.pixel(x, y);
      for (const int d : {qRed(p) - qRed(q), qGreen(p) - qGreen(q), qBlue(p) - qBlue(q)}) squares += d * d;
    }
  return 10 * std::log10(255.0 * 255.0 * 3 * a.width() * a.height() / std::max(squares, 1e-9));
}

TEST_F(SaveBitmap, GifPaletteFollowsThePicture) {
  // 256 colours or fewer survive exactly; a picture of thousands stays close to itself.
  QImage few(300, 10, QImage::Format_RGB32);
  for (int x = 0; x < 300; ++x)
    for (int y = 0; y < 10; ++y) few.setPixel(x, y, qRgb(x % 256, (x * 7) % 256, 255 - x % 256));
  const QImage exact = few.copy(0, 0, 256, 10);
  ASSERT_TRUE(saver.SavePictureFromHDC(exact, path("exact.gif")));
  EXPECT_EQ(QImage(path("exact.gif")).convertToFormat(QImage::Format_RGB32), exact);

  // (The palette of giflib's own quantizer gave 35.7 and 27.8 dB.)
  for (const auto& [picture, leastDb] : {std::pair{few, 38.0}, std::pair{sample(), 34.0}}) {
    ASSERT_TRUE(saver.SavePictureFromHDC(picture, path("many.gif")));
    const QImage back = QImage(path("many.gif")).convertToFormat(QImage::Format_RGB32);
    EXPECT_GT(psnr(picture, back), leastDb) << picture.width();
  }
}

TEST_F(SaveBitmap, ResizeKeepsTheSourcesFormatAndAspect) {
  // The source's content alone says its format; neither its name nor the target's does.
  struct Case {
    const char* saveAs;
    QSize size;
    int width, height;
    QSize expected;
    const char* format;
  } cases[] = {
      {"jpg", {1000, 750}, -1, 300, {400, 300}, "jpeg"},
      {"png", {1600, 1200}, 1000, -1, {1000, 750}, "png"},
      {"gif", {10, 4}, -1, 1, {2, 1}, "gif"},  // 2.5 rounds down to the even 2
      {"tif", {4, 10}, 3, -1, {3, 8}, "bmp"},  // 7.5 rounds up to the even 8
      {"bmp", {20, 64}, 20, 30, {20, 30}, "bmp"},
  };
  const QString source = path("source.picture");
  for (const auto& c : cases) {
    QImage picture(c.size, QImage::Format_ARGB32);
    picture.fill(qRgba(200, 40, 90, 128));
    ASSERT_TRUE(saver.SavePictureFromHDC(picture, path("source.") + c.saveAs));
    QFile::remove(source);
    QFile::rename(path("source.") + c.saveAs, source);

    ASSERT_TRUE(ResizeImageFile(source, path("resized.png"), c.width, c.height)) << c.saveAs;
    QImageReader reader(path("resized.png"));
    EXPECT_EQ(reader.format(), QByteArray(c.format)) << c.saveAs;
    const QImage resized = reader.read();
    EXPECT_EQ(resized.size(), c.expected) << c.saveAs;
    EXPECT_EQ(resized.hasAlphaChannel(), c.format == QByteArray("png")) << c.saveAs;
  }

  // Each fails and writes nothing: no size, a size below 1 given or worked out (0.3 from the
  // last source's 20 x 64), content no reader knows, a missing file.
  const QString junk = temp.write("junk.png", "not a picture"), missing = path("missing.png");
  const std::tuple<QString, int, int> failures[] = {{source, -1, -1}, {source, 0, 5}, {source, 9, -2},
                                                    {source, -1, 1},  {junk, 9, 9},   {missing, 9, 9}};
  for (const auto& [from, width, height] : failures) {
    EXPECT_FALSE(ResizeImageFile(from, path("failed.png"), width, height)) << from << width << height;
    EXPECT_FALSE(QFile::exists(path("failed.png")));
  }
}

}  // namespace
}  // namespace velmora
