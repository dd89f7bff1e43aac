#include "platform/Charset.h"

#include <gtest/gtest.h>

#include <QMap>
#include <optional>

using namespace Qt::StringLiterals;

namespace velmora {
namespace {

struct KnownText {
  const char* charset;
  QString text;
  QByteArray bytes;
};

class CharsetRoundTrip : public testing::TestWithParam<KnownText> {};

TEST_P(CharsetRoundTrip, EncodesToKnownBytesAndDecodesBack) {
  const KnownText& known = GetParam();
  QByteArray bytes;
  QString error;
  ASSERT_TRUE(Charset::encode(known.text, QString::fromLatin1(known.charset), bytes, &error)) << qPrintable(error);
  EXPECT_EQ(bytes.toHex(' '), known.bytes.toHex(' '));
  QString text;
  ASSERT_TRUE(Charset::decode(known.bytes, QString::fromLatin1(known.charset), text, &error)) << qPrintable(error);
  EXPECT_EQ(text, known.text);
}

INSTANTIATE_TEST_SUITE_P(
    CodePages, CharsetRoundTrip,
    testing::Values(KnownText{"gb2312", u"中文"_s, QByteArray::fromHex("d6d0cec4")},
                    // a GBK character outside GB2312: pages labelled gb2312 carry them
                    KnownText{"gb2312", u"镕"_s, QByteArray::fromHex("e946")},
                    KnownText{"gb18030", u"😀"_s, QByteArray::fromHex("9439fc36")},
                    KnownText{"big5", u"中文"_s, QByteArray::fromHex("a4a4a4e5")},
                    KnownText{"shift_jis", u"日本語"_s, QByteArray::fromHex("93fa967b8cea")},
                    KnownText{"Shift_JIS", u"①"_s, QByteArray::fromHex("8740")},
                    KnownText{"euc-jp", u"日本語"_s, QByteArray::fromHex("c6fccbdcb8ec")},
                    KnownText{"euc-kr", u"한국어"_s, QByteArray::fromHex("c7d1b1b9beee")},
                    KnownText{"EUC-KR", u"똠"_s, QByteArray::fromHex("8c63")},
                    KnownText{"windows-1250", u"Łódź"_s, QByteArray::fromHex("a3f3649f")},
                    KnownText{"windows-1251", u"Привет"_s, QByteArray::fromHex("cff0e8e2e5f2")},
                    KnownText{"koi8-r", u"Привет"_s, QByteArray::fromHex("f0d2c9d7c5d4")},
                    KnownText{"windows-1252", u"café €"_s, QByteArray::fromHex("636166e92080")},
                    // pages labelled latin-1 or ASCII are windows-1252, as browsers read them
                    KnownText{"iso-8859-1", u"café €"_s, QByteArray::fromHex("636166e92080")},
                    KnownText{"iso-8859-15", u"€"_s, QByteArray::fromHex("a4")},
                    KnownText{"windows-1253", u"Ζεύς"_s, QByteArray::fromHex("c6e5fdf2")},
                    KnownText{"windows-1255", u"שלום"_s, QByteArray::fromHex("f9ece5ed")},
                    KnownText{"us-ascii", u"é"_s, QByteArray::fromHex("e9")},
                    KnownText{"utf-8", u"中 é😀"_s, QByteArray::fromHex("e4b8ad20c3a9f09f9880")},
                    KnownText{"unicode", u"A中"_s, QByteArray::fromHex("41002d4e")},
                    KnownText{"utf-16be", u"A中"_s, QByteArray::fromHex("00414e2d")}));

TEST(Charset, NamesAreCaseInsensitiveAndTrimmed) {
  for (const QString& name : {u"GB2312"_s, u" gb2312 "_s, u"Gb2312"_s}) {
    QByteArray bytes;
    EXPECT_TRUE(Charset::encode(u"中"_s, name, bytes)) << qPrintable(name);
    EXPECT_EQ(bytes, QByteArray::fromHex("d6d0"));
  }
  for (const char* name : {"Windows-1258", "ISO-8859-2", "KOI8-R", "BIG5", "utf-16", "US-ASCII", "EUC-JP"})
    EXPECT_TRUE(Charset::isKnown(QString::fromLatin1(name))) << name;
}

TEST(Charset, UnknownNameIsAnErrorNotAFallback) {
  for (const QString& name : {u"x-no-such-charset"_s, u""_s, u"   "_s, u"--"_s}) {
    EXPECT_FALSE(Charset::isKnown(name));
    QByteArray bytes("untouched");
    QString text(u"untouched"_s), error;
    EXPECT_FALSE(Charset::encode(u"abc"_s, name, bytes, &error));
    EXPECT_TRUE(error.contains(u"unknown charset"_s)) << qPrintable(error);
    EXPECT_EQ(bytes, QByteArray("untouched"));
    error.clear();
    EXPECT_FALSE(Charset::decode("abc", name, text, &error));
    EXPECT_TRUE(error.contains(name)) << qPrintable(error);
    EXPECT_EQ(text, u"untouched"_s);
  }
}

TEST(Charset, UnmappableCharactersBecomeNumericReferences) {
  QByteArray bytes;
  ASSERT_TRUE(Charset::encode(u"a中b"_s, u"windows-1252"_s, bytes));
  EXPECT_EQ(bytes, QByteArray("a&#20013;b"));
  ASSERT_TRUE(Charset::encode(u"中😀"_s, u"gb2312"_s, bytes));
  EXPECT_EQ(bytes, QByteArray::fromHex("d6d0") + "&#128512;");
  ASSERT_TRUE(Charset::encode(u"Привет"_s, u"shift_jis"_s, bytes));
  EXPECT_EQ(QString::fromLatin1(bytes).count(u"&#"_s), 0) << "shift_jis holds Cyrillic";
}

TEST(Charset, InvalidBytesDecodeAsReplacementCharacters) {
  QString text;
  ASSERT_TRUE(Charset::decode(QByteArray::fromHex("4193"), u"shift_jis"_s, text));  // cut double byte
  EXPECT_EQ(text, u"A\uFFFD"_s);
  ASSERT_TRUE(Charset::decode(QByteArray::fromHex("41812042"), u"gbk"_s, text));  // bad trail byte
  EXPECT_EQ(text, u"A\uFFFD B"_s);
  ASSERT_TRUE(Charset::decode(QByteArray::fromHex("41c342"), u"utf-8"_s, text));
  EXPECT_EQ(text, u"A\uFFFDB"_s);
  ASSERT_TRUE(Charset::decode(QByteArray::fromHex("41e4b8"), u"utf-8"_s, text));
  EXPECT_TRUE(text.startsWith(u'A') && text.size() > 1) << "a sequence cut at the end is not lost";
  EXPECT_EQ(text.mid(1), QString(text.size() - 1, QChar(0xFFFD)));
}

TEST(Charset, UnicodeCharsetsWriteNoMarkAndDropOneWhenReading) {
  QByteArray bytes;
  ASSERT_TRUE(Charset::encode(u"x"_s, u"utf-8"_s, bytes));
  EXPECT_EQ(bytes, QByteArray("x"));
  ASSERT_TRUE(Charset::encode(u"x"_s, u"unicode"_s, bytes));
  EXPECT_EQ(bytes, QByteArray("x\0", 2));
  QString text;
  ASSERT_TRUE(Charset::decode(QByteArray::fromHex("efbbbf78"), u"utf-8"_s, text));
  EXPECT_EQ(text, u"x"_s);
}

TEST(Charset, EmptyTextConverts) {
  QByteArray bytes("old");
  QString text(u"old"_s);
  EXPECT_TRUE(Charset::encode(QString(), u"gbk"_s, bytes));
  EXPECT_TRUE(bytes.isEmpty());
  EXPECT_TRUE(Charset::decode(QByteArray(), u"shift_jis"_s, text));
  EXPECT_TRUE(text.isEmpty());
}

// Sets environment variables for one test and puts the old values back.
class ScopedEnvironment {
 public:
  void set(const char* name, const QByteArray& value) {
    if (!saved_.contains(name))
      saved_.insert(name, qEnvironmentVariableIsSet(name) ? std::optional(qgetenv(name)) : std::nullopt);
    if (value.isNull()) qunsetenv(name);
    else qputenv(name, value);
  }
  ~ScopedEnvironment() {
    for (auto it = saved_.cbegin(); it != saved_.cend(); ++it) {
      if (it.value()) qputenv(it.key().constData(), *it.value());
      else qunsetenv(it.key().constData());
    }
  }

