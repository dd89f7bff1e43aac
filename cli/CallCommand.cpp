#include "cli/CallCommand.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextStream>
#include <cstdio>

#include "cli/Output.h"
#include "control/Velmora5.h"
#include "control/WaitForResult.h"
#include "core/ScriptError.h"
#include "host/HostProcess.h"
#include "host/StandardProducers.h"
#include "server/Dispatch.h"

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

}  // namespace

int runCall(const QStringList& arguments) {
  const CallRequest request = parse(arguments);
  // Refused before a control is created, since creating one empties the working folder.
  const ClassInfo* cls = findClass(request.className);
  const MemberInfo* window = cls ? findMember(cls->dispatch, request.member, MemberKind::Method) : nullptr;
  if (window && window->showsWindow && !hostHasDisplay())
    throw UsageError(request.member + QStringLiteral(" shows a window and needs a display (set DISPLAY)"));

  std::unique_ptr<QObject> control = CreateControl(request.className, Context::process(), standardProducers());
  Dispatch dispatch(*control, *cls);
  const MemberInfo& member = dispatch.method(request.member);
  for (const auto& [property, value] : request.settings) dispatch.put(property, value);
  const QVariant result = dispatch.invoke(request.member, request.arguments);
  const auto* editor = qobject_cast<const Velmora5*>(control.get());
  const Waited waited = member.pollsStatus && editor
                            ? waitForResult(*editor, std::chrono::seconds(request.timeoutSeconds))
                            : Waited::Finished;

  QJsonObject out;
  out.insert(QStringLiteral("result"), QJsonValue::fromVariant(result));
  out.insert(QStringLiteral("properties"), QJsonObject::fromVariantMap(dispatch.readableProperties()));
  printJson(out);
  if (waited == Waited::TimedOut) {
    std::fprintf(stderr, "velmora: %s did not finish within %d s (Status is still \"\")\n", qPrintable(request.member),
                 request.timeoutSeconds);
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
