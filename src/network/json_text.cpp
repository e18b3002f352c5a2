#include "network/json_text.h"

#include <string>

namespace tavik::detail {

std::size_t jsonDepth(std::string_view text, std::size_t limit) {
  std::size_t depth = 0;
  std::size_t deepest = 0;
  bool inString = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (inString) {
      if (c == '\\') {
        ++i;
      } else if (c == '"') {
        inString = false;
      }
    } else if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      if (++depth > deepest) {
        deepest = depth;
        if (deepest > limit) return deepest;
      }
    } else if ((c == ']' || c == '}') && depth > 0) {
      --depth;
    }
  }
  return deepest;
}

nlohmann::json parseJsonContainer(std::string_view text) {
  using parse_error = nlohmann::json::parse_error;
  if (jsonDepth(text) > kMaxJsonDepth) {
    throw parse_error::create(
        101, 0,
        "syntax error: JSON nested deeper than " + std::to_string(kMaxJsonDepth) + " levels",
        nullptr);
  }
  nlohmann::json parsed = nlohmann::json::parse(text);
  if (!parsed.is_object() && !parsed.is_array()) {
    throw parse_error::create(101, 0,
                              std::string("syntax error: the answer is a JSON ") +
                                  parsed.type_name() + ", not an object or array",
                              nullptr);
  }
  return parsed;
}

}  // namespace tavik::detail
