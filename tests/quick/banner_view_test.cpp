// The banner manager as a C++ host uses it: accessors, showAd into a live Quick scene,
// callbacks, events on the sandbox's log, ownership, and failures that stay silent.
#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QImage>
#include <QPointer>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickView>
#include <thread>

#include "support/sandbox_fixture.h"
#include "support/scene.h"
#include "tavik/ads/ad_models.h"
#include "tavik/core/log.h"
#include "tavik/views/views.h"
#include "views/creative_store.h"
#include "views/view_logic.h"

namespace tavik::test {
namespace {

BannerAd catalogueAd(const char* unit, int index = 0) {
  return decodeBannerAd(SandboxFixture::shared().adJson(unit, index).toStdString());
}

TEST(BannerViews, AccessorsFollowTheConfiguration) {
  SandboxFixture& fixture = SandboxFixture::shared();
  const TAVIK sdk = fixture.env().sdk();
  auto first = quick::views(sdk).bannerAdView();
  auto second = quick::views(sdk).bannerAdView();
  ASSERT_TRUE(first);
  EXPECT_NE(first.get(), second.get());
  EXPECT_FALSE(quick::views(fixture.env().sdk(false, "")).bannerAdView());
}

TEST(BannerViews, ShowAdPlacesTheBannerReportsOnceAndCallsTheHost) {
  SandboxFixture& fixture = SandboxFixture::shared();
  fixture.reset();
  Scene scene;
  ASSERT_TRUE(scene.root());
  const std::thread::id uiThread = std::this_thread::get_id();
  int appeared = 0;
  std::vector<std::string> clicked;
  BannerAdSettings settings{};
  settings.width = 300;
  settings.adLabelText = "Sponsored";
  settings.adAppear = [&](const BannerAd& ad) {
    EXPECT_EQ(std::this_thread::get_id(), uiThread);
    EXPECT_EQ(ad.uclid, "uc-home-banner-1");
    ++appeared;
  };
  settings.adClicked = [&](const BannerAd& ad) {
    EXPECT_EQ(std::this_thread::get_id(), uiThread);
    clicked.push_back(ad.elements.destinationUrl.value_or(""));
  };
  auto manager = quick::views(TAVIK::shared()).bannerAdView();
  QQuickItem* item = manager->showAd(catalogueAd("au_home_banner"), settings, scene.root());
  ASSERT_TRUE(item);
  EXPECT_EQ(item->parentItem(), scene.root());
  EXPECT_EQ(item->parent(), scene.root());
  EXPECT_DOUBLE_EQ(item->width(), 300);
  EXPECT_DOUBLE_EQ(item->height(), 50);
  ASSERT_TRUE(spinUntil([&] { return appeared == 1; }));

  QMetaObject::invokeMethod(item, "tap");
  QMetaObject::invokeMethod(item, "tap");
  EXPECT_EQ(clicked, (std::vector<std::string>{"https://shop.example.com/deals/summer",
                                               "https://shop.example.com/deals/summer"}));
  ASSERT_TRUE(fixture.env().server().waitForEvents(3, std::chrono::seconds(5)));
  spinUntil([] { return false; }, 200);
  // The impression and the clicks travel as separate requests, so the log
  // holds them in arrival order, not in the order they were made.
  const auto log = fixture.env().server().eventLog();
  ASSERT_EQ(log.size(), 3u);
  std::vector<nlohmann::json> impressions, clicks;
  for (const auto& entry : log)
    (entry["path"] == "/events" ? impressions : clicks).push_back(entry);
  ASSERT_EQ(impressions.size(), 1u);
  EXPECT_EQ(impressions[0]["params"]["event_name"], "funnel_impression");
  EXPECT_EQ(impressions[0]["params"]["uclid"], "uc-home-banner-1");
  EXPECT_EQ(impressions[0]["params"]["client_id"], "client-1");
  EXPECT_FALSE(impressions[0]["params"].contains("position"));
  ASSERT_EQ(clicks.size(), 2u);
  for (const auto& click : clicks) {
    EXPECT_EQ(click["path"], "/aclick");
    EXPECT_EQ(click["params"]["uclid"], "uc-home-banner-1");
    EXPECT_EQ(click["params"]["cli_ubid"], "");
  }

  // The parent owns the view: it goes with it.
  QPointer<QQuickItem> watched(item);
  delete scene.root();
  EXPECT_TRUE(watched.isNull());
}

// With the impression counted on viewability, the impression waits for a continuous
// second on screen; the event is the same as ever. Off (the default), it goes at the
// first appearance.
TEST(BannerViews, TheImpressionOnViewableSwitchMovesOnlyItsMoment) {
  SandboxFixture& fixture = SandboxFixture::shared();
  fixture.reset();
  Scene scene;
  auto impressions = [&] {
    std::vector<nlohmann::json> found;
    for (const auto& event : fixture.env().server().eventLog()) {
      if (event["path"] == "/events" &&
          event["params"].value("event_name", "") == "funnel_impression")
        found.push_back(event);
    }
    return found;
  };
  Config config = fixture.env().config();
  config.impressionOnViewable = true;
  BannerAdViewManager manager(config);
  QElapsedTimer clock;
  qint64 appearedAt = -1, viewableAt = -1;
  BannerAdSettings settings;
  settings.adAppear = [&](const BannerAd&) {
    if (appearedAt < 0) appearedAt = clock.elapsed();
  };
  settings.adViewable = [&](const BannerAd&) { viewableAt = clock.elapsed(); };
  clock.start();
  QQuickItem* item = manager.showAd(catalogueAd("au_home_banner"), settings, scene.root());
  ASSERT_TRUE(item);
  ASSERT_TRUE(spinUntil([&] { return appearedAt >= 0; }));
  EXPECT_DOUBLE_EQ(item->property("visibleFraction").toDouble(), 1);
  spinUntil([] { return false; }, 600);
  EXPECT_TRUE(impressions().empty()) << "the impression went before the ad was viewable";
  EXPECT_FALSE(item->property("impressionReported").toBool());
  ASSERT_TRUE(spinUntil([&] { return viewableAt >= 0; }, 3000));
  EXPECT_GE(viewableAt - appearedAt, 990);
  EXPECT_TRUE(item->property("impressionReported").toBool());
  ASSERT_TRUE(spinUntil([&] { return impressions().size() == 1; }));
  const auto impression = impressions()[0];
  EXPECT_EQ(impression["params"]["uclid"], "uc-home-banner-1");
  EXPECT_EQ(impression["params"]["event_name"], "funnel_impression");
  delete item;

  // The default: at the first appearance, long before the second is up.
  fixture.reset();
  BannerAdViewManager plain(fixture.env().config());
  appearedAt = viewableAt = -1;
  clock.restart();
  item = plain.showAd(catalogueAd("au_home_banner"), settings, scene.root());
  ASSERT_TRUE(spinUntil([&] { return appearedAt >= 0; }));
  EXPECT_TRUE(item->property("impressionReported").toBool());
  EXPECT_LT(viewableAt, 0);
  ASSERT_TRUE(spinUntil([&] { return impressions().size() == 1; }));
  ASSERT_TRUE(spinUntil([&] { return viewableAt >= 0; }, 3000));  // viewability still told
  delete item;
}

TEST(BannerViews, WithoutAnEngineOrParentNothingIsMadeAndOnlyDebugSaysWhy) {
  std::vector<std::string> lines;
  setLogSink([&](std::string_view line) { lines.emplace_back(line); });
  Config config = SandboxFixture::shared().env().config();
  config.debug = false;
  BannerAdViewManager quiet(config);
  EXPECT_EQ(quiet.showAd(catalogueAd("au_home_banner"), {}, nullptr), nullptr);
  QQuickItem orphan;
  EXPECT_EQ(quiet.showAd(catalogueAd("au_home_banner"), {}, &orphan), nullptr);
  EXPECT_TRUE(lines.empty()) << lines.front();

  config.debug = true;
  BannerAdViewManager talking(config);
  EXPECT_EQ(talking.showAd(catalogueAd("au_home_banner"), {}, &orphan), nullptr);
  setLogSink(nullptr);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].rfind("\"TAVIK: - BannerAdView: ", 0), 0u) << lines[0];
}

