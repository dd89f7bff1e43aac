#include "tests/common/TestSupport.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QThread>

namespace velmora::test {

ScopedTempRoot::ScopedTempRoot() : oldTmpdir_(qgetenv("TMPDIR")), hadTmpdir_(qEnvironmentVariableIsSet("TMPDIR")) {
  qputenv("TMPDIR", dir_.path().toLocal8Bit());
}

ScopedTempRoot::~ScopedTempRoot() {
  if (hadTmpdir_)
    qputenv("TMPDIR", oldTmpdir_);
  else
    qunsetenv("TMPDIR");
}

QString ScopedTempRoot::write(const QString& name, const QByteArray& bytes) const {
  const QString full = dir_.path() + u'/' + name;
  QDir().mkpath(QFileInfo(full).path());
  QFile file(full);
  if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
    qFatal("cannot write %s", qPrintable(full));
  return full;
}

bool waitUntil(const std::function<bool()>& done, int timeoutMs) {
  QDeadlineTimer deadline(timeoutMs);
  while (!done()) {
    if (deadline.hasExpired()) return false;
    QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    QThread::msleep(1);
  }
  return true;
}

QString testData(const QString& name) { return QStringLiteral(VELMORA_TEST_DATA "/") + name; }

}  // namespace velmora::test
