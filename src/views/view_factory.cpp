#include "views/view_factory.h"

#include <QHash>
#include <QPointer>
#include <QQmlComponent>
#include <QQmlContext>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTimer>
#include <atomic>

#include "views/logging.h"

namespace tavik::quick::detail {

namespace {

QQmlComponent* componentFor(QQmlEngine* engine, const QString& typeName) {
  // Components are children of their engine, so they go with it.
  static QHash<QPair<QQmlEngine*, QString>, QPointer<QQmlComponent>> components;
  QPointer<QQmlComponent>& slot = components[{engine, typeName}];
  if (!slot) {
    slot = new QQmlComponent(engine, engine);
    // Placed in the module's own folder, so the module's private parts (OverlayFrame) are
    // found as well as its public types.
    slot->setData(("import Tavik\n" + typeName + " {}\n").toUtf8(),
                  QUrl(QStringLiteral("qrc:/qt/qml/Tavik/ViewFactory.qml")));
  }
  return slot;
}

// A part's document, compiled once per engine; the document text is a literal, so its
// address names it.
QQmlComponent* partComponent(QQmlEngine* engine, const char* document) {
  static QHash<QPair<QQmlEngine*, const char*>, QPointer<QQmlComponent>> components;
  QPointer<QQmlComponent>& slot = components[{engine, document}];
  if (!slot) {
    slot = new QQmlComponent(engine, engine);
    slot->setData(QByteArray(document), QUrl(QStringLiteral("qrc:/qt/qml/Tavik/ViewPart.qml")));
  }
  return slot;
}

}  // namespace

QQuickItem* createPart(QQmlEngine* engine, QQmlContext* context, const char* document,
                       const std::function<void(QQuickItem*)>& setUp) {
  if (!engine) return nullptr;
  QQmlComponent* component = partComponent(engine, document);
  QObject* object = component->beginCreate(context ? context : engine->rootContext());
  auto* item = qobject_cast<QQuickItem*>(object);
  if (!item) {
    delete object;
    return nullptr;
  }
  QQmlEngine::setObjectOwnership(item, QQmlEngine::CppOwnership);
  if (setUp) setUp(item);
  component->completeCreate();
  return item;
}

PartIncubator::PartIncubator(Callback setUp, Callback done)
    : QQmlIncubator(Asynchronous), setUp_(std::move(setUp)), done_(std::move(done)) {}

PartIncubator::~PartIncubator() {
  // Stops an incubation in progress; the objects it made are owned by their parent.
  clear();
}

bool PartIncubator::start(QQmlEngine* engine, QQmlContext* context, const char* document) {
  if (!engine) return false;
  QQmlComponent* component = partComponent(engine, document);
  if (!component->isReady()) return false;
  component->create(*this, context ? context : engine->rootContext());
  return !isError();
}

void PartIncubator::setInitialState(QObject* object) {
  QQmlEngine::setObjectOwnership(object, QQmlEngine::CppOwnership);
  if (auto* item = qobject_cast<QQuickItem*>(object); item && setUp_) setUp_(item);
}

void PartIncubator::statusChanged(Status status) {
  if (status != Ready || !done_) return;
  if (auto* item = qobject_cast<QQuickItem*>(object())) done_(item);
}

void ensureIncubationController(QQmlEngine* engine, QQuickItem* anyItemOfTheWindow) {
  if (!engine || engine->incubationController() || !anyItemOfTheWindow) return;
  if (QQuickWindow* window = anyItemOfTheWindow->window())
    engine->setIncubationController(window->incubationController());
}

namespace {

// A view built over the engine's idle time. It deletes itself once the view is complete,
// or once the view went before that (the incubation then ends in an error).
class ViewIncubator : public QQmlIncubator {
 public:
  ViewIncubator(QQmlEngine* engine, QQuickItem* parent, const std::function<void(QObject*)>& setUp)
      : QQmlIncubator(Asynchronous), engine_(engine), parent_(parent), setUp_(&setUp) {
    // A parent going while its view is still being built takes the building with it,
    // before its engine may go too (an engine destroyed with an incubation in progress
    // leaves what it made behind).
    if (parent) {
      parentGone_ = QObject::connect(parent, &QObject::destroyed, [this] { abandon(); });
    }
  }
  ~ViewIncubator() override { QObject::disconnect(parentGone_); }

  QQuickItem* item() const { return item_; }
  // Cleared once the objects exist, which ends the step that made them.
  void stopAfterObjects(std::atomic<bool>* running) { running_ = running; }
  // The caller's set-up lives only as long as the call that made the incubator.
  void forgetSetUp() { setUp_ = nullptr; }

