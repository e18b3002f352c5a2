// The tour's verdicts on their own: the event comparison and the "did it draw" check.
#include <gtest/gtest.h>

#include <QImage>
#include <QPainter>
#include <QRect>

#include "tour_checks.h"

using tavik::shop::compareEvents;
using tavik::shop::eventSignature;
using tavik::shop::regionDrawn;

TEST(TourChecks, TheSignatureKeepsWhatAnEventIsAboutInAFixedOrder) {
  // Wire order, timings and the shopper's id do not matter; the keys that identify the
  // event do, in one order.
  const QString a = eventSignature("/events", {{"uclid", "uc-1"},
                                               {"event_time", "1795410705771"},
                                               {"cli_ubid", "shopper-42"},
                                               {"event_name", "funnel_impression"}});
  const QString b = eventSignature(
      "/events", {{"event_name", "funnel_impression"}, {"event_time", "1"}, {"uclid", "uc-1"}});
  EXPECT_EQ(a, "/events event_name=funnel_impression uclid=uc-1");
  EXPECT_EQ(a, b);
  EXPECT_NE(a, eventSignature("/aclick", {{"uclid", "uc-1"}}));
  EXPECT_EQ(eventSignature("/events", {{"sku_ids", "A|B"},
                                       {"order_id", "order-0001"},
                                       {"event_name", "funnel_salecomplete"}}),
            "/events event_name=funnel_salecomplete order_id=order-0001 sku_ids=A|B");
}

TEST(TourChecks, EventsMatchAsAMultisetInAnyOrder) {
  const QStringList expected = {"/aclick uclid=a", "/events event_name=x uclid=b",
                                "/events event_name=x uclid=b"};
  EXPECT_TRUE(
      compareEvents(
          expected,
          {"/events event_name=x uclid=b", "/aclick uclid=a", "/events event_name=x uclid=b"}, {})
          .isEmpty());
}

TEST(TourChecks, AMissingOrExtraEventIsNamedWithItsCount) {
  const QStringList expected = {"/aclick uclid=a", "/events event_name=x uclid=b"};
  const QStringList missing = compareEvents(expected, {"/aclick uclid=a"}, {});
  ASSERT_EQ(missing.size(), 1);
  EXPECT_EQ(missing[0], "missing (1x): /events event_name=x uclid=b");

  const QStringList extra = compareEvents(
      expected,
      {"/aclick uclid=a", "/aclick uclid=a", "/aclick uclid=a", "/events event_name=x uclid=b"},
      {});
  ASSERT_EQ(extra.size(), 1);
  EXPECT_EQ(extra[0], "extra (2x): /aclick uclid=a");
}

TEST(TourChecks, VideoProgressCountsAnyNumberOfTimesButOnlyForTheVideosShown) {
  const QString progress = "/events event_name=funnel_video_progress uclid=";
  EXPECT_TRUE(compareEvents({}, {progress + "v1", progress + "v1", progress + "v2"}, {"v1", "v2"})
                  .isEmpty());
  const QStringList faults = compareEvents({}, {progress + "v1", progress + "v10"}, {"v1"});
  ASSERT_EQ(faults.size(), 1);
  EXPECT_EQ(faults[0], "unexpected video progress: " + progress + "v10");
}

TEST(TourChecks, AFrameDrewWhenNoColourCoversAlmostAllOfIt) {
  QImage image(200, 100, QImage::Format_ARGB32);
  image.fill(QColor("#f3f4f1"));
  const QRect frame(20, 20, 100, 60);
  EXPECT_FALSE(regionDrawn(image, frame));  // flat

  // An empty frame with only its small "Ad" label on it did not draw.
  QPainter painter(&image);
  painter.fillRect(QRect(100, 20, 20, 12), Qt::black);
  EXPECT_FALSE(regionDrawn(image, frame));

  // A creative: half the frame in another colour, with some detail.
  painter.fillRect(QRect(20, 50, 100, 30), QColor("#1f4d3a"));
  for (int x = 20; x < 120; x += 7) painter.fillRect(QRect(x, 55, 3, 3), QColor("#e8692c"));
  painter.end();
  EXPECT_TRUE(regionDrawn(image, frame));
  // Outside the image or too small: nothing to judge, so not drawn.
  EXPECT_FALSE(regionDrawn(image, QRect(300, 300, 50, 50)));
  EXPECT_FALSE(regionDrawn(image, QRect(20, 20, 1, 60)));
}
