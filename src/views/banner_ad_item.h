#pragma once

#include <QtQml/qqmlregistration.h>
#include <QPointF>
#include <QPointer>
#include <QQuickItem>
#include <QRectF>
#include <QSGTextureProvider>
#include <QSize>
#include <QUrl>
#include <memory>

#include "tavik/views/qml_records.h"
#include "views/view_logic.h"

namespace tavik::quick {

class AdAppearance;
class SharedPictures;
namespace detail {
class PartIncubator;
}

/// Converts Qt's alignment flags (Qt.AlignLeft | Qt.AlignTop, ...) to the label
/// placement; a missing axis means the centre.
LabelAlignment labelAlignmentFrom(Qt::Alignment alignment);

/// `BannerAdView`: one image or video banner, one item. It decides (frame, creative kind,
/// label place, events) and draws:
///
/// - The frame is `adWidth` × `adHeight` when set (0 or more; -1 is unset), else the
///   creative's size, capped by the screen limits, and centred in the item; an ad that
///   cannot be drawn has an empty frame and reports nothing.
/// - A picture is drawn by the item itself, fitted in the frame (aspect kept), from the
///   texture of its window's shared picture of that creative (`SharedPictures`): banners
///   of one creative share one picture and one texture. `pictureStatus` reads as an
///   `Image`'s `status`.
/// - A video is a `VideoAdView` child over the frame, made with the banner.
/// - The label is a child made only while there is label text, the focus ring a child
///   made the first time the banner has keyboard focus. With `setAsynchronousContent`
///   (the managers' `showAd`) the label is built over the engine's idle time after the
///   banner returned.
/// - A press and release inside the frame (mouse, or touch through Qt's synthesised mouse
///   events) that did not move past the drag distance and did not turn into a long press
///   is a tap, as are Enter, Return and Space on the focused banner: `tap()` reports a
///   click and emits `adClicked`, every time.
/// - The first time the banner is on screen it reports the impression (or when it
///   becomes viewable, with the configuration's `impressionOnViewable`); `adAppear` is
///   emitted on every appearance, `viewable` once. A different ad (another `uclid`)
///   starts over.
/// - For assistive technology it is a button named "Sponsored" described by its label
///   text, set on QML's `Accessible` attached object while accessibility is active (when
///   it becomes active later, on every banner of every window then).
class BannerAdViewBase : public QQuickItem {
  Q_OBJECT
  QML_ELEMENT
  Q_PROPERTY(tavik::quick::QmlConfig config READ config WRITE setConfig NOTIFY configChanged)
  Q_PROPERTY(tavik::quick::QmlBannerAd ad READ ad WRITE setAd NOTIFY adChanged)
  Q_PROPERTY(qreal adWidth READ adWidth WRITE setAdWidth NOTIFY layoutChanged)
  Q_PROPERTY(qreal adHeight READ adHeight WRITE setAdHeight NOTIFY layoutChanged)
  Q_PROPERTY(QString adLabelText READ adLabelText WRITE setAdLabelText NOTIFY labelChanged)
  Q_PROPERTY(Qt::Alignment adLabelAlignment READ adLabelAlignment WRITE setAdLabelAlignment NOTIFY
                 labelChanged)
  Q_PROPERTY(QSizeF labelSize READ labelSize WRITE setLabelSize NOTIFY labelChanged)
  Q_PROPERTY(QPointF labelPosition READ labelPosition NOTIFY labelPositionChanged)
  Q_PROPERTY(qreal frameWidth READ frameWidth NOTIFY layoutChanged)
  Q_PROPERTY(qreal frameHeight READ frameHeight NOTIFY layoutChanged)
  Q_PROPERTY(CreativeKind creativeKind READ creativeKindProperty NOTIFY layoutChanged)
  Q_PROPERTY(QString adCliUbid READ adCliUbid NOTIFY adChanged)
  Q_PROPERTY(bool onScreen READ onScreen NOTIFY onScreenChanged)
  Q_PROPERTY(bool impressionReported READ impressionReported WRITE setImpressionReported NOTIFY
                 impressionReportedChanged)
  Q_PROPERTY(qreal visibleFraction READ visibleFraction NOTIFY visibleFractionChanged)
  Q_PROPERTY(bool viewableReported READ viewableReported WRITE setViewableReported NOTIFY
                 viewableReportedChanged)
  Q_PROPERTY(bool videoPlaying READ videoPlaying WRITE setVideoPlaying NOTIFY videoPlayingChanged)
  Q_PROPERTY(int pictureStatus READ pictureStatus NOTIFY pictureChanged)
  Q_PROPERTY(QUrl pictureSource READ pictureSource NOTIFY pictureChanged)
  Q_PROPERTY(QSize pictureSize READ pictureSize NOTIFY pictureChanged)

 public:
  enum CreativeKind { None, Image, Video };
  Q_ENUM(CreativeKind)

  explicit BannerAdViewBase(QQuickItem* parent = nullptr);
  ~BannerAdViewBase() override;

  QmlConfig config() const { return config_; }
  void setConfig(const QmlConfig& config);
  QmlBannerAd ad() const { return ad_; }
  void setAd(const QmlBannerAd& ad);
  qreal adWidth() const { return adWidth_; }
  void setAdWidth(qreal width);
  qreal adHeight() const { return adHeight_; }
  void setAdHeight(qreal height);
  QString adLabelText() const { return adLabelText_; }
  void setAdLabelText(const QString& text);
  Qt::Alignment adLabelAlignment() const { return adLabelAlignment_; }
  void setAdLabelAlignment(Qt::Alignment alignment);

