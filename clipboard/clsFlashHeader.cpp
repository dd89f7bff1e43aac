#include "clipboard/clsFlashHeader.h"

#include <zlib.h>
#include <QFile>
#include <QtEndian>
#include <cmath>

#include "support/AutomationNumber.h"
#include "support/basPublic.h"

namespace velmora {

namespace {

constexpr int kHeaderSize = 8;
// Deflate cannot shrink data by more than about 1032 to 1; a length field promising more
// than that lies, and is refused before any memory is set aside for it.
constexpr quint64 kMaxDeflateRatio = 1032;

// Reads `count` bits starting at bit `offset` of `bytes`, most significant bit first.
// Fields wider than 32 bits or past the end of the data give nullopt.
std::optional<quint32> readBits(const QByteArray& bytes, qsizetype offset, int count) {
  if (count > 32 || offset + count > bytes.size() * 8) return std::nullopt;
  quint32 value = 0;
  for (int i = 0; i < count; ++i) {
    const qsizetype bit = offset + i;
    value = (value << 1) | ((quint8(bytes[bit / 8]) >> (7 - bit % 8)) & 1u);
  }
  return value;
}

}  // namespace

bool clsFlashHeader::Parse(const QString& fileName) {
  context_.g_sError.clear();
  if (!IsValidFile(fileName, QStringLiteral("swf"))) {
    context_.g_sError = QStringLiteral("InvalidFile:swf");
    return false;
  }
  QFile file(fileName);
  if (!file.open(QIODevice::ReadOnly)) return false;
  QByteArray bytes = file.readAll();
  if (bytes.size() < kHeaderSize) return false;

  const QByteArray signature = bytes.left(3);
  const quint32 length = qFromLittleEndian<quint32>(bytes.constData() + 4);
  if (signature == "CWS") {
    QByteArray body = bytes.mid(kHeaderSize);
    if (!Inflate(body, length)) return false;
    bytes = bytes.left(kHeaderSize) + body;
  } else if (signature != "FWS") {
    return false;
  }

  // The rectangle: a 5-bit width n, then Xmin, Xmax, Ymin, Ymax of n bits each. The
  // coordinates are read as unsigned numbers, as the header's reader always has.
  const QByteArray rect = bytes.mid(kHeaderSize);
  const std::optional<quint32> n = readBits(rect, 0, 5);
  if (!n) return false;
  std::optional<quint32> field[4];
  for (int i = 0; i < 4; ++i)
    if (!(field[i] = readBits(rect, 5 + i * qsizetype(*n), int(*n)))) return false;
  try {
    m_iWidth = RoundToInteger<int16_t>((double(*field[1]) - double(*field[0])) / 20.0);
    m_iHeight = RoundToInteger<int16_t>((double(*field[3]) - double(*field[2])) / 20.0);
  } catch (const ScriptError&) {
    m_iWidth = m_iHeight = 0;
    return false;  // a size beyond 16 bits ends the parse like any other error
  }
  return true;
}

bool clsFlashHeader::Inflate(QByteArray& bytes, quint32 expectedLength) {
  if (quint64(expectedLength) > quint64(bytes.size()) * kMaxDeflateRatio + 64) return false;
  QByteArray out(qsizetype(std::llround(expectedLength * 1.01 + 12)), Qt::Uninitialized);
  uLongf produced = uLongf(out.size());
  const int status = uncompress(reinterpret_cast<Bytef*>(out.data()), &produced,
                                reinterpret_cast<const Bytef*>(bytes.constData()), uLong(bytes.size()));
  if (status != Z_OK) return false;
  out.truncate(qsizetype(produced));
  bytes = out;
  return true;
}

}  // namespace velmora
