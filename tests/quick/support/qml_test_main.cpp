// The Qt Quick Test runner: every tst_*.qml file runs in a fresh process with a sandbox
// on a loopback port and the SDK installed against it, reachable from QML as `sandbox`.
#include <QtQuickTest/quicktest.h>
#include <QAccessible>
#include <QQmlContext>
#include <QQmlEngine>

#include "support/sandbox_fixture.h"

class Setup : public QObject {
  Q_OBJECT

 public Q_SLOTS:
  void qmlEngineAvailable(QQmlEngine* engine) {
    engine->addImportPath(QStringLiteral(TAVIK_QML_DIR));
    engine->rootContext()->setContextProperty(QStringLiteral("sandbox"),
                                              &tavik::test::SandboxFixture::shared());
    // The tests read what an assistive technology reads, which the views give only while
    // one is active; the offscreen platform has no bridge that would turn it on.
    QAccessible::setActive(true);
  }
  // After the last test: no sandbox thread may still serve while statics go away.
  void cleanupTestCase() { tavik::test::SandboxFixture::stopShared(); }
};

QUICK_TEST_MAIN_WITH_SETUP(tavik_views, Setup)

#include "qml_test_main.moc"
