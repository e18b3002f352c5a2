#include "shop.h"

#include <QHash>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkReply>
#include <QQuickImageProvider>
#include <QQuickItem>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QUrlQuery>
#include <QVariantMap>
#include <algorithm>
#include <mutex>

#include "tavik/tavik.h"
#include "tavik/views/qml_records.h"
#include "tavik/views/qt_bridge.h"

namespace tavik::shop {

namespace {

/// The answer data of a fetch ({"response": {"data": "<JSON text>"}}) as a map.
QVariantMap answerData(const std::optional<nlohmann::json>& answer) {
  if (!answer || !answer->contains("response")) return {};
  const auto& response = (*answer)["response"];
  if (!response.is_object() || !response.contains("data") || !response["data"].is_string()) {
    return {};
  }
  const auto text = QByteArray::fromStdString(response["data"].get<std::string>());
  return QJsonDocument::fromJson(text).object().toVariantMap();
}

}  // namespace

/// Downloaded product pictures by SKU; read by the image provider on Qt's image threads.
struct ShopPictures {
  std::mutex mutex;
  QHash<QString, QImage> bySku;

  bool has(const QString& sku) {
    std::lock_guard lock(mutex);
    return bySku.contains(sku);
  }
};

namespace {

class PictureProvider : public QQuickImageProvider {
 public:
  explicit PictureProvider(std::shared_ptr<ShopPictures> pictures)
      : QQuickImageProvider(QQuickImageProvider::Image), pictures_(std::move(pictures)) {}

  QImage requestImage(const QString& id, QSize* size, const QSize& requested) override {
    QImage image;
    {
      std::lock_guard lock(pictures_->mutex);
      image = pictures_->bySku.value(id);
    }
    if (size) *size = image.size();
    if (!image.isNull() && requested.width() > 0 && requested.width() < image.width()) {
      image = image.scaledToWidth(requested.width(), Qt::SmoothTransformation);
    }
    return image;
  }

