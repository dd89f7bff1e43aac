#pragma once
#include <QString>

namespace velmora {

// The process that serves workbooks and presentations. LibreOfficeKit in the packaged
// LibreOffice 7.4 loads text documents only (a workbook fails to load, or ends the process
// when it is closed), so these go to a headless soffice of their own, driven over UNO: this
// worker starts it on a private pipe, with a profile of its own, and the kernel stops it
// when the worker stops. Jobs and answers travel as in the other worker (WorkerChannel).
[[noreturn]] void runUnoWorker(const QString& profileFolder);

}  // namespace velmora
