#include "tests/common/TestSupport.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

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

IdleConnections::IdleConnections(quint16 port, int count) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  for (int i = 0; i < count; ++i) {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0) return;
    sockets_.push_back(fd);
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return;
    if (i % 2 == 1) ::send(fd, "POST /up?act", 12, MSG_NOSIGNAL);
  }
}

IdleConnections::~IdleConnections() {
  for (const int fd : sockets_) ::close(fd);
}

}  // namespace velmora::test
