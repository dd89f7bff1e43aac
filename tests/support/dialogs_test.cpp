#include <QApplication>
#include <QFileDialog>
#include <QLineEdit>
#include <QListView>
#include <QMessageBox>
#include <QPointer>
#include <QProcess>
#include <QPushButton>
#include <QTimer>
#include <functional>
#include <gtest/gtest.h>

#include "dialogs/clsCommonDialog.h"
#include "tests/common/TestSupport.h"

// Readable failures: gtest shows a QString as its text.
inline void PrintTo(const QString& text, std::ostream* os) { *os << '"' << text.toStdString() << '"'; }

namespace velmora {
namespace {

const QString DefaultFilter = QString::fromUtf8("所有文件(*.*)|*.*");

TEST(DialogFilter, PairsDescriptionsWithPatternsInQtsForm) {
  const struct {
    QString filter;
    QStringList qtFilters;
  } cases[] = {
      // "*.*" means every file, also one without a dot; Qt's glob for that is "*".
      {DefaultFilter, {QString::fromUtf8("所有文件(*.*) (*)")}},
      {"Pictures|*.png;*.jpg|Text:*.txt", {"Pictures (*.png *.jpg)", "Text (*.txt)"}},
      {"Pages|*.htm; *.html;", {"Pages (*.htm *.html)"}},
      // A colon in a description is a separator too, which shifts the pairs.
      {"Note: text|*.txt|All|*.*", {"Note (text)", "*.txt (All)"}},
      // An empty item ends the list, like a double separator.
      {"Text|*.txt||Pictures|*.png", {"Text (*.txt)"}},
      {"|*.txt|Pictures|*.png", {}},
      {"", {}},
      {"Lonely description", {}},
  };
  for (const auto& c : cases) EXPECT_EQ(clsCommonDialog::QtNameFilters(c.filter), c.qtFilters) << c.filter.toStdString();
}

TEST(DialogMultiFileName, SplitsABufferIntoFolderAndNames) {
  QString folder;
  QStringList names;
  int32_t count = 0;
  clsCommonDialog::ParseMultiFileName(QString::fromUtf8("/home/u/图 片/a b.png"), folder, names, count);
  EXPECT_EQ(folder, QString::fromUtf8("/home/u/图 片/"));
  EXPECT_EQ(names, QStringList({"a b.png"}));
  EXPECT_EQ(count, 1);

  const QChar nul(u'\0');
  clsCommonDialog::ParseMultiFileName(QString("/pics") + nul + "b.png" + nul + "a.png" + nul + nul + "stale" + nul,
                                      folder, names, count);
  EXPECT_EQ(folder, "/pics");
  EXPECT_EQ(names, QStringList({"b.png", "a.png"})) << "the dialog's order, nothing after the double NUL";
  EXPECT_EQ(count, 2);

  clsCommonDialog::ParseMultiFileName(QString("/") + nul + "a" + nul + "b" + nul + nul, folder, names, count);
  EXPECT_EQ(folder, "/");
  EXPECT_EQ(count, 2);
}

// A dialog that cannot be seen (offscreen platform) must fail at once instead of waiting for
// a click that cannot come. Under X the test runs itself again on the offscreen platform.
TEST(DialogWithoutAScreen, FailsAtOnce) {
  if (QGuiApplication::platformName() == u"offscreen") {
    QString name, title, filter = DefaultFilter;
    bool readOnly = false;
    int32_t index = 1, flags = 0;
    clsCommonDialog dialog;
    EXPECT_FALSE(dialog.VBGetOpenFileName(name, title, true, false, readOnly, true, filter, index, "", "", "",
                                          nullptr, flags));
    EXPECT_EQ(dialog.APIReturn(), 0);
    EXPECT_EQ(dialog.ExtendedError(), clsCommonDialog::CDERR_DIALOGFAILURE);
    EXPECT_EQ(ShowOpenDialog(true, true, DefaultFilter, 1, "", ""), "");
    EXPECT_EQ(ShowSaveDialog(true, DefaultFilter, 1, "", "", "htm"), "");
    return;
  }
  QProcess child;
  QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
  environment.remove("DISPLAY");
  environment.insert("QT_QPA_PLATFORM", "offscreen");
  child.setProcessEnvironment(environment);
  child.setProcessChannelMode(QProcess::MergedChannels);
  child.start(QCoreApplication::applicationFilePath(), {"--gtest_filter=DialogWithoutAScreen.FailsAtOnce"});
  if (!child.waitForFinished(60000)) {
    child.kill();
    child.waitForFinished();
    FAIL() << "the dialog waited on a screen nobody can see";
  }
  const QString output = QString::fromLocal8Bit(child.readAll());
  EXPECT_EQ(child.exitCode(), 0) << output.toStdString();
  EXPECT_TRUE(output.contains("[  PASSED  ] 1 test")) << output.toStdString();
}

// Drives the real dialog the way a user does: waits for it, then types names or selects
// files and accepts, or cancels. Whatever is still open after a while is rejected, so no
// test can hang, and the test fails.
class Dialogs : public ::testing::Test {
 protected:
  void SetUp() override {
    if (QGuiApplication::platformName() != u"xcb") GTEST_SKIP() << "needs the X server of the test command";
    auto* fallback = new QTimer(&scope_);
    fallback->setSingleShot(true);
    QObject::connect(fallback, &QTimer::timeout, [this] {
      timedOut_ = true;
      for (int i = 0; i < 5; ++i)
        if (auto* open = qobject_cast<QDialog*>(QApplication::activeModalWidget())) open->reject();
    });
    fallback->start(10000);
  }
  void TearDown() override { EXPECT_FALSE(timedOut_) << "a dialog was left open and closed by the fallback"; }

