#include <cups/cups.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <QDir>
#include <QFile>
#include <QPainter>
#include <QPdfWriter>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <memory>

#include "printing/clsStrandelAPI.h"
#include "support/RegistryStore.h"
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
    for (const char* sub : {"conf", "spool/tmp", "cache", "state", "log", "serverbin/backend", "serverbin/daemon"})
      QDir(root).mkpath(sub);
    // Its own program folder: CUPS's helper that starts every backend, and room for ours.
    QFile::link("/usr/lib/cups/daemon/cups-exec", root + "/serverbin/daemon/cups-exec");
    const auto write = [&](const QString& name, const QString& text) {
      QFile file(root + "/conf/" + name);
      return file.open(QIODevice::WriteOnly) && file.write(text.arg(root).toUtf8()) > 0 ? file.fileName() : QString();
    };
    const QString conf = write("cupsd.conf", "Listen %1/cups.sock\nBrowsing No\nWebInterface No\nDefaultAuthType None\n"
                                             "<Location />\n  Order allow,deny\n  Allow all\n</Location>\n");
    const QString files = write("cups-files.conf", "ServerRoot %1/conf\nRequestRoot %1/spool\nTempDir %1/spool/tmp\n"
                                                   "CacheDir %1/cache\nStateDir %1/state\nErrorLog %1/log/error_log\n"
                                                   "AccessLog %1/log/access_log\nFileDevice Yes\n"
                                                   "ServerBin %1/serverbin\nSetEnv VELMORA_REGISTRY_DIR %1/registry\n");
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

TEST_F(PrinterOnAPrintServer, ItsServerIsRunning) {
  EXPECT_TRUE(clsStrandelAPI().IsPrintSpoolerRunning());
  EXPECT_TRUE(clsStrandelAPI().StartPrintSpooler()) << "running already: nothing to start";
}

// The virtual printer as a user meets it: installed by the command line, printed to with
// lp, its pictures where the settings say; then removed.
TEST_F(PrinterOnAPrintServer, TheVirtualPrinterInstallsPrintsAndGoes) {
  const QString root = folder_.path();
  const auto velmora = [&](const QStringList& arguments) {
    QProcess cli;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("CUPS_SERVER", socket());
    cli.setProcessEnvironment(environment);
    cli.start(VELMORA_CLI, QStringList{"printer"} + arguments + QStringList{"--server-bin", root + "/serverbin"});
    cli.waitForFinished(60000);
    return std::pair{cli.exitCode(), QString::fromUtf8(cli.readAllStandardOutput()).trimmed()};
  };
  ASSERT_EQ(velmora({"status"}), std::pair(1, QString("VelmoraPrinter: the queue exists but its backend " + root +
                                                      "/serverbin/backend/velmora is missing")));
  ASSERT_EQ(velmora({"install"}), std::pair(0, QString("VelmoraPrinter: installed")));
  ASSERT_EQ(velmora({"install"}), std::pair(0, QString("VelmoraPrinter: installed"))) << "again: no change";

  QDir().mkpath(root + "/work/Velmora/page");
  QFile::setPermissions(root + "/work/Velmora", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
  RegistryStore store(root + "/registry");
  const auto set = [&](const QString& name, const QString& value) {
    return store.writeValue(registryroot::LocalMachine, "SOFTWARE\\VelmoraPrinter", name, {1, value});
  };
  const auto get = [&](const QString& name) {
    const auto value = store.readValue(registryroot::LocalMachine, "SOFTWARE\\VelmoraPrinter", name);
    return value ? value->data.toString() : QString();
  };
  for (const auto& [name, value] : {std::pair{"file_format", QString("png")},
                                    {"file_name", QString("job")},
                                    {"path", root + "/work/Velmora/page/"},
                                    {"progressflag", QString("apicall")}})
    ASSERT_TRUE(set(name, value));
  QPdfWriter pdf(root + "/job.pdf");
  QPainter painter(&pdf);
  pdf.newPage();
  painter.end();
  ASSERT_EQ(run("lp", socket(), {"-d", "VelmoraPrinter", root + "/job.pdf"}, false).left(12), "request id i");
  EXPECT_TRUE(test::waitUntil([&] { return get("progressflag") == "end"; }, 30000)) << [&] {
    QFile log(root + "/log/error_log");
    return log.open(QIODevice::ReadOnly) ? log.readAll().toStdString() : std::string();
  }();
  EXPECT_EQ(get("r_filecount"), "2");
  EXPECT_EQ(QDir(root + "/work/Velmora/page").entryList(QDir::Files), (QStringList{"job_1.png", "job_2.png"}));

  EXPECT_EQ(velmora({"remove"}), std::pair(0, QString("VelmoraPrinter: not installed")));
  EXPECT_EQ(velmora({"remove"}), std::pair(0, QString("VelmoraPrinter: not installed")));
  EXPECT_FALSE(clsStrandelAPI().IsPrinterExist("VelmoraPrinter"));
  ASSERT_EQ(addPrinter("VelmoraPrinter"), "") << "as the other tests found it";
}

TEST(Printer, WithoutAPrintServerNoPrinterExists) {
  useCupsServer("/nonexistent/cups.sock");
  EXPECT_FALSE(clsStrandelAPI().IsPrinterExist("VelmoraPrinter"));
  useCupsServer({});
}

}  // namespace
}  // namespace velmora
