#pragma once

// What the views decide, as plain C++ that tests drive without a window: which
// creative an ad gets, how large its frame is, where the ad label goes, when an
// appearance counts and when an impression is due.

#include <algorithm>
#include <optional>
#include <span>
#include <string_view>

#include "tavik/ads/ad_models.h"

namespace tavik::quick {

struct SizeF {
  double width = 0;
  double height = 0;
  friend bool operator==(const SizeF&, const SizeF&) = default;
};

struct RectF {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
  friend bool operator==(const RectF&, const RectF&) = default;
};

/// Every ad frame is capped by these: 0.8 times the main screen's width and height.
struct ScreenLimits {
  double maxAdWidth = 0;
  double maxAdHeight = 0;
};
/// The limits of a screen of the given size.
ScreenLimits limitsForScreen(SizeF screen);

/// A host's wanted length as the QML views carry it: any value the host set counts (0
/// included; below 0 is taken as 0), and -1 stands for "not set".
inline double hostLength(std::optional<float> value) {
  return value ? std::max(0.0, static_cast<double>(*value)) : -1.0;
}
/// The other way: a QML length of 0 or more is set, a negative one is not.
inline std::optional<double> lengthIfSet(double value) {
  return value >= 0 ? std::optional<double>(value) : std::nullopt;
}

/// The presentation a banner ad gets: its template must start with the image or video
/// prefix, and its element type must be exactly "IMAGE" or "VIDEO". Anything else draws
/// nothing and reports nothing.
enum class CreativeKind { none, image, video };
CreativeKind creativeKind(std::string_view crt, std::string_view elementType);
inline CreativeKind creativeKind(const BannerAd& ad) {
  return creativeKind(ad.crt, ad.elements.type);
}

/// The frame of a banner: the wanted size, or the creative's own, each capped by the
/// screen limits. Empty for an ad the banner does not draw.
SizeF bannerFrame(const BannerAd& ad, std::optional<double> width, std::optional<double> height,
                  const ScreenLimits& limits);

/// The sizes of a carousel strip: the strip W × H, one card, and the pitch from one card
/// to the next (card width + spacing).
struct CarouselLayout {
  double width = 0;
  double height = 0;
  double cardWidth = 0;
  double cardHeight = 0;
  double pitch = 0;
  friend bool operator==(const CarouselLayout&, const CarouselLayout&) = default;
};
inline constexpr double kCardSpacing = 8;
inline constexpr double kPageDotSize = 8;
inline constexpr double kPageDotSpacing = 6;
inline constexpr double kPageDotsTopPadding = 6;
inline constexpr double kDragMinimumDistance = 10;

/// What the host asked for; absent values fall back as the carousels define.
struct CarouselSizes {
  std::optional<double> width;
  std::optional<double> height;
  std::optional<double> elementWidth;
  std::optional<double> elementHeight;
};
/// `firstCard` is the size of the first card's creative (absent for an empty list). A
/// default card side that is missing or not above 0 falls back to the width limit (for
/// the height too).
CarouselLayout carouselLayout(std::optional<SizeF> firstCard, const CarouselSizes& wanted,
                              const ScreenLimits& limits);

/// The page after a drag of `translation` points: past half a pitch to the left is the
/// next card, past half to the right the previous one (strict comparisons), clamped at
/// both ends, no wrap. With no cards the index stays.
int pageAfterDrag(int currentIndex, int count, double translation, double pitch);
/// One step (wheel notch, arrow key): clamped at both ends.
int pageAfterStep(int currentIndex, int count, int step);
/// The strip's scroll position that centres card `index`, kept inside the content.
double centredScrollPosition(int index, int count, const CarouselLayout& layout);
/// The same for a row in which some cards take no room (`drawn[i]` false: a card that
/// cannot be drawn still counts for paging, but the row closes up around it).
double centredScrollPosition(int index, std::span<const bool> drawn, const CarouselLayout& layout);
/// Where card `index` starts in such a row.
double cardOffset(int index, std::span<const bool> drawn, const CarouselLayout& layout);

/// Safe-area insets of the window an overlay lives in (zero where the platform has
/// none, as on desktop Qt).
struct Insets {
  double top = 0;
  double left = 0;
  double bottom = 0;
  double right = 0;
};
struct PointF {
  double x = 0;
  double y = 0;
};

/// Where an overlay panel goes and how it moves. "Screen" is the window the overlay
/// covers: on a phone the window fills the screen, on a desktop the panel must stay in
/// the app's window.
namespace overlay {
inline constexpr double kRightMargin = 16;
inline constexpr double kBottomMargin = 34;
/// The first frame of a floating panel of `wanted` size: at most 0.8 of the screen on
/// each side; at `position` clamped into the room left, or in the bottom-right corner
/// (16 from the right, 34 from the bottom). A panel larger than the room is made to fit.
RectF panelFrame(SizeF screen, SizeF wanted, std::optional<PointF> position);
/// The frame after a drag of `translation`: inside the screen, below the top inset and
/// above the bottom one. Not snapped to an edge.
RectF afterDrag(const RectF& frame, PointF translation, SizeF screen, const Insets& insets);
/// The frame that leaving full screen returns to: the remembered one, or the middle
/// 0.8 of the screen when none was remembered.
RectF leavingFullScreen(const RectF& remembered, SizeF screen);
/// The same frame moved (and, if it must, shrunk) to stay inside a resized screen.
RectF keptInside(const RectF& frame, SizeF screen, const Insets& insets);
}  // namespace overlay

/// The interstitial's two timers: the close button after `closeButtonSec` (5 when
/// absent), the automatic close after `autoCloseSec` (10 when absent), both counted from
/// the same moment. A negative delay counts as 0.
struct InterstitialTimes {
  double closeButton = 5;
  double autoClose = 10;
  bool negativeDelay = false;  // a delay was negative and was treated as 0
};
InterstitialTimes interstitialTimes(std::optional<std::int64_t> closeButtonSec,
                                    std::optional<std::int64_t> autoCloseSec);

/// Dismissal happens at most once, whoever asks first (the close button, the automatic
/// close, Escape).
class DismissOnce {
 public:
  /// True the first time only.
  bool dismiss() {
    if (dismissed_) return false;
    dismissed_ = true;
    return true;
  }
  bool isDismissed() const { return dismissed_; }

