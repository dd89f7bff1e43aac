#include "printing/clsStrandelAPI.h"

#include <cups/cups.h>
#include <unistd.h>
#include <QElapsedTimer>
#include <QFile>
#include <QList>
#include <QProcess>
#include <QStandardPaths>
#include <climits>
#include <cmath>
#include <optional>

#include "core/ScriptError.h"
#include "core/Yield.h"
#include "printing/Papers.h"
#include "support/basPublic.h"
#include "support/clsRegistry.h"

namespace velmora {
namespace {

// The printer's settings, as its backend reads them.
clsRegistry settingOf(const QString& printer, const QString& name) {
  clsRegistry registry;
  registry.setAccess64bit(true);
  registry.setClassKey(registryroot::LocalMachine);
  registry.setSectionKey(QStringLiteral("SOFTWARE\\") + printer);
  registry.setValueType(registrytype::String);
  registry.setValueKey(name);
  return registry;
}

// The forms added to the printer: value name = form name, text "<width>x<height>" in
// thousandths of a millimetre.
clsRegistry formsOf(const QString& printer) {
  clsRegistry registry = settingOf(printer, QString());
  registry.setSectionKey(QStringLiteral("SOFTWARE\\") + printer + QStringLiteral("\\Forms"));
  return registry;
}

struct Form {
  QString name;
  QSize size;  // thousandths of a millimetre
  bool added;
};

// The papers of the virtual printer's description. Other destinations are taken to offer
// the same: their own papers are not asked for.
QList<Form> namedPapers() {
  QList<Form> papers;
  for (const NamedPaper& paper : kNamedPapers) papers.append({QString::fromLatin1(paper.name), paper.size, false});
  return papers;
}

std::optional<QSize> sizeFromText(const QString& text) {
  const QStringList sides = text.split(u'x');
  bool wide = false, high = false;
  const QSize size = sides.size() == 2 ? QSize(sides[0].toInt(&wide), sides[1].toInt(&high)) : QSize();
  if (!wide || !high || size.width() <= 0 || size.height() <= 0) return std::nullopt;
  return size;
}

// Added forms whose text is not a size are not forms: skipped.
QList<Form> addedForms(const QString& printer) {
  QList<Form> forms;
  clsRegistry registry = formsOf(printer);
  for (const QString& name : registry.EnumerateValues()) {
    registry.setValueKey(name);
    if (const std::optional<QSize> size = sizeFromText(registry.Value().toString())) forms.append({name, *size, true});
  }
  return forms;
}

std::optional<Form> formNamed(const QString& printer, const QString& name) {
  for (const Form& paper : namedPapers())
    if (paper.name.compare(name, Qt::CaseInsensitive) == 0) return paper;
  for (const Form& form : addedForms(printer))
    if (form.name.compare(name, Qt::CaseInsensitive) == 0) return form;
  return std::nullopt;
}

// Thousandths of a millimetre as millimetres, without trailing zeros: 215900 is "215.9".
QString millimetres(int thousandths) {
  QString text = QString::number(thousandths / 1000.0, 'f', 3);
  while (text.endsWith(u'0')) text.chop(1);
  if (text.endsWith(u'.')) text.chop(1);
  return text;
}

// The user's destinations, their options merged from the lpoptions files, for one change.
class Destinations {
 public:
  Destinations() { count_ = cupsGetDests2(CUPS_HTTP_DEFAULT, &all_); }
  ~Destinations() { cupsFreeDests(count_, all_); }
  Destinations(const Destinations&) = delete;
  Destinations& operator=(const Destinations&) = delete;

  // The destination itself, not one of its instances; the library's own look-up ignores case.
  cups_dest_t* named(const QString& name) const {
    const QByteArray wanted = name.toUtf8();
    for (int i = 0; i < count_; ++i)
      if (!all_[i].instance && wanted == all_[i].name) return &all_[i];
    return nullptr;
  }
  QString defaultName() const {
    for (int i = 0; i < count_; ++i)
      if (all_[i].is_default)
        return QString::fromUtf8(all_[i].name) +
               (all_[i].instance ? u'/' + QString::fromUtf8(all_[i].instance) : QString());
    return {};
  }
  void makeDefault(const cups_dest_t* chosen) {
    for (int i = 0; i < count_; ++i) all_[i].is_default = &all_[i] == chosen;
  }
  // Writes the user's lpoptions.
  bool save() const { return cupsSetDests2(CUPS_HTTP_DEFAULT, count_, all_) == 0; }

