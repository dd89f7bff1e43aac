#pragma once
#include <QString>

namespace velmora {

// The virtual printer's side of printing to pictures. For now: whether it is installed.
class clsStrandelAPI {
 public:
  // True when CUPS lists a destination with exactly this name. No CUPS server: false.
  bool IsPrinterExist(const QString& s_PrinterName) const;
};

}  // namespace velmora
