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

QByteArray asPicture(const QString& name, QByteArray bytes) {
  const QString type = name.section(u'.', -1).toLower();
  const QByteArray signature = type == u"png"                      ? QByteArray("\x89PNG\r\n\x1a\n")
                               : type == u"jpg" || type == u"jpeg" ? QByteArray("\xff\xd8\xff\xe0")
                               : type == u"gif"                    ? QByteArray("GIF89a")
                               : type == u"bmp"                    ? QByteArray("BM")
                                                                   : QByteArray();
  return bytes.size() >= signature.size() ? bytes.replace(0, signature.size(), signature) : signature;
}

}  // namespace velmora::test
