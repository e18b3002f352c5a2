#pragma once

#include <optional>
#include <string>

#include <nlohmann/json_fwd.hpp>

namespace tavik {

/// Endpoint of the event-tracking service: "https://" followed by its host name.
struct RegisterEventConfig {
  /// "https://" and the host name; empty means not configured.
  std::string domainUri;
  /// Same address.
  friend bool operator==(const RegisterEventConfig&, const RegisterEventConfig&) = default;
};
/// Endpoint of the display-ads service.
struct DisplayAdsConfig {
  /// "https://" and the host name; empty means not configured.
  std::string domainUri;
  /// Same address.
  friend bool operator==(const DisplayAdsConfig&, const DisplayAdsConfig&) = default;
};
/// Endpoint of the product-ads service.
struct PlaAdsConfig {
  /// "https://" and the host name; empty means not configured.
  std::string domainUri;
  /// Same address.
  friend bool operator==(const PlaAdsConfig&, const PlaAdsConfig&) = default;
};

/// The SDK's set-up: copied by value into every working object, never written after.
/// An absent endpoint record, or one with an empty `domainUri`, means "not configured".
struct Config {
  /// The client id sent with every request; empty means the SDK is not configured.
  std::string clientId;
  /// Writes the SDK's debug lines (arguments of each call, addresses) to the log sink.
  bool debug = false;
  /// Event-tracking endpoint; absent means not configured.
  std::optional<RegisterEventConfig> registerEvent;
  /// Display-ads endpoint; absent means not configured.
  std::optional<DisplayAdsConfig> displayAds;
  /// Product-listing-ads endpoint; absent means not configured.
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
  /// Field-wise equality.
  friend bool operator==(const Config&, const Config&) = default;
};

// JSON coding with the field names as keys ("clientId", "debug", "registerEvent",
// "displayAds", "plaAds", "domainUri"). Absent records are left out when encoding and
// may be missing or null when decoding; "clientId" and "debug" are required. Decoding
// failures throw `tavik::DecodingError` naming the key.
/// `{"domainUri": ...}`.
void to_json(nlohmann::json& json, const RegisterEventConfig& value);
/// Reads "domainUri"; throws `DecodingError`.
void from_json(const nlohmann::json& json, RegisterEventConfig& value);
/// `{"domainUri": ...}`.
void to_json(nlohmann::json& json, const DisplayAdsConfig& value);
/// Reads "domainUri"; throws `DecodingError`.
void from_json(const nlohmann::json& json, DisplayAdsConfig& value);
/// `{"domainUri": ...}`.
void to_json(nlohmann::json& json, const PlaAdsConfig& value);
/// Reads "domainUri"; throws `DecodingError`.
void from_json(const nlohmann::json& json, PlaAdsConfig& value);
/// The whole configuration but `impressionOnViewable`; absent endpoints left out.
void to_json(nlohmann::json& json, const Config& value);
/// Reads the configuration; throws `DecodingError`. `impressionOnViewable` stays false.
void from_json(const nlohmann::json& json, Config& value);

/// Convenience: the JSON text of a `Config`, and a `Config` from JSON text (throws
/// `tavik::DecodingError` on malformed text or a bad document).
std::string encodeConfig(const Config& config);
/// Parses `jsonText` into a `Config`; throws `DecodingError`.
Config decodeConfig(const std::string& jsonText);

}  // namespace tavik
