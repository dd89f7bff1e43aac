#pragma once
#include <QByteArray>
#include <QString>
#include <vector>

namespace velmora::agent {

// Which file a URL path of the demo server names. Files are served only from the mounted
// folders and files: a path with "..", ".", a hidden name, a backslash or NUL names
// nothing, and neither does one that leads (through a link) out of its mount.
class StaticFiles {
 public:
  struct Mount {
    QString urlPath;  // "/demo/" mounts a folder; "/velmora.js" (no trailing "/") one file
    QString localPath;
  };

  explicit StaticFiles(std::vector<Mount> mounts);

  // The local file for `urlPath` (already percent-decoded), or empty. A folder stands for
  // its "index.html".
  QString resolve(const QString& urlPath) const;

  // The Content-Type for a file name.
  static QByteArray contentType(const QString& fileName);

 private:
  std::vector<Mount> mounts_;
};

}  // namespace velmora::agent
