// What `import Tavik` offers a host: its public types, and none of the parts the views are
// built of; the module's own views still find those parts. The type information tooling
// reads sits in the module folder.
#include <gtest/gtest.h>

#include <QFile>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <memory>

#include "support/sandbox_fixture.h"

namespace tavik::test {
namespace {

const char* const kPublic[] = {"BannerAdView",       "CarouselAdView", "MultiAdCarouselView",
                               "InterstitialAdView", "PIPAdView",      "VideoAdView",
                               "ImageAdView",        "TavikBanner"};
const char* const kPrivate[] = {"AdLabelTag",       "CarouselStrip", "CloseButton", "ControlButton",
                                "FullScreenButton", "MuteButton",    "OverlayFrame"};

// The errors of making `import Tavik` + `type {}`, empty when it was made.
QString make(const QString& type, const QString& imports = QStringLiteral("import Tavik\n")) {
  QQmlEngine engine;
  engine.addImportPath(QStringLiteral(TAVIK_QML_DIR));
  QQmlComponent component(&engine);
  component.setData((imports + type + QStringLiteral(" {}\n")).toUtf8(), QUrl());
  std::unique_ptr<QObject> object(component.create());
  return object ? QString() : component.errorString();
}

TEST(ModuleSurface, OnlyThePublicTypesAreOffered) {
  SandboxFixture::shared();  // the SDK, so views are made as a host makes them
  for (const char* type : kPublic) {
    EXPECT_EQ(make(QString::fromUtf8(type)).toStdString(), "") << type;
  }
  for (const char* type : kPrivate) {
    const QString errors = make(QString::fromUtf8(type));
    EXPECT_TRUE(errors.contains(QStringLiteral("is not a type")))
        << type << ": " << errors.toStdString();
  }
}

TEST(ModuleSurface, TheQmldirListsThePublicTypesAndTheTypeInformation) {
  QFile qmldir(QStringLiteral(TAVIK_QML_DIR "/Tavik/qmldir"));
  ASSERT_TRUE(qmldir.open(QIODevice::ReadOnly));
  const QString text = QString::fromUtf8(qmldir.readAll());
  for (const char* type : kPublic) {
    EXPECT_TRUE(text.contains(QStringLiteral("\n%1 ").arg(QString::fromUtf8(type)))) << type;
  }
  for (const char* type : kPrivate) {
    const QString name = QString::fromUtf8(type);
    EXPECT_TRUE(text.contains(QStringLiteral("\ninternal %1 %1.qml\n").arg(name))) << type;
    EXPECT_FALSE(text.contains(QStringLiteral("\n%1 ").arg(name))) << type;
  }
  EXPECT_TRUE(text.contains(QStringLiteral("\ntypeinfo tavik_quick.qmltypes\n")));
  EXPECT_TRUE(QFile::exists(QStringLiteral(TAVIK_QML_DIR "/Tavik/tavik_quick.qmltypes")));
}

}  // namespace
}  // namespace tavik::test
