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
  UrlHandle handle(curl_url());
  if (!handle) return std::nullopt;
  const std::string input(text);
  // Any scheme parses here; which schemes may be used is the caller's decision.
  if (curl_url_set(handle.get(), CURLUPART_URL, input.c_str(), CURLU_NON_SUPPORT_SCHEME) !=
      CURLUE_OK) {
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
  UrlHandle handle(curl_url());
  if (!handle ||
      curl_url_set(handle.get(), CURLUPART_URL, text_.c_str(), CURLU_NON_SUPPORT_SCHEME) !=
          CURLUE_OK ||
      curl_url_set(handle.get(), CURLUPART_QUERY,
                   encodedQuery.empty() ? nullptr : encodedQuery.c_str(), 0) != CURLUE_OK) {
    return *this;
  }
  Url url = *this;
  std::string text = part(handle.get(), CURLUPART_URL);
  if (text.empty()) return *this;
  url.text_ = std::move(text);
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
