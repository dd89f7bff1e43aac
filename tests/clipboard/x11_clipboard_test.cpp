// The desktop clipboard on a real X server (run under xvfb-run), owned by other programs:
// xclip for one target, the clipboard_owner helper for several at once.
#include <gtest/gtest.h>
#include <signal.h>
#include <QBuffer>
#include <QClipboard>
#include <QGuiApplication>
#include <QImage>
#include <QProcess>

#include <optional>

#include "clipboard/basClipBoard.h"
#include "clipboard/clsClipboard.h"
#include "platform/DropFiles.h"
#include "tests/common/Helpers.h"
#include "tests/common/TestSupport.h"

namespace velmora {
namespace {

using test::errorNumberOf;
constexpr quintptr kNoOwner = 0;

QByteArray utf16le(const QString& text, bool withMark) {
  QByteArray bytes = withMark ? QByteArray("\xFF\xFE") : QByteArray();
  return bytes + QByteArray(reinterpret_cast<const char*>(text.utf16()), text.size() * 2);
}

QByteArray png(const QImage& image, const char* format = "PNG") {
  QByteArray bytes;
  QBuffer buffer(&bytes);
  buffer.open(QIODevice::WriteOnly);
  image.save(&buffer, format);
  return bytes;
}

// The names of the formats the clipboard offers now.
QStringList offeredNames() {
  clsClipboard clipboard;
  QStringList names;
  const int32_t count = clipboard.GetCurrentFormats(kNoOwner);
  for (int32_t i = 1; i <= count; ++i) names.append(clipboard.GetCurrentFormatName(i));
  return names;
}

// The fragment of "HTML Format" text, cut out of its UTF-8 bytes at the header's offsets.
QString fragmentOf(const QString& htmlFormat) {
  const QByteArray bytes = htmlFormat.toUtf8();
  const qsizetype start = GetHTMLFormatHeader(htmlFormat, "StartFragment").toLongLong();
  const qsizetype end = GetHTMLFormatHeader(htmlFormat, "EndFragment").toLongLong();
  return QString::fromUtf8(bytes.mid(start, end - start));
}

class X11Clipboard : public ::testing::Test {
 protected:
  void SetUp() override {
    if (qEnvironmentVariableIsEmpty("DISPLAY") || QGuiApplication::platformName() != u"xcb")
      GTEST_SKIP() << "needs an X server: run under xvfb-run";
    clipboard_ = QGuiApplication::clipboard();
    changes_ = QObject::connect(clipboard_, &QClipboard::dataChanged, [this] { ++changeCount_; });
  }

  void TearDown() override {
    if (!clipboard_) return;
    endOwner();
    QObject::disconnect(changes_);
  }

  // Starts another program that takes the clipboard, and waits until this process has seen it
  // take it over.
  void startOwner(const QString& program, const QStringList& arguments) {
    const int changesBefore = changeCount_;
    owner_.setProgram(program);
    owner_.setArguments(arguments);
    owner_.start();
    ASSERT_TRUE(owner_.waitForStarted()) << qPrintable(program);
    ASSERT_TRUE(test::waitUntil([&] { return changeCount_ > changesBefore; }))
        << "the clipboard did not change hands; " << owner_.readAllStandardError().toStdString();
  }

  // xclip owns the clipboard with one target (it stays in the foreground with -quiet).
  void offerWithXclip(const QString& mimeType, const QByteArray& bytes) {
    const QString file = temp_.write("offered-" + QString::number(++files_), bytes);
    startOwner("xclip", {"-quiet", "-selection", "clipboard", "-t", mimeType, "-i", file});
  }

  // The helper owns the clipboard with several targets.
  void offerTargets(const std::vector<std::pair<QString, QByteArray>>& targets) {
    QStringList arguments;
    for (const auto& [type, bytes] : targets)
      arguments.append(type + "=" + temp_.write("offered-" + QString::number(++files_), bytes));
    startOwner(VELMORA_CLIPBOARD_OWNER, arguments);
  }

