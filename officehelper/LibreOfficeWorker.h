#pragma once
#include <QString>

namespace velmora {

// The process that holds LibreOffice (LibreOfficeKit allows one office per process, and a
// document can hang or crash it, so it lives apart from everything else). It reads jobs on
// its standard input and answers each on its standard output, in the helper's frames, one
// job at a time, until its input closes. LibreOffice writes its own chatter to standard
// output too, so the frames go out on a copy of that descriptor and LibreOffice's output is
// sent to standard error. Leaves with _exit: LibreOfficeKit may crash at shutdown.
[[noreturn]] void runLibreOfficeWorker(const QString& profileFolder);

}  // namespace velmora
