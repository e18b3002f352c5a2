// The event store's cost, measured in one run beside the in-memory path:
//   - bursts of 10,000 impressions through a registrar without the store and through one
//     with it, alternating, on the same warm server: the caller's time per event call,
//     events per second (with the store: until every future is done and the store holds
//     nothing) and this process's CPU per event;
//   - a plain SQLite loop that inserts and then deletes the same 10,000 addresses in as
//     many transactions as the store's groups would have been (one per 20 ms of burst);
//   - a backlog of 10,000 stored events drained at start against the in-memory burst.
//
// `tavik_bench_store --drain-only [ROUNDS [shared]]` runs only the drain, ROUNDS times, for
// a profiler (perf record -g, or callgrind with --separate-threads=yes).

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <thread>
#include <vector>

#include "bench_support.h"
#include "events/event_store.h"
#include "tavik/events/register_event.h"

namespace tavik::bench {

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::size_t kEvents = 10'000;

std::string tempPath(const std::string& name) {
  const auto dir =
      std::filesystem::temp_directory_path() / ("tavik-bench-store-" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir);
  return (dir / name).string();
}

void removeDatabase(const std::string& path) {
  for (const char* suffix : {"", "-wal", "-shm", ".lock"}) std::remove((path + suffix).c_str());
}

struct Side {
  double seconds = 0, fireSeconds = 0, fireCpuSeconds = 0, cpuSeconds = 0;
  std::size_t failed = 0;
};

void waitUntilStoreEmpty() {
  while (events::storeStats().pending > 0)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

// Inserts `count` addresses in `groups` transactions, then deletes them the same way:
// what the store would write if every event waited for its answer past a commit.
double plainSqliteLoop(const std::string& path, std::size_t count, std::size_t groups) {
  removeDatabase(path);
  sqlite3* db = nullptr;
  sqlite3_open(path.c_str(), &db);
  sqlite3_exec(db, "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;", nullptr, nullptr,
               nullptr);
  sqlite3_exec(db,
               "CREATE TABLE events(id INTEGER PRIMARY KEY, url TEXT NOT NULL, event_time INTEGER "
               "NOT NULL, created INTEGER NOT NULL)",
               nullptr, nullptr, nullptr);
  const std::string url = server().baseUrl() + "/events?" + eventQueryAt(nowMs());
  sqlite3_stmt* insert = nullptr;
  sqlite3_stmt* remove = nullptr;
  sqlite3_prepare_v2(db, "INSERT INTO events(id, url, event_time, created) VALUES(?,?,?,?)", -1,
                     &insert, nullptr);
  sqlite3_prepare_v2(db, "DELETE FROM events WHERE id = ?", -1, &remove, nullptr);
  const std::size_t perGroup = std::max<std::size_t>(1, count / std::max<std::size_t>(groups, 1));
  const double cpu0 = processCpuSeconds();
  for (sqlite3_stmt* statement : {insert, remove}) {
    for (std::size_t i = 0; i < count;) {
      sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr);
      for (std::size_t n = 0; n < perGroup && i < count; ++n, ++i) {
        sqlite3_bind_int64(statement, 1, static_cast<sqlite3_int64>(i + 1));
        if (statement == insert) {
          sqlite3_bind_text(statement, 2, url.data(), static_cast<int>(url.size()), SQLITE_STATIC);
          sqlite3_bind_int64(statement, 3, nowMs());
          sqlite3_bind_int64(statement, 4, nowMs());
        }
        sqlite3_step(statement);
        sqlite3_reset(statement);
      }
      sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
    }
  }
  const double cpu = processCpuSeconds() - cpu0;
  sqlite3_finalize(insert);
  sqlite3_finalize(remove);
  sqlite3_close(db);
  removeDatabase(path);
  return cpu;
}

// Writes `count` stored events as a run killed with its service down would leave them.
void writeBacklog(const std::string& path, std::size_t count) {
  removeDatabase(path);
  sqlite3* db = nullptr;
  sqlite3_open(path.c_str(), &db);
  sqlite3_exec(db,
               "PRAGMA journal_mode=WAL; CREATE TABLE events(id INTEGER PRIMARY KEY, url TEXT NOT "
               "NULL, event_time INTEGER NOT NULL, created INTEGER NOT NULL); BEGIN",
               nullptr, nullptr, nullptr);
  sqlite3_stmt* insert = nullptr;
  sqlite3_prepare_v2(db, "INSERT INTO events(url, event_time, created) VALUES(?,?,?)", -1, &insert,
                     nullptr);
  for (std::size_t i = 0; i < count; ++i) {
    const auto at = nowMs();
    const std::string url = server().baseUrl() + "/events?" + eventQueryAt(at);
    sqlite3_bind_text(insert, 1, url.data(), static_cast<int>(url.size()), SQLITE_TRANSIENT);
    sqlite3_bind_int64(insert, 2, at);
    sqlite3_bind_int64(insert, 3, at);
    sqlite3_step(insert);
    sqlite3_reset(insert);
  }
  sqlite3_finalize(insert);
  sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
  sqlite3_close(db);
}

struct Drain {
  double seconds = 0, cpuSeconds = 0;
};

// Writes a backlog of 10,000, opens the store on it and waits until every event went; with
// `shared`, the event host is one of the ad hosts (a connection is left free).
Drain drainBacklog(bool shared) {
  const std::string backlog = tempPath("backlog.db");
  writeBacklog(backlog, kEvents);
  const double cpu0 = processCpuSeconds();
  const auto start = Clock::now();
  detail::EventStoreOptions options;
  options.path = backlog;
  if (shared) options.adOrigins = {server().baseUrl()};
  detail::openEventStore(options);
  waitUntilStoreEmpty();
  const Drain drain{secondsSince(start), processCpuSeconds() - cpu0};
  detail::closeEventStore();
  removeDatabase(backlog);
  return drain;
}

void BM_EventStore(benchmark::State& state) {
  TAVIK& plain = sdk();  // trusts the server's certificate
  const std::string storeFile = tempPath("events.db");
  removeDatabase(storeFile);
  const TAVIK kept = TAVIK::Builder()
                         .clientId(kClientId)
                         .eventTrackingHost(server().hostPort)
                         .eventStore(storeFile)
                         .build();
  if (!events::storeStats().active) {
    state.SkipWithError("the event store did not open");
    return;
  }
  Side sides[2];  // 0: without the store, 1: with it
  std::size_t iteration = 0;
  // Ratios of bursts run back to back (with / without): less sensitive to load from
  // outside than the ratio of the totals.
  std::vector<double> callRatios, throughputRatios;
  for (auto _ : state) {
    double fire[2] = {0, 0}, total[2] = {0, 0};
    for (int step = 0; step < 2; ++step) {
      const int turn = static_cast<int>((iteration + static_cast<std::size_t>(step)) % 2);
      const TAVIK& tavik = turn == 0 ? plain : kept;
      Side& side = sides[turn];
      const double cpu0 = processCpuSeconds();
      const double callerCpu0 = threadCpuSeconds();
      const auto t0 = Clock::now();
      std::vector<RegisterEventProtocol::Result> pending;
      pending.reserve(kEvents);
      for (std::size_t i = 0; i < kEvents; ++i) {
        pending.push_back(
            tavik.registerEvent()->registerAdImpressionEvent(kCliUbid, kUclid, kPosition));
      }
      fire[turn] = secondsSince(t0);
      side.fireSeconds += fire[turn];
      side.fireCpuSeconds += threadCpuSeconds() - callerCpu0;
      // The burst is awaited as the events figure awaits it: its last event, then all.
      pending.back().wait();
      for (const auto& result : pending) side.failed += result.get() ? 0 : 1;
      if (turn == 1) waitUntilStoreEmpty();
      total[turn] = secondsSince(t0);
      side.seconds += total[turn];
      side.cpuSeconds += processCpuSeconds() - cpu0;
    }
    callRatios.push_back(fire[1] / fire[0]);
    throughputRatios.push_back(total[0] / total[1]);
    ++iteration;
    state.SetIterationTime(sides[1].seconds / static_cast<double>(iteration));
  }
  const double bursts = static_cast<double>(state.iterations());
  const double eventsSent = bursts * kEvents;
  const auto perEventUs = [&](double total) { return 1e6 * total / eventsSent; };
  const Side& off = sides[0];
  const Side& on = sides[1];
  if (off.failed + on.failed > 0) state.SkipWithError("some events failed");
  state.counters["off_call_us"] = perEventUs(off.fireSeconds);
  state.counters["on_call_us"] = perEventUs(on.fireSeconds);
  state.counters["call_ratio"] = on.fireSeconds / off.fireSeconds;
  state.counters["call_ratio_median_pair"] = median(callRatios);
  state.counters["off_call_cpu_us"] = perEventUs(off.fireCpuSeconds);
  state.counters["on_call_cpu_us"] = perEventUs(on.fireCpuSeconds);
  state.counters["call_cpu_ratio"] = on.fireCpuSeconds / off.fireCpuSeconds;
  state.counters["throughput_ratio_median_pair"] = median(throughputRatios);
  state.counters["off_events_per_s"] = eventsSent / off.seconds;
  state.counters["on_events_per_s"] = eventsSent / on.seconds;
  state.counters["throughput_ratio"] = off.seconds / on.seconds;
  state.counters["off_cpu_us_per_event"] = perEventUs(off.cpuSeconds);
  state.counters["on_cpu_us_per_event"] = perEventUs(on.cpuSeconds);
  const auto stats = events::storeStats();
  state.counters["store_delivered"] = static_cast<double>(stats.delivered);
  state.counters["store_retried"] = static_cast<double>(stats.retried);

  // A plain SQLite loop with one transaction per 20 ms of the store's bursts.
  const auto groups = static_cast<std::size_t>(on.seconds / bursts / 0.020) + 1;
  const double sqliteCpu = plainSqliteLoop(tempPath("plain.db"), kEvents, groups);
  state.counters["sqlite_loop_cpu_us_per_event"] = 1e6 * sqliteCpu / kEvents;
  state.counters["sqlite_loop_groups"] = static_cast<double>(groups);

  // A stored backlog of 10,000 drained at start, against an in-memory burst of 10,000:
  // to an event host of its own (the usual deployment), and to a host that also serves the
  // ads, where the backlog leaves a connection free for fetches ("drain_shared_").
  // Three drains of each kind, alternating; the ratio is taken on the median drain and
  // the spread on the fastest and the slowest.
  constexpr int kDrains = 3;
  std::vector<double> drainSeconds[2], drainCpu[2];
  for (int round = 0; round < kDrains; ++round) {
    for (const bool shared : {false, true}) {
      const Drain drain = drainBacklog(shared);
      drainSeconds[shared].push_back(drain.seconds);
      drainCpu[shared].push_back(drain.cpuSeconds);
    }
  }
  const double burstSeconds = off.seconds / bursts;
  for (const bool shared : {false, true}) {
    const auto counter = [&](const char* what) -> benchmark::Counter& {
      std::string name = shared ? "drain_shared_" : "drain_";
      name.append(what);
      return state.counters[name];
    };
    const auto& seconds = drainSeconds[shared];
    const double middle = median(seconds);
    counter("events_per_s") = kEvents / middle;
    counter("ratio") = burstSeconds / middle;
    counter("ratio_min") = burstSeconds / *std::max_element(seconds.begin(), seconds.end());
    counter("ratio_max") = burstSeconds / *std::min_element(seconds.begin(), seconds.end());
    counter("cpu_us_per_event") = 1e6 * median(drainCpu[shared]) / kEvents;
  }
  removeDatabase(storeFile);
}

// Drains `rounds` backlogs of 10,000 one after another and prints the rate of each; with
// `shared`, as to a host that also serves the ads.
int drainOnly(int rounds, bool shared) {
  sdk();  // trusts the server's certificate
  for (int round = 0; round < rounds; ++round) {
    const Drain drain = drainBacklog(shared);
    std::printf("drain %d: %.0f events/s, %.1f us CPU per event\n", round + 1,
                kEvents / drain.seconds, 1e6 * drain.cpuSeconds / kEvents);
  }
  return 0;
}

}  // namespace

}  // namespace tavik::bench

int main(int argc, char** argv) {
  if (argc > 1 && std::string(argv[1]) == "--drain-only") {
    const bool shared = argc > 3 && std::string(argv[3]) == "shared";
    return tavik::bench::drainOnly(argc > 2 ? std::atoi(argv[2]) : 5, shared);
  }
  benchmark::RegisterBenchmark("event_store_10000", tavik::bench::BM_EventStore)
      ->Iterations(10)
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond);
  return tavik::bench::benchMain(argc, argv);
}
