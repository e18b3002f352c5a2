#pragma once

#include <cstddef>
#include <string_view>

#include <nlohmann/json.hpp>

namespace tavik::detail {

/// Deepest nesting of arrays and objects the SDK accepts in an answer. Deeper text is
/// refused before parsing: serialising it again would recurse that deep.
inline constexpr std::size_t kMaxJsonDepth = 512;

/// Nesting depth of JSON text (brackets outside strings), stopping early past `limit`.
std::size_t jsonDepth(std::string_view text, std::size_t limit = kMaxJsonDepth);

/// Parses an answer body that must be a JSON object or array. Throws
/// `nlohmann::json::parse_error` for malformed text, a bare scalar or too deep nesting.
nlohmann::json parseJsonContainer(std::string_view text);

}  // namespace tavik::detail
