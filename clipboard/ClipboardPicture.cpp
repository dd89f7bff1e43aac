#include "clipboard/ClipboardPicture.h"

#include <QBuffer>
#include <QImage>
#include <QImageReader>

#include "clipboard/clsClipboard.h"
#include "clipboard/clsSaveBitmapAs.h"
#include "core/OptionString.h"
#include "support/basPublic.h"
#include "core/Text.h"

namespace velmora {

namespace {

// The picture formats, most wanted first.
constexpr uint32_t kPictureFormats[] = {cf::Bitmap, cf::EnhMetaFile, cf::MetaFilePict};

bool fail(Context& context, const QString& step) {
  context.g_sError = QStringLiteral("GDIPlus:") + step;
  return false;
}

// The clipboard's picture drawn as a bitmap. Qt refuses to draw a picture larger than its
// allocation limit; the word then names the picture's size, so the user sees why.
bool readPicture(Context& context, QByteArray data, QImage& picture) {
  QBuffer buffer(&data);
  QImageReader reader(&buffer);
  const QSize size = reader.size();
  if (reader.read(&picture)) return true;
  const qint64 bytes = qint64(size.width()) * size.height() * 4;
  const qint64 limit = qint64(QImageReader::allocationLimit()) * 1024 * 1024;
  if (size.isValid() && limit > 0 && bytes > limit)
    return fail(context, QStringLiteral("the clipboard picture is too large to be drawn (%1 x %2 pixels, %3 MB at most)")
                             .arg(size.width())
                             .arg(size.height())
                             .arg(QImageReader::allocationLimit()));
  return fail(context, QStringLiteral("the clipboard picture is in a form that cannot be read: ") + reader.errorString());
}

}  // namespace

bool WordPaste2Image(Context& context, const QString& options, QString& html) {
  context.g_sError.clear();
  html.clear();
  QString imgtype = GetOptValue(options, QStringLiteral("imgtype"));
  if (imgtype != u"gif" && imgtype != u"png") imgtype = QStringLiteral("jpg");
  const QString fileName = context.g_sTempFolder + GetTimeStamp() + u'.' + imgtype;

  QByteArray data;
  {
    clsClipboard clipboard;
    clipboard.ClipboardOpen(0);  // raises when another program holds the clipboard
    for (uint32_t format : kPictureFormats)
      if (clipboard.IsDataAvailableForFormat(format) && clipboard.GetBinaryData(format, data)) break;
    clipboard.ClipboardClose();
  }
  if (data.isEmpty()) return true;

  QImage picture;
  if (!readPicture(context, data, picture)) return false;
  clsSaveBitmapAs saver;
  if (!saver.SavePictureFromHDC(picture, fileName))
    return fail(context, QStringLiteral("cannot save ") + fileName + QStringLiteral(": ") + saver.lastError());
  html = PictureFragment(fileName);
  return true;
}

}  // namespace velmora
