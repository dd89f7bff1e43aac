#pragma once
#include <QString>
#include <QStringList>
#include <chrono>
#include <memory>
#include <optional>
#include <vector>

namespace velmora {

namespace detail {
struct CompiledPattern;
}

// The regular-expression engine of every rule list: PCRE2 (16-bit code units, JIT) with
// this dialect, close to ECMAScript's:
//   - case-insensitive and global unless said otherwise;
//   - `$` matches only at the very end of the text (not before a final line feed);
//   - `.` matches anything but a line feed (a carriage return is matched);
//   - `\s`, `\w`, `\d`, `\b` are ASCII-only; case-insensitive matching still folds non-ASCII
//     letters (é matches É), while ASCII letters fold only with each other (as in ECMAScript,
//     "k" does not match the Kelvin sign, nor "s" the long s);
//   - in a replacement, `$1`..`$99` insert a group (a group that did not take part inserts
//     nothing; two digits only when that group exists, so with one group `$10` is group 1
//     and a "0"), `$&` the whole match, "$`" the text before it, `$'` the text after it,
//     `$$` a dollar sign; any other `$` (`$0`, `$<name>`, a missing group) stays as it is;
//   - ECMAScript escapes: `\uXXXX`, `\xXX`, `\v` (vertical tab), `\cX`, `\/`; a letter with
//     no ECMAScript meaning (`\e`, `\z`, `\p`, ...) is that letter; a `{` or `}` that is not
//     a quantifier is literal; `[]` matches nothing and `[^]` anything; a back-reference to
//     a group that has not matched matches the empty text.
// Text is matched by code point: a surrogate pair is one character, and an unpaired
// surrogate is an ordinary character (it never stops or breaks a match). An empty match
// moves the next search on by one character, as ECMAScript's global replace does.
// An invalid pattern, or a match the engine cannot finish (match limit, JIT stack, or a
// pass that runs past its time limit: 10 s plus 1 ms per thousand characters, checked
// within a single match too), throws ScriptError; it never reads as "no match". Compiled
// patterns are cached per thread.
struct RegExpMatch {
  qsizetype start = 0;
  qsizetype length = 0;
  QString value;
  // Groups 1..n; a group that did not take part is a null QString.
  QStringList subMatches;
};

class RegExp {
 public:
  explicit RegExp(const QString& pattern, bool ignoreCase = true, bool global = true);
  ~RegExp();
  RegExp(const RegExp&);
  RegExp& operator=(const RegExp&);

  const QString& pattern() const;
  // Number of capturing groups in the pattern.
  int groupCount() const;
  bool test(const QString& text) const;
  // Every match when global, else the first one only.
  std::vector<RegExpMatch> execute(const QString& text) const;
  std::optional<RegExpMatch> firstMatch(const QString& text) const;
  QString replace(const QString& text, const QString& replacement) const;

 private:
  std::shared_ptr<const detail::CompiledPattern> compiled_;
  bool global_;
};

// The shortcuts every rule list calls: case-insensitive, every match.
QString RegExpReplace(const QString& text, const QString& pattern, const QString& replacement);
// RegExpReplace again and again until the text no longer changes.
QString RegExpReplaceAll(const QString& text, const QString& pattern, const QString& replacement);
// Capturing group `index` of the first match, counted from 0 (0 is the first group, as the
// rule lists number them), or "" when nothing matches or the group did not take part. An index the pattern does not
// have throws ScriptError (errnum::InvalidProcedureCall).
QString RegExpSubMatch(const QString& text, const QString& pattern, int index);
// Whether `pattern` matches anywhere in `text` (note the argument order).
bool RegExpTest(const QString& pattern, const QString& text);
// Where the first match of `pattern` starts, or -1. For a plain word this is a
// case-insensitive search many times faster than QString's.
qsizetype RegExpIndexOf(const QString& text, const QString& pattern);

// Sets the time limit of every pass, on every thread, while it lives.
class ScopedRegExpTimeLimit {
 public:
  explicit ScopedRegExpTimeLimit(std::chrono::milliseconds limit);
  ~ScopedRegExpTimeLimit();
  ScopedRegExpTimeLimit(const ScopedRegExpTimeLimit&) = delete;
  ScopedRegExpTimeLimit& operator=(const ScopedRegExpTimeLimit&) = delete;

 private:
  qint64 previousMs_;
};

}  // namespace velmora
