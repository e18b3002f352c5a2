#pragma once

#include <QtQml/qqmlregistration.h>
#include <QColor>
#include <QPointF>
#include <QQuickItem>
#include <QSet>
#include <QVariantList>

#include "tavik/views/qml_records.h"
#include "views/view_logic.h"

namespace tavik::quick {

class AdAppearance;

/// What both carousels share: the sizes, the page index and the paging rule, the drag
/// offset the row follows, and the scroll position that centres the current card.
/// QML draws the strip (a ListView whose contentX is `scrollPosition`) and forwards
/// drags (`dragTo`, `endDrag`), wheel notches and arrow keys (`step`).
class CarouselStripBase : public QQuickItem {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("the base of CarouselAdView and MultiAdCarouselView")
  Q_PROPERTY(tavik::quick::QmlConfig config READ config WRITE setConfig NOTIFY configChanged)
  Q_PROPERTY(qreal adWidth READ adWidth WRITE setAdWidth NOTIFY layoutChanged)
  Q_PROPERTY(qreal adHeight READ adHeight WRITE setAdHeight NOTIFY layoutChanged)
  Q_PROPERTY(qreal elementWidth READ elementWidth WRITE setElementWidth NOTIFY layoutChanged)
  Q_PROPERTY(qreal elementHeight READ elementHeight WRITE setElementHeight NOTIFY layoutChanged)
  Q_PROPERTY(QString adLabelText READ adLabelText WRITE setAdLabelText NOTIFY labelChanged)
  Q_PROPERTY(Qt::Alignment adLabelAlignment READ adLabelAlignment WRITE setAdLabelAlignment NOTIFY
                 labelChanged)
  Q_PROPERTY(qreal stripWidth READ stripWidth NOTIFY layoutChanged)
  Q_PROPERTY(qreal stripHeight READ stripHeight NOTIFY layoutChanged)
  Q_PROPERTY(qreal cardWidth READ cardWidth NOTIFY layoutChanged)
  Q_PROPERTY(qreal cardHeight READ cardHeight NOTIFY layoutChanged)
  Q_PROPERTY(qreal pitch READ pitch NOTIFY layoutChanged)
  Q_PROPERTY(int count READ count NOTIFY layoutChanged)
  Q_PROPERTY(int currentIndex READ currentIndex NOTIFY currentIndexChanged)
  Q_PROPERTY(qreal dragOffset READ dragOffset NOTIFY dragOffsetChanged)
  Q_PROPERTY(qreal scrollPosition READ scrollPosition NOTIFY currentIndexChanged)

 public:
  explicit CarouselStripBase(QQuickItem* parent = nullptr);
  ~CarouselStripBase() override;

  QmlConfig config() const { return config_; }
  void setConfig(const QmlConfig& config);
  qreal adWidth() const { return wanted_[0]; }
  void setAdWidth(qreal value) { setWanted(0, value); }
  qreal adHeight() const { return wanted_[1]; }
  void setAdHeight(qreal value) { setWanted(1, value); }
  qreal elementWidth() const { return wanted_[2]; }
  void setElementWidth(qreal value) { setWanted(2, value); }
  qreal elementHeight() const { return wanted_[3]; }
  void setElementHeight(qreal value) { setWanted(3, value); }
  QString adLabelText() const { return adLabelText_; }
  void setAdLabelText(const QString& text);
  Qt::Alignment adLabelAlignment() const { return adLabelAlignment_; }
  void setAdLabelAlignment(Qt::Alignment alignment);

  qreal stripWidth() const { return layout_.width; }
  qreal stripHeight() const { return layout_.height; }
  qreal cardWidth() const { return layout_.cardWidth; }
  qreal cardHeight() const { return layout_.cardHeight; }
  qreal pitch() const { return layout_.pitch; }
  int count() const { return count_; }
  int currentIndex() const { return currentIndex_; }
  qreal dragOffset() const { return dragOffset_; }
  qreal scrollPosition() const;
  const CarouselLayout& layout() const { return layout_; }

  /// The row follows the finger while a drag lasts.
  Q_INVOKABLE void dragTo(qreal translation);
  /// A drag ended after `translation` points: pages by the rule, the offset returns to 0.
  Q_INVOKABLE int endDrag(qreal translation);
  /// One page left (-1) or right (+1): wheel notches and arrow keys.
  Q_INVOKABLE int step(int direction);
  /// Where a label of this size goes in a card of this size (the banner's placement).
  Q_INVOKABLE QPointF labelPosition(qreal cardWidth, qreal cardHeight, qreal width,
                                    qreal height) const;
  /// Whether card `index` takes room in the row (its pitch); one that cannot be drawn
  /// takes none, yet still counts in the dots and in paging.
  Q_INVOKABLE bool cardTakesRoom(int index) const;

 Q_SIGNALS:
  void configChanged();
  void layoutChanged();
  void labelChanged();
  void currentIndexChanged();
  void dragOffsetChanged();

 protected:
  /// Recomputes the sizes from the first card's creative size and the card count.
  /// `drawn` says which cards take room; empty: all of them.
  void relayout(std::optional<SizeF> firstCard, int count, QList<bool> drawn = {});

 private:
  void setWanted(int which, qreal value);
  void setCurrentIndex(int index);
  virtual void relayoutFromContent() = 0;