 private:
  std::shared_ptr<ShopPictures> pictures_;
};

}  // namespace

Shop::Shop(QString shopperId, QString catalogueBase, QString caPath, QObject* parent)
    : QObject(parent),
      shopperId_(std::move(shopperId)),
      catalogueBase_(std::move(catalogueBase)),
      pictures_(std::make_shared<ShopPictures>()),
      videoBannerAd_(QVariant::fromValue(quick::QmlBannerAd())),
      interstitials_(quick::views(TAVIK::shared()).interstitialAdView()),
      pips_(quick::views(TAVIK::shared()).pipAdView()) {
  // The shop's own server uses the same private certificate as the SDK's services.
  QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
  tls.addCaCertificates(QSslCertificate::fromPath(caPath));
  QSslConfiguration::setDefaultConfiguration(tls);

  messageTimer_.setSingleShot(true);
  messageTimer_.setInterval(2500);
  connect(&messageTimer_, &QTimer::timeout, this, &Shop::dismissMessage);
}

void Shop::say(const QString& text) {
  message_ = text;
  emit messageChanged();
  messageTimer_.start();
}

void Shop::dismissMessage() {
  messageTimer_.stop();
  if (message_.isEmpty()) return;
  message_.clear();
  emit messageChanged();
}

Shop::~Shop() = default;

QQuickImageProvider* Shop::pictureProvider() const {
  return new PictureProvider(pictures_);
}

QVariantMap Shop::productItem(const QVariantMap& product, bool sponsored, const QString& uclid,
                              int position) const {
  // A picture the shop has is drawn from memory; any other loads from its address.
  const QString sku = product.value("sku_id").toString();
  const QVariant image =
      pictures_->has(sku) ? QVariant("image://shop/" + sku) : product.value("image_url");
  return {{"sku", sku},
          {"name", product.value("name")},
          {"brand", product.value("brand")},
          {"price", product.value("price")},
          {"image", image},
          {"sponsored", sponsored},
          {"uclid", uclid},
          {"position", position}};
}

void Shop::loadPictures(const QVariantList& products) {
  // The catalogue shows once its pictures are in (or failed): tiles then draw at once.
  auto waiting = std::make_shared<int>(static_cast<int>(products.size()));
  const auto done = [this, waiting, products] {
    if (--*waiting > 0) return;
    catalogue_.clear();
    for (const QVariant& product : products) catalogue_.append(productItem(product.toMap(), false));
    emit catalogueChanged();
  };
  if (products.isEmpty()) return;
  for (const QVariant& item : products) {
    const QVariantMap product = item.toMap();
    const QString sku = product.value("sku_id").toString();
    QNetworkReply* reply = network_.get(QNetworkRequest(product.value("image_url").toUrl()));
    connect(reply, &QNetworkReply::finished, this, [this, reply, sku, done] {
      reply->deleteLater();
      const QImage image = QImage::fromData(reply->readAll());
      if (!image.isNull()) {
        std::lock_guard lock(pictures_->mutex);
        pictures_->bySku.insert(sku, image);
      }
      done();
    });
  }
}

QVariantList Shop::cart() const {
  QVariantList lines;
  for (const Line& line : cart_) {
    QVariantMap item = productItem(line.product, false);
    item["quantity"] = line.quantity;
    lines.append(item);
  }
  return lines;
}

int Shop::cartCount() const {
  int count = 0;
  for (const Line& line : cart_) count += line.quantity;
  return count;
}

double Shop::cartTotal() const {
  double total = 0;
  for (const Line& line : cart_) total += line.product.value("price").toDouble() * line.quantity;
  return total;
}

QVariantMap Shop::findProduct(const QString& sku) const {
  for (const QVariant& item : shopProducts_) {
    const QVariantMap product = item.toMap();
    if (product.value("sku_id").toString() == sku) return product;
  }
  return {};
}

void Shop::loadHome(QQuickItem* carouselSlot) {
  // The catalogue comes from the shop's own product search, not from the SDK.
  QNetworkReply* reply = network_.get(QNetworkRequest(QUrl(catalogueBase_ + "/shop/products")));
  connect(reply, &QNetworkReply::finished, this, [this, reply] {
    reply->deleteLater();
    shopProducts_ = QJsonDocument::fromJson(reply->readAll())["products"].toArray().toVariantList();
    loadPictures(shopProducts_);
  });

  const std::string shopper = shopperId_.toStdString();
  auto renderer = TAVIK::shared().adRenderer();

  // adRenderer() + a view type: the app fetches, QML's BannerAdView and
  // MultiAdCarouselView draw what it hands them.
  quick::continueOn(this, renderer->fetchBannerAdsWithAu(shopper, "HOME", "au_video_banner"),
                    [this](const Future<std::optional<BannerAd>>& ready) {
                      if (auto ad = ready.get()) {
                        videoBannerAd_ = QVariant::fromValue(quick::QmlBannerAd(*ad));
                        emit homeAdsChanged();
                      }
                    });
  quick::continueOn(this, renderer->fetchMultiAdCarouselWithAu(shopper, "HOME", "au_multi", 4),
                    [this](const Future<std::optional<std::vector<BannerAd>>>& ready) {
                      multiAds_.clear();
                      if (auto ads = ready.get()) {
                        for (const BannerAd& ad : *ads) {
                          multiAds_.append(QVariant::fromValue(quick::QmlBannerAd(ad)));
                        }
                      }
                      emit homeAdsChanged();
                    });

  // A manager's showAd: the view is made by the SDK and parented to the app's slot.
  QPointer<QQuickItem> slot(carouselSlot);
  quick::continueOn(carouselSlot, renderer->fetchCarouselAdWithAu(shopper, "HOME", "au_carousel"),
                    [this, slot](const Future<std::optional<CarouselAd>>& ready) {
                      auto ad = ready.get();
                      auto carousels = quick::views(TAVIK::shared()).carouselAdView();
                      if (!ad || !carousels || !slot) return;
                      CarouselAdSettings settings;
                      settings.width = static_cast<float>(slot->width());
                      settings.cardBackground = QColor("#ffffff");
                      settings.adLabelText = "Sponsored";
                      settings.adLabelAlignment = Qt::AlignTop | Qt::AlignRight;
                      QPointer<Shop> shop(this);
                      settings.adClicked = [shop](const CarouselAd&, const CarouselCard&,
                                                  const std::optional<std::string>& destination) {
                        if (shop)
                          shop->openDestination(QString::fromStdString(destination.value_or("")));
                      };
                      QQuickItem* view = carousels->showAd(*ad, settings, slot);
                      if (view) view->setObjectName("carousel");
                    });
}

void Shop::search(const QString& query, const QStringList& brands, const QString& minPrice,
                  const QString& maxPrice) {
  const int generation = ++searchGeneration_;
  searching_ = 2;
  pendingListings_.clear();
  pendingMatches_.clear();
  const Filter shown{brands, minPrice.isEmpty() ? -1 : minPrice.toDouble(),
                     maxPrice.isEmpty() ? -1 : maxPrice.toDouble()};
  emit resultsChanged();

  // Sponsored listings for the query, narrowed by the shopper's filter.
  auto filter = std::make_shared<ProductAdsFilter>();
  StringList brandList;
  for (const QString& brand : brands) brandList.push_back(brand.toStdString());
  if (!brandList.empty()) filter->brands(brandList);
  if (!minPrice.isEmpty()) filter->minPrice(minPrice.toStdString());
  if (!maxPrice.isEmpty()) filter->maxPrice(maxPrice.toStdString());
  quick::continueOn(this,
                    TAVIK::shared().adFetcher()->fetchPlaSearchPageAds(
                        shopperId_.toStdString(), 4, query.toStdString(), "search", filter),
                    [this, generation, shown](const Future<std::optional<nlohmann::json>>& ready) {
                      if (generation != searchGeneration_)
                        return;  // a newer search replaced this one
                      pendingListings_ = listingsFrom(answerData(ready.get()), shown);
                      finishSearch(generation);
                    });

  // The shop's own matches.
  QUrlQuery items;
  items.addQueryItem("q", query);
  for (const QString& brand : brands) items.addQueryItem("brand", brand);
  if (!minPrice.isEmpty()) items.addQueryItem("min_price", minPrice);
  if (!maxPrice.isEmpty()) items.addQueryItem("max_price", maxPrice);
  QUrl url(catalogueBase_ + "/shop/products");
  url.setQuery(items);
  QNetworkReply* reply = network_.get(QNetworkRequest(url));
  connect(reply, &QNetworkReply::finished, this, [this, reply, generation] {
    reply->deleteLater();
    if (generation != searchGeneration_) return;
    for (const QVariant& product :
         QJsonDocument::fromJson(reply->readAll())["products"].toArray().toVariantList()) {
      pendingMatches_.append(productItem(product.toMap(), false));
    }
    finishSearch(generation);
  });
}

QVariantList Shop::listingsFrom(const QVariant& answer, const Filter& filter) const {
  QVariantList listings;
  for (const QVariant& item : answer.toMap().value("products").toList()) {
    const QVariantMap product = item.toMap();
    // The ad service may be looser than the shopper's filter; a listing that contradicts
    // it is not shown (and so reports nothing).
    const double price = product.value("price").toDouble();
    if (!filter.brands.isEmpty() && !filter.brands.contains(product.value("brand").toString())) {
      continue;
    }
    if (filter.minPrice >= 0 && price < filter.minPrice) continue;
    if (filter.maxPrice >= 0 && price > filter.maxPrice) continue;
    listings.append(productItem(product, true, product.value("uclid").toString(),
                                static_cast<int>(listings.size()) + 1));
  }
  return listings;
}

void Shop::finishSearch(int generation) {
  if (generation != searchGeneration_ || --searching_ > 0) return;
  // Sponsored listings first, then the shop's matches that are not already listed.
  QVariantList merged = pendingListings_;
  QStringList listed;
  for (const QVariant& item : pendingListings_) listed.append(item.toMap().value("sku").toString());
  for (const QVariant& item : pendingMatches_) {
    if (!listed.contains(item.toMap().value("sku").toString())) merged.append(item);
  }
  results_ = merged;
  emit resultsChanged();
  reportListingImpressions(pendingListings_);
}

void Shop::reportListingImpressions(const QVariantList& listings) {
  // Listings are the app's own tiles, so the app reports their impressions: once per
  // page that shows them.
  for (const QVariant& item : listings) {
    const QVariantMap listing = item.toMap();
    TAVIK::shared().registerEvent()->registerAdImpressionEvent(
        shopperId_.toStdString(), listing.value("uclid").toString().toStdString(),
        listing.value("position").toLongLong());
  }
}

void Shop::openProduct(const QString& sku) {
  const QVariantMap found = findProduct(sku);
  if (found.isEmpty()) return;
  product_ = productItem(found, false);
  productAds_.clear();
  emit productChanged();
  emit productAdsChanged();

  const std::string shopper = shopperId_.toStdString();
  TAVIK::shared().registerEvent()->registerViewProductEvent(shopper, sku.toStdString(),
                                                            found.value("price").toFloat());

  // Sponsored listings for this product's page; the product itself is not repeated.
  quick::continueOn(this,
                    TAVIK::shared().adFetcher()->fetchPlaProductPageAds(
                        shopper, 3, {sku.toStdString()}, "product"),
                    [this, sku](const Future<std::optional<nlohmann::json>>& ready) {
                      if (product_.value("sku").toString() != sku)
                        return;  // another page opened since
                      QVariantList listings;
                      for (const QVariant& item : listingsFrom(answerData(ready.get()), {})) {
                        QVariantMap listing = item.toMap();
                        if (listing.value("sku").toString() == sku) continue;
                        listing["position"] = static_cast<int>(listings.size()) + 1;
                        listings.append(listing);
                      }
                      productAds_ = listings;
                      emit productAdsChanged();
                      reportListingImpressions(listings);
                    });
}

void Shop::openListing(const QVariantMap& listing) {
  if (listing.value("sponsored").toBool()) {
    TAVIK::shared().registerEvent()->registerAdClickEvent(
        shopperId_.toStdString(), listing.value("uclid").toString().toStdString());
  }
  openProduct(listing.value("sku").toString());
}

void Shop::openDestination(const QString& url) {
  const QString marker = QStringLiteral("/p/");
  const int at = url.indexOf(marker);
  if (at >= 0) {
    const QString sku = url.mid(at + marker.size()).toUpper();
    if (!findProduct(sku).isEmpty()) return openProduct(sku);
  }
  say(tr("Opening %1").arg(url.isEmpty() ? tr("the offer") : url));
}

void Shop::addToCart(const QString& sku) {
  const QVariantMap found = findProduct(sku);
  if (found.isEmpty()) return;
  auto line = std::find_if(cart_.begin(), cart_.end(), [&](const Line& l) {
    return l.product.value("sku_id").toString() == sku;
  });
  if (line == cart_.end()) line = cart_.insert(cart_.end(), Line{found, 0});
  ++line->quantity;
  emit cartChanged();
  TAVIK::shared().registerEvent()->registerAdd2CartEvent(
      shopperId_.toStdString(), sku.toStdString(), found.value("price").toFloat());
  say(tr("%1 added to your cart").arg(found.value("name").toString()));
}

void Shop::removeFromCart(const QString& sku) {
  std::erase_if(cart_, [&](const Line& l) { return l.product.value("sku_id").toString() == sku; });
  emit cartChanged();
}

void Shop::checkout() {
  if (cart_.empty()) return;
  std::vector<Product> lines;
  for (const Line& line : cart_) {
    lines.emplace_back(line.product.value("sku_id").toString().toStdString(),
                       line.product.value("price").toFloat(), line.quantity);
  }
  lastOrder_ = QStringLiteral("order-%1").arg(++orders_, 4, 10, QChar('0'));
  const std::string shopper = shopperId_.toStdString();
  TAVIK::shared().registerEvent()->registerPurchaseEvent(shopper, static_cast<float>(cartTotal()),
                                                         lastOrder_.toStdString(), lines);
  cart_.clear();
  emit cartChanged();
  emit orderPlaced(lastOrder_);

  // The order confirmation's interstitial, put over the window by its manager.
  quick::continueOn(
      this,
      TAVIK::shared().adRenderer()->fetchBannerAdsWithAu(shopper, "PURCHASE", "au_interstitial"),
      [this](const Future<std::optional<BannerAd>>& ready) {
        auto ad = ready.get();
        if (!ad || !interstitials_) return;
        InterstitialAdSettings settings;
        settings.adLabelText = "Sponsored";
        settings.adLabelAlignment = Qt::AlignTop | Qt::AlignRight;
        QPointer<Shop> shop(this);
        settings.adClicked = [shop](const BannerAd& clicked) {
          if (shop)
            shop->openDestination(
                QString::fromStdString(clicked.elements.destinationUrl.value_or("")));
        };
        interstitials_->showAd(*ad, settings);
      });
}

void Shop::showVideo() {
  quick::continueOn(this,
                    TAVIK::shared().adRenderer()->fetchBannerAdsWithAu(shopperId_.toStdString(),
                                                                       "PRODUCT", "au_pip"),
                    [this](const Future<std::optional<BannerAd>>& ready) {
                      auto ad = ready.get();
                      if (!ad || !pips_) return;
                      PIPAdSettings settings;
                      settings.width = 240;
                      settings.height = 135;
                      settings.adLabelText = "Ad";
                      pips_->showAd(*ad, settings);
                    });
}

}  // namespace tavik::shop