  /// The label's size (the QML label sets it); `labelPosition` is where it goes.
  QSizeF labelSize() const { return labelSize_; }
  void setLabelSize(const QSizeF& size);
  QPointF labelPosition() const {
    return labelRect(labelSize_.width(), labelSize_.height()).topLeft();
  }
  qreal frameWidth() const { return frame_.width; }
  qreal frameHeight() const { return frame_.height; }
  CreativeKind creativeKindProperty() const;
  QString adCliUbid() const { return ad_.cliUbid(); }
  bool onScreen() const;
  bool impressionReported() const;
  /// Setting true tells a rebuilt card that its impression went out already (a
  /// carousel keeps that across the card instances its list makes).
  void setImpressionReported(bool reported);
  /// How much of the banner is on screen now, 0..1.
  qreal visibleFraction() const;
  /// Whether the banner became viewable; setting true tells a rebuilt card it did.
  bool viewableReported() const;
  void setViewableReported(bool reported);
  /// A video banner's clock of viewability runs only while its video plays (the QML
  /// binds this to its player).
  bool videoPlaying() const { return videoPlaying_; }
  void setVideoPlaying(bool playing);

  /// The picture's loading, as `Image.status` reads (Null, Ready, Loading, Error); Null
  /// without a picture to draw (a video, no ad, no window yet).
  int pictureStatus() const;
  /// Where the picture is loaded from; empty without one.
  QUrl pictureSource() const;
  /// The picture's size in pixels once loaded.
  QSize pictureSize() const;

  /// A tap (or Enter/Space on the focused banner): reports a click, emits `adClicked`.
  Q_INVOKABLE void tap();
  /// Where a label of this size goes inside the frame.
  Q_INVOKABLE QRectF labelRect(qreal width, qreal height) const;

  /// Builds the label over the engine's idle time instead of with the banner. Set before
  /// the banner completes.
  void setAsynchronousContent(bool on) { asynchronousContent_ = on; }
  /// Where the frame is in the item.
  QRectF frameRect() const;

 Q_SIGNALS:
  void configChanged();
  void adChanged();
  void layoutChanged();
  void labelChanged();
  void labelPositionChanged();
  void onScreenChanged();
  void impressionReportedChanged();
  void visibleFractionChanged();
  void viewableReportedChanged();
  void videoPlayingChanged();
  void pictureChanged();
  /// The ad became viewable: at least half of it on screen for a continuous second (two
  /// seconds of playback for a video; 30% for an ad over 242,500 square pixels). Once
  /// per view instance.
  void viewable(const tavik::quick::QmlBannerAd& ad);
  void adAppear(const tavik::quick::QmlBannerAd& ad);
  void adClicked(const tavik::quick::QmlBannerAd& ad);

 protected:
  void componentComplete() override;
  void geometryChange(const QRectF& newGeometry, const QRectF& oldGeometry) override;
  void itemChange(ItemChange change, const ItemChangeData& value) override;
  void keyPressEvent(QKeyEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void mouseUngrabEvent() override;
  QSGNode* updatePaintNode(QSGNode* oldNode, UpdatePaintNodeData* data) override;

 private Q_SLOTS:
  void pictureLoaded();

 private:
  friend class BannerAccessibility;
  void relayout();
  void reportImpression();
  void moveParts();
  void moveLabel();
  void updateCreative();
  void dropCreative();
  void setUpCreative(QQuickItem* item);
  void updatePicture();
  void releasePicture();
  // Where the picture is drawn in the item: fitted in the frame, aspect kept, centred.
  QRectF pictureRect() const;
  void updateAccessible(const QString& oldLabelText);
  void updateLabel();
  void setUpLabel(QQuickItem* item);
  void updateFocusRing();
  // Builds a part of `document` now, or through an incubator in `slot` when `incubate`.
  void makePart(const char* document, bool incubate, std::unique_ptr<detail::PartIncubator>& slot,
                void (BannerAdViewBase::*setUp)(QQuickItem*),
                void (BannerAdViewBase::*done)(QQuickItem*));
  void creativeDone(QQuickItem* item);
  void labelDone(QQuickItem* item);

  QmlConfig config_;
  QmlBannerAd ad_;
  qreal adWidth_ = -1;
  qreal adHeight_ = -1;
  QString adLabelText_;
  Qt::Alignment adLabelAlignment_ = Qt::AlignTop | Qt::AlignLeft;
  QSizeF labelSize_;
  SizeF frame_;
  bool videoPlaying_ = false;
  bool asynchronousContent_ = false;
  bool pressed_ = false;
  CreativeKind creativeMade_ = None;
  QPointF pressedAt_;
  qint64 pressedSince_ = 0;
  AdAppearance* appearance_;
  // The window's shared picture this banner draws, and its texture provider (read on the
  // render thread, during the scene graph's sync).
  QPointer<SharedPictures> pictures_;
  QPointer<QQuickItem> picture_;
  QPointer<QSGTextureProvider> textureProvider_;
  // The child parts (made lazily; see the class comment): the video, the label, the ring.
  QQuickItem* creative_ = nullptr;
  QQuickItem* label_ = nullptr;
  QQuickItem* focusRing_ = nullptr;
  std::unique_ptr<detail::PartIncubator> labelIncubator_;
};

}  // namespace tavik::quick
