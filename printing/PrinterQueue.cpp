#include "printing/PrinterQueue.h"

#include <cups/cups.h>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSaveFile>
#include <QStandardPaths>
#include <QTemporaryFile>
#include <cmath>

#include "printing/Papers.h"
#include "printing/clsStrandelAPI.h"

namespace velmora {

namespace {

const QString kQueue = QStringLiteral("VelmoraPrinter");

// The queue takes PDF as it comes (no filter: the backend draws the pages itself), on the
// named papers (added below) or any custom size.
constexpr const char* kDescription = R"ppd(*PPD-Adobe: "4.3"
*FormatVersion: "4.3"
*FileVersion: "1.0"
*LanguageVersion: English
*LanguageEncoding: ISOLatin1
*PCFileName: "VELMORA.PPD"
*Manufacturer: "Velmora"
*Product: "(Velmora)"
*ModelName: "Velmora virtual printer"
*ShortNickName: "Velmora virtual printer"
*NickName: "Velmora virtual printer, pages to pictures"
*PSVersion: "(3010.000) 0"
*LanguageLevel: "3"
*ColorDevice: True
*DefaultColorSpace: RGB
*FileSystem: False
*Throughput: "1"
*LandscapeOrientation: Plus90
*TTRasterizer: Type42
*cupsVersion: 2.4
*cupsFilter2: "application/pdf application/vnd.cups-pdf 0 -"
*VariablePaperSize: True
*MaxMediaWidth: "3024"
*MaxMediaHeight: "3024"
*HWMargins: 0 0 0 0
*CustomPageSize True: "pop pop pop <</PageSize[5 -2 roll]/ImagingBBox null>>setpagedevice"
*ParamCustomPageSize Width: 1 points 36 3024
*ParamCustomPageSize Height: 2 points 36 3024
*ParamCustomPageSize WidthOffset: 3 points 0 0
*ParamCustomPageSize HeightOffset: 4 points 0 0
*ParamCustomPageSize Orientation: 5 int 0 0
)ppd";

// The named papers, in PostScript points, as the description lists them.
QByteArray paperLines() {
  const auto points = [](int microns) { return QByteArray::number(std::lround(microns * 72.0 / 25400)); };
  QByteArray sizes, regions, areas, dimensions;
  for (const NamedPaper& paper : kNamedPapers) {
    const QByteArray name = paper.name, wide = points(paper.size.width()), high = points(paper.size.height());
    const QByteArray setup = "\"<</PageSize[" + wide + " " + high + "]/ImagingBBox null>>setpagedevice\"\n";
    sizes += "*PageSize " + name + "/" + name + ": " + setup;
    regions += "*PageRegion " + name + "/" + name + ": " + setup;
    areas += "*ImageableArea " + name + "/" + name + ": \"0 0 " + wide + " " + high + "\"\n";
    dimensions += "*PaperDimension " + name + "/" + name + ": \"" + wide + " " + high + "\"\n";
  }
  return "*OpenUI *PageSize/Media Size: PickOne\n*OrderDependency: 10 AnySetup *PageSize\n*DefaultPageSize: A4\n" +
         sizes + "*CloseUI: *PageSize\n*OpenUI *PageRegion/Media Size: PickOne\n" +
         "*OrderDependency: 10 AnySetup *PageRegion\n*DefaultPageRegion: A4\n" + regions +
         "*CloseUI: *PageRegion\n*DefaultImageableArea: A4\n" + areas + "*DefaultPaperDimension: A4\n" + dimensions;
}

Failure queueFailure(const QString& why) { return {QStringLiteral("Printer:"), why}; }

// Runs a print-system tool; what it said when it failed, or "".
QString run(const QString& tool, const QStringList& arguments) {
  QProcess process;
  process.setProcessChannelMode(QProcess::MergedChannels);
  process.start(QStandardPaths::findExecutable(tool, {QStringLiteral("/usr/sbin"), QStringLiteral("/usr/bin")}),
                arguments);
  if (!process.waitForFinished(30000)) {
    process.kill();
    return tool + QStringLiteral(" did not finish");
  }
  if (process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0) return {};
  const QString said = QString::fromLocal8Bit(process.readAll()).trimmed();
  return said.isEmpty() ? tool + QStringLiteral(" failed") : said;
}

}  // namespace

PrinterQueue::PrinterQueue(QString serverBin) : serverBin_(std::move(serverBin)) {}

QString PrinterQueue::defaultServerBin() { return QStringLiteral("/usr/lib/cups"); }

QString PrinterQueue::backendPath() const { return serverBin_ + QStringLiteral("/backend/velmora"); }

Outcome PrinterQueue::install(const QString& backendProgram) const {
  if (!QFileInfo(backendProgram).isExecutable())
    return queueFailure(QStringLiteral("the backend ") + backendProgram + QStringLiteral(" was not found"));
  QFile program(backendProgram);
  QSaveFile backend(backendPath());
  if (!program.open(QIODevice::ReadOnly) || !backend.open(QIODevice::WriteOnly) ||
      backend.write(program.readAll()) < 0 || !backend.commit())
    return queueFailure(QStringLiteral("cannot write ") + backendPath() + QStringLiteral(": ") + backend.errorString());
  QFile::setPermissions(backendPath(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
  QTemporaryFile description;
  if (!description.open() || description.write(kDescription + paperLines()) < 0 || !description.flush())
    return queueFailure(QStringLiteral("cannot write the printer's description"));
  const QString said =
      run(QStringLiteral("lpadmin"), {QStringLiteral("-p"), kQueue, QStringLiteral("-E"), QStringLiteral("-v"),
                                      QStringLiteral("velmora:/"), QStringLiteral("-P"), description.fileName(),
                                      QStringLiteral("-o"), QStringLiteral("printer-is-shared=false")});
  if (!said.isEmpty()) return queueFailure(said);
  return {};
}

Outcome PrinterQueue::remove() const {
  if (clsStrandelAPI().IsPrinterExist(kQueue))
    if (const QString said = run(QStringLiteral("lpadmin"), {QStringLiteral("-x"), kQueue}); !said.isEmpty())
      return queueFailure(said);
  if (QFileInfo::exists(backendPath()) && !QFile::remove(backendPath()))
    return queueFailure(QStringLiteral("cannot remove ") + backendPath());
  return {};
}

QString PrinterQueue::status() const {
  const bool queue = clsStrandelAPI().IsPrinterExist(kQueue);
  const bool backend = QFileInfo(backendPath()).isExecutable();
  if (queue && backend) return QStringLiteral("installed");
  if (!queue && !backend) return QStringLiteral("not installed");
  return queue ? QStringLiteral("the queue exists but its backend ") + backendPath() + QStringLiteral(" is missing")
               : QStringLiteral("the backend is installed but the queue VelmoraPrinter is missing");
}

}  // namespace velmora
