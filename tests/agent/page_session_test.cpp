#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QPointer>
#include <QTimer>

#include "agent/PageSession.h"
#include "control/Velmora5.h"
#include "core/ScriptError.h"
#include "server/Dispatch.h"
#include "support/RegExp.h"
#include "tests/common/TestSupport.h"
#include "tests/control/FakeProducers.h"

namespace velmora::agent {
namespace {

// Stands in for the upload control: its events and one write-only property whose setter
// lets a test act while a call is on the stack.
class FakeUploadControl : public QObject {
  Q_OBJECT
  Q_PROPERTY(QString Version READ Version CONSTANT)

 public:
  QString Version() const { return QStringLiteral("5.1.0.0"); }
  Q_INVOKABLE void setSendUrl(const QString&) {
    if (duringCall) duringCall();
  }
  std::function<void()> duringCall;

 signals:
  void OnCancel(const QString& s_Flag);
  void OnUpload(const QString& s_Flag, const QString& s_Value);
};

long errorNumber(const QVariantMap& reply) { return reply.value("error").toMap().value("number").toLongLong(); }

class PageSessionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    QObject::connect(session.get(), &PageSession::propertiesChanged, &context, [this](int id, const QVariantMap& map) {
      changes.append({id, map});
    });
    QObject::connect(session.get(), qOverload<int, const QString&, const QVariantList&>(&PageSession::event), &context,
                     [this](int id, const QString& name, const QVariantList& args) {
                       events << QStringLiteral("%1 %2(%3)").arg(id).arg(name, QVariant(args).toStringList().join(','));
                     });
  }
  std::unique_ptr<PageSession> makeSession(const QString& name) {
    return std::make_unique<PageSession>(
        name, [this](const QString& className, Context& context) -> std::unique_ptr<QObject> {
          if (className == u"VelmoraMFU5") {
            auto control = std::make_unique<FakeUploadControl>();
            upload = control.get();
            return control;
          }
          return std::make_unique<Velmora5>(context, producers);
        });
  }
  int create(PageSession& session, const QString& className = "Velmora5") {
    const QVariantMap reply = session.create(className);
    EXPECT_TRUE(reply.value("ok").toBool()) << errorNumber(reply);
    return reply.value("value").toInt();
  }

  test::ScopedTempRoot temp;
  test::FakeProducers producers;
  QPointer<FakeUploadControl> upload;
  std::unique_ptr<PageSession> session = makeSession("page-1");
  // What the session sent the page through its signals, in order.
  QObject context;
  QList<QPair<int, QVariantMap>> changes;
  QStringList events;  // "id Name(arguments)"
};

// Driving a control through the session is tested end to end in tests/web/agent_e2e.test.mjs,
// the errors of the members themselves in tests/server/dispatch_test.cpp.
TEST_F(PageSessionTest, ScriptErrorsComeBackAsErrorMaps) {
  session->setHasDisplay(false);  // members that show a window fail at once, for nobody could see it
  const int id = create(*session);
  EXPECT_NE(create(*session), id) << "every control has its own id";

  const std::pair<QVariantMap, long> failures[] = {
      {session->put(id, "LocalSize", "99999999999"), errnum::Overflow},
      {session->invoke(99, "Test", {}), 424},  // no such control
      {session->invoke(id, "DialogOpen", {}), errnum::InvalidProcedureCall},
      {session->invoke(id, "dialogsave", {}), errnum::InvalidProcedureCall},
      {session->invoke(id, "Capture", {}), errnum::InvalidProcedureCall},
      // Without a display there is no clipboard: not an empty one.
      {session->invoke(id, "PasteImage", {}), errnum::InvalidProcedureCall},
      {session->invoke(id, "GetClipboardFlag", {}), errnum::InvalidProcedureCall},
  };
  for (const auto& [reply, number] : failures) EXPECT_EQ(errorNumber(reply), number);
  const auto description = [&](int i) {
    return failures[i].first.value("error").toMap().value("description").toString();
  };
  EXPECT_TRUE(description(2).contains("shows a window, and there is no desktop display"))
      << description(2).toStdString();
  EXPECT_TRUE(description(5).contains("reads the clipboard, and there is no desktop display"))
      << description(5).toStdString();
  EXPECT_TRUE(producers.calls.isEmpty()) << "no capture started";
  EXPECT_EQ(session->objectCount(), 2);
}

