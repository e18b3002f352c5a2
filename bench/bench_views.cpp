// What the Qt Quick views cost a host, against plain Qt Quick items showing the same
// pictures, measured side by side in one process and one window:
//   1. a banner from a decoded ad (creative already cached), created and drawn to its
//      first frame, against a plain Image of the same picture;
//   2. the UI-thread time of every SDK entry point a view runs there (showAd, an
//      appearance, a tap, a mute toggle, a paging step): median, 99th percentile, worst;
//   3. flicking a 100-card multi-ad carousel: CPU time per frame against a plain ListView
//      of 100 Image cards with the same pictures;
//   4. memory: create-and-destroy cycles of each view type (resident-set growth after the
//      first 100), and the memory of a live banner against a live Image.
//
// The sandbox runs as a child process, so its work is not counted as the host's. Frames
// are rendered on the UI thread (the "basic" render loop), so a frame's cost is seen by
// the thread that pays for it. bench/views.sh builds and runs this under Xvfb; it never
// fails on a figure, it prints each with its target and whether it was met.
//
//   tavik_bench_views [--cycles N] [--flick-seconds S]
#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include <QElapsedTimer>
#include <QGuiApplication>
#include <QProcess>
#include <QQmlComponent>
#include <QQmlContext>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickView>
#include <QTemporaryDir>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "tavik/network/transport.h"
#include "tavik/tavik.h"
#include "tavik/video/video_player_manager.h"
#include "tavik/views/qml_records.h"
#include "tavik/views/views.h"
#include "views/appearance.h"

using namespace tavik;

