#include "core/Yield.h"

#include <QCoreApplication>
#include <QPointer>

namespace velmora {

void letPendingEventsRun() {
  if (QCoreApplication::instance()) QCoreApplication::processEvents();
}

bool letPendingEventsRun(const QObject* self) {
  const QPointer<const QObject> watched(self);
  letPendingEventsRun();
  return !watched.isNull();
}

}  // namespace velmora
