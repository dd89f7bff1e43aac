#pragma once
#include <sys/socket.h>

#include <httplib.h>

namespace velmora {

// What keeps a cpp-httplib server answering while hundreds of connections sit idle or
// drip their request (the receiver of uploads and the demo server both take it).
// Every accepted connection holds a worker until its request is read, even one that never
// sends a byte, so with the library's default pool (8 threads on a small machine) a handful
// of silent clients stalled every client. kWorkers is above the 200 idle connections the
// servers are tested against, so a real request still finds a free worker at once; a
// waiting worker is a sleeping thread whose stack is mostly untouched, so 256 cost little.
// kRequestTimeoutSeconds (the library's default is 5) is the wait for a request's first
// byte, also between requests on one kept-alive connection, and for each read after it: a
// silent connection gives its worker back after 3 s, which lets the pool absorb about 85
// new ones a second. The library's read timeout is per read, not a deadline for the whole
// header, so a client dripping a byte a second still keeps its worker; only the pool's
// size bounds that. A cap per client address is not cheap here: the pool gets an opaque
// task per accepted socket, and the library tells the address only once the header is
// read, too late to help.
// The library listens with a backlog of 5. With hundreds of threads about, its accepting
// thread is not always quick enough for a burst of connections, and a connection beyond
// the backlog is retried by its client only a second later; a backlog of kBacklog takes a
// 200-connection burst with room to spare (the kernel caps it at net.core.somaxconn).
class IdleConnectionLimits {
 public:
  static constexpr size_t kWorkers = 256;
  static constexpr int kBacklog = 512;
  static constexpr time_t kRequestTimeoutSeconds = 3;

  // Before the server binds.
  void applyTo(httplib::Server& server) {
    server.set_keep_alive_timeout(kRequestTimeoutSeconds);
    server.set_read_timeout(kRequestTimeoutSeconds);
    server.new_task_queue = [] { return new httplib::ThreadPool(kWorkers); };
    server.set_socket_options([this](socket_t socket) {
      httplib::default_socket_options(socket);
      listenSocket_ = socket;  // the last one offered is the one bound
    });
  }
  // Once it is bound: a listening socket takes a new backlog.
  void widenBacklog() const {
    if (listenSocket_ >= 0) ::listen(listenSocket_, kBacklog);
  }

 private:
  int listenSocket_ = -1;
};

}  // namespace velmora
