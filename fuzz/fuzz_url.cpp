// Fuzzes address validation and query building.
//
// Input: the first line is the address; every further line is one parameter,
// "<kind><name>=<value>" with kind 's' string, 'i' integer, 'f' float, 'b' boolean
// ("true" or not) or 'l' list (elements separated by tabs). A line with any other first
// byte is a string parameter named by everything before its first '='.
//
// Contract checked for every input:
//  - isValidApiUrl never throws; an address it accepts parses, has a host and the https
//    scheme; Url::parse reads all of its text (a NUL byte does not end it early);
//  - generateApiUrl throws TavikError::badUrl exactly for what isValidApiUrl refuses and
//    nothing else, and otherwise returns status true with an address that is itself a
//    valid API address;
//  - makeQueryUrl (on any address that parses, whatever its scheme) keeps the existing
//    query and appends one item per value: percent-decoding the appended items gives
//    back the parameter names ("key[]" for list elements) and plain values in order;
//    the finished address reads back with the same query;
//  - percentEncode writes only unreserved characters and %XX escapes;
//  - debug lines are single quoted lines starting "TAVIK: - ".

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fuzz_common.h"
#include "tavik/core/error.h"
#include "tavik/core/log.h"
#include "tavik/core/value.h"
#include "tavik/network/url.h"
#include "tavik/network/web_service.h"

namespace {

using tavik::Parameters;
using tavik::ParamValue;
using tavik::TavikError;
using tavik::Url;
using tavik::WebService;
using tavik::fuzz::check;
using tavik::fuzz::undocumented;
using tavik::fuzz::violation;

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  std::size_t start = 0;
  while (true) {
    const auto end = text.find(separator, start);
    parts.push_back(text.substr(start, end == std::string_view::npos ? end : end - start));
    if (end == std::string_view::npos) return parts;
    start = end + 1;
  }
}

ParamValue valueOf(char kind, std::string_view text) {
  switch (kind) {
    case 'i': {
      std::int64_t number = 0;
      std::from_chars(text.data(), text.data() + text.size(), number);
      return ParamValue(number);
    }
    case 'f': {
      float number = 0;
      std::from_chars(text.data(), text.data() + text.size(), number);
      return ParamValue(number);
    }
    case 'b':
      return ParamValue(text == "true");
    case 'l': {
      tavik::StringList list;
      if (!text.empty()) {
        for (const auto element : split(text, '\t')) list.emplace_back(element);
      }
      return ParamValue(std::move(list));
    }
    default:
      return ParamValue(text);
  }
}

Parameters parametersOf(const std::vector<std::string_view>& lines) {
  Parameters parameters;
  for (std::size_t i = 1; i < lines.size(); ++i) {
    std::string_view line = lines[i];
    char kind = 's';
    if (!line.empty() && std::string_view("sifbl").find(line.front()) != std::string_view::npos) {
      kind = line.front();
      line.remove_prefix(1);
    }
    const auto equals = line.find('=');
    const std::string_view name = line.substr(0, equals);
    const std::string_view value =
        equals == std::string_view::npos ? std::string_view() : line.substr(equals + 1);
    parameters.set(std::string(name), valueOf(kind, value));
  }
  return parameters;
}

bool isUnreserved(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '.' || c == '_' || c == '~';
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;  // percentEncode writes upper-case escapes only
}

// Strict inverse of percentEncode; nullopt for anything it would not have written.
std::optional<std::string> percentDecode(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (isUnreserved(text[i])) {
      out += text[i];
      continue;
    }
    if (text[i] != '%' || i + 2 >= text.size()) return std::nullopt;
    const int high = hexDigit(text[i + 1]);
    const int low = hexDigit(text[i + 2]);
    if (high < 0 || low < 0) return std::nullopt;
    out += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return out;
}

void checkPercentEncode(std::string_view text) {
  const std::string encoded = tavik::percentEncode(text);
  const auto decoded = percentDecode(encoded);
  check(decoded.has_value(), "percentEncode", "wrote something other than unreserved or %XX");
  check(*decoded == text, "percentEncode", "decoding the encoded text does not give it back");
}

