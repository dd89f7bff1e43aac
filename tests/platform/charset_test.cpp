#include "platform/Charset.h"
#include "tests/common/Helpers.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace velmora {
namespace {

// The converted bytes or text; a failure fails the test and gives "".
QByteArray encoded(const QString& text, const QString& charset) {
  const Result<QByteArray> bytes = Charset::encode(text, charset);
  EXPECT_TRUE(bytes) << charset << ": " << (bytes ? QString() : bytes.failure().description);
  return bytes ? bytes.value() : QByteArray();
}
QString decoded(const QByteArray& bytes, const QString& charset) {
  const Result<QString> text = Charset::decode(bytes, charset);
  EXPECT_TRUE(text) << charset << ": " << (text ? QString() : text.failure().description);
  return text ? text.value() : QString();
}

// Our own names and the web's readings of labels; the other names are the converter library's.
TEST(Charset, EncodesToKnownBytesAndDecodesBack) {
  const struct {
    const char* charset;
    QString text;
    QByteArray hex;
  } cases[] = {
      {"gb2312", u"镕"_s, "e946"},  // a GBK character outside GB2312: pages labelled gb2312 carry them
      {"gb18030", u"😀"_s, "9439fc36"},
      {"Shift_JIS", u"①"_s, "8740"},  // read as windows-31j
      {"EUC-KR", u"똠"_s, "8c63"},    // read as windows-949
      {"windows-1252", u"café €"_s, "636166e92080"},
      // pages labelled ASCII (or latin-1) are windows-1252, as browsers read them
      {"us-ascii", u"é"_s, "e9"},
      {"utf-8", u"中 é😀"_s, "e4b8ad20c3a9f09f9880"},
      {"unicode", u"A中"_s, "41002d4e"},
      {"utf-16be", u"A中"_s, "00414e2d"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(encoded(c.text, QString::fromLatin1(c.charset)).toHex(), c.hex) << c.charset;
    EXPECT_EQ(decoded(QByteArray::fromHex(c.hex), QString::fromLatin1(c.charset)), c.text) << c.charset;
  }
}

TEST(Charset, NamesAreCaseInsensitiveAndTrimmedAndAnUnknownNameIsAnError) {
  for (const QString& name : {u"GB2312"_s, u" gb2312 "_s})
    EXPECT_EQ(encoded(u"中"_s, name), QByteArray::fromHex("d6d0")) << name;
  for (const char* name : {"Windows-1258", "KOI8-R", "BIG5", "utf-16", "EUC-JP"})
    EXPECT_TRUE(Charset::isKnown(QString::fromLatin1(name))) << name;

  // Not a fallback: nothing is converted.
  for (const QString& name : {u"x-no-such-charset"_s, u""_s, u"   "_s, u"--"_s}) {
    EXPECT_FALSE(Charset::isKnown(name));
    const Result<QByteArray> bytes = Charset::encode(u"abc"_s, name);
    ASSERT_FALSE(bytes) << name;
    EXPECT_TRUE(bytes.failure().description.contains(u"unknown charset"_s)) << bytes.failure().description;
    const Result<QString> text = Charset::decode("abc", name);
    ASSERT_FALSE(text) << name;
    EXPECT_TRUE(text.failure().description.contains(name)) << text.failure().description;
  }
}

TEST(Charset, UnmappableCharactersBecomeReferencesInvalidBytesReplacementCharacters) {
  EXPECT_EQ(encoded(u"a中b"_s, u"windows-1252"_s), QByteArray("a&#20013;b"));
  EXPECT_EQ(encoded(u"中😀"_s, u"gb2312"_s), QByteArray::fromHex("d6d0") + "&#128512;");
  EXPECT_EQ(QString::fromLatin1(encoded(u"Привет"_s, u"shift_jis"_s)).count(u"&#"_s), 0) << "shift_jis holds Cyrillic";

  const struct {
    const char* hex;
    QString charset, text;
  } invalid[] = {{"4193", u"shift_jis"_s, u"A\uFFFD"_s},  // a cut double byte
                 {"41812042", u"gbk"_s, u"A\uFFFD B"_s},  // a bad trail byte
                 {"41c342", u"utf-8"_s, u"A\uFFFDB"_s}};
  for (const auto& c : invalid) EXPECT_EQ(decoded(QByteArray::fromHex(c.hex), c.charset), c.text) << c.hex;
  const QString text = decoded(QByteArray::fromHex("41e4b8"), u"utf-8"_s);
  EXPECT_TRUE(text.startsWith(u'A') && text.size() > 1) << "a sequence cut at the end is not lost";
  EXPECT_EQ(text.mid(1), QString(text.size() - 1, QChar(0xFFFD)));
}

TEST(Charset, UnicodeCharsetsWriteNoMarkAndDropOneWhenReadingEmptyTextConverts) {
  EXPECT_EQ(encoded(u"x"_s, u"utf-8"_s), QByteArray("x"));
  EXPECT_EQ(encoded(u"x"_s, u"unicode"_s), QByteArray("x\0", 2));
  EXPECT_EQ(decoded(QByteArray::fromHex("efbbbf78"), u"utf-8"_s), u"x"_s);
  EXPECT_TRUE(encoded(QString(), u"gbk"_s).isEmpty());
  EXPECT_TRUE(decoded(QByteArray(), u"shift_jis"_s).isEmpty());
}

TEST(Charset, SystemCodePageFollowsTheLocale) {
  test::ScopedEnvironment environment;
  for (const char* name : {"VELMORA_CODEPAGE", "LC_ALL", "LC_CTYPE"}) environment.set(name, QByteArray());
  const std::pair<const char*, const char*> cases[] = {
      {"zh_CN.UTF-8", "gbk"},          {"zh_TW.UTF-8", "big5"},         {"ja_JP.UTF-8", "shift_jis"},
      {"ko_KR.UTF-8", "euc-kr"},       {"ru_RU.UTF-8", "windows-1251"}, {"pl_PL.UTF-8", "windows-1250"},
      {"de_DE.UTF-8", "windows-1252"}, {"C", "windows-1252"},           {"ru_RU.KOI8-R", "koi8-r"},
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
