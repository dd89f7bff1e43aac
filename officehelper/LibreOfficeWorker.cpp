#include "officehelper/LibreOfficeWorker.h"

#define LOK_USE_UNSTABLE_API
#include <unistd.h>
#include <LibreOfficeKit/LibreOfficeKit.hxx>

#include <QFileInfo>
#include <QImage>
#include <QRect>
#include <QRegularExpression>
#include <QSemaphore>
#include <QThreadPool>
#include <QUrl>
#include <memory>
#include <vector>

#include "clipboard/clsSaveBitmapAs.h"
#include "office/OfficeProtocol.h"
#include "officehelper/PrivateProfile.h"
#include "support/basPublic.h"

namespace velmora {

namespace {

// Page pictures are drawn at 150 dots per inch: an A4 page is 1240 pixels wide, sharp in an
// editor column on a 1.5x screen and for reading body text, at a fifth of a 300-dpi print
// scan's size.
constexpr int kPictureDpi = 150;
constexpr int kTwipsPerInch = 1440;

bool holdsLibreOffice(const QString& folder) {
  return QFileInfo::exists(folder + QStringLiteral("/libmergedlo.so")) ||
         QFileInfo::exists(folder + QStringLiteral("/libsofficeapp.so"));
}

// Where LibreOffice's program folder is: VELMORA_LIBREOFFICE_PROGRAM names it, else
// Debian's place, else beside the `soffice` on the PATH.
QString libreOfficeProgramFolder() {
  if (qEnvironmentVariableIsSet("VELMORA_LIBREOFFICE_PROGRAM")) {
    const QString named = qEnvironmentVariable("VELMORA_LIBREOFFICE_PROGRAM");
    return holdsLibreOffice(named) ? named : QString();
  }
  for (const QString& folder :
       {QStringLiteral("/usr/lib/libreoffice/program"), QStringLiteral("/opt/libreoffice/program")})
    if (holdsLibreOffice(folder)) return folder;
  for (const QString& dir : qEnvironmentVariable("PATH").split(u':', Qt::SkipEmptyParts)) {
    const QFileInfo soffice(dir + QStringLiteral("/soffice"));
    if (soffice.exists()) return QFileInfo(soffice.canonicalFilePath()).absolutePath();
  }
  return {};
}

QString fileUrl(const QString& path) { return QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded); }

// LibreOffice's error text names its own source file; a person needs the reason only.
QString readableReason(const char* error) {
  const QString text = QString::fromUtf8(error ? error : "");
  // What LibreOfficeKit says for a damaged file, a password-protected one and a file in no
  // form it knows alike.
  if (text.contains(QStringLiteral("empty reference")) || text.contains(QStringLiteral("type detection failed")))
    return QStringLiteral("the file is damaged, protected by a password, or not a document LibreOffice reads");
  const QRegularExpressionMatch quoted = QRegularExpression(QStringLiteral("\"([^\"]+)\"")).match(text);
  if (quoted.hasMatch()) return quoted.captured(1);
  return text.isEmpty() ? QStringLiteral("no reason given") : text.section(QStringLiteral(" at "), 0, 0);
}

class Worker {
 public:
  explicit Worker(int answerFd) : answerFd_(answerFd) {}

  void start(const QString& profileFolder) {
    const Outcome profile = writePrivateProfile(profileFolder);
    if (!profile) {
      startFailure_ = profile.failure().description;
      return;
    }
    const QString program = libreOfficeProgramFolder();
    if (program.isEmpty()) {
      startFailure_ =
          QStringLiteral("LibreOffice is not installed: install the packages libreoffice-writer-nogui (documents), "
                         "libreoffice-calc-nogui (sheets) and libreoffice-impress-nogui (slides)");
      return;
    }
    office_.reset(lok::lok_cpp_init(program.toUtf8().constData(), fileUrl(profileFolder).toUtf8().constData()));
    if (!office_) {
      startFailure_ = QStringLiteral("LibreOffice in ") + program + QStringLiteral(" could not start");
      return;
    }
    // LibreOfficeKit's password question is left switched off: a document that needs a
    // password then fails to load at once (answering the question instead aborts the
    // office on some formats and loops on others).
  }

  // Jobs are sent only after this, so their time limits do not count the office's start.
  void announceReady() { send(stageNotice(QStringLiteral("Ready"))); }

  void serve() {
    FrameReader reader;
    char chunk[65536];
    for (;;) {
      const ssize_t n = read(STDIN_FILENO, chunk, sizeof chunk);
      if (n <= 0) return;
      reader.append(QByteArray(chunk, n));
      while (const std::optional<QJsonObject> frame = reader.next()) {
        const std::optional<OfficeJob> job = OfficeJob::fromJson(*frame);
        send((job ? run(*job) : OfficeAnswer::failure(QStringLiteral("Open"), QStringLiteral("a malformed job")))
                 .toJson());
      }
      if (reader.broken()) return;
    }
  }

