#include "platform/ClipboardMime.h"

#include <QRegularExpression>
#include <QStringDecoder>
#include <QUrl>

namespace velmora::clipboardmime {

namespace {

const QString kStartMarker = QStringLiteral("<!--StartFragment-->");
const QString kEndMarker = QStringLiteral("<!--EndFragment-->");

bool startsWithBytes(const QByteArray& bytes, const char* prefix) { return bytes.startsWith(prefix); }

QString decodeUtf16(QByteArrayView bytes, QStringDecoder::Encoding encoding) {
  QStringDecoder decoder(encoding, QStringDecoder::Flag::Stateless);
  return decoder.decode(bytes);
}

QString withoutTrailingNuls(QString text) {
  while (text.endsWith(QChar(0))) text.chop(1);
  return text;
}

// Browsers put a charset declaration in front of the HTML they offer.
QString withoutLeadingCharsetMeta(const QString& html) {
  static const QRegularExpression meta(QStringLiteral(R"(^\s*<meta\b[^>]*\bcharset\s*=[^>]*>)"),
                                       QRegularExpression::CaseInsensitiveOption);
  const QRegularExpressionMatch match = meta.match(html);
  return match.hasMatch() ? html.mid(match.capturedEnd()) : html;
}

// The HTML with its fragment markers, and the fragment's place in it (character positions).
struct Framed {
  QString html;
  qsizetype fragmentStart = 0;
  qsizetype fragmentEnd = 0;
};

Framed frame(const QString& html) {
  const qsizetype start = html.indexOf(kStartMarker);
  const qsizetype end = start < 0 ? -1 : html.indexOf(kEndMarker, start + kStartMarker.size());
  if (end >= 0) return {html, start + kStartMarker.size(), end};

  static const QRegularExpression bodyOpen(QStringLiteral(R"(<body\b[^>]*>)"),
                                           QRegularExpression::CaseInsensitiveOption);
  static const QRegularExpression bodyClose(QStringLiteral(R"(</body\s*>)"), QRegularExpression::CaseInsensitiveOption);
  const QRegularExpressionMatch open = bodyOpen.match(html);
  if (open.hasMatch()) {
    const qsizetype contentStart = open.capturedEnd();
    qsizetype contentEnd = html.lastIndexOf(bodyClose);
    if (contentEnd < contentStart) contentEnd = html.size();
    Framed framed;
    framed.html = html.left(contentStart) + kStartMarker + html.mid(contentStart, contentEnd - contentStart) +
                  kEndMarker + html.mid(contentEnd);
    framed.fragmentStart = contentStart + kStartMarker.size();
    framed.fragmentEnd = framed.fragmentStart + (contentEnd - contentStart);
    return framed;
  }

  const QString head = QStringLiteral("<html><body>") + kStartMarker;
  return {head + html + kEndMarker + QStringLiteral("</body></html>"), head.size(), head.size() + html.size()};
}

// The header stays ASCII, so that StartHTML is also a character position in the decoded text:
// characters beyond ASCII in the address are percent-encoded (UTF-8), line breaks dropped.
QByteArray asciiUrl(const QString& url) {
  QByteArray ascii;
  for (const char byte : url.toUtf8()) {
    if (byte == '\r' || byte == '\n') continue;
    if (uchar(byte) < 0x80)
      ascii += byte;
    else
      ascii += '%' + QByteArray::number(uchar(byte), 16).toUpper();
  }
  return ascii;
}

QByteArray offsetField(qsizetype offset) { return QByteArray::number(qint64(offset)).rightJustified(10, '0'); }

// A header value of an "HTML Format" block as a byte offset; -1 when missing or malformed.
qsizetype headerOffset(const QByteArray& block, const char* name) {
  const QRegularExpression line(QStringLiteral("(?:^|\\n)%1:(\\d{1,10})\\r?\\n").arg(QLatin1String(name)));
  const QRegularExpressionMatch match = line.match(QString::fromLatin1(block.left(4096)));
  return match.hasMatch() ? match.captured(1).toLongLong() : -1;
}

// The block after the "Name:value" lines at its start, when they include StartHTML: where
// the HTML stands when the offsets in the header do not locate it.
QByteArray withoutHeaderLines(const QByteArray& block) {
  static const QRegularExpression header(QStringLiteral("^(?:[A-Za-z]+:[^\\r\\n]*\\r?\\n)+"));
  const QRegularExpressionMatch match = header.match(QString::fromLatin1(block.left(4096)));
  if (!match.hasMatch() || !match.captured().contains(QLatin1String("StartHTML:"))) return block;
  return block.sliced(match.capturedLength());
}

}  // namespace

Presented classify(const QString& mimeType) {
  const QString type = mimeType.trimmed().toLower();
  static const QStringList protocolTargets = {
      "",       "targets",          "multiple",        "timestamp", "save_targets",
      "delete", "insert_selection", "insert_property", "length",    "compound_text",
  };
  if (protocolTargets.contains(type)) return Presented::Hidden;
  if (type == u"text/plain" || type.startsWith(u"text/plain;") || type == u"utf8_string" || type == u"string" ||
      type == u"text")
    return Presented::Text;
  if (type == u"text/html") return Presented::Html;
  if (type.startsWith(u"image/") || type == u"application/x-qt-image") return Presented::Image;
  if (type == u"text/uri-list") return Presented::FileList;
  if (type == u"text/rtf" || type == u"application/rtf" || type == u"text/richtext") return Presented::RichText;
  return Presented::Named;
}

QStringList sourceUrlTypes() {
  return {QStringLiteral("chromium/x-source-url"), QStringLiteral("text/x-moz-url-priv")};
}

QString decodeHtml(const QByteArray& bytes) {
  if (startsWithBytes(bytes, "\xFF\xFE"))
    return withoutTrailingNuls(decodeUtf16(bytes.sliced(2), QStringDecoder::Utf16LE));
  if (startsWithBytes(bytes, "\xFE\xFF"))
    return withoutTrailingNuls(decodeUtf16(bytes.sliced(2), QStringDecoder::Utf16BE));
  if (startsWithBytes(bytes, "\xEF\xBB\xBF")) return withoutTrailingNuls(QString::fromUtf8(bytes.sliced(3)));
  return withoutTrailingNuls(QString::fromUtf8(bytes));
}

QString decodeSourceUrl(const QByteArray& bytes) {
  QString text;
  if (startsWithBytes(bytes, "\xFF\xFE") || startsWithBytes(bytes, "\xFE\xFF"))
    text = decodeHtml(bytes);
  else if (bytes.size() >= 2 && bytes[0] != 0 && bytes[1] == 0)  // UTF-16LE without a mark
    text = decodeUtf16(bytes, QStringDecoder::Utf16LE);
  else
    text = QString::fromUtf8(bytes);
  const qsizetype nul = text.indexOf(QChar(0));
  if (nul >= 0) text.truncate(nul);
  return text.section(u'\n', 0, 0).trimmed();
}

QByteArray htmlFormatBlock(const QString& html, const QString& sourceUrl) {
  const Framed framed = frame(withoutLeadingCharsetMeta(html));
  const QByteArray body = framed.html.toUtf8();
  const qsizetype fragmentStart = QStringView(framed.html).left(framed.fragmentStart).toUtf8().size();
  const qsizetype fragmentEnd = QStringView(framed.html).left(framed.fragmentEnd).toUtf8().size();
  const QByteArray url = asciiUrl(sourceUrl);

  const auto header = [&](qsizetype headerSize) {
    QByteArray text = "Version:0.9\r\n";
    text += "StartHTML:" + offsetField(headerSize) + "\r\n";
    text += "EndHTML:" + offsetField(headerSize + body.size()) + "\r\n";
    text += "StartFragment:" + offsetField(headerSize + fragmentStart) + "\r\n";
    text += "EndFragment:" + offsetField(headerSize + fragmentEnd) + "\r\n";
    if (!url.isEmpty()) text += "SourceURL:" + url + "\r\n";
    return text;
  };
  // Every offset has ten digits, so the header's size does not depend on the values in it.
  return header(header(0).size()) + body;
}

QByteArray htmlOfHtmlFormatBlock(const QByteArray& block) {
  const qsizetype start = headerOffset(block, "StartHTML");
  if (start < 0 || start > block.size()) return withoutHeaderLines(block);
  qsizetype end = headerOffset(block, "EndHTML");
  if (end < start || end > block.size()) end = block.size();
  return block.sliced(start, end - start);
}

QStringList localFilesOfUriList(const QByteArray& uriList) {
  QStringList paths;
  for (const QByteArray& rawLine : uriList.split('\n')) {
    const QByteArray line = rawLine.trimmed();
    if (line.isEmpty() || line.startsWith('#')) continue;
    QUrl url = QUrl::fromEncoded(line, QUrl::StrictMode);
    if (!url.isValid() || url.scheme().compare(u"file", Qt::CaseInsensitive) != 0) continue;
    if (url.host().compare(u"localhost", Qt::CaseInsensitive) == 0) url.setHost(QString());
    if (!url.host().isEmpty()) continue;
    const QString path = url.toLocalFile();
    if (!path.isEmpty()) paths.append(path);
  }
  return paths;
}

QByteArray uriListOfFiles(const QStringList& paths) {
  QByteArray list;
  for (const QString& path : paths) list += QUrl::fromLocalFile(path).toEncoded() + "\r\n";
  return list;
}

}  // namespace velmora::clipboardmime
