#pragma once

// What a real shopping app does with the SDK, for the QML pages: its own catalogue
// (from the shop's product search, not the SDK), sponsored listings fetched with the
// ad fetcher, display ads fetched with the renderer or put on screen by the view
// managers, the shopper's cart, and the shopper's events reported with the registrar.
//
// Everything here runs on the UI thread; SDK results come back through
// tavik::quick::continueOn, so a result never reaches a shop that is gone.

#include <QtQml/qqmlregistration.h>
#include <QNetworkAccessManager>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>
#include <QVariant>
#include <memory>
#include <string>
#include <vector>

#include "tavik/views/views.h"

class QQuickItem;
class QQuickImageProvider;

namespace tavik::shop {

struct ShopPictures;

class Shop : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by the application")
  Q_PROPERTY(QString shopperId READ shopperId CONSTANT)
  /// The whole catalogue, for the home page: items as in `results`.
  Q_PROPERTY(QVariantList catalogue READ catalogue NOTIFY catalogueChanged)
  /// Search results: sponsored listings first, then the shop's own matches. Each item:
  /// sku, name, brand, price, image, sponsored, uclid, position.
  Q_PROPERTY(QVariantList results READ results NOTIFY resultsChanged)
  Q_PROPERTY(bool searching READ searching NOTIFY resultsChanged)
  /// The product page: one catalogue item, and the sponsored listings shown on it.
  Q_PROPERTY(QVariantMap product READ product NOTIFY productChanged)
  Q_PROPERTY(QVariantList productAds READ productAds NOTIFY productAdsChanged)
  /// Display ads the app fetched itself (adRenderer) for the home page's views.
  Q_PROPERTY(QVariant videoBannerAd READ videoBannerAd NOTIFY homeAdsChanged)
  Q_PROPERTY(QVariantList multiAds READ multiAds NOTIFY homeAdsChanged)
  /// The cart: lines of sku, name, brand, price, image, quantity.
  Q_PROPERTY(QVariantList cart READ cart NOTIFY cartChanged)
  Q_PROPERTY(int cartCount READ cartCount NOTIFY cartChanged)
  Q_PROPERTY(double cartTotal READ cartTotal NOTIFY cartChanged)
  Q_PROPERTY(QString lastOrder READ lastOrder NOTIFY orderPlaced)
  /// A short message for the shopper (a toast), cleared after a moment; empty for none.
  Q_PROPERTY(QString message READ message NOTIFY messageChanged)

 public:
  /// `catalogueBase` is the shop's own server ("https://127.0.0.1:PORT"), trusted through
  /// the PEM file `caPath` like the SDK's services.
  Shop(QString shopperId, QString catalogueBase, QString caPath, QObject* parent = nullptr);
  ~Shop() override;

  QString shopperId() const { return shopperId_; }
  QVariantList catalogue() const { return catalogue_; }
  QVariantList results() const { return results_; }
  bool searching() const { return searching_ > 0; }
  QVariantMap product() const { return product_; }
  QVariantList productAds() const { return productAds_; }
  QVariant videoBannerAd() const { return videoBannerAd_; }
  QVariantList multiAds() const { return multiAds_; }
  QVariantList cart() const;
  int cartCount() const;
  double cartTotal() const;
  QString lastOrder() const { return lastOrder_; }
  QString message() const { return message_; }

  /// The product pictures as "image://shop/<sku>", for the engine (which owns it). The
  /// shop downloads them with the catalogue.
  QQuickImageProvider* pictureProvider() const;

  /// Loads the catalogue and the home page's display ads; the carousel is put into
  /// `carouselSlot` by the carousel manager.
  Q_INVOKABLE void loadHome(QQuickItem* carouselSlot);
  /// Sponsored listings for `query` (narrowed by brands and a price range) and the
  /// shop's own matches.
  Q_INVOKABLE void search(const QString& query, const QStringList& brands, const QString& minPrice,
                          const QString& maxPrice);
  /// Opens a product page: reports the product view, fetches its sponsored listings.
  Q_INVOKABLE void openProduct(const QString& sku);
  /// A tap on a sponsored listing: reports the ad click, then opens the product.
  Q_INVOKABLE void openListing(const QVariantMap& listing);
  /// Where an ad leads: a product of the shop opens its page; anything else is
  /// announced (a real app would open its web page).
  Q_INVOKABLE void openDestination(const QString& url);
  Q_INVOKABLE void addToCart(const QString& sku);
  Q_INVOKABLE void removeFromCart(const QString& sku);
  /// Places the order: reports the purchase with its lines, empties the cart and shows
  /// the interstitial of the order confirmation.
  Q_INVOKABLE void checkout();
  /// A picture-in-picture video over the window.
  Q_INVOKABLE void showVideo();
  Q_INVOKABLE void dismissMessage();

 signals:
  void catalogueChanged();
  void resultsChanged();
  void productChanged();
  void productAdsChanged();
  void homeAdsChanged();
  void cartChanged();
  void orderPlaced(const QString& orderId);
  void messageChanged();

 private:
  struct Line {
    QVariantMap product;
    int quantity = 0;
  };
  /// The shopper's search filter; a negative price is no bound.
  struct Filter {
    QStringList brands;
    double minPrice = -1;
    double maxPrice = -1;
  };
  QVariantMap findProduct(const QString& sku) const;
  QVariantMap productItem(const QVariantMap& product, bool sponsored, const QString& uclid = {},
                          int position = 0) const;
  void loadPictures(const QVariantList& products);
  /// Sponsored listings from a product-listing answer, as result items.
  QVariantList listingsFrom(const QVariant& answer, const Filter& filter) const;
  void reportListingImpressions(const QVariantList& listings);
  void finishSearch(int generation);
  void say(const QString& text);

  QString shopperId_;
  QString catalogueBase_;
  QNetworkAccessManager network_;
  std::shared_ptr<ShopPictures> pictures_;
  QVariantList shopProducts_;  // as the shop's server sent them
  QVariantList catalogue_;     // as the pages show them
  QVariantList results_;
  int searching_ = 0;
  int searchGeneration_ = 0;
  QVariantList pendingListings_;
  QVariantList pendingMatches_;
  QVariantMap product_;
  QVariantList productAds_;
  QVariant videoBannerAd_;
  QVariantList multiAds_;
  std::vector<Line> cart_;
  QString lastOrder_;
  QString message_;
  QTimer messageTimer_;
  int orders_ = 0;
  // The overlay managers live as long as the shop: each keeps its own overlay.
  std::unique_ptr<InterstitialAdViewProtocol> interstitials_;
  std::unique_ptr<PIPAdViewProtocol> pips_;
};

}  // namespace tavik::shop
