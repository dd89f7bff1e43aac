#include "officehelper/LibreOfficeWorker.h"

#define LOK_USE_UNSTABLE_API
#include <unistd.h>
#include <LibreOfficeKit/LibreOfficeKit.hxx>

#include <QImage>
#include <QRect>
#include <QSemaphore>
#include <QThreadPool>
#include <memory>
#include <vector>

#include "clipboard/clsSaveBitmapAs.h"
#include "office/OfficeProtocol.h"
#include "officehelper/OfficeInstallation.h"
#include "officehelper/WorkerChannel.h"
#include "support/basPublic.h"

namespace velmora {

namespace {

// Page pictures are drawn at 150 dots per inch: an A4 page is 1240 pixels wide, sharp in an
// editor column on a 1.5x screen and for reading body text, at a fifth of a 300-dpi print
// scan's size.
constexpr int kPictureDpi = 150;
constexpr int kTwipsPerInch = 1440;

QString readableReason(const char* error) { return readableLoadFailure(QString::fromUtf8(error ? error : "")); }

class Worker {
 public:
  explicit Worker(WorkerChannel& channel) : channel_(channel) {}

  void start(const QString& profileFolder) {
    const Result<QString> prepared = prepareLibreOffice(profileFolder);
    if (!prepared) {
      startFailure_ = prepared.failure().description;
      return;
    }
    const QString program = prepared.value();
    office_.reset(lok::lok_cpp_init(program.toUtf8().constData(), fileUrl(profileFolder).toUtf8().constData()));
    if (!office_) {
      startFailure_ = QStringLiteral("LibreOffice in ") + program + QStringLiteral(" could not start");
      return;
    }
    // LibreOfficeKit's password question is left switched off: a document that needs a
    // password then fails to load at once (answering the question instead aborts the
    // office on some formats and loops on others).
  }

  OfficeAnswer run(const OfficeJob& job) {
    if (!office_) return OfficeAnswer::failure(QStringLiteral("CreateObject"), startFailure_);
    if (job.forTheSecondOffice())
      return OfficeAnswer::failure(QStringLiteral("Open"), QStringLiteral("this office does not do that job"));
    channel_.noticeStage(QStringLiteral("Open"));
    const auto openFailure = [&](const QString& why) {
      return OfficeAnswer::failure(QStringLiteral("Open"), QStringLiteral("LibreOffice could not open ") +
                                                               job.document + QStringLiteral(": ") + why);
    };
    if (const QString why = whyNotADocument(job.document); !why.isEmpty()) return openFailure(why);
    std::unique_ptr<lok::Document> document(
        office_->documentLoad(fileUrl(job.document).toUtf8().constData(), "Language=en-US,Batch=true"));
    if (!document) return openFailure(readableReason(office_->getError()));
    // A picture or a workbook named .doc opens in another application of the suite.
    if (document->getDocumentType() != LOK_DOCTYPE_TEXT)
      return openFailure(QStringLiteral("it is not a text document"));
    channel_.noticeStage(QStringLiteral("SaveAs"));
    return job.kind == OfficeJob::Kind::WebPage ? saveWebPage(*document, job) : savePagePictures(*document, job);
  }

 private:
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

  WorkerChannel& channel_;
  std::unique_ptr<lok::Office> office_;
  QString startFailure_;
};

}  // namespace

void runLibreOfficeWorker(const QString& profileFolder) {
  WorkerChannel channel;
  Worker worker(channel);
  worker.start(profileFolder);
  channel.announceReady();
  channel.serve([&](const OfficeJob& job) { return worker.run(job); });
  _exit(0);
}

}  // namespace velmora
