#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <gtest/gtest.h>

#include "tests/common/TestSupport.h"

namespace velmora {
namespace {

// The command line's calls and how they end; how a call uploads is in tests/upload/cli_upload_test.cpp.
TEST(CommandLine, PrintsTheResultAndThePropertiesAndExitsWithHowTheCallEnded) {
  test::ScopedTempRoot temp;
  struct Case {
    QStringList args;
    int exitCode;
    const char* key;  // what has `value`: "result", a property, "stderr" (contains it) or "boolean" (the result is one)
    QString value;
  } cases[] = {
      {{"call", "Test"}, 0, "result", "Velmora"},
      {{"call", "Test"}, 0, "Version", "5.1.0.0"},
      {{"call", "IsPrinterExist"}, 0, "boolean", ""},
      {{"call", "ImportWord", temp.path() + "/missing.doc", "mode:html"}, 1, "Error", "InvalidFile:doc|docx|wps"},
      // The clipboard here is empty: no file list, so no upload starts and Status stays "".
      {{"call", "PasteFileList", ""}, 1, "Status", ""},
      {{"call", "PasteFileList", ""}, 1, "stderr", "started no work"},
      // What a script could not do either, and what the command line does not understand.
      {{"call", "Frobnicate"}, 2, "stderr", "doesn't support"},
      {{"--set", "LocalSize=1e12", "call", "Test"}, 2, "stderr", "Overflow"},
      {{"--set", "NoEquals", "call", "Test"}, 2, "stderr", "Property=Value"},
      {{"--bogus", "1", "call", "Test"}, 2, "stderr", "unknown option"},
      {{"--set", "LocalExt=png"}, 2, "stderr", "missing"},
      {{}, 2, "stderr", "usage"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.args.join(' ').toStdString());
    QProcess process;
    process.start(VELMORA_CLI, c.args);
    process.closeWriteChannel();
    ASSERT_TRUE(process.waitForFinished(60000));
    const QString err = QString::fromUtf8(process.readAllStandardError());
    const QJsonObject json = QJsonDocument::fromJson(process.readAllStandardOutput()).object();
    EXPECT_EQ(process.exitCode(), c.exitCode) << err.toStdString();
    if (QByteArray(c.key) == "stderr") EXPECT_TRUE(err.contains(c.value)) << err.toStdString();
    else if (QByteArray(c.key) == "boolean") EXPECT_TRUE(json["result"].isBool());
    else if (QByteArray(c.key) == "result") EXPECT_EQ(json["result"].toString(), c.value);
    else EXPECT_EQ(json["properties"][c.key].toString(), c.value);
  }
}

}  // namespace
}  // namespace velmora
