#include "support/RequiredLiteral.h"

#include <algorithm>

namespace velmora {

namespace {

// Reads a pattern's top level token by token, collecting runs of plain characters.
class LiteralScanner {
 public:
  explicit LiteralScanner(const QString& pattern) : p_(pattern) {}

  QString longestRun() {
    while (at_ < p_.size()) {
      const QChar c = p_[at_];
      if (c == u'|') return {};  // an alternative at the top: nothing is certain
      if (c == u'(')
        skipGroup();
      else if (c == u'[')
        skipClass();
      else if (c == u'\\')
        takeEscape();
      else if (c == u'*' || c == u'?')
        quantifyLast(/*mayBeAbsent=*/true, 1);
      else if (c == u'+')
        quantifyLast(/*mayBeAbsent=*/false, 1);
      else if (c == u'{')
        quantifyLast(/*mayBeAbsent=*/true, braceQuantifierLength());
      else if (QStringView(u".^$)]}").contains(c))
        endRun(1);
      else
        takePlain(c, 1);
      if (failed_) return {};
    }
    endRun(0);
    return longest_;
  }

 private:
  void takePlain(QChar c, qsizetype units) {
    run_ += c;
    at_ += units;
  }

  void endRun(qsizetype units) {
    if (run_.size() > longest_.size()) longest_ = run_;
    run_.clear();
    at_ += units;
  }

  // A quantifier makes the character before it optional ("*", "?", "{n,m}") or repeated
  // ("+"): either way the run ends there, without it when it may be absent. (A "{" that is
  // no quantifier is read as one that makes its character optional: that only gives up a
  // character.)
  void quantifyLast(bool mayBeAbsent, qsizetype units) {
    if (mayBeAbsent && !run_.isEmpty()) run_.chop(1);
    endRun(units);
    if (at_ < p_.size() && p_[at_] == u'?') ++at_;  // lazy
  }

  // The length of "{n}", "{n,}" or "{n,m}" at the current place, or 1 for a lone "{".
  qsizetype braceQuantifierLength() const {
    qsizetype i = at_ + 1;
    const qsizetype digitsFrom = i;
    while (i < p_.size() && isDigit(p_[i])) ++i;
    if (i == digitsFrom) return 1;
    if (i < p_.size() && p_[i] == u',') {
      ++i;
      while (i < p_.size() && isDigit(p_[i])) ++i;
    }
    return i < p_.size() && p_[i] == u'}' ? i + 1 - at_ : 1;
  }

  // An escape of a character that is no letter or digit stands for that character; any
  // other (\d, \s, \b, \u0041, \x41, \cJ, \k<name>, \12, ...) ends the run and is
  // passed over whole, so that its digits or letters are not read as plain characters.
  void takeEscape() {
    if (at_ + 1 >= p_.size()) {
      failed_ = true;
      return;
    }
    const QChar next = p_[at_ + 1];
    if (next.unicode() < 0x80 && !next.isLetterOrNumber()) return takePlain(next, 2);
    endRun(2);
    if (next == u'u' && hexDigitsAt(at_, 4))
      at_ += 4;
    else if (next == u'x' && hexDigitsAt(at_, 2))
      at_ += 2;
    else if (next == u'c' && at_ < p_.size() && isAsciiLetter(p_[at_]))
      at_ += 1;
    else if (next == u'k' && at_ < p_.size() && p_[at_] == u'<')
      at_ = std::max(at_, p_.indexOf(u'>', at_) + 1);
    else if (isDigit(next)) {
      while (at_ < p_.size() && isDigit(p_[at_])) ++at_;
    }
  }

  static bool isDigit(QChar c) { return c >= u'0' && c <= u'9'; }
  static bool isAsciiLetter(QChar c) { return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z'); }
  bool hexDigitsAt(qsizetype from, qsizetype count) const {
    if (from + count > p_.size()) return false;
    for (qsizetype i = from; i < from + count; ++i) {
      const QChar c = p_[i];
      if (!isDigit(c) && !((c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F'))) return false;
    }
    return true;
  }

  // A group, with everything in it (nested groups, classes, escapes), ends the run.
  void skipGroup() {
    endRun(0);
    int depth = 0;
    while (at_ < p_.size()) {
      const QChar c = p_[at_];
      if (c == u'\\') {
        at_ += 2;
      } else if (c == u'[') {
        skipClass();
        continue;
      } else {
        if (c == u'(') ++depth;
        if (c == u')' && --depth == 0) {
          ++at_;
          return;
        }
        ++at_;
      }
    }
    failed_ = true;  // never closed: the engine reports the pattern; promise nothing
  }

  // A class ends the run. "[]" and "[^]" are whole classes; a "]" anywhere else closes.
  void skipClass() {
    endRun(0);
    ++at_;
    if (at_ < p_.size() && p_[at_] == u'^') ++at_;
    if (at_ < p_.size() && p_[at_] == u']') {
      ++at_;
      return;
    }
    while (at_ < p_.size()) {
      const QChar c = p_[at_];
      at_ += c == u'\\' ? 2 : 1;
      if (c == u']') return;
    }
    failed_ = true;
  }

  const QString& p_;
  qsizetype at_ = 0;
  QString run_;
  QString longest_;
  bool failed_ = false;
};

}  // namespace

QString RequiredLiteral(const QString& pattern) { return LiteralScanner(pattern).longestRun(); }

}  // namespace velmora
