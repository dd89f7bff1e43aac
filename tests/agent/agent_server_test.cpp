#include <gtest/gtest.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <QWebSocket>

#include "agent/AgentServer.h"
#include "tests/common/TestSupport.h"

namespace velmora::agent {
namespace {

// A page's side of the door: raw QWebChannel messages over a real WebSocket.
struct Page {
  Page(quint16 port, const QString& origin) : socket(origin) {
    QObject::connect(&socket, &QWebSocket::connected, [this] { connected = true; });
    QObject::connect(&socket, &QWebSocket::disconnected, [this] { disconnected = true; });
    QObject::connect(&socket, &QWebSocket::textMessageReceived,
                     [this](const QString& text) { messages.append(QJsonDocument::fromJson(text.toUtf8()).object()); });
    socket.open(QUrl(QStringLiteral("ws://127.0.0.1:%1").arg(port)));
  }
  QWebSocket socket;
  bool connected = false;
  bool disconnected = false;
  QList<QJsonObject> messages;
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

// What a page does through the door is tested end to end in tests/web/agent_e2e.test.mjs.
TEST_F(AgentServerTest, OnlyAPageOfAnAllowedOriginGetsIn) {
  Page foreign(server.port(), "http://evil.example");
  ASSERT_TRUE(test::waitUntil([&] { return foreign.disconnected; }));
  EXPECT_FALSE(foreign.connected);
  EXPECT_EQ(server.pageCount(), 0);

  Page page(server.port(), "http://editor.example");
  ASSERT_TRUE(test::waitUntil([&] { return page.connected && server.pageCount() == 1; }));
  page.socket.sendTextMessage(R"({"type": 3, "id": 1})");  // the channel's "init"
  ASSERT_TRUE(test::waitUntil([&] { return !page.messages.isEmpty(); }));
  EXPECT_TRUE(page.messages.last()["data"].toObject().contains("velmora")) << "the session is published";
  page.socket.close();
  ASSERT_TRUE(test::waitUntil([&] { return server.pageCount() == 0; }));
}

TEST_F(AgentServerTest, AMessageThatIsNotJsonClosesThePage) {
  Page page(server.port(), "http://editor.example");
  ASSERT_TRUE(test::waitUntil([&] { return page.connected; }));
  page.socket.sendTextMessage("this is not JSON");
  ASSERT_TRUE(test::waitUntil([&] { return page.disconnected && server.pageCount() == 0; }));
  EXPECT_EQ(page.socket.closeCode(), QWebSocketProtocol::CloseCodeProtocolError);
}

}  // namespace
}  // namespace velmora::agent
