#include "support/RegExp.h"

#define PCRE2_CODE_UNIT_WIDTH 16
#include <pcre2.h>

#include <QElapsedTimer>
#include <QHashFunctions>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <limits>
#include <list>
#include <mutex>
#include <unordered_map>

#include "core/ScriptError.h"
#include "support/RequiredLiteral.h"

namespace velmora {

namespace detail {
// One pattern compiled (and JIT-compiled when the machine allows) for this dialect, in up
// to two forms: by code unit, which is faster and serves an ASCII pattern on text without
// surrogates, and by code point (UTF), which serves everything else and is compiled when
// first needed. Each has a guarded twin, compiled only for a match that runs long, which
// calls back before every item so that the match can watch the clock (see Matcher).
struct CompiledPattern {
  QString pattern;
  bool ignoreCase = true;
  pcre2_code* byUnit = nullptr;
  // By unit as well: the run of characters every match contains, when it is worth a search.
  pcre2_code* requiredRun = nullptr;
  // The last ASCII character every match contains at or after its start, as PCRE2 works it
  // out, or 0. PCRE2 looks for it itself only within some 190,000 characters of a start
  // position; past that, a rule such as `(<\w[^>]*?)\s\s+([^>]*?>)` on a tag that never
  // closes would try every way to split a long run of spaces before failing.
  char16_t requiredLast = 0;
  int groupCount = 0;

  CompiledPattern() = default;
  CompiledPattern(const CompiledPattern&) = delete;
  CompiledPattern& operator=(const CompiledPattern&) = delete;
  ~CompiledPattern() {
    pcre2_code_free(byUnit);
    pcre2_code_free(requiredRun);
    for (LazyForm* form : {&byCodePoint_, &guardedByUnit_, &guardedByCodePoint_}) pcre2_code_free(form->code);
  }
  pcre2_code* byCodePoint() const;
  pcre2_code* guarded(bool byUnit) const;

 private:
  struct LazyForm {
    std::once_flag once;
    pcre2_code* code = nullptr;
  };
  pcre2_code* lazily(LazyForm& form, uint32_t options) const;
  mutable LazyForm byCodePoint_, guardedByUnit_, guardedByCodePoint_;
};
}  // namespace detail

namespace {

using detail::CompiledPattern;

// ---------------------------------------------------------------------------------------
// Stand-ins. Matching by code point needs valid UTF-16, but text from arbitrary data may hold
// a surrogate without its partner; it is matched as a private-use character of the same
// length (U+E000 + its offset in the surrogate block), so offsets do not move and every piece
// of text handed back is cut from the caller's own string. The Kelvin sign and the long s
// get stand-ins too: PCRE2 folds them with "k" and "s", ECMAScript does not, and the
// by-unit form (which never folds beyond ASCII) must agree with the by-code-point one.
// (Only a pattern that names those private-use characters, or a range over the replaced
// characters, could tell the difference.)

bool isSurrogate(char16_t c) { return (c & 0xF800) == 0xD800; }
bool isHighSurrogate(char16_t c) { return (c & 0xFC00) == 0xD800; }
bool isLowSurrogate(char16_t c) { return (c & 0xFC00) == 0xDC00; }
constexpr char16_t kKelvinSign = 0x212A, kLongS = 0x017F;
char16_t standInFor(char16_t c) {
  if (c == kKelvinSign) return 0xE800;
  if (c == kLongS) return 0xE801;
  return char16_t(0xE000 + (c - 0xD800));
}

bool isPairAt(const char16_t* s, qsizetype size, qsizetype i) {
  return isHighSurrogate(s[i]) && i + 1 < size && isLowSurrogate(s[i + 1]);
}

// Whether any code unit is a surrogate; in blocks without a branch per unit, so that the
// compiler can vectorise the common case (no surrogate at all).
bool hasSurrogates(const char16_t* s, qsizetype size) {
  constexpr qsizetype kBlock = 64;
  qsizetype i = 0;
  for (; i + kBlock <= size; i += kBlock) {
    unsigned found = 0;
    for (qsizetype k = 0; k < kBlock; ++k) found |= unsigned((s[i + k] & 0xF800) == 0xD800);
    if (found) return true;
  }
  for (; i < size; ++i) {
    if (isSurrogate(s[i])) return true;
  }
  return false;
}

// Offset of the first unit at or after `from` that needs a stand-in, or `size`.
qsizetype findStandInNeeded(const char16_t* s, qsizetype size, qsizetype from = 0) {
  for (qsizetype i = from; i < size; ++i) {
    const char16_t c = s[i];
    if (c == kKelvinSign || c == kLongS) return i;
    if (!isSurrogate(c)) continue;
    if (!isPairAt(s, size, i)) return i;
    ++i;
  }
  return size;
}

// Large texts known to hold no surrogate. A rule list runs hundreds of patterns over the
// same text, or over what the previous rule made of it; scanning it again each time would
// cost more than most of the matches. An entry holds a reference to its text, so its data
// cannot change or be freed while it is remembered; entries that only this list still
// holds are dropped.
class SurrogateFreeTexts {
 public:
  static SurrogateFreeTexts& get() {
    thread_local SurrogateFreeTexts texts;
    return texts;
  }
  static bool worthRemembering(const QString& text) { return text.size() >= 4096; }
  bool contains(const QString& text) const {
    return std::any_of(std::begin(texts_), std::end(texts_), [&](const QString& known) {
      return known.constData() == text.constData() && known.size() == text.size();
    });
  }
  void add(const QString& text) {
    if (!worthRemembering(text) || contains(text)) return;
    for (QString& known : texts_) {
      if (known.isDetached()) known.clear();
    }
    // A free place first, so that texts still in use stay known; else the oldest goes.
    auto place =
        std::find_if(std::begin(texts_), std::end(texts_), [](const QString& known) { return known.isNull(); });
    if (place == std::end(texts_)) {
      place = std::begin(texts_) + next_;
      next_ = (next_ + 1) % std::size(texts_);
    }
    *place = text;
  }

