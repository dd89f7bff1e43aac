#include "support/clsRemote.h"

#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTimer>

namespace velmora {

QString clsRemote::GetRemotePage(const QString& address) const {
  const QUrl url(address, QUrl::StrictMode);
  if (!url.isValid() || url.scheme().isEmpty()) return QString();
  QNetworkAccessManager manager;
  QNetworkRequest request(url);
  request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
  request.setTransferTimeout(timeoutMs_);  // a server that stops answering midway
  std::unique_ptr<QNetworkReply> reply(manager.get(request));

  // The caller waits; the event loop keeps running meanwhile.
  QEventLoop loop;
  QTimer deadline;
  deadline.setSingleShot(true);
  QObject::connect(reply.get(), &QNetworkReply::finished, &loop, &QEventLoop::quit);
  QObject::connect(&deadline, &QTimer::timeout, reply.get(), &QNetworkReply::abort);
  deadline.start(timeoutMs_);
  if (!reply->isFinished()) loop.exec();

  if (reply->error() != QNetworkReply::NoError) return QString();
  if (reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() != 200) return QString();
  return QString::fromUtf8(reply->readAll());
}

}  // namespace velmora
