#pragma once

#include <QQuickItem>
#include <QQuickView>

namespace tavik::test {

/// A host's screen: a shown window of `width` × `height` whose root item is an empty
/// `Item` of that size, with the module's QML folder on the import path.
struct Scene {
  explicit Scene(int width = 400, int height = 300);
  QQuickItem* root() { return view.rootObject(); }
  QQuickView view;
};

}  // namespace tavik::test
