#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <cups/cups.h>
#include <gtest/gtest.h>
#include <memory>
#include <unistd.h>

#include "printing/clsStrandelAPI.h"
#include "tests/common/TestSupport.h"

namespace velmora {
namespace {

// Points the print system of this process at `server` (a socket path or host:port) for the
// life of the object. The library keeps the server name it read last, so it is told to read
// the environment again.
class ScopedCupsServer {
 public:
  explicit ScopedCupsServer(const QString& server)
      : previous_(qgetenv("CUPS_SERVER")), hadPrevious_(qEnvironmentVariableIsSet("CUPS_SERVER")) {
    qputenv("CUPS_SERVER", server.toLocal8Bit());
    cupsSetServer(nullptr);
  }
  ~ScopedCupsServer() {
    if (hadPrevious_) qputenv("CUPS_SERVER", previous_);
    else qunsetenv("CUPS_SERVER");
    cupsSetServer(nullptr);
  }

 private:
  QByteArray previous_;
  bool hadPrevious_;
};

QString findTool(const QString& name) {
  return QStandardPaths::findExecutable(name, {"/usr/sbin", "/usr/bin", "/sbin", "/bin"});
}

// A print server of the test's own: its configuration, spool, cache and logs in a
// temporary folder, listening on a socket there only, allowed to print to files.
class PrivateCupsd {
 public:
  // Empty when it runs, else why it could not be started.
  QString start() {
    const QString cupsd = findTool("cupsd");
    if (cupsd.isEmpty()) return "cupsd is not installed";
    if (geteuid() != 0) return "a private cupsd needs root";
    if (!folder_.isValid()) return "no temporary folder";
    const QString root = folder_.path();
    for (const char* sub : {"conf", "spool/tmp", "cache", "state", "log"}) QDir(root).mkpath(sub);
    writeFile(root + "/conf/cupsd.conf",
              "Listen " + socket() + "\nLogLevel warn\nBrowsing No\nWebInterface No\nDefaultAuthType None\n"
              "<Location />\n  Order allow,deny\n  Allow all\n</Location>\n"
              "<Policy default>\n  <Limit All>\n    Order deny,allow\n  </Limit>\n</Policy>\n");
    writeFile(root + "/conf/cups-files.conf",
              "ServerRoot " + root + "/conf\nRequestRoot " + root + "/spool\nTempDir " + root +
                  "/spool/tmp\nCacheDir " + root + "/cache\nStateDir " + root + "/state\nAccessLog " + root +
                  "/log/access_log\nErrorLog " + root + "/log/error_log\nPageLog " + root +
                  "/log/page_log\nFileDevice Yes\n");
    process_.setProcessChannelMode(QProcess::MergedChannels);
    process_.start(cupsd, {"-f", "-c", root + "/conf/cupsd.conf", "-s", root + "/conf/cups-files.conf"});
    if (!process_.waitForStarted()) return "cupsd did not start: " + process_.errorString();
    // "lpstat -r" succeeds either way; its words tell whether the server answers.
    const bool ready = test::waitUntil(
        [this] {
          return process_.state() != QProcess::Running ||
                 run("lpstat", {"-r"}).output.startsWith("scheduler is running");
        },
        15000);
    if (!ready || process_.state() != QProcess::Running) return "cupsd is not answering: " + log();
    return QString();
  }
  ~PrivateCupsd() {
    if (process_.state() == QProcess::NotRunning) return;
    process_.terminate();
    if (!process_.waitForFinished(10000)) {
      process_.kill();
      process_.waitForFinished();
    }
  }

  QString socket() const { return folder_.path() + "/cups.sock"; }
  struct ToolRun {
    bool succeeded = false;
    QString output;
  };
  // Runs a print-system tool against this server.
  ToolRun run(const QString& tool, const QStringList& arguments) const {
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(findTool(tool), QStringList{"-h", socket()} + arguments);
    if (!process.waitForFinished(30000)) {
      process.kill();
      process.waitForFinished();
      return {false, tool + " did not finish"};
    }
    return {process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0,
            QString::fromLocal8Bit(process.readAll())};
  }
  // Empty when the tool succeeded, else what it said.
  QString admin(const QString& tool, const QStringList& arguments) const {
    const ToolRun result = run(tool, arguments);
    return result.succeeded ? QString() : tool + " failed: " + result.output;
  }
  QString log() const {
    QFile file(folder_.path() + "/log/error_log");
    return file.open(QIODevice::ReadOnly) ? QString::fromLocal8Bit(file.readAll()) : QString();
  }

 private:
  static void writeFile(const QString& path, const QString& text) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(text.toUtf8()) < 0) qFatal("cannot write %s", qPrintable(path));
  }

  QTemporaryDir folder_;
  QProcess process_;
};

// Queues that print to /dev/null through the file device; raw queues still work in CUPS 2.4.
QString addPrinter(const PrivateCupsd& cups, const QString& name) {
  return cups.admin("lpadmin", {"-p", name, "-v", "file:///dev/null", "-E", "-m", "raw"});
}

class PrinterOnAPrintServer : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    cups_ = std::make_unique<PrivateCupsd>();
    problem_ = cups_->start();
    if (problem_.isEmpty()) problem_ = addPrinter(*cups_, "VelmoraPrinter");
  }
  static void TearDownTestSuite() { cups_.reset(); }
  void SetUp() override {
    if (!problem_.isEmpty()) GTEST_SKIP() << problem_.toStdString();
    server_ = std::make_unique<ScopedCupsServer>(cups_->socket());
  }
  void TearDown() override { server_.reset(); }

  static std::unique_ptr<PrivateCupsd> cups_;
  static QString problem_;
  std::unique_ptr<ScopedCupsServer> server_;
};
std::unique_ptr<PrivateCupsd> PrinterOnAPrintServer::cups_;
QString PrinterOnAPrintServer::problem_;

TEST_F(PrinterOnAPrintServer, FindsAnInstalledPrinterByItsExactName) {
  EXPECT_TRUE(clsStrandelAPI().IsPrinterExist("VelmoraPrinter"));
  EXPECT_FALSE(clsStrandelAPI().IsPrinterExist("NoSuchPrinter"));
  EXPECT_FALSE(clsStrandelAPI().IsPrinterExist("velmoraprinter"));
  EXPECT_FALSE(clsStrandelAPI().IsPrinterExist("VelmoraPrinter "));
  EXPECT_FALSE(clsStrandelAPI().IsPrinterExist("Velmora"));
  EXPECT_FALSE(clsStrandelAPI().IsPrinterExist(""));
}

TEST_F(PrinterOnAPrintServer, AnswersForThePrintersInstalledNow) {
  EXPECT_FALSE(clsStrandelAPI().IsPrinterExist("Scratch"));
  ASSERT_EQ(addPrinter(*cups_, "Scratch"), "");
  EXPECT_TRUE(clsStrandelAPI().IsPrinterExist("Scratch"));
  ASSERT_EQ(cups_->admin("lpadmin", {"-x", "Scratch"}), "");
  EXPECT_FALSE(clsStrandelAPI().IsPrinterExist("Scratch"));
  EXPECT_TRUE(clsStrandelAPI().IsPrinterExist("VelmoraPrinter"));
}

TEST(Printer, WithoutAPrintServerNoPrinterExists) {
  test::ScopedTempRoot temp;
  ScopedCupsServer server(temp.path() + "/no-cups.sock");
  EXPECT_FALSE(clsStrandelAPI().IsPrinterExist("VelmoraPrinter"));
  EXPECT_FALSE(clsStrandelAPI().IsPrinterExist(""));
}

}  // namespace
}  // namespace velmora
