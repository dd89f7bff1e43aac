// The Word engine's steps and failure words, driven through a scripted office, and the
// reshaping of LibreOffice's page into the page the clean-up and the upload expect.
#include <gtest/gtest.h>
#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include "cleanup/WordCleanup.h"
#include "office/WordWebPage.h"
#include "office/clsMicrosoftWord.h"
#include "tests/common/Helpers.h"
#include "tests/common/TestSupport.h"
#include "tests/office/ScriptedOffice.h"

namespace velmora {
namespace {

using test::ScriptedOffice;

const QString kPage = QStringLiteral("Velmora_Temp_Word_Doc.html");

class WordEngine : public ::testing::Test {
 protected:
  test::ScopedTempRoot temp;
  Context context;
  QList<OfficeJob> jobs;

  void SetUp() override { context.g_sTempFolder = temp.path() + u'/'; }
  clsMicrosoftWord word(ScriptedOffice::Script script) {
    return clsMicrosoftWord(context, std::make_unique<ScriptedOffice>(std::move(script), jobs));
  }
  static QString errorOf(const Result<QString>& result) { return result ? QString() : result.failure().text(); }
};

TEST_F(WordEngine, WebPageStagesGiveTheirWords) {
  const auto writesPage = [this](const OfficeJob& job) {
    EXPECT_EQ(job.target, temp.path() + u'/' + kPage);
    temp.write(kPage, "<html><body>page</body></html>");
  };
  const Failure noOffice{"CreateObject:", "no office"};
  struct Row {
    const char* name;
    ScriptedOffice::Script script;
    bool stalePage;  // a page of an earlier call is still in the working folder
    QString error;
  };
  const Row rows[] = {
      {"the office cannot be created", {noOffice, {}, {}}, false, "CreateObject:no office"},
      {"the document cannot be opened", {{}, OfficeAnswer::failure("Open", "damaged"), {}}, false, "Open:damaged"},
      {"a failed save that still wrote the page", {{}, OfficeAnswer::failure("SaveAs", "late"), writesPage}, false, ""},
      {"a failed save and no page", {{}, OfficeAnswer::failure("SaveAs", "stopped"), {}}, true, "ReadFile:stopped"},
      {"a save said done and no page", {{}, {}, {}}, true, "ReadFile:no page was written for /d.docx"},
      {"a page written", {{}, {}, writesPage}, false, ""},
  };
  for (const Row& row : rows) {
    if (row.stalePage) temp.write(kPage, "an earlier call's page");
    const Result<QString> html = word(row.script).Word2HTML("/d.docx");
    EXPECT_EQ(errorOf(html), row.error) << row.name;
    if (html) {
      EXPECT_TRUE(html.value().contains("page</body>")) << row.name;
    }
  }
}

TEST_F(WordEngine, PagePicturesTakeOneTimeStampAndTheImageType) {
  const QList<std::pair<QString, QString>> types = {
      {"imgtype:png", "png"}, {"imgtype:gif", "gif"}, {"imgtype:PNG", "jpg"}, {"", "jpg"}, {"imgtype:bmp", "jpg"}};
  for (const auto& [options, type] : types) {
    OfficeAnswer two;
    two.files = {"/w/1.png", "/w/2.png"};
    const Result<QString> html = word({{}, two, {}}).Word2Images("/d.docx", options);
    ASSERT_TRUE(html) << html.failure().text().toStdString();
    EXPECT_EQ(html.value(), "<img src=\"/w/1.png\" border=0><br><img src=\"/w/2.png\" border=0><br>");
    EXPECT_EQ(jobs.last().imageType, type) << options.toStdString();
    EXPECT_TRUE(QRegularExpression("^" + QRegularExpression::escape(context.g_sTempFolder) + "[0-9]{17}$")
                    .match(jobs.last().target)
                    .hasMatch())
        << jobs.last().target.toStdString();
  }
  EXPECT_EQ(errorOf(word({{}, OfficeAnswer::failure("Open", "damaged"), {}}).Word2Images("/d.docx", "")),
            "Open:damaged");
  EXPECT_EQ(errorOf(word({{}, OfficeAnswer::failure("SaveAs", "LibreOffice stopped"), {}}).Word2Images("/d", "")),
            "SaveAs:LibreOffice stopped")
      << "an office that stopped while drawing is reported, not an empty import";
  EXPECT_EQ(errorOf(word({{}, {}, {}}).Word2Images("/d.docx", "")), "") << "no pages: an empty body";
}

// The page as LibreOffice writes it: its own pictures beside it, a linked picture's outside
// address, a relative path that climbs out, and a link dressed as one of its pictures.
TEST(WordWebPageShape, OwnPicturesMoveAndNothingElseIsTouched) {
  test::ScopedTempRoot temp;
  const QString outside = temp.write("outside/secret.png", "secret");
  const QString folder = temp.path() + "/work/";
  temp.write("work/Velmora_Temp_Word_Doc_html_a1.png", "png bytes");
  temp.write("work/Velmora_Temp_Word_Doc_html_b2.jpg", "jpg bytes");
  QFile::link(outside, folder + "Velmora_Temp_Word_Doc_html_link.png");
  const QString page = temp.write(
      "work/" + kPage,
      "<html><head><style type=\"text/css\">\n\t@page { size: 8.5in 11in; margin-left: 1in; margin-right: 0.5in; "
      "margin-top: 2cm; margin-bottom: 20mm }\n\tp { color: red }\n</style></head><body>"
      "<img src=\"Velmora_Temp_Word_Doc_html_a1.png\"><img src=\"file://" +
          folder.toUtf8() +
          "Velmora_Temp_Word_Doc_html_b2.jpg\"><img src=\"Velmora_Temp_Word_Doc_html_a1.png\">"
          "<img src=\"file://" +
          outside.toUtf8() +
          "\"><img src=\"../work/Velmora_Temp_Word_Doc_html_b2.jpg\">"
          "<img src=\"Velmora_Temp_Word_Doc_html_link.png\"></body></html>");

  ASSERT_TRUE(shapeAsWordPage(page));
  QFile file(page);
  ASSERT_TRUE(file.open(QIODevice::ReadOnly));
  const QString html = QString::fromUtf8(file.readAll());
  EXPECT_TRUE(
      html.contains("<style>\n<!--\n\t@page WordSection1\n\t{size:612.0pt 792.0pt;\n\tmargin:56.7pt 36.0pt "
                    "56.7pt 72.0pt;}\ndiv.WordSection1\n\t{page:WordSection1;}\n\tp { color: red }\n-->\n</style>"))
      << html.toStdString();
  EXPECT_TRUE(html.contains("<body><img src=\"Velmora_Temp_Word_Doc_files/Velmora_Temp_Word_Doc_html_a1.png\">"
                            "<img src=\"Velmora_Temp_Word_Doc_files/Velmora_Temp_Word_Doc_html_b2.jpg\">"
                            "<img src=\"Velmora_Temp_Word_Doc_files/Velmora_Temp_Word_Doc_html_a1.png\">"
                            "<img src=\"file://" +
                            outside +
                            "\"><img src=\"../work/Velmora_Temp_Word_Doc_html_b2.jpg\">"
                            "<img src=\"Velmora_Temp_Word_Doc_html_link.png\"></body>"))
      << html.toStdString();
  EXPECT_EQ(QDir(folder + "Velmora_Temp_Word_Doc_files").entryList(QDir::Files),
            (QStringList{"Velmora_Temp_Word_Doc_html_a1.png", "Velmora_Temp_Word_Doc_html_b2.jpg"}));
  EXPECT_TRUE(QFileInfo(folder + "Velmora_Temp_Word_Doc_html_link.png").isSymLink()) << "a link is never moved";

  // The Word clean-up reads that page's size and margins: the frame is as wide as the text.
  Context context;
  QString style, body;
  WordCleanup(context, WordCleanup::Variant::Word)
      .OptimizeHTML("import", html, "optimizemode:1;pagewidth:1", style, body);
  EXPECT_TRUE(body.contains("width:504pt")) << body.toStdString();
}

}  // namespace
}  // namespace velmora
