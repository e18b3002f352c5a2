#include "tavik/ads/ad_models.h"

#include "core/utf8.h"
#include "network/json_text.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

#include <nlohmann/json.hpp>

namespace tavik {
namespace {

using nlohmann::json;

// ---------------------------------------------------------------------------------------
// Error text

// Makes text safe to put in a message: valid UTF-8 passes unchanged, every byte that is
// not part of a well-formed sequence becomes "\xNN". The parser quotes the bytes it
// read last, which may be exactly the ill-formed ones it refused.
std::string sanitizeUtf8(std::string_view text) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(text.size());
  std::size_t i = 0;
  while (i < text.size()) {
    const std::size_t length = detail::utf8SequenceLength(text, i);
    if (length > 0) {
      out.append(text.substr(i, length));
      i += length;
    } else {
      const auto byte = static_cast<unsigned char>(text[i]);
      out += "\\x";
      out += kHex[byte >> 4];
      out += kHex[byte & 0xF];
      ++i;
    }
  }
  return out;
}

// A JSON string literal for a message; never throws, even on ill-formed UTF-8.
std::string quote(std::string_view text) {
  return json(std::string(text)).dump(-1, ' ', false, json::error_handler_t::replace);
}

// "string \"abc\"", "number 1.5", "boolean true", "null", "an array", ...: what a
// message says was found instead. Containers are only named, never printed, so a
// message stays short whatever the document holds.
std::string describe(const json& value) {
  constexpr std::size_t kMaxShown = 48;
  switch (value.type()) {
    case json::value_t::null:
      return "null";
    case json::value_t::boolean:
      return value.get<bool>() ? "boolean true" : "boolean false";
    case json::value_t::string: {
      const auto& text = value.get_ref<const std::string&>();
      if (text.size() <= kMaxShown) return "string " + quote(text);
      return "string " + quote(std::string_view(text).substr(0, kMaxShown)) + "...";
    }
    case json::value_t::number_integer:
    case json::value_t::number_unsigned:
    case json::value_t::number_float:
      return "number " + value.dump();
    case json::value_t::object:
      return "an object";
    case json::value_t::array:
      return "an array";
    case json::value_t::binary:
      return "binary data";
    case json::value_t::discarded:
      break;
  }
  return "nothing";
}

// The library's message without its "[json.exception.parse_error.101] " tag.
std::string parserMessage(const json::exception& error) {
  std::string_view text = error.what();
  if (text.starts_with("[json.exception.")) {
    const auto end = text.find("] ");
    if (end != std::string_view::npos) text.remove_prefix(end + 2);
  }
  return "invalid JSON: " + sanitizeUtf8(text);
}

// ---------------------------------------------------------------------------------------
// Path tracking
//
// The decoder keeps the path to the value it reads as a stack of segments that point
// into the document (keys) or hold array indices; the text form is built only when a
// failure is reported, so decoding costs the same per ad whatever the document's size.

bool isPlainKey(std::string_view key) {
  if (key.empty()) return false;
  for (const char c : key) {
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                       c == '_' || c == '-';
    if (!plain) return false;
  }
  return true;
}

class Path {
 public:
  // `ownsDocument`: the document is the decoder's own and is dropped after decoding, so
  // its strings may be moved into the records instead of copied.
  explicit Path(bool ownsDocument = false) : ownsDocument_(ownsDocument) {}
  bool ownsDocument() const { return ownsDocument_; }

  void push(std::string_view key) { push(Segment{key, 0, false}); }
  void push(std::size_t index) { push(Segment{{}, index, true}); }
  void pop() { --size_; }

  // "ads.au_home[1].rank"; keys that are not plain words in brackets and quotes
  // (ads["unit.with dots"][0]); "$" for the document itself.
  std::string text(std::string_view leafKey = {}) const {
    std::string out;
    for (std::size_t i = 0; i < size_; ++i) append(out, segments_[i]);
    if (!leafKey.empty()) append(out, {leafKey, 0, false});
    return out.empty() ? "$" : out;
  }

  [[noreturn]] void fail(std::string problem, std::string_view leafKey = {}) const {
    throw DecodingError(text(leafKey), problem);
  }

 private:
  struct Segment {
    std::string_view key;
    std::size_t index;
    bool isIndex;
  };

  static void append(std::string& out, const Segment& segment) {
    if (segment.isIndex) {
      out += '[' + std::to_string(segment.index) + ']';
    } else if (isPlainKey(segment.key)) {
      if (!out.empty()) out += '.';
      out += segment.key;
    } else {
      out += '[' + quote(segment.key) + ']';
    }
  }

  void push(Segment segment) {
    // The decoder only walks the records' own structure, a handful of levels deep.
    if (size_ == segments_.size()) throw std::length_error("decoding path too deep");
    segments_[size_++] = segment;
  }

