#pragma once
#include <QObject>
#include <QStringList>
#include <QTcpServer>
#include <QWebSocketServer>
#include <optional>

#include "agent/Door.h"
#include "core/Result.h"

class QTcpSocket;

namespace velmora::agent {

// The agent's WebSocket door on 127.0.0.1. Every new connection is held until its
// handshake head has arrived; a handshake the door policy refuses is answered 403 and
// logged with the reason; one it admits goes on to the WebSocket server and becomes a
// page: one session, one QWebChannel, one working folder "page-<pid>-<n>", all gone
// when the page goes.
class AgentServer : public QObject {
  Q_OBJECT

 public:
  explicit AgentServer(QStringList allowedOrigins, QObject* parent = nullptr);
  ~AgentServer() override;

  // Listens on 127.0.0.1:`port` (0 picks a free port); false with `error` set when it
  // cannot.
  Outcome listen(quint16 port);
  quint16 port() const { return tcp_.serverPort(); }
  const DoorPolicy& policy() const { return *policy_; }
  void setHasDisplay(bool hasDisplay) { hasDisplay_ = hasDisplay; }
  int pageCount() const { return int(pages_.size()); }

 signals:
  void pageOpened();
  void pageClosed();

 private:
  void screen(QTcpSocket* socket);
  void inspect(QTcpSocket* socket);
  void refuse(QTcpSocket* socket, const QString& reason);
  void openPage();

  QStringList allowedOrigins_;
  std::optional<DoorPolicy> policy_;
  QTcpServer tcp_;
  QWebSocketServer webSockets_;
  bool hasDisplay_ = true;
  QList<QObject*> pages_;
};

}  // namespace velmora::agent
