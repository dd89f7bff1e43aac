// ImportWord end to end on the real LibreOffice, through the user's office helper, into the
// reference receiver.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <QImage>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QTimer>

#include "control/Velmora5.h"
#include "control/WaitForResult.h"
#include "host/StandardProducers.h"
#include "tests/office/OfficeTesting.h"
#include "tests/upload/ReceiverProcess.h"

namespace velmora {
namespace {

using namespace std::chrono_literals;
using test::makeDocx;
using test::ReceiverProcess;
using test::WordDocumentDescription;

class WordImport : public ::testing::Test {
 protected:
  test::ScopedTempRoot temp;
  Context context;
  ReceiverProcess receiver;
  std::unique_ptr<Velmora5> control = std::make_unique<Velmora5>(context, standardProducers());

  void SetUp() override {
    control->setSendUrl(receiver.url("/upload?page=1"));
    control->setLocalExt("png|jpg|gif");
    control->setLocalSize("4096");
  }
  QString document(const QString& name, const WordDocumentDescription& doc = {}) {
    return temp.write("docs/" + name, makeDocx(doc));
  }
  // Imports and waits for the upload; answers the control's error text.
  QString import(const QString& file, const QString& options) {
    control->ImportWord(file, options);
    if (!control->Error().isEmpty()) return control->Error();
    EXPECT_NE(waitForResult(*control, 60s), Waited::TimedOut) << file.toStdString();
    return control->Error();
  }
  // The bytes of every file the receiver stored.
  QSet<QByteArray> received() const {
    QSet<QByteArray> files;
    for (const QString& post : receiver.posts()) {
      QFile file(receiver.root() + u'/' + QString::fromLatin1(ReceiverProcess::field(post, "stored")));
      if (file.open(QIODevice::ReadOnly)) files << file.readAll();
    }
    return files;
  }
};

TEST_F(WordImport, HtmlRouteUploadsEachEmbeddedPictureOnceWithItsOwnBytes) {
  const WordDocumentDescription doc = test::richDocument();
  ASSERT_EQ(import(document("Report.docx", doc), "mode:html;optimizemode:1"), "");

  const QSet<QByteArray> pictures = received();
  for (const test::WordPicture& picture : doc.pictures)
    EXPECT_TRUE(pictures.contains(picture.bytes)) << "each picture in its own format and bytes";
  EXPECT_EQ(pictures.size(), 4) << "each picture once, and the equation as a picture";
  EXPECT_EQ(control->Body().count("<img src=\"" + receiver.url("/files/")), 5) << control->Body().toStdString();
  for (const char* text : {"Header text", "Cell 2.3", "Second item", "Footnote text", "Footer text", "Page 3"})
    EXPECT_TRUE(control->Body().contains(text)) << text;
  EXPECT_TRUE(control->Style().startsWith("<style>")) << control->Style().toStdString();
  EXPECT_TRUE(control->Style().contains("h1")) << control->Style().toStdString();
}

TEST_F(WordImport, PictureRouteGivesOnePicturePerPage) {
  struct Row {
    WordDocumentDescription::Paper paper;
    int pages;
    QString options;
    QString type;
    QSize size;  // 150 dots per inch
  };
  const Row rows[] = {
      {WordDocumentDescription::Paper::A4, 3, "imgtype:png", "png", {1240, 1753}},
      {WordDocumentDescription::Paper::Letter, 1, "imgtype:PNG", "jpg", {1275, 1650}},
  };
  for (const Row& row : rows) {
    WordDocumentDescription doc = test::richDocument();
    doc.paper = row.paper;
    doc.pages = row.pages;
    const qsizetype before = receiver.posts().size();
    ASSERT_EQ(import(document("pages.docx", doc), row.options), "");
    ASSERT_EQ(receiver.posts().size() - before, row.pages) << row.options.toStdString();
    EXPECT_EQ(control->Body().count("<img src=\""), row.pages);
    for (qsizetype i = before; i < receiver.posts().size(); ++i) {
      const QString stored = QString::fromLatin1(ReceiverProcess::field(receiver.posts()[i], "stored"));
      EXPECT_TRUE(stored.endsWith("00" + QString::number(i - before + 1) + "." + row.type)) << stored.toStdString();
      const QImage page(receiver.root() + u'/' + stored);
      EXPECT_NEAR(page.width(), row.size.width(), 2) << stored.toStdString();
      EXPECT_NEAR(page.height(), row.size.height(), 2) << stored.toStdString();
    }
  }
}

// What the printer receives: every page, and the first page's size for choosing the paper.
TEST_F(WordImport, PdfForThePrinterHasEveryPageAndTheFirstPageSize) {
  struct Row {
    WordDocumentDescription::Paper paper;
    QSize size;  // hundredths of a millimetre
  };
  for (const Row& row : {Row{WordDocumentDescription::Paper::A4, {21000, 29700}},
                         Row{WordDocumentDescription::Paper::Letter, {21590, 27940}}}) {
    WordDocumentDescription doc = test::richDocument();
    doc.paper = row.paper;
    const std::unique_ptr<OfficeAutomation> office = createLibreOfficeAutomation();
    ASSERT_TRUE(office->CreateObject("Word.Application"));
    const QString pdf = temp.path() + "/printed.pdf";
    const OfficeAnswer printed = office->run({OfficeJob::Kind::PdfDocument, document("p.docx", doc), pdf, {}});
    ASSERT_TRUE(printed.ok()) << printed.description.toStdString();
    EXPECT_NEAR(printed.firstPage.width(), row.size.width(), 2);
    EXPECT_NEAR(printed.firstPage.height(), row.size.height(), 2);
    QProcess info;
    info.start("pdfinfo", {pdf});
    ASSERT_TRUE(info.waitForFinished(30000));
    const QByteArray said = info.readAll();
    EXPECT_TRUE(QRegularExpression("Pages:\\s+3\\n").match(QString::fromUtf8(said)).hasMatch()) << said.toStdString();
  }
}

TEST_F(WordImport, BadDocumentsGiveTheirWordAndTheNextCallWorks) {
  const QString good = document("good.docx", test::richDocument());
  QByteArray truncated = makeDocx(test::richDocument());
  truncated.truncate(truncated.size() / 3);
  const QString protectedDoc = temp.path() + "/docs/protected.doc";
  QProcess protector;
  protector.start("/usr/bin/python3", {test::testData("../office/protect_document.py"), good, protectedDoc,
                                       "MS Word 97", temp.path() + "/protect-profile"});
  ASSERT_TRUE(protector.waitForFinished(60000) && QFile::exists(protectedDoc))
      << protector.readAllStandardError().toStdString();
  QDir().mkpath(temp.path() + "/docs/folder.doc");

  const QString cannotOpen = ": the file is damaged, protected by a password, or not a document LibreOffice reads";
  struct Row {
    QString file;
    QString error;
  };
  const QList<Row> rows = {
      {temp.write("docs/empty.docx", ""), "Open:LibreOffice could not open %1: the file is empty"},
      {temp.write("docs/picture.doc", test::pictureBytes("png", {20, 20}, Qt::red)),
       "Open:LibreOffice could not open %1: it is not a text document"},
      {temp.write("docs/truncated.docx", truncated), "Open:LibreOffice could not open %1" + cannotOpen},
      {protectedDoc, "Open:LibreOffice could not open %1" + cannotOpen},
      {temp.path() + "/docs/folder.doc", "InvalidFile:doc|docx|wps"},
      {temp.path() + "/docs/missing.docx", "InvalidFile:doc|docx|wps"},
      {document("a folder/Rapport d'été \"final\".DOCX", test::richDocument()), ""},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(import(row.file, "mode:html;optimizemode:1"), row.error.arg(row.file)) << row.file.toStdString();
    EXPECT_EQ(import(good, "mode:html;optimizemode:1"), "") << "after " << row.file.toStdString();
  }
  EXPECT_EQ(QDir(temp.path() + "/docs").entryList(QDir::Files | QDir::Hidden),
            (QStringList{"empty.docx", "good.docx", "picture.doc", "protected.doc", "truncated.docx"}))
      << "no lock file or backup is left beside the documents";
}

// The linked picture is a named pipe: opening it for reading would block, and the test sees
// a reader the moment one appears.
TEST_F(WordImport, ALinkedPictureIsNeverReadNorUploaded) {
  const QString pipe = temp.path() + "/private/linked.png";
  QDir().mkpath(temp.path() + "/private");
  ASSERT_EQ(mkfifo(pipe.toUtf8().constData(), 0600), 0);
  bool read = false;
  QTimer watch;
  QObject::connect(&watch, &QTimer::timeout, [&] {
    const int fd = ::open(pipe.toUtf8().constData(), O_WRONLY | O_NONBLOCK);
    if (fd >= 0) {
      read = true;
      ::close(fd);  // the reader gets an empty file and goes on
    }
  });
  watch.start(5);
  WordDocumentDescription doc;
  doc.linkedPicturePath = pipe;
  const QString file = document("linked.docx", doc);
  EXPECT_EQ(import(file, "mode:html;optimizemode:1"), "");
  EXPECT_TRUE(control->Body().contains("src=\"file://" + pipe + "\"")) << control->Body().toStdString();
  EXPECT_EQ(import(file, "imgtype:png"), "");
  EXPECT_FALSE(read) << "LibreOffice opened the linked file";
  EXPECT_EQ(receiver.posts().size(), 1) << "only the page picture is uploaded";
}

TEST_F(WordImport, AHungOrCrashedOfficeCostsOnlyThatCallAndNothingIsLeftRunning) {
  test::PrivateOfficeHelper helper("3");
  const QString file = document("a.docx", test::richDocument());
  ASSERT_EQ(import(file, "mode:html"), "");

  const pid_t hung = pid_t(helper.workerPid());
  ASSERT_GT(hung, 0);
  ASSERT_EQ(kill(hung, SIGSTOP), 0);
  EXPECT_EQ(import(file, "mode:html"), "Open:LibreOffice stopped responding while loading " + file + " after 3 s");
  EXPECT_EQ(import(file, "mode:html"), "") << "a fresh office serves the next call";

  const pid_t worker = pid_t(helper.workerPid());
  ASSERT_GT(worker, 0);
  ASSERT_EQ(kill(worker, SIGSTOP), 0);
  QTimer::singleShot(300, [worker] { kill(worker, SIGKILL); });
  EXPECT_EQ(import(file, ""), "Open:LibreOffice stopped (it crashed) while loading " + file);
  EXPECT_EQ(import(file, ""), "");

  control.reset();
  EXPECT_TRUE(test::waitUntil([&] { return helper.gone(); }, 15000)) << "the helper leaves when its callers have";
}

TEST_F(WordImport, WithoutLibreOfficeTheEngineCannotBeCreated) {
  const QString file = document("a.docx");
  {
    test::PrivateOfficeHelper helper;
    test::ScopedEnvironment missing("VELMORA_LIBREOFFICE_PROGRAM", temp.path().toUtf8());
    EXPECT_EQ(import(file, "mode:html"),
              "CreateObject:LibreOffice is not installed: install the packages libreoffice-writer-nogui (documents), "
              "libreoffice-calc-nogui (sheets) and libreoffice-impress-nogui (slides)");
  }
  test::PrivateOfficeHelper helper;
  test::ScopedEnvironment nowhere("VELMORA_OFFICE", "/nonexistent/velmora-office");
  EXPECT_EQ(import(file, ""), "CreateObject:the office helper /nonexistent/velmora-office could not be started");
  EXPECT_EQ(import(file, "mode:html;api:2"),
            "CreateObject:WPS.Application: WPS Office is not installed on this system");
}

// Two programs of the user import at once (two pages of the agent, or the command line
// beside them), each into its own working folder; both succeed through the one helper.
TEST_F(WordImport, TwoProgramsImportAtOnce) {
  const QString file = document("a.docx", test::richDocument());
  QList<QProcess*> runs;
  for (int i = 0; i < 2; ++i) {
    auto* run = new QProcess;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("TMPDIR", temp.path() + "/cli" + QString::number(i));
    QDir().mkpath(temp.path() + "/cli" + QString::number(i));
    run->setProcessEnvironment(environment);
    run->start(VELMORA_CLI, {"--set", "SendUrl=" + receiver.url("/upload?page=" + QString::number(i)), "--set",
                             "LocalExt=png|jpg|gif", "--set", "LocalSize=4096", "call", "ImportWord", file,
                             "mode:html;optimizemode:1"});
    runs << run;
  }
  for (QProcess* run : runs) {
    ASSERT_TRUE(run->waitForFinished(60000));
    const QString out = QString::fromUtf8(run->readAllStandardOutput());
    EXPECT_EQ(run->exitCode(), 0) << out.toStdString();
    EXPECT_TRUE(out.contains("\"Error\": \"\"")) << out.toStdString();
    EXPECT_EQ(out.count("<img src=\\\"" + receiver.url("/files/")), 5) << out.toStdString();
    delete run;
  }
}

}  // namespace
}  // namespace velmora
