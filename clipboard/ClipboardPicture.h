#pragma once
#include <QString>

#include "core/Result.h"

namespace velmora {

// Saves the picture on the clipboard into `workingFolder`, named by time stamp, as PNG,
// GIF or JPEG ("imgtype": "png" and "gif" are honoured, anything else gives JPEG), and
// answers its picture fragment. No picture on the clipboard: an empty fragment. A picture
// that cannot be read or written: "GDIPlus:" and the step that failed. Raises the
// clipboard's error when another program holds the clipboard.
Result<QString> WordPaste2Image(const QString& workingFolder, const QString& options);

}  // namespace velmora
