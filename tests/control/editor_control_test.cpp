#include <QDir>
#include <QFile>
#include <gtest/gtest.h>

#include "control/Velmora5.h"
#include "core/ScriptError.h"
#include "tests/common/TestSupport.h"
#include "tests/control/FakeProducers.h"

namespace velmora {
namespace {

using test::FakeProducers;

class EditorControl : public ::testing::Test {
 protected:
  test::ScopedTempRoot temp;
  Context context;
  FakeProducers producers;

  std::unique_ptr<Velmora5> create() { return std::make_unique<Velmora5>(context, producers); }
  QString file(const QString& name) { return temp.write(name, "content"); }
};

TEST_F(EditorControl, ANewControlIsIdleAndSaysWhoItIs) {
  auto control = create();
  EXPECT_EQ(control->Status(), "");
  EXPECT_EQ(control->Error(), "");
  EXPECT_EQ(control->Version(), "5.1.0.0");
  EXPECT_EQ(control->Test(), "Velmora");
  EXPECT_EQ(context.g_sLang, "zh-cn");
  EXPECT_EQ(context.g_sTempFolder, QDir::tempPath() + "/Velmora/");
}

TEST_F(EditorControl, CreationEmptiesTheWorkingFolder) {
  auto first = create();
  temp.write("Velmora/left-over.png", "x");
  temp.write("Velmora/sub/deeper.html", "x");
  auto second = create();
  EXPECT_TRUE(QDir(context.g_sTempFolder).isEmpty());
}

TEST_F(EditorControl, LangKeepsTheTwoChineseCodesAndTurnsEverythingElseIntoEnglish) {
  auto control = create();
  control->setLang("ZH-TW");
  EXPECT_EQ(context.g_sLang, "zh-tw");
  control->setLang("fr");
  EXPECT_EQ(context.g_sLang, "en");
  control->setLang("zh-cn");
  EXPECT_EQ(context.g_sLang, "zh-cn");
  control->setLang("");
  EXPECT_EQ(context.g_sLang, "en");
}

TEST_F(EditorControl, LocalSizeTakesNumbersAndIgnoresTheRest) {
  auto control = create();
  const QString png = temp.write("a.png", QByteArray(1025, 'x'));
  control->setSendUrl("http://127.0.0.1:1/?x=1");
  control->setLocalExt("PNG");
  const QString html = "<img src=\"file://" + png + "\">";

  control->setLocalSize("1");
  control->setLocalSize("not a number");  // ignored: the limit stays 1 KB and the file is refused
  control->LocalUpload(html);
  EXPECT_EQ(control->Status(), "ok") << "a refused file is skipped without a request";
  EXPECT_EQ(control->Error(), "");
  EXPECT_EQ(control->Body(), html);
}

TEST_F(EditorControl, LocalSizeOutsideThe32BitRangeOverflowsAndKeepsTheOldLimit) {
  auto control = create();
  control->setLocalSize("10");
  try {
    control->setLocalSize("2147483648");
    FAIL() << "expected an overflow";
  } catch (const ScriptError& error) {
    EXPECT_EQ(error.number(), errnum::Overflow);
  }
  EXPECT_NO_THROW(control->setLocalSize("-2147483648"));
  EXPECT_THROW(control->setLocalSize("1e300"), ScriptError);
}

TEST_F(EditorControl, ImportsCheckTheFileTypeFirst) {
  auto control = create();
  QDir().mkpath(temp.path() + "/folder.doc");

  control->ImportWord(temp.path() + "/folder.doc", "mode:html");
  EXPECT_EQ(control->Error(), "InvalidFile:doc|docx|wps");
  EXPECT_EQ(control->Status(), "ok");
  control->ImportWord(temp.path() + "/missing.doc", "");
  EXPECT_EQ(control->Error(), "InvalidFile:doc|docx|wps");
  control->ImportExcelSheet(file("a.doc"), 1, "");
  EXPECT_EQ(control->Error(), "InvalidFile:xls|xlsx|et");
  EXPECT_EQ(control->GetExcelWorkSheetName(file("b.txt")), "");
  EXPECT_EQ(control->Error(), "InvalidFile:xls|xlsx|et");
  control->ImportPPT(file("c.pptx.bak"), "");
  EXPECT_EQ(control->Error(), "InvalidFile:ppt|pptx|dps");
  EXPECT_TRUE(producers.calls.isEmpty()) << producers.calls.join(", ").toStdString();

  control->ImportWord(file("Report.DOCX"), "mode:html");
  EXPECT_EQ(control->Error(), "") << "the extension is compared in lower case";
}

TEST_F(EditorControl, ImportWordPicksTheRouteAndTheEnginesByOption) {
  auto control = create();
  const QString doc = file("a.doc");
  const QString wps = file("b.wps");
  struct Case {
    QString file, options;
    QStringList calls;
  } cases[] = {
      {doc, "", {"word.Word2Images"}},
      {doc, "mode:HTML", {"word.Word2Images"}},
      {doc, "mode:img;printimage:1", {"printer.Word2Images"}},
      {doc, "mode:html", {"word.Word2HTML", "word.OptimizeHTML:import"}},
      {doc, "mode:html;api:7", {"word.Word2HTML", "word.OptimizeHTML:import"}},
      {doc, "mode:html;api:2", {"wps.Word2HTML", "wps.OptimizeHTML:import"}},
      {doc, "mode:html;api:0", {"word.Word2HTML", "word.OptimizeHTML:import"}},
      {wps, "mode:html;api:0", {"wps.Word2HTML", "wps.OptimizeHTML:import"}},
  };
  for (const Case& c : cases) {
    producers.calls.clear();
    control->ImportWord(c.file, c.options);
    EXPECT_EQ(producers.calls, c.calls) << c.options.toStdString();
  }
}

TEST_F(EditorControl, ASecondEngineIsAskedOnlyAfterTheFirstFailed) {
  auto control = create();
  producers.failing = {"wps"};
  control->ImportWord(file("b.wps"), "mode:html;api:0");
  EXPECT_EQ(producers.calls, QStringList({"wps.Word2HTML", "word.Word2HTML", "word.OptimizeHTML:import"}));
  EXPECT_EQ(control->Error(), "");

  producers.calls.clear();
  producers.failing = {"wps", "word"};
  control->ImportWord(file("c.docx"), "mode:html;api:0");
  EXPECT_EQ(producers.calls, QStringList({"word.Word2HTML", "wps.Word2HTML"}));
  EXPECT_EQ(control->Error(), "wps:failed") << "the last engine's word stays";
  EXPECT_EQ(control->Status(), "ok");
}

TEST_F(EditorControl, ExcelImportsDefaultToHtmlAndAskWpsFirstForEtFiles) {
  auto control = create();
  control->ImportExcelSheet(file("a.xlsx"), 2, "");
  EXPECT_EQ(producers.calls, QStringList({"excel.Excel2HTML:2"}));
  EXPECT_EQ(control->Style(), producers.producedStyle);

  producers.calls.clear();
  control->ImportExcelSheet(file("a.xlsx"), 3, "mode:img;api:2");
  EXPECT_EQ(producers.calls, QStringList({"excel.Excel2Images:3"})) << "pictures always come from Excel";
  EXPECT_EQ(control->Style(), "");

  producers.calls.clear();
  producers.failing = {"wps"};
  EXPECT_EQ(control->GetExcelWorkSheetName(file("s.et")), "excel-names");
  EXPECT_EQ(producers.calls, QStringList({"wps.GetExcelWorkSheetName", "excel.GetExcelWorkSheetName"}));
}

TEST_F(EditorControl, AConverterFailureEndsTheFlowWithItsWord) {
  auto control = create();
  producers.failing = {"ppt"};
  control->ImportPPT(file("s.ppt"), "");
  EXPECT_EQ(control->Error(), "ppt:failed");
  EXPECT_EQ(control->Status(), "ok");
}

TEST_F(EditorControl, AFlowWithoutLocalPicturesFinishesInsideTheCall) {
  auto control = create();
  control->ImportWord(file("a.doc"), "");
  EXPECT_EQ(control->Status(), "ok");
  EXPECT_EQ(control->Error(), "");
  EXPECT_EQ(control->Body(), "<p>made</p>");
  EXPECT_EQ(control->OriginalFiles(), "");
  EXPECT_EQ(control->SavedFiles(), "");
}

TEST_F(EditorControl, UnbuiltEnginesFailWithTheCreationWord) {
  Velmora5 control(context, standardProducers());
  control.ImportWord(file("a.doc"), "mode:html;api:2");
  EXPECT_TRUE(control.Error().startsWith("CreateObject:WPS.Application")) << control.Error().toStdString();
  EXPECT_EQ(control.Status(), "ok");
}

TEST_F(EditorControl, CaptureDefaultsToPngAndReportsCancelOrUploads) {
  auto control = create();
  control->Capture("");
  ASSERT_TRUE(producers.lastCapture);
  emit producers.lastCapture->ReturnValue("ok");
  ASSERT_TRUE(test::waitUntil([&] { return producers.calls.contains("word.WordPaste2Image:imgtype:png"); }));
  EXPECT_EQ(control->Status(), "ok");

  control->LocalUpload("<p>earlier</p>");
  control->Capture("imgtype:jpg");
  emit producers.lastCapture->ReturnValue("cancel");
  ASSERT_TRUE(test::waitUntil([&] { return control->Error() == "cancel"; }));
  EXPECT_EQ(control->Body(), "<p>earlier</p>") << "a cancelled capture leaves the earlier result";
}

TEST_F(EditorControl, LocalUploadTurnsLinksIntoLocalFilesIntoInPageAnchors) {
  auto control = create();
  control->LocalUpload(R"(<a href="file:///C:/docs/a.htm#part2">x</a> <a HREF = 'file:///home/u/b.html#top'>y</a>)");
  EXPECT_EQ(control->Body(), R"(<a href="#part2">x</a> <a HREF = '#top'>y</a>)");
  EXPECT_EQ(control->Status(), "ok");
}

TEST_F(EditorControl, IsPrinterExistAsksForTheVirtualPrinter) {
  auto control = create();
  producers.printerExists = true;
  EXPECT_TRUE(control->IsPrinterExist());
  EXPECT_EQ(producers.calls, QStringList({"IsPrinterExist:VelmoraPrinter"}));
}

}  // namespace
}  // namespace velmora
