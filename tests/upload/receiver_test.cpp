// The reference receiver stores what it is sent under its root and nowhere else.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QDirIterator>
#include <QElapsedTimer>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QRegularExpression>

#include <vector>

#include "tests/common/TestSupport.h"
#include "tests/upload/ReceiverProcess.h"

namespace velmora {
namespace {

using test::ReceiverProcess;
using test::waitUntil;

struct Answer {
  int status = 0;
  QByteArray body;
};

Answer request(const QString& method, const QString& url, const QByteArray& body = {},
               const QByteArray& contentType = {}) {
  static QNetworkAccessManager manager;
  QNetworkRequest request{QUrl(url, QUrl::StrictMode)};
  if (!contentType.isEmpty()) request.setRawHeader("Content-Type", contentType);
  QNetworkReply* reply = manager.sendCustomRequest(request, method.toLatin1(), body);
  waitUntil([&] { return reply->isFinished(); });
  Answer answer{reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), reply->readAll()};
  reply->deleteLater();
  return answer;
}

// The upload form with any bytes as the file name, built by hand so that nothing is
// escaped or checked on the way.
Answer uploadNamed(const ReceiverProcess& receiver, const QByteArray& fileName, const QByteArray& content = "data",
                   const QString& extraQuery = {}) {
  const QByteArray boundary = "---------------------------7d510000100000";
  const QByteArray body =
      "\r\n--" + boundary + "\r\nContent-Disposition: form-data; name=\"originalfile\"\r\n\r\n" + fileName + "\r\n--" +
      boundary + "\r\nContent-Disposition: form-data; name=\"uploadfile\"; filename=\"" + fileName +
      "\"\r\nContent-Type: application/octet-stream\r\n\r\n" + content + "\r\n--" + boundary + "--\r\n";
  return request("POST", receiver.url("/up?x=1&action=local&type=local&rnd=001" + extraQuery), body,
                 "multipart/form-data; boundary=" + boundary);
}

TEST(Receiver, HostileFileNamesAreStoredUnderTheRootWithSafeNames) {
  ReceiverProcess receiver;
  const QByteArray names[] = {"../../etc/passwd.png",
                              "/etc/passwd",
                              "..\\..\\windows\\x.png",
                              "C:\\Windows\\system32\\x.png",
                              QByteArray("a\0b/../../c.png", 15),
                              "..",
                              ".",
                              "",
                              ".hidden.png",
                              "a/../../../b.png",
                              "%2e%2e%2fencoded.png",
                              "x." + QByteArray(300, 'e'),
                              QByteArray(5000, 'n') + ".png",
                              "\xE5\x9B\xBE.png",
                              "with space & \"quote\".png"};
  const QRegularExpression address("^" + QRegularExpression::escape(receiver.url("/files/")) +
                                   "([0-9]{6}-[A-Za-z0-9_][A-Za-z0-9._-]{0,80})$");
  QStringList storedNames;
  for (const QByteArray& name : names) {
    const Answer answer = uploadNamed(receiver, name, "content of " + name.toHex());
    ASSERT_EQ(answer.status, 200) << name.toHex().toStdString();
    const QRegularExpressionMatch match = address.match(QString::fromLatin1(answer.body));
    ASSERT_TRUE(match.hasMatch()) << answer.body.toStdString();
    storedNames << match.captured(1);

    const Answer back = request("GET", QString::fromLatin1(answer.body));
    EXPECT_EQ(back.status, 200);
    EXPECT_EQ(back.body, "content of " + name.toHex());
  }
  QStringList found;
  for (QDirIterator it(receiver.folder(), QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot,
                       QDirIterator::Subdirectories);
       it.hasNext();)
    found << it.next().mid(receiver.folder().size() + 1);
  QStringList expected{"root"};
  for (const QString& name : storedNames) expected << "root/" + name;
  found.sort();
  expected.sort();
  EXPECT_EQ(found, expected) << "every file lands directly in the root, nothing anywhere else";
}

TEST(Receiver, ServesOnlyItsOwnFiles) {
  ReceiverProcess receiver;
  QFile secret(receiver.folder() + "/secret.txt");
  ASSERT_TRUE(secret.open(QIODevice::WriteOnly) && secret.write("secret") == 6);
  secret.close();
  QDir(receiver.root()).mkdir("sub");
  QFile::link(receiver.folder() + "/secret.txt", receiver.root() + "/link.png");

  for (const char* path : {"/files/..%2fsecret.txt", "/files/%2e%2e%2fsecret.txt", "/files/../secret.txt",
                           "/files/.%2e/secret.txt", "/files/link.png", "/files/sub", "/files/", "/files/.hidden",
                           "/files/nothing.png", "/secret.txt", "/files/..%5csecret.txt"}) {
    const Answer answer = request("GET", receiver.url(path));
    EXPECT_NE(answer.status, 200) << path;
    EXPECT_FALSE(answer.body.contains("secret\n") || answer.body == "secret") << path;
  }
}

// Nothing is kept of what is not the upload form.
TEST(Receiver, RefusesWhatIsNotTheUploadForm) {
  ReceiverProcess receiver({"--test-switches"});
  const QByteArray noFile = "\r\n--b\r\nContent-Disposition: form-data; name=\"originalfile\"\r\n\r\nx\r\n--b--\r\n";
  for (const char* query : {"?x=1&action=nothing", "?x=1&action=local", "?x=1&action=local&test-status=abc"})
    EXPECT_EQ(request("POST", receiver.url(QString("/up") + query), "a=b", "text/plain").status, 400) << query;
  EXPECT_EQ(request("POST", receiver.url("/up?action=local"), noFile, "multipart/form-data; boundary=b").status, 400);
  EXPECT_TRUE(QDir(receiver.root()).isEmpty());
}

// Clients that connect and then say nothing, or stop halfway through the request line,
// must not keep a real upload waiting for their timeouts.
TEST(Receiver, UploadsGoOnWhileManyConnectionsIdle) {
  constexpr int kIdle = 200;
  constexpr qint64 kHeaderTimeoutMs = 3000;  // the receiver's wait for a request's bytes
  ReceiverProcess receiver;
  const test::IdleConnections idle(quint16(QUrl(receiver.url("/")).port()), kIdle);
  ASSERT_EQ(idle.opened(), kIdle);
  QElapsedTimer clock;
  clock.start();
  const Answer answer = uploadNamed(receiver, "a.png");
  EXPECT_EQ(answer.status, 200);
  EXPECT_LT(clock.elapsed(), kHeaderTimeoutMs) << "the upload waited for idle connections to time out";
}

TEST(Receiver, QuerySwitchesNeedTheCommandLineFlag) {
  const struct {
    QStringList switches;
    QString query;
    int status;
  } cases[] = {
      {{}, "&test-status=503", 200},       {{"--test-switches"}, "&test-status=503", 503},
      {{}, "&test-status=abc", 200},       {{"--test-switches"}, "&test-status=abc", 400},
      {{"--test-status", "503"}, "", 503},  // the command line's own switches need no flag
  };
  for (const auto& c : cases) {
    ReceiverProcess receiver(c.switches);
    EXPECT_EQ(uploadNamed(receiver, "a.png", "data", c.query).status, c.status)
        << c.switches.join(' ').toStdString() << " " << c.query.toStdString();
  }
}

}  // namespace
}  // namespace velmora
