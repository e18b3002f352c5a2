#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tavik/core/error.h"
#include "tavik/core/future.h"

namespace tavik::detail {

/// What made a request: the web service (ad and event calls), the views' creative
/// downloads, the event store sending stored events again, or another direct caller of
/// the transport. Request observers name the service by it. Media requests wait in a lane
/// of their own per origin and hold at most half of its connections, so they never stand
/// in front of an event or an ad fetch. Stored events wait in a lane of their own too and
/// start only while the origin's own lane has nothing waiting and a connection to spare.
enum class RequestSource : std::uint8_t { direct, webService, media, storedEvent };

struct HttpRequest {
  std::string url;
  std::string method = "GET";
  std::vector<std::pair<std::string, std::string>> headers;
  bool hasBody = false;
  std::string body;
  /// Largest answer body accepted; 0 = the transport's `maxBodyBytes`. Creatives (images,
  /// video) ask for `maxMediaBytes` here.
  std::size_t maxBodyBytes = 0;
  /// Writes a debug line when the request is refused (the web service's `debug`).
  bool debug = false;
  RequestSource source = RequestSource::direct;
  /// False for requests whose future is never cancelled (events): no cancel hook is kept.
  bool cancellable = true;
  /// For a stored event: leave one connection of the host free for its own requests, for
  /// a host that also serves ad fetches. A host of its own (the usual event-tracking
  /// host) lends every connection to a backlog; its own requests still go first.
  bool sparesConnection = true;
};

struct HttpResponse {
  long status = 0;
  std::string body;
  /// The answer's "Retry-After" in seconds (a date is turned into the seconds until it);
  /// 0 when the answer has none.
  std::int64_t retryAfterSeconds = 0;
};

/// What a libcurl failure of a request to `url` means, in the SDK's own terms.
TransportError::Kind transportErrorKind(int curlCode, const std::string& url);

/// Starts `request` on the process-wide HTTP client (one libcurl multi handle driven by
/// one I/O thread, sharing warm connections and TLS sessions between all requests) and
/// returns at once. The future completes on the I/O thread with the response, or with a
/// `TransportError`: within the request time-out counted from this call, at once when
/// too many requests already wait for the origin (`queueFull`). `cancel()` on the future
/// (or on one chained on it) removes a waiting request or stops a running transfer; the
/// future then fails with kind `cancelled`. At process exit, requests still waiting or
/// in transfer are abandoned.
Future<HttpResponse> sendHttpRequest(HttpRequest request);

}  // namespace tavik::detail
