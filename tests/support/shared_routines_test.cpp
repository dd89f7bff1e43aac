#include <QDir>
#include <QFile>
#include <QLocale>
#include <QRegularExpression>
#include <QTimer>
#include <gtest/gtest.h>

#include "support/basPublic.h"
#include "tests/common/TestSupport.h"

namespace velmora {
namespace {

TEST(SharedRoutines, PadNumberWidensForTheLargestAndCutsLongNumbers) {
  EXPECT_EQ(PadNumber(7, 3, 0), "007");
  EXPECT_EQ(PadNumber(7, 3, 1500), "0007");
  EXPECT_EQ(PadNumber(12345, 3, 0), "345");
  EXPECT_EQ(PadNumber(12, 3, 13), "012");
}

TEST(SharedRoutines, ToPointsWritesCentimetresAsPointsWithAFixedDecimalPoint) {
  const QLocale previous;
  QLocale::setDefault(QLocale(QLocale::German));  // a locale whose decimal separator is ","
  EXPECT_EQ(ToPoints("2cm"), "56.7");
  EXPECT_EQ(ToPoints(" 1.5CM "), "42.525");
  EXPECT_EQ(ToPoints("12pt"), "12");
  EXPECT_EQ(ToPoints("1in"), "1in");
  EXPECT_EQ(ToPoints("pt"), "pt");
  EXPECT_EQ(ToPoints("abcm"), "");
  QLocale::setDefault(previous);
}

TEST(SharedRoutines, TimeStampIsSeventeenDigitsOfLocalTime) {
  const QString stamp = GetTimeStamp();
  EXPECT_TRUE(QRegularExpression("^\\d{17}$").match(stamp).hasMatch()) << stamp.toStdString();
  EXPECT_EQ(stamp.left(8), QDate::currentDate().toString("yyyyMMdd"));
}

TEST(SharedRoutines, TextHelpers) {
  EXPECT_EQ(LeftOfString("a;b;c", ";"), "a");
  EXPECT_EQ(LeftOfString("abc", "|"), "abc");
  EXPECT_EQ(GetFileExt("/a/b.Tar.GZ"), "GZ");
  EXPECT_EQ(GetFileExt("noext"), "");
  EXPECT_TRUE(IsExtInList("a.JPG", " png | jpg "));
  EXPECT_TRUE(IsExtInList("a.tar.gz", "gz"));
  EXPECT_FALSE(IsExtInList("a", "png"));
  EXPECT_FALSE(IsExtInList("a.", "png||"));
  EXPECT_FALSE(IsExtInList("a.png", ""));
}

class FileRoutines : public ::testing::Test {
 protected:
  test::ScopedTempRoot temp;
};

TEST_F(FileRoutines, FilesAndFoldersAreToldApart) {
  const QString file = temp.write("pic.png", "x");
  QDir().mkpath(temp.path() + "/folder.png");
  EXPECT_TRUE(FileExists(file));
  EXPECT_FALSE(FolderExists(file));
  EXPECT_FALSE(FileExists(temp.path() + "/folder.png"));
  EXPECT_TRUE(FolderExists(temp.path() + "/folder.png"));
  EXPECT_FALSE(IsValidFile(temp.path() + "/folder.png", "png"));
  EXPECT_TRUE(IsValidFile(file, "PNG"));
  QFile::link(temp.path() + "/missing", temp.path() + "/dangling.png");
  EXPECT_FALSE(FileExists(temp.path() + "/dangling.png"));
  EXPECT_FALSE(FileExists(""));
}

TEST_F(FileRoutines, TheWorkingFolderStartsEmptyAndDeletingNeverFollowsLinks) {
  const QString outside = temp.write("keep/precious.txt", "x");
  const QString folder = GetTempFolder();
  EXPECT_EQ(folder, temp.path() + "/Velmora/");
  temp.write("Velmora/a/b/c.txt", "x");
  temp.write("Velmora/.hidden", "x");
  QFile::link(temp.path() + "/keep", folder + "link-to-keep");
  QFile(temp.write("Velmora/readonly.txt", "x")).setPermissions(QFileDevice::ReadOwner);

  EXPECT_EQ(GetTempFolder(), folder);
  EXPECT_TRUE(QDir(folder).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot));
  EXPECT_TRUE(QFile::exists(outside));
  EXPECT_EQ(GetTempFolder("page-1"), folder + "page-1/");
}

TEST_F(FileRoutines, ListFilesFiltersByPrefixAndSuffixIgnoringCase) {
  const QString folder = temp.path() + "/list/";
  temp.write("list/Velmora_001.PNG", "");
  temp.write("list/velmora_002.png", "");
  temp.write("list/other.png", "");
  QDir().mkpath(folder + "velmora_dir.png");
  QStringList names;
  EXPECT_EQ(ListFiles(names, folder, "VELMORA_", ".png"), 2);
  names.sort(Qt::CaseInsensitive);
  EXPECT_EQ(names, QStringList({"Velmora_001.PNG", "velmora_002.png"}));
  EXPECT_EQ(ListFiles(names, folder, "", ""), 3);
  EXPECT_EQ(ListFiles(names, temp.path() + "/nowhere/", "", ""), 0);
}

TEST(SharedRoutines, WaitMsKeepsTheEventLoopRunning) {
  bool fired = false;
  QTimer::singleShot(5, [&] { fired = true; });
  WaitMs(50);
  EXPECT_TRUE(fired);
  WaitMs(0);
  WaitMs(-5);
}

}  // namespace
}  // namespace velmora