TEST_F(PageSessionTest, AControlNotSafeForPagesIsNeverCreated) {
  for (const bool scripting : {false, true}) {
    ObjectSafety answers;
    answers.safeForScripting = scripting;
    answers.safeForInitializing = !scripting;
    session->setSafetyAnswers(answers);
    const QVariantMap refused = session->create("Velmora5").value("error").toMap();
    EXPECT_EQ(refused.value("number").toLongLong(), 429);
    EXPECT_TRUE(refused.value("description").toString().contains("not marked safe")) << scripting;
  }
  EXPECT_EQ(session->objectCount(), 0);
}

// A change reaches the page once: in the reply to the call that made it, or announced when
// another control of the page shares it (the error text) or work goes on after the call.
TEST_F(PageSessionTest, ChangesReachThePageOnce) {
  const int first = create(*session), second = create(*session);
  const QVariantMap failed{{"Error", "InvalidFile:doc|docx|wps"}, {"Status", "ok"}};
  EXPECT_EQ(session->invoke(first, "ImportWord", {temp.path() + "/missing.doc", ""}).value("properties"), failed);
  EXPECT_EQ(changes, (QList<QPair<int, QVariantMap>>{{second, failed}}));
  EXPECT_TRUE(session->invoke(first, "Test", {}).value("properties").toMap().isEmpty()) << "already reported";

  changes.clear();
  EXPECT_TRUE(session->invoke(first, "Capture", {""}).value("ok").toBool());
  ASSERT_TRUE(producers.lastCapture);
  emit producers.lastCapture->ReturnValue("cancel");
  EXPECT_TRUE(test::waitUntil([&] { return changes.contains({first, {{"Error", "cancel"}}}); }));
}

// The page's client gives a control the events the type library names; the session relays them.
TEST_F(PageSessionTest, EventsOfTheControlAreNamedAndRelayedWithTheirArguments) {
  QStringList named;
  const QVariantList classes = session->typeLibrary()["classes"].toList();
  for (const QVariant& event : classes.value(1).toMap()["events"].toMap()["members"].toList())
    named << event.toMap()["name"].toString();
  EXPECT_EQ(named, (QStringList{"OnCancel", "OnUpload"}));
  const int id = create(*session, "VelmoraMFU5");
  ASSERT_TRUE(upload);
  emit upload->OnUpload("ok", "a.png|b.png");
  emit upload->OnCancel("cancel");
  EXPECT_EQ(events.join(' '), QString("%1 OnUpload(ok,a.png|b.png) %1 OnCancel(cancel)").arg(id));
}

TEST_F(PageSessionTest, AControlReleasedDuringItsOwnCallLivesUntilTheCallReturns) {
  const int id = create(*session, "VelmoraMFU5");
  QPointer<FakeUploadControl> control = upload;
  bool idleRan = false;
  control->duringCall = [&] {
    EXPECT_TRUE(session->isBusy());
    session->whenIdle([&] { idleRan = true; });
    EXPECT_FALSE(idleRan);
    EXPECT_TRUE(session->release(id).value("ok").toBool());
    EXPECT_FALSE(control.isNull()) << "alive while its call runs";
  };
  EXPECT_TRUE(session->put(id, "SendUrl", "http://127.0.0.1/u?x=1").value("ok").toBool());
  EXPECT_TRUE(idleRan);
  EXPECT_TRUE(control.isNull()) << "freed once the call returned";
  EXPECT_FALSE(session->isBusy());
  EXPECT_EQ(session->objectCount(), 0);
  EXPECT_EQ(errorNumber(session->invoke(id, "Test", {})), 424);
  EXPECT_EQ(errorNumber(session->release(id)), 424);
}

TEST_F(PageSessionTest, OnePagesLongWorkLeavesTheOtherPagesAnswering) {
  const auto other = makeSession("page-2");
  const int busy = create(*session), quick = create(*other);
  const ScopedRegExpTimeLimit limit(std::chrono::seconds(2));
  // Each character the anchor rule steps over scans to the end: seconds of work.
  const QString hostile = "<a href=\"file" + QString(400'000, u'#');
  QElapsedTimer clock;
  qint64 answeredAtMs = -1;
  QTimer::singleShot(300, Qt::PreciseTimer, [&] {
    if (other->invoke(quick, "Test", {}).value("value") == "Velmora") answeredAtMs = clock.elapsed();
  });
  clock.start();
  EXPECT_EQ(errorNumber(session->invoke(busy, "LocalUpload", {hostile})), errnum::RegExpGaveUp);
  EXPECT_LT(clock.elapsed(), 2200);
  EXPECT_GE(answeredAtMs, 300);
  EXPECT_LT(answeredAtMs, 400) << "the other page waited for the long work";
}

}  // namespace
}  // namespace velmora::agent

#include "page_session_test.moc"
