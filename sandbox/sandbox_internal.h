#pragma once

// Pieces of the sandbox that sandbox.cpp wires together; not installed, not public.

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "tavik/sandbox/sandbox.h"

typedef struct x509_st X509;
typedef struct evp_pkey_st EVP_PKEY;

namespace tavik::sandbox::detail {

// ---- query strings (request.cpp)

/// Decodes %XX escapes; malformed escapes stay as they are and '+' stays '+'.
std::string percentDecode(std::string_view text);
/// Splits a raw query into decoded (name, value) items in wire order. Empty items
/// ("a=1&&b=2") are skipped; an item without '=' has an empty value.
std::vector<std::pair<std::string, std::string>> parseQuery(std::string_view rawQuery);
/// Query items as a JSON object: a name seen once maps to its value, a repeated name
/// to the array of its values in wire order.
nlohmann::json queryObject(const std::vector<std::pair<std::string, std::string>>& items);
/// Query items as [[name, value], ...].
nlohmann::json queryPairs(const std::vector<std::pair<std::string, std::string>>& items);

// ---- certificate (certificate.cpp)

/// A self-signed CA:TRUE certificate and its key. Owned for the life of the process.
struct Certificate {
  X509* cert = nullptr;
  EVP_PKEY* key = nullptr;
  std::string pem;  // the certificate in PEM form
  /// A temporary file holding `pem`, removed when the process ends; empty (with the
  /// reason in pemFileError) when it could not be written.
  std::string pemFile;
  std::string pemFileError;
};

/// The certificate for this set of subject alternative names, made on first use and
/// shared afterwards, so several sandboxes in one process can be trusted through one
/// bundle file. Throws std::runtime_error when OpenSSL fails or `names` is empty.
std::shared_ptr<const Certificate> certificateFor(const std::vector<std::string>& names);

// ---- embedded assets (generated at build time from sandbox/assets)

struct EmbeddedAsset {
  const char* name;  // path relative to sandbox/assets, e.g. "media/card_1.png"
  const unsigned char* data;
  std::size_t size;
};
const std::vector<EmbeddedAsset>& embeddedAssets();
std::optional<std::string_view> embeddedAsset(std::string_view name);

// ---- media (media.cpp)

/// The content type of a media file by its extension ("application/octet-stream"
/// when unknown).
std::string mediaContentType(std::string_view fileName);
/// The bytes of /media/<fileName>: from `mediaDir` when given and the file exists
/// there, else from the embedded media. Names holding '/', '\\' or ".." are refused.
std::optional<std::string> loadMedia(std::string_view fileName, const std::string& mediaDir);

// ---- catalogue (catalogue.cpp)

/// The built-in catalogue, or the JSON file `path` when not empty. Throws
/// std::runtime_error naming the file and the fault when it cannot be read or its
/// shape is wrong.
nlohmann::json loadCatalogue(const std::string& path);
/// A copy of `value` with every "{{base}}" inside its strings replaced by `baseUrl`.
nlohmann::json substituteBase(const nlohmann::json& value, const std::string& baseUrl);
/// The answer of /sda and /sda/v1; generated tracking addresses start with `baseUrl`.
nlohmann::json productAdsAnswer(const nlohmann::json& catalogue, const RecordedRequest& request,
                                const std::string& baseUrl);
/// The ads document of /v2/bsda (ad units from "au[]") or /v2/bsda/pt (`byPageType`).
nlohmann::json displayAdsAnswer(const nlohmann::json& catalogue, const RecordedRequest& request,
                                bool byPageType);
/// The answer of GET /shop/products, the shop's own product search (shop.cpp).
nlohmann::json shopProductsAnswer(const nlohmann::json& catalogue, const RecordedRequest& request);

// ---- event log (events.cpp)

/// The tracking events received, in arrival order; safe to use from many threads.
class EventLog {
 public:
  /// Appends the entry for a /events or /aclick request and returns it.
  nlohmann::json append(const RecordedRequest& request);
  nlohmann::json snapshot() const;
  std::size_t size() const;
  void clear();
  bool waitFor(std::size_t count, std::chrono::milliseconds timeout) const;

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<nlohmann::json> entries_;
  std::int64_t nextSeq_ = 1;
};

}  // namespace tavik::sandbox::detail
