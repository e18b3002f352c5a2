#include "views/view_factory.h"

#include <QHash>
#include <QPointer>
#include <QQmlComponent>
#include <QQmlContext>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>

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
