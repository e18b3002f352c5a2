#pragma once

#include <QMetaObject>
#include <QObject>
#include <QPointer>

class QQuickItem;
class QQuickWindow;

namespace tavik::quick {

/// Whether an item is on screen: it is visible, its window is shown and exposed, and
/// part of it lies inside the window and inside every clipping ancestor (a Flickable or
/// ListView that scrolled it away hides it). Checked after every frame of its window, so a
/// banner scrolled out and back in appears again, and one created off screen does not
/// appear until it is scrolled in.
bool isOnScreen(const QQuickItem* item);

/// Follows `isOnScreen` for one item and says when it changes. The watcher is a child
/// of the item and dies with it.
class OnScreenWatcher : public QObject {
  Q_OBJECT

 public:
  explicit OnScreenWatcher(QQuickItem* item);

  bool onScreen() const { return onScreen_; }
  /// Checks now.
  void check();
  /// Checks after the next frame (asks the window for one).
  void requestCheck();

 Q_SIGNALS:
  void onScreenChanged(bool onScreen);

 private:
  void attach(QQuickWindow* window);

  QQuickItem* item_;
  QPointer<QQuickWindow> window_;
  QMetaObject::Connection frameConnection_;
  QMetaObject::Connection windowVisibility_;
  bool onScreen_ = false;
};

}  // namespace tavik::quick
