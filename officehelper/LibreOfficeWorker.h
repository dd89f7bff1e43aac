#pragma once
#include <QString>

namespace velmora {

// Why LibreOfficeKit and not UNO: measured on the same 20-page document with 10 pictures,
// the two cost the same inside a running office (load 50 ms, save as HTML 60-70 ms warm;
// start 1.1-1.4 s), but LibreOfficeKit draws a page straight into memory (10 ms a page),
// where UNO has no page raster short of exporting a PDF and running a rasteriser; it runs
// in this process, with no bridge and no second office process to supervise, and needs
// only its four headers, where a C++ UNO client needs the SDK's generated type headers.
//
// The process that holds LibreOffice (LibreOfficeKit allows one office per process, and a
// document can hang or crash it, so it lives apart from everything else). It reads jobs on
// its standard input and answers each on its standard output, in the helper's frames, one
// job at a time, until its input closes. LibreOffice writes its own chatter to standard
// output too, so the frames go out on a copy of that descriptor and LibreOffice's output is
// sent to standard error. Leaves with _exit: LibreOfficeKit may crash at shutdown.
[[noreturn]] void runLibreOfficeWorker(const QString& profileFolder);

}  // namespace velmora
