#include "office/OfficeApplication.h"

#include <QFileInfo>

#include "core/Yield.h"

namespace velmora {

Outcome OfficeApplication::create() {
  const Outcome created = office_->CreateObject(progId_);
  letPendingEventsRun();
  return created;
}

OfficeAnswer OfficeApplication::run(const OfficeJob& job) {
  OfficeAnswer answer = office_->run(job);
  letPendingEventsRun();
  return answer;
}

Outcome createAsAsked(OfficeAutomation& office, const QString& api, const QString& microsoft, const QString& wps) {
  if (api != u"2") {
    const Outcome created = office.CreateObject(microsoft);
    if (created || api == u"1") return created;
  }
  return office.CreateObject(wps);
}

Failure stageFailure(const OfficeAnswer& answer) { return {answer.failedStage + u':', answer.description}; }

QString absolutePath(const QString& file) { return QFileInfo(file).absoluteFilePath(); }

}  // namespace velmora
