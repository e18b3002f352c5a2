#pragma once

#include <QQmlIncubator>
#include <QString>
#include <functional>

class QObject;
class QQmlContext;
class QQmlEngine;
class QQuickItem;

namespace tavik::quick::detail {

/// Creates the module's QML type `typeName` ("BannerAdView") in `parent`'s engine and
/// context, lets `setUp` set its properties before bindings settle, parents it to
/// `parent` and returns it, owned by C++ (the parent). The compiled component is kept
/// per engine, so a second view of a type costs only the instantiation. When it cannot
/// (no parent in an engine, a broken type) it returns nullptr and, with `debug` on,
/// writes one debug line saying why.
QQuickItem* createViewItem(const QString& typeName, bool debug, QQuickItem* parent,
                           const std::function<void(QObject*)>& setUp);
/// The same, built over the engine's idle time: only the step that makes the view's
/// objects runs here (`setUp` on the root before any binding settles), and the item is
/// returned at once, a child of `parent` (QObject) already; its bindings and completion
/// run in the engine's incubation controller's slices between frames, and it becomes a
/// visual child of `parent` once complete. Without a controller (none on the engine and
/// no window to take one from) it is built at once, as above.
QQuickItem* incubateViewItem(const QString& typeName, bool debug, QQuickItem* parent,
                             const std::function<void(QObject*)>& setUp);
/// The same with the engine given: for parents made in C++ (the overlay's host).
QQuickItem* createViewItem(const QString& typeName, bool debug, QQmlEngine* engine,
                           QQuickItem* parent, const std::function<void(QObject*)>& setUp);

/// Starts building `typeName` in `parent` with `engine` wholly over the engine's idle
/// time: nothing of it exists yet when this returns, so the call costs no more than
/// queueing it. `setUp` (kept until then) runs on the root once its objects exist, before
/// any binding settles; `ready` once it is complete and a visual child of `parent`. With
/// `beforeNextFrame`, what the controller's slices have not built by the time `parent`'s
/// window prepares its next frame is completed then (in `afterAnimating`, before the scene
/// is synchronised), so that frame draws the view whole. Without a controller it is built
/// at once, as `createViewItem` does. False when it cannot be started (no engine or
/// parent, a broken type), with one debug line saying why when `debug` is on.
bool startViewItem(const QString& typeName, bool debug, QQmlEngine* engine, QQuickItem* parent,
                   std::function<void(QObject*)> setUp, std::function<void(QQuickItem*)> ready,
                   bool beforeNextFrame);

/// Stops every view still being built under `root` (by `incubateViewItem` or
/// `startViewItem`); what they made so far goes. For a container about to go.
void stopViewItemsIn(QObject* root);

/// Makes one part of a view (its creative picture, its label, its focus ring) from a
/// small QML document, compiled once per engine and placed in the module's folder (so
/// the module's internal types resolve). Created in `context`, `setUp` runs before its
/// bindings settle; the caller parents it. Complete when this returns; nullptr when it
/// cannot be made.
QQuickItem* createPart(QQmlEngine* engine, QQmlContext* context, const char* document,
                       const std::function<void(QQuickItem*)>& setUp);

/// The same part built over the engine's idle time: the engine's incubation controller
/// (a Qt Quick window's, which works in the time between frames) runs it in short slices,
/// so no single step on the UI thread builds the whole of it. `setUp` runs once the
/// objects exist, before their bindings settle; `done` once it is complete. Without a
/// controller on the engine it completes inside `start`. Destroying the incubator stops
/// an incubation in progress (what it made so far goes with its parent).
class PartIncubator : public QQmlIncubator {
 public:
  using Callback = std::function<void(QQuickItem*)>;
  PartIncubator(Callback setUp, Callback done);
  ~PartIncubator() override;

  /// Starts; false when the part cannot be made (no engine, a broken document).
  bool start(QQmlEngine* engine, QQmlContext* context, const char* document);

 protected:
  void setInitialState(QObject* object) override;
  void statusChanged(Status status) override;

 private:
  Callback setUp_;
  Callback done_;
};

/// Gives `engine` the incubation controller of `window` when it has none, so that
/// incubated parts progress between that window's frames. A controller the host set
/// stays.
void ensureIncubationController(QQmlEngine* engine, QQuickItem* anyItemOfTheWindow);

}  // namespace tavik::quick::detail
