#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "agent/Door.h"
#include "agent/SocketOwner.h"
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

// As a little-endian machine prints them: the agent listens on 127.0.0.1:8765 (223D) as user
// 1000; its clients' sockets are the rows whose remote end is that port.
TEST(SocketOwner, IsTheUserOfTheClientsRow) {
  const QByteArray tcp =
      "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode\n"
      "   0: 0100007F:223D 00000000:0000 0A 00000000:00000000 00:00000000 00000000  1000        0 11\n"
      "   1: 0100007F:223D 0100007F:9C40 01 00000000:00000000 00:00000000 00000000  1000        0 12\n"
      "   2: 0100007F:9C40 0100007F:223D 01 00000000:00000000 00:00000000 00000000  1001        0 13\n"
      "   3: 0100007F:9C41 0100007F:223D 06 00000000:00000000 03:00001770 00000000     0        0 0\n"
      "   4: 0100007F:9C42 0100007F:223D 01 00000000:00000000 00:00000000 00000000 65534        0 14\n";
  const QByteArray tcp6 =
      "  sl  local_address                         remote_address                        st tx_queue rx_queue tr "
      "tm->when retrnsmt   uid  timeout inode\n"
      "   0: 0000000000000000FFFF00000100007F:9C50 0000000000000000FFFF00000100007F:223D 01 00000000:00000000 "
      "00:00000000 00000000  1002        0 15\n"
      "   1: 00000000000000000000000001000000:9C60 00000000000000000000000001000000:223D 01 00000000:00000000 "
      "00:00000000 00000000  1003        0 16\n";
  const QHostAddress ipv4(QHostAddress::LocalHost), ipv6(QHostAddress::LocalHostIPv6);
  const struct {
    QHostAddress client;
    quint16 clientPort;
    QHostAddress server;
    quint16 serverPort;
    std::optional<uid_t> owner;
  } cases[] = {
      {ipv4, 40000, ipv4, 8765, 1001},  // the client's row, not the agent's own one the other way round
      {ipv4, 40002, ipv4, 8765, 65534},
      {QHostAddress("::ffff:127.0.0.1"), 40000, ipv4, 8765, 1001},
      {ipv4, 40016, ipv4, 8765, 1002},  // an IPv4-mapped row of tcp6
      {ipv6, 40032, ipv6, 8765, 1003},
      {ipv4, 40001, ipv4, 8765, std::nullopt},  // TIME_WAIT: the connection is gone
      {ipv4, 40003, ipv4, 8765, std::nullopt},
      {ipv4, 40000, ipv4, 8766, std::nullopt},
      {ipv6, 40000, ipv6, 8765, std::nullopt},
  };
  for (const auto& c : cases)
    EXPECT_EQ(socketOwner(tcp, tcp6, c.client, c.clientPort, c.server, c.serverPort), c.owner)
        << c.client.toString().toStdString() << ':' << c.clientPort;
  EXPECT_EQ(socketOwner("", "", ipv4, 40000, ipv4, 8765), std::nullopt);
}

}  // namespace
}  // namespace velmora::agent
