#include <QMetaMethod>
#include <gtest/gtest.h>

#include "control/Velmora5.h"
#include "server/Dispatch.h"
#include "server/ObjectSafety.h"
#include "core/ScriptError.h"
#include "tests/common/TestSupport.h"
#include "tests/control/FakeProducers.h"

namespace velmora {
namespace {

long errorNumberOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const ScriptError& error) {
    return error.number();
  }
  return 0;
}

class DispatchTest : public ::testing::Test {
 protected:
  test::ScopedTempRoot temp;
  Context context;
  test::FakeProducers producers;
  Velmora5 control{context, producers};
  Dispatch dispatch{control, *findClass("velmora5")};
};

TEST_F(DispatchTest, MembersAreFoundByNameWithoutRegardToCase) {
  EXPECT_EQ(dispatch.invoke("test", {}).toString(), "Velmora");
  EXPECT_EQ(dispatch.get("VERSION").toString(), "5.1.0.0");
  dispatch.put("lang", "ZH-TW");
  EXPECT_EQ(context.g_sLang, "zh-tw");
}

TEST_F(DispatchTest, WrongMembersAndArgumentsAreTheScriptsErrors) {
  EXPECT_EQ(errorNumberOf([&] { dispatch.invoke("NoSuchMember", {}); }), errnum::PropertyOrMethodNotFound);
  EXPECT_EQ(errorNumberOf([&] { dispatch.get("SendUrl"); }), errnum::PropertyOrMethodNotFound) << "write-only";
  EXPECT_EQ(errorNumberOf([&] { dispatch.put("Body", "x"); }), errnum::PropertyOrMethodNotFound) << "read-only";
  EXPECT_EQ(errorNumberOf([&] { dispatch.invoke("Test", {1}); }), errnum::WrongNumberOfArguments);
  EXPECT_EQ(errorNumberOf([&] { dispatch.invoke("ImportWord", {"a.doc"}); }), errnum::ArgumentNotOptional);
  EXPECT_EQ(errorNumberOf([&] { dispatch.invoke("ImportExcelSheet", {"a.xls", "two", ""}); }), errnum::TypeMismatch);
  EXPECT_EQ(errorNumberOf([&] { dispatch.invoke("ImportExcelSheet", {"a.xls", 40000, ""}); }), errnum::Overflow);
  EXPECT_EQ(errorNumberOf([&] { dispatch.put("LocalSize", "99999999999"); }), errnum::Overflow)
      << "an error the member raises reaches the script";
}

TEST_F(DispatchTest, ArgumentsAreConvertedTheAutomationWay) {
  temp.write("a.xls", "x");
  dispatch.invoke("ImportExcelSheet", {temp.path() + "/a.xls", "2.5", ""});
  EXPECT_EQ(producers.calls, QStringList({"excel.Excel2HTML:2"}));
  producers.calls.clear();
  dispatch.invoke("ImportExcelSheet", {temp.path() + "/a.xls", true, ""});
  EXPECT_EQ(producers.calls, QStringList({"excel.Excel2HTML:-1"}));

  EXPECT_EQ(coerce("TRUE", VarType::Bool), true);
  EXPECT_EQ(coerce("0", VarType::Bool), false);
  EXPECT_EQ(coerce(3, VarType::Bool), true);
  EXPECT_EQ(errorNumberOf([] { coerce("yes", VarType::Bool); }), errnum::TypeMismatch);
  EXPECT_EQ(coerce(12, VarType::String), "12");
  EXPECT_EQ(coerce(false, VarType::String), "False");
}

TEST_F(DispatchTest, ReadablePropertiesAreTheResultOfACall) {
  dispatch.invoke("LocalUpload", {"<p>x</p>"});
  const QVariantMap properties = dispatch.readableProperties();
  EXPECT_EQ(properties.keys(), QStringList({"Body", "Error", "OriginalFiles", "SavedFiles", "Status", "Style", "Version"}));
  EXPECT_EQ(properties["Body"], "<p>x</p>");
  EXPECT_EQ(properties["Status"], "ok");
}

