#pragma once
#include <QStringList>

namespace velmora::cli {

// velmora printer install|remove|status [--server-bin DIR]
// Sets up the virtual printer's CUPS queue and backend (as root), removes them, or says
// whether they are there. Running install or remove again changes nothing more.
int runPrinter(const QStringList& arguments);

}  // namespace velmora::cli
