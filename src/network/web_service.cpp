#include "tavik/network/web_service.h"

#include <algorithm>
#include <cctype>
#include <stdexcept>

#include "network/http_client.h"
#include "network/json_text.h"
#include "network/web_service_internal.h"
#include "tavik/core/error.h"
#include "tavik/core/log.h"
#include "tavik/version.h"

namespace tavik {

const char* sdkVersion() {
  return TAVIK_VERSION;
}

namespace {

std::string describe(const Headers& headers) {
  if (headers.empty()) return "[:]";
  std::string out = "[";
  bool first = true;
  for (const auto& [name, value] : headers) {
    if (!first) out += ", ";
    first = false;
    out += quoteText(name) + ": " + quoteText(value);
  }
  return out + "]";
}

nlohmann::json toJsonValue(const ParamValue& value) {
  struct Visitor {
    nlohmann::json operator()(const std::string& s) const { return s; }
    nlohmann::json operator()(std::int64_t i) const { return i; }
    // Through its shortest text, so 0.1f is written 0.1 and not 0.10000000149011612.
    nlohmann::json operator()(float f) const { return std::stod(floatText(f)); }
    nlohmann::json operator()(double d) const { return d; }
    nlohmann::json operator()(bool b) const { return b; }
    nlohmann::json operator()(const StringList& list) const { return list; }
  };
  return std::visit(Visitor{}, value.variant());
}

// Turns a finished HTTP exchange into the response dictionary and the parsed body, or
// throws: badStatus outside 200-299, the parser's error for a body that is not a JSON
// object or array, failedToEncode when the normalised text cannot be written. Without
// `withText` the dictionary's "data" stays empty and only the parsed body holds the answer
// (writing the text is what such a caller would not read; the parser only accepts
// well-formed UTF-8, so the text could always have been written).
detail::Answer answerOf(const detail::HttpResponse& response, bool withText = true) {
  if (response.status < 200 || response.status >= 300) {
    throw TavikError::badStatus(static_cast<int>(response.status), response.body);
  }
  detail::Answer answer;
  std::string data;
  if (!withText && detail::isJsonContainerText(response.body)) {
    answer.text = response.body;
  } else if (!response.body.empty()) {
    answer.body = detail::parseJsonContainer(response.body);
    if (withText) {
      try {
        data = answer.body.dump();
      } catch (const nlohmann::json::type_error&) {
        throw TavikError::failedToEncode();
      }
    }
  }
  answer.dictionary =
      nlohmann::json{{"status", true},
                     {"response", {{"code", response.status}, {"data", std::move(data)}}},
                     {"error", nullptr}};
  return answer;
}

// An event service answers every event with the same few bytes; parsing and writing them
// again for each event was most of what the transport thread spent on an event beyond
// libcurl's own work. Each thread keeps the dictionary of the last small answer it made.
nlohmann::json dictionaryOf(const detail::HttpResponse& response) {
  constexpr std::size_t kRememberedBytes = 256;
  struct Last {
    long status = -1;
    std::string body;
    nlohmann::json dictionary;
  };
  thread_local Last last;
  const bool small = response.body.size() <= kRememberedBytes;
  if (small && response.status == last.status && response.body == last.body) {
    return last.dictionary;
  }
  nlohmann::json dictionary = std::move(answerOf(response).dictionary);
  if (small) {
    last.status = response.status;
    last.body = response.body;
    last.dictionary = dictionary;
  }
  return dictionary;
}

}  // namespace

std::string ApiUrlResult::description() const {
  return std::string("[\"status\": ") + (status ? "true" : "false") +
         ", \"apiUrl\": " + (apiUrl ? apiUrl->string() : "nil") + "]";
}

void WebService::log(const std::string& text) const {
  if (debug_) detail::debugLine(text);
}

namespace {

// The authority as written must be a host with an optional numeric port, which may be
// empty ("https://host:/" is a valid address without a port). libcurl's parser is
// lenient here ("https:///x" gets the host "x", and "https://https://x" the host "https"
// with an empty port); a doubled scheme (an empty port followed by "//") must fail the
// check instead.
bool wellFormedAuthority(const std::string& text) {
  const auto schemeEnd = text.find("://");
  if (schemeEnd == std::string::npos) return false;
  const auto start = schemeEnd + 3;
  const auto end = text.find_first_of("/?#", start);
  // An empty port right before "//" is a second scheme, not an address without a port.
  if (end != std::string::npos && end > start && text[end - 1] == ':' &&
      text.compare(end, 2, "//") == 0) {
    return false;
  }
  std::string authority = text.substr(start, end == std::string::npos ? end : end - start);
  if (const auto at = authority.rfind('@'); at != std::string::npos) authority.erase(0, at + 1);
  std::string port;
  if (!authority.empty() && authority.front() == '[') {
    const auto close = authority.find(']');
    if (close == std::string::npos) return false;
    if (close + 1 < authority.size()) {
      if (authority[close + 1] != ':') return false;
      port = authority.substr(close + 2);
    }
    authority = authority.substr(0, close + 1);
  } else if (const auto colon = authority.rfind(':'); colon != std::string::npos) {
    port = authority.substr(colon + 1);
    authority.erase(colon);
  }
  if (port.size() > 5 ||
      !std::all_of(port.begin(), port.end(), [](unsigned char c) { return std::isdigit(c); })) {
    return false;
  }
  return !authority.empty();
}

}  // namespace

namespace {

// The address of `urlString` when it passes the checks of `isValidApiUrl`.
std::optional<Url> validApiUrl(const std::string& urlString) {
  const auto blank = [](unsigned char c) { return std::isspace(c) != 0; };
  if (std::all_of(urlString.begin(), urlString.end(), blank)) return std::nullopt;
  if (urlString.starts_with("://")) return std::nullopt;
  auto url = Url::parse(urlString);
  if (!url || url->scheme().empty() || url->host().empty()) return std::nullopt;
  if (!wellFormedAuthority(urlString)) return std::nullopt;
  std::string scheme = url->scheme();
  std::transform(scheme.begin(), scheme.end(), scheme.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (scheme != "https") return std::nullopt;
  return url;
}

}  // namespace

bool WebService::isValidApiUrl(const std::string& urlString) {
  return validApiUrl(urlString).has_value();
}

namespace {

// `url`'s query with `parameters` appended, percent-encoded, a list as repeated "key[]"
// pairs.
std::string queryWith(const Url& url, const Parameters& parameters) {
  std::string query;
  query.reserve(url.query().size() + 32 * parameters.size());
  query = url.query();
  const auto append = [&query](std::string_view name, std::string_view value) {
    if (!query.empty()) query += '&';
    appendPercentEncoded(query, name);
    query += '=';
    appendPercentEncoded(query, value);
  };
  for (const auto& [key, value] : parameters) {
    if (const StringList* list = value.asList()) {
      const std::string name = key + "[]";
      for (const auto& element : *list) append(name, element);
    } else {
      append(key, value.text());
    }
  }
  return query;
}

}  // namespace

Url WebService::makeQueryUrl(const Url& url, const Parameters& parameters) {
  if (parameters.empty()) return url;
  return url.withQuery(queryWith(url, parameters));
}

namespace detail {

std::string queryUrlText(const Url& url, const Parameters& parameters) {
  if (parameters.empty()) return url.string();
  return spliceQuery(url.string(), queryWith(url, parameters));
}

}  // namespace detail

Parameters WebService::enhancedParameters(const std::optional<Parameters>& parameters) {
  Parameters enhanced = parameters ? *parameters : Parameters{};
  enhanced.set("os_version", sdkVersion());
  enhanced.set("os_name", "iOS");
  return enhanced;
}

ApiUrlResult WebService::generateApiUrl(const std::string& urlString,
                                        const std::optional<Parameters>& parameters) const {
  if (debug_) {
    log("Api string = " + urlString);
    log("Api parameters = " + describeOptional(parameters ? &*parameters : nullptr));
  }
  const auto url = validApiUrl(urlString);
  if (!url) throw TavikError::badUrl();
  Url finished = parameters ? makeQueryUrl(*url, *parameters) : *url;
  if (debug_) log("Preprared Api URL = " + finished.string());
  return ApiUrlResult{true, std::move(finished)};
}

namespace {

// What `request` and `requestAnswer` share: the debug lines, the final address, the body
// of POST and PUT, and sending.
Future<detail::HttpResponse> exchange(const WebService& service, const Url& url, HTTPMethod method,
                                      const std::optional<Parameters>& parameters,
                                      const Headers& headers, std::string* sentUrl = nullptr,
                                      bool cancellable = true) {
  const std::string_view methodName = rawValue(method);
  const Parameters enhanced = WebService::enhancedParameters(parameters);
  detail::HttpRequest http;
  // A GET's address is written once, as text: no address object is made for it.
  http.url = method == HTTPMethod::get ? detail::queryUrlText(url, enhanced) : url.string();
  if (service.debug()) {
    detail::debugLine("Api URL = " + url.string());
    detail::debugLine("Api call Method = " + std::string(methodName));
    detail::debugLine("Api parameters = " + describeOptional(parameters ? &*parameters : nullptr));
    detail::debugLine("Api headers = " + describe(headers));
    detail::debugLine("Enhanced parameters = " + enhanced.description());
    detail::debugLine("Final URL = " + http.url);
  }

  if (sentUrl) *sentUrl = http.url;
  http.method = std::string(methodName);
  http.debug = service.debug();
  http.source = detail::RequestSource::webService;
  http.cancellable = cancellable;
  http.headers.assign(headers.begin(), headers.end());
  if (method == HTTPMethod::post || method == HTTPMethod::put) {
    http.headers.emplace_back("Content-Type", "application/json");
    nlohmann::json body = nlohmann::json::object();
    for (const auto& [key, value] : enhanced) body[key] = toJsonValue(value);
    try {
      http.body = body.dump();
    } catch (const nlohmann::json::type_error&) {
      return Future<detail::HttpResponse>::failed(
          std::make_exception_ptr(TavikError::failedToEncode()));
    }
    http.hasBody = true;
  }
  return detail::sendHttpRequest(std::move(http));
}

}  // namespace

Future<nlohmann::json> WebService::request(const Url& url, HTTPMethod method,
                                           const std::optional<Parameters>& parameters,
                                           const Headers& headers) const {
  return exchange(*this, url, method, parameters, headers).then(dictionaryOf);
}

Future<detail::Answer> WebService::requestAnswer(const Url& url, HTTPMethod method,
                                                 const std::optional<Parameters>& parameters,
                                                 const Headers& headers) const {
  return exchange(*this, url, method, parameters, headers).then([](const auto& response) {
    return answerOf(response, false);
  });
}

namespace detail {

Future<HttpResponse> exchangeGet(const WebService& service, const Url& url, std::string* sentUrl,
                                 bool cancellable) {
  return exchange(service, url, HTTPMethod::get, std::nullopt, {}, sentUrl, cancellable);
}

nlohmann::json responseDictionary(const HttpResponse& response) {
  return dictionaryOf(response);
}

}  // namespace detail

}  // namespace tavik
