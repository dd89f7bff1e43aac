#pragma once
#include <QByteArray>
#include <QMap>
#include <QObject>
#include <QTcpServer>

namespace velmora::test {

// A small HTTP/1.1 server on 127.0.0.1 that runs on the test's own event loop, so code
// that waits for an answer while the loop keeps running (as every network call here does)
// can talk to it from the same thread. Each path answers what `route` set; unknown paths
// answer 404.
class HttpServer : public QObject {
  Q_OBJECT
 public:
  struct Answer {
    int status = 200;
    QByteArray body;
    QByteArray contentType = "text/plain; charset=utf-8";
    bool silent = false;     // never answers: a server that hangs
    bool keepAlive = false;  // leaves the connection open for the next request
    bool drops = false;      // reads the whole request, then closes without an answer
  };

  HttpServer();
  void route(const QByteArray& path, Answer answer) { routes_[path] = std::move(answer); }
  QString url(const QByteArray& path) const;
  // Whole requests read for `path` so far.
  int requestsFor(const QByteArray& path) const { return requests_.value(path); }

 private:
  void serve(QTcpSocket* socket);
  QTcpServer server_;
  QMap<QByteArray, Answer> routes_;
  QMap<QByteArray, int> requests_;
};

}  // namespace velmora::test
