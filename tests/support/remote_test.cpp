#include <QTcpServer>
#include <gtest/gtest.h>

#include "support/clsRemote.h"
#include "tests/common/HttpServer.h"

namespace velmora {
namespace {

TEST(RemotePage, OnlyA200AnswerGivesItsTextDecodedAsUtf8) {
  test::HttpServer server;
  server.route("/style.css", {200, "p { content: \"caf\xc3\xa9\" }"});
  server.route("/error", {500, "boom"});
  server.route("/empty", {200, ""});
  EXPECT_EQ(clsRemote().GetRemotePage(server.url("/style.css")), QString::fromUtf8("p { content: \"caf\xc3\xa9\" }"));
  EXPECT_EQ(clsRemote().GetRemotePage(server.url("/missing")), "");
  EXPECT_EQ(clsRemote().GetRemotePage(server.url("/error")), "");
  EXPECT_EQ(clsRemote().GetRemotePage(server.url("/empty")), "");
}

TEST(RemotePage, ASilentServerOrADeadAddressCannotHangTheCaller) {
  test::HttpServer server;
  server.route("/hang", {200, "", "", true});
  EXPECT_EQ(clsRemote(300).GetRemotePage(server.url("/hang")), "");

  QTcpServer probe;
  ASSERT_TRUE(probe.listen(QHostAddress::LocalHost, 0));
  const quint16 closedPort = probe.serverPort();
  probe.close();
  EXPECT_EQ(clsRemote(2000).GetRemotePage(QString("http://127.0.0.1:%1/x").arg(closedPort)), "");
  EXPECT_EQ(clsRemote(2000).GetRemotePage("not an address"), "");
  EXPECT_EQ(clsRemote(2000).GetRemotePage(""), "");
}

}  // namespace
}  // namespace velmora
