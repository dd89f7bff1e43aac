#include "officehelper/OfficeBroker.h"

#include <QCoreApplication>
#include <QFile>
#include <QLocalSocket>

namespace velmora {

namespace {

// The resident memory of a process, from /proc, in megabytes; 0 when unknown.
qint64 residentMb(qint64 pid) {
  QFile status(QStringLiteral("/proc/%1/status").arg(pid));
  if (!status.open(QIODevice::ReadOnly)) return 0;
  for (const QByteArray& line : status.readAll().split('\n'))
    if (line.startsWith("VmRSS:")) return line.mid(6).trimmed().split(' ').value(0).toLongLong() / 1024;
  return 0;
}

QString doing(const QString& stage, OfficeJob::Kind kind) {
  if (stage == u"SaveAs")
    return kind == OfficeJob::Kind::WebPage ? QStringLiteral("saving") : QStringLiteral("drawing the pages of");
  if (stage == u"Open") return QStringLiteral("loading");
  return QStringLiteral("starting for");
}

}  // namespace

OfficeBroker::OfficeBroker(BrokerSettings settings) : settings_(std::move(settings)) {
  server_.setSocketOptions(QLocalServer::UserAccessOption);  // the user's own programs only
  connect(&server_, &QLocalServer::newConnection, this, &OfficeBroker::accept);
  timeLimit_.setSingleShot(true);
  connect(&timeLimit_, &QTimer::timeout, this, &OfficeBroker::timeLimitPassed);
  startLimit_.setSingleShot(true);
  connect(&startLimit_, &QTimer::timeout, this, &OfficeBroker::startLimitPassed);
  idle_.setSingleShot(true);
  connect(&idle_, &QTimer::timeout, this, &OfficeBroker::idleCheck);
}

OfficeBroker::~OfficeBroker() { stopWorker(); }

bool OfficeBroker::listen(QString& error) {
  QLocalSocket probe;
  probe.connectToServer(settings_.socketPath);
  if (probe.waitForConnected(500)) {
    error = QStringLiteral("another office helper already serves ") + settings_.socketPath;
    return false;
  }
  QLocalServer::removeServer(settings_.socketPath);  // a socket left by a helper that died
  if (!server_.listen(settings_.socketPath)) {
    error = server_.errorString();
    return false;
  }
  startWorker();  // warm before the first caller asks
  idle_.start(settings_.idleSeconds * 1000);
  return true;
}

void OfficeBroker::accept() {
  while (QLocalSocket* caller = server_.nextPendingConnection()) {
    idle_.stop();
    callers_[caller];  // its frames, as they arrive
    connect(caller, &QLocalSocket::readyRead, this, [this, caller] { readFrom(caller); });
    connect(caller, &QLocalSocket::disconnected, this, [this, caller] {
      callers_.erase(caller);
      caller->deleteLater();
      if (!busy()) idle_.start(settings_.idleSeconds * 1000);
    });
  }
}

void OfficeBroker::readFrom(QLocalSocket* caller) {
  FrameReader& frames = callers_[caller];
  frames.append(caller->readAll());
  while (const std::optional<QJsonObject> frame = frames.next()) {
    if (const std::optional<OfficeJob> job = OfficeJob::fromJson(*frame))
      queue_.enqueue({caller, *job});
    else
      caller->write(
          encodeFrame(OfficeAnswer::failure(QStringLiteral("Open"), QStringLiteral("a malformed job")).toJson()));
  }
  if (frames.broken()) caller->abort();
  pump();
}

// A job's time limit counts its own work only: jobs wait until the office has started.
void OfficeBroker::pump() {
  while (!current_ && !queue_.isEmpty()) {
    if (!worker_) startWorker();
    if (!workerReady_) return;
    Pending next = queue_.dequeue();
    if (!next.caller) continue;  // the caller went away while waiting
    current_ = next;
    currentStage_ = QStringLiteral("Open");
    worker_->write(encodeFrame(next.job.toJson()));
    timeLimit_.start(settings_.timeLimitSeconds * 1000);
  }
}

void OfficeBroker::startWorker() {
  worker_ = new QProcess(this);
  worker_->setProcessChannelMode(QProcess::ForwardedErrorChannel);
  connect(worker_, &QProcess::readyReadStandardOutput, this, &OfficeBroker::readWorker);
  connect(worker_, &QProcess::finished, this, &OfficeBroker::workerEnded);
  connect(worker_, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
    if (error != QProcess::FailedToStart) return;  // the other errors end in finished()
    const QString why = worker_->errorString();
    stopWorker();
    failWaiting(QStringLiteral("the office worker could not start: ") + why);
  });
  workerFrames_ = FrameReader();
  workerReady_ = false;
  startLimit_.start(settings_.startLimitSeconds * 1000);
  documentsDone_ = 0;
  worker_->start(QCoreApplication::applicationFilePath(), {QStringLiteral("--worker"), settings_.profileFolder});
}

