#include "cleanup/CleanupRun.h"

#include <QJsonArray>
#include <stdexcept>

#include "cleanup/ExcelCleanup.h"
#include "cleanup/WordCleanup.h"

namespace velmora {

namespace {

QJsonArray traceJson(const RuleTrace& trace) {
  QJsonArray steps;
  for (const RuleTrace::Step& step : trace.steps) {
    QJsonObject entry{{"rule", step.rule}, {"change", double(step.sizeAfter - step.sizeBefore)}};
    if (!step.pattern.isEmpty()) {  // what the rule does, as its table writes it
      entry.insert(QStringLiteral("pattern"), step.pattern);
      entry.insert(QStringLiteral("replacement"), step.replacement);
    }
    steps.append(entry);
  }
  return steps;
}

}  // namespace

const QStringList& cleanupEngines() {
  static const QStringList engines{"word", "excel", "wps-word", "wps-excel"};
  return engines;
}

const QStringList& cleanupSources() {
  static const QStringList sources{"import", "paste"};
  return sources;
}

QJsonObject runCleanup(const CleanupJob& job, Context& context) {
  if (!cleanupEngines().contains(job.engine) || !cleanupSources().contains(job.source))
    throw std::invalid_argument("runCleanup: unknown engine or source");
  RuleTrace trace;
  RuleTrace* tracing = job.trace ? &trace : nullptr;
  QString style, body;
  if (job.engine == u"word" || job.engine == u"wps-word") {
    const auto variant = job.engine == u"word" ? WordCleanup::Variant::Word : WordCleanup::Variant::WPS;
    WordCleanup(context, variant).OptimizeHTML(job.source, job.html, job.options, style, body, tracing);
  } else {
    ExcelCleanup(context).OptimizeHTML(job.source, job.html, job.extraCss, job.options, style, body, tracing);
  }
  QJsonObject out{{"Style", style}, {"Body", body}};
  if (job.trace) out.insert(QStringLiteral("trace"), traceJson(trace));
  return out;
}

}  // namespace velmora
