#include "events/event_store.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "tavik/core/error.h"
#include "tavik/core/log.h"

namespace tavik::detail {

namespace {

using SteadyClock = std::chrono::steady_clock;

std::int64_t systemMillis() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

// One line on the log whatever the debug switch: the store's state changes are rare and
// the host needs to know when events are no longer kept.
void storeNotice(const std::string& text) {
  writeLogLine("TAVIK: event store: " + text);
}

struct Statement {
  sqlite3_stmt* stmt = nullptr;
  ~Statement() { sqlite3_finalize(stmt); }
};

}  // namespace

AttemptOutcome outcomeOf(const Future<HttpResponse>& attempt) {
  AttemptOutcome outcome;
  try {
    const HttpResponse response = attempt.get();
    outcome.status = response.status;
    if (response.status >= 200 && response.status < 300) {
      outcome.kind = AttemptOutcome::Kind::accepted;
    } else if (response.status >= 500 || response.status == 408 || response.status == 429) {
      outcome.kind = AttemptOutcome::Kind::retry;
      outcome.retryAfterMs = response.retryAfterSeconds * 1000;
    } else {
      outcome.kind = AttemptOutcome::Kind::rejected;
    }
    outcome.reason = "HTTP " + std::to_string(response.status);
  } catch (const TransportError& e) {
    using Kind = TransportError::Kind;
    switch (e.kind()) {
      case Kind::answerTooLarge:
      case Kind::redirectRefused:
        outcome.kind = AttemptOutcome::Kind::rejected;
        break;
      default:
        outcome.kind = AttemptOutcome::Kind::retry;
    }
    outcome.reason = e.kindName();
  } catch (const AbandonedError&) {
    outcome.kind = AttemptOutcome::Kind::abandoned;
  } catch (const std::exception& e) {
    outcome.kind = AttemptOutcome::Kind::retry;
    outcome.reason = e.what();
  }
  return outcome;
}

struct EventStore::Impl {
  explicit Impl(EventStoreOptions o) : options(std::move(o)) {}

  EventStoreOptions options;
  sqlite3* db = nullptr;
  int lockFd = -1;
  std::thread thread;
  std::atomic<std::int64_t> nextId{1};
  std::atomic<bool> accepting{false};

  // Shared with the callers and the transport's thread.
  struct Op {
    std::int64_t id = 0;
    bool add = false;
    std::string url;
    std::int64_t eventTime = 0;
    std::int64_t created = 0;
    AttemptOutcome outcome;
  };
  mutable std::mutex mutex;
  std::condition_variable wake;
  std::vector<Op> ops;
  SteadyClock::time_point firstOp;
  bool stopping = false;
  // Retries handed to the transport and not answered yet, and the slots their answers
  // freed since the thread last looked. The thread is woken to refill slots a few at a
  // time (or when none is left in flight), not once per answer: a backlog then costs
  // the store's thread one wake-up per handful of events.
  std::ptrdiff_t sentUnanswered = 0;
  std::size_t slotsFreed = 0;
  // When the thread sleeps, until when; `min()` while it is awake (it looks at the queue
  // before it sleeps again, so nobody needs to wake it).
  SteadyClock::time_point sleepingUntil = SteadyClock::time_point::min();
  EventStoreStats counters;

  // Whether the freed slots are worth a wake-up (under the mutex).
  bool slotsToFill() const {
    const std::size_t batch = std::max<std::size_t>(1, options.maxInFlight / 3);
    return slotsFreed > 0 && (slotsFreed >= batch || sentUnanswered <= 0);
  }
  // Whether an operation queued now must wake the sleeping thread (under the mutex): for
  // slots to refill, or because the group it starts is due before the thread's alarm.
  bool mustWake(bool first, bool freesSlot) const {
    if (sleepingUntil == SteadyClock::time_point::min()) return false;
    if (freesSlot && slotsToFill()) return true;
    return first && firstOp + options.commitInterval < sleepingUntil;
  }

