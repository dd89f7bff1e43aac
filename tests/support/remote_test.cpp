#include "support/basPublic.h"
#include "support/clsRemote.h"
#include "tests/common/Helpers.h"
#include "tests/common/HttpServer.h"

#include <QTcpServer>
#include <QTimer>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace velmora {
namespace {

const QString kText = u"<p>中文 café</p>\r\n"_s;

class GetRemotePage : public testing::Test {
 protected:
  void SetUp() override {
    server.route("/text", {200, kText.toUtf8(), "text/css; charset=utf-8"});
    server.route("/marked", {200,
                             "\xEF\xBB\xBF"
                             "body{}",
                             "text/css"});
    server.route("/empty", {200, ""});
    server.route("/created", {201, "made"});
    // The server writes the content type as given: a second header line rides along.
    server.route("/moved", {302, "", "text/plain\r\nLocation: /text"});
    server.route("/hang", {200, "", "text/plain", /*silent=*/true});
  }
  test::HttpServer server;
};

// Redirects are followed; a status other than 200 gives nothing (a 404 is the quick format's missing sheet).
TEST_F(GetRemotePage, Status200GivesTheBodyAsUtf8) {
  const std::pair<const char*, QString> cases[] = {
      {"/text", kText}, {"/marked", u"body{}"_s}, {"/moved", kText}, {"/empty", u""_s}, {"/created", u""_s}};
  for (const auto& [path, body] : cases) EXPECT_EQ(clsRemote().GetRemotePage(server.url(path)), body) << path;
}

TEST_F(GetRemotePage, ASilentServerIsGivenUpWhileTheEventLoopRuns) {
  int ticks = 0;
  QTimer timer;
  QObject::connect(&timer, &QTimer::timeout, [&] { ++ticks; });
  timer.start(10);
  EXPECT_EQ(clsRemote(300).GetRemotePage(server.url("/hang")), u""_s);
  EXPECT_GT(ticks, 0) << "timers ran while the caller waited";
}

TEST_F(GetRemotePage, WorksFromInsideACallbackOfAWait) {
  QString fetched;
  QTimer::singleShot(0, [&] { fetched = clsRemote().GetRemotePage(server.url("/text")); });
  for (int i = 0; i < 200 && fetched.isEmpty(); ++i) WaitMs(20);
  EXPECT_EQ(fetched, kText);
}

TEST(GetRemotePageFailures, RefusedConnectionsAndOtherAddressesGiveNothing) {
  QTcpServer probe;
  ASSERT_TRUE(probe.listen(QHostAddress::LocalHost));
  const QString refused = u"http://127.0.0.1:%1/text"_s.arg(probe.serverPort());
  probe.close();  // nothing listens there now
  for (const QString& address :
       {refused, u"not an address"_s, u"file:///etc/hostname"_s, u"ftp://127.0.0.1/x"_s, u"data:text/plain,hello"_s})
    EXPECT_EQ(clsRemote(5000).GetRemotePage(address), u""_s) << address;
}

}  // namespace
}  // namespace velmora
