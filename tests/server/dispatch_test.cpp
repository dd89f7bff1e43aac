#include <gtest/gtest.h>
#include <QMetaMethod>

#include "control/Velmora5.h"
#include "core/ScriptError.h"
#include "server/Dispatch.h"
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

TEST_F(DispatchTest, MembersAreFoundWithoutRegardToCaseAndArgumentsConvertedTheAutomationWay) {
  EXPECT_EQ(dispatch.get("VERSION").toString(), "5.1.0.0");
  dispatch.put("lang", "ZH-TW");
  EXPECT_EQ(context.g_sLang, "zh-tw");

  const QString sheet = temp.write("a.xls", "x");
  dispatch.invoke("ImportExcelSheet", {sheet, "2.5", ""});
  dispatch.invoke("ImportExcelSheet", {sheet, true, ""});
  EXPECT_EQ(producers.calls, QStringList({"excel.Excel2HTML:2", "excel.Excel2HTML:-1"}));
}

TEST_F(DispatchTest, WrongMembersAndArgumentsAreTheScriptsErrors) {
  EXPECT_EQ(errorNumberOf([&] { dispatch.get("SendUrl"); }), errnum::PropertyOrMethodNotFound) << "write-only";
  EXPECT_EQ(errorNumberOf([&] { dispatch.put("Body", "x"); }), errnum::PropertyOrMethodNotFound) << "read-only";
  EXPECT_EQ(errorNumberOf([&] { dispatch.invoke("Test", {1}); }), errnum::WrongNumberOfArguments);
  EXPECT_EQ(errorNumberOf([&] { dispatch.invoke("ImportWord", {"a.doc"}); }), errnum::ArgumentNotOptional);
  EXPECT_EQ(errorNumberOf([&] { dispatch.invoke("ImportExcelSheet", {"a.xls", "two", ""}); }), errnum::TypeMismatch);
  EXPECT_EQ(errorNumberOf([&] { dispatch.invoke("ImportExcelSheet", {"a.xls", 40000, ""}); }), errnum::Overflow);
  EXPECT_EQ(errorNumberOf([] { coerce("yes", VarType::Bool); }), errnum::TypeMismatch);
}

// Every member the type library declares for the editor is there on the object.
TEST(TypeLibrary, EveryMemberOfTheEditorIsReachable) {
  Context context;
  test::ScopedTempRoot temp;
  Velmora5 control(context, standardProducers());
  const QMetaObject& meta = *control.metaObject();
  for (const MemberInfo& member : findClass("Velmora5")->dispatch.members) {
    const QByteArray name =
        member.kind == MemberKind::PropertyPut ? QByteArray("set") + member.name : QByteArray(member.name);
    bool found = member.kind == MemberKind::PropertyGet && meta.indexOfProperty(name) >= 0;
    for (int i = 0; i < meta.methodCount() && member.kind != MemberKind::PropertyGet; ++i)
      found = found || meta.method(i).name() == name;
    EXPECT_TRUE(found) << member.name;
  }
}

}  // namespace
}  // namespace velmora
