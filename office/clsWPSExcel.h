#pragma once
#include <QString>
#include <memory>

#include "core/Context.h"
#include "core/Producers.h"
#include "core/Result.h"
#include "office/OfficeApplication.h"

namespace velmora {

// Workbooks converted by WPS Spreadsheets ("ET.Application"): the sheet names as the Excel
// engine gives them, and sheets as cleaned HTML from the whole workbook saved once as a web
// page ("Velmora_Temp_ET.htm"), whose per-sheet pages WPS writes into the folder
// "Velmora_Temp_ET.files" with the workbook's shared "stylesheet.css".
class clsWPSExcel {
 public:
  clsWPSExcel(Context& context, std::unique_ptr<OfficeAutomation> office);

  Result<QString> GetExcelWorkSheetName(const QString& file);
  // A workbook whose sheets are all empty gives a failure with no error text.
  Result<StyledHtml> Excel2HTML(const QString& file, int16_t sheet, const QString& options);

 private:
  Context& context_;
  OfficeApplication application_;
};

}  // namespace velmora
