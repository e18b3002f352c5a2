#include "support/scene.h"

#include <QQmlEngine>

#include "support/sandbox_fixture.h"

namespace tavik::test {

Scene::Scene(int width, int height) {
  view.engine()->addImportPath(QStringLiteral(TAVIK_QML_DIR));
  // "%0A" is a newline in the address, so the sizes are not put in with arg().
  view.setSource(QUrl(QStringLiteral("data:text/plain,import QtQuick%0AItem { width: ") +
                      QString::number(width) + QStringLiteral("; height: ") +
                      QString::number(height) + QStringLiteral(" }")));
  view.resize(width, height);
  view.show();
  spinUntil([&] { return view.isExposed(); });
}

}  // namespace tavik::test
