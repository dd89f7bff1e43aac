#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <gtest/gtest.h>

#include "tests/common/TestSupport.h"

namespace velmora {
namespace {

struct CliRun {
  int exitCode = -1;
  QJsonObject json;
  QString err;
};

class CommandLine : public ::testing::Test {
 protected:
  test::ScopedTempRoot temp;

  CliRun velmora(const QStringList& args, const QByteArray& input = {}) {
    QProcess process;
    process.start(VELMORA_CLI, args);
    process.write(input);
    process.closeWriteChannel();
    EXPECT_TRUE(process.waitForFinished(60000));
    CliRun run;
    run.exitCode = process.exitCode();
    run.json = QJsonDocument::fromJson(process.readAllStandardOutput()).object();
    run.err = QString::fromUtf8(process.readAllStandardError());
    return run;
  }
  static QString property(const CliRun& run, const char* name) {
    return run.json["properties"].toObject()[name].toString();
  }
};

TEST_F(CommandLine, CallsAMemberAndPrintsTheResultAndTheProperties) {
  const CliRun test = velmora({"call", "Test"});
  EXPECT_EQ(test.exitCode, 0) << test.err.toStdString();
  EXPECT_EQ(test.json["result"].toString(), "Velmora");
  EXPECT_EQ(property(test, "Version"), "5.1.0.0");
  EXPECT_EQ(property(test, "Status"), "");
}

TEST_F(CommandLine, SetsPropertiesAndReadsArgumentsFromStandardInput) {
  const CliRun run = velmora({"--set", "LocalExt=png", "--set", "LocalSize=10", "call", "LocalUpload", "-"},
                          "<p>caf\xc3\xa9 <a href=\"file:///C:/x.htm#a\">a</a></p>");
  EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
  EXPECT_EQ(property(run, "Body"), QString::fromUtf8("<p>caf\xc3\xa9 <a href=\"#a\">a</a></p>"));
  EXPECT_EQ(property(run, "Status"), "ok");
}

TEST_F(CommandLine, AFailedFlowExitsWithItsWordInError) {
  const CliRun run = velmora({"call", "ImportWord", temp.path() + "/missing.doc", "mode:html"});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(property(run, "Error"), "InvalidFile:doc|docx|wps");
}

TEST_F(CommandLine, APasteWithNothingToTakeEndsAtOnce) {
  // The clipboard here is empty: no file list, so no upload starts and Status stays "".
  const CliRun run = velmora({"call", "PasteFileList", ""});
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_EQ(property(run, "Status"), "");
  EXPECT_TRUE(run.err.contains("started no work")) << run.err.toStdString();
}

TEST_F(CommandLine, RefusesWhatAScriptCouldNotDo) {
  struct Case {
    QStringList args;
    const char* message;
  } cases[] = {
      {{"call", "Frobnicate"}, "doesn't support"},
      {{"call", "Test", "extra"}, "Wrong number of arguments"},
      {{"call", "ImportWord", "a.doc"}, "Argument not optional"},
      {{"call", "ImportExcelSheet", "a.xls", "x", ""}, "Type mismatch"},
      {{"--set", "LocalSize=1e12", "call", "Test"}, "Overflow"},
      {{"--set", "NoEquals", "call", "Test"}, "Property=Value"},
      {{"--bogus", "1", "call", "Test"}, "unknown option"},
      {{"--set", "LocalExt=png"}, "missing"},
      {{}, "usage"},
  };
  for (const Case& c : cases) {
    const CliRun run = velmora(c.args);
    EXPECT_EQ(run.exitCode, 2) << c.args.join(' ').toStdString();
    EXPECT_TRUE(run.err.contains(c.message)) << run.err.toStdString();
  }
}

TEST_F(CommandLine, BooleanResultsAreJsonBooleans) {
  const CliRun run = velmora({"call", "IsPrinterExist"});
  EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
  EXPECT_TRUE(run.json["result"].isBool());
}

}  // namespace
}  // namespace velmora
