#pragma once

#include <QtQml/qqmlregistration.h>
#include <QPointF>
#include <QQuickItem>
#include <QRectF>
#include <memory>

#include "tavik/views/qml_records.h"
#include "views/view_logic.h"

namespace tavik::quick {

class AdAppearance;
namespace detail {
class PartIncubator;
}

/// Converts Qt's alignment flags (Qt.AlignLeft | Qt.AlignTop, ...) to the label
/// placement; a missing axis means the centre.
LabelAlignment labelAlignmentFrom(Qt::Alignment alignment);

/// The logic of `BannerAdView` (BannerAdView.qml draws it): the frame, the creative
/// kind, the label's place, appearances, the impression and the clicks.
///
/// - The frame is `adWidth` × `adHeight` when set (0 or more; -1 is unset), else the
///   creative's size, capped by the screen limits; an ad that cannot be drawn has an
///   empty frame and reports nothing.
/// - The first time the banner is on screen it reports the impression (or when it
///   becomes viewable, with the configuration's `impressionOnViewable`); `adAppear` is
///   emitted on every appearance, `viewable` once. A different ad (another `uclid`)
///   starts over.
/// - `tap()` reports a click and emits `adClicked`, every time.
///
/// The parts it draws are made only when needed, from small documents compiled once per
/// engine, into the QML file's frame item (`bannerFrame`): the creative (an `Image`, or a
/// `VideoAdView` for a video), the label only while there is label text, the focus ring
/// the first time the banner has keyboard focus. Made in QML they are complete with the
/// banner; with `setAsynchronousContent` (the managers' `showAd`) the picture and the
/// label are built over the engine's idle time after the banner returned, except a
/// picture already decoded by a preload, which is made at once for the first frame (a
/// video is always made with the banner).
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

  /// A tap (or Enter/Space on the focused banner): reports a click, emits `adClicked`.
  Q_INVOKABLE void tap();
  /// Where a label of this size goes inside the frame.
  Q_INVOKABLE QRectF labelRect(qreal width, qreal height) const;

  /// Builds the picture and the label over the engine's idle time instead of with the
  /// banner. Set before the banner completes.
  void setAsynchronousContent(bool on) { asynchronousContent_ = on; }
  /// The creative's item (the picture or the video), once it is made.
  QQuickItem* creativeItem() const { return creative_; }

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

 private:
  void relayout();
  void reportImpression();
  QQuickItem* partParent() const;
  void moveFrame();
  void moveLabel();
  void updateCreative();
  void dropCreative();
  void setUpCreative(QQuickItem* item);
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
  CreativeKind creativeMade_ = None;
  AdAppearance* appearance_;
  // The parts, children of the frame (made lazily; see the class comment).
  QQuickItem* frameItem_ = nullptr;
  QQuickItem* creative_ = nullptr;
  QQuickItem* label_ = nullptr;
  QQuickItem* focusRing_ = nullptr;
  std::unique_ptr<detail::PartIncubator> creativeIncubator_;
  std::unique_ptr<detail::PartIncubator> labelIncubator_;
};

}  // namespace tavik::quick
