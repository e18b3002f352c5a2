// Screenshot regression: every format drawn under Xvfb at a fixed window size with the
// sandbox's creatives, compared with the committed reference in tests/quick/references.
//
// Tolerance: a pixel differs when one of its channels is off by more than 32 (of 255);
// a screenshot matches when at most 0.5% of its pixels differ. That absorbs anti-aliasing
// and video-decoder rounding, and catches a moved label, a missing control, a creative
// that did not draw or a wrong size. Videos are paused on their first frame before the
// picture is taken. On a mismatch the test writes NAME.actual.png and NAME.diff.png (the
// differing pixels in red over a faded copy) into its output folder.
//
// tests/quick/update_references.sh renders the references anew (after a deliberate change
// of the views or of the sandbox's creatives); look at each before committing it.
#include <gtest/gtest.h>

#include <QDir>
#include <QImage>
#include <QPainter>
#include <QQmlComponent>
#include <QQmlContext>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickView>
#include <cstdlib>

#include "support/sandbox_fixture.h"
#include "tavik/video/media_player.h"
#include "tavik/video/video_player_manager.h"
#include "tavik/views/views.h"

namespace tavik::test {
namespace {

constexpr int kChannelTolerance = 32;
constexpr double kDifferingShare = 0.005;

QString outputDir() {
  const char* dir = std::getenv("TAVIK_TEST_OUTPUT");
  const QString path = dir ? QString::fromLocal8Bit(dir) : QDir::currentPath();
  QDir().mkpath(path);
  return path;
}

bool updatingReferences() {
  const char* update = std::getenv("TAVIK_UPDATE_REFERENCES");
  return update && *update && std::string(update) != "0";
}

// Compares `actual` with references/NAME.png; writes the evidence on a mismatch.
void expectMatchesReference(const QImage& shot, const QString& name) {
  ASSERT_FALSE(shot.isNull()) << name.toStdString();
  const QImage actual = shot.convertToFormat(QImage::Format_RGB32);
  const QString referencePath =
      QDir(QStringLiteral(TAVIK_REFERENCE_DIR)).filePath(name + QStringLiteral(".png"));
  if (updatingReferences()) {
    ASSERT_TRUE(actual.save(referencePath)) << referencePath.toStdString();
    std::cout << "wrote " << referencePath.toStdString() << "\n";
    return;
  }
  const QString actualPath = QDir(outputDir()).filePath(name + QStringLiteral(".actual.png"));
  const QImage reference = QImage(referencePath).convertToFormat(QImage::Format_RGB32);
  if (reference.isNull()) {
    actual.save(actualPath);
    FAIL() << "no reference " << referencePath.toStdString() << " (this run's picture is "
           << actualPath.toStdString() << "; tests/quick/update_references.sh makes them)";
  }
  if (reference.size() != actual.size()) {
    actual.save(actualPath);
    FAIL() << name.toStdString() << ": " << actual.width() << "x" << actual.height()
           << " against a reference of " << reference.width() << "x" << reference.height();
  }
  QImage diff = reference.copy();
  {
    QPainter fade(&diff);
    fade.fillRect(diff.rect(), QColor(255, 255, 255, 200));
  }
  qint64 differing = 0;
  for (int y = 0; y < actual.height(); ++y) {
    const auto* a = reinterpret_cast<const QRgb*>(actual.constScanLine(y));
    const auto* r = reinterpret_cast<const QRgb*>(reference.constScanLine(y));
    auto* d = reinterpret_cast<QRgb*>(diff.scanLine(y));
    for (int x = 0; x < actual.width(); ++x) {
      const int delta =
          std::max({std::abs(qRed(a[x]) - qRed(r[x])), std::abs(qGreen(a[x]) - qGreen(r[x])),
                    std::abs(qBlue(a[x]) - qBlue(r[x]))});
      if (delta > kChannelTolerance) {
        ++differing;
        d[x] = qRgb(255, 0, 0);
      }
    }
  }
  const double share = double(differing) / (double(actual.width()) * actual.height());
  if (share > kDifferingShare) {
    const QString diffPath = QDir(outputDir()).filePath(name + QStringLiteral(".diff.png"));
    actual.save(actualPath);
    diff.save(diffPath);
    ADD_FAILURE() << name.toStdString() << ": " << differing << " pixels (" << share * 100
                  << "%) differ from the reference, more than " << kDifferingShare * 100
                  << "%; see " << actualPath.toStdString() << " and " << diffPath.toStdString();
  }
}

// A fixed-size window whose QML can reach the sandbox's catalogue as `fixture`.
class Stage {
 public:
  // `document`, when given, is the page's own address (the module's folder lets it use
  // the module's private parts).
  Stage(const QString& qml, QSize size, const QUrl& document = {}) {
    view_.engine()->addImportPath(QStringLiteral(TAVIK_QML_DIR));
    view_.rootContext()->setContextProperty(QStringLiteral("fixture"), &SandboxFixture::shared());
    view_.setResizeMode(QQuickView::SizeRootObjectToView);
    view_.setColor(QColor("#f4f5f7"));
    if (document.isEmpty()) {
      view_.setSource(QUrl(QStringLiteral("data:text/plain,") +
                           QString::fromUtf8(QUrl::toPercentEncoding(qml))));
    } else {
      auto* component = new QQmlComponent(view_.engine(), &view_);
      component->setData(qml.toUtf8(), document);
      view_.setContent(document, component, component->create());
    }
    view_.resize(size);
    view_.show();
    view_.requestActivate();
  }

