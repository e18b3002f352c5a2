// The video player manager on a scripted player, its events checked on the sandbox's
// event log over real HTTPS; the Qt Multimedia player on the offscreen platform; and
// VideoAdView's appearances in an offscreen window.
#include <gtest/gtest.h>

#include <QPointer>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QTemporaryFile>
#include <QThread>
#include <algorithm>
#include <limits>

#include "support/sandbox_fixture.h"
#include "support/scripted_media_player.h"
#include "tavik/network/transport.h"
#include "tavik/video/video_player_manager.h"
#include "video/progress_clock.h"
#include "video/qt_media_player.h"
#include "views/creative_store.h"

using namespace tavik;
using tavik::test::ScriptedMediaPlayer;
using tavik::test::spinUntil;
using Strings = std::vector<std::string>;

namespace {

constexpr const char* kShopper = "shopper-7";

// Each test's ad has its own id, so that events still in flight from an earlier test in
// the same process are never counted.
std::string testUclid() {
  return std::string("uc-") + ::testing::UnitTest::GetInstance()->current_test_info()->name();
}

test::SandboxEnv& env() {
  return test::SandboxFixture::shared().env();
}

// The logged events named `eventName` for `uclid`, once at least `count` are there
// (waiting up to ten seconds for them).
std::vector<nlohmann::json> eventsOf(const std::string& eventName, std::size_t count,
                                     const std::string& uclid = testUclid()) {
  std::vector<nlohmann::json> found;
  spinUntil(
      [&] {
        found.clear();
        for (const auto& entry : env().server().eventLog()) {
          if (entry["event_name"] == eventName && entry["params"].value("uclid", "") == uclid) {
            found.push_back(entry);
          }
        }
        return found.size() >= count;
      },
      10000);
  return found;
}

std::vector<nlohmann::json> progressEvents(std::size_t count,
                                           const std::string& uclid = testUclid()) {
  return eventsOf("funnel_video_progress", count, uclid);
}

// One parameter of every event, sorted: events travel on parallel connections and may
// arrive in any order.
Strings sortedParam(const std::vector<nlohmann::json>& events, const std::string& key) {
  Strings values;
  for (const auto& event : events) values.push_back(event["params"].value(key, "<absent>"));
  std::sort(values.begin(), values.end());
  return values;
}

// Starts the way VideoAdView does when it appears.
void start(VideoPlayerManager& manager) {
  manager.startProgressTracking();
  manager.observePlaybackEnd();
  manager.player()->play();
}

// Gives stray requests time to arrive, then counts the events of this test's ad.
std::size_t settledEventCount() {
  QThread::msleep(400);
  std::size_t count = 0;
  for (const auto& entry : env().server().eventLog()) {
    if (entry["params"].value("uclid", "") == testUclid()) ++count;
  }
  return count;
}

}  // namespace

TEST(ProgressClockTest, FiresOnStartEachIntervalAndOnJumpsBack) {
  quick::ProgressClock clock(2);
  EXPECT_EQ(clock.started(0.0), 0.0);
  EXPECT_EQ(clock.moved(0.1), std::nullopt);
  EXPECT_EQ(clock.moved(1.99), std::nullopt);
  EXPECT_EQ(clock.moved(2.05), 2.05);  // the first report at or past the multiple
  EXPECT_EQ(clock.moved(2.5), std::nullopt);
  EXPECT_EQ(clock.moved(6.4), 6.4);  // a skip forward over two multiples fires once
  EXPECT_EQ(clock.moved(7.9), std::nullopt);
  EXPECT_EQ(clock.moved(8.0), 8.0);
  EXPECT_EQ(clock.moved(7.98), std::nullopt);  // reporting noise is no seek
  EXPECT_EQ(clock.moved(1.0), 1.0);            // a jump back fires at once
  EXPECT_EQ(clock.moved(1.9), std::nullopt);   // and the intervals count from there
  EXPECT_EQ(clock.moved(2.0), 2.0);

  // The loop: the jump back to zero fires; playback restarting at zero does not again.
  EXPECT_EQ(clock.moved(0.0), 0.0);
  EXPECT_EQ(clock.started(0.0), std::nullopt);
  // A resume elsewhere fires.
  EXPECT_EQ(clock.moved(0.5), std::nullopt);
  EXPECT_EQ(clock.started(0.5), 0.5);

  clock.reset();
  EXPECT_EQ(clock.moved(0.7), 0.7);  // after a reset the next report fires
}

