// Recorded requests and query-string handling. The query is parsed from the raw request
// target rather than taken from the HTTP library, whose parameter map is sorted by name
// and would hide the order in which the client wrote the items.

#include <algorithm>

#include "sandbox_internal.h"

namespace tavik::sandbox {

std::vector<std::string> RecordedRequest::values(std::string_view key) const {
  std::vector<std::string> out;
  for (const auto& [name, value] : query) {
    if (name == key) out.push_back(value);
  }
  return out;
}

std::optional<std::string> RecordedRequest::value(std::string_view key) const {
  for (const auto& [name, value] : query) {
    if (name == key) return value;
  }
  return std::nullopt;
}

std::size_t RecordedRequest::count(std::string_view key) const {
  return static_cast<std::size_t>(std::count_if(
      query.begin(), query.end(), [&](const auto& item) { return item.first == key; }));
}

nlohmann::json RecordedRequest::toJson() const {
  return {{"method", method},
          {"path", path},
          {"raw_query", rawQuery},
          {"query", detail::queryPairs(query)},
          {"connection", connection},
          {"time_ms", timeMs},
          {"body", body}};
}

namespace detail {

namespace {
int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}
}  // namespace

std::string percentDecode(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size()) {
      const int high = hexValue(text[i + 1]);
      const int low = hexValue(text[i + 2]);
      if (high >= 0 && low >= 0) {
        out.push_back(static_cast<char>(high * 16 + low));
        i += 2;
        continue;
      }
    }
    out.push_back(text[i]);
  }
  return out;
}

std::vector<std::pair<std::string, std::string>> parseQuery(std::string_view rawQuery) {
  std::vector<std::pair<std::string, std::string>> items;
  std::size_t start = 0;
  while (start <= rawQuery.size()) {
    std::size_t end = rawQuery.find('&', start);
    if (end == std::string_view::npos) end = rawQuery.size();
    const std::string_view item = rawQuery.substr(start, end - start);
    if (!item.empty()) {
      const std::size_t eq = item.find('=');
      if (eq == std::string_view::npos) {
        items.emplace_back(percentDecode(item), std::string());
      } else {
        items.emplace_back(percentDecode(item.substr(0, eq)), percentDecode(item.substr(eq + 1)));
      }
    }
    start = end + 1;
  }
  return items;
}

nlohmann::json queryObject(const std::vector<std::pair<std::string, std::string>>& items) {
  nlohmann::json object = nlohmann::json::object();
  for (const auto& [name, value] : items) {
    auto found = object.find(name);
    if (found == object.end()) {
      object[name] = value;
    } else if (found->is_array()) {
      found->push_back(value);
    } else {
      *found = nlohmann::json::array({*found, value});
    }
  }
  return object;
}

nlohmann::json queryPairs(const std::vector<std::pair<std::string, std::string>>& items) {
  nlohmann::json pairs = nlohmann::json::array();
  for (const auto& [name, value] : items) pairs.push_back({name, value});
  return pairs;
}

}  // namespace detail
}  // namespace tavik::sandbox