TEST(TypeLibrary, DescribesBothControlsAndTheUploadEvents) {
  EXPECT_STREQ(typeLibrary().name, "Darrowin");
  const ClassInfo* editor = findClass("Velmora5");
  const ClassInfo* upload = findClass("VelmoraMFU5");
  ASSERT_TRUE(editor && upload);
  EXPECT_STREQ(editor->dispatch.name, "_Velmora5");
  EXPECT_STREQ(upload->dispatch.name, "_VelmoraMFU5");
  EXPECT_STREQ(upload->events.name, "__VelmoraMFU5");
  EXPECT_EQ(findMember(upload->events, "OnCancel", MemberKind::Event)->dispId, 1);
  EXPECT_EQ(findMember(upload->events, "OnUpload", MemberKind::Event)->dispId, 2);

  // Every member of the editor's interface is reachable on the object.
  Context context;
  test::ScopedTempRoot temp;
  Velmora5 control(context, standardProducers());
  for (const MemberInfo& member : editor->dispatch.members) {
    const QByteArray name = member.kind == MemberKind::PropertyPut ? QByteArray("set") + member.name : QByteArray(member.name);
    const bool found = member.kind == MemberKind::PropertyGet
                           ? control.metaObject()->indexOfProperty(name) >= 0
                           : [&] {
                               for (int i = 0; i < control.metaObject()->methodCount(); ++i)
                                 if (control.metaObject()->method(i).name() == name) return true;
                               return false;
                             }();
    EXPECT_TRUE(found) << member.name;
  }
}

TEST(ClassFactory, CreatesTheEditorAndRefusesUnknownClasses) {
  test::ScopedTempRoot temp;
  Context context;
  EXPECT_NE(qobject_cast<Velmora5*>(CreateControl("velmora5", context, standardProducers()).get()), nullptr);
  EXPECT_EQ(errorNumberOf([&] { CreateControl("Shell.Application", context, standardProducers()); }), 429);
}

TEST(ObjectSafety, DeclaresTheControlsSafeForScriptingAndInitialising) {
  ObjectSafety safetyAnswers;
  uint32_t supported = 0, enabled = 0;
  EXPECT_EQ(safetyAnswers.GetInterfaceSafetyOptions(iid::IDispatch, supported, enabled), hresult::S_OK);
  EXPECT_EQ(supported, 3u);
  EXPECT_EQ(enabled, 1u);
  EXPECT_EQ(safetyAnswers.GetInterfaceSafetyOptions(iid::IPersistPropertyBag.toLower(), supported, enabled),
            hresult::S_OK);
  EXPECT_EQ(enabled, 2u);
  EXPECT_EQ(safetyAnswers.GetInterfaceSafetyOptions("{00000000-0000-0000-0000-000000000001}", supported, enabled),
            hresult::E_NOINTERFACE);
  EXPECT_EQ(supported, 3u);

  EXPECT_EQ(safetyAnswers.SetInterfaceSafetyOptions(iid::IDispatchEx, 3, 1), hresult::S_OK);
  EXPECT_EQ(safetyAnswers.SetInterfaceSafetyOptions(iid::IDispatchEx, 3, 3), hresult::E_FAIL);
  EXPECT_EQ(safetyAnswers.SetInterfaceSafetyOptions(iid::IPersistStream, 2, 2), hresult::S_OK);
  EXPECT_EQ(safetyAnswers.SetInterfaceSafetyOptions(iid::IPersistStream, 1, 1), hresult::E_FAIL);
  EXPECT_EQ(safetyAnswers.SetInterfaceSafetyOptions("{x}", 1, 1), hresult::E_NOINTERFACE);

  safetyAnswers.safeForScripting = false;
  EXPECT_EQ(safetyAnswers.SetInterfaceSafetyOptions(iid::IDispatch, 1, 1), hresult::E_FAIL);
  safetyAnswers.GetInterfaceSafetyOptions(iid::IDispatch, supported, enabled);
  EXPECT_EQ(enabled, 0u);
}

}  // namespace
}  // namespace velmora
