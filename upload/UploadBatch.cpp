// One request at a time: next() takes up the next reference, send() posts it, and the
// request's completion stores the server's answer and takes up the next one.
#include "upload/UploadBatch.h"

#include <QDebug>
#include <QFile>
#include <QPointer>
#include <QSet>

#include "core/Aside.h"
#include "core/Text.h"
#include "core/Yield.h"
#include "support/basPublic.h"
#include "upload/LocalReferences.h"
#include "upload/clsReadyStateHandler.h"
#include "upload/clsXmlHttpPost.h"

namespace velmora {

namespace {

const QString kCreateWord = QStringLiteral("XMLHTTP-Create:");
const QString kOpenWord = QStringLiteral("XMLHTTP-Open:");
const QString kSendWord = QStringLiteral("XMLHTTP-Send:");

}  // namespace

UploadBatch::UploadBatch(UploadSettings settings, QString mode, QString body)
    : settings_(std::move(settings)), m_sUploadMode(std::move(mode)), body_(std::move(body)) {}

UploadBatch::~UploadBatch() { dropRequest(/*abortOpenRequest=*/false); }

void UploadBatch::cancel() { dropRequest(/*abortOpenRequest=*/true); }

bool UploadBatch::isSending() const { return m_oRequest && m_oRequest->readyState() != XmlHttpRequest::Completed; }

void UploadBatch::start() {
  if (collect()) next();
}

// The distinct references, in the order they stand in the body, found aside (a body may
// be megabytes). False when the batch was dropped meanwhile.
bool UploadBatch::collect() {
  const QPointer<UploadBatch> self(this);
  QStringList references = runAside([mode = m_sUploadMode, body = body_] {
    QStringList distinct{QString()};  // counted from 1
    QSet<QString> seen;
    for (const QString& reference : findLocalReferences(mode, body)) {
      if (seen.contains(reference)) continue;
      seen.insert(reference);
      distinct.append(reference);
    }
    return distinct;
  });
  if (!self) return false;
  m_asOriginal = std::move(references);
  m_lUploadIndex = 0;
  return true;
}

// Takes up the next reference. A refused file moves on to the next one in this loop, so a
// long run of refused files cannot exhaust the call stack.
void UploadBatch::next() {
  if (!letPendingEventsRun(this)) return;
  const int32_t last = int32_t(m_asOriginal.size()) - 1;
  if (m_lUploadIndex == 0) m_asSaved = QStringList(last + 1, QString());
  while (++m_lUploadIndex <= last) {
    const QString path = localReferencePath(m_sUploadMode, m_asOriginal[m_lUploadIndex], settings_.workingFolder);
    if (const QString refusal = uploadRefusal(path, settings_.localExt, settings_.localSize); !refusal.isEmpty()) {
      qInfo().noquote() << "velmora: not uploaded:" << m_asOriginal[m_lUploadIndex] << "-" << refusal;
      continue;
    }
    const QString address = settings_.sendUrl + QStringLiteral("&rnd=") + PadNumber(m_lUploadIndex, 3, last + 1);
    const Result<bool> sent = send(path, address);
    if (!sent) {
      emit failed(sent.failure());
      return;
    }
    if (sent.value()) return;  // the rest happens when the request completes
  }
  finish();
}

// Posts one accepted file: true once its request is out, false when the file could not be
// read. An unreadable file (taken away or locked since it was checked) is passed over like
// a missing one, so the batch goes on with the rest of the pictures and the page keeps that
// reference as it was; a failure of the request itself stops the batch.
Result<bool> UploadBatch::send(const QString& path, const QString& address) {
  dropRequest(/*abortOpenRequest=*/true);
  emit sending();

  QFile file(path);
  if (!file.open(QIODevice::ReadOnly)) return false;
  clsXmlHttpPost post;
  post.setCharset(settings_.charset);
  Outcome built = post.AddForm(QStringLiteral("originalfile"), path);
  if (built) built = post.AddFile(QStringLiteral("uploadfile"), path, file);  // read whole, straight into the body
  if (built) built = post.AddEnd();
  if (!built && built.failure().word == clsXmlHttpPost::kReadWord) return false;
  file.close();

  Result<XmlHttpRequestPtr> created = XmlHttpRequest::create();
  if (!created) return Failure{kCreateWord, created.failure().description};
  m_oRequest = std::move(created.value());
  MyOnReadyStateWrapper.reset(new clsReadyStateHandler);
  connect(m_oRequest.get(), &XmlHttpRequest::OnReadyStateChange, MyOnReadyStateWrapper.get(),
          &clsReadyStateHandler::OnReadyStateChange);
  connect(MyOnReadyStateWrapper.get(), &clsReadyStateHandler::OnStateChange, this,
          &UploadBatch::MyOnReadyStateWrapper_OnStateChange);

  m_oRequest->setStallTimeout(settings_.stallSeconds * 1000);
  if (Outcome opened = m_oRequest->Open(QStringLiteral("POST"), address, true); !opened)
    return Failure{kOpenWord, opened.failure().description};
  if (!built) return built.failure();  // text the page's charset cannot write: nothing to send
  Outcome request = m_oRequest->setRequestHeader(QStringLiteral("Content-Type"), post.ContentType());
  if (request) request = m_oRequest->send(post.Data());
  if (!request) return Failure{kSendWord, request.failure().description};
  return true;
}

// Runs on every ready-state change of the current request; a complete one stores the
// server's answer for the current file and takes up the next.
void UploadBatch::MyOnReadyStateWrapper_OnStateChange() {
  if (!m_oRequest || m_oRequest->readyState() != XmlHttpRequest::Completed) return;
  if (m_lUploadIndex > 0 && m_lUploadIndex < m_asSaved.size()) {
    // An answer that is no 200, or whose text cannot be read, leaves this file "" and the batch goes on.
    const Result<QString> answer = m_oRequest->responseText();
    if (m_oRequest->Status() == XmlHttpRequest::StatusTimeout)
      qInfo().noquote() << "velmora: not uploaded:" << m_asOriginal[m_lUploadIndex]
                        << "- the server made no progress for" << settings_.stallSeconds << "s";
    m_asSaved[m_lUploadIndex] =
        m_oRequest->Status() == 200 && answer ? QString(answer.value()).remove(QStringLiteral("\r\n")) : QString();
  }
  const QPointer<UploadBatch> self(this);
  next();
  if (self) emit stepped();
}

void UploadBatch::finish() {
  dropRequest(/*abortOpenRequest=*/true);
  for (qsizetype i = 1; i < m_asOriginal.size(); ++i) {
    const QString& reference = m_asOriginal[i];
    const QString saved = i < m_asSaved.size() ? m_asSaved[i] : QString();
    if (saved.isEmpty()) continue;
    replaceLocalReference(m_sUploadMode, body_, reference, saved);
    doneOriginal_.append(fileNameOf(reference));
    doneSaved_.append(saved);
  }
  m_asOriginal.clear();
  m_asSaved.clear();
  emit finished();
}

void UploadBatch::dropRequest(bool abortOpenRequest) {
  if (MyOnReadyStateWrapper) MyOnReadyStateWrapper->disconnect();
  MyOnReadyStateWrapper.reset();
  if (!m_oRequest) return;
  m_oRequest->disconnect();
  if (abortOpenRequest)
    m_oRequest->abort();
  else
    m_oRequest->letGo();
  m_oRequest.reset();
}

}  // namespace velmora
