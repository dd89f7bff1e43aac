// How fast the clipboard picture saver writes a 4K screenshot, and how large the files are,
// next to ImageMagick's convert encoding the same picture. Built on demand and run by
// bench/picture_bench.sh; see bench/README.md.
//
//   picture_bench WORK_DIR [ROUNDS] [CONVERT]
#include <QBuffer>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QProcess>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <vector>

#include "clipboard/clsSaveBitmapAs.h"

namespace {

using velmora::clsSaveBitmapAs;

class Noise {
 public:
  uint32_t next() { return seed_ = seed_ * 1664525u + 1013904223u; }
  int below(int limit) { return int((next() >> 8) % uint32_t(limit)); }

 private:
  uint32_t seed_ = 20240601;
};

// Window chrome and text on flat colours, a gradient banner and a photo: what a pasted
// screenshot holds.
QImage screenshot() {
  QImage picture(3840, 2160, QImage::Format_RGB32);
  picture.fill(QColor(245, 245, 245));
  Noise noise;
  QPainter painter(&picture);
  painter.fillRect(0, 0, 3840, 80, QColor(40, 70, 140));      // title bar
  painter.fillRect(0, 80, 600, 2080, QColor(228, 230, 235));  // side panel

  // Lines of text: strokes of glyph height, words separated by gaps, dark on the page.
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(QPen(QColor(30, 30, 30), 2.2));
  for (int line = 0; line < 70; ++line) {
    const int baseline = 130 + line * 28;
    for (int x = 640; x < 2300;) {
      const int word = 3 + noise.below(8);
      for (int letter = 0; letter < word; ++letter, x += 11) {
        const int height = 10 + noise.below(8);
        painter.drawLine(QPointF(x, baseline), QPointF(x + noise.below(5), baseline - height));
        if (noise.below(3) == 0) painter.drawLine(QPointF(x, baseline - 6), QPointF(x + 7, baseline - 6));
      }
      x += 14;
    }
  }
  painter.end();

  // A gradient banner.
  for (int y = 120; y < 700; ++y)
    for (int x = 2400; x < 3780; ++x)
      picture.setPixel(x, y, qRgb((x - 2400) * 255 / 1380, (y - 120) * 200 / 580 + 30, 180));
  // A photo: smooth shapes under sensor noise.
  for (int y = 760; y < 2100; ++y)
    for (int x = 2400; x < 3780; ++x) {
      const int grain = noise.below(25) - 12;
      const int r = std::clamp(120 + (x % 300) / 3 + grain, 0, 255);
      const int g = std::clamp(90 + ((x + y) % 400) / 4 + grain, 0, 255);
      const int b = std::clamp(60 + (y % 250) / 2 + grain, 0, 255);
      picture.setPixel(x, y, qRgb(r, g, b));
    }
  return picture;
}

// The picture as the clipboard hands it to the saver: decoded from the owner's PNG.
QImage asFromClipboard(const QImage& picture) {
  QByteArray png;
  QBuffer buffer(&png);
  buffer.open(QIODevice::WriteOnly);
  picture.save(&buffer, "PNG");
  return QImage::fromData(png, "PNG");
}

// Peak signal-to-noise ratio of `file` against `source`, in dB (99 when they are equal).
double psnr(const QImage& source, const QString& file) {
  const QImage a = source.convertToFormat(QImage::Format_RGB888),
               b = QImage(file).convertToFormat(QImage::Format_RGB888);
  if (a.size() != b.size()) return 0;
  double squares = 0;
  for (int y = 0; y < a.height(); ++y) {
    const uchar *p = a.constScanLine(y), *q = b.constScanLine(y);
    for (int x = 0; x < 3 * a.width(); ++x) squares += double(p[x] - q[x]) * double(p[x] - q[x]);
  }
  const double mse = squares / (3.0 * a.width() * a.height());
  return mse == 0 ? 99 : 10 * std::log10(255.0 * 255.0 / mse);
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

double timeMs(const std::function<bool()>& run) {
  QElapsedTimer timer;
  timer.start();
  if (!run()) {
    std::fprintf(stderr, "picture_bench: a run failed\n");
    std::exit(1);
  }
  return double(timer.nsecsElapsed()) / 1e6;
}

struct Encoding {
  const char* name;
  QString extension;
  QStringList convertOptions;  // the same choices the saver makes
};

}  // namespace

int main(int argc, char** argv) {
  QGuiApplication app(argc, argv);
  const QStringList args = app.arguments();
  if (args.size() < 2) {
    std::fprintf(stderr, "usage: picture_bench WORK_DIR [ROUNDS] [CONVERT]\n");
    return 2;
  }
  const QString work = args[1];
  const int rounds = args.size() > 2 ? std::max(1, args[2].toInt()) : 5;
  const QString convert = args.size() > 3 ? args[3] : QStringLiteral("/usr/bin/convert");

  const QImage picture = asFromClipboard(screenshot());
  const QString source = work + "/source.ppm";
  if (!picture.save(source, "PPM")) return 1;

  const Encoding encodings[] = {
      {"PNG", "png", {}},
      {"JPEG q100", "jpg", {"-quality", "100"}},
      {"GIF 256", "gif", {"+dither", "-colors", "256"}},
  };
  std::printf("picture %dx%d, %d rounds (medians), ImageMagick: %s\n", picture.width(), picture.height(), rounds,
              qPrintable(convert));
  std::printf("%-10s %10s %12s %10s %12s %10s %10s %8s %8s\n", "format", "ours ms", "ours bytes", "convert ms",
              "convert bytes", "time ratio", "size ratio", "ours dB", "conv dB");
  for (const Encoding& encoding : encodings) {
    const QString ours = work + "/ours." + encoding.extension;
    const QString theirs = work + "/convert." + encoding.extension;
    std::vector<double> ourTimes, theirTimes;
    for (int round = 0; round < rounds; ++round) {  // alternating, so both see the same machine
      ourTimes.push_back(timeMs([&] { return clsSaveBitmapAs().SavePictureFromHDC(picture, ours); }));
      theirTimes.push_back(timeMs([&] {
        return QProcess::execute(convert, QStringList{source} + encoding.convertOptions + QStringList{theirs}) == 0;
      }));
    }
    const double ourMs = median(ourTimes), theirMs = median(theirTimes);
    const qint64 ourBytes = QFileInfo(ours).size(), theirBytes = QFileInfo(theirs).size();
    std::printf("%-10s %10.0f %12lld %10.0f %12lld %10.2f %10.2f %8.1f %8.1f\n", encoding.name, ourMs, ourBytes,
                theirMs, theirBytes, ourMs / theirMs, double(ourBytes) / double(theirBytes), psnr(picture, ours),
                psnr(picture, theirs));
  }
  std::printf("ratios: ours / convert (below 1: ours is faster or smaller); convert's times include its\n"
              "process start and reading the PPM; dB: PSNR against the source picture (99: identical)\n");
  return 0;
}
