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

// Creates the Microsoft engine or the WPS one as "api" asks (see apiOption): "1" the first
// only, "2" the second only, "0" the first and, when it cannot be created, the second.
Outcome createAsAsked(OfficeAutomation& office, const QString& api, const QString& microsoft, const QString& wps);

// A status word with nothing after it ("NoMatchFile", "Printer:NotExist").
inline Failure statusWord(const QString& word) { return {word, {}}; }

// The stage the office stopped at, as the error word the caller reports ("Open:" and why).
Failure stageFailure(const OfficeAnswer& answer);

// The office helper runs in a folder of its own: a relative path means the caller's folder.
QString absolutePath(const QString& file);

}  // namespace velmora
