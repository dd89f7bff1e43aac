#include <gtest/gtest.h>
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
#include <type_traits>

#include "dialogs/clsCommonDialog.h"
#include "tests/common/Helpers.h"
#include "tests/common/TestSupport.h"

namespace velmora {
namespace {

const QString DefaultFilter = QString::fromUtf8("所有文件(*.*)|*.*");
const QChar nul(u'\0');

// The arguments VBGetOpenFileName reads and writes back.
struct OpenFileName {
  QString name, title, filter = DefaultFilter;
  bool readOnly = false;
  int32_t index = 1, flags = 0;
  bool run(clsCommonDialog& dialog, bool multiSelect, const QString& folder) {
    return dialog.VBGetOpenFileName(name, title, true, multiSelect, readOnly, true, filter, index, folder, "", "",
                                    nullptr, flags);
  }
};

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
      {"Lonely description", {}},
  };
  for (const auto& c : cases) EXPECT_EQ(clsCommonDialog::QtNameFilters(c.filter), c.qtFilters) << c.filter;
}

TEST(DialogMultiFileName, SplitsABufferIntoFolderAndNames) {
  const struct {
    QString buffer, folder;
    QStringList names;
  } cases[] = {
      {QString::fromUtf8("/home/u/图 片/a b.png"), QString::fromUtf8("/home/u/图 片/"), {"a b.png"}},
      // The dialog's order, nothing after the double NUL.
      {QString("/pics") + nul + "b.png" + nul + "a.png" + nul + nul + "stale" + nul, "/pics", {"b.png", "a.png"}},
      {QString("/") + nul + "a" + nul + "b" + nul + nul, "/", {"a", "b"}},
  };
  for (const auto& c : cases) {
    QString folder;
    QStringList names;
    int32_t count = 0;
    clsCommonDialog::ParseMultiFileName(c.buffer, folder, names, count);
    EXPECT_EQ(folder, c.folder);
    EXPECT_EQ(names, c.names);
    EXPECT_EQ(count, c.names.size());
  }
}

