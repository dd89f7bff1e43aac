#include "office/OfficeAutomation.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QLocalSocket>
#include <QProcess>
#include <QStandardPaths>

#include "core/Producers.h"
#include "core/Yield.h"

namespace velmora {

namespace {

// How long a caller waits for the helper to answer at all. The helper keeps each job to
// its own time limit and answers when it passes, so this only catches a helper that died.
constexpr int kAnswerWaitMs = 15 * 60 * 1000;
constexpr int kStartWaitMs = 20 * 1000;

Failure creation(const QString& why) { return {QStringLiteral("CreateObject:"), why}; }

// The helper's program: VELMORA_OFFICE names it, else it sits beside the running program
// (the build folder, or the installed programs' folder), else on the PATH.
QString helperProgram() {
  const QString named = qEnvironmentVariable("VELMORA_OFFICE");
  if (!named.isEmpty()) return named;
  const QString dir = QCoreApplication::applicationDirPath();
  for (const QString& candidate : {dir + QStringLiteral("/velmora-office"), dir + QStringLiteral("/../velmora-office")})
    if (QFileInfo(candidate).isExecutable()) return QFileInfo(candidate).canonicalFilePath();
  return QStandardPaths::findExecutable(QStringLiteral("velmora-office"));
}

QString runtimeFolder();

// The helper outlives its starter, so it must not hold the starter's terminal or pipes:
// its input and output go nowhere and its messages to a log in the runtime folder.
bool startHelper(const QString& program) {
  QProcess helper;
  helper.setProgram(program);
  helper.setWorkingDirectory(QStringLiteral("/"));
  helper.setStandardInputFile(QProcess::nullDevice());
  helper.setStandardOutputFile(QProcess::nullDevice());
  helper.setStandardErrorFile(runtimeFolder() + QStringLiteral("/velmora-office.log"));
  // Nor the starter's temporary folder, which may go with it (LibreOffice writes some
  // documents through temporary files there).
  QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
  environment.remove(QStringLiteral("TMPDIR"));
  helper.setProcessEnvironment(environment);
  return helper.startDetached();
}

class LibreOfficeAutomation : public OfficeAutomation {
 public:
  Outcome CreateObject(const QString& progId) override {
    // LibreOffice stands behind the Microsoft names; WPS Office does not exist on Linux.
    if (progId != u"Word.Application" && progId != u"Excel.Application" && progId != u"PowerPoint.Application")
      return creationFailure(progId);
    if (connectToHelper()) return {};
    const QString program = helperProgram();
    if (program.isEmpty())
      return creation(QStringLiteral("the office helper velmora-office was not found beside ") +
                      QCoreApplication::applicationFilePath() + QStringLiteral(" or on the PATH"));
    // The helper serves every program of the user and leaves on its own after idle minutes.
    if (!startHelper(program))
      return creation(QStringLiteral("the office helper ") + program + QStringLiteral(" could not be started"));
    if (letEventsRunUntil([&] { return connectToHelper(); }, kStartWaitMs)) return {};
    return creation(QStringLiteral("the office helper did not answer at ") + officeHelperSocketPath());
  }

  OfficeAnswer run(const OfficeJob& job) override {
    if (socket_.state() != QLocalSocket::ConnectedState)
      return OfficeAnswer::failure(QStringLiteral("CreateObject"),
                                   QStringLiteral("the office helper is not connected"));
    socket_.write(encodeFrame(job.toJson()));
    std::optional<QJsonObject> answer;
    auto arrived = [&] {
      if (!answer) {
        reader_.append(socket_.readAll());
        answer = reader_.next();
      }
      return answer.has_value() || reader_.broken() || socket_.state() != QLocalSocket::ConnectedState;
    };
    letEventsRunUntil(arrived, kAnswerWaitMs);
    if (!answer) answer = reader_.next();  // the answer and the close may arrive together
    if (answer) return OfficeAnswer::fromJson(*answer);
    return OfficeAnswer::failure(QStringLiteral("Open"),
                                 QStringLiteral("the office helper stopped before it answered for ") + job.document);
  }

 private:
  bool connectToHelper() {
    if (socket_.state() == QLocalSocket::ConnectedState) return true;
    socket_.abort();
    socket_.connectToServer(officeHelperSocketPath());
    return socket_.waitForConnected(1000);
  }

  QLocalSocket socket_;
  FrameReader reader_;
};

QString runtimeFolder() {
  const QString folder = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
  return folder.isEmpty() ? QStringLiteral("/tmp") : folder;
}

}  // namespace

std::unique_ptr<OfficeAutomation> createLibreOfficeAutomation() { return std::make_unique<LibreOfficeAutomation>(); }

QString officeHelperSocketPath() { return runtimeFolder() + QStringLiteral("/velmora-office"); }

QString officeHelperProfileFolder() { return runtimeFolder() + QStringLiteral("/velmora-office-profile"); }

}  // namespace velmora
