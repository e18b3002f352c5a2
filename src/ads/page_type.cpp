#include "tavik/ads/page_type.h"

#include <algorithm>
#include <string>

#include "core/utf8.h"

namespace tavik {
namespace {

// Outside ASCII, only these code points have a full upper case made of ASCII letters
// alone (the long s, the dotless i, the sharp s and the Latin ligatures). Every other
// non-ASCII code point upper-cases to something that is not ASCII.
struct AsciiUpperCase {
  char32_t codePoint;
  std::string_view upper;
};
constexpr std::array<AsciiUpperCase, 10> kAsciiUpperCases{{
    {0x00DF, "SS"},   // ß
    {0x0131, "I"},    // ı
    {0x017F, "S"},    // ſ
    {0xFB00, "FF"},   // ﬀ
    {0xFB01, "FI"},   // ﬁ
    {0xFB02, "FL"},   // ﬂ
    {0xFB03, "FFI"},  // ﬃ
    {0xFB04, "FFL"},  // ﬄ
    {0xFB05, "ST"},   // ﬅ
    {0xFB06, "ST"},   // ﬆ
}};

constexpr std::size_t longestRawValue() {
  std::size_t longest = 0;
  for (const auto& entry : RawValueTable<PlaPageType>::entries) {
    longest = std::max(longest, entry.second.size());
  }
  return longest;
}

// The full Unicode upper case of `text` when it is pure ASCII and no longer than
// `limit`, else nothing. The wire strings are short upper-case ASCII words, so a text
// whose upper case holds anything else (or whose bytes are not valid UTF-8) can never
// equal one of them, and there is no need to build it.
std::optional<std::string> asciiUpperCase(std::string_view text, std::size_t limit) {
  std::string upper;
  std::size_t pos = 0;
  while (pos < text.size()) {
    const auto byte = static_cast<unsigned char>(text[pos]);
    if (byte < 0x80) {
      upper += (byte >= 'a' && byte <= 'z') ? static_cast<char>(byte - 'a' + 'A')
                                            : static_cast<char>(byte);
      ++pos;
    } else {
      const auto codePoint = detail::decodeUtf8(text, pos);
      if (!codePoint) return std::nullopt;
      const auto* mapping =
          std::find_if(kAsciiUpperCases.begin(), kAsciiUpperCases.end(),
                       [&](const AsciiUpperCase& entry) { return entry.codePoint == *codePoint; });
      if (mapping == kAsciiUpperCases.end()) return std::nullopt;
      upper += mapping->upper;
    }
    if (upper.size() > limit) return std::nullopt;
  }
  return upper;
}

}  // namespace

template <>
std::optional<PlaPageType> fromString<PlaPageType>(std::string_view text) {
  const auto upper = asciiUpperCase(text, longestRawValue());
  if (!upper) return std::nullopt;
  return fromRawValue<PlaPageType>(*upper);
}

}  // namespace tavik
