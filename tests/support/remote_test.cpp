#include "support/basPublic.h"
#include "support/clsRemote.h"

#include <QTcpServer>
#include <QTimer>

#include <gtest/gtest.h>
#include <httplib.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

using namespace Qt::StringLiterals;

namespace velmora {
namespace {

// A real HTTP server on 127.0.0.1, on its own threads so the Qt event loop of the test
// never waits for it.
class LocalServer {
 public:
  LocalServer() {
    server_.set_keep_alive_timeout(1);
    server_.Get("/text", [](const httplib::Request&, httplib::Response& res) {
      res.set_content("<p>中文 café</p>\r\n", "text/css; charset=utf-8");
    });
    server_.Get("/marked", [](const httplib::Request&, httplib::Response& res) {
      res.set_content("\xEF\xBB\xBF" "body{}", "text/css");
    });
    server_.Get("/empty", [](const httplib::Request&, httplib::Response& res) { res.status = 200; });
    server_.Get("/missing", [](const httplib::Request&, httplib::Response& res) {
      res.status = 404;
      res.set_content("not here", "text/plain");
    });
    server_.Get("/broken", [](const httplib::Request&, httplib::Response& res) {
      res.status = 500;
      res.set_content("server error", "text/plain");
    });
    server_.Get("/created", [](const httplib::Request&, httplib::Response& res) {
      res.status = 201;
      res.set_content("made", "text/plain");
    });
    server_.Get("/moved", [](const httplib::Request&, httplib::Response& res) { res.set_redirect("/text"); });
    server_.Get("/hang", [this](const httplib::Request&, httplib::Response& res) {
      std::unique_lock lock(mutex_);
      released_.wait_for(lock, std::chrono::seconds(20), [this] { return release_; });
      res.set_content("too late", "text/plain");
    });
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
  }
  ~LocalServer() {
    {
      std::lock_guard lock(mutex_);
      release_ = true;
    }
    released_.notify_all();
    server_.stop();
    thread_.join();
  }
  QString url(const char* path) const { return u"http://127.0.0.1:%1%2"_s.arg(port_).arg(QLatin1StringView(path)); }
  int port() const { return port_; }

 private:
  httplib::Server server_;
  int port_ = -1;
  std::thread thread_;
  std::mutex mutex_;
  std::condition_variable released_;
  bool release_ = false;
};

class GetRemotePage : public testing::Test {
 protected:
  void SetUp() override { ASSERT_GT(server.port(), 0); }
  LocalServer server;
};

// Redirects are followed; a status other than 200 gives nothing.
TEST_F(GetRemotePage, Status200GivesTheBodyAsUtf8) {
  const QString text = u"<p>中文 café</p>\r\n"_s;
  const struct {
    const char* path;
    QString body;
  } cases[] = {
      {"/text", text},     {"/marked", u"body{}"_s},  // a UTF-8 mark is not text
      {"/moved", text},    {"/empty", u""_s},   {"/missing", u""_s},
      {"/broken", u""_s},  {"/created", u""_s}, {"/no-route", u""_s},
  };
  for (const auto& c : cases) EXPECT_EQ(clsRemote().GetRemotePage(server.url(c.path)), c.body) << c.path;
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
  EXPECT_EQ(fetched, u"<p>中文 café</p>\r\n"_s);
}

TEST(GetRemotePageFailures, RefusedConnectionsAndOtherAddressesGiveNothing) {
  QTcpServer probe;
  ASSERT_TRUE(probe.listen(QHostAddress::LocalHost));
  const QString refused = u"http://127.0.0.1:%1/text"_s.arg(probe.serverPort());
  probe.close();  // nothing listens there now
  for (const QString& address : {refused, u""_s, u"not an address"_s, u"file:///etc/hostname"_s,
                                 u"ftp://127.0.0.1/x"_s, u"http://"_s, u"data:text/plain,hello"_s})
    EXPECT_EQ(clsRemote(5000).GetRemotePage(address), u""_s) << qPrintable(address);
}

}  // namespace
}  // namespace velmora