class VideoManagerTest : public ::testing::Test {
 protected:
  void SetUp() override { env().server().reset(); }

  std::unique_ptr<VideoPlayerManager> make(int interval, std::optional<double> duration = 10.0,
                                           const std::string& url = "https://cdn.test/ad.mp4") {
    auto player = std::make_unique<ScriptedMediaPlayer>(duration);
    scripted = player.get();
    return std::make_unique<VideoPlayerManager>(env().config(), kShopper, testUclid(), url,
                                                interval, std::move(player));
  }

  ScriptedMediaPlayer* scripted = nullptr;
};

TEST_F(VideoManagerTest, StartsMutedAndPublishesThePlayersStatus) {
  auto manager = make(3);
  EXPECT_TRUE(manager->isMuted());
  EXPECT_TRUE(scripted->isMuted());
  EXPECT_EQ(scripted->source(), QUrl("https://cdn.test/ad.mp4"));
  EXPECT_EQ(manager->playerStatus(), VideoPlayerManager::Unknown);
  EXPECT_TRUE(manager->playerError().isEmpty());
  EXPECT_EQ(manager->videoPlayTime(), 0.0f);
  EXPECT_FALSE(scripted->isPlaying());  // nothing plays before the view appears

  QSignalSpy status(manager.get(), &VideoPlayerManager::playerStatusChanged);
  QSignalSpy error(manager.get(), &VideoPlayerManager::playerErrorChanged);
  scripted->becomeReady();
  EXPECT_EQ(manager->playerStatus(), VideoPlayerManager::ReadyToPlay);
  EXPECT_EQ(status.count(), 1);
  scripted->failWith("decoder gave up");
  EXPECT_EQ(manager->playerStatus(), VideoPlayerManager::Failed);
  EXPECT_EQ(manager->playerError(), "decoder gave up");
  EXPECT_EQ(status.count(), 2);
  EXPECT_EQ(error.count(), 1);
}

TEST_F(VideoManagerTest, AnAddressThatDoesNotParseBecomesTheEmptyInlineResource) {
  for (const std::string bad : {"", "https://cdn.test/a video.mp4", "http://[::1"}) {
    auto manager = make(3, 10.0, bad);
    EXPECT_EQ(manager->url(), QUrl("data:,")) << bad;
    EXPECT_EQ(scripted->source(), QUrl("data:,")) << bad;
  }
}

TEST_F(VideoManagerTest, ReportsProgressAtTheIntervalInFloatSeconds) {
  auto manager = make(2);
  manager->startProgressTracking();
  manager->startProgressTracking();  // a second call installs nothing more
  EXPECT_TRUE(manager->isTrackingProgress());
  QSignalSpy playTime(manager.get(), &VideoPlayerManager::videoPlayTimeChanged);
  scripted->play();
  scripted->playFor(6.3, 300);  // reports 0.3, 0.6, ... 6.3

  const auto events = progressEvents(4);
  ASSERT_EQ(events.size(), 4u);
  EXPECT_EQ(sortedParam(events, "video_view_sec"), (Strings{"0.0", "2.1", "4.2", "6.0"}));
  for (const auto& event : events) {
    EXPECT_EQ(event["path"], "/events");
    EXPECT_EQ(event["params"]["event_name"], "funnel_video_progress");
    EXPECT_EQ(event["params"]["cli_ubid"], kShopper);
    EXPECT_EQ(event["params"]["video_duration_sec"], "10.0");
    EXPECT_EQ(event["params"]["client_id"], "client-1");
  }
  EXPECT_FLOAT_EQ(manager->videoPlayTime(), 6.0f);
  EXPECT_EQ(playTime.count(), 3);  // 0 -> 0 is no change
  EXPECT_EQ(settledEventCount(), 4u);

  // A seek back fires at once, and the interval counts from there.
  scripted->jumpTo(1.0);
  scripted->playFor(2.0, 500);  // 1.5, 2.0 (a tick), 2.5, 3.0
  EXPECT_EQ(sortedParam(progressEvents(6), "video_view_sec"),
            (Strings{"0.0", "1.0", "2.0", "2.1", "4.2", "6.0"}));
}

