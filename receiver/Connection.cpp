#include "receiver/Connection.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

namespace velmora::receiver {

namespace {

struct Endpoint {
  std::string address;
  int port = -1;
};

Endpoint endpointOf(const sockaddr_storage& storage) {
  char text[INET6_ADDRSTRLEN] = {};
  if (storage.ss_family == AF_INET) {
    const auto& in = reinterpret_cast<const sockaddr_in&>(storage);
    ::inet_ntop(AF_INET, &in.sin_addr, text, sizeof text);
    return {text, ntohs(in.sin_port)};
  }
  if (storage.ss_family == AF_INET6) {
    const auto& in6 = reinterpret_cast<const sockaddr_in6&>(storage);
    ::inet_ntop(AF_INET6, &in6.sin6_addr, text, sizeof text);
    return {text, ntohs(in6.sin6_port)};
  }
  return {};
}

bool endpoints(int fd, Endpoint& local, Endpoint& peer) {
  sockaddr_storage a{}, b{};
  socklen_t aLength = sizeof a, bLength = sizeof b;
  if (::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &aLength) != 0) return false;
  if (::getpeername(fd, reinterpret_cast<sockaddr*>(&b), &bLength) != 0) return false;
  local = endpointOf(a);
  peer = endpointOf(b);
  return true;
}

// Calls `visit` with every connected socket of the process until it returns true.
template <class Visit>
int findSocket(Visit visit) {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", error)) {
    const int fd = std::stoi(entry.path().filename().string());
    Endpoint local, peer;
    if (endpoints(fd, local, peer) && visit(fd, local, peer)) return fd;
  }
  return -1;
}

}  // namespace

int connectionOf(const httplib::Request& request) {
  return findSocket([&](int, const Endpoint& local, const Endpoint& peer) {
    return local.port == request.local_port && peer.port == request.remote_port && peer.address == request.remote_addr;
  });
}

void shutdownConnections(int localPort) {
  findSocket([&](int fd, const Endpoint& local, const Endpoint&) {
    if (local.port == localPort) ::shutdown(fd, SHUT_RDWR);
    return false;
  });
}

bool clientConnected(int socket) {
  char byte;
  const ssize_t n = ::recv(socket, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
  return n > 0 || (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR));
}

void resetConnection(int socket) {
  const linger abortive{1, 0};
  ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &abortive, sizeof abortive);
  const int standIn = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (standIn < 0) return;
  ::dup2(standIn, socket);  // closes the connection: with zero linger, that is a reset
  ::close(standIn);
}

}  // namespace velmora::receiver
