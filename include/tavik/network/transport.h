#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Process-wide settings of the SDK's one HTTP client. Every `WebService` is a handle onto
// that client, so these apply to all requests started after a change.
namespace tavik::transport {

/// Limits and trust of the HTTP client; read with `settings()`, changed with `configure()`.
struct Settings {
  /// Whole-request time-out, counted from the call that made the request: time spent
  /// waiting behind other requests of the same origin counts. Every request ends, with
  /// its answer or an error, within about this time. It is the only time-out: setting up
  /// a connection (TCP and TLS handshake) counts against it too.
  std::chrono::milliseconds requestTimeout{60'000};
  /// An answer whose body is larger fails with a transport error instead of growing memory.
  std::size_t maxBodyBytes = 8 * 1024 * 1024;
  /// The same limit for creatives the views download (images and video).
  std::size_t maxMediaBytes = 64 * 1024 * 1024;
  /// Redirects followed at most (https only).
  long maxRedirects = 5;
  /// Parallel connections per host; further requests wait for a free connection, which
  /// keeps bursts on a few warm TLS connections. The views' creative downloads wait in a
  /// queue of their own and use at most half of these (one when there is only one), so
  /// events and ad fetches always find a free connection however many creatives load.
  long maxConnectionsPerHost = 6;
  /// Requests that may wait per origin (scheme, host and port) for a free place in the
  /// transport, beyond those already in transfer. A request made while this many wait
  /// fails at once with `TransportError` kind `queueFull` (through `onError`, as
  /// `defaultError`) and is never sent. With the time-out counted from the call, the
  /// queue only holds what arrives within one time-out; a waiting request costs about
  /// 2 KiB.
  std::size_t maxQueuedPerOrigin = 20'000;
  /// How long process exit waits for the SDK's threads when a continuation is still
  /// running on one of them; after that the exit goes on without them.
  std::chrono::milliseconds exitTimeout{1'000};
  /// PEM files whose certificates are trusted in addition to the system's. Trust is only
  /// ever added: peer and host-name verification stay on for every request.
  std::vector<std::string> extraCaBundles;
};

/// A copy of the settings in force.
Settings settings();
/// Replaces the settings. Throws std::invalid_argument for an unreadable CA bundle file.
void configure(const Settings& settings);
/// Adds one PEM file to `extraCaBundles` (no-op if already there). Throws
/// std::invalid_argument when the file cannot be read or holds no certificate.
void trustCaBundle(const std::string& pemFile);

/// Counters of the HTTP client since the process started; read with `stats()`.
struct Stats {
  /// Requests accepted into the transport (refused ones not counted).
  std::uint64_t requestsStarted = 0;
  /// Accepted requests that ended, with an answer or an error.
  std::uint64_t requestsFinished = 0;
  /// New connections the client had to open (each with its TLS handshake).
  std::uint64_t connectionsOpened = 0;
  /// Requests refused because `maxQueuedPerOrigin` were already waiting.
  std::uint64_t requestsRefused = 0;
  /// Requests that ended cancelled.
  std::uint64_t requestsCancelled = 0;
  /// Requests whose time-out ran out while they were still waiting for their turn.
  std::uint64_t timedOutWhileWaiting = 0;
  /// The most requests that waited for one origin at the same time.
  std::uint64_t peakWaiting = 0;
};
/// A snapshot of the counters.
Stats stats();

/// Stops the transport now instead of at exit: requests still waiting or in transfer
/// are abandoned (their futures fail with `AbandonedError`, no continuation and no
/// `onError` runs), and later requests are abandoned at once. Waits at most
/// `exitTimeout` for a continuation still running. A host whose continuations touch
/// its own static objects calls it before those objects are destroyed (for example at
/// the end of `main`); see "Exit" in the README.
void shutdown();

}  // namespace tavik::transport
