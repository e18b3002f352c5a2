// VideoAdView with real Qt Multimedia (GStreamer) and real frames under Xvfb: the
// sandbox's 3-second video comes through the SDK's transport, plays, loops, reports its
// progress every second, and draws pictures into the window.
#include <gtest/gtest.h>

#include <unistd.h>
#include <QDir>
#include <QImage>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSet>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "support/sandbox_fixture.h"
#include "tavik/video/video_player_manager.h"

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
  auto* manager = video->property("videoManager").value<VideoPlayerManager*>();
  ASSERT_TRUE(manager);
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
    auto* manager = video->property("videoManager").value<VideoPlayerManager*>();
    ASSERT_TRUE(manager);
    // Most cycles wait for playback; every fourth goes while the video is still loading.
    if (cycle % 4 != 3 && spinUntil([&] { return manager->player()->isPlaying(); }, 5000)) {
      ++played;
      spinUntil([] { return false; }, 50);
    }
    video.reset();
    spinUntil([] { return false; }, 20);
  }
  spinUntil([] { return false; }, 300);
  const std::string printed = capture.take();
  EXPECT_GE(played, 25);
  EXPECT_EQ(occurrences(printed, "GStreamer-CRITICAL"), 0) << printed.substr(0, 2000);
  EXPECT_EQ(occurrences(printed, "Unexpected item dequeued"), 0) << printed.substr(0, 2000);
}