 private:
  QString texts_[4];
  size_t next_ = 0;
};

bool knownSurrogateFree(const QString& text) {
  if (!SurrogateFreeTexts::worthRemembering(text))
    return !hasSurrogates(reinterpret_cast<const char16_t*>(text.utf16()), text.size());
  if (SurrogateFreeTexts::get().contains(text)) return true;
  if (hasSurrogates(reinterpret_cast<const char16_t*>(text.utf16()), text.size())) return false;
  SurrogateFreeTexts::get().add(text);
  return true;
}

// The subject as PCRE2 sees it: the caller's text, matched by code unit when it holds no
// surrogate and the pattern allows, else by code point, from a copy with stand-ins when
// the text needs them.
class Subject {
 public:
  Subject(const QString& text, bool unitsWillDo)
      : data_(reinterpret_cast<const char16_t*>(text.utf16())), size_(text.size()) {
    byUnit_ = unitsWillDo && knownSurrogateFree(text);
    if (byUnit_) return;
    qsizetype at = findStandInNeeded(data_, size_);
    if (at == size_) return;
    valid_ = text;
    char16_t* out = reinterpret_cast<char16_t*>(valid_.data());
    for (; at < size_; at = findStandInNeeded(out, size_, at + 1)) out[at] = standInFor(out[at]);
    data_ = reinterpret_cast<const char16_t*>(valid_.utf16());
  }
  bool byUnit() const { return byUnit_; }
  PCRE2_SPTR data() const { return reinterpret_cast<PCRE2_SPTR>(data_); }
  qsizetype size() const { return size_; }
  // `pos`, or the offset after it when it is the second half of a surrogate pair.
  qsizetype characterStartAtOrAfter(qsizetype pos) const {
    return pos > 0 && pos < size_ && isPairAt(data_, size_, pos - 1) ? pos + 1 : pos;
  }
  // The offset one character after `pos` (a surrogate pair is one character).
  qsizetype after(qsizetype pos) const { return pos + (pos < size_ && isPairAt(data_, size_, pos) ? 2 : 1); }

 private:
  const char16_t* data_;
  qsizetype size_;
  bool byUnit_ = false;
  QString valid_;
};

// ---------------------------------------------------------------------------------------
// From the ECMAScript form of a pattern to PCRE2's. Compile options cover most of the
// dialect; this pass rewrites only what no option does, and keeps, for every unit it writes,
// the offset of the unit it came from so that syntax errors point into the written pattern.

class PatternTranslator {
 public:
  explicit PatternTranslator(const QString& source) : src_(source), namedGroups_(hasNamedGroups(source)) {}

  QString translate() {
    out_.reserve(src_.size() + 8);
    origin_.reserve(src_.size() + 9);
    while (at_ < src_.size()) {
      if (unit(at_) == u'\\')
        translateEscape();
      else if (!inClass_ && translateAnyCharacterLoop())
        continue;
      else
        translatePlain();
    }
    origin_.push_back(src_.size());
    return out_;
  }
  // Offset in the written pattern of unit `offset` of the translated one.
  qsizetype sourceOffset(qsizetype offset) const {
    return origin_[size_t(std::clamp<qsizetype>(offset, 0, qsizetype(origin_.size()) - 1))];
  }

 private:
  // ECMAScript only treats \k as a back-reference when the pattern names a group.
  static bool hasNamedGroups(const QString& s) {
    for (qsizetype i = s.indexOf(u"(?<"); i >= 0; i = s.indexOf(u"(?<", i + 1)) {
      if (i + 3 < s.size() && s[i + 3] != u'=' && s[i + 3] != u'!') return true;
    }
    return false;
  }
  static bool isAsciiLetter(char16_t c) { return (c | 0x20) >= u'a' && (c | 0x20) <= u'z'; }
  static bool isAsciiDigit(char16_t c) { return c >= u'0' && c <= u'9'; }
  static int hexValue(char16_t c) {
    if (isAsciiDigit(c)) return c - u'0';
    if ((c | 0x20) >= u'a' && (c | 0x20) <= u'f') return (c | 0x20) - u'a' + 10;
    return -1;
  }

  char16_t unit(qsizetype i) const { return i < src_.size() ? src_[i].unicode() : 0; }
  // The value of the four hex digits at `i`, or -1.
  int hex4(qsizetype i) const {
    int value = 0;
    for (qsizetype k = i; k < i + 4; ++k) {
      int digit = k < src_.size() ? hexValue(unit(k)) : -1;
      if (digit < 0) return -1;
      value = value * 16 + digit;
    }
    return value;
  }

  void put(QStringView text) {
    out_ += text;
    origin_.insert(origin_.end(), size_t(text.size()), at_);
  }
  void put(char16_t c) { put(QStringView(&c, 1)); }

  // The rule lists' idiom for "any run of characters, line feeds included": a group of one
  // character repeated lazily, `([^a]|a)*?` or `([^a]|a)+?`. PCRE2 saves the group at every
  // character it steps over, which makes these four times slower than a plain class; the
  // same search is written with the group taken once, at the last character, so that the
  // group still holds what it would (the last character, or nothing after no round).
  bool translateAnyCharacterLoop() {
    static constexpr QStringView kIdiom = u"([^a]|a)";
    if (!QStringView(src_).sliced(at_).startsWith(kIdiom)) return false;
    const QStringView quantifier = QStringView(src_).sliced(at_ + kIdiom.size()).left(2);
    if (quantifier != u"*?" && quantifier != u"+?") return false;
    put(quantifier == u"*?" ? QStringView(u"(?:[\\s\\S]*?([^a]|a))??") : QStringView(u"(?:[\\s\\S]*?([^a]|a))"));
    at_ += kIdiom.size() + 2;
    return true;
  }