  bool ready() const { return view_.status() == QQuickView::Ready && view_.isExposed(); }
  QString errors() const {
    QStringList lines;
    for (const auto& error : view_.errors()) lines << error.toString();
    return lines.join('\n');
  }
  QQuickView& view() { return view_; }

  // Waits until every image in the window has loaded and every video plays, then puts
  // the videos on their first frame and gives the scene graph time to draw it.
  bool settle(int expectedVideos) {
    const bool loaded = spinUntil(
        [&] {
          int playing = 0;
          for (QQuickItem* item : view_.contentItem()->findChildren<QQuickItem*>()) {
            if (item->inherits("QQuickImageBase") && !item->property("source").toUrl().isEmpty() &&
                item->property("status").toInt() != 1) {
              return false;
            }
            // A banner draws its picture itself.
            if (!item->property("pictureSource").toUrl().isEmpty() &&
                item->property("pictureStatus").toInt() != 1) {
              return false;
            }
            if (auto* manager = item->property("videoManager").value<VideoPlayerManager*>()) {
              if (manager->playerStatus() != VideoPlayerManager::ReadyToPlay ||
                  manager->player()->position() < 0.3) {
                return false;
              }
              ++playing;
            }
          }
          return playing >= expectedVideos;
        },
        15000);
    for (QQuickItem* item : view_.contentItem()->findChildren<QQuickItem*>()) {
      if (auto* manager = item->property("videoManager").value<VideoPlayerManager*>()) {
        manager->player()->pause();
        manager->player()->seekToZero();
      }
    }
    spinUntil([] { return false; }, 1000);
    return loaded;
  }

 private:
  QQuickView view_;
};

void shoot(const QString& name, const QString& qml, QSize size, int videos = 0,
           const QUrl& document = {}) {
  SandboxFixture::shared().reset();
  Stage stage(qml, size, document);
  ASSERT_TRUE(spinUntil([&] { return stage.ready(); })) << stage.errors().toStdString();
  ASSERT_TRUE(stage.settle(videos)) << name.toStdString() << ": the creatives did not load";
  expectMatchesReference(stage.view().grabWindow(), name);
}

const char* const kPage = R"(
import QtQuick
import Tavik
Item {
  %1
})";

QString page(const char* body) {
  return QString::fromUtf8(kPage).arg(QString::fromUtf8(body));
}

}  // namespace

TEST(Screenshots, ImageBanner) {
  shoot("image_banner", page(R"(
    BannerAdView {
      x: 40; y: 40
      ad: TavikAds.decodeBannerAd(fixture.adJson("au_home_banner"))
      adLabelText: "Ad"
      adLabelAlignment: Qt.AlignTop | Qt.AlignRight
    }
    BannerAdView {
      x: 50; y: 110
      ad: TavikAds.decodeBannerAd(fixture.adJson("au_home_banner"))
      adWidth: 300
      adHeight: 100
      adLabelText: "Sponsored"
      adLabelAlignment: Qt.AlignBottom | Qt.AlignLeft
    })"),
        QSize(400, 240));
}

