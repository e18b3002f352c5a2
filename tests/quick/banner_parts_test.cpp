// The banner is one item: it draws its picture itself and makes child parts only when it
// needs them (the video, the label, the focus ring); the manager's showAd returns the
// banner before its label is built, and a picture a preload decoded is there for the
// first frame.
#include <gtest/gtest.h>

#include <QtQml/qqml.h>
#include <QAccessible>
#include <QPointer>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickView>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QTest>
#include <memory>

#include "support/sandbox_fixture.h"
#include "support/scene.h"
#include "tavik/ads/ad_models.h"
#include "tavik/views/creatives.h"
#include "tavik/views/qml_records.h"
#include "tavik/views/views.h"
#include "views/media_support.h"
#include "views/shared_pictures.h"

namespace tavik::test {
namespace {

BannerAd catalogueAd(const char* unit, int index = 0) {
  return decodeBannerAd(SandboxFixture::shared().adJson(unit, index).toStdString());
}

// A BannerAdView made from QML, as a host's document makes it.
QQuickItem* bannerIn(Scene& scene, const BannerAd& ad, const QString& labelText = {}) {
  QQmlComponent component(scene.view.engine());
  component.setData("import Tavik\nBannerAdView {}", QUrl());
  QObject* object = component.createWithInitialProperties(
      {{"ad", QVariant::fromValue(quick::QmlBannerAd(ad))}, {"adLabelText", labelText}},
      scene.view.rootContext());
  auto* item = qobject_cast<QQuickItem*>(object);
  if (!item) return nullptr;
  item->setParentItem(scene.root());
  item->setParent(scene.root());
  return item;
}

// The banner's child parts that have a given property (the label has "labelText", the
// focus ring a "border").
QList<QQuickItem*> partsWith(QQuickItem* banner, const char* property) {
  QList<QQuickItem*> found;
  for (QQuickItem* child : banner->childItems()) {
    if (child->metaObject()->indexOfProperty(property) >= 0) found.append(child);
  }
  return found;
}

TEST(BannerParts, TheLabelIsMadeOnlyWithTextAndFollowsItsAlignment) {
  SandboxFixture::shared();
  Scene scene;
  QQuickItem* banner = bannerIn(scene, catalogueAd("au_home_banner"));
  ASSERT_TRUE(banner);
  EXPECT_TRUE(partsWith(banner, "labelText").isEmpty());  // no text, no label
  EXPECT_TRUE(banner->childItems().isEmpty());            // the picture is drawn, not a child
  EXPECT_FALSE(banner->property("pictureSource").toUrl().isEmpty());

  banner->setProperty("adLabelText", QStringLiteral("Sponsored"));
  QList<QQuickItem*> labels = partsWith(banner, "labelText");
  ASSERT_EQ(labels.size(), 1);
  QQuickItem* label = labels.first();
  EXPECT_EQ(label->property("labelText").toString(), QStringLiteral("Sponsored"));
  EXPECT_TRUE(label->isVisible());
  EXPECT_GT(label->width(), 0);
  // Top left by default, then wherever the alignment puts it: the base's own rule for
  // the label's size.
  EXPECT_EQ(label->position(), QPointF(0, 0));
  EXPECT_EQ(banner->property("labelSize").toSizeF(), label->size());
  banner->setProperty("adLabelAlignment", int(Qt::AlignBottom | Qt::AlignRight));
  EXPECT_EQ(label->position(), QPointF(320 - label->width(), 50 - label->height()));
  // Drawn above the picture, which the banner draws under its children.
  EXPECT_GT(label->z(), 0);

  banner->setProperty("adLabelText", QString());
  EXPECT_FALSE(label->isVisible());
  banner->setProperty("adLabelText", QStringLiteral("Ad"));
  EXPECT_EQ(partsWith(banner, "labelText").size(), 1);  // the same label again
  EXPECT_TRUE(label->isVisible());
  EXPECT_EQ(label->property("labelText").toString(), QStringLiteral("Ad"));
  delete banner;
}

TEST(BannerParts, TheFocusRingComesWithTheFirstFocusAndShowsOnlyWithIt) {
  SandboxFixture::shared();
  Scene scene;
  QQuickItem* banner = bannerIn(scene, catalogueAd("au_home_banner"));
  ASSERT_TRUE(banner);
  auto* other = new QQuickItem(scene.root());
  EXPECT_TRUE(partsWith(banner, "border").isEmpty());
  EXPECT_TRUE(banner->activeFocusOnTab());

  banner->forceActiveFocus();
  ASSERT_TRUE(banner->hasActiveFocus());
  QList<QQuickItem*> rings = partsWith(banner, "border");
  ASSERT_EQ(rings.size(), 1);
  QQuickItem* ring = rings.first();
  EXPECT_TRUE(ring->isVisible());
  EXPECT_EQ(ring->size(), QSizeF(320, 50));

  other->forceActiveFocus();
  EXPECT_FALSE(ring->isVisible());
  banner->forceActiveFocus();
  EXPECT_TRUE(ring->isVisible());
  EXPECT_EQ(partsWith(banner, "border").size(), 1);
  delete banner;
}

TEST(BannerParts, AnotherKindOfAdSwapsTheCreativeAndNoneEmptiesTheFrame) {
  SandboxFixture::shared();
  Scene scene;
  QQuickItem* banner = bannerIn(scene, catalogueAd("au_home_banner"));
  ASSERT_TRUE(banner);
  const QUrl firstSource = banner->property("pictureSource").toUrl();
  ASSERT_FALSE(firstSource.isEmpty());

  // Another image ad: the new picture.
  banner->setProperty("ad",
                      QVariant::fromValue(quick::QmlBannerAd(catalogueAd("au_home_banner", 1))));
  EXPECT_FALSE(banner->property("pictureSource").toUrl().isEmpty());
  EXPECT_NE(banner->property("pictureSource").toUrl(), firstSource);
  EXPECT_TRUE(banner->childItems().isEmpty());

  const BannerAd video = catalogueAd("au_video_banner");
  banner->setProperty("ad", QVariant::fromValue(quick::QmlBannerAd(video)));
  EXPECT_TRUE(banner->property("pictureSource").toUrl().isEmpty());
  EXPECT_EQ(banner->property("pictureStatus").toInt(), 0);  // Null: no picture
  QQuickItem* player = nullptr;
  for (QQuickItem* child : banner->childItems()) {
    if (child->inherits("tavik::quick::VideoAdViewBase")) player = child;
  }
  ASSERT_TRUE(player);
  EXPECT_EQ(player->property("url").toString(), QString::fromStdString(video.elements.value));
  EXPECT_EQ(player->property("uclid").toString(), QString::fromStdString(video.uclid));
  EXPECT_EQ(player->size(), QSizeF(banner->property("frameWidth").toReal(),
                                   banner->property("frameHeight").toReal()));

  banner->setProperty("ad", QVariant::fromValue(quick::QmlBannerAd()));
  EXPECT_TRUE(banner->childItems().isEmpty());
  EXPECT_TRUE(banner->property("pictureSource").toUrl().isEmpty());
  delete banner;
}

TEST(BannerParts, ShowAdReturnsTheBannerAtItsSizeAndBuildsItsLabelAfter) {
  SandboxFixture::shared();
  Scene scene;
  auto manager = quick::views(TAVIK::shared()).bannerAdView();
  BannerAdSettings settings;
  settings.adLabelText = "Ad";
  QQuickItem* banner = manager->showAd(catalogueAd("au_home_banner"), settings, scene.root());
  ASSERT_TRUE(banner);
  EXPECT_EQ(banner->size(), QSizeF(320, 50));
  // The label is built over the next frames; the picture is asked for at once and loads
  // off the UI thread.
  EXPECT_TRUE(partsWith(banner, "labelText").isEmpty());
  ASSERT_TRUE(spinUntil([&] { return banner->property("pictureStatus").toInt() == 1; }));  // Ready
  EXPECT_EQ(banner->property("pictureSize").toSize(), QSize(320, 50));
  ASSERT_TRUE(spinUntil([&] { return partsWith(banner, "labelText").size() == 1; }));
  EXPECT_EQ(partsWith(banner, "labelText").first()->property("labelText").toString(),
            QStringLiteral("Ad"));
  delete banner;
}

TEST(BannerParts, APreloadedPictureIsThereWhenShowAdReturns) {
  SandboxFixture::shared();
  Scene scene;
  const BannerAd ad = catalogueAd("au_home_banner", 1);
  auto manager = quick::views(TAVIK::shared()).bannerAdView();
  Future<bool> preloaded = manager->preload(ad);
  ASSERT_TRUE(spinUntil([&] { return preloaded.is_ready(); }));
  ASSERT_TRUE(preloaded.get());
  QQuickItem* banner = manager->showAd(ad, {}, scene.root());
  ASSERT_TRUE(banner);
  EXPECT_TRUE(
      banner->property("pictureSource").toUrl().toString().startsWith("image://tavikready/"));
  EXPECT_EQ(banner->property("pictureStatus").toInt(), 1);  // Ready: drawn in the first frame
  delete banner;
}

TEST(BannerParts, ABannerGoneWhileItsCreativeIsBuiltLeavesNothing) {
  SandboxFixture::shared();
  Scene scene;
  auto manager = quick::views(TAVIK::shared()).bannerAdView();
  BannerAdSettings settings;
  settings.adLabelText = "Ad";
  for (int i = 0; i < 20; ++i) {
    QPointer<QQuickItem> banner =
        manager->showAd(catalogueAd("au_home_banner", i % 2), settings, scene.root());
    ASSERT_TRUE(banner);
    if (i % 2) QTest::qWait(1);  // some go after a slice of their build, some at once
    delete banner;
  }
  spinUntil([] { return false; }, 200);
  EXPECT_TRUE(scene.root()->childItems().isEmpty());
}

TEST(BannerParts, BannersOfOneCreativeShareOnePictureThatGoesWithTheLast) {
  SandboxFixture::shared();
  Scene scene;
  const BannerAd ad = catalogueAd("au_home_banner");
  QPointer<QQuickItem> first = bannerIn(scene, ad);
  QPointer<QQuickItem> second = bannerIn(scene, ad);
  ASSERT_TRUE(first && second);
  quick::SharedPictures* pictures = quick::SharedPictures::of(&scene.view);
  EXPECT_EQ(pictures->count(), 1);
  EXPECT_EQ(first->property("pictureSource"), second->property("pictureSource"));
  ASSERT_TRUE(spinUntil([&] { return second->property("pictureStatus").toInt() == 1; }));
  EXPECT_EQ(first->property("pictureStatus").toInt(), 1);

  QPointer<QQuickItem> other = bannerIn(scene, catalogueAd("au_home_banner", 1));
  EXPECT_EQ(pictures->count(), 2);
  delete first;
  EXPECT_EQ(pictures->count(), 2);  // the second banner still draws it
  delete second;
  EXPECT_EQ(pictures->count(), 1);
  // A banner that changes window takes its picture along.
  QQuickView elsewhere;
  elsewhere.setSource(QUrl(QStringLiteral("data:text/plain,import QtQuick%0AItem {}")));
  other->setParentItem(elsewhere.rootObject());
  EXPECT_EQ(pictures->count(), 0);
  EXPECT_EQ(quick::SharedPictures::of(&elsewhere)->count(), 1);
  EXPECT_FALSE(other->property("pictureSource").toUrl().isEmpty());
  delete other;
  EXPECT_EQ(quick::SharedPictures::of(&elsewhere)->count(), 0);
}

// What the banner draws is what an `Image` of the same picture draws in its frame:
// fitted (aspect kept) and centred, nothing outside the frame.
TEST(BannerParts, TheBannerDrawsItsPictureAsAnImageInItsFrameWould) {
  QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
  SandboxFixture::shared();
  Scene scene(400, 400);
  scene.view.setColor(Qt::white);
  QQuickItem* wide = bannerIn(scene, catalogueAd("au_home_banner"));
  ASSERT_TRUE(wide);
  wide->setSize(QSizeF(400, 100));  // the host's size: the 320 × 50 frame centred in it
  QQuickItem* narrow = bannerIn(scene, catalogueAd("au_home_banner"));
  ASSERT_TRUE(narrow);
  // A 300 × 100 frame: the picture 300 × 46.875, 26 (not 26.5625, nor 27) from the top.
  narrow->setProperty("adWidth", 300);
  narrow->setProperty("adHeight", 100);
  narrow->setY(110);
  ASSERT_TRUE(spinUntil([&] { return wide->property("pictureStatus").toInt() == 1; }));
  const QUrl source = wide->property("pictureSource").toUrl();

  QQmlComponent component(scene.view.engine());
  component.setData(
      "import QtQuick\nImage { fillMode: Image.PreserveAspectFit; smooth: true;"
      " mipmap: true }",
      QUrl());
  auto image = [&](const QRectF& rect) {
    auto* item = qobject_cast<QQuickItem*>(
        component.createWithInitialProperties({{"source", source},
                                               {"x", rect.x()},
                                               {"y", rect.y()},
                                               {"width", rect.width()},
                                               {"height", rect.height()}}));
    item->setParentItem(scene.root());
    item->setParent(scene.root());
    return item;
  };
  QQuickItem* wideImage = image({0, 220, 320, 50});
  QQuickItem* narrowImage = image({0, 290, 300, 100});
  ASSERT_TRUE(spinUntil([&] {
    return wideImage->property("status").toInt() == 1 &&
           narrowImage->property("status").toInt() == 1;
  }));
  QImage frame;
  ASSERT_TRUE(spinUntil([&] {
    frame = scene.view.grabWindow();
    return frame.pixel(200, 50) != qRgb(255, 255, 255);
  }));
  frame = frame.convertToFormat(QImage::Format_RGB32);
  EXPECT_EQ(frame.copy(40, 25, 320, 50), frame.copy(0, 220, 320, 50));
  EXPECT_EQ(frame.copy(0, 110, 300, 100), frame.copy(0, 290, 300, 100));
  // Outside the frame of the host-sized banner: the window's white.
  for (const QPoint& at : {QPoint(20, 50), QPoint(380, 50), QPoint(200, 10), QPoint(200, 90)})
    EXPECT_EQ(frame.pixel(at), qRgb(255, 255, 255)) << at.x() << "," << at.y();
}

// A tap as a tap handler took it: pressed and released inside the frame, without a drag
// or a long press in between.
TEST(BannerParts, APressAndReleaseInTheFrameIsATapAndNothingElseIs) {
  SandboxFixture::shared();
  Scene scene(400, 300);
  QQuickItem* banner = bannerIn(scene, catalogueAd("au_home_banner"));
  ASSERT_TRUE(banner);
  banner->setSize(QSizeF(400, 100));  // the frame is x 40..360, y 25..75
  QSignalSpy clicks(banner, SIGNAL(adClicked(tavik::quick::QmlBannerAd)));
  QQuickWindow* window = &scene.view;
  const QPoint inside(200, 50);

  QTest::mouseClick(window, Qt::LeftButton, {}, inside);
  EXPECT_EQ(clicks.size(), 1);
  QTest::mouseClick(window, Qt::LeftButton, {}, QPoint(20, 50));  // beside the frame
  QTest::mouseClick(window, Qt::RightButton, {}, inside);
  EXPECT_EQ(clicks.size(), 1);

  // A drag past the drag distance is no tap, even back where it began.
  QTest::mousePress(window, Qt::LeftButton, {}, inside);
  QTest::mouseMove(window, inside + QPoint(40, 0));
  QTest::mouseMove(window, inside);
  QTest::mouseRelease(window, Qt::LeftButton, {}, inside);
  EXPECT_EQ(clicks.size(), 1);
  // A long press is no tap.
  QTest::mousePress(window, Qt::LeftButton, {}, inside);
  QTest::mouseRelease(window, Qt::LeftButton, {}, inside, 1500);
  EXPECT_EQ(clicks.size(), 1);
  // Released outside the frame: no tap.
  QTest::mousePress(window, Qt::LeftButton, {}, inside + QPoint(0, 20));
  QTest::mouseRelease(window, Qt::LeftButton, {}, inside + QPoint(0, 28));
  EXPECT_EQ(clicks.size(), 1);
  QTest::mouseClick(window, Qt::LeftButton, {}, inside + QPoint(5, 5));
  EXPECT_EQ(clicks.size(), 2);

  // Without an ad to draw the banner takes no press: it goes to what is under it.
  banner->setProperty("ad", QVariant::fromValue(quick::QmlBannerAd()));
  QTest::mouseClick(window, Qt::LeftButton, {}, inside);
  EXPECT_EQ(clicks.size(), 2);
  delete banner;
}

// QML's `Accessible` attached object of `item`, if one was made.
QObject* accessibleAttachedTo(QQuickItem* item) {
  const QMetaObject* type = QMetaType::fromName("QQuickAccessibleAttached*").metaObject();
  return type ? qmlAttachedPropertiesObject(item, qmlAttachedPropertiesFunction(item, type), false)
              : nullptr;
}

TEST(BannerParts, AssistiveTechnologySeesAButtonNamedSponsoredAndNothingIsMadeForItBefore) {
  SandboxFixture::shared();
  Scene scene;
  const BannerAd ad = catalogueAd("au_home_banner");
  QQuickItem* early = bannerIn(scene, ad, QStringLiteral("Ad"));
  ASSERT_TRUE(early);
  ASSERT_FALSE(QAccessible::isActive());
  EXPECT_FALSE(accessibleAttachedTo(early));  // no cost while nobody listens

  // A screen reader starts (the platform tells Qt's activation observers; the offscreen
  // platform has no bridge of its own to ask): the banners there are described at once.
  QAccessible::setActive(true);
  ASSERT_TRUE(accessibleAttachedTo(early));
  QAccessibleInterface* seen = QAccessible::queryAccessibleInterface(early);
  ASSERT_TRUE(seen);
  EXPECT_EQ(seen->role(), QAccessible::Button);
  EXPECT_EQ(seen->text(QAccessible::Name), QStringLiteral("Sponsored"));
  EXPECT_EQ(seen->text(QAccessible::Description), QStringLiteral("Ad"));
  EXPECT_TRUE(seen->state().focusable);
  early->setProperty("adLabelText", QStringLiteral("Sponsored by Acme"));
  EXPECT_EQ(seen->text(QAccessible::Description), QStringLiteral("Sponsored by Acme"));
  // Its press is a tap.
  QSignalSpy clicks(early, SIGNAL(adClicked(tavik::quick::QmlBannerAd)));
  ASSERT_TRUE(seen->actionInterface());
  seen->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
  EXPECT_EQ(clicks.size(), 1);

  // A banner made while it is active is described from the start; a name the host gave
  // it is kept.
  QQmlComponent component(scene.view.engine());
  component.setData("import QtQuick\nimport Tavik\nBannerAdView { Accessible.name: \"Deal\" }",
                    QUrl());
  std::unique_ptr<QObject> named(
      component.createWithInitialProperties({{"ad", QVariant::fromValue(quick::QmlBannerAd(ad))}}));
  auto* host = qobject_cast<QQuickItem*>(named.get());
  ASSERT_TRUE(host);
  host->setParentItem(scene.root());
  QQuickItem* late = bannerIn(scene, ad);
  EXPECT_EQ(QAccessible::queryAccessibleInterface(late)->role(), QAccessible::Button);
  EXPECT_EQ(QAccessible::queryAccessibleInterface(late)->text(QAccessible::Name),
            QStringLiteral("Sponsored"));
  EXPECT_EQ(QAccessible::queryAccessibleInterface(host)->text(QAccessible::Name),
            QStringLiteral("Deal"));
  EXPECT_EQ(QAccessible::queryAccessibleInterface(host)->role(), QAccessible::Button);
  named.reset();
  delete late;
  delete early;
  QAccessible::setActive(false);
}

// Views hold the ad and the configuration as shared records: a hundred banners of one ad
// hold one copy of it, and of the configuration, between them.
TEST(BannerParts, BannersShareOneAdRecordAndOneConfigurationRecord) {
  SandboxFixture::shared();
  Scene scene;
  const quick::QmlBannerAd ad(catalogueAd("au_home_banner"));
  QQuickItem* first = bannerIn(scene, *ad.ad());
  QQuickItem* second = bannerIn(scene, *ad.ad());
  ASSERT_TRUE(first && second);
  first->setProperty("ad", QVariant::fromValue(ad));
  second->setProperty("ad", QVariant::fromValue(ad));
  auto adOf = [](QQuickItem* banner) { return banner->property("ad").value<quick::QmlBannerAd>(); };
  auto configOf = [](QQuickItem* banner) {
    return banner->property("config").value<quick::QmlConfig>();
  };
  EXPECT_EQ(adOf(first).ad(), ad.ad());  // the same record, not a copy
  EXPECT_EQ(adOf(second).ad(), ad.ad());
  ASSERT_TRUE(configOf(first).valid());
  EXPECT_EQ(configOf(first).config(), configOf(second).config());

  // Records are equal by content too: an equal ad made apart is no new ad.
  EXPECT_EQ(quick::QmlBannerAd(catalogueAd("au_home_banner")), ad);
  EXPECT_NE(quick::QmlBannerAd(catalogueAd("au_home_banner", 1)), ad);
  EXPECT_EQ(quick::QmlBannerAd(), quick::QmlBannerAd());

  // The shared configuration follows a change of the configuration.
  Config changed = *configOf(first).config();
  const quick::QmlConfig same = quick::sharedConfig(changed);
  EXPECT_EQ(same.config(), quick::sharedConfig(changed).config());
  changed.debug = !changed.debug;
  const quick::QmlConfig other = quick::sharedConfig(changed);
  EXPECT_NE(other.config(), same.config());
  EXPECT_EQ(other.debug(), changed.debug);
  delete first;
  delete second;
}

}  // namespace
}  // namespace tavik::test
