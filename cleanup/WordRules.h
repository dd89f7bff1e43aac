#pragma once
#include <QString>
#include <array>
#include <optional>
#include <vector>

#include "cleanup/RuleTable.h"
#include "cleanup/WordCleanup.h"

namespace velmora::word {

// The tables are written in the shared rule types.
using velmora::Condition;
using velmora::ConditionalRule;
using velmora::RuleList;
using velmora::SourceIs;

// Everything the Word pipeline matches against, in the order it is used. The tags that
// mode 2 keeps (X11) depend on the options, so that one rule is built by the pipeline.
struct WordRuleSet {
  RuleList head;                 // H1
  const char16_t* styleElement;  // the style elements collected from the head
  RuleList styleTags;            // S1
  const char16_t* pageSize;      // first group: the size of the @page rule
  const char16_t* pageMargin;    // first group: the margin shorthand of the @page rule
  // Top, right, bottom and left margins read one by one when the shorthand gives nothing;
  // empty patterns where the variant does not look for them.
  std::array<const char16_t*, 4> pageMarginSides;
  RuleList style;                // S2-S17
  RuleList body;                 // B1-B7
  RuleList paste;                // P1-P2
  RuleList modeOne;              // K1-K16
  RuleList modeTwoBeforeFilter;  // X1-X10
  RuleList modeTwoAfterFilter;   // X12-X19
  RuleList tail;                 // T1-T4
  Rule finalUnwrap;              // F1
};

// A change a variant makes to the Word tables, found by rule name (every rule of that name).
struct RuleChange {
  const char16_t* name;
  bool remove = false;
  const char16_t* pattern = nullptr;             // a new pattern; null keeps the rule's own
  std::optional<Condition> when = std::nullopt;  // a new condition; none keeps the rule's own
};

const WordRuleSet& wordRules(WordCleanup::Variant variant);
// The changes that make the WPS Writer tables out of the Word tables.
const std::vector<RuleChange>& wpsChanges();

// The pattern of mode 2's tag filter (X11): every tag whose name does not start like one
// of `permitted` ("p|/p|br...") goes.
QString tagFilterPattern(const QString& permitted);

}  // namespace velmora::word
