// VideoAdView with real Qt Multimedia (GStreamer) and real frames under Xvfb: the
// sandbox's 3-second video comes through the SDK's transport, plays, loops, reports its
// progress every second, and draws pictures into the window.
#include <gtest/gtest.h>

#include <unistd.h>
#include <QDir>
#include <QImage>
#include <QPointer>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickView>
#include <QQuickWindow>
#include <QSet>
#include <QVideoFrame>
#include <QVideoSink>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <set>
#include <string>

#include "support/sandbox_fixture.h"
#include "tavik/video/video_player_manager.h"
#include "tavik/views/views.h"
#include "video/qt_media_player.h"
#include "views/preload.h"

using namespace tavik;
using tavik::test::spinUntil;

namespace {

test::SandboxEnv& env() {
  return test::SandboxFixture::shared().env();
}

std::vector<double> progressSeconds(const std::string& uclid) {
  std::vector<double> seconds;
  for (const auto& entry : env().server().eventLog()) {
    if (entry["event_name"] == "funnel_video_progress" && entry["params"]["uclid"] == uclid) {
      seconds.push_back(std::stod(entry["params"]["video_view_sec"].get<std::string>()));
    }
  }
  return seconds;
}

QString outputDir() {
  const char* dir = std::getenv("TAVIK_TEST_OUTPUT");
  return dir ? QString::fromLocal8Bit(dir) : QDir::currentPath();
}

// Asks `window` for a frame and waits (at most a second) until it was drawn for real.
void drawNextFrame(QQuickWindow& window) {
  bool swapped = false;
  auto connection = QObject::connect(&window, &QQuickWindow::frameSwapped, [&] { swapped = true; });
  window.update();
  spinUntil([&] { return swapped; }, 1000);
  QObject::disconnect(connection);
}

}  // namespace