TEST(Screenshots, VideoBanner) {
  shoot("video_banner", page(R"(
    BannerAdView {
      x: 40; y: 30
      ad: TavikAds.decodeBannerAd(fixture.adJson("au_video_banner"))
      adLabelText: "Sponsored"
      adLabelAlignment: Qt.AlignTop | Qt.AlignLeft
    })"),
        QSize(400, 240), 1);
}

TEST(Screenshots, Carousel) {
  shoot("carousel", page(R"(
    CarouselAdView {
      x: 40; y: 20
      ad: TavikAds.decodeCarouselAd(fixture.adJson("au_carousel"))
      adWidth: 320
      cardBackground: "white"
      adLabelText: "Sponsored"
    })"),
        QSize(400, 340));
}

TEST(Screenshots, MultiAdCarousel) {
  shoot("multi_ad_carousel", page(R"(
    MultiAdCarouselView {
      x: 40; y: 20
      ads: [0, 1, 2, 3].map(i => TavikAds.decodeBannerAd(fixture.adJson("au_multi", i)))
      adWidth: 320
      elementWidth: 300
      adLabelText: "Ad"
      adLabelAlignment: Qt.AlignTop | Qt.AlignRight
    })"),
        QSize(400, 340));
}

// The controls are private to the module: their page is placed in the module's folder.
TEST(Screenshots, Controls) {
  shoot("controls", page(R"(
    Row {
      x: 20; y: 20
      spacing: 16
      Rectangle {
        width: 200; height: 60; color: "#39424e"
        Row {
          anchors.centerIn: parent
          spacing: 12
          ControlButton { symbol: TavikMedia.muteSymbol(true) }
          ControlButton { symbol: TavikMedia.muteSymbol(false) }
          FullScreenButton { isFullScreen: false }
          FullScreenButton { isFullScreen: true }
          CloseButton {}
        }
      }
      AdLabelTag { labelText: "Sponsored" }
      AdLabelTag { labelText: "Ad" }
    })"),
        QSize(400, 100), 0, QUrl(QStringLiteral("qrc:/qt/qml/Tavik/ControlsScreenshot.qml")));
}

// The overlays go over the whole window through their managers, as a host shows them.
TEST(Screenshots, Interstitial) {
  SandboxFixture::shared().reset();
  Stage stage(page("anchors.fill: parent"), QSize(400, 640));
  ASSERT_TRUE(spinUntil([&] { return stage.ready() && stage.view().isActive(); }));
  auto manager = quick::views(TAVIK::shared()).interstitialAdView();
  ASSERT_TRUE(manager);
  InterstitialAdSettings settings{};
  settings.adLabelText = "Sponsored";
  manager->showAd(decodeBannerAd(SandboxFixture::shared().adJson("au_interstitial").toStdString()),
                  settings);
  auto* overlay = static_cast<InterstitialAdViewManager*>(manager.get())->customWindow.get();
  ASSERT_TRUE(overlay->host());
  // The view inside the layer is built after showAd returned.
  QObject* block = nullptr;
  ASSERT_TRUE(spinUntil([&] {
    block = overlay->host()->findChild<QObject*>(QStringLiteral("adBlock"));
    return block && block->parent();
  }));
  // The close button is part of the picture: wait for its delay.
  ASSERT_TRUE(
      spinUntil([&] { return block->parent()->property("showCloseButton").toBool(); }, 8000));
  ASSERT_TRUE(stage.settle(0));
  expectMatchesReference(stage.view().grabWindow(), QStringLiteral("interstitial"));
}

TEST(Screenshots, PictureInPicture) {
  SandboxFixture::shared().reset();
  Stage stage(page("anchors.fill: parent"), QSize(400, 640));
  ASSERT_TRUE(spinUntil([&] { return stage.ready() && stage.view().isActive(); }));
  auto manager = quick::views(TAVIK::shared()).pipAdView();
  ASSERT_TRUE(manager);
  PIPAdSettings settings{};
  settings.width = 240;
  settings.height = 135;
  settings.adLabelText = "Ad";
  manager->showAd(decodeBannerAd(SandboxFixture::shared().adJson("au_pip").toStdString()),
                  settings);
  ASSERT_TRUE(static_cast<PIPAdViewManager*>(manager.get())->customWindow->host());
  ASSERT_TRUE(stage.settle(1));
  expectMatchesReference(stage.view().grabWindow(), QStringLiteral("picture_in_picture"));
}

}  // namespace tavik::test
