// Finding the local references of a batch, turning each into a file path, and rewriting
// the body once every file has been tried.
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

#include "control/Velmora5.h"
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

// The modes whose references stand in src attributes.
bool hasSrcReferences(const QString& mode) {
  return mode == u"word" || mode == u"excel" || mode == u"wordimage" || mode == u"pastefilelist";
}

QString fileNameOf(const QString& reference) {
  return reference.mid(std::max(reference.lastIndexOf(u'/'), reference.lastIndexOf(u'\\')) + 1);
}

}  // namespace

bool Velmora5::CollectLocalFiles() {
  // A new batch replaces a running one: its request is aborted, so no answer of the old
  // batch lands in the new lists.
  const quint64 batch = ++m_lBatch;
  dropRequest(/*abortOpenRequest=*/true);

  // Matches of every pattern of the mode, in the order they stand in the body.
  std::vector<std::pair<RegExpMatch, int>> matches;
  for (const ModePattern& entry : kModePatterns) {
    if (m_sUploadMode != QStringView(entry.mode)) continue;
    for (RegExpMatch& match : RegExp(QString::fromUtf16(entry.pattern)).execute(m_sBody))
      matches.emplace_back(std::move(match), entry.headCut);
  }
  std::sort(matches.begin(), matches.end(), [](const auto& a, const auto& b) { return a.first.start < b.first.start; });

  m_asOriginal = QStringList{QString()};
  m_lUploadIndex = 0;
  for (const auto& [match, headCut] : matches) {
    QCoreApplication::processEvents();
    if (batch != m_lBatch) return false;
    const QString reference = match.value.mid(headCut, match.value.size() - headCut - 1);
    if (!m_asOriginal.contains(reference, Qt::CaseSensitive)) m_asOriginal.append(reference);
  }
  return true;
}

QString Velmora5::filePathOf(const QString& reference) const {
  QString path = reference;
  if (m_sUploadMode == u"word" || m_sUploadMode == u"excel") {
    if (reference.left(8).toLower() == u"file:///") {
      path = reference.mid(8);
      // A POSIX address keeps its leading "/": file:///home/u/a.png is /home/u/a.png.
      if (!hasDriveLetter(path)) path.prepend(u'/');
    } else {
      if (path.startsWith(u"./")) path = path.mid(2);
      path.replace(u'\\', u'/');  // relative references are joined to the working folder with "/"
      path.prepend(context_.g_sTempFolder);
    }
  }
  return path.replace(u'|', u':').replace(QStringLiteral("%20"), QStringLiteral(" "));
}

// A path that names no file here is refused like a missing file. That includes a relative
// one (a drive-letter path such as C:/a.png is one on this platform), which would
// otherwise be looked up in whatever the process's current folder happens to be, and
// anything but a regular file: a pipe would block the read, a device never end it.
bool Velmora5::isAcceptable(const QString& path) const {
  const QFileInfo file(path);
  return QDir::isAbsolutePath(path) && IsValidFile(path, m_sLocalExt) && file.isFile() &&
         file.size() / 1024.0 <= m_lLocalSize;
}

void Velmora5::FinishUpload() {
  dropRequest(/*abortOpenRequest=*/true);
  m_sOriginalFiles.clear();
  m_sSavedFiles.clear();
  int done = 0;
  for (qsizetype i = 1; i < m_asOriginal.size(); ++i) {
    const QString& reference = m_asOriginal[i];
    const QString saved = i < m_asSaved.size() ? m_asSaved[i] : QString();
    if (saved.isEmpty()) continue;
    ++done;
    if (m_sUploadMode == u"local") {
      // The body wrote file:/// before a drive letter, file:// before a POSIX path.
      const QString address = (reference.startsWith(u'/') ? QStringLiteral("\"file://") : QStringLiteral("\"file:///")) +
                              reference + u'"';
      m_sBody.replace(address, u'"' + saved + u'"', Qt::CaseSensitive);
    } else if (hasSrcReferences(m_sUploadMode)) {
      m_sBody.replace(QStringLiteral("src=\"") + reference + u'"', QStringLiteral("src=\"") + saved + u'"',
                      Qt::CaseInsensitive);
    }
    if (done > 1) {
      m_sOriginalFiles += u'|';
      m_sSavedFiles += u'|';
    }
    m_sOriginalFiles += fileNameOf(reference);
    m_sSavedFiles += saved;
  }
  m_asOriginal.clear();
  m_asSaved.clear();
  m_bFinished = true;
  emit resultChanged();
}

}  // namespace velmora