// A dialog that cannot be seen (offscreen platform) must fail at once instead of waiting for
// a click that cannot come. Under X the test runs itself again on the offscreen platform.
TEST(DialogWithoutAScreen, FailsAtOnce) {
  if (QGuiApplication::platformName() == u"offscreen") {
    clsCommonDialog dialog;
    OpenFileName open;
    EXPECT_FALSE(open.run(dialog, false, ""));
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
  EXPECT_EQ(child.exitCode(), 0) << output;
  EXPECT_TRUE(output.contains("[  PASSED  ] 1 test")) << output;
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
  template <typename T = QFileDialog>
  void whenShown(std::type_identity_t<std::function<void(T&)>> act) {
    poll([act] {
      auto* widget = qobject_cast<T*>(QApplication::activeModalWidget());
      if (widget) act(*widget);
      return widget != nullptr;
    });
  }
  void whenShownType(const QString& text) {
    whenShown([text](QFileDialog& dialog) { type(dialog, text); });
  }

  static void accept(QFileDialog& dialog) { QMetaObject::invokeMethod(&dialog, "accept", Qt::QueuedConnection); }
  static void type(QFileDialog& dialog, const QString& text) {
    dialog.findChild<QLineEdit*>("fileNameEdit")->setText(text);
    accept(dialog);
  }
  // Once the folder lists the named files, selects them as a user would with Ctrl+click and accepts.
  void selectAndAccept(QFileDialog& dialog, const QStringList& names) {
    QPointer<QFileDialog> guard(&dialog);
    poll([guard, names] {
      if (!guard) return true;
      QListView* view = guard->findChild<QListView*>("listView");
      const int rows = view->model()->rowCount(view->rootIndex());
      if (rows < names.size()) return false;
      for (int row = 0; row < rows; ++row) {
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
  OpenFileName open{"given.txt", "x", DefaultFilter, true, 1, 0x10};
  clsCommonDialog dialog;
  whenShown([](QFileDialog& dialog) { dialog.reject(); });
  EXPECT_FALSE(open.run(dialog, false, temp.path()));
  EXPECT_EQ(dialog.APIReturn(), 0);
  EXPECT_EQ(dialog.ExtendedError(), 0) << "cancelling is no failure";
  EXPECT_EQ(open.name + open.title + open.filter, "");
  EXPECT_EQ(open.index, -1);
  EXPECT_EQ(open.flags, 0);
}

TEST_F(Dialogs, OpenReturnsOneFullPathWithOddCharactersIntact) {
  // Picked from the list: Qt's name box reads a double quote as a name separator.
  const QString picked = QString::fromUtf8("my 'odd' \"图片\" #1 & [x]|é.png");
  const QString pickedPath = temp.write(picked, "x");
  QString shownTitle, shownFolder;
  whenShown([&](QFileDialog& dialog) {
    shownTitle = dialog.windowTitle();
    shownFolder = dialog.directory().absolutePath();
    selectAndAccept(dialog, {picked});
  });
  const QString title = QString::fromUtf8("Pick one — 选择");
  EXPECT_EQ(ShowOpenDialog(true, false, DefaultFilter, 1, temp.path(), title), pickedPath);
  EXPECT_EQ(shownTitle, title);
  EXPECT_EQ(shownFolder, temp.path());
}

TEST_F(Dialogs, TheFilterIndexPicksTheFilterShownFirst) {
  const QString filter = "Text|*.txt|Pictures|*.png;*.gif|" + DefaultFilter;
  // The list shows the page's descriptions as written, without Qt's pattern suffix.
  const std::pair<int32_t, QString> cases[] = {
      {2, "Pictures"}, {0, "Text"}, {4, "Text"}, {3, QString::fromUtf8("所有文件(*.*)")}};
  for (const auto& [index, expected] : cases) {
    QString selected;
    whenShown([&](QFileDialog& dialog) {
      selected = dialog.selectedNameFilter();
      dialog.reject();
    });
    ShowOpenDialog(true, false, filter, index, temp.path(), "");
    EXPECT_EQ(selected, expected) << "index " << index;
  }
}

TEST_F(Dialogs, OpenReportsTheChosenFilterTitleAndForAMultipleSelectionFolderAndNames) {
  const QString path = temp.write("b.gif", "x");
  temp.write("a.gif", "x");
  OpenFileName open{"", "", "Text|*.txt|Pictures|*.png;*.gif", false, 2, 0x20};
  clsCommonDialog dialog;
  whenShownType("b.gif");
  ASSERT_TRUE(open.run(dialog, false, temp.path()));
  EXPECT_EQ(dialog.APIReturn(), 1);
  EXPECT_EQ(open.name, path);
  EXPECT_EQ(open.title, "b.gif");
  EXPECT_EQ(open.filter, QString("Pictures") + nul + "*.png;*.gif");
  EXPECT_EQ(open.index, 2);
  EXPECT_EQ(open.flags, clsCommonDialog::OFN_FILEMUSTEXIST | clsCommonDialog::OFN_HIDEREADONLY)
      << "the hook bit is dropped";
  EXPECT_FALSE(open.readOnly);

  OpenFileName multiple;
  whenShownType("\"b.gif\" \"a.gif\"");
  ASSERT_TRUE(multiple.run(dialog, true, temp.path()));
  EXPECT_EQ(multiple.name, temp.path() + nul + "b.gif" + nul + "a.gif" + nul + nul);
  EXPECT_TRUE(multiple.flags & clsCommonDialog::OFN_EXPLORER);
}

TEST_F(Dialogs, AFileThatMustExistIsRefusedUntilItDoes) {
  bool warned = false;
  whenShown([&](QFileDialog& dialog) {
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

  whenShownType("missing.txt");
  EXPECT_EQ(ShowOpenDialog(false, false, DefaultFilter, 1, temp.path(), ""), temp.path() + "/missing.txt");
}

TEST_F(Dialogs, MultipleSelectionJoinsFullPathsWithBars) {
  const QStringList names = {"a b.png", QString::fromUtf8("it's \"q\" 图.png"), "c.png"};
  QStringList paths;
  for (const QString& name : names) paths << temp.write(name, "x");
  temp.write("other.png", "x");
  whenShown([&](QFileDialog& dialog) { selectAndAccept(dialog, names); });
  const QString chosen = ShowOpenDialog(true, true, DefaultFilter, 1, temp.path(), "");
  QStringList chosenPaths = chosen.split('|');
  chosenPaths.sort();
  paths.sort();
  EXPECT_EQ(chosenPaths, paths);
  EXPECT_FALSE(chosen.contains("//"));

  whenShownType("c.png");
  EXPECT_EQ(ShowOpenDialog(true, true, DefaultFilter, 1, temp.path(), ""), temp.path() + "/c.png")
      << "one file, no bar";
}

TEST_F(Dialogs, SaveAddsTheDefaultExtensionAndAsksBeforeOverwritingOnlyWhenTold) {
  whenShownType("page");
  EXPECT_EQ(ShowSaveDialog(true, "Web pages|*.htm", 1, temp.path(), "", "htm"), temp.path() + "/page.htm");
  whenShownType("page.html");
  EXPECT_EQ(ShowSaveDialog(true, "Web pages|*.htm", 1, temp.path(), "", "htm"), temp.path() + "/page.html");

  const QString existing = temp.write("page.htm", "old");
  bool asked = false;
  whenShown([&](QFileDialog& dialog) {
    whenShown<QMessageBox>([&asked](QMessageBox& box) {
      asked = true;
      box.button(QMessageBox::Yes)->click();
    });
    type(dialog, "page.htm");
  });
  EXPECT_EQ(ShowSaveDialog(true, DefaultFilter, 1, temp.path(), "", ""), existing);
  EXPECT_TRUE(asked);
  whenShownType("page.htm");
  EXPECT_EQ(ShowSaveDialog(false, DefaultFilter, 1, temp.path(), "", ""), existing) << "no question asked";
}

}  // namespace
}  // namespace velmora
