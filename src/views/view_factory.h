#pragma once

#include <QString>
#include <functional>

class QObject;
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
/// The same with the engine given: for parents made in C++ (the overlay's host).
QQuickItem* createViewItem(const QString& typeName, bool debug, QQmlEngine* engine,
                           QQuickItem* parent, const std::function<void(QObject*)>& setUp);

}  // namespace tavik::quick::detail
