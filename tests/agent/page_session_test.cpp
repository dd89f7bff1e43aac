#include <gtest/gtest.h>

#include <QDir>
#include <QFileInfo>
#include <QPointer>

#include "agent/PageSession.h"
#include "control/Velmora5.h"
#include "server/Dispatch.h"
#include "core/ScriptError.h"
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
  Q_INVOKABLE void setSendUrl(const QString& value) {
    sendUrl = value;
    if (duringCall) duringCall();
  }
  QString sendUrl;
  std::function<void()> duringCall;

 signals:
  void OnCancel(const QString& s_Flag);
  void OnUpload(const QString& s_Flag, const QString& s_Value);
};

QVariantMap errorOf(const QVariantMap& reply) { return reply.value("error").toMap(); }

// What the session sent the page through its signals, in order.
struct Announced {
  explicit Announced(PageSession& session) {
    QObject::connect(&session, &PageSession::propertiesChanged, &context,
                     [this](int id, const QVariantMap& map) { changes.append({id, map}); });
    QObject::connect(&session, qOverload<int, const QString&, const QVariantList&>(&PageSession::event), &context,
                     [this](int id, const QString& name, const QVariantList& args) {
                       events << QStringLiteral("%1 %2(%3)").arg(id).arg(name, QVariant(args).toStringList().join(','));
                     });
  }
  QObject context;
  QList<QPair<int, QVariantMap>> changes;
  QStringList events;  // "id Name(arguments)"
};

class PageSessionTest : public ::testing::Test {
 protected:
  std::unique_ptr<PageSession> makeSession(const QString& name) {
    return std::make_unique<PageSession>(name, [this](const QString& className, Context& context) -> std::unique_ptr<QObject> {
      if (className == u"VelmoraMFU5") {
        auto control = std::make_unique<FakeUploadControl>();
        upload = control.get();
        return control;
      }
      if (className == u"Velmora5") return std::make_unique<Velmora5>(context, producers);
      return CreateControl(className, context, standardProducers());
    });
  }
  int create(PageSession& session, const QString& className = "Velmora5") {
    const QVariantMap reply = session.create(className);
    EXPECT_TRUE(reply.value("ok").toBool()) << qPrintable(errorOf(reply).value("description").toString());
    return reply.value("value").toInt();
  }

  test::ScopedTempRoot temp;
  test::FakeProducers producers;
  QPointer<FakeUploadControl> upload;
  std::unique_ptr<PageSession> session = makeSession("page-1");
};

// The page's client builds its controls from the type library: members by kind, events by name.
TEST_F(PageSessionTest, TheTypeLibraryNamesTheClassesTheirMembersAndEvents) {
  const QVariantList classes = session->typeLibrary().value("classes").toList();
  ASSERT_EQ(classes.size(), 2);
  EXPECT_EQ(classes[0].toMap().value("name"), "Velmora5");
  QMap<QString, QString> kinds;
  for (const QVariant& member : classes[0].toMap().value("dispatch").toMap().value("members").toList())
    kinds[member.toMap().value("name").toString()] = member.toMap().value("kind").toString();
  EXPECT_EQ(kinds.value("DialogOpen"), "method");
  EXPECT_EQ(kinds.value("Status"), "get");
  QStringList events;
  for (const QVariant& event : classes[1].toMap().value("events").toMap().value("members").toList())
    events << event.toMap().value("name").toString();
  EXPECT_EQ(events, (QStringList{"OnCancel", "OnUpload"}));
}

TEST_F(PageSessionTest, ControlsAreDrivenByIdAndScriptErrorsComeBackAsErrorMaps) {
  const QVariantMap created = session->create("velmora5");
  ASSERT_TRUE(created.value("ok").toBool());
  const int id = created.value("value").toInt();
  EXPECT_EQ(created.value("properties").toMap().value("Version"), "5.1.0.0") << "create answers every property";
  const QVariantMap test = session->invoke(id, "Test", {});
  EXPECT_EQ(test.value("value"), "Velmora");
  EXPECT_TRUE(test.value("properties").toMap().isEmpty()) << "nothing changed";
  EXPECT_TRUE(session->put(id, "LocalSize", "2048").value("ok").toBool());
  EXPECT_TRUE(session->invoke(id, "LocalUpload", {"<p>no pictures</p>"}).value("ok").toBool());
  EXPECT_EQ(session->get(id, "Body").value("value"), "<p>no pictures</p>");
  EXPECT_NE(create(*session), id) << "every control has its own id";

  const std::pair<QVariantMap, long> failures[] = {
      {session->put(id, "LocalSize", "99999999999"), errnum::Overflow},
      {session->get(id, "SendUrl"), errnum::PropertyOrMethodNotFound},
      {session->invoke(99, "Test", {}), 424},  // no such control
      {session->create("NoSuchClass"), 429},
  };
  for (const auto& [reply, number] : failures) {
    EXPECT_FALSE(reply.value("ok").toBool()) << number;
    EXPECT_EQ(errorOf(reply).value("number").toLongLong(), number);
  }
  EXPECT_EQ(errorOf(failures[0].first).value("description"), "Overflow");
  EXPECT_EQ(session->objectCount(), 2);
}

