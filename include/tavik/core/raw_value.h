#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <ostream>
#include <string_view>
#include <type_traits>
#include <utility>

namespace tavik {

/// The wire strings of an enumeration. Each enumeration with raw values specialises it:
///
///   static constexpr std::array<std::pair<E, std::string_view>, N> entries;  // in declaration
///   order static constexpr bool iterable;       // whether `allCases<E>()` exists static constexpr
///   bool hasFromString;  // whether `fromString<E>()` exists
template <class E>
struct RawValueTable;

/// An enumeration whose cases carry wire strings.
template <class E>
concept RawValued = std::is_enum_v<E> && requires {
  RawValueTable<E>::entries;
};

/// An enumeration that also offers `allCases<E>()`.
template <class E>
concept IterableRawValued = RawValued<E> && bool(RawValueTable<E>::iterable);

/// An enumeration that also offers `fromString<E>()`.
template <class E>
concept StringConvertible = RawValued<E> && bool(RawValueTable<E>::hasFromString);

/// The wire string of `value`; empty for a value outside the declared cases.
template <RawValued E>
constexpr std::string_view rawValue(E value) {
  for (const auto& [entry, raw] : RawValueTable<E>::entries) {
    if (entry == value) return raw;
  }
  return {};
}

/// The case whose wire string equals `raw` exactly (case-sensitive, nothing trimmed).
template <RawValued E>
constexpr std::optional<E> fromRawValue(std::string_view raw) {
  for (const auto& [entry, text] : RawValueTable<E>::entries) {
    if (text == raw) return entry;
  }
  return std::nullopt;
}

/// The more readable entry point for hosts. By default the same exact lookup as
/// `fromRawValue`; an enumeration may specialise it with a more lenient rule.
template <StringConvertible E>
constexpr std::optional<E> fromString(std::string_view text) {
  return fromRawValue<E>(text);
}

namespace detail {

template <RawValued E>
constexpr auto casesOf() {
  constexpr const auto& entries = RawValueTable<E>::entries;
  std::array<E, entries.size()> cases{};
  for (std::size_t i = 0; i < entries.size(); ++i) cases[i] = entries[i].first;
  return cases;
}

template <RawValued E>
inline constexpr auto kAllCases = casesOf<E>();

}  // namespace detail

/// Every case, in declaration order: one constant array per enumeration.
template <IterableRawValued E>
constexpr const auto& allCases() {
  return detail::kAllCases<E>;
}

/// True when the table lists every case once, in declaration order, starting at 0: the
/// order `allCases` promises. Each enumeration checks it with a static_assert.
template <RawValued E>
constexpr bool rawValuesInDeclarationOrder() {
  const auto& entries = RawValueTable<E>::entries;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (static_cast<std::size_t>(entries[i].first) != i) return false;
  }
  return true;
}

/// Hashes a value by its wire string, so equal cases hash alike across the program and
/// the hash does not depend on the numeric tag.
template <RawValued E>
struct RawValueHash {
  /// Hash of the wire string of `value`.
  std::size_t operator()(E value) const noexcept {
    return std::hash<std::string_view>{}(rawValue(value));
  }
};

/// Prints the wire string.
template <RawValued E>
std::ostream& operator<<(std::ostream& out, E value) {
  return out << rawValue(value);
}

}  // namespace tavik
