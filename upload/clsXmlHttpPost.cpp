#include "upload/clsXmlHttpPost.h"

#include <QFile>
#include <QRandomGenerator>
#include <cmath>

#include "platform/Charset.h"

namespace velmora {

namespace {

const QString kCrLf = QStringLiteral("\r\n");
constexpr qsizetype kChunk = 64 * 1024;  // reads from a device whose size is not known

}  // namespace

const QString clsXmlHttpPost::kSendWord = QStringLiteral("XMLHTTP-Send:");
const QString clsXmlHttpPost::kReadWord = QStringLiteral("CreateObject(ADODB.Stream):");

clsXmlHttpPost::clsXmlHttpPost()
    : m_sBoundary(GenerateBoundary()), m_sContentType(QStringLiteral("multipart/form-data; boundary=") + m_sBoundary) {}

QString clsXmlHttpPost::GenerateBoundary() {
  // A uniform number in [0, 1) times 100000, to the nearest integer (a half to the even one).
  const auto draw = [] {
    return static_cast<long long>(std::nearbyint(QRandomGenerator::global()->generateDouble() * 100000));
  };
  const long long a = draw();
  const long long b = draw();
  return QStringLiteral("---------------------------7d51") + QString::asprintf("%05lld%05lld", a, b);
}

// Appends `text` in the body's charset, without a byte-order mark.
Outcome clsXmlHttpPost::appendText(const QString& text) {
  const QString upper = m_sCharset.toUpper();
  // "unicode" is the stream's name for UTF-16 little-endian.
  const QString charset = upper == u"UNICODE" ? QStringLiteral("utf-16le") : m_sCharset;
  const Result<QByteArray> encoded = Charset::encode(text, charset);
  if (!encoded) {
    const QString& why = encoded.failure().description;
    return Failure{kSendWord, why.isEmpty() ? QStringLiteral("cannot write text in ") + m_sCharset : why};
  }
  const QByteArray& bytes = encoded.value();
  qsizetype mark = 0;
  if (upper == u"UTF-8" && bytes.startsWith("\xEF\xBB\xBF")) mark = 3;
  if (upper == u"UNICODE" && bytes.startsWith("\xFF\xFE")) mark = 2;
  m_oStream.append(QByteArrayView(bytes).sliced(mark));
  return {};
}

Outcome clsXmlHttpPost::AddForm(const QString& name, const QString& value) {
  return appendText(kCrLf + QStringLiteral("--") + m_sBoundary + kCrLf +
                    QStringLiteral("Content-Disposition: form-data; name=\"") + name + u'"' + kCrLf + kCrLf + value);
}

QString clsXmlHttpPost::fileHead(const QString& name, const QString& fileName) const {
  return kCrLf + QStringLiteral("--") + m_sBoundary + kCrLf +
         QStringLiteral("Content-Disposition: form-data; name=\"") + name + QStringLiteral("\"; filename=\"") +
         fileName + u'"' + kCrLf + QStringLiteral("Content-Type: application/octet-stream") + kCrLf + kCrLf;
}

Outcome clsXmlHttpPost::AddFile(const QString& name, const QString& fileName, const QByteArray& data) {
  Outcome head = appendText(fileHead(name, fileName));
  if (head) m_oStream += data;
  return head;
}

Outcome clsXmlHttpPost::AddFile(const QString& name, const QString& fileName, QIODevice& content) {
  if (Outcome head = appendText(fileHead(name, fileName)); !head) return head;
  const auto readInto = [&](qsizetype count) {
    const qsizetype at = m_oStream.size();
    m_oStream.resize(at + count);
    const qint64 got = content.read(m_oStream.data() + at, count);
    m_oStream.resize(at + std::max<qint64>(got, 0));
    return got;
  };
  if (!content.isSequential()) {
    // One allocation of the right size, with room for the closing delimiter in any
    // charset (up to four bytes a character), and one read.
    const qsizetype size = std::max<qint64>(content.size() - content.pos(), 0);
    m_oStream.reserve(m_oStream.size() + size + 4 * (m_sBoundary.size() + 8));
    if (readInto(size) < 0) return Failure{kReadWord, content.errorString()};
    return {};
  }
  qint64 got = 0;
  while ((got = readInto(kChunk)) > 0) {
  }
  if (got < 0) return Failure{kReadWord, content.errorString()};
  return {};
}

Outcome clsXmlHttpPost::AddFile(const QString& name, const QString& fileName, const QString& path) {
  QFile file(path);
  if (!file.open(QIODevice::ReadOnly)) return Failure{kReadWord, file.errorString()};
  return AddFile(name, fileName, file);
}

Outcome clsXmlHttpPost::AddEnd() {
  Outcome end = appendText(kCrLf + QStringLiteral("--") + m_sBoundary + QStringLiteral("--") + kCrLf);
  m_vData = std::move(m_oStream);
  m_oStream = QByteArray();
  return end;
}

}  // namespace velmora
