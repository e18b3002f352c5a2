#pragma once

#include <map>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "tavik/core/future.h"
#include "tavik/core/value.h"
#include "tavik/network/http_method.h"
#include "tavik/network/url.h"

namespace tavik {

namespace detail {
/// The response dictionary together with the answer's body, for code inside the SDK that
/// decodes the body and would otherwise parse the dictionary's "data" text a second time.
/// The dictionary's "data" is left empty: the body is the answer, and writing it back as
/// text is work nobody reads. The body is either `text`, checked to be a JSON object or
/// array and left for the decoder to parse its own way (`body` is then null), or `body`,
/// parsed, for what the fast check refused; both are empty for an empty body.
struct Answer {
  nlohmann::json dictionary;
  nlohmann::json body;
  std::string text;
};
}  // namespace detail

/// Header dictionary of a request.
using Headers = std::map<std::string, std::string>;

/// What `generateApiUrl` returns: `status` true and the finished address.
struct ApiUrlResult {
  /// True when `apiUrl` holds the finished address (always so from `generateApiUrl`).
  bool status = false;
  /// The finished address, query included; absent only when `status` is false.
  std::optional<Url> apiUrl;

  /// `["status": true, "apiUrl": https://...]`, as the debug lines print it.
  std::string description() const;
};

/// The SDK's HTTP layer. A `WebService` is a cheap handle onto the one process-wide HTTP
/// client, so making one per request still reuses warm TLS connections.
///
/// `request` answers with the response dictionary
/// `{"status": true, "response": {"code": <HTTP status>, "data": <body as JSON text>},
///   "error": null}`; "data" is the body re-serialised from its parsed JSON, "" for an
/// empty body.
class WebService {
 public:
  /// `debug`: write the requests' debug lines to the log sink.
  explicit WebService(bool debug) : debug_(debug) {}

  /// Whether this handle writes debug lines.
  bool debug() const { return debug_; }

  /// Validates `urlString` (https only) and appends `parameters` as query items. Throws
  /// `TavikError::badUrl()` for an address that fails `isValidApiUrl`.
  ApiUrlResult generateApiUrl(const std::string& urlString,
                              const std::optional<Parameters>& parameters) const;

  /// Sends one request and returns at once. GET puts the parameters, with "os_version"
  /// and "os_name" added, into the query; POST and PUT send them as a JSON body. The
  /// future completes with the response dictionary, or with `TavikError::badStatus` for
  /// a status outside 200-299, a `TransportError`, the JSON parser's error for a body
  /// that is not a JSON object or array, or `TavikError::failedToEncode`.
  Future<nlohmann::json> request(const Url& url, HTTPMethod method,
                                 const std::optional<Parameters>& parameters,
                                 const Headers& headers = {}) const;

  /// `request`, handing back the parsed body, with the dictionary's "data" left empty.
  Future<detail::Answer> requestAnswer(const Url& url, HTTPMethod method,
                                       const std::optional<Parameters>& parameters,
                                       const Headers& headers = {}) const;

  /// True for an absolute https address with a host (scheme compared case-insensitively).
  static bool isValidApiUrl(const std::string& urlString);
  /// Appends the parameters to the address's existing query: a list as one "key[]" item
  /// per element, any other value as its plain text; names and values percent-encoded.
  static Url makeQueryUrl(const Url& url, const Parameters& parameters);
  /// The parameters with "os_version" (the SDK's version) and "os_name" set.
  static Parameters enhancedParameters(const std::optional<Parameters>& parameters);

 private:
  void log(const std::string& text) const;

  bool debug_;
};

/// The SDK's version string, as sent in "os_version".
const char* sdkVersion();

}  // namespace tavik
