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
#include <memory>

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

class ViewIncubator;

// Names the owners, so that a container can find and stop the views it still builds.
const QString kOwnerName = QStringLiteral("tavikViewIncubation");

// Owns a view's incubator as a child of the view's parent: the incubator goes once the
// view is complete, or with the parent if that goes first (an incubation still in progress
// is stopped then, before the engine may go too, which would leave what it made behind).
class IncubatorOwner : public QObject {
 public:
  explicit IncubatorOwner(QObject* parent) : QObject(parent) { setObjectName(kOwnerName); }
  ~IncubatorOwner() override;
  std::unique_ptr<ViewIncubator> incubator;
};

// A view built over the engine's idle time.
class ViewIncubator : public QQmlIncubator {
 public:
  ViewIncubator(QQuickItem* parent, std::function<void(QObject*)> setUp,
                std::function<void(QQuickItem*)> ready, IncubatorOwner* owner)
      : QQmlIncubator(Asynchronous),
        parent_(parent),
        setUp_(std::move(setUp)),
        ready_(std::move(ready)),
        owner_(owner) {}

  QQuickItem* item() const { return item_; }
  // Cleared once the objects exist, which ends the step that made them.
  void stopAfterObjects(std::atomic<bool>* running) { running_ = running; }
  // A set-up that refers to its caller's locals lives only as long as that call.
  void forgetSetUp() { setUp_ = nullptr; }

  // The owner goes: what is still being built goes with it.
  void stop() {
    stopping_ = true;
    if (isLoading()) clear();
  }

 protected:
  void setInitialState(QObject* object) override {
    QQmlEngine::setObjectOwnership(object, QQmlEngine::CppOwnership);
    item_ = qobject_cast<QQuickItem*>(object);
    if (item_ && parent_) item_->setParent(parent_);
    if (setUp_) setUp_(object);
    setUp_ = nullptr;
    if (running_) running_->store(false);
    running_ = nullptr;
  }
  void statusChanged(Status status) override {
    if (status == Loading || stopping_) return;
    // Complete: shown in its parent from now on.
    if (status == Ready && item_ && parent_) {
      item_->setParentItem(parent_);
      if (ready_) ready_(item_);
    }
    ready_ = nullptr;
    // Not from inside the incubator's own call; dropped if the parent (and so the owner)
    // goes first, which then deletes the incubator itself.
    QTimer::singleShot(0, owner_, [owner = owner_] { delete owner; });
  }

 private:
  QPointer<QQuickItem> parent_;
  QPointer<QQuickItem> item_;
  std::function<void(QObject*)> setUp_;
  std::function<void(QQuickItem*)> ready_;
  IncubatorOwner* owner_;
  std::atomic<bool>* running_ = nullptr;
  bool stopping_ = false;
};

IncubatorOwner::~IncubatorOwner() {
  if (incubator) incubator->stop();
}

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
  auto* owner = new IncubatorOwner(parent);
  owner->incubator = std::make_unique<ViewIncubator>(parent, setUp, nullptr, owner);
  ViewIncubator* incubator = owner->incubator.get();
  component->create(*incubator, context ? context : engine->rootContext());
  if (incubator->isLoading() && !incubator->item()) {
    // The newest incubation is the first the controller runs: it runs until the view's
    // objects exist and no further, however long that takes on a slow machine (a time
    // limit here would make a slow machine complete the whole view inside showAd).
    std::atomic<bool> running{true};
    incubator->stopAfterObjects(&running);
    engine->incubationController()->incubateWhile(&running);
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

bool startViewItem(const QString& typeName, bool debug, QQmlEngine* engine, QQuickItem* parent,
                   std::function<void(QObject*)> setUp, std::function<void(QQuickItem*)> ready,
                   bool beforeNextFrame) {
  if (engine && parent) ensureIncubationController(engine, parent);
  QQmlComponent* component = engine && parent ? componentFor(engine, typeName) : nullptr;
  if (!component || !component->isReady() || !engine->incubationController()) {
    QQuickItem* item = createViewItem(typeName, debug, engine, parent, setUp);
    if (item && ready) ready(item);
    return item != nullptr;
  }
  QQmlContext* context = qmlContext(parent);
  if (context && context->engine() != engine) context = nullptr;
  auto* owner = new IncubatorOwner(parent);
  owner->incubator =
      std::make_unique<ViewIncubator>(parent, std::move(setUp), std::move(ready), owner);
  ViewIncubator* incubator = owner->incubator.get();
  if (QQuickWindow* window = parent->window(); window && beforeNextFrame) {
    // Emitted on this thread by every render loop, once the frame's animations and
    // polish ran and before the scene graph takes the items over.
    QObject::connect(window, &QQuickWindow::afterAnimating, owner, [incubator] {
      if (incubator->isLoading()) incubator->forceCompletion();
    });
  }
  component->create(*incubator, context ? context : engine->rootContext());
  if (incubator->isError()) {
    if (debug) {
      tavik::quick::viewDebugLine("cannot create " + typeName.toStdString() + ": " +
                                  component->errorString().toStdString());
    }
    delete owner;
    return false;
  }
  return true;
}

void stopViewItemsIn(QObject* root) {
  if (!root) return;
  // Guarded: stopping one may take what another was building with it.
  QList<QPointer<QObject>> owners;
  for (QObject* owner : root->findChildren<QObject*>(kOwnerName)) owners.append(owner);
  for (const QPointer<QObject>& owner : owners) delete owner.data();
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