TEST_F(PageSessionTest, AControlNotSafeForPagesIsNeverCreated) {
  for (const bool scripting : {false, true}) {
    ObjectSafety answers;
    answers.safeForScripting = scripting;
    answers.safeForInitializing = !scripting;
    session->setSafetyAnswers(answers);
    const QVariantMap refused = errorOf(session->create("Velmora5"));
    EXPECT_EQ(refused.value("number").toLongLong(), 429);
    EXPECT_TRUE(refused.value("description").toString().contains("not marked safe")) << scripting;
  }
  EXPECT_EQ(session->objectCount(), 0);
}

TEST_F(PageSessionTest, ChangesReachThePageOnceAndTheSharedErrorTextReachesEveryControl) {
  const int first = create(*session);
  const int second = create(*session);
  Announced announced(*session);

  const QVariantMap reply = session->invoke(first, "ImportWord", {temp.path() + "/missing.doc", ""});
  const QVariantMap expected{{"Error", "InvalidFile:doc|docx|wps"}, {"Status", "ok"}};
  EXPECT_EQ(reply.value("properties").toMap(), expected);
  ASSERT_EQ(announced.changes.size(), 1) << "the other control of the page shares the error text";
  EXPECT_EQ(announced.changes[0].first, second);
  EXPECT_EQ(announced.changes[0].second, expected);

  EXPECT_TRUE(session->invoke(first, "Test", {}).value("properties").toMap().isEmpty()) << "already reported";
  EXPECT_EQ(announced.changes.size(), 1);
}

TEST_F(PageSessionTest, WorkThatEndsAfterTheCallIsAnnounced) {
  const int id = create(*session);
  Announced announced(*session);
  EXPECT_TRUE(session->invoke(id, "Capture", {""}).value("ok").toBool());
  ASSERT_TRUE(producers.lastCapture);
  emit producers.lastCapture->ReturnValue("cancel");
  ASSERT_TRUE(test::waitUntil([&] { return !announced.changes.isEmpty(); }));
  EXPECT_EQ(announced.changes[0].first, id);
  EXPECT_EQ(announced.changes[0].second, (QVariantMap{{"Error", "cancel"}, {"Status", "ok"}}));
}

TEST_F(PageSessionTest, EventsOfTheControlAreRelayedWithTheirArguments) {
  const int id = create(*session, "VelmoraMFU5");
  ASSERT_TRUE(upload);
  Announced announced(*session);
  emit upload->OnUpload("ok", "a.png|b.png");
  emit upload->OnCancel("cancel");
  EXPECT_EQ(announced.events, (QStringList{QString("%1 OnUpload(ok,a.png|b.png)").arg(id), QString("%1 OnCancel(cancel)").arg(id)}));
}

TEST_F(PageSessionTest, WithoutADisplayMembersThatShowAWindowFailAtOnce) {
  session->setHasDisplay(false);
  const int id = create(*session);
  for (const char* member : {"DialogOpen", "dialogsave", "Capture"}) {
    const QVariantMap reply = session->invoke(id, member, {});
    EXPECT_EQ(errorOf(reply).value("number").toLongLong(), errnum::InvalidProcedureCall) << member;
    EXPECT_TRUE(errorOf(reply).value("description").toString().contains("shows a window")) << member;
  }
  EXPECT_TRUE(producers.calls.isEmpty()) << "no capture started";
  EXPECT_TRUE(session->invoke(id, "Test", {}).value("ok").toBool());
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
  EXPECT_EQ(errorOf(session->invoke(id, "Test", {})).value("number").toLongLong(), 424);
  EXPECT_EQ(errorOf(session->release(id)).value("number").toLongLong(), 424);
}

TEST_F(PageSessionTest, EndingASessionDeletesItsOwnWorkingFolderOnly) {
  create(*session);
  const QString folder = session->workingFolder();
  EXPECT_EQ(folder, temp.path() + "/Velmora/page-1/");
  ASSERT_TRUE(QFileInfo(folder).isDir()) << "the control made it";
  temp.write("Velmora/page-1/picture.png", "png");

  auto other = makeSession("page-2");
  create(*other);
  EXPECT_TRUE(QFileInfo::exists(folder + "picture.png")) << "another page's control leaves this page's files alone";

  create(*session, "VelmoraMFU5");
  const QPointer<FakeUploadControl> uploadControl = upload;
  session.reset();
  EXPECT_FALSE(QFileInfo::exists(folder));
  EXPECT_TRUE(uploadControl.isNull()) << "its controls are freed";
  EXPECT_TRUE(QFileInfo(other->workingFolder()).isDir());
}

TEST(PageSessionNames, AWorkingSubfolderIsAPlainName) {
  for (const char* name : {"", ".", "..", "a/b", "../x", "a\\b"})
    EXPECT_THROW(PageSession{name}, std::invalid_argument) << name;
}

}  // namespace
}  // namespace velmora::agent

#include "page_session_test.moc"