TEST_F(VideoManagerTest, MuteTogglesReportTheLastTicksPosition) {
  auto manager = make(2);
  start(*manager);
  scripted->playFor(3.0, 300);  // ticks at 0 and 2.1; the player is at 3.0 now
  progressEvents(2);
  QSignalSpy muted(manager.get(), &VideoPlayerManager::isMutedChanged);

  manager->toggleMute();  // muted from the start, so this one turns the sound on
  EXPECT_FALSE(manager->isMuted());
  EXPECT_FALSE(scripted->isMuted());
  auto actions = eventsOf("funnel_video_action", 1);
  ASSERT_EQ(actions.size(), 1u);
  EXPECT_EQ(actions[0]["params"]["action_type"], "unmute");
  EXPECT_EQ(actions[0]["params"]["video_view_sec"], "2.1");
  EXPECT_EQ(actions[0]["params"]["cli_ubid"], kShopper);
  EXPECT_FALSE(actions[0]["params"].contains("video_duration_sec"));

  manager->toggleMute();
  EXPECT_TRUE(manager->isMuted());
  EXPECT_TRUE(scripted->isMuted());
  actions = eventsOf("funnel_video_action", 2);
  ASSERT_EQ(actions.size(), 2u);
  EXPECT_EQ(actions[1]["params"]["action_type"], "mute");
  EXPECT_EQ(actions[1]["params"]["video_view_sec"], "2.1");
  EXPECT_EQ(muted.count(), 2);
}

TEST_F(VideoManagerTest, CleanupStopsEverythingUntilTrackingStartsAgain) {
  auto manager = make(2);
  start(*manager);
  scripted->playFor(2.5, 500);  // ticks at 0 and 2.0
  progressEvents(2);
  ASSERT_FLOAT_EQ(manager->videoPlayTime(), 2.0f);

  manager->cleanup();
  EXPECT_FALSE(scripted->isPlaying());
  EXPECT_EQ(manager->videoPlayTime(), 0.0f);
  EXPECT_FALSE(manager->isTrackingProgress());
  EXPECT_FALSE(manager->isObservingPlaybackEnd());

  // Played on by someone else: no progress, no loop, and the status is no longer followed.
  scripted->play();
  scripted->playFor(3, 500);
  scripted->jumpTo(9.0);
  scripted->playFor(2, 500);
  EXPECT_FALSE(scripted->isPlaying());
  EXPECT_EQ(scripted->seekToZeroCalls, 0);
  scripted->becomeReady();
  EXPECT_EQ(manager->playerStatus(), VideoPlayerManager::Unknown);
  EXPECT_EQ(settledEventCount(), 2u);

  manager->toggleMute();  // no tick since the cleanup: the position sent is 0
  auto actions = eventsOf("funnel_video_action", 1);
  ASSERT_EQ(actions.size(), 1u);
  EXPECT_EQ(actions[0]["params"]["video_view_sec"], "0.0");

  // The same manager starts again on the same player, from where it stands.
  scripted->jumpTo(1.0);
  start(*manager);
  EXPECT_TRUE(manager->isTrackingProgress());
  scripted->playFor(1.0, 500);
  EXPECT_EQ(sortedParam(progressEvents(4), "video_view_sec"),
            (Strings{"0.0", "1.0", "2.0", "2.0"}));
  EXPECT_FLOAT_EQ(manager->videoPlayTime(), 2.0f);
}

