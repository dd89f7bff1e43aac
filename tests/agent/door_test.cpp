#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "agent/Door.h"
#include "tests/common/TestSupport.h"

namespace velmora::agent {
namespace {

// How a well-formed head is read shows in DoorPolicy below and in the browser test's handshakes.
TEST(RequestHead, MalformedHeadsAreNotRequests) {
  EXPECT_FALSE(parseRequestHead("GET / HTTP/1.1\r\nHost: a\r\n")) << "no blank line yet";
  EXPECT_FALSE(parseRequestHead("GET / HTTP/1.1\nHost: a\r\n\r\n")) << "bare line feed";
  EXPECT_FALSE(parseRequestHead("GET / HTTP/1.1\r\nHost: a\r\n Origin: b\r\n\r\n")) << "folded line";
  EXPECT_FALSE(parseRequestHead("GET / HTTP/1.1\r\n: no name\r\n\r\n"));
  EXPECT_FALSE(parseRequestHead("GET / HTTP/1.1\r\nHo st: a\r\n\r\n"));
  EXPECT_FALSE(parseRequestHead("GET /\r\nHost: a\r\n\r\n"));
  EXPECT_FALSE(parseRequestHead("GET / SPDY/3\r\n\r\n"));
  EXPECT_FALSE(parseRequestHead(QByteArray("GET / HTTP/1.1\r\nHost: a\0b\r\n\r\n", 29)));
  EXPECT_FALSE(parseRequestHead(""));
}

TEST(Origins, AreNormalizedTheWayBrowsersSendThem) {
  EXPECT_EQ(normalizeOrigin("http://127.0.0.1:8766"), "http://127.0.0.1:8766");
  EXPECT_EQ(normalizeOrigin("HTTP://Editor.Example.COM/"), "http://editor.example.com");
  EXPECT_EQ(normalizeOrigin("https://editor.example.com:443"), "https://editor.example.com");
  EXPECT_EQ(normalizeOrigin("http://editor.example.com:80"), "http://editor.example.com");
  EXPECT_EQ(normalizeOrigin("https://editor.example.com:8443"), "https://editor.example.com:8443");
  EXPECT_EQ(normalizeOrigin("http://[::1]:8766"), "http://[::1]:8766");
  EXPECT_EQ(normalizeOrigin("http://bücher.example"), "http://xn--bcher-kva.example");
  for (const char* notAnOrigin :
       {"", "null", "file:///home/u/page.html", "http://a.example/editor", "http://a.example?x=1",
        "http://user@a.example", "ftp://a.example", "a.example", "http://"})
    EXPECT_EQ(normalizeOrigin(notAnOrigin), "") << notAnOrigin;
}

TEST(Hosts, OnlyLoopbackNamesWithTheAgentsPortPass) {
  for (const char* host : {"127.0.0.1:8765", "localhost:8765", "LocalHost:8765", "[::1]:8765"})
    EXPECT_TRUE(isLoopbackHost(host, 8765)) << host;
  for (const char* host : {"evil.example:8765", "evil.example", "127.0.0.1", "127.0.0.1:8766", "127.0.0.1:",
                           "localhost.:8765", "127.0.0.2:8765", "0.0.0.0:8765", "[::1]", "[::1]8765", "::1:8765",
                           "127.0.0.1:+8765", "127.0.0.1:08765x", "localhost:8765@evil.example", "", "[::1]:"})
    EXPECT_FALSE(isLoopbackHost(host, 8765)) << host;
  EXPECT_TRUE(isLoopbackHost("localhost", 80)) << "port 80 may be left out";
}

TEST(DoorPolicy, AdmitsAllowedOriginsThroughLoopbackHostsOnly) {
  const DoorPolicy policy(8765, {"HTTP://127.0.0.1:8766/", "https://editor.example.com", "not an origin"});
  EXPECT_EQ(policy.allowedOrigins(), (QStringList{"http://127.0.0.1:8766", "https://editor.example.com"}));

  const auto refusal = [&](const QList<QByteArray>& fields) {
    const QByteArray head = "GET / HTTP/1.1\r\n" + fields.join("\r\n") + "\r\nUpgrade: websocket\r\n\r\n";
    return policy.refusal(*parseRequestHead(head));
  };
  EXPECT_EQ(refusal({"Host: 127.0.0.1:8765", "Origin: http://127.0.0.1:8766"}), "");
  EXPECT_EQ(refusal({"Host: localhost:8765", "Origin: https://editor.example.com"}), "");

  EXPECT_EQ(refusal({"Origin: http://127.0.0.1:8766"}), "no Host header");
  EXPECT_EQ(refusal({"Host: 127.0.0.1:8765", "Host: evil.example", "Origin: http://127.0.0.1:8766"}),
            "more than one Host header");
  EXPECT_EQ(refusal({"Host: rebound.evil.example:8765", "Origin: http://127.0.0.1:8766"}),
            "Host \"rebound.evil.example:8765\" is not a loopback name with port 8765");
  EXPECT_EQ(refusal({"Host: 127.0.0.1:8765"}), "no Origin header");
  EXPECT_EQ(refusal({"Host: 127.0.0.1:8765", "Origin: http://127.0.0.1:8766", "Origin: http://evil.example"}),
            "more than one Origin header");
  EXPECT_EQ(refusal({"Host: 127.0.0.1:8765", "Origin: http://evil.example"}),
            "Origin \"http://evil.example\" is not on the allowlist");
  EXPECT_EQ(refusal({"Host: 127.0.0.1:8765", "Origin: null"}), "Origin \"null\" is not on the allowlist");
  // Browsers send an origin exactly; a variant of an allowed one is some other client's.
  EXPECT_NE(refusal({"Host: 127.0.0.1:8765", "Origin: http://127.0.0.1:8766/"}), "");
  EXPECT_NE(refusal({"Host: 127.0.0.1:8765", "Origin: http://localhost:8766"}), "");

  EXPECT_FALSE(DoorPolicy(8765, {}).isOriginAllowed("http://127.0.0.1:8766")) << "nothing is allowed by default";
}

TEST(Settings, NameTheAllowedOrigins) {
  test::ScopedTempRoot temp;
  const QString good =
      temp.write("good.json", R"({"allowedOrigins": ["https://editor.example.com", "http://127.0.0.1:9000"]})");
  EXPECT_EQ(readAllowedOrigins(good), (QStringList{"https://editor.example.com", "http://127.0.0.1:9000"}));

  const std::pair<QString, std::string> broken[] = {
      {temp.path() + "/missing.json", "missing.json"},
      {temp.write("broken.json", "{\"allowedOrigins\": ["), "broken.json"},
      {temp.write("list.json", R"(["http://a.example"])"), "wants {\"allowedOrigins\""},
      {temp.write("path.json", R"({"allowedOrigins": ["http://a.example/editor"]})"),
       "not an origin: [\"http://a.example/editor\"]"}};
  using testing::HasSubstr;
  for (const auto& [file, says] : broken)
    EXPECT_THAT([&] { readAllowedOrigins(file); }, testing::ThrowsMessage<std::runtime_error>(HasSubstr(says)));
}

}  // namespace
}  // namespace velmora::agent
