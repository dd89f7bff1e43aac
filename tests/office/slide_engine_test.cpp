// The slide exporter's steps through a scripted office: which program it asks for, how it
// finds the exported pictures again, and their scaling.
#include <gtest/gtest.h>
#include <QImage>

#include "office/clsPPT.h"
#include "tests/common/TestSupport.h"
#include "tests/office/ScriptedOffice.h"

namespace velmora {
namespace {

using test::ScriptedOffice;

class SlideEngine : public ::testing::Test {
 protected:
  test::ScopedTempRoot temp;
  Context context;
  QList<OfficeJob> jobs;
  QStringList asked;

  void SetUp() override { context.g_sTempFolder = temp.path() + u'/'; }
  // An office that writes `count` slide pictures of 800 x 600 named name + number.
  static ScriptedOffice::Script exporting(int count, const QString& name, const QString& extension = "png") {
    ScriptedOffice::Script script;
    script.writes = [=](const OfficeJob& job) {
      const QString folder = job.target.left(job.target.lastIndexOf(u'/') + 1);
      QDir().mkpath(folder);
      for (int i = 1; i <= count; ++i)
        QImage(800, 600, QImage::Format_RGB32).save(folder + name + QString::number(i) + u'.' + extension);
    };
    script.answer.files = QStringList(count, QString("slide"));
    return script;
  }
  Result<QString> run(ScriptedOffice::Script script, const QString& options, const QStringList& installed = {}) {
    auto office = std::make_unique<ScriptedOffice>(std::move(script), jobs);
    office->installed = installed;
    office->asked = &asked;
    return clsPPT(context, std::move(office)).PPT2Images("/s.pptx", options);
  }
};

TEST_F(SlideEngine, ApiChoosesTheProgramsAskedFor) {
  struct Row {
    QString options;
    QStringList installed;
    QStringList asked;
    QString error;
  };
  const QList<Row> rows = {
      {"", {"PowerPoint.Application"}, {"PowerPoint.Application"}, ""},
      {"api:1",
       {"WPP.Application"},
       {"PowerPoint.Application"},
       "CreateObject:PowerPoint.Application is not installed"},
      {"api:0", {"WPP.Application"}, {"PowerPoint.Application", "WPP.Application"}, ""},
      {"api:2", {"PowerPoint.Application", "WPP.Application"}, {"WPP.Application"}, ""},
      {"api:2", {"PowerPoint.Application"}, {"WPP.Application"}, "CreateObject:WPP.Application is not installed"},
  };
  for (const Row& row : rows) {
    asked.clear();
    const Result<QString> html = run(exporting(1, "Slide", "jpg"), row.options, row.installed);
    EXPECT_EQ(html ? QString() : html.failure().text(), row.error) << row.options.toStdString();
    EXPECT_EQ(asked, row.asked) << row.options.toStdString();
  }
}

TEST_F(SlideEngine, PicturesAreFoundByTheirNamesAndScaled) {
  struct Row {
    const char* name;
    ScriptedOffice::Script script;
    QString options;
    QString error;
    QString firstPicture;  // after the time-stamp folder
    int width;
  };
  const QList<Row> rows = {
      {"twelve slides", exporting(12, "Slide"), "imgtype:png", "", "Slide1.png", 800},
      {"another word before the number", exporting(2, "幻灯片"), "imgtype:png", "", "幻灯片1.png", 800},
      {"scaled to tw", exporting(2, "Page"), "imgtype:png;tw:400", "", "Page1s.png", 400},
      {"tw not a number", exporting(1, "Page"), "imgtype:png;tw:wide", "", "Page1.png", 800},
      {"nothing exported", exporting(0, "Slide"), "", "NoMatchFile", "", 0},
      {"no word before the number", exporting(1, ""), "imgtype:png", "NoFoundKey", "", 0},
      {"not opened", {{}, OfficeAnswer::failure("Open", "damaged"), {}}, "", "Open:damaged", "", 0},
  };
  for (const Row& row : rows) {
    const Result<QString> html = run(row.script, row.options);
    EXPECT_EQ(html ? QString() : html.failure().text(), row.error) << row.name;
    if (!html || row.firstPicture.isEmpty()) continue;
    const QString folder = jobs.last().target.chopped(5);
    EXPECT_TRUE(QRegularExpression("/[0-9]{17}/$").match(folder).hasMatch()) << folder.toStdString();
    EXPECT_TRUE(html.value().startsWith("<img src=\"" + folder + row.firstPicture + "\" border=0><br>"))
        << row.name << html.value().toStdString();
    EXPECT_EQ(html.value().count("<img "), row.script.answer.files.size()) << row.name;
    if (row.width) {
      EXPECT_EQ(QImage(folder + row.firstPicture).width(), row.width) << row.name;
    }
  }
}

}  // namespace
}  // namespace velmora
