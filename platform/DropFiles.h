#pragma once
#include <QByteArray>
#include <QString>
#include <QStringList>
#include <cstdint>

// The file-drop block of the clipboard's file list (format 15): a 20-byte header (offset of
// the list, drop point x and y, "in a client area", "wide names"), then each name followed by
// a NUL, then one more NUL. Wide names are UTF-16 little-endian; narrow ones are one byte per
// character. All numbers are 32-bit little-endian.
namespace velmora::dropfiles {

constexpr int kHeaderSize = 20;

// Narrow names keep characters up to 255 and write '?' for the others.
QByteArray build(const QStringList& names, bool wideNames);
// Number of names in the block; 0 for a block that is not a file-drop block.
uint32_t count(const QByteArray& block);
// Name `index` (0-based) as a buffer of `bufferChars` characters receives it: at most
// bufferChars - 1 characters. "" when there is no such name.
QString queryFile(const QByteArray& block, uint32_t index, int bufferChars);
// Every name, whole.
QStringList names(const QByteArray& block);

}  // namespace velmora::dropfiles
