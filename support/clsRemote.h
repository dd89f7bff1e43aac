#pragma once
#include <QString>

namespace velmora {

// One-shot GET of a remote text (linked style sheets of copied pages, the upload control's
// cancel notice). The caller waits for the answer while the event loop keeps running.
class clsRemote {
 public:
  // A dead or silent server must not hang the caller: the request gives up after this.
  static constexpr int DefaultTimeoutMs = 30000;

  // A limit of 0 or less means DefaultTimeoutMs.
  explicit clsRemote(int timeoutMs = DefaultTimeoutMs) : timeoutMs_(timeoutMs) {}
  // The body decoded as UTF-8 when the server answers 200; "" on any failure.
  QString GetRemotePage(const QString& address) const;

 private:
  int timeoutMs_;
};

}  // namespace velmora
