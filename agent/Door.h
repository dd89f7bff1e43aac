#pragma once
#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>
#include <optional>

#include "core/Result.h"

namespace velmora::agent {

// The agent's door: which WebSocket handshakes may become a page session. A page that can
// script the agent can read local files and send them away, so only pages from an origin
// on the allowlist get in, and only through a loopback Host name (a DNS-rebound name that
// resolves to 127.0.0.1 carries its own name in Host and is turned away).

// The head of an HTTP request: request line and header fields (names lower-cased, in
// the order they came).
struct RequestHead {
  QByteArray method;
  QByteArray target;
  QList<QPair<QByteArray, QByteArray>> fields;

  // Every value of the field `name` (lower case).
  QList<QByteArray> values(const QByteArray& name) const;
};

// The request head in `bytes` (up to and including the blank line), or nothing when it
// is not a well-formed HTTP/1.x request head.
std::optional<RequestHead> parseRequestHead(const QByteArray& bytes);

// An origin in the form browsers send it: scheme "://" host [":" port], scheme and host
// in lower case, no default port, no path. Empty when `text` is not an http(s) origin
// ("null", a path, user info, a query are not origins).
QString normalizeOrigin(const QString& text);

// Whether `host` (a Host header value) names this machine's loopback interface with
// `port`: 127.0.0.1, localhost or [::1], in any case, with ":port" (which may be left
// out only when the port is 80).
bool isLoopbackHost(const QString& host, quint16 port);

class DoorPolicy {
 public:
  DoorPolicy(quint16 port, const QStringList& allowedOrigins);

  // Why the handshake must be refused, or an empty text when it may go on.
  QString refusal(const RequestHead& head) const;
  // The handshake's Origin when that it is not on the allowlist is the only reason to
  // refuse it (the user may be asked about it), else an empty text.
  QString unknownOrigin(const RequestHead& head) const;
  bool isOriginAllowed(const QString& origin) const;
  // Lets `origin` in from now on (for this run of the agent).
  void allow(const QString& origin);
  const QStringList& allowedOrigins() const { return allowed_; }
  quint16 port() const { return port_; }

 private:
  quint16 port_;
  QStringList allowed_;  // normalized
};

// The origins of a settings file: a JSON object with "allowedOrigins", an array of
// origin texts. Throws std::runtime_error naming the file and what is wrong with it.
QStringList readAllowedOrigins(const QString& settingsFile);
// Adds `origin` to the settings file's "allowedOrigins", keeping what else it holds; the
// file (and its folder) is created when missing, and replaced whole, never half written.
Outcome rememberAllowedOrigin(const QString& settingsFile, const QString& origin);

}  // namespace velmora::agent
