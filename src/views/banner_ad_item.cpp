#include "views/banner_ad_item.h"

#include <QAccessible>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMetaMethod>
#include <QMouseEvent>
#include <QQmlEngine>
#include <QQuickWindow>
#include <QSGImageNode>
#include <QStyleHints>
#include <QTimer>
#include <cmath>

#include "tavik/core/tavik.h"
#include "video/video_ad_view.h"
#include "views/appearance.h"
#include "views/media_support.h"
#include "views/shared_pictures.h"
#include "views/view_events.h"
#include "views/view_factory.h"

namespace tavik::quick {

namespace {

// The banner's child parts. Each is compiled once per engine and made only when the
// banner needs it.
const char* const kVideoPart = "import Tavik\nVideoAdView {}\n";
const char* const kLabelPart = "import Tavik\nAdLabelTag {}\n";
const char* const kFocusRingPart =
    "import QtQuick\n"
    "Rectangle { color: \"transparent\"; border.width: 2; border.color: \"#3d7eff\" }\n";

// Stacking: the creative, the label over it, the focus ring on top.
constexpr qreal kLabelZ = 1;
constexpr qreal kFocusRingZ = 2;

// Half a length the way anchors centre an item: an odd whole length rounds up, so a
// centred item lands on a whole pixel.
qreal centreOf(qreal length) {
  const int whole = static_cast<int>(length);
  return whole % 2 ? (length + 1) / 2 : length / 2;
}

// `Image.status`'s values, which `pictureStatus` reads as.
constexpr int kPictureNull = 0;

// QML's `Accessible` attached object of `item`, made when `create`; null when Qt Quick's
// accessibility type is not there.
QObject* accessibleOf(QQuickItem* item, bool create) {
  static const QMetaObject* const type =
      QMetaType::fromName("QQuickAccessibleAttached*").metaObject();
  if (!type) return nullptr;
  return qmlAttachedPropertiesObject(item, qmlAttachedPropertiesFunction(item, type), create);
}

void collectBanners(QQuickItem* item, QList<QPointer<BannerAdViewBase>>& found) {
  if (auto* banner = qobject_cast<BannerAdViewBase*>(item)) found.append(banner);
  for (QQuickItem* child : item->childItems()) collectBanners(child, found);
}

}  // namespace

// When an assistive technology starts after banners were made, they get their accessible
// role and name then.
class BannerAccessibility : public QAccessible::ActivationObserver {
 public:
  // Whether accessibility is on: as the platform says, or as it last told its observers.
  static bool active() { return QAccessible::isActive() || told_; }

  void accessibilityActiveChanged(bool active) override {
    told_ = active;
    if (!active) return;
    QList<QPointer<BannerAdViewBase>> banners;
    for (QWindow* window : QGuiApplication::allWindows()) {
      if (auto* quickWindow = qobject_cast<QQuickWindow*>(window))
        collectBanners(quickWindow->contentItem(), banners);
    }
    for (const QPointer<BannerAdViewBase>& banner : banners) {
      if (banner) banner->updateAccessible(banner->adLabelText_);
    }
  }

