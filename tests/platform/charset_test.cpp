#include "platform/Charset.h"
#include "tests/common/Helpers.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace velmora {
namespace {

// Our own names and the web's readings of labels; the other names are the converter library's.
TEST(Charset, EncodesToKnownBytesAndDecodesBack) {
  const struct {
    const char* charset;
    QString text;
    QByteArray hex;
  } cases[] = {
      {"gb2312", u"中文"_s, "d6d0cec4"},
      {"gb2312", u"镕"_s, "e946"},  // a GBK character outside GB2312: pages labelled gb2312 carry them
      {"gb18030", u"😀"_s, "9439fc36"},
      {"Shift_JIS", u"①"_s, "8740"},  // read as windows-31j
      {"EUC-KR", u"똠"_s, "8c63"},     // read as windows-949
      {"windows-1252", u"café €"_s, "636166e92080"},
      // pages labelled latin-1 or ASCII are windows-1252, as browsers read them
      {"iso-8859-1", u"café €"_s, "636166e92080"},
      {"us-ascii", u"é"_s, "e9"},
      {"utf-8", u"中 é😀"_s, "e4b8ad20c3a9f09f9880"},
      {"unicode", u"A中"_s, "41002d4e"},
      {"utf-16be", u"A中"_s, "00414e2d"},
  };
  for (const auto& c : cases) {
    QByteArray bytes;
    QString text, error;
    ASSERT_TRUE(Charset::encode(c.text, QString::fromLatin1(c.charset), bytes, &error)) << error;
    EXPECT_EQ(bytes.toHex(), c.hex) << c.charset;
    ASSERT_TRUE(Charset::decode(QByteArray::fromHex(c.hex), QString::fromLatin1(c.charset), text, &error)) << error;
    EXPECT_EQ(text, c.text) << c.charset;
  }
}

TEST(Charset, NamesAreCaseInsensitiveAndTrimmedAndAnUnknownNameIsAnError) {
  for (const QString& name : {u"GB2312"_s, u" gb2312 "_s, u"Gb2312"_s}) {
    QByteArray bytes;
    EXPECT_TRUE(Charset::encode(u"中"_s, name, bytes)) << name;
    EXPECT_EQ(bytes, QByteArray::fromHex("d6d0"));
  }
  for (const char* name : {"Windows-1258", "ISO-8859-2", "KOI8-R", "BIG5", "utf-16", "US-ASCII", "EUC-JP"})
    EXPECT_TRUE(Charset::isKnown(QString::fromLatin1(name))) << name;

  // Not a fallback: nothing is converted.
  for (const QString& name : {u"x-no-such-charset"_s, u""_s, u"   "_s, u"--"_s}) {
    EXPECT_FALSE(Charset::isKnown(name));
    QByteArray bytes("untouched");
    QString text(u"untouched"_s), error;
    EXPECT_FALSE(Charset::encode(u"abc"_s, name, bytes, &error));
    EXPECT_TRUE(error.contains(u"unknown charset"_s)) << error;
    EXPECT_EQ(bytes, QByteArray("untouched"));
    error.clear();
    EXPECT_FALSE(Charset::decode("abc", name, text, &error));
    EXPECT_TRUE(error.contains(name)) << error;
    EXPECT_EQ(text, u"untouched"_s);
  }
}

TEST(Charset, UnmappableCharactersBecomeReferencesInvalidBytesReplacementCharacters) {
  QByteArray bytes;
  ASSERT_TRUE(Charset::encode(u"a中b"_s, u"windows-1252"_s, bytes));
  EXPECT_EQ(bytes, QByteArray("a&#20013;b"));
  ASSERT_TRUE(Charset::encode(u"中😀"_s, u"gb2312"_s, bytes));
  EXPECT_EQ(bytes, QByteArray::fromHex("d6d0") + "&#128512;");
  ASSERT_TRUE(Charset::encode(u"Привет"_s, u"shift_jis"_s, bytes));
  EXPECT_EQ(QString::fromLatin1(bytes).count(u"&#"_s), 0) << "shift_jis holds Cyrillic";

  const struct {
    const char* hex;
    QString charset, text;
  } invalid[] = {{"4193", u"shift_jis"_s, u"A\uFFFD"_s},  // a cut double byte
                 {"41812042", u"gbk"_s, u"A\uFFFD B"_s},  // a bad trail byte
                 {"41c342", u"utf-8"_s, u"A\uFFFDB"_s}};
  QString text;
  for (const auto& c : invalid) {
    ASSERT_TRUE(Charset::decode(QByteArray::fromHex(c.hex), c.charset, text));
    EXPECT_EQ(text, c.text) << c.hex;
  }
  ASSERT_TRUE(Charset::decode(QByteArray::fromHex("41e4b8"), u"utf-8"_s, text));
  EXPECT_TRUE(text.startsWith(u'A') && text.size() > 1) << "a sequence cut at the end is not lost";
  EXPECT_EQ(text.mid(1), QString(text.size() - 1, QChar(0xFFFD)));
}

TEST(Charset, UnicodeCharsetsWriteNoMarkAndDropOneWhenReadingEmptyTextConverts) {
  QByteArray bytes;
  ASSERT_TRUE(Charset::encode(u"x"_s, u"utf-8"_s, bytes));
  EXPECT_EQ(bytes, QByteArray("x"));
  ASSERT_TRUE(Charset::encode(u"x"_s, u"unicode"_s, bytes));
  EXPECT_EQ(bytes, QByteArray("x\0", 2));
  QString text;
  ASSERT_TRUE(Charset::decode(QByteArray::fromHex("efbbbf78"), u"utf-8"_s, text));
  EXPECT_EQ(text, u"x"_s);

  EXPECT_TRUE(Charset::encode(QString(), u"gbk"_s, bytes));
  EXPECT_TRUE(bytes.isEmpty());
  EXPECT_TRUE(Charset::decode(QByteArray(), u"shift_jis"_s, text));
  EXPECT_TRUE(text.isEmpty());
}

TEST(Charset, SystemCodePageFollowsTheLocale) {
  test::ScopedEnvironment environment;
  for (const char* name : {"VELMORA_CODEPAGE", "LC_ALL", "LC_CTYPE"}) environment.set(name, QByteArray());
  const std::pair<const char*, const char*> cases[] = {
      {"zh_CN.UTF-8", "gbk"},       {"zh_TW.UTF-8", "big5"},          {"ja_JP.UTF-8", "shift_jis"},
      {"ko_KR.UTF-8", "euc-kr"},    {"ru_RU.UTF-8", "windows-1251"},  {"pl_PL.UTF-8", "windows-1250"},
      {"de_DE.UTF-8", "windows-1252"}, {"C.UTF-8", "windows-1252"},   {"C", "windows-1252"},
      {"ru_RU.KOI8-R", "koi8-r"},   {"zh_CN.GB18030", "gb18030"},     {"en_US.ISO-8859-15", "iso-8859-15"},
  };
  for (const auto& [locale, codePage] : cases) {
    environment.set("LANG", locale);
    EXPECT_EQ(Charset::systemCodePage(), QString::fromLatin1(codePage)) << locale;
    EXPECT_TRUE(Charset::isKnown(Charset::systemCodePage())) << locale;
  }
  environment.set("LC_ALL", "ja_JP.UTF-8");
  EXPECT_EQ(Charset::systemCodePage(), u"shift_jis"_s) << "LC_ALL wins over LANG";
  environment.set("VELMORA_CODEPAGE", "windows-1256");
  EXPECT_EQ(Charset::systemCodePage(), u"windows-1256"_s);
}

}  // namespace
}  // namespace velmora
