// ImportExcelSheet, GetExcelWorkSheetName and ImportPPT end to end on the real LibreOffice,
// through the user's office helper, into the reference receiver. The samples
// (tests/data/office, written by make_office_samples.py): a workbook with the sheets Prices
// (merged title, money cells with borders, a picture), Hidden (hidden), Empty and Notes
// (CJK text), and a presentation of twelve 16:9 slides.
#include <gtest/gtest.h>
#include <signal.h>
#include <QImage>
#include <QProcess>

#include "control/Velmora5.h"
#include "control/WaitForResult.h"
#include "host/StandardProducers.h"
#include "tests/office/OfficeTesting.h"
#include "tests/upload/ReceiverProcess.h"

namespace velmora {
namespace {

using namespace std::chrono_literals;
using test::ReceiverProcess;

class SheetImport : public ::testing::Test {
 protected:
  test::ScopedTempRoot temp;
  Context context;
  ReceiverProcess receiver;
  std::unique_ptr<Velmora5> control = std::make_unique<Velmora5>(context, standardProducers());
  const QString workbook = test::testData("office/workbook.xlsx");

  void SetUp() override {
    control->setSendUrl(receiver.url("/upload?page=1"));
    control->setLocalExt("png|jpg|gif");
    control->setLocalSize("4096");
  }
  QString import(const QString& file, int16_t sheet, const QString& options = "optimizemode:1") {
    control->ImportExcelSheet(file, sheet, options);
    if (!control->Error().isEmpty()) return control->Error();
    EXPECT_NE(waitForResult(*control, 60s), Waited::TimedOut);
    return control->Error();
  }
};

TEST_F(SheetImport, NamesComeInWorkbookOrderHiddenOnesIncluded) {
  EXPECT_EQ(control->GetExcelWorkSheetName(workbook), "Prices\r\nHidden\r\nEmpty\r\nNotes");
  EXPECT_EQ(control->Error(), "");
}

TEST_F(SheetImport, EveryVisibleSheetWithItsPictureUploaded) {
  ASSERT_EQ(import(workbook, 0), "");
  const QString body = control->Body();
  for (const char* text : {"Velmora_Excel_Sheet_Div1", "colspan=3", "Price list", "3.50 EUR", "1px solid #336699",
                           "Velmora_Excel_Sheet_Div4", "价格 notes"})
    EXPECT_TRUE(body.contains(QString::fromUtf8(text))) << text << "\n" << body.toStdString();
  EXPECT_FALSE(body.contains("secret")) << "a hidden sheet is left out of every sheet";
  EXPECT_FALSE(body.contains("sdval")) << "LibreOffice's own cell data goes";
  ASSERT_EQ(receiver.posts().size(), 1);
  EXPECT_EQ(body.count("<img src=\"" + receiver.url("/files/")), 1) << body.toStdString();
  EXPECT_EQ(control->Style().count("<style>"), 2) << "one style element per sheet";
}

TEST_F(SheetImport, OneSheetByNumberAndItsFailures) {
  struct Row {
    int16_t sheet;
    QString file;
    QString error;
    const char* contains;
  };
  const QString notAWorkbook = temp.write("picture.xlsx", test::pictureBytes("png", {20, 20}, Qt::red));
  const QList<Row> rows = {
      {2, workbook, "", "secret"},  // a hidden sheet asked for by its number
      {3, workbook, "", ""},        // an empty sheet: nothing to import
      {9, workbook, "SetSheet:the workbook has 4 sheet(s); there is no sheet 9", ""},
      {-1, workbook, "SetSheet:the workbook has 4 sheet(s); there is no sheet -1", ""},
      {1, notAWorkbook, "Open:LibreOffice could not open %1: it is not a workbook", ""},
      {4, workbook, "", "价格"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(import(row.file, row.sheet), QString(row.error).replace("%1", row.file)) << row.sheet;
    if (!row.error.isEmpty()) continue;
    EXPECT_TRUE(control->Body().contains(QString::fromUtf8(row.contains)))
        << row.sheet << control->Body().toStdString();
    EXPECT_FALSE(control->Body().contains("Price list")) << "only sheet " << row.sheet;
  }
}

TEST_F(SheetImport, SheetsAsPicturesOfTheirUsedRange) {
  struct Row {
    int16_t sheet;
    QString options;
    QStringList endings;  // of the stored pictures, in order
  };
  const QList<Row> rows = {
      {0, "mode:img;imgtype:png", {"001.png", "004.png"}},  // the visible sheets with content
      {2, "mode:img;imgtype:gif", {"002.gif"}},             // a hidden one, asked for
      {3, "mode:img", {}},                                  // an empty one
      {9, "mode:img", {}},
  };
  for (const Row& row : rows) {
    const qsizetype before = receiver.posts().size();
    ASSERT_EQ(import(workbook, row.sheet, row.options), "") << row.sheet;
    ASSERT_EQ(receiver.posts().size() - before, row.endings.size()) << row.sheet;
    for (qsizetype i = 0; i < row.endings.size(); ++i) {
      const QString stored = QString::fromLatin1(ReceiverProcess::field(receiver.posts()[before + i], "stored"));
      EXPECT_TRUE(stored.endsWith(row.endings[i])) << stored.toStdString();
      const QImage picture(receiver.root() + u'/' + stored);
      EXPECT_TRUE(picture.width() > 50 && picture.height() > 10 && picture.height() < 200) << stored.toStdString();
    }
  }
}

TEST_F(SheetImport, SlidesArriveAsPicturesInOrderAtTheirSizeOrScaled) {
  struct Row {
    QString options;
    QString type;
    QSize size;
  };
  const Row rows[] = {
      {"imgtype:png", "png", {1058, 595}}, {"tw:400", "jpg", {400, 225}}, {"tw:wide", "jpg", {1058, 595}}};
  for (const Row& row : rows) {
    const qsizetype before = receiver.posts().size();
    control->ImportPPT(test::testData("office/slides.pptx"), row.options);
    ASSERT_EQ(control->Error(), "");
    ASSERT_NE(waitForResult(*control, 60s), Waited::TimedOut);
    ASSERT_EQ(control->Error(), "");
    ASSERT_EQ(receiver.posts().size() - before, 12) << row.options.toStdString();
    for (qsizetype i = before; i < receiver.posts().size(); ++i) {
      const QString stored = QString::fromLatin1(ReceiverProcess::field(receiver.posts()[i], "stored"));
      const QString scaled = row.size.width() == 400 ? "s" : "";
      EXPECT_TRUE(stored.endsWith(QString("Slide%1%2.%3").arg(i - before + 1).arg(scaled, row.type)))
          << stored.toStdString();
      EXPECT_EQ(QImage(receiver.root() + u'/' + stored).size(), row.size) << stored.toStdString();
    }
  }
  const QString notSlides = temp.path() + "/book.pptx";
  ASSERT_TRUE(QFile::copy(workbook, notSlides));
  control->ImportPPT(notSlides, "");
  EXPECT_EQ(control->Error(), "Open:LibreOffice could not open " + notSlides + ": it is not a presentation");
}

TEST_F(SheetImport, AHungOfficeCostsOnlyThatCallAndNothingIsLeftRunning) {
  test::PrivateOfficeHelper helper("3");
  ASSERT_EQ(import(workbook, 1), "");
  const pid_t office = pid_t(helper.workbookOfficePid());
  ASSERT_GT(office, 0);
  ASSERT_EQ(kill(office, SIGSTOP), 0);
  EXPECT_EQ(import(workbook, 1), "Open:LibreOffice stopped responding while loading " + workbook + " after 3 s");
  EXPECT_TRUE(test::waitUntil([&] { return kill(office, 0) != 0; }, 5000)) << "the hung office went with its worker";
  EXPECT_EQ(import(workbook, 1), "") << "a fresh office serves the next call";
  control.reset();
  EXPECT_TRUE(test::waitUntil([&] { return helper.gone(); }, 15000)) << "the helper leaves when its callers have";
}

// Each bad file gives its word at once, and the office serves the next call.
TEST_F(SheetImport, BadWorkbooksAndPresentationsGiveTheirWord) {
  const auto protect = [&](const QString& source, const QString& target, const char* filter) {
    QProcess protector;
    protector.start("/usr/bin/python3", {test::testData("../office/protect_document.py"), source, target, filter,
                                         temp.path() + "/protect-profile"});
    EXPECT_TRUE(protector.waitForFinished(60000) && QFile::exists(target))
        << protector.readAllStandardError().toStdString();
    return target;
  };
  const QString slides = test::testData("office/slides.pptx");
  QFile book(workbook);
  EXPECT_TRUE(book.open(QIODevice::ReadOnly));
  const QByteArray truncated = book.readAll().left(3000);
  const QString cannotOpen = "Open:LibreOffice could not open %1: the file is damaged, protected by a password, or "
                             "not a document LibreOffice reads";
  struct Row {
    bool slides;
    QString file;
    QString error;
  };
  const QList<Row> rows = {
      {false, temp.write("empty.xlsx", ""), "Open:LibreOffice could not open %1: the file is empty"},
      {false, temp.write("truncated.xlsx", truncated), cannotOpen},
      {false, protect(workbook, temp.path() + "/protected.xls", "MS Excel 97"), cannotOpen},
      {true, temp.write("empty.pptx", ""), "Open:LibreOffice could not open %1: the file is empty"},
      // LibreOffice writes no encrypted PowerPoint file: an encrypted ODF one under a .pptx name.
      {true, protect(slides, temp.path() + "/protected.pptx", "impress8"), cannotOpen},
      {true, temp.path() + "/missing.pptx", "InvalidFile:ppt|pptx|dps"},
  };
  for (const Row& row : rows) {
    if (row.slides)
      control->ImportPPT(row.file, "");
    else
      control->ImportExcelSheet(row.file, 0, "");
    EXPECT_EQ(control->Error(), QString(row.error).replace("%1", row.file)) << row.file.toStdString();
    EXPECT_EQ(control->GetExcelWorkSheetName(workbook), "Prices\r\nHidden\r\nEmpty\r\nNotes")
        << "after " << row.file.toStdString();
  }
  // An odd path: spaces, quotes, accents, CJK.
  const QString odd = temp.path() + "/a folder/Tableau d'été \"final\" 表.XLSX";
  QDir().mkpath(temp.path() + "/a folder");
  ASSERT_TRUE(QFile::copy(workbook, odd));
  EXPECT_EQ(control->GetExcelWorkSheetName(odd), "Prices\r\nHidden\r\nEmpty\r\nNotes");
  EXPECT_EQ(QDir(temp.path()).entryList(QDir::Files | QDir::Hidden),
            (QStringList{"empty.pptx", "empty.xlsx", "protected.pptx", "protected.xls", "truncated.xlsx"}))
      << "no lock file or backup is left beside the files";
}

}  // namespace
}  // namespace velmora
