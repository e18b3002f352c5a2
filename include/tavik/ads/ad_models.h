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
/// Prefix of the video creative template.
inline constexpr std::string_view kVideoTemplatePrefix = "tavik_sdk/video/v1";
/// Prefix of the carousel creative template.
inline constexpr std::string_view kCarouselTemplatePrefix = "tavik_sdk/carousel/v1";

/// True when `crt` names the image template (`kImageTemplatePrefix`).
constexpr bool isImageCreative(std::string_view crt) {
  return crt.starts_with(kImageTemplatePrefix);
}
/// True when `crt` names the video template (`kVideoTemplatePrefix`).
constexpr bool isVideoCreative(std::string_view crt) {
  return crt.starts_with(kVideoTemplatePrefix);
}
/// True when `crt` names the carousel template (`kCarouselTemplatePrefix`).
constexpr bool isCarouselCreative(std::string_view crt) {
  return crt.starts_with(kCarouselTemplatePrefix);
}

/// The creative of a `BannerAd`.
struct BannerAdElements {
  std::string value;  ///< "value": address of the image or video
  /// "height": creative height in points.
  std::int64_t height{};
  /// "width": creative width in points.
  std::int64_t width{};
  std::string type;                              ///< "type": media type of `value`
  std::optional<std::string> destinationUrl;     ///< "destination_url"
  std::optional<std::int64_t> videoProgressSec;  ///< "video_progress_sec"
  std::optional<std::int64_t> closeButtonSec;    ///< "close_button_sec"
  std::optional<std::int64_t> autoCloseSec;      ///< "auto_close_sec"

  /// Field-wise equality.
  friend bool operator==(const BannerAdElements&, const BannerAdElements&) = default;
};

/// One ad with one creative: image or video banner, interstitial, picture-in-picture.
struct BannerAd {
  std::string uclid;        ///< the ad's identifier, sent back with its tracking events
  std::string au;           ///< the ad unit that served it
  std::string crt;          ///< creative template, tested by prefix (see above)
  std::int64_t clientId{};  ///< "client_id"
  /// "elements": the creative.
  BannerAdElements elements;
  std::int64_t rank{};                 ///< as sent by the server; never used to reorder
  std::string clickTrackingUrl;        ///< "click_tracking_url"
  std::string impressionTrackingUrl;   ///< "impression_tracking_url"
  std::optional<std::string> cliUbid;  ///< "cli_ubid"; the renderer stamps the caller's

  /// Identity in lists: two ads with the same `uclid` are the same item.
  const std::string& id() const { return uclid; }

  /// Field-wise equality.
  friend bool operator==(const BannerAd&, const BannerAd&) = default;
};

/// The media of one carousel card.
struct CarouselMedia {
  /// "value": address of the image or video.
  std::string value;
  /// "height": media height in points.
  std::int64_t height{};
  /// "width": media width in points.
  std::int64_t width{};
  /// "type": media type of `value` ("IMAGE" or "VIDEO").
  std::string type;
  std::optional<std::int64_t> videoProgressSec;  ///< "video_progress_sec"

  /// Field-wise equality.
  friend bool operator==(const CarouselMedia&, const CarouselMedia&) = default;
};

/// One card of a carousel: its media and where a click on it leads.
struct CarouselCard {
  /// "media": what the card shows.
  CarouselMedia media;
  std::optional<std::string> destinationUrl;  ///< "destination_url"

  /// Field-wise equality.
  friend bool operator==(const CarouselCard&, const CarouselCard&) = default;
};

/// The creative of a `CarouselAd`: its cards, in display order.
struct CarouselAdElements {
  std::vector<CarouselCard> carouselCards;  ///< "carousel_cards"; may be empty

  /// Field-wise equality.
  friend bool operator==(const CarouselAdElements&, const CarouselAdElements&) = default;
};

/// A carousel ad: the fields and keys of `BannerAd` with carousel elements.
struct CarouselAd {
  /// The ad's identifier, sent back with its tracking events.
  std::string uclid;
  /// The ad unit that served it.
  std::string au;
  /// Creative template, tested by prefix.
  std::string crt;
  /// "client_id"
  std::int64_t clientId{};
  /// "elements": the cards.
  CarouselAdElements elements;
  /// As sent by the server; never used to reorder.
  std::int64_t rank{};
  /// "click_tracking_url"
  std::string clickTrackingUrl;
  /// "impression_tracking_url"
  std::string impressionTrackingUrl;
  /// "cli_ubid"; the renderer stamps the caller's.
  std::optional<std::string> cliUbid;

  /// Identity in lists: two ads with the same `uclid` are the same item.
  const std::string& id() const { return uclid; }

