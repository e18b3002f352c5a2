// The interstitial and the picture-in-picture video over a live host window: stacking,
// geometry, timers, dismissal, and the events on the sandbox's log.
#include <gtest/gtest.h>

#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickView>
#include <QSignalSpy>
#include <QTest>

#include "support/sandbox_fixture.h"
#include "support/scripted_media_player.h"
#include "tavik/views/views.h"

namespace tavik::test {
namespace {

// A host window of 400 × 800 with a few items of its own, one of them high in z.
struct HostWindow {
  HostWindow() {
    SandboxFixture::shared();  // the SDK is installed against the sandbox first
    view.engine()->addImportPath(QStringLiteral(TAVIK_QML_DIR));
    view.setSource(QUrl(QStringLiteral(
        "data:text/plain,import QtQuick%0AItem { width: 400; height: 800; "
        "Rectangle { objectName: 'hostBar'; width: 400; height: 60; z: 100; color: 'navy' } }")));
    view.resize(400, 800);
    view.show();
    view.requestActivate();
    spinUntil([&] { return view.isExposed(); });
  }
  QQuickItem* contentItem() { return view.contentItem(); }
  QQuickView view;
};

BannerAd adWith(const char* unit, std::optional<int> closeSec, std::optional<int> autoSec) {
  BannerAd ad = decodeBannerAd(SandboxFixture::shared().adJson(unit).toStdString());
  ad.elements.closeButtonSec = closeSec;
  ad.elements.autoCloseSec = autoSec;
  return ad;
}

std::vector<nlohmann::json> eventsOf(const std::string& path, const std::string& name = "") {
  std::vector<nlohmann::json> found;
  for (const auto& event : SandboxFixture::shared().env().server().eventLog()) {
    if (event["path"] != path) continue;
    if (!name.empty() && event["params"].value("event_name", "") != name) continue;
    found.push_back(event);
  }
  return found;
}

void settle() {
  SandboxFixture::shared().reset();  // waits for every request in flight, then clears
}

TEST(Interstitial, CoversTheWindowAboveHostItemsAndClosesItselfOnce) {
  settle();
  HostWindow host;
  auto manager = quick::views(TAVIK::shared()).interstitialAdView();
  ASSERT_TRUE(manager);
  auto* overlay = static_cast<InterstitialAdViewManager*>(manager.get())->customWindow.get();
  QSignalSpy dismissed(overlay, &CustomWindow::dismissed);
  manager->showAd(adWith("au_interstitial", 1, 2), {});
  QQuickItem* layer = overlay->host();
  ASSERT_TRUE(layer);
  EXPECT_EQ(layer->parentItem(), host.contentItem());
  EXPECT_EQ(layer->size(), QSizeF(400, 800));
  EXPECT_GT(layer->z(), 100);
  // The host adds an item above its others: the overlay is raised again.
  auto* late = new QQuickItem(host.contentItem());
  late->setZ(5000);
  EXPECT_GT(layer->z(), 5000);
  EXPECT_EQ(host.contentItem()->childItems().last(), layer);

  QObject* view = layer->findChild<QObject*>(QStringLiteral("adBlock"))->parent();
  ASSERT_TRUE(view);
  EXPECT_FALSE(view->property("showCloseButton").toBool());
  ASSERT_TRUE(spinUntil([&] { return view->property("showCloseButton").toBool(); }, 3000));
  ASSERT_TRUE(spinUntil([&] { return !overlay->shown(); }, 3000));
  spinUntil([] { return false; }, 300);
  EXPECT_EQ(dismissed.count(), 1);
  ASSERT_TRUE(SandboxFixture::shared().env().server().waitForEvents(1, std::chrono::seconds(5)));
  EXPECT_EQ(eventsOf("/events", "funnel_impression").size(), 1u);
  overlay->dismiss();  // twice is harmless
  EXPECT_EQ(dismissed.count(), 1);
}

TEST(Interstitial, AnAutoCloseBeforeTheCloseButtonNeverShowsIt) {
  HostWindow host;
  auto manager = quick::views(TAVIK::shared()).interstitialAdView();
  auto* overlay = static_cast<InterstitialAdViewManager*>(manager.get())->customWindow.get();
  manager->showAd(adWith("au_interstitial", 3, 1), {});
  ASSERT_TRUE(overlay->host());
  QObject* view = overlay->host()->findChild<QObject*>(QStringLiteral("adBlock"))->parent();
  QSignalSpy shownButton(view, SIGNAL(showCloseButtonChanged()));
  QElapsedTimer clock;
  clock.start();
  ASSERT_TRUE(spinUntil([&] { return !overlay->shown(); }, 3000));
  EXPECT_GE(clock.elapsed(), 900);
  spinUntil([] { return false; }, 300);
  EXPECT_EQ(shownButton.count(), 0);
}

TEST(Interstitial, CloseAndAutoCloseTogetherDismissOnceAndEscapeWaitsForTheButton) {
  HostWindow host;
  auto manager = quick::views(TAVIK::shared()).interstitialAdView();
  auto* overlay = static_cast<InterstitialAdViewManager*>(manager.get())->customWindow.get();
  QSignalSpy dismissed(overlay, &CustomWindow::dismissed);
  manager->showAd(adWith("au_interstitial", std::nullopt, std::nullopt), {});
  ASSERT_TRUE(overlay->host());
  QObject* view = overlay->host()->findChild<QObject*>(QStringLiteral("adBlock"))->parent();
  EXPECT_EQ(view->property("closeButtonDelay").toDouble(), 5);
  EXPECT_EQ(view->property("autoCloseDelay").toDouble(), 10);
  spinUntil([] { return false; }, 100);
  QTest::keyClick(&host.view, Qt::Key_Escape);  // no close button yet: stays
  spinUntil([] { return false; }, 100);
  EXPECT_TRUE(overlay->shown());
  // The close button and the automatic close in the same turn of the event loop.
  QMetaObject::invokeMethod(view, "dismiss");
  QMetaObject::invokeMethod(view, "dismiss");
  ASSERT_TRUE(spinUntil([&] { return !overlay->shown(); }));
  spinUntil([] { return false; }, 200);
  EXPECT_EQ(dismissed.count(), 1);

  // The same manager shows the next one through the same overlay.
  manager->showAd(adWith("au_interstitial", 0, 30), {});
  ASSERT_TRUE(overlay->host());
  QObject* next = overlay->host()->findChild<QObject*>(QStringLiteral("adBlock"))->parent();
  ASSERT_TRUE(spinUntil([&] { return next->property("showCloseButton").toBool(); }));
  QTest::keyClick(&host.view, Qt::Key_Escape);
  EXPECT_TRUE(spinUntil([&] { return !overlay->shown(); }));
}

TEST(Interstitial, OtherTemplatesAndNoWindowShowNothing) {
  SandboxFixture::shared();
  auto manager = quick::views(TAVIK::shared()).interstitialAdView();
  auto* overlay = static_cast<InterstitialAdViewManager*>(manager.get())->customWindow.get();
  manager->showAd(adWith("au_interstitial", 1, 2), {});  // no window yet
  EXPECT_FALSE(overlay->shown());
  HostWindow host;
  BannerAd carousel = adWith("au_interstitial", 1, 2);
  carousel.crt = "tavik_sdk/carousel/v1";
  manager->showAd(carousel, {});
  EXPECT_FALSE(overlay->shown());
}

class PictureInPicture : public ::testing::Test {
 protected:
  void SetUp() override { ScriptedMediaPlayer::installForEveryManager(3.0); }
  void TearDown() override { ScriptedMediaPlayer::uninstall(); }
};

TEST_F(PictureInPicture, StartsInTheCornerDragsClampedAndTogglesFullScreen) {
  HostWindow host;
  auto manager = quick::views(TAVIK::shared()).pipAdView();
  ASSERT_TRUE(manager);
  auto* overlay = static_cast<PIPAdViewManager*>(manager.get())->customWindow.get();
  PIPAdSettings settings;
  settings.width = 300;
  settings.height = 200;
  manager->showAd(adWith("au_video_banner", {}, {}), settings);
  ASSERT_TRUE(overlay->host());
  EXPECT_EQ(overlay->windowFrame(), QRectF(84, 566, 300, 200));
  // A drag with the pointer moves the panel when it ends, clamped into the window.
  QPoint at(234, 666);
  QTest::mousePress(&host.view, Qt::LeftButton, {}, at);
  for (int i = 1; i <= 10; ++i) QTest::mouseMove(&host.view, at + QPoint(-10 * i, -30 * i));
  QTest::mouseRelease(&host.view, Qt::LeftButton, {}, at + QPoint(-100, -300));
  EXPECT_EQ(overlay->windowFrame(), QRectF(0, 266, 300, 200));  // 84 - 100 stops at the left edge
  overlay->handleDragEnded({-200, -1000});
  EXPECT_EQ(overlay->windowFrame(), QRectF(0, 0, 300, 200));
  overlay->handleDragEnded({1000, 1000});
  EXPECT_EQ(overlay->windowFrame(), QRectF(100, 600, 300, 200));
  overlay->setFullScreen(true);
  EXPECT_EQ(overlay->host()->size(), QSizeF(400, 800));
  overlay->handleDragEnded({-50, -50});  // no drags in full screen
  EXPECT_EQ(overlay->windowFrame(), QRectF(0, 0, 400, 800));
  overlay->setFullScreen(false);
  EXPECT_EQ(overlay->windowFrame(), QRectF(100, 600, 300, 200));
  // The window shrinks: the panel stays inside.
  host.view.resize(350, 500);
  ASSERT_TRUE(spinUntil([&] { return overlay->windowFrame() == QRectF(50, 300, 300, 200); }));

  // Only a video ad becomes a picture-in-picture panel.
  overlay->dismiss();
  BannerAd image = adWith("au_home_banner", {}, {});
  manager->showAd(image, settings);
  EXPECT_FALSE(overlay->shown());
  settings.position = QPointF(-50, 10);
  manager->showAd(adWith("au_video_banner", {}, {}), settings);
  EXPECT_EQ(overlay->windowFrame(), QRectF(0, 10, 280, 200));  // 0.8 of the narrower window
}

TEST_F(PictureInPicture, OneImpressionAcrossHideAndShowAClickPerTapAndSilenceAfterClose) {
  settle();
  HostWindow host;
  auto manager = quick::views(TAVIK::shared()).pipAdView();
  auto* overlay = static_cast<PIPAdViewManager*>(manager.get())->customWindow.get();
  int appeared = 0, clicked = 0;
  PIPAdSettings settings;
  settings.adAppear = [&](const BannerAd&) { ++appeared; };
  settings.adClicked = [&](const BannerAd&) { ++clicked; };
  manager->showAd(adWith("au_video_banner", {}, {}), settings);
  ASSERT_TRUE(overlay->host());
  ASSERT_TRUE(spinUntil([&] { return appeared == 1; }));
  overlay->host()->setVisible(false);
  spinUntil([] { return false; }, 100);
  overlay->host()->setVisible(true);
  ASSERT_TRUE(spinUntil([&] { return appeared == 2; }));
  QObject* view = overlay->host()->findChild<QObject*>(QStringLiteral("video"))->parent();
  QMetaObject::invokeMethod(view, "tap");
  QMetaObject::invokeMethod(view, "tap");
  EXPECT_EQ(clicked, 2);

  ScriptedMediaPlayer* player = ScriptedMediaPlayer::last();
  ASSERT_TRUE(player);
  player->playFor(1.5);
  ASSERT_TRUE(spinUntil([&] { return eventsOf("/events", "funnel_video_progress").size() >= 2; }));
  // Closing stops playback and progress at once.
  QPointer<ScriptedMediaPlayer> watched(player);
  QMetaObject::invokeMethod(view, "dismissAd");
  EXPECT_FALSE(overlay->shown());
  spinUntil([] { return false; }, 100);
  if (watched) {
    EXPECT_FALSE(watched->isPlaying());
    watched->playFor(3);
  }
  settle();  // every request ended
  const auto progressAfterClose = eventsOf("/events", "funnel_video_progress").size();
  spinUntil([] { return false; }, 300);
  EXPECT_EQ(eventsOf("/events", "funnel_video_progress").size(), progressAfterClose);
}

TEST_F(PictureInPicture, EventsOnTheLog) {
  settle();
  HostWindow host;
  auto manager = quick::views(TAVIK::shared()).pipAdView();
  auto* overlay = static_cast<PIPAdViewManager*>(manager.get())->customWindow.get();
  BannerAd ad = adWith("au_video_banner", {}, {});
  ad.cliUbid.reset();
  manager->showAd(ad, {});
  ASSERT_TRUE(overlay->host());
  QObject* view = overlay->host()->findChild<QObject*>(QStringLiteral("video"))->parent();
  ASSERT_TRUE(spinUntil([&] { return view->property("impressionReported").toBool(); }));
  QMetaObject::invokeMethod(view, "tap");
  // Separate requests: the click may arrive before the impression.
  ASSERT_TRUE(spinUntil([] {
    return eventsOf("/aclick").size() == 1 && eventsOf("/events", "funnel_impression").size() == 1;
  }));
  spinUntil([] { return false; }, 200);  // nothing more should follow
  const auto impressions = eventsOf("/events", "funnel_impression");
  ASSERT_EQ(impressions.size(), 1u);
  EXPECT_EQ(impressions[0]["params"]["uclid"], "uc-video-banner-1");
  EXPECT_EQ(impressions[0]["params"]["cli_ubid"], "");
  EXPECT_FALSE(impressions[0]["params"].contains("position"));
  const auto clicks = eventsOf("/aclick");
  ASSERT_EQ(clicks.size(), 1u);
  EXPECT_EQ(clicks[0]["params"]["uclid"], "uc-video-banner-1");
}

}  // namespace
}  // namespace tavik::test