  // Inline, so that decoding a small document allocates nothing for its path.
  std::array<Segment, 16> segments_{};
  std::size_t size_ = 0;
  bool ownsDocument_ = false;
};

// Holds one segment on the path for the lifetime of a scope.
class Enter {
 public:
  template <typename Segment>
  Enter(Path& path, Segment segment) : path_(path) {
    path_.push(segment);
  }
  ~Enter() { path_.pop(); }
  Enter(const Enter&) = delete;
  Enter& operator=(const Enter&) = delete;

 private:
  Path& path_;
};

// ---------------------------------------------------------------------------------------
// Field readers

std::int64_t integerValue(const json& value, const Path& path, std::string_view key) {
  constexpr double kTwoTo63 = 9223372036854775808.0;
  switch (value.type()) {
    case json::value_t::number_integer:
      return *value.get_ptr<const json::number_integer_t*>();
    case json::value_t::number_unsigned: {
      const auto number = *value.get_ptr<const json::number_unsigned_t*>();
      if (number <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        return static_cast<std::int64_t>(number);
      }
      path.fail("expected an integer but found number " + value.dump() +
                    " (outside the 64-bit integer range)",
                key);
    }
    case json::value_t::number_float: {
      // A number written with a fraction or an exponent is still an integer when its
      // value is integral (1.0, 1e2), as JSON decoders commonly accept; 1.5 is not.
      const double number = *value.get_ptr<const json::number_float_t*>();
      if (std::isfinite(number) && std::trunc(number) == number) {
        if (number < kTwoTo63 && number >= -kTwoTo63) return static_cast<std::int64_t>(number);
        path.fail("expected an integer but found number " + value.dump() +
                      " (outside the 64-bit integer range)",
                  key);
      }
      path.fail("expected an integer but found number " + value.dump(), key);
    }
    default:
      path.fail("expected an integer but found " + describe(value), key);
  }
}

// Every string is read once, so one that belongs to the decoder's own document is moved.
std::string stringValue(const json& value, const Path& path, std::string_view key) {
  if (!value.is_string()) path.fail("expected a string but found " + describe(value), key);
  if (path.ownsDocument()) return std::move(const_cast<json&>(value).get_ref<std::string&>());
  return value.get_ref<const std::string&>();
}

// Reads the members of one JSON object on the current path. Required members must be
// present and non-null; optional ones may be missing or null; other members are ignored.
class Fields {
 public:
  Fields(const json& value, Path& path) : path_(path) {
    if (!value.is_object()) path_.fail("expected an object but found " + describe(value));
    object_ = value.get_ptr<const json::object_t*>();
  }

  const json& required(std::string_view key) const {
    const json* value = find(key);
    if (value == nullptr) path_.fail("missing required key " + quote(key), key);
    if (value->is_null()) path_.fail("required key " + quote(key) + " is null", key);
    return *value;
  }
  const json* optional(std::string_view key) const {
    const json* value = find(key);
    return value == nullptr || value->is_null() ? nullptr : value;
  }

  std::string string(std::string_view key) const { return stringValue(required(key), path_, key); }
  std::int64_t integer(std::string_view key) const {
    return integerValue(required(key), path_, key);
  }
  std::optional<std::string> optionalString(std::string_view key) const {
    const json* value = optional(key);
    if (value == nullptr) return std::nullopt;
    return stringValue(*value, path_, key);
  }
  std::optional<std::int64_t> optionalInteger(std::string_view key) const {
    const json* value = optional(key);
    if (value == nullptr) return std::nullopt;
    return integerValue(*value, path_, key);
  }

  // A nested record, decoded by `decode(value, path)` with `key` on the path.
  template <typename Decode>
  auto record(std::string_view key, Decode decode) const {
    const json& value = required(key);
    Enter scope(path_, key);
    return decode(value, path_);
  }

  // A required array of records; an empty array is fine.
  template <typename Decode>
  auto list(std::string_view key, Decode decode) const {
    const json& value = required(key);
    Enter scope(path_, key);
    if (!value.is_array()) path_.fail("expected an array but found " + describe(value));
    std::vector<decltype(decode(value, path_))> out;
    out.reserve(value.size());
    std::size_t index = 0;
    for (const json& element : value) {
      Enter at(path_, index++);
      out.push_back(decode(element, path_));
    }
    return out;
  }

 private:
  const json* find(std::string_view key) const {
    const auto it = object_->find(key);
    return it == object_->end() ? nullptr : &it->second;
  }

