// The interstitial and the picture-in-picture video over a live host window: stacking,
// geometry, timers, dismissal, and the events on the sandbox's log.
#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QFont>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickView>
#include <QSignalSpy>
#include <QTest>
#include <algorithm>
#include <memory>

#include "support/sandbox_fixture.h"
#include "support/scripted_media_player.h"
#include "tavik/views/views.h"
#include "views/overlay_items.h"
#include "views/view_logic.h"

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

// The view inside an overlay, once complete: showAd puts the layer up at once and the view
// inside it is built afterwards (by the window's next frame at the latest).
QQuickItem* contentOf(CustomWindow* overlay) {
  QQuickItem* slot = overlay->host()
                         ? overlay->host()->findChild<QQuickItem*>(QStringLiteral("contentSlot"))
                         : nullptr;
  if (!slot || !spinUntil([&] { return !slot->childItems().isEmpty(); })) return nullptr;
  return slot->childItems().first();
}

quick::InterstitialAdViewBase* interstitialOf(CustomWindow* overlay) {
  return qobject_cast<quick::InterstitialAdViewBase*>(contentOf(overlay));
}

// Calls `made` with the interstitial the moment its objects exist, before it can have
// appeared: what waits for it to be complete may see it appear first.
class WhenMade : public QObject {
 public:
  WhenMade(CustomWindow* overlay, std::function<void(quick::InterstitialAdViewBase*)> made)
      : made_(std::move(made)) {
    if (QQuickItem* host = overlay->host()) {
      if (auto* slot = host->findChild<QQuickItem*>(QStringLiteral("contentSlot")))
        slot->installEventFilter(this);
    }
  }
  bool eventFilter(QObject*, QEvent* event) override {
    if (event->type() == QEvent::ChildAdded) {
      auto* child = static_cast<QChildEvent*>(event)->child();
      if (auto* view = qobject_cast<quick::InterstitialAdViewBase*>(child)) made_(view);
    }
    return false;
  }

 private:
  std::function<void(quick::InterstitialAdViewBase*)> made_;
};

TEST(Interstitial, CoversTheWindowAboveHostItemsAndClosesItselfOnce) {
  settle();
  HostWindow host;
  auto manager = quick::views(TAVIK::shared()).interstitialAdView();
  ASSERT_TRUE(manager);
  auto* overlay = static_cast<InterstitialAdViewManager*>(manager.get())->customWindow.get();
  QSignalSpy dismissed(overlay, &CustomWindow::dismissed);
  InterstitialAdSettings settings{};
  settings.width = 200;
  settings.adLabelText = "Ad";
  settings.adLabelAlignment = Qt::AlignBottom | Qt::AlignRight;
  manager->showAd(adWith("au_interstitial", 1, 2), settings);
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

  QObject* view = interstitialOf(overlay);
  ASSERT_TRUE(view);
  EXPECT_FALSE(view->property("showCloseButton").toBool());
  auto* banner = layer->findChild<QQuickItem*>(QStringLiteral("banner"));
  ASSERT_TRUE(banner);
  EXPECT_EQ(banner->property("adLabelAlignment").toInt(), int(Qt::AlignBottom | Qt::AlignRight));
  EXPECT_EQ(banner->property("adLabelText").toString(), QStringLiteral("Ad"));
  EXPECT_DOUBLE_EQ(banner->property("frameWidth").toDouble(), 200);
  ASSERT_TRUE(spinUntil([&] { return view->property("showCloseButton").toBool(); }, 3000));
  ASSERT_TRUE(spinUntil([&] { return !overlay->shown(); }, 3000));
  spinUntil([] { return false; }, 300);
  EXPECT_EQ(dismissed.count(), 1);
  ASSERT_TRUE(SandboxFixture::shared().env().server().waitForEvents(1, std::chrono::seconds(5)));
  EXPECT_EQ(eventsOf("/events", "funnel_impression").size(), 1u);
  overlay->dismiss();  // twice is harmless
  EXPECT_EQ(dismissed.count(), 1);
}

