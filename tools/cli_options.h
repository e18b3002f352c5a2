#pragma once

// Hand-rolled, table-driven option parsing for the `tavik` tool. Every command lists the
// options it accepts; anything else is a usage error (exit status 2).

#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tavik::cli {

/// Bad usage: unknown command or option, missing or malformed value. Exit status 2.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// One accepted option. A flag has an empty `metavar`; any other option takes a value,
/// either as the next argument or after '=' ("--count=3").
struct OptionSpec {
  std::string_view name;     ///< "--count"
  std::string_view metavar;  ///< "N"; empty for a flag
  std::string_view help;
  bool repeatable = false;
};

using OptionList = std::vector<OptionSpec>;

/// The options and positional arguments of one command line.
class Arguments {
 public:
  bool has(std::string_view name) const;
  /// The value of a single-valued option, when given.
  std::optional<std::string> value(std::string_view name) const;
  std::string valueOr(std::string_view name, std::string fallback) const;
  /// Every value of a repeatable option, in command-line order.
  std::vector<std::string> values(std::string_view name) const;
  const std::vector<std::string>& positionals() const { return positionals_; }

  /// The option as a whole number in [min, max], or `fallback` when absent.
  std::int64_t integer(std::string_view name, std::int64_t fallback, std::int64_t min,
                       std::int64_t max) const;
  /// The option as a finite decimal number, when given.
  std::optional<float> number(std::string_view name) const;

 private:
  friend Arguments parseArguments(const std::vector<std::string>&, const OptionList&, std::size_t);
  std::map<std::string, std::vector<std::string>, std::less<>> options_;
  std::vector<std::string> positionals_;
};

/// Parses `args` against `options`. At most `maxPositionals` non-option arguments are
/// accepted; "-" counts as one, and "--" ends the options. Throws UsageError.
Arguments parseArguments(const std::vector<std::string>& args, const OptionList& options,
                         std::size_t maxPositionals);

/// Whole number in [min, max]; `what` names the value in the error ("--count").
std::int64_t parseInteger(std::string_view text, std::string_view what, std::int64_t min,
                          std::int64_t max);
/// Finite decimal number ("12.5", "3", "1e3").
float parseNumber(std::string_view text, std::string_view what);

/// The options as aligned help lines ("  --count N      how many ads").
std::string describeOptions(const OptionList& options);

/// `a` followed by `b`.
OptionList concat(OptionList a, const OptionList& b);

}  // namespace tavik::cli
