#pragma once
#include <gtest/gtest.h>
#include <QByteArray>
#include <QDir>
#include <QProcess>
#include <QRegularExpression>
#include <QStringList>
#include <QTemporaryDir>

#include "tests/common/TestSupport.h"

namespace velmora::test {

// The reference receiver as a child process on 127.0.0.1 and a free port, storing under
// a folder of its own (folder()/root), with its request log at hand.
class ReceiverProcess {
 public:
  explicit ReceiverProcess(const QStringList& switches = {}) {
    QDir(dir_.path()).mkdir(QStringLiteral("root"));
    QObject::connect(&process_, &QProcess::readyReadStandardOutput, [this] { readLog(); });
    process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process_.start(QStringLiteral(VELMORA_RECEIVER), QStringList{"--root", root()} + switches);
    if (!waitUntil([this] { return !base_.isEmpty() || process_.state() == QProcess::NotRunning; }) || base_.isEmpty())
      ADD_FAILURE() << "velmora-receiver did not start";
  }
  ~ReceiverProcess() {
    process_.terminate();
    if (!process_.waitForFinished(10000)) process_.kill();
  }

  QString url(const QString& pathAndQuery) const { return base_ + pathAndQuery; }
  QString folder() const { return dir_.path(); }
  QString root() const { return dir_.path() + QStringLiteral("/root"); }
  // The log's POST lines so far, in order.
  QStringList posts() const { return posts_; }
  bool waitForPosts(qsizetype count, int timeoutMs = 10000) {
    return waitUntil([&] { return posts_.size() >= count; }, timeoutMs);
  }
  // The "rnd" of every POST so far.
  QStringList rnds() const {
    static const QRegularExpression rnd(QStringLiteral("[?&]rnd=([0-9]+)"));
    QStringList out;
    for (const QString& line : posts_) out << rnd.match(line).captured(1);
    return out;
  }
  // A field of a log line ("originalfile", "stored", "bytes"); originalfile comes back as
  // the bytes the receiver got.
  static QByteArray field(const QString& line, const QString& name) {
    const QRegularExpression pattern(QStringLiteral(" %1=(\\S*)").arg(name));
    return QByteArray::fromPercentEncoding(pattern.match(line).captured(1).toLatin1());
  }

 private:
  void readLog() {
    pending_ += process_.readAllStandardOutput();
    for (qsizetype end; (end = pending_.indexOf('\n')) >= 0; pending_.remove(0, end + 1)) {
      const QString line = QString::fromUtf8(pending_.left(end));
      if (line.startsWith(u"velmora-receiver: listening on ")) base_ = line.section(u' ', -1);
      if (line.startsWith(u"POST ")) posts_ << line;
    }
  }

  QTemporaryDir dir_;
  QProcess process_;
  QString base_;
  QStringList posts_;
  QByteArray pending_;
};

}  // namespace velmora::test
