#pragma once

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QUrl>

class QQmlEngine;
class QQuickItem;
class QQuickWindow;

namespace tavik::quick {

/// The creative pictures of one window, one per source, shared by every view that draws
/// it. Each is a hidden `Image` under the window's content item: Qt loads it (through the
/// SDK's image providers and its pixmap cache) and makes its texture, and the views draw
/// that texture through their own scene-graph nodes (`QQuickItem::textureProvider()`), so
/// a hundred banners of one creative hold one picture item and one texture between them,
/// not a hundred `Image` items. A picture goes with its last user. Made on first use, a
/// child of its window; UI thread only.
class SharedPictures : public QObject {
  Q_OBJECT

 public:
  /// The window's pictures (made when missing); null without a window.
  static SharedPictures* of(QQuickWindow* window);

  /// The picture of `source` (made from `engine` when it is not there yet; `asynchronous`
  /// says how a new one loads), counted as one more user. Null without an engine.
  QQuickItem* acquire(QQmlEngine* engine, const QUrl& source, bool asynchronous);
  /// One user fewer of `picture`; the last one takes it away.
  void release(QQuickItem* picture);

  /// How many pictures the window holds now (for tests).
  int count() const { return static_cast<int>(pictures_.size()); }

 private:
  explicit SharedPictures(QQuickWindow* window);

  struct Entry {
    QPointer<QQuickItem> picture;
    int users = 0;
  };
  QQuickWindow* window_;
  QHash<QUrl, Entry> pictures_;
};

}  // namespace tavik::quick
