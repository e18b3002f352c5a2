#pragma once

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace tavik {

/// A list of strings: list parameters, SKUs, categories, ad units.
using StringList = std::vector<std::string>;

/// One value of a request parameter dictionary. It keeps its type so that the query
/// text of each kind follows its own rule: strings as they are, integers in decimal,
/// 32-bit floats (the SDK's own prices and seconds) and doubles (a host's values) as
/// their shortest round-trip text ("12.5", "10.0", "12345678.9"), booleans as
/// "true"/"false", and lists of strings as repeated "key[]" items.
class ParamValue {
 public:
  /// The value's kind: string, integer, 32-bit float, boolean, list of strings or double.
  using Variant = std::variant<std::string, std::int64_t, float, bool, StringList, double>;

  ParamValue() : value_(std::string()) {}
  /// A string.
  ParamValue(std::string value) : value_(std::move(value)) {}
  /// A string from a C string (not null).
  ParamValue(const char* value) : value_(std::string(value)) {}
  /// A string.
  ParamValue(std::string_view value) : value_(std::string(value)) {}
  template <std::integral I>
  /// Any integer but `bool`, held as a 64-bit integer.
  requires(!std::same_as<I, bool>) ParamValue(I value) : value_(static_cast<std::int64_t>(value)) {}
  /// A 32-bit float, as the SDK's own prices and seconds are.
  ParamValue(float value) : value_(value) {}
  /// A double keeps its precision: 12345678.9 goes out as "12345678.9".
  ParamValue(double value) : value_(value) {}
  /// A boolean, sent as "true" or "false".
  ParamValue(bool value) : value_(value) {}
  /// A list of strings, sent as repeated "key[]" items.
  ParamValue(StringList value) : value_(std::move(value)) {}
  /// A list of strings, sent as repeated "key[]" items.
  ParamValue(std::initializer_list<std::string> value) : value_(StringList(value)) {}

  /// The held value.
  const Variant& variant() const { return value_; }

  /// Holds a string.
  bool isString() const { return std::holds_alternative<std::string>(value_); }
  /// Holds an integer.
  bool isInteger() const { return std::holds_alternative<std::int64_t>(value_); }
  /// Holds a 32-bit float.
  bool isFloat() const { return std::holds_alternative<float>(value_); }
  /// Holds a double.
  bool isDouble() const { return std::holds_alternative<double>(value_); }
  /// Holds a boolean.
  bool isBool() const { return std::holds_alternative<bool>(value_); }
  /// Holds a list of strings.
  bool isList() const { return std::holds_alternative<StringList>(value_); }

  /// Typed access; nullptr when the value holds another type.
  const std::string* asString() const { return std::get_if<std::string>(&value_); }
  /// The integer, or nullptr.
  const std::int64_t* asInteger() const { return std::get_if<std::int64_t>(&value_); }
  /// The 32-bit float, or nullptr.
  const float* asFloat() const { return std::get_if<float>(&value_); }
  /// The double, or nullptr.
  const double* asDouble() const { return std::get_if<double>(&value_); }
  /// The boolean, or nullptr.
  const bool* asBool() const { return std::get_if<bool>(&value_); }
  /// The list, or nullptr.
  const StringList* asList() const { return std::get_if<StringList>(&value_); }

  /// The plain text of a scalar as it goes into a query ("5", "12.5", "true", "abc").
  /// A list gives its elements joined by ", " (lists are never sent as one item).
  std::string text() const;

  /// Textual description in the style of the debug lines: strings quoted, lists in
  /// brackets (`"abc"`, `5`, `12.5`, `true`, `["a", "b"]`).
  std::string description() const;

  /// Same kind and same value.
  friend bool operator==(const ParamValue&, const ParamValue&) = default;

 private:
  Variant value_;
};

/// The shortest decimal text that reads back as the same 32-bit float, always with a
/// fractional part ("12.5", "10.0", "0.1"); exponent form beyond 2^24 and below 1e-4
/// ("1.6777216e+07", "1e-05"), "nan", "inf", "-inf".
std::string floatText(float value);

/// The same for a double: the shortest text that reads back as the same double, with a
/// fractional part ("12345678.9", "3.0"); exponent form from 2^53 and below 1e-4.
std::string doubleText(double value);

/// A string-keyed parameter dictionary with unique keys. Entries iterate in insertion
/// order; setting an existing key replaces its value in place.
class Parameters {
 public:
  /// A key and its value.
  using Entry = std::pair<std::string, ParamValue>;
  /// Iterates the entries in insertion order.
  using const_iterator = std::vector<Entry>::const_iterator;

  Parameters() = default;
  /// The entries in order; a repeated key replaces the earlier value in place.
  Parameters(std::initializer_list<Entry> entries);

  /// Inserts or replaces.
  Parameters& set(std::string key, ParamValue value);
  /// Inserts every entry of `other`; where a key exists, `other`'s value replaces it.
  Parameters& merge(const Parameters& other);
  /// Removes `key` if present; returns whether it was.
  bool erase(std::string_view key);

  /// The value under `key`, or nullptr when absent.
  const ParamValue* find(std::string_view key) const;
  /// Whether `key` is present.
  bool contains(std::string_view key) const { return find(key) != nullptr; }
  /// Number of entries.
  std::size_t size() const { return entries_.size(); }
  /// Whether there are no entries.
  bool empty() const { return entries_.empty(); }
  /// First entry, in insertion order.
  const_iterator begin() const { return entries_.begin(); }
  /// Past the last entry.
  const_iterator end() const { return entries_.end(); }

  /// `["key": value, ...]`, or `[:]` when empty.
  std::string description() const;

  /// Same entries in the same order.
  friend bool operator==(const Parameters&, const Parameters&) = default;

 private:
  std::vector<Entry> entries_;
};

/// Description of an optional dictionary: `Optional([...])`, or `nil` when absent.
std::string describeOptional(const Parameters* parameters);

/// A string literal as the debug lines print it: in double quotes; double quotes,
/// apostrophes and backslashes get a backslash, NUL, tab, newline and carriage return
/// their short escapes, and the other ASCII control characters "\u{1B}"-style escapes.
/// Non-ASCII characters stay as they are.
std::string quoteText(std::string_view text);

}  // namespace tavik
