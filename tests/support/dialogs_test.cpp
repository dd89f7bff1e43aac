#include <QApplication>
#include <QFileDialog>
#include <QGuiApplication>
#include <QLineEdit>
#include <QTimer>
#include <functional>
#include <gtest/gtest.h>

#include "support/clsCommonDialog.h"
#include "tests/common/TestSupport.h"

namespace velmora {
namespace {

TEST(DialogFilter, PairsDescriptionsWithPatternsInQtsForm) {
  EXPECT_EQ(clsCommonDialog::QtNameFilters("所有文件(*.*)|*.*"), QStringList({"所有文件(*.*) (*.*)"}));
  EXPECT_EQ(clsCommonDialog::QtNameFilters("Pictures|*.png;*.jpg|Text:*.txt"),
            QStringList({"Pictures (*.png *.jpg)", "Text (*.txt)"}));
  // A ":" inside a description separates too, shifting the pairs.
  EXPECT_EQ(clsCommonDialog::QtNameFilters("Note: text|*.txt"), QStringList({"Note ( text)"}));
  EXPECT_EQ(clsCommonDialog::QtNameFilters(""), QStringList());
  EXPECT_EQ(clsCommonDialog::QtNameFilters("Lonely description"), QStringList());
}

// Drives the real dialog the way a user does: waits for it, then lets `act` type a name or
// pick files and accept, or cancel. A dialog left open is rejected so no test can hang.
class Dialogs : public ::testing::Test {
 protected:
  void SetUp() override {
    if (QGuiApplication::platformName() != "xcb") GTEST_SKIP() << "needs the X server of the test command";
  }
  void whenShown(std::function<void(QFileDialog&)> act) {
    auto* poll = new QTimer(qApp);
    QObject::connect(poll, &QTimer::timeout, poll, [poll, act] {
      auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
      if (!dialog) return;
      poll->deleteLater();
      act(*dialog);
    });
    poll->start(20);
    // Whatever is still open later (the dialog, or a message it shows) is closed.
    QTimer::singleShot(15000, qApp, [poll] {
      while (QWidget* open = QApplication::activeModalWidget()) qobject_cast<QDialog*>(open)->reject();
    });
  }
  static void type(QFileDialog& dialog, const QString& text) {
    dialog.findChild<QLineEdit*>("fileNameEdit")->setText(text);
    QMetaObject::invokeMethod(&dialog, "accept", Qt::QueuedConnection);
  }
  test::ScopedTempRoot temp;
};

TEST_F(Dialogs, CancelGivesNothing) {
  whenShown([](QFileDialog& dialog) { dialog.reject(); });
  EXPECT_EQ(ShowOpenDialog(true, false, "所有文件(*.*)|*.*", 1, temp.path(), ""), "");
  whenShown([](QFileDialog& dialog) { dialog.reject(); });
  EXPECT_EQ(ShowSaveDialog(true, "所有文件(*.*)|*.*", 1, temp.path(), "", ""), "");
}

TEST_F(Dialogs, OpenReturnsOneFullPathWithOddCharactersIntact) {
  const QString name = QString::fromUtf8("my 'odd' 图片 #1 & [x].png");
  const QString path = temp.write(name, "x");
  QString title, filter;
  whenShown([&](QFileDialog& dialog) {
    title = dialog.windowTitle();
    filter = dialog.selectedNameFilter();
    type(dialog, path);
  });
  EXPECT_EQ(ShowOpenDialog(true, false, "Text|*.txt|Pictures|*.png;*.gif", 2, temp.path(), "Pick one"), path);
  EXPECT_EQ(title, "Pick one");
  EXPECT_EQ(filter, "Pictures (*.png *.gif)") << "the filter index counts from 1";
}

TEST_F(Dialogs, MultipleSelectionJoinsFullPathsWithBars) {
  const QString a = temp.write("a.png", "x"), b = temp.write("b.png", "x"), c = temp.write("c.png", "x");
  whenShown([&](QFileDialog& dialog) { type(dialog, "\"a.png\" \"b.png\" \"c.png\""); });
  const QString chosen = ShowOpenDialog(true, true, "所有文件(*.*)|*.*", 1, temp.path(), "");
  QStringList paths = chosen.split('|');
  paths.sort();
  EXPECT_EQ(paths, QStringList({a, b, c}));
  EXPECT_FALSE(chosen.contains("//"));

  whenShown([&](QFileDialog& dialog) { type(dialog, "a.png"); });
  EXPECT_EQ(ShowOpenDialog(true, true, "所有文件(*.*)|*.*", 1, temp.path(), ""), a) << "one file, no bar";
}

TEST_F(Dialogs, SaveAddsTheDefaultExtension) {
  whenShown([&](QFileDialog& dialog) { type(dialog, "page"); });
  EXPECT_EQ(ShowSaveDialog(true, "Web pages|*.htm", 1, temp.path(), "", "htm"), temp.path() + "/page.htm");
}

}  // namespace
}  // namespace velmora
