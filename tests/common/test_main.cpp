#include <gtest/gtest.h>
#include <QApplication>

// Every test program runs with a real QApplication: dialogs and the clipboard need the
// X server that tests/run-on-xvfb.sh starts for them; without one, Qt's offscreen platform
// keeps the non-graphical tests running.
//
// Every test program shares one warm office helper, never the user's own: they all name the
// build's runtime folder, where the first one starts the helper, and it leaves 20 s after
// the last caller (a cold LibreOffice costs a second; a warm one, a tenth of that).
int main(int argc, char** argv) {
  if (qEnvironmentVariableIsEmpty("DISPLAY")) qputenv("QT_QPA_PLATFORM", "offscreen");
  qputenv("XDG_RUNTIME_DIR", VELMORA_TEST_RUNTIME);
  qputenv("VELMORA_OFFICE_IDLE", "20");
  QApplication app(argc, argv);
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
