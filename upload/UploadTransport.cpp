#include "upload/UploadTransport.h"

#include <QCoreApplication>

#include "control/Velmora5.h"
#include "support/basPublic.h"

namespace velmora {

// Takes up the batch's next reference. A refused file moves on to the next one in this
// loop, so a long run of refused files cannot exhaust the call stack.
void Velmora5::UploadNext() {
  QCoreApplication::processEvents();
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

void Velmora5::UploadOneFile(const QString& /*path*/, const QString& /*address*/) {
  dropRequest(/*abortOpenRequest=*/true);
  context_.g_sError = QStringLiteral("XMLHTTP-Create:the upload transport is not part of this build");
}

void Velmora5::MyOnReadyStateWrapper_OnStateChange() {}

void Velmora5::dropRequest(bool /*abortOpenRequest*/) {
  MyOnReadyStateWrapper.reset();
  m_oRequest.reset();
}

}  // namespace velmora
