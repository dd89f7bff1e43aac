#pragma once
#include <QElapsedTimer>
#include <QLocalServer>
#include <QPointer>
#include <QProcess>
#include <QQueue>
#include <QTimer>
#include <optional>
#include <unordered_map>

#include "office/OfficeProtocol.h"

class QLocalSocket;

namespace velmora {

struct BrokerSettings {
  QString socketPath;
  QString profileFolder;
  int timeLimitSeconds = 60;    // per job, LibreOffice's start not counted
  int startLimitSeconds = 120;  // for LibreOffice to start
  int idleSeconds = 300;        // with no caller connected and nothing to do, the helper leaves
  int documentsPerWorker = 50;  // then LibreOffice starts afresh
  qint64 memoryLimitMb = 600;   // a running office grows towards 1 GB over many documents
};

// The helper's front process: serves the user's callers on a local socket, one job at a
// time in arrival order, and keeps one LibreOffice worker warm for them. A job that passes
// its time limit, or a worker that crashes, costs that job only: the worker is killed and
// a fresh one started, and the caller hears at which stage the office stopped.
class OfficeBroker : public QObject {
  Q_OBJECT
 public:
  explicit OfficeBroker(BrokerSettings settings);
  ~OfficeBroker() override;
  // False (and why) when another helper already serves the socket.
  bool listen(QString& error);

 private:
  struct Pending {
    QPointer<QLocalSocket> caller;
    OfficeJob job;
  };

  void accept();
  void readFrom(QLocalSocket* caller);
  void pump();
  void startWorker();
  void stopWorker();
  void readWorker();
  void workerEnded();
  void timeLimitPassed();
  void startLimitPassed();
  void failWaiting(const QString& why);
  void finish(const OfficeAnswer& answer);
  void recycleIfWorn();
  void idleCheck();
  bool busy() const;
  QString stopDescription(const QString& how) const;

  BrokerSettings settings_;
  QLocalServer server_;
  QProcess* worker_ = nullptr;
  FrameReader workerFrames_;
  QQueue<Pending> queue_;
  std::optional<Pending> current_;
  QString currentStage_;
  bool workerReady_ = false;  // the worker's office has started (or failed to: it answers every job)
  QTimer timeLimit_;
  QTimer startLimit_;
  QTimer idle_;
  int documentsDone_ = 0;
  std::unordered_map<QLocalSocket*, FrameReader> callers_;
};

}  // namespace velmora
