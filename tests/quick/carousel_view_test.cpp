// The carousel managers as a C++ host uses them: accessors, showAd into a live scene,
// the host callbacks with the tapped card, and the events on the sandbox's log.
#include <gtest/gtest.h>

#include <QPointer>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickView>
#include <map>
#include <string>

#include "support/sandbox_fixture.h"
#include "support/scene.h"
#include "tavik/network/transport.h"
#include "tavik/views/views.h"
#include "views/preload.h"

namespace tavik::test {
namespace {

std::vector<nlohmann::json> eventsOf(const std::string& path) {
  std::vector<nlohmann::json> found;
  for (const auto& event : SandboxFixture::shared().env().server().eventLog()) {
    if (event["path"] == path) found.push_back(event);
  }
  return found;
}

TEST(CarouselViews, AccessorsFollowTheConfiguration) {
  SandboxFixture& fixture = SandboxFixture::shared();
  EXPECT_TRUE(quick::views(fixture.env().sdk()).carouselAdView());
  EXPECT_TRUE(quick::views(fixture.env().sdk()).multiAdCarouselView());
  EXPECT_FALSE(quick::views(fixture.env().sdk(false, "")).carouselAdView());
  EXPECT_FALSE(quick::views(fixture.env().sdk(false, "")).multiAdCarouselView());
}

// showAd returns the carousel at its size with the host's settings on it, owned by the
// parent; its strip and cards are built between the next frames, and it is shown in the
// parent once complete. One destroyed before that leaves nothing behind.
TEST(CarouselViews, ShowAdReturnsAtOnceAndTheCarouselJoinsItsParentWhenBuilt) {
  SandboxFixture& fixture = SandboxFixture::shared();
  Scene scene(700, 500);
  const CarouselAd ad = decodeCarouselAd(fixture.adJson("au_carousel").toStdString());
  CarouselAdSettings settings{};
  settings.width = 300;
  settings.adLabelText = "Ad";
  auto manager = quick::views(TAVIK::shared()).carouselAdView();
  QQuickItem* item = manager->showAd(ad, settings, scene.root());
  ASSERT_TRUE(item);
  EXPECT_EQ(item->parent(), scene.root());
  EXPECT_DOUBLE_EQ(item->width(), 300);
  EXPECT_GT(item->height(), 0);
  EXPECT_EQ(item->property("adLabelText").toString(), QStringLiteral("Ad"));
  EXPECT_EQ(item->parentItem(), nullptr);  // not complete yet: not drawn
  ASSERT_TRUE(spinUntil([&] { return item->parentItem() == scene.root(); }));
  EXPECT_TRUE(item->findChild<QQuickItem*>(QStringLiteral("cardList")));

  auto strips = quick::views(TAVIK::shared()).multiAdCarouselView();
  std::vector<BannerAd> ads{decodeBannerAd(fixture.adJson("au_home_banner", 0).toStdString()),
                            decodeBannerAd(fixture.adJson("au_home_banner", 1).toStdString())};
  MultiAdCarouselSettings stripSettings;
  stripSettings.width = 320;
  for (int i = 0; i < 10; ++i) {
    QPointer<QQuickItem> strip = strips->showAd(ads, stripSettings, scene.root());
    ASSERT_TRUE(strip);
    EXPECT_EQ(strip->property("count").toInt(), 2);
    if (i % 2) spinUntil([] { return false; }, 5);  // some after a slice of their build
    delete strip;
  }
  spinUntil([] { return false; }, 200);
  EXPECT_EQ(scene.root()->childItems(), QList<QQuickItem*>{item});
  delete item;
}

// Items of the visual tree under `root` named `name` (a list's delegates are visual
// children, not QObject children, of the list).
QList<QQuickItem*> itemsNamed(QQuickItem* root, const QString& name) {
  QList<QQuickItem*> found;
  for (QQuickItem* child : root->childItems()) {
    if (child->objectName() == name) found.append(child);
    found += itemsNamed(child, name);
  }
  return found;
}

// The carousel managers preload like the others: every card's creative, ready ahead of
// showAd and drawn from the preload; a preload given up is no longer kept.
TEST(CarouselViews, PreloadedCardsAreDrawnFromTheirPreloadAndADroppedOneIsGivenUp) {
  SandboxFixture& fixture = SandboxFixture::shared();
  Scene scene(700, 500);
  // Addresses of their own: no earlier download answers for them.
  CarouselAd ad = decodeCarouselAd(fixture.adJson("au_carousel").toStdString());
  ASSERT_EQ(ad.elements.carouselCards.size(), 3u);
  for (CarouselCard& card : ad.elements.carouselCards) card.media.value += "?carousel-preload";
  auto manager = quick::views(TAVIK::shared()).carouselAdView();
  Future<bool> preloaded = manager->preload(ad);
  ASSERT_TRUE(spinUntil([&] { return preloaded.is_ready(); }));
  ASSERT_TRUE(preloaded.get());
  for (const CarouselCard& card : ad.elements.carouselCards)
    EXPECT_TRUE(quick::detail::hasPreloadedImage(card.media.value));

  CarouselAdSettings settings{};
  settings.width = 300;
  QQuickItem* item = manager->showAd(ad, settings, scene.root());
  ASSERT_TRUE(item);
  // The cards come with the strip's first layout, after the carousel is complete.
  QList<QQuickItem*> images;
  ASSERT_TRUE(spinUntil([&] {
    images = itemsNamed(item, QStringLiteral("creativeImage"));
    return !images.isEmpty();
  }));
  for (QQuickItem* image : images) {
    EXPECT_TRUE(image->property("source").toString().startsWith("image://tavikready/"));
    EXPECT_EQ(image->property("status").toInt(), 1);  // Ready, without waiting
  }
  delete item;

  auto strips = quick::views(TAVIK::shared()).multiAdCarouselView();
  std::vector<BannerAd> ads{decodeBannerAd(fixture.adJson("au_home_banner", 0).toStdString()),
                            decodeBannerAd(fixture.adJson("au_home_banner", 1).toStdString())};
  for (BannerAd& one : ads) one.elements.value += "?strip-preload";
  Future<bool> both = strips->preload(ads);
  ASSERT_TRUE(spinUntil([&] { return both.is_ready(); }));
  EXPECT_TRUE(both.get());
  for (const BannerAd& one : ads) EXPECT_TRUE(quick::detail::hasPreloadedImage(one.elements.value));
  strips->dropPreload(ads);
  for (const BannerAd& one : ads)
    EXPECT_FALSE(quick::detail::hasPreloadedImage(one.elements.value));

  // Nothing to load: false, at once.
  EXPECT_FALSE(strips->preload({}).get());
  CarouselAd empty = ad;
  empty.elements.carouselCards.clear();
  EXPECT_FALSE(manager->preload(empty).get());
}

TEST(CarouselViews, CardTapsReachTheHostWithTheCardAndReportTheAdsClick) {
  SandboxFixture& fixture = SandboxFixture::shared();
  fixture.reset();
  Scene scene(700, 500);
  const CarouselAd ad = decodeCarouselAd(fixture.adJson("au_carousel").toStdString());
  std::vector<std::string> destinations;
  int appeared = 0;
  CarouselAdSettings settings{};
  settings.width = 300;
  settings.cardBackground = QColor("#eeeeee");
  settings.adAppear = [&](const CarouselAd& shown) {
    EXPECT_EQ(shown.uclid, "uc-carousel-1");
    ++appeared;
  };
  settings.adClicked = [&](const CarouselAd& tapped, const CarouselCard& card,
                           const std::optional<std::string>& destination) {
    EXPECT_EQ(tapped.uclid, "uc-carousel-1");
    EXPECT_EQ(card.destinationUrl, destination);
    destinations.push_back(destination.value_or(""));
  };
  QQuickItem* item =
      quick::views(TAVIK::shared()).carouselAdView()->showAd(ad, settings, scene.root());
  ASSERT_TRUE(item);
  EXPECT_DOUBLE_EQ(item->width(), 300);
  EXPECT_DOUBLE_EQ(item->height(), 250);
  ASSERT_TRUE(spinUntil([&] { return appeared == 1; }));
  QMetaObject::invokeMethod(item, "tapCard", Q_ARG(int, 2));
  QMetaObject::invokeMethod(item, "tapCard", Q_ARG(int, 0));
  QMetaObject::invokeMethod(item, "tapCard", Q_ARG(int, 7));  // no such card: nothing
  EXPECT_EQ(destinations, (std::vector<std::string>{"https://shop.example.com/p/card-3",
                                                    "https://shop.example.com/p/card-1"}));
  ASSERT_TRUE(fixture.env().server().waitForEvents(3, std::chrono::seconds(5)));
  spinUntil([] { return false; }, 200);
  ASSERT_EQ(eventsOf("/aclick").size(), 2u);
  for (const auto& click : eventsOf("/aclick"))
    EXPECT_EQ(click["params"]["uclid"], "uc-carousel-1");
  const auto impressions = eventsOf("/events");
  ASSERT_EQ(impressions.size(), 1u);
  EXPECT_EQ(impressions[0]["params"]["event_name"], "funnel_impression");
}

TEST(CarouselViews, AMultiAdStripHandsEveryCardItsOwnAd) {
  SandboxFixture& fixture = SandboxFixture::shared();
  fixture.reset();
  Scene scene(700, 500);
  std::vector<BannerAd> ads;
  for (int i = 0; i < 3; ++i)
    ads.push_back(decodeBannerAd(fixture.adJson("au_home_banner", i % 2).toStdString()));
  ads[2].uclid = "uc-third";
  std::vector<std::string> appeared;
  MultiAdCarouselSettings settings{};
  settings.width = 320;
  settings.elementWidth = 320;
  settings.adAppear = [&](const BannerAd& ad) { appeared.push_back(ad.uclid); };
  QPointer<QQuickItem> item =
      quick::views(TAVIK::shared()).multiAdCarouselView()->showAd(ads, settings, scene.root());
  ASSERT_TRUE(item);
  EXPECT_EQ(item->property("count").toInt(), 3);
  ASSERT_TRUE(spinUntil([&] { return appeared.size() == 1; }));
  QMetaObject::invokeMethod(item, "step", Q_ARG(int, 1));
  QMetaObject::invokeMethod(item, "step", Q_ARG(int, 1));
  ASSERT_TRUE(spinUntil([&] { return appeared.size() == 3; }));
  EXPECT_EQ(appeared,
            (std::vector<std::string>{"uc-home-banner-1", "uc-home-banner-2", "uc-third"}));
  delete scene.root();
  EXPECT_TRUE(item.isNull());
}

// A strip of 100 image cards paged from end to end: every card reports its impression
// exactly once, and becomes viewable once, as the shopper passes it.
TEST(CarouselViews, AHundredCardStripPagedEndToEndReportsEachImpressionOnce) {
  SandboxFixture& fixture = SandboxFixture::shared();
  fixture.reset();
  Scene scene(700, 500);
  std::vector<BannerAd> ads;
  for (int i = 0; i < 100; ++i) {
    BannerAd ad = decodeBannerAd(fixture.adJson("au_multi", i % 2 == 0 ? 0 : 2).toStdString());
    ad.uclid = "uc-strip-" + std::to_string(i);
    ads.push_back(ad);
  }
  std::map<std::string, int> viewable;
  MultiAdCarouselSettings settings{};
  settings.width = 300;
  settings.adViewable = [&](const BannerAd& seen) { ++viewable[seen.uclid]; };
  QQuickItem* strip =
      quick::views(TAVIK::shared()).multiAdCarouselView()->showAd(ads, settings, scene.root());
  ASSERT_TRUE(strip);
  for (int i = 1; i < 100; ++i) {
    QMetaObject::invokeMethod(strip, "step", Q_ARG(int, 1));
    spinUntil([] { return false; }, i % 25 == 0 ? 1400 : 60);  // now and then, a rest
  }
  EXPECT_EQ(strip->property("currentIndex").toInt(), 99);
  spinUntil([] { return false; }, 1200);
  // And back to the start: nothing new.
  for (int i = 0; i < 99; ++i) {
    QMetaObject::invokeMethod(strip, "step", Q_ARG(int, -1));
    spinUntil([] { return false; }, 20);
  }
  spinUntil([] { return false; }, 400);
  spinUntil([] {  // every request ended
    const auto stats = transport::stats();
    return stats.requestsFinished == stats.requestsStarted;
  });
  std::map<std::string, int> impressions;
  for (const auto& event : fixture.env().server().eventLog()) {
    if (event["path"] == "/events" &&
        event["params"].value("event_name", "") == "funnel_impression")
      ++impressions[event["params"].value("uclid", "")];
  }
  ASSERT_EQ(impressions.size(), 100u);
  for (const auto& [uclid, count] : impressions) EXPECT_EQ(count, 1) << uclid;
  // The cards the strip rested on for a second became viewable, each once.
  for (int i = 25; i < 100; i += 25) EXPECT_EQ(viewable["uc-strip-" + std::to_string(i)], 1) << i;
  for (const auto& [uclid, count] : viewable) EXPECT_EQ(count, 1) << uclid;
}

}  // namespace
}  // namespace tavik::test
