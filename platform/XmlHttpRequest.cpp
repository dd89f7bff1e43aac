#include "platform/XmlHttpRequest.h"

#include <QAbstractEventDispatcher>
#include <QBuffer>
#include <QCoreApplication>
#include <QEventLoop>
#include <QHostAddress>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QRegularExpression>
#include <QStringDecoder>
#include <QThread>
#include <QTimer>
#include <cstring>

#include "platform/Charset.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <filesystem>

namespace velmora {

namespace {

// How failures below HTTP read as a status.
const std::pair<QNetworkReply::NetworkError, int> kNetworkStatuses[] = {
    {QNetworkReply::ConnectionRefusedError, XmlHttpRequest::StatusCannotConnect},
    {QNetworkReply::RemoteHostClosedError, XmlHttpRequest::StatusConnectionAborted},
    {QNetworkReply::HostNotFoundError, XmlHttpRequest::StatusNameNotResolved},
    {QNetworkReply::TimeoutError, XmlHttpRequest::StatusTimeout},
    {QNetworkReply::OperationCanceledError, XmlHttpRequest::StatusCancelled},
    {QNetworkReply::SslHandshakeFailedError, XmlHttpRequest::StatusSecureFailure},
    {QNetworkReply::TooManyRedirectsError, XmlHttpRequest::StatusRedirectFailed},
    {QNetworkReply::InsecureRedirectError, XmlHttpRequest::StatusRedirectFailed},
};

// Qt numbers the errors of the connection itself (and of proxies) below 200; above that,
// the server did answer and its HTTP status says the rest.
bool isBelowHttp(QNetworkReply::NetworkError error) { return error != QNetworkReply::NoError && error < 200; }

int statusOf(QNetworkReply& reply) {
  const QNetworkReply::NetworkError error = reply.error();
  if (isBelowHttp(error)) {
    for (const auto& [networkError, status] : kNetworkStatuses)
      if (networkError == error) return status;
    return XmlHttpRequest::StatusConnectionAborted;
  }
  const QVariant http = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute);
  return http.isValid() ? http.toInt() : XmlHttpRequest::StatusInvalidResponse;
}

// One manager per thread: it owns the connections that requests reuse.
QNetworkAccessManager& threadManager() {
  static thread_local QPointer<QNetworkAccessManager> manager;
  if (!manager) {
    manager = new QNetworkAccessManager;
    QCoreApplication* application = QCoreApplication::instance();
    if (application && application->thread() == QThread::currentThread())
      manager->setParent(application);
    else
      QObject::connect(QThread::currentThread(), &QThread::finished, manager, &QObject::deleteLater);
  }
  return *manager;
}

// An HTTP token (RFC 9110): what a method or a header name may be made of.
bool isToken(const QString& text) {
  static const QRegularExpression token(QStringLiteral("^[!#$%&'*+.^_`|~0-9A-Za-z-]+$"));
  return token.match(text).hasMatch();
}

QString charsetParameter(const QByteArray& contentType) {
  for (const QByteArray& parameter : contentType.split(';').mid(1)) {
    const qsizetype eq = parameter.indexOf('=');
    if (eq < 0 || parameter.left(eq).trimmed().toLower() != "charset") continue;
    QByteArray value = parameter.mid(eq + 1).trimmed();
    if (value.size() >= 2 && value.startsWith('"') && value.endsWith('"')) value = value.mid(1, value.size() - 2);
    return QString::fromLatin1(value);
  }
  return QString();
}

QString decodeWith(QStringConverter::Encoding encoding, QByteArrayView bytes) {
  QStringDecoder decoder(encoding, QStringConverter::Flag::Stateless);
  return decoder.decode(bytes);
}

// QNetworkAccessManager leaves Nagle's algorithm on and writes a body in 16 KB pieces, so
// the last piece waits for the server's delayed acknowledgement (about 40 ms a request on
// loopback). No supported way reaches its sockets: neither QNetworkRequest's attributes
// nor the manager expose them or a socket option, and a socket of our own cannot be handed
// to it. So the sockets connected to the request's server are found among the process's
// descriptors and get TCP_NODELAY here; setting it also sends what is being held back.
// The option is harmless on any other socket.
void setNoDelayTowards(const QUrl& url) {
  const int port = url.port(url.scheme() == u"https" ? 443 : 80);
  const QHostAddress host(url.host());
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", error)) {
    const int fd = std::atoi(entry.path().filename().c_str());
    sockaddr_storage peer{};
    socklen_t length = sizeof peer;
    if (::getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &length) != 0) continue;
    QHostAddress address;
    address.setAddress(reinterpret_cast<const sockaddr*>(&peer));
    const int peerPort = peer.ss_family == AF_INET    ? ntohs(reinterpret_cast<const sockaddr_in&>(peer).sin_port)
                         : peer.ss_family == AF_INET6 ? ntohs(reinterpret_cast<const sockaddr_in6&>(peer).sin6_port)
                                                      : -1;
    if (peerPort != port || (!host.isNull() && !host.isEqual(address, QHostAddress::TolerantConversion))) continue;
    const int on = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  }
}

