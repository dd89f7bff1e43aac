#include <cups/cups.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QPainter>
#include <QPdfWriter>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <memory>
#include <optional>
#include <thread>

#include "office/clsPrintToFile.h"
#include "printing/PrinterQueue.h"
#include "printing/clsStrandelAPI.h"
#include "support/RegistryStore.h"
#include "tests/common/Helpers.h"
#include "tests/common/TestSupport.h"
#include "tests/office/WordDocuments.h"

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
    // The user's print options of this process (its default printer, its papers) are the
    // test's: the library keeps them in the home folder, and reads where once per thread.
    QDir(root).mkpath("home");
    qputenv("HOME", (root + "/home").toLocal8Bit());
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

// The user's printer and paper defaults and forms, kept away from the machine's own: the
// registry and the home folder are the test's, CUPS_SERVERROOT the private server's.
class UserDefaultsOnAPrintServer : public PrinterOnAPrintServer {
 protected:
  // The library reads CUPS_SERVERROOT once per thread, at its first call there; the calls
  // that must see the test's folder run on a thread of their own.
  static void onAFreshCupsThread(const std::function<void()>& body) { std::thread(body).join(); }
  // An option of the destination as the user's programs see it.
  static QString userOption(const char* printer, const char* option) {
    cups_dest_t* destinations = nullptr;
    const int count = cupsGetDests2(CUPS_HTTP_DEFAULT, &destinations);
    const cups_dest_t* destination = cupsGetDest(printer, nullptr, count, destinations);
    const char* value = destination ? cupsGetOption(option, destination->num_options, destination->options) : nullptr;
    const QString text = value ? QString(value) : "<none>";
    cupsFreeDests(count, destinations);
    return text;
  }
  // The machine's lpoptions and the real home's, each as read; nothing where missing.
  static QList<std::optional<QByteArray>> machineOptions() {
    QList<std::optional<QByteArray>> contents;
    for (const QString& path : {QString("/etc/cups/lpoptions"), realHome_ + "/.cups/lpoptions"}) {
      QFile file(path);
      contents << (file.open(QIODevice::ReadOnly) ? std::optional(file.readAll()) : std::nullopt);
    }
    return contents;
  }

  QTemporaryDir home_;
  test::ScopedEnvironment environment_{"VELMORA_REGISTRY_DIR", (home_.path() + "/registry").toLocal8Bit()};
  static inline const QString realHome_ = QDir::homePath();
  const QList<std::optional<QByteArray>> machineOptions_ = machineOptions();
};

TEST_F(UserDefaultsOnAPrintServer, AreTheUsersOwnOptions) {
  environment_.set("CUPS_SERVERROOT", (folder_.path() + "/conf").toLocal8Bit());
  environment_.set("HOME", home_.path().toLocal8Bit());
  environment_.set("LPDEST", QByteArray());
  environment_.set("PRINTER", QByteArray());
  ASSERT_EQ(addPrinter("Second"), "");
  onAFreshCupsThread([&] {
    clsStrandelAPI api;
    struct DefaultCase {
      const char* printer;
      bool set;
      const char* before;
    };
    for (const DefaultCase& c : {DefaultCase{"Second", true, ""},
                                 {"VelmoraPrinter", true, "Second"},
                                 {"velmoraprinter", false, "VelmoraPrinter"},
                                 {"NoSuch", false, "VelmoraPrinter"}}) {
      QString before = "<unset>";
      EXPECT_EQ(api.SetDefaultPrinter(c.printer, before), c.set) << c.printer;
      EXPECT_EQ(before, c.before) << c.printer;
    }

    ASSERT_TRUE(api.AddPaperSize("VelmoraPrinter", "Half A4", 14.8, 21));
    struct OptionCase {
      std::function<bool()> set;
      const char* option;
      const char* value;  // as read back; after a refusal, the one before
    };
    for (const OptionCase& c :
         {OptionCase{[&] { return api.SetDefaultPaperSize("VelmoraPrinter", "lEtTeR"); }, "media", "Letter"},
          {[&] { return !api.SetDefaultPaperSize("VelmoraPrinter", "11x17"); }, "media", "Letter"},
          {[&] { return !api.SetDefaultPaperSize("NoSuch", "A4"); }, "media", "Letter"},
          {[&] { return api.SetDefaultPaperSize("VelmoraPrinter", "half a4"); }, "media", "Custom.148x210mm"},
          {[&] { return api.SetDefaultDPI("VelmoraPrinter", 300, 300); }, "printer-resolution", "300dpi"},
          {[&] { return api.SetDefaultDPI("VelmoraPrinter", 300, 600); }, "printer-resolution", "300x600dpi"},
          {[&] { return !api.SetDefaultDPI("VelmoraPrinter", 0, 600); }, "printer-resolution", "300x600dpi"},
          {[&] { return !api.SetDefaultDPI("NoSuch", 300, 300); }, "printer-resolution", "300x600dpi"},
          {[&] { return api.SetDefaultOrientation("VelmoraPrinter", 2); }, "orientation-requested", "4"},
          {[&] { return !api.SetDefaultOrientation("VelmoraPrinter", 3); }, "orientation-requested", "4"},
          {[&] { return api.SetDefaultOrientation("VelmoraPrinter", 1); }, "orientation-requested", "3"}}) {
      EXPECT_TRUE(c.set()) << c.option << " " << c.value;
      EXPECT_EQ(userOption("VelmoraPrinter", c.option), c.value) << c.option;
    }
    EXPECT_EQ(userOption("Second", "media"), "<none>") << "another destination's options are its own";
  });
  // Where the library writes for root depends on its version: the home folder (CUPS 2.4),
  // else the configuration folder. Both are the test's own.
  QStringList written;
  for (const QString& file : {home_.path() + "/.cups/lpoptions", folder_.path() + "/conf/lpoptions"})
    if (QFile options(file); options.open(QIODevice::ReadOnly)) written << options.readAll();
  EXPECT_EQ(written, QStringList{"Default VelmoraPrinter media=Custom.148x210mm orientation-requested=3 "
                                 "printer-resolution=300x600dpi\n"});
  EXPECT_EQ(machineOptions(), machineOptions_) << "the machine's and the real user's options are untouched";
  ASSERT_EQ(run("lpadmin", socket(), {"-x", "Second"}), "");
}