 private:
  OfficeAnswer run(const OfficeJob& job) {
    if (!office_) return OfficeAnswer::failure(QStringLiteral("CreateObject"), startFailure_);
    send(stageNotice(QStringLiteral("Open")));
    const auto openFailure = [&](const QString& why) {
      return OfficeAnswer::failure(QStringLiteral("Open"), QStringLiteral("LibreOffice could not open ") +
                                                               job.document + QStringLiteral(": ") + why);
    };
    // LibreOffice opens an empty file as a new, empty document: not what the user meant.
    const QFileInfo file(job.document);
    if (!file.isFile()) return openFailure(QStringLiteral("there is no such file"));
    if (file.size() == 0) return openFailure(QStringLiteral("the file is empty"));
    std::unique_ptr<lok::Document> document(
        office_->documentLoad(fileUrl(job.document).toUtf8().constData(), "Language=en-US,Batch=true"));
    if (!document) return openFailure(readableReason(office_->getError()));
    // A picture or a workbook named .doc opens in another application of the suite.
    if (document->getDocumentType() != LOK_DOCTYPE_TEXT)
      return openFailure(QStringLiteral("it is not a text document"));
    send(stageNotice(QStringLiteral("SaveAs")));
    return job.kind == OfficeJob::Kind::WebPage ? saveWebPage(*document, job) : savePagePictures(*document, job);
  }

  OfficeAnswer saveWebPage(lok::Document& document, const OfficeJob& job) {
    if (document.saveAs(fileUrl(job.target).toUtf8().constData(), "html")) return {};
    return OfficeAnswer::failure(QStringLiteral("SaveAs"), QStringLiteral("LibreOffice could not write ") + job.target +
                                                               QStringLiteral(": ") +
                                                               readableReason(office_->getError()));
  }

  // Each page drawn straight from the laid-out document, at kPictureDpi. LibreOfficeKit
  // draws on this thread only, one page after another; saving a page costs about four times
  // its drawing, so the pictures are encoded on the other cores meanwhile, a few pages at a
  // time so that drawn pages never pile up in memory.
  OfficeAnswer savePagePictures(lok::Document& document, const OfficeJob& job) {
    document.initializeForRendering();
    const QList<QRect> pages = pageRectangles(document);
    std::vector<QString> saved(size_t(pages.size()));
    QThreadPool encoders;
    QSemaphore room(2 * encoders.maxThreadCount());
    for (qsizetype i = 0; i < pages.size(); ++i) {
      // Past page 999 the number grows a digit, so no page overwrites an earlier one.
      const int number = int(i + 1);
      const QString name =
          job.target + (number > 999 ? QString::number(number) : PadNumber(number, 3, 0)) + u'.' + job.imageType;
      room.acquire();
      encoders.start([&, i, name, picture = drawPage(document, pages[i])] {
        if (clsSaveBitmapAs().SavePictureFromHDC(picture, name)) saved[size_t(i)] = name;
        room.release();
      });
    }
    encoders.waitForDone();
    OfficeAnswer answer;
    for (const QString& name : saved)
      if (!name.isEmpty()) answer.files << name;  // a page that could not be saved is left out
    return answer;
  }

  static QList<QRect> pageRectangles(lok::Document& document) {
    QList<QRect> pages;
    std::unique_ptr<char, decltype(&free)> text(document.getPartPageRectangles(), &free);
    for (const QString& page : QString::fromUtf8(text.get()).split(u';', Qt::SkipEmptyParts)) {
      const QStringList n = page.split(u',');
      if (n.size() == 4)
        pages << QRect(n[0].trimmed().toInt(), n[1].trimmed().toInt(), n[2].trimmed().toInt(), n[3].trimmed().toInt());
    }
    return pages;
  }

  static QImage drawPage(lok::Document& document, const QRect& twips) {
    const int width = twips.width() * kPictureDpi / kTwipsPerInch;
    const int height = twips.height() * kPictureDpi / kTwipsPerInch;
    // LibreOfficeKit paints premultiplied BGRA, which is Qt's ARGB32 on a little-endian machine.
    QImage picture(width, height, QImage::Format_ARGB32_Premultiplied);
    picture.fill(Qt::white);
    document.paintTile(picture.bits(), width, height, twips.x(), twips.y(), twips.width(), twips.height());
    return picture.convertToFormat(QImage::Format_RGB32);
  }

  void send(const QJsonObject& message) {
    const QByteArray frame = encodeFrame(message);
    for (qsizetype done = 0; done < frame.size();) {
      const ssize_t n = write(answerFd_, frame.constData() + done, size_t(frame.size() - done));
      if (n <= 0) _exit(1);  // the front process is gone
      done += n;
    }
  }

  int answerFd_;
  std::unique_ptr<lok::Office> office_;
  QString startFailure_;
};

}  // namespace

void runLibreOfficeWorker(const QString& profileFolder) {
  const int answerFd = dup(STDOUT_FILENO);
  dup2(STDERR_FILENO, STDOUT_FILENO);
  Worker worker(answerFd);
  worker.start(profileFolder);
  worker.announceReady();
  worker.serve();
  _exit(0);
}

}  // namespace velmora
