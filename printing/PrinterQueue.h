#pragma once
#include <QString>

#include "core/Result.h"

namespace velmora {

// The virtual printer's CUPS queue, "VelmoraPrinter": its backend installed where CUPS runs
// backends ("velmora" in the backend folder, mode 0700 so that CUPS runs it as root and it
// can print as whichever user sent the job), and the queue on the print server named by
// CUPS_SERVER or the client configuration. Installing again updates both.
class PrinterQueue {
 public:
  // `serverBin`: the print server's program folder (its backends in "backend/").
  explicit PrinterQueue(QString serverBin = defaultServerBin());
  static QString defaultServerBin();

  // `backendProgram`: the backend to copy in.
  Outcome install(const QString& backendProgram) const;
  Outcome remove() const;
  // "installed", or what is missing, in a sentence.
  QString status() const;

 private:
  QString backendPath() const;

  QString serverBin_;
};

}  // namespace velmora
