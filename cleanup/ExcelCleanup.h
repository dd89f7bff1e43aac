#pragma once
#include <QString>

#include "cleanup/RuleTable.h"
#include "core/Context.h"

namespace velmora {

// The Excel clean-up pipeline: turns a sheet page (source "import") or the clipboard's
// "HTML Format" text (source "paste") into Style and Body. The WPS spreadsheet clean-up is
// the same pipeline with the workbook's shared style sheet (`extraCss`) put ahead of the
// sheet's own rules.
class ExcelCleanup {
 public:
  explicit ExcelCleanup(Context& context) : context_(context) {}

  void OptimizeHTML(const QString& source, const QString& html, const QString& options, QString& style, QString& body,
                    RuleTrace* trace = nullptr);
  void OptimizeHTML(const QString& source, const QString& html, const QString& extraCss, const QString& options,
                    QString& style, QString& body, RuleTrace* trace = nullptr);

 private:
  Context& context_;
};

}  // namespace velmora