  void translatePlain() {
    const char16_t c = unit(at_);
    if (c == kKelvinSign || c == kLongS) {
      put(standInFor(c));
      ++at_;
      return;
    }
    if (isSurrogate(c)) {
      if (isPairAt(reinterpret_cast<const char16_t*>(src_.utf16()), src_.size(), at_)) {
        put(QStringView(src_).sliced(at_, 2));
        at_ += 2;
      } else {
        put(standInFor(c));
        ++at_;
      }
      return;
    }
    if (c == u'[') {
      // A "[" inside a class is an ordinary character (PCRE2 would read "[:alpha:]").
      put(inClass_ ? QStringView(u"\\[") : QStringView(u"["));
      inClass_ = true;
    } else {
      if (c == u']') inClass_ = false;
      put(c);
    }
    ++at_;
  }

  void translateEscape() {
    const char16_t next = unit(at_ + 1);
    if (at_ + 1 >= src_.size() || isSurrogate(next)) {
      put(u'\\');  // a trailing "\" stays an error; an escaped astral character is literal
      ++at_;
      return;
    }
    if (next == u'u') return translateUnicodeEscape();
    if (next == u'c') return translateControlEscape();
    if (next == u'v') return putAndSkip(u"\\x0B", 2);  // PCRE2's \v is a class
    if (isAsciiLetter(next) && !escapeKeepsItsMeaning(next)) return putAndSkip(QStringView(&next, 1), 2);
    putAndSkip(QStringView(src_).sliced(at_, 2), 2);
  }

  // Escapes that mean the same in both dialects (or that PCRE2_ALT_BSUX makes so); any other
  // letter is an identity escape in ECMAScript.
  bool escapeKeepsItsMeaning(char16_t letter) const {
    if (letter == u'k') return namedGroups_;
    if (letter == u'B') return !inClass_;
    return QStringView(u"bdDsSwWfnrtx").contains(QChar(letter));
  }

  // \uXXXX; a surrogate pair written as two escapes is one character, an unpaired one its
  // stand-in (as in the subject).
  void translateUnicodeEscape() {
    const int value = hex4(at_ + 2);
    if (value < 0) return putAndSkip(u"u", 2);
    if (value == kKelvinSign || value == kLongS) {
      const char16_t standIn = standInFor(char16_t(value));
      return putAndSkip(QStringView(&standIn, 1), 6);
    }
    if (!isSurrogate(char16_t(value))) return putAndSkip(QStringView(src_).sliced(at_, 6), 6);
    const int low = unit(at_ + 6) == u'\\' && unit(at_ + 7) == u'u' ? hex4(at_ + 8) : -1;
    if (isHighSurrogate(char16_t(value)) && low >= 0 && isLowSurrogate(char16_t(low))) {
      const char16_t pair[] = {char16_t(value), char16_t(low)};
      return putAndSkip(QStringView(pair, 2), 12);
    }
    const char16_t standIn = standInFor(char16_t(value));
    putAndSkip(QStringView(&standIn, 1), 6);
  }

  // \cX with a letter is a control character; in a class a digit or "_" works too; any other
  // \c is a backslash followed by "c".
  void translateControlEscape() {
    const char16_t x = unit(at_ + 2);
    if (isAsciiLetter(x)) return putAndSkip(QStringView(src_).sliced(at_, 3), 3);
    if (inClass_ && (isAsciiDigit(x) || x == u'_')) {
      return putAndSkip(QStringLiteral("\\x%1").arg(x % 32, 2, 16, QChar(u'0')), 3);
    }
    putAndSkip(u"\\\\", 1);
  }

  void putAndSkip(QStringView text, qsizetype sourceUnits) {
    put(text);
    at_ += sourceUnits;
  }

