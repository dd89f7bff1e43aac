#pragma once
#include <QString>

#include "core/Context.h"

namespace velmora {

// Saves the picture on the clipboard into the working folder, named by time stamp, as PNG,
// GIF or JPEG ("imgtype": "png" and "gif" are honoured, anything else gives JPEG), and
// leaves the picture fragment in `html`. No picture on the clipboard: success with an
// empty fragment. A picture that cannot be read or written: false with "GDIPlus:" and
// the step that failed.
bool WordPaste2Image(Context& context, const QString& options, QString& html);

}  // namespace velmora
