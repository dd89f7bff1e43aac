#include "support/basPublic.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDeadlineTimer>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QThread>
#include <QtEndian>
#include <cmath>
#include <limits>

#include "platform/Charset.h"
#include "support/AutomationNumber.h"

namespace velmora {

namespace {

// Files of 2 GB or more are not read as text.
constexpr qint64 kLargestTextFile = qint64(std::numeric_limits<int32_t>::max());

QString lowerExtension(const QString& path) {
  const qsizetype dot = path.lastIndexOf(u'.');
  return dot < 0 ? QString() : path.mid(dot + 1).toLower();
}

}  // namespace

QString GetTempFolder(const QString& subfolder) {
  QString folder = QDir::tempPath();
  if (folder.endsWith(u'/')) folder.chop(1);
  folder += QStringLiteral("/Velmora/");
  if (!subfolder.isEmpty()) folder += subfolder + u'/';
  DeleteFolder(folder);
  if (!FolderExists(folder)) QDir().mkpath(folder);
  return folder;
}

QString GetTimeStamp() {
  const QDateTime now = QDateTime::currentDateTime();
  return now.toString(QStringLiteral("yyyyMMddHHmmss")) +
         PadNumber(now.toUTC().time().msec(), 3, 0);
}

QString PadNumber(int32_t number, int32_t width, int32_t largest) {
  int32_t w = width;
  if (largest > 0) w = std::max<int32_t>(w, int32_t(QString::number(largest).size()));
  if (w <= 0) return QString();
  const QString padded = QString(w, u'0') + QString::number(number);
  return padded.right(w);
}

QString ToPoints(const QString& length) {
  const QString text = length.trimmed();
  if (text.size() < 3) return text;
  const QString unit = text.right(2).toLower();
  const QString rest = text.left(text.size() - 2);
  if (unit == u"cm") {
    const std::optional<double> value = NumericValue(rest);
    if (!value) return QString();
    // Fifteen significant digits, as doubles are written by default, so that 1.5cm is
    // 42.525 and not its binary neighbour; always with ".", since CSS takes it as is.
    return QString::number(*value * 28.35, 'g', 15);
  }
  if (unit == u"pt") return rest;
  return text;
}

QString LeftOfString(const QString& text, const QString& terminator) {
  const qsizetype at = text.indexOf(terminator);
  return at < 0 ? text : text.left(at);
}

void WaitMs(int32_t milliseconds) {
  QDeadlineTimer end(std::max<int32_t>(milliseconds, 0));
  do {
    QThread::msleep(1);
    QCoreApplication::processEvents(QEventLoop::AllEvents);
  } while (!end.hasExpired());
}

bool FileExists(const QString& path) {
  const QFileInfo info(path);
  return !path.isEmpty() && info.exists() && !info.isDir();
}

bool FolderExists(const QString& path) {
  const QFileInfo info(path);
  return !path.isEmpty() && info.exists() && info.isDir();
}

QString GetFileExt(const QString& path) {
  const qsizetype dot = path.lastIndexOf(u'.');
  return dot < 0 ? QString() : path.mid(dot + 1);
}

bool IsExtInList(const QString& path, const QString& list) {
  const QString ext = lowerExtension(path);
  if (ext.isEmpty()) return false;
  for (const QString& entry : list.toLower().split(u'|')) {
    const QString trimmed = entry.trimmed();
    if (!trimmed.isEmpty() && trimmed == ext) return true;
  }
  return false;
}

bool IsValidFile(const QString& path, const QString& list) { return IsExtInList(path, list) && FileExists(path); }

void DeleteFolder(const QString& folder) {
  QCoreApplication::processEvents();
  const QFileInfo info(folder);
  if (info.isSymLink()) {  // a link is removed, never what it points to
    QFile::remove(info.absoluteFilePath());
    return;
  }
  QDir dir(folder);
  if (!dir.exists()) return;
  const QFileInfoList entries =
      dir.entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::NoSort);
  for (const QFileInfo& entry : entries) {
    if (entry.isDir() && !entry.isSymLink()) {
      DeleteFolder(entry.absoluteFilePath() + u'/');
    } else {
      QFile file(entry.absoluteFilePath());
      file.setPermissions(file.permissions() | QFileDevice::WriteOwner);
      file.remove();
    }
  }
  dir.rmdir(dir.absolutePath());
}