  // Calls `step` from the event loop every 20 ms until it returns true.
  void poll(std::function<bool()> step) {
    auto* timer = new QTimer(&scope_);
    QObject::connect(timer, &QTimer::timeout, timer, [timer, step] {
      if (step()) timer->stop();
    });
    timer->start(20);
  }
  // Runs `act` on the modal widget of type T as soon as it is shown.
  template <typename T>
  void whenShown(std::function<void(T&)> act) {
    poll([act] {
      auto* widget = qobject_cast<T*>(QApplication::activeModalWidget());
      if (widget) act(*widget);
      return widget != nullptr;
    });
  }
  void whenDialogShown(std::function<void(QFileDialog&)> act) { whenShown<QFileDialog>(std::move(act)); }

  static void accept(QFileDialog& dialog) { QMetaObject::invokeMethod(&dialog, "accept", Qt::QueuedConnection); }
  static void type(QFileDialog& dialog, const QString& text) {
    dialog.findChild<QLineEdit*>("fileNameEdit")->setText(text);
    accept(dialog);
  }
  static QListView* fileList(QFileDialog& dialog) { return dialog.findChild<QListView*>("listView"); }
  static int listedCount(QFileDialog& dialog) {
    QListView* view = fileList(dialog);
    return view->model()->rowCount(view->rootIndex());
  }
  // Once the folder is listed, selects the named files in the list as a user would with
  // Ctrl+click, then accepts.
  void selectAndAccept(QFileDialog& dialog, const QStringList& names) {
    QPointer<QFileDialog> guard(&dialog);
    poll([guard, names] {
      if (!guard) return true;
      if (listedCount(*guard) < names.size()) return false;
      QListView* view = fileList(*guard);
      for (int row = 0; row < view->model()->rowCount(view->rootIndex()); ++row) {
        const QModelIndex index = view->model()->index(row, 0, view->rootIndex());
        if (names.contains(index.data().toString()))
          view->selectionModel()->select(index, QItemSelectionModel::Select | QItemSelectionModel::Rows);
      }
      accept(*guard);
      return true;
    });
  }

  test::ScopedTempRoot temp;
  bool timedOut_ = false;

