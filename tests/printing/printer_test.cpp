#include <cups/cups.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <memory>

#include "printing/clsStrandelAPI.h"
#include "tests/common/TestSupport.h"

namespace velmora {
namespace {

// Points the print system of this process at `server` (a socket path; none: the default).
// The library keeps the server name it read last, so it is told to read the environment again.
void useCupsServer(const QString& server) {
  if (server.isEmpty())
    qunsetenv("CUPS_SERVER");
  else
    qputenv("CUPS_SERVER", server.toLocal8Bit());
  cupsSetServer(nullptr);
}

// Runs a print-system tool against `server`; answers what it said, or nothing when `quiet` and it succeeded.
QByteArray run(const QString& tool, const QString& server, const QStringList& arguments, bool quiet = true) {
  QProcess process;
  process.setProcessChannelMode(QProcess::MergedChannels);
  process.start(QStandardPaths::findExecutable(tool, {"/usr/sbin", "/usr/bin"}), QStringList{"-h", server} + arguments);
  if (!process.waitForFinished(30000)) process.kill();
  const bool succeeded = process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
  return succeeded && quiet ? QByteArray() : process.readAll();
}

// A print server of the test's own: configuration, spool, cache and logs in a temporary
// folder, listening on a socket there only, allowed to print to files.
class PrinterOnAPrintServer : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    const QString cupsd = QStandardPaths::findExecutable("cupsd", {"/usr/sbin"});
    if (cupsd.isEmpty() || geteuid() != 0) return void(problem_ = "a private cupsd needs cupsd and root");
    const QString root = folder_.path();
    cupsd_ = std::make_unique<QProcess>();
    for (const char* sub : {"conf", "spool/tmp", "cache", "state", "log"}) QDir(root).mkpath(sub);
    const auto write = [&](const QString& name, const QString& text) {
      QFile file(root + "/conf/" + name);
      return file.open(QIODevice::WriteOnly) && file.write(text.arg(root).toUtf8()) > 0 ? file.fileName() : QString();
    };
    const QString conf = write("cupsd.conf", "Listen %1/cups.sock\nBrowsing No\nWebInterface No\nDefaultAuthType None\n"
                                             "<Location />\n  Order allow,deny\n  Allow all\n</Location>\n");
    const QString files = write("cups-files.conf", "ServerRoot %1/conf\nRequestRoot %1/spool\nTempDir %1/spool/tmp\n"
                                                   "CacheDir %1/cache\nStateDir %1/state\nErrorLog %1/log/error_log\n"
                                                   "AccessLog %1/log/access_log\nFileDevice Yes\n");
    cupsd_->start(cupsd, {"-f", "-c", conf, "-s", files});
    // "lpstat -r" succeeds either way; its words tell whether the server answers.
    const auto answers = [] { return run("lpstat", socket(), {"-r"}, false).startsWith("scheduler is running"); };
    const bool running = cupsd_->waitForStarted() &&
                         test::waitUntil([&] { return cupsd_->state() != QProcess::Running || answers(); }, 15000);
    if (!running || cupsd_->state() != QProcess::Running) return void(problem_ = "cupsd is not answering");
    problem_ = addPrinter("VelmoraPrinter");
  }
  static void TearDownTestSuite() {
    if (!cupsd_) return;
    cupsd_->terminate();
    if (!cupsd_->waitForFinished(10000)) cupsd_->kill();
    cupsd_.reset();
  }
  void SetUp() override {
    if (!problem_.isEmpty()) GTEST_SKIP() << problem_.toStdString();
    useCupsServer(socket());
  }
  void TearDown() override { useCupsServer({}); }

  static QString socket() { return folder_.path() + "/cups.sock"; }
  // A queue that prints to /dev/null through the file device; raw queues still work in CUPS 2.4.
  static QString addPrinter(const QString& name) {
    return run("lpadmin", socket(), {"-p", name, "-v", "file:///dev/null", "-E", "-m", "raw"});
  }

  static inline QTemporaryDir folder_;
  static inline std::unique_ptr<QProcess> cupsd_;
  static inline QString problem_;
};

TEST_F(PrinterOnAPrintServer, FindsThePrintersInstalledNowByTheirExactNames) {
  for (const char* name : {"NoSuchPrinter", "velmoraprinter", "VelmoraPrinter ", "Velmora", "", "Scratch"})
    EXPECT_FALSE(clsStrandelAPI().IsPrinterExist(name)) << name;
  EXPECT_TRUE(clsStrandelAPI().IsPrinterExist("VelmoraPrinter"));
  ASSERT_EQ(addPrinter("Scratch"), "");
  EXPECT_TRUE(clsStrandelAPI().IsPrinterExist("Scratch"));
  ASSERT_EQ(run("lpadmin", socket(), {"-x", "Scratch"}), "");
  EXPECT_FALSE(clsStrandelAPI().IsPrinterExist("Scratch"));
}

TEST(Printer, WithoutAPrintServerNoPrinterExists) {
  useCupsServer("/nonexistent/cups.sock");
  EXPECT_FALSE(clsStrandelAPI().IsPrinterExist("VelmoraPrinter"));
  useCupsServer({});
}

}  // namespace
}  // namespace velmora
