#include "printerbackend/PrintJob.h"

#include <poppler-qt6.h>
#include <sys/stat.h>
#include <QDir>
#include <QFileInfo>
#include <QImageWriter>
#include <QRegularExpression>
#include <QSaveFile>
#include <QSemaphore>
#include <QThread>
#include <QThreadPool>
#include <atomic>
#include <memory>

#include "clipboard/clsSaveBitmapAs.h"

namespace velmora {

namespace {

// Sharp for reading body text in an editor column, at a fifth of a 300-dpi scan's size; the
// same as the page pictures the office draws.
constexpr double kDotsPerInch = 150;

// A folder the user owns, private to them, and not a link.
bool privateFolderOf(const QString& path, uid_t user) {
  struct stat info {};
  return lstat(QFile::encodeName(path).constData(), &info) == 0 && S_ISDIR(info.st_mode) && info.st_uid == user &&
         (info.st_mode & 077) == 0;
}

bool ownFolderOf(const QString& path, uid_t user) {
  struct stat info {};
  return lstat(QFile::encodeName(path).constData(), &info) == 0 && S_ISDIR(info.st_mode) && info.st_uid == user;
}

bool save(const QImage& page, const QString& name, const PrintSettings& settings) {
  if (settings.fileFormat == u"gif") return bool(writeGif(page, name));
  QSaveFile file(name);
  if (!file.open(QIODevice::WriteOnly)) return false;
  QImageWriter writer(&file, settings.fileFormat == u"png" ? "png" : "jpeg");
  if (settings.fileFormat == u"jpg") writer.setQuality(settings.jpgQuality);
  return writer.write(settings.fileFormat == u"png" ? page : page.convertToFormat(QImage::Format_RGB888)) &&
         file.commit();
}

}  // namespace

QString settingsRefusal(const PrintSettings& settings, uid_t user) {
  if (settings.fileFormat != u"jpg" && settings.fileFormat != u"png" && settings.fileFormat != u"gif")
    return QStringLiteral("the picture type \"%1\" is not jpg, png or gif").arg(settings.fileFormat);
  static const QRegularExpression plainName(QStringLiteral("^[A-Za-z0-9_-]{1,100}$"));
  if (!plainName.match(settings.fileName).hasMatch())
    return QStringLiteral("the file name \"%1\" is not a plain name").arg(settings.fileName);
  const QString folder = QDir::cleanPath(settings.path);
  const QFileInfo where(folder);
  const bool isRoot = where.fileName() == u"Velmora";
  const QString root = isRoot ? folder : where.absolutePath();
  if (!QDir::isAbsolutePath(settings.path) || settings.path.contains(QStringLiteral("..")) ||
      QFileInfo(root).fileName() != u"Velmora" || !privateFolderOf(root, user) || !ownFolderOf(folder, user))
    return QStringLiteral("the folder \"%1\" is not a Velmora working folder of the user who printed")
        .arg(settings.path);
  return {};
}

PrintedJob printPages(const QString& document, const PrintSettings& settings) {
  PrintedJob job;
  const std::unique_ptr<Poppler::Document> pdf = Poppler::Document::load(document);
  if (!pdf || pdf->isLocked()) {
    job.failure = QStringLiteral("the job is not a PDF document this printer can read");
    return job;
  }
  pdf->setRenderHint(Poppler::Document::Antialiasing);
  pdf->setRenderHint(Poppler::Document::TextAntialiasing);
  const QString stem = QDir::cleanPath(settings.path) + u'/' + settings.fileName + u'_';
  std::atomic<int> saved = 0;
  QSemaphore room(2 * QThread::idealThreadCount());  // drawn pages never pile up
  QThreadPool encoders;                              // waits for its encoders, whatever happens
  job.pages = pdf->numPages();
  for (int i = 0; i < job.pages; ++i) {
    const std::unique_ptr<Poppler::Page> page = pdf->page(i);
    if (!page) continue;
    QImage drawn = page->renderToImage(kDotsPerInch, kDotsPerInch);
    const QString name = stem + QString::number(i + 1) + u'.' + settings.fileFormat;
    room.acquire();
    encoders.start([&, drawn = std::move(drawn), name] {
      if (!drawn.isNull() && save(drawn, name, settings)) ++saved;
      room.release();
    });
  }
  encoders.waitForDone();
  job.files = saved;
  return job;
}

}  // namespace velmora
