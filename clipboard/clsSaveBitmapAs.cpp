#include "clipboard/clsSaveBitmapAs.h"

#include <gif_lib.h>
#include <QBuffer>
#include <QFile>
#include <QImageReader>
#include <QImageWriter>
#include <QPainter>
#include <QSaveFile>
#include <QTemporaryFile>
#include <climits>
#include <cmath>
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

// The picture in `format`, or nothing when it cannot be encoded. A GIF source keeps its own
// format: writeGif gives it a real palette (Qt writes no GIF) and takes a file name, hence
// the temporary file.
QByteArray encode(const QImage& image, const QByteArray& format) {
  if (format == "gif") {
    QTemporaryFile gif;
    if (!gif.open() || !writeGif(image, gif.fileName())) return {};
    return gif.readAll();
  }
  QByteArray bytes;
  QBuffer buffer(&bytes);
  buffer.open(QIODevice::WriteOnly);
  QImageWriter writer(&buffer, format);
  if (format == "jpeg") writer.setQuality(70);
  return writer.write(format == "png" ? image : opaque(image)) ? bytes : QByteArray();
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

bool ResizeImageFile(const QString& source, const QString& target, int width, int height) {
  QImageReader reader(source);
  reader.setDecideFormatFromContent(true);
  // Asked before read(): afterwards the reader no longer knows the format.
  QByteArray format = reader.format();
  const QImage image = reader.read();
  if (image.isNull() || (width == -1 && height == -1)) return false;
  // The side given as -1 follows the other in the picture's proportions, rounded half to
  // even; worked out as a double so a side too large for an int fails instead of wrapping.
  double w = width, h = height;
  if (width == -1)
    w = std::nearbyint(double(image.width()) * height / image.height());
  else if (height == -1)
    h = std::nearbyint(double(image.height()) * width / image.width());
  if (w < 1 || h < 1 || w > INT_MAX || h > INT_MAX) return false;
  const QImage scaled = image.scaled(int(w), int(h), Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
  if (scaled.isNull()) return false;

  if (format != "jpeg" && format != "png" && format != "gif") format = "bmp";
  const QByteArray bytes = encode(scaled, format);
  if (bytes.isEmpty()) return false;
  QSaveFile file(target);
  return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.commit();
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