  const QString& src_;
  const bool namedGroups_;
  QString out_;
  std::vector<qsizetype> origin_;
  qsizetype at_ = 0;
  bool inClass_ = false;
};

// ---------------------------------------------------------------------------------------
// Compiling and caching.

QString pcre2Message(int errorCode) {
  PCRE2_UCHAR buffer[256];
  const int length = pcre2_get_error_message(errorCode, buffer, 256);
  return length > 0 ? QString::fromUtf16(reinterpret_cast<const char16_t*>(buffer), length)
                    : QStringLiteral("error %1").arg(errorCode);
}

QString quoted(const QString& pattern) {
  constexpr qsizetype kShown = 200;
  return QStringLiteral("\"%1\"").arg(pattern.size() > kShown ? pattern.left(kShown) + QStringLiteral("...") : pattern);
}

// "$" only at the very end; ECMAScript's \u, \x, empty classes and back-references to unset
// groups; "." stops only at a line feed; and a limit on where a match may start, for the
// search over windows of start positions. The by-code-point form adds UTF, so that
// case-insensitive matching folds non-ASCII letters, but never UCP, so that \s \w \d \b
// stay ASCII.
constexpr uint32_t kCompileOptions = PCRE2_USE_OFFSET_LIMIT | PCRE2_DOLLAR_ENDONLY | PCRE2_ALT_BSUX |
                                     PCRE2_ALLOW_EMPTY_CLASS | PCRE2_MATCH_UNSET_BACKREF;
constexpr uint32_t kByCodePoint = PCRE2_UTF | PCRE2_NEVER_UCP;

// Matching by code unit gives the same answers as by code point when the text has no
// surrogate and the pattern can only name ASCII characters (PCRE2 then folds case for ASCII
// letters only, which the stand-ins make true of the by-code-point form as well).
bool namesOnlyAscii(const QString& pattern) {
  for (qsizetype i = 0; i < pattern.size(); ++i) {
    if (pattern[i].unicode() >= 0x80) return false;
    if (pattern[i] == u'\\' && i + 1 < pattern.size() && (pattern[i + 1] == u'u' || pattern[i + 1] == u'x'))
      return false;
  }
  return true;
}

pcre2_code* compileForm(const QString& pattern, bool ignoreCase, uint32_t form) {
  PatternTranslator translator(pattern);
  const QString translated = translator.translate();

  std::unique_ptr<pcre2_compile_context, decltype(&pcre2_compile_context_free)> context(
      pcre2_compile_context_create(nullptr), &pcre2_compile_context_free);
  pcre2_set_newline(context.get(), PCRE2_NEWLINE_LF);

  int errorCode = 0;
  PCRE2_SIZE errorOffset = 0;
  pcre2_code* code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(translated.utf16()), PCRE2_SIZE(translated.size()),
                                   kCompileOptions | form | (ignoreCase ? PCRE2_CASELESS : 0u), &errorCode,
                                   &errorOffset, context.get());
  if (!code) {
    throw ScriptError(errnum::RegExpSyntax, QStringLiteral("Syntax error in regular expression at offset %1: %2 in %3")
                                                .arg(translator.sourceOffset(qsizetype(errorOffset)))
                                                .arg(pcre2Message(errorCode), quoted(pattern)));
  }
  // Without JIT (an unsupported machine, a pattern too large) the interpreter runs instead.
  pcre2_jit_compile(code, PCRE2_JIT_COMPLETE);
  return code;
}

// A search for the run of plain characters every match contains: a text without it cannot
// match, and finding that out costs one quick scan instead of the pattern's own search.
// Runs shorter than three characters are too common to be worth it.
pcre2_code* compileRequiredRun(const QString& pattern, bool ignoreCase) {
  const QString run = RequiredLiteral(pattern);
  if (run.size() < 3) return nullptr;
  QString escaped;
  for (const QChar c : run) {
    if (!c.isLetterOrNumber()) escaped += u'\\';
    escaped += c;
  }
  return compileForm(escaped, ignoreCase, 0);
}

char16_t requiredLastCharacter(const pcre2_code* code) {
  uint32_t type = 0, unit = 0;
  if (pcre2_pattern_info(code, PCRE2_INFO_LASTCODETYPE, &type) != 0 || type != 1) return 0;
  if (pcre2_pattern_info(code, PCRE2_INFO_LASTCODEUNIT, &unit) != 0 || unit == 0 || unit > 0x7F) return 0;
  return char16_t(unit);
}

std::shared_ptr<const CompiledPattern> compile(const QString& pattern, bool ignoreCase) {
  auto compiled = std::make_shared<CompiledPattern>();
  compiled->pattern = pattern;
  compiled->ignoreCase = ignoreCase;
  // The form compiled first is the one that reports a syntax error.
  if (namesOnlyAscii(pattern)) {
    compiled->byUnit = compileForm(pattern, ignoreCase, 0);
    compiled->requiredRun = compileRequiredRun(pattern, ignoreCase);
    compiled->requiredLast = requiredLastCharacter(compiled->byUnit);
  }
  pcre2_code* first = compiled->byUnit ? compiled->byUnit : compiled->byCodePoint();
  uint32_t groups = 0;
  pcre2_pattern_info(first, PCRE2_INFO_CAPTURECOUNT, &groups);
  compiled->groupCount = int(groups);
  return compiled;
}

// Compiling and JIT-compiling costs far more than most matches, and rule lists use the same
// few hundred patterns over and over: a bounded least-recently-used cache per thread.
class PatternCache {
 public:
  std::shared_ptr<const CompiledPattern> get(const QString& pattern, bool ignoreCase) {
    const Key key{pattern, ignoreCase};
    if (auto found = index_.find(key); found != index_.end()) {
      entries_.splice(entries_.begin(), entries_, found->second);
      return found->second->second;
    }
    auto compiled = compile(pattern, ignoreCase);
    entries_.emplace_front(key, compiled);
    index_.emplace(key, entries_.begin());
    if (entries_.size() > kCapacity) {
      index_.erase(entries_.back().first);
      entries_.pop_back();
    }
    return compiled;
  }