void OfficeBroker::stopWorker() {
  startLimit_.stop();
  if (!worker_) return;
  QProcess* worker = std::exchange(worker_, nullptr);
  worker->disconnect(this);
  worker->kill();  // LibreOfficeKit holds nothing that needs a clean exit
  worker->waitForFinished(5000);
  worker->deleteLater();
}

void OfficeBroker::readWorker() {
  workerFrames_.append(worker_->readAllStandardOutput());
  while (const std::optional<QJsonObject> frame = workerFrames_.next()) {
    if (const QString stage = noticedStage(*frame); stage == u"Ready") {
      workerReady_ = true;
      startLimit_.stop();
      pump();
    } else if (!stage.isEmpty()) {
      currentStage_ = stage;
    } else if (current_)
      finish(OfficeAnswer::fromJson(*frame));
  }
  if (workerFrames_.broken()) {
    stopWorker();
    if (current_) finish(OfficeAnswer::failure(currentStage_, stopDescription(QStringLiteral("sent garbage"))));
  }
}

void OfficeBroker::workerEnded() {
  const bool crashed = worker_->exitStatus() == QProcess::CrashExit;
  const bool starting = !workerReady_;
  stopWorker();
  if (starting) failWaiting(QStringLiteral("LibreOffice stopped while starting"));
  if (current_)
    finish(OfficeAnswer::failure(
        currentStage_, stopDescription(crashed ? QStringLiteral("stopped (it crashed)") : QStringLiteral("stopped"))));
}

void OfficeBroker::timeLimitPassed() {
  stopWorker();
  if (current_)
    finish(OfficeAnswer::failure(currentStage_, stopDescription(QStringLiteral("stopped responding")) +
                                                    QStringLiteral(" after %1 s").arg(settings_.timeLimitSeconds)));
}

void OfficeBroker::startLimitPassed() {
  stopWorker();
  failWaiting(QStringLiteral("LibreOffice did not start within %1 s").arg(settings_.startLimitSeconds));
}

// The office could not start: every waiting caller hears so at once, and the next job
// tries a fresh one.
void OfficeBroker::failWaiting(const QString& why) {
  const QByteArray answer = encodeFrame(OfficeAnswer::failure(QStringLiteral("CreateObject"), why).toJson());
  while (!queue_.isEmpty())
    if (const Pending waiting = queue_.dequeue(); waiting.caller) waiting.caller->write(answer);
}

// "LibreOffice stopped responding while loading /home/u/a.docx"
QString OfficeBroker::stopDescription(const QString& how) const {
  if (!current_) return QStringLiteral("LibreOffice ") + how;
  return QStringLiteral("LibreOffice ") + how + QStringLiteral(" while ") + doing(currentStage_, current_->job.kind) +
         u' ' + current_->job.document;
}

void OfficeBroker::finish(const OfficeAnswer& answer) {
  timeLimit_.stop();
  const Pending done = *std::exchange(current_, std::nullopt);
  if (done.caller) done.caller->write(encodeFrame(answer.toJson()));
  ++documentsDone_;
  recycleIfWorn();
  if (!worker_) startWorker();  // the next caller finds a warm office
  pump();
}

void OfficeBroker::recycleIfWorn() {
  if (!worker_) return;
  if (documentsDone_ >= settings_.documentsPerWorker || residentMb(worker_->processId()) > settings_.memoryLimitMb)
    stopWorker();
}

bool OfficeBroker::busy() const { return !callers_.empty() || current_ || !queue_.isEmpty(); }

// Idle minutes over: the helper and its office leave, and the next caller starts them again.
void OfficeBroker::idleCheck() {
  if (!busy()) QCoreApplication::quit();
}

}  // namespace velmora
