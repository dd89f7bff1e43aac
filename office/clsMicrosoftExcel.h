#pragma once
#include <QString>
#include <memory>

#include "core/Context.h"
#include "core/Producers.h"
#include "core/Result.h"
#include "office/OfficeApplication.h"

namespace velmora {

// Workbooks converted by the office program: the sheet names, one sheet or every visible
// sheet with content as cleaned HTML, each sheet as a picture. Keeps nothing between calls:
// each call has the office open the workbook afresh, read-only, and close it unsaved.
//
// Sheet numbers count every sheet in tab order, as the names list them, so that a number
// the page took from the list always means the sheet the user saw named there:
// - a hidden sheet is named and can be asked for by its number, but "every sheet" (0)
//   means the sheets the user can see;
// - a chart sheet arrives as a sheet holding its chart: it is named and numbered like any
//   other, and having no cells, it is left out of every sheet as an empty sheet is.
class clsMicrosoftExcel {
 public:
  clsMicrosoftExcel(Context& context, std::unique_ptr<OfficeAutomation> office);

  // The names in workbook order, joined by CR LF.
  Result<QString> GetExcelWorkSheetName(const QString& file);
  // Sheet `sheet` (from 1), or every visible sheet with content (0), each published as
  // "Velmora_Temp_Excel_Sheet" + number + ".html" in the working folder and cleaned with
  // source "import"; the styles and bodies of several sheets follow one another.
  Result<StyledHtml> Excel2HTML(const QString& file, int16_t sheet, const QString& options);
  // One picture of each sheet's used range; "imgtype" picks png, gif or (anything else) jpg.
  Result<QString> Excel2Images(const QString& file, int16_t sheet, const QString& options);

 private:
  Context& context_;
  OfficeApplication application_;
};

}  // namespace velmora
