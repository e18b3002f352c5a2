#include "tavik/network/url.h"

#include "network/web_service_internal.h"

#include <curl/curl.h>

#include <algorithm>
#include <array>
#include <memory>
#include <utility>

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

// libcurl's URL parser allocates every part it hands out: parsing the same address for
// each event cost more than the rest of building the event. Parsing is a pure function of
// the text, so each thread keeps its last few results.
template <class Value>
class RecentResults {
 public:
  const Value* find(std::string_view key) const {
    for (std::size_t i = 0; i < used_; ++i) {
      if (entries_[i].first == key) return &entries_[i].second;
    }
    return nullptr;
  }
  const Value& add(std::string_view key, Value value) {
    auto& entry = entries_[next_];
    entry.first.assign(key);
    entry.second = std::move(value);
    next_ = (next_ + 1) % kEntries;
    used_ = std::min(used_ + 1, kEntries);
    return entry.second;
  }

 private:
  static constexpr std::size_t kEntries = 4;
  std::array<std::pair<std::string, Value>, kEntries> entries_;
  std::size_t next_ = 0;  // the entry the next miss replaces
  std::size_t used_ = 0;
};

}  // namespace

std::optional<Url> Url::parse(std::string_view text) {
  thread_local RecentResults<std::optional<Url>> recent;
  if (const auto* known = recent.find(text)) return *known;
  return recent.add(text, parseAnew(text));
}

std::optional<Url> Url::parseAnew(std::string_view text) {
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

namespace detail {

std::string spliceQuery(std::string_view text, std::string_view encodedQuery) {
  const auto fragmentAt = std::min(text.find('#'), text.size());
  const auto baseEnd = std::min(text.substr(0, fragmentAt).find('?'), fragmentAt);
  std::string out;
  out.reserve(baseEnd + 1 + encodedQuery.size() + (text.size() - fragmentAt));
  out.append(text.substr(0, baseEnd));
  if (!encodedQuery.empty()) {
    out += '?';
    out += encodedQuery;
  }
  out.append(text.substr(fragmentAt));
  return out;
}

}  // namespace detail

Url Url::withQuery(const std::string& encodedQuery) const {
  // Splice the query into the normalised text rather than letting the parser rebuild
  // the address, which would re-case the percent-escapes.
  Url url;
  url.text_ = detail::spliceQuery(text_, encodedQuery);
  url.scheme_ = scheme_;
  url.host_ = host_;
  url.query_ = encodedQuery;
  return url;
}

std::string percentEncode(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  appendPercentEncoded(out, text);
  return out;
}

void appendPercentEncoded(std::string& out, std::string_view text) {
  static constexpr char kHex[] = "0123456789ABCDEF";
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
}

}  // namespace tavik
