#include <QCoreApplication>
#include <QMetaObject>
#include <QThread>
#include <mutex>

#include "tavik/views/qt_bridge.h"

namespace tavik::quick {

namespace {

// The application object while it lives. Its destructor runs the post routine below,
// which waits for anyone handing work over, so nobody posts to a dying object.
struct Application {
  std::mutex mutex;
  QCoreApplication* app = nullptr;
};

Application& application() {
  static Application* state = new Application();
  return *state;
}

void forgetApplication() {
  std::lock_guard lock(application().mutex);
  application().app = nullptr;
}

// Called on the application thread: starts watching the current application object.
void watchApplication() {
  Application& state = application();
  std::lock_guard lock(state.mutex);
  QCoreApplication* current = QCoreApplication::instance();
  if (current && state.app != current) {
    state.app = current;
    qAddPostRoutine(forgetApplication);
  }
}

}  // namespace

namespace detail {
bool whileApplicationAlive(const std::function<void()>& f) {
  std::lock_guard lock(application().mutex);
  if (!application().app) return false;
  f();
  return true;
}
}  // namespace detail

Executor applicationExecutor() {
  watchApplication();
  return [](std::function<void()> task) {
    QCoreApplication* app = nullptr;
    {
      std::lock_guard lock(application().mutex);
      app = application().app;
      if (!app) return;
      if (QThread::currentThread() != app->thread()) {
        QMetaObject::invokeMethod(app, std::move(task), Qt::QueuedConnection);
        return;
      }
    }
    task();  // on the application thread already: now, and without the lock held
  };
}

}  // namespace tavik::quick
