#include "clipboard/clsFileList.h"
#include "core/Yield.h"

#include <QFileInfo>

#include "clipboard/clsClipboard.h"
#include "core/Text.h"
#include "support/basPublic.h"

namespace velmora {

void clsFileList::FileList2HTML(const QString& allowedExtensions, int32_t sizeLimitKb, QString& html, bool& success) {
  letPendingEventsRun();
  success = false;
  context_.g_sError.clear();
  html.clear();
  QStringList names;
  int32_t count = 0;
  bool listed = false;
  {
    clsClipboard clipboard;
    clipboard.ClipboardOpen(0);
    listed = clipboard.GetFileList(names, count);
    clipboard.ClipboardClose();
  }
  if (!listed) return;
  for (const QString& name : names) {
    if (IsValidFile(name, allowedExtensions) && QFileInfo(name).size() / 1024.0 <= sizeLimitKb)
      html += pictureFragment(name);
  }
  success = true;
}

}  // namespace velmora
