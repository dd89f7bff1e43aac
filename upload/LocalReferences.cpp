#include "upload/LocalReferences.h"

#include <QDir>
#include <QFileInfo>
#include <QImageReader>
#include <algorithm>

#include "support/RegExp.h"
#include "support/basPublic.h"

namespace velmora {

namespace {

struct ModePattern {
  const char16_t* mode;
  const char16_t* pattern;
  int headCut;  // characters before the reference in a match
};

// What a local reference looks like in each upload mode.
const ModePattern kModePatterns[] = {
    {u"local",
     uR"(\"file:///[a-zA-Z][:\|][^\*\?\"\<\>\|]+?\.(bmp|bmz|cdr|cgm|dib|emf|emz|eps|gfa|gif|ico|jfif|jpg|jpe|jpeg|pct|pcz|pict|png|rle|tif|tiff|wpg|wmz|wmf|xbm|xpm)\")",
     9},
    // The same address form for a POSIX path: file:///home/u/a.png.
    {u"local",
     uR"(\"file:///(?![a-zA-Z][:\|])[^\*\?\"\<\>\|]+?\.(bmp|bmz|cdr|cgm|dib|emf|emz|eps|gfa|gif|ico|jfif|jpg|jpe|jpeg|pct|pcz|pict|png|rle|tif|tiff|wpg|wmz|wmf|xbm|xpm)\")",
     8},  // keeps the leading "/" of the path
    {u"word", uR"(src=\"[^\*\?\"\<\>\|]*?Velmora_Temp_Word_Doc[\._\-]files[/\\][^\*\?\"\<\>\|]+?\")", 5},
    {u"excel", uR"(src=\"[^\*\?\"\<\>\|]*?Velmora_Temp_Excel_Sheet[0-9]*[\._\-]files[/\\][^\*\?\"\<\>\|]+?\")", 5},
    {u"wordimage", uR"(src=\"[^\*\?\"\<\>\|]+?\")", 5},
    {u"pastefilelist", uR"(src=\"[^\*\?\"\<\>\|]+?\")", 5},
};

// A path written with a drive letter ("C:/..." or "C|/..."): the home platform's form.
bool hasDriveLetter(const QString& path) {
  return path.size() >= 2 && path[0].isLetter() && path[0].unicode() < 128 && (path[1] == u':' || path[1] == u'|');
}

bool isConvertedPage(const QString& mode) { return mode == u"word" || mode == u"excel"; }

// The modes whose references stand in src attributes.
bool hasSrcReferences(const QString& mode) {
  return isConvertedPage(mode) || mode == u"wordimage" || mode == u"pastefilelist";
}

}  // namespace

QStringList findLocalReferences(const QString& mode, const QString& body) {
  std::vector<std::pair<RegExpMatch, int>> matches;
  for (const ModePattern& entry : kModePatterns) {
    if (mode != QStringView(entry.mode)) continue;
    for (RegExpMatch& match : RegExp(QString::fromUtf16(entry.pattern)).execute(body))
      matches.emplace_back(std::move(match), entry.headCut);
  }
  std::sort(matches.begin(), matches.end(), [](const auto& a, const auto& b) { return a.first.start < b.first.start; });
  QStringList references;
  for (const auto& [match, headCut] : matches)
    references.append(match.value.mid(headCut, match.value.size() - headCut - 1));
  return references;
}

// Whether `path`, links and ".." resolved, lies inside `folder`.
bool liesWithin(const QString& path, const QString& folder) {
  const QString file = QFileInfo(path).canonicalFilePath();
  const QString root = QFileInfo(folder).canonicalFilePath();
  return !file.isEmpty() && !root.isEmpty() && file.startsWith(root + u'/');
}

QString localReferencePath(const QString& mode, const QString& reference, const QString& workingFolder) {
  QString path = reference;
  if (isConvertedPage(mode)) {
    if (reference.left(8).toLower() == u"file:///") {
      path = reference.mid(8);
      // A POSIX address keeps its leading "/": file:///home/u/a.png is /home/u/a.png.
      if (!hasDriveLetter(path)) path.prepend(u'/');
    } else {
      if (path.startsWith(u"./")) path = path.mid(2);
      path.replace(u'\\', u'/');  // relative references are joined to the working folder with "/"
      path.prepend(workingFolder);
    }
    path.replace(u'|', u':').replace(QStringLiteral("%20"), QStringLiteral(" "));
    // The pictures of a converted page lie in the working folder. A reference leading
    // anywhere else is a link the document itself holds (a linked picture naming a local
    // file, a path that climbs out): it names nothing to upload.
    return liesWithin(path, workingFolder) ? path : QString();
  }
  return path.replace(u'|', u':').replace(QStringLiteral("%20"), QStringLiteral(" "));
}

// Picture formats whose files a page's HTML may name; such a file must also look like a
// picture of some kind inside (its first bytes), so a page cannot send a private text file
// away by giving it, or a link to it, a picture's name.
bool namesPicture(const QString& path) {
  static const QStringList kPictures = {"png", "jpg", "jpeg", "jpe", "jfif", "gif", "bmp", "dib", "tif", "tiff", "ico"};
  return kPictures.contains(GetFileExt(path).toLower());
}

QString uploadRefusal(const QString& path, const QString& extensions, int32_t sizeLimitKb) {
  if (!QDir::isAbsolutePath(path)) return QStringLiteral("not an absolute path");
  const QFileInfo file(path);
  if (!file.isFile()) return QStringLiteral("not a regular file");
  if (!IsValidFile(path, extensions)) return QStringLiteral("its type is not in LocalExt");
  const QString real = file.canonicalFilePath();
  if (!IsValidFile(real, extensions)) return QStringLiteral("a link to ") + real + QStringLiteral(", not in LocalExt");
  if (file.size() / 1024.0 > sizeLimitKb) return QStringLiteral("larger than LocalSize");
  if (namesPicture(real) && QImageReader::imageFormat(real).isEmpty())
    return QStringLiteral("named as a picture but holds none");
  return {};
}

void replaceLocalReference(const QString& mode, QString& body, const QString& reference, const QString& saved) {
  if (mode == u"local") {
    // The body wrote file:/// before a drive letter, file:// before a POSIX path.
    const QString address =
        (reference.startsWith(u'/') ? QStringLiteral("\"file://") : QStringLiteral("\"file:///")) + reference + u'"';
    body.replace(address, u'"' + saved + u'"', Qt::CaseSensitive);
  } else if (hasSrcReferences(mode)) {
    body.replace(QStringLiteral("src=\"") + reference + u'"', QStringLiteral("src=\"") + saved + u'"',
                 Qt::CaseInsensitive);
  }
}

}  // namespace velmora
