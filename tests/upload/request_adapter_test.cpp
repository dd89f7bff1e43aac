#include <gtest/gtest.h>

#include "platform/XmlHttpRequest.h"
#include "tests/common/HttpServer.h"
#include "tests/common/TestSupport.h"
#include "tests/upload/ReceiverProcess.h"
#include "upload/clsXmlHttpPost.h"

namespace velmora {
namespace {

using test::waitUntil;

// A request with the ready states it went through.
struct Recorded {
  XmlHttpRequestPtr request;
  QList<int> states;

  Recorded() {
    Result<XmlHttpRequestPtr> created = XmlHttpRequest::create();
    if (!created) ADD_FAILURE() << created.failure().description.toStdString();
    request = std::move(created.value());
    QObject::connect(request.get(), &XmlHttpRequest::OnReadyStateChange, [this] { states << request->readyState(); });
  }
  bool complete() const { return request->readyState() == XmlHttpRequest::Completed; }
};

// Posts a one-file form to `url` without waiting for the answer.
void postForm(Recorded& r, const QString& url) {
  clsXmlHttpPost post;
  (void)post.AddForm("originalfile", "/pics/a.png");
  (void)post.AddFile("uploadfile", "/pics/a.png", QByteArray("png bytes"));
  (void)post.AddEnd();
  ASSERT_TRUE(r.request->Open("POST", url, true));
  ASSERT_TRUE(r.request->setRequestHeader("Content-Type", post.ContentType()));
  ASSERT_TRUE(r.request->send(post.Data()));
}

TEST(RequestAdapter, PostsAsynchronouslyReportingEveryReadyStateAndAbortsSilently) {
  test::ReceiverProcess receiver({"--test-switches"});
  Recorded r;
  postForm(r, receiver.url("/up?x=1&action=local&type=local&rnd=001"));
  ASSERT_TRUE(waitUntil([&] { return r.complete(); }));
  EXPECT_EQ(r.states.first(), XmlHttpRequest::Loading);
  EXPECT_EQ(r.states.value(1), XmlHttpRequest::Loaded);
  EXPECT_EQ(r.states.last(), XmlHttpRequest::Completed);
  EXPECT_EQ(r.request->Status(), 200);
  const Result<QString> answer = r.request->responseText();
  ASSERT_TRUE(answer);
  EXPECT_TRUE(answer.value().startsWith(receiver.url("/files/000001-a.png")));
  EXPECT_EQ(r.request->responseBody(), answer.value().toUtf8());

  Recorded aborted;
  postForm(aborted, receiver.url("/up?action=local&test-fault=silent"));
  ASSERT_TRUE(receiver.waitForPosts(2));
  const QList<int> statesBefore = aborted.states;
  aborted.request->abort();
  EXPECT_EQ(aborted.request->readyState(), XmlHttpRequest::Uninitialized);
  waitUntil([] { return false; }, 200);  // anything still queued would arrive now
  EXPECT_EQ(aborted.states, statesBefore);
}

// A server that drops the connection once it has read a request may have acted on it (a
// receiver stores the file before it answers): the request fails and is never sent again,
// neither on a fresh connection nor after one kept alive from an earlier answer.
TEST(RequestAdapter, APostWhoseConnectionDropsIsNeverSentTwice) {
  test::HttpServer server;
  server.route("/ok", {200, "fine", "text/plain", false, /*keepAlive=*/true});
  server.route("/drop", {200, "", "text/plain", false, false, /*drops=*/true});
  for (const char* first : {"", "/ok"}) {
    SCOPED_TRACE(first);
    const int before = server.requestsFor("/drop");
    if (*first) {
      Recorded opening;
      postForm(opening, server.url(first));
      ASSERT_TRUE(waitUntil([&] { return opening.complete(); }));
    }
    Recorded dropped;
    postForm(dropped, server.url("/drop"));
    ASSERT_TRUE(waitUntil([&] { return dropped.complete(); }));
    EXPECT_NE(dropped.request->Status(), 200);
    waitUntil([] { return false; }, 300);  // a second sending would arrive now
    EXPECT_EQ(server.requestsFor("/drop"), before + 1);
  }
}

// How refused, cut and failed requests end an upload is in upload_transport_test.cpp.
TEST(RequestAdapter, RefusesWhatIsNotAnHttpRequest) {
  Recorded r;
  for (const char* url : {"http://127.0.0.1:99999/up?x=1", "no address at all?x=1", "ftp://127.0.0.1/up?x=1",
                          "http://[::1/up", "http:///up?x=1", ""}) {
    const Outcome opened = r.request->Open("POST", url, true);
    ASSERT_FALSE(opened) << url;
    EXPECT_FALSE(opened.failure().description.isEmpty()) << url;
  }
  EXPECT_FALSE(r.request->Open("PO ST", "http://127.0.0.1/", true));
  EXPECT_TRUE(r.states.isEmpty());
}

TEST(RequestAdapter, ResponseTextFollowsTheAnswersCharset) {
  test::HttpServer server;
  server.route("/gb", {200, "\xCD\xBC\xC6\xAC", "text/plain; charset=\"GB2312\""});
  server.route("/plain", {200, "caf\xC3\xA9", "text/plain"});
  server.route("/bom", {200, QByteArray("\xFF\xFE\x41\x00", 4), "text/plain; charset=gb2312"});
  server.route("/unknown", {200, "abc", "text/plain; charset=x-no-such"});
  const auto fetch = [&](const QByteArray& path) {
    Recorded r;  // synchronous: complete once send returns
    EXPECT_TRUE(r.request->Open("GET", server.url(path), false) && r.request->send(QByteArray()) && r.complete());
    const Result<QString> text = r.request->responseText();
    return text ? text.value() : QStringLiteral("failure: ") + text.failure().description;
  };
  EXPECT_EQ(fetch("/gb"), QString::fromUtf8("\xE5\x9B\xBE\xE7\x89\x87"));
  EXPECT_EQ(fetch("/plain"), QString::fromUtf8("caf\xC3\xA9"));
  EXPECT_EQ(fetch("/bom"), "A") << "a byte-order mark wins over the header";
  EXPECT_TRUE(fetch("/unknown").startsWith("failure: ")) << fetch("/unknown").toStdString();
  EXPECT_TRUE(fetch("/unknown").contains("x-no-such"));
}

}  // namespace
}  // namespace velmora
