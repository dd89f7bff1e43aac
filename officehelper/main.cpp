// velmora-office: the user's office helper. Started by the first program that needs an
// office conversion; serves every program of the user on a socket in the runtime folder;
// leaves after idle minutes. Run with "--worker PROFILE" it is the process that holds
// LibreOffice for text documents, with "--uno-worker PROFILE" the one that drives it for
// workbooks and presentations (both started by the helper, never by hand).
#include <QCommandLineParser>
#include <QCoreApplication>
#include <cstdio>

#include "office/OfficeAutomation.h"
#include "officehelper/LibreOfficeWorker.h"
#include "officehelper/OfficeBroker.h"
#include "officehelper/UnoWorker.h"

using namespace velmora;

namespace {

// A positive whole number from the option, else from the environment variable, else the default.
int positiveSetting(const QCommandLineParser& args, const QString& option, const char* variable, int fallback) {
  bool ok = false;
  int value = args.value(option).toInt(&ok);
  if (!ok) value = qEnvironmentVariableIntValue(variable, &ok);
  return ok && value > 0 ? value : fallback;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && QByteArray(argv[1]) == "--worker") runLibreOfficeWorker(QString::fromLocal8Bit(argv[2]));
  if (argc == 3 && QByteArray(argv[1]) == "--uno-worker") runUnoWorker(QString::fromLocal8Bit(argv[2]));

  QCoreApplication app(argc, argv);
  QCoreApplication::setApplicationName(QStringLiteral("velmora-office"));
  QCommandLineParser args;
  args.setApplicationDescription(QStringLiteral("Serves office conversions to the user's Velmora programs."));
  args.addHelpOption();
  args.addOptions({
      {"socket", "Listen on <path> instead of the runtime folder's velmora-office.", "path"},
      {"time-limit", "Seconds one document may take (VELMORA_OFFICE_TIME_LIMIT; 60).", "seconds"},
      {"idle", "Seconds without callers before the helper leaves (VELMORA_OFFICE_IDLE; 300).", "seconds"},
      {"documents", "Documents one LibreOffice serves before it starts afresh (50).", "count"},
      {"memory-mb", "Resident megabytes past which LibreOffice starts afresh (600).", "megabytes"},
  });
  args.process(app);

  BrokerSettings settings;
  settings.socketPath = args.isSet("socket") ? args.value("socket") : officeHelperSocketPath();
  settings.profileFolder = officeHelperProfileFolder();
  settings.timeLimitSeconds =
      positiveSetting(args, "time-limit", "VELMORA_OFFICE_TIME_LIMIT", settings.timeLimitSeconds);
  settings.idleSeconds = positiveSetting(args, "idle", "VELMORA_OFFICE_IDLE", settings.idleSeconds);
  settings.documentsPerWorker =
      positiveSetting(args, "documents", "VELMORA_OFFICE_DOCUMENTS", settings.documentsPerWorker);
  settings.memoryLimitMb = positiveSetting(args, "memory-mb", "VELMORA_OFFICE_MEMORY_MB", int(settings.memoryLimitMb));

  OfficeBroker broker(settings);
  QString error;
  if (!broker.listen(error)) {
    std::fprintf(stderr, "velmora-office: %s\n", qPrintable(error));
    return 1;
  }
  return app.exec();
}
