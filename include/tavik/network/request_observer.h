#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

// Watching the requests the SDK sends: an opt-in hook for debugging panels and QA builds
// (check which ad events left the app, with which items, and what came back).
namespace tavik::transport {

/// One request that ended, with its outcome.
struct ObservedRequest {
  /// When the call made the request (the host's call, not when it reached the network).
  std::chrono::system_clock::time_point sentAt;
  /// From the call to the outcome, time spent waiting for a connection included.
  std::chrono::microseconds elapsed{0};
  /// Which service it went to: "ads" (display ads, /v2/bsda and /v2/bsda/pt), "products"
  /// (product-listing ads, /sda and /sda/v1), "events" (/events and the click path
  /// /aclick), "media" (creative images and video the views download), or "other" (any
  /// other address, e.g. one a host sends through `WebService` itself). Ads, products and
  /// events are told apart by the endpoint path the SDK appends to the configured base
  /// address, so they stay exact when one host serves all three.
  std::string service;
  /// "GET", "POST", ...
  std::string method;
  /// The full address as sent, query included.
  std::string url;
  /// The address's path, percent-decoded, e.g. "/v2/bsda" or "/events".
  std::string path;
  /// The query items in the order they were sent, names and values percent-decoded
  /// (a list parameter is one "name[]" item per element).
  std::vector<std::pair<std::string, std::string>> query;
  /// The HTTP status of the answer, 0 when no answer arrived. It can be set together with
  /// `error` when an answer began but did not complete (cut off, too large, timed out).
  long status = 0;
  /// Empty when the exchange completed (whatever its status); otherwise the transport
  /// error's kind and why, e.g. "timeout: no answer within the time-out of 1000 ms" or
  /// "connectionFailed: Couldn't connect to server: ...".
  std::string error;
  /// The transport error's kind name alone ("timeout", "connectionFailed", "cancelled",
  /// "queueFull", ...; see `TransportError::kindName`), empty when `error` is.
  std::string errorKind;
  /// Bytes of the answer's body that were received (0 for a failed request).
  std::size_t bodyBytes = 0;
};

/// An observer: called with each request that ended (see `observeRequests`).
using RequestObserverFn = std::function<void(const ObservedRequest&)>;

/// Keeps one observer installed while it lives. Move-only; destroying it or calling
/// `reset()` removes the observer. Once removal has returned the observer is never
/// called again: removal waits for a call in progress on the transport thread, except
/// when it happens inside that very call (an observer may remove itself or another one).
/// Installing and removing observers is thread-safe; one handle, like any object, is
/// used by one thread at a time.
class RequestObservation {
 public:
  /// Observes nothing.
  RequestObservation() = default;
  ~RequestObservation();
  /// Takes over `other`'s observer; `other` becomes empty.
  RequestObservation(RequestObservation&& other) noexcept;
  /// Removes this handle's observer, then takes over `other`'s; `other` becomes empty.
  RequestObservation& operator=(RequestObservation&& other) noexcept;
  RequestObservation(const RequestObservation&) = delete;
  RequestObservation& operator=(const RequestObservation&) = delete;

  /// Removes the observer now (no-op when already removed or empty).
  void reset();
  /// True while the observer is installed through this handle.
  bool active() const { return id_ != 0; }
  /// `active()`.
  explicit operator bool() const { return active(); }

 private:
  friend RequestObservation observeRequests(RequestObserverFn observer);
  explicit RequestObservation(std::uint64_t id) : id_(id) {}

  std::uint64_t id_ = 0;
};

/// Installs `observer`, called once for every request that ends from now on, with the
/// request and its outcome: an answer (any status), a transport error, a time-out, a
/// cancel, or a refusal because too many requests wait (`queueFull`). Several observers
/// may be installed; each sees every request. Requests abandoned by `shutdown()` or at
/// process exit are not reported, since no host code runs then.
///
/// It is called on the SDK's transport thread, one request at a time, before the
/// request's own future completes (so by the time a fetch's or an event's future is
/// ready, the observers have seen its request); a refused request is reported there
/// just after its call failed. Every transfer waits while it runs: keep it quick (copy
/// the record and hand it over) and never block or wait for an SDK future in it. An
/// exception it throws is dropped. With no observer installed the transport builds no
/// record at all.
///
/// An empty `observer` installs nothing and returns an empty handle.
[[nodiscard]] RequestObservation observeRequests(RequestObserverFn observer);

}  // namespace tavik::transport
