#include "clipboard/ClipboardPicture.h"

#include <QImage>

#include "clipboard/clsClipboard.h"
#include "clipboard/clsSaveBitmapAs.h"
#include "control/OptionString.h"
#include "support/basPublic.h"

namespace velmora {

namespace {

// The picture formats, most wanted first.
constexpr uint32_t kPictureFormats[] = {cf::Bitmap, cf::EnhMetaFile, cf::MetaFilePict};

bool fail(Context& context, const QString& step) {
  context.g_sError = QStringLiteral("GDIPlus:") + step;
  return false;
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

  const QImage picture = QImage::fromData(data);
  if (picture.isNull()) return fail(context, QStringLiteral("the clipboard picture is in a form that cannot be read"));
  clsSaveBitmapAs saver;
  if (!saver.SavePictureFromHDC(picture, fileName))
    return fail(context, QStringLiteral("cannot save ") + fileName + QStringLiteral(": ") + saver.lastError());
  html = QStringLiteral("<img src=\"") + fileName + QStringLiteral("\" border=0><br>");
  return true;
}

}  // namespace velmora