  QmlConfig config_;
  qreal wanted_[4] = {-1, -1, -1, -1};
  QString adLabelText_;
  Qt::Alignment adLabelAlignment_ = Qt::AlignTop | Qt::AlignLeft;
  CarouselLayout layout_;
  QList<bool> drawn_;
  int count_ = 0;
  int currentIndex_ = 0;
  qreal dragOffset_ = 0;
};

/// The logic of `CarouselAdView`: one carousel ad, its cards, one impression for the
/// carousel when it first appears, a click per card tap (reported for the ad; the card
/// and its destination go to the host's `adClicked`).
class CarouselAdViewBase : public tavik::quick::CarouselStripBase {
  Q_OBJECT
  QML_ELEMENT
  Q_PROPERTY(tavik::quick::QmlCarouselAd ad READ ad WRITE setAd NOTIFY adChanged)
  Q_PROPERTY(QVariantList cards READ cards NOTIFY adChanged)
  Q_PROPERTY(bool drawable READ drawable NOTIFY adChanged)
  Q_PROPERTY(QColor cardBackground READ cardBackground WRITE setCardBackground NOTIFY
                 cardBackgroundChanged)
  Q_PROPERTY(bool hasCardBackground READ hasCardBackground NOTIFY cardBackgroundChanged)
  Q_PROPERTY(bool onScreen READ onScreen NOTIFY onScreenChanged)
  Q_PROPERTY(bool impressionReported READ impressionReported NOTIFY onScreenChanged)
  Q_PROPERTY(qreal visibleFraction READ visibleFraction NOTIFY visibleFractionChanged)
  Q_PROPERTY(bool viewableReported READ viewableReported NOTIFY viewableReportedChanged)

 public:
  explicit CarouselAdViewBase(QQuickItem* parent = nullptr);
  ~CarouselAdViewBase() override;

  QmlCarouselAd ad() const { return ad_; }
  void setAd(const QmlCarouselAd& ad);
  QVariantList cards() const {
    return drawable() ? ad_.elements().carouselCards() : QVariantList();
  }
  bool drawable() const;
  QColor cardBackground() const { return cardBackground_; }
  void setCardBackground(const QColor& color);
  /// Whether cards get a background: only a valid colour the host set. Qt's invalid
  /// colour (the default, "none") reports an alpha of 1, so QML cannot tell by itself.
  bool hasCardBackground() const {
    return cardBackground_.isValid() && cardBackground_.alpha() > 0;
  }
  bool onScreen() const;
  bool impressionReported() const;
  /// How much of the carousel is on screen now, 0..1.
  qreal visibleFraction() const;
  bool viewableReported() const;

  /// A tap on card `index`: reports the ad's click, emits `adClicked(ad, card, destination)`.
  Q_INVOKABLE void tapCard(int index);
  /// Whether a card's media is drawn ("IMAGE" or "VIDEO"): 0 none, 1 image, 2 video.
  Q_INVOKABLE int cardKind(int index) const;

 Q_SIGNALS:
  void adChanged();
  void cardBackgroundChanged();
  void onScreenChanged();
  void visibleFractionChanged();
  void viewableReportedChanged();
  void adAppear(const tavik::quick::QmlCarouselAd& ad);
  /// The carousel became viewable (the display rule, for the carousel as a whole); once
  /// per view instance.
  void viewable(const tavik::quick::QmlCarouselAd& ad);
  /// `destination` is the card's destination address, or undefined when it has none.
  void adClicked(const tavik::quick::QmlCarouselAd& ad, const tavik::quick::QmlCarouselCard& card,
                 const QVariant& destination);

 protected:
  void componentComplete() override;

 private:
  void relayoutFromContent() override;
  void reportImpression();

  QmlCarouselAd ad_;
  QColor cardBackground_;
  AdAppearance* appearance_;
};

/// The logic of `MultiAdCarouselView`: a list of banner ads, each card a whole
/// `BannerAdView` with its own impression and clicks. The ListView rebuilds cards that
/// scroll far away; the strip remembers which cards already reported their impression,
/// so each card reports once for the life of the strip.
class MultiAdCarouselViewBase : public tavik::quick::CarouselStripBase {
  Q_OBJECT
  QML_ELEMENT
  Q_PROPERTY(QVariantList ads READ ads WRITE setAds NOTIFY adsChanged)

 public:
  explicit MultiAdCarouselViewBase(QQuickItem* parent = nullptr) : CarouselStripBase(parent) {}

  QVariantList ads() const { return ads_; }
  void setAds(const QVariantList& ads);

  /// Whether card `index` already reported its impression (a rebuilt card starts so).
  Q_INVOKABLE bool cardReported(int index) const { return reported_.contains(index); }
  Q_INVOKABLE void markCardReported(int index) { reported_.insert(index); }
  /// The same for the moment each card became viewable.
  Q_INVOKABLE bool cardViewable(int index) const { return viewed_.contains(index); }
  Q_INVOKABLE void markCardViewable(int index) { viewed_.insert(index); }

 Q_SIGNALS:
  void adsChanged();
  void adAppear(const tavik::quick::QmlBannerAd& ad);
  void adClicked(const tavik::quick::QmlBannerAd& ad);
  /// A card became viewable; once per card for the life of the strip.
  void viewable(const tavik::quick::QmlBannerAd& ad);

 protected:
  void componentComplete() override;

 private:
  void relayoutFromContent() override;

  QVariantList ads_;
  QSet<int> reported_;
  QSet<int> viewed_;
};

}  // namespace tavik::quick
