// The editor control's flows over recording producers: which producer each call asks, in
// which order, and what the page reads afterwards.
#include <gtest/gtest.h>
#include <QDir>

#include "control/Velmora5.h"
#include "core/ScriptError.h"
#include "tests/common/Helpers.h"
#include "tests/common/TestSupport.h"
#include "tests/control/FakeProducers.h"

namespace velmora {
namespace {

class EditorControl : public ::testing::Test {
 protected:
  test::ScopedTempRoot temp;
  Context context;
  test::FakeProducers producers;
  std::unique_ptr<Velmora5> control = std::make_unique<Velmora5>(context, producers);

  QString file(const QString& name) { return temp.write(name, "content"); }
  void expectCalls(const QStringList& calls, const QString& what) {
    EXPECT_EQ(producers.calls, calls) << what.toStdString();
    producers.calls.clear();
  }
};

TEST_F(EditorControl, CreationResetsTheContextAndEmptiesTheWorkingFolder) {
  EXPECT_EQ(control->Status(), "");
  EXPECT_EQ(control->Version(), "5.1.0.0");
  EXPECT_EQ(context.g_sLang, "zh-cn");
  EXPECT_EQ(context.g_sTempFolder, QDir::tempPath() + "/Velmora/");
  temp.write("Velmora/left-over.png", "x");
  temp.write("Velmora/sub/deeper.html", "x");
  context.g_sError = "from before";
  control = std::make_unique<Velmora5>(context, producers);
  EXPECT_TRUE(QDir(context.g_sTempFolder).isEmpty());
  EXPECT_EQ(control->Error(), "");

  for (const auto& [value, lang] : {std::pair{"ZH-TW", "zh-tw"}, {"fr", "en"}, {"zh-cn", "zh-cn"}, {"", "en"}}) {
    control->setLang(value);
    EXPECT_EQ(context.g_sLang, lang) << value;
  }
}

TEST_F(EditorControl, LocalSizeOutsideThe32BitRangeOverflows) {
  EXPECT_EQ(test::errorNumberOf([&] { control->setLocalSize("2147483648"); }), errnum::Overflow);
  EXPECT_EQ(test::errorNumberOf([&] { control->setLocalSize("1e300"); }), errnum::Overflow);
  EXPECT_NO_THROW(control->setLocalSize("-2147483648"));
}

TEST_F(EditorControl, ImportsCheckTheFileTypeBeforeAskingAnyProducer) {
  QDir().mkpath(temp.path() + "/folder.doc");
  const std::pair<std::function<void()>, QString> calls[] = {
      {[&] { control->ImportWord(temp.path() + "/folder.doc", "mode:html"); }, "InvalidFile:doc|docx|wps"},
      {[&] { control->ImportWord(temp.path() + "/missing.doc", ""); }, "InvalidFile:doc|docx|wps"},
      {[&] { control->ImportExcelSheet(file("a.doc"), 1, ""); }, "InvalidFile:xls|xlsx|et"},
      {[&] { EXPECT_EQ(control->GetExcelWorkSheetName(file("b.txt")), ""); }, "InvalidFile:xls|xlsx|et"},
      {[&] { control->ImportPPT(file("c.pptx.bak"), ""); }, "InvalidFile:ppt|pptx|dps"},
  };
  for (const auto& [call, word] : calls) {
    call();
    EXPECT_EQ(control->Error(), word);
    EXPECT_EQ(control->Status(), "ok");
  }
  expectCalls({}, "no producer for a refused file");
  control->ImportWord(file("Report.DOCX"), "mode:html");
  EXPECT_EQ(control->Error(), "") << "the extension is compared in lower case";
}

TEST_F(EditorControl, EachImportAsksTheProducersItsOptionsName) {
  const QString doc = file("a.doc"), wps = file("b.wps"), xlsx = file("a.xlsx");
  const struct {
    std::function<void()> call;
    QStringList calls;
    QString what;
  } cases[] = {
      {[&] { control->ImportWord(doc, ""); }, {"word.Word2Images"}, "pictures by default"},
      {[&] { control->ImportWord(doc, "mode:HTML"); }, {"word.Word2Images"}, "the mode is compared exactly"},
      {[&] { control->ImportWord(doc, "mode:img;printimage:1"); }, {"printer.Word2Images"}, "printed"},
      {[&] { control->ImportWord(doc, "mode:html"); }, {"word.Word2HTML", "word.OptimizeHTML:import"}, "html"},
      {[&] { control->ImportWord(doc, "mode:html;api:7"); }, {"word.Word2HTML", "word.OptimizeHTML:import"}, "api 7"},
      {[&] { control->ImportWord(doc, "mode:html;api:2"); }, {"wps.Word2HTML", "wps.OptimizeHTML:import"}, "api 2"},
      {[&] { control->ImportWord(wps, "mode:html;api:0"); }, {"wps.Word2HTML", "wps.OptimizeHTML:import"}, "by type"},
      {[&] { control->ImportExcelSheet(xlsx, 2, ""); }, {"excel.Excel2HTML:2"}, "sheets default to html"},
      {[&] { control->ImportExcelSheet(xlsx, 3, "mode:img;api:2"); }, {"excel.Excel2Images:3"}, "pictures: Excel"},
      {[&] { control->ImportPPT(file("s.ppt"), ""); }, {"ppt.PPT2Images"}, "slides"},
  };
  for (const auto& c : cases) {
    c.call();
    expectCalls(c.calls, c.what);
    EXPECT_EQ(control->Status(), "ok") << "no local pictures: the flow ends inside the call";
  }
  EXPECT_EQ(control->Style(), "") << "a picture route leaves no style";
  EXPECT_EQ(control->Body(), "<p>made</p>");
}

TEST_F(EditorControl, ASecondEngineIsAskedOnlyAfterTheFirstFailedAndTheLastWordStays) {
  producers.failing = {"wps"};
  control->ImportWord(file("b.wps"), "mode:html;api:0");
  expectCalls({"wps.Word2HTML", "word.Word2HTML", "word.OptimizeHTML:import"}, "wps first for .wps");
  EXPECT_EQ(control->Error(), "");
  EXPECT_EQ(control->GetExcelWorkSheetName(file("s.et")), "excel-names");
  expectCalls({"wps.GetExcelWorkSheetName", "excel.GetExcelWorkSheetName"}, "sheet names");

  producers.failing = {"wps", "word"};
  control->ImportWord(file("c.docx"), "mode:html;api:0");
  expectCalls({"word.Word2HTML", "wps.Word2HTML"}, "both fail");
  EXPECT_EQ(control->Error(), "wps:failed");
  EXPECT_EQ(control->Status(), "ok");
}

TEST_F(EditorControl, UnbuiltEnginesFailWithTheCreationWord) {
  Velmora5 standard(context, standardProducers());
  standard.ImportWord(file("a.doc"), "mode:html;api:2");
  EXPECT_TRUE(standard.Error().startsWith("CreateObject:WPS.Application")) << standard.Error().toStdString();
  standard.Capture("");
  EXPECT_TRUE(standard.Error().startsWith("CreateObject:Velmora.Capture")) << standard.Error().toStdString();
  EXPECT_FALSE(standard.hasWorkUnderWay());
}

TEST_F(EditorControl, CaptureDefaultsToPngAndReportsCancelOrUploads) {
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
  control->LocalUpload(R"(<a href="file:///C:/docs/a.htm#part2">x</a> <a HREF = 'file:///home/u/b.html#top'>y</a>)");
  EXPECT_EQ(control->Body(), R"(<a href="#part2">x</a> <a HREF = '#top'>y</a>)");
  EXPECT_EQ(control->Status(), "ok");
  producers.printerExists = true;
  EXPECT_TRUE(control->IsPrinterExist());
  expectCalls({"IsPrinterExist:VelmoraPrinter"}, "the virtual printer's name");
}

}  // namespace
}  // namespace velmora