  // The clipboard's picture or file list, read as a script reads them.
  QByteArray bitmap() {
    clsClipboard clipboard;
    clipboard.ClipboardOpen(kNoOwner);
    QByteArray bytes;
    EXPECT_TRUE(clipboard.GetBinaryData(cf::Bitmap, bytes));
    return bytes;
  }
  std::optional<QStringList> fileList() {
    clsClipboard clipboard;
    clipboard.ClipboardOpen(kNoOwner);
    QStringList files;
    int32_t count = 0;
    if (!clipboard.GetFileList(files, count)) return std::nullopt;
    EXPECT_EQ(count, files.size());
    return files;
  }

  void endOwner() {
    if (owner_.state() == QProcess::NotRunning) return;
    const int changesBefore = changeCount_;
    ::kill(pid_t(owner_.processId()), SIGCONT);
    owner_.kill();
    owner_.waitForFinished();
    test::waitUntil([&] { return changeCount_ > changesBefore; }, 3000);
  }

  // What another program reads from the clipboard this process owns.
  QByteArray readWithXclip(const QString& target) {
    QProcess reader;
    reader.start("xclip", {"-o", "-selection", "clipboard", "-t", target});
    // This process answers the request from its event loop.
    EXPECT_TRUE(test::waitUntil([&] { return reader.state() == QProcess::NotRunning; }));
    return reader.readAllStandardOutput();
  }

