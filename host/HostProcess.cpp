#include "host/HostProcess.h"

#include "platform/LargeBlocks.h"

namespace velmora {

std::unique_ptr<QApplication> startHostProcess(int& argc, char** argv, const QString& name) {
  if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
    qputenv("QT_QPA_PLATFORM", "offscreen");
  KeepLargeBlocksForReuse();
  auto app = std::make_unique<QApplication>(argc, argv);
  QApplication::setApplicationName(name);
  return app;
}

bool hostHasDisplay() { return QGuiApplication::platformName() != u"offscreen"; }

}  // namespace velmora