// showAd puts the layer up at the window's size and returns before the view inside is
// built; the next frame the window draws holds the view complete, with the host's settings.
TEST(Interstitial, ShowAdReturnsBeforeTheViewIsBuiltAndTheNextFrameHoldsItWhole) {
  HostWindow host;
  auto manager = quick::views(TAVIK::shared()).interstitialAdView();
  auto* overlay = static_cast<InterstitialAdViewManager*>(manager.get())->customWindow.get();
  spinUntil([] { return false; }, 50);  // nothing else pending
  InterstitialAdSettings settings{};
  settings.width = 200;
  settings.adLabelText = "Ad";
  manager->showAd(adWith("au_interstitial", 1, 2), settings);
  QQuickItem* layer = overlay->host();
  ASSERT_TRUE(layer);
  EXPECT_EQ(layer->size(), QSizeF(400, 800));
  EXPECT_TRUE(overlay->shown());
  EXPECT_FALSE(layer->findChild<quick::InterstitialAdViewBase*>()) << "built inside showAd";

  host.view.grabWindow();  // the next frame, drawn now: nothing else has run since
  auto* slot = layer->findChild<QQuickItem*>(QStringLiteral("contentSlot"));
  ASSERT_TRUE(slot);
  ASSERT_EQ(slot->childItems().size(), 1) << "the frame was drawn without the view";
  auto* view = qobject_cast<quick::InterstitialAdViewBase*>(slot->childItems().first());
  ASSERT_TRUE(view);
  EXPECT_EQ(view->size(), QSizeF(400, 800));  // its anchors are in force: complete
  auto* banner = layer->findChild<QQuickItem*>(QStringLiteral("banner"));
  ASSERT_TRUE(banner);
  EXPECT_DOUBLE_EQ(banner->property("frameWidth").toDouble(), 200);
  EXPECT_EQ(banner->property("adLabelText").toString(), QStringLiteral("Ad"));
  // Its keys: Escape goes to it.
  EXPECT_TRUE(view->hasActiveFocus());
  overlay->dismiss();
}

// Taken down (or its manager gone) before its view was built, an interstitial builds
// nothing more: no view is made, none appears, nothing is reported.
TEST(Interstitial, DismissedBeforeItsViewIsBuiltMakesNothing) {
  settle();
  HostWindow host;
  int made = 0, appeared = 0;
  InterstitialAdSettings settings{};
  settings.adAppear = [&](const BannerAd&) { ++appeared; };
  auto manager = quick::views(TAVIK::shared()).interstitialAdView();
  auto* overlay = static_cast<InterstitialAdViewManager*>(manager.get())->customWindow.get();
  manager->showAd(adWith("au_interstitial", 1, 2), settings);
  WhenMade watch(overlay, [&](quick::InterstitialAdViewBase*) { ++made; });
  overlay->dismiss();
  EXPECT_FALSE(overlay->shown());
  // A second manager goes while its interstitial is still being built.
  auto other = quick::views(TAVIK::shared()).interstitialAdView();
  other->showAd(adWith("au_interstitial", 1, 2), settings);
  ASSERT_TRUE(static_cast<InterstitialAdViewManager*>(other.get())->customWindow->shown());
  other.reset();
  spinUntil([] { return false; }, 400);
  EXPECT_EQ(made, 0);
  EXPECT_EQ(appeared, 0);
  EXPECT_TRUE(host.contentItem()->findChildren<quick::InterstitialAdViewBase*>().isEmpty());
  settle();
  EXPECT_TRUE(eventsOf("/events", "funnel_impression").empty());
}

TEST(Interstitial, AnAutoCloseBeforeTheCloseButtonNeverShowsIt) {
  HostWindow host;
  auto manager = quick::views(TAVIK::shared()).interstitialAdView();
  auto* overlay = static_cast<InterstitialAdViewManager*>(manager.get())->customWindow.get();
  manager->showAd(adWith("au_interstitial", 3, 1), {});
  ASSERT_TRUE(overlay->host());
  QObject* view = interstitialOf(overlay);
  ASSERT_TRUE(view);
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
  QObject* view = interstitialOf(overlay);
  ASSERT_TRUE(view);
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
  QObject* next = interstitialOf(overlay);
  ASSERT_TRUE(next);
  ASSERT_TRUE(spinUntil([&] { return next->property("showCloseButton").toBool(); }));
  QTest::keyClick(&host.view, Qt::Key_Escape);
  EXPECT_TRUE(spinUntil([&] { return !overlay->shown(); }));
}

