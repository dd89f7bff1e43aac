// The virtual printer's backend run as CUPS runs it (`backend job-id user title copies
// options [file]`), on PDF jobs the test writes, with the settings in a registry store of
// the test's own.
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>
#include <QDirIterator>
#include <QImage>
#include <QImageReader>
#include <QPainter>
#include <QPdfWriter>
#include <QProcess>

#include "support/RegistryStore.h"
#include "tests/common/TestSupport.h"

namespace velmora {
namespace {

class PrinterBackend : public ::testing::Test {
 protected:
  test::ScopedTempRoot temp;
  QString working;  // a page's working folder: the private "Velmora" folder and one inside it

  void SetUp() override {
    QDir().mkpath(temp.path() + "/Velmora/page");
    QFile::setPermissions(temp.path() + "/Velmora", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    working = temp.path() + "/Velmora/page/";
  }
  // A job of `pages` A4 pages, each with its number written large.
  QString job(int pages) const {
    const QString path = temp.path() + "/job.pdf";
    QPdfWriter pdf(path);
    pdf.setPageSize(QPageSize(QPageSize::A4));
    QPainter painter(&pdf);
    for (int i = 1; i <= pages; ++i) {
      if (i > 1) pdf.newPage();
      painter.setFont(QFont("DejaVu Sans", 72));
      painter.drawText(QRect(0, 0, pdf.width(), pdf.height() / 2), Qt::AlignCenter, QString::number(i));
      painter.fillRect(QRect(0, pdf.height() / 2, pdf.width(), pdf.height() / 4), Qt::blue);
    }
    return path;
  }
  RegistryStore store() const { return RegistryStore(temp.path() + "/registry"); }
  void set(const QString& name, const QString& value) const {
    ASSERT_TRUE(store().writeValue(registryroot::LocalMachine, "SOFTWARE\\VelmoraPrinter", name, {1, value}));
  }
  QString value(const QString& name) const {
    const auto found = store().readValue(registryroot::LocalMachine, "SOFTWARE\\VelmoraPrinter", name);
    return found ? found->data.toString() : QString();
  }
  void settings(const QString& type, const QString& path, const QString& name = "20261125120000123") const {
    for (const auto& [key, text] : {std::pair{"file_format", type},
                                    {"path", path},
                                    {"file_name", name},
                                    {"jpg_quality", QString("90")},
                                    {"progressflag", QString("apicall")}})
      set(key, text);
  }
  int print(const QString& file, const QString& user = QString::fromLocal8Bit(getpwuid(geteuid())->pw_name)) const {
    QProcess backend;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("VELMORA_REGISTRY_DIR", temp.path() + "/registry");
    backend.setProcessEnvironment(environment);
    QStringList arguments{"17", user, "a job", "1", ""};
    if (!file.isEmpty()) arguments << file;
    backend.start(VELMORA_PRINTER_BACKEND, arguments);
    if (file.isEmpty()) {
      QFile pdf(temp.path() + "/job.pdf");
      EXPECT_TRUE(pdf.open(QIODevice::ReadOnly));
      backend.write(pdf.readAll());
      backend.closeWriteChannel();
    }
    EXPECT_TRUE(backend.waitForFinished(60000));
    return backend.exitCode();
  }
  QStringList files() const {
    QStringList all;
    for (QDirIterator it(temp.path(), QDir::Files, QDirIterator::Subdirectories); it.hasNext();)
      if (const QString name = it.next().mid(temp.path().size() + 1); !name.startsWith("registry/")) all << name;
    all.sort();
    return all;
  }
};

TEST_F(PrinterBackend, EachPageBecomesAPictureOfTheKindAsked) {
  const QString pdf = job(3);
  for (const char* type : {"png", "jpg", "gif"}) {
    settings(type, working);
    ASSERT_EQ(print(QString(type) == "jpg" ? QString() : pdf), 0) << type << " (jpg: the job on standard input)";
    EXPECT_EQ(value("progressflag"), "end");
    EXPECT_EQ(value("r_pagecount"), "3");
    EXPECT_EQ(value("r_filecount"), "3");
    for (int i = 1; i <= 3; ++i) {
      const QString name = working + QString("20261125120000123_%1.%2").arg(i).arg(type);
      QImageReader reader(name);
      EXPECT_EQ(reader.format(), QByteArray(type) == "jpg" ? "jpeg" : type) << name.toStdString();
      EXPECT_EQ(reader.size(), QSize(1240, 1754)) << "A4 at 150 dots per inch";
    }
  }
  const QImage page = QImage(working + "20261125120000123_2.png");
  EXPECT_EQ(page.pixelColor(620, 1100), QColor(Qt::blue)) << "the page as drawn";
}

TEST_F(PrinterBackend, HostileSettingsEndTheJobWithNoPicture) {
  const QString pdf = job(1);
  QDir().mkpath(temp.path() + "/open/Velmora");
  QDir().mkpath(temp.path() + "/other");
  QFile::link(temp.path() + "/Velmora", temp.path() + "/other/Velmora");
  struct Row {
    QString type, path, name;
  };
  const QList<Row> rows = {
      {"png", "/etc/", "x"},
      {"png", working + "../../", "x"},
      {"png", working, "../x"},
      {"png", working, ""},
      {"bmp", working, "x"},
      {"png", "page/", "x"},                               // not absolute
      {"png", temp.path() + "/open/Velmora/", "x"},        // not private
      {"png", temp.path() + "/other/Velmora/page/", "x"},  // through a link
  };
  const QStringList before = files();
  for (const Row& row : rows) {
    settings(row.type, row.path, row.name);
    EXPECT_EQ(print(pdf), 0) << row.path.toStdString() << " " << row.name.toStdString();
    EXPECT_EQ(value("progressflag"), "end");
    EXPECT_EQ(value("r_filecount"), "0");
  }
  settings("png", working);
  QFile::resize(pdf, 100);
  EXPECT_EQ(print(pdf), 0);
  EXPECT_EQ(value("r_filecount"), "0") << "a job that is no PDF";
  EXPECT_EQ(files(), before) << "nothing written anywhere";
  EXPECT_EQ(print(pdf, "no-such-user-here"), 5) << "cancelled";
}

}  // namespace
}  // namespace velmora
