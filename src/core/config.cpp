#include "tavik/core/config.h"

#include <nlohmann/json.hpp>

#include "network/json_text.h"
#include "tavik/core/error.h"

namespace tavik {

namespace {

const nlohmann::json& requireKey(const nlohmann::json& json, const char* key,
                                 const std::string& at) {
  if (!json.is_object()) throw DecodingError(at, "expected an object");
  auto it = json.find(key);
  if (it == json.end() || it->is_null()) {
    throw DecodingError(at.empty() ? key : at + "." + key,
                        std::string("missing required key \"") + key + "\"");
  }
  return *it;
}

std::string requireString(const nlohmann::json& json, const char* key, const std::string& at) {
  const auto& value = requireKey(json, key, at);
  if (!value.is_string()) {
    throw DecodingError(at.empty() ? key : at + "." + key, "expected a string");
  }
  return value.get<std::string>();
}

template <class Endpoint>
std::optional<Endpoint> optionalEndpoint(const nlohmann::json& json, const char* key) {
  auto it = json.find(key);
  if (it == json.end() || it->is_null()) return std::nullopt;
  if (!it->is_object()) throw DecodingError(key, "expected an object");
  return Endpoint{requireString(*it, "domainUri", key)};
}

}  // namespace

void to_json(nlohmann::json& json, const RegisterEventConfig& value) {
  json = {{"domainUri", value.domainUri}};
}
void from_json(const nlohmann::json& json, RegisterEventConfig& value) {
  value.domainUri = requireString(json, "domainUri", "");
}
void to_json(nlohmann::json& json, const DisplayAdsConfig& value) {
  json = {{"domainUri", value.domainUri}};
}
void from_json(const nlohmann::json& json, DisplayAdsConfig& value) {
  value.domainUri = requireString(json, "domainUri", "");
}
void to_json(nlohmann::json& json, const PlaAdsConfig& value) {
  json = {{"domainUri", value.domainUri}};
}
void from_json(const nlohmann::json& json, PlaAdsConfig& value) {
  value.domainUri = requireString(json, "domainUri", "");
}

void to_json(nlohmann::json& json, const Config& value) {
  json = nlohmann::json::object();
  json["clientId"] = value.clientId;
  json["debug"] = value.debug;
  if (value.registerEvent) json["registerEvent"] = *value.registerEvent;
  if (value.displayAds) json["displayAds"] = *value.displayAds;
  if (value.plaAds) json["plaAds"] = *value.plaAds;
}

void from_json(const nlohmann::json& json, Config& value) {
  Config decoded;
  decoded.clientId = requireString(json, "clientId", "");
  const auto& debug = requireKey(json, "debug", "");
  if (!debug.is_boolean()) throw DecodingError("debug", "expected a boolean");
  decoded.debug = debug.get<bool>();
  decoded.registerEvent = optionalEndpoint<RegisterEventConfig>(json, "registerEvent");
  decoded.displayAds = optionalEndpoint<DisplayAdsConfig>(json, "displayAds");
  decoded.plaAds = optionalEndpoint<PlaAdsConfig>(json, "plaAds");
  value = std::move(decoded);
}

std::string encodeConfig(const Config& config) {
  return nlohmann::json(config).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

Config decodeConfig(const std::string& jsonText) {
  // The parser would stop at a NUL byte and ignore the rest; refuse it, and absurd depth.
  const detail::JsonScan scan = detail::scanJson(jsonText);
  if (scan.nulAt != detail::JsonScan::npos) {
    throw DecodingError("", "invalid JSON: NUL byte at offset " + std::to_string(scan.nulAt));
  }
  if (scan.tooDeepAt != detail::JsonScan::npos) {
    throw DecodingError(
        "", "invalid JSON: nested too deep at offset " + std::to_string(scan.tooDeepAt));
  }
  nlohmann::json json = nlohmann::json::parse(jsonText, nullptr, false);
  if (json.is_discarded()) throw DecodingError("", "invalid JSON");
  return json.get<Config>();
}

}  // namespace tavik