 private:
  static inline bool told_ = false;
};

namespace {
// Watching from the library's load on, so that no activation is missed, whenever the
// first banner comes.
struct AccessibilityWatch {
  AccessibilityWatch() { QAccessible::installActivationObserver(&observer); }
  ~AccessibilityWatch() { QAccessible::removeActivationObserver(&observer); }
  BannerAccessibility observer;
};
const AccessibilityWatch accessibilityWatch;
}  // namespace

LabelAlignment labelAlignmentFrom(Qt::Alignment alignment) {
  LabelAlignment result{HorizontalAlignment::center, VerticalAlignment::center};
  if (alignment & (Qt::AlignLeft | Qt::AlignLeading))
    result.horizontal = HorizontalAlignment::leading;
  if (alignment & (Qt::AlignRight | Qt::AlignTrailing)) {
    result.horizontal = HorizontalAlignment::trailing;
  }
  if (alignment & Qt::AlignTop) result.vertical = VerticalAlignment::top;
  if (alignment & Qt::AlignBottom) result.vertical = VerticalAlignment::bottom;
  return result;
}

BannerAdViewBase::BannerAdViewBase(QQuickItem* parent)
    : QQuickItem(parent), appearance_(new AdAppearance(this)) {
  config_ = installedConfig();
  setFlag(ItemHasContents, true);  // the picture
  setAcceptedMouseButtons(Qt::LeftButton);
  appearance_->setImpressionOnViewable(config_.impressionOnViewable());
  appearance_->setDrawable(false);  // until it has an ad it can draw
  connect(appearance_, &AdAppearance::impressionDue, this, &BannerAdViewBase::reportImpression);
  connect(appearance_, &AdAppearance::appeared, this, [this] {
    Q_EMIT onScreenChanged();
    Q_EMIT adAppear(ad_);
  });
  connect(appearance_, &AdAppearance::disappeared, this, &BannerAdViewBase::onScreenChanged);
  connect(appearance_, &AdAppearance::visibleFractionChanged, this,
          &BannerAdViewBase::visibleFractionChanged);
  connect(appearance_, &AdAppearance::becameViewable, this, [this] {
    Q_EMIT viewableReportedChanged();
    Q_EMIT viewable(ad_);
  });
}

BannerAdViewBase::~BannerAdViewBase() {
  // A label still incubating stops here; what it made goes with the banner.
  labelIncubator_.reset();
  // Its share of the window's picture goes now; nothing is told of it any more.
  if (picture_) {
    disconnect(picture_, nullptr, this, nullptr);
    if (pictures_) pictures_->release(picture_);
  }
  // The parts outlive this part of the object while the item leaves its window (a video
  // pauses then): nothing they say reaches it any more.
  for (QQuickItem* part : {creative_, label_}) {
    if (part) disconnect(part, nullptr, this, nullptr);
  }
  // The appearance would otherwise outlive this part of the object while the item tears
  // down its window.
  delete appearance_;
  // A video inside gives its player up while the banner is still in its window: the item
  // leaves the window next, and a video output leaving it with its pipeline still up
  // makes Qt's sink switch renderers mid-stream.
  VideoAdViewBase::releasePlayersIn(this);
}

void BannerAdViewBase::componentComplete() {
  QQuickItem::componentComplete();
  relayout();
  updateLabel();
  updateAccessible(adLabelText_);
  appearance_->setReady();
}

void BannerAdViewBase::geometryChange(const QRectF& newGeometry, const QRectF& oldGeometry) {
  QQuickItem::geometryChange(newGeometry, oldGeometry);
  if (newGeometry.size() != oldGeometry.size()) moveParts();
}

void BannerAdViewBase::itemChange(ItemChange change, const ItemChangeData& value) {
  QQuickItem::itemChange(change, value);
  if (change == ItemActiveFocusHasChanged) updateFocusRing();
  if (change == ItemSceneChange) {
    // The picture belongs to a window: the new window's (or none).
    releasePicture();
    updatePicture();
    if (value.window) updateAccessible(adLabelText_);
  }
}

void BannerAdViewBase::keyPressEvent(QKeyEvent* event) {
  switch (event->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
    case Qt::Key_Space:
      event->accept();
      tap();
      return;
    default:
      QQuickItem::keyPressEvent(event);
  }
}

// The frame is centred in the banner (the banner is the frame's size unless the host
// sized it).
QRectF BannerAdViewBase::frameRect() const {
  return {centreOf(width()) - centreOf(frame_.width), centreOf(height()) - centreOf(frame_.height),
          frame_.width, frame_.height};
}

// Every part covers the frame, the label apart; nothing shows without an ad to draw.
void BannerAdViewBase::moveParts() {
  const QRectF frame = frameRect();
  const bool drawn = creativeKindProperty() != None;
  for (QQuickItem* part : {creative_, focusRing_}) {
    if (!part) continue;
    part->setPosition(frame.topLeft());
    part->setSize(frame.size());
  }
  if (focusRing_) focusRing_->setVisible(drawn && hasActiveFocus());
  moveLabel();
  update();
}

void BannerAdViewBase::moveLabel() {
  if (!label_) return;
  label_->setPosition(frameRect().topLeft() + labelPosition());
  label_->setVisible(!adLabelText_.isEmpty() && creativeKindProperty() != None);
}

void BannerAdViewBase::makePart(const char* document, bool incubate,
                                std::unique_ptr<detail::PartIncubator>& slot,
                                void (BannerAdViewBase::*setUp)(QQuickItem*),
                                void (BannerAdViewBase::*done)(QQuickItem*)) {
  QQmlEngine* engine = qmlEngine(this);
  if (!engine) return;
  QQmlContext* context = qmlContext(this);
  if (!incubate) {
    if (QQuickItem* item = detail::createPart(engine, context, document,
                                              [&](QQuickItem* made) { (this->*setUp)(made); })) {
      (this->*done)(item);
    }
    return;
  }
  detail::ensureIncubationController(engine, this);
  slot = std::make_unique<detail::PartIncubator>(
      [this, setUp](QQuickItem* made) { (this->*setUp)(made); },
      [this, done, &slot](QQuickItem* made) {
        (this->*done)(made);
        // Not from inside the incubator's own callback.
        QTimer::singleShot(0, this, [&slot, made] {
          if (slot && slot->object() == made) slot.reset();
        });
      });
  if (!slot->start(engine, context, document)) slot.reset();
}

// The creative ----------------------------------------------------------------------

void BannerAdViewBase::updateCreative() {
  if (!isComponentComplete()) return;
  const CreativeKind kind = creativeKindProperty();
  if (kind != creativeMade_) {
    dropCreative();
    creativeMade_ = kind;
    if (kind == None) return;
    if (kind == Image) {
      updatePicture();
      return;
    }
    // A video is made now, with its output, as the video views' teardown order expects.
    if (QQuickItem* video = detail::createPart(qmlEngine(this), qmlContext(this), kVideoPart,
                                               [this](QQuickItem* made) { setUpCreative(made); })) {
      creativeDone(video);
    }
    return;
  }
  if (kind == Image) updatePicture();
  if (creative_) setUpCreative(creative_);
}

void BannerAdViewBase::dropCreative() {
  releasePicture();
  delete creative_;
  creative_ = nullptr;
  creativeMade_ = None;
  setVideoPlaying(false);
}

// The picture ------------------------------------------------------------------------

void BannerAdViewBase::updatePicture() {
  QQuickWindow* window = this->window();
  if (creativeMade_ != Image || !window) {
    releasePicture();
    return;
  }
  const QString source = creativeImageSource(ad_.elements().value());
  if (picture_ && picture_->property("source").toUrl() == QUrl(source)) return;
  releasePicture();
  QQmlEngine* engine = qmlEngine(this);
  if (!engine || source.isEmpty()) return;
  // The picture comes through the SDK's image providers (the module's singleton installs
  // them too, but a banner may be the first of the module's types its engine makes).
  installImageProvider(engine);
  pictures_ = SharedPictures::of(window);
  // A preloaded picture is taken at once, for the first frame.
  picture_ = pictures_->acquire(engine, QUrl(source), !isReadyImageSource(source));
  if (!picture_) return;
  // One connection per banner (a hundred banners may share the picture): its status
  // changes as it loads, with its size, and the banner draws it from the next frame on.
  const QMetaObject* type = picture_->metaObject();
  const QMetaProperty status = type->property(type->indexOfProperty("status"));
  const QMetaMethod changed = metaObject()->method(metaObject()->indexOfSlot("pictureLoaded()"));
  if (status.hasNotifySignal()) connect(picture_, status.notifySignal(), this, changed);
  update();
  Q_EMIT pictureChanged();
}

void BannerAdViewBase::pictureLoaded() {
  update();
  Q_EMIT pictureChanged();
}

void BannerAdViewBase::releasePicture() {
  if (!picture_) return;
  disconnect(picture_, nullptr, this, nullptr);
  if (pictures_) pictures_->release(picture_);
  picture_ = nullptr;
  update();
  Q_EMIT pictureChanged();
}

int BannerAdViewBase::pictureStatus() const {
  return picture_ ? picture_->property("status").toInt() : kPictureNull;
}

QUrl BannerAdViewBase::pictureSource() const {
  return picture_ ? picture_->property("source").toUrl() : QUrl();
}

QSize BannerAdViewBase::pictureSize() const {
  return picture_ ? picture_->property("sourceSize").toSize() : QSize();
}

// Fitted the way `Image`'s PreserveAspectFit draws it, so a banner looks as one did with
// an `Image` in its frame: scaled to the frame's width or height, whichever is tighter,
// and centred on whole pixels, the offset cut to a whole number as `Image` cuts it.
QRectF BannerAdViewBase::pictureRect() const {
  const QRectF frame = frameRect();
  const qreal w = picture_ ? picture_->implicitWidth() : 0;
  const qreal h = picture_ ? picture_->implicitHeight() : 0;
  if (w <= 0 || h <= 0 || frame.isEmpty()) return {};
  const qreal widthScale = frame.width() / w;
  const qreal heightScale = frame.height() / h;
  const QSizeF painted = widthScale <= heightScale ? QSizeF(frame.width(), h * widthScale)
                                                   : QSizeF(w * heightScale, frame.height());
  const qreal x = static_cast<int>((frame.width() - painted.width()) / 2);
  const qreal y = static_cast<int>((frame.height() - painted.height()) / 2);
  return {frame.topLeft() + QPointF(x, y), painted};
}

// Runs on the render thread while the UI thread waits (the scene graph's sync), so it
// may read the item and its picture.
QSGNode* BannerAdViewBase::updatePaintNode(QSGNode* oldNode, UpdatePaintNodeData*) {
  auto* node = static_cast<QSGImageNode*>(oldNode);
  QSGTexture* texture = nullptr;
  if (picture_ && creativeMade_ == Image) {
    QSGTextureProvider* provider = picture_->textureProvider();
    if (provider != textureProvider_) {
      if (textureProvider_) disconnect(textureProvider_, nullptr, this, nullptr);
      textureProvider_ = provider;
      // The texture comes once the picture is loaded and its item synced: draw again then.
      if (provider) {
        connect(provider, &QSGTextureProvider::textureChanged, this, &QQuickItem::update,
                Qt::QueuedConnection);
      }
    }
    if (provider) texture = provider->texture();
  }
  const QRectF target = texture ? pictureRect() : QRectF();
  if (target.isEmpty()) {
    delete node;
    return nullptr;
  }
  if (!node) {
    node = window()->createImageNode();
    node->setOwnsTexture(false);  // the picture's, shared with every banner of it
    // Smooth, and not mipmapped: a mipmapped sample of the shared texture came out black
    // under Mesa for a picture the window keeps in its atlas, and the banners draw their
    // creatives at or near their size.
    node->setFiltering(QSGTexture::Linear);
    node->setMipmapFiltering(QSGTexture::None);
  }
  node->setTexture(texture);
  node->setRect(target);
  node->setSourceRect(QRectF(QPointF(0, 0), texture->textureSize()));
  return node;
}

// A tap ------------------------------------------------------------------------------

// As a tap handler takes it: a press inside the frame, released before it moved past the
// drag distance and before it became a long press. A press outside the frame, or on a
// banner without an ad, goes to what is under it.
void BannerAdViewBase::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton || creativeKindProperty() == None ||
      !frameRect().contains(event->position())) {
    event->ignore();
    return;
  }
  pressed_ = true;
  pressedAt_ = event->scenePosition();
  pressedSince_ = event->timestamp();
  event->accept();
}