TEST_F(VideoManagerTest, AVideoWithoutAKnownEndReportsDurationZero) {
  auto manager = make(1, std::nullopt);
  EXPECT_EQ(manager->videoDuration(), 0.0f);
  start(*manager);
  scripted->playFor(1.0, 250);
  const auto events = progressEvents(2);
  ASSERT_EQ(events.size(), 2u);
  EXPECT_EQ(sortedParam(events, "video_duration_sec"), (Strings{"0.0", "0.0"}));

  scripted->setDuration(std::numeric_limits<double>::infinity());
  EXPECT_EQ(manager->videoDuration(), 0.0f);
  scripted->setDuration(std::numeric_limits<double>::quiet_NaN());
  EXPECT_EQ(manager->videoDuration(), 0.0f);
  scripted->setDuration(2.5);
  EXPECT_EQ(manager->videoDuration(), 2.5f);
}

TEST_F(VideoManagerTest, LoopsAtTheEndWithoutANewAppearance) {
  auto manager = make(1, 3.0);
  start(*manager);
  scripted->playFor(7.5, 250);

  EXPECT_EQ(scripted->seekToZeroCalls, 2);
  EXPECT_EQ(scripted->playCalls, 3);
  EXPECT_TRUE(scripted->isPlaying());
  EXPECT_DOUBLE_EQ(scripted->position(), 1.5);
  // Per pass: the start, each second, the last frame; then the jump back to zero.
  EXPECT_EQ(sortedParam(progressEvents(10), "video_view_sec"),
            (Strings{"0.0", "0.0", "0.0", "1.0", "1.0", "1.0", "2.0", "2.0", "3.0", "3.0"}));

  // Without the end observer the video stops at its end.
  auto once = make(1, 3.0);
  once->startProgressTracking();
  scripted->play();
  scripted->playFor(5.0, 250);
  EXPECT_EQ(scripted->seekToZeroCalls, 0);
  EXPECT_FALSE(scripted->isPlaying());
  EXPECT_DOUBLE_EQ(scripted->position(), 3.0);
}

TEST_F(VideoManagerTest, DestroyingTheManagerPausesAndStopsTheEvents) {
  auto manager = make(1);
  QPointer<ScriptedMediaPlayer> player = scripted;
  start(*manager);
  scripted->playFor(1.0, 500);
  progressEvents(2);
  bool pausedBeforeGoing = false;
  QObject::connect(scripted, &MediaPlayer::playingChanged,
                   [&](bool playing) { pausedBeforeGoing = !playing; });
  manager.reset();
  EXPECT_TRUE(pausedBeforeGoing);
  EXPECT_TRUE(player.isNull());  // the manager owned it
  EXPECT_EQ(settledEventCount(), 2u);
}

// ---- the Qt Multimedia player (offscreen: it decodes and its position advances)

class QtPlayerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ScriptedMediaPlayer::uninstall();
    env().server().reset();
  }
  std::unique_ptr<VideoPlayerManager> make(const std::string& url, int interval = 1) {
    return std::make_unique<VideoPlayerManager>(env().config(), kShopper, testUclid(), url,
                                                interval);
  }
};

TEST_F(QtPlayerTest, PlaysAnHttpsVideoDownloadedByTheTransport) {
  auto manager = make(env().base() + "/media/video_320x180.mp4");
  EXPECT_EQ(qobject_cast<ScriptedMediaPlayer*>(manager->player()), nullptr);
  ASSERT_TRUE(spinUntil([&] { return manager->playerStatus() != VideoPlayerManager::Unknown; }))
      << "the video never loaded";
  ASSERT_EQ(manager->playerStatus(), VideoPlayerManager::ReadyToPlay)
      << manager->playerError().toStdString();
  EXPECT_NEAR(manager->videoDuration(), 3.0f, 0.05f);
  EXPECT_TRUE(manager->player()->isMuted());
  EXPECT_EQ(env().server().requests("/media/video_320x180.mp4").size(), 1u);

  manager->startProgressTracking();
  manager->player()->play();
  ASSERT_TRUE(spinUntil([&] { return manager->player()->position() > 1.2; }));
  const auto events = progressEvents(2);
  ASSERT_GE(events.size(), 2u);
  EXPECT_EQ(events[0]["params"]["video_duration_sec"], "3.0");

  manager->cleanup();
  EXPECT_FALSE(manager->player()->isPlaying());
}

