// Fuzzes the configuration record's JSON decoding with arbitrary text.
//
// Contract checked for every input: decodeConfig throws nothing but DecodingError (with
// a message) and refuses text with a NUL byte (never valid JSON), and a configuration
// that decodes encodes to text that decodes to the same configuration, with absent
// endpoint records left out of the text.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "fuzz_common.h"
#include "tavik/core/config.h"
#include "tavik/core/error.h"

namespace {

using tavik::Config;
using tavik::DecodingError;
using tavik::fuzz::check;
using tavik::fuzz::undocumented;
using tavik::fuzz::violation;

// The records define no equality of their own.
template <typename Endpoint>
bool sameEndpoint(const std::optional<Endpoint>& a, const std::optional<Endpoint>& b) {
  if (a.has_value() != b.has_value()) return false;
  return !a || a->domainUri == b->domainUri;
}

bool sameConfig(const Config& a, const Config& b) {
  return a.clientId == b.clientId && a.debug == b.debug &&
         sameEndpoint(a.registerEvent, b.registerEvent) &&
         sameEndpoint(a.displayAds, b.displayAds) && sameEndpoint(a.plaAds, b.plaAds);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(tavik::fuzz::asText(data, size));

  Config config;
  try {
    config = tavik::decodeConfig(text);
  } catch (const DecodingError& error) {
    check(*error.what() != '\0', "decodeConfig", "DecodingError without a message");
    return 0;
  } catch (...) {
    undocumented("decodeConfig", std::current_exception());
  }

  // JSON text never holds a raw NUL byte; the parser stops reading at one, so text
  // after it must not be silently ignored.
  check(text.find('\0') == std::string::npos, "decodeConfig", "decoded text with a NUL byte in it");

  std::string encoded;
  try {
    encoded = tavik::encodeConfig(config);
    const Config again = tavik::decodeConfig(encoded);
    check(sameConfig(config, again), "encodeConfig/decodeConfig",
          "round trip changed the configuration: " + encoded);

    // Absent records are left out, never written as null.
    const auto json = nlohmann::json::parse(encoded);
    for (const char* key : {"registerEvent", "displayAds", "plaAds"}) {
      if (const auto it = json.find(key); it != json.end()) {
        check(it->is_object(), "encodeConfig", "endpoint record written as a non-object");
      }
    }
    check(json.contains("registerEvent") == config.registerEvent.has_value() &&
              json.contains("displayAds") == config.displayAds.has_value() &&
              json.contains("plaAds") == config.plaAds.has_value(),
          "encodeConfig", "endpoint keys do not match the records present: " + encoded);
  } catch (const DecodingError& error) {
    violation("encodeConfig/decodeConfig", std::string("encoded configuration does not decode: ") +
                                               error.what() + "\n" + encoded);
  } catch (...) {
    undocumented("encodeConfig/decodeConfig", std::current_exception());
  }
  return 0;
}