void BannerAdViewBase::mouseMoveEvent(QMouseEvent* event) {
  if (pressed_ && (event->scenePosition() - pressedAt_).manhattanLength() >
                      QGuiApplication::styleHints()->startDragDistance()) {
    pressed_ = false;  // a drag, not a tap
  }
  event->accept();
}

void BannerAdViewBase::mouseReleaseEvent(QMouseEvent* event) {
  const bool tapped = pressed_ && event->button() == Qt::LeftButton &&
                      frameRect().contains(event->position()) &&
                      static_cast<qint64>(event->timestamp()) - pressedSince_ <
                          QGuiApplication::styleHints()->mousePressAndHoldInterval();
  pressed_ = false;
  event->accept();
  if (tapped) tap();
}

void BannerAdViewBase::mouseUngrabEvent() {
  pressed_ = false;  // a list took the press over (it is being flicked)
}

void BannerAdViewBase::setUpCreative(QQuickItem* item) {
  const QmlBannerAdElements elements = ad_.elements();
  if (auto* video = qobject_cast<VideoAdViewBase*>(item)) {
    video->setConfig(config_);
    video->setCliUbid(ad_.cliUbid());
    video->setUclid(ad_.uclid());
    video->setUrl(elements.value());
    const QVariant interval = elements.videoProgressSec();
    video->setProgressTrackInterval(interval.isValid() ? interval.toInt() : 3);
  }
  if (item == creative_) return;
  creative_ = item;
  item->setParent(this);
  item->setParentItem(this);
  item->setPosition(frameRect().topLeft());
  item->setSize(frameRect().size());
}

