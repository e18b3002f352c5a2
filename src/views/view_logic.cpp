#include "views/view_logic.h"

#include <algorithm>

namespace tavik::quick {

ScreenLimits limitsForScreen(SizeF screen) {
  return {0.8 * screen.width, 0.8 * screen.height};
}

CreativeKind creativeKind(std::string_view crt, std::string_view elementType) {
  if (!isImageCreative(crt) && !isVideoCreative(crt)) return CreativeKind::none;
  if (elementType == "IMAGE") return CreativeKind::image;
  if (elementType == "VIDEO") return CreativeKind::video;
  return CreativeKind::none;
}

SizeF bannerFrame(const BannerAd& ad, std::optional<double> width, std::optional<double> height,
                  const ScreenLimits& limits) {
  if (creativeKind(ad) == CreativeKind::none) return {};
  const double w = width.value_or(static_cast<double>(ad.elements.width));
  const double h = height.value_or(static_cast<double>(ad.elements.height));
  // A negative wanted size is a host mistake; it draws nothing rather than misbehaving.
  return {std::clamp(w, 0.0, std::max(0.0, limits.maxAdWidth)),
          std::clamp(h, 0.0, std::max(0.0, limits.maxAdHeight))};
}

CarouselLayout carouselLayout(std::optional<SizeF> firstCard, const CarouselSizes& wanted,
                              const ScreenLimits& limits) {
  const double cardW = firstCard && firstCard->width > 0 ? firstCard->width : limits.maxAdWidth;
  const double cardH = firstCard && firstCard->height > 0 ? firstCard->height : limits.maxAdWidth;
  CarouselLayout layout;
  layout.width = std::min(limits.maxAdWidth, wanted.width.value_or(limits.maxAdWidth));
  layout.height = std::min(limits.maxAdHeight, wanted.height.value_or(cardH));
  layout.cardWidth = std::min(layout.width, wanted.elementWidth.value_or(cardW));
  layout.cardHeight = std::min(layout.height, wanted.elementHeight.value_or(cardH));
  layout.pitch = layout.cardWidth + kCardSpacing;
  return layout;
}

int pageAfterDrag(int currentIndex, int count, double translation, double pitch) {
  if (count <= 0) return currentIndex;
  const double threshold = pitch * 0.5;
  if (translation < -threshold) return std::min(count - 1, currentIndex + 1);
  if (translation > threshold) return std::max(0, currentIndex - 1);
  return currentIndex;
}

int pageAfterStep(int currentIndex, int count, int step) {
  if (count <= 0) return currentIndex;
  return std::clamp(currentIndex + step, 0, count - 1);
}

namespace {
double centred(double cardX, double cardWidth, double content, const CarouselLayout& layout) {
  return std::clamp(cardX + cardWidth / 2 - layout.width / 2, 0.0,
                    std::max(0.0, content - layout.width));
}
}  // namespace

double centredScrollPosition(int index, int count, const CarouselLayout& layout) {
  if (count <= 0) return 0;
  const double content = count * layout.cardWidth + (count - 1) * kCardSpacing;
  return centred(index * layout.pitch, layout.cardWidth, content, layout);
}

double cardOffset(int index, std::span<const bool> drawn, const CarouselLayout& layout) {
  const auto before = std::count(
      drawn.begin(), drawn.begin() + std::clamp<std::ptrdiff_t>(index, 0, std::ssize(drawn)), true);
  return static_cast<double>(before) * layout.pitch;
}

double centredScrollPosition(int index, std::span<const bool> drawn, const CarouselLayout& layout) {
  if (drawn.empty()) return 0;
  const auto shown = std::count(drawn.begin(), drawn.end(), true);
  const double content = shown > 0 ? static_cast<double>(shown) * layout.pitch - kCardSpacing : 0.0;
  const bool taken = index >= 0 && index < std::ssize(drawn) && drawn[static_cast<size_t>(index)];
  return centred(cardOffset(index, drawn, layout), taken ? layout.cardWidth : 0, content, layout);
}

namespace overlay {

RectF panelFrame(SizeF screen, SizeF wanted, std::optional<PointF> position) {
  double w = std::min(wanted.width, 0.8 * screen.width);
  double h = std::min(wanted.height, 0.8 * screen.height);
  // No room for the panel and its margins: shrink it rather than place it off screen.
  w = std::clamp(w, 0.0, std::max(0.0, screen.width - kRightMargin));
  h = std::clamp(h, 0.0, std::max(0.0, screen.height - kBottomMargin));
  const double maxX = std::max(0.0, screen.width - w - kRightMargin);
  const double maxY = std::max(0.0, screen.height - h - kBottomMargin);
  if (!position) return {maxX, maxY, w, h};
  return {std::min(maxX, std::max(0.0, position->x)), std::min(maxY, std::max(0.0, position->y)), w,
          h};
}

RectF afterDrag(const RectF& frame, PointF translation, SizeF screen, const Insets& insets) {
  const double maxX = screen.width - frame.width;
  const double maxY = screen.height - frame.height - insets.bottom;
  return {std::max(0.0, std::min(frame.x + translation.x, maxX)),
          std::max(insets.top, std::min(frame.y + translation.y, maxY)), frame.width, frame.height};
}

RectF leavingFullScreen(const RectF& remembered, SizeF screen) {
  if (remembered.width > 0 || remembered.height > 0 || remembered.x != 0 || remembered.y != 0) {
    return remembered;
  }
  return {0.1 * screen.width, 0.1 * screen.height, 0.8 * screen.width, 0.8 * screen.height};
}

RectF keptInside(const RectF& frame, SizeF screen, const Insets& insets) {
  RectF r = frame;
  r.width = std::min(r.width, std::max(0.0, screen.width));
  r.height = std::min(r.height, std::max(0.0, screen.height - insets.top - insets.bottom));
  return afterDrag(r, {0, 0}, screen, insets);
}

}  // namespace overlay

InterstitialTimes interstitialTimes(std::optional<std::int64_t> closeButtonSec,
                                    std::optional<std::int64_t> autoCloseSec) {
  InterstitialTimes times;
  auto seconds = [&](std::optional<std::int64_t> value, double fallback) {
    if (!value) return fallback;
    if (*value < 0) {
      times.negativeDelay = true;
      return 0.0;
    }
    return static_cast<double>(*value);
  };
  times.closeButton = seconds(closeButtonSec, 5);
  times.autoClose = seconds(autoCloseSec, 10);
  return times;
}

RectF placeLabel(SizeF frame, SizeF label, LabelAlignment alignment) {
  auto offset = [](double room, double size, int where) {
    switch (where) {
      case 0:
        return 0.0;
      case 1:
        return (room - size) / 2;
      default:
        return room - size;
    }
  };
  return {offset(frame.width, label.width, static_cast<int>(alignment.horizontal)),
          offset(frame.height, label.height, static_cast<int>(alignment.vertical)), label.width,
          label.height};
}

double visibleFraction(const RectF& item, std::span<const RectF> clips) {
  const double area = item.width * item.height;
  if (!(area > 0)) return 0;
  double left = item.x, top = item.y;
  double right = item.x + item.width, bottom = item.y + item.height;
  for (const RectF& clip : clips) {
    left = std::max(left, clip.x);
    top = std::max(top, clip.y);
    right = std::min(right, clip.x + clip.width);
    bottom = std::min(bottom, clip.y + clip.height);
  }
  if (right <= left || bottom <= top) return 0;
  return std::min(1.0, (right - left) * (bottom - top) / area);
}

ViewabilityRule viewabilityRule(bool video, double area) {
  return {area > kLargeAdArea ? 0.3 : 0.5, video ? 2.0 : 1.0};
}

namespace {
// Areas are computed from floating-point geometry: exactly half of an ad may come out a
// hair below 0.5.
constexpr double kFractionSlack = 1e-9;
}  // namespace

bool ViewabilityClock::settle(double now) {
  if (viewable_ || !running_) return false;
  if (counted_ + (now - since_) < rule_.seconds) return false;
  viewable_ = true;
  return true;
}

bool ViewabilityClock::setRule(ViewabilityRule rule, double now) {
  if (settle(now)) return true;
  if (running_) {
    counted_ += now - since_;
    since_ = now;
  }
  rule_ = rule;
  return false;
}

bool ViewabilityClock::update(double fraction, bool running, double now) {
  if (viewable_) return false;
  // Whatever held until now counts first.
  if (settle(now)) return true;
  if (running_) counted_ += now - since_;
  inView_ = fraction + kFractionSlack >= rule_.minFraction;
  if (!inView_) counted_ = 0;  // the run is broken
  running_ = inView_ && running;
  since_ = now;
  return settle(now);
}

std::optional<double> ViewabilityClock::deadline() const {
  if (viewable_ || !running_) return std::nullopt;
  return since_ + (rule_.seconds - counted_);
}

}  // namespace tavik::quick
