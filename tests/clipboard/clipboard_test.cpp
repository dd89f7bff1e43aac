#include <gtest/gtest.h>

#include <functional>

#include "clipboard/basClipBoard.h"
#include "clipboard/clsClipboard.h"
#include "platform/DropFiles.h"
#include "platform/MemoryClipboard.h"
#include "tests/common/Helpers.h"

namespace velmora {
namespace {

using test::errorNumberOf;
constexpr quintptr kNoOwner = 0;

// Every test gets its own in-memory clipboard in place of the desktop's, and an instance
// of the automation object on it.
class Clipboard : public ::testing::Test {
 protected:
  MemoryClipboard memory;
  ScopedClipboardPlatform use{memory};
  clsClipboard clipboard;
  QStringList files;
  int32_t count = 0;
};

TEST_F(Clipboard, SnapshotListsFormatsInTheOrderOfferedWithTheirNames) {
  memory.putText("hello");
  const uint32_t html = memory.putNamed("HTML Format", "Version:0.9");
  memory.put(cf::Bitmap, "png");
  const uint32_t wps = memory.putNamed("Kingsoft WPS 9.0 Format", "x");
  ASSERT_EQ(clipboard.GetCurrentFormats(kNoOwner), 5);
  QList<uint32_t> ids;
  QStringList names;
  for (int i = 1; i <= 5; ++i) ids << clipboard.GetCurrentFormatID(i), names << clipboard.GetCurrentFormatName(i);
  EXPECT_EQ(ids, QList<uint32_t>({cf::UnicodeText, cf::Text, html, cf::Bitmap, wps}));
  EXPECT_EQ(names, QStringList({"Text (Unicode)", "Text", "HTML Format", "Bitmap Picture", "Kingsoft WPS 9.0 Format"}));
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

TEST_F(Clipboard, FormatNamesOfStandardAndRegisteredFormats) {
  QStringList names;
  for (uint32_t id : {cf::Text, cf::Dib, cf::EnhMetaFile, cf::HDrop, 16u, 17u, 0u, 18u, 0xFFFFu})
    names << clipboard.FormatName(id);
  EXPECT_EQ(names,
            QStringList({"Text", "DIB Bitmap Picture", "Enhanced Meta-File Picture", "File List", "", "", "", "", ""}));
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
  memory.putNamed("ObjectLink", QByteArray("Excel.Sheet.8\0Book1\0\0", 21));
  EXPECT_EQ(clipboard.FormatIDForName(kNoOwner, "HTML Format"), html);
  EXPECT_EQ(clipboard.FormatIDForName(kNoOwner, "html format"), 0u);
  EXPECT_TRUE(clipboard.IsDataAvailableForFormatName(kNoOwner, "HTML Format"));
  EXPECT_FALSE(clipboard.IsDataAvailableForFormatName(kNoOwner, "html format"));
  EXPECT_TRUE(clipboard.IsDataAvailableForFormat(html));
  EXPECT_FALSE(clipboard.IsDataAvailableForFormat(cf::Text));
  EXPECT_EQ(GetClipboardDataByName("objectlink"), "");
  for (const char* like : {"html", "kingsoft et"}) EXPECT_TRUE(ClipboardHasFormatLike(like)) << like;
  for (const char* unlike : {"Kingsoft WPS", "HTML Format and more"}) EXPECT_FALSE(ClipboardHasFormatLike(unlike));
  EXPECT_FALSE(memory.isOpen());
}

TEST_F(Clipboard, AnotherHolderMakesOpeningFailWithTheClipboardError) {
  memory.putNamed("HTML Format", "x");
  memory.setHeldByAnotherProgram(true);
  const ScriptError error = test::errorOf([&] { clipboard.ClipboardOpen(42); });
  EXPECT_EQ(error.number(), errnum::ClipboardOpenFailed);
  EXPECT_EQ(error.description(), "Unable to Open Clipboard.");
  EXPECT_FALSE(clipboard.IsOpen());
  EXPECT_EQ(clipboard.OwnerWindow(), 0u);
  EXPECT_EQ(errorNumberOf([] { GetClipboardHTML(); }), errnum::ClipboardOpenFailed);
  EXPECT_EQ(errorNumberOf([] { ClipboardHasFormatLike("html"); }), errnum::ClipboardOpenFailed);
  // Testing for a format does not open the clipboard.
  EXPECT_TRUE(clipboard.IsDataAvailableForFormat(memory.registerFormat("HTML Format")));
}

TEST_F(Clipboard, OperationsThatNeedTheClipboardOpenRaiseWhileItIsClosed) {
  memory.put(cf::HDrop, dropfiles::build({"/a"}, true));
  QByteArray bytes;
  const std::vector<std::function<void()>> calls = {[&] { clipboard.GetClipboardMemoryHandle(cf::HDrop); },
                                                    [&] { clipboard.SetBinaryData(cf::Text, "x"); },
                                                    [&] { clipboard.ClearClipboard(); },
                                                    [&] { clipboard.SetFileList({"/a"}); },
                                                    [&] { clipboard.GetBinaryData(cf::HDrop, bytes); },
                                                    [&] { clipboard.GetFileList(files, count); },
                                                    [&] { clipboard.SetTextData(cf::Text, "x"); }};
  for (const auto& call : calls) {
    const ScriptError error = test::errorOf(call);
    EXPECT_EQ(error.number(), errnum::ClipboardNotOpen);
    EXPECT_EQ(error.description(), "Attempt to access the clipboard when clipboard not Open.");
  }
  EXPECT_EQ(memory.countFormats(), 1);  // nothing was written or emptied
}

TEST_F(Clipboard, OpenAndCloseFollowTheOwnerWindow) {
  {
    clsClipboard owner;
    EXPECT_TRUE(owner.ClipboardOpen(7));
    EXPECT_EQ(owner.OwnerWindow(), 7u);
    EXPECT_EQ(memory.openOwner(), 7u);
    EXPECT_EQ(errorNumberOf([&] { clipboard.ClipboardOpen(8); }), errnum::ClipboardOpenFailed) << "another owner";
    owner.ClipboardClose();
    EXPECT_FALSE(owner.IsOpen());
    EXPECT_EQ(owner.OwnerWindow(), 0u);
    EXPECT_FALSE(memory.isOpen());
    owner.ClipboardOpen(9);
  }
  EXPECT_FALSE(memory.isOpen()) << "the end of the instance closes the clipboard";
}

TEST_F(Clipboard, FileListsComeBackInOrdinalOrderCutToTheNameBuffer) {
  clipboard.ClipboardOpen(kNoOwner);
  files = {"untouched"};
  EXPECT_FALSE(clipboard.GetFileList(files, count)) << "no file list";
  EXPECT_EQ(files, QStringList{"untouched"});
  memory.put(cf::HDrop, dropfiles::build({}, true));  // a block without names
  EXPECT_FALSE(clipboard.GetFileList(files, count));
  EXPECT_EQ(count, 0);
  memory.put(cf::HDrop, "not a drop block");
  EXPECT_FALSE(clipboard.GetFileList(files, count));
  QByteArray badOffset = dropfiles::build({"/a"}, false);
  badOffset[0] = char(0x7F);
  memory.put(cf::HDrop, badOffset);
  EXPECT_FALSE(clipboard.GetFileList(files, count));

  const QString deep = "/" + QString(300, u'd'), chinese = QString::fromUtf8("/tmp/中文.txt");
  memory.put(cf::HDrop, dropfiles::build({"/home/u/c.txt", chinese, deep, "/home/u/A.txt"}, /*wideNames=*/true));
  ASSERT_TRUE(clipboard.GetFileList(files, count));
  EXPECT_EQ(count, 4);
  EXPECT_EQ(files, QStringList({deep.left(259), "/home/u/A.txt", "/home/u/c.txt", chinese}));

  // Written back as a narrow drop block: 20 header bytes, then the names.
  ASSERT_TRUE(clipboard.SetFileList({"/b", "/a"}));
  EXPECT_EQ(memory.bytesOf(cf::HDrop), QByteArray("\x14", 1) + QByteArray(19, '\0') + QByteArray("/b\0/a\0\0", 7));
}

TEST_F(Clipboard, TextFormatsGoThroughTheTextServiceWhichNeedsTheClipboardLetGo) {
  memory.putText(QString::fromUtf8("héllo 中"));
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

TEST_F(Clipboard, WritingHandsBlocksToTheClipboardAndClearingEmptiesIt) {
  memory.putText("old");
  clipboard.ClipboardOpen(kNoOwner);
  clipboard.ClearClipboard();
  EXPECT_EQ(memory.countFormats(), 0);
  ASSERT_TRUE(clipboard.SetBinaryData(cf::Bitmap, "picture"));
  ASSERT_TRUE(clipboard.SetClipboardMemoryHandle(cf::Dib, makeClipboardMemory("dib")));
  QByteArray bytes;
  ASSERT_TRUE(clipboard.GetBinaryData(cf::Bitmap, bytes));
  EXPECT_EQ(bytes, "picture");
  EXPECT_EQ(*clipboard.GetClipboardMemoryHandle(cf::Dib), "dib");

  // Text data is one byte per character.
  ASSERT_TRUE(clipboard.SetTextData(cf::Text, QString::fromUtf8("abc é")));
  EXPECT_EQ(memory.bytesOf(cf::Text), QByteArray("abc \xE9"));
  EXPECT_FALSE(clipboard.SetTextData(cf::Text, ""));
  EXPECT_EQ(errorNumberOf([&] { clipboard.SetTextData(cf::Text, QString::fromUtf8("中")); }), errnum::Overflow);
  EXPECT_EQ(memory.bytesOf(cf::Text), QByteArray("abc \xE9"));
}

TEST(HtmlFormatHeader, PicksTheRestOfTheFirstLineThatCarriesTheName) {
  const QString block = "Version:0.9\r\nStartHTML:0000000105\r\nEndHTML:0000000300\r\nStartFragment:0000000141\r\n"
                        "EndFragment:0000000264\r\nSourceURL:http://example.com/a?b=c:d\r\n<html><body>\r\n"
                        "<!--StartFragment-->a<!--EndFragment-->\r\n</body></html>";
  const QString noSource = "Version:0.9\r\nStartHTML:0000000105\r\n<html><body>x</body></html>";
  const struct {
    QString block, name, value;
  } cases[] = {
      {block, "StartHTML", "0000000105"},
      {block, "SourceURL", "http://example.com/a?b=c:d"},
      {block, "sourceurl", "http://example.com/a?b=c:d"},  // the match ignores case
      {block, "HTML", "0000000105"},                       // even inside another name
      {block, "End\\w+", "0000000300"},                    // the name is part of the pattern
      {block, "S.art(HTML)", "HTML"},
      {noSource, "SourceURL", noSource},  // without the header, the text comes back
      {"", "StartHTML", ""},
      {"x\r\nSourceURL:", "SourceURL", "x\r\nSourceURL:"},  // a value needs a character after it
      {"SourceURL:http://a/\r\n", "SourceURL", "http://a/"},
  };
  for (const auto& c : cases) EXPECT_EQ(GetHTMLFormatHeader(c.block, c.name), c.value) << c.name;

  QString large = "Version:0.9\r\nStartHTML:0000000105\r\n<html><body>";
  while (large.size() < 2'000'000) large += "<p style=\"margin:0cm;mso-pagination:none\">text</p>\r\n";
  EXPECT_EQ(GetHTMLFormatHeader(large, "SourceURL"), large) << "an absent header in a large page";
  EXPECT_EQ(GetHTMLFormatHeader(large, "StartHTML"), "0000000105");
  EXPECT_EQ(GetHTMLFormatHeader(large, "mso-pagination"), "none\">text</p>");
}

}  // namespace
}  // namespace velmora
