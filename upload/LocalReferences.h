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

// Whether `path` names a regular file here that passes the extension list and the size
// limit (in KB). A relative path never does: it would be looked up in whatever the
// process's current folder happens to be; nor a pipe or a device, which would block or
// never end the read.
bool isUploadableFile(const QString& path, const QString& extensions, int32_t sizeLimitKb);

// Replaces every occurrence of `reference`, as the mode writes it, by `saved`.
void replaceLocalReference(const QString& mode, QString& body, const QString& reference, const QString& saved);

}  // namespace velmora
