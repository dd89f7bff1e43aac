#pragma once
#include <QJsonObject>
#include <QString>
#include <QStringList>

#include "core/Context.h"

namespace velmora {

// One clean-up of a given text by a pipeline chosen by name, as the command line
// (`velmora clean`) and the demo server's "/clean" ask for it.
struct CleanupJob {
  QString engine;  // one of cleanupEngines()
  QString source = QStringLiteral("import");
  QString options;
  QString html;
  QString extraCss;  // the workbook's shared style sheet, "wps-excel" only
  bool trace = false;
};

// The pipelines by name: "word", "excel", "wps-word", "wps-excel".
const QStringList& cleanupEngines();
// The sources a pipeline knows: "import", "paste".
const QStringList& cleanupSources();

// Runs the job's pipeline with `context` and answers {"Style", "Body"} and, when the job
// asks for it, "trace": each rule that changed the text, in order, as {"rule", "change"}
// (the change in characters). The engine and source must be known ones. A regular
// expression the engine cannot finish throws ScriptError.
QJsonObject runCleanup(const CleanupJob& job, Context& context);

}  // namespace velmora
