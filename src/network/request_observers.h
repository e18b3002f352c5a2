#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "network/http_client.h"
#include "tavik/core/error.h"

// The transport's side of request observers (tavik/network/request_observer.h).
namespace tavik::detail {

/// How many observers are installed. The transport reads it, relaxed, where a request
/// ends; while it is 0 nothing else of this file runs.
extern std::atomic<std::size_t> installedRequestObservers;

inline bool requestObserversInstalled() {
  return installedRequestObservers.load(std::memory_order_relaxed) != 0;
}

/// How a request ended.
struct RequestOutcome {
  long status = 0;            // HTTP status, 0 when no answer arrived
  std::size_t bodyBytes = 0;  // body bytes received
  bool failed = false;        // a transport error; `kind` and `reason` say which
  TransportError::Kind kind = TransportError::Kind::other;
  std::string_view reason;  // why, without the address (that is in the record)

  static RequestOutcome answer(long status, std::size_t bodyBytes) {
    RequestOutcome outcome;
    outcome.status = status;
    outcome.bodyBytes = bodyBytes;
    return outcome;
  }
  static RequestOutcome failure(TransportError::Kind kind, std::string_view reason,
                                long status = 0) {
    RequestOutcome outcome;
    outcome.status = status;
    outcome.failed = true;
    outcome.kind = kind;
    outcome.reason = reason;
    return outcome;
  }
};

/// Builds the record of a request that ended and hands it to each installed observer,
/// on the calling thread (the transport's I/O thread), one after the other.
void reportRequest(const HttpRequest& request, std::chrono::steady_clock::time_point called,
                   std::chrono::steady_clock::time_point ended, const RequestOutcome& outcome);

/// The service a request went to, as `ObservedRequest::service` names it, from its
/// source and its decoded path.
std::string_view serviceOf(const HttpRequest& request, std::string_view path);

/// Records built since the process started: stays 0 while nobody observes.
std::uint64_t requestRecordsBuilt();

}  // namespace tavik::detail
