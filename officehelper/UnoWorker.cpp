#include "officehelper/UnoWorker.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <com/sun/star/awt/Size.hpp>
#include <com/sun/star/beans/XPropertySet.hpp>
#include <com/sun/star/bridge/UnoUrlResolver.hpp>
#include <com/sun/star/connection/NoConnectException.hpp>
#include <com/sun/star/container/XIndexAccess.hpp>
#include <com/sun/star/container/XNameAccess.hpp>
#include <com/sun/star/container/XNameContainer.hpp>
#include <com/sun/star/container/XNamed.hpp>
#include <com/sun/star/document/MacroExecMode.hpp>
#include <com/sun/star/document/UpdateDocMode.hpp>
#include <com/sun/star/document/XExporter.hpp>
#include <com/sun/star/document/XFilter.hpp>
#include <com/sun/star/drawing/GraphicExportFilter.hpp>
#include <com/sun/star/drawing/XDrawPagesSupplier.hpp>
#include <com/sun/star/frame/Desktop.hpp>
#include <com/sun/star/frame/XStorable.hpp>
#include <com/sun/star/lang/DisposedException.hpp>
#include <com/sun/star/lang/XServiceInfo.hpp>
#include <com/sun/star/sheet/CellFlags.hpp>
#include <com/sun/star/sheet/XCellRangeAddressable.hpp>
#include <com/sun/star/sheet/XCellRangesQuery.hpp>
#include <com/sun/star/sheet/XPrintAreas.hpp>
#include <com/sun/star/sheet/XSheetCellCursor.hpp>
#include <com/sun/star/sheet/XSpreadsheet.hpp>
#include <com/sun/star/sheet/XSpreadsheetDocument.hpp>
#include <com/sun/star/sheet/XUsedAreaCursor.hpp>
#include <com/sun/star/style/XStyleFamiliesSupplier.hpp>
#include <com/sun/star/text/XTextCursor.hpp>
#include <com/sun/star/text/XTextDocument.hpp>
#include <com/sun/star/util/XCloseable.hpp>
#include <cppuhelper/bootstrap.hxx>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QSemaphore>
#include <QThread>
#include <QThreadPool>
#include <chrono>
#include <cmath>
#include <thread>
#include <vector>

#include "clipboard/clsSaveBitmapAs.h"
#include "officehelper/OfficeInstallation.h"
#include "officehelper/WorkerChannel.h"
#include "support/basPublic.h"

namespace velmora {

namespace {

namespace css = com::sun::star;
using css::uno::Any;
using css::uno::Reference;
using css::uno::UNO_QUERY;
using css::uno::UNO_QUERY_THROW;
using rtl::OUString;

OUString toUno(const QString& text) {
  return OUString(reinterpret_cast<const sal_Unicode*>(text.utf16()), text.size());
}
QString fromUno(const OUString& text) {
  return QString(reinterpret_cast<const QChar*>(text.getStr()), text.getLength());
}

css::uno::Sequence<css::beans::PropertyValue> properties(std::initializer_list<std::pair<const char*, Any>> named) {
  css::uno::Sequence<css::beans::PropertyValue> list(sal_Int32(named.size()));
  css::beans::PropertyValue* next = list.getArray();
  for (const auto& [name, value] : named) {
    next->Name = OUString::createFromAscii(name);
    next->Value = value;
    ++next;
  }
  return list;
}

OfficeAnswer failure(const char* stage, const QString& description) {
  return OfficeAnswer::failure(QString::fromLatin1(stage), description);
}

constexpr int kRestartRequested = 81;

// soffice.bin itself rather than its launcher script, so that the kernel stops it when this
// worker stops (killed at a time limit, or crashed): no office is ever left behind.
pid_t startOffice(const QString& program, const QString& profile, const QString& pipe) {
  const QList<QByteArray> words = {
      (program + QStringLiteral("/soffice.bin")).toLocal8Bit(),
      ("-env:UserInstallation=" + fileUrl(profile)).toLocal8Bit(),
      "--headless",
      "--invisible",
      "--norestore",
      "--nologo",
      "--nodefault",
      "--nolockcheck",
      ("--accept=pipe,name=" + pipe + ";urp;").toLocal8Bit(),
  };
  std::vector<char*> argv;
  for (const QByteArray& word : words) argv.push_back(const_cast<char*>(word.constData()));
  argv.push_back(nullptr);
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(1);  // the worker left before the line above
    execv(argv[0], argv.data());
    _exit(127);
  }
  return child;
}

// Closes a loaded document, whatever happens to the job.
struct OpenDocument {
  Reference<css::lang::XComponent> component;
  ~OpenDocument() {
    try {
      const Reference<css::util::XCloseable> closeable(component, UNO_QUERY);
      if (closeable.is()) closeable->close(true);
    } catch (const css::uno::Exception&) {
      // a document that will not close goes with the office when it is recycled
    }
  }
};

class UnoOffice {
 public:
  explicit UnoOffice(WorkerChannel& channel) : channel_(channel) {}

