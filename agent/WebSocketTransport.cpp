#include "agent/WebSocketTransport.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QWebSocket>

#include "agent/Log.h"

namespace velmora::agent {

WebSocketTransport::WebSocketTransport(QWebSocket& socket, QObject* parent)
    : QWebChannelAbstractTransport(parent), socket_(socket) {
  connect(&socket_, &QWebSocket::textMessageReceived, this, &WebSocketTransport::receive);
  connect(&socket_, &QWebSocket::binaryMessageReceived, this, &WebSocketTransport::refuseBinary);
}

void WebSocketTransport::sendMessage(const QJsonObject& message) {
  socket_.sendTextMessage(QString::fromUtf8(QJsonDocument(message).toJson(QJsonDocument::Compact)));
}

void WebSocketTransport::receive(const QString& text) {
  QJsonParseError error;
  const QJsonDocument message = QJsonDocument::fromJson(text.toUtf8(), &error);
  if (error.error != QJsonParseError::NoError || !message.isObject()) {
    log(QStringLiteral("closing the page at %1: a message that is not a JSON object").arg(peerOf(socket_)));
    socket_.close(QWebSocketProtocol::CloseCodeProtocolError, QStringLiteral("not a JSON object"));
    return;
  }
  emit messageReceived(message.object(), this);
}

void WebSocketTransport::refuseBinary(const QByteArray&) {
  log(QStringLiteral("closing the page at %1: a binary message").arg(peerOf(socket_)));
  socket_.close(QWebSocketProtocol::CloseCodeDatatypeNotSupported, QStringLiteral("text messages only"));
}

}  // namespace velmora::agent
