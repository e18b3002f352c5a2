#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Process-wide settings of the SDK's one HTTP client. Every `WebService` is a handle onto
// that client, so these apply to all requests started after a change.
namespace tavik::transport {

struct Settings {
  /// Whole-request time-out.
  std::chrono::milliseconds requestTimeout{60'000};
  /// Time-out of establishing a connection (TCP and TLS handshake).
  std::chrono::milliseconds connectTimeout{10'000};
  /// An answer whose body is larger fails with a transport error instead of growing memory.
  std::size_t maxBodyBytes = 8 * 1024 * 1024;
  /// The same limit for creatives the views download (images and video).
  std::size_t maxMediaBytes = 64 * 1024 * 1024;
  /// Redirects followed at most (https only).
  long maxRedirects = 5;
  /// Parallel connections per host; further requests wait for a free connection, which
  /// keeps bursts on a few warm TLS connections.
  long maxConnectionsPerHost = 6;
  /// PEM files whose certificates are trusted in addition to the system's. Trust is only
  /// ever added: peer and host-name verification stay on for every request.
  std::vector<std::string> extraCaBundles;
};

Settings settings();
/// Replaces the settings. Throws std::invalid_argument for an unreadable CA bundle file.
void configure(const Settings& settings);
/// Adds one PEM file to `extraCaBundles` (no-op if already there). Throws
/// std::invalid_argument when the file cannot be read or holds no certificate.
void trustCaBundle(const std::string& pemFile);

struct Stats {
  std::uint64_t requestsStarted = 0;
  std::uint64_t requestsFinished = 0;
  /// New connections the client had to open (each with its TLS handshake).
  std::uint64_t connectionsOpened = 0;
};
Stats stats();

}  // namespace tavik::transport
