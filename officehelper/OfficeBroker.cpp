#include "officehelper/OfficeBroker.h"

#include <QCoreApplication>
#include <QFile>
#include <QLocalSocket>

namespace velmora {

namespace {

// The resident memory of a process and of its children (the workbooks' worker runs its
// office as a child), from /proc, in megabytes; 0 when unknown.
qint64 residentMb(qint64 pid) {
  qint64 kb = 0;
  QFile status(QStringLiteral("/proc/%1/status").arg(pid));
  if (status.open(QIODevice::ReadOnly))
    for (const QByteArray& line : status.readAll().split('\n'))
      if (line.startsWith("VmRSS:")) kb = line.mid(6).trimmed().split(' ').value(0).toLongLong();
  QFile children(QStringLiteral("/proc/%1/task/%1/children").arg(pid));
  if (children.open(QIODevice::ReadOnly))
    for (const QByteArray& child : children.readAll().split(' '))
      if (const qint64 childPid = child.trimmed().toLongLong(); childPid > 0) kb += residentMb(childPid) * 1024;
  return kb / 1024;
}

QString doing(const QString& stage, OfficeJob::Kind kind) {
  using Kind = OfficeJob::Kind;
  if (stage == u"SaveAs") {
    if (kind == Kind::PagePictures) return QStringLiteral("drawing the pages of");
    if (kind == Kind::SlidePictures) return QStringLiteral("exporting the slides of");
    return QStringLiteral("saving");
  }
  if (stage == u"Open") return QStringLiteral("loading");
  return QStringLiteral("starting for");
}

}  // namespace

OfficeBroker::OfficeBroker(BrokerSettings settings) : settings_(std::move(settings)) {
  server_.setSocketOptions(QLocalServer::UserAccessOption);  // the user's own programs only
  connect(&server_, &QLocalServer::newConnection, this, &OfficeBroker::accept);
  slots_[0].workerOption = QStringLiteral("--worker");
  slots_[0].profileFolder = settings_.profileFolder;
  slots_[1].workerOption = QStringLiteral("--uno-worker");
  slots_[1].profileFolder = settings_.profileFolder + QStringLiteral("-uno");
  for (Slot& slot : slots_) {
    slot.timeLimit.setSingleShot(true);
    connect(&slot.timeLimit, &QTimer::timeout, this, [this, &slot] { timeLimitPassed(slot); });
    slot.startLimit.setSingleShot(true);
    connect(&slot.startLimit, &QTimer::timeout, this, [this, &slot] { startLimitPassed(slot); });
  }
  idle_.setSingleShot(true);
  connect(&idle_, &QTimer::timeout, this, &OfficeBroker::idleCheck);
}

OfficeBroker::~OfficeBroker() {
  for (Slot& slot : slots_) stopWorker(slot);
}

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
  // Text documents are the common case: their office is warm before the first caller
  // asks; the other starts with its first job and stays warm from then on.
  startWorker(slots_[0]);
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
    if (const std::optional<OfficeJob> job = OfficeJob::fromJson(*frame)) {
      Slot& slot = slotFor(*job);
      slot.queue.enqueue({caller, *job});
      pump(slot);
    } else {
      caller->write(
          encodeFrame(OfficeAnswer::failure(QStringLiteral("Open"), QStringLiteral("a malformed job")).toJson()));
    }
  }
  if (frames.broken()) caller->abort();
}

// A job's time limit counts its own work only: jobs wait until the office has started.
void OfficeBroker::pump(Slot& slot) {
  while (!slot.current && !slot.queue.isEmpty()) {
    if (!slot.worker) startWorker(slot);
    if (!slot.ready) return;
    Pending next = slot.queue.dequeue();
    if (!next.caller) continue;  // the caller went away while waiting
    slot.current = next;
    slot.stage = QStringLiteral("Open");
    slot.worker->write(encodeFrame(next.job.toJson()));
    slot.timeLimit.start(settings_.timeLimitSeconds * 1000);
  }
}

void OfficeBroker::startWorker(Slot& slot) {
  slot.worker = new QProcess(this);
  slot.worker->setProcessChannelMode(QProcess::ForwardedErrorChannel);
  connect(slot.worker, &QProcess::readyReadStandardOutput, this, [this, &slot] { readWorker(slot); });
  connect(slot.worker, &QProcess::finished, this, [this, &slot] { workerEnded(slot); });
  connect(slot.worker, &QProcess::errorOccurred, this, [this, &slot](QProcess::ProcessError error) {
    if (error != QProcess::FailedToStart) return;  // the other errors end in finished()
    const QString why = slot.worker->errorString();
    stopWorker(slot);
    failWaiting(slot, QStringLiteral("the office worker could not start: ") + why);
  });
  slot.frames = FrameReader();
  slot.ready = false;
  slot.startLimit.start(settings_.startLimitSeconds * 1000);
  slot.documentsDone = 0;
  slot.worker->start(QCoreApplication::applicationFilePath(), {slot.workerOption, slot.profileFolder});
}

