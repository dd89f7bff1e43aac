#pragma once
#include <QStringList>
#include <functional>

#include "office/OfficeAutomation.h"

namespace velmora::test {

// An office that plays back what a test wrote for it and records what it was asked: the
// automation layer's failure rows run through it without LibreOffice.
class ScriptedOffice : public OfficeAutomation {
 public:
  struct Script {
    Outcome created;
    OfficeAnswer answer;
    std::function<void(const OfficeJob&)> writes;  // the files the office would write
  };
  ScriptedOffice(Script script, QList<OfficeJob>& jobs) : script_(std::move(script)), jobs_(jobs) {}

  Outcome CreateObject(const QString& progId) override {
    if (asked) *asked << progId;
    if (!installed.isEmpty() && !installed.contains(progId))
      return Failure{"CreateObject:", progId + " is not installed"};
    return script_.created;
  }
  OfficeAnswer run(const OfficeJob& job) override {
    jobs_ << job;
    if (script_.writes) script_.writes(job);
    return script_.answer;
  }

  QStringList installed;         // when given, the only engines created
  QStringList* asked = nullptr;  // records the engines asked for

 private:
  Script script_;
  QList<OfficeJob>& jobs_;
};

}  // namespace velmora::test
