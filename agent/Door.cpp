#include "agent/Door.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QUrl>
#include <stdexcept>

namespace velmora::agent {

namespace {

bool isTokenChar(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         QByteArrayView("!#$%&'*+-.^_`|~").contains(c);
}

bool isToken(QByteArrayView text) {
  if (text.isEmpty()) return false;
  for (char c : text)
    if (!isTokenChar(c)) return false;
  return true;
}

bool isDigits(QStringView text) {
  if (text.isEmpty() || text.size() > 5) return false;
  for (QChar c : text)
    if (c < u'0' || c > u'9') return false;
  return true;
}

[[noreturn]] void badSettings(const QString& file, const QString& what) {
  throw std::runtime_error(QStringLiteral("settings file %1: %2").arg(file, what).toStdString());
}

}  // namespace

QList<QByteArray> RequestHead::values(const QByteArray& name) const {
  QList<QByteArray> found;
  for (const auto& [fieldName, value] : fields)
    if (fieldName == name) found.append(value);
  return found;
}

std::optional<RequestHead> parseRequestHead(const QByteArray& bytes) {
  const qsizetype end = bytes.indexOf("\r\n\r\n");
  if (end < 0) return std::nullopt;
  QList<QByteArray> lines;
  for (qsizetype from = 0;;) {
    const qsizetype lineEnd = bytes.indexOf("\r\n", from);
    lines.append(bytes.mid(from, lineEnd - from));
    if (lineEnd >= end) break;
    from = lineEnd + 2;
  }
  for (const QByteArray& line : lines)
    if (line.contains('\r') || line.contains('\n') || line.contains('\0')) return std::nullopt;
  RequestHead head;
  const QList<QByteArray> requestLine = lines[0].split(' ');
  if (requestLine.size() != 3 || !isToken(requestLine[0]) || requestLine[1].isEmpty() ||
      !requestLine[2].startsWith("HTTP/1."))
    return std::nullopt;
  head.method = requestLine[0];
  head.target = requestLine[1];
  for (const QByteArray& line : lines.mid(1)) {
    const qsizetype colon = line.indexOf(':');
    // A continuation line (obsolete folding) or a field without a proper name.
    if (colon <= 0 || !isToken(QByteArrayView(line).first(colon))) return std::nullopt;
    head.fields.append({line.left(colon).toLower(), line.mid(colon + 1).trimmed()});
  }
  return head;
}

QString normalizeOrigin(const QString& text) {
  const QUrl url(text.trimmed(), QUrl::StrictMode);
  const QString scheme = url.scheme().toLower();
  if (!url.isValid() || (scheme != u"http" && scheme != u"https")) return {};
  if (url.host().isEmpty() || !url.userInfo().isEmpty() || url.hasQuery() || url.hasFragment()) return {};
  if (!url.path().isEmpty() && url.path() != u"/") return {};
  QString host = url.host(QUrl::FullyEncoded).toLower();
  if (host.contains(u':')) host = u'[' + host + u']';
  const int defaultPort = scheme == u"https" ? 443 : 80;
  const int port = url.port(defaultPort);
  return scheme + QStringLiteral("://") + host + (port == defaultPort ? QString() : u':' + QString::number(port));
}

bool isLoopbackHost(const QString& host, quint16 port) {
  QStringView name = host;
  QStringView portText;
  if (host.startsWith(u'[')) {
    const qsizetype close = host.indexOf(u']');
    if (close < 0) return false;
    name = QStringView(host).left(close + 1);
    const QStringView rest = QStringView(host).mid(close + 1);
    if (!rest.isEmpty()) {
      if (!rest.startsWith(u':')) return false;
      portText = rest.mid(1);
      if (portText.isEmpty()) return false;
    }
  } else if (const qsizetype colon = host.lastIndexOf(u':'); colon >= 0) {
    name = QStringView(host).left(colon);
    portText = QStringView(host).mid(colon + 1);
    if (portText.isEmpty()) return false;
  }
  const bool loopbackName = name.compare(u"127.0.0.1") == 0 || name.compare(u"localhost", Qt::CaseInsensitive) == 0 ||
                            name.compare(u"[::1]") == 0;
  if (!loopbackName) return false;
  if (portText.isNull()) return port == 80;
  return isDigits(portText) && portText.toUInt() == port;
}

DoorPolicy::DoorPolicy(quint16 port, const QStringList& allowedOrigins) : port_(port) {
  for (const QString& origin : allowedOrigins) {
    const QString normalized = normalizeOrigin(origin);
    if (!normalized.isEmpty() && !allowed_.contains(normalized)) allowed_.append(normalized);
  }
}

bool DoorPolicy::isOriginAllowed(const QString& origin) const {
  // Browsers send the origin normalized already; anything else is not a browser's page.
  return !origin.isEmpty() && normalizeOrigin(origin) == origin && allowed_.contains(origin);
}

void DoorPolicy::allow(const QString& origin) {
  if (const QString normalized = normalizeOrigin(origin); !normalized.isEmpty() && !allowed_.contains(normalized))
    allowed_.append(normalized);
}

QString DoorPolicy::unknownOrigin(const RequestHead& head) const {
  const QList<QByteArray> origins = head.values("origin");
  if (origins.size() != 1) return {};
  const QString origin = QString::fromLatin1(origins[0]);
  const bool onlyTheOrigin = refusal(head).startsWith(QStringLiteral("Origin \"")) && normalizeOrigin(origin) == origin;
  return onlyTheOrigin ? origin : QString();
}

QString DoorPolicy::refusal(const RequestHead& head) const {
  const QList<QByteArray> hosts = head.values("host");
  if (hosts.isEmpty()) return QStringLiteral("no Host header");
  if (hosts.size() > 1) return QStringLiteral("more than one Host header");
  const QString host = QString::fromLatin1(hosts[0]);
  if (!isLoopbackHost(host, port_))
    return QStringLiteral("Host \"%1\" is not a loopback name with port %2").arg(host).arg(port_);
  const QList<QByteArray> origins = head.values("origin");
  if (origins.isEmpty()) return QStringLiteral("no Origin header");
  if (origins.size() > 1) return QStringLiteral("more than one Origin header");
  const QString origin = QString::fromLatin1(origins[0]);
  if (!isOriginAllowed(origin)) return QStringLiteral("Origin \"%1\" is not on the allowlist").arg(origin);
  return {};
}

QStringList readAllowedOrigins(const QString& settingsFile) {
  QFile file(settingsFile);
  if (!file.open(QIODevice::ReadOnly)) badSettings(settingsFile, file.errorString());
  QJsonParseError parseError;
  const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &parseError);
  if (parseError.error != QJsonParseError::NoError) badSettings(settingsFile, parseError.errorString());
  const QJsonValue list = document.object().value(QStringLiteral("allowedOrigins"));
  if (!document.isObject() || !list.isArray())
    badSettings(settingsFile, QStringLiteral("wants {\"allowedOrigins\": [...]}"));
  QStringList origins;
  for (const QJsonValue& entry : list.toArray()) {
    if (normalizeOrigin(entry.toString()).isEmpty())
      badSettings(settingsFile, QStringLiteral("not an origin: ") +
                                    QString::fromUtf8(QJsonDocument(QJsonArray{entry}).toJson(QJsonDocument::Compact)));
    origins.append(entry.toString());
  }
  return origins;
}

Outcome rememberAllowedOrigin(const QString& settingsFile, const QString& origin) {
  QJsonObject settings;
  if (QFile file(settingsFile); file.open(QIODevice::ReadOnly))
    settings = QJsonDocument::fromJson(file.readAll()).object();
  QJsonArray origins = settings.value(QStringLiteral("allowedOrigins")).toArray();
  if (!origins.contains(origin)) origins.append(origin);
  settings.insert(QStringLiteral("allowedOrigins"), origins);
  QDir().mkpath(QFileInfo(settingsFile).absolutePath());
  QSaveFile file(settingsFile);
  if (!file.open(QIODevice::WriteOnly) || file.write(QJsonDocument(settings).toJson()) < 0 || !file.commit())
    return Failure{{}, QStringLiteral("cannot write %1: %2").arg(settingsFile, file.errorString())};
  return {};
}

}  // namespace velmora::agent