  test::ScopedTempRoot temp_;
  QProcess owner_;
  QClipboard* clipboard_ = nullptr;
  QMetaObject::Connection changes_;
  int changeCount_ = 0;
  int files_ = 0;
};

TEST_F(X11Clipboard, AnEmptyClipboardOffersNothing) {
  offerWithXclip("text/plain", "something");
  clsClipboard clipboard;
  clipboard.ClipboardOpen(kNoOwner);
  clipboard.ClearClipboard();
  clipboard.ClipboardClose();
  EXPECT_EQ(clipboard.GetCurrentFormats(kNoOwner), 0);
  EXPECT_EQ(clipboard.FormatCount(), 0);
  EXPECT_FALSE(clipboard.IsDataAvailableForFormat(cf::Text));
  EXPECT_EQ(GetClipboardHTML(), "");
  EXPECT_FALSE(ClipboardHasFormatLike("Kingsoft WPS"));
  QString text = "untouched";
  EXPECT_TRUE(clipboard.GetTextData(cf::UnicodeText, text));
  EXPECT_EQ(text, "");
}

TEST_F(X11Clipboard, PicturesAreTheBitmapFormatAsPngAndComeWhole) {
  QImage picture(3, 2, QImage::Format_RGB32);
  picture.fill(QColor(200, 30, 40));
  offerWithXclip("image/png", png(picture));
  EXPECT_EQ(offeredNames(), QStringList{"Bitmap Picture"});
  EXPECT_TRUE(clsClipboard().IsDataAvailableForFormat(cf::Bitmap));
  EXPECT_FALSE(clsClipboard().IsDataAvailableForFormat(cf::Text));
  const QImage read = QImage::fromData(bitmap(), "PNG");
  EXPECT_EQ(read.size(), QSize(3, 2));
  EXPECT_EQ(read.pixelColor(2, 1), QColor(200, 30, 40));
  endOwner();

  // Other pictures arrive as PNG.
  offerWithXclip("image/bmp", png(picture, "BMP"));
  const QByteArray converted = bitmap();
  EXPECT_TRUE(converted.startsWith("\x89PNG"));
  EXPECT_EQ(QImage::fromData(converted).size(), QSize(3, 2));
  endOwner();

  // Larger than one X request: the owner sends it in pieces.
  QImage noise(700, 500, QImage::Format_RGB32);
  uint32_t seed = 12345;
  for (int y = 0; y < noise.height(); ++y)
    for (int x = 0; x < noise.width(); ++x) noise.setPixel(x, y, seed = seed * 1664525u + 1013904223u);
  const QByteArray offered = png(noise);
  ASSERT_GT(offered.size(), 1000000);
  offerWithXclip("image/png", offered);
  EXPECT_EQ(bitmap(), offered);
}

TEST_F(X11Clipboard, AWebSelectionReadsAsHtmlFormatWithItsSource) {
  const QString fragment = QString::fromUtf8("<p>Grüße aus <b>北京</b> — 😀</p>");
  const QString url = "https://example.com/news/1?x=y";
  offerTargets({{"text/html", "<meta charset='utf-8'>" + fragment.toUtf8()},
                {"chromium/x-source-url", url.toUtf8()},
                {"text/plain", QString::fromUtf8("Grüße aus 北京 — 😀").toUtf8()}});

  const QStringList names = offeredNames();
  for (const char* name : {"HTML Format", "Text", "Text (Unicode)", "chromium/x-source-url"})
    EXPECT_TRUE(names.contains(name)) << name << " in " << names.join(", ").toStdString();
  EXPECT_FALSE(names.contains("TARGETS"));
  EXPECT_FALSE(names.contains("text/plain"));

  const QString html = GetClipboardHTML();
  EXPECT_TRUE(html.startsWith("Version:0.9\r\n"));
  EXPECT_EQ(GetHTMLFormatHeader(html, "SourceURL"), url);
  EXPECT_EQ(fragmentOf(html), fragment);
  const QString startHtml = GetHTMLFormatHeader(html, "StartHTML");
  EXPECT_TRUE(html.mid(startHtml.toInt()).startsWith("<html><body><!--StartFragment-->"));
  EXPECT_EQ(GetClipboardDataByName("Text"), QString::fromUtf8("Grüße aus 北京 — 😀"));
}

TEST_F(X11Clipboard, Utf16HtmlAndTheMozillaSourceAreDecoded) {
  const QString fragment = QString::fromUtf8("<span>中文 é</span>");
  offerTargets({{"text/html", utf16le(fragment, /*withMark=*/true)},
                {"text/x-moz-url-priv", utf16le("https://example.org/page", /*withMark=*/false)}});
  const QString html = GetClipboardHTML();
  EXPECT_EQ(fragmentOf(html), fragment);
  EXPECT_EQ(GetHTMLFormatHeader(html, "SourceURL"), "https://example.org/page");
}

TEST_F(X11Clipboard, CopiedFilesAreAFileListInOrdinalOrderCopiedLinksNone) {
  offerWithXclip("text/uri-list", "# three files\r\nfile:///home/u/c.txt\r\nfile:///home/u/A.txt\r\n"
                                  "file:///home/u/b%20%E4%B8%AD%E6%96%87.txt\r\n");
  EXPECT_EQ(offeredNames(), QStringList{"File List"});
  EXPECT_EQ(fileList(), QStringList({"/home/u/A.txt", QString::fromUtf8("/home/u/b 中文.txt"), "/home/u/c.txt"}));
  endOwner();

  offerWithXclip("text/uri-list", "https://example.com/a.png\r\n");
  EXPECT_FALSE(clsClipboard().IsDataAvailableForFormat(cf::HDrop));
  EXPECT_EQ(fileList(), std::nullopt);
}

TEST_F(X11Clipboard, OtherTargetsAreRegisteredFormatsNamedByThem) {
  offerTargets({{"OwnerLink", QByteArray("Word.Document.8\0C:\\doc.docx\0\0", 30)},
                {"Kingsoft WPS 9.0 Format", "wps"},
                {"text/rtf", "{\\rtf1 x}"}});
  clsClipboard clipboard;
  const uint32_t ownerLink = clipboard.FormatIDForName(kNoOwner, "OwnerLink");
  EXPECT_GE(ownerLink, cf::FirstRegistered);
  EXPECT_EQ(clipboard.FormatIDForName(kNoOwner, "OwnerLink"), ownerLink);
  EXPECT_EQ(clipboard.AddFormat("OwnerLink"), ownerLink);
  EXPECT_EQ(clipboard.FormatName(ownerLink), "OwnerLink");
  EXPECT_TRUE(clipboard.IsDataAvailableForFormatName(kNoOwner, "Rich Text Format"));

  EXPECT_EQ(GetClipboardDataByName("OwnerLink").left(13), "Word.Document");
  EXPECT_EQ(GetClipboardDataByName("Rich Text Format"), "{\\rtf1 x}");
  EXPECT_TRUE(ClipboardHasFormatLike("Kingsoft WPS"));
  EXPECT_FALSE(ClipboardHasFormatLike("Kingsoft ET"));
}

TEST_F(X11Clipboard, AnOwnerThatNeverAnswersMakesOpeningFail) {
  offerWithXclip("text/html", "<p>x</p>");
  ASSERT_EQ(::kill(pid_t(owner_.processId()), SIGSTOP), 0);
  // The first question waits for the owner until Qt gives up on it (about 5 s); the others
  // know it is silent.
  clsClipboard clipboard;
  EXPECT_EQ(errorNumberOf([&] { clipboard.ClipboardOpen(kNoOwner); }), errnum::ClipboardOpenFailed);
  EXPECT_FALSE(clipboard.IsOpen());
  EXPECT_FALSE(clipboard.IsDataAvailableForFormat(cf::Text));
  EXPECT_EQ(clipboard.FormatCount(), 0);
  EXPECT_EQ(errorNumberOf([] { GetClipboardHTML(); }), errnum::ClipboardOpenFailed);
  QString text;
  EXPECT_EQ(errorNumberOf([&] { clipboard.GetTextData(cf::Text, text); }), errnum::ClipboardOpenFailed);
}

TEST_F(X11Clipboard, DataOfAnOwnerThatStopsAnsweringReadsAsAbsent) {
  offerWithXclip("text/html", "<p>x</p>");
  ASSERT_TRUE(offeredNames().contains("HTML Format"));
  ASSERT_EQ(::kill(pid_t(owner_.processId()), SIGSTOP), 0);
  // The owner listed its formats, but the data never comes: Qt gives up after about 5 s.
  EXPECT_EQ(GetClipboardHTML(), "");
}

TEST_F(X11Clipboard, WhatThisProcessWritesOtherProgramsRead) {
  clsClipboard clipboard;
  clipboard.ClipboardOpen(kNoOwner);
  clipboard.ClearClipboard();
  ASSERT_TRUE(clipboard.SetTextData(cf::Text, "plain words"));
  ASSERT_TRUE(clipboard.SetFileList({"/tmp/b file.txt", "/tmp/a.txt"}));
  const QByteArray block = "Version:0.9\r\nStartHTML:0000000035\r\n<p>html</p>";
  ASSERT_TRUE(clipboard.SetBinaryData(clipboard.AddFormat("HTML Format"), block));
  EXPECT_FALSE(clipboard.SetBinaryData(cf::EnhMetaFile, "no counterpart"));
  clipboard.ClipboardClose();
  EXPECT_EQ(readWithXclip("UTF8_STRING"), "plain words");
  EXPECT_EQ(readWithXclip("text/uri-list"), "file:///tmp/b%20file.txt\r\nfile:///tmp/a.txt\r\n");
  EXPECT_EQ(readWithXclip("text/html"), "<p>html</p>");
  // And this process reads its own clipboard through the same mapping.
  EXPECT_EQ(fragmentOf(GetClipboardHTML()), "<p>html</p>");
  EXPECT_EQ(fileList(), QStringList({"/tmp/a.txt", "/tmp/b file.txt"}));
}

}  // namespace
}  // namespace velmora
