#include <gtest/gtest.h>

#include <QRandomGenerator>

#include "support/RegExp.h"
#include "support/RequiredLiteral.h"

namespace velmora {
namespace {

TEST(RequiredLiteral, TheLongestRunEveryMatchHolds) {
  const struct {
    const char* pattern;
    const char* run;
  } cases[] = {
      {R"((<\w+[^>]*?\sstyle=[^>]*?)margin-left:\s*?-[0-9\.]+([^>]*?>))", "margin-left:"},
      {R"(<o:p>(&nbsp;)*</o:p>)", "</o:p>"},
      {R"(<!--\[if gte vml 1\]>([^a]|a)+?<!\[endif\]-->)", "<!--[if gte vml 1]>"},
      {R"(abc?d)", "ab"},             // an optional character leaves the run
      {R"(abc+d)", "abc"},            // a repeated one ends it
      {R"(ab{2}cd)", "cd"},           // a counted one too, with its count
      {R"(ab{x}cd)", "cd"},           // a "{" that counts nothing is read as a quantifier
      {R"(a\.b\/c)", "a.b/c"},        // escaped punctuation is itself
      {R"(ab\u0041cd\x41ef)", "ab"},  // escapes of letters end a run, their digits too
      {R"(\cJabc\1xyz)", "abc"},
      {R"(a(?=b)cde[^x]yz)", "cde"},  // groups and classes end runs
      {R"([]abc[^]de)", "abc"},
      {R"(ab|cdef)", ""},             // an alternative at the top promises nothing
      {R"((ab|cd)ef)", "ef"},         // one inside a group is fine
      {R"(.^abc$)", "abc"},
      {R"((abc)", ""},                // never closed
  };
  for (const auto& c : cases) EXPECT_EQ(RequiredLiteral(c.pattern), QString(c.run)) << c.pattern;
}

// Random patterns over a small alphabet: whatever they match contains their run.
TEST(RequiredLiteral, RandomPatternsNeverMatchWithoutTheirRun) {
  const QStringList atoms = {"a", "b", "c", "ab", "\\.", ".", "[ab]", "[^a]", "(a|bc)", "(?:b)", "\\d", "\\s",
                             "(?=a)", "(?!b)", "{", "\\u0061", "\\x62", "\\1", "|"};
  const QStringList quantifiers = {"", "", "", "*", "+", "?", "{2}", "{0,1}", "*?", "+?"};
  QRandomGenerator random(20261123);
  int checked = 0;
  for (int round = 0; round < 3000; ++round) {
    QString pattern, text;
    for (int i = random.bounded(1, 8); i > 0; --i)
      pattern += atoms[random.bounded(int(atoms.size()))] + quantifiers[random.bounded(int(quantifiers.size()))];
    for (int i = random.bounded(1, 40); i > 0; --i) text += QString("abcAB. 1.")[random.bounded(9)];
    const QString run = RequiredLiteral(pattern);
    try {
      for (const RegExpMatch& match : RegExp(pattern).execute(text)) {
        ++checked;
        EXPECT_TRUE(match.value.contains(run, Qt::CaseInsensitive))
            << qPrintable(pattern) << " matched \"" << qPrintable(match.value) << "\" without \"" << qPrintable(run) << '"';
      }
    } catch (const std::exception&) {
      // an invalid pattern: nothing to check
    }
  }
  EXPECT_GT(checked, 1000);

  // A long text without the run is passed over whole, with the same answers as a search.
  const QString page = QString("<p style='margin-left:1cm'>x</p>").repeated(2000);
  const QString margin = R"((<\w+[^>]*?\sstyle=[^>]*?)margin-left:\s*?-[0-9\.]+([^>]*?>))";
  EXPECT_EQ(RegExpReplace(page, margin, "!"), page);
  EXPECT_EQ(RegExpReplace(page + "<p style='MARGIN-LEFT:-2cm'>y</p>", margin, "[$1$2]"), page + "[<p style='cm'>]y</p>");
}

}  // namespace
}  // namespace velmora
