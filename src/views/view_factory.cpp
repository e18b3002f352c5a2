#include "views/view_factory.h"

#include <QHash>
#include <QPointer>
#include <QQmlComponent>
#include <QQmlContext>
#include <QQmlEngine>
#include <QQuickItem>

#include "tavik/core/log.h"

namespace tavik::quick::detail {

namespace {

QQmlComponent* componentFor(QQmlEngine* engine, const QString& typeName) {
  // Components are children of their engine, so they go with it.
  static QHash<QPair<QQmlEngine*, QString>, QPointer<QQmlComponent>> components;
  QPointer<QQmlComponent>& slot = components[{engine, typeName}];
  if (!slot) {
    slot = new QQmlComponent(engine, engine);
    slot->setData(("import Tavik\n" + typeName + " {}\n").toUtf8(), QUrl());
  }
  return slot;
}

}  // namespace

QQuickItem* createViewItem(const QString& typeName, bool debug, QQuickItem* parent,
                           const std::function<void(QObject*)>& setUp) {
  return createViewItem(typeName, debug, parent ? qmlEngine(parent) : nullptr, parent, setUp);
}

QQuickItem* createViewItem(const QString& typeName, bool debug, QQmlEngine* engine,
                           QQuickItem* parent, const std::function<void(QObject*)>& setUp) {
  if (!engine || !parent) {
    if (debug) {
      tavik::detail::debugLine(typeName.toStdString() +
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
      tavik::detail::debugLine("cannot create " + typeName.toStdString() + ": " +
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
