#include "clipboard/clsSaveBitmapAs.h"

#include <gif_lib.h>
#include <QFile>
#include <QImageWriter>
#include <QPainter>
#include <vector>

#include "clipboard/PaletteQuantizer.h"

namespace velmora {

namespace {

// Pictures are flattened onto white: JPEG, BMP and GIF have no alpha channel to keep.
QImage opaque(const QImage& image) {
  if (!image.hasAlphaChannel()) return image.convertToFormat(QImage::Format_RGB888);
  QImage flat(image.size(), QImage::Format_RGB888);
  flat.fill(Qt::white);
  QPainter(&flat).drawImage(0, 0, image);
  return flat;
}

QByteArray formatFor(const QString& fileName) {
  const QString ext = fileName.right(4).toLower();
  if (ext == u".png") return "png";
  if (ext == u".gif") return "gif";
  if (ext == u".jpg") return "jpeg";
  if (ext == u".tif") return "tiff";
  if (ext == u".bmp") return "bmp";
  return {};
}

}  // namespace

bool clsSaveBitmapAs::fail(const QString& why) {
  lastError_ = why;
  return false;
}

bool clsSaveBitmapAs::SavePictureFromHDC(const QImage& bitmap, const QString& fileName) {
  lastError_.clear();
  const QByteArray format = formatFor(fileName);
  if (format.isEmpty()) return fail(QStringLiteral("no encoder for the file name ") + fileName);
  if (bitmap.isNull()) return fail(QStringLiteral("the picture is empty"));
  if (format == "gif") {
    const Outcome written = writeGif(bitmap, fileName);
    return written || fail(written.failure().description);
  }
  QImageWriter writer(fileName, format);
  if (format == "jpeg") writer.setQuality(100);
  const QImage image = format == "png" || format == "tiff" ? bitmap : opaque(bitmap);
  if (writer.write(image)) return true;
  QFile::remove(fileName);
  return fail(writer.errorString());
}

Outcome writeGif(const QImage& image, const QString& fileName) {
  const QImage rgb = opaque(image);
  const unsigned width = unsigned(rgb.width()), height = unsigned(rgb.height());
  IndexedPicture indexed = quantize(rgb);
  std::vector<GifColorType> palette;
  for (const auto& [red, green, blue] : indexed.palette) palette.push_back({red, green, blue});
  GifByteType* indices = indexed.indices.data();

  int status = 0;
  GifFileType* gif = EGifOpenFileName(QFile::encodeName(fileName).constData(), false, &status);
  if (!gif) return Failure{{}, QString::fromUtf8(GifErrorString(status))};
  ColorMapObject* map = GifMakeMapObject(256, palette.data());
  bool ok = map && EGifPutScreenDesc(gif, int(width), int(height), 8, 0, map) != GIF_ERROR &&
            EGifPutImageDesc(gif, 0, 0, int(width), int(height), false, nullptr) != GIF_ERROR;
  for (unsigned y = 0; ok && y < height; ++y)
    ok = EGifPutLine(gif, indices + size_t(y) * width, int(width)) != GIF_ERROR;
  const int writeError = gif->Error;
  GifFreeMapObject(map);
  ok = EGifCloseFile(gif, &status) != GIF_ERROR && ok;
  if (ok) return {};
  QFile::remove(fileName);
  return Failure{{}, QString::fromUtf8(GifErrorString(writeError ? writeError : status))};
}

}  // namespace velmora
