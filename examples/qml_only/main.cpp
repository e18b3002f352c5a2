// The stock main.cpp of a Qt Quick app: everything else, the SDK's set-up included, is in
// Main.qml. Nothing here knows the SDK; `import Tavik` finds the installed module.
#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QUrl>

int main(int argc, char* argv[]) {
  QGuiApplication app(argc, argv);
  QQmlApplicationEngine engine;
  engine.load(QUrl(QStringLiteral("qrc:/qml_only/Main.qml")));
  if (engine.rootObjects().isEmpty()) return 1;
  return app.exec();
}
