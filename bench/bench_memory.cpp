// Memory with 10,000 events in flight, over repeated bursts: the resident set while the
// events are pending, its peak during the burst and what stays resident once they are
// done. A leak or a cache that only grows shows as a rising "after" line across bursts.
// A raw libcurl burst of the same GETs runs first, as the yardstick for the peak, and one
// that feeds the multi handle a few transfers at a time, to show what that would save.
//
// Runs in a process of its own (the resident set is process-wide). Peaks come from the
// kernel's high-water mark, reset before each burst (/proc/self/clear_refs).

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <string>
#include <thread>

#include "bench_support.h"
#include "tavik/events/register_event.h"
#include "tavik/network/transport.h"

namespace tavik::bench {

namespace {

constexpr std::size_t kEvents = 10'000;

double mib(long kib) {
  return static_cast<double>(kib) / 1024.0;
}

std::size_t sdkBurst(TAVIK& tavik, std::size_t count, long* inFlightRss,
                     std::uint64_t* inFlightCount) {
  std::vector<RegisterEventProtocol::Result> pending;
  pending.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    pending.push_back(
        tavik.registerEvent()->registerAdImpressionEvent(kCliUbid, kUclid, kPosition));
  }
  if (inFlightRss) *inFlightRss = rssKiB();
  if (inFlightCount) {
    const auto stats = transport::stats();
    *inFlightCount = stats.requestsStarted - stats.requestsFinished;
  }
  std::size_t ok = 0;
  for (const auto& result : pending) ok += result.get() ? 1 : 0;
  return ok;
}

void BM_MemoryBursts(benchmark::State& state) {
  TAVIK& tavik = sdk();
  const int bursts = static_cast<int>(state.range(0));
  RawMulti raw;
  // Warm both sides: connections open, allocator arenas of both threads in use.
  if (sdkBurst(tavik, 200, nullptr, nullptr) != 200 || raw.burst(200).ok != 200) {
    return state.SkipWithError("warm-up events failed");
  }
  const bool peakResets = resetPeakRss();

  for (auto _ : state) {
    // Yardstick: the raw burst, all 10,000 handles added before they are driven.
    malloc_trim(0);
    const long rawBefore = rssKiB();
    resetPeakRss();
    long rawInFlight = 0;
    const auto rawResult = raw.burst(kEvents, [&] { rawInFlight = rssKiB(); });
    const long rawPeak = peakRssKiB();
    if (rawResult.ok != kEvents) return state.SkipWithError("raw events failed");
    state.counters["raw_inflight_delta_MiB"] = mib(rawInFlight - rawBefore);
    state.counters["raw_peak_delta_MiB"] = mib(rawPeak - rawBefore);
    state.counters["raw_inflight_bytes_per_event"] =
        1024.0 * static_cast<double>(rawInFlight - rawBefore) / kEvents;
    malloc_trim(0);

    // The same GETs fed to the multi handle a few at a time from a queue of our own.
    const long cappedBefore = rssKiB();
    resetPeakRss();
    const auto cappedResult = raw.burstCapped(
        kEvents, static_cast<std::size_t>(2 * transport::settings().maxConnectionsPerHost));
    if (cappedResult.ok != kEvents) return state.SkipWithError("raw capped events failed");
    state.counters["raw_capped_peak_delta_MiB"] = mib(peakRssKiB() - cappedBefore);
    malloc_trim(0);

    double firstLiveHeap = 0, lastLiveHeap = 0;
    long firstAfter = 0, lastAfter = 0, firstPeak = 0, lastPeak = 0, maxPeakDelta = 0;
    double inFlightBytesPerEvent = 0;
    for (int burst = 1; burst <= bursts; ++burst) {
      const long before = rssKiB();
      resetPeakRss();
      long inFlight = 0;
      std::uint64_t inFlightCount = 0;
      if (sdkBurst(tavik, kEvents, &inFlight, &inFlightCount) != kEvents) {
        return state.SkipWithError("SDK events failed");
      }
      const long peak = peakRssKiB();
      const long after = rssKiB();
      const std::string name = "burst" + std::to_string(burst);
      state.counters[name + "_inflight_MiB"] = mib(inFlight);
      state.counters[name + "_peak_MiB"] = mib(peak);
      state.counters[name + "_after_MiB"] = mib(after);
      state.counters[name + "_live_heap_after_MiB"] = liveHeapMiB();
      state.counters[name + "_pending_at_sample"] = static_cast<double>(inFlightCount);
      if (burst == 1) {
        firstLiveHeap = liveHeapMiB();
        firstAfter = after;
        firstPeak = peak;
        state.counters["start_MiB"] = mib(before);
      }
      lastAfter = after;
      lastLiveHeap = liveHeapMiB();
      lastPeak = peak;
      maxPeakDelta = std::max(maxPeakDelta, peak - before);
      inFlightBytesPerEvent = std::max(inFlightBytesPerEvent,
                                       1024.0 * static_cast<double>(inFlight - before) / kEvents);
    }
    state.counters["sdk_peak_delta_MiB"] = mib(maxPeakDelta);
    state.counters["peak_ratio"] =
        static_cast<double>(maxPeakDelta) / static_cast<double>(std::max(1L, rawPeak - rawBefore));
    state.counters["sdk_inflight_bytes_per_event"] = inFlightBytesPerEvent;
    state.counters["after_growth_MiB"] = mib(lastAfter - firstAfter);
    state.counters["peak_growth_MiB"] = mib(lastPeak - firstPeak);
    state.counters["live_heap_growth_MiB"] = lastLiveHeap - firstLiveHeap;
    malloc_trim(0);
    state.counters["end_trimmed_MiB"] = mib(rssKiB());
  }
  state.counters["peak_resets"] = peakResets ? 1 : 0;
}

}  // namespace

void registerMemoryBenchmarks() {
  benchmark::RegisterBenchmark("memory_bursts_10000", BM_MemoryBursts)
      ->Arg(5)
      ->Iterations(1)
      ->Unit(benchmark::kMillisecond);
}

}  // namespace tavik::bench

int main(int argc, char** argv) {
  tavik::bench::registerMemoryBenchmarks();
  return tavik::bench::benchMain(argc, argv);
}
