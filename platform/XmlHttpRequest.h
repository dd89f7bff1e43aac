#pragma once
#include <QByteArray>
#include <QList>
#include <QObject>
#include <QPair>
#include <QPointer>
#include <QString>
#include <QUrl>
#include <memory>

#include "core/Result.h"

class QNetworkReply;

namespace velmora {

// Deletes a QObject once control is back in the event loop, so an object can be dropped
// from inside one of its own signals (a request's completion drops that request).
struct DeleteLater {
  template <class T>
  void operator()(T* object) const {
    if (object) object->deleteLater();
  }
};

class XmlHttpRequest;
using XmlHttpRequestPtr = std::unique_ptr<XmlHttpRequest, DeleteLater>;

// An HTTP request shaped like the platform request object the upload state machines are
// written against: Open, setRequestHeader, send, abort, readyState, Status, responseText,
// responseBody, and OnReadyStateChange on every change of the ready state, emitted on the
// thread that made the request. Over QNetworkAccessManager (one per thread, so
// connections are reused). There is no time limit: a server that never answers leaves
// the request in Loaded until it is aborted.
class XmlHttpRequest : public QObject {
  Q_OBJECT
 public:
  enum ReadyState { Uninitialized = 0, Loading = 1, Loaded = 2, Interactive = 3, Completed = 4 };

  // Status of a request that ended without a whole HTTP answer, numbered as the platform's
  // request object numbers them. None is 200, so a caller waiting for 200 sees a failure.
  static constexpr int StatusTimeout = 12002;
  static constexpr int StatusNameNotResolved = 12007;
  static constexpr int StatusCancelled = 12017;
  static constexpr int StatusCannotConnect = 12029;      // refused, unreachable
  static constexpr int StatusConnectionAborted = 12030;  // closed or reset before the answer was whole
  static constexpr int StatusInvalidResponse = 12152;    // no valid HTTP answer
  static constexpr int StatusRedirectFailed = 12156;
  static constexpr int StatusSecureFailure = 12175;

  // A request object for this thread; a failure when the thread runs no Qt event loop: an
  // asynchronous request there could never report back. Failures of this adapter carry a
  // description only (never empty); the caller names the stage.
  static Result<XmlHttpRequestPtr> create();
  ~XmlHttpRequest() override;

  // Open takes an absolute http or https address; a malformed one fails here.
  Outcome Open(const QString& method, const QString& url, bool async);
  Outcome setRequestHeader(const QString& name, const QString& value);
  // Sends `body` (shared, not copied). Asynchronous requests return at once; a
  // synchronous one returns when it is complete, the event loop running meanwhile.
  Outcome send(const QByteArray& body);
  // A request that makes no progress (nothing sent, nothing received) for `milliseconds`
  // ends as timed out (Status 12002); 0, the default, waits for ever. Set before send.
  void setStallTimeout(int milliseconds) { stallMs_ = milliseconds; }
  // Stops the request; no further OnReadyStateChange, ready state back to Uninitialized.
  void abort();
  // Gives up the request without stopping it: it runs to its end, unheard.
  void letGo();

  int readyState() const { return readyState_; }
  // The HTTP status once Completed (or one of the Status* codes above); 0 before.
  int Status() const { return status_; }
  // The body decoded by the charset its Content-Type names (a byte-order mark wins),
  // UTF-8 when it names none; a failure when that charset is unknown.
  Result<QString> responseText() const;
  QByteArray responseBody() const { return responseBody_; }

 signals:
  void OnReadyStateChange();

 private:
  XmlHttpRequest() = default;
  void setReadyState(ReadyState state);
  void onFinished();
  void forgetReply();
  void watchProgress(QNetworkReply* reply);

  ReadyState readyState_ = Uninitialized;
  QByteArray method_;
  QUrl url_;
  bool async_ = true;
  QList<QPair<QByteArray, QByteArray>> headers_;
  QPointer<QNetworkReply> reply_;
  int status_ = 0;
  QByteArray responseBody_;
  QByteArray responseContentType_;
  int stallMs_ = 0;
  bool stalled_ = false;
};

}  // namespace velmora