// A request body that can be read once. The network layer sends a request again, on a
// new connection, when the server closes the connection before answering; a server that
// stored the upload and dropped the connection would then store it twice. It sends again
// only when it can rewind the body, and this one cannot be rewound (the request fails
// instead), while its bytes stay shared with the caller's, not copied.
class SendOnceBody : public QIODevice {
 public:
  SendOnceBody(const QByteArray& bytes, QObject* parent) : QIODevice(parent), bytes_(bytes) {
    open(QIODevice::ReadOnly);
  }
  bool isSequential() const override { return true; }
  qint64 bytesAvailable() const override { return bytes_.size() - sent_ + QIODevice::bytesAvailable(); }

 protected:
  qint64 readData(char* data, qint64 maxSize) override {
    const qint64 size = std::min(maxSize, bytes_.size() - sent_);
    std::memcpy(data, bytes_.constData() + sent_, size_t(size));
    sent_ += size;
    return size;
  }
  qint64 writeData(const char*, qint64) override { return -1; }

 private:
  const QByteArray bytes_;
  qint64 sent_ = 0;
};

}  // namespace

Result<XmlHttpRequestPtr> XmlHttpRequest::create() {
  if (!QCoreApplication::instance())
    return Failure{{}, QStringLiteral("no Qt application object exists, so no request can run")};
  if (!QAbstractEventDispatcher::instance())
    return Failure{
        {}, QStringLiteral("no event loop runs on this thread, so an asynchronous request could never report back")};
  return XmlHttpRequestPtr(new XmlHttpRequest);
}

XmlHttpRequest::~XmlHttpRequest() { abort(); }

Outcome XmlHttpRequest::Open(const QString& method, const QString& url, bool async) {
  abort();
  const QUrl parsed(url, QUrl::TolerantMode);
  QString problem;
  if (!isToken(method)) {
    problem = QStringLiteral("invalid method \"%1\"").arg(method);
  } else if (!parsed.isValid()) {
    problem = QStringLiteral("invalid address \"%1\": %2").arg(url, parsed.errorString());
  } else if (parsed.scheme() != u"http" && parsed.scheme() != u"https") {
    problem = parsed.scheme().isEmpty()
                  ? QStringLiteral("invalid address \"%1\": not an absolute http or https address").arg(url)
                  : QStringLiteral("invalid address \"%1\": unsupported protocol \"%2\"").arg(url, parsed.scheme());
  } else if (parsed.host().isEmpty()) {
    problem = QStringLiteral("invalid address \"%1\": no host").arg(url);
  }
  if (!problem.isEmpty()) return Failure{{}, problem};

  method_ = method.toUpper().toLatin1();
  url_ = parsed;
  async_ = async;
  headers_.clear();
  status_ = 0;
  responseBody_.clear();
  responseContentType_.clear();
  setReadyState(Loading);
  return {};
}

Outcome XmlHttpRequest::setRequestHeader(const QString& name, const QString& value) {
  if (readyState_ != Loading || reply_)
    return Failure{{}, QStringLiteral("the request is not open: call Open before setRequestHeader")};
  if (!isToken(name) || value.contains(u'\r') || value.contains(u'\n') || value.contains(QChar(0)))
    return Failure{{}, QStringLiteral("invalid header \"%1\"").arg(name)};
  headers_.append({name.toLatin1(), value.toUtf8()});
  return {};
}

