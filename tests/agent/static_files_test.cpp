#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include "agent/StaticFiles.h"
#include "tests/common/TestSupport.h"

namespace velmora::agent {
namespace {

class StaticFilesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    temp.write("web/demo/index.html", "<p>demo</p>");
    temp.write("web/demo/demo.js", "//");
    temp.write("web/demo/sub/index.html", "<p>sub</p>");
    temp.write("web/demo/.hidden", "x");
    temp.write("web/velmora.js", "//");
    temp.write("web/package.json", "{}");
    temp.write("secret.txt", "secret");
    QFile::link(temp.path() + "/secret.txt", temp.path() + "/web/demo/out.txt");
    QFile::link(temp.path() + "/web/demo/demo.js", temp.path() + "/web/demo/alias.js");
  }
  QString web(const QString& path) const { return QFileInfo(temp.path() + "/web/" + path).canonicalFilePath(); }

  test::ScopedTempRoot temp;
  StaticFiles files{{{"/velmora.js", temp.path() + "/web/velmora.js"}, {"/demo/", temp.path() + "/web/demo"}}};
};

TEST_F(StaticFilesTest, MountedFilesAndFoldersAreServed) {
  EXPECT_EQ(files.resolve("/demo/demo.js"), web("demo/demo.js"));
  EXPECT_EQ(files.resolve("/demo/"), web("demo/index.html"));
  EXPECT_EQ(files.resolve("/demo/sub/"), web("demo/sub/index.html"));
  EXPECT_EQ(files.resolve("/demo/sub"), web("demo/sub/index.html"));
  EXPECT_EQ(files.resolve("/velmora.js"), web("velmora.js"));
  EXPECT_EQ(files.resolve("/demo/alias.js"), web("demo/demo.js")) << "a link that stays inside is fine";
}

TEST_F(StaticFilesTest, NothingOutsideTheMountsIsServed) {
  for (const char* path : {"/package.json", "/demo/../package.json", "/demo/../../secret.txt", "/demo/./demo.js",
                              "/demo//demo.js", "/demo/.hidden", "/demo/..", "/demo/sub/../demo.js",
                              "/demo\\..\\package.json", "/demo/..\\package.json", "/demo/missing.js", "/demo",
                              "/velmora.js/", "demo/demo.js", "/demo/out.txt", "", "/"})
    EXPECT_EQ(files.resolve(path), "") << path;
  EXPECT_EQ(files.resolve(QString("/demo/demo.js") + QChar(0)), "");
  EXPECT_EQ(files.resolve(temp.path() + "/secret.txt"), "") << "an absolute path is no URL path of a mount";
}

// Browsers refuse a module script served under another type.
TEST(ContentTypes, FollowTheExtension) {
  EXPECT_EQ(StaticFiles::contentType("velmora.js"), "text/javascript; charset=utf-8");
  EXPECT_EQ(StaticFiles::contentType("INDEX.HTML"), "text/html; charset=utf-8");
  EXPECT_EQ(StaticFiles::contentType("LICENSE"), "application/octet-stream");
}

}  // namespace
}  // namespace velmora::agent
