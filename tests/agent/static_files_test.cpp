#include <gtest/gtest.h>

#include <QFile>
#include <QFileInfo>

#include "agent/StaticFiles.h"
#include "tests/common/TestSupport.h"

namespace velmora::agent {
namespace {

TEST(StaticFiles, OnlyFilesInsideTheMountsAreServed) {
  test::ScopedTempRoot temp;
  for (const char* name : {"web/demo/index.html", "web/demo/demo.js", "web/demo/sub/index.html", "web/demo/.hidden",
                           "web/velmora.js", "web/package.json", "secret.txt"})
    temp.write(name, "x");
  QFile::link(temp.path() + "/secret.txt", temp.path() + "/web/demo/out.txt");
  QFile::link(temp.path() + "/web/demo/demo.js", temp.path() + "/web/demo/alias.js");
  const StaticFiles files{{{"/velmora.js", temp.path() + "/web/velmora.js"}, {"/demo/", temp.path() + "/web/demo"}}};

  const std::pair<QString, const char*> served[] = {
      {"/demo/demo.js", "demo/demo.js"},     {"/demo/", "demo/index.html"},
      {"/demo/sub/", "demo/sub/index.html"}, {"/demo/sub", "demo/sub/index.html"},
      {"/velmora.js", "velmora.js"},         {"/demo/alias.js", "demo/demo.js"},  // a link that stays inside is fine
  };
  for (const auto& [path, file] : served)
    EXPECT_EQ(files.resolve(path), QFileInfo(temp.path() + "/web/" + file).canonicalFilePath()) << path.toStdString();
  for (const QString& path :
       QStringList{"/package.json", "/demo/../package.json", "/demo/../../secret.txt", "/demo/./demo.js",
                   "/demo//demo.js", "/demo/.hidden", "/demo/..", "/demo/sub/../demo.js", "/demo\\..\\package.json",
                   "/demo/..\\package.json", "/demo/missing.js", "/demo", "/velmora.js/", "demo/demo.js",
                   "/demo/out.txt", "", "/", "/demo/demo.js" + QString(QChar(0)), temp.path() + "/secret.txt"})
    EXPECT_EQ(files.resolve(path), "") << path.toStdString();
}

}  // namespace
}  // namespace velmora::agent
