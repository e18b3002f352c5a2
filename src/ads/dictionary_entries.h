#pragma once

// Shared by the product filter and the targeting groups: both turn their fields into a
// dictionary where only fields with content get an entry.

#include <optional>
#include <string>
#include <string_view>

#include "tavik/core/value.h"

namespace tavik::detail {

/// A present string, even an empty one, is sent; an absent one adds no key.
inline void putIfPresent(Parameters& dictionary, std::string_view key,
                         const std::optional<std::string>& value) {
  if (value) dictionary.set(std::string(key), *value);
}

/// A list is sent whole (never joined) when it has at least one element.
inline void putIfNotEmpty(Parameters& dictionary, std::string_view key, const StringList& values) {
  if (!values.empty()) dictionary.set(std::string(key), values);
}

inline void appendAll(StringList& to, const StringList& values) {
  to.insert(to.end(), values.begin(), values.end());
}

}  // namespace tavik::detail
