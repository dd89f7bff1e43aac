#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRandomGenerator>
#include <QStandardPaths>
#include <string_view>

#include "support/RegExp.h"
#include "support/RequiredLiteral.h"
#include "tests/common/Helpers.h"

namespace velmora {
namespace {

using namespace std::string_view_literals;
using test::errorOf;

struct Case {
  std::u16string_view pattern, input, replacement;
};

QString q(std::u16string_view text) { return QString::fromUtf16(text.data(), qsizetype(text.size())); }

// Cases where this dialect and ECMAScript (flags "gi") must agree, chosen where PCRE2's own
// defaults would not.
// clang-format off
const Case kSameAsEcmaScript[] = {
    // "$" only at the very end, "^" only at the start; "." and line feeds
    {u"a$", u"a\n", u"X"}, {u"$", u"ab\ncd\n", u"#"}, {u"^", u"ab\ncd", u"#"}, {u"a.b", u"a\nb a-b", u"X"},
    // \w \W \d \b \s are ASCII
    {uR"(\w+)", u"héllo wörld_1", u"[$&]"}, {uR"(\W)", u"é-ÿ", u"_"}, {uR"([\W])", u"kK", u"_"},
    {uR"(\d+)", u"12٣4", u"#"}, {uR"(\bw)", u"éw aw w", u"X"}, {uR"(\s+)", u"a\t\v\f\r\n b\u0085c", u"_"},
    {uR"(\S+)", u"a\u0085 b", u"[$&]"},
    // groups that did not take part (null) beside one that took part empty
    {u"(a)|(b)(c?)", u"xAb", u"[$1|$2|$3]"}, {u"((a)?b)", u"b", u"<$2>"},
    // replacement references, a lone "$" at the end among them
    {u"b", u"abc", u"$$[$&][$`][$']"}, {u"(b)", u"abc", u"[$0|$10|$01|$2|$<x>]$x$"},
    {u"(a)(b)(c)(d)(e)(f)(g)(h)(i)(j)(k)", u"abcdefghijk", u"$11$10$1$011"},
    // case-insensitive beyond ASCII; ASCII letters fold with ASCII letters only (not the Kelvin sign, the long s)
    {u"é", u"ÉéE", u"x"}, {u"σ", u"Σσς", u"x"}, {u"ǆ", u"ǄǅǆDž", u"x"}, {u"[à-ÿ]+", u"ÀÉÎõ", u"x"},
    {u"straße", u"STRASSE straße STRAßE", u"x"}, {u"[^a-z]", u"A1", u"x"}, {u"k", u"\u212a K k", u"x"},
    {u"[a-z]+", u"\u017f\u212aAb", u"x"}, {u"\u212a|\u017f", u"\u212a k \u017f s", u"x"},
    // empty matches
    {u"x*", u"abc", u"-"}, {u"a*", u"baaac", u"-"}, {u"a*?", u"aa", u"-"}, {uR"(\b)", u"ab cd", u"|"},
    {u"(?=a)", u"aXa", u"^"}, {u"a|", u"bab", u"-"},
    // lazy quantifiers
    {uR"(<b>([^a]|a)*?</b>)", u"<b>x\nY</b><B></B><b>a", u"[$1]"},
    {uR"(<b>([^a]|a)+?</b>)", u"<b></b></b><b>A</b>", u"[$1]"}, {uR"(x([^a]|a)*?(y)|z)", u"xzzy z xy", u"[$1$2]"},
    {u"a{2,3}?", u"aaaaa", u"-"}, {uR"(<b>[\s\S]*?</b>)", u"<b>1</b>x<B>2\n</B>", u"!"},
    {u"(a+?)(a*)", u"aaa", u"[$1|$2]"},
    // look-ahead and back-references
    {u"a(?=b)", u"abac", u"X"}, {u"a(?!b)", u"abac", u"X"}, {uR"((?=(a+))a*b\1)", u"baaabac", u"[$&|$1]"},
    {uR"((a)\1)", u"aA Aa ab", u"X"}, {uR"(\1(a))", u"a", u"X"}, {uR"((a)|\1b)", u"b", u"X"},
    {uR"((?<n>a)\k<n>)", u"aA", u"x"},
    // ECMAScript escapes
    {uR"(\u00e9)", u"É", u"x"}, {uR"(\x41)", u"a", u"x"}, {uR"(\xg)", u"xg", u"_"}, {uR"(\u{2})", u"uuu", u"x"},
    {uR"(\u12)", u"u12", u"x"}, {uR"(a\/b)", u"a/b", u"x"}, {uR"(a\vb)", u"a\u000bb a\nb", u"x"},
    {uR"([\v]+)", u"\u000b\n\r", u"x"}, {uR"(\cJ)", u"\n", u"x"}, {uR"(\c1)", u"\\c1", u"x"},
    {uR"([\c1])", u"\u0011", u"x"}, {uR"(a\0b)", u"a\0b"sv, u"x"},
    {uR"(\e\a\z\Q\h\A\N\R\X\K\G\E)", u"eazQhANRXKGE", u"x"}, {uR"(\p{L}+)", u"p{L}", u"x"}, {uR"(\k)", u"k", u"x"},
    {uR"([\B\y])", u"By", u"x"}, {uR"(\_\-\#\ )", u"_-# ", u"x"},
    // braces and brackets that are not syntax
    {u"a{", u"a{", u"x"}, {u"a{,2}", u"a{,2}", u"x"}, {u"x{1,2", u"x{1,2", u"y"}, {u"}", u"}", u"x"},
    {u"]", u"]", u"x"}, {u"a[]", u"a", u"x"}, {u"a[^]b", u"a\nb", u"x"}, {u"[[:alpha:]]+", u"a:]]", u"x"}};
// clang-format on

// What ECMAScript makes of every case: the replaced text and every match.
QJsonArray runNode(const QString& node) {
  static const char* script = R"(
    let input = '';
    process.stdin.on('data', d => input += d).on('end', () => {
      const out = JSON.parse(input).map(c => {
        try {
          const matches = [...c.t.matchAll(new RegExp(c.p, 'gi'))].map(m => (
              {start: m.index, value: m[0], groups: m.slice(1).map(g => g === undefined ? null : g)}));
          return {replaced: c.t.replace(new RegExp(c.p, 'gi'), c.r), matches};
        } catch (e) { return {error: String(e)}; }
      });
      process.stdout.write(JSON.stringify(out));
    });)";
  QJsonArray cases;
  for (const Case& c : kSameAsEcmaScript)
    cases.append(QJsonObject{{"p", q(c.pattern)}, {"t", q(c.input)}, {"r", q(c.replacement)}});
  QProcess process;
  process.start(node, {"-e", script});
  process.write(QJsonDocument(cases).toJson(QJsonDocument::Compact));
  process.closeWriteChannel();
  if (!process.waitForFinished(30000) || process.exitCode() != 0) {
    ADD_FAILURE() << "node failed: " << process.readAllStandardError().toStdString();
    return {};
  }
  return QJsonDocument::fromJson(process.readAllStandardOutput()).array();
}

std::string json(const QJsonArray& array) { return QJsonDocument(array).toJson(QJsonDocument::Compact).toStdString(); }

TEST(RegExpDialect, AgreesWithEcmaScript) {
  const QString node = QStandardPaths::findExecutable("node");
  if (node.isEmpty()) GTEST_SKIP() << "node is not installed";
  const QJsonArray expected = runNode(node);
  ASSERT_EQ(expected.size(), qsizetype(std::size(kSameAsEcmaScript)));

  for (qsizetype i = 0; i < expected.size(); ++i) {
    const Case& c = kSameAsEcmaScript[i];
    const QJsonObject js = expected[i].toObject();
    SCOPED_TRACE(QStringLiteral("pattern %1 on \"%2\"").arg(q(c.pattern), q(c.input)).toStdString());
    ASSERT_FALSE(js.contains("error")) << js["error"].toString();

    const RegExp regExp(q(c.pattern));
    EXPECT_EQ(regExp.replace(q(c.input), q(c.replacement)), js["replaced"].toString());
    QJsonArray ours;
    for (const RegExpMatch& m : regExp.execute(q(c.input))) {
      EXPECT_EQ(m.length, m.value.size());
      QJsonArray groups;
      for (const QString& group : m.subMatches) groups.append(group.isNull() ? QJsonValue() : QJsonValue(group));
      ours.append(QJsonObject{{"start", m.start}, {"value", m.value}, {"groups", groups}});
    }
    EXPECT_EQ(json(ours), json(js["matches"].toArray()));
  }
}

// Where this dialect departs from ECMAScript on purpose (or where PCRE2's case folding is
// wider), pinned so that a change is noticed.
TEST(RegExpDialect, DepartsFromEcmaScriptWhereChosen) {
  const struct {
    std::u16string_view pattern, input, replacement, expected;
  } differences[] = {
      // "." stops only at a line feed (ECMAScript also stops at CR, U+2028, U+2029).
      {u"a.b", u"a\rb", u"x", u"x"},
      // \s is ASCII only (ECMAScript's includes U+00A0, U+2003, U+3000, U+FEFF, ...).
      {uR"(\s)", u"\u00a0\u2003\u3000\ufeff", u"x", u"\u00a0\u2003\u3000\ufeff"},
      // A surrogate pair is one character (ECMAScript without "u" sees two).
      {u".", u"😀", u"x", u"x"},
      {u"x*", u"😀", u"-", u"-😀-"},
      // A group inside a repetition keeps its last value (ECMAScript clears it each round).
      {u"(?:(a)|b)+", u"ab", u"[$1]", u"[a]"},
      // PCRE2 folds ß with ẞ.
      {u"ß", u"ẞ", u"x", u"x"},
  };
  for (const auto& d : differences)
    EXPECT_EQ(RegExpReplace(q(d.input), q(d.pattern), q(d.replacement)), q(d.expected)) << q(d.pattern);
}

TEST(RegExpErrors, InvalidPatternsAndRunawayBacktrackingThrow) {
  for (const char16_t* pattern : {u"(a", u"a{2,1}", u"*a", u"[b-a]", u"a\\", u"(?<=a+)b", u"\\1", u"(?<n>a)\\k<m>"}) {
    const ScriptError error = errorOf([&] { RegExpReplace("text", QString::fromUtf16(pattern), ""); });
    EXPECT_EQ(error.number(), errnum::RegExpSyntax) << QString::fromUtf16(pattern);
    EXPECT_TRUE(error.description().contains("offset")) << error.description();
  }
  // The offset is the one in the pattern as written, not as handed to PCRE2.
  EXPECT_TRUE(errorOf([] { RegExp(R"(\v\v(ab)"); }).description().contains("offset 7"));
  // A failed pattern is not remembered as a good one.
  EXPECT_THROW(RegExp("(a"), ScriptError);

  const QString text = QString(36, u'a') + u'!';
  for (const char* pattern : {R"(^(a+)+$)", R"(^(\w+\s?)+$)", R"((a|aa)+$)"}) {
    EXPECT_EQ(errorOf([&] { RegExp(pattern).test(text); }).number(), errnum::RegExpGaveUp) << pattern;
    EXPECT_THROW(RegExpReplace(text, pattern, ""), ScriptError);
  }
}

TEST(RegExpLimits, DeepMatchesOverLargeTextsSucceed) {
  // About 32 bytes of JIT stack per character: far past the per-thread stack.
  const QString text = QStringLiteral("<p>ab\r\n</p>").repeated(200'000);
  EXPECT_EQ(RegExpReplace(text, R"(^([^a]|a)+$)", "[$1]"), "[>]");
  EXPECT_EQ(RegExpSubMatch("<!--" + text + "-->x", R"(<!--((?:[^a]|a)*?)-->)", 0), text);
  // A lazy scan costs match-limit units per character; long texts get a larger limit.
  EXPECT_EQ(RegExpReplace("<b>" + text + "</b>", R"(<b>[\s\S]*?</b>)", "x"), "x");
}

TEST(RegExpLimits, OpenersThatNeverCloseGiveUpAtTheTimeLimit) {
  // Each opener scans to the end of the text for its closer: time grows with the square.
  const QString text = QStringLiteral("<![if !vml]>").repeated(200'000);
  const ScopedRegExpTimeLimit limit(std::chrono::milliseconds(300));
  const ScriptError error = errorOf([&] { RegExpReplace(text, R"(<!\[if !vml\]>([^a]|a)*?<!\[endif\]>)", ""); });
  EXPECT_EQ(error.number(), errnum::RegExpGaveUp);
  EXPECT_TRUE(error.description().contains("time limit")) << error.description();
}

TEST(RegExpLimits, ASingleRunawayMatchStopsNearTheTimeLimit) {
  // One start position whose match scans to the end of the text for every character it
  // steps over: the time goes within one match, between two reads of the match limit.
  const QString text = "<a href=\"file" + QString(400'000, u'#');
  const ScopedRegExpTimeLimit limit(std::chrono::milliseconds(500));
  QElapsedTimer timer;
  timer.start();
  const ScriptError error =
      errorOf([&] { RegExp(R"((href\s*?=\s*?['"])file[^'" >]+?(#[^\.'"\s>]*?['"]))").test(text); });
  EXPECT_TRUE(error.description().contains("time limit")) << error.description();
  EXPECT_LT(timer.elapsed(), 1000);
}

TEST(RegExpLimits, ATagThatNeverClosesOverALongRunIsPassedOverAtOnce) {
  // Every way to split the run between the lazy and the greedy part ends without the ">"
  // the match needs; PCRE2 itself looks for that ">" only near each start position.
  const QString text = "<a " + QString(300'000, u' ');
  const ScopedRegExpTimeLimit limit(std::chrono::milliseconds(2000));
  EXPECT_EQ(RegExpReplace(text, R"((<\w[^>]*?)\s\s+([^>]*?>))", "$1 $2"), text);
  EXPECT_EQ(RegExpReplace(text + ">", R"((<\w[^>]*?)\s\s+([^>]*?>))", "$1 $2"), "<a >");
}

TEST(RegExpLimits, MatchesAcrossTheSearchWindowsAreFoundWhole) {
  // The search runs over windows of start positions: matches wherever those windows end,
  // between plain characters and between surrogate pairs, are found whole and in order.
  for (const QString& filler : {QString(u'.'), QString::fromUtf16(u"😀")}) {
    QString text = filler.repeated(300'000 / filler.size());
    std::vector<qsizetype> starts;
    for (qsizetype at = text.size() - 4098; at > 0; at -= 4098) {
      text.insert(at, "<b>k</b>");
      starts.insert(starts.begin(), at);
    }
    for (qsizetype i = 0; i < qsizetype(starts.size()); ++i) starts[i] += 8 * i;
    std::vector<qsizetype> found;
    for (const RegExpMatch& match : RegExp("<b>[^<]*</b>").execute(text)) found.push_back(match.start);
    EXPECT_EQ(found, starts);
    EXPECT_EQ(RegExpReplace(text, "[^<>]*", ""), QString("<><>").repeated(qsizetype(starts.size())));
  }
}

TEST(RegExpText, UnpairedSurrogatesAreOrdinaryCharacters) {
  const QChar high(0xD800), low(0xDC00);
  const QString pair = QString::fromUtf16(u"😀");
  const QString text = "a" + QString(high) + "b" + QString(low) + "c" + pair;

  EXPECT_EQ(RegExpReplace(text, "a.b", "x"), "x" + QString(low) + "c" + pair);
  EXPECT_EQ(RegExpReplace(text, R"([\s\S])", "-"), "------");
  EXPECT_EQ(RegExpReplace("x" + QString(high), "x*", "-"), "--" + QString(high) + "-");
  // Written as escapes or as themselves in the pattern, they match themselves.
  EXPECT_EQ(RegExp(R"(\uD800)").firstMatch(text)->start, 1);
  EXPECT_EQ(RegExp(QString(low)).firstMatch(text)->start, 3);
  EXPECT_EQ(RegExp(R"(\uD83D\uDE00)").firstMatch(text)->start, 5);
  EXPECT_FALSE(RegExp(R"(\uD800)").test(pair));

  // A surrogate anywhere in the text changes how it is matched, never the answer.
  EXPECT_EQ(RegExpReplace(pair + QString::fromUtf16(u"\u212a k \u017f S"), "[ks]", "x"),
            pair + QString::fromUtf16(u"\u212a x \u017f x"));
  EXPECT_EQ(RegExpReplace(pair + "ab" + pair, "[^a]", "-"), "-a--");

  // Random code units, surrogates included: every character is matched and given back as it was.
  QRandomGenerator random(7);
  for (int round = 0; round < 200; ++round) {
    QString noise;
    for (int i = 0; i < 64; ++i) noise += QChar(char16_t(random.bounded(0xD700, 0xE100)));
    EXPECT_EQ(RegExpReplace(noise, R"(([\s\S]))", "$1"), noise);
    EXPECT_EQ(RegExpReplace(noise, ".", "$&"), noise);
  }
}

TEST(RegExpObject, CaseGlobalAndTheCache) {
  const RegExp firstOnly("a", true, false), exactCase("a", false, true);
  EXPECT_EQ(firstOnly.replace("AaA", "x"), "xaA");
  EXPECT_EQ(firstOnly.execute("AaA").size(), 1u);
  EXPECT_EQ(exactCase.replace("AaA", "x"), "AxA");
  EXPECT_FALSE(RegExp("é", false).test("É"));
  EXPECT_FALSE(RegExp("x").firstMatch("abc").has_value());
  EXPECT_EQ(RegExp("(a)(b)?").groupCount(), 2);

  const RegExp first("b+(c)");
  EXPECT_EQ(first.replace("abbcd", "[$1]"), "a[c]d");
  // Far more patterns than the cache holds: the early object keeps working, and the pattern
  // compiled again behaves the same.
  for (int i = 0; i < 1200; ++i) EXPECT_EQ(RegExpReplace("x1y", QStringLiteral("%1|1").arg(i + 2), "#"), "x#y");
  EXPECT_EQ(first.replace("abbcd", "[$1]"), "a[c]d");
  EXPECT_EQ(RegExp("b+(c)").replace("abbcd", "[$1]"), "a[c]d");
  EXPECT_EQ(RegExp("B+(C)", false).replace("abbcd", "[$1]"), "abbcd");  // the case flag is part of the key
}

TEST(RegExpShortcuts, SubMatchTestAndReplaceAll) {
  // Sub-matches count capturing groups from 0; the page-size reading of the Word clean-up uses them.
  EXPECT_EQ(RegExpSubMatch("ab", "(a)(b)", 1), "b");
  EXPECT_EQ(RegExpSubMatch("b", "(a)|b", 0), "");
  EXPECT_EQ(RegExpSubMatch("x", "(a)", 0), "");
  for (int index : {1, -1}) {
    EXPECT_EQ(errorOf([&] { RegExpSubMatch("ab", "(a)b", index); }).number(), errnum::InvalidProcedureCall);
    EXPECT_THROW(RegExpSubMatch("x", "(a)b", index), ScriptError);
  }
  // The test takes the pattern first.
  EXPECT_TRUE(RegExpTest("b+", "ABBC"));
  EXPECT_FALSE(RegExpTest("abbc", "b+"));
  // Replace-all repeats until nothing changes, also when a pass matches but changes nothing.
  EXPECT_EQ(RegExpReplaceAll("<span><span a=1></span></span>x", "<span[^>]*?></span>", ""), "x");
  EXPECT_EQ(RegExpReplaceAll("abc", "(b)", "$1"), "abc");
  EXPECT_EQ(RegExpReplaceAll("", "x*", ""), "");
  // The one-pass form does not repeat.
  EXPECT_EQ(RegExpReplace("<span><span></span></span>", "<span[^>]*?></span>", ""), "<span></span>");
}

// The run of text every match of a pattern must hold, by which the engine skips long texts.

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
      {R"(ab|cdef)", ""},      // an alternative at the top promises nothing
      {R"((ab|cd)ef)", "ef"},  // one inside a group is fine
      {R"(.^abc$)", "abc"},
      {R"((abc)", ""},  // never closed
  };
  for (const auto& c : cases) EXPECT_EQ(RequiredLiteral(c.pattern), QString(c.run)) << c.pattern;
}

TEST(RequiredLiteral, ALongTextWithoutTheRunIsPassedOverWithTheSameAnswers) {
  const QString page = QString("<p style='margin-left:1cm'>x</p>").repeated(2000);
  const QString margin = R"((<\w+[^>]*?\sstyle=[^>]*?)margin-left:\s*?-[0-9\.]+([^>]*?>))";
  EXPECT_EQ(RegExpReplace(page, margin, "!"), page);
  EXPECT_EQ(RegExpReplace(page + "<p style='MARGIN-LEFT:-2cm'>y</p>", margin, "[$1$2]"),
            page + "[<p style='cm'>]y</p>");
}

}  // namespace
}  // namespace velmora
