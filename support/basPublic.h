#pragma once
#include <QByteArray>
#include <QString>
#include <QStringList>
#include <cstdint>

// Small routines that many parts of the system share. Paths the product makes use "/";
// a working folder path always ends in "/".
namespace velmora {

// Text-file encoding codes.
namespace encoding {
constexpr int Find = -1;     // find out (input only)
constexpr int CodePage = 0;  // the locale's 8-bit legacy encoding
constexpr int Utf8Bom = 1;   // UTF-8 with its mark EF BB BF
constexpr int Utf8 = 2;      // UTF-8 found by inspection
constexpr int Utf16LE = 3;   // FF FE
constexpr int Utf16BE = 4;   // FE FF
constexpr int Utf32LE = 5;   // FF FE 00 00
constexpr int Utf32BE = 6;   // 00 00 FE FF
}  // namespace encoding

// Working folder and texts.
// "<QDir::tempPath()>/Velmora/" (plus `subfolder` + "/" when given): deleted with all it
// holds, created again empty, returned ending in "/". A subfolder that is not one plain
// name ("..", "a/b") gives "" and nothing is deleted. Emptying "Velmora/" itself leaves
// the page folders of agents still running.
QString GetTempFolder(const QString& subfolder = QString());
// Why the shared folder ("Velmora/" in the temporary folder) cannot be used, or "" when it
// is the user's own private folder (created so when missing). GetTempFolder gives "" then.
QString workingRootRefusal();
// The same folder's path, and nothing else done: the one place that says where working
// folders are.
QString workingFolderPath(const QString& subfolder = QString());
// The working folder of a page that the agent in process `pid` serves, below "Velmora/".
QString AgentPageFolderName(qint64 pid, int page);
QString GetTimeStamp();
QString PadNumber(int32_t number, int32_t width, int32_t largest);
QString ToPoints(const QString& length);
QString LeftOfString(const QString& text, const QString& terminator);
// Waits while the event loop keeps running: timers, sockets and callbacks go on.
void WaitMs(int32_t milliseconds);

// Files. Links are followed; only a regular file is a file (not a pipe or a device).
bool FileExists(const QString& path);
bool FolderExists(const QString& path);
QString GetFileExt(const QString& path);
bool IsExtInList(const QString& path, const QString& list);
bool IsValidFile(const QString& path, const QString& list);
// Never follows a link (a link named or found inside is itself removed); refuses "" and "/".
void DeleteFolder(const QString& folder);
int ListFiles(QStringList& names, const QString& folder, const QString& prefix, const QString& suffix);
QString ReadTextFile(const QString& path);
QString ReadTextFileAs(const QString& path, int& encodingCode);
int DetectBOM(uint32_t firstFourBytes, int& code);
void DetectUTF8(QByteArray& bytes, int& code);
QString UTF8ToUnicode(const QByteArray& bytes);

}  // namespace velmora
