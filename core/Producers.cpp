#include "core/Producers.h"

namespace velmora {

Failure creationFailure(const QString& progId) {
  const QString word = QStringLiteral("CreateObject:");
  if (progId.startsWith(u"WPS.") || progId.startsWith(u"ET.") || progId.startsWith(u"WPP."))
    return {word, progId + QStringLiteral(": WPS Office is not installed on this system")};
  return {word, progId + QStringLiteral(": this engine is not available in this build of Velmora")};
}

}  // namespace velmora
