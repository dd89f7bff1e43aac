#pragma once
#include <QString>
#include <QStringList>

namespace velmora {

// How the local references of each upload mode ("local", "word", "excel", "wordimage",
// "pastefilelist") are written in a body, read and replaced.

// Every reference the mode recognises, in the order they stand in `body`, repeats included.
QStringList findLocalReferences(const QString& mode, const QString& body);

// The file a reference names. In "word" and "excel" a relative reference is joined to
// `workingFolder`; a file address (file:///C:/a.png, or file:///home/u/a.png for a POSIX
// path) becomes its path; one that leads out of `workingFolder` gives "".
QString localReferencePath(const QString& mode, const QString& reference, const QString& workingFolder);

// Why `path` may not be uploaded, or "" when it may: it must be an absolute path to a
// regular file here (not a pipe or a device, which would block or never end the read; a
// relative path would be looked up in whatever the current folder happens to be) whose
// name and real path (links resolved) both pass the extension list, within the size limit
// (in KB), and a file named as a picture must hold one.
QString uploadRefusal(const QString& path, const QString& extensions, int32_t sizeLimitKb);

// Replaces every occurrence of `reference`, as the mode writes it, by `saved`.
void replaceLocalReference(const QString& mode, QString& body, const QString& reference, const QString& saved);

}  // namespace velmora
