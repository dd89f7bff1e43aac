#include "agent/AgentServer.h"

#include <unistd.h>

#include <QCoreApplication>
#include <QPointer>
#include <QTcpSocket>
#include <QTimer>
#include <QWebChannel>
#include <QWebSocket>
#include <QWebSocketCorsAuthenticator>

#include "agent/Log.h"
#include "agent/PageSession.h"
#include "agent/SocketOwner.h"
#include "agent/WebSocketTransport.h"
#include "support/basPublic.h"

namespace velmora::agent {

namespace {

constexpr qsizetype kMaxRequestHead = 16 * 1024;
constexpr int kHandshakeTimeoutMs = 10000;

// Why the program on the other end of `socket` may not come in, or an empty text: only the
// agent's own user gets in. Asked when the TCP connection is accepted, the earliest moment
// the peer is known and before any of its bytes is read; the WebSocket server's own hook
// (originAuthenticationRequired) would come later and hands over no socket to ask about.
QString userRefusal(const QTcpSocket& socket) {
  const std::optional<uid_t> owner = peerOwner(socket);
  if (!owner) return QStringLiteral("the client's socket is not in the kernel's tables (/proc/net/tcp, tcp6)");
  if (*owner != ::geteuid())
    return QStringLiteral("the client's socket belongs to user %1, not to the agent's user %2")
        .arg(*owner)
        .arg(::geteuid());
  return {};
}

// How a page's socket was closed, for the log: nothing when the page just went away.
QString closeNote(const QWebSocket& socket) {
  const QWebSocketProtocol::CloseCode code = socket.closeCode();
  if (code == QWebSocketProtocol::CloseCodeNormal || code == QWebSocketProtocol::CloseCodeGoingAway) return {};
  return QStringLiteral(" (close code %1: %2)").arg(QString::number(int(code)), socket.closeReason());
}

// One connected page: its socket, the channel over it and the session the channel
// publishes as "velmora". It goes when the socket closes, once no call of the page is on
// the stack any more.
class PageConnection : public QObject {
 public:
  PageConnection(QWebSocket* socket, const QString& name, bool hasDisplay, QObject* parent)
      : QObject(parent), socket_(socket), transport_(*socket), session_(name) {
    socket_->setParent(this);
    session_.setHasDisplay(hasDisplay);
    channel_.registerObject(QStringLiteral("velmora"), &session_);
    channel_.connectTo(&transport_);
    log(QStringLiteral("page %1 opened from %2 (%3), working folder %4")
            .arg(name, socket_->origin(), peerOf(*socket_), session_.workingFolder()));
    connect(socket_, &QWebSocket::disconnected, this, [this, name] {
      log(QStringLiteral("page %1 closed%2").arg(name, closeNote(*socket_)));
      session_.whenIdle([this] { deleteLater(); });
    });
  }
  ~PageConnection() override { channel_.disconnectFrom(&transport_); }

