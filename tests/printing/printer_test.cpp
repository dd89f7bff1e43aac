#include <gtest/gtest.h>

#include "printing/clsStrandelAPI.h"
#include "tests/common/TestSupport.h"

namespace velmora {
namespace {

TEST(Printer, WithoutAPrintServerNoPrinterExists) {
  test::ScopedTempRoot temp;
  const QByteArray previous = qgetenv("CUPS_SERVER");
  qputenv("CUPS_SERVER", (temp.path() + "/no-cups.sock").toLocal8Bit());
  EXPECT_FALSE(clsStrandelAPI().IsPrinterExist("VelmoraPrinter"));
  EXPECT_FALSE(clsStrandelAPI().IsPrinterExist(""));
  if (previous.isEmpty()) qunsetenv("CUPS_SERVER");
  else qputenv("CUPS_SERVER", previous);
}

}  // namespace
}  // namespace velmora
