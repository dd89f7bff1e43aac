#include "clipboard/ClipboardPicture.h"

#include <QBuffer>
#include <QImage>
#include <QImageReader>

#include "clipboard/clsClipboard.h"
#include "clipboard/clsSaveBitmapAs.h"
#include "core/OptionString.h"
#include "core/Text.h"
#include "support/basPublic.h"

namespace velmora {

namespace {

// The picture formats, most wanted first.
constexpr uint32_t kPictureFormats[] = {cf::Bitmap, cf::EnhMetaFile, cf::MetaFilePict};

Failure drawingFailure(const QString& step) { return {QStringLiteral("GDIPlus:"), step}; }

// The clipboard's picture drawn as a bitmap. Qt refuses to draw a picture larger than its
// allocation limit; the word then names the picture's size, so the user sees why.
Result<QImage> readPicture(QByteArray data) {
  QBuffer buffer(&data);
  QImageReader reader(&buffer);
  const QSize size = reader.size();
  QImage picture;
  if (reader.read(&picture)) return picture;
  const qint64 bytes = qint64(size.width()) * size.height() * 4;
  const qint64 limit = qint64(QImageReader::allocationLimit()) * 1024 * 1024;
  if (size.isValid() && limit > 0 && bytes > limit)
    return drawingFailure(
        QStringLiteral("the clipboard picture is too large to be drawn (%1 x %2 pixels, %3 MB at most)")
            .arg(size.width())
            .arg(size.height())
            .arg(QImageReader::allocationLimit()));
  return drawingFailure(QStringLiteral("the clipboard picture is in a form that cannot be read: ") +
                        reader.errorString());
}

}  // namespace

Result<QString> WordPaste2Image(const QString& workingFolder, const QString& options) {
  const QString imgtype = pictureTypeOption(options);
  const QString fileName = workingFolder + GetTimeStamp() + u'.' + imgtype;

  QByteArray data;
  {
    clsClipboard clipboard;
    clipboard.ClipboardOpen(0);  // raises when another program holds the clipboard
    for (uint32_t format : kPictureFormats)
      if (clipboard.IsDataAvailableForFormat(format) && clipboard.GetBinaryData(format, data)) break;
    clipboard.ClipboardClose();
  }
  if (data.isEmpty()) return QString();

  const Result<QImage> picture = readPicture(data);
  if (!picture) return picture.failure();
  clsSaveBitmapAs saver;
  if (!saver.SavePictureFromHDC(picture.value(), fileName))
    return drawingFailure(QStringLiteral("cannot save ") + fileName + QStringLiteral(": ") + saver.lastError());
  return pictureFragment(fileName);
}

}  // namespace velmora
