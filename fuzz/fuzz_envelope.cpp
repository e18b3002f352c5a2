// Fuzzes the renderer's side of an answer: envelope unwrapping and ads decoding.
//
// The input is read as JSON the way the transport reads a body (objects and arrays only,
// bounded nesting, no NUL bytes). Then:
//  - as a response dictionary: unwrapEnvelope never throws; when it hands back the
//    "data" text, that text decodes as Ads or fails with DecodingError only;
//  - as an answer body: the transport's normalised text (the parsed value written back)
//    in the envelope the transport builds is always unwrapped, and decoding it as Ads
//    agrees with decoding the body as received (both fail, or both give the same ads).

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "fuzz_common.h"
#include "network/json_text.h"
#include "tavik/ads/ad_models.h"
#include "tavik/ads/ad_renderer.h"

namespace {

using nlohmann::json;
using tavik::Ads;
using tavik::DecodingError;
using tavik::fuzz::check;
using tavik::fuzz::undocumented;

std::optional<Ads> decodeOrNull(const char* call, std::string_view text) {
  try {
    return tavik::decodeAds(text);
  } catch (const DecodingError& error) {
    check(tavik::fuzz::isValidUtf8(error.what()), call, "DecodingError message not valid UTF-8");
    return std::nullopt;
  } catch (...) {
    undocumented(call, std::current_exception());
  }
}

const std::string* unwrap(const std::optional<json>& answer) {
  try {
    return tavik::detail::unwrapEnvelope(answer);
  } catch (...) {
    undocumented("unwrapEnvelope", std::current_exception());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = tavik::fuzz::asText(data, size);

  std::optional<json> answer;
  try {
    answer = tavik::detail::parseJsonContainer(text);
  } catch (const json::parse_error&) {
    // The parser's own error for malformed text, a bare scalar or too deep nesting.
  } catch (...) {
    undocumented("parseJsonContainer", std::current_exception());
  }
  if (!answer) {
    check(unwrap(std::nullopt) == nullptr, "unwrapEnvelope", "data from an absent answer");
    return 0;
  }
  check(answer->is_object() || answer->is_array(), "parseJsonContainer", "returned a scalar");
  check(text.find('\0') == std::string_view::npos, "parseJsonContainer",
        "accepted text with a NUL byte in it");
  check(tavik::detail::jsonDepth(text) <= tavik::detail::kMaxJsonDepth, "parseJsonContainer",
        "accepted text nested deeper than the limit");

  // The input as a response dictionary.
  if (const std::string* payload = unwrap(answer)) {
    check(tavik::fuzz::isValidUtf8(*payload), "unwrapEnvelope", "handed back invalid UTF-8");
    decodeOrNull("decodeAds(unwrapped data)", *payload);
  }

  // The input as an answer body, through the transport's normalisation and envelope.
  std::string normalised;
  try {
    normalised = answer->dump();
  } catch (...) {
    undocumented("json::dump of a parsed body", std::current_exception());
  }
  const std::optional<json> envelope = json{
      {"status", true}, {"response", {{"code", 200}, {"data", normalised}}}, {"error", nullptr}};
  const std::string* payload = unwrap(envelope);
  check(payload != nullptr && *payload == normalised, "unwrapEnvelope",
        "refused the envelope the transport builds");
  const auto fromBody = decodeOrNull("decodeAds(body)", text);
  const auto fromNormalised = decodeOrNull("decodeAds(normalised body)", *payload);
  check(fromBody.has_value() == fromNormalised.has_value(), "decodeAds",
        fromBody ? "normalised body fails where the body decodes: " + normalised
                 : "normalised body decodes where the body fails: " + normalised);
  if (fromBody) {
    check(*fromBody == *fromNormalised, "decodeAds", "normalised body decodes to other ads");
  }
  return 0;
}
