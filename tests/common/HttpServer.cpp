#include "tests/common/HttpServer.h"

#include <QTcpSocket>

namespace velmora::test {

HttpServer::HttpServer() {
  if (!server_.listen(QHostAddress::LocalHost, 0)) qFatal("test HTTP server cannot listen");
  connect(&server_, &QTcpServer::newConnection, this, [this] {
    while (QTcpSocket* socket = server_.nextPendingConnection()) {
      socket->setParent(this);
      connect(socket, &QTcpSocket::readyRead, this, [this, socket] { serve(socket); });
    }
  });
}

QString HttpServer::url(const QByteArray& path) const {
  return QStringLiteral("http://127.0.0.1:%1%2").arg(server_.serverPort()).arg(QString::fromLatin1(path));
}

void HttpServer::serve(QTcpSocket* socket) {
  const QByteArray request = socket->property("request").toByteArray() + socket->readAll();
  socket->setProperty("request", request);
  const qsizetype headerEnd = request.indexOf("\r\n\r\n");
  if (headerEnd < 0) return;
  const QByteArray head = request.left(headerEnd).toLower();
  const qsizetype length = head.indexOf("content-length:");
  const qsizetype bodySize =
      length < 0 ? 0 : head.mid(length + 15, head.indexOf("\r\n", length) - length - 15).trimmed().toLongLong();
  if (request.size() < headerEnd + 4 + bodySize) return;
  socket->setProperty("request", request.mid(headerEnd + 4 + bodySize));  // the next one on this connection
  const QByteArray path = request.left(request.indexOf("\r\n")).split(' ').value(1);
  ++requests_[path];
  const Answer answer = routes_.value(path, Answer{404, "not found"});
  if (answer.silent) return;
  if (answer.drops) return socket->abort();
  const QByteArray response = "HTTP/1.1 " + QByteArray::number(answer.status) +
                              " X\r\nContent-Type: " + answer.contentType +
                              "\r\nContent-Length: " + QByteArray::number(answer.body.size()) +
                              (answer.keepAlive ? "\r\n\r\n" : "\r\nConnection: close\r\n\r\n") + answer.body;
  socket->write(response);
  if (!answer.keepAlive) socket->disconnectFromHost();
}

}  // namespace velmora::test
