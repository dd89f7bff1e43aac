#pragma once
#include <QPointer>
#include <QWebChannelAbstractTransport>

class QWebSocket;

namespace velmora::agent {

// Carries a QWebChannel over one WebSocket: each channel message is one text message of
// compact JSON. A message that is not a JSON object breaks the protocol and closes the
// socket.
//
// Messages are handed to the channel from the event loop, not from inside the socket's
// signal: a call may run a nested event loop (a dialog, an upload step), and the socket
// must be free to close, and be cleaned up, meanwhile. Answers to a page that has gone are
// dropped.
class WebSocketTransport : public QWebChannelAbstractTransport {
  Q_OBJECT

 public:
  explicit WebSocketTransport(QWebSocket& socket, QObject* parent = nullptr);
  void sendMessage(const QJsonObject& message) override;

 private:
  void receive(const QString& text);
  void refuseBinary(const QByteArray& bytes);

  QPointer<QWebSocket> socket_;
};

}  // namespace velmora::agent
