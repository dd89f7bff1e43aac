#pragma once
#include <QString>
#include <QStringList>
#include <memory>
#include <optional>
#include <vector>

namespace velmora {

// The regular-expression engine of every rule list: PCRE2 (16-bit code units, JIT) with
// this dialect, close to ECMAScript's:
//   - case-insensitive and global unless said otherwise;
//   - `$` matches only at the very end of the text (not before a final line feed);
//   - `.` matches anything but a line feed (a carriage return is matched);
//   - `\s`, `\w`, `\d`, `\b` are ASCII-only; case-insensitive matching still folds non-ASCII
//     letters (é matches É);
//   - in a replacement, `$1`..`$99` insert a group (a group that did not take part inserts
//     nothing), `$&` the whole match, `$$` a dollar sign; any other `$` stays as it is.
// An invalid pattern, or a match the engine cannot finish (match limit, JIT stack), throws
// ScriptError; it never reads as "no match". Compiled patterns are cached per thread.
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
  bool test(const QString& text) const;
  // Every match when global, else the first one only.
  std::vector<RegExpMatch> execute(const QString& text) const;
  std::optional<RegExpMatch> firstMatch(const QString& text) const;
  QString replace(const QString& text, const QString& replacement) const;

 private:
  struct Compiled;
  std::shared_ptr<const Compiled> compiled_;
  bool global_;
};

// The shortcuts every rule list calls: case-insensitive, every match.
QString RegExpReplace(const QString& text, const QString& pattern, const QString& replacement);
// RegExpReplace again and again until the text no longer changes.
QString RegExpReplaceAll(const QString& text, const QString& pattern, const QString& replacement);
// Group `index` (0 = the whole match) of the first match, or "" when nothing matches.
QString RegExpSubMatch(const QString& text, const QString& pattern, int index);
// Whether `pattern` matches anywhere in `text` (note the argument order).
bool RegExpTest(const QString& pattern, const QString& text);

}  // namespace velmora
