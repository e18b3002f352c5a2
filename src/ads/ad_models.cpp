#include "tavik/ads/ad_models.h"

#include "core/utf8.h"
#include "network/json_text.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <new>
#include <stdexcept>
#include <type_traits>
#include <utility>

#include <simdjson.h>
#include <nlohmann/json.hpp>

namespace tavik {
namespace {

using nlohmann::json;
// Text the decoder parses itself goes through simdjson, several times faster than
// nlohmann; a value the caller parsed is walked as it is. Every failure is worded by the
// nlohmann walk, so both give the same message for the same document.
using SimdValue = simdjson::dom::element;

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
// Field readers, for either document

bool isNull(const json& value) {
  return value.is_null();
}
bool isNull(SimdValue value) {
  return value.is_null();
}

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

// The same rules on simdjson's document. Its failures are never shown: the decoder
// words them again through the nlohmann walk.
std::int64_t integerValue(SimdValue value, const Path& path, std::string_view key) {
  constexpr double kTwoTo63 = 9223372036854775808.0;
  switch (value.type()) {
    case simdjson::dom::element_type::INT64:
      return value.get_int64().value_unsafe();
    case simdjson::dom::element_type::DOUBLE: {
      const double number = value.get_double().value_unsafe();
      if (std::isfinite(number) && std::trunc(number) == number && number < kTwoTo63 &&
          number >= -kTwoTo63) {
        return static_cast<std::int64_t>(number);
      }
      break;
    }
    default:  // UINT64 holds only numbers above the 64-bit integer range
      break;
  }
  path.fail("expected an integer", key);
}

// Every string is read once, so one that belongs to the decoder's own document is moved.
std::string stringValue(const json& value, const Path& path, std::string_view key) {
  if (!value.is_string()) path.fail("expected a string but found " + describe(value), key);
  if (path.ownsDocument()) return std::move(const_cast<json&>(value).get_ref<std::string&>());
  return value.get_ref<const std::string&>();
}

std::string stringValue(SimdValue value, const Path& path, std::string_view key) {
  std::string_view text;
  if (value.get_string().get(text) != simdjson::SUCCESS) path.fail("expected a string", key);
  return std::string(text);
}

// The members of one object. nlohmann keeps the last of duplicate keys; simdjson keeps
// them all, so the lookup takes the last one too.
class Members {
 public:
  Members(const json& value, const Path& path) {
    if (!value.is_object()) path.fail("expected an object but found " + describe(value));
    object_ = value.get_ptr<const json::object_t*>();
  }
  const json* find(std::string_view key) const {
    const auto it = object_->find(key);
    return it == object_->end() ? nullptr : &it->second;
  }

 private:
  const json::object_t* object_ = nullptr;
};

class SimdMembers {
 public:
  SimdMembers(SimdValue value, const Path& path) {
    if (value.get_object().get(object_) != simdjson::SUCCESS) path.fail("expected an object");
  }
  const SimdValue* find(std::string_view key) const {
    const SimdValue* found = nullptr;
    for (const auto field : object_) {
      if (field.key == key) {
        found_ = field.value;
        found = &found_;
      }
    }
    return found;
  }

 private:
  simdjson::dom::object object_;
  mutable SimdValue found_;
};

Members membersOf(const json& value, const Path& path) {
  return Members(value, path);
}
SimdMembers membersOf(SimdValue value, const Path& path) {
  return SimdMembers(value, path);
}

// Calls `each(element)` for the elements of an array, after `expect(size)`.
template <typename Expect, typename Each>
void forEachElement(const json& value, const Path& path, std::string_view what, Expect expect,
                    Each each) {
  if (!value.is_array())
    path.fail("expected " + std::string(what) + " but found " + describe(value));
  expect(value.size());
  for (const json& element : value) each(element);
}

template <typename Expect, typename Each>
void forEachElement(SimdValue value, const Path& path, std::string_view, Expect expect, Each each) {
  simdjson::dom::array array;
  if (value.get_array().get(array) != simdjson::SUCCESS) path.fail("expected an array");
  expect(array.size());
  for (const SimdValue element : array) each(element);
}

// Reads the members of one JSON object on the current path. Required members must be
// present and non-null; optional ones may be missing or null; other members are ignored.
template <typename Value>
class Fields {
 public:
  using Ref = std::conditional_t<std::is_same_v<Value, json>, const json&, SimdValue>;

