#include "views/appearance.h"

#include <QQuickItem>
#include <QQuickWindow>
#include <QTimer>
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
    if (ancestor->clip()) clips.push_back(toRect(ancestor->mapRectToScene(ancestor->clipRect())));
  }
  return partlyVisible(toRect(item->mapRectToScene(item->boundingRect())), clips);
}

OnScreenWatcher::OnScreenWatcher(QQuickItem* item) : QObject(item), item_(item) {
  connect(item, &QQuickItem::windowChanged, this, [this](QQuickWindow* window) { attach(window); });
  connect(item, &QQuickItem::visibleChanged, this, &OnScreenWatcher::check);
  attach(item->window(), false);
  // The first check waits for the event loop, so that the owner is connected by then.
  QTimer::singleShot(0, this, &OnScreenWatcher::check);
}

void OnScreenWatcher::attach(QQuickWindow* window, bool checkNow) {
  disconnect(frameConnection_);
  disconnect(windowVisibility_);
  window_ = window;
  if (window) {
    // Every frame: a scroll, a move or a resize of any ancestor ends in a new frame.
    frameConnection_ =
        connect(window, &QQuickWindow::afterAnimating, this, &OnScreenWatcher::check);
    windowVisibility_ = connect(window, &QWindow::visibilityChanged, this, &OnScreenWatcher::check);
  }
  if (checkNow) check();
}

void OnScreenWatcher::check() {
  const bool now = isOnScreen(item_);
  if (now == onScreen_) return;
  onScreen_ = now;
  Q_EMIT onScreenChanged(now);
}

}  // namespace tavik::quick