// A manager that goes gives its Qt player back: the next manager gets the same player,
// stopped, muted, without the old source or listeners, and it plays the new video.
TEST_F(QtPlayerTest, TheNextManagerReusesAPlayerThatComesBackEmptyMutedAndUnheard) {
  const std::string url = env().base() + "/media/video_320x180.mp4";
  MediaPlayer* first = nullptr;
  int firstStatusChanges = 0;
  {
    auto manager = make(url);
    first = manager->player();
    QObject::connect(first, &MediaPlayer::statusChanged, [&] { ++firstStatusChanges; });
    ASSERT_TRUE(spinUntil([&] {
      return manager->playerStatus() == VideoPlayerManager::ReadyToPlay;
    })) << manager->playerError().toStdString();
    manager->toggleMute();  // the sound on
    manager->player()->play();
    ASSERT_TRUE(spinUntil([&] { return manager->player()->isPlaying(); }));
  }
  EXPECT_GE(quick::QtMediaPlayer::idleCount(), 1);
  EXPECT_TRUE(first->source().isEmpty());
  EXPECT_FALSE(first->isPlaying());
  const int changesWhenGone = firstStatusChanges;
  const int made = quick::QtMediaPlayer::createdCount();

  auto next = make(url);
  EXPECT_EQ(next->player(), first);
  EXPECT_EQ(quick::QtMediaPlayer::createdCount(), made);
  EXPECT_TRUE(next->player()->isMuted());
  EXPECT_FALSE(next->player()->isPlaying());
  ASSERT_TRUE(spinUntil([&] { return next->playerStatus() == VideoPlayerManager::ReadyToPlay; }))
      << next->playerError().toStdString();
  next->player()->play();
  ASSERT_TRUE(spinUntil([&] { return next->player()->position() > 0.5; }));
  // The first manager's listener heard nothing of the second video.
  EXPECT_EQ(firstStatusChanges, changesWhenGone);
}

TEST_F(QtPlayerTest, UnplayableSourcesFailOrStayIdleWithoutCrashing) {
  auto missing = make(env().base() + "/media/no_such_video.mp4");
  auto plainHttp = make("http://127.0.0.1:9/video.mp4");
  auto empty = make("not a url");
  QTemporaryFile text;
  ASSERT_TRUE(text.open());
  text.write("this is no video at all\n");
  text.flush();
  auto garbage = make(QUrl::fromLocalFile(text.fileName()).toString().toStdString());
  for (auto* manager : {missing.get(), plainHttp.get(), empty.get(), garbage.get()}) {
    start(*manager);
  }

  ASSERT_TRUE(spinUntil([&] {
    return missing->playerStatus() == VideoPlayerManager::Failed &&
           plainHttp->playerStatus() == VideoPlayerManager::Failed &&
           garbage->playerStatus() == VideoPlayerManager::Failed;
  }));
  EXPECT_FALSE(missing->playerError().isEmpty());
  EXPECT_TRUE(plainHttp->playerError().contains("https")) << plainHttp->playerError().toStdString();
  EXPECT_FALSE(garbage->playerError().isEmpty());
  EXPECT_EQ(env().server().requests("/media/no_such_video.mp4").size(), 1u);

  // "data:," is simply nothing: no status, no playback, no error.
  QThread::msleep(200);
  QCoreApplication::processEvents();
  EXPECT_EQ(empty->url(), QUrl("data:,"));
  EXPECT_EQ(empty->playerStatus(), VideoPlayerManager::Unknown);
  EXPECT_FALSE(empty->player()->isPlaying());
  EXPECT_TRUE(empty->playerError().isEmpty());
  EXPECT_EQ(empty->videoDuration(), 0.0f);
  EXPECT_EQ(settledEventCount(), 0u);
}