TEST(VideoPlaybackXvfbTest, PlaysLoopsReportsAndDrawsTheSandboxVideo) {
  env().server().reset();
  const QRect videoArea(40, 60, 320, 180);

  QQmlEngine engine;
  engine.addImportPath(QStringLiteral(TAVIK_QML_DIR));
  QQmlComponent component(&engine);
  component.setData(QStringLiteral(R"(
      import QtQuick
      import Tavik
      Rectangle {
        width: 400; height: 300
        color: "#ff00ff"
        VideoAdView {
          objectName: "video"
          x: %1; y: %2; width: %3; height: %4
          cliUbid: "shopper-x"
          uclid: "uc-xvfb"
          url: "%5/media/video_320x180.mp4"
          progressTrackInterval: 1
        }
      })")
                        .arg(videoArea.x())
                        .arg(videoArea.y())
                        .arg(videoArea.width())
                        .arg(videoArea.height())
                        .arg(QString::fromStdString(env().base()))
                        .toUtf8(),
                    QUrl("qrc:/video_playback_xvfb_test.qml"));
  std::unique_ptr<QQuickItem> root(qobject_cast<QQuickItem*>(component.create()));
  ASSERT_TRUE(root) << component.errorString().toStdString();
  QQuickWindow window;
  root->setParentItem(window.contentItem());
  window.resize(400, 300);
  window.show();

  auto* video = root->findChild<QQuickItem*>("video");
  ASSERT_TRUE(video);
  // The player is made once the view is on screen.
  VideoPlayerManager* manager = nullptr;
  ASSERT_TRUE(spinUntil([&] {
    return (manager = video->property("videoManager").value<VideoPlayerManager*>()) != nullptr;
  }));
  double lastPosition = 0;
  bool jumpedBack = false;
  QObject::connect(manager->player(), &MediaPlayer::positionChanged, [&](double seconds) {
    if (seconds < lastPosition - 1.0) jumpedBack = true;
    lastPosition = seconds;
  });

  // Two passes and a bit: the video must have gone back to its start on its own.
  ASSERT_TRUE(
      spinUntil([&] { return jumpedBack && progressSeconds("uc-xvfb").size() >= 5; }, 20000))
      << "status " << manager->playerStatus() << " " << manager->playerError().toStdString() << ", "
      << progressSeconds("uc-xvfb").size() << " progress events";
  EXPECT_EQ(manager->playerStatus(), VideoPlayerManager::ReadyToPlay);
  EXPECT_TRUE(video->property("active").toBool());
  EXPECT_NEAR(manager->videoDuration(), 3.0f, 0.05f);

  // At least one event per second of playback, never past the end, and the start seen
  // more than once (the loop).
  std::vector<double> seconds = progressSeconds("uc-xvfb");
  std::sort(seconds.begin(), seconds.end());
  EXPECT_GE(std::count_if(seconds.begin(), seconds.end(), [](double s) { return s < 0.5; }), 2);
  EXPECT_GE(
      std::count_if(seconds.begin(), seconds.end(), [](double s) { return s >= 1.0 && s < 2.0; }),
      1);
  EXPECT_LE(seconds.back(), 3.05);
  for (const auto& entry : env().server().eventLog()) {
    if (entry["event_name"] != "funnel_video_progress") continue;
    EXPECT_EQ(entry["params"]["video_duration_sec"], "3.0");
    EXPECT_EQ(entry["params"]["cli_ubid"], "shopper-x");
  }

  // The pictures: the video's area holds an image, not the window's background nor one
  // flat colour.
  const QImage frame = window.grabWindow();
  ASSERT_FALSE(frame.isNull());
  const QString path = QDir(outputDir()).filePath(QStringLiteral("video_playback_xvfb.png"));
  EXPECT_TRUE(frame.save(path)) << path.toStdString();
  const QImage area = frame.copy(videoArea).convertToFormat(QImage::Format_RGB32);
  QSet<QRgb> colours;
  int background = 0;
  for (int y = 0; y < area.height(); ++y) {
    for (int x = 0; x < area.width(); ++x) {
      const QRgb pixel = area.pixel(x, y);
      colours.insert(pixel);
      if (pixel == qRgb(0xff, 0x00, 0xff)) ++background;
    }
  }
  EXPECT_GT(colours.size(), 16) << "saved as " << path.toStdString();
  EXPECT_LT(background, area.width() * area.height() / 10) << "saved as " << path.toStdString();

  // The window going away stops the video.
  window.hide();
  ASSERT_TRUE(spinUntil([&] { return !video->property("active").toBool(); }, 5000));
  EXPECT_FALSE(manager->player()->isPlaying());
  spinUntil([] { return false; }, 300);  // what was sent before arrives
  const std::size_t events = progressSeconds("uc-xvfb").size();
  spinUntil([] { return false; }, 1500);
  EXPECT_EQ(progressSeconds("uc-xvfb").size(), events);
}

namespace {

// Everything the process writes to standard error (GStreamer's own criticals included)
// while it lives, handed back by `take()`.
class StderrCapture {
 public:
  StderrCapture() {
    std::fflush(stderr);
    saved_ = ::dup(2);
    file_ = std::tmpfile();
    if (file_) ::dup2(::fileno(file_), 2);
  }
  ~StderrCapture() { take(); }
  std::string take() {
    if (saved_ < 0) return text_;
    std::fflush(stderr);
    ::dup2(saved_, 2);
    ::close(saved_);
    saved_ = -1;
    if (file_) {
      std::rewind(file_);
      char buffer[4096];
      size_t n;
      while ((n = std::fread(buffer, 1, sizeof buffer, file_)) > 0) text_.append(buffer, n);
      std::fclose(file_);
      file_ = nullptr;
    }
    return text_;
  }

 private:
  int saved_ = -1;
  std::FILE* file_ = nullptr;
  std::string text_;
};

int occurrences(const std::string& text, const std::string& what) {
  int count = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
    ++count;
  }
  return count;
}

}  // namespace

