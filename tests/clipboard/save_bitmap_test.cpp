#include <gtest/gtest.h>
#include <QImage>
#include <QImageReader>

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

TEST_F(SaveBitmap, GifPaletteFollowsThePicture) {
  // Few colours survive exactly; a photo-like gradient stays close.
  QImage flags(30, 10, QImage::Format_RGB32);
  flags.fill(qRgb(200, 0, 0));
  for (int y = 0; y < 10; ++y)
    for (int x = 10; x < 20; ++x) flags.setPixel(x, y, qRgb(0, 0, 255));
  ASSERT_TRUE(saver.SavePictureFromHDC(flags, path("flags.gif")));
  const QImage back = QImage(path("flags.gif")).convertToFormat(QImage::Format_RGB32);
  auto near = [](QRgb a, QRgb b) {
    return std::abs(qRed(a) - qRed(b)) <= 8 && std::abs(qGreen(a) - qGreen(b)) <= 8 &&
           std::abs(qBlue(a) - qBlue(b)) <= 8;
  };
  EXPECT_TRUE(near(back.pixel(2, 2), qRgb(200, 0, 0)));
  EXPECT_TRUE(near(back.pixel(15, 5), qRgb(0, 0, 255)));

  ASSERT_TRUE(saver.SavePictureFromHDC(sample(), path("gradient.gif")));
  const QImage gradient = QImage(path("gradient.gif")).convertToFormat(QImage::Format_RGB32);
  const QImage original = sample();
  long error = 0;
  for (int y = 0; y < 48; ++y)
    for (int x = 0; x < 64; ++x) error += std::abs(qRed(gradient.pixel(x, y)) - qRed(original.pixel(x, y)));
  EXPECT_LT(error / (64 * 48), 12) << "mean red error of the quantized picture";
}

}  // namespace
}  // namespace velmora