 private:
  static constexpr size_t kCapacity = 512;
  struct Key {
    QString pattern;
    bool ignoreCase;
    bool operator==(const Key&) const = default;
  };
  struct KeyHash {
    size_t operator()(const Key& key) const { return qHash(key.pattern, size_t(key.ignoreCase)); }
  };
  using Entries = std::list<std::pair<Key, std::shared_ptr<const CompiledPattern>>>;
  Entries entries_;
  std::unordered_map<Key, Entries::iterator, KeyHash> index_;
};

// ---------------------------------------------------------------------------------------
// Matching.

// JIT stack sizes. Patterns such as ([^a]|a)+ keep about 32 bytes per character they cover,
// so rule lists over large documents need far more than PCRE2's 32 KB default. Each thread
// keeps a modest stack; a match that overflows it is run again on a larger one, up to a
// limit, which lives only as long as the operation (its pages are given back afterwards).
constexpr size_t kThreadJitStack = size_t(8) << 20;
constexpr size_t kLargestJitStack = size_t(1) << 30;
// The interpreter (used only where JIT is unavailable) keeps its backtracking on the heap.
constexpr uint32_t kHeapLimitKiB = 1u << 20;

// A legitimate match costs about one unit of the match limit per character a lazy or
// repeated item steps over; runaway backtracking grows far faster than the text.
uint32_t matchLimitFor(qsizetype textSize) {
  const quint64 limit = 10'000'000ull + 16ull * quint64(textSize);
  return uint32_t(std::min<quint64>(limit, std::numeric_limits<uint32_t>::max()));
}

// A unit of the match limit is not a unit of time: between two units PCRE2 may scan the
// rest of the text with a single-character repeat, so one unit can cost as much as one pass
// over the text (about a nanosecond per character). A search therefore starts with a limit
// that this worst case keeps to a few tens of milliseconds and, when the limit is reached,
// tries again with four times as many units, while such a try is expected to take a small
// share of the time limit. The clock is read between tries; a match that needs more goes
// on in the guarded form, which calls back before every item and so watches the clock
// within the match, stopping at the time limit. A legitimate long match pays for its
// earlier tries (a third more at worst) and, past that share, the guarded form's pace (some
// eight times slower); the common short one pays nothing.
constexpr quint64 kFirstTryUnitsTimesCharacters = 25'000'000;
constexpr uint32_t kFewestFirstTryUnits = 64;
constexpr double kLongestTryShare = 0.02;
// The guarded form reads the clock once every so many items.
constexpr uint32_t kItemsBetweenClockReads = 1024;
uint32_t firstTryLimitFor(qsizetype textSize, uint32_t finalLimit) {
  const quint64 units = kFirstTryUnitsTimesCharacters / quint64(std::max<qsizetype>(textSize, 1));
  return uint32_t(std::clamp<quint64>(units, kFewestFirstTryUnits, finalLimit));
}

// How long one pass of a pattern over a text may run before it gives up: far beyond what
// any rule takes on a real page (they run at tens of megabytes per second), short of a hang.
// A host may set its own for the whole process (see ScopedRegExpTimeLimit): rule lists run
// on worker threads too.
constexpr qint64 kNoTimeLimitSet = -1;
std::atomic<qint64> g_timeLimitMs{kNoTimeLimitSet};
qint64 timeLimitMs(qsizetype textSize) {
  if (const qint64 set = g_timeLimitMs.load(std::memory_order_relaxed); set != kNoTimeLimitSet) return set;
  return 10'000 + qint64(textSize) / 1000;
}
// Start positions tried by one search: few at first (a start position may cost a scan of
// the whole text), twice as many after a quick window, an eighth after a slow one, so that
// the time limit is checked often enough.
constexpr qsizetype kFirstWindow = 256;
constexpr qsizetype kLargestWindow = qsizetype(1) << 20;
constexpr qint64 kSlowWindowMs = 20;
// Texts this long are searched for a pattern's required run first.
constexpr qsizetype kRequiredRunSearchFrom = 16 * 1024;
// A pass that keeps finding matches looks at the clock once every so many.
constexpr quint64 kRunsBetweenClockReads = 64;

using JitStackPtr = std::unique_ptr<pcre2_jit_stack, decltype(&pcre2_jit_stack_free)>;
JitStackPtr makeJitStack(size_t maxSize) {
  return JitStackPtr(pcre2_jit_stack_create(32 * 1024, maxSize, nullptr), &pcre2_jit_stack_free);
}

// What every match on this thread reuses: the match context (limits, JIT stack) and the
// match data, grown to the largest group count seen.
class ThreadMatchState {
 public:
  static ThreadMatchState& get() {
    thread_local ThreadMatchState state;
    return state;
  }
  ~ThreadMatchState() {
    pcre2_match_data_free(data_);
    pcre2_match_context_free(context_);
  }
  pcre2_match_context* context() const { return context_; }
  pcre2_match_data* dataFor(int groupCount) {
    const uint32_t pairs = uint32_t(groupCount) + 1;
    if (!data_ || pairs > dataPairs_) {
      pcre2_match_data_free(data_);
      dataPairs_ = std::max<uint32_t>(pairs, 16);
      data_ = pcre2_match_data_create(dataPairs_, nullptr);
      if (!data_) throw std::bad_alloc();
    }
    return data_;
  }
  void useJitStack(pcre2_jit_stack* stack) { pcre2_jit_stack_assign(context_, nullptr, stack ? stack : stack_.get()); }

