#include "core/Producers.h"

namespace velmora {

QString creationFailure(const QString& progId) {
  if (progId.startsWith(u"WPS.") || progId.startsWith(u"ET.") || progId.startsWith(u"WPP."))
    return QStringLiteral("CreateObject:") + progId + QStringLiteral(": WPS Office is not installed on this system");
  return QStringLiteral("CreateObject:") + progId +
         QStringLiteral(": this engine is not available in this build of Velmora");
}

}  // namespace velmora
