#pragma once
#include <QImage>
#include <QString>

#include "core/Result.h"

namespace velmora {

// Saves a picture to a file whose extension chooses the format: ".png", ".gif", ".jpg"
// (quality 100), ".tif" or ".bmp", taken from the last four characters of the name
// without regard to case. Any other ending saves nothing.
class clsSaveBitmapAs {
 public:
  bool SavePictureFromHDC(const QImage& bitmap, const QString& fileName);
  // Why the last save failed, in English; empty after a success.
  const QString& lastError() const { return lastError_; }

 private:
  bool fail(const QString& why);
  QString lastError_;
};

// GIF through giflib, with a median-cut palette of up to 256 colours.
Outcome writeGif(const QImage& image, const QString& fileName);

// Scales the picture in `source` to width x height and writes it to `target` in the
// source's own format, as its content says: JPEG (quality 70), PNG, GIF, and BMP for any
// other. A width or height of -1 keeps the aspect ratio. False, and the target untouched,
// when the source cannot be read, the size is not positive or the encoding fails.
bool ResizeImageFile(const QString& source, const QString& target, int width, int height);

}  // namespace velmora
