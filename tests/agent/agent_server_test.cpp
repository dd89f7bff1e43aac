#include <gtest/gtest.h>

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QWebSocket>

#include "agent/AgentServer.h"
#include "tests/common/TestSupport.h"

namespace velmora::agent {
namespace {

// A page's side of the door, spoken in raw QWebChannel messages over a real WebSocket.
class Page {
 public:
  Page(quint16 port, const QString& origin) : socket_(origin) {
    QObject::connect(&socket_, &QWebSocket::connected, [this] { connected = true; });
    QObject::connect(&socket_, &QWebSocket::disconnected, [this] { disconnected = true; });
    QObject::connect(&socket_, &QWebSocket::textMessageReceived, [this](const QString& text) {
      messages.append(QJsonDocument::fromJson(text.toUtf8()).object());
    });
    socket_.open(QUrl(QStringLiteral("ws://127.0.0.1:%1").arg(port)));
  }
  // Sends one channel message and answers the response to it.
  QJsonObject exchange(QJsonObject message) {
    message.insert("id", ++lastId_);
    socket_.sendTextMessage(QString::fromUtf8(QJsonDocument(message).toJson(QJsonDocument::Compact)));
    QJsonObject response;
    test::waitUntil([&] {
      for (const QJsonObject& m : messages)
        if (m.value("type").toInt() == 10 && m.value("id").toInt() == lastId_) response = m;
      return !response.isEmpty() || disconnected;
    });
    return response;
  }
  QWebSocket& socket() { return socket_; }

  bool connected = false;
  bool disconnected = false;
  QList<QJsonObject> messages;

 private:
  QWebSocket socket_;
  int lastId_ = 0;
};

class AgentServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    QString error;
    ASSERT_TRUE(server.listen(0, &error)) << qPrintable(error);
    server.setHasDisplay(false);
  }
  test::ScopedTempRoot temp;
  AgentServer server{{"http://editor.example"}};
};

TEST_F(AgentServerTest, AnAllowedPageDrivesControlsAndLeavesNothingBehind) {
  Page page(server.port(), "http://editor.example");
  ASSERT_TRUE(test::waitUntil([&] { return page.connected && server.pageCount() == 1; }));
  const QJsonObject init = page.exchange({{"type", 3}});
  EXPECT_TRUE(init.value("data").toObject().contains("velmora"));

  const QJsonObject created = page.exchange(
      {{"type", 6}, {"object", "velmora"}, {"method", "create"}, {"args", QJsonArray{"Velmora5"}}});
  const QJsonObject reply = created.value("data").toObject();
  ASSERT_TRUE(reply.value("ok").toBool());
  EXPECT_EQ(reply.value("properties").toObject().value("Version").toString(), "5.1.0.0");
  const int id = reply.value("value").toInt();
  const QJsonObject test = page.exchange(
      {{"type", 6}, {"object", "velmora"}, {"method", "invoke"}, {"args", QJsonArray{id, "Test", QJsonArray{}}}});
  EXPECT_EQ(test.value("data").toObject().value("value").toString(), "Velmora");

  const QStringList folders = QDir(temp.path() + "/Velmora").entryList(QDir::Dirs | QDir::NoDotAndDotDot);
  ASSERT_EQ(folders.size(), 1);
  EXPECT_TRUE(folders[0].startsWith("page-"));

  page.socket().close();
  ASSERT_TRUE(test::waitUntil([&] { return server.pageCount() == 0; }));
  EXPECT_TRUE(QDir(temp.path() + "/Velmora").entryList(QDir::Dirs | QDir::NoDotAndDotDot).isEmpty());
}

TEST_F(AgentServerTest, APageFromAnotherOriginNeverGetsIn) {
  Page page(server.port(), "http://evil.example");
  ASSERT_TRUE(test::waitUntil([&] { return page.disconnected; }));
  EXPECT_FALSE(page.connected);
  EXPECT_EQ(server.pageCount(), 0);
}

TEST_F(AgentServerTest, AMessageThatIsNotJsonClosesThePage) {
  Page page(server.port(), "http://editor.example");
  ASSERT_TRUE(test::waitUntil([&] { return page.connected; }));
  page.socket().sendTextMessage("this is not JSON");
  ASSERT_TRUE(test::waitUntil([&] { return page.disconnected && server.pageCount() == 0; }));
  EXPECT_EQ(page.socket().closeCode(), QWebSocketProtocol::CloseCodeProtocolError);
}

TEST(AgentServerPorts, ATakenPortIsReported) {
  AgentServer first({});
  QString error;
  ASSERT_TRUE(first.listen(0, &error));
  AgentServer second({});
  EXPECT_FALSE(second.listen(first.port(), &error));
  EXPECT_FALSE(error.isEmpty());
}

}  // namespace
}  // namespace velmora::agent
