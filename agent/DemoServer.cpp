#include "agent/DemoServer.h"

#include <httplib.h>

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <thread>

#include "agent/CleanupEndpoint.h"
#include "agent/Door.h"
#include "agent/Log.h"
#include "httpserver/IdleConnectionLimits.h"

namespace velmora::agent {

struct DemoServer::Server {
  httplib::Server http;
  std::thread thread;
  StaticFiles files;
  std::string qwebchannelJs;
  std::string agentJson;
  IdleConnectionLimits limits;
};

namespace {

void answerFile(const StaticFiles& files, const httplib::Request& request, httplib::Response& response) {
  const QString path = files.resolve(QString::fromStdString(request.path));
  QFile file(path);
  if (path.isEmpty() || !file.open(QIODevice::ReadOnly)) {
    response.status = 404;
    response.set_content("Not found\n", "text/plain; charset=utf-8");
    return;
  }
  const QByteArray bytes = file.readAll();
  response.set_header("Cache-Control", "no-cache");
  response.set_content(bytes.constData(), size_t(bytes.size()), StaticFiles::contentType(path).constData());
}

}  // namespace

DemoServer::DemoServer(StaticFiles files, QByteArray qwebchannelJs)
    : server_(new Server{{}, {}, std::move(files), qwebchannelJs.toStdString(), {}, {}}) {}

DemoServer::~DemoServer() {
  server_->http.stop();
  if (server_->thread.joinable()) server_->thread.join();
}

Outcome DemoServer::bind(quint16 port) {
  server_->limits.applyTo(server_->http);
  const int bound = port == 0 ? server_->http.bind_to_any_port("127.0.0.1")
                              : (server_->http.bind_to_port("127.0.0.1", port) ? port : -1);
  if (bound <= 0) return Failure{{}, QStringLiteral("cannot listen on 127.0.0.1:%1").arg(port)};
  server_->limits.widenBacklog();
  port_ = quint16(bound);
  return {};
}

void DemoServer::start(const QString& agentUrl, const QString& uploadUrl) {
  Server& s = *server_;
  QJsonObject page{{"agent", agentUrl}};
  if (!uploadUrl.isEmpty()) page.insert(QStringLiteral("upload"), uploadUrl);
  s.agentJson = QJsonDocument(page).toJson(QJsonDocument::Compact).toStdString();
  const quint16 port = port_;
  // One request per connection: an idle kept-alive connection would hold one of the
  // server's threads (and its stop) for seconds.
  s.http.set_keep_alive_max_count(1);
  // The same Host rule as the agent's door: a rebound DNS name gets nothing here either.
  s.http.set_pre_routing_handler([port](const httplib::Request& request, httplib::Response& response) {
    const QString host = QString::fromStdString(request.get_header_value("Host"));
    if (request.get_header_value_count("Host") == 1 && isLoopbackHost(host, port))
      return httplib::Server::HandlerResponse::Unhandled;
    log(QStringLiteral("demo server refused %1 %2: Host \"%3\" is not a loopback name with port %4")
            .arg(QString::fromStdString(request.method), QString::fromStdString(request.path), host)
            .arg(port));
    response.status = 403;
    response.set_content("Forbidden\n", "text/plain; charset=utf-8");
    return httplib::Server::HandlerResponse::Handled;
  });
  s.http.Get("/", [](const httplib::Request&, httplib::Response& response) { response.set_redirect("/demo/"); });
  s.http.Get("/qwebchannel.js", [&s](const httplib::Request&, httplib::Response& response) {
    response.set_content(s.qwebchannelJs, "text/javascript; charset=utf-8");
  });
  s.http.Get("/agent.json", [&s](const httplib::Request&, httplib::Response& response) {
    response.set_header("Cache-Control", "no-store");
    response.set_content(s.agentJson, "application/json");
  });
  addCleanupEndpoint(s.http, origin());
  s.http.Get(".*", [&s](const httplib::Request& request, httplib::Response& response) {
    answerFile(s.files, request, response);
  });
  s.thread = std::thread([&s] { s.http.listen_after_bind(); });
}

}  // namespace velmora::agent
