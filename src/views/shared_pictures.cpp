#include "views/shared_pictures.h"

#include <QQuickItem>
#include <QQuickWindow>

#include "views/view_factory.h"

namespace tavik::quick {

namespace {

// Never drawn itself: the views draw its texture, smooth and without mipmaps.
const char* const kPicturePart =
    "import QtQuick\n"
    "Image { objectName: \"sharedPicture\"; visible: false; smooth: true }\n";

}  // namespace

SharedPictures::SharedPictures(QQuickWindow* window) : QObject(window), window_(window) {}

SharedPictures* SharedPictures::of(QQuickWindow* window) {
  if (!window) return nullptr;
  if (auto* found = window->findChild<SharedPictures*>(QString(), Qt::FindDirectChildrenOnly))
    return found;
  return new SharedPictures(window);
}

QQuickItem* SharedPictures::acquire(QQmlEngine* engine, const QUrl& source, bool asynchronous) {
  Entry& entry = pictures_[source];
  if (!entry.picture) {
    entry.users = 0;
    entry.picture = detail::createPart(engine, nullptr, kPicturePart, [&](QQuickItem* picture) {
      picture->setParent(this);
      // In the window's scene, so that the window makes its texture; hidden, so that it
      // draws nothing itself.
      picture->setParentItem(window_->contentItem());
      picture->setProperty("asynchronous", asynchronous);
      picture->setProperty("source", source);
    });
    if (!entry.picture) {
      pictures_.remove(source);
      return nullptr;
    }
  }
  ++entry.users;
  return entry.picture;
}

void SharedPictures::release(QQuickItem* picture) {
  if (!picture) return;
  for (auto it = pictures_.begin(); it != pictures_.end(); ++it) {
    if (it->picture != picture) continue;
    if (--it->users <= 0) {
      // Out of the window first: the picture gives its texture provider back to the window
      // (Qt's releaseResources) while the window can still take it.
      picture->setParentItem(nullptr);
      delete picture;
      pictures_.erase(it);
    }
    return;
  }
}

}  // namespace tavik::quick
