#pragma once

#include <QtQml/qqmlregistration.h>
#include <QObject>
#include <QPointF>
#include <QPointer>
#include <QQuickItem>
#include <QQuickWindow>
#include <QRectF>
#include <functional>
#include <optional>

class QQmlEngine;

namespace tavik {

/// Puts SDK content over the host's whole interface without the host placing it: an
/// item on top of the key window's content, kept in front of everything the host adds.
/// It serves full-window content (the interstitial) and a small draggable panel (the
/// picture-in-picture video), switches the panel to and from full screen, moves it when
/// a drag ends and takes it down. It opens no window of its own.
///
/// The "screen" of its geometry is the key window: the app's window on a desktop, the
/// whole screen on a phone. The panel follows the window when it is resized. The key
/// window is the application's focus window when it is a Quick window, else the first
/// visible, exposed Quick window; with none, `show` does nothing. UI thread only.
class CustomWindow : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by the interstitial and picture-in-picture managers")
  Q_PROPERTY(bool isFullScreen READ isFullScreen NOTIFY isFullScreenChanged)
  Q_PROPERTY(QRectF windowFrame READ windowFrame NOTIFY windowFrameChanged)
  Q_PROPERTY(bool isDraggable READ isDraggable NOTIFY shownChanged)
  Q_PROPERTY(bool shown READ shown NOTIFY shownChanged)
  Q_PROPERTY(qreal panelWidth READ panelWidth NOTIFY shownChanged)
  Q_PROPERTY(qreal panelHeight READ panelHeight NOTIFY shownChanged)
  Q_PROPERTY(qreal safeAreaTop READ safeAreaTop NOTIFY windowFrameChanged)
  Q_PROPERTY(qreal safeAreaBottom READ safeAreaBottom NOTIFY windowFrameChanged)
  Q_PROPERTY(bool returnsToDraggedFrame READ returnsToDraggedFrame WRITE setReturnsToDraggedFrame
                 NOTIFY returnsToDraggedFrameChanged)

 public:
  /// Builds the content inside `host` with `engine` (the key window's QML engine) and
  /// returns it, or returns `host` itself when the content is still being built into it
  /// (it joins `host` once complete); null when nothing could be made. The window owns
  /// it from then on, and content still being built when the window is dismissed is
  /// stopped.
  using ContentBuilder = std::function<QQuickItem*(QQmlEngine* engine, QQuickItem* host)>;

  /// An overlay that shows nothing yet, owned by `parent`.
  explicit CustomWindow(QObject* parent = nullptr);
  ~CustomWindow() override;

  /// The window overlays go into now, or nullptr.
  static QQuickWindow* keyWindow();

  /// Shows the content: a panel of `width` × `height` (at most 0.8 of the window on each
  /// side) at `position` or in the bottom-right corner when `isDraggable`, else over the
  /// whole window. Whatever was shown before is taken down first.
  void show(const ContentBuilder& content, qreal width, qreal height, bool isDraggable,
            std::optional<QPointF> position);
  /// Switches the panel to full window and back: to the frame it was first shown at (or
  /// the middle 0.8 when it had none), kept inside the window; with
  /// `returnsToDraggedFrame`, to where the shopper last dragged it.
  Q_INVOKABLE void setFullScreen(bool flag);
  /// Takes everything down; harmless when nothing is shown.
  Q_INVOKABLE void dismiss();
  /// Moves the panel by a finished drag, kept inside the window and its safe area.
  Q_INVOKABLE void handleDragEnded(QPointF translation);

  /// Safe-area insets of the key window; Qt 6.4 has none on desktop, so they start at
  /// zero. A platform that has them sets them here.
  void setSafeAreaInsets(qreal top, qreal left, qreal bottom, qreal right);

  /// Off by default: leaving full screen returns the panel to the frame it was first
  /// shown at. On: to the place the shopper last dragged it to (or the window's resize
  /// moved it to).
  bool returnsToDraggedFrame() const { return returnsToDraggedFrame_; }
  /// Sets `returnsToDraggedFrame`.
  void setReturnsToDraggedFrame(bool on);

  /// Whether the panel fills the window now.
  bool isFullScreen() const { return isFullScreen_; }
  /// Where the content is, in the key window's coordinates; empty when nothing is shown.
  QRectF windowFrame() const { return windowFrame_; }
  /// Whether the content is the draggable panel (not full-window content).
  bool isDraggable() const { return isDraggable_; }
  /// Whether content is shown.
  bool shown() const { return host_ != nullptr; }
  /// Width of the panel as placed by `show` (the width asked for, for full-window content).
  qreal panelWidth() const { return storedWidth_; }
  /// Height of the panel as placed by `show` (the height asked for, for full-window content).
  qreal panelHeight() const { return storedHeight_; }
  /// Top safe-area inset of the key window; 0 unless set.
  qreal safeAreaTop() const { return insets_[0]; }
  /// Bottom safe-area inset of the key window; 0 unless set.
  qreal safeAreaBottom() const { return insets_[2]; }
  /// The window the content is shown in, or nullptr.
  QQuickWindow* window() const { return window_; }
  /// The item that carries the content, or nullptr.
  QQuickItem* host() const { return host_; }

 Q_SIGNALS:
  /// `isFullScreen` changed.
  void isFullScreenChanged();
  /// `windowFrame` or the safe-area insets changed.
  void windowFrameChanged();
  /// Content was shown or taken down; `isDraggable` and the panel size may have changed.
  void shownChanged();
  /// `returnsToDraggedFrame` changed.
  void returnsToDraggedFrameChanged();
  /// The content was taken down (dismiss, or its window went away).
  void dismissed();

 private:
  void place(const QRectF& frame);
  void raise();
  void windowResized();
  QRectF screenRect() const;

  QPointer<QQuickWindow> window_;
  QPointer<QQuickItem> host_;
  bool isFullScreen_ = false;
  bool isDraggable_ = false;
  bool returnsToDraggedFrame_ = false;
  QRectF windowFrame_;
  QRectF initialFrame_;
  qreal storedWidth_ = 0;
  qreal storedHeight_ = 0;
  qreal insets_[4] = {0, 0, 0, 0};  // top, left, bottom, right
  QList<QMetaObject::Connection> windowConnections_;
};

}  // namespace tavik
