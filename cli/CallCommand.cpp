#include "cli/CallCommand.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QGuiApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextStream>
#include <QThread>
#include <QTimer>
#include <cstdio>

#include "cli/Output.h"
#include "control/Velmora5.h"
#include "host/HostProcess.h"
#include "host/StandardProducers.h"
#include "server/Dispatch.h"
#include "core/ScriptError.h"

namespace velmora::cli {

namespace {

struct CallRequest {
  QString className = QStringLiteral("Velmora5");
  QList<QPair<QString, QString>> settings;
  int timeoutSeconds = 300;
  QString member;
  QVariantList arguments;
};

QString readStandardInput() {
  QFile in;
  if (!in.open(stdin, QIODevice::ReadOnly)) throw UsageError(QStringLiteral("cannot read standard input"));
  return QString::fromUtf8(in.readAll());
}

CallRequest parse(const QStringList& args) {
  CallRequest request;
  qsizetype i = 0;
  for (; i < args.size() && args[i] != u"call"; ++i) {
    const QString& option = args[i];
    if (i + 1 >= args.size()) throw UsageError(option + QStringLiteral(" needs a value"));
    const QString value = args[++i];
    if (option == u"--set") {
      const qsizetype eq = value.indexOf(u'=');
      if (eq <= 0) throw UsageError(QStringLiteral("--set wants Property=Value, got: ") + value);
      request.settings.append({value.left(eq), value.mid(eq + 1)});
    } else if (option == u"--timeout") {
      bool ok = false;
      request.timeoutSeconds = value.toInt(&ok);
      if (!ok || request.timeoutSeconds <= 0) throw UsageError(QStringLiteral("--timeout wants a number of seconds"));
    } else if (option == u"--class") {
      request.className = value;
    } else {
      throw UsageError(QStringLiteral("unknown option: ") + option);
    }
  }
  if (i + 1 >= args.size()) throw UsageError(QStringLiteral("missing: call Member [Argument]..."));
  request.member = args[i + 1];
  bool stdinUsed = false;
  for (const QString& argument : args.mid(i + 2)) {
    if (argument == u"-") {
      if (stdinUsed) throw UsageError(QStringLiteral("standard input can stand for one argument only"));
      stdinUsed = true;
      request.arguments.append(readStandardInput());
    } else {
      request.arguments.append(argument);
    }
  }
  return request;
}

bool showsWindow(const QString& member) {
  for (const char* name : {"DialogOpen", "DialogSave", "Capture"})
    if (member.compare(QLatin1String(name), Qt::CaseInsensitive) == 0) return true;
  return false;
}

enum class Waited { Finished, TimedOut, NothingUnderWay };

// Runs the event loop until Status reads "ok", the time limit passes, or the editor control
// has no work left that could change Status (a paste that found nothing of its kind).
Waited waitForStatus(const Dispatch& dispatch, const QObject& control, int timeoutSeconds) {
  QDeadlineTimer deadline{std::chrono::seconds(timeoutSeconds)};
  const auto* editor = qobject_cast<const Velmora5*>(&control);
  // Sleeps until something happens (processEvents with a time limit does not wait at all,
  // so it would spin); the tick makes sure the deadline is looked at.
  QTimer tick;
  tick.start(50);
  while (dispatch.get(QStringLiteral("Status")).toString() != u"ok") {
    if (editor && !editor->hasWorkUnderWay()) return Waited::NothingUnderWay;
    if (deadline.hasExpired()) return Waited::TimedOut;
    QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
  }
  return Waited::Finished;
}

}  // namespace

int runCall(const QStringList& arguments) {
  const CallRequest request = parse(arguments);
  if (showsWindow(request.member) && !HostHasDisplay())
    throw UsageError(request.member + QStringLiteral(" shows a window and needs a display (set DISPLAY)"));

  std::unique_ptr<QObject> control = CreateControl(request.className, Context::process(), standardProducers());
  Dispatch dispatch(*control, *findClass(request.className));
  for (const auto& [property, value] : request.settings) dispatch.put(property, value);
  const MemberInfo& member = dispatch.method(request.member);
  const QVariant result = dispatch.invoke(request.member, request.arguments);
  const Waited waited =
      member.pollsStatus ? waitForStatus(dispatch, *control, request.timeoutSeconds) : Waited::Finished;

  QJsonObject out;
  out.insert(QStringLiteral("result"), QJsonValue::fromVariant(result));
  out.insert(QStringLiteral("properties"), QJsonObject::fromVariantMap(dispatch.readableProperties()));
  printJson(out);
  if (waited == Waited::TimedOut) {
    std::fprintf(stderr, "velmora: %s did not finish within %d s (Status is still \"\")\n",
                 qPrintable(request.member), request.timeoutSeconds);
    return ExitTimedOut;
  }
  if (waited == Waited::NothingUnderWay) {
    std::fprintf(stderr, "velmora: %s started no work (Status stays \"\"; nothing of its kind to take?)\n",
                 qPrintable(request.member));
    return ExitWorkFailed;
  }
  return dispatch.get(QStringLiteral("Error")).toString().isEmpty() ? ExitOk : ExitWorkFailed;
}

}  // namespace velmora::cli
