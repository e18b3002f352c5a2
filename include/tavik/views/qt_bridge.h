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

#include <QObject>
#include <QPointer>
#include <functional>
#include <memory>
#include <utility>

#include "tavik/core/future.h"

namespace tavik::quick {

/// An executor that runs tasks on the Qt application thread: at once when the task is
/// handed over on that thread, else queued to it. Tasks handed over after the
/// application object is gone are dropped. Make it on the application thread.
///
///   future.then(tavik::quick::applicationExecutor(), [](const auto& value) { ... });
Executor applicationExecutor();

namespace detail {
/// Runs `f` while the application object is guaranteed to stay alive (its destruction
/// waits), or not at all when it is gone. For work handed to Qt from other threads.
bool whileApplicationAlive(const std::function<void()>& f);
}  // namespace detail

/// Runs `f(readyFuture)` on the application thread once `future` is ready, unless
/// `context` was destroyed first. Call it on the application thread; `context` must
/// live there (every view and manager does). Errors reach `f` too: `get()` rethrows.
template <class T, class F>
void continueOn(QObject* context, const Future<T>& future, F&& f) {
  // The guard is made and read on the application thread only.
  auto guard = std::make_shared<QPointer<QObject>>(context);
  future.whenReady(applicationExecutor(),
                   [guard, f = std::forward<F>(f)](const Future<T>& ready) mutable {
                     if (!guard->isNull()) f(ready);
                   });
}

}  // namespace tavik::quick
