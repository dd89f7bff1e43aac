#include <arpa/inet.h>
#include <grp.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QApplication>
#include <QFileInfo>
#include <QMessageBox>
#include <QTimer>
#include <QWebSocket>
#include <optional>
#include <string>

#include "agent/AgentServer.h"
#include "agent/OriginPrompt.h"
#include "host/HostProcess.h"
#include "tests/common/TestSupport.h"

namespace velmora::agent {
namespace {

constexpr char kOrigin[] = "http://127.0.0.1:9";
constexpr uid_t kNobody = 65534;

enum Handshake { kAccepted, kRefused, kFailed };

// The child's side of handshakeAs: system calls only, for the test process has Qt's threads.
[[noreturn]] void handshakeInChild(const std::string& request, quint16 port, std::optional<uid_t> user) {
  if (user && (setgroups(0, nullptr) != 0 || setgid(*user) != 0 || setuid(*user) != 0)) _exit(kFailed);
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  const timeval timeout{10, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
  sockaddr_in agent{};
  agent.sin_family = AF_INET;
  agent.sin_port = htons(port);
  agent.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(fd, reinterpret_cast<sockaddr*>(&agent), sizeof agent) != 0) _exit(kFailed);
  send(fd, request.data(), request.size(), MSG_NOSIGNAL);
  char answer[12];
  size_t got = 0;
  while (got < sizeof answer) {
    const ssize_t n = recv(fd, answer + got, sizeof answer - got, 0);
    if (n <= 0) break;
    got += size_t(n);
  }
  _exit(got == sizeof answer && std::string_view(answer, got) == "HTTP/1.1 101" ? kAccepted : kRefused);
}

// A raw WebSocket handshake from the allowed origin through a loopback Host, made by a child
// process running as `user` (this process's user when none).
Handshake handshakeAs(quint16 port, std::optional<uid_t> user) {
  const std::string request = "GET / HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
                              "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
                              "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nOrigin: " +
                              kOrigin + "\r\n\r\n";
  const pid_t child = fork();
  if (child == 0) handshakeInChild(request, port, user);
  int status = 0;
  // The agent answers on this process's event loop, which runs while the child waits.
  if (!test::waitUntil([&] { return waitpid(child, &status, WNOHANG) == child; }, 20000)) {
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
  }
  return WIFEXITED(status) ? Handshake(WEXITSTATUS(status)) : kFailed;
}

class AgentServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    server.setHasDisplay(false);
    ASSERT_TRUE(server.listen(0));
    QObject::connect(&server, &AgentServer::pageOpened, [this] { ++pagesOpened; });
  }
  std::unique_ptr<QWebSocket> openPage() {
    auto page = std::make_unique<QWebSocket>(kOrigin);
    page->open(QUrl(QStringLiteral("ws://127.0.0.1:%1").arg(server.port())));
    EXPECT_TRUE(test::waitUntil([&] { return page->state() == QAbstractSocket::ConnectedState; }));
    return page;
  }

  test::ScopedTempRoot temp;
  AgentServer server{{kOrigin}};
  int pagesOpened = 0;
};

TEST_F(AgentServerTest, OnlyTheAgentsOwnUserGetsIn) {
  if (geteuid() != 0) GTEST_SKIP() << "running a client as another user (nobody) needs root";
  EXPECT_EQ(handshakeAs(server.port(), kNobody), kRefused);
  EXPECT_EQ(pagesOpened, 0);
  EXPECT_EQ(handshakeAs(server.port(), std::nullopt), kAccepted);
  EXPECT_EQ(pagesOpened, 1);
}

// In frames under the limit only the message's size gives it away; in one frame, its header.
TEST_F(AgentServerTest, AMessageOverTheLimitClosesItsPageAlone) {
  server.setMaxMessageSize(1 << 20);
  for (const quint64 frameSize : {256 << 10, 4 << 20}) {
    SCOPED_TRACE(frameSize);
    const auto big = openPage(), other = openPage();
    big->setOutgoingFrameSize(frameSize);
    big->sendTextMessage(QString(2 << 20, u' '));
    EXPECT_TRUE(test::waitUntil([&] { return big->state() == QAbstractSocket::UnconnectedState; }));
    EXPECT_EQ(big->closeCode(), QWebSocketProtocol::CloseCodeTooMuchData);
    QString answer;
    QObject::connect(other.get(), &QWebSocket::textMessageReceived, [&](const QString& text) { answer = text; });
    other->sendTextMessage(R"({"type": 3, "id": 1})");  // QWebChannel's init
    EXPECT_TRUE(test::waitUntil([&] { return answer.contains(u"\"velmora\""); }));
  }
}

