#include "clipboard/basClipBoard.h"

#include <algorithm>

#include "clipboard/clsClipboard.h"
#include "support/RegExp.h"

namespace velmora {

namespace {

constexpr quintptr kNoOwner = 0;

// GetHTMLFormatHeader's replacement: the pattern is the head, the header name as given (not
// escaped) and the tail; it runs from the start of the text through the first `name:` to the
// end, and keeps the rest of that header line.
const QString kHeaderPatternHead = QStringLiteral("(?:[^a]|a)*?");
const QString kHeaderPatternTail = QStringLiteral(R"(:([^\r\n]+)(?:[^a]|a)+)");
const QString kHeaderReplacement = QStringLiteral("$1");
// What the replacement needs after a plain header name to match at all.
const QString kHeaderPresenceTail = QStringLiteral(R"(:[^\r\n](?:[^a]|a))");

// A name that means itself as a pattern.
bool isPlainName(const QString& name) {
  return !name.isEmpty() && std::all_of(name.begin(), name.end(), [](QChar c) {
    return c.isLetterOrNumber() || c == u'_' || c == u'-' || c == u' ';
  });
}

}  // namespace

QString GetClipboardHTML() { return GetClipboardDataByName(htmlFormatName()); }

QString GetClipboardDataByName(const QString& sFormatName) {
  clsClipboard clipboard;
  const int32_t count = clipboard.GetCurrentFormats(kNoOwner);
  uint32_t id = 0;
  for (int32_t i = 1; i <= count; ++i) {
    if (clipboard.GetCurrentFormatName(i) == sFormatName) {
      id = clipboard.GetCurrentFormatID(i);
      break;
    }
  }
  QString result;
  if (clipboard.ClipboardOpen(kNoOwner) && id != 0) {
    QString text;
    if (clipboard.GetTextData(id, text)) result = text;
  }
  clipboard.ClipboardClose();
  return result;
}

bool ClipboardHasFormatLike(const QString& sPrefix) {
  const QString prefix = sPrefix.toLower();
  clsClipboard clipboard;
  const int32_t count = clipboard.GetCurrentFormats(kNoOwner);
  for (int32_t i = 1; i <= count; ++i) {
    const QString name = clipboard.GetCurrentFormatName(i).toLower();
    if (name.size() >= prefix.size() && name.left(prefix.size()) == prefix) return true;
  }
  return false;
}

QString GetHTMLFormatHeader(const QString& sHTMLFormat, const QString& sHeaderName) {
  // When the header is absent, the lazy head tries again from every later position, at a cost
  // that grows with the square of the text (minutes for a large page). A plain name that is
  // not followed by what the replacement needs cannot match, and the text comes back as the
  // replacement would return it.
  if (isPlainName(sHeaderName) && !RegExpTest(sHeaderName + kHeaderPresenceTail, sHTMLFormat)) return sHTMLFormat;
  return RegExpReplace(sHTMLFormat, kHeaderPatternHead + sHeaderName + kHeaderPatternTail, kHeaderReplacement);
}

}  // namespace velmora
