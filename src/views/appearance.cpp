#include "views/appearance.h"

#include <QQuickItem>
#include <QQuickWindow>
#include <QTimerEvent>
#include <QVarLengthArray>
#include <cmath>

namespace tavik::quick {

namespace {

RectF toRect(const QRectF& r) {
  return {r.x(), r.y(), r.width(), r.height()};
}

bool windowShows(const QQuickWindow* window) {
  return window && window->isVisible() && window->isExposed() &&
         window->visibility() != QWindow::Minimized;
}

}  // namespace

double monotonicSeconds() {
  static const QElapsedTimer clock = [] {
    QElapsedTimer started;
    started.start();
    return started;
  }();
  return static_cast<double>(clock.nsecsElapsed()) / 1e9;
}

double visibleFractionOf(const QQuickItem* item) {
  if (!item || !item->isVisible() || item->width() <= 0 || item->height() <= 0) return 0;
  QQuickWindow* window = item->window();
  if (!windowShows(window)) return 0;
  QVarLengthArray<RectF, 8> clips;
  clips.append({0, 0, static_cast<double>(window->width()), static_cast<double>(window->height())});
  for (const QQuickItem* at = item; at; at = at->parentItem()) {
    if (at->opacity() <= 0) return 0;  // fully transparent: nothing of it shows
    // An item with clip set clips its children to its own bounds.
    if (at != item && at->clip()) clips.append(toRect(at->mapRectToScene(at->boundingRect())));
  }
  if (auto* tracker = window->findChild<VisibilityTracker*>(QString(), Qt::FindDirectChildrenOnly);
      tracker && tracker->covers(item)) {
    return 0;
  }
  return visibleFraction(toRect(item->mapRectToScene(item->boundingRect())),
                         std::span<const RectF>(clips.data(), clips.size()));
}

// Tracker ---------------------------------------------------------------------------

VisibilityTracker::VisibilityTracker(QQuickWindow* window) : QObject(window), window_(window) {}

VisibilityTracker* VisibilityTracker::of(QQuickWindow* window) {
  if (!window) return nullptr;
  if (auto* found = window->findChild<VisibilityTracker*>(QString(), Qt::FindDirectChildrenOnly))
    return found;
  return new VisibilityTracker(window);
}

void VisibilityTracker::connectWindow(bool on) {
  if (on == static_cast<bool>(frameConnection_)) return;
  if (!on) {
    disconnect(frameConnection_);
    disconnect(visibilityConnection_);
    frameConnection_ = {};
    return;
  }
  // After every frame shown: by then every item is where that frame drew it (a list
  // positions a new card only after creating it). Queued, because a threaded render
  // loop emits this on its render thread.
  frameConnection_ = connect(window_, &QQuickWindow::frameSwapped, this, &VisibilityTracker::update,
                             Qt::QueuedConnection);
  visibilityConnection_ =
      connect(window_, &QWindow::visibilityChanged, this, &VisibilityTracker::requestUpdate);
}

void VisibilityTracker::add(AdAppearance* appearance) {
  if (entries_.contains(appearance)) return;
  entries_.append(appearance);
  connectWindow(true);
}

void VisibilityTracker::remove(AdAppearance* appearance) {
  entries_.removeAll(appearance);
  if (entries_.isEmpty()) connectWindow(false);
}

void VisibilityTracker::addCover(QQuickItem* cover) {
  covers_.removeAll(nullptr);
  if (!cover || covers_.contains(cover)) return;
  covers_.append(cover);
  connect(cover, &QQuickItem::visibleChanged, this, &VisibilityTracker::requestUpdate);
  connect(cover, &QObject::destroyed, this, &VisibilityTracker::requestUpdate,
          Qt::QueuedConnection);
  requestUpdate();
}

void VisibilityTracker::removeCover(QQuickItem* cover) {
  if (covers_.removeAll(cover) == 0) return;
  disconnect(cover, nullptr, this, nullptr);
  requestUpdate();
}

bool VisibilityTracker::covers(const QQuickItem* item) const {
  bool covered = false;
  for (const QPointer<QQuickItem>& cover : covers_) {
    if (!cover || !cover->isVisible()) continue;
    // What an overlay shows is seen, and overlays do not hide one another.
    if (cover == item || cover->isAncestorOf(item)) return false;
    covered = true;
  }
  return covered;
}

void VisibilityTracker::requestUpdate() {
  if (entries_.isEmpty()) return;
  // A window that shows nothing renders no frame to wait for: measure now.
  if (windowShows(window_)) {
    window_->update();
  } else {
    update();
  }
}

void VisibilityTracker::update() {
  if (updating_) return;
  updating_ = true;
  // A handler may destroy views (and so unregister them) while this runs.
  QList<QPointer<AdAppearance>> entries;
  entries.reserve(entries_.size());
  for (AdAppearance* entry : std::as_const(entries_)) entries.append(entry);
  for (const QPointer<AdAppearance>& entry : entries) {
    if (entry && entries_.contains(entry.data()))
      entry->setFraction(visibleFractionOf(entry->item()));
  }
  updating_ = false;
}

// Appearance ------------------------------------------------------------------------

AdAppearance::AdAppearance(QQuickItem* item) : QObject(item), item_(item) {
  connect(item, &QQuickItem::windowChanged, this, &AdAppearance::attach);
  connect(item, &QQuickItem::visibleChanged, this, &AdAppearance::requestCheck);
  connect(item, &QQuickItem::opacityChanged, this, &AdAppearance::requestCheck);
  attach(item->window());
}

AdAppearance::~AdAppearance() {
  if (registry_) registry_->remove(this);
}

void AdAppearance::attach(QQuickWindow* window) {
  if (registry_) registry_->remove(this);
  registry_ = VisibilityTracker::of(window);
  if (!registry_) {
    setFraction(0);  // out of every window: off screen now
    return;
  }
  registry_->add(this);
  registry_->requestUpdate();
}

ViewabilityRule AdAppearance::currentRule() const {
  return viewabilityRule(video_, item_->width() * item_->height());
}

void AdAppearance::check() {
  setFraction(visibleFractionOf(item_));
}

void AdAppearance::requestCheck() {
  if (registry_) {
    registry_->requestUpdate();
  } else {
    check();
  }
}

void AdAppearance::setFraction(double fraction) {
  if (!drawable_ || !ready_) fraction = 0;
  if (fraction != fraction_) {
    fraction_ = fraction;
    Q_EMIT visibleFractionChanged();
  }
  const bool wasOnScreen = tracker_.onScreen();
  const auto change = tracker_.update(fraction > 0);
  advanceClock();
  if (change.appeared) {
    if (!impressionOnViewable_ && !impressionReported_) {
      impressionReported_ = true;
      Q_EMIT impressionDue();
    }
    Q_EMIT appeared();
  } else if (wasOnScreen && !tracker_.onScreen()) {
    Q_EMIT disappeared();
  }
}

void AdAppearance::advanceClock() {
  const double now = monotonicSeconds();
  bool nowViewable = false;
  const ViewabilityRule rule = currentRule();
  if (!(rule == clock_.rule())) nowViewable = clock_.setRule(rule, now);
  if (!nowViewable) nowViewable = clock_.update(fraction_, !video_ || playing_, now);
  armDeadline();
  if (!nowViewable) return;
  if (impressionOnViewable_ && !impressionReported_) {
    impressionReported_ = true;
    Q_EMIT impressionDue();
  }
  if (!viewableReported_) {
    viewableReported_ = true;
    Q_EMIT becameViewable();
  }
}

void AdAppearance::armDeadline() {
  const std::optional<double> due = clock_.deadline();
  if (!due) {
    deadline_.stop();
    return;
  }
  const double left = *due - monotonicSeconds();
  // Whole milliseconds rounded up: never early; the clock checks again when it fires.
  deadline_.start(static_cast<int>(std::ceil(std::max(0.0, left) * 1000.0)), Qt::PreciseTimer,
                  this);
}

void AdAppearance::timerEvent(QTimerEvent* event) {
  if (event->timerId() != deadline_.timerId()) {
    QObject::timerEvent(event);
    return;
  }
  deadline_.stop();  // one shot; advanceClock arms the next deadline if there is one
  advanceClock();
}

void AdAppearance::setReady() {
  if (ready_) return;
  ready_ = true;
  requestCheck();
}

void AdAppearance::setDrawable(bool drawable) {
  if (drawable == drawable_) return;
  drawable_ = drawable;
  if (drawable) {
    // After the next frame: the view is being set up now, and its host connects to its
    // signals only after that.
    requestCheck();
  } else {
    setFraction(0);
  }
}

void AdAppearance::setVideo(bool video) {
  if (video == video_) return;
  video_ = video;
  advanceClock();
}

void AdAppearance::setPlaying(bool playing) {
  if (playing == playing_) return;
  playing_ = playing;
  advanceClock();
}

void AdAppearance::setImpressionOnViewable(bool on) {
  impressionOnViewable_ = on;
}

void AdAppearance::reset() {
  tracker_ = AppearanceTracker();
  clock_ = ViewabilityClock(currentRule());
  impressionReported_ = false;
  viewableReported_ = false;
  deadline_.stop();
  // What is on screen now is the new ad's first appearance.
  const double fraction = fraction_;
  fraction_ = -1;
  setFraction(fraction);
}

void AdAppearance::markImpressionReported() {
  impressionReported_ = true;
}

void AdAppearance::markViewableReported() {
  viewableReported_ = true;
}

}  // namespace tavik::quick