  const json::object_t* object_ = nullptr;
  Path& path_;
};

// ---------------------------------------------------------------------------------------
// Records, field by field in declaration order (so the first bad field is reported).

BannerAdElements bannerAdElements(const json& value, Path& path) {
  const Fields fields(value, path);
  return BannerAdElements{
      .value = fields.string("value"),
      .height = fields.integer("height"),
      .width = fields.integer("width"),
      .type = fields.string("type"),
      .destinationUrl = fields.optionalString("destination_url"),
      .videoProgressSec = fields.optionalInteger("video_progress_sec"),
      .closeButtonSec = fields.optionalInteger("close_button_sec"),
      .autoCloseSec = fields.optionalInteger("auto_close_sec"),
  };
}

CarouselMedia carouselMedia(const json& value, Path& path) {
  const Fields fields(value, path);
  return CarouselMedia{
      .value = fields.string("value"),
      .height = fields.integer("height"),
      .width = fields.integer("width"),
      .type = fields.string("type"),
      .videoProgressSec = fields.optionalInteger("video_progress_sec"),
  };
}

CarouselCard carouselCard(const json& value, Path& path) {
  const Fields fields(value, path);
  return CarouselCard{
      .media = fields.record("media", carouselMedia),
      .destinationUrl = fields.optionalString("destination_url"),
  };
}

CarouselAdElements carouselAdElements(const json& value, Path& path) {
  const Fields fields(value, path);
  return CarouselAdElements{.carouselCards = fields.list("carousel_cards", carouselCard)};
}

// BannerAd and CarouselAd differ only in their elements.
template <typename Ad, typename DecodeElements>
Ad ad(const json& value, Path& path, DecodeElements decodeElements) {
  const Fields fields(value, path);
  return Ad{
      .uclid = fields.string("uclid"),
      .au = fields.string("au"),
      .crt = fields.string("crt"),
      .clientId = fields.integer("client_id"),
      .elements = fields.record("elements", decodeElements),
      .rank = fields.integer("rank"),
      .clickTrackingUrl = fields.string("click_tracking_url"),
      .impressionTrackingUrl = fields.string("impression_tracking_url"),
      .cliUbid = fields.optionalString("cli_ubid"),
  };
}

BannerAd bannerAd(const json& value, Path& path) {
  return ad<BannerAd>(value, path, bannerAdElements);
}

CarouselAd carouselAd(const json& value, Path& path) {
  return ad<CarouselAd>(value, path, carouselAdElements);
}

// {"ads": {"<ad unit>": [ad, ...], ...}}
template <typename Document, typename DecodeAd>
Document document(const json& root, Path& path, DecodeAd decodeAd) {
  const Fields fields(root, path);
  const json& units = fields.required("ads");
  Enter scope(path, std::string_view("ads"));
  if (!units.is_object()) path.fail("expected an object of ad units but found " + describe(units));

  Document out;
  for (const auto& [unit, list] : units.get_ref<const json::object_t&>()) {
    Enter at(path, std::string_view(unit));
    if (!list.is_array()) path.fail("expected an array of ads but found " + describe(list));
    std::vector<decltype(decodeAd(list, path))> ads;
    ads.reserve(list.size());
    std::size_t index = 0;
    for (const json& element : list) {
      Enter atIndex(path, index++);
      ads.push_back(decodeAd(element, path));
    }
    // Both maps are sorted by the same order, so every insertion goes at the end.
    out.ads.emplace_hint(out.ads.end(), unit, std::move(ads));
  }
  return out;
}

// ---------------------------------------------------------------------------------------
// Entry points

// Refuses, before parsing, what the parser would mishandle: too deep nesting and NUL
// bytes (see detail::scanJson).
void precheck(std::string_view text) {
  const detail::JsonScan scan = detail::scanJson(text, kMaxJsonNestingDepth);
  if (scan.nulAt != detail::JsonScan::npos) {
    throw DecodingError("", "invalid JSON: NUL byte at offset " + std::to_string(scan.nulAt));
  }
  if (scan.tooDeepAt != detail::JsonScan::npos) {
    throw DecodingError("", "invalid JSON: nested deeper than " +
                                std::to_string(kMaxJsonNestingDepth) + " levels at offset " +
                                std::to_string(scan.tooDeepAt));
  }
}

json parse(std::string_view text) {
  precheck(text);
  return json::parse(text.begin(), text.end());
}

// Runs one decoding and lets nothing but `DecodingError` out of it.
template <typename Decode>
auto guarded(Decode decode) -> decltype(decode()) {
  try {
    return decode();
  } catch (const DecodingError&) {
    throw;
  } catch (const json::exception& error) {
    throw DecodingError("", parserMessage(error));
  } catch (const std::bad_alloc&) {
    throw DecodingError("", "out of memory while decoding");
  } catch (const std::exception& error) {
    throw DecodingError("", "decoding failed: " + sanitizeUtf8(error.what()));
  }
}

template <typename Result>
Result decodeText(std::string_view text, Result (*decodeValue)(const json&, Path&)) {
  return guarded([&] {
    json value = parse(text);
    Path path(true);
    return decodeValue(value, path);
  });
}

template <typename Result>
Result decodeParsed(const json& value, Result (*decodeValue)(const json&, Path&)) {
  return guarded([&] {
    Path path;
    return decodeValue(value, path);
  });
}

Ads adsDocument(const json& root, Path& path) {
  return document<Ads>(root, path, bannerAd);
}
CarouselAds carouselAdsDocument(const json& root, Path& path) {
  return document<CarouselAds>(root, path, carouselAd);
}
MultiAdsCarousel multiAdsCarouselDocument(const json& root, Path& path) {
  return document<MultiAdsCarousel>(root, path, bannerAd);
}

// ---------------------------------------------------------------------------------------
// Encoding

template <typename T>
void putOptional(json& out, const char* key, const std::optional<T>& value) {
  if (value) out[key] = *value;
}

json toJson(const BannerAdElements& elements) {
  json out = {{"value", elements.value},
              {"height", elements.height},
              {"width", elements.width},
              {"type", elements.type}};
  putOptional(out, "destination_url", elements.destinationUrl);
  putOptional(out, "video_progress_sec", elements.videoProgressSec);
  putOptional(out, "close_button_sec", elements.closeButtonSec);
  putOptional(out, "auto_close_sec", elements.autoCloseSec);
  return out;
}

json toJson(const CarouselAdElements& elements) {
  json cards = json::array();
  for (const auto& card : elements.carouselCards) {
    json media = {{"value", card.media.value},
                  {"height", card.media.height},
                  {"width", card.media.width},
                  {"type", card.media.type}};
    putOptional(media, "video_progress_sec", card.media.videoProgressSec);
    json entry = {{"media", std::move(media)}};
    putOptional(entry, "destination_url", card.destinationUrl);
    cards.push_back(std::move(entry));
  }
  return {{"carousel_cards", std::move(cards)}};
}

template <typename Ad>
json adJson(const Ad& ad) {
  json out = {{"uclid", ad.uclid},
              {"au", ad.au},
              {"crt", ad.crt},
              {"client_id", ad.clientId},
              {"elements", toJson(ad.elements)},
              {"rank", ad.rank},
              {"click_tracking_url", ad.clickTrackingUrl},
              {"impression_tracking_url", ad.impressionTrackingUrl}};
  putOptional(out, "cli_ubid", ad.cliUbid);
  return out;
}

template <typename Document>
json documentJson(const Document& document) {
  json units = json::object();
  for (const auto& [unit, ads] : document.ads) {
    json list = json::array();
    for (const auto& ad : ads) list.push_back(toJson(ad));
    units[unit] = std::move(list);
  }
  return {{"ads", std::move(units)}};
}

std::string text(const json& value) {
  return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace

Ads decodeAds(std::string_view jsonText) {
  return decodeText(jsonText, adsDocument);
}
CarouselAds decodeCarouselAds(std::string_view jsonText) {
  return decodeText(jsonText, carouselAdsDocument);
}
MultiAdsCarousel decodeMultiAdsCarousel(std::string_view jsonText) {
  return decodeText(jsonText, multiAdsCarouselDocument);
}
BannerAd decodeBannerAd(std::string_view jsonText) {
  return decodeText(jsonText, bannerAd);
}
CarouselAd decodeCarouselAd(std::string_view jsonText) {
  return decodeText(jsonText, carouselAd);
}

namespace detail {
Ads decodeAdsValue(const json& document) {
  return decodeParsed(document, adsDocument);
}
CarouselAds decodeCarouselAdsValue(const json& document) {
  return decodeParsed(document, carouselAdsDocument);
}
MultiAdsCarousel decodeMultiAdsCarouselValue(const json& document) {
  return decodeParsed(document, multiAdsCarouselDocument);
}
BannerAd decodeBannerAdValue(const json& value) {
  return decodeParsed(value, bannerAd);
}
CarouselAd decodeCarouselAdValue(const json& value) {
  return decodeParsed(value, carouselAd);
}
}  // namespace detail

json toJson(const BannerAd& ad) {
  return adJson(ad);
}
json toJson(const CarouselAd& ad) {
  return adJson(ad);
}
json toJson(const Ads& document) {
  return documentJson(document);
}
json toJson(const CarouselAds& document) {
  return documentJson(document);
}
json toJson(const MultiAdsCarousel& document) {
  return documentJson(document);
}

std::string encode(const Ads& document) {
  return text(toJson(document));
}
std::string encode(const CarouselAds& document) {
  return text(toJson(document));
}
std::string encode(const MultiAdsCarousel& document) {
  return text(toJson(document));
}

}  // namespace tavik
