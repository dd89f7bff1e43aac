#pragma once
#include <QString>

namespace velmora {

// The values that all objects of one scripting context share: the last-error text, the
// working folder and the interface language. The command line and C++ have one context
// per process; the agent gives every connected page its own, with its own working folder
// below the common one.
struct Context {
  QString g_sError;
  QString g_sTempFolder;
  QString g_sLang = QStringLiteral("zh-cn");
  // Name of this context's folder below "<temp>/Velmora/"; empty for the process context,
  // whose working folder is "<temp>/Velmora/" itself.
  QString workingSubfolder;

  static Context& process();
};

}  // namespace velmora
