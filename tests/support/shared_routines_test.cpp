#include "control/Velmora5.h"
#include "host/StandardProducers.h"
#include "support/basPublic.h"
#include "tests/common/Helpers.h"
#include "tests/common/TestSupport.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QLocale>
#include <QTimer>

#include <gtest/gtest.h>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace velmora {
namespace {

using test::ScopedTempRoot;

TEST(Texts, PadNumberLeftOfStringAndTimeStamp) {
  const struct {
    int32_t number, width, largest;
    QString padded;
  } pads[] = {{7, 3, 1500, u"0007"_s}, {12345, 3, 0, u"345"_s}, {7, -4, 0, u""_s}, {-5, 3, 0, u"0-5"_s}};
  for (const auto& p : pads) EXPECT_EQ(PadNumber(p.number, p.width, p.largest), p.padded) << p.number << ' ' << p.width;

  EXPECT_EQ(LeftOfString(u"a--b--c"_s, u"--"_s), u"a"_s);
  EXPECT_EQ(LeftOfString(u"ABC"_s, u"b"_s), u"ABC"_s) << "case matters; not found gives all";
  EXPECT_EQ(LeftOfString(u"abc"_s, u""_s), u""_s);

  // Seventeen digits of the local time now.
  const QDateTime before = QDateTime::currentDateTime();
  const QString stamp = GetTimeStamp();
  const QDateTime after = QDateTime::currentDateTime();
  ASSERT_EQ(stamp.size(), 17);
  const QDateTime read = QDateTime::fromString(stamp, u"yyyyMMddHHmmsszzz"_s);
  EXPECT_TRUE(read.isValid() && before <= read && read <= after) << stamp;
}

// Run under a locale that writes decimal commas too: the text ends up in CSS.
TEST(ToPoints, CentimetresBecomePointsWithADotWhateverTheLocale) {
  const struct {
    QString length, points;
  } cases[] = {
      {u"  2 CM "_s, u"56.7"_s}, {u"1.5cm"_s, u"42.525"_s}, {u"+.5cm"_s, u"14.175"_s},
      {u"-0cm"_s, u"0"_s},       {u"1,5cm"_s, u""_s},       {u"1e999cm"_s, u""_s},
      {u"72.0PT"_s, u"72.0"_s},  {u" 3px "_s, u"3px"_s},    {u" cm "_s, u"cm"_s},
  };
  const QLocale previous;
  for (const QLocale& locale : {QLocale::c(), QLocale(QLocale::German, QLocale::Germany)}) {
    QLocale::setDefault(locale);
    for (const auto& c : cases) EXPECT_EQ(ToPoints(c.length), c.points) << c.length << " in " << locale.name();
  }
  QLocale::setDefault(previous);
}

TEST(WaitMs, TimersAndPostedCallsRunDuringTheWaitAlsoInsideAnotherWait) {
  QObject context;
  bool posted = false;
  QMetaObject::invokeMethod(
      &context, [&] { posted = true; }, Qt::QueuedConnection);
  WaitMs(0);
  EXPECT_TRUE(posted) << "even a wait of 0 lets posted calls run";
  bool innerTimerFired = false, innerDone = false;
  QTimer::singleShot(10, [&] {
    QTimer::singleShot(5, [&] { innerTimerFired = true; });
    WaitMs(40);
    innerDone = true;
  });
  WaitMs(200);
  EXPECT_TRUE(innerTimerFired && innerDone) << "a wait nests inside a callback of another";
  WaitMs(-5);
}

TEST(FileTests, FilesFoldersLinksAndExtensions) {
  ScopedTempRoot root;
  const QString file = root.write(u"a.txt"_s, "x"), folder = root.path() + u"/sub"_s;
  ASSERT_TRUE(QDir().mkdir(folder));
  ASSERT_TRUE(QFile::link(file, root.path() + u"/to-file"_s));
  ASSERT_TRUE(QFile::link(folder, root.path() + u"/to-folder"_s));
  ASSERT_TRUE(QFile::link(root.path() + u"/gone"_s, root.path() + u"/dangling"_s));
  ASSERT_EQ(mkfifo(QFile::encodeName(root.path() + u"/pipe"_s).constData(), 0600), 0);
  const struct {
    QString path;
    bool isFile, isFolder;
  } cases[] = {
      {file, true, false},
      {folder, false, true},
      {root.path() + u"/to-file"_s, true, false},
      {root.path() + u"/to-folder"_s, false, true},
      {root.path() + u"/dangling"_s, false, false},
      {root.path() + u"/pipe"_s, false, false},  // a pipe is not a file a reader can use
      {file + u'/', false, false},
      {QString(), false, false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(FileExists(c.path), c.isFile) << c.path;
    EXPECT_EQ(FolderExists(c.path), c.isFolder) << c.path;
  }

  // A dot in a folder name is no extension.
  const std::pair<QString, QString> extensions[] = {{u"/a/b/photo.JPG"_s, u"JPG"_s}, {u"a.tar.gz"_s, u"gz"_s},
                                                    {u"/a/b/README"_s, u""_s},       {u"/home/u/.cache/pic"_s, u""_s},
                                                    {u"C:\\my.dir\\pic"_s, u""_s},   {u"name."_s, u""_s}};
  for (const auto& [path, extension] : extensions) EXPECT_EQ(GetFileExt(path), extension) << path;
  const std::tuple<QString, QString, bool> lists[] = {{u"a.JPG"_s, u" png | jpg "_s, true},
                                                      {u"/x/a.Png"_s, u"GIF|PNG"_s, true},
                                                      {u"a."_s, u"png||"_s, false},
                                                      {u"a.png"_s, u"pn|png2|.png"_s, false}};
  for (const auto& [path, list, in] : lists) EXPECT_EQ(IsExtInList(path, list), in) << path << " in " << list;
}

QStringList entriesOf(const QString& folder) {
  return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
}

TEST(DeleteFolder, RemovesATreeWithHiddenAndReadOnlyEntries) {
  ScopedTempRoot root;
  const QString top = root.path() + u"/tree/"_s;
  root.write(u"tree/.hidden"_s, "h");
  QFile::setPermissions(root.write(u"tree/locked/c.txt"_s, "c"), QFile::ReadOwner);
  ASSERT_EQ(chmod(QFile::encodeName(root.path() + u"/tree/locked"_s).constData(), 0555), 0);
  bool posted = false;
  QObject context;
  QMetaObject::invokeMethod(
      &context, [&] { posted = true; }, Qt::QueuedConnection);
  DeleteFolder(top);
  EXPECT_FALSE(QFileInfo::exists(top));
  EXPECT_TRUE(posted) << "pending events run while a folder is deleted";

  // Nothing happens to a missing folder, a file, or the current folder named by an empty path.
  DeleteFolder(root.path() + u"/missing/"_s);
  const QString file = root.write(u"plain.txt"_s, "x");
  DeleteFolder(file);
  EXPECT_TRUE(QFileInfo::exists(file)) << "a file is not a folder";
  const QString previous = QDir::currentPath();
  ASSERT_TRUE(QDir::setCurrent(root.path()));
  DeleteFolder(QString());
  QDir::setCurrent(previous);
  EXPECT_TRUE(QFileInfo::exists(file));
}

TEST(DeleteFolder, NeverFollowsALinkOutOfTheFolder) {
  ScopedTempRoot root;
  const QString outsideFile = root.write(u"outside/keep.txt"_s, "keep");
  root.write(u"tree/x.txt"_s, "x");
  ASSERT_TRUE(QFile::link(root.path() + u"/outside"_s, root.path() + u"/tree/link-to-folder"_s));
  ASSERT_TRUE(QFile::link(outsideFile, root.path() + u"/tree/link-to-file"_s));
  DeleteFolder(root.path() + u"/tree/"_s);
  EXPECT_FALSE(QFileInfo::exists(root.path() + u"/tree"_s));
  EXPECT_TRUE(QFileInfo::exists(outsideFile));

  // The folder named is itself a link: the link goes, its target stays whole.
  ASSERT_TRUE(QFile::link(root.path() + u"/outside"_s, root.path() + u"/alias"_s));
  DeleteFolder(root.path() + u"/alias/"_s);
  EXPECT_FALSE(QFileInfo(root.path() + u"/alias"_s).isSymLink());
  EXPECT_TRUE(QFileInfo::exists(outsideFile));
}

TEST(GetTempFolder, AContextFolderIsEmptiedAloneAndNamesThatWouldLeaveTheFolderAreRefused) {
  ScopedTempRoot root;
  const QString page = GetTempFolder(u"page-1"_s);
  EXPECT_EQ(page, root.path() + u"/Velmora/page-1/"_s);
  root.write(u"Velmora/page-1/a.png"_s, "x");
  EXPECT_EQ(GetTempFolder(u"page-1"_s), page);
  EXPECT_EQ(entriesOf(page), QStringList());
  for (const QString& bad : {u".."_s, u"."_s, u"a/b"_s, u"..\\x"_s}) EXPECT_EQ(GetTempFolder(bad), u""_s) << bad;
}

TEST(GetTempFolder, TheSharedFolderKeepsThePagesOfRunningAgents) {
  ScopedTempRoot root;
  const QString folder = GetTempFolder();
  // This process stands for a running agent; no process has a pid this large.
  const QString live =
      root.write(u"Velmora/"_s + AgentPageFolderName(QCoreApplication::applicationPid(), 3) + u"/a.png"_s, "x");
  const QString gone = root.write(u"Velmora/"_s + AgentPageFolderName(2147483647, 1) + u"/b.png"_s, "x");
  const QString lookalike = root.write(u"Velmora/page-1x-2/c.png"_s, "x");
  EXPECT_EQ(GetTempFolder(), folder);
  EXPECT_TRUE(QFileInfo::exists(live));
  EXPECT_FALSE(QFileInfo::exists(gone));
  EXPECT_FALSE(QFileInfo::exists(lookalike));
}

// Another user of the machine must not read a page's pictures nor put a link where a page's
// folder will be: the shared folder is the user's own, mode 0700, or it is not used at all.
TEST(GetTempFolder, TheSharedFolderIsTheUsersOwnAndPrivate) {
  struct Row {
    const char* name;
    std::function<void(const QString& root)> before;
    QString refusal;  // a part of it; "" when the folder is used
  };
  const QString victimFile = u"victim/keep.txt"_s;
  const Row rows[] = {
      {"missing: made private", [](const QString&) {}, ""},
      {"world-readable: made private", [](const QString& root) { mkdir(QFile::encodeName(root).constData(), 0777); },
       ""},
      {"a link to another folder",
       [&](const QString& root) { QFile::link(QFileInfo(root).absolutePath() + u"/victim"_s, root); },
       "is a symbolic link"},
      {"another user's",
       [](const QString& root) {
         QDir().mkpath(root);
         if (chown(QFile::encodeName(root).constData(), 65534, 65534) != 0) GTEST_SKIP() << "needs root to chown";
       },
       "belongs to another user (uid 65534)"},
  };
  for (const Row& row : rows) {
    ScopedTempRoot temp;
    const QString root = temp.path() + u"/Velmora"_s;
    const QString victim = temp.write(victimFile, "x");
    row.before(root);
    if (::testing::Test::IsSkipped()) return;
    EXPECT_TRUE(workingRootRefusal().contains(row.refusal)) << row.name << ": " << workingRootRefusal().toStdString();
    EXPECT_EQ(GetTempFolder(u"page-1"_s).isEmpty(), !row.refusal.isEmpty()) << row.name;
    EXPECT_TRUE(QFileInfo::exists(victim)) << row.name;
    if (!row.refusal.isEmpty()) {
      Context context;
      Velmora5 control(context, standardProducers());
      control.PasteImage("");
      EXPECT_TRUE(control.Error().startsWith(u"TempFolder:"_s)) << row.name << ": " << control.Error().toStdString();
      continue;
    }
    struct stat info {};
    ASSERT_EQ(lstat(QFile::encodeName(root).constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u) << row.name;
  }
  EXPECT_NE(AgentPageFolderName(1, 1), AgentPageFolderName(1, 1)) << "a page's folder name cannot be guessed ahead";
}

TEST(ListFiles, KeepsFilesByPrefixAndSuffixInNameOrder) {
  ScopedTempRoot root;
  for (const char* name : {"page_002.png", "Page_001.PNG", "page_010.png", ".hidden.png", "cover.png", "notes.txt"})
    root.write(u"out/"_s + QLatin1StringView(name), "x");
  QDir().mkpath(root.path() + u"/out/folder.png"_s);
  const QString folder = root.path() + u"/out/"_s;

  QStringList names{u"stale"_s};
  EXPECT_EQ(ListFiles(names, folder, u"page_"_s, u".png"_s), 3);
  EXPECT_EQ(names, (QStringList{u"Page_001.PNG"_s, u"page_002.png"_s, u"page_010.png"_s}));
  EXPECT_EQ(ListFiles(names, folder, QString(), u".PNG"_s), 5) << "hidden files count, folders do not";
  EXPECT_EQ(names.first(), u".hidden.png"_s);
  EXPECT_EQ(ListFiles(names, root.path() + u"/out"_s, QString(), QString()), 6);
  EXPECT_EQ(ListFiles(names, folder, u"page_0100"_s, QString()), 0);
  EXPECT_EQ(ListFiles(names, root.path() + u"/missing/"_s, QString(), QString()), 0);
  EXPECT_TRUE(names.isEmpty());
}

}  // namespace
}  // namespace velmora
