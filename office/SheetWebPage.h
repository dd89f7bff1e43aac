#pragma once
#include <QList>
#include <QString>

#include "core/Result.h"

namespace velmora {

// LibreOffice saves a workbook as one web page: a list of links, then for each sheet with
// content an anchor ("table" + the sheet's place in the saved copy), a heading, the sheet's
// table and a separator (a workbook of one sheet has its table only). The Excel clean-up
// and the upload expect what the spreadsheet program publishes for one sheet: a page of
// its own ("Velmora_Temp_Excel_Sheet" + number + ".html") holding the sheet's table in the
// division "Velmora_Excel_Sheet_Div" + number, with its pictures in the page's companion
// folder. This writes those pages from the
// workbook page (which it then removes with its pictures).
//
// `sheetNumbers`: the number in the workbook of each sheet of the saved copy, in order.
// Returns the sheet numbers of the pages written, in workbook order; "ReadFile:" and why
// when the workbook page cannot be read or a sheet page cannot be written.
Result<QList<int>> splitIntoSheetPages(const QString& workbookPage, const QString& workingFolder,
                                       const QList<int>& sheetNumbers);

// The page of one sheet, in the working folder (ending with "/").
QString sheetPagePath(const QString& workingFolder, int sheetNumber);

}  // namespace velmora
