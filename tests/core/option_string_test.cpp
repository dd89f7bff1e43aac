#include <gtest/gtest.h>

#include "core/OptionString.h"

namespace velmora {
namespace {

TEST(OptionString, ReadsKeysWithoutCaseAndValuesAsWritten) {
  struct Case {
    const char* options;
    const char* key;
    QString expected;
  } cases[] = {
      {" Mode : html ", "mode", "html"},                                     // blanks around keys and values go
      {"MODE:HTML", "mode", "HTML"},                                         // the value keeps its case
      {"mode:html;api:0", "API", "0"},         {"mode:html:x", "mode", ""},  // more than one colon: ignored
      {"mode:html:x;mode:img", "mode", "img"}, {"modehtml", "mode", ""},
      {"mode:img;mode:html", "mode", "img"},                                 // the first valid one wins
      {";;mode:html;", "mode", "html"},        {"\tmode:html", "mode", ""},  // only blanks are trimmed
      {"mode:html\n", "mode", "html\n"},
  };
  for (const Case& c : cases) EXPECT_EQ(GetOptValue(c.options, c.key), c.expected) << c.options;
  EXPECT_EQ(GetOptValue("", "mode", "fallback"), "fallback");
  EXPECT_EQ(GetOptValue("mode:", "mode", "x"), "") << "an empty value is a value";
  EXPECT_EQ(GetOptValue("a=1,b=2", "b", "", ",", "="), "2");
}

}  // namespace
}  // namespace velmora
