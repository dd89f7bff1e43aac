#pragma once
#include <QProcess>
#include <QString>
#include <QTemporaryDir>
#include <memory>

#include "core/Result.h"

namespace velmora::agent {

// The reference receiver that the demo page uploads its pictures to: a velmora-receiver
// process on 127.0.0.1 with a free port, storing under a folder of its own in the
// temporary folder. The process is stopped and the folder deleted when this goes.
class DemoReceiver {
 public:
  // velmora-receiver beside the running program.
  static QString defaultProgram();

  DemoReceiver() = default;
  ~DemoReceiver();
  DemoReceiver(const DemoReceiver&) = delete;
  DemoReceiver& operator=(const DemoReceiver&) = delete;

  // Starts `program` and waits (at most `timeoutMs`) until it says where it listens.
  // False with `error` set when it cannot start or does not answer in time.
  Outcome start(const QString& program, int timeoutMs = 10000);
  // "http://127.0.0.1:PORT" once started.
  QString baseUrl() const { return baseUrl_; }
  // The address a page gives the editor control's SendUrl: it carries a query part, since
  // the control appends its own parameters with "&".
  QString uploadUrl() const { return baseUrl_.isEmpty() ? QString() : baseUrl_ + QStringLiteral("/upload?from=demo"); }
  QString storageFolder() const { return storage_ ? storage_->path() : QString(); }
  void stop();

 private:
  void logOutput();

  std::unique_ptr<QTemporaryDir> storage_;
  std::unique_ptr<QProcess> process_;
  QByteArray pending_;  // standard output not yet ended by a line feed
  QString baseUrl_;
};

}  // namespace velmora::agent
