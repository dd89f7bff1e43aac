#include "platform/DropFiles.h"

#include <QtEndian>

#include "platform/ClipboardPlatform.h"

namespace velmora::dropfiles {

namespace {

void appendUInt32(QByteArray& out, uint32_t value) {
  char bytes[4];
  qToLittleEndian(value, bytes);
  out.append(bytes, 4);
}

uint32_t readUInt32(const QByteArray& block, int offset) {
  return qFromLittleEndian<uint32_t>(block.constData() + offset);
}

// The names of a well-formed block, whole; empty for anything else.
QStringList parse(const QByteArray& block) {
  if (block.size() < kHeaderSize) return {};
  const uint32_t listOffset = readUInt32(block, 0);
  const bool wide = readUInt32(block, 16) != 0;
  if (listOffset < uint32_t(kHeaderSize) || listOffset >= uint32_t(block.size())) return {};
  QStringList names;
  QString current;
  const int unit = wide ? 2 : 1;
  for (qsizetype at = listOffset; at + unit <= block.size(); at += unit) {
    const char16_t code = wide ? qFromLittleEndian<char16_t>(block.constData() + at) : uchar(block[at]);
    if (code != 0) {
      current.append(QChar(code));
      continue;
    }
    if (current.isEmpty()) break;  // the closing NUL
    names.append(current);
    current.clear();
  }
  return names;
}

}  // namespace

QByteArray build(const QStringList& names, bool wideNames) {
  QByteArray block;
  appendUInt32(block, kHeaderSize);  // offset of the list
  appendUInt32(block, 0);            // drop point x
  appendUInt32(block, 0);            // drop point y
  appendUInt32(block, 0);            // not in a client area
  appendUInt32(block, wideNames ? 1 : 0);
  for (const QString& name : names) block += wideNames ? unicodeTextBlock(name) : narrowTextBlock(name);
  block.append(wideNames ? 2 : 1, '\0');
  return block;
}

uint32_t count(const QByteArray& block) { return uint32_t(parse(block).size()); }

QString queryFile(const QByteArray& block, uint32_t index, int bufferChars) {
  const QStringList all = parse(block);
  if (index >= uint32_t(all.size()) || bufferChars < 1) return QString();
  return all[index].left(bufferChars - 1);
}

QStringList names(const QByteArray& block) { return parse(block); }

}  // namespace velmora::dropfiles