void BannerAdViewBase::creativeDone(QQuickItem* item) {
  // A video banner's viewability counts playing time only.
  if (auto* video = qobject_cast<VideoAdViewBase*>(item)) {
    connect(video, &VideoAdViewBase::playingChanged, this,
            [this, video] { setVideoPlaying(video->playing()); });
    setVideoPlaying(video->playing());
  }
}

// The label and the focus ring --------------------------------------------------------

void BannerAdViewBase::updateLabel() {
  if (!isComponentComplete()) return;
  if (label_) {
    setUpLabel(label_);
    return;
  }
  if (adLabelText_.isEmpty() || labelIncubator_) return;
  makePart(kLabelPart, asynchronousContent_, labelIncubator_, &BannerAdViewBase::setUpLabel,
           &BannerAdViewBase::labelDone);
}

void BannerAdViewBase::setUpLabel(QQuickItem* item) {
  item->setProperty("labelText", adLabelText_);
  item->setVisible(!adLabelText_.isEmpty() && creativeKindProperty() != None);
  if (item == label_) return;
  label_ = item;
  item->setParent(this);
  item->setParentItem(this);
  item->setZ(kLabelZ);
}

void BannerAdViewBase::labelDone(QQuickItem* item) {
  // The label sizes itself to its text; the banner places it by that size.
  auto follow = [this, item] { setLabelSize(item->size()); };
  connect(item, &QQuickItem::widthChanged, this, follow);
  connect(item, &QQuickItem::heightChanged, this, follow);
  follow();
  moveLabel();
}

