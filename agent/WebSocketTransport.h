#pragma once
#include <QWebChannelAbstractTransport>

class QWebSocket;

namespace velmora::agent {

// Carries a QWebChannel over one WebSocket: each channel message is one text message of
// compact JSON. A message that is not a JSON object breaks the protocol and closes the
// socket.
class WebSocketTransport : public QWebChannelAbstractTransport {
  Q_OBJECT

 public:
  explicit WebSocketTransport(QWebSocket& socket, QObject* parent = nullptr);
  void sendMessage(const QJsonObject& message) override;

 private:
  void receive(const QString& text);
  void refuseBinary(const QByteArray& bytes);

  QWebSocket& socket_;
};

}  // namespace velmora::agent
