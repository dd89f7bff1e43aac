#include "agent/StaticFiles.h"

#include <QDir>
#include <QFileInfo>

namespace velmora::agent {

namespace {

bool isSafeRelativePath(const QString& path) {
  if (path.contains(u'\\') || path.contains(QChar(0))) return false;
  const QStringList segments = path.split(u'/');
  for (qsizetype i = 0; i < segments.size(); ++i) {
    const QString& segment = segments[i];
    // An empty last segment is the folder itself ("/demo/"); empty ones elsewhere ("//")
    // and hidden or dot names are refused.
    if (segment.isEmpty() ? i + 1 != segments.size() : segment.startsWith(u'.')) return false;
  }
  return true;
}

// `file` (canonical) lies inside `root` (canonical) or is it.
bool isInside(const QString& file, const QString& root) {
  return file == root || file.startsWith(root.endsWith(u'/') ? root : root + u'/');
}

QString regularFileIn(const QString& candidate, const QString& root) {
  QFileInfo info(candidate);
  if (info.isDir()) info.setFile(QDir(candidate).filePath(QStringLiteral("index.html")));
  const QString canonical = info.canonicalFilePath();  // empty when it does not exist
  const QString canonicalRoot = QFileInfo(root).canonicalFilePath();
  if (canonical.isEmpty() || canonicalRoot.isEmpty() || !isInside(canonical, canonicalRoot)) return {};
  return QFileInfo(canonical).isFile() ? canonical : QString();
}

}  // namespace

StaticFiles::StaticFiles(std::vector<Mount> mounts) : mounts_(std::move(mounts)) {}

QString StaticFiles::resolve(const QString& urlPath) const {
  if (!urlPath.startsWith(u'/')) return {};
  for (const Mount& mount : mounts_) {
    if (!mount.urlPath.endsWith(u'/')) {
      if (urlPath == mount.urlPath) return regularFileIn(mount.localPath, mount.localPath);
      continue;
    }
    if (!urlPath.startsWith(mount.urlPath)) continue;
    const QString relative = urlPath.mid(mount.urlPath.size());
    if (!isSafeRelativePath(relative)) return {};
    return regularFileIn(mount.localPath + u'/' + relative, mount.localPath);
  }
  return {};
}

QByteArray StaticFiles::contentType(const QString& fileName) {
  static const std::pair<const char*, const char*> kTypes[] = {
      {".html", "text/html; charset=utf-8"},
      {".js", "text/javascript; charset=utf-8"},
      {".mjs", "text/javascript; charset=utf-8"},
      {".css", "text/css; charset=utf-8"},
      {".json", "application/json"},
      {".map", "application/json"},
      {".svg", "image/svg+xml"},
      {".png", "image/png"},
      {".ico", "image/x-icon"},
      {".txt", "text/plain; charset=utf-8"},
  };
  for (const auto& [extension, type] : kTypes)
    if (fileName.endsWith(QLatin1String(extension), Qt::CaseInsensitive)) return type;
  return "application/octet-stream";
}

}  // namespace velmora::agent