// Whether a page from `origin` gets through the door of the agent on `port`.
bool opens(quint16 port, const QString& origin) {
  QWebSocket page(origin);
  bool closed = false;
  QObject::connect(&page, &QWebSocket::disconnected, [&] { closed = true; });
  page.open(QUrl(QStringLiteral("ws://127.0.0.1:%1").arg(port)));
  test::waitUntil([&] { return closed || page.state() == QAbstractSocket::ConnectedState; });
  return page.state() == QAbstractSocket::ConnectedState;
}

// A page from an origin off the list is asked about once per run, and the answer holds.
TEST_F(AgentServerTest, AnOriginOffTheListGetsInAsTheUserAnswers) {
  const QString other = "https://editor.example";
  const struct {
    OriginAnswer answer;
    bool firstIn, againIn;
    int asked;
    bool remembered;
  } cases[] = {
      {OriginAnswer::AllowOnce, true, true, 1, false},
      {OriginAnswer::AlwaysAllow, true, true, 1, true},
      {OriginAnswer::Deny, false, false, 1, false},
      {OriginAnswer::NoAnswer, false, false, 2, false},  // asked again when the page comes back
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(int(c.answer));
    AgentServer agent{{kOrigin}};
    agent.setHasDisplay(false);
    ASSERT_TRUE(agent.listen(0));
    const QString settings = temp.path() + QStringLiteral("/config/velmora/agent-%1.json").arg(int(c.answer));
    int asked = 0;
    agent.setOriginPrompt(
        [&](const QString& origin) {
          ++asked;
          EXPECT_EQ(origin, other);
          return c.answer;
        },
        settings);
    EXPECT_EQ(opens(agent.port(), other), c.firstIn);
    EXPECT_EQ(opens(agent.port(), other), c.againIn);
    EXPECT_EQ(asked, c.asked);
    EXPECT_EQ(QFileInfo::exists(settings) && readAllowedOrigins(settings).contains(other), c.remembered);
    EXPECT_TRUE(opens(agent.port(), kOrigin)) << "the listed origin is never asked about";
    EXPECT_FALSE(opens(agent.port(), "null")) << "only an origin a browser sends is asked about";
    EXPECT_EQ(asked, c.asked);
  }
}

// The desktop question itself, answered by clicking each button, and by nobody.
TEST(OriginPrompt, EachButtonGivesItsAnswerAndSilenceGivesNone) {
  if (!velmora::hostHasDisplay()) GTEST_SKIP() << "needs a display";
  const QList<std::pair<QString, OriginAnswer>> buttons = {
      {"Allow once", OriginAnswer::AllowOnce}, {"Always", OriginAnswer::AlwaysAllow}, {"Deny", OriginAnswer::Deny}};
  for (const auto& [text, answer] : buttons) {
    QString question;
    QTimer clicker;  // looks until the question is on screen, however busy the machine
    QObject::connect(&clicker, &QTimer::timeout, [&, text = text] {
      for (QWidget* window : QApplication::topLevelWidgets()) {
        auto* box = qobject_cast<QMessageBox*>(window);
        if (!box || !box->isVisible()) continue;
        question = box->text();
        for (QAbstractButton* button : box->buttons())
          if (button->text() == text) button->click();
      }
    });
    clicker.start(50);
    EXPECT_EQ(askTheUserAbout("https://editor.example", std::chrono::seconds(20)), answer) << text.toStdString();
    EXPECT_EQ(question, "Allow https://editor.example to use Velmora on this computer?");
  }
  EXPECT_EQ(askTheUserAbout("https://editor.example", std::chrono::milliseconds(200)), OriginAnswer::NoAnswer);
}

}  // namespace
}  // namespace velmora::agent