 private:
  ThreadMatchState() : context_(pcre2_match_context_create(nullptr)), stack_(makeJitStack(kThreadJitStack)) {
    if (!context_) throw std::bad_alloc();
    pcre2_set_heap_limit(context_, kHeapLimitKiB);
    useJitStack(nullptr);
  }
  pcre2_match_context* context_;
  JitStackPtr stack_;
  pcre2_match_data* data_ = nullptr;
  uint32_t dataPairs_ = 0;
};

qsizetype lastIndexOfEitherCase(const QString& text, char16_t ascii) {
  const char16_t lower = (ascii >= u'A' && ascii <= u'Z') ? char16_t(ascii | 0x20) : ascii;
  const char16_t upper = (lower >= u'a' && lower <= u'z') ? char16_t(lower & ~0x20) : lower;
  return std::max(text.lastIndexOf(QChar(lower)), text.lastIndexOf(QChar(upper)));  // -1 when neither is there
}

bool isJitCompiled(const pcre2_code* code) {
  size_t size = 0;
  return pcre2_pattern_info(code, PCRE2_INFO_JITSIZE, &size) == 0 && size > 0;
}

// One pass of a pattern over one text: finds the matches one after another, ECMAScript's
// way (after an empty match the next search starts one character further on).
class Matcher {
 public:
  Matcher(const CompiledPattern& pattern, const QString& text)
      : pattern_(pattern),
        subject_(text, pattern.byUnit != nullptr),
        code_(subject_.byUnit() ? pattern.byUnit : pattern.byCodePoint()),
        jitCompiled_(isJitCompiled(code_)),
        state_(ThreadMatchState::get()),
        data_(state_.dataFor(pattern.groupCount)),
        ovector_(pcre2_get_ovector_pointer(data_)),
        grownStack_(nullptr, &pcre2_jit_stack_free),
        finalLimit_(matchLimitFor(text.size())),
        tryLimit_(firstTryLimitFor(text.size(), finalLimit_)) {
    pcre2_set_match_limit(state_.context(), finalLimit_);
    timer_.start();
    if (subject_.byUnit() && pattern.requiredRun && text.size() >= kRequiredRunSearchFrom &&
        !holdsRequiredRun(pattern.requiredRun))
      searchFrom_ = subject_.size() + 1;  // nothing to find
    if (subject_.byUnit() && pattern.requiredLast && text.size() >= kRequiredRunSearchFrom)
      lastStart_ = lastIndexOfEitherCase(text, pattern.requiredLast);
  }
  ~Matcher() {
    if (grownStack_) state_.useJitStack(nullptr);
    if (guarded_) pcre2_set_callout(state_.context(), nullptr, nullptr);
  }
  Matcher(const Matcher&) = delete;
  Matcher& operator=(const Matcher&) = delete;

  bool next() {
    if (searchFrom_ > subject_.size() || !run(searchFrom_)) {
      searchFrom_ = subject_.size() + 1;
      return false;
    }
    searchFrom_ = end(0) > start(0) ? end(0) : subject_.after(start(0));
    return true;
  }
  // Offsets of group `group` (0 = the whole match) of the current match; -1 when the group
  // did not take part.
  qsizetype start(int group) const { return offset(2 * group); }
  qsizetype end(int group) const { return offset(2 * group + 1); }
  int groupCount() const { return pattern_.groupCount; }
  bool byUnit() const { return subject_.byUnit(); }

 private:
  qsizetype offset(int index) const {
    const PCRE2_SIZE value = ovector_[index];
    return value == PCRE2_UNSET ? -1 : qsizetype(value);
  }

  // The first match starting at or after `from`. PCRE2's match limit counts afresh at each
  // start position, so a rule that scans to the end of the text from each of many openers
  // that never close takes time with the square of the text. The search therefore runs
  // over windows of start positions, and gives up between two windows once the pass has
  // run past its time limit; a window that took long is made smaller.
  bool run(qsizetype from) {
    if (++runs_ % kRunsBetweenClockReads == 0) readClock();
    for (qsizetype windowStart = from;;) {
      if (windowStart > lastStart_) return false;
      const qsizetype windowEnd = std::min({windowStart + window_, lastStart_, subject_.size()});
      const int rc = matchFrom(windowStart, windowEnd);
      if (rc > 0) return true;
      if (rc == PCRE2_ERROR_NOMATCH) {
        if (windowEnd >= std::min(lastStart_, subject_.size())) return false;
        const qint64 tookMs = readClock() / 1'000'000;
        if (tookMs > kSlowWindowMs)
          window_ = std::max<qsizetype>(window_ / 8, 1);
        else if (tookMs == 0)
          window_ = std::min(window_ * 2, kLargestWindow);
        windowStart = subject_.characterStartAtOrAfter(windowEnd + 1);
        continue;
      }
      if (rc == PCRE2_ERROR_JIT_STACKLIMIT && growJitStack()) continue;
      if (rc == PCRE2_ERROR_CALLOUT) throw timeLimitError();  // the guarded form's watch
      throw ScriptError(
          errnum::RegExpGaveUp,
          QStringLiteral("The regular expression could not finish the match (%1) in %2")
              .arg(rc == 0 ? QStringLiteral("too many groups") : pcre2Message(rc), quoted(pattern_.pattern)));
    }
  }

  // Checks the time limit; answers the nanoseconds since the clock was last read (the
  // window or try just searched, and any matches found before it).
  qint64 readClock() {
    const qint64 now = timer_.nsecsElapsed();
    checkTimeLimit(now / 1'000'000);
    const qint64 took = now - clockReadNs_;
    clockReadNs_ = now;
    return took;
  }

  bool holdsRequiredRun(const pcre2_code* run) {
    pcre2_set_offset_limit(state_.context(), PCRE2_UNSET);
    const int rc =
        isJitCompiled(run)
            ? pcre2_jit_match(run, subject_.data(), PCRE2_SIZE(subject_.size()), 0, 0, data_, state_.context())
            : pcre2_match(run, subject_.data(), PCRE2_SIZE(subject_.size()), 0, 0, data_, state_.context());
    return rc != PCRE2_ERROR_NOMATCH;  // an error: search with the pattern itself
  }

  // One search whose match may start anywhere from `from` to `lastStart`, in tries of a
  // growing match limit (see firstTryLimitFor).
  int matchFrom(qsizetype from, qsizetype lastStart) {
    pcre2_set_offset_limit(state_.context(), PCRE2_SIZE(lastStart));
    for (;;) {
      pcre2_set_match_limit(state_.context(), tryLimit_);
      const int rc = matchOnce(from);
      if (rc != PCRE2_ERROR_MATCHLIMIT || tryLimit_ >= finalLimit_) return rc;
      // The try took at most the time since the clock was last read (exactly that from
      // the second try of a search on).
      const double nsPerUnit = double(readClock()) / tryLimit_;
      const double nsLimit = double(timeLimitMs(subject_.size())) * 1e6;
      if (4.0 * tryLimit_ * nsPerUnit <= kLongestTryShare * nsLimit)
        tryLimit_ = uint32_t(std::min<quint64>(quint64(tryLimit_) * 4, finalLimit_));
      else
        guard();
    }
  }