  /// Field-wise equality.
  friend bool operator==(const CarouselAd&, const CarouselAd&) = default;
};

/// Documents keyed by ad unit. The ads of a unit keep the order of the JSON array; the
/// units themselves have no order. `Ads` and `MultiAdsCarousel` share a shape but are
/// decoded for different requests and stay distinct types.
struct Ads {
  /// "ads": banner ads per ad unit.
  std::map<std::string, std::vector<BannerAd>> ads;
  /// Field-wise equality.
  friend bool operator==(const Ads&, const Ads&) = default;
};

/// Carousel ads keyed by ad unit, decoded for a carousel request.
struct CarouselAds {
  /// "ads": carousel ads per ad unit.
  std::map<std::string, std::vector<CarouselAd>> ads;
  /// Field-wise equality.
  friend bool operator==(const CarouselAds&, const CarouselAds&) = default;
};

/// Banner ads keyed by ad unit, decoded for a multi-ad carousel request.
struct MultiAdsCarousel {
  /// "ads": banner ads per ad unit, each shown as one card of the carousel.
  std::map<std::string, std::vector<BannerAd>> ads;
  /// Field-wise equality.
  friend bool operator==(const MultiAdsCarousel&, const MultiAdsCarousel&) = default;
};

/// Nesting allowed in a JSON text before it is refused (anywhere in the text, also
/// inside keys that are otherwise ignored).
inline constexpr int kMaxJsonNestingDepth = 512;

// Decoding from JSON text. Each throws `DecodingError` on any failure, and nothing else:
// malformed text ("invalid JSON: ..." with line and column, empty path), nesting beyond
// `kMaxJsonNestingDepth`, or a document that does not fit the records ("missing
// required key \"rank\" at ads.au_home[1].rank").
/// Decodes the document of a banner-ad request. Throws `DecodingError`.
Ads decodeAds(std::string_view jsonText);
/// Decodes the document of a carousel-ad request. Throws `DecodingError`.
CarouselAds decodeCarouselAds(std::string_view jsonText);
/// Decodes the document of a multi-ad carousel request. Throws `DecodingError`.
MultiAdsCarousel decodeMultiAdsCarousel(std::string_view jsonText);
/// Decodes one banner ad object. Throws `DecodingError`.
BannerAd decodeBannerAd(std::string_view jsonText);
/// Decodes one carousel ad object. Throws `DecodingError`.
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
/// Decodes an already parsed banner-ad document. Throws `DecodingError`.
Ads decodeAds(const Json& document) {
  return detail::decodeAdsValue(document);
}
template <std::same_as<nlohmann::json> Json>
/// Decodes an already parsed carousel-ad document. Throws `DecodingError`.
CarouselAds decodeCarouselAds(const Json& document) {
  return detail::decodeCarouselAdsValue(document);
}
template <std::same_as<nlohmann::json> Json>
/// Decodes an already parsed multi-ad carousel document. Throws `DecodingError`.
MultiAdsCarousel decodeMultiAdsCarousel(const Json& document) {
  return detail::decodeMultiAdsCarouselValue(document);
}
template <std::same_as<nlohmann::json> Json>
/// Decodes an already parsed banner ad object. Throws `DecodingError`.
BannerAd decodeBannerAd(const Json& value) {
  return detail::decodeBannerAdValue(value);
}
template <std::same_as<nlohmann::json> Json>
/// Decodes an already parsed carousel ad object. Throws `DecodingError`.
CarouselAd decodeCarouselAd(const Json& value) {
  return detail::decodeCarouselAdValue(value);
}

// Encoding with the same keys; absent optional fields are left out (never null).
// Decoding an encoded record gives an equal record.
/// JSON object of one banner ad.
nlohmann::json toJson(const BannerAd& ad);
/// JSON object of one carousel ad.
nlohmann::json toJson(const CarouselAd& ad);
/// JSON document of banner ads keyed by ad unit.
nlohmann::json toJson(const Ads& document);
/// JSON document of carousel ads keyed by ad unit.
nlohmann::json toJson(const CarouselAds& document);
/// JSON document of a multi-ad carousel.
nlohmann::json toJson(const MultiAdsCarousel& document);

/// Compact JSON text. Never throws: bytes that are not valid UTF-8 (only possible in
/// records built by hand) are written as U+FFFD.
std::string encode(const Ads& document);
/// Compact JSON text of `toJson(document)`; never throws.
std::string encode(const CarouselAds& document);
/// Compact JSON text of `toJson(document)`; never throws.
std::string encode(const MultiAdsCarousel& document);

}  // namespace tavik
