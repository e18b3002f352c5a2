#include "network/json_text.h"

#include <string>

namespace tavik::detail {

JsonScan scanJson(std::string_view text, std::size_t maxDepth) {
  JsonScan scan;
  std::size_t depth = 0;
  bool inString = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '\0') {
      scan.nulAt = i;
      return scan;
    }
    if (inString) {
      if (c == '\\') {
        ++i;  // the escaped character, which may be a quote
      } else if (c == '"') {
        inString = false;
      }
    } else if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      if (++depth > scan.deepest) scan.deepest = depth;
      if (depth > maxDepth) {
        scan.tooDeepAt = i;
        return scan;
      }
    } else if ((c == ']' || c == '}') && depth > 0) {
      --depth;
    }
  }
  return scan;
}

std::size_t jsonDepth(std::string_view text, std::size_t limit) {
  return scanJson(text, limit).deepest;
}

nlohmann::json parseJsonContainer(std::string_view text) {
  using parse_error = nlohmann::json::parse_error;
  const JsonScan scan = scanJson(text);
  if (scan.tooDeepAt != JsonScan::npos) {
    throw parse_error::create(
        101, scan.tooDeepAt,
        "syntax error: JSON nested deeper than " + std::to_string(kMaxJsonDepth) + " levels",
        nullptr);
  }
  if (scan.nulAt != JsonScan::npos) {
    throw parse_error::create(101, scan.nulAt, "syntax error: NUL byte in JSON text", nullptr);
  }
  nlohmann::json parsed;
  try {
    parsed = nlohmann::json::parse(text.begin(), text.end());
  } catch (const nlohmann::json::out_of_range& e) {
    // A number beyond a double's range: malformed for this purpose, reported as such.
    throw parse_error::create(101, 0, std::string("syntax error: ") + e.what(), nullptr);
  }
  if (!parsed.is_object() && !parsed.is_array()) {
    throw parse_error::create(101, 0,
                              std::string("syntax error: the answer is a JSON ") +
                                  parsed.type_name() + ", not an object or array",
                              nullptr);
  }
  return parsed;
}

}  // namespace tavik::detail
