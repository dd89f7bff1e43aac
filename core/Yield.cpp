#include "core/Yield.h"

#include <QCoreApplication>
#include <QPointer>

namespace velmora {

void LetPendingEventsRun() {
  if (QCoreApplication::instance()) QCoreApplication::processEvents();
}

bool LetPendingEventsRun(const QObject* self) {
  const QPointer<const QObject> watched(self);
  LetPendingEventsRun();
  return !watched.isNull();
}

}  // namespace velmora
