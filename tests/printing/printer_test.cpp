#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <cups/cups.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "printing/clsStrandelAPI.h"
#include "tests/common/TestSupport.h"

namespace velmora {
namespace {

// Points the print system of this process at `server` (a socket path; none: the default).
// The library keeps the server name it read last, so it is told to read the environment again.
void useCupsServer(const QString& server) {
  if (server.isEmpty()) qunsetenv("CUPS_SERVER");
  else qputenv("CUPS_SERVER", server.toLocal8Bit());
  cupsSetServer(nullptr);
}

// Runs a tool; answers what it said, or "" when it succeeded.
QString run(const QString& tool, const QStringList& arguments) {
  QProcess process;
  process.setProcessChannelMode(QProcess::MergedChannels);
  process.start(QStandardPaths::findExecutable(tool, {"/usr/sbin", "/usr/bin"}), arguments);
  if (!process.waitForFinished(30000)) process.kill();
  const bool ok = process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
  return ok ? QString() : tool + " failed: " + process.readAll() + process.errorString();
}

// A print server of the test's own: configuration, spool, cache and logs in a temporary
// folder, listening on a socket there only, allowed to print to files.
class PrinterOnAPrintServer : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (QStandardPaths::findExecutable("cupsd", {"/usr/sbin"}).isEmpty()) return void(problem_ = "cupsd is not installed");
    if (geteuid() != 0) return void(problem_ = "a private cupsd needs root");
    folder_ = new QTemporaryDir;
    const QString root = folder_->path();
    for (const char* sub : {"conf", "spool/tmp", "cache", "state", "log"}) QDir(root).mkpath(sub);
    QFile conf(root + "/conf/cupsd.conf"), files(root + "/conf/cups-files.conf");
    conf.open(QIODevice::WriteOnly);
    conf.write(("Listen " + socket() + "\nBrowsing No\nWebInterface No\nDefaultAuthType None\n"
                "<Location />\n  Order allow,deny\n  Allow all\n</Location>\n").toUtf8());
    files.open(QIODevice::WriteOnly);
    files.write(QString("ServerRoot %1/conf\nRequestRoot %1/spool\nTempDir %1/spool/tmp\nCacheDir %1/cache\nStateDir "
                        "%1/state\nErrorLog %1/log/error_log\nAccessLog %1/log/access_log\nFileDevice Yes\n")
                    .arg(root).toUtf8());
    conf.close();
    files.close();
    cupsd_ = new QProcess;
    cupsd_->start(QStandardPaths::findExecutable("cupsd", {"/usr/sbin"}),
                  {"-f", "-c", conf.fileName(), "-s", files.fileName()});
    if (!cupsd_->waitForStarted()) return void(problem_ = "cupsd did not start: " + cupsd_->errorString());
    // "lpstat -r" succeeds either way; its words tell whether the server answers.
    const auto answers = [] {
      QProcess lpstat;
      lpstat.start(QStandardPaths::findExecutable("lpstat", {"/usr/bin"}), {"-h", socket(), "-r"});
      return lpstat.waitForFinished(5000) && lpstat.readAll().startsWith("scheduler is running");
    };
    if (!test::waitUntil([&] { return cupsd_->state() != QProcess::Running || answers(); }, 15000) ||
        cupsd_->state() != QProcess::Running)
      return void(problem_ = "cupsd is not answering");
    problem_ = addPrinter("VelmoraPrinter");
  }
  static void TearDownTestSuite() {
    if (cupsd_) {
      cupsd_->terminate();
      if (!cupsd_->waitForFinished(10000)) cupsd_->kill();
      cupsd_->waitForFinished();
    }
    delete cupsd_;
    delete folder_;
  }
  void SetUp() override {
    if (!problem_.isEmpty()) GTEST_SKIP() << problem_.toStdString();
    useCupsServer(socket());
  }
  void TearDown() override { useCupsServer({}); }

  static QString socket() { return folder_->path() + "/cups.sock"; }
  // A queue that prints to /dev/null through the file device; raw queues still work in CUPS 2.4.
  static QString addPrinter(const QString& name) {
    return run("lpadmin", {"-h", socket(), "-p", name, "-v", "file:///dev/null", "-E", "-m", "raw"});
  }

  static inline QTemporaryDir* folder_ = nullptr;
  static inline QProcess* cupsd_ = nullptr;
  static inline QString problem_;
};

TEST_F(PrinterOnAPrintServer, FindsThePrintersInstalledNowByTheirExactNames) {
  for (const char* name : {"NoSuchPrinter", "velmoraprinter", "VelmoraPrinter ", "Velmora", "", "Scratch"})
    EXPECT_FALSE(clsStrandelAPI().IsPrinterExist(name)) << name;
  EXPECT_TRUE(clsStrandelAPI().IsPrinterExist("VelmoraPrinter"));
  ASSERT_EQ(addPrinter("Scratch"), "");
  EXPECT_TRUE(clsStrandelAPI().IsPrinterExist("Scratch"));
  ASSERT_EQ(run("lpadmin", {"-h", socket(), "-x", "Scratch"}), "");
  EXPECT_FALSE(clsStrandelAPI().IsPrinterExist("Scratch"));
}

TEST(Printer, WithoutAPrintServerNoPrinterExists) {
  test::ScopedTempRoot temp;
  useCupsServer(temp.path() + "/no-cups.sock");
  EXPECT_FALSE(clsStrandelAPI().IsPrinterExist("VelmoraPrinter"));
  useCupsServer({});
}

}  // namespace
}  // namespace velmora
