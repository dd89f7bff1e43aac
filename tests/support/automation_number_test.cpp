#include <gtest/gtest.h>

#include "support/AutomationNumber.h"
#include "tests/common/Helpers.h"

namespace velmora {
namespace {

TEST(AutomationNumber, ReadsWhatThePlatformReadsAsANumberAndRoundsHalvesToEven) {
  EXPECT_EQ(NumericValue(" 2048 "), 2048.0);
  EXPECT_EQ(NumericValue("-3.5"), -3.5);
  EXPECT_EQ(NumericValue("+1e3"), 1000.0);
  for (const char* text : {"", " ", "12kb", "0x10", "1,5", "nan", "inf", "--1"})
    EXPECT_FALSE(NumericValue(text).has_value()) << text;

  EXPECT_EQ(RoundToInteger<int32_t>(2.5), 2);
  EXPECT_EQ(RoundToInteger<int32_t>(3.5), 4);
  EXPECT_EQ(RoundToInteger<int32_t>(-2.5), -2);
  EXPECT_EQ(RoundToInteger<int32_t>(2147483647.4), 2147483647);
  EXPECT_THROW(RoundToInteger<int32_t>(2147483647.5), ScriptError);
  EXPECT_EQ(RoundToInteger<int16_t>(-32768), -32768);
  EXPECT_EQ(test::errorNumberOf([] { RoundToInteger<int16_t>(32768); }), errnum::Overflow);
}

}  // namespace
}  // namespace velmora
