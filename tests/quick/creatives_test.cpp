// The creative pipeline against the sandbox over real HTTPS: one download per creative
// address whatever the number of views, the download cancelled with its last view,
// events never queued behind creatives, preloading, and the disk cache of videos.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QImage>
#include <QProcess>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickView>
#include <QQuickWindow>
#include <QSGRendererInterface>
#include <QTemporaryDir>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <vector>

#include "support/sandbox_fixture.h"
#include "support/scene.h"
#include "tavik/events/register_event.h"
#include "tavik/network/transport.h"
#include "tavik/views/creatives.h"
#include "tavik/views/views.h"
#include "video/qt_media_player.h"
#include "views/creative_disk_cache.h"
#include "views/creative_store.h"

namespace tavik::test {
namespace {

using namespace std::chrono_literals;

sandbox::Sandbox& server() {
  return SandboxFixture::shared().env().server();
}

BannerAd catalogueAd(const char* unit, const std::string& creative) {
  BannerAd ad = decodeBannerAd(SandboxFixture::shared().adJson(unit).toStdString());
  ad.elements.value = SandboxFixture::shared().env().base() + creative;
  return ad;
}

// Every test gets its own, empty disk cache and a sandbox at full speed.
class Creatives : public ::testing::Test {
 protected:
  void SetUp() override {
    SandboxFixture::shared().reset();
    server().setMediaPace(0ms);
    ASSERT_TRUE(cacheDir.isValid());
    quick::configureCreativeCache({64 * 1024 * 1024, cacheDir.path().toStdString()});
  }
  void TearDown() override { server().setMediaPace(0ms); }

  std::size_t mediaRequests(const std::string& path) { return server().requests(path).size(); }