 private:
  bool dismissed_ = false;
};

/// Where the ad label sits inside the ad's frame.
enum class HorizontalAlignment { leading, center, trailing };
enum class VerticalAlignment { top, center, bottom };
struct LabelAlignment {
  HorizontalAlignment horizontal = HorizontalAlignment::leading;
  VerticalAlignment vertical = VerticalAlignment::top;
  friend bool operator==(const LabelAlignment&, const LabelAlignment&) = default;
};
/// Top-left corner of a label of size `label` placed in `frame` at `alignment` (the
/// label box carries its own outer padding, so it is placed flush).
RectF placeLabel(SizeF frame, SizeF label, LabelAlignment alignment);

/// The symbols of the overlay controls; the module's icon set is keyed by these names.
inline constexpr std::string_view kCloseSymbol = "xmark.circle.fill";
inline constexpr std::string_view kEnterFullScreenSymbol =
    "arrow.up.left.and.arrow.down.right.rectangle.fill";
inline constexpr std::string_view kExitFullScreenSymbol =
    "arrow.down.right.and.arrow.up.left.rectangle.fill";
inline constexpr std::string_view kMutedSymbol = "speaker.slash.circle.fill";
inline constexpr std::string_view kSoundOnSymbol = "speaker.circle.fill";
/// While full screen the button offers the way back, and the other way round.
constexpr std::string_view fullScreenSymbol(bool isFullScreen) {
  return isFullScreen ? kExitFullScreenSymbol : kEnterFullScreenSymbol;
}
constexpr std::string_view muteSymbol(bool isMuted) {
  return isMuted ? kMutedSymbol : kSoundOnSymbol;
}

/// The share of `item` (scene coordinates) that lies inside every clip rectangle (the
/// window first, then every clipping ancestor): 0 when none of it, 1 when all of it.
/// An item without area has none.
double visibleFraction(const RectF& item, std::span<const RectF> clips);

/// When an ad counts as seen (viewable): at least `minFraction` of its area on screen
/// for at least `seconds` without a break. Both bounds are inclusive: exactly half of a
/// display ad for exactly one second counts, since the rule says "at least".
struct ViewabilityRule {
  double minFraction = 0.5;
  double seconds = 1;
  friend bool operator==(const ViewabilityRule&, const ViewabilityRule&) = default;
};
/// Above this area (square pixels) an ad needs only 30% of itself on screen.
inline constexpr double kLargeAdArea = 242'500;
/// Display ads: 50% for 1 s; video ads: 50% for 2 s of playback; either at 30% when its
/// area is more than `kLargeAdArea` (an area of exactly that needs 50%).
ViewabilityRule viewabilityRule(bool video, double area);

/// Times one view against its rule, from what it is told and when (seconds on a
/// monotonic clock). Leaving the rule's share breaks the run: the count starts again
/// from the return. A video's clock only runs while it plays: a pause, buffering or a
/// stall stop it without breaking the run. Viewable once, for good.
class ViewabilityClock {
 public:
  explicit ViewabilityClock(ViewabilityRule rule = {}) : rule_(rule) {}

  const ViewabilityRule& rule() const { return rule_; }
  /// A new rule (the ad's size changed) applies from `now`; a run in progress goes on.
  /// True when the ad had become viewable by `now` under the old rule.
  bool setRule(ViewabilityRule rule, double now);
  /// From `now` on, `fraction` of the ad is on screen and its clock may run (`running`:
  /// always for a display ad, while playing for a video). True the one time the ad
  /// becomes viewable (by `now`).
  bool update(double fraction, bool running, double now);
  /// When the ad becomes viewable if nothing changes; nullopt while the clock stands or
  /// once viewable.
  std::optional<double> deadline() const;
  bool viewable() const { return viewable_; }

 private:
  bool settle(double now);

  ViewabilityRule rule_;
  bool inView_ = false;   // at least the rule's share on screen
  bool running_ = false;  // and the clock runs
  double counted_ = 0;    // seconds of the current run before `since_`
  double since_ = 0;      // when the clock last started running
  bool viewable_ = false;
};

/// A view's appearances and its one impression. `update` is told whether the view is on
/// screen now; it answers whether this is a new appearance (the host's `adAppear`
/// fires on each) and whether the impression is due (only on the first).
class AppearanceTracker {
 public:
  struct Change {
    bool appeared = false;
    bool reportImpression = false;
  };

  Change update(bool onScreen) {
    Change change;
    if (onScreen && !onScreen_) {
      change.appeared = true;
      change.reportImpression = !isAppear_;
      isAppear_ = true;
    }
    onScreen_ = onScreen;
    return change;
  }

  bool onScreen() const { return onScreen_; }
  /// Records an impression reported by an earlier instance of the same card.
  void markReported() { isAppear_ = true; }
  /// Whether the impression was reported; never goes back to false.
  bool isAppear() const { return isAppear_; }

 private:
  bool onScreen_ = false;
  bool isAppear_ = false;
};

}  // namespace tavik::quick
