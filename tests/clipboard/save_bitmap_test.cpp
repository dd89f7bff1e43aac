#include <gtest/gtest.h>
#include <QImage>
#include <QImageReader>
#include <algorithm>
#include <cmath>

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

}  // namespace
}  // namespace velmora
