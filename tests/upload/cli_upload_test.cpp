// The command line uploads a page's pictures and prints the rewritten page once the uploads ended.
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <gtest/gtest.h>

#include "tests/common/TestSupport.h"
#include "tests/upload/ReceiverProcess.h"

namespace velmora {
namespace {

TEST(CommandLineUpload, LocalUploadFromStandardInputPrintsTheRewrittenBodyAndTheLists) {
  test::ScopedTempRoot temp;
  test::ReceiverProcess receiver;
  const QString a = temp.write("pics/a.png", "a"), b = temp.write("pics/b.gif", "b");
  const QString tooBig = temp.write("pics/too-big.jpg", QByteArray(2049 * 1024, 'x'));
  // Text in UTF-8, a link into a local page that becomes an in-page anchor, two pictures and one too large.
  const QString page = "<p>caf\u00e9 <a href=\"%1\">a</a><img src=\"%2\"><img src=\"%3\"><img src=\"file://%4\"></p>";

  QProcess cli;
  cli.start(VELMORA_CLI, {"--set", "SendUrl=" + receiver.url("/upload?page=7"), "--set", "LocalExt=png|jpg|gif",
                          "--set", "LocalSize=2048", "call", "LocalUpload", "-"});
  cli.write(page.arg("file:///C:/x.htm#a", "file://" + a, "file://" + b, tooBig).toUtf8());
  cli.closeWriteChannel();
  ASSERT_TRUE(test::waitUntil([&] { return cli.state() == QProcess::NotRunning; }, 60000));
  EXPECT_EQ(cli.exitCode(), 0) << cli.readAllStandardError().toStdString();

  const QJsonObject properties = QJsonDocument::fromJson(cli.readAllStandardOutput())["properties"].toObject();
  ASSERT_EQ(receiver.posts().size(), 2);
  EXPECT_TRUE(receiver.posts()[0].contains("/upload?page=7&action=local&type=local&rnd=001"));
  const QString first = receiver.url("/files/") + test::ReceiverProcess::field(receiver.posts()[0], "stored");
  const QString second = receiver.url("/files/") + test::ReceiverProcess::field(receiver.posts()[1], "stored");
  EXPECT_EQ(properties["Status"].toString(), "ok");
  EXPECT_EQ(properties["Error"].toString(), "");
  EXPECT_EQ(properties["Body"].toString(), page.arg("#a", first, second, tooBig));
  EXPECT_EQ(properties["OriginalFiles"].toString(), "a.png|b.gif");
  EXPECT_EQ(properties["SavedFiles"].toString(), first + "|" + second);
}

}  // namespace
}  // namespace velmora