Outcome XmlHttpRequest::send(const QByteArray& body) {
  if (readyState_ != Loading || reply_)
    return Failure{{}, QStringLiteral("the request is not open: call Open before send, once per request")};
  QNetworkRequest request(url_);
  for (const auto& [name, value] : headers_) request.setRawHeader(name, value);
  QNetworkAccessManager& manager = threadManager();
  QNetworkReply* reply = nullptr;
  if (method_ == "GET") {
    reply = manager.get(request);
  } else {
    // Streamed from the body as it is (the layer would otherwise copy a sequential body
    // into a buffer of its own, which it can rewind).
    request.setHeader(QNetworkRequest::ContentLengthHeader, body.size());
    request.setAttribute(QNetworkRequest::DoNotBufferUploadDataAttribute, true);
    auto* once = new SendOnceBody(body, nullptr);
    reply = method_ == "POST" ? manager.post(request, once) : manager.sendCustomRequest(request, method_, once);
    if (reply)
      once->setParent(reply);
    else
      delete once;
  }
  if (!reply) return Failure{{}, QStringLiteral("the network layer made no request")};
  reply_ = reply;
  connect(reply, &QNetworkReply::metaDataChanged, this, [this] { setReadyState(Interactive); });
  connect(reply, &QNetworkReply::uploadProgress, this, [this, noDelaySet = false]() mutable {
    if (!std::exchange(noDelaySet, true)) setNoDelayTowards(url_);
  });
  // Queued: the reply is released (with the body it holds) before anyone hears of the
  // completion, so the next file is never read while the last one is still in memory.
  connect(reply, &QNetworkReply::finished, this, &XmlHttpRequest::onFinished, Qt::QueuedConnection);
  watchProgress(reply);
  setReadyState(Loaded);
  if (!async_) {
    QEventLoop loop;
    connect(this, &XmlHttpRequest::OnReadyStateChange, &loop, [this, &loop] {
      if (readyState_ == Completed || readyState_ == Uninitialized) loop.quit();
    });
    loop.exec();
  }
  return {};
}

void XmlHttpRequest::abort() {
  if (reply_) {
    QNetworkReply* reply = reply_;
    forgetReply();
    reply->abort();
    reply->deleteLater();
  }
  readyState_ = Uninitialized;
}

void XmlHttpRequest::letGo() {
  if (!reply_) return;
  QNetworkReply* reply = reply_;
  forgetReply();
  if (reply->isFinished())
    reply->deleteLater();
  else
    connect(reply, &QNetworkReply::finished, reply, &QObject::deleteLater);
}

void XmlHttpRequest::forgetReply() {
  reply_->disconnect(this);
  reply_ = nullptr;
}

// A timer that every sign of progress restarts; when it runs out the reply is aborted and
// completes as timed out. It lives with the reply, so it goes when the reply goes.
void XmlHttpRequest::watchProgress(QNetworkReply* reply) {
  if (stallMs_ <= 0) return;
  auto* stall = new QTimer(reply);
  stall->setSingleShot(true);
  const auto restart = [stall, ms = stallMs_] { stall->start(ms); };
  connect(reply, &QNetworkReply::uploadProgress, stall, restart);
  connect(reply, &QNetworkReply::downloadProgress, stall, restart);
  connect(reply, &QNetworkReply::metaDataChanged, stall, restart);
  connect(stall, &QTimer::timeout, this, [this, reply] {
    stalled_ = true;
    reply->abort();
  });
  restart();
}

void XmlHttpRequest::onFinished() {
  if (!reply_ || sender() != reply_.data()) return;  // a reply given up meanwhile
  QNetworkReply* reply = reply_;
  forgetReply();
  status_ = stalled_ ? StatusTimeout : statusOf(*reply);
  responseBody_ = reply->readAll();
  responseContentType_ = reply->rawHeader("Content-Type");
  delete reply;  // not inside one of its signals: this slot was queued
  setReadyState(Completed);
}

void XmlHttpRequest::setReadyState(ReadyState state) {
  if (readyState_ == state) return;
  readyState_ = state;
  emit OnReadyStateChange();
}

Result<QString> XmlHttpRequest::responseText() const {
  const QByteArrayView body(responseBody_);
  if (body.startsWith("\xEF\xBB\xBF")) return QString::fromUtf8(body.sliced(3));
  if (body.startsWith("\xFF\xFE")) return decodeWith(QStringConverter::Utf16LE, body.sliced(2));
  if (body.startsWith("\xFE\xFF")) return decodeWith(QStringConverter::Utf16BE, body.sliced(2));
  const QString charset = charsetParameter(responseContentType_);
  if (charset.isEmpty() || charset.compare(u"utf-8", Qt::CaseInsensitive) == 0) return QString::fromUtf8(body);
  return Charset::decode(responseBody_, charset);
}

}  // namespace velmora
