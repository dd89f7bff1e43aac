#pragma once
#include <QByteArray>
#include <QString>

#include "core/Result.h"

namespace velmora {

// Text to bytes and back in a charset named the way web pages name them: the UTF
// encodings through QStringConverter, the code-page charsets (gb2312, gbk, gb18030, big5,
// shift_jis, euc-kr, windows-125x, iso-8859-x, ...) through ICU. An unknown name is an
// error, never a silent fallback.
class Charset {
 public:
  // A failure (with a description only; the caller names the stage) when the charset is
  // unknown or the text cannot be converted.
  static Result<QByteArray> encode(const QString& text, const QString& charset);
  static Result<QString> decode(const QByteArray& bytes, const QString& charset);
  static bool isKnown(const QString& charset);
  // The locale's legacy 8-bit encoding (what a text file without a mark and without UTF-8
  // sequences is read as); the environment variable VELMORA_CODEPAGE overrides it.
  static QString systemCodePage();
};

}  // namespace velmora
