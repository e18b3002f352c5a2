#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// The opt-in event store (`TAVIK::Builder::eventStore`): every event the SDK is asked to
// send is kept in an SQLite database until the event service accepted it, retried after
// failures that can pass, and sent again after a restart.
namespace tavik {

/// Bounds of the store. When a bound is reached the oldest events go first (counted as
/// evicted).
struct EventStoreLimits {
  /// Events kept at most.
  std::size_t maxEvents = 100'000;
  /// Stored bytes (the events' addresses) at most.
  std::size_t maxBytes = 32 * 1024 * 1024;
  /// An event older than this (from the call that made it) is given up.
  std::chrono::milliseconds maxAge = std::chrono::hours(24 * 7);
};

/// What the store holds and has done since this process opened it.
struct EventStoreStats {
  /// Whether the store is in use: false when none was asked for, or after it could not
  /// be opened or written (the SDK then sends without it).
  bool active = false;
  /// Events stored and not yet accepted by the service.
  std::uint64_t pending = 0;
  /// Events the service accepted (first attempts and retries).
  std::uint64_t delivered = 0;
  /// Attempts after the first one (retries, and sends of events left by an earlier run).
  std::uint64_t retried = 0;
  /// Events the service refused for good (a 4xx other than 408 and 429): removed.
  std::uint64_t rejected = 0;
  /// Events removed because the store reached `maxEvents` or `maxBytes`.
  std::uint64_t evictedByCap = 0;
  /// Events removed because they were older than `maxAge`.
  std::uint64_t evictedByAge = 0;
};

/// One event as the store keeps it.
struct StoredEvent {
  std::int64_t id = 0;         ///< the order in which the events were made
  std::int64_t eventTime = 0;  ///< "event_time" of the original call
  std::int64_t storedAt = 0;   ///< when the store took it, milliseconds since the epoch
  std::string url;             ///< the exact address every attempt sends
};

namespace events {
/// The event store's counters; all zero and `active` false without a store.
EventStoreStats storeStats();
/// What the store file at `path` holds, oldest first, read without changing it (also
/// while a host has it open). Throws std::runtime_error when it cannot be read.
std::vector<StoredEvent> readStore(const std::string& path);
}  // namespace events

}  // namespace tavik