  Fields(Ref value, Path& path) : members_(membersOf(value, path)), path_(path) {}

  Ref required(std::string_view key) const {
    const Value* value = members_.find(key);
    if (value == nullptr) path_.fail("missing required key " + quote(key), key);
    if (isNull(*value)) path_.fail("required key " + quote(key) + " is null", key);
    return *value;
  }

  std::string string(std::string_view key) const { return stringValue(required(key), path_, key); }
  std::int64_t integer(std::string_view key) const {
    return integerValue(required(key), path_, key);
  }
  std::optional<std::string> optionalString(std::string_view key) const {
    const Value* value = members_.find(key);
    if (value == nullptr || isNull(*value)) return std::nullopt;
    return stringValue(*value, path_, key);
  }
  std::optional<std::int64_t> optionalInteger(std::string_view key) const {
    const Value* value = members_.find(key);
    if (value == nullptr || isNull(*value)) return std::nullopt;
    return integerValue(*value, path_, key);
  }

  // A nested record, decoded by `decode(value, path)` with `key` on the path.
  template <typename Decode>
  auto record(std::string_view key, Decode decode) const {
    Ref value = required(key);
    Enter scope(path_, key);
    return decode(value, path_);
  }

  // A required array of records; an empty array is fine.
  template <typename Decode>
  auto list(std::string_view key, Decode decode) const {
    Ref value = required(key);
    Enter scope(path_, key);
    std::vector<decltype(decode(value, path_))> out;
    std::size_t index = 0;
    forEachElement(
        value, path_, "an array", [&](std::size_t size) { out.reserve(size); },
        [&](Ref element) {
          Enter at(path_, index++);
          out.push_back(decode(element, path_));
        });
    return out;
  }

