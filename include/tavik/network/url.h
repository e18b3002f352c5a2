#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tavik {

/// An absolute address, parsed and normalised by libcurl's URL parser.
class Url {
 public:
  /// nullopt unless `text` parses as an absolute address with a scheme.
  static std::optional<Url> parse(std::string_view text);

  /// The whole normalised address.
  const std::string& string() const { return text_; }
  /// The scheme, e.g. "https".
  const std::string& scheme() const { return scheme_; }
  /// The host name; empty for an address without one.
  const std::string& host() const { return host_; }
  /// The query as it stands in the address (percent-encoded), without '?'.
  const std::string& query() const { return query_; }

  /// The same address with its query replaced by `encodedQuery` (already encoded; empty
  /// removes the query). The fragment, if any, is kept.
  Url withQuery(const std::string& encodedQuery) const;

  /// Same normalised address text.
  friend bool operator==(const Url& a, const Url& b) { return a.text_ == b.text_; }

 private:
  static std::optional<Url> parseAnew(std::string_view text);

  std::string text_;
  std::string scheme_;
  std::string host_;
  std::string query_;
};

/// RFC 3986 percent-encoding of a query name or value: everything but the unreserved
/// characters (A-Z a-z 0-9 - . _ ~) becomes %XX, so a space is "%20" and "+" is "%2B".
std::string percentEncode(std::string_view text);
/// `percentEncode(text)` appended to `out`.
void appendPercentEncoded(std::string& out, std::string_view text);

}  // namespace tavik