void BannerAdViewBase::updateFocusRing() {
  const bool focused = hasActiveFocus();
  if (!focusRing_ && focused) {
    // A thin ring, made the first time the banner has keyboard focus.
    focusRing_ = detail::createPart(qmlEngine(this), qmlContext(this), kFocusRingPart,
                                    [this](QQuickItem* ring) {
                                      ring->setParent(this);
                                      ring->setParentItem(this);
                                      ring->setZ(kFocusRingZ);
                                      ring->setPosition(frameRect().topLeft());
                                      ring->setSize(frameRect().size());
                                    });
  }
  if (focusRing_) focusRing_->setVisible(focused && creativeKindProperty() != None);
}

bool BannerAdViewBase::onScreen() const {
  return appearance_->onScreen();
}
bool BannerAdViewBase::impressionReported() const {
  return appearance_->impressionReported();
}
qreal BannerAdViewBase::visibleFraction() const {
  return appearance_->visibleFraction();
}
bool BannerAdViewBase::viewableReported() const {
  return appearance_->viewableReported();
}

void BannerAdViewBase::setConfig(const QmlConfig& config) {
  if (config == config_) return;
  config_ = config;
  appearance_->setImpressionOnViewable(config_.impressionOnViewable());
  if (creativeMade_ == Video && creative_) setUpCreative(creative_);
  Q_EMIT configChanged();
}

void BannerAdViewBase::setAd(const QmlBannerAd& ad) {
  if (ad == ad_) {
    ad_ = ad;  // the same ad: hold the record given, which others share, not a copy of it
    return;
  }
  // Only a change from one ad to another starts over; the first ad keeps what was set
  // before it (a rebuilt card told that its impression went out already).
  const bool otherAd = ad_.valid() && ad.uclid() != ad_.uclid();
  ad_ = ad;
  if (otherAd) {
    // A different ad is a new view of it: its own first appearance and impression.
    const bool reported = appearance_->impressionReported();
    appearance_->reset();
    if (reported) Q_EMIT impressionReportedChanged();
  }
  Q_EMIT adChanged();
  relayout();
}

void BannerAdViewBase::setImpressionReported(bool reported) {
  if (!reported || appearance_->impressionReported()) return;
  appearance_->markImpressionReported();
  Q_EMIT impressionReportedChanged();
}

void BannerAdViewBase::setViewableReported(bool reported) {
  if (!reported || viewableReported()) return;
  appearance_->markViewableReported();
  Q_EMIT viewableReportedChanged();
}

void BannerAdViewBase::setVideoPlaying(bool playing) {
  if (playing == videoPlaying_) return;
  videoPlaying_ = playing;
  appearance_->setPlaying(playing);
  Q_EMIT videoPlayingChanged();
}

void BannerAdViewBase::setAdWidth(qreal width) {
  if (qFuzzyCompare(width, adWidth_)) return;
  adWidth_ = width;
  relayout();
}