TEST_F(UserDefaultsOnAPrintServer, FormsAreAddedOnceAndFoundByNameAndSize) {
  clsStrandelAPI api;
  ASSERT_TRUE(api.AddPaperSize("VelmoraPrinter", "Half A4", 14.8, 21));
  for (const auto& [name, width, height] : {std::tuple{"half a4", 10.0, 10.0}, {"a3", 1.0, 1.0}})
    EXPECT_TRUE(api.AddPaperSize("VelmoraPrinter", name, width, height)) << name << ": there already";
  for (const auto& [printer, name, width, height] : {std::tuple{"NoSuch", "Other", 10.0, 10.0},
                                                     {"VelmoraPrinter", "Flat", 10.0, 0.0},
                                                     {"VelmoraPrinter", "", 10.0, 10.0},
                                                     {"VelmoraPrinter", "Huge", 1e9, 10.0}})
    EXPECT_FALSE(api.AddPaperSize(printer, name, width, height)) << name;
  RegistryStore store(home_.path() + "/registry");
  EXPECT_EQ(store.valueNames(registryroot::LocalMachine, "SOFTWARE\\VelmoraPrinter\\Forms"), QStringList{"Half A4"});

  clsStrandelAPI later;
  struct Case {
    const char* name;
    QSize size;  // invalid: no such form
  };
  for (const Case& c : {Case{"a4", {210000, 297000}},
                        {"Executive", {184150, 266700}},
                        {"LETTER", {215900, 279400}},
                        {"HALF A4", {148000, 210000}},
                        {"11x17", {}},
                        {"Letter Small", {}},
                        {"A4 Small", {}}}) {
    QSize size;
    EXPECT_EQ(later.GetFormIndex("VelmoraPrinter", c.name, size), c.size.isValid()) << c.name;
    EXPECT_EQ(size, c.size) << c.name;
  }
  for (const Case& c : {Case{"Half A4", {148000, 210000}}, {"Legal", {215900, 355600}}, {"", {1, 1}}}) {
    QString name;
    EXPECT_EQ(later.FindFormBySize("VelmoraPrinter", c.size, name), *c.name != 0) << c.name;
    EXPECT_EQ(name, c.name);
  }
}