void OfficeBroker::stopWorker(Slot& slot) {
  slot.startLimit.stop();
  if (!slot.worker) return;
  QProcess* worker = std::exchange(slot.worker, nullptr);
  worker->disconnect(this);
  worker->kill();  // neither office holds anything that needs a clean exit
  worker->waitForFinished(5000);
  worker->deleteLater();
}

void OfficeBroker::readWorker(Slot& slot) {
  slot.frames.append(slot.worker->readAllStandardOutput());
  while (const std::optional<QJsonObject> frame = slot.frames.next()) {
    if (const QString stage = noticedStage(*frame); stage == u"Ready") {
      slot.ready = true;
      slot.startLimit.stop();
      pump(slot);
    } else if (!stage.isEmpty()) {
      slot.stage = stage;
    } else if (slot.current) {
      finish(slot, OfficeAnswer::fromJson(*frame));
    }
  }
  if (slot.frames.broken()) {
    stopWorker(slot);
    if (slot.current)
      finish(slot, OfficeAnswer::failure(slot.stage, stopDescription(slot, QStringLiteral("sent garbage"))));
  }
}

void OfficeBroker::workerEnded(Slot& slot) {
  const bool crashed = slot.worker->exitStatus() == QProcess::CrashExit;
  const bool starting = !slot.ready;
  stopWorker(slot);
  if (starting) failWaiting(slot, QStringLiteral("LibreOffice stopped while starting"));
  if (slot.current)
    finish(slot,
           OfficeAnswer::failure(slot.stage, stopDescription(slot, crashed ? QStringLiteral("stopped (it crashed)")
                                                                           : QStringLiteral("stopped"))));
}

void OfficeBroker::timeLimitPassed(Slot& slot) {
  stopWorker(slot);
  if (slot.current)
    finish(slot, OfficeAnswer::failure(slot.stage, stopDescription(slot, QStringLiteral("stopped responding")) +
                                                       QStringLiteral(" after %1 s").arg(settings_.timeLimitSeconds)));
}

void OfficeBroker::startLimitPassed(Slot& slot) {
  stopWorker(slot);
  failWaiting(slot, QStringLiteral("LibreOffice did not start within %1 s").arg(settings_.startLimitSeconds));
}

// The office could not start: every waiting caller hears so at once, and the next job
// tries a fresh one.
void OfficeBroker::failWaiting(Slot& slot, const QString& why) {
  const QByteArray answer = encodeFrame(OfficeAnswer::failure(QStringLiteral("CreateObject"), why).toJson());
  while (!slot.queue.isEmpty())
    if (const Pending waiting = slot.queue.dequeue(); waiting.caller) waiting.caller->write(answer);
}

// "LibreOffice stopped responding while loading /home/u/a.docx"
QString OfficeBroker::stopDescription(const Slot& slot, const QString& how) const {
  if (!slot.current) return QStringLiteral("LibreOffice ") + how;
  return QStringLiteral("LibreOffice ") + how + QStringLiteral(" while ") + doing(slot.stage, slot.current->job.kind) +
         u' ' + slot.current->job.document;
}

void OfficeBroker::finish(Slot& slot, const OfficeAnswer& answer) {
  slot.timeLimit.stop();
  const Pending done = *std::exchange(slot.current, std::nullopt);
  if (done.caller) done.caller->write(encodeFrame(answer.toJson()));
  ++slot.documentsDone;
  recycleIfWorn(slot);
  if (!slot.worker) startWorker(slot);  // the next caller finds a warm office
  pump(slot);
}

void OfficeBroker::recycleIfWorn(Slot& slot) {
  if (!slot.worker) return;
  if (slot.documentsDone >= settings_.documentsPerWorker ||
      residentMb(slot.worker->processId()) > settings_.memoryLimitMb)
    stopWorker(slot);
}

bool OfficeBroker::busy() const {
  if (!callers_.empty()) return true;
  for (const Slot& slot : slots_)
    if (slot.current || !slot.queue.isEmpty()) return true;
  return false;
}

// Idle minutes over: the helper and its offices leave, and the next caller starts them again.
void OfficeBroker::idleCheck() {
  if (!busy()) QCoreApplication::quit();
}

}  // namespace velmora
