#pragma once
#include <QString>
#include <QStringView>
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
    // The rule as its table writes it; empty for a step that is no pattern.
    QString pattern;
    QString replacement;
  };
  std::vector<Step> steps;
  // Sees every rule applied, changed or not, with its input and output (the benchmark
  // replays them elsewhere).
  std::function<void(const Rule&, const QString& before, const QString& after)> observer;
  // Records a step only when the rule changed the text.
  void record(const QString& rule, const QString& before, const QString& after, const Rule* table = nullptr);
  // (The rule is copied: some are made for one call only.)
};

// Applies one rule; `trace` may be null.
QString applyRule(const QString& text, const Rule& rule, RuleTrace* trace = nullptr);

// Which value of the caller's source a rule asks for ("import" and "paste" are compared
// exactly).
enum class SourceIs { Any, Import, NotImport, Paste };

// When a rule of a table applies. Every field left empty holds; a rule applies when all of
// them hold at the moment the pipeline reaches it.
struct Condition {
  const char16_t* option = nullptr;     // this switch must be on (its value exactly "1")
  const char16_t* optionOff = nullptr;  // this switch must be off
  SourceIs source = SourceIs::Any;
  const char16_t* textMatches = nullptr;  // the text the rule works on must match this pattern
};

// The text a rule works on: the body, or the finished style output.
enum class Target { Body, Style };

struct ConditionalRule {
  Rule rule;
  Condition when = {};
  Target target = Target::Body;
};

using RuleList = std::vector<ConditionalRule>;

// One call's view of a pipeline's tables: decides each rule's condition for the caller's
// source and options, and applies it. The Word and Excel pipelines build on it.
class RulePipeline {
 public:
  RulePipeline(const QString& source, const QString& options, RuleTrace* trace)
      : source_(source), options_(options), trace_(trace) {}

  // A switch of the options is on when its value is exactly "1".
  bool on(QStringView key) const;
  QString apply(QString text, const RuleList& list) const;
  QString apply(const QString& text, const Rule& rule) const { return applyRule(text, rule, trace_); }
  // Rules whose target is the style output edit `style`, the others `body`.
  void apply(QString& body, QString& style, const RuleList& list) const;
  // A step that is no pattern, recorded in the trace under its name.
  void step(const char16_t* name, QString& text, const QString& result) const;
  // The style elements of `head` that `elementPattern` finds, joined by CR LF.
  QString styleElements(const QString& head, const char16_t* elementPattern) const;
  // Leaves what follows "</head>" in `text` and returns what precedes it (the whole text
  // when there is no "</head>").
  QString splitAtHeadEnd(QString& text) const;

 private:
  bool holds(const Condition& when, const QString& text) const;
  bool sourceHolds(SourceIs wanted) const;

  const QString& source_;
  const QString& options_;
  RuleTrace* trace_;
};

// Keeps what lies between the body's start tag and its end tag.
void cutOutBody(QString& text);

}  // namespace velmora
