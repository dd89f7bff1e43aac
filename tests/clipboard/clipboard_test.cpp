#include <gtest/gtest.h>

#include <functional>

#include "clipboard/basClipBoard.h"
#include "clipboard/clsClipboard.h"
#include "platform/DropFiles.h"
#include "platform/MemoryClipboard.h"
#include "core/ScriptError.h"

namespace velmora {
namespace {

constexpr quintptr kNoOwner = 0;

long errorNumberOf(const std::function<void()>& call, QString* description = nullptr) {
  try {
    call();
  } catch (const ScriptError& error) {
    if (description) *description = error.description();
    return error.number();
  }
  return 0;
}

// Every test gets its own in-memory clipboard in place of the desktop's.
class Clipboard : public ::testing::Test {
 protected:
  MemoryClipboard memory;
  ScopedClipboardPlatform use{memory};
};

TEST_F(Clipboard, SnapshotListsFormatsInTheOrderOfferedWithTheirNames) {
  memory.putText("hello");
  const uint32_t html = memory.putNamed("HTML Format", "Version:0.9");
  memory.put(cf::Bitmap, "png");
  const uint32_t wps = memory.putNamed("Kingsoft WPS 9.0 Format", "x");

  clsClipboard clipboard;
  ASSERT_EQ(clipboard.GetCurrentFormats(kNoOwner), 5);
  const std::vector<std::pair<uint32_t, QString>> expected = {
      {cf::UnicodeText, "Text (Unicode)"}, {cf::Text, "Text"}, {html, "HTML Format"},
      {cf::Bitmap, "Bitmap Picture"},      {wps, "Kingsoft WPS 9.0 Format"}};
  for (int i = 1; i <= 5; ++i) {
    EXPECT_EQ(clipboard.GetCurrentFormatID(i), expected[i - 1].first) << i;
    EXPECT_EQ(clipboard.GetCurrentFormatName(i), expected[i - 1].second) << i;
  }
  EXPECT_TRUE(clipboard.HasCurrentFormat(cf::Bitmap));
  EXPECT_FALSE(clipboard.HasCurrentFormat(cf::HDrop));
  // The snapshot opens and closes the clipboard; it stays as taken until the next one.
  EXPECT_FALSE(clipboard.IsOpen());
  EXPECT_FALSE(memory.isOpen());
  memory.put(cf::HDrop, dropfiles::build({"/a"}, true));
  EXPECT_FALSE(clipboard.HasCurrentFormat(cf::HDrop));
  EXPECT_EQ(clipboard.FormatCount(), 6);

  EXPECT_EQ(errorNumberOf([&] { clipboard.GetCurrentFormatID(0); }), errnum::SubscriptOutOfRange);
  EXPECT_EQ(errorNumberOf([&] { clipboard.GetCurrentFormatName(6); }), errnum::SubscriptOutOfRange);
}

TEST_F(Clipboard, AnEmptyClipboardHasNoFormatsAndNoHtml) {
  clsClipboard clipboard;
  EXPECT_EQ(clipboard.GetCurrentFormats(kNoOwner), 0);
  EXPECT_EQ(clipboard.FormatCount(), 0);
  EXPECT_EQ(GetClipboardHTML(), "");
  EXPECT_EQ(GetClipboardDataByName("OwnerLink"), "");
  EXPECT_FALSE(ClipboardHasFormatLike(""));
}

TEST_F(Clipboard, FormatNamesOfStandardAndRegisteredFormats) {
  clsClipboard clipboard;
  const QStringList standard = {"Text",
                                "Bitmap Picture",
                                "Meta-File Picture",
                                "Microsoft Symbolic Link (SYLK) data.",
                                "Software Arts' Data Interchange information.",
                                "Tagged Image File Format (TIFF) Picture",
                                "Text (OEM)",
                                "DIB Bitmap Picture",
                                "Colour Palette",
                                "Pen Data",
                                "RIFF Audio data",
                                "Wave File",
                                "Text (Unicode)",
                                "Enhanced Meta-File Picture",
                                "File List",
                                "",
                                ""};
  for (uint32_t id = 1; id <= 17; ++id) EXPECT_EQ(clipboard.FormatName(id), standard[id - 1]) << id;

  const uint32_t owner = memory.registerFormat("OwnerLink");
  EXPECT_EQ(clipboard.FormatName(owner), "OwnerLink");
  EXPECT_EQ(clipboard.FormatName(0), "");
  EXPECT_EQ(clipboard.FormatName(18), "");
  EXPECT_EQ(clipboard.FormatName(0xFFFF), "");
  // The platform fills a 255-character buffer, one of them the closing NUL.
  const QString longName(300, u'n');
  EXPECT_EQ(clipboard.FormatName(memory.registerFormat(longName)), longName.left(254));
}

TEST(ClipboardRegistry, AddFormatReadsTheAnswer0xC000AsAFailure) {
  MemoryClipboard memory(/*firstRegisteredId=*/0xC000);
  ScopedClipboardPlatform use(memory);
  clsClipboard clipboard;
  EXPECT_EQ(clipboard.AddFormat("First"), 0u);
  EXPECT_EQ(clipboard.AddFormat("Second"), 0xC001u);
  // Registering is by name without regard to case, and an id stays with its name.
  EXPECT_EQ(clipboard.AddFormat("SECOND"), 0xC001u);
  EXPECT_EQ(clipboard.FormatName(0xC001), "Second");
  EXPECT_EQ(clipboard.AddFormat(""), 0u);
}

TEST_F(Clipboard, NamesAreComparedExactlyExceptByThePrefixTest) {
  const uint32_t html = memory.putNamed("HTML Format", "Version:0.9");
  memory.putNamed("Kingsoft ET 9.0 Format", "x");
  clsClipboard clipboard;
  EXPECT_EQ(clipboard.FormatIDForName(kNoOwner, "HTML Format"), html);
  EXPECT_EQ(clipboard.FormatIDForName(kNoOwner, "html format"), 0u);
  EXPECT_TRUE(clipboard.IsDataAvailableForFormatName(kNoOwner, "HTML Format"));
  EXPECT_FALSE(clipboard.IsDataAvailableForFormatName(kNoOwner, "html format"));
  EXPECT_TRUE(ClipboardHasFormatLike("html"));
  EXPECT_TRUE(ClipboardHasFormatLike("kingsoft et"));
  EXPECT_FALSE(ClipboardHasFormatLike("Kingsoft WPS"));
  EXPECT_FALSE(ClipboardHasFormatLike("HTML Format and more"));
  EXPECT_TRUE(clipboard.IsDataAvailableForFormat(html));
  EXPECT_FALSE(clipboard.IsDataAvailableForFormat(cf::Text));
}

TEST_F(Clipboard, AnotherHolderMakesOpeningFailWithTheClipboardError) {
  memory.putNamed("HTML Format", "x");
  memory.setHeldByAnotherProgram(true);
  clsClipboard clipboard;
  QString description;
  EXPECT_EQ(errorNumberOf([&] { clipboard.ClipboardOpen(42); }, &description), errnum::ClipboardOpenFailed);
  EXPECT_EQ(errnum::ClipboardOpenFailed, 0x80040623L);
  EXPECT_EQ(description, "Unable to Open Clipboard.");
  EXPECT_FALSE(clipboard.IsOpen());
  EXPECT_EQ(clipboard.OwnerWindow(), 0u);
  EXPECT_EQ(errorNumberOf([] { GetClipboardHTML(); }), errnum::ClipboardOpenFailed);
  EXPECT_EQ(errorNumberOf([] { ClipboardHasFormatLike("html"); }), errnum::ClipboardOpenFailed);
  // Testing for a format does not open the clipboard.
  EXPECT_TRUE(clipboard.IsDataAvailableForFormat(memory.registerFormat("HTML Format")));
}

TEST_F(Clipboard, OperationsThatNeedTheClipboardOpenRaiseWhileItIsClosed) {
  memory.put(cf::HDrop, dropfiles::build({"/a"}, true));
  clsClipboard clipboard;
  QByteArray bytes;
  QStringList files;
  int32_t count = 0;
  const std::vector<std::function<void()>> calls = {
      [&] { clipboard.GetClipboardMemoryHandle(cf::HDrop); }, [&] { clipboard.SetBinaryData(cf::Text, "x"); },
      [&] { clipboard.ClearClipboard(); },                    [&] { clipboard.SetFileList({"/a"}); },
      [&] { clipboard.GetBinaryData(cf::HDrop, bytes); },     [&] { clipboard.GetFileList(files, count); },
      [&] { clipboard.SetTextData(cf::Text, "x"); }};
  for (const auto& call : calls) {
    QString description;
    EXPECT_EQ(errorNumberOf(call, &description), errnum::ClipboardNotOpen);
    EXPECT_EQ(description, "Attempt to access the clipboard when clipboard not Open.");
  }
  EXPECT_EQ(errnum::ClipboardNotOpen, 0x80040622L);
  EXPECT_EQ(memory.countFormats(), 1);  // nothing was written or emptied
}

TEST_F(Clipboard, OpenAndCloseFollowTheOwnerWindow) {
  {
    clsClipboard clipboard;
    EXPECT_TRUE(clipboard.ClipboardOpen(7));
    EXPECT_EQ(clipboard.OwnerWindow(), 7u);
    EXPECT_EQ(memory.openOwner(), 7u);
    // Another owner cannot open it meanwhile.
    clsClipboard other;
    EXPECT_EQ(errorNumberOf([&] { other.ClipboardOpen(8); }), errnum::ClipboardOpenFailed);
    clipboard.ClipboardClose();
    EXPECT_FALSE(clipboard.IsOpen());
    EXPECT_EQ(clipboard.OwnerWindow(), 0u);
    EXPECT_FALSE(memory.isOpen());
    clipboard.ClipboardOpen(9);
  }
  EXPECT_FALSE(memory.isOpen()) << "the end of the instance closes the clipboard";
}

TEST_F(Clipboard, FileListComesBackInOrdinalOrder) {
  memory.put(cf::HDrop, dropfiles::build({"/home/u/c.txt", "/home/u/A.txt", "/home/u/b.txt"}, /*wideNames=*/true));
  clsClipboard clipboard;
  clipboard.ClipboardOpen(kNoOwner);
  QStringList files;
  int32_t count = 0;
  ASSERT_TRUE(clipboard.GetFileList(files, count));
  EXPECT_EQ(count, 3);
  EXPECT_EQ(files, QStringList({"/home/u/A.txt", "/home/u/b.txt", "/home/u/c.txt"}));
}

TEST_F(Clipboard, FileNamesAreCutToTheNameBuffer) {
  const QString deep = "/" + QString(300, u'd');
  const QString chinese = QString::fromUtf8("/tmp/中文.txt");
  memory.put(cf::HDrop, dropfiles::build({deep, chinese}, /*wideNames=*/true));
  clsClipboard clipboard;
  clipboard.ClipboardOpen(kNoOwner);
  QStringList files;
  int32_t count = 0;
  ASSERT_TRUE(clipboard.GetFileList(files, count));
  ASSERT_EQ(files.size(), 2);
  EXPECT_EQ(files[0], deep.left(259));
  EXPECT_EQ(files[1], chinese);
}

TEST_F(Clipboard, NoFileListMeansFalse) {
  clsClipboard clipboard;
  clipboard.ClipboardOpen(kNoOwner);
  QStringList files = {"untouched"};
  int32_t count = -1;
  EXPECT_FALSE(clipboard.GetFileList(files, count));
  EXPECT_EQ(files, QStringList{"untouched"});
  clipboard.ClipboardClose();

  memory.put(cf::HDrop, dropfiles::build({}, true));  // a block without names
  clipboard.ClipboardOpen(kNoOwner);
  EXPECT_FALSE(clipboard.GetFileList(files, count));
  EXPECT_EQ(count, 0);
  memory.put(cf::HDrop, "not a drop block");
  EXPECT_FALSE(clipboard.GetFileList(files, count));
}

TEST_F(Clipboard, SetFileListWritesANarrowDropBlock) {
  clsClipboard clipboard;
  clipboard.ClipboardOpen(kNoOwner);
  ASSERT_TRUE(clipboard.SetFileList({"/b", "/a"}));
  const QByteArray header("\x14\0\0\0" "\0\0\0\0" "\0\0\0\0" "\0\0\0\0" "\0\0\0\0", 20);
  EXPECT_EQ(memory.bytesOf(cf::HDrop), header + QByteArray("/b\0/a\0\0", 7));
  QStringList files;
  int32_t count = 0;
  ASSERT_TRUE(clipboard.GetFileList(files, count));
  EXPECT_EQ(files, QStringList({"/a", "/b"}));
}

TEST_F(Clipboard, TextFormatsGoThroughTheTextServiceWhichNeedsTheClipboardLetGo) {
  memory.putText(QString::fromUtf8("héllo 中"));
  clsClipboard clipboard;
  clipboard.ClipboardOpen(5);
  QString text;
  // The in-memory text service refuses a clipboard that is still open, as the platform's does.
  ASSERT_TRUE(clipboard.GetTextData(cf::UnicodeText, text));
  EXPECT_EQ(text, QString::fromUtf8("héllo 中"));
  EXPECT_TRUE(clipboard.IsOpen());
  EXPECT_EQ(memory.openOwner(), 5u) << "opened again for the same owner";
  clipboard.ClipboardClose();

  memory.setHeldByAnotherProgram(true);
  EXPECT_EQ(errorNumberOf([&] { clipboard.GetTextData(cf::Text, text); }), errnum::ClipboardOpenFailed);
}

TEST_F(Clipboard, OtherFormatsAreReadAsUtf8KeepingTrailingNuls) {
  const uint32_t html = memory.putNamed("HTML Format", QString::fromUtf8("<b>中文</b>").toUtf8() + QByteArray(1, '\0'));
  const uint32_t empty = memory.putNamed("Empty", "");
  clsClipboard clipboard;
  clipboard.ClipboardOpen(kNoOwner);
  QString text = "untouched";
  ASSERT_TRUE(clipboard.GetTextData(html, text));
  EXPECT_EQ(text, QString::fromUtf8("<b>中文</b>") + QChar(0));
  text = "untouched";
  EXPECT_FALSE(clipboard.GetTextData(empty, text));
  EXPECT_FALSE(clipboard.GetTextData(cf::Bitmap, text));
  EXPECT_EQ(text, "untouched");

  QByteArray bytes = "old";
  EXPECT_FALSE(clipboard.GetBinaryData(empty, bytes));
  EXPECT_TRUE(bytes.isEmpty());
  EXPECT_FALSE(clipboard.GetClipboardMemoryHandle(cf::Bitmap));
}

TEST_F(Clipboard, SetTextDataWritesOneBytePerCharacter) {
  clsClipboard clipboard;
  clipboard.ClipboardOpen(kNoOwner);
  ASSERT_TRUE(clipboard.SetTextData(cf::Text, QString::fromUtf8("abc é")));
  EXPECT_EQ(memory.bytesOf(cf::Text), QByteArray("abc \xE9"));
  EXPECT_FALSE(clipboard.SetTextData(cf::Text, ""));
  EXPECT_EQ(errorNumberOf([&] { clipboard.SetTextData(cf::Text, QString::fromUtf8("中")); }), errnum::Overflow);
  EXPECT_EQ(memory.bytesOf(cf::Text), QByteArray("abc \xE9"));
}

TEST_F(Clipboard, WritingHandsBlocksToTheClipboardAndClearingEmptiesIt) {
  memory.putText("old");
  clsClipboard clipboard;
  clipboard.ClipboardOpen(kNoOwner);
  clipboard.ClearClipboard();
  EXPECT_EQ(memory.countFormats(), 0);
  ASSERT_TRUE(clipboard.SetBinaryData(cf::Bitmap, "picture"));
  ASSERT_TRUE(clipboard.SetClipboardMemoryHandle(cf::Dib, makeClipboardMemory("dib")));
  QByteArray bytes;
  ASSERT_TRUE(clipboard.GetBinaryData(cf::Bitmap, bytes));
  EXPECT_EQ(bytes, "picture");
  EXPECT_EQ(*clipboard.GetClipboardMemoryHandle(cf::Dib), "dib");
}

TEST_F(Clipboard, DataIsReadByFormatName) {
  memory.putNamed("ObjectLink", QByteArray("Excel.Sheet.8\0Book1\0\0", 21));
  memory.putText("plain");
  EXPECT_EQ(GetClipboardDataByName("ObjectLink").left(11), "Excel.Sheet");
  EXPECT_EQ(GetClipboardDataByName("Text"), "plain");
  EXPECT_EQ(GetClipboardDataByName("objectlink"), "");
  EXPECT_FALSE(memory.isOpen());
}

TEST_F(Clipboard, HtmlFormatIsReadWholeAsUtf8) {
  const QString block = QString::fromUtf8(
      "Version:0.9\r\nStartHTML:0000000097\r\nEndHTML:0000000180\r\n"
      "StartFragment:0000000131\r\nEndFragment:0000000144\r\n"
      "<html><body>\r\n<!--StartFragment-->Grüße 中文<!--EndFragment-->\r\n</body></html>");
  memory.putText("the text formats are not involved");
  memory.putNamed("HTML Format", block.toUtf8());
  EXPECT_EQ(GetClipboardHTML(), block);
}

TEST(HtmlFormatHeader, PicksTheRestOfTheHeaderLine) {
  const QString block =
      "Version:0.9\r\nStartHTML:0000000105\r\nEndHTML:0000000300\r\nStartFragment:0000000141\r\n"
      "EndFragment:0000000264\r\nSourceURL:http://example.com/a?b=c:d\r\n<html><body>\r\n"
      "<!--StartFragment-->a<!--EndFragment-->\r\n</body></html>";
  EXPECT_EQ(GetHTMLFormatHeader(block, "StartHTML"), "0000000105");
  EXPECT_EQ(GetHTMLFormatHeader(block, "SourceURL"), "http://example.com/a?b=c:d");
  EXPECT_EQ(GetHTMLFormatHeader(block, "sourceurl"), "http://example.com/a?b=c:d") << "the match ignores case";
  // The first line that carries the name wins, even inside another name.
  EXPECT_EQ(GetHTMLFormatHeader(block, "HTML"), "0000000105");
}

TEST(HtmlFormatHeader, TextWithoutTheHeaderComesBackUnchanged) {
  const QString block = "Version:0.9\r\nStartHTML:0000000105\r\n<html><body>x</body></html>";
  EXPECT_EQ(GetHTMLFormatHeader(block, "SourceURL"), block);
  EXPECT_EQ(GetHTMLFormatHeader("", "StartHTML"), "");
  // A name at the very end has no value and nothing after it to consume.
  EXPECT_EQ(GetHTMLFormatHeader("x\r\nSourceURL:", "SourceURL"), "x\r\nSourceURL:");
  // A value on the last line needs at least one character after it.
  EXPECT_EQ(GetHTMLFormatHeader("SourceURL:http://a/\r\n", "SourceURL"), "http://a/");
}

TEST(HtmlFormatHeader, AnAbsentHeaderInALargePageGivesTheTextBack) {
  QString block = "Version:0.9\r\nStartHTML:0000000105\r\n<html><body>";
  while (block.size() < 2'000'000) block += "<p style=\"margin:0cm;mso-pagination:none\">text</p>\r\n";
  EXPECT_EQ(GetHTMLFormatHeader(block, "SourceURL"), block);
  EXPECT_EQ(GetHTMLFormatHeader(block, "StartHTML"), "0000000105");
  EXPECT_EQ(GetHTMLFormatHeader(block, "mso-pagination"), "none\">text</p>");
}

TEST(HtmlFormatHeader, TheNameIsPartOfThePattern) {
  const QString block = "Version:0.9\r\nStartHTML:0000000105\r\nEndHTML:0000000300\r\n";
  EXPECT_EQ(GetHTMLFormatHeader(block, "End\\w+"), "0000000300");
  EXPECT_EQ(GetHTMLFormatHeader(block, "S.art(HTML)"), "HTML");
}

TEST(DropFilesBlock, NamesAreCountedAndFetched) {
  const QByteArray narrow = dropfiles::build({"/a", "/bb"}, /*wideNames=*/false);
  EXPECT_EQ(dropfiles::count(narrow), 2u);
  EXPECT_EQ(dropfiles::queryFile(narrow, 1, 260), "/bb");
  EXPECT_EQ(dropfiles::queryFile(narrow, 1, 3), "/b");
  EXPECT_EQ(dropfiles::queryFile(narrow, 2, 260), "");
  const QByteArray wide = dropfiles::build({QString::fromUtf8("/ü/中")}, /*wideNames=*/true);
  EXPECT_EQ(dropfiles::names(wide), QStringList{QString::fromUtf8("/ü/中")});
  EXPECT_EQ(dropfiles::count(QByteArray(10, 'x')), 0u);
  QByteArray badOffset = narrow;
  badOffset[0] = char(0x7F);
  EXPECT_EQ(dropfiles::count(badOffset), 0u);
}

}  // namespace
}  // namespace velmora