TEST_F(QtPlayerTest, AManagerGoneBeforeItsDownloadEndsCancelsItAndIsLeftAlone) {
  env().server().script("/media/slow.mp4", test::slow(std::chrono::milliseconds(2000), "x"));
  const auto cancelledBefore = transport::stats().requestsCancelled;
  {
    auto manager = make(env().base() + "/media/slow.mp4");
    manager->player()->play();
    ASSERT_TRUE(spinUntil([] { return !env().server().requests("/media/slow.mp4").empty(); }));
  }
  // Nobody wants the video any more: its transfer stops, and nothing touches the player.
  EXPECT_TRUE(
      spinUntil([&] { return transport::stats().requestsCancelled == cancelledBefore + 1; }));
  spinUntil([] { return false; }, 600);
  EXPECT_EQ(env().server().requests("/media/slow.mp4").size(), 1u);
}

// A player given back while its media still loads is not brought down (nor handed out)
// until Qt reports the media loaded: a new source given to a pipeline whose decoder still
// adds its pads can deadlock Qt 6.4's GStreamer back end. Once settled, it comes back
// empty and idle; one given back settled is idle at once.
TEST_F(QtPlayerTest, APlayerGivenBackWhileItsMediaLoadsIsHandedOutOnlyOnceSettled) {
  auto hold = quick::detail::holdCreativeFile(env().base() + "/media/video_320x180.mp4");
  ASSERT_TRUE(spinUntil([&] { return hold.future().is_ready(); }));
  const QUrl file = QUrl::fromLocalFile(QString::fromStdString(hold.future().get()));

  std::unique_ptr<quick::QtMediaPlayer> loading = quick::QtMediaPlayer::take();
  loading->setSource(file);  // a local file: the pipeline starts loading now
  loading->play();
  const int idle = quick::QtMediaPlayer::idleCount();
  const int settling = quick::QtMediaPlayer::settlingCount();
  QPointer<quick::QtMediaPlayer> returned = loading.get();
  quick::QtMediaPlayer::giveBack(loading.release());
  EXPECT_EQ(quick::QtMediaPlayer::settlingCount(), settling + 1);
  EXPECT_EQ(quick::QtMediaPlayer::idleCount(), idle);
  EXPECT_TRUE(returned->source().isEmpty()) << "its views see no source any more";
  // Until it settles, whoever asks for a player gets another one.
  std::vector<std::unique_ptr<quick::QtMediaPlayer>> taken;
  for (int i = 0; i <= idle; ++i) {
    taken.push_back(quick::QtMediaPlayer::take());
    EXPECT_NE(taken.back().get(), returned.data());
  }
  ASSERT_TRUE(spinUntil([&] { return quick::QtMediaPlayer::settlingCount() == settling; }))
      << "the media never settled";
  ASSERT_TRUE(returned) << "settled into a pool that had room";
  EXPECT_FALSE(returned->isPlaying()) << "the play asked for before it was given back";
  EXPECT_EQ(quick::QtMediaPlayer::idleCount(), 1);
  EXPECT_EQ(quick::QtMediaPlayer::take().release(), returned.data());
  // Brought down on settling: no source, status unknown.
  std::unique_ptr<quick::QtMediaPlayer> again(returned.data());
  EXPECT_EQ(again->status(), MediaPlayer::Status::unknown);
  EXPECT_TRUE(again->source().isEmpty());
  // Given back with nothing loading, a player is idle at once.
  quick::QtMediaPlayer::giveBack(again.release());
  EXPECT_EQ(quick::QtMediaPlayer::idleCount(), 1);
  EXPECT_EQ(quick::QtMediaPlayer::settlingCount(), settling);
  for (auto& player : taken) quick::QtMediaPlayer::giveBack(player.release());
}

