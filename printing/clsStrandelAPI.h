#pragma once
#include <QString>

namespace velmora {

// The virtual printer's side of printing to pictures. For now: whether it is installed.
class clsStrandelAPI {
 public:
  // True when the print server lists a destination with exactly this name (the server
  // named by CUPS_SERVER or the client configuration). No print server: false, after at
  // most the print system's own connection time-out.
  bool IsPrinterExist(const QString& s_PrinterName) const;
};

}  // namespace velmora
