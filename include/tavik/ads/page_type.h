#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>

#include "tavik/core/raw_value.h"

namespace tavik {

/// The page type of a product-listing-ad request; its wire string goes into "page_type".
enum class PlaPageType : std::uint8_t { product, search, home, category, purchase, tpa };

template <>
/// Wire strings of `PlaPageType`.
struct RawValueTable<PlaPageType> {
  /// Each page type and its wire string, in declaration order.
  static constexpr std::array<std::pair<PlaPageType, std::string_view>, 6> entries{{
      {PlaPageType::product, "PRODUCT"},
      {PlaPageType::search, "SEARCH"},
      {PlaPageType::home, "HOME"},
      {PlaPageType::category, "CATEGORY"},
      {PlaPageType::purchase, "PURCHASE"},
      {PlaPageType::tpa, "TPA"},
  }};
  /// `allCases` lists the page types.
  static constexpr bool iterable = true;
  /// `fromString` is defined for this type.
  static constexpr bool hasFromString = true;
};
static_assert(rawValuesInDeclarationOrder<PlaPageType>());

/// Upper-cases the whole text (full Unicode upper case: "home", "Home" and "ſearch" all
/// match) and then looks it up exactly. Nothing is trimmed; invalid UTF-8 matches nothing.
template <>
std::optional<PlaPageType> fromString<PlaPageType>(std::string_view text);

namespace Tavik {

/// The same six page types as `PlaPageType`, kept as a separate type for hosts that use
/// the namespaced vocabulary. No `allCases`, no `fromString`.
enum class PageType : std::uint8_t { product, search, home, category, purchase, tpa };

using tavik::operator<<;

}  // namespace Tavik

template <>
/// Wire strings of `Tavik::PageType`, the same as those of `PlaPageType`.
struct RawValueTable<Tavik::PageType> {
  /// Each page type and its wire string, in declaration order.
  static constexpr std::array<std::pair<Tavik::PageType, std::string_view>, 6> entries{{
      {Tavik::PageType::product, "PRODUCT"},
      {Tavik::PageType::search, "SEARCH"},
      {Tavik::PageType::home, "HOME"},
      {Tavik::PageType::category, "CATEGORY"},
      {Tavik::PageType::purchase, "PURCHASE"},
      {Tavik::PageType::tpa, "TPA"},
  }};
  /// No `allCases`.
  static constexpr bool iterable = false;
  /// No `fromString`.
  static constexpr bool hasFromString = false;
};
static_assert(rawValuesInDeclarationOrder<Tavik::PageType>());

}  // namespace tavik

namespace std {
template <>
struct hash<tavik::PlaPageType> : tavik::RawValueHash<tavik::PlaPageType> {};
template <>
struct hash<tavik::Tavik::PageType> : tavik::RawValueHash<tavik::Tavik::PageType> {};
}  // namespace std
