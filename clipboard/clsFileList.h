#pragma once
#include <QString>

#include "core/Context.h"

namespace velmora {

// Turns the files copied in the file manager into one picture fragment per file that
// passes the extension list and the size limit, in ascending name order.
class clsFileList {
 public:
  explicit clsFileList(Context& context) : context_(context) {}
  // Raises the clipboard's error when another program holds the clipboard.
  void FileList2HTML(const QString& allowedExtensions, int32_t sizeLimitKb, QString& html, bool& success);

 private:
  Context& context_;
};

}  // namespace velmora
