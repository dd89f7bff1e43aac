// Moving the collected files to the server, one request at a time: UploadNext takes up
// the next reference, UploadOneFile posts it, and the request's completion stores the
// server's answer and takes up the next one.
#include "upload/UploadTransport.h"

#include <QCoreApplication>
#include <QFile>

#include "control/Velmora5.h"
#include "platform/XmlHttpRequest.h"
#include "support/basPublic.h"
#include "upload/clsXmlHttpPost.h"

namespace velmora {

namespace {

const QString kCreateWord = QStringLiteral("XMLHTTP-Create:");
const QString kOpenWord = QStringLiteral("XMLHTTP-Open:");
const QString kReadWord = QStringLiteral("CreateObject(ADODB.Stream):");
const QString kSendWord = QStringLiteral("XMLHTTP-Send:");

}  // namespace

// Takes up the batch's next reference. A refused file moves on to the next one in this
// loop, so a long run of refused files cannot exhaust the call stack.
void Velmora5::UploadNext() {
  const quint64 batch = m_lBatch;
  QCoreApplication::processEvents();
  if (batch != m_lBatch) return;  // the page started another batch meanwhile; that one runs now
  for (;;) {
    ++m_lUploadIndex;
    const int32_t last = int32_t(m_asOriginal.size()) - 1;
    if (m_lUploadIndex == 1) {
      m_bFinished = false;
      m_asSaved = QStringList(last + 1, QString());
    }
    if (m_lUploadIndex > last) {
      FinishUpload();
      return;
    }
    const QString address = m_sSendUrl + QStringLiteral("&rnd=") + PadNumber(m_lUploadIndex, 3, last + 1);
    const QString path = filePathOf(m_asOriginal[m_lUploadIndex]);
    if (!isAcceptable(path)) {
      m_asSaved[m_lUploadIndex].clear();
      continue;
    }
    UploadOneFile(path, address);
    return;
  }
}

// Posts one accepted file. A step that fails stops the batch with its word in the error
// text; the request and its handler stay until the next batch or the control's end.
void Velmora5::UploadOneFile(const QString& path, const QString& address) {
  dropRequest(/*abortOpenRequest=*/true);
  context_.g_sError.clear();
  const auto stop = [this](const QString& word, const QString& description) {
    context_.g_sError = word + description;
  };

  QString error;
  m_oRequest = XmlHttpRequest::create(error);
  if (!m_oRequest) return stop(kCreateWord, error);
  MyOnReadyStateWrapper.reset(new clsReadyStateHandler);
  connect(m_oRequest.get(), &XmlHttpRequest::OnReadyStateChange, MyOnReadyStateWrapper.get(),
          &clsReadyStateHandler::OnReadyStateChange);
  connect(MyOnReadyStateWrapper.get(), &clsReadyStateHandler::OnStateChange, this,
          &Velmora5::MyOnReadyStateWrapper_OnStateChange);

  if (!m_oRequest->Open(QStringLiteral("POST"), address, true, error)) return stop(kOpenWord, error);

  QFile file(path);
  if (!file.open(QIODevice::ReadOnly)) return stop(kReadWord, file.errorString());

  QString contentType;
  QByteArray body;
  try {
    clsXmlHttpPost post;
    post.setCharset(m_sCharset);
    post.AddForm(QStringLiteral("originalfile"), path);
    post.AddFile(QStringLiteral("uploadfile"), path, file);  // read whole, straight into the body
    post.AddEnd();
    contentType = post.ContentType();
    body = post.Data();
  } catch (const clsXmlHttpPost::Failure& failure) {
    // Content that cannot be read is the file reader's failure; text that the page's
    // charset cannot write (or an unknown charset) leaves no body that could be sent.
    return stop(failure.kind == clsXmlHttpPost::Failure::Kind::Content ? kReadWord : kSendWord, failure.description);
  }
  file.close();

  if (!m_oRequest->setRequestHeader(QStringLiteral("Content-Type"), contentType, error) ||
      !m_oRequest->send(body, error))
    return stop(kSendWord, error);
}

// Runs on every ready-state change of the current request; a complete one stores the
// server's answer for the current file and takes up the next.
void Velmora5::MyOnReadyStateWrapper_OnStateChange() {
  if (!m_oRequest || m_oRequest->readyState() != XmlHttpRequest::Completed) return;
  if (m_lUploadIndex > 0 && m_lUploadIndex < m_asSaved.size())
    m_asSaved[m_lUploadIndex] =
        m_oRequest->Status() == 200 ? m_oRequest->responseText().remove(QStringLiteral("\r\n")) : QString();
  UploadNext();
  emit resultChanged();
}

void Velmora5::dropRequest(bool abortOpenRequest) {
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