  QTemporaryDir cacheDir;
};

TEST_F(Creatives, TwentyFiveVideoViewsMakeOneDownloadThatGoesWithTheLastOfThem) {
  // Slow enough that the file cannot arrive while the views exist.
  server().setMediaPace(200ms, 1024);
  const std::string path = "/media/video_320x180.mp4";
  const BannerAd ad = catalogueAd("au_video_banner", path);
  const auto before = transport::stats();
  const auto storeBefore = quick::detail::creativeStoreStats();
  Scene scene(400, 800);
  auto manager = quick::views(TAVIK::shared()).bannerAdView();
  ASSERT_TRUE(manager);
  std::vector<QQuickItem*> items;
  for (int i = 0; i < 25; ++i) {
    QQuickItem* item = manager->showAd(ad, {}, scene.root());
    ASSERT_TRUE(item);
    items.push_back(item);
  }
  ASSERT_TRUE(spinUntil([&] { return mediaRequests(path) >= 1; })) << "no view asked for it";
  spinUntil([] { return false; }, 500);  // time for a second request, if one were made
  EXPECT_EQ(mediaRequests(path), 1u);
  EXPECT_EQ(quick::detail::creativeStoreStats().downloads - storeBefore.downloads, 1u);

  for (QQuickItem* item : items) delete item;
  // The transfer stops: the transport counts it, the sandbox sees its client go.
  EXPECT_TRUE(spinUntil([&] {
    return transport::stats().requestsCancelled == before.requestsCancelled + 1 &&
           server().mediaAnswersCut() >= 1;
  })) << "cancelled "
      << transport::stats().requestsCancelled - before.requestsCancelled << ", answers cut "
      << server().mediaAnswersCut();
  EXPECT_EQ(quick::detail::creativeStoreStats().cancelled - storeBefore.cancelled, 1u);
  // None finishes later: nothing is written to the disk cache, nothing more is asked.
  spinUntil([] { return false; }, 1000);
  EXPECT_EQ(mediaRequests(path), 1u);
  EXPECT_EQ(quick::detail::CreativeDiskCache::instance().stats().files, 0u);

  // A later view starts it again, and this time it arrives.
  server().setMediaPace(0ms);
  QQuickItem* again = manager->showAd(ad, {}, scene.root());
  ASSERT_TRUE(again);
  EXPECT_TRUE(
      spinUntil([&] { return quick::detail::CreativeDiskCache::instance().stats().files == 1; }));
  EXPECT_EQ(mediaRequests(path), 2u);
  delete again;
}

TEST_F(Creatives, ViewsOfOneImageShareOneDownloadAndADroppedHoldKeepsItForTheOthers) {
  server().setMediaPace(100ms, 1024);
  const std::string url = SandboxFixture::shared().env().base() + "/media/rect_300x250.png";
  auto first = quick::detail::holdCreativeBytes(url);
  auto second = quick::detail::holdCreativeBytes(url);
  const auto before = transport::stats();
  first.reset();  // another holder still wants it: it goes on
  server().setMediaPace(0ms);
  const quick::detail::Bytes bytes = second.future().get();
  ASSERT_TRUE(bytes);
  EXPECT_FALSE(QImage::fromData(QByteArray::fromStdString(*bytes)).isNull());
  EXPECT_EQ(mediaRequests("/media/rect_300x250.png"), 1u);
  EXPECT_EQ(transport::stats().requestsCancelled, before.requestsCancelled);
}

TEST_F(Creatives, AnImpressionPassesADozenCreativesInTransferToTheSameHost) {
  // A dozen slow creatives of the sandbox's own host, every one in transfer for seconds.
  server().setMediaPace(300ms, 512);
  std::vector<quick::detail::CreativeHold<quick::detail::Bytes>> holds;
  const std::string base = SandboxFixture::shared().env().base();
  for (int i = 0; i < 12; ++i) {
    holds.push_back(quick::detail::holdCreativeBytes(
        base + "/media/rect_300x250.png?creative=" + std::to_string(i)));
  }
  ASSERT_TRUE(spinUntil([&] { return mediaRequests("/media/rect_300x250.png") >= 3; }));
  spinUntil([] { return false; }, 300);  // every connection the media may take is taken

  const auto sent = std::chrono::system_clock::now();
  auto events = TAVIK::shared().registerEvent();
  ASSERT_TRUE(events);
  events->registerAdImpressionEvent("shopper-1", "uc-behind-creatives");
  std::int64_t arrived = 0;
  ASSERT_TRUE(spinUntil(
      [&] {
        for (const auto& entry : server().eventLog()) {
          if (entry["params"].value("uclid", "") == "uc-behind-creatives") {
            arrived = entry["time_ms"].get<std::int64_t>();
          }
        }
        return arrived != 0;
      },
      10000));
  const auto sentMs =
      std::chrono::duration_cast<std::chrono::milliseconds>(sent.time_since_epoch()).count();
  EXPECT_LT(arrived - sentMs, 1000) << "the impression waited behind the creatives";
  // The creatives were still in transfer when it arrived.
  EXPECT_FALSE(holds.front().future().is_ready());
  holds.clear();  // cancels them
}

// The interstitial's creative is drawn in the frame right after showAd when it was
// preloaded; without the preload that frame still lacks it.
TEST_F(Creatives, APreloadedInterstitialHoldsItsCreativeInItsFirstFrame) {
  QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
  const std::string base = SandboxFixture::shared().env().base();
  QImage creative = QImage::fromData(QByteArray::fromStdString(
      *quick::detail::holdCreativeBytes(base + "/media/interstitial_320x480.png").future().get()));
  ASSERT_FALSE(creative.isNull());
  const QRgb expected = creative.pixel(creative.width() / 2, creative.height() / 2);
  auto near = [](QRgb a, QRgb b) {
    return std::abs(qRed(a) - qRed(b)) < 40 && std::abs(qGreen(a) - qGreen(b)) < 40 &&
           std::abs(qBlue(a) - qBlue(b)) < 40;
  };
  InterstitialAdSettings settings;
  settings.width = 320;
  settings.height = 480;
  auto centreAfterShow = [&](const BannerAd& ad) {
    Scene scene(400, 800);
    scene.view.requestActivate();  // the key window, which the interstitial goes over
    auto manager = quick::views(TAVIK::shared()).interstitialAdView();
    manager->showAd(ad, settings);
    const QImage frame = scene.view.grabWindow();  // the first frame, nothing spun since
    return frame.pixel(frame.width() / 2, frame.height() / 2);
  };

  // Addresses of their own: neither is in memory or in Qt's pixmap cache yet.
  const BannerAd cold = catalogueAd("au_interstitial", "/media/interstitial_320x480.png?cold");
  EXPECT_FALSE(near(centreAfterShow(cold), expected)) << "the control drew the creative at once";

  const BannerAd warm = catalogueAd("au_interstitial", "/media/interstitial_320x480.png?warm");
  auto manager = quick::views(TAVIK::shared()).interstitialAdView();
  Future<bool> preloaded = manager->preload(warm);
  ASSERT_TRUE(spinUntil([&] { return preloaded.is_ready(); }));
  EXPECT_TRUE(preloaded.get());
  const QRgb shown = centreAfterShow(warm);
  EXPECT_TRUE(near(shown, expected)) << std::hex << shown << " instead of " << expected;
}

TEST_F(Creatives, APreloadIsWantedUntilDroppedThenItsDownloadIsCancelled) {
  server().setMediaPace(200ms, 1024);
  const BannerAd ad = catalogueAd("au_video_banner", "/media/video_320x180.mp4?preload");
  const auto before = transport::stats();
  Future<bool> preloaded = quick::preloadCreative(ad);
  ASSERT_TRUE(spinUntil([&] { return mediaRequests("/media/video_320x180.mp4") == 1; }));
  EXPECT_FALSE(preloaded.is_ready());
  quick::dropPreloadedCreative(ad);
  ASSERT_TRUE(spinUntil([&] { return preloaded.is_ready(); }));
  EXPECT_THROW(preloaded.get(), TransportError);  // reported once, as cancelled
  EXPECT_EQ(transport::stats().requestsCancelled, before.requestsCancelled + 1);

  // An ad without an image or video creative has nothing to load.
  BannerAd carousel = ad;
  carousel.crt = "tavik_sdk/carousel/v1";
  EXPECT_FALSE(quick::preloadCreative(carousel).get());
}

TEST_F(Creatives, APreloadedPictureInPicturePlaysItsVideoFromDiskWithoutAnotherRequest) {
  const std::string path = "/media/video_320x180.mp4";
  const BannerAd ad = catalogueAd("au_pip", path + "?pip");
  Scene scene(400, 800);
  scene.view.requestActivate();
  auto manager = quick::views(TAVIK::shared()).pipAdView();
  ASSERT_TRUE(manager);
  EXPECT_FALSE(
      manager->preload(catalogueAd("au_interstitial", "/media/interstitial_320x480.png")).get())
      << "the picture in picture shows video only";
  Future<bool> preloaded = manager->preload(ad);
  ASSERT_TRUE(spinUntil([&] { return preloaded.is_ready(); }));
  EXPECT_TRUE(preloaded.get());
  EXPECT_EQ(mediaRequests(path), 1u);
  EXPECT_EQ(quick::detail::CreativeDiskCache::instance().stats().files, 1u);

  const auto before = quick::detail::creativeStoreStats();
  manager->showAd(ad, {});
  // The panel's player asks the store for the file, which comes from disk.
  ASSERT_TRUE(spinUntil(
      [&] { return quick::detail::creativeStoreStats().downloads == before.downloads + 1; }));
  spinUntil([] { return false; }, 300);
  EXPECT_EQ(mediaRequests(path), 1u);
}

// ---- the disk cache

// Run as a child process by the test below (disabled, so it is no test case of its own):
// plays the video through the SDK's player, with the cache folder and the sandbox of the
// parent.
TEST(CreativeCacheChild, DISABLED_PlaysTheVideo) {
  const char* base = std::getenv("TAVIK_CHILD_BASE");
  if (!base) GTEST_SKIP() << "run by Creatives.ASecondProcessPlaysTheVideoFromDisk";
  transport::trustCaBundle(std::getenv("TAVIK_CHILD_CERT"));
  quick::configureCreativeCache({64 * 1024 * 1024, std::getenv("TAVIK_CHILD_CACHE")});
  quick::QtMediaPlayer player;
  player.setSource(QUrl(QString::fromUtf8(base) + QStringLiteral("/media/video_320x180.mp4")));
  ASSERT_TRUE(spinUntil([&] { return player.status() != MediaPlayer::Status::unknown; }, 20000));
  ASSERT_EQ(player.status(), MediaPlayer::Status::readyToPlay)
      << player.errorString().toStdString();
  std::printf("damaged=%zu\n", quick::detail::CreativeDiskCache::instance().stats().damagedRemoved);
}

TEST_F(Creatives, ASecondProcessPlaysTheVideoFromDiskAndATruncatedCopyIsFetchedAgain) {
  const std::string path = "/media/video_320x180.mp4";
  auto runChild = [&]() -> std::string {
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("TAVIK_CHILD_BASE"),
                       QString::fromStdString(SandboxFixture::shared().env().base()));
    environment.insert(QStringLiteral("TAVIK_CHILD_CERT"),
                       QString::fromStdString(server().certPath()));
    environment.insert(QStringLiteral("TAVIK_CHILD_CACHE"), cacheDir.path());
    child.setProcessEnvironment(environment);
    child.start(QCoreApplication::applicationFilePath(),
                {QStringLiteral("--gtest_also_run_disabled_tests"),
                 QStringLiteral("--gtest_filter=CreativeCacheChild.DISABLED_PlaysTheVideo")});
    EXPECT_TRUE(child.waitForFinished(60000));
    const std::string out = child.readAllStandardOutput().toStdString();
    EXPECT_EQ(child.exitCode(), 0) << out << child.readAllStandardError().toStdString();
    EXPECT_NE(out.find("[  PASSED  ] 1 test"), std::string::npos) << out;
    return out;
  };
  runChild();
  EXPECT_EQ(mediaRequests(path), 1u);
  const std::filesystem::path file =
      std::filesystem::path(cacheDir.path().toStdString()) /
      quick::detail::CreativeDiskCache::fileNameFor(SandboxFixture::shared().env().base() + path);
  ASSERT_TRUE(std::filesystem::exists(file));
  const auto size = std::filesystem::file_size(file);

