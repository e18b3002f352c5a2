#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

// The one UTF-8 reader of the SDK. Well-formed means RFC 3629: no stray continuation
// bytes, no truncated sequences, no overlong forms, no surrogates, nothing beyond
// U+10FFFF.
namespace tavik::detail {

/// The length (1 to 4) of the well-formed sequence that starts at `text[pos]`, or 0 when
/// the bytes there are not one.
std::size_t utf8SequenceLength(std::string_view text, std::size_t pos);

/// Decodes the sequence at `text[pos]` and moves `pos` past it; nothing (and `pos`
/// unchanged) for an ill-formed one.
std::optional<char32_t> decodeUtf8(std::string_view text, std::size_t& pos);

/// True when all of `text` is well-formed UTF-8.
bool isValidUtf8(std::string_view text);

}  // namespace tavik::detail
