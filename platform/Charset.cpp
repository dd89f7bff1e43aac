#include "platform/Charset.h"

#include <QStringConverter>
#include <QStringDecoder>
#include <QStringEncoder>
#include <QStringList>

#include <unicode/ucnv.h>
#include <unicode/ucnv_cb.h>
#include <unicode/ucnv_err.h>

#include <memory>
#include <optional>

namespace velmora {
namespace {

// A charset name reduced to lower-case letters and digits, so "UTF-8", "utf_8" and "utf8"
// name the same thing (the comparison ICU itself uses for its aliases).
QString labelKey(const QString& charset) {
  QString key;
  for (QChar c : charset.trimmed().toLower())
    if ((c >= u'a' && c <= u'z') || (c >= u'0' && c <= u'9')) key.append(c);
  return key;
}

struct UnicodeLabel {
  const char* key;
  QStringConverter::Encoding encoding;
};

// The Unicode charsets, converted by Qt. "unicode" is the name the stream component of the
// home platform gives UTF-16 little-endian, "unicodefffe" its big-endian twin.
constexpr UnicodeLabel kUnicodeLabels[] = {
    {"utf8", QStringConverter::Utf8},           {"unicode11utf8", QStringConverter::Utf8},
    {"unicode", QStringConverter::Utf16LE},     {"utf16", QStringConverter::Utf16LE},
    {"utf16le", QStringConverter::Utf16LE},     {"ucs2", QStringConverter::Utf16LE},
    {"csunicode", QStringConverter::Utf16LE},   {"iso10646ucs2", QStringConverter::Utf16LE},
    {"unicodefeff", QStringConverter::Utf16LE}, {"unicodefffe", QStringConverter::Utf16BE},
    {"utf16be", QStringConverter::Utf16BE},     {"utf32", QStringConverter::Utf32LE},
    {"utf32le", QStringConverter::Utf32LE},     {"utf32be", QStringConverter::Utf32BE},
};

struct CodePageLabel {
  const char* key;
  const char* icuName;
};

// Labels that browsers read as the wider Windows code page behind them (a page declaring
// gb2312 is full of GBK characters; one declaring iso-8859-1 uses windows-1252's quotes).
// Every other name goes to ICU as written, with ICU's own aliases.
constexpr CodePageLabel kWebLabels[] = {
    {"gb2312", "GBK"},
    {"gb231280", "GBK"},
    {"csgb2312", "GBK"},
    {"csiso58gb231280", "GBK"},
    {"chinese", "GBK"},
    {"xgbk", "GBK"},
    {"gbk", "GBK"},
    {"cp936", "GBK"},
    {"euckr", "windows-949"},
    {"cseuckr", "windows-949"},
    {"ksc56011987", "windows-949"},
    {"ksc5601", "windows-949"},
    {"ksc56011989", "windows-949"},
    {"cp949", "windows-949"},
    {"shiftjis", "windows-31j"},
    {"sjis", "windows-31j"},
    {"xsjis", "windows-31j"},
    {"mskanji", "windows-31j"},
    {"csshiftjis", "windows-31j"},
    {"iso88591", "windows-1252"},
    {"latin1", "windows-1252"},
    {"l1", "windows-1252"},
    {"isoir100", "windows-1252"},
    {"usascii", "windows-1252"},
    {"ascii", "windows-1252"},
    {"ansix341968", "windows-1252"},
    {"iso88599", "windows-1254"},
    {"latin5", "windows-1254"},
    {"iso885911", "windows-874"},
    {"tis620", "windows-874"},
};

std::optional<QStringConverter::Encoding> unicodeEncoding(const QString& key) {
  for (const auto& label : kUnicodeLabels)
    if (key == QLatin1StringView(label.key)) return label.encoding;
  return std::nullopt;
}

QByteArray icuName(const QString& charset, const QString& key) {
  for (const auto& label : kWebLabels)
    if (key == QLatin1StringView(label.key)) return label.icuName;
  return charset.trimmed().toLatin1();
}

struct ConverterCloser {
  void operator()(UConverter* converter) const { ucnv_close(converter); }
};
using Converter = std::unique_ptr<UConverter, ConverterCloser>;

// The converter of a charset; none when the name is unknown.
Converter openConverter(const QString& charset, const QString& key) {
  const QByteArray name = icuName(charset, key);
  UErrorCode status = U_ZERO_ERROR;
  Converter converter;
  // An empty name would open ICU's default converter: that is a fallback, not a charset.
  if (!name.isEmpty() && !key.isEmpty()) converter.reset(ucnv_open(name.constData(), &status));
  if (U_FAILURE(status)) converter.reset();
  return converter;
}

Failure unknownCharset(const QString& charset) {
  return Failure{{}, QStringLiteral("unknown charset \"%1\"").arg(charset)};
}

// Bytes that are not valid in the charset each become U+FFFD, as a browser shows them.
// ICU's own substitute would be U+001A for single-byte charsets.
void substituteReplacementCharacter(const void*, UConverterToUnicodeArgs* args, const char*, int32_t,
                                    UConverterCallbackReason reason, UErrorCode* status) {
  if (reason > UCNV_IRREGULAR) return;
  static const UChar replacement = 0xFFFD;
  *status = U_ZERO_ERROR;
  ucnv_cbToUWriteUChars(args, &replacement, 1, 0, status);
}

Failure icuFailure(UErrorCode status) {
  return Failure{{}, QStringLiteral("charset conversion failed: %1").arg(QString::fromLatin1(u_errorName(status)))};
}

Result<QString> icuDecode(UConverter* converter, const QByteArray& bytes) {
  UErrorCode status = U_ZERO_ERROR;
  ucnv_setToUCallBack(converter, substituteReplacementCharacter, nullptr, nullptr, nullptr, &status);
  // A byte rarely yields more than one UTF-16 unit; the buffer grows when one does.
  QString text(bytes.size() + 16, Qt::Uninitialized);
  const char* source = bytes.constData();
  const char* const sourceEnd = source + bytes.size();
  qsizetype written = 0;
  do {
    status = U_ZERO_ERROR;
    auto target = reinterpret_cast<UChar*>(text.data()) + written;
    const auto targetEnd = reinterpret_cast<UChar*>(text.data()) + text.size();
    ucnv_toUnicode(converter, &target, targetEnd, &source, sourceEnd, nullptr, true, &status);
    written = target - reinterpret_cast<UChar*>(text.data());
    if (status == U_BUFFER_OVERFLOW_ERROR) text.resize(text.size() + (sourceEnd - source) + 16);
  } while (status == U_BUFFER_OVERFLOW_ERROR);
  if (U_FAILURE(status)) return icuFailure(status);
  text.truncate(written);
  return text;
}

Result<QByteArray> icuEncode(UConverter* converter, const QString& text) {
  UErrorCode status = U_ZERO_ERROR;
  // Characters the charset cannot hold become "&#NNNN;", as browsers submit them in forms.
  ucnv_setFromUCallBack(converter, UCNV_FROM_U_CALLBACK_ESCAPE, UCNV_ESCAPE_XML_DEC, nullptr, nullptr, &status);
  QByteArray bytes(text.size() * 2 + 16, Qt::Uninitialized);
  auto source = reinterpret_cast<const UChar*>(text.constData());
  const auto sourceEnd = source + text.size();
  qsizetype written = 0;
  do {
    status = U_ZERO_ERROR;
    char* target = bytes.data() + written;
    ucnv_fromUnicode(converter, &target, bytes.data() + bytes.size(), &source, sourceEnd, nullptr, true, &status);
    written = target - bytes.data();
    if (status == U_BUFFER_OVERFLOW_ERROR) bytes.resize(bytes.size() * 2 + 16);
  } while (status == U_BUFFER_OVERFLOW_ERROR);
  if (U_FAILURE(status)) return icuFailure(status);
  bytes.truncate(written);
  return bytes;
}

// The locale that decides LC_CTYPE, by the usual precedence of the environment.
QString ctypeLocaleName() {
  for (const char* variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    const QString value = qEnvironmentVariable(variable);
    if (!value.isEmpty()) return value;
  }
  return QStringLiteral("C");
}

struct LegacyCodePage {
  const char* languages;  // space-separated language codes
  const char* charset;
};

// The legacy code page that Windows machines of each language write their text in; that is
// where a text file without a mark and without UTF-8 sequences most likely came from.
constexpr LegacyCodePage kLegacyCodePages[] = {
    {"ja", "shift_jis"},
    {"ko", "euc-kr"},
    {"th", "windows-874"},
    {"vi", "windows-1258"},
    {"cs hu pl ro sk sl hr sq bs hsb dsb", "windows-1250"},
    {"ru uk be bg mk kk ky tt mn sr", "windows-1251"},
    {"el", "windows-1253"},
    {"tr az", "windows-1254"},
    {"he yi", "windows-1255"},
    {"ar fa ur", "windows-1256"},
    {"lt lv et", "windows-1257"},
};

QString legacyCodePageOf(const QString& localeName) {
  // "zh_TW.UTF-8@modifier" → language "zh", territory "TW".
  const QString base = localeName.section(u'.', 0, 0).section(u'@', 0, 0);
  const QString language = base.section(u'_', 0, 0).toLower();
  const QString territory = base.section(u'_', 1, 1).toUpper();
  if (language == u"zh")
    return (territory == u"TW" || territory == u"HK" || territory == u"MO") ? QStringLiteral("big5")
                                                                            : QStringLiteral("gbk");
  if (language == u"sr" && localeName.contains(u"@latin")) return QStringLiteral("windows-1250");
  for (const auto& entry : kLegacyCodePages)
    if (QString::fromLatin1(entry.languages).split(u' ').contains(language)) return QString::fromLatin1(entry.charset);
  return QStringLiteral("windows-1252");
}

}  // namespace

bool Charset::isKnown(const QString& charset) {
  const QString key = labelKey(charset);
  return unicodeEncoding(key).has_value() || openConverter(charset, key) != nullptr;
}

Result<QString> Charset::decode(const QByteArray& bytes, const QString& charset) {
  const QString key = labelKey(charset);
  if (const auto encoding = unicodeEncoding(key)) {
    // Stateless: a sequence cut at the end becomes U+FFFD instead of vanishing. A leading
    // byte-order mark is dropped, as browsers do.
    QStringDecoder decoder(*encoding, QStringConverter::Flag::Stateless);
    return QString(decoder.decode(bytes));
  }
  const Converter converter = openConverter(charset, key);
  return converter ? icuDecode(converter.get(), bytes) : unknownCharset(charset);
}

Result<QByteArray> Charset::encode(const QString& text, const QString& charset) {
  const QString key = labelKey(charset);
  if (const auto encoding = unicodeEncoding(key)) {
    QStringEncoder encoder(*encoding, QStringConverter::Flag::Stateless);  // no byte-order mark
    return QByteArray(encoder.encode(text));
  }
  const Converter converter = openConverter(charset, key);
  return converter ? icuEncode(converter.get(), text) : unknownCharset(charset);
}

QString Charset::systemCodePage() {
  const QString configured = qEnvironmentVariable("VELMORA_CODEPAGE").trimmed();
  if (!configured.isEmpty()) return configured;
  // A locale with a legacy charset of its own names it ("zh_CN.GB18030", "ru_RU.KOI8-R").
  // A UTF-8 or plain ASCII locale has no legacy charset, so take the one its language used.
  const QString localeName = ctypeLocaleName();
  const QString codeset = localeName.section(u'.', 1).section(u'@', 0, 0);
  const QString key = labelKey(codeset);
  const bool legacy = !key.isEmpty() && key != u"utf8" && key != u"ansix341968" && key != u"ascii" && key != u"usascii";
  if (legacy && isKnown(codeset)) return codeset.toLower();
  return legacyCodePageOf(localeName);
}

}  // namespace velmora