// A Word document printed to pictures through the virtual printer on the private server,
// and each way the run can fail.
TEST_F(PrinterOnAPrintServer, DocumentsPrintToOnePicturePerPageOrGiveTheirWord) {
  const QString root = folder_.path();
  test::ScopedEnvironment registry("VELMORA_REGISTRY_DIR", (root + "/registry").toLocal8Bit());
  ASSERT_TRUE(PrinterQueue(root + "/serverbin").install(VELMORA_PRINTER_BACKEND));
  QDir().mkpath(root + "/work/Velmora/page");
  QFile::setPermissions(root + "/work/Velmora", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
  Context context;
  context.g_sTempFolder = root + "/work/Velmora/page/";
  const auto document = [&](test::WordDocumentDescription::Paper paper) {
    test::WordDocumentDescription doc;
    doc.pages = 3;
    doc.paper = paper;
    QFile file(root + QString("/work/report-%1.docx").arg(int(paper)));
    EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.write(test::makeDocx(doc)) > 0);
    return file.fileName();
  };
  const auto print = [&](const QString& file, const QString& options, PrintLimits limits = {20, 60}) {
    const Result<QString> html =
        clsPrintToFile(context, createLibreOfficeAutomation(), limits, clsStrandelAPI(50)).Word2Images(file, options);
    return html ? html.value() : "error " + html.failure().text();
  };
  using Paper = test::WordDocumentDescription::Paper;

  const QString pages = print(document(Paper::A4), "imgtype:png");
  ASSERT_EQ(pages.count("<img src=\"" + context.g_sTempFolder), 3) << pages.toStdString();
  for (const QString& name : QDir(context.g_sTempFolder).entryList({"*_?.png"}))
    EXPECT_EQ(QImage(context.g_sTempFolder + name).size(), QSize(1240, 1754)) << name.toStdString();
  EXPECT_TRUE(pages.contains("_3.png\" border=0><br>")) << "in page order";
  EXPECT_EQ(print(document(Paper::Letter), "imgtype:gif").count(".gif\" border=0>"), 3);
  EXPECT_EQ(clsStrandelAPI().GetParam("VelmoraPrinter", "color"), "8");
  // A paper the printer has no name for becomes a form of its own, once.
  const QString custom = document(Paper::TenByTwenty);
  EXPECT_EQ(print(custom, "imgtype:png").count(".png\" border=0>"), 3);
  QSize form;
  EXPECT_TRUE(clsStrandelAPI().GetFormIndex("VelmoraPrinter", "100000x200000", form));
  EXPECT_EQ(form, QSize(100000, 200000));

  // Each failure, made to happen.
  const QString a4 = document(Paper::A4);
  ASSERT_EQ(run("cupsreject", socket(), {"VelmoraPrinter"}), "");
  EXPECT_EQ(print(a4, ""), "error PrintOut") << "the queue takes no job";
  ASSERT_EQ(run("cupsaccept", socket(), {"VelmoraPrinter"}), "");
  ASSERT_EQ(run("cupsdisable", socket(), {"VelmoraPrinter"}), "");
  EXPECT_EQ(print(a4, "", {1, 3}), "error Printer:Timeout") << "the job never begins";
  ASSERT_EQ(run("cupsenable", socket(), {"VelmoraPrinter"}), "");
  ASSERT_EQ(run("cancel", socket(), {"-a", "VelmoraPrinter"}), "");
  {
    test::ScopedEnvironment unwritable("VELMORA_REGISTRY_DIR", (a4 + "/registry").toLocal8Bit());
    EXPECT_EQ(print(a4, ""), "error Printer:Registry");
    EXPECT_EQ(print(custom, ""), "error Printer:100000x200000") << "the form can be neither found nor added";
  }
  EXPECT_TRUE(print(root + "/work/missing.docx", "").startsWith("error Open:"));
  EXPECT_EQ(print(a4, "api:2"), "error CreateObject:WPS.Application: WPS Office is not installed on this system");
  {
    QFile options(root + "/home/.cups");  // where the user's options would go
    QDir(options.fileName()).removeRecursively();
    ASSERT_TRUE(options.open(QIODevice::WriteOnly));
    EXPECT_EQ(print(a4, ""), "error Printer:SetDefault") << "the user's options cannot be written";
    options.remove();
  }
  ASSERT_EQ(run("lpadmin", socket(), {"-x", "VelmoraPrinter"}), "");
  EXPECT_EQ(print(a4, ""), "error Printer:NotExist");
  ASSERT_EQ(addPrinter("VelmoraPrinter"), "") << "as the other tests found it";
  useCupsServer(root + "/no-server.sock");
  EXPECT_EQ(print(a4, ""), "error Printer:SpoolerNotRunning");
  useCupsServer(socket());
}

TEST(Printer, WithoutAPrintServerNoPrinterExists) {
  useCupsServer("/nonexistent/cups.sock");
  EXPECT_FALSE(clsStrandelAPI().IsPrinterExist("VelmoraPrinter"));
  useCupsServer({});
}

}  // namespace
}  // namespace velmora