// A size the host set is used as it is, 0 included (below 0 counts as 0); only an
// absent one falls back to the creative's. Banner, multi-ad cards and carousel agree.
TEST(BannerViews, AHostSizeOfZeroIsASize) {
  SandboxFixture::shared();  // installs the SDK
  Scene scene;
  auto views = quick::views(TAVIK::shared());
  BannerAdSettings banner;
  banner.width = 0;
  banner.height = -4;
  QQuickItem* zero =
      views.bannerAdView()->showAd(catalogueAd("au_home_banner"), banner, scene.root());
  ASSERT_TRUE(zero);
  EXPECT_DOUBLE_EQ(zero->property("frameWidth").toDouble(), 0);
  EXPECT_DOUBLE_EQ(zero->property("frameHeight").toDouble(), 0);
  QQuickItem* own = views.bannerAdView()->showAd(catalogueAd("au_home_banner"), {}, scene.root());
  EXPECT_DOUBLE_EQ(own->property("frameWidth").toDouble(), 320);  // the creative's 320 x 50
  EXPECT_DOUBLE_EQ(own->property("frameHeight").toDouble(), 50);

  MultiAdCarouselSettings strip;
  strip.elementWidth = 0;
  QQuickItem* multi = views.multiAdCarouselView()->showAd(
      {catalogueAd("au_multi", 0), catalogueAd("au_multi", 2)}, strip, scene.root());
  ASSERT_TRUE(multi);
  EXPECT_DOUBLE_EQ(multi->property("cardWidth").toDouble(), 0);
  // List delegates are children of the list's items, made once the strip is polished.
  std::function<QQuickItem*(QQuickItem*)> find = [&](QQuickItem* item) -> QQuickItem* {
    if (item->objectName() == QLatin1String("card0")) return item;
    for (QQuickItem* child : item->childItems()) {
      if (QQuickItem* found = find(child)) return found;
    }
    return nullptr;
  };
  QQuickItem* card = nullptr;
  ASSERT_TRUE(spinUntil([&] { return (card = find(multi)) != nullptr; }));
  EXPECT_DOUBLE_EQ(card->property("frameWidth").toDouble(), 0);

  CarouselAdSettings carousel;
  carousel.elementWidth = 0;
  carousel.height = -1;
  const CarouselAd carouselAd =
      decodeCarouselAd(SandboxFixture::shared().adJson("au_carousel").toStdString());
  QQuickItem* cards = views.carouselAdView()->showAd(carouselAd, carousel, scene.root());
  ASSERT_TRUE(cards);
  EXPECT_DOUBLE_EQ(cards->property("cardWidth").toDouble(), 0);
  EXPECT_DOUBLE_EQ(cards->property("stripHeight").toDouble(), 0);
}

