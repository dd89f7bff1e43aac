#pragma once
#include <QString>
#include <vector>

#include "cleanup/RuleTable.h"

namespace velmora::excel {

// When a rule of the Excel tables applies. Every field left empty holds; a rule applies
// when all of them hold at the moment the pipeline reaches it.
struct Condition {
  const char16_t* option = nullptr;       // this switch must be on (its value exactly "1")
  const char16_t* optionOff = nullptr;    // this switch must be off
  bool pasteOnly = false;                 // the source must be exactly "paste"
  const char16_t* textMatches = nullptr;  // the text the rule works on must match this pattern
};

// The text a rule works on: the body, or (EK5 only) the finished style output.
enum class Target { Body, Style };

struct ConditionalRule {
  Rule rule;
  Condition when = {};
  Target target = Target::Body;
};

using RuleList = std::vector<ConditionalRule>;

// Everything the Excel pipeline matches against, in the order it is used. Mode 1's
// scrolling box (EK7) and mode 2's tag filter (EX3, whose list depends on the options)
// are built by the pipeline between the lists named for them.
struct ExcelRuleSet {
  RuleList head;                  // EH1
  const char16_t* styleElement;   // the style elements collected from the head
  RuleList styleTags;             // ES1
  RuleList style;                 // ES2-ES16
  RuleList body;                  // EB1-EB6
  RuleList paste;                 // EP1-EP2
  RuleList modeOneBeforeScroll;   // EK1b, EK1-EK6
  RuleList modeOneAfterScroll;    // EK8-EK12
  RuleList modeTwoBeforeFilter;   // EX1-EX2
  RuleList modeTwoAfterFilter;    // EX4-EX12
  const char16_t* permittedTags;  // what EX3 keeps
  const char16_t* permittedImage; // appended to it with "opt2image"
};

const ExcelRuleSet& excelRules();

// The pattern of mode 2's tag filter (EX3): every tag whose name does not start like one
// of `permitted` ("table|tr|...") goes.
QString tagFilterPattern(const QString& permitted);

}  // namespace velmora::excel
