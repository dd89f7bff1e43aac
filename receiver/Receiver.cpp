#include "receiver/Receiver.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>

#include "receiver/Connection.h"

namespace velmora::receiver {

namespace {

constexpr size_t kMaxOriginalFile = 4096;  // the path text kept for the log

// Percent-encodes every byte outside the unreserved set, so the log shows a field's exact
// bytes whatever charset the client wrote it in.
std::string percentEncoded(const std::string& bytes) {
  static const char hex[] = "0123456789ABCDEF";
  std::string out;
  for (unsigned char c : bytes) {
    if (std::isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~') {
      out += char(c);
    } else {
      out += '%';
      out += hex[c >> 4];
      out += hex[c & 15];
    }
  }
  return out;
}

bool writeAll(int fd, const char* data, size_t size) {
  while (size > 0) {
    const ssize_t n = ::write(fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data += n;
    size -= size_t(n);
  }
  return true;
}

std::string contentTypeOf(const std::string& name) {
  const std::string extension = name.substr(name.rfind('.') + 1);
  if (extension == "png") return "image/png";
  if (extension == "jpg" || extension == "jpeg") return "image/jpeg";
  if (extension == "gif") return "image/gif";
  if (extension == "bmp") return "image/bmp";
  return "application/octet-stream";
}

void discardBody(const httplib::Request& request, const httplib::ContentReader& reader) {
  const auto ignore = [](const char*, size_t) { return true; };
  if (request.is_multipart_form_data())
    reader([](const httplib::MultipartFormData&) { return true; }, ignore);
  else
    reader(ignore);
}

// Answers are a line or two. The library compresses a text body for every client that
// accepts it (Qt asks for brotli), which for a few dozen bytes costs both ends far more
// than it saves; a body given by a provider of known length goes out as it is.
void setText(httplib::Response& response, int status, const std::string& text) {
  constexpr const char* kType = "text/plain; charset=utf-8";
  response.status = status;
  if (text.empty()) return response.set_content(text, kType);
  response.set_content_provider(text.size(), kType, [text](size_t offset, size_t length, httplib::DataSink& sink) {
    return sink.write(text.data() + offset, length);
  });
}

}  // namespace

Receiver::Receiver(Settings settings) : settings_(std::move(settings)), storage_(settings_.root) {
  actions_["local"] = &Receiver::localUpload;
  server_.set_tcp_nodelay(true);           // answers are small writes: no waiting for acknowledgements
  server_.set_keep_alive_max_count(1000);  // a page uploads file after file on one connection
  limits_.applyTo(server_);
  server_.Post(".*", [this](const httplib::Request& request, httplib::Response& response,
                            const httplib::ContentReader& reader) { post(request, response, reader); });
  server_.Get(R"(/files/([^/]+))",
              [this](const httplib::Request& request, httplib::Response& response) { getFile(request, response); });
}

int Receiver::bind() {
  const int port = settings_.port == 0 ? server_.bind_to_any_port(settings_.host)
                                       : (server_.bind_to_port(settings_.host, settings_.port) ? settings_.port : -1);
  port_ = port;
  if (port >= 0) limits_.widenBacklog();
  const bool v6 = settings_.host.find(':') != std::string::npos;
  baseUrl_ = "http://" + (v6 ? "[" + settings_.host + "]" : settings_.host) + ":" + std::to_string(port);
  return port;
}

void Receiver::run() { server_.listen_after_bind(); }

void Receiver::stop() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  stopped_.notify_all();
  server_.stop();
  shutdownConnections(port_);
}

void Receiver::post(const httplib::Request& request, httplib::Response& response,
                    const httplib::ContentReader& reader) {
  Behaviour behaviour = settings_.behaviour;
  const auto action = actions_.find(request.get_param_value("action"));
  std::optional<std::string> error = settings_.querySwitches ? behaviour.applyQuery(request) : std::nullopt;
  if (!error && action == actions_.end()) error = "unknown action: " + request.get_param_value("action");
  if (error) {
    discardBody(request, reader);
    setText(response, 400, *error + "\n");
    log("POST " + request.target + " -> 400 " + *error);
    return;
  }
  (this->*action->second)(request, response, reader, behaviour);
}

void Receiver::localUpload(const httplib::Request& request, httplib::Response& response,
                           const httplib::ContentReader& reader, const Behaviour& behaviour) {
  if (!request.is_multipart_form_data()) {
    discardBody(request, reader);
    setText(response, 400, "expected a multipart form\n");
    log("POST " + request.target + " -> 400 not a multipart form");
    return;
  }
  enum class Part { Other, OriginalFile, UploadFile } part = Part::Other;
  std::string originalFile, failure;
  bool sawFile = false;
  uint64_t bytes = 0;
  Storage::NewFile stored;

  const bool complete = reader(
      [&](const httplib::MultipartFormData& header) {
        part = Part::Other;
        if (header.name == "originalfile") part = Part::OriginalFile;
        if (header.name == "uploadfile" && !sawFile) {  // a second file part is ignored
          part = Part::UploadFile;
          sawFile = true;
          if (behaviour.stores()) {
            try {
              stored = storage_.create(header.filename);
            } catch (const std::system_error& e) {
              failure = e.what();
              return false;
            }
          }
        }
        return true;
      },
      [&](const char* data, size_t size) {
        if (part == Part::OriginalFile && originalFile.size() < kMaxOriginalFile)
          originalFile.append(data, std::min(size, kMaxOriginalFile - originalFile.size()));
        if (part != Part::UploadFile) return true;
        bytes += size;
        if (stored.fd < 0 || writeAll(stored.fd, data, size)) return true;
        failure = "cannot write " + stored.name + ": " + std::strerror(errno);
        return false;
      });
  if (stored.fd >= 0) ::close(stored.fd);

  const std::string details = " bytes=" + std::to_string(bytes) + " originalfile=" + percentEncoded(originalFile);
  if (!complete || !sawFile || !failure.empty()) {
    if (!stored.name.empty()) storage_.remove(stored.name);
    const int status = failure.empty() ? 400 : 500;
    const std::string reason = !failure.empty() ? failure : !complete ? "incomplete form" : "no uploadfile field";
    setText(response, status, reason + "\n");
    log("POST " + request.target + " -> " + std::to_string(status) + " " + reason + details);
    return;
  }
  log("POST " + request.target + " -> " + behaviour.describe() +
      (stored.name.empty() ? " not stored" : " stored=" + stored.name) + details);
  answer(request, response, behaviour, stored.name.empty() ? "" : baseUrl_ + "/files/" + stored.name);
}

void Receiver::answer(const httplib::Request& request, httplib::Response& response, const Behaviour& behaviour,
                      const std::string& address) {
  if (!pause(behaviour.delayMs)) return;
  switch (behaviour.fault) {
    case Behaviour::Fault::Silent:
      waitUntilClientLeaves(request);
      [[fallthrough]];  // a client still waiting when the receiver stops gets no answer either
    case Behaviour::Fault::Reset:
      if (const int socket = connectionOf(request); socket >= 0) resetConnection(socket);
      return;
    case Behaviour::Fault::Cut: {
      const std::string body = "http://cut.invalid/this-answer-never-arrives-whole";
      response.set_content_provider(body.size(), "text/plain", [body](size_t, size_t, httplib::DataSink& sink) {
        sink.write(body.data(), body.size() / 2);
        return false;  // the library closes the connection here
      });
      return;
    }
    case Behaviour::Fault::None: break;
  }
  if (behaviour.status != 200) return setText(response, behaviour.status, "not stored\n");
  if (behaviour.emptyBody) return setText(response, 200, "");
  const char* ending = behaviour.ending == Behaviour::Ending::CrLf ? "\r\n"
                       : behaviour.ending == Behaviour::Ending::Lf ? "\n"
                                                                   : "";
  setText(response, 200, address + ending);
}

void Receiver::getFile(const httplib::Request& request, httplib::Response& response) {
  const std::string name = request.matches[1].str();
  const int fd = storage_.openForReading(name);
  struct stat info {};
  if (fd < 0 || ::fstat(fd, &info) != 0) {
    if (fd >= 0) ::close(fd);
    setText(response, 404, "no such file\n");
    return;
  }
  const auto file = std::shared_ptr<int>(new int(fd), [](int* p) {
    ::close(*p);
    delete p;
  });
  response.set_content_provider(
      size_t(info.st_size), contentTypeOf(name), [file](size_t offset, size_t length, httplib::DataSink& sink) {
        char buffer[64 * 1024];
        const ssize_t n = ::pread(*file, buffer, std::min(length, sizeof buffer), off_t(offset));
        return n > 0 && sink.write(buffer, size_t(n));
      });
}

bool Receiver::pause(int ms) {
  std::unique_lock lock(mutex_);
  return !stopped_.wait_for(lock, std::chrono::milliseconds(ms), [this] { return stopping_; });
}

void Receiver::waitUntilClientLeaves(const httplib::Request& request) {
  const int socket = connectionOf(request);
  std::unique_lock lock(mutex_);
  while (!stopping_ && socket >= 0 && clientConnected(socket)) stopped_.wait_for(lock, std::chrono::milliseconds(100));
}

void Receiver::log(const std::string& line) {
  std::lock_guard lock(mutex_);
  std::fprintf(stdout, "%s\n", line.c_str());
  std::fflush(stdout);
}

}  // namespace velmora::receiver
