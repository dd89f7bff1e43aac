#include <cups/cups.h>
#include <gtest/gtest.h>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTimer>

#include "printing/clsStrandelAPI.h"
#include "support/RegistryStore.h"
#include "tests/common/Helpers.h"

namespace velmora {
namespace {

const QString kPrinter = QStringLiteral("VelmoraPrinter");

// The printer's values in a store of the test's own, read where the backend reads them.
class PrinterValues : public ::testing::Test {
 protected:
  QString read(const QString& name) const {
    const auto value =
        RegistryStore(folder_.path()).readValue(registryroot::LocalMachine, "SOFTWARE\\" + kPrinter, name);
    return value ? value->data.toString() : QStringLiteral("<missing>");
  }

  QTemporaryDir folder_;
  test::ScopedEnvironment environment_{"VELMORA_REGISTRY_DIR", folder_.path().toLocal8Bit()};
  clsStrandelAPI api_{20};
};

TEST_F(PrinterValues, AreWrittenAndReadAsTheBackendKeepsThem) {
  struct Case {
    const char* name;
    QString written;  // null: not written
    QString read;
  };
  for (const Case& c :
       {Case{"file_format", "png", "png"}, Case{"path", QString::fromLatin1("a\0b", 3), "a"},
        Case{"r_filecount", "3", "3"}, Case{"r_pagecount", "x", "x"}, Case{"file_name", QString(), ""}}) {
    if (!c.written.isNull()) {
      ASSERT_TRUE(api_.SetParam(kPrinter, c.name, c.written)) << c.name;
    }
    EXPECT_EQ(api_.GetParam(kPrinter, c.name), c.read) << c.name;
  }
  EXPECT_EQ(api_.GetFileCount(kPrinter), 3);
  EXPECT_EQ(api_.GetPageCount(kPrinter), 0);

  ASSERT_TRUE(api_.ResetStatus(kPrinter));
  EXPECT_EQ(QStringList({read("progressflag"), read("r_filecount"), read("r_pagecount")}),
            QStringList({"apicall", "0", "0"}));
}

TEST_F(PrinterValues, ThatCannotBeStoredAreRefused) {
  // A file where the store's folder would be: not even root can make it.
  QFile(folder_.filePath("file")).open(QIODevice::WriteOnly);
  test::ScopedEnvironment unusable("VELMORA_REGISTRY_DIR", folder_.filePath("file/registry").toLocal8Bit());
  EXPECT_FALSE(api_.SetParam(kPrinter, "path", "/tmp/"));
  EXPECT_FALSE(api_.ResetStatus(kPrinter));
  EXPECT_EQ(api_.GetParam(kPrinter, "path"), "");
}

// IsEnd as the backend's progress goes, with the page's timers running throughout.
TEST_F(PrinterValues, TheEndIsAwaitedWithinItsLimits) {
  struct Case {
    const char* name;
    const char* flag;  // written 200 ms in; nullptr: nothing written
    int32_t beginLimit, endLimit;
    bool ended;
    qint64 aboutMs;
  };
  for (const Case& c : {Case{"ended", "end", 1, 2, true, 200}, Case{"begun, never ended", "begin", 0, 2, false, 3000},
                        Case{"never begun", nullptr, 1, 3, false, 2000}}) {
    ASSERT_TRUE(api_.ResetStatus(kPrinter));
    int ticks = 0;
    QTimer ticker;
    if (c.flag)
      QTimer::singleShot(200, &ticker, [this, flag = c.flag] { api_.SetParam(kPrinter, "progressflag", flag); });
    QObject::connect(&ticker, &QTimer::timeout, [&] { ++ticks; });
    ticker.start(50);
    QElapsedTimer clock;
    clock.start();
    EXPECT_EQ(api_.IsEnd(kPrinter, c.beginLimit, c.endLimit), c.ended) << c.name;
    const qint64 elapsed = clock.elapsed();
    EXPECT_NEAR(elapsed, c.aboutMs, 1000) << c.name;
    EXPECT_GE(ticks, elapsed / 100) << c.name << ": the event loop was held up";
  }
}

TEST(PrintSpooler, IsNotRunningWhereNoServerAnswers) {
  QTemporaryDir folder;
  const QString notASocket = folder.filePath("cups.sock");
  QFile(notASocket).open(QIODevice::WriteOnly);
  for (const QString& server : {QStringLiteral("/nonexistent/cups.sock"), notASocket}) {
    test::ScopedEnvironment environment("CUPS_SERVER", server.toLocal8Bit());
    cupsSetServer(nullptr);
    EXPECT_FALSE(clsStrandelAPI().IsPrintSpoolerRunning()) << server;
  }
  cupsSetServer(nullptr);
}

}  // namespace
}  // namespace velmora
