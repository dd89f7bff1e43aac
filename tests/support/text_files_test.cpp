#include <gtest/gtest.h>

#include "support/basPublic.h"
#include "tests/common/TestSupport.h"

namespace velmora {
namespace {

class TextFiles : public ::testing::Test {
 protected:
  test::ScopedTempRoot temp;

  // Reads with encoding -1 and returns the text and the code found.
  std::pair<QString, int> read(const QByteArray& bytes) {
    int code = encoding::Find;
    const QString text = ReadTextFileAs(temp.write("t.txt", bytes), code);
    return {text, code};
  }
};

TEST_F(TextFiles, MarksAndInspectionChooseTheEncoding) {
  const QString chinese = QString::fromUtf8("\xe4\xb8\xad");
  EXPECT_EQ(read("plain ascii"), std::make_pair(QString("plain ascii"), encoding::CodePage));
  EXPECT_EQ(read("a\xe4\xb8\xad"), std::make_pair("a" + chinese, encoding::Utf8));
  EXPECT_EQ(read("\xef\xbb\xbf" "a\xe4\xb8\xad"), std::make_pair("a" + chinese, encoding::Utf8Bom));
  EXPECT_EQ(read(QByteArray("\xff\xfe" "a\0-N", 6)), std::make_pair("a" + chinese, encoding::Utf16LE));
  EXPECT_EQ(read(QByteArray("\xfe\xff\0aN-", 6)), std::make_pair("a" + chinese, encoding::Utf16BE));
  EXPECT_EQ(read(QByteArray("\xff\xfe\0\0a\0\0\0", 8)), std::make_pair(QString(), encoding::Utf32LE));
  EXPECT_EQ(read(QByteArray("\0\0\xfe\xff\0\0\0a", 8)), std::make_pair(QString(), encoding::Utf32BE));
  // Bytes that are no UTF-8 fall back to the 8-bit code page (windows-1252 by default here).
  EXPECT_EQ(read("caf\xe9"), std::make_pair(QString::fromUtf8("caf\xc3\xa9"), encoding::CodePage));
}

TEST_F(TextFiles, AForcedEncodingReadsFromTheFirstByte) {
  const QString path = temp.write("bom.txt", "\xef\xbb\xbfx");
  int code = encoding::CodePage;
  EXPECT_EQ(ReadTextFileAs(path, code), QString::fromUtf8("\xc3\xaf\xc2\xbb\xc2\xbfx"));
  code = encoding::Utf8Bom;
  EXPECT_EQ(ReadTextFileAs(path, code), "x");
  code = 7;
  EXPECT_EQ(ReadTextFileAs(path, code), "");
  code = -2;
  EXPECT_EQ(ReadTextFileAs(path, code), "");
}

TEST_F(TextFiles, WhatIsNotAReadableFileGivesNothing) {
  QDir().mkpath(temp.path() + "/folder");
  EXPECT_EQ(ReadTextFile(temp.path() + "/folder"), "");
  EXPECT_EQ(ReadTextFile(temp.path() + "/missing"), "");
  EXPECT_EQ(ReadTextFile(""), "");
  QByteArray junk(4096, '\0');
  for (int i = 0; i < junk.size(); ++i) junk[i] = char((i * 7919) % 251);
  EXPECT_NO_THROW(ReadTextFile(temp.write("junk.bin", junk)));
}

TEST(DetectUtf8, FollowsTheSequenceRules) {
  auto detect = [](QByteArray bytes) {
    int code = -1;
    DetectUTF8(bytes, code);
    return code;
  };
  EXPECT_EQ(detect("ascii only"), encoding::CodePage);
  EXPECT_EQ(detect("\xc3\xa9"), encoding::Utf8);
  EXPECT_EQ(detect("\xa9 starts inside a sequence"), encoding::CodePage);
  EXPECT_EQ(detect("\xe4\xb8"), encoding::CodePage) << "cut short";
  EXPECT_EQ(detect("\xe4x\xb8"), encoding::CodePage);
  EXPECT_EQ(detect("\xc0\x80"), encoding::Utf8) << "over-long forms are not rejected";

  QByteArray bytes("\xe4\xb8\xad");
  int code = 0;
  DetectUTF8(bytes, code);
  EXPECT_NE(bytes, QByteArray("\xe4\xb8\xad")) << "the lead byte was shifted while counting";
}

TEST(DetectBom, ReadsTheFirstFourBytesAsALittleEndianNumber) {
  int code = -1;
  EXPECT_EQ(DetectBOM(0x0000FEFF, code), 4);
  EXPECT_EQ(code, encoding::Utf32LE);
  EXPECT_EQ(DetectBOM(0x0041FEFF, code), 2);
  EXPECT_EQ(code, encoding::Utf16LE);
  EXPECT_EQ(DetectBOM(0x41BFBBEF, code), 3);
  EXPECT_EQ(code, encoding::Utf8Bom);
  EXPECT_EQ(DetectBOM(0x41414141, code), 0);
  EXPECT_EQ(code, encoding::CodePage);
}

TEST(Utf8ToUnicode, DecodesAndGivesNothingForNoBytes) {
  EXPECT_EQ(UTF8ToUnicode(""), "");
  EXPECT_EQ(UTF8ToUnicode("caf\xc3\xa9"), QString::fromUtf8("caf\xc3\xa9"));
  EXPECT_EQ(UTF8ToUnicode("\xff"), QString(QChar(0xFFFD)));
}

}  // namespace
}  // namespace velmora
