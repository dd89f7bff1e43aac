#pragma once
#include <QString>
#include <memory>

#include "core/Result.h"
#include "office/OfficeAutomation.h"

namespace velmora {

// One engine of the office program as an engine class drives it: created by its name, then
// given one job per document. Each step lets the page's pending events run afterwards, as
// every step of an import does.
class OfficeApplication {
 public:
  OfficeApplication(std::unique_ptr<OfficeAutomation> office, QString progId)
      : office_(std::move(office)), progId_(std::move(progId)) {}

  // "CreateObject:" and why when the engine cannot be created.
  Outcome create();
  OfficeAnswer run(const OfficeJob& job);

 private:
  std::unique_ptr<OfficeAutomation> office_;
  QString progId_;
};

// The stage the office stopped at, as the error word the caller reports ("Open:" and why).
Failure stageFailure(const OfficeAnswer& answer);

// The office helper runs in a folder of its own: a relative path means the caller's folder.
QString absolutePath(const QString& file);

}  // namespace velmora
