#pragma once
#include <QString>

#include "core/Result.h"

namespace velmora {

// Where LibreOffice's program folder is: VELMORA_LIBREOFFICE_PROGRAM names it, else
// Debian's place, else beside the `soffice` on the PATH; empty when there is none.
QString libreOfficeProgramFolder();
// Writes the worker's private profile (see PrivateProfile.h) and finds LibreOffice: its
// program folder, or why the office cannot start.
Result<QString> prepareLibreOffice(const QString& profileFolder);

QString fileUrl(const QString& path);

// What the office says for a document it cannot load: the reason a person needs, without
// the office's source file names.
QString readableLoadFailure(const QString& officeText);

// Checks made before the office sees a file: LibreOffice opens an empty file as a new,
// empty document, which is not what the user meant. Empty when the file can be given.
QString whyNotADocument(const QString& path);

}  // namespace velmora