  void start(const QString& profileFolder) {
    const Result<QString> prepared = prepareLibreOffice(profileFolder);
    if (!prepared) {
      startFailure_ = prepared.failure().description;
      return;
    }
    const QString program = prepared.value();
    const QString pipe = QStringLiteral("velmora-office-%1").arg(getpid());
    office_ = startOffice(program, profileFolder, pipe);
    if (office_ < 0) {
      startFailure_ = QStringLiteral("soffice.bin in ") + program + QStringLiteral(" could not be started");
      return;
    }
    try {
      remote_ = connectTo(program, profileFolder, pipe);
      if (remote_.is()) desktop_ = css::frame::Desktop::create(remote_);
    } catch (const css::uno::Exception& e) {
      startFailure_ = QStringLiteral("LibreOffice could not be reached: ") + fromUno(e.Message);
    }
  }

  OfficeAnswer run(const OfficeJob& job) {
    if (!desktop_.is()) return failure("CreateObject", startFailure_);
    try {
      return runLoaded(job);
    } catch (const css::lang::DisposedException&) {
      // The office is gone: leaving without an answer lets the helper say so and start a new one.
      _exit(1);
    } catch (const css::uno::Exception& e) {
      return failure("SaveAs", QStringLiteral("LibreOffice could not write ") + job.target + QStringLiteral(": ") +
                                   fromUno(e.Message).section(QStringLiteral(" at "), 0, 0));
    }
  }

