#pragma once
#include <QString>
#include <memory>

#include "core/Context.h"
#include "core/Producers.h"
#include "office/OfficeAutomation.h"
#include "printing/clsStrandelAPI.h"

namespace velmora {

// How long the printer may take to begin a job and to end it, in seconds.
struct PrintLimits {
  int begin = 120;
  int end = 600;
};

// A document as one picture per page, printed to the virtual printer "VelmoraPrinter": the
// printer is made the user's default with the document's paper, the word processor prints
// (here: LibreOffice writes the document as PDF, which goes to the default printer), the
// printer's backend writes the pages into the working folder as the settings say, and the
// pictures are found by their names.
class clsPrintToFile : public DocumentPrinter {
 public:
  clsPrintToFile(Context& context, std::unique_ptr<OfficeAutomation> office, PrintLimits limits = PrintLimits(),
                 clsStrandelAPI printer = clsStrandelAPI());

  // Options: "imgtype" (png, gif, else jpg), "api" ("0" Word then WPS, "1" Word only, the
  // default, "2" WPS only).
  Result<QString> Word2Images(const QString& file, const QString& options) override;

 private:
  // The printer's form for a first page of that size (hundredths of a millimetre), added
  // when it has none; false when it cannot be. `form`: its name either way.
  bool paperFor(const QSize& page, QString& form);
  bool writeSettings(const QString& imageType, const QString& baseName);

  Context& context_;
  std::unique_ptr<OfficeAutomation> office_;
  PrintLimits limits_;
  clsStrandelAPI printer_;
};

}  // namespace velmora