// One interstitial's moments on a shared monotonic clock, in nanoseconds: when it last
// came on screen (its timers start just before), when its close button showed, when it
// asked to be dismissed. Taken in slots that run after the view's own, so a measured
// delay is never longer than the real one.
struct Moments {
  Moments(quick::InterstitialAdViewBase* view, const QElapsedTimer& clock) {
    QObject::connect(view, &quick::InterstitialAdViewBase::onScreenChanged, &receiver,
                     [view, &clock, this] {
                       if (view->onScreen()) appeared = clock.nsecsElapsed();
                     });
    QObject::connect(view, &quick::InterstitialAdViewBase::showCloseButtonChanged, &receiver,
                     [&clock, this] { button = clock.nsecsElapsed(); });
    QObject::connect(view, &quick::InterstitialAdViewBase::dismissRequested, &receiver,
                     [&clock, this] { dismissed = clock.nsecsElapsed(); });
  }
  QObject receiver;
  qint64 appeared = -1;
  qint64 button = -1;
  qint64 dismissed = -1;
};

constexpr qint64 kSecond = 1'000'000'000;
// "Within a frame or two" on an idle machine; CI runs two suites at once under
// sanitizers, so the upper bound leaves room for a busy event loop.
constexpr qint64 kLate = 250'000'000;

// Hidden and shown again, the interstitial starts both timers again with their full
// delays: before its close button, after it, and just before it would have closed.
TEST(Interstitial, AWindowHiddenAndShownAgainStartsTheTimersAgain) {
  HostWindow host;
  auto manager = quick::views(TAVIK::shared()).interstitialAdView();
  auto* overlay = static_cast<InterstitialAdViewManager*>(manager.get())->customWindow.get();
  QElapsedTimer clock;
  clock.start();
  auto hideAndShowAfter = [&](const Moments& m, qint64 at) {
    while (clock.nsecsElapsed() - m.appeared < at) QTest::qWait(10);
    host.view.hide();
    EXPECT_TRUE(spinUntil([&] { return !interstitialOf(overlay)->onScreen(); }));
    QTest::qWait(400);  // longer than what was left: nothing fires while hidden
    EXPECT_TRUE(overlay->shown());
    EXPECT_EQ(m.dismissed, -1);
    const qint64 hiddenAt = m.appeared;
    host.view.show();
    EXPECT_TRUE(spinUntil([&] { return m.appeared != hiddenAt; }));
  };

  struct Case {
    const char* moment;
    qint64 hideAt;
    bool buttonBefore;  // the close button was showing when the window went
  };
  for (const Case& c : {Case{"before the close button", kSecond / 2, false},
                        Case{"after the close button", kSecond * 13 / 10, true},
                        Case{"just before the automatic close", kSecond * 18 / 10, true}}) {
    SCOPED_TRACE(c.moment);
    manager->showAd(adWith("au_interstitial", 1, 2), {});
    std::unique_ptr<Moments> moments;
    WhenMade made(overlay, [&](quick::InterstitialAdViewBase* built) {
      moments = std::make_unique<Moments>(built, clock);
    });
    quick::InterstitialAdViewBase* view = interstitialOf(overlay);
    ASSERT_TRUE(view);
    ASSERT_TRUE(moments);
    Moments& m = *moments;
    ASSERT_TRUE(spinUntil([&] { return m.appeared >= 0; }));
    const qint64 firstAppeared = m.appeared;
    hideAndShowAfter(m, c.hideAt);
    EXPECT_EQ(view->showCloseButton(), c.buttonBefore);
    ASSERT_TRUE(spinUntil([&] { return !overlay->shown(); }, 4000)) << "never closed";
    EXPECT_GE(m.dismissed - m.appeared, 2 * kSecond);  // the full delay from the return
    EXPECT_LT(m.dismissed - m.appeared, 2 * kSecond + kLate);
    EXPECT_GE(m.dismissed - firstAppeared, 2 * kSecond + c.hideAt);
    if (!c.buttonBefore) {
      EXPECT_GE(m.button - m.appeared, kSecond);
      EXPECT_LT(m.button - m.appeared, kSecond + kLate);
    }
  }
}

