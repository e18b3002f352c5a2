// What the Qt Quick views cost a host, against plain Qt Quick items showing the same
// pictures, measured side by side in one process and one window:
//   1. a banner from a decoded ad (creative already cached), created and drawn to its
//      first frame, against a plain Image of the same picture; 1b. the frames from an
//      interstitial's showAd to the first frame that shows its creative; 1c. the picture in
//      picture's first video picture; 1d. whether the first frame after the picture in
//      picture's showAd holds a video picture, after a completed preload and without;
//   2. the UI-thread time of every SDK entry point a view runs there (showAd of every
//      format, an appearance, a tap, a mute toggle, a paging step): median, 99th
//      percentile, worst;
//   3. flicking a 100-card multi-ad carousel: CPU time per frame against a plain ListView
//      of 100 Image cards with the same pictures; 3b. the visibility tracker's pass;
//      3c. 100 video cards against a ListView of MediaPlayer + VideoOutput delegates;
//   4. memory: create-and-destroy cycles of each view type (resident-set growth after the
//      first 100), a longer run of the two video formats, and the heap in use per live
//      banner against a live Image (malloc's count around 200 live items).
// Standard error is passed through a pipe that counts GStreamer's criticals and
// warnings; each figure of a video view is printed with the count of its own run.
//
// The sandbox runs as a child process, so its work is not counted as the host's. Frames
// are rendered on the UI thread (the "basic" render loop), so a frame's cost is seen by
// the thread that pays for it. bench/views.sh builds and runs this under Xvfb; it never
// fails on a figure, it prints each with its target and whether it was met.
//
//   tavik_bench_views [--cycles N] [--long-cycles N] [--flick-seconds S] [--figures LIST]
//
// --figures runs only the figures listed, comma-separated: 1, 1b, 1c, 1d, 2, 3, 3b, 3c, 4 (all of
// figure 4) and 4h (only figure 4's heap per live item). All of them by default.
// --heap-of QML adds figure 4's heap per live item of any snippet (given the banner's `ad`
// property, so the snippet must have one; "\n" in it is a newline), for finding where an
// item's heap goes. --image-formats-only leaves the video formats out of figure 2 (showAd of the
// video banner, the multi-ad strip with its video card and the picture in picture, and the mute
// toggle): their time is the media pipeline's. --cycle-only NAME runs only figure 4's cycle
// rows of that name ("picture in picture"); --exit-after-cycles leaves the process right after
// them, torn down by nothing, for a heap profiler (heaptrack) to report what they left alive.
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
#include <QSet>
#include <QTemporaryDir>
#include <QVideoFrame>
#include <QVideoSink>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tavik/network/transport.h"
#include "tavik/tavik.h"
#include "tavik/video/video_player_manager.h"
#include "tavik/views/qml_records.h"
#include "tavik/views/views.h"
#include "video/qt_media_player.h"
#include "views/appearance.h"
#include "views/banner_ad_item.h"
#include "views/preload.h"

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
  ~SandboxProcess() { stop(); }
  // Also for a run that leaves without destructors (--exit-after-cycles).
  void stop() {
    if (process_.state() == QProcess::NotRunning) return;
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
    // Each snippet is compiled once: compiling it per creation would add the harness's
    // own cost to the figures.
    std::unique_ptr<QQmlComponent>& component = components_[qml];
    if (!component) {
      component = std::make_unique<QQmlComponent>(view_.engine());
      component->setData(qml.toUtf8(), QUrl());
    }
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
  std::map<QString, std::unique_ptr<QQmlComponent>> components_;
};

