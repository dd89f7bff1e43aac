#pragma once
#include <QByteArray>
#include <QString>

#include "core/Result.h"

class QIODevice;

namespace velmora {

// The body of a "multipart/form-data" request, built in memory: text fields and file
// fields one after the other, then the closing delimiter. Text (delimiters, part headers,
// field values) is written in `Charset` without a byte-order mark; file contents are
// copied byte for byte. One instance builds one body:
//   Charset, any number of AddForm/AddFile, AddEnd, then ContentType and Data.
class clsXmlHttpPost {
 public:
  // The Add members fail when the body cannot take a part: with kSendWord for text that
  // the charset cannot write (or an unknown charset), with kReadWord for file content that
  // cannot be read. The body is then of no use.
  static const QString kSendWord;
  static const QString kReadWord;

  clsXmlHttpPost();

  void setCharset(const QString& charset) { m_sCharset = charset; }
  const QString& ContentType() const { return m_sContentType; }
  // The finished body; empty before AddEnd.
  const QByteArray& Data() const { return m_vData; }

  Outcome AddForm(const QString& name, const QString& value);
  Outcome AddFile(const QString& name, const QString& fileName, const QByteArray& data);
  // The content is read from `content` (from its position to its size) straight into the
  // body, so a file is held in memory once.
  Outcome AddFile(const QString& name, const QString& fileName, QIODevice& content);
  // The content is the file at `path`.
  Outcome AddFile(const QString& name, const QString& fileName, const QString& path);
  Outcome AddEnd();

  // 27 hyphens, "7d51", then two random numbers from 0 to 100000, each of at least five digits.
  static QString GenerateBoundary();

 private:
  Outcome appendText(const QString& text);
  QString fileHead(const QString& name, const QString& fileName) const;

  QString m_sBoundary;
  QString m_sCharset = QStringLiteral("utf-8");
  QString m_sContentType;
  QByteArray m_oStream;  // the growing body
  QByteArray m_vData;
};

}  // namespace velmora
