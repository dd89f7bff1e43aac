#include "support/basPublic.h"
#include "tests/common/Helpers.h"
#include "tests/common/TestSupport.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace velmora {
namespace {

using test::ScopedTempRoot;

// Names the system code page for one test.
struct ScopedCodePage : test::ScopedEnvironment {
  explicit ScopedCodePage(const QByteArray& charset) : ScopedEnvironment("VELMORA_CODEPAGE", charset) {}
};

// The text read with `code` asked for, and the code the reader reports back.
std::pair<QString, int> readAs(const QString& path, int code) { return {ReadTextFileAs(path, code), code}; }

// Only the shape of the sequences is checked, and each lead byte is shifted by its 1-bits.
TEST(DetectUTF8, TellsUtf8FromAsciiAndFromCodePageText) {
  const struct {
    const char* hex;
    int code;
    const char* afterHex;  // the bytes afterwards, where it matters
  } cases[] = {
      {"706c61696e0d0a", encoding::CodePage, "706c61696e0d0a"},  // ASCII stays as it is
      {"61e4b8ad62", encoding::Utf8, "6120b8ad62"},              // "a中b"
      {"616263e4b8", encoding::CodePage, nullptr},               // cut at the end
      {"4180", encoding::CodePage, "4100"},                      // stray continuation byte
      {"e441ad", encoding::CodePage, nullptr},                   // interrupted
      {"c080", encoding::Utf8, nullptr},                         // overlong, but well shaped
      {"f888808080", encoding::Utf8, nullptr},                   // five bytes
      {"ff80808080808080", encoding::Utf8, "0080808080808080"},
  };
  for (const auto& c : cases) {
    QByteArray bytes = QByteArray::fromHex(c.hex);
    int code = -7;
    DetectUTF8(bytes, code);
    EXPECT_EQ(code, c.code) << c.hex;
    if (c.afterHex) {
      EXPECT_EQ(bytes.toHex(), QByteArray(c.afterHex)) << c.hex;
    }
  }
}

// The UTF-8 decoder keeps no state between calls: a sequence cut at the end is not lost.
TEST(UTF8ToUnicode, ASequenceCutAtTheEndIsReplacedNotDropped) {
  const QString cut = UTF8ToUnicode(QByteArray::fromHex("41e4b8"));
  EXPECT_TRUE(cut.size() > 1 && cut.mid(1) == QString(cut.size() - 1, QChar(0xFFFD))) << cut;
}

// Plain ASCII and UTF-8 pages are the clean-up fixtures, read by the golden-file tests.
TEST(ReadTextFile, DetectsEachEncoding) {
  ScopedTempRoot root;
  ScopedCodePage codePage("gbk");
  const struct {
    const char* name;
    QByteArray bytes;
    int code;
    QString text;
  } cases[] = {
      {"utf8bom.html", QByteArray::fromHex("efbbbf") + "x" + QByteArray::fromHex("c3a9"), encoding::Utf8Bom, u"xé"_s},
      {"utf16le.txt", QByteArray::fromHex("fffe41002d4e"), encoding::Utf16LE, u"A中"_s},
      {"utf16be.txt", QByteArray::fromHex("feff00414e2d"), encoding::Utf16BE, u"A中"_s},
      {"utf32le.txt", QByteArray::fromHex("fffe000041000000"), encoding::Utf32LE, u""_s},
      {"utf32be.txt", QByteArray::fromHex("0000feff00000041"), encoding::Utf32BE, u""_s},
      {"gbk.html", "<p>" + QByteArray::fromHex("d6d0cec4") + "</p>", encoding::CodePage, u"<p>中文</p>"_s},
      {"empty.txt", QByteArray(), encoding::CodePage, u""_s},
      // Two bytes FF FE read as FF FE 00 00: a UTF-32 mark, so nothing is read.
      {"mark-only.txt", QByteArray::fromHex("fffe"), encoding::Utf32LE, u""_s},
      {"utf8-mark-only.txt", QByteArray::fromHex("efbbbf"), encoding::Utf8Bom, u""_s},
      {"odd-utf16.txt", QByteArray::fromHex("fffe410042"), encoding::Utf16LE, u"A"_s},
  };
  for (const auto& c : cases) {
    const QString path = root.write(QString::fromLatin1(c.name), c.bytes);
    EXPECT_EQ(readAs(path, encoding::Find), std::pair(c.text, c.code)) << c.name;
    EXPECT_EQ(ReadTextFile(path), c.text) << c.name;
  }
}

TEST(ReadTextFileAs, AForcedEncodingReadsFromTheFirstByte) {
  ScopedTempRoot root;
  ScopedCodePage codePage("windows-1252");
  const QString mark = root.write(u"mark.html"_s, QByteArray::fromHex("efbbbf") + "caf" + QByteArray::fromHex("c3a9"));
  const QString plain = root.write(u"plain.html"_s, "caf" + QByteArray::fromHex("c3a9"));
  const QString utf16 = root.write(u"utf16.txt"_s, QByteArray::fromHex("fffe4100"));
  const struct {
    QString path;
    int code;
    QString text;
  } cases[] = {
      {mark, encoding::CodePage, u"ï»¿cafÃ©"_s},  // the mark's three bytes in the code page
      {mark, encoding::Utf8, u"\uFEFFcafé"_s},
      {mark, encoding::Utf8Bom, u"café"_s},  // forced to what was found: the mark is skipped
      {plain, encoding::Utf8Bom, u"café"_s},
      {plain, encoding::Utf16BE, QString(QChar(0x6361)) + QChar(0x66C3)},  // the odd last byte dropped
      {utf16, encoding::Utf16BE, QString(QChar(0xFFFE)) + QChar(0x4100)},
  };
  for (const auto& c : cases) EXPECT_EQ(readAs(c.path, c.code), std::pair(c.text, c.code)) << c.path << ' ' << c.code;
}

TEST(ReadTextFile, WhatCannotBeReadGivesNothing) {
  ScopedTempRoot root;
  QDir().mkdir(root.path() + u"/folder"_s);
  ASSERT_EQ(mkfifo(QFile::encodeName(root.path() + u"/pipe"_s).constData(), 0600), 0);
  const QString huge = root.write(u"huge.txt"_s, "x");
  ASSERT_TRUE(QFile(huge).resize(qint64(1) << 31)) << "a sparse file of 2 GB takes no space";
  QStringList paths{root.path() + u"/folder"_s, root.path() + u"/missing.txt"_s, root.path() + u"/pipe"_s, huge,
                    QString()};
  const QString secret = root.write(u"secret.txt"_s, "secret");
  ASSERT_EQ(chmod(QFile::encodeName(secret).constData(), 0), 0);
  if (geteuid() != 0) paths << secret;  // permissions do not stop root from reading
  for (const QString& path : paths)
    for (int code : {int(encoding::Find), int(encoding::Utf16LE)})
      EXPECT_EQ(readAs(path, code), std::pair(u""_s, code)) << path;

  const QString plain = root.write(u"a.txt"_s, "abc");
  for (int code : {-2, 7, 65001}) EXPECT_EQ(readAs(plain, code), std::pair(u""_s, code)) << "a code outside the table";
  ScopedCodePage codePage("no-such-charset");
  EXPECT_EQ(ReadTextFile(root.write(u"gbk.txt"_s, QByteArray::fromHex("d6d0"))), u""_s);
}

}  // namespace
}  // namespace velmora
