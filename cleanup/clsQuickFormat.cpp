#include "cleanup/clsQuickFormat.h"
#include "core/Yield.h"

#include "clipboard/basClipBoard.h"
#include "support/RegExp.h"
#include "support/clsRemote.h"

namespace velmora {

namespace {

const QString kPlaceholder = QStringLiteral("<span id=Velmora_Temp_Span>&nbsp;</span>");
const QString kStartMarker = QStringLiteral("<!--StartFragment-->");
const QString kEndMarker = QStringLiteral("<!--EndFragment-->");
const QString kCrLf = QStringLiteral("\r\n");

// What goes from the page before the copied piece, in this order.
const char16_t* const kDroppedBeforeFragment[] = {
    uR"(<script[^>]*?>([^a]|a)*?</script>)",
    uR"(<!--([^a]|a)*?-->)",
};
const char16_t kLinkPattern[] = uR"(<link\s+?[^>]*?href\s*?=\s*?["']([^'"]+?)["'][^>]*?>)";
const char16_t kStyleSheetLinkTest[] = u"css|Stylesheet";
const char16_t kStylePattern[] = uR"(<style.*?>([^a]|a)+?</style>)";

}  // namespace

void clsQuickFormat::QuickFormat(QString& style, QString& body) {
  letPendingEventsRun();
  context_.g_sError.clear();
  style.clear();
  body.clear();
  QuickFormatFrom(GetClipboardHTML(), style, body);
}

void clsQuickFormat::QuickFormatFrom(const QString& clipboardText, QString& style, QString& body) {
  style.clear();
  body.clear();
  if (clipboardText.isEmpty()) return;
  const QString startHeader = GetHTMLFormatHeader(clipboardText, QStringLiteral("StartHTML"));
  bool numeric = false;
  const qsizetype start = !startHeader.isEmpty() && !RegExpTest(QStringLiteral("[^0123456789]+"), startHeader)
                              ? startHeader.toLongLong(&numeric)
                              : 0;
  if (!numeric || start <= 0 || start >= clipboardText.size()) return;
  const QString source = GetHTMLFormatHeader(clipboardText, QStringLiteral("SourceURL"));
  if (!source.startsWith(u"http") || !source.contains(u"://")) return;
  const QString base = source.left(source.lastIndexOf(u'/'));

  const QString html = clipboardText.mid(start);
  const qsizetype fragmentStart = html.indexOf(kStartMarker, 0, Qt::CaseInsensitive);
  const qsizetype fragmentEnd = html.lastIndexOf(kEndMarker, -1, Qt::CaseInsensitive);
  if (fragmentStart < 0 || fragmentEnd < 0 || fragmentStart >= fragmentEnd) return;

  QString before = html.left(fragmentStart);
  const QString after = html.mid(fragmentEnd + kEndMarker.size());
  for (const char16_t* pattern : kDroppedBeforeFragment)
    before = RegExpReplace(before, QString::fromUtf16(pattern), {});
  before = inlineStyleSheets(before, base);

  body = before + kPlaceholder + after;
  for (const RegExpMatch& match : RegExp(QString::fromUtf16(kStylePattern)).execute(before))
    style += match.value + kCrLf;
}

QString clsQuickFormat::inlineStyleSheets(const QString& html, const QString& base) const {
  QString result;
  qsizetype copied = 0;
  for (const RegExpMatch& link : RegExp(QString::fromUtf16(kLinkPattern)).execute(html)) {
    if (!RegExpTest(QString::fromUtf16(kStyleSheetLinkTest), link.value)) continue;
    QString sheet = clsRemote().GetRemotePage(ResolveUrl(base, link.subMatches.value(0)));
    if (!sheet.isEmpty())
      sheet = kCrLf + QStringLiteral("<style>") + kCrLf + sheet + kCrLf + QStringLiteral("</style>") + kCrLf;
    result += QStringView(html).mid(copied, link.start - copied);
    result += sheet;  // a sheet that cannot be fetched drops its link
    copied = link.start + link.length;
  }
  result += QStringView(html).mid(copied);
  return result;
}

QString clsQuickFormat::ResolveUrl(const QString& base, const QString& reference) {
  const qsizetype schemeEnd = base.indexOf(QStringLiteral("://"));
  const qsizetype hostEnd = schemeEnd < 0 ? -1 : base.indexOf(u'/', schemeEnd + 3);
  const QString root = hostEnd < 0 ? base : base.left(hostEnd);
  // References that already name their server keep it: "http://..." as it stands,
  // "//host/..." with the page's scheme.
  if (reference.contains(QStringLiteral("://"))) return reference;
  if (reference.startsWith(u"//")) return base.left(schemeEnd + 1) + reference;
  if (reference.startsWith(u'/')) return root + reference;
  if (reference.startsWith(u"./")) return base + reference.mid(1);
  if (!reference.startsWith(u'.')) return base + u'/' + reference;
  QString folder = base;
  QString rest = reference;
  while (rest.startsWith(u"../")) {
    if (folder != root) folder = folder.left(folder.lastIndexOf(u'/'));
    rest = rest.mid(3);
  }
  return folder + u'/' + rest;
}

}  // namespace velmora
