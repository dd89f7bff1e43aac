#pragma once
#include <QString>
#include <memory>

#include "core/Result.h"
#include "office/OfficeProtocol.h"

namespace velmora {

// The office program as the document engines drive it: created by its engine name, then
// given one job per document. LibreOffice stands behind the Microsoft names; tests put a
// scripted office in its place, which records the calls and plays back outcomes.
class OfficeAutomation {
 public:
  virtual ~OfficeAutomation() = default;
  // "Word.Application", "Excel.Application", "PowerPoint.Application"; "CreateObject:" and
  // why when the office cannot be reached or has no such engine.
  virtual Outcome CreateObject(const QString& progId) = 0;
  virtual OfficeAnswer run(const OfficeJob& job) = 0;
};

// LibreOffice through the user's office helper (velmora-office), started on first use.
std::unique_ptr<OfficeAutomation> createLibreOfficeAutomation();

// Where the user's office helper listens, and where its private LibreOffice profile lives:
// the user's runtime folder, so each login session has its own and nobody else can reach it.
QString officeHelperSocketPath();
QString officeHelperProfileFolder();

}  // namespace velmora