  // The store thread's own.
  struct Pending {
    std::string url;
    std::int64_t eventTime = 0;
    std::int64_t created = 0;
    int attempts = 0;
    bool stored = false;
    bool inFlight = false;
    bool storeSent = false;      // in flight as a retry, counted against maxInFlight
    std::int64_t notBefore = 0;  // the service's "Retry-After"
  };
  std::map<std::int64_t, Pending> pending;              // by id: oldest first
  std::set<std::pair<std::int64_t, std::int64_t>> due;  // (due time, id)
  std::size_t bytes = 0;
  std::size_t inFlight = 0;
  std::mt19937_64 random{std::random_device{}()};
  std::weak_ptr<EventStore> self;
  int lastError = SQLITE_OK;
  // Changes applied in memory and not written yet, and since when.
  std::vector<std::int64_t> unwrittenAdds, unwrittenRemovals;
  bool unwritten = false;
  SteadyClock::time_point unwrittenSince;

  std::int64_t now() const { return options.clock ? options.clock() : systemMillis(); }

  // Counts on the store's thread, with the pending count of the same moment, so that
  // whoever reads the stats sees the two agree.
  void count(std::uint64_t EventStoreStats::*field, std::uint64_t n = 1) {
    std::lock_guard lock(mutex);
    counters.*field += n;
    counters.pending = pending.size();
  }

  bool exec(const char* sql) {
    return sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
  }

