#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "network/http_client.h"
#include "tavik/core/future.h"
#include "tavik/events/event_store.h"

namespace tavik::detail {

struct EventStoreOptions {
  std::string path;
  EventStoreLimits limits;
  bool debug = false;
  /// How long an event may wait in memory before its group is committed. The caller's
  /// durability window is this plus one commit.
  std::chrono::milliseconds commitInterval{20};
  /// Retries (and sends of a stored backlog) handed to the transport at once. The
  /// transport starts them in a lane of their own that yields to any fetch or new event
  /// waiting (and leaves a connection free on a host of the ad services, see
  /// `adOrigins`), so this only bounds what waits there (twice the default connections
  /// per host, as the transport admits).
  std::size_t maxInFlight = 12;
  /// Back-off: the n-th retry waits a random time in [0, min(maxRetryDelay,
  /// retryDelay * 2^n)] (full jitter), and at least the answer's "Retry-After".
  std::chrono::milliseconds retryDelay{1'000};
  std::chrono::milliseconds maxRetryDelay{300'000};
  /// Milliseconds since the epoch; empty = the system clock. Ages are counted with it.
  std::function<std::int64_t()> clock;
  /// Origins ("https://host[:port]") of the ad services. A stored event to one of them
  /// leaves a connection of the host free, so that a fetch never waits behind a backlog;
  /// one to a host of its own may use every connection the transport allows.
  std::vector<std::string> adOrigins;
  /// SQLite's page limit for the database (0 = SQLite's own); a small one makes a full
  /// disk.
  int maxPageCount = 0;
  /// Called on the store's thread with an accepted event's id before its row goes.
  std::function<void(std::int64_t id)> beforeRemovingAccepted;
};

/// How an attempt ended, as the store sees it.
struct AttemptOutcome {
  enum class Kind { accepted, retry, rejected, abandoned };
  Kind kind = Kind::retry;
  std::int64_t retryAfterMs = 0;
  long status = 0;  // HTTP status, 0 for a transport failure
  std::string reason;
};

/// The answer (or the failure) of one event request, classified: 2xx accepted; no
/// connection, name resolution, time-out, TLS, a connection lost, 5xx, 408 and 429 can
/// pass (retry); any other answer never will (rejected); a transport stopped at exit is
/// abandoned (the event stays for the next run).
AttemptOutcome outcomeOf(const Future<HttpResponse>& attempt);

class EventStore;

/// Opens the process-wide store at `options.path` (a store already open at that path is
/// kept). Never throws: a store that cannot be used is reported on the log and leaves
/// the SDK sending without it.
void openEventStore(const EventStoreOptions& options);
/// The process-wide store when it is open at `path` and accepts events, else nullptr.
std::shared_ptr<EventStore> eventStoreAt(const std::string& path);
/// Commits what is pending and stops the store's thread. Rows stay for the next run.
void closeEventStore();

class EventStore : public std::enable_shared_from_this<EventStore> {
 public:
  ~EventStore();

  /// Takes one event whose first attempt goes out now; returns its id, 0 when the store
  /// no longer accepts events (the caller then sends without it). Never waits for disk.
  std::int64_t add(std::string finalUrl, std::int64_t eventTime);
  /// Hands over how an attempt of event `id` ended; `freesSlot` for the store's own
  /// retries, whose end lets the next one start at once.
  void answered(std::int64_t id, AttemptOutcome outcome, bool freesSlot = false);
  bool accepting() const;
  EventStoreStats stats() const;
  const std::string& path() const;

  struct Impl;

 private:
  friend void openEventStore(const EventStoreOptions& options);
  friend void closeEventStore();
  explicit EventStore(std::unique_ptr<Impl> impl);
  void start();
  void close();

  std::unique_ptr<Impl> impl_;
};

}  // namespace tavik::detail