// makeQueryUrl on `url` with `parameters`: the old query stays in front, and the items
// after it decode to the parameters.
void checkQueryUrl(const Url& url, const Parameters& parameters) {
  Url finished = url;
  try {
    finished = WebService::makeQueryUrl(url, parameters);
  } catch (...) {
    undocumented("makeQueryUrl", std::current_exception());
  }

  std::vector<std::pair<std::string, std::string>> expected;
  for (const auto& [key, value] : parameters) {
    if (const auto* list = value.asList()) {
      for (const auto& element : *list) expected.emplace_back(key + "[]", element);
    } else {
      expected.emplace_back(key, value.text());
    }
  }
  if (parameters.empty()) {
    check(finished == url, "makeQueryUrl", "changed the address without parameters");
    return;
  }

  const std::string& query = finished.query();
  const std::string& before = url.query();
  check(query.starts_with(before), "makeQueryUrl", "existing query not kept in front: " + query);
  std::string_view added = std::string_view(query).substr(before.size());
  if (!before.empty() && !expected.empty()) {
    check(added.starts_with('&'), "makeQueryUrl", "no '&' after the existing query: " + query);
    added.remove_prefix(1);
  }
  std::vector<std::pair<std::string, std::string>> items;
  if (!added.empty() || !expected.empty()) {
    for (const auto item : split(added, '&')) {
      const auto equals = item.find('=');
      check(equals != std::string_view::npos, "makeQueryUrl", "query item without '='");
      const auto name = percentDecode(item.substr(0, equals));
      const auto value = percentDecode(item.substr(equals + 1));
      check(name && value, "makeQueryUrl", "query item not percent-encoded: " + std::string(item));
      items.emplace_back(*name, *value);
    }
  }
  check(items == expected, "makeQueryUrl", "query items differ from the parameters: " + query);

  // The finished text must say what the object says: a parser reads the same query and
  // keeps the address's scheme and host.
  const auto reread = Url::parse(finished.string());
  check(reread.has_value(), "makeQueryUrl",
        "finished address does not parse: " + finished.string());
  check(reread->query() == finished.query(), "makeQueryUrl",
        "finished address reads back with another query: " + finished.string() + " vs " +
            reread->query());
  check(reread->scheme() == url.scheme() && reread->host() == url.host(), "makeQueryUrl",
        "finished address reads back with another scheme or host: " + finished.string());
}

void checkDebugLine(std::string_view line) {
  check(line.starts_with("\"TAVIK: - ") && line.size() >= 11 && line.ends_with('"'), "debug line",
        "not a quoted TAVIK line");
  for (const char c : line) {
    const auto byte = static_cast<unsigned char>(c);
    check(byte >= 0x20 && byte != 0x7f, "debug line", "raw control character in a debug line");
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  tavik::setLogSink(checkDebugLine);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input = tavik::fuzz::asText(data, size);
  const auto lines = split(input, '\n');
  const std::string urlString(lines.front());
  const Parameters parameters = parametersOf(lines);

  bool valid = false;
  try {
    valid = WebService::isValidApiUrl(urlString);
  } catch (...) {
    undocumented("isValidApiUrl", std::current_exception());
  }
  std::optional<Url> parsed;
  try {
    parsed = Url::parse(urlString);
  } catch (...) {
    undocumented("Url::parse", std::current_exception());
  }
  // A NUL byte ends a C string: the text after it must not be silently dropped.
  check(!parsed || urlString.find('\0') == std::string::npos, "Url::parse",
        "parsed an address with a NUL byte in it as " + (parsed ? parsed->string() : ""));
  if (valid) {
    check(parsed.has_value(), "isValidApiUrl", "accepted an address that does not parse");
    check(!parsed->host().empty(), "isValidApiUrl", "accepted an address without a host");
    const std::string& scheme = parsed->scheme();
    check(scheme.size() == 5 && (scheme[0] | 0x20) == 'h' && (scheme[1] | 0x20) == 't' &&
              (scheme[2] | 0x20) == 't' && (scheme[3] | 0x20) == 'p' && (scheme[4] | 0x20) == 's',
          "isValidApiUrl", "accepted a scheme other than https: " + scheme);
  }

  for (const bool debug : {false, true}) {
    const WebService service(debug);
    try {
      const auto result = service.generateApiUrl(urlString, parameters);
      check(valid, "generateApiUrl", "accepted an address isValidApiUrl refuses");
      check(result.status && result.apiUrl.has_value(), "generateApiUrl",
            "success without status or address");
      checkQueryUrl(*parsed, parameters);
      check(WebService::isValidApiUrl(result.apiUrl->string()), "generateApiUrl",
            "finished address is not a valid API address: " + result.apiUrl->string());
      check(*result.apiUrl == WebService::makeQueryUrl(*parsed, parameters), "generateApiUrl",
            "address differs from makeQueryUrl of the parsed address");
    } catch (const TavikError& error) {
      check(error.kind() == TavikError::Case::badUrl, "generateApiUrl",
            "threw a TavikError other than badUrl: " + error.caseName());
      check(!valid, "generateApiUrl", "refused an address isValidApiUrl accepts");
    } catch (...) {
      undocumented("generateApiUrl", std::current_exception());
    }
  }

  // The query building itself, also for schemes the SDK would not send to.
  if (parsed && !valid) checkQueryUrl(*parsed, parameters);
  for (std::size_t i = 1; i < lines.size(); ++i) checkPercentEncode(lines[i]);
  return 0;
}
