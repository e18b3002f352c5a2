#pragma once

#include <optional>
#include <string>

#include <nlohmann/json_fwd.hpp>

namespace tavik {

/// Endpoint of the event-tracking service: "https://" followed by its host name.
struct RegisterEventConfig {
  std::string domainUri;
  friend bool operator==(const RegisterEventConfig&, const RegisterEventConfig&) = default;
};
/// Endpoint of the display-ads service.
struct DisplayAdsConfig {
  std::string domainUri;
  friend bool operator==(const DisplayAdsConfig&, const DisplayAdsConfig&) = default;
};
/// Endpoint of the product-ads service.
struct PlaAdsConfig {
  std::string domainUri;
  friend bool operator==(const PlaAdsConfig&, const PlaAdsConfig&) = default;
};

/// The SDK's set-up: copied by value into every working object, never written after.
/// An absent endpoint record, or one with an empty `domainUri`, means "not configured".
struct Config {
  std::string clientId;
  bool debug = false;
  std::optional<RegisterEventConfig> registerEvent;
  std::optional<DisplayAdsConfig> displayAds;
  std::optional<PlaAdsConfig> plaAds;
  /// Off by default: the views send an ad's impression when it first appears. On: when
  /// it becomes viewable (at least half of it on screen for a continuous second, two
  /// seconds of playback for a video), as some networks bill. The event is the same;
  /// only its moment moves. A switch of this process, not part of the JSON form.
  bool impressionOnViewable = false;
  /// Empty by default: events are sent once, fire and forget. A path: events are kept in
  /// the SQLite event store there until the service accepted them (see
  /// `TAVIK::Builder::eventStore`). A switch of this process, not part of the JSON form.
  std::string eventStore;
  friend bool operator==(const Config&, const Config&) = default;
};

// JSON coding with the field names as keys ("clientId", "debug", "registerEvent",
// "displayAds", "plaAds", "domainUri"). Absent records are left out when encoding and
// may be missing or null when decoding; "clientId" and "debug" are required. Decoding
// failures throw `tavik::DecodingError` naming the key.
void to_json(nlohmann::json& json, const RegisterEventConfig& value);
void from_json(const nlohmann::json& json, RegisterEventConfig& value);
void to_json(nlohmann::json& json, const DisplayAdsConfig& value);
void from_json(const nlohmann::json& json, DisplayAdsConfig& value);
void to_json(nlohmann::json& json, const PlaAdsConfig& value);
void from_json(const nlohmann::json& json, PlaAdsConfig& value);
void to_json(nlohmann::json& json, const Config& value);
void from_json(const nlohmann::json& json, Config& value);

/// Convenience: the JSON text of a `Config`, and a `Config` from JSON text (throws
/// `tavik::DecodingError` on malformed text or a bad document).
std::string encodeConfig(const Config& config);
Config decodeConfig(const std::string& jsonText);

}  // namespace tavik
