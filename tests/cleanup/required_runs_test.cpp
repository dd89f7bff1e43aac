#include <gtest/gtest.h>

#include "cleanup/ExcelRules.h"
#include "cleanup/WordRules.h"
#include "support/RegExp.h"
#include "support/RequiredLiteral.h"
#include "support/basPublic.h"
#include "tests/common/TestSupport.h"

namespace velmora {
namespace {

// The engine passes over a long text that lacks a pattern's required run. For every rule
// of the Word and Excel tables, over every fixture, each match holds that run: were the run
// read wrongly, a rule would silently stop applying to long pages.
TEST(RequiredRuns, EveryMatchOfEveryRuleHoldsItsRun) {
  std::vector<const Rule*> rules;
  const word::WordRuleSet& wordRules = word::wordRules(WordCleanup::Variant::Word);
  for (const word::RuleList* list : {&wordRules.head, &wordRules.styleTags, &wordRules.style, &wordRules.body,
                                     &wordRules.paste, &wordRules.modeOne, &wordRules.modeTwoBeforeFilter,
                                     &wordRules.modeTwoAfterFilter, &wordRules.tail})
    for (const word::ConditionalRule& entry : *list) rules.push_back(&entry.rule);
  const excel::ExcelRuleSet& excelRules = excel::excelRules();
  for (const excel::RuleList* list : {&excelRules.head, &excelRules.styleTags, &excelRules.style, &excelRules.body,
                                      &excelRules.paste, &excelRules.modeOneBeforeScroll,
                                      &excelRules.modeOneAfterScroll, &excelRules.modeTwoBeforeFilter,
                                      &excelRules.modeTwoAfterFilter})
    for (const excel::ConditionalRule& entry : *list) rules.push_back(&entry.rule);

  QString pages;
  for (const char* fixture : {"word/saved_page.htm", "word/clipboard_format.txt", "word/wps_page.htm",
                              "excel/published_sheet.htm", "excel/clipboard_format.txt", "excel/wps_sheet002.htm"})
    pages += ReadTextFile(test::testData(fixture));

  int rulesWithRuns = 0, matches = 0;
  for (const Rule* rule : rules) {
    const QString pattern = QString::fromUtf16(rule->pattern);
    const QString run = RequiredLiteral(pattern);
    if (run.isEmpty()) continue;
    ++rulesWithRuns;
    for (const RegExpMatch& match : RegExp(pattern).execute(pages)) {
      ++matches;
      EXPECT_TRUE(match.value.contains(run, Qt::CaseInsensitive))
          << QString::fromUtf16(rule->name).toStdString() << ": a match without \"" << run.toStdString() << '"';
    }
  }
  EXPECT_GT(rulesWithRuns, 60);
  EXPECT_GT(matches, 500);
}

}  // namespace
}  // namespace velmora
