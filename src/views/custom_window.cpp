#include "tavik/views/custom_window.h"

#include <QGuiApplication>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <limits>

#include "tavik/core/tavik.h"
#include "video/video_ad_view.h"
#include "views/view_factory.h"
#include "views/view_logic.h"

namespace tavik {

namespace {

quick::RectF toRect(const QRectF& r) {
  return {r.x(), r.y(), r.width(), r.height()};
}
QRectF toQRect(const quick::RectF& r) {
  return {r.x, r.y, r.width, r.height};
}

// The QML engine of a window: the window's own (made in QML), or its content's.
QQmlEngine* engineOf(QQuickWindow* window) {
  if (QQmlEngine* engine = qmlEngine(window)) return engine;
  for (QQuickItem* child : window->contentItem()->childItems()) {
    if (QQmlEngine* engine = qmlEngine(child)) return engine;
  }
  return nullptr;
}

constexpr qreal kOverlayZ = 1e6;

// Debug lines follow the installed SDK's switch.
bool debugOn() {
  const TAVIK* sdk = TAVIK::installed();
  return sdk && sdk->config() && sdk->config()->debug;
}

}  // namespace

CustomWindow::CustomWindow(QObject* parent) : QObject(parent) {}

CustomWindow::~CustomWindow() {
  dismiss();
}

QQuickWindow* CustomWindow::keyWindow() {
  if (auto* focus = qobject_cast<QQuickWindow*>(QGuiApplication::focusWindow())) return focus;
  for (QWindow* window : QGuiApplication::topLevelWindows()) {
    auto* quick = qobject_cast<QQuickWindow*>(window);
    if (quick && quick->isVisible() && quick->isExposed()) return quick;
  }
  return nullptr;
}

QRectF CustomWindow::screenRect() const {
  return window_ ? QRectF(0, 0, window_->width(), window_->height()) : QRectF();
}

void CustomWindow::show(const ContentBuilder& content, qreal width, qreal height, bool isDraggable,
                        std::optional<QPointF> position) {
  QQuickWindow* window = keyWindow();
  if (!window) return;  // nothing to put it on: silently nothing
  QQmlEngine* engine = engineOf(window);
  if (!engine) return;
  dismiss();

  window_ = window;
  isDraggable_ = isDraggable;
  storedWidth_ = width;
  storedHeight_ = height;
  host_ = quick::detail::createViewItem(
      QStringLiteral("OverlayFrame"), debugOn(), engine, window->contentItem(),
      [this](QObject* frame) { frame->setProperty("customWindow", QVariant::fromValue(this)); });
  if (!host_) return;
  host_->setZ(kOverlayZ);
  QQuickItem* slot = host_->findChild<QQuickItem*>(QStringLiteral("contentSlot"));
  if (!content || !content(engine, slot ? slot : host_.data())) {
    dismiss();
    return;
  }

  const QRectF screen = screenRect();
  QRectF frame = screen;
  if (isDraggable) {
    std::optional<quick::PointF> at;
    if (position) at = quick::PointF{position->x(), position->y()};
    frame =
        toQRect(quick::overlay::panelFrame({screen.width(), screen.height()}, {width, height}, at));
    initialFrame_ = frame;
    storedWidth_ = frame.width();
    storedHeight_ = frame.height();
  }
  windowConnections_
      << connect(window, &QQuickWindow::widthChanged, this, &CustomWindow::windowResized)
      << connect(window, &QQuickWindow::heightChanged, this, &CustomWindow::windowResized)
      << connect(window, &QObject::destroyed, this, &CustomWindow::dismiss)
      << connect(window->contentItem(), &QQuickItem::childrenChanged, this, &CustomWindow::raise);
  place(frame);
  Q_EMIT shownChanged();
}

void CustomWindow::place(const QRectF& frame) {
  if (!host_) return;
  host_->setPosition(frame.topLeft());
  host_->setSize(frame.size());
  raise();
  if (frame != windowFrame_) {
    windowFrame_ = frame;
    Q_EMIT windowFrameChanged();
  }
}

// In front of everything the host has put into its window, also what it adds later.
void CustomWindow::raise() {
  if (!host_ || !window_) return;
  const auto siblings = window_->contentItem()->childItems();
  qreal top = kOverlayZ;
  for (QQuickItem* sibling : siblings) {
    if (sibling != host_) top = std::max(top, sibling->z() + 1);
  }
  if (host_->z() < top) host_->setZ(top);
  if (!siblings.isEmpty() && siblings.last() != host_) host_->stackAfter(siblings.last());
}

void CustomWindow::setFullScreen(bool flag) {
  if (flag != isFullScreen_) {
    isFullScreen_ = flag;
    Q_EMIT isFullScreenChanged();
  }
  if (!host_) return;
  const QRectF screen = screenRect();
  if (flag) {
    place(screen);
  } else {
    initialFrame_ = toQRect(quick::overlay::leavingFullScreen(toRect(initialFrame_),
                                                              {screen.width(), screen.height()}));
    // The window may have shrunk since the panel was put up.
    place(
        toQRect(quick::overlay::keptInside(toRect(initialFrame_), {screen.width(), screen.height()},
                                           {insets_[0], insets_[1], insets_[2], insets_[3]})));
  }
}

void CustomWindow::handleDragEnded(QPointF translation) {
  if (!host_ || !window_ || isFullScreen_ || !isDraggable_) return;
  const QRectF screen = screenRect();
  const QRectF frame = toQRect(quick::overlay::afterDrag(
      toRect(windowFrame_), {translation.x(), translation.y()}, {screen.width(), screen.height()},
      {insets_[0], insets_[1], insets_[2], insets_[3]}));
  if (returnsToDraggedFrame_) initialFrame_ = frame;
  place(frame);
}

void CustomWindow::setReturnsToDraggedFrame(bool on) {
  if (on == returnsToDraggedFrame_) return;
  returnsToDraggedFrame_ = on;
  Q_EMIT returnsToDraggedFrameChanged();
}

void CustomWindow::windowResized() {
  if (!host_ || !window_) return;
  const QRectF screen = screenRect();
  if (!isDraggable_ || isFullScreen_) {
    place(screen);
    return;
  }
  const QRectF frame =
      toQRect(quick::overlay::keptInside(toRect(windowFrame_), {screen.width(), screen.height()},
                                         {insets_[0], insets_[1], insets_[2], insets_[3]}));
  if (returnsToDraggedFrame_) initialFrame_ = frame;
  place(frame);
}

void CustomWindow::setSafeAreaInsets(qreal top, qreal left, qreal bottom, qreal right) {
  insets_[0] = top;
  insets_[1] = left;
  insets_[2] = bottom;
  insets_[3] = right;
  Q_EMIT windowFrameChanged();
}

void CustomWindow::dismiss() {
  for (const auto& connection : windowConnections_) disconnect(connection);
  windowConnections_.clear();
  const bool wasShown = host_ != nullptr;
  if (host_) {
    QQuickItem* host = host_;
    host_ = nullptr;
    // Content still being built stops here: nothing more of it is made for a layer that
    // goes.
    quick::detail::stopViewItemsIn(host);
    host->setVisible(false);
    // The videos' players go back before the layer leaves its window, not when it is
    // deleted, and their outputs wait in the window they drew in.
    quick::VideoAdViewBase::releasePlayersIn(host);
    host->setParentItem(nullptr);
    // Later, so a close button may dismiss from inside its own handler.
    host->deleteLater();
  }
  window_ = nullptr;
  initialFrame_ = QRectF();
  if (!windowFrame_.isNull()) {
    windowFrame_ = QRectF();
    Q_EMIT windowFrameChanged();
  }
  std::fill(std::begin(insets_), std::end(insets_), 0.0);
  if (wasShown) {
    Q_EMIT shownChanged();
    Q_EMIT dismissed();
  }
}

}  // namespace tavik