void BannerAdViewBase::setAdHeight(qreal height) {
  if (qFuzzyCompare(height, adHeight_)) return;
  adHeight_ = height;
  relayout();
}

void BannerAdViewBase::setAdLabelText(const QString& text) {
  if (text == adLabelText_) return;
  const QString old = adLabelText_;
  adLabelText_ = text;
  updateLabel();
  if (isComponentComplete()) updateAccessible(old);
  Q_EMIT labelChanged();
}

// Role, name and description for assistive technology, on QML's `Accessible` attached
// object: made only while accessibility is active (it costs every banner otherwise),
// and what a host set on it is kept (the description follows the label text unless the
// host gave another).
void BannerAdViewBase::updateAccessible(const QString& oldLabelText) {
  QObject* accessible = accessibleOf(this, false);
  if (!accessible) {
    if (!BannerAccessibility::active()) return;
    accessible = accessibleOf(this, true);
    if (!accessible) return;
  }
  if (accessible->property("role").toInt() == QAccessible::NoRole)
    accessible->setProperty("role", QVariant::fromValue(QAccessible::Button));
  if (accessible->property("name").toString().isEmpty())
    accessible->setProperty("name", QCoreApplication::translate("BannerAdView", "Sponsored"));
  const QString description = accessible->property("description").toString();
  if (description.isEmpty() || description == oldLabelText)
    accessible->setProperty("description", adLabelText_);
  accessible->setProperty("focusable", true);
  // An assistive technology's press is a tap.
  const QMetaObject* type = accessible->metaObject();
  const QMetaMethod press = type->method(type->indexOfSignal("pressAction()"));
  const QMetaMethod tap = metaObject()->method(metaObject()->indexOfMethod("tap()"));
  if (press.isValid() && tap.isValid()) connect(accessible, press, this, tap, Qt::UniqueConnection);
}

void BannerAdViewBase::setAdLabelAlignment(Qt::Alignment alignment) {
  if (alignment == adLabelAlignment_) return;
  adLabelAlignment_ = alignment;
  moveLabel();
  Q_EMIT labelChanged();
  Q_EMIT labelPositionChanged();
}

void BannerAdViewBase::setLabelSize(const QSizeF& size) {
  if (size == labelSize_) return;
  labelSize_ = size;
  moveLabel();
  Q_EMIT labelChanged();
  Q_EMIT labelPositionChanged();
}

BannerAdViewBase::CreativeKind BannerAdViewBase::creativeKindProperty() const {
  if (!ad_.ad()) return None;
  switch (creativeKind(*ad_.ad())) {
    case quick::CreativeKind::image:
      return Image;
    case quick::CreativeKind::video:
      return Video;
    case quick::CreativeKind::none:
      break;
  }
  return None;
}

void BannerAdViewBase::relayout() {
  SizeF frame;
  if (ad_.ad()) {
    frame = bannerFrame(*ad_.ad(), lengthIfSet(adWidth_), lengthIfSet(adHeight_), screenLimits());
  }
  const bool changed = !(frame == frame_);
  frame_ = frame;
  setImplicitSize(frame.width, frame.height);
  const CreativeKind kind = creativeKindProperty();
  setActiveFocusOnTab(kind != None);
  updateCreative();
  moveParts();
  if (changed) {
    moveLabel();
    Q_EMIT layoutChanged();
    Q_EMIT labelPositionChanged();
  }
  appearance_->setVideo(kind == Video);
  appearance_->setDrawable(kind != None);
  appearance_->requestCheck();
}

void BannerAdViewBase::reportImpression() {
  if (!ad_.ad()) return;
  const BannerAd& ad = *ad_.ad();
  if (config_.valid())
    detail::reportImpression(*config_.config(), ad.cliUbid.value_or(""), ad.uclid);
  Q_EMIT impressionReportedChanged();
}

void BannerAdViewBase::tap() {
  if (!ad_.ad() || creativeKindProperty() == None) return;
  const BannerAd& ad = *ad_.ad();
  if (config_.valid()) detail::reportClick(*config_.config(), ad.cliUbid.value_or(""), ad.uclid);
  Q_EMIT adClicked(ad_);
}

QRectF BannerAdViewBase::labelRect(qreal width, qreal height) const {
  const RectF r = placeLabel(frame_, {width, height}, labelAlignmentFrom(adLabelAlignment_));
  return {r.x, r.y, r.width, r.height};
}

}  // namespace tavik::quick