  // From here on the pass runs in the guarded form, with no more tries: the callout stops
  // the match at the time limit, the match limit still stops runaway backtracking.
  void guard() {
    code_ = pattern_.guarded(subject_.byUnit());
    jitCompiled_ = isJitCompiled(code_);
    tryLimit_ = finalLimit_;
    guarded_ = true;
    pcre2_set_callout(state_.context(), &Matcher::watchTheClock, this);
  }

  static int watchTheClock(pcre2_callout_block*, void* matcher) {
    auto* self = static_cast<Matcher*>(matcher);
    if (++self->itemsSinceClockRead_ < kItemsBetweenClockReads) return 0;
    self->itemsSinceClockRead_ = 0;
    return self->timer_.elapsed() > timeLimitMs(self->subject_.size()) ? PCRE2_ERROR_CALLOUT : 0;
  }

  int matchOnce(qsizetype from) {
    // The JIT's own entry skips the checks pcre2_match makes on every call: a rule with
    // thousands of matches calls it thousands of times.
    return jitCompiled_ ? pcre2_jit_match(code_, subject_.data(), PCRE2_SIZE(subject_.size()), PCRE2_SIZE(from),
                                          PCRE2_NO_UTF_CHECK, data_, state_.context())
                        : pcre2_match(code_, subject_.data(), PCRE2_SIZE(subject_.size()), PCRE2_SIZE(from),
                                      PCRE2_NO_UTF_CHECK, data_, state_.context());
  }

  void checkTimeLimit(qint64 elapsedMs) const {
    if (elapsedMs > timeLimitMs(subject_.size())) throw timeLimitError();
  }

  ScriptError timeLimitError() const {
    return ScriptError(errnum::RegExpGaveUp,
                       QStringLiteral("The regular expression could not finish the match within its time "
                                      "limit of %1 s in %2")
                           .arg(double(timeLimitMs(subject_.size())) / 1000)
                           .arg(quoted(pattern_.pattern)));
  }

  bool growJitStack() {
    if (grownStackSize_ >= kLargestJitStack) return false;
    grownStackSize_ = std::min((grownStackSize_ ? grownStackSize_ : kThreadJitStack) * 8, kLargestJitStack);
    grownStack_ = makeJitStack(grownStackSize_);
    state_.useJitStack(grownStack_.get());
    return bool(grownStack_);
  }

  const CompiledPattern& pattern_;
  Subject subject_;
  const pcre2_code* code_;
  bool jitCompiled_;
  ThreadMatchState& state_;
  pcre2_match_data* data_;
  const PCRE2_SIZE* ovector_;
  JitStackPtr grownStack_;
  const uint32_t finalLimit_;
  uint32_t tryLimit_;
  bool guarded_ = false;
  uint32_t itemsSinceClockRead_ = 0;
  size_t grownStackSize_ = 0;
  qsizetype searchFrom_ = 0;
  // No match can start after this offset (see CompiledPattern::requiredLast).
  qsizetype lastStart_ = std::numeric_limits<qsizetype>::max();
  qsizetype window_ = kFirstWindow;
  QElapsedTimer timer_;
  qint64 clockReadNs_ = 0;
  quint64 runs_ = 0;
};

// A replacement text read once: literal runs and references to the match.
class Replacement {
 public:
  Replacement(const QString& text, int groupCount) : text_(text) {
    qsizetype literalFrom = 0;
    for (qsizetype i = 0; i + 1 < text.size(); ++i) {
      if (text[i] != u'$') continue;
      const auto [part, length] = reference(i, groupCount);
      if (length == 0) continue;
      addLiteral(literalFrom, i);
      parts_.push_back(part);
      literalFrom = i + length;
      i = literalFrom - 1;
    }
    addLiteral(literalFrom, text.size());
  }

  void appendTo(QString& out, const Matcher& match, QStringView subject) const {
    for (const Part& part : parts_) {
      switch (part.kind) {
        case Kind::Literal: out += QStringView(text_).sliced(part.from, part.length); break;
        case Kind::Group: appendGroup(out, match, subject, part.group); break;
        case Kind::Before: out += subject.first(match.start(0)); break;
        case Kind::After: out += subject.sliced(match.end(0)); break;
      }
    }
  }

 private:
  enum class Kind { Literal, Group, Before, After };
  struct Part {
    Kind kind;
    int group = 0;
    qsizetype from = 0;
    qsizetype length = 0;
  };

  static void appendGroup(QString& out, const Matcher& match, QStringView subject, int group) {
    const qsizetype start = match.start(group);
    if (start >= 0) out += subject.sliced(start, match.end(group) - start);
  }
  static bool isDigit(QChar c) { return c >= u'0' && c <= u'9'; }

  // The reference that starts with the "$" at `at`, and how many units it takes (0: none,
  // the "$" is literal). Group numbers follow ECMAScript: two digits only when that group
  // exists, else one digit and a literal one.
  std::pair<Part, qsizetype> reference(qsizetype at, int groupCount) const {
    const QChar c = text_[at + 1];
    if (c == u'$') return {{Kind::Literal, 0, at, 1}, 2};
    if (c == u'&') return {{Kind::Group, 0}, 2};
    if (c == u'`') return {{Kind::Before}, 2};
    if (c == u'\'') return {{Kind::After}, 2};
    if (!isDigit(c)) return {{}, 0};
    const int first = c.unicode() - u'0';
    if (at + 2 < text_.size() && isDigit(text_[at + 2])) {
      const int both = first * 10 + (text_[at + 2].unicode() - u'0');
      if (both >= 1 && both <= groupCount) return {{Kind::Group, both}, 3};
    }
    if (first >= 1 && first <= groupCount) return {{Kind::Group, first}, 2};
    return {{}, 0};
  }