// The delays are promises: never a moment early (Qt's default coarse timers may fire up
// to 5% early, depending on where in the millisecond grid they start), and on time.
// Several interstitials, started at staggered moments, each keep both.
TEST(Interstitial, TimersNeverFireEarly) {
  HostWindow host;
  QElapsedTimer clock;
  clock.start();
  std::vector<std::unique_ptr<InterstitialAdViewProtocol>> managers;
  std::vector<std::unique_ptr<Moments>> moments;
  for (int i = 0; i < 6; ++i) {
    managers.push_back(quick::views(TAVIK::shared()).interstitialAdView());
    managers.back()->showAd(adWith("au_interstitial", 1, 2), {});
    auto* overlay =
        static_cast<InterstitialAdViewManager*>(managers.back().get())->customWindow.get();
    WhenMade made(overlay, [&](quick::InterstitialAdViewBase* built) {
      moments.push_back(std::make_unique<Moments>(built, clock));
    });
    ASSERT_TRUE(interstitialOf(overlay));
    ASSERT_EQ(moments.size(), size_t(i + 1));
    QTest::qWait(37 + 11 * i);
  }
  ASSERT_TRUE(spinUntil(
      [&] {
        return std::all_of(moments.begin(), moments.end(),
                           [](const auto& m) { return m->dismissed >= 0; });
      },
      6000));
  for (const auto& m : moments) {
    ASSERT_GE(m->appeared, 0);
    EXPECT_GE(m->button - m->appeared, kSecond);
    EXPECT_LT(m->button - m->appeared, kSecond + kLate);
    EXPECT_GE(m->dismissed - m->appeared, 2 * kSecond);
    EXPECT_LT(m->dismissed - m->appeared, 2 * kSecond + kLate);
  }
}

