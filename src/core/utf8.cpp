#include "core/utf8.h"

namespace tavik::detail {

std::size_t utf8SequenceLength(std::string_view text, std::size_t pos) {
  if (pos >= text.size()) return 0;
  const auto lead = static_cast<unsigned char>(text[pos]);
  if (lead < 0x80) return 1;
  std::size_t length = 0;
  unsigned char low = 0x80, high = 0xBF;  // the range of the second byte
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;   // no overlong forms
    if (lead == 0xED) high = 0x9F;  // no surrogates
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;   // no overlong forms
    if (lead == 0xF4) high = 0x8F;  // nothing beyond U+10FFFF
  } else {
    return 0;  // a continuation byte, an overlong lead (C0, C1) or F5 and above
  }
  if (text.size() - pos < length) return 0;
  for (std::size_t k = 1; k < length; ++k) {
    const auto next = static_cast<unsigned char>(text[pos + k]);
    if (k == 1 ? (next < low || next > high) : (next < 0x80 || next > 0xBF)) return 0;
  }
  return length;
}

std::optional<char32_t> decodeUtf8(std::string_view text, std::size_t& pos) {
  const std::size_t length = utf8SequenceLength(text, pos);
  if (length == 0) return std::nullopt;
  static constexpr unsigned char kLeadMask[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
  char32_t codePoint = static_cast<unsigned char>(text[pos]) & kLeadMask[length];
  for (std::size_t k = 1; k < length; ++k) {
    codePoint = (codePoint << 6) | (static_cast<unsigned char>(text[pos + k]) & 0x3F);
  }
  pos += length;
  return codePoint;
}

bool isValidUtf8(std::string_view text) {
  std::size_t pos = 0;
  while (pos < text.size()) {
    // ASCII runs are the common case.
    if (static_cast<unsigned char>(text[pos]) < 0x80) {
      ++pos;
      continue;
    }
    const std::size_t length = utf8SequenceLength(text, pos);
    if (length == 0) return false;
    pos += length;
  }
  return true;
}

}  // namespace tavik::detail
