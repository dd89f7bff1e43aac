#include "cli/PrinterCommand.h"

#include <unistd.h>
#include <QCoreApplication>
#include <QFileInfo>
#include <cstdio>

#include "cli/Output.h"
#include "printing/PrinterQueue.h"

namespace velmora::cli {

namespace {

// The backend ships beside this program (the build folder), or in the package's own
// program folder.
QString backendProgram() {
  const QString beside = QCoreApplication::applicationDirPath() + QStringLiteral("/velmora-printer-backend");
  return QFileInfo(beside).isExecutable() ? beside : QStringLiteral("/usr/lib/velmora/velmora-printer-backend");
}

}  // namespace

int runPrinter(const QStringList& args) {
  QString serverBin = PrinterQueue::defaultServerBin();
  QString action;
  for (qsizetype i = 0; i < args.size(); ++i) {
    if (args[i] == u"--server-bin" && i + 1 < args.size())
      serverBin = args[++i];
    else if (action.isEmpty() && (args[i] == u"install" || args[i] == u"remove" || args[i] == u"status"))
      action = args[i];
    else
      throw UsageError(QStringLiteral("printer: unknown argument ") + args[i]);
  }
  if (action.isEmpty()) throw UsageError(QStringLiteral("printer needs install, remove or status"));
  const PrinterQueue queue(serverBin);
  if (action == u"status") {
    std::printf("VelmoraPrinter: %s\n", qPrintable(queue.status()));
    return queue.status() == u"installed" ? ExitOk : ExitWorkFailed;
  }
  if (geteuid() != 0) std::fputs("velmora: printer install and remove usually need root (sudo)\n", stderr);
  const Outcome done = action == u"install" ? queue.install(backendProgram()) : queue.remove();
  if (!done) {
    std::fprintf(stderr, "velmora: %s\n", qPrintable(done.failure().description));
    return ExitWorkFailed;
  }
  std::printf("VelmoraPrinter: %s\n", qPrintable(queue.status()));
  return ExitOk;
}

}  // namespace velmora::cli
