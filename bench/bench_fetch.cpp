// One banner, fetched and decoded through the SDK's renderer, against two raw libcurl
// baselines fetching the same URL: a reused easy handle driven by its own I/O thread
// (the hand-over to another thread and back that the SDK's design needs, so the ratio
// shows the SDK's own cost), and plain curl_easy_perform on a reused easy handle (no
// hand-over at all). They rotate request by request on the same warm server, so drift
// (frequency, other load) hits all alike.
//
// A third column times the SDK's web service alone (transport + JSON normalisation of
// the answer, no ad decoding), which splits the SDK's extra time into "getting the
// answer" and "decoding it".

#include <benchmark/benchmark.h>

#include <chrono>
#include <sstream>

#include "bench_support.h"
#include "tavik/ads/ad_renderer.h"
#include "tavik/network/web_service.h"

namespace tavik::bench {

namespace {

using Clock = std::chrono::steady_clock;

// The banner query without the two items the web service appends to every request.
std::string queryWithoutOsItems(const std::string& query) {
  std::stringstream in(query);
  std::string item, kept;
  while (std::getline(in, item, '&')) {
    if (item.rfind("os_version=", 0) == 0 || item.rfind("os_name=", 0) == 0) continue;
    kept += (kept.empty() ? "" : "&") + item;
  }
  return kept;
}

void BM_FetchBanner(benchmark::State& state) {
  TAVIK& tavik = sdk();
  const std::string url = server().baseUrl() + "/v2/bsda?" + wireForm().bannerQuery;
  const auto serviceUrl =
      Url::parse(server().baseUrl() + "/v2/bsda?" + queryWithoutOsItems(wireForm().bannerQuery));
  if (!serviceUrl) return state.SkipWithError("the banner URL does not parse");

  std::string body;
  CURL* raw = curl_easy_init();
  setRawOptions(raw, url, &body);
  const auto rawOnce = [&] {
    body.clear();
    long status = 0;
    const bool ok = curl_easy_perform(raw) == CURLE_OK &&
                    curl_easy_getinfo(raw, CURLINFO_RESPONSE_CODE, &status) == CURLE_OK &&
                    status == 200 && !body.empty();
    return ok;
  };
  const auto sdkOnce = [&] {
    const auto ad = tavik.adRenderer()
                        ->fetchBannerAdsWithAu(kCliUbid, kPageType, kAdUnit, std::nullopt, nullptr)
                        .get();
    return ad.has_value() && ad->uclid == kUclid && ad->cliUbid == kCliUbid;
  };
  std::string ioBody;
  CURL* ioEasy = curl_easy_init();
  setRawOptions(ioEasy, url, &ioBody);
  IoThread ioThread;
  const auto ioOnce = [&] {
    ioBody.clear();
    long status = 0;
    return ioThread.perform(ioEasy) &&
           curl_easy_getinfo(ioEasy, CURLINFO_RESPONSE_CODE, &status) == CURLE_OK &&
           status == 200 && !ioBody.empty();
  };
  const WebService service(false);
  const auto serviceOnce = [&] {
    const auto answer = service.request(*serviceUrl, HTTPMethod::get, std::nullopt, {}).get();
    return answer.is_object() && answer["response"]["code"] == 200;
  };

  // Open the connections and fill the caches before anything is timed.
  for (int i = 0; i < 50; ++i) {
    if (!rawOnce() || !sdkOnce() || !serviceOnce() || !ioOnce()) {
      curl_easy_cleanup(raw);
      curl_easy_cleanup(ioEasy);
      return state.SkipWithError("a warm-up request failed");
    }
  }

  std::vector<double> sdkUs, rawUs, serviceUs, ioUs;
  std::size_t failures = 0;
  const double serverCpu0 = serverCpuSeconds();
  const auto wall0 = Clock::now();
  std::size_t iteration = 0;
  for (auto _ : state) {
    double sdkSeconds = 0;
    // Rotate the order so that none of the four always runs on a just-warmed path.
    for (int step = 0; step < 4; ++step) {
      switch ((iteration + step) % 4) {
        case 0: {
          const auto t0 = Clock::now();
          failures += rawOnce() ? 0 : 1;
          rawUs.push_back(secondsSince(t0) * 1e6);
          break;
        }
        case 1: {
          const auto t0 = Clock::now();
          failures += sdkOnce() ? 0 : 1;
          sdkSeconds = secondsSince(t0);
          sdkUs.push_back(sdkSeconds * 1e6);
          break;
        }
        case 2: {
          const auto t0 = Clock::now();
          failures += serviceOnce() ? 0 : 1;
          serviceUs.push_back(secondsSince(t0) * 1e6);
          break;
        }
        default: {
          const auto t0 = Clock::now();
          failures += ioOnce() ? 0 : 1;
          ioUs.push_back(secondsSince(t0) * 1e6);
        }
      }
    }
    ++iteration;
    state.SetIterationTime(sdkSeconds);
  }
  const double wall = secondsSince(wall0);
  curl_easy_cleanup(raw);
  curl_easy_cleanup(ioEasy);
  if (failures > 0) state.SkipWithError("some requests failed");

  double sdkTotal = 0, rawTotal = 0;
  for (double v : sdkUs) sdkTotal += v;
  for (double v : rawUs) rawTotal += v;
  const double sdkMedian = median(sdkUs);
  const double rawMedian = median(rawUs);
  const double serviceMedian = median(serviceUs);
  const double ioMedian = median(ioUs);
  state.counters["sdk_us"] = sdkMedian;
  state.counters["raw_us"] = rawMedian;
  state.counters["raw_io_thread_us"] = ioMedian;
  state.counters["webservice_us"] = serviceMedian;
  state.counters["ratio"] = sdkMedian / rawMedian;
  state.counters["ratio_io_thread"] = sdkMedian / ioMedian;
  state.counters["ratio_mean"] = sdkTotal / rawTotal;
  state.counters["server_cpu_pct"] = 100.0 * (serverCpuSeconds() - serverCpu0) / wall;
  state.counters["failures"] = static_cast<double>(failures);
}

}  // namespace

void registerFetchBenchmarks() {
  benchmark::RegisterBenchmark("fetch_banner", BM_FetchBanner)
      ->Iterations(3000)
      ->UseManualTime()
      ->Unit(benchmark::kMicrosecond);
}

}  // namespace tavik::bench
