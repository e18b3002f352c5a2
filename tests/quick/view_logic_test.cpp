// The views' decisions without a window: creative kinds, frames and caps, label
// placement, visibility through clips, appearances and the one impression, symbols.
#include <gtest/gtest.h>

#include <initializer_list>
#include <optional>
#include <vector>

#include "views/banner_ad_item.h"
#include "views/view_logic.h"

namespace tavik::quick {
namespace {

BannerAd adOf(std::string crt, std::string type, std::int64_t width = 320,
              std::int64_t height = 50) {
  BannerAd ad;
  ad.uclid = "uc-1";
  ad.crt = std::move(crt);
  ad.elements.type = std::move(type);
  ad.elements.width = width;
  ad.elements.height = height;
  return ad;
}

TEST(CreativeKind, PrefixOfTheTemplateAndExactElementType) {
  struct Case {
    const char* crt;
    const char* type;
    CreativeKind kind;
  };
  const std::vector<Case> table = {
      {"tavik_sdk/image/v1", "IMAGE", CreativeKind::image},
      {"tavik_sdk/image/v1/wide", "IMAGE", CreativeKind::image},
      {"tavik_sdk/video/v1", "VIDEO", CreativeKind::video},
      {"tavik_sdk/video/v1", "IMAGE", CreativeKind::image},  // the type decides the drawing
      {"tavik_sdk/image/v1", "image", CreativeKind::none},
      {"TAVIK_SDK/IMAGE/V1", "IMAGE", CreativeKind::none},
      {"tavik_sdk/carousel/v1", "IMAGE", CreativeKind::none},
      {"tavik_sdk/image/v", "IMAGE", CreativeKind::none},
      {"", "VIDEO", CreativeKind::none},
      {"tavik_sdk/image/v1", "GIF", CreativeKind::none},
  };
  for (const Case& c : table) {
    EXPECT_EQ(creativeKind(c.crt, c.type), c.kind) << c.crt << " / " << c.type;
  }
}

TEST(BannerFrame, WantedSizeOrTheCreativesCappedByTheScreen) {
  const ScreenLimits phone = limitsForScreen({400, 800});
  EXPECT_DOUBLE_EQ(phone.maxAdWidth, 320);
  EXPECT_DOUBLE_EQ(phone.maxAdHeight, 640);

  const BannerAd banner = adOf("tavik_sdk/image/v1", "IMAGE", 300, 250);
  EXPECT_EQ(bannerFrame(banner, std::nullopt, std::nullopt, phone), (SizeF{300, 250}));
  EXPECT_EQ(bannerFrame(banner, 10000, std::nullopt, phone), (SizeF{320, 250}));
  EXPECT_EQ(bannerFrame(banner, 200, 10000, phone), (SizeF{200, 640}));
  EXPECT_EQ(bannerFrame(adOf("tavik_sdk/image/v1", "IMAGE", 1000, 1000), std::nullopt, std::nullopt,
                        phone),
            (SizeF{320, 640}));
  // An ad the banner does not draw has no frame, whatever was asked for.
  EXPECT_EQ(bannerFrame(adOf("tavik_sdk/image/v1", "image"), 100, 100, phone), (SizeF{0, 0}));
  EXPECT_EQ(bannerFrame(banner, -5, std::nullopt, phone), (SizeF{0, 250}));
}

TEST(LabelPlacement, NinePlacesFromQtAlignmentFlags) {
  const SizeF frame{300, 250};
  const SizeF label{40, 20};
  struct Case {
    Qt::Alignment flags;
    double x;
    double y;
  };
  const std::vector<Case> table = {
      {Qt::AlignLeft | Qt::AlignTop, 0, 0},
      {Qt::AlignHCenter | Qt::AlignTop, 130, 0},
      {Qt::AlignRight | Qt::AlignTop, 260, 0},
      {Qt::AlignLeft | Qt::AlignVCenter, 0, 115},
      {Qt::AlignCenter, 130, 115},
      {Qt::AlignTrailing | Qt::AlignVCenter, 260, 115},
      {Qt::AlignLeading | Qt::AlignBottom, 0, 230},
      {Qt::AlignHCenter | Qt::AlignBottom, 130, 230},
      {Qt::AlignRight | Qt::AlignBottom, 260, 230},
  };
  for (const Case& c : table) {
    const RectF placed = placeLabel(frame, label, labelAlignmentFrom(c.flags));
    EXPECT_EQ(placed, (RectF{c.x, c.y, 40, 20})) << int(c.flags);
  }
  // No flags at all: the centre on both axes.
  EXPECT_EQ(placeLabel(frame, label, labelAlignmentFrom({})), (RectF{130, 115, 40, 20}));
}

TEST(Visibility, TheShareInsideTheWindowAndEveryClip) {
  const RectF window{0, 0, 400, 300};
  const RectF scroller{0, 50, 400, 200};
  const std::vector<RectF> both = {window, scroller};
  EXPECT_DOUBLE_EQ(visibleFraction({10, 60, 100, 50}, both), 1);
  EXPECT_DOUBLE_EQ(visibleFraction({10, 240, 100, 50}, both), 0.2);    // ten points still inside
  EXPECT_DOUBLE_EQ(visibleFraction({10, 250, 100, 50}, both), 0);      // touching the edge
  EXPECT_DOUBLE_EQ(visibleFraction({10, -60, 100, 50}, both), 0);      // scrolled above
  EXPECT_DOUBLE_EQ(visibleFraction({500, 60, 100, 50}, both), 0);      // right of the window
  EXPECT_DOUBLE_EQ(visibleFraction({10, 60, 0, 50}, both), 0);         // no area
  EXPECT_DOUBLE_EQ(visibleFraction({350, 225, 100, 50}, both), 0.25);  // a corner in both
  const std::vector<RectF> windowOnly = {window};
  EXPECT_DOUBLE_EQ(visibleFraction({-50, -20, 60, 30}, windowOnly), 10.0 * 10 / (60 * 30));
}

TEST(Viewability, RulesBySizeAndKind) {
  EXPECT_EQ(viewabilityRule(false, 300 * 250), (ViewabilityRule{0.5, 1}));
  EXPECT_EQ(viewabilityRule(true, 320 * 180), (ViewabilityRule{0.5, 2}));
  EXPECT_EQ(viewabilityRule(false, 242'500), (ViewabilityRule{0.5, 1}));  // exactly: still 50%
  EXPECT_EQ(viewabilityRule(false, 242'501), (ViewabilityRule{0.3, 1}));
  EXPECT_EQ(viewabilityRule(true, 970 * 250), (ViewabilityRule{0.5, 2}));  // 242,500: 50%
  EXPECT_EQ(viewabilityRule(true, 1280 * 720), (ViewabilityRule{0.3, 2}));
}

// A script of what a view is told and when, against the moment it becomes viewable.
struct Step {
  double at;
  double fraction;
  bool running = true;
};
std::optional<double> viewableAt(ViewabilityRule rule, std::initializer_list<Step> steps,
                                 double until) {
  ViewabilityClock clock(rule);
  Step last{0, 0, false};
  // As a view does: a timer at the clock's deadline, told again what still holds.
  auto deadlineBefore = [&](double time) -> std::optional<double> {
    const auto due = clock.deadline();
    if (due && *due <= time && clock.update(last.fraction, last.running, *due)) return due;
    return std::nullopt;
  };
  for (const Step& step : steps) {
    if (auto at = deadlineBefore(step.at)) return at;
    if (clock.update(step.fraction, step.running, step.at)) return step.at;
    last = step;
  }
  return deadlineBefore(until);
}

TEST(Viewability, ContinuousTimeAtTheRulesShare) {
  const ViewabilityRule display = viewabilityRule(false, 300 * 250);
  const ViewabilityRule video = viewabilityRule(true, 320 * 180);
  const ViewabilityRule large = viewabilityRule(false, 1000 * 300);
  struct Case {
    const char* what;
    ViewabilityRule rule;
    std::initializer_list<Step> steps;
    std::optional<double> expected;
  };
  const Case table[] = {
      {"fully visible for 999 ms, then hidden: not viewable",
       display,
       {{0, 1}, {0.999, 0}},
       std::nullopt},
      {"exactly 50% for exactly 1 s: viewable (both bounds inclusive)",
       display,
       {{0, 0.5}, {1.0, 0}},
       1.0},
      {"49% for ever: never", display, {{0, 0.49}}, std::nullopt},
      {"visible from 2 s on: at 3 s", display, {{0, 0}, {2, 1}}, 3.0},
      {"scrolled out at 0.6 s and back at 2 s: the second counts from the return",
       display,
       {{0, 1}, {0.6, 0}, {2, 1}},
       3.0},
      {"down to 40% for a moment breaks the run", display, {{0, 1}, {0.5, 0.4}, {0.6, 1}}, 1.6},
      {"window minimised (0) at 0.5 s: not counted", display, {{0, 1}, {0.5, 0}}, std::nullopt},
      {"a video plays 2 s at 60%: viewable at 2 s", video, {{0, 0.6, true}}, 2.0},
      {"a video on screen but paused: its clock stands", video, {{0, 1, false}}, std::nullopt},
      {"a video paused at 1.5 s and resumed at 4 s: 0.5 s more of playback",
       video,
       {{0, 1, true}, {1.5, 1, false}, {4, 1, true}},
       4.5},
      {"a video scrolled out while playing starts again",
       video,
       {{0, 1, true}, {1.5, 0, true}, {3, 1, true}},
       5.0},
      {"a large ad at 31%: viewable after 1 s", large, {{0, 0.31}}, 1.0},
      {"a large ad at 29%: never", large, {{0, 0.29}}, std::nullopt},
  };
  for (const Case& c : table) {
    const auto at = viewableAt(c.rule, c.steps, 100);
    EXPECT_EQ(at.has_value(), c.expected.has_value()) << c.what;
    if (at && c.expected) {
      EXPECT_NEAR(*at, *c.expected, 1e-9) << c.what;
    }
  }
}

TEST(Viewability, OnceAndForGood) {
  ViewabilityClock clock(viewabilityRule(false, 100));
  EXPECT_FALSE(clock.update(1, true, 10));
  ASSERT_TRUE(clock.deadline());
  EXPECT_DOUBLE_EQ(*clock.deadline(), 11);
  EXPECT_FALSE(clock.update(1, true, 10.9999));
  EXPECT_TRUE(clock.update(0, true, 11));  // what held until 11 counts first
  EXPECT_TRUE(clock.viewable());
  EXPECT_FALSE(clock.update(1, true, 20));  // never again
  EXPECT_FALSE(clock.deadline());
}

TEST(Appearance, EveryAppearanceCountsTheImpressionOnlyOnce) {
  AppearanceTracker tracker;
  EXPECT_FALSE(tracker.update(false).appeared);
  auto first = tracker.update(true);
  EXPECT_TRUE(first.appeared);
  EXPECT_TRUE(first.reportImpression);
  EXPECT_FALSE(tracker.update(true).appeared);  // still on screen: not a new appearance
  tracker.update(false);
  auto second = tracker.update(true);
  EXPECT_TRUE(second.appeared);
  EXPECT_FALSE(second.reportImpression);
  EXPECT_TRUE(tracker.isAppear());
}

TEST(CarouselLayout, SizesWithAndWithoutSettings) {
  const ScreenLimits phone = limitsForScreen({400, 800});  // 320 x 640
  // No settings: the first card's size, the strip as wide as the limit.
  EXPECT_EQ(carouselLayout(SizeF{300, 250}, {}, phone), (CarouselLayout{320, 250, 300, 250, 308}));
  // A first card of height 0: the card height falls back to the width limit (320), the
  // strip height to the smaller of that and the height limit.
  EXPECT_EQ(carouselLayout(SizeF{300, 0}, {}, phone), (CarouselLayout{320, 320, 300, 320, 308}));
  EXPECT_EQ(carouselLayout(SizeF{300, 0}, {}, limitsForScreen({1000, 300})),
            (CarouselLayout{800, 240, 300, 240, 308}));
  // No cards at all: both card sides fall back to the width limit.
  EXPECT_EQ(carouselLayout(std::nullopt, {}, phone), (CarouselLayout{320, 320, 320, 320, 328}));
  // An element wider than the strip is cut down to the strip.
  CarouselSizes wanted;
  wanted.width = 200;
  wanted.elementWidth = 500;
  wanted.elementHeight = 100;
  EXPECT_EQ(carouselLayout(SizeF{300, 250}, wanted, phone),
            (CarouselLayout{200, 250, 200, 100, 208}));
  wanted.width = 10000;
  wanted.height = 10000;
  EXPECT_EQ(carouselLayout(SizeF{300, 250}, wanted, phone).width, 320);
  EXPECT_EQ(carouselLayout(SizeF{300, 250}, wanted, phone).height, 640);
}

TEST(CarouselPaging, HalfAPitchStrictlyClampedNoWrap) {
  const double pitch = 308;  // card 300
  struct Case {
    int current;
    int count;
    double translation;
    int expected;
  };
  const std::vector<Case> table = {
      {0, 3, -155, 1}, {0, 3, -154, 0}, {1, 3, 155, 0},   {1, 3, 154, 1},
      {2, 3, -400, 2}, {0, 3, 400, 0},  {1, 3, -1000, 2}, {0, 0, -400, 0},
      {0, 1, -400, 0}, {0, 1, 400, 0},  {1, 3, 0, 1},
  };
  for (const Case& c : table) {
    EXPECT_EQ(pageAfterDrag(c.current, c.count, c.translation, pitch), c.expected)
        << c.current << " of " << c.count << " by " << c.translation;
  }
  EXPECT_EQ(pageAfterStep(0, 3, -1), 0);
  EXPECT_EQ(pageAfterStep(2, 3, 1), 2);
  EXPECT_EQ(pageAfterStep(1, 3, 1), 2);
  EXPECT_EQ(pageAfterStep(0, 0, 1), 0);
}

TEST(CarouselPaging, TheCurrentCardIsCentredInsideTheContent) {
  const CarouselLayout layout{320, 250, 300, 250, 308};
  EXPECT_DOUBLE_EQ(centredScrollPosition(0, 5, layout), 0);     // clamped at the start
  EXPECT_DOUBLE_EQ(centredScrollPosition(2, 5, layout), 606);   // 616 + 150 - 160
  EXPECT_DOUBLE_EQ(centredScrollPosition(4, 5, layout), 1212);  // clamped at the end
  EXPECT_DOUBLE_EQ(centredScrollPosition(0, 0, layout), 0);

  // Cards that cannot be drawn take no room: the row closes up around them.
  const bool all[] = {true, true, true, true, true};
  for (int i = 0; i < 5; ++i) {
    EXPECT_DOUBLE_EQ(centredScrollPosition(i, all, layout), centredScrollPosition(i, 5, layout));
  }
  const bool gaps[] = {true, false, false, true, true};  // content: 3 cards, 916 wide
  EXPECT_DOUBLE_EQ(cardOffset(3, gaps, layout), 308);
  EXPECT_DOUBLE_EQ(cardOffset(1, gaps, layout), 308);
  EXPECT_DOUBLE_EQ(centredScrollPosition(3, gaps, layout), 298);  // 308 + 150 - 160
  EXPECT_DOUBLE_EQ(centredScrollPosition(4, gaps, layout), 596);  // clamped at 916 - 320
  EXPECT_DOUBLE_EQ(centredScrollPosition(1, gaps, layout), 148);  // the gap's place: 308 - 160
  const bool none[] = {false, false};
  EXPECT_DOUBLE_EQ(centredScrollPosition(1, none, layout), 0);
}

TEST(OverlayGeometry, PanelPlacementDragsAndFullScreen) {
  using namespace overlay;
  const SizeF phone{400, 800};
  EXPECT_EQ(panelFrame(phone, {300, 200}, std::nullopt), (RectF{84, 566, 300, 200}));
  EXPECT_EQ(panelFrame(phone, {300, 200}, PointF{-50, 10}), (RectF{0, 10, 300, 200}));
  EXPECT_EQ(panelFrame(phone, {300, 200}, PointF{1000, 1000}), (RectF{84, 566, 300, 200}));
  // At most 0.8 of the screen; a window too small for the margins still gets a panel
  // inside it instead of one at a negative place.
  EXPECT_EQ(panelFrame(phone, {1000, 1000}, std::nullopt), (RectF{64, 126, 320, 640}));
  EXPECT_EQ(panelFrame({10, 20}, {300, 200}, std::nullopt), (RectF{0, 0, 0, 0}));

  const Insets insets{44, 0, 34, 0};
  const RectF panel{84, 400, 300, 200};
  EXPECT_EQ(afterDrag(panel, {-30, 20}, phone, insets), (RectF{54, 420, 300, 200}));
  EXPECT_EQ(afterDrag(panel, {500, 0}, phone, insets), (RectF{100, 400, 300, 200}));  // right edge
  EXPECT_EQ(afterDrag(panel, {-500, 0}, phone, insets), (RectF{0, 400, 300, 200}));   // left edge
  EXPECT_EQ(afterDrag(panel, {0, -1000}, phone, insets), (RectF{84, 44, 300, 200}));  // top inset
  EXPECT_EQ(afterDrag(panel, {0, 1000}, phone, insets),
            (RectF{84, 566, 300, 200}));  // bottom inset

  EXPECT_EQ(leavingFullScreen({}, phone), (RectF{40, 80, 320, 640}));
  EXPECT_EQ(leavingFullScreen({84, 566, 300, 200}, phone), (RectF{84, 566, 300, 200}));

  // A window that shrinks keeps the panel inside, smaller if it must be.
  EXPECT_EQ(keptInside({84, 566, 300, 200}, {350, 500}, {}), (RectF{50, 300, 300, 200}));
  EXPECT_EQ(keptInside({84, 566, 300, 200}, {200, 150}, {}), (RectF{0, 0, 200, 150}));
}

TEST(InterstitialTiming, DefaultsNegativeDelaysAndOneDismissal) {
  const InterstitialTimes defaults = interstitialTimes(std::nullopt, std::nullopt);
  EXPECT_EQ(defaults.closeButton, 5);
  EXPECT_EQ(defaults.autoClose, 10);
  EXPECT_FALSE(defaults.negativeDelay);
  const InterstitialTimes given = interstitialTimes(3, 2);
  EXPECT_EQ(given.closeButton, 3);
  EXPECT_EQ(given.autoClose, 2);
  const InterstitialTimes negative = interstitialTimes(-4, 0);
  EXPECT_EQ(negative.closeButton, 0);
  EXPECT_EQ(negative.autoClose, 0);
  EXPECT_TRUE(negative.negativeDelay);

  DismissOnce once;
  EXPECT_TRUE(once.dismiss());
  EXPECT_FALSE(once.dismiss());
  EXPECT_TRUE(once.isDismissed());
}

TEST(ControlSymbols, StateToSymbol) {
  EXPECT_EQ(muteSymbol(true), "speaker.slash.circle.fill");
  EXPECT_EQ(muteSymbol(false), "speaker.circle.fill");
  EXPECT_EQ(fullScreenSymbol(true), "arrow.down.right.and.arrow.up.left.rectangle.fill");
  EXPECT_EQ(fullScreenSymbol(false), "arrow.up.left.and.arrow.down.right.rectangle.fill");
  EXPECT_EQ(kCloseSymbol, "xmark.circle.fill");
}

}  // namespace
}  // namespace tavik::quick