  // A new process: played from disk, nothing asked.
  const std::string second = runChild();
  EXPECT_EQ(mediaRequests(path), 1u);
  EXPECT_NE(second.find("damaged=0"), std::string::npos) << second;

  // Cut short, as by a crash mid-write on a system without atomic renames: detected,
  // removed, fetched again, whole.
  std::filesystem::resize_file(file, size / 2);
  const std::string third = runChild();
  EXPECT_EQ(mediaRequests(path), 2u);
  EXPECT_NE(third.find("damaged=1"), std::string::npos) << third;
  EXPECT_EQ(std::filesystem::file_size(file), size);
}

TEST_F(Creatives, OverTheCapTheLeastRecentlyUsedVideoGoes) {
  const std::string base = SandboxFixture::shared().env().base();
  auto url = [&](int n) { return base + "/media/video_320x180.mp4?n=" + std::to_string(n); };
  auto fetch = [&](int n) { return quick::detail::holdCreativeFile(url(n)).future().get(); };
  const std::string first = fetch(1);
  const auto size = std::filesystem::file_size(first);
  // Room for two and a half.
  quick::configureCreativeCache({size * 5 / 2, cacheDir.path().toStdString()});
  const std::string second = fetch(2);
  EXPECT_EQ(fetch(1), first);  // used again: now the most recent; no request
  EXPECT_EQ(mediaRequests("/media/video_320x180.mp4"), 2u);
  const std::string third = fetch(3);
  EXPECT_TRUE(std::filesystem::exists(first));
  EXPECT_FALSE(std::filesystem::exists(second)) << "the least recently used stayed";
  EXPECT_TRUE(std::filesystem::exists(third));
  EXPECT_EQ(quick::detail::CreativeDiskCache::instance().stats().files, 2u);
  EXPECT_LE(quick::detail::CreativeDiskCache::instance().stats().bytes, size * 5 / 2);

  // A shrunken cap applies at once.
  quick::configureCreativeCache({size, cacheDir.path().toStdString()});
  EXPECT_EQ(quick::detail::CreativeDiskCache::instance().stats().files, 1u);
  EXPECT_FALSE(std::filesystem::exists(first));
}

}  // namespace
}  // namespace tavik::test
