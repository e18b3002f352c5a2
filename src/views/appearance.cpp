#include "views/appearance.h"

#include <QQuickItem>
#include <QQuickWindow>
#include <vector>

#include "views/view_logic.h"

namespace tavik::quick {

namespace {
RectF toRect(const QRectF& r) {
  return {r.x(), r.y(), r.width(), r.height()};
}
}  // namespace

bool isOnScreen(const QQuickItem* item) {
  if (!item || !item->isVisible() || item->width() <= 0 || item->height() <= 0) return false;
  QQuickWindow* window = item->window();
  if (!window || !window->isVisible() || !window->isExposed()) return false;
  std::vector<RectF> clips;
  clips.push_back(
      {0, 0, static_cast<double>(window->width()), static_cast<double>(window->height())});
  for (const QQuickItem* ancestor = item->parentItem(); ancestor;
       ancestor = ancestor->parentItem()) {
    // An item with clip set clips its children to its own bounds.
    if (ancestor->clip())
      clips.push_back(toRect(ancestor->mapRectToScene(ancestor->boundingRect())));
  }
  return partlyVisible(toRect(item->mapRectToScene(item->boundingRect())), clips);
}

OnScreenWatcher::OnScreenWatcher(QQuickItem* item) : QObject(item), item_(item) {
  connect(item, &QQuickItem::windowChanged, this, &OnScreenWatcher::attach);
  connect(item, &QQuickItem::visibleChanged, this, &OnScreenWatcher::requestCheck);
  attach(item->window());
}

void OnScreenWatcher::attach(QQuickWindow* window) {
  disconnect(frameConnection_);
  disconnect(windowVisibility_);
  window_ = window;
  if (!window) {
    check();  // out of every window: off screen now
    return;
  }
  // After every frame shown: a scroll, a move or a resize of any ancestor ends in a new
  // frame, and by then every item is where that frame drew it (a list positions a new
  // card only after creating it). Queued, because a threaded render loop emits this on
  // its render thread.
  frameConnection_ = connect(window, &QQuickWindow::frameSwapped, this, &OnScreenWatcher::check,
                             Qt::QueuedConnection);
  windowVisibility_ =
      connect(window, &QWindow::visibilityChanged, this, &OnScreenWatcher::requestCheck);
  requestCheck();
}

void OnScreenWatcher::requestCheck() {
  // A hidden window renders no frame to wait for: it is off screen now.
  if (window_ && window_->isVisible() && window_->isExposed()) {
    window_->update();
  } else {
    check();
  }
}

void OnScreenWatcher::check() {
  const bool now = isOnScreen(item_);
  if (now == onScreen_) return;
  onScreen_ = now;
  Q_EMIT onScreenChanged(now);
}

}  // namespace tavik::quick
