#include <gtest/gtest.h>

#include "core/OptionString.h"

using velmora::GetOptValue;

TEST(OptionString, KeysIgnoreCaseAndBlanksButValuesKeepTheirCase) {
  EXPECT_EQ(GetOptValue(" Mode : html ", "mode"), "html");
  EXPECT_EQ(GetOptValue("MODE:HTML", "mode"), "HTML");
  EXPECT_EQ(GetOptValue("mode:html;api:0", "API"), "0");
}

TEST(OptionString, ItemsWithoutExactlyOneColonAreIgnored) {
  EXPECT_EQ(GetOptValue("mode:html:x", "mode"), "");
  EXPECT_EQ(GetOptValue("mode:html:x;mode:img", "mode"), "img");
  EXPECT_EQ(GetOptValue("modehtml", "mode"), "");
  EXPECT_EQ(GetOptValue("no colons at all", "no colons at all"), "");
}

TEST(OptionString, FirstValidOccurrenceWinsAndEmptyItemsAreSkipped) {
  EXPECT_EQ(GetOptValue("mode:img;mode:html", "mode"), "img");
  EXPECT_EQ(GetOptValue(";;mode:html;", "mode"), "html");
  EXPECT_EQ(GetOptValue("", "mode", "fallback"), "fallback");
  EXPECT_EQ(GetOptValue("api:1", "mode", "fallback"), "fallback");
}

TEST(OptionString, OnlyBlanksAreTrimmed) {
  EXPECT_EQ(GetOptValue("\tmode:html", "mode"), "");
  EXPECT_EQ(GetOptValue("mode:html\n", "mode"), "html\n");
  EXPECT_EQ(GetOptValue("mode:", "mode", "x"), "");
}

TEST(OptionString, OtherSeparators) {
  EXPECT_EQ(GetOptValue("a=1,b=2", "b", "", ",", "="), "2");
}
