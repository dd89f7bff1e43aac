#include "agent/DemoReceiver.h"

#include <sys/prctl.h>

#include <csignal>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>

#include "agent/Log.h"

namespace velmora::agent {

namespace {

constexpr int kStopWaitMs = 3000;
const QByteArray kListening = "velmora-receiver: listening on ";

}  // namespace

QString DemoReceiver::defaultProgram() {
  return QDir(QCoreApplication::applicationDirPath()).filePath(QStringLiteral("velmora-receiver"));
}

DemoReceiver::~DemoReceiver() { stop(); }

Outcome DemoReceiver::start(const QString& program, int timeoutMs) {
  const auto fail = [&](const QString& why) {
    stop();
    return Failure{{}, why};
  };
  storage_ = std::make_unique<QTemporaryDir>(QDir::tempPath() + QStringLiteral("/velmora-demo-receiver-XXXXXX"));
  if (!storage_->isValid()) return fail(QStringLiteral("cannot make its storage folder: ") + storage_->errorString());

  process_ = std::make_unique<QProcess>();
  process_->setProcessChannelMode(QProcess::ForwardedErrorChannel);  // its complaints reach our standard error
  // An agent that is killed outright takes the receiver with it.
  process_->setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
  process_->start(program, {QStringLiteral("--root"), storage_->path(), QStringLiteral("--host"),
                            QStringLiteral("127.0.0.1"), QStringLiteral("--port"), QStringLiteral("0")});
  if (!process_->waitForStarted(timeoutMs))
    return fail(QStringLiteral("cannot run %1: %2").arg(program, process_->errorString()));

  // The first line says where it listens; anything before it is ignored.
  const QDeadlineTimer deadline(timeoutMs);
  while (baseUrl_.isEmpty()) {
    if (!process_->canReadLine() && !process_->waitForReadyRead(int(deadline.remainingTime()))) {
      if (process_->state() != QProcess::Running)
        return fail(
            QStringLiteral("%1 ended before it listened (exit code %2)").arg(program).arg(process_->exitCode()));
      if (deadline.hasExpired()) return fail(QStringLiteral("%1 did not say where it listens").arg(program));
      continue;
    }
    while (process_->canReadLine()) {
      const QByteArray line = process_->readLine().trimmed();
      if (line.startsWith(kListening)) baseUrl_ = QString::fromUtf8(line.mid(kListening.size()));
    }
  }
  QObject::connect(process_.get(), &QProcess::readyReadStandardOutput, process_.get(), [this] { logOutput(); });
  QObject::connect(process_.get(), &QProcess::finished, process_.get(), [](int code) {
    log(QStringLiteral("the upload receiver ended by itself (exit code %1): the demo cannot upload any more")
            .arg(code));
  });
  logOutput();  // lines that came with the first one
  return {};
}

void DemoReceiver::stop() {
  if (process_) {
    process_->disconnect();
    if (process_->state() != QProcess::NotRunning) {
      process_->terminate();
      if (!process_->waitForFinished(kStopWaitMs)) {
        process_->kill();
        process_->waitForFinished(kStopWaitMs);
      }
    }
    process_.reset();
  }
  storage_.reset();  // removes the stored files
  baseUrl_.clear();
}

// The receiver logs one line per request; they join the agent's log.
void DemoReceiver::logOutput() {
  pending_ += process_->readAllStandardOutput();
  qsizetype end;
  while ((end = pending_.indexOf('\n')) >= 0) {
    log(QStringLiteral("receiver: ") + QString::fromUtf8(pending_.left(end)));
    pending_.remove(0, end + 1);
  }
}

}  // namespace velmora::agent