 private:
  decltype(membersOf(std::declval<Ref>(), std::declval<const Path&>())) members_;
  Path& path_;
};

// ---------------------------------------------------------------------------------------
// Records, field by field in declaration order (so the first bad field is reported).

template <typename V>
BannerAdElements bannerAdElements(const V& value, Path& path) {
  const Fields<V> fields(value, path);
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

template <typename V>
CarouselMedia carouselMedia(const V& value, Path& path) {
  const Fields<V> fields(value, path);
  return CarouselMedia{
      .value = fields.string("value"),
      .height = fields.integer("height"),
      .width = fields.integer("width"),
      .type = fields.string("type"),
      .videoProgressSec = fields.optionalInteger("video_progress_sec"),
  };
}

template <typename V>
CarouselCard carouselCard(const V& value, Path& path) {
  const Fields<V> fields(value, path);
  return CarouselCard{
      .media = fields.record("media", carouselMedia<V>),
      .destinationUrl = fields.optionalString("destination_url"),
  };
}

template <typename V>
CarouselAdElements carouselAdElements(const V& value, Path& path) {
  const Fields<V> fields(value, path);
  return CarouselAdElements{.carouselCards = fields.list("carousel_cards", carouselCard<V>)};
}

// BannerAd and CarouselAd differ only in their elements.
template <typename Ad, typename V, typename DecodeElements>
Ad ad(const V& value, Path& path, DecodeElements decodeElements) {
  const Fields<V> fields(value, path);
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

template <typename V>
BannerAd bannerAd(const V& value, Path& path) {
  return ad<BannerAd>(value, path, bannerAdElements<V>);
}

template <typename V>
CarouselAd carouselAd(const V& value, Path& path) {
  return ad<CarouselAd>(value, path, carouselAdElements<V>);
}

// Calls `each(unit, list)` for the members of the object of ad units, in the order of the
// document's keys (the last of duplicate keys counts, as in nlohmann's object).
template <typename Each>
void forEachUnit(const json& units, const Path& path, Each each) {
  if (!units.is_object()) path.fail("expected an object of ad units but found " + describe(units));
  for (const auto& [unit, list] : units.get_ref<const json::object_t&>()) each(unit, list);
}

template <typename Each>
void forEachUnit(SimdValue units, const Path& path, Each each) {
  simdjson::dom::object object;
  if (units.get_object().get(object) != simdjson::SUCCESS) path.fail("expected an object");
  for (const auto field : object) each(field.key, field.value);
}

// {"ads": {"<ad unit>": [ad, ...], ...}}
template <typename Document, typename V, typename DecodeAd>
Document document(const V& root, Path& path, DecodeAd decodeAd) {
  const Fields<V> fields(root, path);
  const auto& units = fields.required("ads");
  Enter scope(path, std::string_view("ads"));
  Document out;
  forEachUnit(units, path, [&](std::string_view unit, const V& list) {
    Enter at(path, unit);
    std::vector<decltype(decodeAd(list, path))> ads;
    std::size_t index = 0;
    forEachElement(
        list, path, "an array of ads", [&](std::size_t size) { ads.reserve(size); },
        [&](const V& element) {
          Enter atIndex(path, index++);
          ads.push_back(decodeAd(element, path));
        });
    out.ads.insert_or_assign(std::string(unit), std::move(ads));
  });
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

// The fast parser refuses everything deeper than the pre-check allows.
static_assert(kMaxJsonNestingDepth == detail::kMaxJsonDepth);

// Text is parsed and walked with simdjson; a document it refuses or cannot decode is
// decoded again through nlohmann, which accepts a few more numbers (integers beyond 64
// bits, as floating point) and words every failure.
template <typename Result, typename Decode>
Result decodeText(std::string_view text, Decode decodeValue) {
  try {
    SimdValue root;
    if (detail::fastJsonParser().parse(text.data(), text.size()).get(root) == simdjson::SUCCESS) {
      Path path;
      return decodeValue(root, path);
    }
  } catch (const std::exception&) {
    // decoded again below, for the message
  }
  return guarded([&] {
    json value = parse(text);
    Path path(true);
    return decodeValue(value, path);
  });
}

template <typename Result, typename Decode>
Result decodeParsed(const json& value, Decode decodeValue) {
  return guarded([&] {
    Path path;
    return decodeValue(value, path);
  });
}

// Each entry point's walk, for either document.
struct AdsDocument {
  template <typename V>
  Ads operator()(const V& root, Path& path) const {
    return document<Ads>(root, path, bannerAd<V>);
  }
};
struct CarouselAdsDocument {
  template <typename V>
  CarouselAds operator()(const V& root, Path& path) const {
    return document<CarouselAds>(root, path, carouselAd<V>);
  }
};
struct MultiAdsCarouselDocument {
  template <typename V>
  MultiAdsCarousel operator()(const V& root, Path& path) const {
    return document<MultiAdsCarousel>(root, path, bannerAd<V>);
  }
};
struct OneBannerAd {
  template <typename V>
  BannerAd operator()(const V& value, Path& path) const {
    return bannerAd(value, path);
  }
};
struct OneCarouselAd {
  template <typename V>
  CarouselAd operator()(const V& value, Path& path) const {
    return carouselAd(value, path);
  }
};

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
  return decodeText<Ads>(jsonText, AdsDocument{});
}
CarouselAds decodeCarouselAds(std::string_view jsonText) {
  return decodeText<CarouselAds>(jsonText, CarouselAdsDocument{});
}
MultiAdsCarousel decodeMultiAdsCarousel(std::string_view jsonText) {
  return decodeText<MultiAdsCarousel>(jsonText, MultiAdsCarouselDocument{});
}
BannerAd decodeBannerAd(std::string_view jsonText) {
  return decodeText<BannerAd>(jsonText, OneBannerAd{});
}
CarouselAd decodeCarouselAd(std::string_view jsonText) {
  return decodeText<CarouselAd>(jsonText, OneCarouselAd{});
}

namespace detail {
Ads decodeAdsValue(const json& document) {
  return decodeParsed<Ads>(document, AdsDocument{});
}
CarouselAds decodeCarouselAdsValue(const json& document) {
  return decodeParsed<CarouselAds>(document, CarouselAdsDocument{});
}
MultiAdsCarousel decodeMultiAdsCarouselValue(const json& document) {
  return decodeParsed<MultiAdsCarousel>(document, MultiAdsCarouselDocument{});
}
BannerAd decodeBannerAdValue(const json& value) {
  return decodeParsed<BannerAd>(value, OneBannerAd{});
}
CarouselAd decodeCarouselAdValue(const json& value) {
  return decodeParsed<CarouselAd>(value, OneCarouselAd{});
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
