#include "core/Aside.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QThread>
#include <QThreadPool>
#include <condition_variable>
#include <mutex>

namespace velmora {

namespace {

// One piece of work between the thread that waits for it and the worker that does it.
struct Handover {
  std::function<void()> work;
  std::exception_ptr thrown;
  std::mutex mutex;
  std::condition_variable finished;
  bool done = false;
  QEventLoop* waiting = nullptr;  // quit once the work is done, while the waiting thread runs it
};

bool onMainThread() {
  const QCoreApplication* app = QCoreApplication::instance();
  return app && QThread::currentThread() == app->thread();
}

// Pages wait for their own work only: a few long clean-ups at once must not queue a short
// one behind them, so the pool has more threads than the machine has cores.
QThreadPool& workers() {
  static QThreadPool* pool = [] {
    QThreadPool* global = QThreadPool::globalInstance();
    global->setMaxThreadCount(std::max(8, QThread::idealThreadCount()));
    return global;
  }();
  return *pool;
}

}  // namespace

void runAside(const std::function<void()>& work) {
  if (!onMainThread()) {
    work();
    return;
  }
  auto handover = std::make_shared<Handover>();
  handover->work = work;
  QEventLoop loop;
  handover->waiting = &loop;
  workers().start([handover] {
    try {
      handover->work();
    } catch (...) {
      handover->thrown = std::current_exception();
    }
    const std::lock_guard lock(handover->mutex);
    handover->done = true;
    if (handover->waiting) QMetaObject::invokeMethod(handover->waiting, &QEventLoop::quit, Qt::QueuedConnection);
    handover->finished.notify_one();
  });
  loop.exec();
  // The loop also ends when the application quits; the work still holds references into
  // this frame, so it is waited for all the same.
  std::unique_lock lock(handover->mutex);
  handover->waiting = nullptr;
  handover->finished.wait(lock, [&] { return handover->done; });
  if (handover->thrown) std::rethrow_exception(handover->thrown);
}

}  // namespace velmora