// A banner of the host's page under the SDK's own interstitial is covered: no share
// of it is seen, and its viewability clock stands until the interstitial goes.
TEST(Interstitial, ABannerBeneathItIsCovered) {
  HostWindow host;
  int viewable = 0;
  BannerAdSettings bannerSettings;
  bannerSettings.adViewable = [&](const BannerAd&) { ++viewable; };
  QQuickItem* banner = quick::views(TAVIK::shared())
                           .bannerAdView()
                           ->showAd(adWith("au_home_banner", {}, {}), bannerSettings,
                                    host.contentItem()->childItems().first());
  ASSERT_TRUE(banner);
  ASSERT_TRUE(spinUntil([&] { return banner->property("visibleFraction").toDouble() == 1; }));
  auto manager = quick::views(TAVIK::shared()).interstitialAdView();
  auto* overlay = static_cast<InterstitialAdViewManager*>(manager.get())->customWindow.get();
  manager->showAd(adWith("au_interstitial", 0, 3), {});
  ASSERT_TRUE(overlay->shown());
  ASSERT_TRUE(spinUntil([&] { return banner->property("visibleFraction").toDouble() == 0; }));
  QObject* view = interstitialOf(overlay);
  // The interstitial's own banner is seen.
  ASSERT_TRUE(spinUntil([&] { return view->property("visibleFraction").toDouble() > 0; }));
  spinUntil([] { return false; }, 1300);
  EXPECT_EQ(viewable, 0);
  overlay->dismiss();
  ASSERT_TRUE(spinUntil([&] { return banner->property("visibleFraction").toDouble() == 1; }));
  ASSERT_TRUE(spinUntil([&] { return viewable == 1; }, 3000));
  delete banner;
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
  PIPAdSettings settings{};
  settings.width = 300;
  settings.height = 200;
  manager->showAd(adWith("au_video_banner", {}, {}), settings);
  ASSERT_TRUE(overlay->host());
  EXPECT_EQ(overlay->windowFrame(), QRectF(84, 566, 300, 200));
  // A drag with the pointer moves the panel when it ends, clamped into the window.
  QPoint at(234, 666);
  QTest::mousePress(&host.view, Qt::LeftButton, {}, at);
  for (int i = 1; i <= 10; ++i) QTest::mouseMove(&host.view, at + QPoint(-10 * i, -30 * i));
  {
    // While the finger moves, the whole panel follows it: the dark rounded background
    // with the content, not the content alone.
    auto* panel = overlay->host()->findChild<QQuickItem*>(QStringLiteral("panel"));
    ASSERT_TRUE(panel);
    EXPECT_EQ(panel->position(), QPointF(-100, -300));
    auto* slot = overlay->host()->findChild<QQuickItem*>(QStringLiteral("contentSlot"));
    ASSERT_TRUE(slot);
    EXPECT_EQ(slot->parentItem(), panel);
    int backgrounds = 0;
    for (QQuickItem* child : panel->childItems()) {
      if (child != slot && child->isVisible()) {
        ++backgrounds;
        EXPECT_EQ(child->mapToScene({0, 0}), QPointF(84 - 100, 566 - 300));
      }
    }
    EXPECT_EQ(backgrounds, 1);
  }
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
  // Back to the frame it was first shown at, not to where it was dragged.
  EXPECT_EQ(overlay->windowFrame(), QRectF(84, 566, 300, 200));
  // Opted in, it goes back to where the shopper dragged it.
  overlay->setReturnsToDraggedFrame(true);
  overlay->handleDragEnded({16, 34});
  EXPECT_EQ(overlay->windowFrame(), QRectF(100, 600, 300, 200));
  overlay->setFullScreen(true);
  overlay->setFullScreen(false);
  EXPECT_EQ(overlay->windowFrame(), QRectF(100, 600, 300, 200));
  overlay->setReturnsToDraggedFrame(false);
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

// The panel is up at its size when showAd returns; its video view is built afterwards and
// is complete in the next frame the window draws.
TEST_F(PictureInPicture, ShowAdReturnsThePanelAtOnceAndTheNextFrameHoldsTheView) {
  HostWindow host;
  auto manager = quick::views(TAVIK::shared()).pipAdView();
  auto* overlay = static_cast<PIPAdViewManager*>(manager.get())->customWindow.get();
  spinUntil([] { return false; }, 50);
  PIPAdSettings settings{};
  settings.width = 300;
  settings.height = 200;
  manager->showAd(adWith("au_video_banner", {}, {}), settings);
  ASSERT_TRUE(overlay->host());
  EXPECT_EQ(overlay->host()->size(), QSizeF(300, 200));
  EXPECT_FALSE(overlay->host()->findChild<quick::PIPAdViewBase*>()) << "built inside showAd";
  host.view.grabWindow();
  auto* view = overlay->host()->findChild<quick::PIPAdViewBase*>();
  ASSERT_TRUE(view);
  EXPECT_EQ(view->parentItem(),
            overlay->host()->findChild<QQuickItem*>(QStringLiteral("contentSlot")));
  EXPECT_EQ(view->size(), QSizeF(300, 200));  // its anchors are in force: complete
  EXPECT_EQ(view->customWindow(), overlay);
  overlay->dismiss();
}

TEST_F(PictureInPicture, OneImpressionAcrossHideAndShowAClickPerTapAndSilenceAfterClose) {
  settle();
  HostWindow host;
  auto manager = quick::views(TAVIK::shared()).pipAdView();
  auto* overlay = static_cast<PIPAdViewManager*>(manager.get())->customWindow.get();
  int appeared = 0, clicked = 0;
  PIPAdSettings settings{};
  settings.adAppear = [&](const BannerAd&) { ++appeared; };
  settings.adClicked = [&](const BannerAd&) { ++clicked; };
  manager->showAd(adWith("au_video_banner", {}, {}), settings);
  ASSERT_TRUE(overlay->host());
  ASSERT_TRUE(spinUntil([&] { return appeared == 1; }));
  overlay->host()->setVisible(false);
  spinUntil([] { return false; }, 100);
  overlay->host()->setVisible(true);
  ASSERT_TRUE(spinUntil([&] { return appeared == 2; }));
  ASSERT_TRUE(ScriptedMediaPlayer::last());
  EXPECT_TRUE(spinUntil([] { return ScriptedMediaPlayer::last()->isPlaying(); }));
  ASSERT_TRUE(contentOf(overlay));
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

QRectF sceneRect(QQuickItem* item) {
  return item->mapRectToScene(QRectF(0, 0, item->width(), item->height()));
}

// The controls row, left to right: the label's column filling what is left, the column
// of the full-screen and close buttons, then the sound switch in its corner. The
// full-screen button follows its overlay's state, also after a tap.
TEST_F(PictureInPicture, ControlsInTheirOrderAndTheFullScreenIconFollowsTheOverlay) {
  HostWindow host;
  auto manager = quick::views(TAVIK::shared()).pipAdView();
  auto* overlay = static_cast<PIPAdViewManager*>(manager.get())->customWindow.get();
  PIPAdSettings settings{};
  settings.width = 300;
  settings.height = 200;
  settings.adLabelText = "Ad";
  settings.adLabelAlignment = Qt::AlignTop | Qt::AlignRight;
  manager->showAd(adWith("au_video_banner", {}, {}), settings);
  ASSERT_TRUE(overlay->host());
  ASSERT_TRUE(contentOf(overlay));
  auto item = [&](const char* name) {
    return overlay->host()->findChild<QQuickItem*>(QString::fromLatin1(name));
  };
  QQuickItem* label = item("labelColumn");
  QQuickItem* buttons = item("buttonColumn");
  QQuickItem* fullScreen = item("fullScreenButton");
  QQuickItem* close = item("closeButton");
  QQuickItem* mute = item("muteControl");
  ASSERT_TRUE(label && buttons && fullScreen && close && mute);
  const QRectF panel = overlay->windowFrame();
  const QRectF labelRect = sceneRect(label), buttonsRect = sceneRect(buttons),
               muteRect = sceneRect(mute);
  EXPECT_DOUBLE_EQ(labelRect.left(), panel.left());
  EXPECT_DOUBLE_EQ(labelRect.right(), buttonsRect.left());  // the label's column fills
  EXPECT_LT(buttonsRect.right(), muteRect.left());
  EXPECT_DOUBLE_EQ(muteRect.right(), panel.right() - 8);
  EXPECT_DOUBLE_EQ(muteRect.bottom(), panel.bottom() - 8);
  EXPECT_LT(sceneRect(fullScreen).top(), sceneRect(close).top());  // full screen above close
  // The label sits top-trailing in its own column, left of the buttons.
  QQuickItem* tag = label->childItems().value(0);
  ASSERT_TRUE(tag);
  EXPECT_DOUBLE_EQ(sceneRect(tag).right(), buttonsRect.left());
  // Its text in the caption style: 12 points, regular weight, white.
  QQuickItem* text =
      tag->childItems().value(0) ? tag->childItems()[0]->childItems().value(0) : nullptr;
  ASSERT_TRUE(text);
  const QFont font = text->property("font").value<QFont>();
  EXPECT_EQ(font.pixelSize(), 12);
  EXPECT_EQ(font.weight(), QFont::Normal);
  EXPECT_EQ(text->property("text").toString(), QStringLiteral("Ad"));

  // A tap asks the overlay; the icon follows the overlay, whoever changes it.
  QMetaObject::invokeMethod(fullScreen, "clicked");
  EXPECT_TRUE(overlay->isFullScreen());
  EXPECT_TRUE(fullScreen->property("isFullScreen").toBool());
  overlay->setFullScreen(false);  // the host, not the button
  EXPECT_FALSE(fullScreen->property("isFullScreen").toBool());
  EXPECT_EQ(fullScreen->property("symbol").toString().toStdString(),
            std::string(quick::kEnterFullScreenSymbol));
  overlay->setFullScreen(true);
  EXPECT_TRUE(fullScreen->property("isFullScreen").toBool());
  QMetaObject::invokeMethod(fullScreen, "clicked");
  EXPECT_FALSE(overlay->isFullScreen());
  EXPECT_FALSE(fullScreen->property("isFullScreen").toBool());
}

// A video counts two seconds of playback with at least half of it on screen: paused,
// its clock stands; playing again, it goes on from where it stood.
TEST_F(PictureInPicture, ViewableAfterTwoSecondsOfPlaybackThePauseStopsTheClock) {
  HostWindow host;
  auto manager = quick::views(TAVIK::shared()).pipAdView();
  auto* overlay = static_cast<PIPAdViewManager*>(manager.get())->customWindow.get();
  int viewable = 0;
  PIPAdSettings settings{};
  settings.adViewable = [&](const BannerAd&) { ++viewable; };
  manager->showAd(adWith("au_video_banner", {}, {}), settings);
  ASSERT_TRUE(overlay->host());
  ASSERT_TRUE(contentOf(overlay));
  QObject* video = overlay->host()->findChild<QObject*>(QStringLiteral("video"));
  QObject* view = video->parent();
  // The player is made once the video is on screen.
  ASSERT_TRUE(spinUntil([&] { return video->property("videoManager").value<QObject*>(); }));
  ScriptedMediaPlayer* player = ScriptedMediaPlayer::last();
  ASSERT_TRUE(player);
  ASSERT_TRUE(spinUntil([&] { return view->property("videoPlaying").toBool(); }));
  EXPECT_DOUBLE_EQ(view->property("visibleFraction").toDouble(), 1);
  spinUntil([] { return false; }, 1200);
  player->pause();  // 1.2 s of playback so far
  ASSERT_TRUE(spinUntil([&] { return !view->property("videoPlaying").toBool(); }));
  spinUntil([] { return false; }, 1500);
  EXPECT_EQ(viewable, 0);  // the clock stood while paused
  QElapsedTimer resumed;
  resumed.start();
  player->play();
  ASSERT_TRUE(spinUntil([&] { return viewable == 1; }, 3000));
  EXPECT_GE(resumed.elapsed(), 700);   // 0.8 s were left, not 2
  EXPECT_LT(resumed.elapsed(), 1500);  // and the 1.2 s before the pause counted
  EXPECT_TRUE(view->property("viewableReported").toBool());
  overlay->dismiss();
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
  ASSERT_TRUE(contentOf(overlay));
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