TEST(BannerViews, ACreativeThatFailsLeavesTheFrameEmpty) {
  SandboxFixture& fixture = SandboxFixture::shared();
  fixture.env().server().script("/media/missing.png", reply(404, "{}"));
  BannerAd ad = catalogueAd("au_home_banner");
  ad.elements.value = fixture.env().base() + "/media/missing.png";
  Scene scene;
  BannerAdViewManager manager(fixture.env().config());
  QQuickItem* item = manager.showAd(ad, {}, scene.root());
  ASSERT_TRUE(item);
  ASSERT_TRUE(spinUntil([&] { return item->property("pictureStatus").toInt() == 3; }));  // Error
  EXPECT_DOUBLE_EQ(item->width(), 320);  // the frame stays; nothing is drawn in it
  EXPECT_EQ(quick::detail::creativeStoreStats().cachedBytes, 0u);
}

TEST(BannerViews, CreativesComeThroughTheTransportAndTheCache) {
  SandboxFixture& fixture = SandboxFixture::shared();
  fixture.reset();
  const std::string url = fixture.env().base() + "/media/banner_320x50.png";
  auto bytes = quick::detail::holdCreativeBytes(url).future().get();
  ASSERT_TRUE(bytes);
  EXPECT_FALSE(QImage::fromData(QByteArray::fromStdString(*bytes)).isNull());
  auto again = quick::detail::holdCreativeBytes(url).future().get();
  EXPECT_EQ(again.get(), bytes.get());  // answered from memory
  EXPECT_EQ(fixture.env().server().requests("/media/banner_320x50.png").size(), 1u);
  // http is refused before anything is sent, like every request of the SDK.
  EXPECT_THROW(quick::detail::holdCreativeBytes("http://127.0.0.1:1/x.png").future().get(),
               TavikError);
  const std::string path =
      quick::detail::holdCreativeFile(fixture.env().base() + "/media/video_320x180.mp4")
          .future()
          .get();
  EXPECT_GT(std::filesystem::file_size(path), 1000u);
}

TEST(BannerViews, EveryControlSymbolHasAnIcon) {
  SandboxFixture::shared();
  for (auto symbol : {quick::kCloseSymbol, quick::kEnterFullScreenSymbol,
                      quick::kExitFullScreenSymbol, quick::kMutedSymbol, quick::kSoundOnSymbol}) {
    const QString path = QStringLiteral(":/qt/qml/Tavik/icons/") +
                         QString::fromLatin1(symbol.data(), symbol.size()) + ".svg";
    const QImage icon(path);
    EXPECT_FALSE(icon.isNull()) << path.toStdString();
  }
}

}  // namespace
}  // namespace tavik::test
