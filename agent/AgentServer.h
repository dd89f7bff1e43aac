#pragma once
#include <QObject>
#include <QSet>
#include <QStringList>
#include <QTcpServer>
#include <QWebSocketServer>
#include <functional>
#include <optional>

#include "agent/Door.h"
#include "core/Result.h"

class QTcpSocket;

namespace velmora::agent {

// A page's message may be this large unless the command line says otherwise.
constexpr quint64 kDefaultMaxMessageMb = 64;

// What the user said when a page from an origin not on the allowlist asked to connect.
enum class OriginAnswer { AllowOnce, AlwaysAllow, Deny, NoAnswer };
using OriginPrompt = std::function<OriginAnswer(const QString& origin)>;

// The agent's WebSocket door on 127.0.0.1. A connection from a program of another user is
// refused as soon as it is accepted; any other is held until its handshake head has
// arrived. A refused one is answered 403 and logged with the reason; a handshake the door
// policy admits goes on to the WebSocket server and becomes a page: one session, one
// QWebChannel, one working folder "page-<pid>-<n>", all gone when the page goes. A page
// sending a message over the size limit is closed with 1009 (message too big).
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
  // The largest message a page may send, for pages that connect from now on.
  void setMaxMessageSize(quint64 bytes) { maxMessageSize_ = bytes; }
  quint64 maxMessageSize() const { return maxMessageSize_; }
  int pageCount() const { return int(pages_.size()); }
  // Asks the user about a page from an origin not on the allowlist instead of refusing it
  // outright (once per origin and run: a denied origin is refused from then on); origins
  // always allowed are added to `settingsFile`.
  void setOriginPrompt(OriginPrompt prompt, QString settingsFile);

 signals:
  void pageOpened();
  void pageClosed();

 private:
  void screen(QTcpSocket* socket);
  void inspect(QTcpSocket* socket);
  void refuse(QTcpSocket* socket, const QString& reason);
  // Why a page from `origin` stays out after the user was asked, or "" when it may go on.
  QString askAbout(const QString& origin);
  void openPage();

  QStringList allowedOrigins_;
  std::optional<DoorPolicy> policy_;
  QTcpServer tcp_;
  QWebSocketServer webSockets_;
  bool hasDisplay_ = true;
  quint64 maxMessageSize_ = kDefaultMaxMessageMb << 20;
  QList<QObject*> pages_;
  OriginPrompt prompt_;
  QString settingsFile_;
  QSet<QString> denied_;  // by the user, for this run
  QSet<QString> asking_;  // origins the user is being asked about
};

}  // namespace velmora::agent