// ---- VideoAdView in an offscreen window, on scripted players

class VideoAdViewTest : public ::testing::Test {
 protected:
  void SetUp() override {
    env().server().reset();
    ScriptedMediaPlayer::installForEveryManager(10.0);
    engine.addImportPath(QStringLiteral(TAVIK_QML_DIR));
  }
  void TearDown() override {
    root.reset();
    ScriptedMediaPlayer::uninstall();
  }

  QQuickItem* load(const QString& qml) {
    QQmlComponent component(&engine);
    component.setData(qml.toUtf8(), QUrl("qrc:/video_view_test.qml"));
    root.reset(qobject_cast<QQuickItem*>(component.create()));
    EXPECT_TRUE(root) << component.errorString().toStdString();
    if (!root) return nullptr;
    root->setParentItem(window.contentItem());
    window.resize(320, 240);
    window.show();
    return root.get();
  }

  QQmlEngine engine;
  QQuickWindow window;
  std::unique_ptr<QQuickItem> root;
};

TEST_F(VideoAdViewTest, PlaysWhileOnScreenAndReportsEveryThreeSecondsByDefault) {
  QQuickItem* root = load(QStringLiteral(R"(
      import QtQuick
      import Tavik
      Item {
        width: 320; height: 240
        VideoAdView {
          objectName: "video"
          width: 320; height: 180
          cliUbid: "shopper-v"
          uclid: "uc-view"
          url: "https://cdn.test/clip.mp4"
        }
      })"));
  ASSERT_TRUE(root);
  auto* video = root->findChild<QQuickItem*>("video");
  ASSERT_TRUE(video);
  // The player is made once the view is first on screen.
  VideoPlayerManager* manager = nullptr;
  ASSERT_TRUE(spinUntil([&] {
    return (manager = video->property("videoManager").value<VideoPlayerManager*>()) != nullptr;
  }));
  ScriptedMediaPlayer* player = ScriptedMediaPlayer::last();
  ASSERT_EQ(manager->player(), player);
  EXPECT_EQ(manager->progressTrackInterval(), 3);
  EXPECT_EQ(manager->cliUbid(), "shopper-v");
  EXPECT_EQ(manager->url(), QUrl("https://cdn.test/clip.mp4"));
  EXPECT_EQ(manager->config().clientId, "client-1");  // the installed SDK's
  // Only a Qt Multimedia player brings an output item of its own; the view builds none.
  EXPECT_EQ(player->videoOutput(), nullptr);
  EXPECT_EQ(video->property("videoOutput").value<QQuickItem*>(), nullptr);
  EXPECT_TRUE(video->childItems().isEmpty());

  ASSERT_TRUE(spinUntil([&] { return video->property("active").toBool(); }));
  EXPECT_TRUE(player->isPlaying());
  EXPECT_TRUE(player->isMuted());
  player->playFor(6.5, 250);
  EXPECT_EQ(sortedParam(progressEvents(3, "uc-view"), "video_view_sec"),
            (Strings{"0.0", "3.0", "6.0"}));

  // Hidden: paused and cleaned up; shown again: playing and tracking again.
  video->setVisible(false);
  ASSERT_TRUE(spinUntil([&] { return !video->property("active").toBool(); }));
  EXPECT_FALSE(player->isPlaying());
  EXPECT_FALSE(manager->isTrackingProgress());
  EXPECT_EQ(manager->videoPlayTime(), 0.0f);
  video->setVisible(true);
  ASSERT_TRUE(spinUntil([&] { return video->property("active").toBool(); }));
  EXPECT_TRUE(player->isPlaying());
  EXPECT_TRUE(manager->isTrackingProgress());
  EXPECT_TRUE(manager->isObservingPlaybackEnd());

  // Destroyed while playing: paused on the way out.
  bool pausedBeforeGoing = false;
  QObject::connect(player, &MediaPlayer::playingChanged,
                   [&](bool playing) { pausedBeforeGoing = !playing; });
  QPointer<ScriptedMediaPlayer> watched = player;
  delete video;
  EXPECT_TRUE(pausedBeforeGoing);
  EXPECT_TRUE(watched.isNull());
}

TEST_F(VideoAdViewTest, AViewMadeOffScreenMakesNoPlayerUntilItIsShown) {
  QQuickItem* root = load(QStringLiteral(R"(
      import QtQuick
      import Tavik
      Item {
        width: 320; height: 240
        VideoAdView {
          objectName: "video"
          x: 400
          width: 100; height: 100
          uclid: "uc-late"
          url: "https://cdn.test/late.mp4"
          progressTrackInterval: 1
        }
      })"));
  ASSERT_TRUE(root);
  auto* video = root->findChild<QQuickItem*>("video");
  ASSERT_TRUE(video);
  spinUntil([] { return false; }, 300);
  EXPECT_FALSE(video->property("active").toBool());
  EXPECT_EQ(video->property("videoManager").value<VideoPlayerManager*>(), nullptr);

  video->setX(10);
  ASSERT_TRUE(spinUntil([&] { return video->property("active").toBool(); }));
  auto* manager = video->property("videoManager").value<VideoPlayerManager*>();
  ASSERT_TRUE(manager);
  EXPECT_EQ(manager->player(), ScriptedMediaPlayer::last());
  EXPECT_TRUE(manager->player()->isPlaying());
  EXPECT_EQ(manager->progressTrackInterval(), 1);
  EXPECT_EQ(manager->url(), QUrl("https://cdn.test/late.mp4"));

  // Scrolled away again: the player stays (paused) for when the view comes back.
  video->setX(400);
  ASSERT_TRUE(spinUntil([&] { return !video->property("active").toBool(); }));
  EXPECT_EQ(video->property("videoManager").value<VideoPlayerManager*>(), manager);
  EXPECT_FALSE(manager->player()->isPlaying());
}

// A list keeps delegates built beyond its edge (its cache buffer): only the cards on
// screen have players.
TEST_F(VideoAdViewTest, CardsInAListsCacheBufferHaveNoPlayers) {
  QQuickItem* root = load(QStringLiteral(R"(
      import QtQuick
      import Tavik
      ListView {
        width: 320; height: 240
        orientation: ListView.Horizontal
        cacheBuffer: 2000
        model: 12
        delegate: VideoAdView {
          width: 150; height: 100
          uclid: "uc-card-" + index
          url: "https://cdn.test/card.mp4"
        }
      })"));
  ASSERT_TRUE(root);
  // The visual tree: a list's delegates are not QObject children of the list.
  auto videos = [&] {
    QList<QQuickItem*> found;
    QList<QQuickItem*> pending{root};
    while (!pending.isEmpty()) {
      QQuickItem* item = pending.takeLast();
      if (item->inherits("tavik::quick::VideoAdViewBase")) found.append(item);
      pending.append(item->childItems());
    }
    return found;
  };
  auto withPlayers = [&] {
    int n = 0;
    for (QQuickItem* item : videos()) {
      if (item->property("videoManager").value<VideoPlayerManager*>()) ++n;
    }
    return n;
  };
  // Three cards show (0-150, 150-300, 300-320); the others are built in the buffer.
  ASSERT_TRUE(spinUntil([&] { return withPlayers() == 3; }));
  spinUntil([] { return false; }, 200);
  EXPECT_GE(videos().size(), 12);
  EXPECT_EQ(withPlayers(), 3);

  // Scrolled on by four cards: those now on screen make theirs.
  root->setProperty("contentX", 600);
  ASSERT_TRUE(spinUntil([&] { return withPlayers() >= 6; }));
  spinUntil([] { return false; }, 200);
  EXPECT_EQ(withPlayers(), 6);  // the three seen before keep theirs, paused
}
