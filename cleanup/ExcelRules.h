#pragma once
#include <QString>
#include <vector>

#include "cleanup/RuleTable.h"

namespace velmora::excel {

// The tables are written in the shared rule types.
using velmora::Condition;
using velmora::ConditionalRule;
using velmora::RuleList;

// Everything the Excel pipeline matches against, in the order it is used. Mode 1's
// scrolling box (EK7) and mode 2's tag filter (EX3, whose list depends on the options)
// are built by the pipeline between the lists named for them.
struct ExcelRuleSet {
  RuleList head;                   // EH1
  const char16_t* styleElement;    // the style elements collected from the head
  RuleList styleTags;              // ES1
  RuleList style;                  // ES2-ES16
  RuleList body;                   // EB1-EB6
  RuleList paste;                  // EP1-EP2
  RuleList modeOneBeforeScroll;    // EK1b, EK1-EK6
  RuleList modeOneAfterScroll;     // EK8-EK12
  RuleList modeTwoBeforeFilter;    // EX1-EX2
  RuleList modeTwoAfterFilter;     // EX4-EX12
  const char16_t* permittedTags;   // what EX3 keeps
  const char16_t* permittedImage;  // appended to it with "opt2image"
};

const ExcelRuleSet& excelRules();

// The pattern of mode 2's tag filter (EX3): every tag whose name does not start like one
// of `permitted` ("table|tr|...") goes.
QString tagFilterPattern(const QString& permitted);

}  // namespace velmora::excel
