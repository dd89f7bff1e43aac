#pragma once
#include <QString>
#include <functional>
#include <vector>

namespace velmora {

// One named rule of a clean-up pipeline: every match of `pattern` (case-insensitive, all
// matches) is replaced by `replacement`; an `untilStable` rule is applied again to its own
// output until a pass changes nothing. Pipelines keep their rules as ordered tables of
// these, character for character, beside the code that applies them.
struct Rule {
  const char16_t* name;
  const char16_t* pattern;
  const char16_t* replacement;
  bool untilStable = false;
};

// What each applied rule did, for `velmora clean --trace`.
struct RuleTrace {
  struct Step {
    QString rule;
    qsizetype sizeBefore;
    qsizetype sizeAfter;
  };
  std::vector<Step> steps;
  // Sees every rule applied, changed or not, with its input and output (the benchmark
  // replays them elsewhere).
  std::function<void(const Rule&, const QString& before, const QString& after)> observer;
  // Records a step only when the rule changed the text.
  void record(const QString& rule, const QString& before, const QString& after);
};

// Applies one rule; `trace` may be null.
QString applyRule(const QString& text, const Rule& rule, RuleTrace* trace = nullptr);

}  // namespace velmora