  void addLiteral(qsizetype from, qsizetype to) {
    if (to > from) parts_.push_back({Kind::Literal, 0, from, to - from});
  }

  const QString& text_;
  std::vector<Part> parts_;
};

RegExpMatch makeMatch(const Matcher& matcher, const QString& text) {
  RegExpMatch match;
  match.start = matcher.start(0);
  match.length = matcher.end(0) - match.start;
  match.value = text.sliced(match.start, match.length);
  match.subMatches.reserve(matcher.groupCount());
  for (int group = 1; group <= matcher.groupCount(); ++group) {
    const qsizetype start = matcher.start(group);
    match.subMatches.append(start < 0 ? QString() : text.sliced(start, matcher.end(group) - start));
  }
  return match;
}

}  // namespace

// ---------------------------------------------------------------------------------------

pcre2_code* detail::CompiledPattern::lazily(LazyForm& form, uint32_t options) const {
  std::call_once(form.once, [&] { form.code = compileForm(pattern, ignoreCase, options); });
  return form.code;
}

pcre2_code* detail::CompiledPattern::byCodePoint() const { return lazily(byCodePoint_, kByCodePoint); }

pcre2_code* detail::CompiledPattern::guarded(bool byUnit) const {
  return byUnit ? lazily(guardedByUnit_, PCRE2_AUTO_CALLOUT)
                : lazily(guardedByCodePoint_, kByCodePoint | PCRE2_AUTO_CALLOUT);
}

RegExp::RegExp(const QString& pattern, bool ignoreCase, bool global) : global_(global) {
  thread_local PatternCache cache;
  compiled_ = cache.get(pattern, ignoreCase);
}

RegExp::~RegExp() = default;
RegExp::RegExp(const RegExp&) = default;
RegExp& RegExp::operator=(const RegExp&) = default;

const QString& RegExp::pattern() const { return compiled_->pattern; }

int RegExp::groupCount() const { return compiled_->groupCount; }

bool RegExp::test(const QString& text) const { return Matcher(*compiled_, text).next(); }

std::vector<RegExpMatch> RegExp::execute(const QString& text) const {
  std::vector<RegExpMatch> matches;
  Matcher matcher(*compiled_, text);
  while (matcher.next()) {
    matches.push_back(makeMatch(matcher, text));
    if (!global_) break;
  }
  return matches;
}

std::optional<RegExpMatch> RegExp::firstMatch(const QString& text) const {
  Matcher matcher(*compiled_, text);
  if (!matcher.next()) return std::nullopt;
  return makeMatch(matcher, text);
}

QString RegExp::replace(const QString& text, const QString& replacement) const {
  Matcher matcher(*compiled_, text);
  if (!matcher.next()) return text;
  const Replacement parts(replacement, compiled_->groupCount);
  const QStringView subject(text);
  QString out;
  out.reserve(text.size() + replacement.size());
  qsizetype copied = 0;
  do {
    out += subject.sliced(copied, matcher.start(0) - copied);
    parts.appendTo(out, matcher, subject);
    copied = matcher.end(0);
  } while (global_ && matcher.next());
  out += subject.sliced(copied);
  // Cut from a text without surrogates, joined by a replacement without them.
  if (matcher.byUnit() && !hasSurrogates(reinterpret_cast<const char16_t*>(replacement.utf16()), replacement.size()))
    SurrogateFreeTexts::get().add(out);
  return out;
}

QString RegExpReplace(const QString& text, const QString& pattern, const QString& replacement) {
  return RegExp(pattern).replace(text, replacement);
}

QString RegExpReplaceAll(const QString& text, const QString& pattern, const QString& replacement) {
  const RegExp regExp(pattern);
  QString current = text;
  for (;;) {
    QString next = regExp.replace(current, replacement);
    // replace() hands back the same string when nothing matched: no comparison needed.
    if (next.constData() == current.constData() || next == current) return next;
    current = std::move(next);
  }
}

QString RegExpSubMatch(const QString& text, const QString& pattern, int index) {
  const RegExp regExp(pattern);
  if (index < 0 || index >= regExp.groupCount()) {
    throw ScriptError(errnum::InvalidProcedureCall,
                      QStringLiteral("Invalid procedure call or argument: group %1 of a regular expression "
                                     "with %2 groups")
                          .arg(index)
                          .arg(regExp.groupCount()));
  }
  const std::optional<RegExpMatch> match = regExp.firstMatch(text);
  if (!match) return QString();
  return match->subMatches[index];
}

bool RegExpTest(const QString& pattern, const QString& text) { return RegExp(pattern).test(text); }

qsizetype RegExpIndexOf(const QString& text, const QString& pattern) {
  const std::optional<RegExpMatch> match = RegExp(pattern).firstMatch(text);
  return match ? match->start : -1;
}

ScopedRegExpTimeLimit::ScopedRegExpTimeLimit(std::chrono::milliseconds limit)
    : previousMs_(g_timeLimitMs.exchange(limit.count())) {}

ScopedRegExpTimeLimit::~ScopedRegExpTimeLimit() { g_timeLimitMs = previousMs_; }

}  // namespace velmora