 private:
  QWebSocket* socket_;
  WebSocketTransport transport_;
  PageSession session_;
  QWebChannel channel_;  // last: it goes first, before the objects it publishes
};

}  // namespace

AgentServer::AgentServer(QStringList allowedOrigins, QObject* parent)
    : QObject(parent),
      allowedOrigins_(std::move(allowedOrigins)),
      webSockets_(QStringLiteral("velmora-agent"), QWebSocketServer::NonSecureMode) {
  connect(&tcp_, &QTcpServer::newConnection, this, [this] {
    while (QTcpSocket* socket = tcp_.nextPendingConnection()) screen(socket);
  });
  // The door has checked the Origin already; the WebSocket server's own check applies the
  // same policy to the Origin as it reads it.
  connect(&webSockets_, &QWebSocketServer::originAuthenticationRequired, this,
          [this](QWebSocketCorsAuthenticator* authenticator) {
            authenticator->setAllowed(policy_ && policy_->isOriginAllowed(authenticator->origin()));
          });
  connect(&webSockets_, &QWebSocketServer::newConnection, this, &AgentServer::openPage);
}

AgentServer::~AgentServer() {
  // Pages first: their sessions free their controls and delete their working folders.
  qDeleteAll(std::exchange(pages_, {}));
}

Outcome AgentServer::listen(quint16 port) {
  if (!tcp_.listen(QHostAddress::LocalHost, port)) return Failure{{}, tcp_.errorString()};
  policy_.emplace(tcp_.serverPort(), allowedOrigins_);
  return {};
}

void AgentServer::screen(QTcpSocket* socket) {
  socket->setParent(this);
  connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
  if (const QString reason = userRefusal(*socket); !reason.isEmpty()) {
    refuse(socket, reason);
    return;
  }
  auto* timer = new QTimer(socket);
  timer->setSingleShot(true);
  timer->setObjectName(QStringLiteral("door"));
  connect(timer, &QTimer::timeout, this, [this, socket] {
    refuse(socket, QStringLiteral("no complete handshake within %1 s").arg(kHandshakeTimeoutMs / 1000));
  });
  timer->start(kHandshakeTimeoutMs);
  connect(socket, &QTcpSocket::readyRead, this, [this, socket] { inspect(socket); });
  if (socket->bytesAvailable()) inspect(socket);
}

void AgentServer::inspect(QTcpSocket* socket) {
  const QByteArray bytes = socket->peek(kMaxRequestHead + 1);
  if (!bytes.contains("\r\n\r\n")) {
    if (bytes.size() > kMaxRequestHead) refuse(socket, QStringLiteral("request head larger than 16 KB"));
    return;
  }
  delete socket->findChild<QTimer*>(QStringLiteral("door"), Qt::FindDirectChildrenOnly);
  disconnect(socket, nullptr, this, nullptr);
  const std::optional<RequestHead> head = parseRequestHead(bytes);
  QString reason = head ? policy_->refusal(*head) : QStringLiteral("not an HTTP request");
  if (const QString origin = head && prompt_ ? policy_->unknownOrigin(*head) : QString(); !origin.isEmpty()) {
    const QPointer<QTcpSocket> waiting(socket);
    reason = askAbout(origin);
    if (!waiting) return;  // the page gave up while the user was asked
  }
  if (!reason.isEmpty()) {
    refuse(socket, reason);
    return;
  }
  // From here the WebSocket server reads the handshake (still unread) and owns the socket.
  disconnect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
  socket->setParent(nullptr);
  webSockets_.handleConnection(socket);
}

void AgentServer::setOriginPrompt(OriginPrompt prompt, QString settingsFile) {
  prompt_ = std::move(prompt);
  settingsFile_ = std::move(settingsFile);
}

QString AgentServer::askAbout(const QString& origin) {
  if (denied_.contains(origin)) return QStringLiteral("Origin \"%1\" was denied by the user").arg(origin);
  if (asking_.contains(origin)) return QStringLiteral("the user is being asked about Origin \"%1\"").arg(origin);
  asking_.insert(origin);
  const OriginAnswer answer = prompt_(origin);  // the page's events go on meanwhile
  asking_.remove(origin);
  switch (answer) {
    case OriginAnswer::Deny:
      denied_.insert(origin);
      return QStringLiteral("Origin \"%1\" was denied by the user").arg(origin);
    case OriginAnswer::NoAnswer: return QStringLiteral("the user did not answer about Origin \"%1\"").arg(origin);
    case OriginAnswer::AlwaysAllow:
      if (const Outcome saved = rememberAllowedOrigin(settingsFile_, origin); !saved)
        log(QStringLiteral("allowed for this run only: ") + saved.failure().description);
      [[fallthrough]];
    case OriginAnswer::AllowOnce:
      policy_->allow(origin);
      log(QStringLiteral("the user allowed origin %1%2")
              .arg(origin, answer == OriginAnswer::AllowOnce ? QStringLiteral(" for this run") : QString()));
      return {};
  }
  return {};
}

void AgentServer::refuse(QTcpSocket* socket, const QString& reason) {
  log(QStringLiteral("refused connection from %1: %2").arg(peerOf(*socket), reason));
  disconnect(socket, nullptr, this, nullptr);
  const QByteArray body = "Forbidden: " + reason.toUtf8() + '\n';
  socket->write("HTTP/1.1 403 Forbidden\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Length: " +
                QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body);
  socket->disconnectFromHost();
}

void AgentServer::openPage() {
  while (QWebSocket* socket = webSockets_.nextPendingConnection()) {
    // Numbered across the process, so two servers in one program never share a folder.
    static int pagesOpened = 0;
    const QString name = AgentPageFolderName(QCoreApplication::applicationPid(), ++pagesOpened);
    // Set before the event loop reads any of the page's frames. A frame is never larger
    // than its message, so one announcing more is refused by its header, before its bytes
    // are held anywhere.
    socket->setMaxAllowedIncomingMessageSize(maxMessageSize_);
    socket->setMaxAllowedIncomingFrameSize(maxMessageSize_);
    auto* page = new PageConnection(socket, name, hasDisplay_, this);
    pages_.append(page);
    connect(page, &QObject::destroyed, this, [this, page] {
      pages_.removeOne(page);
      emit pageClosed();
    });
    emit pageOpened();
  }
}

}  // namespace velmora::agent