 private:
  int count_ = 0;
  cups_dest_t* all_ = nullptr;
};

bool setUserOption(const QString& printer, const char* option, const QString& value) {
  if (printer.isEmpty()) return false;
  Destinations destinations;
  cups_dest_t* destination = destinations.named(printer);
  if (!destination) return false;
  destination->num_options =
      cupsAddOption(option, value.toUtf8().constData(), destination->num_options, &destination->options);
  return destinations.save();
}

// The connection time-out the print system itself uses for its default server.
constexpr int kConnectTimeoutMs = 30000;
constexpr int kStartTimeoutMs = 30000;

}  // namespace

bool clsStrandelAPI::IsPrinterExist(const QString& s_PrinterName) const {
  return Destinations().named(s_PrinterName) != nullptr;
}

bool clsStrandelAPI::SetParam(const QString& s_PrinterName, const QString& s_Key, const QString& s_Value) {
  try {
    clsRegistry registry = settingOf(s_PrinterName, s_Key);
    registry.setValue(s_Value);
    return true;
  } catch (const ScriptError&) {
    return false;
  }
}

QString clsStrandelAPI::GetParam(const QString& s_PrinterName, const QString& s_Key) {
  try {
    clsRegistry registry = settingOf(s_PrinterName, s_Key);
    const QString text = registry.Value().toString();
    return text.left(text.indexOf(QChar(0)));  // the backend reads a value up to its first NUL too
  } catch (const ScriptError&) {
    return {};
  }
}

int32_t clsStrandelAPI::GetFileCount(const QString& s_PrinterName) {
  return GetParam(s_PrinterName, QStringLiteral("r_filecount")).toInt();
}

int32_t clsStrandelAPI::GetPageCount(const QString& s_PrinterName) {
  return GetParam(s_PrinterName, QStringLiteral("r_pagecount")).toInt();
}

bool clsStrandelAPI::ResetStatus(const QString& s_PrinterName) {
  // Every value is written even after one fails: as much of the old job's progress as
  // possible is gone.
  bool written = SetParam(s_PrinterName, QStringLiteral("progressflag"), QStringLiteral("apicall"));
  written &= SetParam(s_PrinterName, QStringLiteral("r_filecount"), QStringLiteral("0"));
  written &= SetParam(s_PrinterName, QStringLiteral("r_pagecount"), QStringLiteral("0"));
  return written;
}

bool clsStrandelAPI::IsEnd(const QString& s_PrinterName, int32_t l_BeginTimeOut, int32_t l_EndTimeOut) {
  // Kept here: the page may release this object while the wait lets its events run.
  const int interval = pollIntervalMs_;
  QElapsedTimer clock;
  clock.start();
  bool begun = false;
  for (;;) {
    WaitMs(interval);
    const QString flag = GetParam(s_PrinterName, QStringLiteral("progressflag"));
    if (flag == u"end") return true;
    if (flag == u"begin") begun = true;
    const qint64 seconds = clock.elapsed() / 1000;
    if (seconds > l_BeginTimeOut && !begun) return false;
    if (seconds > l_EndTimeOut) return false;
    letPendingEventsRun();
  }
}

bool clsStrandelAPI::IsPrintSpoolerRunning() const {
  http_t* http =
      httpConnect2(cupsServer(), ippPort(), nullptr, AF_UNSPEC, cupsEncryption(), 1, kConnectTimeoutMs, nullptr);
  if (!http) return false;
  // Connecting is not enough (a stale socket file, a server still starting): it must answer
  // a request. "Not found" is its answer when it has no printers.
  cups_dest_t* destinations = nullptr;
  const int count = cupsGetDests2(http, &destinations);
  const ipp_status_t status = cupsLastError();
  cupsFreeDests(count, destinations);
  httpClose(http);
  return status < IPP_STATUS_REDIRECTION_OTHER_SITE || status == IPP_STATUS_ERROR_NOT_FOUND;
}

bool clsStrandelAPI::StartPrintSpooler() {
  if (IsPrintSpoolerRunning()) return true;
  // The print server is the system's: a user may not start it, and asking systemd as one
  // would only wait on a password prompt nobody sees. Root may, so root asks, never
  // interactively; but not when CUPS_SERVER names another server, which starting the
  // system's would not bring up.
  const QString systemctl = QStandardPaths::findExecutable(QStringLiteral("systemctl"));
  if (geteuid() == 0 && !systemctl.isEmpty() && qEnvironmentVariableIsEmpty("CUPS_SERVER")) {
    QProcess start;
    start.start(systemctl,
                {QStringLiteral("--no-ask-password"), QStringLiteral("start"), QStringLiteral("cups.service")});
    if (start.waitForStarted() &&
        !letEventsRunUntil([&] { return start.state() == QProcess::NotRunning; }, kStartTimeoutMs)) {
      start.kill();
      start.waitForFinished();
    }
  }
  return IsPrintSpoolerRunning();
}

bool clsStrandelAPI::SetDefaultPrinter(const QString& s_PrinterName, QString& s_OriginalName) {
  Destinations destinations;
  s_OriginalName = destinations.defaultName();
  const cups_dest_t* chosen = s_PrinterName.isEmpty() ? nullptr : destinations.named(s_PrinterName);
  if (!chosen) return false;
  destinations.makeDefault(chosen);
  return destinations.save();
}

bool clsStrandelAPI::SetDefaultPaperSize(const QString& s_PrinterName, const QString& s_FormName) {
  const std::optional<Form> form = formNamed(s_PrinterName, s_FormName);
  if (!form) return false;
  const QString media = form->added ? QStringLiteral("Custom.") + millimetres(form->size.width()) + u'x' +
                                          millimetres(form->size.height()) + QStringLiteral("mm")
                                    : form->name;
  return setUserOption(s_PrinterName, "media", media);
}

bool clsStrandelAPI::AddPaperSize(const QString& s_PrinterName, const QString& s_FormName, double n_Width,
                                  double n_Height) {
  // Centimetres to thousandths of a millimetre; sizes that do not fit a QSize are refused.
  const auto thousandths = [](double centimetres) {
    const double scaled = std::round(centimetres * 10000);
    return std::isfinite(scaled) && scaled > 0 && scaled <= INT_MAX ? int(scaled) : 0;
  };
  return AddPaperForm(s_PrinterName, QSize(thousandths(n_Width), thousandths(n_Height)), s_FormName);
}

bool clsStrandelAPI::AddPaperForm(const QString& s_PrinterName, const QSize& size, const QString& s_FormName) {
  if (s_FormName.isEmpty() || size.width() <= 0 || size.height() <= 0 || !IsPrinterExist(s_PrinterName)) return false;
  if (formNamed(s_PrinterName, s_FormName)) return true;
  try {
    clsRegistry registry = formsOf(s_PrinterName);
    registry.setValueKey(s_FormName);
    registry.setValue(QStringLiteral("%1x%2").arg(size.width()).arg(size.height()));
    return true;
  } catch (const ScriptError&) {
    return false;
  }
}

bool clsStrandelAPI::GetFormIndex(const QString& s_PrinterName, const QString& s_FormName, QSize& size) {
  const std::optional<Form> form = formNamed(s_PrinterName, s_FormName);
  if (form) size = form->size;
  return form.has_value();
}

bool clsStrandelAPI::FindFormBySize(const QString& s_PrinterName, const QSize& size, QString& s_FormName) {
  QList<Form> forms = addedForms(s_PrinterName);
  forms.append(namedPapers());
  for (const Form& form : forms)
    if (form.size == size) {
      s_FormName = form.name;
      return true;
    }
  return false;
}

bool clsStrandelAPI::SetDefaultDPI(const QString& s_PrinterName, int x, int y) {
  if (x <= 0 || y <= 0) return false;
  const QString resolution = x == y ? QStringLiteral("%1dpi").arg(x) : QStringLiteral("%1x%2dpi").arg(x).arg(y);
  return setUserOption(s_PrinterName, "printer-resolution", resolution);
}

bool clsStrandelAPI::SetDefaultOrientation(const QString& s_PrinterName, int orientation) {
  // IPP's orientation-requested: 3 portrait, 4 landscape.
  if (orientation != 1 && orientation != 2) return false;
  return setUserOption(s_PrinterName, "orientation-requested", QString::number(orientation + 2));
}

bool clsStrandelAPI::PrintFile(const QString& file) {
  const Destinations destinations;
  const cups_dest_t* target = destinations.named(destinations.defaultName());
  if (!target) return false;
  const QByteArray path = QFile::encodeName(file);
  return cupsPrintFile2(CUPS_HTTP_DEFAULT, target->name, path.constData(), "Velmora", target->num_options,
                        target->options) > 0;
}

}  // namespace velmora