 private:
  QObject scope_;  // owns the timers, which end with the test
};

TEST_F(Dialogs, CancelGivesNothingAndResetsTheOutputs) {
  whenDialogShown([](QFileDialog& dialog) { dialog.reject(); });
  EXPECT_EQ(ShowOpenDialog(true, false, DefaultFilter, 1, temp.path(), ""), "");
  whenDialogShown([](QFileDialog& dialog) { dialog.reject(); });
  EXPECT_EQ(ShowSaveDialog(true, DefaultFilter, 1, temp.path(), "", ""), "");

  QString name = "given.txt", title = "x", filter = DefaultFilter;
  bool readOnly = true;
  int32_t index = 1, flags = 0x10;
  clsCommonDialog dialog;
  whenDialogShown([](QFileDialog& shown) { shown.reject(); });
  EXPECT_FALSE(dialog.VBGetOpenFileName(name, title, true, false, readOnly, true, filter, index, temp.path(), "", "",
                                        nullptr, flags));
  EXPECT_EQ(dialog.APIReturn(), 0);
  EXPECT_EQ(dialog.ExtendedError(), 0) << "cancelling is no failure";
  EXPECT_EQ(name, "");
  EXPECT_EQ(title, "");
  EXPECT_EQ(filter, "");
  EXPECT_EQ(index, -1);
  EXPECT_EQ(flags, 0);
}

TEST_F(Dialogs, OpenReturnsOneFullPathWithOddCharactersIntact) {
  // Picked from the list: Qt's name box reads a double quote as a name separator.
  const QString picked = QString::fromUtf8("my 'odd' \"图片\" #1 & [x]|é.png");
  const QString pickedPath = temp.write(picked, "x");
  QString shownTitle, shownFolder;
  whenDialogShown([&](QFileDialog& dialog) {
    shownTitle = dialog.windowTitle();
    shownFolder = dialog.directory().absolutePath();
    selectAndAccept(dialog, {picked});
  });
  EXPECT_EQ(ShowOpenDialog(true, false, DefaultFilter, 1, temp.path(), QString::fromUtf8("Pick one — 选择")),
            pickedPath);
  EXPECT_EQ(shownTitle, QString::fromUtf8("Pick one — 选择"));
  EXPECT_EQ(shownFolder, temp.path());

  const QString typedPath = temp.write(QString::fromUtf8("a  b 'c' ü|文件.txt"), "x");
  whenDialogShown([&](QFileDialog& dialog) { type(dialog, typedPath); });
  EXPECT_EQ(ShowOpenDialog(true, false, DefaultFilter, 1, temp.path(), ""), typedPath);
}

TEST_F(Dialogs, TheFilterIndexPicksTheFilterShownFirst) {
  temp.write("a.png", "x");
  temp.write("README", "x");
  const QString filter = "Text|*.txt|Pictures|*.png;*.gif|" + DefaultFilter;
  struct Case {
    int32_t index;
    QString expected;
  };
  // The list shows the page's descriptions as written, without Qt's pattern suffix.
  const Case cases[] = {
      {2, "Pictures"}, {1, "Text"}, {0, "Text"}, {4, "Text"}, {3, QString::fromUtf8("所有文件(*.*)")}};
  for (const Case& c : cases) {
    QString selected;
    whenDialogShown([&](QFileDialog& dialog) {
      selected = dialog.selectedNameFilter();
      dialog.reject();
    });
    ShowOpenDialog(true, false, filter, c.index, temp.path(), "");
    EXPECT_EQ(selected, c.expected) << "index " << c.index;
  }

  // "All files" lists a name without a dot too: Qt reads the patterns from the last
  // parentheses, not from the "(*.*)" of the description.
  int listed = 0;
  whenDialogShown([&](QFileDialog& dialog) {
    QPointer<QFileDialog> guard(&dialog);
    poll([&, guard] {
      if (!guard) return true;
      if (listedCount(*guard) < 2) return false;
      listed = listedCount(*guard);
      guard->reject();
      return true;
    });
  });
  ShowOpenDialog(true, false, DefaultFilter, 1, temp.path(), "");
  EXPECT_EQ(listed, 2);
}

TEST_F(Dialogs, OpenReportsTheChosenFilterAndFileTitle) {
  const QString path = temp.write("b.gif", "x");
  QString name, title, filter = "Text|*.txt|Pictures|*.png;*.gif";
  bool readOnly = false;
  int32_t index = 2, flags = 0x20;
  clsCommonDialog dialog;
  whenDialogShown([&](QFileDialog& shown) { type(shown, "b.gif"); });
  ASSERT_TRUE(dialog.VBGetOpenFileName(name, title, true, false, readOnly, true, filter, index, temp.path(), "", "",
                                       nullptr, flags));
  EXPECT_EQ(dialog.APIReturn(), 1);
  EXPECT_EQ(name, path);
  EXPECT_EQ(title, "b.gif");
  EXPECT_EQ(filter, QString("Pictures") + QChar(u'\0') + "*.png;*.gif");
  EXPECT_EQ(index, 2);
  EXPECT_EQ(flags, clsCommonDialog::OFN_FILEMUSTEXIST | clsCommonDialog::OFN_HIDEREADONLY)
      << "the hook bit is dropped";
  EXPECT_FALSE(readOnly);
}

TEST_F(Dialogs, AFileThatMustExistIsRefusedUntilItDoes) {
  bool warned = false;
  whenDialogShown([&](QFileDialog& dialog) {
    QPointer<QFileDialog> guard(&dialog);
    whenShown<QMessageBox>([&warned, guard](QMessageBox& box) {
      warned = true;
      box.accept();
      if (guard) QMetaObject::invokeMethod(guard, "reject", Qt::QueuedConnection);
    });
    type(dialog, "missing.txt");
  });
  EXPECT_EQ(ShowOpenDialog(true, false, DefaultFilter, 1, temp.path(), ""), "");
  EXPECT_TRUE(warned);

  whenDialogShown([](QFileDialog& dialog) { type(dialog, "missing.txt"); });
  EXPECT_EQ(ShowOpenDialog(false, false, DefaultFilter, 1, temp.path(), ""), temp.path() + "/missing.txt");
}

TEST_F(Dialogs, MultipleSelectionJoinsFullPathsWithBars) {
  const QStringList names = {"a b.png", QString::fromUtf8("it's \"q\" 图.png"), "c.png"};
  QStringList paths;
  for (const QString& name : names) paths << temp.write(name, "x");
  temp.write("other.png", "x");
  whenDialogShown([&](QFileDialog& dialog) { selectAndAccept(dialog, names); });
  const QString chosen = ShowOpenDialog(true, true, DefaultFilter, 1, temp.path(), "");
  QStringList chosenPaths = chosen.split('|');
  chosenPaths.sort();
  paths.sort();
  EXPECT_EQ(chosenPaths, paths);
  EXPECT_FALSE(chosen.contains("//"));

  whenDialogShown([](QFileDialog& dialog) { type(dialog, "c.png"); });
  EXPECT_EQ(ShowOpenDialog(true, true, DefaultFilter, 1, temp.path(), ""), temp.path() + "/c.png")
      << "one file, no bar";
}

TEST_F(Dialogs, MultipleSelectionBufferHoldsFolderAndNames) {
  temp.write("a.png", "x");
  temp.write("b.png", "x");
  QString name, title, filter = DefaultFilter;
  bool readOnly = false;
  int32_t index = 1, flags = 0;
  clsCommonDialog dialog;
  whenDialogShown([](QFileDialog& shown) { type(shown, "\"b.png\" \"a.png\""); });
  ASSERT_TRUE(dialog.VBGetOpenFileName(name, title, true, true, readOnly, true, filter, index, temp.path(), "", "",
                                       nullptr, flags));
  const QChar nul(u'\0');
  EXPECT_EQ(name, temp.path() + nul + "b.png" + nul + "a.png" + nul + nul);
  EXPECT_TRUE(flags & clsCommonDialog::OFN_EXPLORER);
}

TEST_F(Dialogs, SaveAddsTheDefaultExtensionToANameWithoutOne) {
  whenDialogShown([](QFileDialog& dialog) { type(dialog, "page"); });
  EXPECT_EQ(ShowSaveDialog(true, "Web pages|*.htm", 1, temp.path(), "", "htm"), temp.path() + "/page.htm");
  whenDialogShown([](QFileDialog& dialog) { type(dialog, "page.html"); });
  EXPECT_EQ(ShowSaveDialog(true, "Web pages|*.htm", 1, temp.path(), "", "htm"), temp.path() + "/page.html");
}

TEST_F(Dialogs, SaveAsksBeforeOverwritingOnlyWhenTold) {
  const QString existing = temp.write("page.htm", "old");
  bool asked = false;
  whenDialogShown([&](QFileDialog& dialog) {
    whenShown<QMessageBox>([&asked](QMessageBox& box) {
      asked = true;
      box.button(QMessageBox::Yes)->click();
    });
    type(dialog, "page.htm");
  });
  EXPECT_EQ(ShowSaveDialog(true, DefaultFilter, 1, temp.path(), "", ""), existing);
  EXPECT_TRUE(asked);

  whenDialogShown([](QFileDialog& dialog) { type(dialog, "page.htm"); });
  EXPECT_EQ(ShowSaveDialog(false, DefaultFilter, 1, temp.path(), "", ""), existing) << "no question asked";
}

}  // namespace
}  // namespace velmora
