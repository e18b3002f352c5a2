#pragma once

// Display-ad records and their JSON form.
//
// The display-ad service answers with a document that lists, per ad unit, the ads to
// show. The records below are plain values; decoding is strict (every required key
// present and non-null, integers as JSON integers, strings as JSON strings) and
// all-or-nothing per call, and every failure is a `DecodingError` whose message names
// the problem and the path to the offending key ("ads.au_home[1].rank").

#include <concepts>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "tavik/core/error.h"

namespace tavik {

/// Creative templates. A view picks the presentation of an ad by the prefix of its
/// `crt`; later versions or suffixes after the prefix are accepted.
inline constexpr std::string_view kImageTemplatePrefix = "tavik_sdk/image/v1";
inline constexpr std::string_view kVideoTemplatePrefix = "tavik_sdk/video/v1";
inline constexpr std::string_view kCarouselTemplatePrefix = "tavik_sdk/carousel/v1";

constexpr bool isImageCreative(std::string_view crt) {
  return crt.starts_with(kImageTemplatePrefix);
}
constexpr bool isVideoCreative(std::string_view crt) {
  return crt.starts_with(kVideoTemplatePrefix);
}
constexpr bool isCarouselCreative(std::string_view crt) {
  return crt.starts_with(kCarouselTemplatePrefix);
}

/// The creative of a `BannerAd`.
struct BannerAdElements {
  std::string value;  ///< "value": address of the image or video
  std::int64_t height{};
  std::int64_t width{};
  std::string type;                              ///< "type": media type of `value`
  std::optional<std::string> destinationUrl;     ///< "destination_url"
  std::optional<std::int64_t> videoProgressSec;  ///< "video_progress_sec"
  std::optional<std::int64_t> closeButtonSec;    ///< "close_button_sec"
  std::optional<std::int64_t> autoCloseSec;      ///< "auto_close_sec"

  friend bool operator==(const BannerAdElements&, const BannerAdElements&) = default;
};

/// One ad with one creative: image or video banner, interstitial, picture-in-picture.
struct BannerAd {
  std::string uclid;        ///< the ad's identifier, sent back with its tracking events
  std::string au;           ///< the ad unit that served it
  std::string crt;          ///< creative template, tested by prefix (see above)
  std::int64_t clientId{};  ///< "client_id"
  BannerAdElements elements;
  std::int64_t rank{};                 ///< as sent by the server; never used to reorder
  std::string clickTrackingUrl;        ///< "click_tracking_url"
  std::string impressionTrackingUrl;   ///< "impression_tracking_url"
  std::optional<std::string> cliUbid;  ///< "cli_ubid"; the renderer stamps the caller's

  /// Identity in lists: two ads with the same `uclid` are the same item.
  const std::string& id() const { return uclid; }

  friend bool operator==(const BannerAd&, const BannerAd&) = default;
};

/// The media of one carousel card.
struct CarouselMedia {
  std::string value;
  std::int64_t height{};
  std::int64_t width{};
  std::string type;
  std::optional<std::int64_t> videoProgressSec;  ///< "video_progress_sec"

  friend bool operator==(const CarouselMedia&, const CarouselMedia&) = default;
};

struct CarouselCard {
  CarouselMedia media;
  std::optional<std::string> destinationUrl;  ///< "destination_url"

  friend bool operator==(const CarouselCard&, const CarouselCard&) = default;
};

struct CarouselAdElements {
  std::vector<CarouselCard> carouselCards;  ///< "carousel_cards"; may be empty

  friend bool operator==(const CarouselAdElements&, const CarouselAdElements&) = default;
};

/// A carousel ad: the fields and keys of `BannerAd` with carousel elements.
struct CarouselAd {
  std::string uclid;
  std::string au;
  std::string crt;
  std::int64_t clientId{};
  CarouselAdElements elements;
  std::int64_t rank{};
  std::string clickTrackingUrl;
  std::string impressionTrackingUrl;
  std::optional<std::string> cliUbid;

