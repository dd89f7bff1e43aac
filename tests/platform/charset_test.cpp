#include <gtest/gtest.h>

#include "platform/Charset.h"

namespace velmora {
namespace {

TEST(Charset, RoundTripsThroughCodePagesWithTheirKnownBytes) {
  const struct {
    const char* charset;
    const char* text;
    QByteArray bytes;
  } cases[] = {
      {"gb2312", "\xe4\xb8\xad\xe6\x96\x87", "\xd6\xd0\xce\xc4"},
      {"GBK", "\xe4\xb8\xad", "\xd6\xd0"},
      {"big5", "\xe4\xb8\xad", "\xa4\xa4"},
      {"shift_jis", "\xe6\x97\xa5\xe6\x9c\xac", "\x93\xfa\x96\x7b"},
      {"euc-kr", "\xed\x95\x9c", "\xc7\xd1"},
      {"windows-1251", "\xd0\x96", "\xc6"},
      {"iso-8859-1", "caf\xc3\xa9", "caf\xe9"},
      {"utf-8", "caf\xc3\xa9", "caf\xc3\xa9"},
  };
  for (const auto& c : cases) {
    QByteArray encoded;
    ASSERT_TRUE(Charset::encode(QString::fromUtf8(c.text), c.charset, encoded)) << c.charset;
    EXPECT_EQ(encoded, c.bytes) << c.charset;
    QString decoded;
    ASSERT_TRUE(Charset::decode(c.bytes, c.charset, decoded)) << c.charset;
    EXPECT_EQ(decoded, QString::fromUtf8(c.text)) << c.charset;
  }
}

TEST(Charset, UnknownNamesAreErrorsNeverAFallback) {
  QByteArray out;
  QString text, error;
  EXPECT_FALSE(Charset::encode("x", "klingon-8", out, &error));
  EXPECT_TRUE(error.contains("klingon-8"));
  EXPECT_FALSE(Charset::decode("x", "", text, &error));
  EXPECT_FALSE(Charset::isKnown("no such charset"));
  EXPECT_TRUE(Charset::isKnown("GB18030"));
}

TEST(Charset, CharactersACodePageCannotHoldBecomeCharacterReferences) {
  QByteArray out;
  ASSERT_TRUE(Charset::encode(QString::fromUtf8("a\xe4\xb8\xad"), "iso-8859-1", out));
  EXPECT_EQ(out, "a&#20013;");
}

}  // namespace
}  // namespace velmora