// Everything written to standard error goes through a pipe: passed on unchanged, and
// GStreamer's complaints (criticals, warnings, a queue's refcounting alarm) counted, so
// each figure can be printed with the warnings its run produced.
class StderrCounter {
 public:
  StderrCounter() {
    int fds[2];
    if (::pipe(fds) != 0) return;
    original_ = ::dup(2);
    ::dup2(fds[1], 2);
    ::close(fds[1]);
    reader_ = std::thread([this, in = fds[0]] {
      std::string line;
      char buffer[4096];
      ssize_t n;
      while ((n = ::read(in, buffer, sizeof buffer)) > 0) {
        if (::write(original_, buffer, static_cast<size_t>(n)) < 0) {
          // Nothing more can be done about a lost line of diagnostics.
        }
        for (ssize_t i = 0; i < n; ++i) {
          if (buffer[i] != '\n') {
            line += buffer[i];
            continue;
          }
          if (line.find("GStreamer-CRITICAL") != std::string::npos ||
              line.find("GStreamer-WARNING") != std::string::npos ||
              line.find("Unexpected item dequeued") != std::string::npos) {
            ++count_;
          }
          line.clear();
        }
      }
      ::close(in);
    });
  }
  ~StderrCounter() {
    if (original_ < 0) return;
    std::fflush(stderr);
    ::dup2(original_, 2);  // closes the pipe's last writer: the reader sees its end
    reader_.join();
    ::close(original_);
  }
  // Waits a moment for what was written to be read, then counts.
  long count() {
    std::fflush(stderr);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    return count_.load();
  }

 private:
  int original_ = -1;
  std::thread reader_;
  std::atomic<long> count_{0};
};

// Every picture of `item` loaded: its `Image`s, and the pictures banners draw themselves
// (`pictureStatus`, which reads as an `Image`'s status).
bool imagesReady(QQuickItem* item) {
  QList<QQuickItem*> items = item->findChildren<QQuickItem*>();
  items.append(item);
  for (QQuickItem* child : items) {
    if (child->inherits("QQuickImageBase") && !child->property("source").toUrl().isEmpty() &&
        child->property("status").toInt() != 1) {
      return false;
    }
    if (auto* banner = qobject_cast<quick::BannerAdViewBase*>(child);
        banner && banner->creativeKindProperty() == quick::BannerAdViewBase::Image &&
        banner->pictureStatus() != 1) {
      return false;
    }
  }
  return true;
}

