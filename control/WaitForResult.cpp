#include "control/WaitForResult.h"

#include <QDeadlineTimer>
#include <QEventLoop>
#include <QTimer>

#include "control/Velmora5.h"

namespace velmora {

Waited waitForResult(const Velmora5& control, std::chrono::milliseconds timeout) {
  const QDeadlineTimer deadline(timeout);
  QEventLoop loop;
  // Woken by every change of the result, and by a tick that looks at the deadline and at
  // work that ended without a change.
  QObject::connect(&control, &Velmora5::resultChanged, &loop, &QEventLoop::quit);
  QTimer tick;
  QObject::connect(&tick, &QTimer::timeout, &loop, &QEventLoop::quit);
  tick.start(50);
  while (control.Status() != u"ok") {
    if (!control.hasWorkUnderWay()) return Waited::NothingUnderWay;
    if (deadline.hasExpired()) return Waited::TimedOut;
    loop.exec();
  }
  return Waited::Finished;
}

}  // namespace velmora
