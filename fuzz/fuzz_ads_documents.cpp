// Fuzzes the display-ad document decoders with arbitrary text.
//
// Contract checked for every input:
//  - decodeAds, decodeCarouselAds, decodeMultiAdsCarousel, decodeBannerAd and
//    decodeCarouselAd throw nothing but DecodingError, with a non-empty message and path
//    that are valid UTF-8, and refuse any text with a NUL byte;
//  - a document that decodes encodes to text that decodes to an equal document, and the
//    same text parsed first and decoded as a JSON value gives the same document;
//  - Ads and MultiAdsCarousel share a shape: one decodes exactly when the other does,
//    to the same ads.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "fuzz_common.h"
#include "tavik/ads/ad_models.h"

namespace {

using tavik::DecodingError;
using tavik::fuzz::check;
using tavik::fuzz::undocumented;
using tavik::fuzz::violation;

void checkError(const char* call, const DecodingError& error) {
  const std::string_view message = error.what();
  check(!message.empty(), call, "DecodingError without a message");
  check(tavik::fuzz::isValidUtf8(message), call, "DecodingError message is not valid UTF-8");
  check(tavik::fuzz::isValidUtf8(error.path()), call, "DecodingError path is not valid UTF-8");
}

// Runs one decoding; nullopt when it failed the documented way.
template <typename Decode>
auto attempt(const char* call, Decode decode) -> std::optional<decltype(decode())> {
  try {
    return decode();
  } catch (const DecodingError& error) {
    checkError(call, error);
    return std::nullopt;
  } catch (...) {
    undocumented(call, std::current_exception());
  }
}

// encode -> decode must give the record back.
template <typename Record, typename Encode, typename DecodeText>
void roundTrip(const char* call, const Record& record, Encode encode, DecodeText decodeText) {
  std::string text;
  try {
    text = encode(record);
    const Record again = decodeText(text);
    check(again == record, call, "encoded record decodes to a different record: " + text);
  } catch (const DecodingError& error) {
    violation(call, std::string("encoded record does not decode: ") + error.what() + "\n" + text);
  } catch (...) {
    undocumented(call, std::current_exception());
  }
}

// The text decoded, so it parses, and decoding the parsed value agrees with it.
template <typename Record, typename DecodeValue>
void sameAsParsed(const char* call, std::string_view text, const Record& fromText,
                  DecodeValue decodeValue) {
  try {
    const nlohmann::json value = nlohmann::json::parse(text.begin(), text.end());
    check(decodeValue(value) == fromText, call, "decoding the parsed value gives another record");
  } catch (const DecodingError& error) {
    violation(call, std::string("the parsed value does not decode: ") + error.what());
  } catch (...) {
    undocumented(call, std::current_exception());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = tavik::fuzz::asText(data, size);

  const auto ads = attempt("decodeAds", [&] { return tavik::decodeAds(text); });
  const auto carousel =
      attempt("decodeCarouselAds", [&] { return tavik::decodeCarouselAds(text); });
  const auto multi =
      attempt("decodeMultiAdsCarousel", [&] { return tavik::decodeMultiAdsCarousel(text); });
  const auto banner = attempt("decodeBannerAd", [&] { return tavik::decodeBannerAd(text); });
  const auto carouselAd =
      attempt("decodeCarouselAd", [&] { return tavik::decodeCarouselAd(text); });

  const bool decodedAny = ads || carousel || multi || banner || carouselAd;
  check(!decodedAny || text.find('\0') == std::string_view::npos, "decoders",
        "decoded text with a NUL byte in it");
  check(ads.has_value() == multi.has_value(), "decodeAds/decodeMultiAdsCarousel",
        "documents of the same shape disagree on success");
  if (ads) check(ads->ads == multi->ads, "decodeMultiAdsCarousel", "differs from decodeAds");

  if (ads) {
    roundTrip(
        "decodeAds", *ads, [](const auto& d) { return tavik::encode(d); },
        [](std::string_view t) { return tavik::decodeAds(t); });
    sameAsParsed("decodeAds(json)", text, *ads,
                 [](const nlohmann::json& v) { return tavik::decodeAds(v); });
  }
  if (carousel) {
    roundTrip(
        "decodeCarouselAds", *carousel, [](const auto& d) { return tavik::encode(d); },
        [](std::string_view t) { return tavik::decodeCarouselAds(t); });
    sameAsParsed("decodeCarouselAds(json)", text, *carousel,
                 [](const nlohmann::json& v) { return tavik::decodeCarouselAds(v); });
  }
  if (multi) {
    roundTrip(
        "decodeMultiAdsCarousel", *multi, [](const auto& d) { return tavik::encode(d); },
        [](std::string_view t) { return tavik::decodeMultiAdsCarousel(t); });
  }
  if (banner) {
    roundTrip(
        "decodeBannerAd", *banner, [](const auto& ad) { return tavik::toJson(ad).dump(); },
        [](std::string_view t) { return tavik::decodeBannerAd(t); });
  }
  if (carouselAd) {
    roundTrip(
        "decodeCarouselAd", *carouselAd, [](const auto& ad) { return tavik::toJson(ad).dump(); },
        [](std::string_view t) { return tavik::decodeCarouselAd(t); });
  }
  return 0;
}