 protected:
  void setInitialState(QObject* object) override {
    QQmlEngine::setObjectOwnership(object, QQmlEngine::CppOwnership);
    item_ = qobject_cast<QQuickItem*>(object);
    if (item_ && parent_) item_->setParent(parent_);
    if (setUp_ && *setUp_) (*setUp_)(object);
    if (running_) running_->store(false);
    running_ = nullptr;
  }
  void statusChanged(Status status) override {
    if (status == Loading || abandoning_) return;
    // Complete: shown in its parent from now on.
    if (status == Ready && item_ && parent_) item_->setParentItem(parent_);
    // Not from inside the incubator's own call.
    QTimer::singleShot(0, engine_, [this] { delete this; });
  }

 private:
  QPointer<QQmlEngine> engine_;
  QPointer<QQuickItem> parent_;
  QPointer<QQuickItem> item_;
  // Outside the incubator's own calls: stops the incubation (what it made goes) and goes.
  void abandon() {
    QObject::disconnect(parentGone_);
    if (!isLoading()) return;  // complete: its deletion is already on its way
    abandoning_ = true;
    clear();
    delete this;
  }

  const std::function<void(QObject*)>* setUp_;
  std::atomic<bool>* running_ = nullptr;
  QMetaObject::Connection parentGone_;
  bool abandoning_ = false;
};

}  // namespace

QQuickItem* incubateViewItem(const QString& typeName, bool debug, QQuickItem* parent,
                             const std::function<void(QObject*)>& setUp) {
  QQmlEngine* engine = parent ? qmlEngine(parent) : nullptr;
  if (engine) ensureIncubationController(engine, parent);
  if (!engine || !engine->incubationController())
    return createViewItem(typeName, debug, engine, parent, setUp);
  QQmlComponent* component = componentFor(engine, typeName);
  if (!component->isReady()) return createViewItem(typeName, debug, engine, parent, setUp);
  QQmlContext* context = qmlContext(parent);
  if (context && context->engine() != engine) context = nullptr;
  auto* incubator = new ViewIncubator(engine, parent, setUp);
  component->create(*incubator, context ? context : engine->rootContext());
  if (incubator->isLoading() && !incubator->item()) {
    // The newest incubation is the first the controller runs: it runs until the view's
    // objects exist, and no further (a millisecond at most, should another come first).
    std::atomic<bool> running{true};
    incubator->stopAfterObjects(&running);
    engine->incubationController()->incubateWhile(&running, 1);
    incubator->stopAfterObjects(nullptr);
  }
  // Should the objects not be there yet (another incubation ran), the view is built now.
  if (incubator->isLoading() && !incubator->item()) incubator->forceCompletion();
  incubator->forgetSetUp();
  QQuickItem* item = incubator->item();
  if (!item && debug) {
    tavik::quick::viewDebugLine("cannot create " + typeName.toStdString() + ": " +
                                component->errorString().toStdString());
  }
  return item;
}

QQuickItem* createViewItem(const QString& typeName, bool debug, QQuickItem* parent,
                           const std::function<void(QObject*)>& setUp) {
  return createViewItem(typeName, debug, parent ? qmlEngine(parent) : nullptr, parent, setUp);
}

QQuickItem* createViewItem(const QString& typeName, bool debug, QQmlEngine* engine,
                           QQuickItem* parent, const std::function<void(QObject*)>& setUp) {
  if (!engine || !parent) {
    if (debug) {
      tavik::quick::viewDebugLine(typeName.toStdString() +
                                  ": a view needs a parent item that lives in a QML engine");
    }
    return nullptr;
  }
  QQmlComponent* component = componentFor(engine, typeName);
  QQmlContext* context = qmlContext(parent);
  if (context && context->engine() != engine) context = nullptr;
  QObject* object = component->beginCreate(context ? context : engine->rootContext());
  auto* item = qobject_cast<QQuickItem*>(object);
  if (!item) {
    delete object;
    if (debug) {
      tavik::quick::viewDebugLine("cannot create " + typeName.toStdString() + ": " +
                                  component->errorString().toStdString());
    }
    return nullptr;
  }
  QQmlEngine::setObjectOwnership(item, QQmlEngine::CppOwnership);
  item->setParent(parent);
  item->setParentItem(parent);
  if (setUp) setUp(item);
  component->completeCreate();
  return item;
}

}  // namespace tavik::quick::detail
