#include <gtest/gtest.h>
#include <QApplication>

// Every test program runs with a real QApplication: dialogs and the clipboard need the
// X server that tests/run-on-xvfb.sh starts for them; without one, Qt's offscreen platform
// keeps the non-graphical tests running.
int main(int argc, char** argv) {
  if (qEnvironmentVariableIsEmpty("DISPLAY")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
