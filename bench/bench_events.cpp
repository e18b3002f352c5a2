// 10,000 impressions as the SDK's views send them (a new registrar per event, every
// future kept) against the same 10,000 GETs on raw libcurl with the same per-host
// connection limit. The SDK's host awaits the burst: it waits for the last event, then
// reads every result (each is there by then, or nearly). A footnote awaits the futures
// one by one in order instead, which wakes the host's thread once per completion pass of
// the transport thread, on a core the transport and the server want. Raw libcurl two ways:
//   - capped (the baseline): at most a dozen transfers in the multi handle at once, the
//     rest queued by the caller, which is the best raw approach we know;
//   - naive (a footnote): all 10,000 added to the multi handle at once.
// Bursts rotate between the four on the same warm server; each keeps its multi handle
// (and its warm connections) across bursts.

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

struct Side {
  double seconds = 0;         // wall time of all bursts
  double fireSeconds = 0;     // of which spent handing the events over
  double cpuSeconds = 0;      // this process, all threads
  double hostCpuSeconds = 0;  // the thread that fires and awaits
  double serverCpuSeconds = 0;
  std::uint64_t connections = 0;
  std::size_t http2 = 0;  // raw transfers answered over HTTP/2
  std::size_t ok = 0;
  std::size_t failed = 0;
};

// Twice the per-host connection limit, as the SDK admits into libcurl.
constexpr std::size_t kCappedInMulti = 12;

void BM_EventBurst(benchmark::State& state) {
  TAVIK& tavik = sdk();
  RawMulti capped, naive;
  enum Turn { sdkTurn, cappedTurn, naiveTurn, inOrderTurn };
  constexpr int kTurns = 4;
  Side sides[kTurns];
  const std::uint64_t sdkConnections0 = transport::stats().connectionsOpened;

  std::vector<double> pairRatios;  // capped time / SDK time of bursts run back to back
  std::size_t iteration = 0;
  for (auto _ : state) {
    double seconds[kTurns] = {0, 0, 0, 0};
    for (int step = 0; step < kTurns; ++step) {
      const auto turn = static_cast<Turn>((iteration + static_cast<std::size_t>(step)) % kTurns);
      Side& side = sides[turn];
      const double cpu0 = processCpuSeconds();
      const double hostCpu0 = threadCpuSeconds();
      const double serverCpu0 = serverCpuSeconds();
      const auto t0 = Clock::now();
      if (turn == sdkTurn || turn == inOrderTurn) {
        std::vector<RegisterEventProtocol::Result> pending;
        pending.reserve(kEvents);
        for (std::size_t i = 0; i < kEvents; ++i) {
          pending.push_back(
              tavik.registerEvent()->registerAdImpressionEvent(kCliUbid, kUclid, kPosition));
        }
        side.fireSeconds += secondsSince(t0);
        if (turn == sdkTurn) pending.back().wait();
        for (const auto& result : pending) (result.get() ? side.ok : side.failed) += 1;
      } else {
        const auto result =
            turn == cappedTurn
                ? capped.burstCapped(kEvents, kCappedInMulti)
                : naive.burst(kEvents, [&] { side.fireSeconds += secondsSince(t0); });
        side.ok += result.ok;
        side.failed += result.failed;
        side.connections += static_cast<std::uint64_t>(result.connects);
        side.http2 += result.http2;
      }
      seconds[turn] = secondsSince(t0);
      side.seconds += seconds[turn];
      side.cpuSeconds += processCpuSeconds() - cpu0;
      side.hostCpuSeconds += threadCpuSeconds() - hostCpu0;
      side.serverCpuSeconds += serverCpuSeconds() - serverCpu0;
    }
    ++iteration;
    pairRatios.push_back(seconds[cappedTurn] / seconds[sdkTurn]);
    state.SetIterationTime(seconds[sdkTurn]);
  }
  Side& sdkSide = sides[sdkTurn];
  Side& cappedSide = sides[cappedTurn];
  Side& naiveSide = sides[naiveTurn];
  Side& inOrderSide = sides[inOrderTurn];
  sdkSide.connections = transport::stats().connectionsOpened - sdkConnections0;
  if (sdkSide.failed + cappedSide.failed + naiveSide.failed + inOrderSide.failed > 0) {
    state.SkipWithError("some events failed");
  }

  const double bursts = static_cast<double>(state.iterations());
  const double events = bursts * kEvents;
  const auto perEventUs = [&](double total) { return 1e6 * total / events; };
  state.counters["sdk_events_per_s"] = events / sdkSide.seconds;
  state.counters["capped_events_per_s"] = events / cappedSide.seconds;
  state.counters["naive_events_per_s"] = events / naiveSide.seconds;
  state.counters["throughput_ratio"] = cappedSide.seconds / sdkSide.seconds;
  state.counters["throughput_ratio_naive"] = naiveSide.seconds / sdkSide.seconds;
  // Less sensitive to a load spike from outside than the ratio of the totals.
  state.counters["throughput_ratio_median_pair"] = median(pairRatios);
  state.counters["throughput_ratio_min_pair"] =
      *std::min_element(pairRatios.begin(), pairRatios.end());
  state.counters["throughput_ratio_max_pair"] =
      *std::max_element(pairRatios.begin(), pairRatios.end());
  state.counters["sdk_fire_ms"] = 1e3 * sdkSide.fireSeconds / bursts;
  state.counters["in_order_throughput_ratio"] = cappedSide.seconds / inOrderSide.seconds;
  state.counters["in_order_cpu_ratio"] = inOrderSide.cpuSeconds / cappedSide.cpuSeconds;
  state.counters["in_order_host_cpu_us_per_event"] = perEventUs(inOrderSide.hostCpuSeconds);
  state.counters["sdk_cpu_us_per_event"] = perEventUs(sdkSide.cpuSeconds);
  state.counters["capped_cpu_us_per_event"] = perEventUs(cappedSide.cpuSeconds);
  state.counters["naive_cpu_us_per_event"] = perEventUs(naiveSide.cpuSeconds);
  state.counters["cpu_ratio"] = sdkSide.cpuSeconds / cappedSide.cpuSeconds;
  // The SDK's split: the host's thread (building and handing over each event, awaiting)
  // and the transport thread (libcurl, answer parsing, completing the futures).
  state.counters["sdk_host_cpu_us_per_event"] = perEventUs(sdkSide.hostCpuSeconds);
  state.counters["sdk_io_cpu_us_per_event"] =
      perEventUs(sdkSide.cpuSeconds - sdkSide.hostCpuSeconds);
  state.counters["sdk_server_cpu_pct"] = 100.0 * sdkSide.serverCpuSeconds / sdkSide.seconds;
  state.counters["capped_server_cpu_pct"] =
      100.0 * cappedSide.serverCpuSeconds / cappedSide.seconds;
  state.counters["sdk_connections"] = static_cast<double>(sdkSide.connections);
  state.counters["capped_connections"] = static_cast<double>(cappedSide.connections);
  state.counters["naive_connections"] = static_cast<double>(naiveSide.connections);
  state.counters["capped_http2_share"] = static_cast<double>(cappedSide.http2) /
                                         static_cast<double>(cappedSide.ok + cappedSide.failed);
  state.counters["failures"] = static_cast<double>(sdkSide.failed + cappedSide.failed +
                                                   naiveSide.failed + inOrderSide.failed);
}

}  // namespace

void registerEventBenchmarks() {
  benchmark::RegisterBenchmark("event_burst_10000", BM_EventBurst)
      ->Iterations(5)
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond);
}

}  // namespace tavik::bench
