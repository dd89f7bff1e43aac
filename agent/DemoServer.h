#pragma once
#include <QByteArray>
#include <QString>
#include <memory>

#include "agent/StaticFiles.h"
#include "core/Result.h"

namespace velmora::agent {

// The demo page's HTTP server on 127.0.0.1: the mounted files, Qt's qwebchannel.js, and
// "/agent.json" telling the page where the agent's WebSocket is ("agent") and, when the
// demo has an upload receiver, the address its pictures go to ("upload"); and "POST /clean"
// (CleanupEndpoint.h) for the demo's own page. It runs on threads of its own (cpp-httplib's)
// and touches nothing but those read-only files and texts and the pure clean-up functions.
class DemoServer {
 public:
  DemoServer(StaticFiles files, QByteArray qwebchannelJs);
  ~DemoServer();

  // Binds 127.0.0.1:`port` (0 picks a free one); false with `error` set when it cannot.
  Outcome bind(quint16 port);
  quint16 port() const { return port_; }
  QString origin() const { return QStringLiteral("http://127.0.0.1:%1").arg(port_); }
  // Starts answering, with `agentUrl` as the page's WebSocket address and `uploadUrl`
  // (none when empty) as its upload address.
  void start(const QString& agentUrl, const QString& uploadUrl = {});

 private:
  struct Server;
  std::unique_ptr<Server> server_;
  quint16 port_ = 0;
};

}  // namespace velmora::agent
