#pragma once

// Helpers shared by the fuzz targets: a contract check that stops the process (so
// libFuzzer records the input as a crash) and the byte-level checks several targets use.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>

namespace tavik::fuzz {

/// Reports a broken contract and aborts; libFuzzer saves the input that led here.
[[noreturn]] inline void violation(const char* what, std::string_view detail = {}) {
  std::fprintf(stderr, "CONTRACT VIOLATION: %s\n", what);
  if (!detail.empty()) {
    std::fprintf(stderr, "  detail: %.*s\n", static_cast<int>(detail.size()), detail.data());
  }
  std::fflush(stderr);
  std::abort();
}

/// Aborts unless `condition` holds.
inline void check(bool condition, const char* what, std::string_view detail = {}) {
  if (!condition) violation(what, detail);
}

/// An exception the called function does not document: report it with its type's text.
[[noreturn]] inline void undocumented(const char* call, const std::exception_ptr& error) {
  try {
    std::rethrow_exception(error);
  } catch (const std::exception& e) {
    violation(call, std::string("undocumented exception: ") + e.what());
  } catch (...) {
    violation(call, "undocumented exception of a non-std type");
  }
}

/// Strict UTF-8 (no overlong forms, no surrogates, nothing past U+10FFFF).
inline bool isValidUtf8(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size()) {
    const auto byte = static_cast<unsigned char>(text[i]);
    std::size_t length = 0;
    unsigned char low = 0x80, high = 0xBF;
    if (byte < 0x80) {
      ++i;
      continue;
    } else if (byte >= 0xC2 && byte <= 0xDF) {
      length = 2;
    } else if (byte >= 0xE0 && byte <= 0xEF) {
      length = 3;
      if (byte == 0xE0) low = 0xA0;
      if (byte == 0xED) high = 0x9F;
    } else if (byte >= 0xF0 && byte <= 0xF4) {
      length = 4;
      if (byte == 0xF0) low = 0x90;
      if (byte == 0xF4) high = 0x8F;
    } else {
      return false;
    }
    if (i + length > text.size()) return false;
    for (std::size_t k = 1; k < length; ++k) {
      const auto next = static_cast<unsigned char>(text[i + k]);
      if (k == 1 ? (next < low || next > high) : (next < 0x80 || next > 0xBF)) return false;
    }
    i += length;
  }
  return true;
}

inline std::string_view asText(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

}  // namespace tavik::fuzz
