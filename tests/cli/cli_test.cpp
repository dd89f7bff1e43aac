#include <gtest/gtest.h>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include "tests/common/TestSupport.h"
#include "tests/upload/ReceiverProcess.h"

namespace velmora {
namespace {

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
      // The command runs without a display here, so there is no clipboard to read.
      {{"call", "PasteFileList", ""}, 2, "stderr", "reads the clipboard, and there is no desktop display"},
      // A rule that takes seconds on this input (each character it steps over scans to the end).
      {{"--timeout", "1", "call", "LocalUpload", "<a href=\"file" + QString(100'000, u'#')},
       4,
       "stderr",
       "did not finish within 1 s"},
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
    if (QByteArray(c.key) == "stderr")
      EXPECT_TRUE(err.contains(c.value)) << err.toStdString();
    else if (QByteArray(c.key) == "boolean")
      EXPECT_TRUE(json["result"].isBool());
    else if (QByteArray(c.key) == "result")
      EXPECT_EQ(json["result"].toString(), c.value);
    else
      EXPECT_EQ(json["properties"][c.key].toString(), c.value);
  }
}

// A call whose work goes on after it returns: the page is printed once its uploads ended. Which
// references are rewritten, and which files are sent, is the upload tests'.
TEST(CommandLineUpload, LocalUploadFromStandardInputPrintsTheRewrittenBodyAndTheLists) {
  test::ScopedTempRoot temp;
  test::ReceiverProcess receiver;
  const QString a = temp.write("pics/a.png", test::asPicture("a.png")),
                b = temp.write("pics/b.gif", test::asPicture("b.gif"));
  const QString page = "<p>caf\u00e9 <img src=\"%1\"><img src=\"%2\"></p>";  // text in UTF-8

  QProcess cli;
  cli.start(VELMORA_CLI, {"--set", "SendUrl=" + receiver.url("/upload?page=7"), "--set", "LocalExt=png|gif", "--set",
                          "LocalSize=2048", "call", "LocalUpload", "-"});
  cli.write(page.arg("file://" + a, "file://" + b).toUtf8());
  cli.closeWriteChannel();
  ASSERT_TRUE(test::waitUntil([&] { return cli.state() == QProcess::NotRunning; }, 60000));
  EXPECT_EQ(cli.exitCode(), 0) << cli.readAllStandardError().toStdString();

  const QJsonObject properties = QJsonDocument::fromJson(cli.readAllStandardOutput())["properties"].toObject();
  ASSERT_EQ(receiver.posts().size(), 2);
  EXPECT_TRUE(receiver.posts()[0].contains("/upload?page=7&action=local&type=local&rnd=001"));
  QStringList stored;
  for (const QString& post : receiver.posts())
    stored << receiver.url("/files/") + test::ReceiverProcess::field(post, "stored");
  EXPECT_EQ(properties["Error"].toString(), "");
  EXPECT_EQ(properties["Body"].toString(), page.arg(stored[0], stored[1]));
  EXPECT_EQ(properties["OriginalFiles"].toString(), "a.png|b.gif");
  EXPECT_EQ(properties["SavedFiles"].toString(), stored.join('|'));
}

}  // namespace
}  // namespace velmora