namespace {

bool spinUntil(const std::function<bool()>& done, int timeoutMs = 10000) {
  QElapsedTimer clock;
  clock.start();
  while (!done()) {
    if (clock.elapsed() > timeoutMs) return false;
    QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
  }
  return true;
}

void drain(int ms = 50) {
  spinUntil([] { return false; }, ms);
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

double cpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec +
         (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

double rssMiB() {
  std::ifstream statm("/proc/self/statm");
  long pages = 0, resident = 0;
  statm >> pages >> resident;
  return resident * (double(sysconf(_SC_PAGESIZE)) / (1024.0 * 1024.0));
}

double percentile(std::vector<double> values, double p) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  const std::size_t index = std::min(values.size() - 1, std::size_t(p * (values.size() - 1) + 0.5));
  return values[index];
}

void verdict(const char* figure, double value, double target, const char* unit) {
  std::printf("%-58s %10.3f %-4s target <= %.3f: %s\n", figure, value, unit, target,
              value <= target ? "met" : "MISSED");
}

// The sandbox as a child process on a free loopback port.
class SandboxProcess {
 public:
  bool start() {
    process_.setProgram(QStringLiteral(TAVIK_SANDBOX_PROGRAM));
    process_.setArguments({"--quiet", "--cert-out", dir_.filePath("ca.pem")});
    process_.start();
    if (!process_.waitForReadyRead(10000)) return false;
    base_ = QString::fromUtf8(process_.readLine()).trimmed();
    return base_.startsWith("https://");
  }
  ~SandboxProcess() {
    process_.terminate();
    process_.waitForFinished(3000);
  }
  std::string host() const { return base_.mid(8).toStdString(); }
  std::string ca() const { return dir_.filePath("ca.pem").toStdString(); }

 private:
  QTemporaryDir dir_;
  QProcess process_;
  QString base_;
};

// One window for everything; frames are counted as they are swapped.
class Stage {
 public:
  Stage() {
    view_.engine()->addImportPath(QStringLiteral(TAVIK_QML_DIR));
    view_.setSource(QUrl(QStringLiteral("data:text/plain,import QtQuick%0AItem {}")));
    view_.setResizeMode(QQuickView::SizeRootObjectToView);
    view_.setColor(Qt::white);
    view_.resize(480, 800);
    view_.show();
    view_.requestActivate();
    QObject::connect(&view_, &QQuickWindow::frameSwapped, [this] { ++frames_; });
    spinUntil([&] { return view_.isExposed() && frames_ > 0; });
  }

  QQuickItem* root() { return view_.rootObject(); }
  QQuickView& view() { return view_; }
  long frames() const { return frames_; }
  // Waits for a frame drawn after now.
  bool nextFrame() {
    const long seen = frames_;
    view_.update();
    return spinUntil([&] { return frames_ > seen; }, 5000);
  }

  QQuickItem* create(const QString& qml, const QVariantMap& properties = {}) {
    auto component = std::make_unique<QQmlComponent>(view_.engine());
    component->setData(qml.toUtf8(), QUrl());
    QObject* object = component->createWithInitialProperties(properties);
    auto* item = qobject_cast<QQuickItem*>(object);
    if (!item) {
      std::cerr << component->errorString().toStdString() << "\n";
      std::exit(1);
    }
    item->setParentItem(root());
    item->setParent(root());
    return item;
  }

 private:
  QQuickView view_;
  long frames_ = 0;
};

bool imagesReady(QQuickItem* item) {
  QList<QQuickItem*> items = item->findChildren<QQuickItem*>();
  items.append(item);
  for (QQuickItem* child : items) {
    if (child->inherits("QQuickImageBase") && !child->property("source").toUrl().isEmpty() &&
        child->property("status").toInt() != 1) {
      return false;
    }
  }
  return true;
}

const char* const kBannerQml = "import Tavik\nBannerAdView {}";
const char* const kImageQml = "import QtQuick\nImage {}";
const char* const kMultiQml =
    "import Tavik\nMultiAdCarouselView { adWidth: 320; elementWidth: 300 }";

// 1. Created and drawn to the first frame, creative cached: median of `rounds`.
double createToFirstFrameMs(Stage& stage, const QString& qml, const QVariantMap& properties,
                            int rounds) {
  std::vector<double> samples;
  for (int i = 0; i < rounds + 10; ++i) {
    QElapsedTimer clock;
    clock.start();
    QQuickItem* item = stage.create(qml, properties);
    spinUntil([&] { return imagesReady(item); });
    stage.nextFrame();
    const double ms = clock.nsecsElapsed() / 1e6;
    if (i >= 10) samples.push_back(ms);  // the first rounds warm Qt's caches
    delete item;
    stage.nextFrame();
  }
  return percentile(samples, 0.5);
}

struct Timing {
  std::vector<double> us;
  void time(const std::function<void()>& call) {
    QElapsedTimer clock;
    clock.start();
    call();
    us.push_back(clock.nsecsElapsed() / 1e3);
  }
  void print(const char* name) const {
    std::printf("  %-30s p50 %8.1f us   p99 %8.1f us   max %8.1f us   (%zu calls)\n", name,
                percentile(us, 0.5), percentile(us, 0.99), percentile(us, 1.0), us.size());
  }
};

QVariantList qmlAds(const std::vector<BannerAd>& ads) {
  QVariantList list;
  for (const auto& ad : ads) list.append(QVariant::fromValue(quick::QmlBannerAd(ad)));
  return list;
}

// 3. CPU per frame while the strip moves by `step` pixels a frame for `seconds`.
double cpuPerFrameMs(Stage& stage, const std::function<void(int)>& moveTo, double seconds) {
  // Warm-up: one pass so every delegate type and picture has been made once.
  for (int frame = 0; frame < 120; ++frame) {
    moveTo(frame);
    stage.nextFrame();
  }
  const long frames0 = stage.frames();
  const double cpu0 = cpuSeconds();
  QElapsedTimer clock;
  clock.start();
  int frame = 0;
  while (clock.elapsed() < seconds * 1000) {
    moveTo(frame++);
    stage.nextFrame();
  }
  const long frames = stage.frames() - frames0;
  return (cpuSeconds() - cpu0) * 1000.0 / std::max(1L, frames);
}

}  // namespace

int main(int argc, char** argv) {
  qputenv("QSG_RENDER_LOOP", "basic");
  QGuiApplication app(argc, argv);
  const QStringList args = app.arguments();
  auto option = [&](const char* name, int fallback) {
    const int at = args.indexOf(name);
    return at > 0 && at + 1 < args.size() ? args[at + 1].toInt() : fallback;
  };
  const int cycles = option("--cycles", 1000);
  const int flickSeconds = option("--flick-seconds", 5);

  SandboxProcess sandbox;
  if (!sandbox.start()) {
    std::cerr << "tavik_bench_views: the sandbox did not start\n";
    return 1;
  }
  TAVIK::Builder()
      .clientId("bench-views")
      .productAdsHost(sandbox.host())
      .displayAdsHost(sandbox.host())
      .eventTrackingHost(sandbox.host())
      .trustedCaBundle(sandbox.ca())
      .buildGlobalInstance();
  TAVIK& sdk = TAVIK::shared();
  auto banner = sdk.adRenderer()->fetchBannerAdsWithAu("bench", "HOME", "au_home_banner").get();
  auto video = sdk.adRenderer()->fetchBannerAdsWithAu("bench", "HOME", "au_video_banner").get();
  auto interstitial =
      sdk.adRenderer()->fetchBannerAdsWithAu("bench", "PURCHASE", "au_interstitial").get();
  auto carousel = sdk.adRenderer()->fetchCarouselAdWithAu("bench", "HOME", "au_carousel").get();
  auto multi = sdk.adRenderer()->fetchMultiAdCarouselWithAu("bench", "HOME", "au_multi", 4).get();
  if (!banner || !video || !interstitial || !carousel || !multi || multi->empty()) {
    std::cerr << "tavik_bench_views: the sandbox's ads did not come\n";
    return 1;
  }
  // The plain baseline shows the same picture from a local file.
  const QString picture = QStringLiteral(TAVIK_MEDIA_DIR "/banner_320x50.png");
  const QVariantMap bannerProperties{{"ad", QVariant::fromValue(quick::QmlBannerAd(*banner))}};
  const QVariantMap imageProperties{
      {"source", QUrl::fromLocalFile(picture)}, {"width", 320}, {"height", 50}};

  Stage stage;
  std::printf("tavik view benchmarks (Qt %s, platform %s, %d cycles)\n\n", qVersion(),
              qPrintable(QGuiApplication::platformName()), cycles);

  // 1. Create to first frame.
  {
    QQuickItem* warm = stage.create(kBannerQml, bannerProperties);  // downloads the creative
    spinUntil([&] { return imagesReady(warm); });
    delete warm;
    const double sdkMs = createToFirstFrameMs(stage, kBannerQml, bannerProperties, 300);
    const double plainMs = createToFirstFrameMs(stage, kImageQml, imageProperties, 300);
    std::printf("1. banner created and drawn to its first frame (creative cached), median\n");
    std::printf("  BannerAdView %.3f ms, plain Image %.3f ms\n", sdkMs, plainMs);
    verdict("   ratio BannerAdView / Image", sdkMs / plainMs, 1.3, "x");
  }

  // 2. UI-thread time of the entry points.
  {
    std::printf("\n2. UI-thread time per call\n");
    Timing showAd, appearance, tap, mute, paging;
    auto banners = quick::views(sdk).bannerAdView();
    BannerAdSettings settings;
    settings.adLabelText = "Ad";
    int appeared = 0, clicked = 0;
    settings.adAppear = [&](const BannerAd&) { ++appeared; };
    settings.adClicked = [&](const BannerAd&) { ++clicked; };
    for (int i = 0; i < 1000; ++i) {
      QQuickItem* item = nullptr;
      showAd.time([&] { item = banners->showAd(*banner, settings, stage.root()); });
      if (i % 100 == 99) drain(1);
      delete item;
    }
    QQuickItem* item = banners->showAd(*banner, settings, stage.root());
    stage.nextFrame();
    auto* watcher = item->findChild<quick::AdAppearance*>();
    for (int i = 0; watcher && i < 1000; ++i) {
      item->setVisible(false);
      watcher->check();
      item->setVisible(true);
      appearance.time([&] { watcher->check(); });
    }
    for (int i = 0; i < 1000; ++i) {
      tap.time([&] { QMetaObject::invokeMethod(item, "tap"); });
      if (i % 100 == 99) drain(20);  // lets the click requests go
    }
    delete item;

    QQuickItem* videoBanner =
        stage.create(kBannerQml, {{"ad", QVariant::fromValue(quick::QmlBannerAd(*video))}});
    VideoPlayerManager* manager = nullptr;
    spinUntil([&] {
      for (QObject* child : videoBanner->findChildren<QObject*>()) {
        if (auto* m = child->property("videoManager").value<VideoPlayerManager*>()) manager = m;
      }
      return manager && manager->playerStatus() == VideoPlayerManager::ReadyToPlay;
    });
    for (int i = 0; manager && i < 1000; ++i) {
      mute.time([&] { manager->toggleMute(); });
      if (i % 100 == 99) drain(20);
    }
    delete videoBanner;

    QQuickItem* strip = stage.create(kMultiQml, {{"ads", qmlAds(*multi)}});
    stage.nextFrame();
    for (int i = 0; i < 1000; ++i) {
      const int direction = (i / 3) % 2 == 0 ? 1 : -1;
      paging.time([&] { QMetaObject::invokeMethod(strip, "step", Q_ARG(int, direction)); });
      if (i % 10 == 9) stage.nextFrame();
    }
    delete strip;
    drain(200);

    for (auto [name, timing] : {std::pair{"showAd (banner)", &showAd},
                                {"appearance (banner)", &appearance},
                                {"tap (banner)", &tap},
                                {"mute toggle (video)", &mute},
                                {"paging step (multi-ad)", &paging}}) {
      timing->print(name);
    }
    double worstP99 = 0;
    for (const Timing* t : {&showAd, &appearance, &tap, &mute, &paging}) {
      worstP99 = std::max(worstP99, percentile(t->us, 0.99));
    }
    verdict("   highest 99th percentile", worstP99 / 1000.0, 1.0, "ms");
    std::printf("  (%d appearances and %d clicks reached the host's callbacks)\n", appeared,
                clicked);
  }

  // 3. Flicking 100 cards.
  {
    // Like for like: image cards against a list of Images (a video card builds a media
    // pipeline; the plain list has none).
    std::vector<BannerAd> images;
    for (const BannerAd& ad : *multi) {
      if (ad.elements.type == "IMAGE") images.push_back(ad);
    }
    std::vector<BannerAd> hundred;
    for (int i = 0; i < 100; ++i) {
      BannerAd ad = images[static_cast<size_t>(i) % images.size()];
      ad.uclid += "-" + std::to_string(i);
      hundred.push_back(ad);
    }
    std::vector<QString> pictures;
    for (int i = 1; i <= 3; ++i) {
      pictures.push_back(QStringLiteral(TAVIK_MEDIA_DIR "/card_%1.png").arg(i));
    }
    QQuickItem* strip = stage.create(kMultiQml, {{"ads", qmlAds(hundred)}});
    spinUntil([&] { return imagesReady(strip); });
    const double pitch = strip->property("pitch").toDouble();
    // The same strip counting impressions on viewability (the clock armed on every card
    // that shows).
    Config viewableConfig = *sdk.config();
    viewableConfig.impressionOnViewable = true;
    QQuickItem* viewableStrip = stage.create(
        kMultiQml, {{"ads", qmlAds(hundred)},
                    {"config", QVariant::fromValue(quick::QmlConfig(viewableConfig))}});
    viewableStrip->setVisible(false);
    // A finger drags across most of a card, lets go (the strip pages), and drags again.
    QQuickItem* dragged = strip;
    auto dragFrame = [&](int frame) {
      const int phase = frame % 24;
      if (phase < 20) {
        QMetaObject::invokeMethod(dragged, "dragTo", Q_ARG(qreal, -pitch * 0.03 * phase));
      } else if (phase == 20) {
        int page = 0;
        QMetaObject::invokeMethod(dragged, "endDrag", Q_RETURN_ARG(int, page),
                                  Q_ARG(qreal, -pitch * 0.6));
      }
    };
    const double sdkMs = cpuPerFrameMs(stage, dragFrame, flickSeconds);
    strip->setVisible(false);
    viewableStrip->setVisible(true);
    dragged = viewableStrip;
    const double viewableMs = cpuPerFrameMs(stage, dragFrame, flickSeconds);
    delete strip;
    delete viewableStrip;
    drain(200);

    QVariantList urls;
    for (const auto& path : pictures) urls.append(QUrl::fromLocalFile(path));
    QQuickItem* list = stage.create(QStringLiteral(R"(
        import QtQuick
        ListView {
          property var pictures
          width: 320; height: 262
          orientation: ListView.Horizontal
          spacing: 10
          model: 100
          delegate: Image {
            width: 300; height: 250
            source: pictures[index % pictures.length]
          }
        })"),
                                    {{"pictures", urls}});
    spinUntil([&] { return imagesReady(list); });
    double x = 0;
    auto scrollFrame = [&](int frame) {
      // The same motion: 3% of a pitch a frame, and one whole pitch every 24 frames.
      const int phase = frame % 24;
      if (phase < 20) x = std::floor(frame / 24.0) * pitch + pitch * 0.03 * phase;
      list->setProperty("contentX", std::min(x, 99 * pitch));
    };
    const double plainMs = cpuPerFrameMs(stage, scrollFrame, flickSeconds);
    delete list;
    drain(200);
    std::printf("\n3. flicking 100 image cards for %d s: CPU time per frame\n", flickSeconds);
    std::printf(
        "  MultiAdCarouselView %.3f ms (impressions on viewability: %.3f ms), plain "
        "ListView of Images %.3f ms\n",
        sdkMs, viewableMs, plainMs);
    verdict("   ratio MultiAdCarouselView / ListView", sdkMs / plainMs, 1.1, "x");
    verdict("   ratio, impressions on viewability", viewableMs / plainMs, 1.1, "x");
  }

  // 3b. The visibility tracker's own cost: one pass over 100 registered ads, and what a
  // window in which nothing moves costs it.
  {
    std::vector<QQuickItem*> live;
    for (int i = 0; i < 100; ++i) {
      QQuickItem* item = stage.create(kBannerQml, bannerProperties);
      item->setY(i % 15 * 52);
      live.push_back(item);
    }
    spinUntil([&] { return std::all_of(live.begin(), live.end(), imagesReady); });
    stage.nextFrame();
    drain(100);
    auto* tracker = stage.view().findChild<quick::VisibilityTracker*>();
    std::vector<double> passes;
    for (int i = 0; tracker && i < 2000; ++i) {
      QElapsedTimer clock;
      clock.start();
      tracker->update();
      passes.push_back(static_cast<double>(clock.nsecsElapsed()) / 1000.0);
    }
    std::sort(passes.begin(), passes.end());
    const long framesBefore = stage.frames();
    drain(1000);  // a second in which nothing moves
    std::printf(
        "\n3b. visibility tracker, 100 registered ads: one pass p50 %.1f us, p99 %.1f us;"
        " frames (and passes) in an idle second: %ld\n",
        passes.empty() ? 0.0 : passes[passes.size() / 2],
        passes.empty() ? 0.0 : passes[passes.size() * 99 / 100], stage.frames() - framesBefore);
    for (QQuickItem* item : live) delete item;
    drain(100);
  }

  // 4. Memory.
  {
    std::printf("\n4. memory: resident-set growth from cycle 100 to cycle %d\n", cycles);
    auto cycle = [&](const char* name, const std::function<void()>& once) {
      double at100 = 0;
      for (int i = 0; i < cycles; ++i) {
        once();
        if (i % 50 == 49) {
          drain(5);
          malloc_trim(0);
        }
        if (i == 99) at100 = rssMiB();
      }
      drain(200);
      malloc_trim(0);
      const double growth = rssMiB() - at100;
      char label[96];
      std::snprintf(label, sizeof label, "   %s", name);
      verdict(label, growth, 2.0, "MiB");
    };
    auto createDrawDestroy = [&](const QString& qml, const QVariantMap& properties) {
      return [&, qml, properties] {
        QQuickItem* item = stage.create(qml, properties);
        spinUntil([&] { return imagesReady(item); }, 5000);
        stage.nextFrame();
        delete item;
      };
    };
    cycle("banner", createDrawDestroy(kBannerQml, bannerProperties));
    cycle("video banner", [&] {
      QQuickItem* item =
          stage.create(kBannerQml, {{"ad", QVariant::fromValue(quick::QmlBannerAd(*video))}});
      stage.nextFrame();
      stage.nextFrame();
      delete item;
    });
    cycle("carousel",
          createDrawDestroy("import Tavik\nCarouselAdView { adWidth: 320 }",
                            {{"ad", QVariant::fromValue(quick::QmlCarouselAd(*carousel))}}));
    cycle("multi-ad carousel", createDrawDestroy(kMultiQml, {{"ads", qmlAds(*multi)}}));
    auto interstitials = quick::views(sdk).interstitialAdView();
    auto* interstitialWindow =
        static_cast<InterstitialAdViewManager*>(interstitials.get())->customWindow.get();
    cycle("interstitial", [&] {
      interstitials->showAd(*interstitial, {});
      stage.nextFrame();
      interstitialWindow->dismiss();
      stage.nextFrame();
    });
    auto pips = quick::views(sdk).pipAdView();
    auto* pipWindow = static_cast<PIPAdViewManager*>(pips.get())->customWindow.get();
    cycle("picture in picture", [&] {
      pips->showAd(*video, {});
      stage.nextFrame();
      pipWindow->dismiss();
      stage.nextFrame();
    });

    // A live banner against a live Image.
    auto perItemKiB = [&](const QString& qml, const QVariantMap& properties) {
      drain(100);
      malloc_trim(0);
      const double before = rssMiB();
      std::vector<QQuickItem*> live;
      for (int i = 0; i < 200; ++i) {
        QQuickItem* item = stage.create(qml, properties);
        item->setY(i % 15 * 52);
        live.push_back(item);
      }
      spinUntil([&] { return std::all_of(live.begin(), live.end(), imagesReady); });
      stage.nextFrame();
      const double kib = (rssMiB() - before) * 1024.0 / live.size();
      for (QQuickItem* item : live) delete item;
      drain(100);
      return kib;
    };
    const double bannerKiB = perItemKiB(kBannerQml, bannerProperties);
    const double imageKiB = perItemKiB(kImageQml, imageProperties);
    std::printf("  per live item: BannerAdView %.1f KiB, plain Image %.1f KiB (%.1fx)\n", bannerKiB,
                imageKiB, imageKiB > 0 ? bannerKiB / imageKiB : 0.0);
  }
  transport::shutdown();
  return 0;
}