namespace {

// What GStreamer prints when a pipeline comes down badly: an element disposed in the
// wrong state, a queue flushed under a running stream.
int gstreamerComplaints(const std::string& printed) {
  return occurrences(printed, "GStreamer-CRITICAL") + occurrences(printed, "GStreamer-WARNING") +
         occurrences(printed, "Unexpected item dequeued");
}

// The players of every video view in `root`'s tree that has one.
// (The visual tree: a list's delegates are not QObject children of the list.)
void collectManagers(QQuickItem* item, std::vector<VideoPlayerManager*>& found) {
  if (auto* manager = item->property("videoManager").value<VideoPlayerManager*>()) {
    found.push_back(manager);
  }
  for (QQuickItem* child : item->childItems()) collectManagers(child, found);
}

std::vector<VideoPlayerManager*> managersIn(QQuickItem* root) {
  std::vector<VideoPlayerManager*> found;
  collectManagers(root, found);
  return found;
}

// The video output items in `root`'s tree (items with a video sink).
void collectVideoOutputs(QQuickItem* item, std::vector<QQuickItem*>& found) {
  if (item->metaObject()->indexOfProperty("videoSink") >= 0) found.push_back(item);
  for (QQuickItem* child : item->childItems()) collectVideoOutputs(child, found);
}

std::vector<QQuickItem*> findVideoOutputs(QQuickItem* root) {
  std::vector<QQuickItem*> found;
  if (root) collectVideoOutputs(root, found);
  return found;
}

bool anyPlaying(QQuickItem* root) {
  for (VideoPlayerManager* manager : managersIn(root)) {
    if (manager->player()->isPlaying()) return true;
  }
  return false;
}

void drainDeletes(int ms) {
  spinUntil([] { return false; }, ms);
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

// A host window whose engine the managers build their views in.
struct Host {
  Host() {
    view.engine()->addImportPath(QStringLiteral(TAVIK_QML_DIR));
    view.setSource(QUrl(QStringLiteral("data:text/plain,import QtQuick%0AItem {}")));
    view.setResizeMode(QQuickView::SizeRootObjectToView);
    view.resize(400, 600);
    view.show();
    view.requestActivate();
    spinUntil([&] { return view.isExposed(); });
  }
  QQuickView view;
};

BannerAd sandboxAd(const char* unit, int index = 0) {
  return decodeBannerAd(test::SandboxFixture::shared().adJson(unit, index).toStdString());
}

}  // namespace

// Every kind of video view made and destroyed over and over through its manager, most
// once they play, some while the video still loads, some destroyed at once after being
// hidden (the pipeline still on its way to pause): GStreamer never complains, and the
// players are reused rather than built anew for every view.
TEST(VideoPlaybackXvfbTest, EveryVideoFormatComesDownQuietlyOverManyCycles) {
  Host host;
  const TAVIK& sdk = TAVIK::shared();
  const BannerAd video = sandboxAd("au_video_banner");
  ASSERT_EQ(video.elements.type, "VIDEO");
  std::vector<BannerAd> cards;
  for (int i = 0; i < 4; ++i) cards.push_back(sandboxAd("au_multi", i));
  // The video card first, so that it is on screen.
  std::stable_partition(cards.begin(), cards.end(),
                        [](const BannerAd& ad) { return ad.elements.type == "VIDEO"; });
  ASSERT_EQ(cards.front().elements.type, "VIDEO");
  auto banners = quick::views(sdk).bannerAdView();
  auto strips = quick::views(sdk).multiAdCarouselView();
  auto interstitials = quick::views(sdk).interstitialAdView();
  auto pips = quick::views(sdk).pipAdView();
  auto* interstitialWindow =
      static_cast<InterstitialAdViewManager*>(interstitials.get())->customWindow.get();
  auto* pipWindow = static_cast<PIPAdViewManager*>(pips.get())->customWindow.get();
  QQuickItem* parent = host.view.rootObject();

  struct Format {
    const char* name;
    std::function<QQuickItem*()> show;  // the view's item (for an overlay, its layer)
    std::function<void(QQuickItem*)> hide;
  };
  const std::vector<Format> formats = {
      {"video banner", [&] { return banners->showAd(video, {}, parent); },
       [](QQuickItem* item) { delete item; }},
      {"multi-ad carousel",
       [&] {
         MultiAdCarouselSettings settings;
         settings.width = 320;
         settings.elementWidth = 300;
         return strips->showAd(cards, settings, parent);
       },
       [](QQuickItem* item) { delete item; }},
      {"interstitial",
       [&] {
         interstitials->showAd(video, {});
         return interstitialWindow->host();
       },
       [&](QQuickItem*) { interstitialWindow->dismiss(); }},
      {"picture in picture",
       [&] {
         pips->showAd(video, {});
         return pipWindow->host();
       },
       [&](QQuickItem*) { pipWindow->dismiss(); }},
  };

  constexpr int kCycles = 24;
  const int createdBefore = quick::QtMediaPlayer::createdCount();
  for (const Format& format : formats) {
    int played = 0;
    StderrCapture capture;
    for (int cycle = 0; cycle < kCycles; ++cycle) {
      QPointer<QQuickItem> item = format.show();
      ASSERT_TRUE(item) << format.name;
      // Two cycles in three wait for playback; the third goes while the video loads.
      if (cycle % 3 != 2 && spinUntil([&] { return item && anyPlaying(item); }, 5000)) {
        ++played;
        spinUntil([] { return false; }, 30);
      }
      if (cycle % 4 == 1 && item) {
        // Hidden (the player told to pause) and destroyed before the pause is reached.
        item->setVisible(false);
        QCoreApplication::processEvents();
      }
      format.hide(item);
      drainDeletes(cycle % 2 ? 0 : 20);
    }
    drainDeletes(300);
    const std::string printed = capture.take();
    EXPECT_GE(played, kCycles / 2) << format.name;
    EXPECT_EQ(gstreamerComplaints(printed), 0) << format.name << ":\n" << printed.substr(0, 2000);
  }
  // Every view had a player, but the pipelines were reused: a handful were ever built.
  EXPECT_LE(quick::QtMediaPlayer::createdCount() - createdBefore,
            quick::QtMediaPlayer::kPoolSize + 2);
  EXPECT_LE(quick::QtMediaPlayer::idleCount(), quick::QtMediaPlayer::kPoolSize);
}

// Video views made and destroyed over and over, each once it plays and some before:
// the pipeline comes down cleanly every time, and GStreamer has nothing to complain of.
TEST(VideoPlaybackXvfbTest, CreateAndDestroyCyclesLeaveGStreamerQuiet) {
  QQmlEngine engine;
  engine.addImportPath(QStringLiteral(TAVIK_QML_DIR));
  QQuickWindow window;
  window.resize(400, 300);
  window.show();
  ASSERT_TRUE(spinUntil([&] { return window.isExposed(); }));
  QQmlComponent component(&engine);
  component.setData(QStringLiteral(R"(
      import QtQuick
      import Tavik
      VideoAdView {
        width: 320; height: 180
        uclid: "uc-cycles"
        url: "%1/media/video_320x180.mp4"
      })")
                        .arg(QString::fromStdString(env().base()))
                        .toUtf8(),
                    QUrl("qrc:/video_cycles.qml"));
  int played = 0;
  StderrCapture capture;
  for (int cycle = 0; cycle < 40; ++cycle) {
    std::unique_ptr<QQuickItem> video(qobject_cast<QQuickItem*>(component.create()));
    ASSERT_TRUE(video) << component.errorString().toStdString();
    video->setParentItem(window.contentItem());
    // Most cycles wait for playback; every fourth goes while the video is still loading
    // (or before it has even been on screen).
    auto playing = [&] {
      auto* manager = video->property("videoManager").value<VideoPlayerManager*>();
      return manager && manager->player()->isPlaying();
    };
    if (cycle % 4 != 3 && spinUntil(playing, 5000)) {
      ++played;
      spinUntil([] { return false; }, 50);
    }
    video.reset();
    spinUntil([] { return false; }, 20);
  }
  spinUntil([] { return false; }, 300);
  const std::string printed = capture.take();
  EXPECT_GE(played, 25);
  EXPECT_EQ(gstreamerComplaints(printed), 0) << printed.substr(0, 2000);
}

// The players' output items are built once each and travel with their players: showing
// a video ad builds none, the view draws through its player's own output while it plays,
// and a view gone gives the output back with the player, out of every window.
TEST(VideoPlaybackXvfbTest, ShowAdBuildsNoVideoOutputAndTheOutputTravelsWithItsPlayer) {
  env();  // the SDK, installed with the sandbox
  Host host;
  const BannerAd video = sandboxAd("au_video_banner");
  auto banners = quick::views(TAVIK::shared()).bannerAdView();
  QQuickItem* parent = host.view.rootObject();
  StderrCapture capture;
  std::set<QQuickItem*> outputsSeen;
  for (int cycle = 0; cycle < 8; ++cycle) {
    const int outputsBefore = quick::QtMediaPlayer::outputsCreatedCount();
    QPointer<QQuickItem> banner = banners->showAd(video, {}, parent);
    ASSERT_TRUE(banner);
    EXPECT_EQ(quick::QtMediaPlayer::outputsCreatedCount(), outputsBefore) << cycle;
    EXPECT_TRUE(findVideoOutputs(banner).empty()) << "nothing to draw before a player";
    ASSERT_TRUE(spinUntil([&] { return anyPlaying(banner); }, 5000)) << cycle;
    const std::vector<QQuickItem*> outputs = findVideoOutputs(banner);
    ASSERT_EQ(outputs.size(), 1u) << cycle;
    QPointer<QQuickItem> output = outputs.front();
    QQuickItem* view = output->parentItem();
    ASSERT_TRUE(view);
    EXPECT_EQ(output->size(), view->size()) << "the output fills its view";
    EXPECT_EQ(view->property("videoOutput").value<QQuickItem*>(), output.data());
    outputsSeen.insert(output);
    delete banner;
    ASSERT_TRUE(output) << "the output goes back with its player, not with the view";
    // Out of the view: hidden in the window it drew in, or in no window when the view
    // went with an ancestor (which leaves the window before anything inside is told).
    EXPECT_TRUE(output->window() == nullptr || !output->isVisible());
    drainDeletes(10);
  }
  // One player at a time: the same one, with the same output, every time.
  EXPECT_EQ(outputsSeen.size(), 1u);
  drainDeletes(200);
  const std::string printed = capture.take();
  EXPECT_EQ(gstreamerComplaints(printed), 0) << printed.substr(0, 2000);
}

// Views destroyed within a frame or two of being made, while their pipelines still start
// up (the output's first frame and the renderer it then switches to included): nothing is
// disposed in the wrong state. And more players live at once than the pool keeps: those
// destroyed on their way back come down quietly too.
TEST(VideoPlaybackXvfbTest, ViewsDestroyedRightAfterTheyAreMadeLeaveGStreamerQuiet) {
  env();  // the SDK, installed with the sandbox
  Host host;
  const BannerAd video = sandboxAd("au_video_banner");
  auto banners = quick::views(TAVIK::shared()).bannerAdView();
  auto pips = quick::views(TAVIK::shared()).pipAdView();
  auto* pipWindow = static_cast<PIPAdViewManager*>(pips.get())->customWindow.get();
  QQuickItem* parent = host.view.rootObject();
  auto nextFrame = [&] { drawNextFrame(host.view); };
  StderrCapture capture;
  int withPlayer = 0;
  for (int cycle = 0; cycle < 60; ++cycle) {
    QPointer<QQuickItem> banner = banners->showAd(video, {}, parent);
    for (int frame = 0; frame < cycle % 4; ++frame) nextFrame();
    if (banner && !findVideoOutputs(banner).empty()) ++withPlayer;
    delete banner;
    pips->showAd(video, {});
    for (int frame = 0; frame < (cycle + 1) % 3; ++frame) nextFrame();
    pipWindow->dismiss();
    drainDeletes(cycle % 5 == 0 ? 20 : 0);
  }
  // Six banners playing at once, then all destroyed: two more players than the pool keeps.
  const int keep = quick::QtMediaPlayer::kPoolSize + 2;
  std::vector<QPointer<QQuickItem>> live;
  for (int i = 0; i < keep; ++i) {
    live.emplace_back(banners->showAd(video, {}, parent));
    live.back()->setY(i * 60);
  }
  spinUntil(
      [&] {
        return std::all_of(live.begin(), live.end(),
                           [](const QPointer<QQuickItem>& item) { return anyPlaying(item); });
      },
      8000);
  for (auto& item : live) delete item.data();
  EXPECT_LE(quick::QtMediaPlayer::idleCount(), quick::QtMediaPlayer::kPoolSize);
  drainDeletes(300);
  const std::string printed = capture.take();
  EXPECT_GT(withPlayer, 10) << "most views lived long enough to take a player";
  EXPECT_EQ(gstreamerComplaints(printed), 0) << printed.substr(0, 2000);
}

// A dismissed overlay gives its player back at once, not when the overlay's item is
// finally deleted: its video stops, and the player is idle in the pool again.
TEST(VideoPlaybackXvfbTest, ADismissedOverlayGivesItsPlayerBackAtDismiss) {
  env();  // the SDK, installed with the sandbox
  Host host;
  const BannerAd video = sandboxAd("au_video_banner");
  auto pips = quick::views(TAVIK::shared()).pipAdView();
  auto interstitials = quick::views(TAVIK::shared()).interstitialAdView();
  auto* pipWindow = static_cast<PIPAdViewManager*>(pips.get())->customWindow.get();
  auto* interstitialWindow =
      static_cast<InterstitialAdViewManager*>(interstitials.get())->customWindow.get();
  StderrCapture capture;
  for (CustomWindow* overlay : {pipWindow, interstitialWindow}) {
    if (overlay == pipWindow) {
      pips->showAd(video, {});
    } else {
      interstitials->showAd(video, {});
    }
    QPointer<QQuickItem> layer = overlay->host();
    ASSERT_TRUE(layer);
    ASSERT_TRUE(spinUntil([&] { return anyPlaying(layer); }, 5000));
    QPointer<MediaPlayer> player = managersIn(layer).front()->player();
    const int idleBefore = quick::QtMediaPlayer::idleCount();
    overlay->dismiss();
    // The layer waits for deferred deletion; its player does not.
    ASSERT_TRUE(layer);
    EXPECT_TRUE(managersIn(layer).empty());
    ASSERT_TRUE(player);
    EXPECT_FALSE(player->isPlaying());
    EXPECT_TRUE(player->source().isEmpty());
    EXPECT_EQ(player->parent(), nullptr) << "back in the pool";
    EXPECT_EQ(quick::QtMediaPlayer::idleCount(),
              std::min(idleBefore + 1, quick::QtMediaPlayer::kPoolSize));
    drainDeletes(50);
    EXPECT_FALSE(layer);
  }
  drainDeletes(200);
  const std::string printed = capture.take();
  EXPECT_EQ(gstreamerComplaints(printed), 0) << printed.substr(0, 2000);
}

namespace {

// How many colours the left middle of `panel` has in `grabbed`, clear of the panel's
// buttons: a video picture has many, the panel's background one.
int coloursInPanel(const QImage& grabbed, const QRectF& panel) {
  const QImage frame = grabbed.convertToFormat(QImage::Format_RGB32);
  const QRect p = panel.toRect();
  const QRect area(p.x() + p.width() / 10, p.y() + p.height() * 3 / 10, p.width() * 4 / 10,
                   p.height() * 4 / 10);
  QSet<QRgb> colours;
  for (int y = area.top(); y <= area.bottom(); ++y) {
    for (int x = area.left(); x <= area.right(); ++x) colours.insert(frame.pixel(x, y));
  }
  return int(colours.size());
}

// The video view inside an overlay's layer, if there is one.
QQuickItem* videoViewIn(QQuickItem* root) {
  if (!root) return nullptr;
  if (root->metaObject()->indexOfProperty("showsPreloadedPicture") >= 0) return root;
  for (QQuickItem* child : root->childItems()) {
    if (QQuickItem* found = videoViewIn(child)) return found;
  }
  return nullptr;
}

}  // namespace

// A picture in picture shown after its preload completed draws the video's first picture
// in the first frame after showAd: the preload played the file on an idle pooled player up
// to its first picture and kept a copy, which the panel draws until its own player's
// first picture reaches the output. Without a preload that frame has no video in it. The
// preload builds no player, and a preload given up drops its picture.
TEST(VideoPlaybackXvfbTest, APreloadedPictureInPictureDrawsItsVideoInItsFirstFrame) {
  env();  // the SDK, installed with the sandbox
  Host host;
  auto pips = quick::views(TAVIK::shared()).pipAdView();
  auto* overlay = static_cast<PIPAdViewManager*>(pips.get())->customWindow.get();
  // The first frame after a call: drawn for real (it completes the panel's view, queued by
  // showAd), then the scene as that frame left it drawn again into an image.
  auto firstFrame = [&] {
    drawNextFrame(host.view);
    return host.view.grabWindow();
  };
  StderrCapture capture;
  // A panel played once: the pool holds a player with its output.
  pips->showAd(sandboxAd("au_video_banner"), {});
  ASSERT_TRUE(overlay->host());
  ASSERT_TRUE(spinUntil([&] { return anyPlaying(overlay->host()); }, 5000));
  overlay->dismiss();
  drainDeletes(100);
  ASSERT_GE(quick::QtMediaPlayer::idleCount(), 1);

  // Not preloaded: the first frame holds only the panel.
  BannerAd plain = sandboxAd("au_video_banner");
  plain.elements.value += "?first-frame-plain";
  pips->showAd(plain, {});
  EXPECT_LE(coloursInPanel(firstFrame(), overlay->windowFrame()), 4)
      << "the control drew a video picture at once";
  ASSERT_TRUE(videoViewIn(overlay->host()));
  EXPECT_FALSE(videoViewIn(overlay->host())->property("showsPreloadedPicture").toBool());
  overlay->dismiss();
  drainDeletes(100);

  BannerAd ad = sandboxAd("au_video_banner");
  ad.elements.value += "?first-frame-preloaded";
  const int created = quick::QtMediaPlayer::createdCount();
  const int outputs = quick::QtMediaPlayer::outputsCreatedCount();
  Future<bool> preloaded = pips->preload(ad);
  ASSERT_TRUE(spinUntil([&] { return preloaded.is_ready(); }, 8000));
  EXPECT_TRUE(preloaded.get());
  // The player it played on goes back to the pool right after.
  EXPECT_TRUE(spinUntil([] { return quick::QtMediaPlayer::grabbingCount() == 0; }, 1000));
  EXPECT_FALSE(quick::detail::preloadedVideoPicture(ad.elements.value).isNull());
  EXPECT_EQ(quick::QtMediaPlayer::createdCount(), created) << "the preload built a player";
  EXPECT_EQ(quick::QtMediaPlayer::outputsCreatedCount(), outputs);

  pips->showAd(ad, {});
  const QImage first = firstFrame();
  const QString path = QDir(outputDir()).filePath(QStringLiteral("pip_first_frame_xvfb.png"));
  first.save(path);
  EXPECT_GT(coloursInPanel(first, overlay->windowFrame()), 16) << "saved as " << path.toStdString();
  QPointer<QQuickItem> view = videoViewIn(overlay->host());
  ASSERT_TRUE(view);
  EXPECT_NE(view->findChild<QQuickItem*>(QStringLiteral("preloadedVideoPicture")), nullptr);
  EXPECT_TRUE(view->property("showsPreloadedPicture").toBool());
  // The panel's player took the preload over; its first picture replaces the still one.
  ASSERT_TRUE(spinUntil([&] { return anyPlaying(overlay->host()); }, 5000));
  EXPECT_TRUE(spinUntil([&] { return !view->property("showsPreloadedPicture").toBool(); }, 3000));
  EXPECT_EQ(view->findChild<QQuickItem*>(QStringLiteral("preloadedVideoPicture")), nullptr);
  EXPECT_TRUE(quick::detail::preloadedVideoPicture(ad.elements.value).isNull());
  // It went because the output has a picture of its own, which it draws from now on.
  const std::vector<QQuickItem*> drawing = findVideoOutputs(view);
  ASSERT_EQ(drawing.size(), 1u);
  EXPECT_TRUE(drawing.front()->property("videoSink").value<QVideoSink*>()->videoFrame().isValid());
  overlay->dismiss();
  drainDeletes(100);

  // Given up before a panel showed it: the picture goes with the preload.
  BannerAd dropped = sandboxAd("au_video_banner");
  dropped.elements.value += "?first-frame-dropped";
  Future<bool> again = pips->preload(dropped);
  ASSERT_TRUE(spinUntil([&] { return again.is_ready(); }, 8000));
  EXPECT_FALSE(quick::detail::preloadedVideoPicture(dropped.elements.value).isNull());
  pips->dropPreload(dropped);
  EXPECT_TRUE(quick::detail::preloadedVideoPicture(dropped.elements.value).isNull());
  pips->showAd(dropped, {});
  firstFrame();
  ASSERT_TRUE(videoViewIn(overlay->host()));
  EXPECT_FALSE(videoViewIn(overlay->host())->property("showsPreloadedPicture").toBool());
  overlay->dismiss();
  drainDeletes(200);
  const std::string printed = capture.take();
  EXPECT_EQ(gstreamerComplaints(printed), 0) << printed.substr(0, 2000);
}