 private:
  QMap<QByteArray, std::optional<QByteArray>> saved_;
};

TEST(Charset, SystemCodePageFollowsTheLocale) {
  ScopedEnvironment environment;
  environment.set("VELMORA_CODEPAGE", QByteArray());
  environment.set("LC_ALL", QByteArray());
  environment.set("LC_CTYPE", QByteArray());
  const struct {
    const char* locale;
    const char* codePage;
  } cases[] = {
      {"zh_CN.UTF-8", "gbk"},       {"zh_TW.UTF-8", "big5"},          {"ja_JP.UTF-8", "shift_jis"},
      {"ko_KR.UTF-8", "euc-kr"},    {"ru_RU.UTF-8", "windows-1251"},  {"pl_PL.UTF-8", "windows-1250"},
      {"de_DE.UTF-8", "windows-1252"}, {"C.UTF-8", "windows-1252"},   {"C", "windows-1252"},
      {"ru_RU.KOI8-R", "koi8-r"},   {"zh_CN.GB18030", "gb18030"},     {"en_US.ISO-8859-15", "iso-8859-15"},
  };
  for (const auto& c : cases) {
    environment.set("LANG", c.locale);
    EXPECT_EQ(Charset::systemCodePage(), QString::fromLatin1(c.codePage)) << c.locale;
    EXPECT_TRUE(Charset::isKnown(Charset::systemCodePage())) << c.locale;
  }
  environment.set("LC_ALL", "ja_JP.UTF-8");
  EXPECT_EQ(Charset::systemCodePage(), u"shift_jis"_s) << "LC_ALL wins over LANG";
  environment.set("VELMORA_CODEPAGE", "windows-1256");
  EXPECT_EQ(Charset::systemCodePage(), u"windows-1256"_s);
}

}  // namespace
}  // namespace velmora
