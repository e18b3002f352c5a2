#pragma once

#include <QAudioOutput>
#include <QImage>
#include <QList>
#include <QMediaPlayer>
#include <QPointer>
#include <QString>
#include <QTimer>
#include <QUrl>
#include <cstdint>
#include <functional>
#include <memory>

#include "tavik/video/media_player.h"
#include "views/creative_store.h"

class QQuickItem;

namespace tavik::quick {

/// `MediaPlayer` on Qt Multimedia (GStreamer on Linux).
///
/// Sources: an https address is downloaded by the SDK's transport into a local file
/// first (GStreamer never goes to the network itself); a local file, a Qt resource or an
/// inline data address plays directly; the empty inline resource "data:," plays nothing
/// and stays `unknown`; any other address, a failed download and undecodable media give
/// `failed`.
///
/// Players are reused: `take()` hands out an idle one (or a new one) and `giveBack()`
/// brings a player down to GStreamer's null state, empty, and keeps a few of them for the
/// next view. A GStreamer pipeline is costly to build, and each one torn down is a chance
/// for its elements to be disposed in the wrong state.
///
/// Each player has its own video output item (a QML `VideoOutput`), made the first time a
/// view asks for it and attached to the pipeline for the player's whole life: the video
/// sink is never detached while its pipeline may still change it, and the output, which
/// costs tens of milliseconds to build, is built once per player rather than once per
/// view. A view borrows it (`outputItem()`), and `giveBack()` takes it out of the view
/// after the pipeline is down, into a hidden item of the same window, so that the next
/// view in that window takes it without a change of renderer.
///
/// A player given back while its media is still loading is not brought down at once: Qt
/// 6.4's GStreamer back end, asked for a new source (or none) while the decoder of the
/// previous one still adds its pads on a streaming thread, can deadlock the application
/// thread against that thread. Such a player waits aside, silent, until its media
/// status leaves `LoadingMedia` (reported by Qt's signal, never waited for), and only
/// then is brought down and kept for `take()`.
class QtMediaPlayer final : public MediaPlayer {
  Q_OBJECT

 public:
  /// Idle players kept for reuse; any more than this are destroyed when given back.
  static constexpr int kPoolSize = 4;

  explicit QtMediaPlayer(QObject* parent = nullptr);
  ~QtMediaPlayer() override;

  /// An idle player from the pool, or a new one. Application thread only.
  static std::unique_ptr<QtMediaPlayer> take();
  /// Stops `player`, forgets its source, its output and everyone listening to it, then
  /// keeps it for `take()` (or destroys it when the pool is full). Takes ownership.
  static void giveBack(QtMediaPlayer* player);
  /// The number of idle players kept now.
  static int idleCount();
  /// Players given back while their media was loading, not yet brought down.
  static int settlingCount();
  /// Plays the local `file` muted on an idle player that already has its output item,
  /// until the first decoded picture reaches that output, hands `done` a copy of that
  /// picture on this thread, and gives the player back. `done` gets a null image at once
  /// when no idle player has an output (building one takes tens of milliseconds of this
  /// thread, which no preparation ahead of a view may take), and later when the media
  /// fails or shows nothing within `kFirstPictureTimeoutMs`. Application thread only.
  static void grabFirstPicture(const QUrl& file, std::function<void(const QImage&)> done);
  /// How long `grabFirstPicture` waits for a picture.
  static constexpr int kFirstPictureTimeoutMs = 5000;
  /// Players busy with `grabFirstPicture` now.
  static int grabbingCount();
  /// Players made since the process started (reused ones are not counted again).
  static int createdCount();

  void setSource(const QUrl& url) override;
  QUrl source() const override { return source_; }
  void setMuted(bool muted) override;
  bool isMuted() const override { return audio_.isMuted(); }
  void play() override;
  void pause() override;
  void seekToZero() override;
  bool isPlaying() const override;
  double position() const override;
  std::optional<double> duration() const override;
  Status status() const override { return status_; }
  QString errorString() const override { return error_; }
  /// Draws into `output` instead of this player's own output item (nullptr: back to its
  /// own item, or nowhere if it has none yet).
  void setVideoOutput(QObject* output) override;

  /// This player's own output item, made on first use and attached for life; it draws
  /// nowhere until a view takes it into its tree. Owned by the player: a borrower
  /// reparents it, never deletes it. Application thread only.
  QQuickItem* outputItem();
  /// Whether the output item exists (a player handed out again keeps the one it had).
  bool hasOutputItem() const { return !output_.item.isNull(); }
  /// Output items made since the process started.
  static int outputsCreatedCount();

 private:
  // Down to the null state with no source, then no output: a sink let go while the
  // pipeline is still paused or ready is not disposed, and GStreamer says so. Emits
  // nothing: called once nobody listens.
  void bringDown();
  // Forgets the source, the want to play and the download without touching the
  // pipeline, and parks the output item hidden in its window: for a player whose media
  // still loads, which must not be given a new source yet.
  void letGo();
  // Brought down, then idle (or destroyed when the pool is full).
  static void keep(QtMediaPlayer* player);
  // The end of a `grabFirstPicture`: the player goes back to the pool after this call.
  void endGrab(const QImage& picture);
  void load(const QUrl& local);
  void onMediaStatus(QMediaPlayer::MediaStatus status);
  void onPlayerError(const QString& text);
  void fail(const QString& error);
  void setStatus(Status status);
  void updatePlaying();

  // The audio output and the video output item go after the player that refers to them:
  // the player's own destruction brings its whole pipeline, the video sink included, to
  // the null state before the sink is disposed with its item.
  QAudioOutput audio_;
  // The output item, deleted with its holder (unless someone deleted it already).
  struct OwnedItem {
    QPointer<QQuickItem> item;
    ~OwnedItem();
  };
  OwnedItem output_;
  QMediaPlayer player_;
  QUrl source_;
  // The file or resource in `player_` (an https video once downloaded).
  QUrl local_;
  // The media is loaded: play, pause and seek go to `player_` from now on.
  bool mediaLoaded_ = false;
  // Playing was asked for (and not paused since); applied once the media is loaded.
  bool wantsToPlay_ = false;
  // The one reload after a failure of a freshly loaded file: done / under way.
  bool reloaded_ = false;
  bool reloading_ = false;
  // This player's want of its https video: given up with the source or the player,
  // which cancels a download no other view waits for.
  detail::CreativeHold<std::string> download_;
  // Tells a finished download whether its source is still the current one.
  std::uint64_t generation_ = 0;
  Status status_ = Status::unknown;
  QString error_;
  bool playing_ = false;
  // While settling: the watch on the media status.
  QMetaObject::Connection settleWatch_;
  // While grabbing a first picture: who waits, what tells, and the time limit.
  std::function<void(const QImage&)> grabDone_;
  QList<QMetaObject::Connection> grabWatch_;
  std::unique_ptr<QTimer> grabTimer_;
};

namespace detail {

/// The player a `VideoPlayerManager` made without one of its own would get: the installed
/// factory's, or one from the pool. For a view that prepares the player (its output) before
/// the manager gives it its source.
std::unique_ptr<MediaPlayer> makeMediaPlayer();

}  // namespace detail

}  // namespace tavik::quick
