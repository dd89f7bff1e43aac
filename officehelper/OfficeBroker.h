#pragma once
#include <QElapsedTimer>
#include <QLocalServer>
#include <QPointer>
#include <QProcess>
#include <QQueue>
#include <QTimer>
#include <array>
#include <optional>
#include <unordered_map>

#include "office/OfficeProtocol.h"

class QLocalSocket;

namespace velmora {

struct BrokerSettings {
  QString socketPath;
  QString profileFolder;        // text documents' office; workbooks' and slides' office adds "-uno"
  int timeLimitSeconds = 60;    // per job, LibreOffice's start not counted
  int startLimitSeconds = 120;  // for LibreOffice to start
  int idleSeconds = 300;        // with no caller connected and nothing to do, the helper leaves
  int documentsPerWorker = 50;  // then LibreOffice starts afresh
  qint64 memoryLimitMb = 600;   // a running office grows towards 1 GB over many documents
};

// The helper's front process: serves the user's callers on a local socket and keeps the
// offices warm for them: one worker for text documents and one for workbooks and
// presentations (see UnoWorker.h), each taking its jobs one at a time in arrival order.
// A job that passes its time limit, or a worker that crashes, costs that job only: the
// worker is killed and a fresh one started, and the caller hears at which stage the
// office stopped.
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
  // One office and the jobs waiting for it.
  struct Slot {
    QString workerOption;  // "--worker" or "--uno-worker"
    QString profileFolder;
    QProcess* worker = nullptr;
    FrameReader frames;
    QQueue<Pending> queue;
    std::optional<Pending> current;
    QString stage;
    bool ready = false;  // the office has started (or failed to: it answers every job)
    QTimer timeLimit;
    QTimer startLimit;
    int documentsDone = 0;
  };

  Slot& slotFor(const OfficeJob& job) { return slots_[job.forTheSecondOffice() ? 1 : 0]; }
  void accept();
  void readFrom(QLocalSocket* caller);
  void pump(Slot& slot);
  void startWorker(Slot& slot);
  void stopWorker(Slot& slot);
  void readWorker(Slot& slot);
  void workerEnded(Slot& slot);
  void timeLimitPassed(Slot& slot);
  void startLimitPassed(Slot& slot);
  void failWaiting(Slot& slot, const QString& why);
  void finish(Slot& slot, const OfficeAnswer& answer);
  void recycleIfWorn(Slot& slot);
  void idleCheck();
  bool busy() const;
  QString stopDescription(const Slot& slot, const QString& how) const;

  BrokerSettings settings_;
  QLocalServer server_;
  std::array<Slot, 2> slots_;
  QTimer idle_;
  std::unordered_map<QLocalSocket*, FrameReader> callers_;
};

}  // namespace velmora
