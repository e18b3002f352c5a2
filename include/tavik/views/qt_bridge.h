#pragma once

// Bringing results of tavik::core back to the Qt application thread.
//
// The core completes its futures on its transport thread. A view must never touch its
// items there, and must never see a result after it is gone. `continueOn` posts the
// continuation to the application (GUI) thread and drops it when `context` has been
// destroyed by then.
//
//   tavik::quick::continueOn(this, renderer->fetchBannerAdsWithAu(...),
//                            [this](const tavik::Future<std::optional<BannerAd>>& ready) {
//                              show(ready.get());  // ready: get() does not block
//                            });

#include <QCoreApplication>
#include <QMetaObject>
#include <QObject>
#include <QPointer>
#include <QThread>
#include <memory>
#include <utility>

#include "tavik/core/future.h"

namespace tavik::quick {

/// Runs `f(readyFuture)` on the application thread once `future` is ready, unless
/// `context` was destroyed first. Call it on the application thread; `context` must
/// live there (every view and manager does). Errors reach `f` too: `get()` rethrows.
template <class T, class F>
void continueOn(QObject* context, const Future<T>& future, F&& f) {
  // The guard is made and read on the application thread only; the transport thread
  // merely posts to the application object, which outlives every view.
  auto guard = std::make_shared<QPointer<QObject>>(context);
  future.whenReady([guard, f = std::forward<F>(f)](const Future<T>& ready) mutable {
    QCoreApplication* app = QCoreApplication::instance();
    if (!app) return;
    auto deliver = [guard, f = std::move(f), ready]() mutable {
      if (!guard->isNull()) f(ready);
    };
    if (QThread::currentThread() == app->thread()) {
      deliver();
    } else {
      QMetaObject::invokeMethod(app, std::move(deliver), Qt::QueuedConnection);
    }
  });
}

}  // namespace tavik::quick
