#pragma once
#include <QApplication>
#include <memory>

namespace velmora {

// What every host program does before its first control: without a desktop display the
// platform is Qt's offscreen one (everything that shows no window still runs), and large
// blocks are kept for reuse. Then the application object the controls need.
std::unique_ptr<QApplication> startHostProcess(int& argc, char** argv, const QString& name);

// Whether windows and the clipboard can be used: false on the offscreen platform.
bool hostHasDisplay();

}  // namespace velmora
