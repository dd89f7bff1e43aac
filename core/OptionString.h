#pragma once
#include <QString>

namespace velmora {

// Reads one value from an option string such as "mode:html;api:0". Keys are matched
// without regard to case, values come back as written; an item with no key separator or
// with more than one is ignored, and the first valid occurrence of a key wins. Only blanks
// are trimmed around keys and values: tabs and line breaks stay part of them.
QString GetOptValue(const QString& options, const QString& key, const QString& defaultValue = QString(),
                    const QString& itemSeparator = QStringLiteral(";"),
                    const QString& keySeparator = QStringLiteral(":"));

// The picture type "imgtype" asks for: "png" and "gif" as written, anything else (or none)
// "jpg".
QString pictureTypeOption(const QString& options);
// The office "api" asks for: "0" (either), "2" (WPS), anything else "1" (Microsoft's).
QString apiOption(const QString& options);

}  // namespace velmora