 private:
  // The office's context once it accepts on its pipe (the helper's start limit stops a wait
  // that never ends), or nothing and why. A fresh profile makes the office ask for a
  // restart once (exit code 81), which its launcher script would otherwise do.
  Reference<css::uno::XComponentContext> connectTo(const QString& program, const QString& profile,
                                                   const QString& pipe) {
    qputenv("URE_BOOTSTRAP", ("vnd.sun.star.pathname:" + program + QStringLiteral("/fundamentalrc")).toLocal8Bit());
    local_ = cppu::defaultBootstrap_InitialComponentContext();
    const Reference<css::bridge::XUnoUrlResolver> resolver = css::bridge::UnoUrlResolver::create(local_);
    const OUString address =
        toUno(QStringLiteral("uno:pipe,name=") + pipe + QStringLiteral(";urp;StarOffice.ComponentContext"));
    bool restarted = false;
    for (;;) {
      try {
        return {resolver->resolve(address), UNO_QUERY_THROW};
      } catch (const css::connection::NoConnectException&) {
        int status = 0;
        if (waitpid(office_, &status, WNOHANG) == office_) {
          if (restarted || !WIFEXITED(status) || WEXITSTATUS(status) != kRestartRequested) {
            startFailure_ = QStringLiteral("LibreOffice stopped while starting");
            return {};
          }
          restarted = true;
          office_ = startOffice(program, profile, pipe);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
      }
    }
  }

  OfficeAnswer runLoaded(const OfficeJob& job) {
    channel_.noticeStage(QStringLiteral("Open"));
    const auto openFailure = [&](const QString& why) {
      return failure("Open", QStringLiteral("LibreOffice could not open ") + job.document + QStringLiteral(": ") + why);
    };
    if (const QString why = whyNotADocument(job.document); !why.isEmpty()) return openFailure(why);
    OpenDocument document;
    try {
      // Hidden and read-only; macros never run and links are never updated.
      document.component = desktop_->loadComponentFromURL(
          toUno(fileUrl(job.document)), "_blank", 0,
          properties({{"Hidden", Any(true)},
                      {"ReadOnly", Any(true)},
                      {"MacroExecutionMode", Any(css::document::MacroExecMode::NEVER_EXECUTE)},
                      {"UpdateDocMode", Any(css::document::UpdateDocMode::NO_UPDATE)}}));
    } catch (const css::lang::DisposedException&) {
      throw;
    } catch (const css::uno::Exception& e) {
      return openFailure(readableLoadFailure(fromUno(e.Message)));
    }
    if (!document.component.is()) return openFailure(readableLoadFailure({}));
    if (job.kind == OfficeJob::Kind::PdfDocument) {
      const Reference<css::text::XTextDocument> text(document.component, UNO_QUERY);
      if (!text.is()) return openFailure(QStringLiteral("it is not a text document"));
      return savePdf(text, job);
    }
    if (job.kind == OfficeJob::Kind::SlidePictures) {
      const Reference<css::lang::XServiceInfo> kind(document.component, UNO_QUERY);
      if (!kind.is() || !kind->supportsService("com.sun.star.presentation.PresentationDocument"))
        return openFailure(QStringLiteral("it is not a presentation"));
      return exportSlides(document.component, job);
    }
    const Reference<css::sheet::XSpreadsheetDocument> book(document.component, UNO_QUERY);
    if (!book.is()) return openFailure(QStringLiteral("it is not a workbook"));
    switch (job.kind) {
      case OfficeJob::Kind::SheetNames: return sheetNames(book);
      case OfficeJob::Kind::SheetPages: return saveSheets(book, job);
      case OfficeJob::Kind::WorkbookPage: return saveWorkbook(book, job);
      case OfficeJob::Kind::SheetPictures: return drawSheets(book, job);
      default: return openFailure(QStringLiteral("this office opens workbooks and presentations only"));
    }
  }

  static Reference<css::container::XIndexAccess> sheetsOf(const Reference<css::sheet::XSpreadsheetDocument>& book) {
    return {book->getSheets(), UNO_QUERY_THROW};
  }

  static OUString nameOf(const Any& sheet) {
    return Reference<css::container::XNamed>(sheet, UNO_QUERY_THROW)->getName();
  }

  static OfficeAnswer sheetNames(const Reference<css::sheet::XSpreadsheetDocument>& book) {
    OfficeAnswer answer;
    const auto sheets = sheetsOf(book);
    for (sal_Int32 i = 0; i < sheets->getCount(); ++i) answer.names << fromUno(nameOf(sheets->getByIndex(i)));
    return answer;
  }

  // LibreOffice saves a workbook as one page holding every sheet with content; for one
  // sheet the others leave the loaded copy first, so the page never holds them. Every
  // sheet means every visible one: hidden sheets are left out unless asked for by number.
  OfficeAnswer saveSheets(const Reference<css::sheet::XSpreadsheetDocument>& book, const OfficeJob& job) {
    const auto sheets = sheetsOf(book);
    const int count = int(sheets->getCount());
    if (job.sheet < 0 || job.sheet > count)
      return failure("SetSheet",
                     QStringLiteral("the workbook has %1 sheet(s); there is no sheet %2").arg(count).arg(job.sheet));
    OfficeAnswer answer;
    std::vector<OUString> leaving;
    for (int number = 1; number <= count; ++number) {
      const Any sheet = sheets->getByIndex(number - 1);
      const bool kept =
          job.sheet
              ? number == job.sheet
              : Reference<css::beans::XPropertySet>(sheet, UNO_QUERY_THROW)->getPropertyValue("IsVisible").get<bool>();
      if (kept)
        answer.sheets << number;
      else
        leaving.push_back(nameOf(sheet));
    }
    if (answer.sheets.isEmpty()) return answer;  // nothing visible: no page
    const Reference<css::container::XNameContainer> byName(book->getSheets(), UNO_QUERY_THROW);
    for (const OUString& name : leaving) byName->removeByName(name);
    // LibreOffice leaves hidden sheets out of the page: one asked for by number is shown.
    for (sal_Int32 i = 0; i < sheets->getCount(); ++i)
      Reference<css::beans::XPropertySet>(sheets->getByIndex(i), UNO_QUERY_THROW)
          ->setPropertyValue("IsVisible", Any(true));
    channel_.noticeStage(QStringLiteral("SaveAs"));
    storeAsWebPage(book, job.target);
    return answer;
  }

  OfficeAnswer saveWorkbook(const Reference<css::sheet::XSpreadsheetDocument>& book, const OfficeJob& job) {
    OfficeAnswer answer;
    const auto sheets = sheetsOf(book);
    for (sal_Int32 i = 0; i < sheets->getCount(); ++i)
      if (holdsContent(sheets->getByIndex(i))) answer.sheets << int(i + 1);
    channel_.noticeStage(QStringLiteral("SaveAs"));
    storeAsWebPage(book, job.target);
    return answer;
  }

  static bool holdsContent(const Any& sheet) {
    const sal_Int16 filled = css::sheet::CellFlags::VALUE | css::sheet::CellFlags::DATETIME |
                             css::sheet::CellFlags::STRING | css::sheet::CellFlags::FORMULA;
    return Reference<css::sheet::XCellRangesQuery>(sheet, UNO_QUERY_THROW)->queryContentCells(filled)->getCount() > 0;
  }

  static bool isVisible(const Any& sheet) {
    return Reference<css::beans::XPropertySet>(sheet, UNO_QUERY_THROW)->getPropertyValue("IsVisible").get<bool>();
  }

  // Each sheet's used range as one picture at the screen's 96 pixels per inch, as the range
  // would look copied as a picture: LibreOffice draws the first page of a workbook, so the
  // sheet drawn is made the first, its print area its used range and its page exactly that
  // range's size without margins, header or footer. Sheets without content are skipped, and
  // hidden ones unless asked for by number.
  OfficeAnswer drawSheets(const Reference<css::sheet::XSpreadsheetDocument>& book, const OfficeJob& job) {
    channel_.noticeStage(QStringLiteral("SaveAs"));
    const auto sheets = sheetsOf(book);
    const Reference<css::container::XNameContainer> byName(book->getSheets(), UNO_QUERY_THROW);
    const Reference<css::container::XNameAccess> pageStyles(
        Reference<css::style::XStyleFamiliesSupplier>(book, UNO_QUERY_THROW)
            ->getStyleFamilies()
            ->getByName("PageStyles"),
        UNO_QUERY_THROW);
    const QString drawn = job.target + QStringLiteral(".sheet.png");
    OfficeAnswer answer;
    const int count = int(sheets->getCount());
    for (int number = 1; number <= count; ++number) {
      const Any sheet = sheets->getByIndex(0);  // the earlier ones are gone
      const bool wanted = job.sheet ? number == job.sheet : isVisible(sheet);
      if (wanted && holdsContent(sheet)) {
        const QString name = job.target + PadNumber(number, 3, 0) + u'.' + job.imageType;
        if (drawFirstSheet(book, sheet, pageStyles, drawn) && clsSaveBitmapAs().SavePictureFromHDC(QImage(drawn), name))
          answer.files << name;
        QFile::remove(drawn);
      }
      if (sheets->getCount() > 1) byName->removeByName(nameOf(sheet));
    }
    return answer;
  }

  static bool drawFirstSheet(const Reference<css::sheet::XSpreadsheetDocument>& book, const Any& sheet,
                             const Reference<css::container::XNameAccess>& pageStyles, const QString& target) {
    const Reference<css::sheet::XSpreadsheet> cells(sheet, UNO_QUERY_THROW);
    const Reference<css::sheet::XSheetCellCursor> used = cells->createCursor();
    const Reference<css::sheet::XUsedAreaCursor> area(used, UNO_QUERY_THROW);
    area->gotoStartOfUsedArea(false);
    area->gotoEndOfUsedArea(true);
    const css::table::CellRangeAddress range =
        Reference<css::sheet::XCellRangeAddressable>(used, UNO_QUERY_THROW)->getRangeAddress();
    Reference<css::sheet::XPrintAreas>(sheet, UNO_QUERY_THROW)
        ->setPrintAreas(css::uno::Sequence<css::table::CellRangeAddress>(&range, 1));
    const css::awt::Size size =
        Reference<css::beans::XPropertySet>(used, UNO_QUERY_THROW)->getPropertyValue("Size").get<css::awt::Size>();
    const OUString styleName =
        Reference<css::beans::XPropertySet>(sheet, UNO_QUERY_THROW)->getPropertyValue("PageStyle").get<OUString>();
    const Reference<css::beans::XPropertySet> page(pageStyles->getByName(styleName), UNO_QUERY_THROW);
    for (const char* off : {"HeaderIsOn", "FooterIsOn"})
      page->setPropertyValue(OUString::createFromAscii(off), Any(false));
    for (const char* margin : {"LeftMargin", "RightMargin", "TopMargin", "BottomMargin"})
      page->setPropertyValue(OUString::createFromAscii(margin), Any(sal_Int32(0)));
    page->setPropertyValue("Width", Any(std::max<sal_Int32>(size.Width, 100)));
    page->setPropertyValue("Height", Any(std::max<sal_Int32>(size.Height, 100)));
    page->setPropertyValue("ScaleToPagesX", Any(sal_Int16(1)));
    page->setPropertyValue("ScaleToPagesY", Any(sal_Int16(1)));
    Reference<css::frame::XStorable>(book, UNO_QUERY_THROW)
        ->storeToURL(toUno(fileUrl(target)), properties({{"FilterName", Any(OUString("calc_png_Export"))}}));
    return QFileInfo(target).size() > 0;
  }

  static void storeAsWebPage(const Reference<css::sheet::XSpreadsheetDocument>& book, const QString& target) {
    const Reference<css::frame::XStorable> storable(book, UNO_QUERY_THROW);
    storable->storeToURL(toUno(fileUrl(target)), properties({{"FilterName", Any(OUString("HTML (StarCalc)"))}}));
  }

  // The document as the printer receives it, and the size of its first page (which decides
  // the paper the printer is set to), in the office's hundredths of a millimetre.
  OfficeAnswer savePdf(const Reference<css::text::XTextDocument>& text, const OfficeJob& job) {
    channel_.noticeStage(QStringLiteral("SaveAs"));
    const Reference<css::text::XTextCursor> start = text->getText()->createTextCursor();
    start->gotoStart(false);
    const OUString style =
        Reference<css::beans::XPropertySet>(start, UNO_QUERY_THROW)->getPropertyValue("PageStyleName").get<OUString>();
    const Reference<css::container::XNameAccess> pageStyles(
        Reference<css::style::XStyleFamiliesSupplier>(text, UNO_QUERY_THROW)
            ->getStyleFamilies()
            ->getByName("PageStyles"),
        UNO_QUERY_THROW);
    const Reference<css::beans::XPropertySet> page(pageStyles->getByName(style), UNO_QUERY_THROW);
    const auto side = [&](const char* name) {
      return page->getPropertyValue(OUString::createFromAscii(name)).get<sal_Int32>();
    };
    OfficeAnswer answer;
    answer.firstPage = QSize(side("Width"), side("Height"));
    Reference<css::frame::XStorable>(text, UNO_QUERY_THROW)
        ->storeToURL(toUno(fileUrl(job.target)), properties({{"FilterName", Any(OUString("writer_pdf_Export"))}}));
    return answer;
  }

  // A slide's size (in hundredths of a millimetre) in pixels at 96 per inch.
  static css::uno::Sequence<css::beans::PropertyValue> pixelSize(const Any& slide) {
    const Reference<css::beans::XPropertySet> page(slide, UNO_QUERY_THROW);
    const auto pixels = [&](const char* side) {
      return Any(sal_Int32(
          std::lround(page->getPropertyValue(OUString::createFromAscii(side)).get<sal_Int32>() * 96.0 / 2540)));
    };
    return properties({{"PixelWidth", pixels("Width")}, {"PixelHeight", pixels("Height")}});
  }

  // Every slide, hidden ones included, so that picture i is slide i; each at the slide's
  // own size in pixels (96 per inch). LibreOffice writes a slide as a TIFF in a quarter of
  // the time it takes to write it as a PNG (measured: 18 against 75 ms), so it writes TIFFs,
  // and the other cores encode them (the same encoder as every other picture of ours,
  // the GIF palette included) while it draws the next slides.
  OfficeAnswer exportSlides(const Reference<css::lang::XComponent>& deck, const OfficeJob& job) {
    channel_.noticeStage(QStringLiteral("SaveAs"));
    const Reference<css::container::XIndexAccess> slides(
        Reference<css::drawing::XDrawPagesSupplier>(deck, UNO_QUERY_THROW)->getDrawPages(), UNO_QUERY_THROW);
    QDir().mkpath(QFileInfo(job.target).absolutePath());
    const Reference<css::drawing::XGraphicExportFilter> exporter = css::drawing::GraphicExportFilter::create(remote_);
    QSemaphore room(2 * QThread::idealThreadCount());  // drawn slides never pile up
    QThreadPool encoders;                              // waits for its encoders, even on an error
    OfficeAnswer answer;
    for (sal_Int32 i = 0; i < slides->getCount(); ++i) {
      const QString number = job.target + QString::number(i + 1);
      const QString bitmap = number + QStringLiteral(".tif");
      const Any slide = slides->getByIndex(i);
      exporter->setSourceDocument(Reference<css::lang::XComponent>(slide, UNO_QUERY_THROW));
      exporter->filter(properties({{"URL", Any(toUno(fileUrl(bitmap)))},
                                   {"MediaType", Any(OUString("image/tiff"))},
                                   {"FilterData", Any(pixelSize(slide))}}));
      const QString name = number + u'.' + job.imageType;
      room.acquire();
      encoders.start([&room, bitmap, name] {
        // A slide is opaque: three channels encode faster than four.
        const QImage drawn = QImage(bitmap).convertToFormat(QImage::Format_RGB888);
        QFile::remove(bitmap);
        clsSaveBitmapAs().SavePictureFromHDC(drawn, name);  // a slide that failed is missing from the folder
        room.release();
      });
      answer.files << name;
    }
    encoders.waitForDone();
    return answer;
  }

  WorkerChannel& channel_;
  pid_t office_ = -1;
  Reference<css::uno::XComponentContext> local_;
  Reference<css::uno::XComponentContext> remote_;
  Reference<css::frame::XDesktop2> desktop_;
  QString startFailure_;
};

}  // namespace

void runUnoWorker(const QString& profileFolder) {
  WorkerChannel channel;
  UnoOffice office(channel);
  office.start(profileFolder);
  channel.announceReady();
  channel.serve([&](const OfficeJob& job) { return office.run(job); });
  _exit(0);  // the office goes with this process
}

}  // namespace velmora
