#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "tavik/core/future.h"

namespace tavik::detail {

struct HttpRequest {
  std::string url;
  std::string method = "GET";
  std::vector<std::pair<std::string, std::string>> headers;
  bool hasBody = false;
  std::string body;
  /// Largest answer body accepted; 0 = the transport's `maxBodyBytes`. Creatives (images,
  /// video) ask for `maxMediaBytes` here.
  std::size_t maxBodyBytes = 0;
};

struct HttpResponse {
  long status = 0;
  std::string body;
};

/// Starts `request` on the process-wide HTTP client (one libcurl multi handle driven by
/// one I/O thread, sharing warm connections and TLS sessions between all requests) and
/// returns at once. The future completes on the I/O thread with the response, or with a
/// `TransportError`. At process exit, requests still in flight are abandoned.
Future<HttpResponse> sendHttpRequest(HttpRequest request);

}  // namespace tavik::detail
