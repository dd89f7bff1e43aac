#include <gtest/gtest.h>

#include <QSet>

#include "cleanup/ExcelRules.h"
#include "cleanup/WordRules.h"
#include "support/RegExp.h"
#include "support/RequiredLiteral.h"
#include "tests/cleanup/CleanupTesting.h"

namespace velmora {
namespace {

// The engine passes over a long text that lacks a pattern's required run. For every rule
// of the Word, WPS and Excel tables, over every fixture, each pattern compiles and each
// match holds that run: were the run read wrongly, a rule would silently stop applying to
// long pages.
TEST(RequiredRuns, EveryRuleCompilesAndEachOfItsMatchesHoldsItsRun) {
  std::vector<const Rule*> rules;
  for (auto variant : {WordCleanup::Variant::Word, WordCleanup::Variant::WPS}) {
    const word::WordRuleSet& w = word::wordRules(variant);
    for (const word::RuleList* list : {&w.head, &w.styleTags, &w.style, &w.body, &w.paste, &w.modeOne,
                                       &w.modeTwoBeforeFilter, &w.modeTwoAfterFilter, &w.tail})
      for (const word::ConditionalRule& entry : *list) rules.push_back(&entry.rule);
  }
  const excel::ExcelRuleSet& e = excel::excelRules();
  for (const excel::RuleList* list : {&e.head, &e.styleTags, &e.style, &e.body, &e.paste, &e.modeOneBeforeScroll,
                                      &e.modeOneAfterScroll, &e.modeTwoBeforeFilter, &e.modeTwoAfterFilter})
    for (const excel::ConditionalRule& entry : *list) rules.push_back(&entry.rule);

  QString pages;
  for (const char* fixture : {"word/saved_page.htm", "word/clipboard_format.txt", "word/wps_page.htm",
                              "excel/published_sheet.htm", "excel/clipboard_format.txt", "excel/wps_sheet002.htm"})
    pages += test::fixture(fixture);

  int rulesWithRuns = 0, matches = 0;
  QSet<QString> seen;  // WPS shares most of Word's patterns
  for (const Rule* rule : rules) {
    const QString pattern = QString::fromUtf16(rule->pattern), name = QString::fromUtf16(rule->name);
    if (seen.contains(pattern)) continue;
    seen.insert(pattern);
    const QString run = RequiredLiteral(pattern);
    std::vector<RegExpMatch> found;
    EXPECT_NO_THROW(found = RegExp(pattern).execute(pages)) << name;
    if (run.isEmpty()) continue;
    ++rulesWithRuns;
    for (const RegExpMatch& match : found) {
      ++matches;
      EXPECT_TRUE(match.value.contains(run, Qt::CaseInsensitive)) << name << ": a match without \"" << run << '"';
    }
  }
  EXPECT_GT(rulesWithRuns, 60);
  EXPECT_GT(matches, 500);
}

}  // namespace
}  // namespace velmora
