#pragma once
#include <QObject>
#include <QString>
#include <QStringList>
#include <memory>

#include "core/Result.h"
#include "platform/XmlHttpRequest.h"

namespace velmora {

class clsReadyStateHandler;

// What a batch needs from the page, taken when the batch starts.
struct UploadSettings {
  QString sendUrl;        // the page's address followed by "&action=local&type=local"
  QString charset;        // of the form's text parts
  int32_t localSize = 0;  // the largest file sent, in KB
  QString localExt;       // the extensions sent, lower case, joined by "|"
  QString workingFolder;  // where the relative references of converted pages point
  // A file whose request makes no progress this long fails, and the batch goes on.
  int stallSeconds = 60;
};

// One upload of the local files a piece of HTML refers to: it collects the distinct
// references the upload mode recognises, posts each accepted file to the page's server
// one request at a time, and once every file was tried rewrites the references with the
// server's answers. The flows that produce HTML with pictures (imports, pastes, capture,
// local upload) all end here. A batch lets pending events run at each reference and each
// step, so the page may start another batch or drop the control meanwhile: the owner then
// destroys this one, and it stops where it stood.
class UploadBatch : public QObject {
  Q_OBJECT
 public:
  UploadBatch(UploadSettings settings, QString mode, QString body);
  ~UploadBatch() override;  // a request in flight is let go, unheard

  // Collects the references and sends the first accepted file (or finishes at once).
  void start();
  // Stops the batch: its request is aborted and nothing more is heard of it.
  void cancel();
  // A request of this batch is in flight.
  bool isSending() const;

  const QString& body() const { return body_; }  // rewritten once finished
  // The name parts of the references that were uploaded, and the server's answers for
  // them, in the same order.
  const QStringList& originalFiles() const { return doneOriginal_; }
  const QStringList& savedFiles() const { return doneSaved_; }

 signals:
  // A file's request is about to go out.
  void sending();
  // A request completed and the next one went out (or the batch finished).
  void stepped();
  // A step failed: the batch stops here, its request and handler kept until it is dropped.
  void failed(const velmora::Failure& failure);
  void finished();

 private:
  bool collect();
  void next();
  Result<bool> send(const QString& path, const QString& address);
  void MyOnReadyStateWrapper_OnStateChange();
  void finish();
  void dropRequest(bool abortOpenRequest);

  const UploadSettings settings_;
  const QString m_sUploadMode;
  QString body_;
  QStringList m_asOriginal;  // entry 0 is unused: references count from 1
  QStringList m_asSaved;
  int32_t m_lUploadIndex = 0;
  QStringList doneOriginal_;
  QStringList doneSaved_;
  XmlHttpRequestPtr m_oRequest;
  // Dropped from inside their own signals, so deleted once back in the event loop.
  std::unique_ptr<clsReadyStateHandler, DeleteLater> MyOnReadyStateWrapper;
};

}  // namespace velmora
