#include "support/basPublic.h"
#include "core/Yield.h"

#include "core/Text.h"
#include "platform/Charset.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QStringDecoder>
#include <QThread>
#include <QTimer>
#include <QtEndian>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <signal.h>
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <functional>
#include <limits>
#include <optional>

namespace velmora {
namespace {}  // namespace

// ---------------------------------------------------------------------------------------
// Working folder and texts

namespace {
void emptySharedFolder(QString folder);
}  // namespace

QString GetTempFolder(const QString& subfolder) {
  // A context's folder is one plain name below "Velmora/"; anything else could reach
  // outside it, and this routine deletes what it names.
  const bool plainName = !subfolder.contains(u'/') && !subfolder.contains(u'\\') && !subfolder.contains(QChar(0)) &&
                         subfolder != u"." && subfolder != u"..";
  if (!plainName || !workingRootRefusal().isEmpty()) return QString();

  const QString folder = workingFolderPath(subfolder);
  if (subfolder.isEmpty())
    emptySharedFolder(folder);
  else
    DeleteFolder(folder);
  if (!FolderExists(folder)) QDir().mkpath(folder);
  return folder;
}

// The shared folder is the user's alone (mode 0700), so another user of the machine can
// neither read a page's pictures nor put a link where a page's folder will be. One that is
// a link, not a folder, or another user's is refused rather than used or taken over.
QString workingRootRefusal() {
  QString root = workingFolderPath();
  root.chop(1);
  const QByteArray native = QFile::encodeName(root);
  if (mkdir(native.constData(), 0700) != 0 && errno != EEXIST)
    return root + QStringLiteral(": ") + qt_error_string(errno);
  struct stat info {};
  if (lstat(native.constData(), &info) != 0) return root + QStringLiteral(": ") + qt_error_string(errno);
  if (S_ISLNK(info.st_mode)) return root + QStringLiteral(" is a symbolic link; Velmora uses only a folder of its own");
  if (!S_ISDIR(info.st_mode)) return root + QStringLiteral(" is not a folder");
  if (info.st_uid != geteuid())
    return root +
           QStringLiteral(" belongs to another user (uid %1); Velmora uses only a folder of its own").arg(info.st_uid);
  if ((info.st_mode & 077) != 0 && chmod(native.constData(), 0700) != 0)
    return root + QStringLiteral(": cannot make it private: ") + qt_error_string(errno);
  return {};
}

QString workingFolderPath(const QString& subfolder) {
  QString folder = QDir::tempPath();
  if (folder.endsWith(u'/')) folder.chop(1);
  folder += QStringLiteral("/Velmora/");
  return subfolder.isEmpty() ? folder : folder + subfolder + u'/';
}

// The pid lets a later process see whether the folder's agent still runs; the random part
// makes the name one nobody can guess ahead.
QString AgentPageFolderName(qint64 pid, int page) {
  return QStringLiteral("page-%1-%2-%3")
      .arg(pid)
      .arg(page)
      .arg(QRandomGenerator::system()->generate64(), 16, 16, QChar(u'0'));
}

QString GetTimeStamp() { return QDateTime::currentDateTime().toString(u"yyyyMMddHHmmsszzz"); }

QString PadNumber(int32_t number, int32_t width, int32_t largest) {
  qsizetype digits = width;
  if (largest > 0) digits = std::max<qsizetype>(digits, QString::number(largest).size());
  if (digits <= 0) return QString();
  // The last `digits` characters of that many zeros followed by the number: a negative
  // number keeps its sign where it falls, a longer one loses its leading digits.
  const QString text = QString::number(number);
  if (text.size() >= digits) return text.right(digits);
  return QString(digits - text.size(), u'0') + text;
}

QString ToPoints(const QString& length) {
  const QString trimmed = length.trimmed();
  if (trimmed.size() < 3) return trimmed;
  const QString unit = trimmed.right(2);
  const QString number = trimmed.chopped(2);
  if (unit.compare(u"pt", Qt::CaseInsensitive) == 0) return number.trimmed();
  if (unit.compare(u"cm", Qt::CaseInsensitive) != 0) return trimmed;

  // Numeric means: optional blanks, an optional sign, digits with at most one "." (at least
  // one digit), an optional exponent, optional blanks. The separator is always ".",
  // whatever the locale: the text ends up in CSS.
  static const QRegularExpression numeric(QStringLiteral(R"(^\s*[+-]?(\d+\.?\d*|\.\d+)([eE][+-]?\d+)?\s*$)"));
  if (!numeric.match(number).hasMatch()) return QString();
  const double points = number.trimmed().toDouble() * 28.35 + 0.0;  // + 0.0: no "-0"
  if (!std::isfinite(points)) return QString();
  // Fifteen significant digits, the precision doubles are written with by default: 2cm
  // gives "56.7" and 1.5cm "42.525", where the shortest round-trip form would write the
  // binary error out ("42.525000000000006").
  return QString::number(points, 'g', 15);
}

QString LeftOfString(const QString& text, const QString& terminator) {
  const qsizetype at = text.indexOf(terminator);  // an empty terminator is found at 0
  return at < 0 ? text : text.left(at);
}

void WaitMs(int32_t milliseconds) {
  if (!QCoreApplication::instance()) {
    if (milliseconds > 0) QThread::msleep(milliseconds);
    return;
  }
  if (milliseconds <= 0) {
    letPendingEventsRun();
    return;
  }
  // A local loop, so the wait can itself be inside a callback that a wait dispatched.
  QEventLoop loop;
  QTimer::singleShot(milliseconds, Qt::PreciseTimer, &loop, &QEventLoop::quit);
  loop.exec();
}

// ---------------------------------------------------------------------------------------
// Files

// Symbolic links are followed; only a regular file counts, so a dangling link, a device or
// a pipe (which would block a reader) is not a file.
bool FileExists(const QString& path) { return !path.isEmpty() && QFileInfo(path).isFile(); }

bool FolderExists(const QString& path) { return !path.isEmpty() && QFileInfo(path).isDir(); }

// Taken from the name part of the path, so a "." in a folder name is not an extension.
QString GetFileExt(const QString& path) {
  const QString name = fileNameOf(path);
  const qsizetype dot = name.lastIndexOf(u'.');
  return dot < 0 ? QString() : name.mid(dot + 1);
}

bool IsExtInList(const QString& path, const QString& list) {
  const QString ext = GetFileExt(path).toLower();
  if (ext.isEmpty()) return false;
  const QStringList entries = list.toLower().split(u'|');
  return std::any_of(entries.begin(), entries.end(), [&](const QString& entry) {
    const QString trimmed = entry.trimmed();
    return !trimmed.isEmpty() && trimmed == ext;
  });
}

bool IsValidFile(const QString& path, const QString& list) { return IsExtInList(path, list) && FileExists(path); }

namespace {

// Gives the owner full rights on a folder so its entries can be deleted (the read-only
// attribute of other systems); never through a symbolic link.
void makeFolderWritable(int parentFd, const char* name, mode_t mode) {
  fchmodat(parentFd, name, (mode & 07777) | S_IRWXU, AT_SYMLINK_NOFOLLOW);
}

QList<QByteArray> entryNames(int folderFd) {
  QList<QByteArray> names;
  const int listFd = dup(folderFd);
  if (listFd < 0) return names;
  DIR* dir = fdopendir(listFd);
  if (!dir) {
    close(listFd);
    return names;
  }
  while (const dirent* entry = readdir(dir)) {
    const QByteArray name(entry->d_name);
    if (name != "." && name != "..") names.append(name);
  }
  closedir(dir);
  return names;
}

// Deletes everything inside the open folder. Entries are reached relative to the folder's
// descriptor and never through a link, so a link to a folder elsewhere loses only itself.
void deleteContents(int folderFd, const std::function<bool(const QByteArray& name)>& keep = {}) {
  letPendingEventsRun();
  for (const QByteArray& name : entryNames(folderFd)) {
    if (keep && keep(name)) continue;
    struct stat info {};
    if (fstatat(folderFd, name.constData(), &info, AT_SYMLINK_NOFOLLOW) != 0) continue;
    if (!S_ISDIR(info.st_mode)) {
      unlinkat(folderFd, name.constData(), 0);
      continue;
    }
    makeFolderWritable(folderFd, name.constData(), info.st_mode);
    const int subFd = openat(folderFd, name.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (subFd < 0) continue;
    deleteContents(subFd);
    close(subFd);
    unlinkat(folderFd, name.constData(), AT_REMOVEDIR);
  }
}

// "page-<pid>-<n>-<random>" of a process that still runs: a command run beside an agent must not
// take the files of the agent's pages.
bool isLiveAgentPageFolder(const QByteArray& name) {
  static const QRegularExpression pattern(QStringLiteral("^page-([0-9]+)-[0-9]+-[0-9a-f]{16}$"));
  const QRegularExpressionMatch match = pattern.match(QString::fromLatin1(name));
  if (!match.hasMatch()) return false;
  bool ok = false;
  const qint64 pid = match.captured(1).toLongLong(&ok);
  return ok && pid > 0 && pid <= std::numeric_limits<pid_t>::max() && (kill(pid_t(pid), 0) == 0 || errno == EPERM);
}

// Empties the shared working folder, leaving running agents' page folders; a link in its
// place goes, never what it points to.
void emptySharedFolder(QString folder) {
  while (folder.endsWith(u'/')) folder.chop(1);
  const QByteArray native = QFile::encodeName(folder);
  struct stat info {};
  if (lstat(native.constData(), &info) != 0) return;
  if (S_ISLNK(info.st_mode)) {
    unlink(native.constData());
    return;
  }
  const int folderFd = open(native.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (folderFd < 0) return;
  deleteContents(folderFd, isLiveAgentPageFolder);
  close(folderFd);
}

}  // namespace

// Every error is ignored: what cannot be deleted stays, and a folder that still holds
// something stays too. An empty path (the current folder) and the root are refused.
void DeleteFolder(const QString& folder) {
  QString path = folder;
  while (path.size() > 1 && path.endsWith(u'/')) path.chop(1);
  if (path.isEmpty() || QDir::cleanPath(path) == u"/") return;
  const QByteArray native = QFile::encodeName(path);

  struct stat info {};
  if (lstat(native.constData(), &info) != 0) return;
  if (S_ISLNK(info.st_mode)) {
    unlink(native.constData());  // the link goes, never what it points to
    return;
  }
  if (!S_ISDIR(info.st_mode)) return;
  makeFolderWritable(AT_FDCWD, native.constData(), info.st_mode);
  const int folderFd = open(native.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (folderFd < 0) return;
  deleteContents(folderFd);
  close(folderFd);
  rmdir(native.constData());
}

// Names come in name order (case-insensitive), so numbered pictures come in their order.
int ListFiles(QStringList& names, const QString& folder, const QString& prefix, const QString& suffix) {
  names.clear();
  if (folder.isEmpty()) return 0;
  QDirIterator entries(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
  while (entries.hasNext()) {
    entries.next();
    const QFileInfo info = entries.fileInfo();
    if (info.isDir()) continue;
    const QString name = info.fileName();
    if (!prefix.isEmpty() && !name.startsWith(prefix, Qt::CaseInsensitive)) continue;
    if (!suffix.isEmpty() && !name.endsWith(suffix, Qt::CaseInsensitive)) continue;
    names.append(name);
  }
  std::sort(names.begin(), names.end(), [](const QString& a, const QString& b) {
    const int order = a.compare(b, Qt::CaseInsensitive);
    return order != 0 ? order < 0 : a < b;
  });
  return int(names.size());
}

namespace {

constexpr qint64 kLargestTextFile = (qint64(1) << 31) - 1;

// The whole file, or nothing when it is not a readable regular file below 2 GB. Opened
// without blocking, so a pipe handed in as a path cannot hang the reader.
std::optional<QByteArray> readWholeFile(const QString& path) {
  if (path.isEmpty()) return std::nullopt;
  const int fd = open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  struct stat info {};
  if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) || info.st_size > kLargestTextFile) {
    close(fd);
    return std::nullopt;
  }
  QByteArray bytes;
  bytes.reserve(info.st_size);
  char buffer[65536];
  for (;;) {
    const ssize_t got = read(fd, buffer, sizeof buffer);
    if (got == 0) break;
    if (got < 0) {
      if (errno == EINTR) continue;
      close(fd);
      return std::nullopt;
    }
    if (bytes.size() + got > kLargestTextFile) {  // grew past the limit while being read
      close(fd);
      return std::nullopt;
    }
    bytes.append(buffer, got);
  }
  close(fd);
  return bytes;
}

uint32_t firstFourBytes(const QByteArray& bytes) {
  uint32_t value = 0;
  for (int i = 0; i < 4 && i < bytes.size(); ++i) value |= uint32_t(uint8_t(bytes[i])) << (8 * i);
  return value;
}

// Every code unit as it stands, a byte-order mark included; an odd last byte is dropped.
QString fromUtf16(QStringConverter::Encoding encoding, const QByteArray& bytes) {
  QStringDecoder decoder(encoding, QStringConverter::Flag::Stateless | QStringConverter::Flag::ConvertInitialBom);
  return decoder.decode(QByteArrayView(bytes).first(bytes.size() & ~qsizetype(1)));
}

QString fromCodePage(const QByteArray& bytes) {
  const Result<QString> text = Charset::decode(bytes, Charset::systemCodePage());
  if (text) return text.value();
  qWarning("cannot read a text file in the system code page: %s", qPrintable(text.failure().description));
  return QString();
}

}  // namespace

QString ReadTextFileAs(const QString& path, int& encodingCode) {
  if (encodingCode < encoding::Find || encodingCode > encoding::Utf32BE) return QString();
  const std::optional<QByteArray> file = readWholeFile(path);
  if (!file) return QString();

  int detected = encoding::CodePage;
  int markLength = DetectBOM(firstFourBytes(*file), detected);
  if (detected == encoding::CodePage) {
    QByteArray inspected = *file;  // DetectUTF8 alters the bytes it inspects
    DetectUTF8(inspected, detected);
  }
  if (encodingCode == encoding::Find)
    encodingCode = detected;
  else if (encodingCode != detected)
    markLength = 0;  // a forced encoding reads from the first byte

  const QByteArray rest = file->mid(std::min<qsizetype>(markLength, file->size()));
  switch (encodingCode) {
    case encoding::CodePage: return fromCodePage(rest);
    case encoding::Utf8Bom:
    case encoding::Utf8: return UTF8ToUnicode(rest);
    case encoding::Utf16LE: return fromUtf16(QStringConverter::Utf16LE, rest);
    case encoding::Utf16BE: return fromUtf16(QStringConverter::Utf16BE, rest);
    default:  // UTF-32 is not read
      return QString();
  }
}

QString ReadTextFile(const QString& path) {
  int code = encoding::Find;
  return ReadTextFileAs(path, code);
}

int DetectBOM(uint32_t firstFourBytes, int& code) {
  if (firstFourBytes == 0x0000FEFFu) {
    code = encoding::Utf32LE;
    return 4;
  }
  if (firstFourBytes == 0xFFFE0000u) {
    code = encoding::Utf32BE;
    return 4;
  }
  if ((firstFourBytes & 0xFFFFu) == 0xFEFFu) {
    code = encoding::Utf16LE;
    return 2;
  }
  if ((firstFourBytes & 0xFFFFu) == 0xFFFEu) {
    code = encoding::Utf16BE;
    return 2;
  }
  if ((firstFourBytes & 0xFFFFFFu) == 0xBFBBEFu) {
    code = encoding::Utf8Bom;
    return 3;
  }
  code = encoding::CodePage;
  return 0;
}

// Over-long forms and lead bytes announcing more than three continuation bytes are
// accepted; only the shape of the sequences is checked. Each lead byte is left shifted by
// its count of leading 1-bits.
void DetectUTF8(QByteArray& bytes, int& code) {
  bool ascii = true;
  int pending = 0;
  for (qsizetype i = 0; i < bytes.size(); ++i) {
    const uint8_t byte = uint8_t(bytes[i]);
    if (byte >= 0x80) ascii = false;
    if (pending == 0) {
      if (byte < 0x80) continue;
      int leadingOnes = 0;
      while (uint8_t(bytes[i]) & 0x80) {
        bytes[i] = char(uint8_t(uint8_t(bytes[i]) << 1));
        ++leadingOnes;
      }
      pending = leadingOnes - 1;
      if (pending == 0) {  // a continuation byte where a sequence should start
        code = encoding::CodePage;
        return;
      }
      continue;
    }
    if ((byte & 0xC0) != 0x80) {
      code = encoding::CodePage;
      return;
    }
    --pending;
  }
  code = (pending > 0 || ascii) ? encoding::CodePage : encoding::Utf8;
}

// Invalid sequences become U+FFFD, as the system's UTF-8 converter does when it is not
// asked to fail on them; so this never fails and never returns the NUL-filled buffer. A
// leading byte-order mark is kept as U+FEFF.
QString UTF8ToUnicode(const QByteArray& bytes) {
  if (bytes.isEmpty()) return QString();
  QStringDecoder decoder(QStringConverter::Utf8,
                         QStringConverter::Flag::Stateless | QStringConverter::Flag::ConvertInitialBom);
  return decoder.decode(bytes);
}

}  // namespace velmora
