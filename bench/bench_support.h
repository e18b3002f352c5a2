#pragma once

// What the network and memory benchmarks share: the loopback server they talk to, the SDK
// instance pointed at it, the exact requests the SDK sends (so that the raw libcurl
// baseline sends the same bytes), raw libcurl helpers and process figures.

#include <curl/curl.h>
#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tavik/core/tavik.h"

namespace tavik::bench {

// The request every benchmark sends. The banner is the first ad of the sandbox
// catalogue's home banner unit; the event is an impression of it.
inline constexpr const char* kClientId = "1001";
inline constexpr const char* kCliUbid = "bench-shopper-0001";
inline constexpr const char* kPageType = "home";
inline constexpr const char* kAdUnit = "au_home_banner";
inline constexpr const char* kUclid = "uc-home-banner-1";
inline constexpr std::int64_t kPosition = 1;

/// The loopback HTTPS server under test. Taken from the environment that bench/run.sh
/// sets (TAVIK_BENCH_SERVER=127.0.0.1:PORT, TAVIK_BENCH_CA, TAVIK_BENCH_SERVER_KIND,
/// TAVIK_BENCH_SERVER_PIDS); without it an in-process sandbox is started, which is handy
/// for a quick look but shares this process's CPU and heap.
struct Server {
  std::string kind;         ///< "nginx", "sandbox" (separate process) or "sandbox-in-process"
  std::string hostPort;     ///< "127.0.0.1:PORT"
  std::string caFile;       ///< PEM certificate that clients trust
  std::vector<pid_t> pids;  ///< the server's processes, for its CPU time; empty = this one
  std::string baseUrl() const { return "https://" + hostPort; }
};
const Server& server();

/// The SDK's wire form, captured once per process on an in-process sandbox through the
/// public API: the query strings the SDK sends for the banner fetch and the impression,
/// and the bodies the sandbox answers with.
struct WireForm {
  std::string bannerQuery;  ///< without '?'
  std::string eventQuery;   ///< without '?'; "event_time=..." is replaced per request
  std::string bannerBody;
  std::string eventBody;
};
const WireForm& wireForm();

/// The event query with the given event time, in milliseconds since the epoch.
std::string eventQueryAt(std::int64_t timeMs);
std::int64_t nowMs();

/// The process-wide SDK instance, all three services on server(), its certificate
/// trusted. Built on first use.
TAVIK& sdk();

/// Writes the answers a static server must give (bsda.json, events.json) into `dir`.
/// Returns false with a message on stderr on failure.
bool dumpFixtures(const std::string& dir);

// ---- raw libcurl ----------------------------------------------------------------------

/// Whether the run is over HTTP/2 (TAVIK_BENCH_HTTP2=1, set by bench/run.sh for its h2
/// server): the raw clients then ask for it and multiplex.
bool http2();

/// The options a plain client sets: URL, trust of server().caFile, body into `body`.
void setRawOptions(CURL* easy, const std::string& url, std::string* body);

/// A burst of GETs on a raw multi handle with the SDK's per-host limit and keep-alive.
/// The multi handle outlives bursts, as the SDK's does, so both keep warm connections.
class RawMulti {
 public:
  /// `configure` sets further options on every easy handle after the plain ones.
  explicit RawMulti(std::function<void(CURL*)> configure = nullptr);
  ~RawMulti();
  RawMulti(const RawMulti&) = delete;
  RawMulti& operator=(const RawMulti&) = delete;

  struct Result {
    std::size_t ok = 0;  ///< transfers that ended with status 200
    std::size_t failed = 0;
    long connects = 0;      ///< sum of CURLINFO_NUM_CONNECTS
    std::size_t http2 = 0;  ///< transfers answered over HTTP/2
  };
  /// Adds `count` impression GETs (the SDK's query, fresh event time each), then drives
  /// them all to completion. `afterAdding` runs once every transfer is added.
  template <class F>
  Result burst(std::size_t count, F afterAdding) {
    addEvents(count);
    afterAdding();
    return drive();
  }
  Result burst(std::size_t count) {
    return burst(count, [] {});
  }
  /// The same GETs, but never more than `maxInMulti` of them in the multi handle at once:
  /// the rest wait in this process's own queue until a transfer finishes.
  Result burstCapped(std::size_t count, std::size_t maxInMulti);

 private:
  void addEvents(std::size_t count);
  // Reaps finished transfers into `result`; returns how many finished.
  std::size_t reap(Result& result);
  Result drive();
  CURLM* multi_ = nullptr;
  std::function<void(CURL*)> configure_;
};

/// A multi handle driven by its own thread; requests are handed over through a queue and
/// a wake-up, and completed through a promise: the least a client pays that shares one
/// multi handle between threads and never blocks inside it.
class IoThread {
 public:
  IoThread();
  ~IoThread();
  IoThread(const IoThread&) = delete;
  IoThread& operator=(const IoThread&) = delete;
  /// Runs `easy` on the I/O thread and waits for it; true when it ended with CURLE_OK.
  bool perform(CURL* easy);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// ---- process figures ------------------------------------------------------------------

/// Resident set and its high-water mark of this process, in KiB (from /proc/self/status).
long rssKiB();
long peakRssKiB();
/// Resets the high-water mark to the current resident set (Linux clear_refs "5"); false
/// when the kernel refuses, in which case peakRssKiB() is the process-lifetime peak.
bool resetPeakRss();
/// User + system CPU seconds of the server processes (of this process if none).
double serverCpuSeconds();
/// User + system CPU seconds of this process, and of the calling thread alone.
double processCpuSeconds();
double threadCpuSeconds();
/// Bytes the allocator has handed out and not got back (glibc mallinfo2): the live heap,
/// unlike the resident set, which also holds freed memory the allocator keeps.
double liveHeapMiB();

double median(std::vector<double> values);
/// Wall-clock seconds from `start` to now.
double secondsSince(std::chrono::steady_clock::time_point start);

// ---- entry ----------------------------------------------------------------------------

/// The benchmark programs' main: "--dump-fixtures DIR" writes the static answers and
/// exits; otherwise it sets the SDK up (failing early and clearly when the server does
/// not answer), records the server in the benchmark context and runs what is registered.
int benchMain(int argc, char** argv);

void registerEventBenchmarks();
void registerFetchBenchmarks();

}  // namespace tavik::bench