int ListFiles(QStringList& names, const QString& folder, const QString& prefix, const QString& suffix) {
  names.clear();
  const QFileInfoList entries = QDir(folder).entryInfoList(
      QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::NoSort);
  for (const QFileInfo& entry : entries) {
    if (entry.isDir()) continue;
    const QString name = entry.fileName();
    if ((prefix.isEmpty() || name.startsWith(prefix, Qt::CaseInsensitive)) &&
        (suffix.isEmpty() || name.endsWith(suffix, Qt::CaseInsensitive)))
      names.append(name);
  }
  return int(names.size());
}

QString ReadTextFile(const QString& path) {
  int code = encoding::Find;
  return ReadTextFileAs(path, code);
}

QString ReadTextFileAs(const QString& path, int& encodingCode) {
  if (encodingCode < encoding::Find || encodingCode > encoding::Utf32BE) return QString();
  if (!FileExists(path)) return QString();
  QFile file(path);
  if (!file.open(QIODevice::ReadOnly) || file.size() >= kLargestTextFile) return QString();
  QByteArray bytes = file.readAll();
  file.close();

  uint32_t firstFour = 0;
  for (int i = 0; i < 4 && i < bytes.size(); ++i) firstFour |= uint32_t(quint8(bytes[i])) << (8 * i);
  int detected = encoding::CodePage;
  int markLength = DetectBOM(firstFour, detected);
  if (detected == encoding::CodePage) {
    QByteArray probe = bytes;  // DetectUTF8 alters the bytes it inspects
    DetectUTF8(probe, detected);
  }
  if (encodingCode == encoding::Find) encodingCode = detected;
  else if (encodingCode != detected) markLength = 0;  // a forced encoding reads from the first byte

  const QByteArray body = bytes.mid(markLength);
  switch (encodingCode) {
    case encoding::CodePage: {
      QString text;
      Charset::decode(body, Charset::systemCodePage(), text);
      return text;
    }
    case encoding::Utf8Bom:
    case encoding::Utf8:
      return QString::fromUtf8(body);
    case encoding::Utf16LE:
      return QString::fromUtf16(reinterpret_cast<const char16_t*>(body.constData()), body.size() / 2);
    case encoding::Utf16BE: {
      QByteArray swapped = body;
      for (qsizetype i = 0; i + 1 < swapped.size(); i += 2) std::swap(swapped[i], swapped[i + 1]);
      return QString::fromUtf16(reinterpret_cast<const char16_t*>(swapped.constData()), swapped.size() / 2);
    }
    default:
      return QString();  // UTF-32 is not read
  }
}

int DetectBOM(uint32_t x, int& code) {
  if (x == 0x0000FEFFu) return code = encoding::Utf32LE, 4;
  if (x == 0xFFFE0000u) return code = encoding::Utf32BE, 4;
  if ((x & 0xFFFFu) == 0xFEFFu) return code = encoding::Utf16LE, 2;
  if ((x & 0xFFFFu) == 0xFFFEu) return code = encoding::Utf16BE, 2;
  if ((x & 0xFFFFFFu) == 0xBFBBEFu) return code = encoding::Utf8Bom, 3;
  code = encoding::CodePage;
  return 0;
}

void DetectUTF8(QByteArray& bytes, int& code) {
  bool ascii = true;
  int pending = 0;
  for (qsizetype i = 0; i < bytes.size(); ++i) {
    const quint8 b = quint8(bytes[i]);
    if (b >= 0x80) ascii = false;
    if (pending == 0) {
      if (b < 0x80) continue;
      // Count the lead byte's 1-bits by shifting it left, as the byte list is altered.
      int count = 0;
      while (quint8(bytes[i]) & 0x80) {
        bytes[i] = char(quint8(bytes[i]) << 1);
        ++count;
      }
      pending = count - 1;
      if (pending == 0) {  // 10xxxxxx where a sequence should start
        code = encoding::CodePage;
        return;
      }
    } else if ((b & 0xC0) == 0x80) {
      --pending;
    } else {
      code = encoding::CodePage;
      return;
    }
  }
  code = pending > 0 || ascii ? encoding::CodePage : encoding::Utf8;
}

QString UTF8ToUnicode(const QByteArray& bytes) {
  if (bytes.isEmpty()) return QString();
  // Invalid sequences become U+FFFD, as the platform's converter writes them.
  return QString::fromUtf8(bytes);
}

}  // namespace velmora
