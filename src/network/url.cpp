#include "tavik/network/url.h"

#include <curl/curl.h>

#include <memory>

namespace tavik {

namespace {

struct UrlHandleDeleter {
  void operator()(CURLU* handle) const { curl_url_cleanup(handle); }
};
using UrlHandle = std::unique_ptr<CURLU, UrlHandleDeleter>;

std::string part(CURLU* handle, CURLUPart which) {
  char* value = nullptr;
  if (curl_url_get(handle, which, &value, 0) != CURLUE_OK || value == nullptr) return {};
  std::string out(value);
  curl_free(value);
  return out;
}

}  // namespace

std::optional<Url> Url::parse(std::string_view text) {
  // libcurl reads C strings: text after a NUL byte would silently be dropped.
  if (text.find('\0') != std::string_view::npos) return std::nullopt;
  UrlHandle handle(curl_url());
  if (!handle) return std::nullopt;
  const std::string input(text);
  // Any scheme parses here; which schemes may be used is the caller's decision. The path
  // is kept as given: dot segments ("/a/../b") are not resolved.
  if (curl_url_set(handle.get(), CURLUPART_URL, input.c_str(),
                   CURLU_NON_SUPPORT_SCHEME | CURLU_PATH_AS_IS) != CURLUE_OK) {
    return std::nullopt;
  }
  Url url;
  url.text_ = part(handle.get(), CURLUPART_URL);
  url.scheme_ = part(handle.get(), CURLUPART_SCHEME);
  url.host_ = part(handle.get(), CURLUPART_HOST);
  url.query_ = part(handle.get(), CURLUPART_QUERY);
  if (url.text_.empty() || url.scheme_.empty()) return std::nullopt;
  return url;
}

Url Url::withQuery(const std::string& encodedQuery) const {
  // Splice the query into the normalised text rather than letting the parser rebuild
  // the address, which would re-case the percent-escapes.
  const auto fragmentAt = text_.find('#');
  const std::string head = text_.substr(0, fragmentAt);
  const std::string fragment = fragmentAt == std::string::npos ? "" : text_.substr(fragmentAt);
  const std::string base = head.substr(0, head.find('?'));
  Url url = *this;
  url.text_ = base + (encodedQuery.empty() ? "" : "?" + encodedQuery) + fragment;
  url.query_ = encodedQuery;
  return url;
}

std::string percentEncode(std::string_view text) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(text.size());
  for (unsigned char c : text) {
    const bool unreserved = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                            (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '_' || c == '~';
    if (unreserved) {
      out += static_cast<char>(c);
    } else {
      out += '%';
      out += kHex[c >> 4];
      out += kHex[c & 0xF];
    }
  }
  return out;
}

}  // namespace tavik
