#include "support/basPublic.h"
#include "tests/common/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QRandomGenerator>

#include <gtest/gtest.h>

#include <optional>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace velmora {
namespace {

using test::ScopedTempRoot;

// Names the system code page for one test and puts the old setting back.
class ScopedCodePage {
 public:
  explicit ScopedCodePage(const QByteArray& charset)
      : old_(qEnvironmentVariableIsSet("VELMORA_CODEPAGE") ? std::optional(qgetenv("VELMORA_CODEPAGE"))
                                                           : std::nullopt) {
    qputenv("VELMORA_CODEPAGE", charset);
  }
  ~ScopedCodePage() {
    if (old_) qputenv("VELMORA_CODEPAGE", *old_);
    else qunsetenv("VELMORA_CODEPAGE");
  }

 private:
  std::optional<QByteArray> old_;
};

struct ReadResult {
  QString text;
  int code;
};

ReadResult readAs(const QString& path, int code) {
  QString text = ReadTextFileAs(path, code);
  return {text, code};
}

// ---------------------------------------------------------------------------------------
// Marks and inspection

TEST(DetectBOM, FindsEachMarkFromTheFirstFourBytes) {
  const struct {
    uint32_t firstFour;
    int code;
    int length;
  } cases[] = {
      {0x0000FEFF, encoding::Utf32LE, 4}, {0xFFFE0000, encoding::Utf32BE, 4}, {0x0041FEFF, encoding::Utf16LE, 2},
      {0x4100FFFE, encoding::Utf16BE, 2}, {0x41BFBBEF, encoding::Utf8Bom, 3}, {0x00BFBBEF, encoding::Utf8Bom, 3},
      {0x00000041, encoding::CodePage, 0}, {0x00000000, encoding::CodePage, 0}, {0xFEFF0000, encoding::CodePage, 0},
  };
  for (const auto& c : cases) {
    int code = -7;
    EXPECT_EQ(DetectBOM(c.firstFour, code), c.length) << std::hex << c.firstFour;
    EXPECT_EQ(code, c.code) << std::hex << c.firstFour;
  }
}

int inspect(QByteArray& bytes) {
  int code = -7;
  DetectUTF8(bytes, code);
  return code;
}

TEST(DetectUTF8, TellsUtf8FromAsciiAndFromCodePageText) {
  QByteArray ascii("plain <b>ascii</b>\r\n");
  EXPECT_EQ(inspect(ascii), encoding::CodePage);
  EXPECT_EQ(ascii, QByteArray("plain <b>ascii</b>\r\n")) << "ASCII bytes stay as they are";

  QByteArray chinese = "a" + QByteArray::fromHex("e4b8ad") + "b";
  EXPECT_EQ(inspect(chinese), encoding::Utf8);
  EXPECT_EQ(chinese, "a" + QByteArray::fromHex("20b8ad") + "b") << "the lead byte is shifted by its three 1-bits";

  QByteArray gbk = QByteArray::fromHex("d6d0cec4");  // "中文" in GBK
  EXPECT_EQ(inspect(gbk), encoding::CodePage);

  QByteArray empty;
  EXPECT_EQ(inspect(empty), encoding::CodePage);
}

TEST(DetectUTF8, BrokenSequencesMeanCodePage) {
  QByteArray cut = "abc" + QByteArray::fromHex("e4b8");
  EXPECT_EQ(inspect(cut), encoding::CodePage);
  QByteArray stray = QByteArray::fromHex("4180");
  EXPECT_EQ(inspect(stray), encoding::CodePage);
  EXPECT_EQ(stray, QByteArray::fromHex("4100"));
  QByteArray interrupted = QByteArray::fromHex("e441ad");
  EXPECT_EQ(inspect(interrupted), encoding::CodePage);
}

TEST(DetectUTF8, OnlyTheShapeOfSequencesIsChecked) {
  QByteArray overlong = QByteArray::fromHex("c080");
  EXPECT_EQ(inspect(overlong), encoding::Utf8);
  QByteArray fiveBytes = QByteArray::fromHex("f888808080");
  EXPECT_EQ(inspect(fiveBytes), encoding::Utf8);
  QByteArray allOnes = QByteArray::fromHex("ff") + QByteArray(7, char(0x80));
  EXPECT_EQ(inspect(allOnes), encoding::Utf8);
  EXPECT_EQ(uint8_t(allOnes[0]), 0);
}

TEST(UTF8ToUnicode, DecodesAndReplacesInvalidBytes) {
  EXPECT_EQ(UTF8ToUnicode(QByteArray()), u""_s);
  EXPECT_EQ(UTF8ToUnicode(QByteArray::fromHex("e4b8ade69687")), u"中文"_s);
  EXPECT_EQ(UTF8ToUnicode(QByteArray::fromHex("41ff42")), u"A\uFFFDB"_s);
  const QString cut = UTF8ToUnicode(QByteArray::fromHex("41e4b8"));
  EXPECT_TRUE(cut.startsWith(u'A') && cut.size() > 1) << "a sequence cut at the end is not lost";
  EXPECT_EQ(cut.mid(1), QString(cut.size() - 1, QChar(0xFFFD)));
  EXPECT_EQ(UTF8ToUnicode(QByteArray::fromHex("efbbbf41")), u"\uFEFFA"_s) << "a mark is kept";
  EXPECT_EQ(UTF8ToUnicode(QByteArray("a\0b", 3)), QString(u"a\0b"_s));
}

// ---------------------------------------------------------------------------------------
// Reading files

TEST(ReadTextFile, DetectsEachEncoding) {
  ScopedTempRoot root;
  ScopedCodePage codePage("gbk");
  const struct {
    const char* name;
    QByteArray bytes;
    int code;
    QString text;
  } cases[] = {
      {"ascii.html", "<p>plain</p>\r\n", encoding::CodePage, u"<p>plain</p>\r\n"_s},
      {"utf8.html", "<p>" + QByteArray::fromHex("e4b8ad") + "</p>", encoding::Utf8, u"<p>中</p>"_s},
      {"utf8bom.html", QByteArray::fromHex("efbbbf") + "x" + QByteArray::fromHex("c3a9"), encoding::Utf8Bom, u"xé"_s},
      {"utf16le.txt", QByteArray::fromHex("fffe41002d4e"), encoding::Utf16LE, u"A中"_s},
      {"utf16be.txt", QByteArray::fromHex("feff00414e2d"), encoding::Utf16BE, u"A中"_s},
      {"utf32le.txt", QByteArray::fromHex("fffe000041000000"), encoding::Utf32LE, u""_s},
      {"utf32be.txt", QByteArray::fromHex("0000feff00000041"), encoding::Utf32BE, u""_s},
      {"gbk.html", "<p>" + QByteArray::fromHex("d6d0cec4") + "</p>", encoding::CodePage, u"<p>中文</p>"_s},
      {"empty.txt", QByteArray(), encoding::CodePage, u""_s},
      {"one.txt", "A", encoding::CodePage, u"A"_s},
      // Two bytes FF FE read as FF FE 00 00: a UTF-32 mark, so nothing is read.
      {"mark-only.txt", QByteArray::fromHex("fffe"), encoding::Utf32LE, u""_s},
      {"odd-utf16.txt", QByteArray::fromHex("fffe410042"), encoding::Utf16LE, u"A"_s},
  };
  for (const auto& c : cases) {
    const QString path = root.write(QString::fromLatin1(c.name), c.bytes);
    const ReadResult read = readAs(path, encoding::Find);
    EXPECT_EQ(read.code, c.code) << c.name;
    EXPECT_EQ(read.text, c.text) << c.name;
    EXPECT_EQ(ReadTextFile(path), c.text) << c.name;
  }
}

TEST(ReadTextFileAs, AForcedEncodingReadsFromTheFirstByte) {
  ScopedTempRoot root;
  ScopedCodePage codePage("windows-1252");
  const QString withMark = root.write(u"mark.html"_s, QByteArray::fromHex("efbbbf") + "caf" + QByteArray::fromHex("c3a9"));

  ReadResult read = readAs(withMark, encoding::CodePage);
  EXPECT_EQ(read.code, encoding::CodePage);
  EXPECT_EQ(read.text, u"ï»¿cafÃ©"_s) << "the mark's three bytes in the code page";
  read = readAs(withMark, encoding::Utf8);
  EXPECT_EQ(read.text, u"\uFEFFcafé"_s);
  read = readAs(withMark, encoding::Utf8Bom);
  EXPECT_EQ(read.text, u"café"_s) << "forced to what was found: the mark is skipped";

  const QString noMark = root.write(u"plain.html"_s, "caf" + QByteArray::fromHex("c3a9"));
  EXPECT_EQ(readAs(noMark, encoding::Utf8Bom).text, u"café"_s);
  EXPECT_EQ(readAs(noMark, encoding::Utf16BE).text, QString(QChar(0x6361)) + QChar(0x66C3)) << "odd last byte dropped";
  read = readAs(noMark, encoding::Utf32LE);
  EXPECT_EQ(read.text, u""_s);
  EXPECT_EQ(read.code, encoding::Utf32LE);

  const QString utf16 = root.write(u"utf16.txt"_s, QByteArray::fromHex("fffe4100"));
  EXPECT_EQ(readAs(utf16, encoding::Utf16LE).text, u"A"_s);
  EXPECT_EQ(readAs(utf16, encoding::Utf16BE).text, QString(QChar(0xFFFE)) + QChar(0x4100));
}

TEST(ReadTextFileAs, CodesOutsideTheTableGiveNothing) {
  ScopedTempRoot root;
  const QString path = root.write(u"a.txt"_s, "abc");
  for (int code : {-2, 7, 65001}) {
    const ReadResult read = readAs(path, code);
    EXPECT_EQ(read.text, u""_s);
    EXPECT_EQ(read.code, code);
  }
}

TEST(ReadTextFileAs, UnknownCodePageGivesNothing) {
  ScopedTempRoot root;
  ScopedCodePage codePage("no-such-charset");
  const QString path = root.write(u"a.txt"_s, QByteArray::fromHex("d6d0"));
  EXPECT_EQ(ReadTextFile(path), u""_s);
}

TEST(ReadTextFile, WhatIsNotAReadableFileGivesNothing) {
  ScopedTempRoot root;
  QDir().mkdir(root.path() + u"/folder"_s);
  ASSERT_EQ(mkfifo(QFile::encodeName(root.path() + u"/pipe"_s).constData(), 0600), 0);
  for (const QString& path : {root.path() + u"/folder"_s, root.path() + u"/missing.txt"_s, root.path() + u"/pipe"_s,
                              QString()}) {
    int code = encoding::Find;
    EXPECT_EQ(ReadTextFileAs(path, code), u""_s) << qPrintable(path);
    EXPECT_EQ(code, encoding::Find) << qPrintable(path);
  }
}

TEST(ReadTextFile, UnreadableFileGivesNothing) {
  if (geteuid() == 0) GTEST_SKIP() << "permissions do not stop root from reading";
  ScopedTempRoot root;
  const QString path = root.write(u"secret.txt"_s, "secret");
  ASSERT_EQ(chmod(QFile::encodeName(path).constData(), 0), 0);
  EXPECT_EQ(ReadTextFile(path), u""_s);
}

TEST(ReadTextFile, FilesOfTwoGigabytesAreNotRead) {
  ScopedTempRoot root;
  const QString path = root.write(u"huge.txt"_s, "x");
  QFile file(path);
  ASSERT_TRUE(file.resize(qint64(1) << 31)) << "a sparse file takes no space";
  int code = encoding::Find;
  EXPECT_EQ(ReadTextFileAs(path, code), u""_s);
  code = encoding::Utf16LE;
  EXPECT_EQ(ReadTextFileAs(path, code), u""_s);
}

TEST(ReadTextFile, BinaryJunkNeverBreaksTheReader) {
  ScopedTempRoot root;
  ScopedCodePage codePage("shift_jis");
  QRandomGenerator random(20240131);
  QByteArray junk(256 * 1024, Qt::Uninitialized);
  for (char& byte : junk) byte = char(random.bounded(256));
  const QString path = root.write(u"junk.bin"_s, junk);
  for (int code = encoding::Find; code <= encoding::Utf32BE; ++code) {
    int inOut = code;
    const QString text = ReadTextFileAs(path, inOut);
    if (code == encoding::Find) EXPECT_EQ(inOut, encoding::CodePage);
    if (code == encoding::CodePage || code == encoding::Utf8) EXPECT_FALSE(text.isEmpty()) << code;
  }
}

}  // namespace
}  // namespace velmora