  // Opens (or makes) the database; false when it cannot be used.
  bool openDatabase() {
    const std::string& path = options.path;
    lockFd = ::open((path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (lockFd < 0) {
      storeNotice("cannot open " + path + " (" + std::strerror(errno) +
                  "); events are sent without it");
      return false;
    }
    if (::flock(lockFd, LOCK_EX | LOCK_NB) != 0) {
      storeNotice(path + " is in use by another process; this one sends its events without it");
      ::close(lockFd);
      lockFd = -1;
      return false;
    }
    int code = tryOpen();
    if (code == SQLITE_CORRUPT || code == SQLITE_NOTADB) {
      closeDatabase(false);
      const std::string aside = path + ".corrupt-" + std::to_string(systemMillis());
      std::rename(path.c_str(), aside.c_str());
      std::remove((path + "-wal").c_str());
      std::remove((path + "-shm").c_str());
      storeNotice(path + " is corrupt (" + sqlite3_errstr(code) + "); moved aside to " + aside +
                  ", a fresh store begins");
      code = tryOpen();
    }
    if (code != SQLITE_OK) {
      storeNotice("cannot use " + path + " (" + sqlite3_errstr(code) +
                  "); events are sent without it");
      closeDatabase(true);
      return false;
    }
    return true;
  }

  int tryOpen() {
    int code =
        sqlite3_open_v2(options.path.c_str(), &db,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    if (code != SQLITE_OK) return code;
    sqlite3_extended_result_codes(db, 0);
    const auto step = [&](const std::string& sql) {
      if (code == SQLITE_OK) code = sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr);
    };
    step("PRAGMA journal_mode=WAL");
    step("PRAGMA synchronous=NORMAL");
    if (options.maxPageCount > 0) {
      step("PRAGMA max_page_count=" + std::to_string(options.maxPageCount));
    }
    step(
        "CREATE TABLE IF NOT EXISTS events(id INTEGER PRIMARY KEY, url TEXT NOT NULL, "
        "event_time INTEGER NOT NULL, created INTEGER NOT NULL)");
    if (code != SQLITE_OK) return code;
    Statement check;
    code = sqlite3_prepare_v2(db, "PRAGMA quick_check(1)", -1, &check.stmt, nullptr);
    if (code == SQLITE_OK && sqlite3_step(check.stmt) == SQLITE_ROW) {
      const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(check.stmt, 0));
      if (!text || std::string(text) != "ok") return SQLITE_CORRUPT;
    } else if (code == SQLITE_OK) {
      code = sqlite3_errcode(db);
    }
    if (code != SQLITE_OK) return code;
    Statement last;
    code =
        sqlite3_prepare_v2(db, "SELECT COALESCE(MAX(id), 0) FROM events", -1, &last.stmt, nullptr);
    if (code != SQLITE_OK) return code;
    if (sqlite3_step(last.stmt) != SQLITE_ROW) return sqlite3_errcode(db);
    nextId = sqlite3_column_int64(last.stmt, 0) + 1;
    Statement rows;
    code = sqlite3_prepare_v2(db, "SELECT COUNT(*) FROM events", -1, &rows.stmt, nullptr);
    if (code != SQLITE_OK) return code;
    if (sqlite3_step(rows.stmt) != SQLITE_ROW) return sqlite3_errcode(db);
    // Counted before the thread loads them, so the stats show the backlog from build on.
    counters.pending = static_cast<std::uint64_t>(sqlite3_column_int64(rows.stmt, 0));
    return SQLITE_OK;
  }

  void closeDatabase(bool releaseLock) {
    if (db) sqlite3_close_v2(db);
    db = nullptr;
    if (releaseLock && lockFd >= 0) {
      ::close(lockFd);
      lockFd = -1;
    }
  }

  // The database failed a write: the SDK goes on without it, events in memory are still
  // retried until this process ends.
  void fail(const char* what) {
    const int code = lastError != SQLITE_OK ? lastError : db ? sqlite3_errcode(db) : SQLITE_ERROR;
    storeNotice(std::string(what) + " " + options.path + " failed (" + sqlite3_errstr(code) +
                "); events are sent without the store from now on");
    accepting = false;
    {
      std::lock_guard lock(mutex);
      counters.active = false;
    }
    closeDatabase(true);
  }

  // Reads the rows an earlier run left; they go out at once, oldest first.
  void loadBacklog() {
    Statement select;
    if (sqlite3_prepare_v2(db, "SELECT id, url, event_time, created FROM events ORDER BY id", -1,
                           &select.stmt, nullptr) != SQLITE_OK) {
      fail("reading");
      return;
    }
    const std::int64_t start = now();
    int code;
    while ((code = sqlite3_step(select.stmt)) == SQLITE_ROW) {
      Pending row;
      const std::int64_t id = sqlite3_column_int64(select.stmt, 0);
      const auto* url = reinterpret_cast<const char*>(sqlite3_column_text(select.stmt, 1));
      row.url = url ? url : "";
      row.eventTime = sqlite3_column_int64(select.stmt, 2);
      row.created = sqlite3_column_int64(select.stmt, 3);
      row.stored = true;
      bytes += row.url.size();
      pending.emplace(id, std::move(row));
      due.emplace(start, id);
    }
    if (code != SQLITE_DONE) {
      fail("reading");
      return;
    }
    std::lock_guard lock(mutex);
    counters.pending = pending.size();
  }

  std::int64_t backoff(int attempts, std::int64_t retryAfterMs) {
    const std::int64_t first = options.retryDelay.count();
    const std::int64_t cap = options.maxRetryDelay.count();
    std::int64_t window = first;
    for (int i = 1; i < attempts && window < cap; ++i) window *= 2;
    window = std::min(window, cap);
    std::uniform_int_distribution<std::int64_t> jitter(0, std::max<std::int64_t>(window, 0));
    return std::max(jitter(random), retryAfterMs);
  }

  // An accepted attempt shows the service is back: events waiting out their back-off go
  // now, oldest first (still at most maxInFlight at once), rather than minutes later.
  void pullRetriesForward(std::int64_t at) {
    if (due.empty() || due.rbegin()->first <= at) return;
    std::set<std::pair<std::int64_t, std::int64_t>> now;
    for (const auto& [when, id] : due) {
      const auto row = pending.find(id);
      const std::int64_t notBefore = row == pending.end() ? 0 : row->second.notBefore;
      now.emplace(std::min(when, std::max(at, notBefore)), id);
    }
    due.swap(now);
  }

  void forget(std::int64_t id, std::vector<std::int64_t>& removals) {
    auto it = pending.find(id);
    if (it == pending.end()) return;
    if (it->second.stored) removals.push_back(id);
    if (it->second.storeSent && it->second.inFlight) --inFlight;
    bytes -= it->second.url.size();
    pending.erase(it);
  }

  // Applies one group: new events, outcomes, evictions; one transaction.
  void apply(std::vector<Op>& group) {
    std::vector<std::int64_t>& added = unwrittenAdds;
    std::vector<std::int64_t>& removals = unwrittenRemovals;
    const std::int64_t at = now();
    for (auto& op : group) {
      if (op.add) {
        Pending row;
        row.url = std::move(op.url);
        row.eventTime = op.eventTime;
        row.created = op.created;
        row.inFlight = true;
        bytes += row.url.size();
        pending.emplace(op.id, std::move(row));
        added.push_back(op.id);
        continue;
      }
      auto it = pending.find(op.id);
      if (it == pending.end()) continue;  // evicted while in flight
      Pending& row = it->second;
      if (row.storeSent && row.inFlight) --inFlight;
      row.inFlight = false;
      row.storeSent = false;
      switch (op.outcome.kind) {
        case AttemptOutcome::Kind::accepted:
          pullRetriesForward(at);
          if (options.beforeRemovingAccepted) options.beforeRemovingAccepted(op.id);
          forget(op.id, removals);
          count(&EventStoreStats::delivered);
          break;
        case AttemptOutcome::Kind::rejected:
          if (options.debug) {
            debugLine("event store: the service refused an event for good (" + op.outcome.reason +
                      "), removed: " + row.url);
          }
          forget(op.id, removals);
          count(&EventStoreStats::rejected);
          break;
        case AttemptOutcome::Kind::retry:
          ++row.attempts;
          row.notBefore = at + op.outcome.retryAfterMs;
          due.emplace(at + backoff(row.attempts, op.outcome.retryAfterMs), op.id);
          break;
        case AttemptOutcome::Kind::abandoned:
          break;  // the transport stopped at exit: the row waits for the next run
      }
    }
    evict(at, removals);
  }

  // Writes what the groups applied since the last commit changed, in one transaction.
  void flush() {
    if (db && !(unwrittenAdds.empty() && unwrittenRemovals.empty()) &&
        !write(unwrittenAdds, unwrittenRemovals)) {
      fail("writing to");
    }
    unwrittenAdds.clear();
    unwrittenRemovals.clear();
    unwritten = false;
  }

  void evict(std::int64_t at, std::vector<std::int64_t>& removals) {
    const std::int64_t oldest = at - options.limits.maxAge.count();
    std::uint64_t byAge = 0, byCap = 0;
    while (!pending.empty()) {
      const auto& [id, row] = *pending.begin();
      if (row.created < oldest) {
        ++byAge;
      } else if (pending.size() > options.limits.maxEvents || bytes > options.limits.maxBytes) {
        ++byCap;
      } else {
        break;
      }
      forget(id, removals);
    }
    if (byAge) count(&EventStoreStats::evictedByAge, byAge);
    if (byCap) count(&EventStoreStats::evictedByCap, byCap);
  }

  bool write(const std::vector<std::int64_t>& added, const std::vector<std::int64_t>& removals) {
    if (!exec("BEGIN")) return false;
    bool ok = true;
    if (!added.empty()) {
      Statement insert;
      ok =
          sqlite3_prepare_v2(db, "INSERT INTO events(id, url, event_time, created) VALUES(?,?,?,?)",
                             -1, &insert.stmt, nullptr) == SQLITE_OK;
      for (std::int64_t id : added) {
        if (!ok) break;
        auto it = pending.find(id);
        if (it == pending.end()) continue;  // answered or evicted within the group
        sqlite3_bind_int64(insert.stmt, 1, id);
        sqlite3_bind_text(insert.stmt, 2, it->second.url.data(),
                          static_cast<int>(it->second.url.size()), SQLITE_STATIC);
        sqlite3_bind_int64(insert.stmt, 3, it->second.eventTime);
        sqlite3_bind_int64(insert.stmt, 4, it->second.created);
        ok = sqlite3_step(insert.stmt) == SQLITE_DONE;
        sqlite3_reset(insert.stmt);
        if (ok) it->second.stored = true;
      }
    }
    if (ok && !removals.empty()) {
      Statement remove;
      ok = sqlite3_prepare_v2(db, "DELETE FROM events WHERE id = ?", -1, &remove.stmt, nullptr) ==
           SQLITE_OK;
      for (std::int64_t id : removals) {
        if (!ok) break;
        sqlite3_bind_int64(remove.stmt, 1, id);
        ok = sqlite3_step(remove.stmt) == SQLITE_DONE;
        sqlite3_reset(remove.stmt);
      }
    }
    if (ok) ok = exec("COMMIT");
    if (!ok) {
      lastError = sqlite3_errcode(db);
      exec("ROLLBACK");
      for (std::int64_t id : added) {
        if (auto it = pending.find(id); it != pending.end()) it->second.stored = false;
      }
    }
    return ok;
  }

  // Whether `url` goes to one of the ad services, whose fetches must never wait behind it.
  bool toAdOrigin(const std::string& url) const {
    for (const auto& origin : options.adOrigins) {
      if (origin.empty() || url.compare(0, origin.size(), origin) != 0) continue;
      if (url.size() == origin.size()) return true;
      const char next = url[origin.size()];
      if (next == '/' || next == '?' || next == '#') return true;
    }
    return false;
  }

  // Starts the retries that are due, oldest first, while fewer than maxInFlight run.
  void launchDue() {
    const std::int64_t at = now();
    while (inFlight < options.maxInFlight && !due.empty() && due.begin()->first <= at) {
      const std::int64_t id = due.begin()->second;
      due.erase(due.begin());
      auto it = pending.find(id);
      if (it == pending.end() || it->second.inFlight) continue;
      it->second.inFlight = true;
      it->second.storeSent = true;
      ++inFlight;
      {
        std::lock_guard lock(mutex);
        ++sentUnanswered;
      }
      count(&EventStoreStats::retried);
      HttpRequest request;
      request.url = it->second.url;
      request.debug = options.debug;
      request.source = RequestSource::storedEvent;
      request.sparesConnection = toAdOrigin(request.url);
      request.cancellable = false;
      if (options.debug) debugLine("event store: sending again " + request.url);
      sendHttpRequest(std::move(request))
          .whenReady([weak = self, id](const Future<HttpResponse>& attempt) {
            if (auto store = weak.lock()) store->answered(id, outcomeOf(attempt), true);
          });
    }
  }

  void run() {
    loadBacklog();
    std::vector<Op> group;
    while (true) {
      bool stop = false;
      {
        std::unique_lock lock(mutex);
        // Sleeps until a commit is due, a retry's slot came free, a retry is due, or a row
        // may have aged; an event arriving in an empty queue wakes it to set its alarm.
        while (!stopping) {
          const auto at = SteadyClock::now();
          if (!ops.empty() && (slotsToFill() || at >= firstOp + options.commitInterval)) break;
          const auto deadline = nextWake(at);
          if (at >= deadline) break;
          sleepingUntil = deadline;
          wake.wait_until(lock, deadline);
          sleepingUntil = SteadyClock::time_point::min();
        }
        stop = stopping;
        if (!ops.empty()) {
          if (!unwritten) {
            unwritten = true;
            unwrittenSince = firstOp;
          }
          group.swap(ops);
        }
        slotsFreed = 0;
      }
      // Applied in memory at once, so a freed slot takes the next retry now; written to
      // the database once per commit interval.
      apply(group);
      group.clear();
      if (stop || (unwritten && SteadyClock::now() >= unwrittenSince + options.commitInterval)) {
        flush();
      }
      {
        std::lock_guard lock(mutex);
        counters.pending = pending.size();
      }
      if (stop) break;
      launchDue();
    }
  }

  // The next moment the thread has work: a group to commit, a retry due, an event to age.
  SteadyClock::time_point nextWake(SteadyClock::time_point at) const {
    auto wakeAt = at + std::chrono::seconds(1);
    if (!ops.empty()) wakeAt = std::min(wakeAt, firstOp + options.commitInterval);
    if (unwritten) wakeAt = std::min(wakeAt, unwrittenSince + options.commitInterval);
    if (!due.empty() && inFlight < options.maxInFlight) {
      const auto in =
          std::chrono::milliseconds(std::max<std::int64_t>(due.begin()->first - now(), 0));
      wakeAt = std::min(wakeAt, at + in);
    }
    return wakeAt;
  }
};

EventStore::EventStore(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

EventStore::~EventStore() {
  close();
}

void EventStore::start() {
  impl_->accepting = true;
  impl_->counters.active = true;
  impl_->thread = std::thread([impl = impl_.get()] { impl->run(); });
}

void EventStore::close() {
  {
    std::lock_guard lock(impl_->mutex);
    impl_->stopping = true;
  }
  impl_->accepting = false;
  impl_->wake.notify_all();
  if (impl_->thread.joinable()) {
    if (impl_->thread.get_id() == std::this_thread::get_id()) {
      impl_->thread.detach();
    } else {
      impl_->thread.join();
    }
  }
  impl_->closeDatabase(true);
}

std::int64_t EventStore::add(std::string finalUrl, std::int64_t eventTime) {
  if (!impl_->accepting.load(std::memory_order_relaxed)) return 0;
  Impl::Op op;
  const std::int64_t id = impl_->nextId.fetch_add(1, std::memory_order_relaxed);
  op.id = id;
  op.add = true;
  op.url = std::move(finalUrl);
  op.eventTime = eventTime;
  // The call's own "event_time" is the moment it was kept (ages count from it), unless a
  // test runs the store on a clock of its own.
  op.created = impl_->options.clock ? impl_->options.clock() : eventTime;
  bool first, wake;
  {
    std::lock_guard lock(impl_->mutex);
    if (impl_->stopping) return 0;
    first = impl_->ops.empty();
    if (first) impl_->firstOp = SteadyClock::now();
    impl_->ops.push_back(std::move(op));
    wake = impl_->mustWake(first, false);
  }
  if (wake) impl_->wake.notify_one();
  return id;
}

void EventStore::answered(std::int64_t id, AttemptOutcome outcome, bool freesSlot) {
  Impl::Op op;
  op.id = id;
  op.outcome = std::move(outcome);
  bool wake;
  {
    std::lock_guard lock(impl_->mutex);
    if (impl_->stopping) return;
    const bool first = impl_->ops.empty();
    if (first) impl_->firstOp = SteadyClock::now();
    impl_->ops.push_back(std::move(op));
    if (freesSlot) {
      --impl_->sentUnanswered;
      ++impl_->slotsFreed;
    }
    wake = impl_->mustWake(first, freesSlot);
  }
  if (wake) impl_->wake.notify_one();
}

bool EventStore::accepting() const {
  return impl_->accepting.load(std::memory_order_relaxed);
}

EventStoreStats EventStore::stats() const {
  std::lock_guard lock(impl_->mutex);
  return impl_->counters;
}

const std::string& EventStore::path() const {
  return impl_->options.path;
}

namespace {

std::mutex slotMutex;
std::shared_ptr<EventStore>& slot() {
  static auto* store = new std::shared_ptr<EventStore>();
  return *store;
}

// Commits the last group and stops the thread when the process ends normally.
struct CloseAtExit {
  ~CloseAtExit() { closeEventStore(); }
};

}  // namespace

void openEventStore(const EventStoreOptions& options) {
  static CloseAtExit closer;
  std::lock_guard lock(slotMutex);
  if (slot() && slot()->path() == options.path && slot()->accepting()) return;
  if (slot()) slot()->close();
  slot().reset();
  auto impl = std::make_unique<EventStore::Impl>(options);
  if (!impl->openDatabase()) return;
  std::shared_ptr<EventStore> store(new EventStore(std::move(impl)));
  store->impl_->self = store;
  store->start();
  slot() = std::move(store);
}

std::shared_ptr<EventStore> eventStoreAt(const std::string& path) {
  std::lock_guard lock(slotMutex);
  const auto& store = slot();
  if (store && store->accepting() && store->path() == path) return store;
  return nullptr;
}

void closeEventStore() {
  std::shared_ptr<EventStore> store;
  {
    std::lock_guard lock(slotMutex);
    store = slot();
  }
  if (store) store->close();
}

}  // namespace tavik::detail

namespace tavik::events {

EventStoreStats storeStats() {
  std::shared_ptr<detail::EventStore> store;
  {
    std::lock_guard lock(detail::slotMutex);
    store = detail::slot();
  }
  return store ? store->stats() : EventStoreStats{};
}

std::vector<StoredEvent> readStore(const std::string& path) {
  sqlite3* db = nullptr;
  const auto failure = [&](const std::string& what) {
    const std::string message =
        "cannot read the event store " + path + ": " + (db ? sqlite3_errmsg(db) : what);
    sqlite3_close_v2(db);
    return std::runtime_error(message);
  };
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
    throw failure("cannot open it");
  }
  detail::Statement select;
  if (sqlite3_prepare_v2(db, "SELECT id, event_time, created, url FROM events ORDER BY id", -1,
                         &select.stmt, nullptr) != SQLITE_OK) {
    throw failure("");
  }
  std::vector<StoredEvent> rows;
  int code;
  while ((code = sqlite3_step(select.stmt)) == SQLITE_ROW) {
    StoredEvent row;
    row.id = sqlite3_column_int64(select.stmt, 0);
    row.eventTime = sqlite3_column_int64(select.stmt, 1);
    row.storedAt = sqlite3_column_int64(select.stmt, 2);
    const auto* url = reinterpret_cast<const char*>(sqlite3_column_text(select.stmt, 3));
    row.url = url ? url : "";
    rows.push_back(std::move(row));
  }
  if (code != SQLITE_DONE) throw failure("");
  sqlite3_finalize(select.stmt);
  select.stmt = nullptr;
  sqlite3_close_v2(db);
  return rows;
}

}  // namespace tavik::events
