#include "printing/clsStrandelAPI.h"

#include <cups/cups.h>

namespace velmora {

bool clsStrandelAPI::IsPrinterExist(const QString& s_PrinterName) const {
  cups_dest_t* destinations = nullptr;
  const int count = cupsGetDests2(CUPS_HTTP_DEFAULT, &destinations);
  const QByteArray wanted = s_PrinterName.toUtf8();
  bool found = false;
  for (int i = 0; i < count && !found; ++i) found = wanted == destinations[i].name;
  cupsFreeDests(count, destinations);
  return found;
}

}  // namespace velmora
