#include "core/Yield.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QPointer>
#include <QThread>
#include <QTimer>

namespace velmora {

// Work done aside (Aside.h) has no page events to let run: they belong to the main thread.
void letPendingEventsRun() {
  const QCoreApplication* app = QCoreApplication::instance();
  if (app && QThread::currentThread() == app->thread()) QCoreApplication::processEvents();
}

bool letPendingEventsRun(const QObject* self) {
  const QPointer<const QObject> watched(self);
  letPendingEventsRun();
  return !watched.isNull();
}

bool letEventsRunUntil(const std::function<bool()>& done, int timeoutMs) {
  if (done()) return true;
  const QDeadlineTimer deadline(timeoutMs);  // negative: for ever
  QEventLoop loop;
  QTimer poll;  // events that matter arrive as signals; the poll notices `done` soon after
  QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
    if (done() || deadline.hasExpired()) loop.quit();
  });
  poll.start(5);
  loop.exec();
  return done();
}

}  // namespace velmora
