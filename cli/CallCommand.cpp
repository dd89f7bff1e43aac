#include "cli/CallCommand.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextStream>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <stop_token>
#include <thread>

#include <unistd.h>

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

// The time limit of the whole call. A member that waits for the network or the office ends
// through waitForResult, which prints what the control holds; one still busy on its own
// work past the limit (a rule on hostile input, an office that does not answer) is stopped
// with the process, a moment after the limit so that the orderly end goes first.
class CallDeadline {
 public:
  CallDeadline(int seconds, const QString& member)
      : end_(Clock::now() + std::chrono::seconds(seconds)),
        watchdog_([this, seconds, name = member.toStdString()](std::stop_token stop) {
          std::mutex mutex;
          std::unique_lock lock(mutex);
          if (std::condition_variable_any().wait_until(lock, stop, end_ + kGrace, [] { return false; })) return;
          if (stop.stop_requested()) return;
          std::fflush(stdout);
          std::fprintf(stderr, "velmora: %s did not finish within %d s and was stopped\n", name.c_str(), seconds);
          std::fflush(stderr);
          _exit(ExitTimedOut);
        }) {}

  std::chrono::milliseconds left() const {
    return std::max(std::chrono::duration_cast<std::chrono::milliseconds>(end_ - Clock::now()),
                    std::chrono::milliseconds(0));
  }

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::milliseconds kGrace{500};
  const Clock::time_point end_;
  std::jthread watchdog_;
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
  const MemberInfo* method = cls ? findMember(cls->dispatch, request.member, MemberKind::Method) : nullptr;
  if (method && method->needsDisplay() && !hostHasDisplay()) throw UsageError(method->withoutDisplay());

  const CallDeadline deadline(request.timeoutSeconds, request.member);
  std::unique_ptr<QObject> control = CreateControl(request.className, Context::process(), standardProducers());
  Dispatch dispatch(*control, *cls);
  const MemberInfo& member = dispatch.method(request.member);
  for (const auto& [property, value] : request.settings) dispatch.put(property, value);
  const QVariant result = dispatch.invoke(request.member, request.arguments);
  const auto* editor = qobject_cast<const Velmora5*>(control.get());
  const Waited waited = member.pollsStatus && editor ? waitForResult(*editor, deadline.left()) : Waited::Finished;

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
