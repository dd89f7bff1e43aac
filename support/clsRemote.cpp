#include "support/clsRemote.h"

#include "platform/Charset.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>
#include <QUrl>

namespace velmora {
namespace {

bool isWebAddress(const QUrl& url) {
  return url.isValid() && !url.host().isEmpty() &&
         (url.scheme() == QLatin1String("http") || url.scheme() == QLatin1String("https"));
}

}  // namespace

// The caller waits in a local event loop, so it works whether or not the application's
// loop is running yet, and timers, sockets and callbacks go on meanwhile. Redirects are
// followed (what a browser and the user expect of an address), except from https to http.
QString clsRemote::GetRemotePage(const QString& address) const {
  const QUrl url(address.trimmed());
  if (!QCoreApplication::instance() || !isWebAddress(url)) return QString();

  QNetworkAccessManager manager;
  QNetworkRequest request(url);
  request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
  QNetworkReply* reply = manager.get(request);  // owned by the manager

  QEventLoop loop;
  QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
  QTimer deadline;
  deadline.setSingleShot(true);
  QObject::connect(&deadline, &QTimer::timeout, reply, &QNetworkReply::abort);
  deadline.start(timeoutMs_ > 0 ? timeoutMs_ : DefaultTimeoutMs);
  if (!reply->isFinished()) loop.exec();
  if (!reply->isFinished()) {  // the application is quitting
    reply->abort();
    return QString();
  }

  const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
  if (reply->error() != QNetworkReply::NoError || status != 200) return QString();
  const Result<QString> text = Charset::decode(reply->readAll(), QStringLiteral("utf-8"));
  return text ? text.value() : QString();
}

}  // namespace velmora
