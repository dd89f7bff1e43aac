#include "printing/clsStrandelAPI.h"

#include <cups/cups.h>
#include <unistd.h>

#include <QElapsedTimer>
#include <QProcess>
#include <QStandardPaths>

#include "core/ScriptError.h"
#include "core/Yield.h"
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

// The connection time-out the print system itself uses for its default server.
constexpr int kConnectTimeoutMs = 30000;
constexpr int kStartTimeoutMs = 30000;

}  // namespace

bool clsStrandelAPI::IsPrinterExist(const QString& s_PrinterName) const {
  if (s_PrinterName.isEmpty()) return false;
  cups_dest_t* destinations = nullptr;
  const int count = cupsGetDests2(CUPS_HTTP_DEFAULT, &destinations);
  const QByteArray wanted = s_PrinterName.toUtf8();
  bool found = false;
  for (int i = 0; i < count && !found; ++i) found = wanted == destinations[i].name;
  cupsFreeDests(count, destinations);
  return found;
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
  // interactively.
  const QString systemctl = QStandardPaths::findExecutable(QStringLiteral("systemctl"));
  if (geteuid() == 0 && !systemctl.isEmpty()) {
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

}  // namespace velmora
