// The SDK's side of figures 1 and 2 alone, with no raw baseline in the process, for a
// profiler: `perf record -g build-bench/bench/tavik_bench_profile events` (or `fetch`),
// or under `valgrind --tool=callgrind` with a smaller count. Talks to the server that
// bench/run.sh describes (TAVIK_BENCH_SERVER, TAVIK_BENCH_CA) or an in-process sandbox.
//
//   tavik_bench_profile events [BURSTS [EVENTS]]   bursts of impressions, all awaited
//   tavik_bench_profile raw-events [BURSTS [EVENTS]]  the same on the capped raw client
//   tavik_bench_profile fetch [COUNT]              banner fetches and decodes, one at a time
//   tavik_bench_profile raw-fetch [COUNT]          the same fetch on raw libcurl's I/O thread

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench_support.h"
#include "tavik/ads/ad_renderer.h"
#include "tavik/events/register_event.h"

using namespace tavik;
using namespace tavik::bench;

int main(int argc, char** argv) {
  const std::string what = argc > 1 ? argv[1] : "events";
  const auto arg = [&](int i, long fallback) { return argc > i ? std::atol(argv[i]) : fallback; };
  TAVIK& plain = sdk();
  // With TAVIK_PROFILE_STORE=FILE the events go through an event store kept in FILE.
  const char* storeFile = std::getenv("TAVIK_PROFILE_STORE");
  const TAVIK kept = storeFile ? TAVIK::Builder()
                                     .clientId(kClientId)
                                     .eventTrackingHost(server().hostPort)
                                     .eventStore(storeFile)
                                     .build()
                               : plain;
  const TAVIK& tavik = storeFile ? kept : plain;
  const double cpu0 = processCpuSeconds();
  const auto t0 = std::chrono::steady_clock::now();
  std::size_t failed = 0;
  long total = 0;
  if (what == "events") {
    const long bursts = arg(2, 5), events = arg(3, 10'000);
    for (long b = 0; b < bursts; ++b) {
      std::vector<RegisterEventProtocol::Result> pending;
      pending.reserve(static_cast<std::size_t>(events));
      for (long i = 0; i < events; ++i) {
        pending.push_back(
            tavik.registerEvent()->registerAdImpressionEvent(kCliUbid, kUclid, kPosition));
      }
      if (std::getenv("TAVIK_PROFILE_WAIT_LAST_FIRST")) pending.back().wait();
      for (const auto& result : pending) failed += result.get() ? 0 : 1;
    }
    total = bursts * events;
  } else if (what == "raw-events") {
    // The figure's capped raw baseline, for the same profiler.
    const long bursts = arg(2, 5), events = arg(3, 10'000);
    RawMulti raw;
    for (long b = 0; b < bursts; ++b) {
      failed += raw.burstCapped(static_cast<std::size_t>(events), 12).failed;
    }
    total = bursts * events;
  } else if (what == "fetch") {
    total = arg(2, 3000);
    for (long i = 0; i < total; ++i) {
      const auto ad =
          tavik.adRenderer()
              ->fetchBannerAdsWithAu(kCliUbid, kPageType, kAdUnit, std::nullopt, nullptr)
              .get();
      failed += ad ? 0 : 1;
    }
  } else if (what == "raw-fetch") {
    // The figure's raw baseline: one reused easy handle run by a multi handle on its own
    // I/O thread, the calling thread waiting for each.
    total = arg(2, 3000);
    std::string body;
    CURL* easy = curl_easy_init();
    setRawOptions(easy, server().baseUrl() + "/v2/bsda?" + wireForm().bannerQuery, &body);
    IoThread ioThread;
    for (long i = 0; i < total; ++i) {
      body.clear();
      failed += ioThread.perform(easy) && !body.empty() ? 0 : 1;
    }
    curl_easy_cleanup(easy);
  } else {
    std::fprintf(stderr,
                 "usage: tavik_bench_profile events|raw-events [BURSTS [EVENTS]] | fetch|raw-fetch "
                 "[COUNT]\n");
    return 2;
  }
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  std::printf("%s: %ld in %.3f s (%.1f us each, %.0f/s), %zu failed, cpu %.1f us each\n",
              what.c_str(), total, seconds, 1e6 * seconds / static_cast<double>(total),
              static_cast<double>(total) / seconds, failed,
              1e6 * (processCpuSeconds() - cpu0) / static_cast<double>(total));
  return failed == 0 ? 0 : 1;
}
