#include "agent/Log.h"

#include <QAbstractSocket>
#include <QHostAddress>
#include <QWebSocket>
#include <cstdio>

namespace velmora::agent {

void log(const QString& text) {
  const QByteArray line = "velmora-agent: " + text.toUtf8() + '\n';
  std::fwrite(line.constData(), 1, size_t(line.size()), stderr);
  std::fflush(stderr);
}

QString peerOf(const QAbstractSocket& socket) {
  return socket.peerAddress().toString() + u':' + QString::number(socket.peerPort());
}

QString peerOf(const QWebSocket& socket) {
  return socket.peerAddress().toString() + u':' + QString::number(socket.peerPort());
}

}  // namespace velmora::agent
