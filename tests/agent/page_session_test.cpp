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
    QObject::connect(&session, qOverload<int, const QString&, const QVariantList&>(&PageSession::event), &context, [this](int id, const QString& name, const QVariantList& args) {
      events.append({id, name, args});
    });
  }
  struct Event {
    int id;
    QString name;
    QVariantList args;
  };
  QObject context;
  QList<QPair<int, QVariantMap>> changes;
  QList<Event> events;
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

TEST_F(PageSessionTest, TheTypeLibraryDescribesMembersTheirKindsAndDefaults) {
  const QVariantMap library = session->typeLibrary();
  EXPECT_EQ(library.value("name"), "Darrowin");
  const QVariantList classes = library.value("classes").toList();
  ASSERT_EQ(classes.size(), 2);
  const QVariantMap editor = classes[0].toMap();
  EXPECT_EQ(editor.value("name"), "Velmora5");
  QVariantMap dialogOpen, status;
  for (const QVariant& member : editor.value("dispatch").toMap().value("members").toList()) {
    if (member.toMap().value("name") == "DialogOpen") dialogOpen = member.toMap();
    if (member.toMap().value("name") == "Status") status = member.toMap();
  }
  EXPECT_EQ(dialogOpen.value("kind"), "method");
  EXPECT_EQ(dialogOpen.value("dispId"), 27);
  const QVariantList params = dialogOpen.value("params").toList();
  ASSERT_EQ(params.size(), 6);
  EXPECT_EQ(params[0].toMap().value("default"), QVariant(true));
  EXPECT_EQ(params[2].toMap().value("default"), QString("所有文件(*.*)|*.*"));
  EXPECT_EQ(params[3].toMap().value("default"), QVariant(1));
  EXPECT_EQ(params[3].toMap().value("type"), "int32");
  EXPECT_EQ(status.value("kind"), "get");
  const QVariantList events = classes[1].toMap().value("events").toMap().value("members").toList();
  ASSERT_EQ(events.size(), 2);
  EXPECT_EQ(events[1].toMap().value("name"), "OnUpload");
  EXPECT_EQ(events[1].toMap().value("dispId"), 2);
}

TEST_F(PageSessionTest, ControlsAreCreatedAndDrivenByIdThroughDispatch) {
  const QVariantMap created = session->create("velmora5");
  ASSERT_TRUE(created.value("ok").toBool());
  const int id = created.value("value").toInt();
  const QVariantMap properties = created.value("properties").toMap();
  EXPECT_EQ(properties.value("Version"), "5.1.0.0");
  EXPECT_EQ(properties.value("Status"), "");

  const QVariantMap test = session->invoke(id, "Test", {});
  EXPECT_TRUE(test.value("ok").toBool());
  EXPECT_EQ(test.value("value"), "Velmora");
  EXPECT_TRUE(test.value("properties").toMap().isEmpty()) << "nothing changed";

  EXPECT_TRUE(session->put(id, "LocalSize", "2048").value("ok").toBool());
  const QVariantMap upload = session->invoke(id, "LocalUpload", {"<p>no pictures</p>"});
  EXPECT_TRUE(upload.value("ok").toBool());
  EXPECT_EQ(session->get(id, "Body").value("value"), "<p>no pictures</p>");

  EXPECT_NE(create(*session), id) << "every control has its own id";
}

TEST_F(PageSessionTest, ScriptErrorsComeBackAsErrorMaps) {
  const int id = create(*session);
  const QVariantMap overflow = session->put(id, "LocalSize", "99999999999");
  EXPECT_FALSE(overflow.value("ok").toBool());
  EXPECT_EQ(errorOf(overflow).value("number").toLongLong(), errnum::Overflow);
  EXPECT_EQ(errorOf(overflow).value("description"), "Overflow");
  EXPECT_EQ(errorOf(session->get(id, "SendUrl")).value("number").toLongLong(), errnum::PropertyOrMethodNotFound);
  EXPECT_EQ(errorOf(session->invoke(99, "Test", {})).value("number").toLongLong(), 424) << "no such control";
  EXPECT_EQ(errorOf(session->create("NoSuchClass")).value("number").toLongLong(), 429);
  EXPECT_EQ(session->objectCount(), 1);
}

TEST_F(PageSessionTest, AControlNotSafeForPagesIsNeverCreated) {
  for (const bool scripting : {false, true}) {
    ObjectSafety answers;
    answers.safeForScripting = scripting;
    answers.safeForInitializing = !scripting;
    session->setSafetyAnswers(answers);
    const QVariantMap refused = session->create("Velmora5");
    EXPECT_EQ(errorOf(refused).value("number").toLongLong(), 429);
    EXPECT_TRUE(errorOf(refused).value("description").toString().contains("not marked safe")) << scripting;
  }
  EXPECT_EQ(session->objectCount(), 0);
  session->setSafetyAnswers(ObjectSafety());
  create(*session);
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
  ASSERT_EQ(announced.events.size(), 2);
  EXPECT_EQ(announced.events[0].id, id);
  EXPECT_EQ(announced.events[0].name, "OnUpload");
  EXPECT_EQ(announced.events[0].args, (QVariantList{"ok", "a.png|b.png"}));
  EXPECT_EQ(announced.events[1].name, "OnCancel");
  EXPECT_EQ(announced.events[1].args, QVariantList{"cancel"});
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

TEST_F(PageSessionTest, ReleaseFreesTheControl) {
  const int id = create(*session, "VelmoraMFU5");
  const QPointer<FakeUploadControl> control = upload;
  ASSERT_TRUE(control);
  EXPECT_TRUE(session->release(id).value("ok").toBool());
  EXPECT_TRUE(control.isNull());
  EXPECT_EQ(session->objectCount(), 0);
  EXPECT_EQ(errorOf(session->invoke(id, "Test", {})).value("number").toLongLong(), 424);
  EXPECT_EQ(errorOf(session->release(id)).value("number").toLongLong(), 424);
}

TEST_F(PageSessionTest, AControlReleasedDuringItsOwnCallLivesUntilTheCallReturns) {
  const int id = create(*session, "VelmoraMFU5");
  QPointer<FakeUploadControl> control = upload;
  bool aliveAfterRelease = false;
  bool idleRanEarly = false;
  bool idleRan = false;
  control->duringCall = [&] {
    EXPECT_TRUE(session->isBusy());
    session->whenIdle([&] { idleRan = true; });
    idleRanEarly = idleRan;
    EXPECT_TRUE(session->release(id).value("ok").toBool());
    aliveAfterRelease = !control.isNull();
  };
  EXPECT_TRUE(session->put(id, "SendUrl", "http://127.0.0.1/u?x=1").value("ok").toBool());
  EXPECT_TRUE(aliveAfterRelease);
  EXPECT_FALSE(idleRanEarly);
  EXPECT_TRUE(idleRan);
  EXPECT_TRUE(control.isNull()) << "freed once the call returned";
  EXPECT_FALSE(session->isBusy());
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