// Whether `item`'s tree holds a picture with a source (loaded or not): an Image, or a banner.
bool hasPicture(QQuickItem* item) {
  const QList<QQuickItem*> items = item->findChildren<QQuickItem*>();
  return std::any_of(items.begin(), items.end(), [](QQuickItem* child) {
    // An Image with a source, or a banner that draws its picture itself.
    auto* banner = qobject_cast<quick::BannerAdViewBase*>(child);
    return (child->inherits("QQuickImageBase") && !child->property("source").toUrl().isEmpty()) ||
           (banner && banner->creativeKindProperty() == quick::BannerAdViewBase::Image);
  });
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

// A finger drags `strip` across most of a card over 20 frames, lets go (the strip pages),
// and drags again: frame `frame` of that motion.
void dragStrip(QQuickItem* strip, double pitch, int frame) {
  const int phase = frame % 24;
  if (phase < 20) {
    QMetaObject::invokeMethod(strip, "dragTo", Q_ARG(qreal, -pitch * 0.03 * phase));
  } else if (phase == 20) {
    int page = 0;
    QMetaObject::invokeMethod(strip, "endDrag", Q_RETURN_ARG(int, page),
                              Q_ARG(qreal, -pitch * 0.6));
  }
}

// The same motion on a plain ListView: 3% of a pitch a frame, and one whole pitch every
// 24 frames.
std::function<void(int)> scrollingList(QQuickItem* list, double pitch) {
  return [list, pitch, x = 0.0](int frame) mutable {
    const int phase = frame % 24;
    if (phase < 20) x = std::floor(frame / 24.0) * pitch + pitch * 0.03 * phase;
    list->setProperty("contentX", std::min(x, 99 * pitch));
  };
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

// Whether a video output in `root`'s tree has received a picture (the next frame draws it).
bool videoPictureIn(QQuickItem* root) {
  if (auto* sink = root->property("videoSink").value<QVideoSink*>()) {
    if (sink->videoFrame().isValid()) return true;
  }
  const auto children = root->childItems();
  return std::any_of(children.begin(), children.end(), videoPictureIn);
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
  const int longCycles = option("--long-cycles", 5000);
  const int figuresAt = args.indexOf("--figures");
  const QStringList figures =
      figuresAt > 0 && figuresAt + 1 < args.size() ? args[figuresAt + 1].split(',') : QStringList();
  const bool imagesOnly = args.contains(QStringLiteral("--image-formats-only"));
  const int cycleOnlyAt = args.indexOf("--cycle-only");
  const QString cycleOnly =
      cycleOnlyAt > 0 && cycleOnlyAt + 1 < args.size() ? args[cycleOnlyAt + 1] : QString();
  const bool exitAfterCycles = args.contains(QStringLiteral("--exit-after-cycles"));
  auto runs = [&](const char* figure) {
    return figures.isEmpty() || figures.contains(QLatin1String(figure));
  };

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

  StderrCounter warnings;
  Stage stage;
  std::printf("tavik view benchmarks (Qt %s, platform %s, %d cycles)\n\n", qVersion(),
              qPrintable(QGuiApplication::platformName()), cycles);

  // 1. Create to first frame.
  if (runs("1")) {
    QQuickItem* warm = stage.create(kBannerQml, bannerProperties);  // downloads the creative
    spinUntil([&] { return imagesReady(warm); });
    delete warm;
    const double sdkMs = createToFirstFrameMs(stage, kBannerQml, bannerProperties, 300);
    const double plainMs = createToFirstFrameMs(stage, kImageQml, imageProperties, 300);
    std::printf("1. banner created and drawn to its first frame (creative cached), median\n");
    std::printf("  BannerAdView %.3f ms, plain Image %.3f ms\n", sdkMs, plainMs);
    verdict("   ratio BannerAdView / Image", sdkMs / plainMs, 1.3, "x");
  }

  // 1b. An interstitial, creative cached: frames from showAd to the first frame that
  // shows its creative (1: the very first frame after the call), and the time to it.
  if (runs("1b")) {
    auto interstitials = quick::views(sdk).interstitialAdView();
    auto* window = static_cast<InterstitialAdViewManager*>(interstitials.get())->customWindow.get();
    std::vector<double> frameCounts, times;
    // Each frame is judged when the scene graph has taken the items over (after its
    // synchronisation, on this thread with the basic render loop): a picture that was
    // there, loaded, is drawn by that frame. The view may be completed inside the frame.
    long framesSinceShow = 0;
    long shownInFrame = -1;
    qint64 shownAfterNs = 0;
    QElapsedTimer clock;
    QObject* currentLayer = nullptr;
    const QMetaObject::Connection judge =
        QObject::connect(&stage.view(), &QQuickWindow::afterSynchronizing, [&] {
          auto* layer = qobject_cast<QQuickItem*>(currentLayer);
          if (!layer || shownInFrame >= 0) return;
          ++framesSinceShow;
          if (hasPicture(layer) && imagesReady(layer)) {
            shownInFrame = framesSinceShow;
            shownAfterNs = clock.nsecsElapsed();
          }
        });
    for (int i = 0; i < 110; ++i) {
      framesSinceShow = 0;
      shownInFrame = -1;
      clock.start();
      interstitials->showAd(*interstitial, {});
      currentLayer = window->host();
      spinUntil([&] { return shownInFrame >= 0; }, 5000);
      currentLayer = nullptr;
      if (i >= 10) {
        frameCounts.push_back(double(shownInFrame < 0 ? 99 : shownInFrame));
        times.push_back(shownAfterNs / 1e6);
      }
      window->dismiss();
      stage.nextFrame();
      if (i % 10 == 9) drain(1);
    }
    QObject::disconnect(judge);
    drain(50);
    std::printf(
        "\n1b. interstitial shown to its creative's first frame (creative cached): "
        "median %.0f frame(s), worst %.0f; median %.3f ms\n",
        percentile(frameCounts, 0.5), percentile(frameCounts, 1.0), percentile(times, 0.5));
    verdict("   frames from showAd to the creative, worst", percentile(frameCounts, 1.0), 1.0,
            "fr");
  }

  // 1c. A picture in picture whose video is already on disk (shown before): frames from
  // showAd to the first frame drawn after its video output received a picture, and the
  // time to it.
  if (runs("1") || runs("1c")) {
    const long warningsBefore = warnings.count();
    auto pips = quick::views(sdk).pipAdView();
    auto* window = static_cast<PIPAdViewManager*>(pips.get())->customWindow.get();
    std::vector<double> frameCounts, times;
    int missing = 0;
    for (int i = 0; i < 60; ++i) {
      QElapsedTimer clock;
      clock.start();
      const long before = stage.frames();
      pips->showAd(*video, {});
      QQuickItem* layer = window->host();
      const bool shown = spinUntil([&] { return layer && videoPictureIn(layer); }, 5000);
      const long readyAt = stage.frames();
      stage.nextFrame();
      if (i >= 10) {
        if (shown) {
          frameCounts.push_back(double(readyAt - before + 1));
          times.push_back(clock.nsecsElapsed() / 1e6);
        } else {
          ++missing;
        }
      }
      window->dismiss();
      stage.nextFrame();
      drain(1);
    }
    drain(50);
    std::printf(
        "\n1c. picture in picture shown to its first video frame (video on disk): median %.0f "
        "frame(s), worst %.0f; median %.1f ms, worst %.1f ms; %d of 50 never showed one\n",
        percentile(frameCounts, 0.5), percentile(frameCounts, 1.0), percentile(times, 0.5),
        percentile(times, 1.0), missing);
    std::printf("  GStreamer warnings: %ld\n", warnings.count() - warningsBefore);
  }

  // 1d. A picture in picture shown after its preload completed: whether the first frame
  // drawn after showAd holds a video picture (many colours where the panel would otherwise
  // be its flat background), against the same show without a preload.
  if (runs("1") || runs("1d")) {
    const long warningsBefore = warnings.count();
    auto pips = quick::views(sdk).pipAdView();
    auto* window = static_cast<PIPAdViewManager*>(pips.get())->customWindow.get();
    // One panel played first, so that the pool holds a player with its output.
    pips->showAd(*video, {});
    spinUntil([&] { return window->host() && videoPictureIn(window->host()); }, 5000);
    window->dismiss();
    drain(100);
    std::vector<double> preloadMs;
    int pictureKept = 0;
    auto firstFrameHoldsVideo = [&](bool preload) {
      if (preload) {
        QElapsedTimer clock;
        clock.start();
        Future<bool> ready = pips->preload(*video);
        spinUntil([&] { return ready.is_ready(); }, 5000);
        preloadMs.push_back(clock.nsecsElapsed() / 1e6);
      }
      const bool kept = !quick::detail::preloadedVideoPicture(video->elements.value).isNull();
      pictureKept += preload && kept ? 1 : 0;
      pips->showAd(*video, {});
      // The first frame completes the panel's view (its afterAnimating); the scene as that
      // frame left it is then drawn again into an image (a grab completes nothing itself
      // with the basic render loop).
      stage.nextFrame();
      const QImage frame = stage.view().grabWindow().convertToFormat(QImage::Format_RGB32);
      // The left middle of the panel, clear of its buttons.
      const QRect panel = window->windowFrame().toRect();
      const QRect area(panel.x() + panel.width() / 10, panel.y() + panel.height() * 3 / 10,
                       panel.width() * 4 / 10, panel.height() * 4 / 10);
      QSet<QRgb> colours;
      for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x) colours.insert(frame.pixel(x, y));
      }
      spinUntil([&] { return window->host() && videoPictureIn(window->host()); }, 5000);
      window->dismiss();
      stage.nextFrame();
      drain(20);
      return colours.size() > 16;
    };
    int preloaded = 0, plain = 0;
    constexpr int kRounds = 20;
    for (int i = 0; i < kRounds; ++i) {
      preloaded += firstFrameHoldsVideo(true) ? 1 : 0;
      plain += firstFrameHoldsVideo(false) ? 1 : 0;
    }
    drain(50);
    std::printf(
        "\n1d. picture in picture, first frame after showAd holds the video: after a completed "
        "preload %d of %d, without a preload %d of %d; preloads that kept the first picture %d "
        "of %d; preload (file on disk) to its first picture median %.1f ms\n",
        preloaded, kRounds, plain, kRounds, pictureKept, kRounds, percentile(preloadMs, 0.5));
    verdict("   preloaded shows without the video in their first frame",
            double(kRounds - preloaded), 0.0, "");
    std::printf("  GStreamer warnings: %ld\n", warnings.count() - warningsBefore);
  }

  // 2. UI-thread time of the entry points.
  if (runs("2")) {
    std::printf("\n2. UI-thread time per call\n");
    const long warningsAtStart = warnings.count();
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
        imagesOnly
            ? nullptr
            : stage.create(kBannerQml, {{"ad", QVariant::fromValue(quick::QmlBannerAd(*video))}});
    VideoPlayerManager* manager = nullptr;
    spinUntil([&] {
      if (!videoBanner) return true;
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

    // showAd of every other format, each view destroyed (an overlay dismissed) after.
    Timing showVideo, showCarousel, showMulti, showInterstitial, showPip;
    auto timeShows = [&](Timing& timing, int calls, const std::function<QQuickItem*()>& show,
                         const std::function<void(QQuickItem*)>& destroy) {
      for (int i = 0; i < calls; ++i) {
        QQuickItem* shown = nullptr;
        timing.time([&] { shown = show(); });
        if (i % 10 == 9) stage.nextFrame();
        destroy(shown);
        if (i % 100 == 99) drain(1);
      }
      drain(50);
    };
    auto deleteItem = [](QQuickItem* shown) { delete shown; };
    BannerAdSettings plainSettings;
    timeShows(
        showVideo, imagesOnly ? 0 : 1000,
        [&] { return banners->showAd(*video, plainSettings, stage.root()); }, deleteItem);
    auto carousels = quick::views(sdk).carouselAdView();
    timeShows(
        showCarousel, 1000,
        [&] { return carousels->showAd(*carousel, CarouselAdSettings{}, stage.root()); },
        deleteItem);
    auto strips = quick::views(sdk).multiAdCarouselView();
    MultiAdCarouselSettings stripSettings;
    stripSettings.width = 320;
    stripSettings.elementWidth = 300;
    timeShows(
        showMulti, imagesOnly ? 0 : 1000,
        [&] { return strips->showAd(*multi, stripSettings, stage.root()); }, deleteItem);
    auto interstitials = quick::views(sdk).interstitialAdView();
    auto* interstitialWindow =
        static_cast<InterstitialAdViewManager*>(interstitials.get())->customWindow.get();
    timeShows(
        showInterstitial, 300,
        [&] {
          interstitials->showAd(*interstitial, {});
          return nullptr;
        },
        [&](QQuickItem*) { interstitialWindow->dismiss(); });
    auto pips = quick::views(sdk).pipAdView();
    auto* pipWindow = static_cast<PIPAdViewManager*>(pips.get())->customWindow.get();
    timeShows(
        showPip, imagesOnly ? 0 : 300,
        [&] {
          pips->showAd(*video, {});
          return nullptr;
        },
        [&](QQuickItem*) { pipWindow->dismiss(); });
    drain(200);

    const std::vector<std::pair<const char*, Timing*>> timings = {
        {"showAd (banner)", &showAd},
        {"showAd (video banner)", &showVideo},
        {"showAd (carousel)", &showCarousel},
        {"showAd (multi-ad carousel)", &showMulti},
        {"showAd (interstitial)", &showInterstitial},
        {"showAd (picture in picture)", &showPip},
        {"appearance (banner)", &appearance},
        {"tap (banner)", &tap},
        {"mute toggle (video)", &mute},
        {"paging step (multi-ad)", &paging}};
    double worstP99 = 0;
    double worstMax = 0;
    for (auto [name, timing] : timings) {
      if (timing->us.empty()) continue;  // left out
      timing->print(name);
      worstP99 = std::max(worstP99, percentile(timing->us, 0.99));
      worstMax = std::max(worstMax, percentile(timing->us, 1.0));
    }
    verdict("   highest 99th percentile", worstP99 / 1000.0, 1.0, "ms");
    verdict("   highest maximum", worstMax / 1000.0, 16.0, "ms");
    std::printf("  GStreamer warnings during figure 2: %ld\n", warnings.count() - warningsAtStart);
    std::printf("  (%d appearances and %d clicks reached the host's callbacks)\n", appeared,
                clicked);
  }

  // 3. Flicking 100 cards.
  if (runs("3")) {
    // Like for like: image cards against a list of Images (a video card builds a media
    // pipeline; the plain list has none).
    std::vector<BannerAd> images;
    for (const BannerAd& ad : *multi) {
      if (ad.elements.type == "IMAGE") images.push_back(ad);
    }
    std::vector<BannerAd> hundred;
    for (int i = 0; i < 100; ++i) {
      BannerAd ad = images[static_cast<size_t>(i) % images.size()];
      ad.uclid.append("-").append(std::to_string(i));
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
    QQuickItem* dragged = strip;
    auto dragFrame = [&](int frame) { dragStrip(dragged, pitch, frame); };
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
    const double plainMs = cpuPerFrameMs(stage, scrollingList(list, pitch), flickSeconds);
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
  if (runs("3b")) {
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

  // 3c. Flicking 100 video cards against a plain ListView whose delegates each hold a
  // MediaPlayer and a VideoOutput playing the same file (muted, looping).
  if (runs("3c")) {
    const long warningsBefore = warnings.count();
    BannerAd videoCard;
    for (const BannerAd& ad : *multi) {
      if (ad.elements.type == "VIDEO") videoCard = ad;
    }
    std::vector<BannerAd> hundred;
    for (int i = 0; i < 100; ++i) {
      BannerAd ad = videoCard;
      ad.uclid += "-v" + std::to_string(i);
      hundred.push_back(ad);
    }
    QQuickItem* strip = stage.create(kMultiQml, {{"ads", qmlAds(hundred)}});
    stage.nextFrame();
    const double pitch = strip->property("pitch").toDouble();
    auto dragFrame = [&](int frame) { dragStrip(strip, pitch, frame); };
    const double sdkMs = cpuPerFrameMs(stage, dragFrame, flickSeconds);
    delete strip;
    drain(300);
    const long sdkWarnings = warnings.count() - warningsBefore;

    QQuickItem* list = stage.create(
        QStringLiteral(R"(
        import QtQuick
        import QtMultimedia
        ListView {
          property url video
          width: 320; height: 262
          orientation: ListView.Horizontal
          spacing: 10
          model: 100
          delegate: Item {
            width: 300; height: 250
            MediaPlayer {
              id: player
              source: video
              loops: MediaPlayer.Infinite
              videoOutput: output
              audioOutput: AudioOutput { muted: true }
              Component.onCompleted: play()
            }
            VideoOutput { id: output; anchors.fill: parent }
          }
        })"),
        {{"video", QUrl::fromLocalFile(QStringLiteral(TAVIK_MEDIA_DIR "/video_320x180.mp4"))}});
    stage.nextFrame();
    const double plainMs = cpuPerFrameMs(stage, scrollingList(list, pitch), flickSeconds);
    delete list;
    drain(300);
    std::printf("\n3c. flicking 100 video cards for %d s: CPU time per frame\n", flickSeconds);
    std::printf(
        "  MultiAdCarouselView %.3f ms, plain ListView of MediaPlayer + VideoOutput %.3f ms\n",
        sdkMs, plainMs);
    verdict("   ratio MultiAdCarouselView / ListView (video)", sdkMs / plainMs, 1.1, "x");
    std::printf("  GStreamer warnings: MultiAdCarouselView %ld, plain ListView %ld\n", sdkWarnings,
                warnings.count() - warningsBefore - sdkWarnings);
  }

  // 4. Memory.
  if (runs("4") || runs("4h")) {
    const bool cycling = runs("4");
    if (cycling)
      std::printf("\n4. memory: resident-set growth from cycle 100 to cycle %d\n", cycles);
    else
      std::printf("\n4. memory\n");
    auto cycle = [&](const char* name, int count, const std::function<void()>& once) {
      if (!cycleOnly.isEmpty() && cycleOnly != QLatin1String(name)) return;
      const long warningsBefore = warnings.count();
      double at100 = 0;
      for (int i = 0; i < count; ++i) {
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
      std::snprintf(label, sizeof label, "   %s (%d cycles)", name, count);
      verdict(label, growth, 2.0, "MiB");
      std::printf("   %-55s GStreamer warnings: %ld\n", "", warnings.count() - warningsBefore);
      std::printf("   %-55s players built so far %d, idle %d, settling %d\n", "",
                  quick::QtMediaPlayer::createdCount(), quick::QtMediaPlayer::idleCount(),
                  quick::QtMediaPlayer::settlingCount());
    };
    auto createDrawDestroy = [&](const QString& qml, const QVariantMap& properties) {
      return [&, qml, properties] {
        QQuickItem* item = stage.create(qml, properties);
        spinUntil([&] { return imagesReady(item); }, 5000);
        stage.nextFrame();
        delete item;
      };
    };
    auto videoBannerOnce = [&] {
      QQuickItem* item =
          stage.create(kBannerQml, {{"ad", QVariant::fromValue(quick::QmlBannerAd(*video))}});
      stage.nextFrame();
      stage.nextFrame();
      delete item;
    };
    auto interstitials = quick::views(sdk).interstitialAdView();
    auto* interstitialWindow =
        static_cast<InterstitialAdViewManager*>(interstitials.get())->customWindow.get();
    auto overlayOnce = [&](auto& manager, CustomWindow* window, const BannerAd& ad) {
      return [&manager, window, &ad, &stage] {
        manager->showAd(ad, {});
        stage.nextFrame();
        stage.nextFrame();
        window->dismiss();
        stage.nextFrame();
      };
    };
    auto pips = quick::views(sdk).pipAdView();
    auto* pipWindow = static_cast<PIPAdViewManager*>(pips.get())->customWindow.get();
    if (cycling) {
      cycle("banner", cycles, createDrawDestroy(kBannerQml, bannerProperties));
      cycle("video banner", cycles, videoBannerOnce);
      cycle("carousel", cycles,
            createDrawDestroy("import Tavik\nCarouselAdView { adWidth: 320 }",
                              {{"ad", QVariant::fromValue(quick::QmlCarouselAd(*carousel))}}));
      cycle("multi-ad carousel (a video card on screen)", cycles,
            createDrawDestroy(kMultiQml, {{"ads", qmlAds(*multi)}}));
      cycle("interstitial", cycles, overlayOnce(interstitials, interstitialWindow, *interstitial));
      cycle("interstitial with a video", cycles,
            overlayOnce(interstitials, interstitialWindow, *video));
      cycle("picture in picture", cycles, overlayOnce(pips, pipWindow, *video));
      if (longCycles > 0) {
        std::printf("  the two video formats, longer:\n");
        cycle("video banner", longCycles, videoBannerOnce);
        cycle("picture in picture", longCycles, overlayOnce(pips, pipWindow, *video));
      }
      if (exitAfterCycles) {
        // Left without tearing anything down, so that a heap profiler sees as leaked what
        // the cycles left alive; only the sandbox, a process of its own, is stopped.
        std::fflush(stdout);
        sandbox.stop();
        std::_Exit(0);
      }
    }

    // A live banner against a live Image: the heap in use (malloc's own count) around
    // 200 live items, which the allocator's trimming cannot blur as the resident set does.
    auto perItemKiB = [&](const QString& qml, const QVariantMap& properties) {
      drain(100);
      const std::size_t before = mallinfo2().uordblks;
      std::vector<QQuickItem*> live;
      for (int i = 0; i < 200; ++i) {
        QQuickItem* item = stage.create(qml, properties);
        item->setY(i % 15 * 52);
        live.push_back(item);
      }
      spinUntil([&] { return std::all_of(live.begin(), live.end(), imagesReady); });
      stage.nextFrame();
      const double kib =
          (double(mallinfo2().uordblks) - double(before)) / 1024.0 / double(live.size());
      for (QQuickItem* item : live) delete item;
      drain(100);
      return kib;
    };
    perItemKiB(kBannerQml, bannerProperties);  // once, so both start from warm caches
    perItemKiB(kImageQml, imageProperties);
    const double bannerKiB = perItemKiB(kBannerQml, bannerProperties);
    const double imageKiB = perItemKiB(kImageQml, imageProperties);
    std::printf("  heap per live item: BannerAdView %.1f KiB, plain Image %.1f KiB\n", bannerKiB,
                imageKiB);
    verdict("   ratio BannerAdView / Image (heap)", imageKiB > 0 ? bannerKiB / imageKiB : 0.0, 2.0,
            "x");
    // Any other snippet, for finding where an item's heap goes ("\n" stands for a newline).
    for (int at = args.indexOf("--heap-of"); at > 0 && at + 1 < args.size();
         at = args.indexOf("--heap-of", at + 1)) {
      const QString qml =
          QString(args[at + 1]).replace(QStringLiteral("\\n"), QStringLiteral("\n"));
      perItemKiB(qml, bannerProperties);
      std::printf("  heap per live item: %s %.1f KiB\n", qPrintable(args[at + 1]),
                  perItemKiB(qml, bannerProperties));
    }
  }
  std::printf("\nGStreamer warnings over the whole run: %ld\n", warnings.count());
  transport::shutdown();
  return 0;
}
