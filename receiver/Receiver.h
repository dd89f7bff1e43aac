#pragma once
#include <httplib.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>

#include "httpserver/IdleConnectionLimits.h"
#include "receiver/Behaviour.h"
#include "receiver/Storage.h"

namespace velmora::receiver {

struct Settings {
  std::string root;  // where uploads are stored
  std::string host = "127.0.0.1";
  int port = 0;         // 0: any free port
  Behaviour behaviour;  // how every upload is answered unless a request says otherwise
  // Whether a request's test-* query parameters change its answer. Off by default: any
  // page could otherwise make a demo's or a shared receiver hang, reset or refuse.
  bool querySwitches = false;
};

// The server end of the editor control's local-file upload: a POST of a multipart form to
// the page's address with "&action=local&type=local&rnd=NNN" appended, fields
// "originalfile" (the path as text) and "uploadfile" (the file). The file is stored
// under the root with a safe unique name and the answer is its address, which the
// receiver serves at GET /files/<name>. Every request is logged on standard output.
class Receiver {
 public:
  explicit Receiver(Settings settings);

  // Binds the listening socket; returns the port (the chosen one for port 0), or -1.
  int bind();
  const std::string& baseUrl() const { return baseUrl_; }
  // Serves until stop() is called.
  void run();
  // From any thread: ends run(), also releasing requests held by slow or silent answers.
  void stop();

 private:
  using ActionHandler = void (Receiver::*)(const httplib::Request&, httplib::Response&, const httplib::ContentReader&,
                                           const Behaviour&);

  void post(const httplib::Request& request, httplib::Response& response, const httplib::ContentReader& reader);
  void localUpload(const httplib::Request& request, httplib::Response& response, const httplib::ContentReader& reader,
                   const Behaviour& behaviour);
  void getFile(const httplib::Request& request, httplib::Response& response);
  void answer(const httplib::Request& request, httplib::Response& response, const Behaviour& behaviour,
              const std::string& address);
  // Waits `ms` milliseconds, or until stop(); false when stopped.
  bool pause(int ms);
  void waitUntilClientLeaves(const httplib::Request& request);
  void log(const std::string& line);

  Settings settings_;
  Storage storage_;
  httplib::Server server_;
  std::string baseUrl_;
  int port_ = -1;
  IdleConnectionLimits limits_;
  // The upload forms by their "action" query value. The upload control's block protocol
  // ("mfu") is meant to join "local" here.
  std::map<std::string, ActionHandler> actions_;

  std::mutex mutex_;
  std::condition_variable stopped_;
  bool stopping_ = false;
};

}  // namespace velmora::receiver
