#include "platform/Charset.h"

#include <QStringConverter>
#include <unicode/ucnv.h>
#include <unicode/ucnv_cb.h>
#include <memory>

namespace velmora {

namespace {

struct ConverterCloser {
  void operator()(UConverter* converter) const { ucnv_close(converter); }
};
using Converter = std::unique_ptr<UConverter, ConverterCloser>;

// The UTF encodings go through Qt; everything else is a code page that ICU knows by one of
// its names or aliases ("gb2312", "shift_jis", "windows-1252", ...).
std::optional<QStringConverter::Encoding> utfEncoding(const QString& charset) {
  const QString name = charset.trimmed().toLower();
  if (name == u"utf-8" || name == u"utf8") return QStringConverter::Utf8;
  if (name == u"utf-16le") return QStringConverter::Utf16LE;
  if (name == u"utf-16be") return QStringConverter::Utf16BE;
  if (name == u"utf-16") return QStringConverter::Utf16;
  return std::nullopt;
}

Converter openIcu(const QString& charset, QString* error) {
  UErrorCode status = U_ZERO_ERROR;
  const QByteArray name = charset.trimmed().toLatin1();
  Converter converter(name.isEmpty() ? nullptr : ucnv_open(name.constData(), &status));
  if (!converter || U_FAILURE(status)) {
    if (error) *error = QStringLiteral("unknown charset \"%1\"").arg(charset);
    return nullptr;
  }
  return converter;
}

bool setError(QString* error, const QString& text) {
  if (error) *error = text;
  return false;
}

}  // namespace

bool Charset::isKnown(const QString& charset) {
  return utfEncoding(charset) || openIcu(charset, nullptr) != nullptr;
}

bool Charset::encode(const QString& text, const QString& charset, QByteArray& out, QString* error) {
  if (const auto utf = utfEncoding(charset)) {
    out = QStringEncoder(*utf).encode(text);
    return true;
  }
  Converter converter = openIcu(charset, error);
  if (!converter) return false;
  // Characters the charset cannot hold are written as numeric character references, the
  // way browsers send form fields.
  UErrorCode status = U_ZERO_ERROR;
  ucnv_setFromUCallBack(converter.get(), UCNV_FROM_U_CALLBACK_ESCAPE, UCNV_ESCAPE_XML_DEC, nullptr, nullptr, &status);
  const auto* source = reinterpret_cast<const UChar*>(text.utf16());
  const int32_t needed = ucnv_fromUChars(converter.get(), nullptr, 0, source, int32_t(text.size()), &status);
  if (status != U_BUFFER_OVERFLOW_ERROR && U_FAILURE(status))
    return setError(error, QStringLiteral("cannot convert text to %1: %2").arg(charset, u_errorName(status)));
  out.resize(needed);
  status = U_ZERO_ERROR;
  ucnv_fromUChars(converter.get(), out.data(), needed, source, int32_t(text.size()), &status);
  if (U_FAILURE(status) && status != U_STRING_NOT_TERMINATED_WARNING)
    return setError(error, QStringLiteral("cannot convert text to %1: %2").arg(charset, u_errorName(status)));
  return true;
}

bool Charset::decode(const QByteArray& bytes, const QString& charset, QString& out, QString* error) {
  if (const auto utf = utfEncoding(charset)) {
    out = QStringDecoder(*utf).decode(bytes);
    return true;
  }
  Converter converter = openIcu(charset, error);
  if (!converter) return false;
  UErrorCode status = U_ZERO_ERROR;
  out.resize(bytes.size() * 2 + 1);  // no code page yields more than two UTF-16 units a byte
  const int32_t length = ucnv_toUChars(converter.get(), reinterpret_cast<UChar*>(out.data()), int32_t(out.size()),
                                       bytes.constData(), int32_t(bytes.size()), &status);
  if (U_FAILURE(status)) {
    out.clear();
    return setError(error, QStringLiteral("cannot read text as %1: %2").arg(charset, u_errorName(status)));
  }
  out.truncate(length);
  return true;
}

QString Charset::systemCodePage() {
  const QString configured = qEnvironmentVariable("VELMORA_CODEPAGE");
  if (!configured.isEmpty()) return configured;
  // A UTF-8 locale has no legacy 8-bit encoding of its own; Western European is the one
  // documents without a mark were most often written in, and it decodes every byte.
  const char* name = ucnv_getDefaultName();
  const QString locale = QString::fromLatin1(name ? name : "");
  return locale.isEmpty() || locale.contains(u"UTF-8", Qt::CaseInsensitive) || locale == u"US-ASCII"
             ? QStringLiteral("windows-1252")
             : locale;
}

}  // namespace velmora
