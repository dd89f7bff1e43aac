#include <gtest/gtest.h>
#include <httplib.h>

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include "agent/CleanupEndpoint.h"
#include "agent/DemoServer.h"
#include "support/basPublic.h"
#include "tests/common/TestSupport.h"

namespace velmora::agent {
namespace {

struct Reply {
  int status = 0;
  QJsonObject json;
};

// The demo server on a free port of 127.0.0.1, spoken to over real HTTP.
class DemoCleanupTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(server.bind(0));
    server.start(QStringLiteral("ws://127.0.0.1:1"));
  }
  // Posts `body` to /clean from `origin` (none when empty; the demo's own by default).
  Reply post(const std::string& body, std::string origin = "own") {
    httplib::Client client("127.0.0.1", server.port());
    client.set_read_timeout(60);
    httplib::Headers headers;
    if (!origin.empty()) headers.emplace("Origin", origin == "own" ? server.origin().toStdString() : origin);
    const httplib::Result result = client.Post("/clean", headers, body, "application/json");
    if (!result) ADD_FAILURE() << "no answer: " << httplib::to_string(result.error());
    if (!result) return {};
    return {result->status, QJsonDocument::fromJson(QByteArray::fromStdString(result->body)).object()};
  }

  test::ScopedTempRoot temp;
  DemoServer server{StaticFiles({}), QByteArray()};
};

TEST_F(DemoCleanupTest, TheDemoPageGetsWhatTheCommandLinePrints) {
  const QString word = test::testData("word/clipboard_format.txt");
  struct Case {
    QString file;
    QJsonObject options;  // each also the command line's --<name>
    QString css{};        // a WPS workbook's shared style sheet
  } cases[] = {
      {word, {{"engine", "word"}, {"source", "paste"}, {"opt", "optimizemode:2;opt2table:1"}}},
      {word, {{"engine", "wps-word"}, {"source", "paste"}, {"opt", "optimizemode:1"}}},
      {word, {{"engine", "excel"}, {"source", "import"}, {"opt", "optimizemode:1;opt1css:1"}}},
      {test::testData("excel/wps_sheet002.htm"),
       {{"engine", "wps-excel"}, {"opt", "optimizemode:1;opt1css:1"}},
       test::testData("excel/wps_stylesheet.css")},
      {word, {{"engine", "word"}}},  // left out, the source is "import" and there are no options (mode 2)
  };
  for (const Case& c : cases) {
    QJsonObject request = c.options;
    QStringList arguments;
    for (auto option = c.options.begin(); option != c.options.end(); ++option)
      arguments << "--" + option.key() << option.value().toString();
    request.insert("html", ReadTextFile(c.file));
    if (!c.css.isEmpty()) {
      request.insert("extraCss", ReadTextFile(c.css));
      arguments << "--extra-css" << c.css;
    }
    SCOPED_TRACE(arguments.join(' ').toStdString());
    const Reply reply = post(QJsonDocument(request).toJson().toStdString());
    ASSERT_EQ(reply.status, 200) << reply.json["error"].toString().toStdString();
    QProcess cli;
    cli.start(VELMORA_CLI, QStringList{"clean"} + arguments + QStringList{"--trace", c.file});
    ASSERT_TRUE(cli.waitForFinished(60000));
    EXPECT_EQ(cli.exitCode(), 0) << cli.readAllStandardError().toStdString();
    EXPECT_EQ(reply.json, QJsonDocument::fromJson(cli.readAllStandardOutput()).object());
    EXPECT_FALSE(reply.json["trace"].toArray().isEmpty());
  }
}

TEST_F(DemoCleanupTest, OnlyTheDemosOwnPageMayUseItAndABadRequestIsToldWhatIsWrong) {
  const std::string request = R"({"engine": "word", "html": "<p>x</p>"})";
  EXPECT_EQ(post(request).status, 200);
  const std::string localhost = "http://localhost:" + std::to_string(server.port());
  for (const std::string& origin : std::vector<std::string>{"http://editor.example", "null", localhost, ""}) {
    const Reply reply = post(request, origin);
    EXPECT_EQ(reply.status, 403) << origin;
    EXPECT_FALSE(reply.json["error"].toString().isEmpty());
  }
  const std::pair<std::string, const char*> bad[] = {
      {R"({"engine": "word", "html": )", "not JSON"},
      {R"(["word", "<p>x</p>"])", "JSON object"},
      {R"({"engine": "WORD", "html": "<p>x</p>"})", R"(unknown engine "WORD")"},
      {R"({"engine": "word", "source": "clipboard", "html": "<p>x</p>"})", R"("source" wants import or paste)"},
      {R"({"engine": "word", "opt": {"optimizemode": 1}, "html": "<p>x</p>"})", R"("opt" wants)"},
      {R"({"engine": "excel", "html": null})", R"("html" wants)"},
      {R"({"engine": "excel", "html": "x", "extraCss": "td {}"})", R"("extraCss" belongs to engine wps-excel)"},
  };
  for (const auto& [body, says] : bad) {
    const Reply reply = post(body);
    EXPECT_EQ(reply.status, 400) << body;
    const QString error = reply.json["error"].toString();
    EXPECT_TRUE(error.contains(QString::fromUtf8(says))) << error.toStdString();
  }
}

// Sent in one piece or chunked (the size known only while reading), a body beyond the limit is refused.
TEST_F(DemoCleanupTest, ABodyBeyondTheLimitIsRefusedHoweverItIsSent) {
  const std::string tooLarge(size_t(cleanupBodyLimit) + 1, ' ');
  EXPECT_EQ(post(tooLarge).status, 413);
  const httplib::Result chunked =
      httplib::Client("127.0.0.1", server.port())
          .Post(
              "/clean", {{"Origin", server.origin().toStdString()}},
              [&](size_t offset, httplib::DataSink& sink) {
                const size_t length = std::min<size_t>(1 << 20, tooLarge.size() - offset);
                return length ? sink.write(tooLarge.data() + offset, length) : (sink.done(), true);
              },
              "application/json");
  ASSERT_TRUE(chunked) << httplib::to_string(chunked.error());
  EXPECT_EQ(chunked->status, 413);

  std::string justFits = R"({"engine": "word", "html": "<p>x</p>"})";
  justFits.resize(size_t(cleanupBodyLimit), ' ');  // JSON may end in white space
  EXPECT_EQ(post(justFits).status, 200);
}

// Clients that connect and say nothing, or stop halfway through the request line, must not
// keep the page's own requests waiting for their timeouts.
TEST_F(DemoCleanupTest, ThePageIsServedWhileManyConnectionsIdle) {
  const test::IdleConnections idle(server.port(), 200);
  ASSERT_EQ(idle.opened(), 200);
  QElapsedTimer clock;
  clock.start();
  EXPECT_EQ(post(R"({"engine": "word", "html": "<p>x</p>"})").status, 200);
  EXPECT_LT(clock.elapsed(), 3000) << "the request waited for idle connections to time out";
}

}  // namespace
}  // namespace velmora::agent
