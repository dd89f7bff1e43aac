#include "cli/CleanCommand.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonObject>

#include "cleanup/CleanupRun.h"
#include "cli/Output.h"
#include "support/basPublic.h"

namespace velmora::cli {

namespace {

struct CleanRequest {
  QString engine;
  QString source = QStringLiteral("import");
  QString options;
  QString extraCssFile;
  QString styleOut;
  QString bodyOut;
  bool trace = false;
  QString file;
};

CleanRequest parse(const QStringList& args) {
  CleanRequest request;
  for (qsizetype i = 0; i < args.size(); ++i) {
    const QString& arg = args[i];
    auto value = [&]() -> QString {
      if (i + 1 >= args.size()) throw UsageError(arg + QStringLiteral(" needs a value"));
      return args[++i];
    };
    if (arg == u"--engine")
      request.engine = value();
    else if (arg == u"--source")
      request.source = value();
    else if (arg == u"--opt")
      request.options = value();
    else if (arg == u"--extra-css")
      request.extraCssFile = value();
    else if (arg == u"--style-out")
      request.styleOut = value();
    else if (arg == u"--body-out")
      request.bodyOut = value();
    else if (arg == u"--trace")
      request.trace = true;
    else if (arg.startsWith(u"--"))
      throw UsageError(QStringLiteral("unknown option: ") + arg);
    else if (request.file.isEmpty())
      request.file = arg;
    else
      throw UsageError(QStringLiteral("one input file only"));
  }
  if (!cleanupEngines().contains(request.engine))
    throw UsageError(QStringLiteral("--engine wants one of: ") + cleanupEngines().join(u", "));
  if (!cleanupSources().contains(request.source)) throw UsageError(QStringLiteral("--source wants import or paste"));
  if (request.file.isEmpty()) throw UsageError(QStringLiteral("missing: the HTML file to clean"));
  if (request.styleOut.isEmpty() != request.bodyOut.isEmpty())
    throw UsageError(QStringLiteral("--style-out and --body-out go together"));
  if (!request.extraCssFile.isEmpty() && request.engine != u"wps-excel")
    throw UsageError(QStringLiteral("--extra-css belongs to --engine wps-excel"));
  return request;
}

QString readInput(const QString& path) {
  if (!FileExists(path)) throw UsageError(QStringLiteral("cannot read ") + path + QStringLiteral(": not a file"));
  QFile probe(path);
  if (!probe.open(QIODevice::ReadOnly))
    throw UsageError(QStringLiteral("cannot read ") + path + QStringLiteral(": ") + probe.errorString());
  return ReadTextFile(path);
}

void writeOutput(const QString& path, const QString& text) {
  QFile file(path);
  if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(text.toUtf8()) < 0)
    throw UsageError(QStringLiteral("cannot write ") + path + QStringLiteral(": ") + file.errorString());
}

}  // namespace

int runClean(const QStringList& arguments) {
  const CleanRequest request = parse(arguments);
  CleanupJob job{request.engine, request.source, request.options, readInput(request.file), {}, request.trace};
  if (!request.extraCssFile.isEmpty()) job.extraCss = readInput(request.extraCssFile);
  QJsonObject out = runCleanup(job, Context::process());
  if (!request.styleOut.isEmpty()) {
    writeOutput(request.styleOut, out.take(QStringLiteral("Style")).toString());
    writeOutput(request.bodyOut, out.take(QStringLiteral("Body")).toString());
  }
  if (!out.isEmpty()) printJson(out);
  return ExitOk;
}

}  // namespace velmora::cli
