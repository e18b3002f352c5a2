// The tour's script: what the shopper does, what must show, which events it causes.

#include <QQuickItem>
#include <QQuickWindow>
#include <QTest>

#include "request_log.h"
#include "shop.h"
#include "tavik/events/event_store.h"
#include "tour.h"

namespace tavik::shop {

namespace {

QString impression(const QString& uclid) {
  return QStringLiteral("/events event_name=funnel_impression uclid=") + uclid;
}
QString click(const QString& uclid) {
  return QStringLiteral("/aclick uclid=") + uclid;
}
QString productView(const QString& sku) {
  return QStringLiteral("/events event_name=viewproduct sku_id=") + sku;
}
QString addToCart(const QString& sku) {
  return QStringLiteral("/events event_name=funnel_add2cart sku_id=") + sku;
}

}  // namespace

void Tour::buildSteps() {
  const auto item = [this](const char* name) { return find(QString::fromLatin1(name)); };
  const auto shown = [this](const char* name) {
    QQuickItem* page = find(QString::fromLatin1(name));
    return page && page->isVisible();
  };
  const auto count = [this](const char* property) {
    return shop_->property(property).toList().size();
  };

  steps_ = {
      {"home: an image banner (TavikBanner), a video banner (adRenderer + BannerAdView), a "
       "carousel (the manager's showAd)",
       [this] {
         expected_ << impression("uc-home-banner-1") << impression("uc-video-banner-1")
                   << impression("uc-carousel-1");
       },
       [=, this] {
         return formatDrawn("image banner", item("homeBanner")) &&
                formatDrawn("video banner", item("videoBanner")) &&
                formatDrawn("carousel", item("carousel")) &&
                hasEvent(QStringLiteral(
                    "/events event_name=funnel_video_progress uclid=uc-video-banner-1")) &&
                // Seen as buyers count it: a second on screen, two of playback for video.
                item("homeBanner")->property("viewableReported").toBool() &&
                item("videoBanner")->property("viewableReported").toBool();
       },
       40000},
      {"screenshot", [this] { screenshot("shop-1-home"); }, nullptr},
      {"a tap on the image banner",
       [=, this] {
         tap(item("homeBanner"));
         expected_ << click("uc-home-banner-1");
       },
       [=, this] { return hasEvent(click("uc-home-banner-1")); }},
      {"a drag of the carousel to its second card",
       [=, this] {
         drag(item("carousel"), {-220, 0});
       },
       [=, this] {
         QQuickItem* carousel = item("carousel");
         return carousel && carousel->property("currentIndex").toInt() == 1;
       }},
      {"scroll down the home page (a drag in the margin)",
       [=, this] {
         QQuickItem* page = item("homeScroller");
         const int x = 12;
         drag(page, {0, -420}, page->mapToScene(QPointF(x, page->height() - 60)).toPoint());
       },
       [=, this] {
         QQuickItem* page = item("homeScroller");
         return page && !page->property("moving").toBool() &&
                page->property("contentY").toReal() > 200 &&
                formatDrawn("multi-ad carousel", item("multi"));
       }},
      {"the multi-ad carousel (adRenderer + MultiAdCarouselView), dragged through its cards",
       [=, this] {
         expected_ << impression("uc-multi-1") << impression("uc-multi-2")
                   << impression("uc-multi-3") << impression("uc-multi-4");
         screenshot("shop-2-home-more");
         drag(item("multi"), {-220, 0});
       },
       [=, this] { return item("multi")->property("currentIndex").toInt() == 1; }},
      {"... card 3",
       [=, this] {
         drag(item("multi"), {-220, 0});
       },
       [=, this] { return item("multi")->property("currentIndex").toInt() == 2; }},
      {"... card 4",
       [=, this] {
         drag(item("multi"), {-220, 0});
       },
       [=, this] {
         return item("multi")->property("currentIndex").toInt() == 3 &&
                hasEvent(impression("uc-multi-4"));
       }},

      {"search: \"outdoor\", brands Northpeak and Aquora, under 100",
       [=, this] {
         tap(item("navSearch"));
         tap(item("searchField"));
         typeText(QStringLiteral("outdoor"));
         tap(item("brand-Northpeak"));
         tap(item("brand-Aquora"));
         tap(item("price-under100"));
         QTest::keyClick(window_, Qt::Key_Return);
         for (const char* uclid :
              {"pla-search-sku-1001", "pla-search-sku-1005", "pla-search-sku-1003"}) {
           expected_ << impression(uclid);
         }
       },
       [=, this] {
         // One search field (the page's; the header hides its own) and a count that
         // reads as one.
         return shown("searchPage") && !shop_->property("searching").toBool() &&
                count("results") == 4 && !item("headerSearch")->isVisible() &&
                item("resultCount")->property("text").toString() == QLatin1String("4 results") &&
                picturesLoaded(item("searchPage")) &&
                formatDrawn("sponsored listings (search)",
                            find(QStringLiteral("tileImage"), item("result-0")));
       }},
      {"screenshot", [this] { screenshot("shop-3-search"); }, nullptr},

      {"a tap on the first sponsored listing opens its product page",
       [=, this] {
         tap(item("result-0"));
         expected_ << click("pla-search-sku-1001") << productView("SKU-1001");
         for (const char* uclid :
              {"pla-product-sku-1003", "pla-product-sku-1002", "pla-product-sku-1005"}) {
           expected_ << impression(uclid);
         }
       },
       [=, this] {
         return shown("productPage") &&
                shop_->property("product").toMap().value("sku") == "SKU-1001" &&
                count("productAds") == 3 && picturesLoaded(item("productPage")) &&
                formatDrawn("sponsored listings (product page)",
                            find(QStringLiteral("tileImage"), item("productAd-0")));
       }},
      {"screenshot", [this] { screenshot("shop-4-product"); }, nullptr},
      {"add to cart",
       [=, this] {
         tap(item("addToCart"));
         expected_ << addToCart("SKU-1001");
       },
       [this] { return shop_->property("cartCount").toInt() == 1; }},
      {"a sponsored listing of the product page, added to the cart too",
       [=, this] {
         tap(item("productAd-0"));
         expected_ << click("pla-product-sku-1003") << productView("SKU-1003")
                   << impression("pla-product-sku-1002") << impression("pla-product-sku-1005");
       },
       [=, this] {
         return shop_->property("product").toMap().value("sku") == "SKU-1003" &&
                count("productAds") == 2;
       }},
      {"add to cart",
       [=, this] {
         tap(item("addToCart"));
         expected_ << addToCart("SKU-1003");
       },
       [this] { return shop_->property("cartCount").toInt() == 2; }},

      {"the product video in picture in picture (a manager's showAd over the window)",
       [=, this] {
         tap(item("watchVideo"));
         expected_ << impression("uc-pip-1");
       },
       [=, this] {
         return formatDrawn("picture in picture", pipView()) &&
                hasEvent(QStringLiteral("/events event_name=funnel_video_progress uclid=uc-pip-1"));
       },
       40000},
      {"the video's sound on (mute toggle)",
       [=, this] {
         tap(find(QStringLiteral("muteControl"), pipView()));
         expected_ << QStringLiteral(
             "/events event_name=funnel_video_action uclid=uc-pip-1 action_type=unmute");
       },
       [=, this] {
         return hasEvent(QStringLiteral(
             "/events event_name=funnel_video_action uclid=uc-pip-1 action_type=unmute"));
       }},
      {"a drag of the picture-in-picture panel",
       [=, this] {
         drag(pipView(), {-150, -470});
       },
       [=, this] {
         QQuickItem* pip = pipView();
         return pip && pip->mapToScene(QPointF(0, 0)).y() < window_->height() / 2.0;
       }},
      {"screenshot", [this] { screenshot("shop-5-pip"); }, nullptr},
      {"full screen", [=, this] { tap(find(QStringLiteral("fullScreenButton"), pipView())); },
       [=, this] {
         QQuickItem* pip = pipView();
         return pip && qAbs(pip->width() - window_->width()) < 1 && drawn(pip);
       }},
      {"screenshot", [this] { screenshot("shop-6-pip-full-screen"); }, nullptr},
      {"close the video", [=, this] { tap(find(QStringLiteral("closeButton"), pipView())); },
       [=, this] { return pipView() == nullptr; }},

      {"the cart", [=, this] { tap(item("navCart")); },
       [=, this] {
         return shown("cartPage") && count("cart") == 2 && picturesLoaded(item("cartPage"));
       }},
      {"screenshot", [this] { screenshot("shop-7-cart"); }, nullptr},
      {"checkout: the purchase, then the order's interstitial",
       [=, this] {
         tap(item("checkoutButton"));
         expected_ << QStringLiteral(
                          "/events event_name=funnel_salecomplete order_id=order-0001 "
                          "sku_ids=SKU-1001|SKU-1003")
                   << impression("uc-interstitial-1");
       },
       [=, this] {
         QQuickItem* block = item("adBlock");
         return shown("orderDone") &&
                formatDrawn("interstitial", block ? find("banner", block) : nullptr);
       }},
      {"screenshot", [this] { screenshot("shop-8-interstitial"); }, nullptr},
      {"close the interstitial once its close button shows", [=, this] {},
       [=, this] {
         QQuickItem* block = item("adBlock");
         if (!block) return true;  // it closed itself
         QQuickItem* close = find(QStringLiteral("closeButton"), block);
         if (close && close->opacity() >= 1) tap(close);
         return false;
       }},

      {"the event inspector, events only",
       [=, this] {
         tap(item("inspectorButton"));
         tap(item("kind-events"));
       },
       [=, this] {
         // The home page's ads were seen on the way: each says when it became viewable.
         for (const char* name :
              {"adVisibility-Image banner", "adVisibility-Video banner", "adVisibility-Carousel"}) {
           const QQuickItem* chip = item(name);
           if (!chip || chip->property("viewableAt").toString().isEmpty()) return false;
         }
         return shown("inspectorPanel") && inspector_->kind() == "events" &&
                find(QStringLiteral("inspectorRow"), item("inspectorPanel"));
       }},
      {"every event acknowledged", [=, this] {},
       [this] {
         const QStringList arrived = arrivedEvents();
         for (const QString& event : expected_) {
           if (!arrived.contains(event)) return false;
         }
         return inspector_->count(QStringLiteral("events")) == arrived.size();
       }},
      {"screenshot", [this] { screenshot("shop-9-inspector"); }, nullptr},

      // The event store: with the event service offline an event waits in the store,
      // and goes once the service is back.
      {"the event service goes offline, an add-to-cart waits in the store",
       [=, this] {
         tap(item("eventServiceSwitch"));
         shop_->addToCart(QStringLiteral("SKU-1003"));
         expected_ << addToCart("SKU-1003");
       },
       [=, this] {
         // Other events (a video's progress) may wait beside it.
         const QQuickItem* pending = item("eventStorePending");
         const QString text = pending ? pending->property("text").toString() : QString();
         return events::storeStats().pending >= 1 && text.contains(QStringLiteral("waiting")) &&
                !text.contains(QStringLiteral(" 0 waiting")) &&
                arrivedEvents().count(addToCart("SKU-1003")) == 1;
       }},
      {"screenshot", [this] { screenshot("shop-10-event-waiting"); }, nullptr},
      {"the event service is back: the waiting event goes, once",
       [=, this] { tap(item("eventServiceSwitch")); },
       [=, this] {
         return events::storeStats().pending == 0 &&
                arrivedEvents().count(addToCart("SKU-1003")) == 2;
       }},
  };
}

}  // namespace tavik::shop
