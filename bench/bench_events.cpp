// 10,000 impressions as the SDK's views send them (a new registrar per event, every
// future kept, all awaited at the end) against the same 10,000 GETs on a raw libcurl
// multi handle with the same per-host connection limit. Bursts alternate between the two
// on the same warm server; both keep their multi handle (and its warm connections)
// across bursts.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>

#include "bench_support.h"
#include "tavik/events/register_event.h"
#include "tavik/network/transport.h"

namespace tavik::bench {

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::size_t kEvents = 10'000;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

struct Side {
  double seconds = 0;         // wall time of all bursts
  double fireSeconds = 0;     // of which spent handing the events over
  double cpuSeconds = 0;      // this process, all threads
  double hostCpuSeconds = 0;  // the thread that fires and awaits
  double serverCpuSeconds = 0;
  std::uint64_t connections = 0;
  std::size_t ok = 0;
  std::size_t failed = 0;
};

void BM_EventBurst(benchmark::State& state) {
  TAVIK& tavik = sdk();
  RawMulti raw;
  Side sdkSide, rawSide;
  const std::uint64_t sdkConnections0 = transport::stats().connectionsOpened;

  std::vector<double> pairRatios;  // raw time / SDK time of bursts run back to back
  std::size_t iteration = 0;
  for (auto _ : state) {
    double sdkSeconds = 0, rawSeconds = 0;
    for (int step = 0; step < 2; ++step) {
      const bool sdkTurn = (iteration + step) % 2 == 1;
      Side& side = sdkTurn ? sdkSide : rawSide;
      const double cpu0 = processCpuSeconds();
      const double hostCpu0 = threadCpuSeconds();
      const double serverCpu0 = serverCpuSeconds();
      const auto t0 = Clock::now();
      if (sdkTurn) {
        std::vector<RegisterEventProtocol::Result> pending;
        pending.reserve(kEvents);
        for (std::size_t i = 0; i < kEvents; ++i) {
          pending.push_back(
              tavik.registerEvent()->registerAdImpressionEvent(kCliUbid, kUclid, kPosition));
        }
        side.fireSeconds += secondsSince(t0);
        for (const auto& result : pending) (result.get() ? side.ok : side.failed) += 1;
        sdkSeconds = secondsSince(t0);
        side.seconds += sdkSeconds;
      } else {
        const auto result = raw.burst(kEvents, [&] { side.fireSeconds += secondsSince(t0); });
        rawSeconds = secondsSince(t0);
        side.seconds += rawSeconds;
        side.ok += result.ok;
        side.failed += result.failed;
        side.connections += static_cast<std::uint64_t>(result.connects);
      }
      side.cpuSeconds += processCpuSeconds() - cpu0;
      side.hostCpuSeconds += threadCpuSeconds() - hostCpu0;
      side.serverCpuSeconds += serverCpuSeconds() - serverCpu0;
    }
    ++iteration;
    pairRatios.push_back(rawSeconds / sdkSeconds);
    state.SetIterationTime(sdkSeconds);
  }
  sdkSide.connections = transport::stats().connectionsOpened - sdkConnections0;
  if (sdkSide.failed + rawSide.failed > 0) state.SkipWithError("some events failed");

  const double bursts = static_cast<double>(state.iterations());
  const double events = bursts * kEvents;
  state.counters["sdk_events_per_s"] = events / sdkSide.seconds;
  state.counters["raw_events_per_s"] = events / rawSide.seconds;
  state.counters["throughput_ratio"] = rawSide.seconds / sdkSide.seconds;
  // Less sensitive to a load spike from outside than the ratio of the totals.
  state.counters["throughput_ratio_median_pair"] = median(pairRatios);
  state.counters["throughput_ratio_min_pair"] =
      *std::min_element(pairRatios.begin(), pairRatios.end());
  state.counters["throughput_ratio_max_pair"] =
      *std::max_element(pairRatios.begin(), pairRatios.end());
  state.counters["sdk_fire_ms"] = 1e3 * sdkSide.fireSeconds / bursts;
  state.counters["raw_fire_ms"] = 1e3 * rawSide.fireSeconds / bursts;
  state.counters["sdk_cpu_us_per_event"] = 1e6 * sdkSide.cpuSeconds / events;
  state.counters["raw_cpu_us_per_event"] = 1e6 * rawSide.cpuSeconds / events;
  // The SDK's split: the host's thread (building and handing over each event, awaiting)
  // and the transport thread (libcurl, answer parsing, completing the futures).
  state.counters["sdk_host_cpu_us_per_event"] = 1e6 * sdkSide.hostCpuSeconds / events;
  state.counters["sdk_io_cpu_us_per_event"] =
      1e6 * (sdkSide.cpuSeconds - sdkSide.hostCpuSeconds) / events;
  state.counters["sdk_server_cpu_pct"] = 100.0 * sdkSide.serverCpuSeconds / sdkSide.seconds;
  state.counters["raw_server_cpu_pct"] = 100.0 * rawSide.serverCpuSeconds / rawSide.seconds;
  state.counters["sdk_connections"] = static_cast<double>(sdkSide.connections);
  state.counters["raw_connections"] = static_cast<double>(rawSide.connections);
  state.counters["failures"] = static_cast<double>(sdkSide.failed + rawSide.failed);
}

}  // namespace

void registerEventBenchmarks() {
  benchmark::RegisterBenchmark("event_burst_10000", BM_EventBurst)
      ->Iterations(5)
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond);
}

}  // namespace tavik::bench