  const std::string& id() const { return uclid; }

  friend bool operator==(const CarouselAd&, const CarouselAd&) = default;
};

/// Documents keyed by ad unit. The ads of a unit keep the order of the JSON array; the
/// units themselves have no order. `Ads` and `MultiAdsCarousel` share a shape but are
/// decoded for different requests and stay distinct types.
struct Ads {
  std::map<std::string, std::vector<BannerAd>> ads;
  friend bool operator==(const Ads&, const Ads&) = default;
};

struct CarouselAds {
  std::map<std::string, std::vector<CarouselAd>> ads;
  friend bool operator==(const CarouselAds&, const CarouselAds&) = default;
};

struct MultiAdsCarousel {
  std::map<std::string, std::vector<BannerAd>> ads;
  friend bool operator==(const MultiAdsCarousel&, const MultiAdsCarousel&) = default;
};

/// Nesting allowed in a JSON text before it is refused (anywhere in the text, also
/// inside keys that are otherwise ignored).
inline constexpr int kMaxJsonNestingDepth = 512;

// Decoding from JSON text. Each throws `DecodingError` on any failure, and nothing else:
// malformed text ("invalid JSON: ..." with line and column, empty path), nesting beyond
// `kMaxJsonNestingDepth`, or a document that does not fit the records ("missing
// required key \"rank\" at ads.au_home[1].rank").
Ads decodeAds(std::string_view jsonText);
CarouselAds decodeCarouselAds(std::string_view jsonText);
MultiAdsCarousel decodeMultiAdsCarousel(std::string_view jsonText);
BannerAd decodeBannerAd(std::string_view jsonText);
CarouselAd decodeCarouselAd(std::string_view jsonText);

namespace detail {
Ads decodeAdsValue(const nlohmann::json& document);
CarouselAds decodeCarouselAdsValue(const nlohmann::json& document);
MultiAdsCarousel decodeMultiAdsCarouselValue(const nlohmann::json& document);
BannerAd decodeBannerAdValue(const nlohmann::json& value);
CarouselAd decodeCarouselAdValue(const nlohmann::json& value);
}  // namespace detail

// The same, for a document the caller has already parsed. These are templates only so
// that a string argument never converts to a JSON value: `decodeAds("{...}")` and
// `decodeAds(std::string(...))` parse text, `decodeAds(json)` decodes the value.
template <std::same_as<nlohmann::json> Json>
Ads decodeAds(const Json& document) {
  return detail::decodeAdsValue(document);
}
template <std::same_as<nlohmann::json> Json>
CarouselAds decodeCarouselAds(const Json& document) {
  return detail::decodeCarouselAdsValue(document);
}
template <std::same_as<nlohmann::json> Json>
MultiAdsCarousel decodeMultiAdsCarousel(const Json& document) {
  return detail::decodeMultiAdsCarouselValue(document);
}
template <std::same_as<nlohmann::json> Json>
BannerAd decodeBannerAd(const Json& value) {
  return detail::decodeBannerAdValue(value);
}
template <std::same_as<nlohmann::json> Json>
CarouselAd decodeCarouselAd(const Json& value) {
  return detail::decodeCarouselAdValue(value);
}

// Encoding with the same keys; absent optional fields are left out (never null).
// Decoding an encoded record gives an equal record.
nlohmann::json toJson(const BannerAd& ad);
nlohmann::json toJson(const CarouselAd& ad);
nlohmann::json toJson(const Ads& document);
nlohmann::json toJson(const CarouselAds& document);
nlohmann::json toJson(const MultiAdsCarousel& document);

/// Compact JSON text. Never throws: bytes that are not valid UTF-8 (only possible in
/// records built by hand) are written as U+FFFD.
std::string encode(const Ads& document);
std::string encode(const CarouselAds& document);
std::string encode(const MultiAdsCarousel& document);

}  // namespace tavik
