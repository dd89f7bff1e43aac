#pragma once
#include <QString>

// What the paste flows read from the clipboard. Each call uses its own clsClipboard with no
// owner window, and raises the clipboard's ScriptError when another holder keeps it.
namespace velmora {

// The "HTML Format" data as text (its header lines, then the HTML), or "".
QString GetClipboardHTML();
// The data of the first format whose name equals `sFormatName` exactly, as text, or "".
QString GetClipboardDataByName(const QString& sFormatName);
// Whether some format's name begins with `sPrefix`, without regard to case.
bool ClipboardHasFormatLike(const QString& sPrefix);
// The value of the `sHeaderName:value` line of "HTML Format" text: the rest of that line. When
// the header does not occur the text comes back unchanged, so callers check what they get.
QString GetHTMLFormatHeader(const QString& sHTMLFormat, const QString& sHeaderName);

}  // namespace velmora
