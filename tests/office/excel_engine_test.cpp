// The workbook engine's steps and failure words through a scripted office, and the split
// of LibreOffice's workbook page into the sheet pages the clean-up and the upload expect.
#include <gtest/gtest.h>
#include <QDir>

#include "office/clsMicrosoftExcel.h"
#include "office/clsWPSExcel.h"
#include "tests/common/TestSupport.h"
#include "tests/office/ScriptedOffice.h"

namespace velmora {
namespace {

using test::ScriptedOffice;

// A workbook page as LibreOffice writes it: the list of links, then each sheet with content
// (here the sheets at places 0 and 2 of the saved copy), the second with a picture that
// the first shows as well.
QByteArray workbookPage() {
  return "<!DOCTYPE html>\n<html><head><style type=\"text/css\">td { color: red }</style></head>\n<body>\n<hr>\n"
         "<p><center><h1>Overview</h1><A HREF=\"#table0\">A</A><br><A HREF=\"#table2\">C</A></center></p><hr>\n"
         "<A NAME=\"table0\"><h1>Sheet 1: <em>A</em></h1></A>\n<table><tr><td sdval=\"3.5\" sdnum=\"1033;\">3.5</td>"
         "<td><img src=\"Velmora_Temp_Excel_Workbook_html_p1.png\"></td></tr></table>\n<!-- ***** -->\n<hr>\n"
         "<A NAME=\"table2\"><h1>Sheet 2: <em>C</em></h1></A>\n<table><tr><td>c</td></tr></table>\n"
         "<img src=\"Velmora_Temp_Excel_Workbook_html_p1.png\"><img src=\"http://example.com/x.png\">\n"
         "<!-- ***** -->\n</body>\n</html>\n";
}

class ExcelEngine : public ::testing::Test {
 protected:
  test::ScopedTempRoot temp;
  Context context;
  QList<OfficeJob> jobs;

