#include "views/banner_ad_item.h"

#include <QKeyEvent>
#include <QQmlEngine>
#include <QTimer>
#include <cmath>

#include "tavik/core/tavik.h"
#include "video/video_ad_view.h"
#include "views/appearance.h"
#include "views/media_support.h"
#include "views/view_events.h"
#include "views/view_factory.h"

namespace tavik::quick {

namespace {

// The banner's parts. Each is compiled once per engine and made only when the banner
// needs it.
const char* const kImagePart =
    "import QtQuick\n"
    "Image { objectName: \"creativeImage\"; fillMode: Image.PreserveAspectFit; smooth: true;"
    " mipmap: true }\n";
const char* const kVideoPart = "import Tavik\nVideoAdView {}\n";
const char* const kLabelPart = "import Tavik\nAdLabelTag {}\n";
const char* const kFocusRingPart =
    "import QtQuick\n"
    "Rectangle { color: \"transparent\"; border.width: 2; border.color: \"#3d7eff\" }\n";

// Stacking inside the frame: the creative, the label over it, the focus ring on top.
constexpr qreal kLabelZ = 1;
constexpr qreal kFocusRingZ = 2;

// Half a length the way anchors centre an item: an odd whole length rounds up, so a
// centred item lands on a whole pixel.
qreal centreOf(qreal length) {
  const int whole = static_cast<int>(length);
  return whole % 2 ? (length + 1) / 2 : length / 2;
}

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
  if (const TAVIK* sdk = TAVIK::installed()) config_ = QmlConfig(sdk->config());
  setFlag(ItemHasContents, false);
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
  // Parts still incubating stop here; what they made goes with the frame.
  creativeIncubator_.reset();
  labelIncubator_.reset();
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
  for (QQuickItem* child : childItems()) {
    if (child->objectName() == QLatin1String("bannerFrame")) frameItem_ = child;
  }
  relayout();
  updateLabel();
  appearance_->setReady();
}

QQuickItem* BannerAdViewBase::partParent() const {
  return frameItem_ ? frameItem_ : const_cast<BannerAdViewBase*>(this);
}

void BannerAdViewBase::geometryChange(const QRectF& newGeometry, const QRectF& oldGeometry) {
  QQuickItem::geometryChange(newGeometry, oldGeometry);
  if (newGeometry.size() != oldGeometry.size()) moveFrame();
}

void BannerAdViewBase::itemChange(ItemChange change, const ItemChangeData& value) {
  QQuickItem::itemChange(change, value);
  if (change == ItemActiveFocusHasChanged) updateFocusRing();
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
// sized it) and every part fills it, the label apart.
void BannerAdViewBase::moveFrame() {
  if (frameItem_) {
    frameItem_->setSize(QSizeF(frame_.width, frame_.height));
    frameItem_->setPosition(QPointF(centreOf(width()) - centreOf(frame_.width),
                                    centreOf(height()) - centreOf(frame_.height)));
    frameItem_->setVisible(creativeKindProperty() != None);
  }
  const QSizeF size(frame_.width, frame_.height);
  if (creative_) creative_->setSize(size);
  if (focusRing_) focusRing_->setSize(size);
}

void BannerAdViewBase::moveLabel() {
  if (label_) label_->setPosition(labelPosition());
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
    // The picture comes through the SDK's image providers (the module's singleton installs
    // them too, but a banner may be the first of the module's types its engine makes).
    if (kind == Image) installImageProvider(qmlEngine(this));
    // Only a picture is built later: one a preload decoded is drawn in the first frame,
    // so it is made now (it is cheap); a video is made now too, with its output, as the
    // video views' teardown order expects.
    const bool later = kind == Image && asynchronousContent_ &&
                       !isReadyImageSource(creativeImageSource(ad_.elements().value()));
    makePart(kind == Image ? kImagePart : kVideoPart, later, creativeIncubator_,
             &BannerAdViewBase::setUpCreative, &BannerAdViewBase::creativeDone);
    return;
  }
  if (creative_) setUpCreative(creative_);
}

void BannerAdViewBase::dropCreative() {
  if (creativeIncubator_) {
    // Whatever it made so far goes; it is deleted later by the incubator.
    if (auto* made = qobject_cast<QQuickItem*>(creativeIncubator_->object())) {
      made->setParentItem(nullptr);
      if (made == creative_) creative_ = nullptr;
    }
    creativeIncubator_.reset();
  }
  delete creative_;
  creative_ = nullptr;
  creativeMade_ = None;
  setVideoPlaying(false);
}

void BannerAdViewBase::setUpCreative(QQuickItem* item) {
  const QmlBannerAdElements elements = ad_.elements();
  if (creativeMade_ == Image) {
    const QString source = creativeImageSource(elements.value());
    // A preloaded picture is taken at once, for the first frame.
    item->setProperty("asynchronous", !isReadyImageSource(source));
    item->setProperty("source", QUrl(source));
  } else if (auto* video = qobject_cast<VideoAdViewBase*>(item)) {
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
  item->setParentItem(partParent());
  item->setSize(QSizeF(frame_.width, frame_.height));
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
  item->setVisible(!adLabelText_.isEmpty());
  if (item == label_) return;
  label_ = item;
  item->setParent(this);
  item->setParentItem(partParent());
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
                                      ring->setParentItem(partParent());
                                      ring->setZ(kFocusRingZ);
                                      ring->setSize(QSizeF(frame_.width, frame_.height));
                                    });
  }
  if (focusRing_) focusRing_->setVisible(focused);
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
  if (ad == ad_) return;
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
  adLabelText_ = text;
  updateLabel();
  Q_EMIT labelChanged();
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
  moveFrame();
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
