#pragma once
#include <QString>

// Small text rules that every layer shares.
namespace velmora {

// The text without the blanks (U+0020 only) at either end: tabs and line breaks stay.
QString trimBlanks(const QString& text);

// The name part of a path or address: the text after its last "/" or "\".
QString fileNameOf(const QString& path);

// The fragment every picture route writes for one picture file.
QString pictureFragment(const QString& path);

}  // namespace velmora