  void SetUp() override { context.g_sTempFolder = temp.path() + u'/'; }
  clsMicrosoftExcel excel(ScriptedOffice::Script script) {
    return clsMicrosoftExcel(context, std::make_unique<ScriptedOffice>(std::move(script), jobs));
  }
  std::function<void(const OfficeJob&)> writesWorkbookPage() {
    return [this](const OfficeJob& job) {
      EXPECT_EQ(job.target, temp.path() + "/Velmora_Temp_Excel_Workbook.html");
      temp.write("Velmora_Temp_Excel_Workbook.html", workbookPage());
      temp.write("Velmora_Temp_Excel_Workbook_html_p1.png", "png bytes");
    };
  }
  static OfficeAnswer kept(QList<int> sheets) {
    OfficeAnswer answer;
    answer.sheets = std::move(sheets);
    return answer;
  }
  QString read(const QString& name) const {
    QFile file(temp.path() + u'/' + name);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
  }
};

TEST_F(ExcelEngine, StagesGiveTheirWords) {
  struct Row {
    const char* name;
    ScriptedOffice::Script script;
    QString error;
  };
  const Row rows[] = {
      {"no office", {Failure{"CreateObject:", "none"}, {}, {}}, "CreateObject:none"},
      {"a damaged workbook", {{}, OfficeAnswer::failure("Open", "damaged"), {}}, "Open:damaged"},
      {"a sheet past the end", {{}, OfficeAnswer::failure("SetSheet", "no sheet 9"), {}}, "SetSheet:no sheet 9"},
      {"a failed save", {{}, OfficeAnswer::failure("SaveAs", "disk full"), {}}, "SaveAs:disk full"},
      {"the page said written but missing", {{}, kept({1}), {}}, "ReadFile:no page was written for /b.xlsx"},
      {"no visible sheet", {{}, kept({}), {}}, ""},
  };
  for (const Row& row : rows) {
    const Result<StyledHtml> html = excel(row.script).Excel2HTML("/b.xlsx", 9, "");
    EXPECT_EQ(html ? QString() : html.failure().text(), row.error) << row.name;
    if (html) {
      EXPECT_EQ(html.value().body, "") << row.name;
    }
  }
  EXPECT_EQ(jobs.last().sheet, 9);
}

TEST_F(ExcelEngine, EverySheetGetsItsOwnPageDivisionAndPictures) {
  const Result<StyledHtml> html =
      excel({{}, kept({1, 3, 4}), writesWorkbookPage()}).Excel2HTML("b.xlsx", 0, "optimizemode:1");
  ASSERT_TRUE(html) << html.failure().text().toStdString();
  EXPECT_EQ(jobs.last().document, QDir::current().absoluteFilePath("b.xlsx")) << "the helper runs elsewhere";

  const QString first = read("Velmora_Temp_Excel_Sheet1.html");
  EXPECT_TRUE(first.contains("<div id=\"Velmora_Excel_Sheet_Div1\" align=center x:publishsource=\"Excel\">\n"
                             "<table><tr><td>3.5</td><td><img src=\"Velmora_Temp_Excel_Sheet1_files/"
                             "Velmora_Temp_Excel_Workbook_html_p1.png\"></td></tr></table>\n</div>"))
      << first.toStdString();
  EXPECT_TRUE(first.contains("td { color: red }")) << "each page keeps the workbook's style";
  const QString third = read("Velmora_Temp_Excel_Sheet4.html");
  EXPECT_TRUE(third.contains("Velmora_Excel_Sheet_Div4")) << "place 2 of the saved copy is sheet 4";
  EXPECT_TRUE(third.contains("<img src=\"http://example.com/x.png\">")) << "an outside address stays";
  EXPECT_FALSE(third.contains("Sheet 1") || third.contains("Overview"));
  for (const char* folder : {"Velmora_Temp_Excel_Sheet1_files", "Velmora_Temp_Excel_Sheet4_files"})
    EXPECT_EQ(QDir(temp.path() + u'/' + folder).entryList(QDir::Files),
              QStringList{"Velmora_Temp_Excel_Workbook_html_p1.png"});
  EXPECT_EQ(QDir(temp.path()).entryList(QDir::Files),
            (QStringList{"Velmora_Temp_Excel_Sheet1.html", "Velmora_Temp_Excel_Sheet4.html"}))
      << "the workbook page and its pictures are gone";

  // The clean-up ran on each page: both bodies, one after the other, each with its table.
  EXPECT_EQ(html.value().style.count("<style>"), 2);
  EXPECT_LT(html.value().body.indexOf("3.5"), html.value().body.indexOf(">c<"));
  EXPECT_TRUE(html.value().body.contains("Velmora_Temp_Excel_Sheet4_files/")) << html.value().body.toStdString();
}

TEST_F(ExcelEngine, SheetNamesJoinWithCrLf) {
  OfficeAnswer names;
  names.names = {"A", "B", "C"};
  const Result<QString> list = excel({{}, names, {}}).GetExcelWorkSheetName("/b.xlsx");
  ASSERT_TRUE(list);
  EXPECT_EQ(list.value(), "A\r\nB\r\nC");
  EXPECT_EQ(jobs.last().kind, OfficeJob::Kind::SheetNames);
}

// WPS saves the whole workbook once; each sheet's page is read from the folder it writes.
TEST_F(ExcelEngine, WpsReadsThePagesOfTheSheetsAsked) {
  const auto writes = [this](bool folder) {
    return [this, folder](const OfficeJob& job) {
      EXPECT_EQ(job.kind, OfficeJob::Kind::WorkbookPage);
      temp.write("Velmora_Temp_ET.htm", "<html><body><table><tr><td>whole</td></tr></table></body></html>");
      if (!folder) return;
      temp.write("Velmora_Temp_ET.files/stylesheet.css", ".shared { color: blue }");
      for (const char* n : {"001", "002", "003"})
        temp.write(QString("Velmora_Temp_ET.files/sheet%1.htm").arg(n),
                   QByteArray("<html><head><style>.own { color: red }</style></head><body><table><tr><td>sheet ") + n +
                       "</td></tr></table></body></html>");
    };
  };
  const auto filled = [](QList<int> sheets) {
    OfficeAnswer answer;
    answer.sheets = std::move(sheets);
    return answer;
  };
  struct Row {
    const char* name;
    int16_t sheet;
    ScriptedOffice::Script script;
    QString error;
    QStringList bodies;  // in order
    int sharedStyles;
  };
  const QList<Row> rows = {
      {"one sheet by number", 2, {{}, filled({1, 2, 3}), writes(true)}, "", {"sheet 002"}, 1},
      {"every sheet with a filled cell", 0, {{}, filled({1, 3}), writes(true)}, "", {"sheet 001", "sheet 003"}, 2},
      {"one page, whatever the number", 3, {{}, filled({1}), writes(false)}, "", {"whole"}, 0},
      {"a sheet WPS wrote no page for",
       5,
       {{}, filled({1}), writes(true)},
       "ReadFile:there is no file %1sheet005.htm",
       {},
       0},
      {"every sheet empty", 0, {{}, filled({}), writes(true)}, "", {}, 0},
      {"a failed save", 0, {{}, OfficeAnswer::failure("SaveAs", "disk full"), {}}, "SaveAs:disk full", {}, 0},
  };
  for (const Row& row : rows) {
    QDir(temp.path()).removeRecursively();
    QDir().mkpath(temp.path());
    const Result<StyledHtml> html = clsWPSExcel(context, std::make_unique<ScriptedOffice>(row.script, jobs))
                                        .Excel2HTML("/b.et", row.sheet, "optimizemode:1");
    EXPECT_EQ(html ? QString() : html.failure().text(),
              QString(row.error).replace("%1", temp.path() + "/Velmora_Temp_ET.files/"))
        << row.name;
    if (row.error.isEmpty() && row.bodies.isEmpty()) {
      EXPECT_FALSE(html) << row.name << ": false, with no error";
    }
    if (!html) continue;
    qsizetype last = -1;
    for (const QString& body : row.bodies) {
      EXPECT_GT(html.value().body.indexOf(body), last) << row.name << " " << body.toStdString();
      last = html.value().body.indexOf(body);
    }
    EXPECT_EQ(html.value().style.count(".shared"), row.sharedStyles) << row.name;
    if (row.sharedStyles) {
      EXPECT_LT(html.value().style.indexOf(".shared"), html.value().style.indexOf(".own")) << "shared rules first";
    }
  }
}

}  // namespace
}  // namespace velmora
