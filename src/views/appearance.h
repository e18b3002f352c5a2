#pragma once

#include <QBasicTimer>
#include <QElapsedTimer>
#include <QList>
#include <QMetaObject>
#include <QObject>
#include <QPointer>

#include "views/view_logic.h"

class QQuickItem;
class QQuickWindow;

namespace tavik::quick {

class AdAppearance;

/// How much of an item is on screen now, 0..1: its area inside the window and inside
/// every clipping ancestor (a Flickable or ListView that scrolled it away hides it).
/// Zero when the item or an ancestor is invisible or fully transparent, when its window
/// is hidden, minimised or not exposed, and when the SDK's own full-window overlay (the
/// interstitial) covers it. Covering by the host's own items is not measured.
double visibleFractionOf(const QQuickItem* item);

/// The one visibility engine of a window: every ad view of the window registers its
/// `AdAppearance` here, and after each frame the window shows (a scroll, a move, a
/// resize always ends in one) the tracker measures every registered item in one pass
/// and hands each its fraction. A window without ads has no tracker connection at all,
/// and a window that shows no frame costs nothing. Made on first use, a child of its
/// window; UI thread only.
class VisibilityTracker : public QObject {
  Q_OBJECT

 public:
  /// The window's tracker (made when missing).
  static VisibilityTracker* of(QQuickWindow* window);

  void add(AdAppearance* appearance);
  void remove(AdAppearance* appearance);
  /// An item of the SDK's that covers the whole window while it is shown (the
  /// interstitial's layer): views outside every such item count as covered.
  void addCover(QQuickItem* cover);
  void removeCover(QQuickItem* cover);
  bool covers(const QQuickItem* item) const;

  /// Measures after the next frame (asks the window for one); at once when the window
  /// shows none (hidden, minimised).
  void requestUpdate();
  /// Measures every registered item now.
  void update();

 private:
  explicit VisibilityTracker(QQuickWindow* window);
  void connectWindow(bool on);

  QQuickWindow* window_;
  QList<AdAppearance*> entries_;
  QList<QPointer<QQuickItem>> covers_;
  QMetaObject::Connection frameConnection_;
  QMetaObject::Connection visibilityConnection_;
  bool updating_ = false;
};

/// The appearance of one ad view, the same for every kind of view: whether it is on
/// screen (the host's `adAppear` on every appearance), its one impression per instance
/// (at the first appearance, or, with the configuration's `impressionOnViewable`, when
/// it becomes viewable), its visible fraction and its viewability (at least half of it
/// for a continuous second; two seconds of playback for a video; 30% for an ad of more
/// than 242,500 square pixels). A child of its item; registered with the tracker of
/// the item's window and moved along when the item changes window.
class AdAppearance : public QObject {
  Q_OBJECT

 public:
  explicit AdAppearance(QQuickItem* item);
  ~AdAppearance() override;

  QQuickItem* item() const { return item_; }
  bool onScreen() const { return tracker_.onScreen(); }
  double visibleFraction() const { return fraction_; }
  bool viewable() const { return clock_.viewable(); }
  /// Viewable here, or by an earlier instance of the same card (`markViewableReported`).
  bool viewableReported() const { return viewableReported_; }
  bool impressionReported() const { return impressionReported_; }

  /// The view is complete (its `componentComplete`): measured from the next frame on.
  /// Until then it counts as off screen, since a list creates its delegates before it
  /// places them.
  void setReady();
  /// Whether the view draws an ad at all; one that does not never appears.
  void setDrawable(bool drawable);
  /// A video: the two-second rule, and its clock runs only while `playing`.
  void setVideo(bool video);
  void setPlaying(bool playing);
  /// Whether the impression waits for viewability.
  void setImpressionOnViewable(bool on);
  /// Another ad in the same view: a first appearance, impression and viewability of its
  /// own.
  void reset();
  /// The impression (or the viewable moment) went out from an earlier instance of the
  /// same card: this one does not report it again.
  void markImpressionReported();
  void markViewableReported();

  /// Measures now (the tracker does this after frames).
  void check();
  /// Measures after the next frame.
  void requestCheck();

  /// The fraction the tracker measured (also 0 when the item left every window).
  void setFraction(double fraction);

 protected:
  void timerEvent(QTimerEvent* event) override;

 Q_SIGNALS:
  /// Every appearance (the host's `adAppear`), after `impressionDue` when both come.
  void appeared();
  void disappeared();
  /// The impression is to be reported now; once per instance.
  void impressionDue();
  /// The ad became viewable; once per instance.
  void becameViewable();
  void visibleFractionChanged();

 private:
  void attach(QQuickWindow* window);
  void advanceClock();
  void armDeadline();
  bool drawable() const { return drawable_; }
  ViewabilityRule currentRule() const;

  QQuickItem* item_;
  QPointer<VisibilityTracker> registry_;
  AppearanceTracker tracker_;
  ViewabilityClock clock_;
  // The viewability deadline: a timer id on this object, no timer object (most views
  // never arm one, and every banner would otherwise carry it).
  QBasicTimer deadline_;
  double fraction_ = 0;
  bool drawable_ = true;
  bool ready_ = false;
  bool video_ = false;
  bool playing_ = false;
  bool impressionOnViewable_ = false;
  bool impressionReported_ = false;
  bool viewableReported_ = false;
};

/// Seconds on the process's monotonic clock.
double monotonicSeconds();

}  // namespace tavik::quick
