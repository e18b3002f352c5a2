// The banner makes the parts it draws only when it needs them (the creative, the label,
// the focus ring), and the manager's showAd returns the banner before its creative is
// built, except a picture a preload decoded, which is there for the first frame.
#include <gtest/gtest.h>

#include <QPointer>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickView>
#include <QTest>

#include "support/sandbox_fixture.h"
#include "support/scene.h"
#include "tavik/ads/ad_models.h"
#include "tavik/views/creatives.h"
#include "tavik/views/qml_records.h"
#include "tavik/views/views.h"

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

QQuickItem* frameOf(QQuickItem* banner) {
  return banner->findChild<QQuickItem*>(QStringLiteral("bannerFrame"));
}

// The frame's parts that have a given property (the label has "labelText", the focus
// ring a "border").
QList<QQuickItem*> partsWith(QQuickItem* banner, const char* property) {
  QList<QQuickItem*> found;
  for (QQuickItem* child : frameOf(banner)->childItems()) {
    if (child->metaObject()->indexOfProperty(property) >= 0) found.append(child);
  }
  return found;
}

TEST(BannerParts, TheLabelIsMadeOnlyWithTextAndFollowsItsAlignment) {
  SandboxFixture::shared();
  Scene scene;
  QQuickItem* banner = bannerIn(scene, catalogueAd("au_home_banner"));
  ASSERT_TRUE(banner);
  ASSERT_TRUE(frameOf(banner));
  EXPECT_TRUE(partsWith(banner, "labelText").isEmpty());  // no text, no label
  ASSERT_TRUE(banner->findChild<QQuickItem*>(QStringLiteral("creativeImage")));

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
  // Drawn above the creative whichever was made first.
  EXPECT_GT(label->z(), banner->findChild<QQuickItem*>(QStringLiteral("creativeImage"))->z());

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
  QPointer<QQuickItem> image = banner->findChild<QQuickItem*>(QStringLiteral("creativeImage"));
  ASSERT_TRUE(image);
  const QString firstSource = image->property("source").toString();

  // Another image ad: the same picture item, the new source.
  banner->setProperty("ad",
                      QVariant::fromValue(quick::QmlBannerAd(catalogueAd("au_home_banner", 1))));
  EXPECT_EQ(banner->findChild<QQuickItem*>(QStringLiteral("creativeImage")), image.data());
  EXPECT_NE(image->property("source").toString(), firstSource);

  const BannerAd video = catalogueAd("au_video_banner");
  banner->setProperty("ad", QVariant::fromValue(quick::QmlBannerAd(video)));
  EXPECT_TRUE(image.isNull());
  QQuickItem* player = nullptr;
  for (QQuickItem* child : frameOf(banner)->childItems()) {
    if (child->inherits("tavik::quick::VideoAdViewBase")) player = child;
  }
  ASSERT_TRUE(player);
  EXPECT_EQ(player->property("url").toString(), QString::fromStdString(video.elements.value));
  EXPECT_EQ(player->property("uclid").toString(), QString::fromStdString(video.uclid));
  EXPECT_EQ(player->size(), QSizeF(banner->property("frameWidth").toReal(),
                                   banner->property("frameHeight").toReal()));

  banner->setProperty("ad", QVariant::fromValue(quick::QmlBannerAd()));
  EXPECT_TRUE(frameOf(banner)->childItems().isEmpty());
  EXPECT_FALSE(frameOf(banner)->isVisible());
  delete banner;
}

TEST(BannerParts, ShowAdReturnsTheBannerAtItsSizeAndBuildsItsCreativeAfter) {
  SandboxFixture::shared();
  Scene scene;
  auto manager = quick::views(TAVIK::shared()).bannerAdView();
  BannerAdSettings settings;
  settings.adLabelText = "Ad";
  QQuickItem* banner = manager->showAd(catalogueAd("au_home_banner"), settings, scene.root());
  ASSERT_TRUE(banner);
  EXPECT_EQ(banner->size(), QSizeF(320, 50));
  // Nothing of the creative yet: it is built over the next frames.
  EXPECT_FALSE(banner->findChild<QQuickItem*>(QStringLiteral("creativeImage")));
  QQuickItem* image = nullptr;
  ASSERT_TRUE(spinUntil(
      [&] { return (image = banner->findChild<QQuickItem*>(QStringLiteral("creativeImage"))); }));
  EXPECT_EQ(image->parentItem(), frameOf(banner));
  EXPECT_EQ(image->size(), QSizeF(320, 50));
  ASSERT_TRUE(spinUntil([&] { return image->property("status").toInt() == 1; }));  // Ready
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
  auto* image = banner->findChild<QQuickItem*>(QStringLiteral("creativeImage"));
  ASSERT_TRUE(image);
  EXPECT_TRUE(image->property("source").toString().startsWith("image://tavikready/"));
  EXPECT_EQ(image->property("status").toInt(), 1);  // Ready: drawn in the first frame
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

}  // namespace
}  // namespace tavik::test
