// Decoding an ads document of 1, 10 and 100 banner ads with tavik::decodeAds against a
// plain nlohmann::json::parse of the same text. Every iteration does one of each, in
// alternating order; the reported time is decodeAds, the counters give the cost per ad
// of both and their ratio, which should stay about the same as the document grows.

#include <benchmark/benchmark.h>

#include <chrono>
#include <nlohmann/json.hpp>

#include "tavik/ads/ad_models.h"

namespace {

using Clock = std::chrono::steady_clock;

// A document shaped like the display-ad service's: `count` image banners in one unit,
// with the fields a real answer carries.
std::string document(int count) {
  tavik::Ads ads;
  auto& list = ads.ads["au_home_banner"];
  for (int i = 0; i < count; ++i) {
    const std::string id = "uc-home-banner-" + std::to_string(i + 1);
    tavik::BannerAd ad;
    ad.uclid = id;
    ad.au = "au_home_banner";
    ad.crt = "tavik_sdk/image/v1";
    ad.clientId = 1001;
    ad.elements.value =
        "https://cdn.shop.example.com/media/banner_320x50_" + std::to_string(i) + ".png";
    ad.elements.height = 50;
    ad.elements.width = 320;
    ad.elements.type = "IMAGE";
    ad.elements.destinationUrl = "https://shop.example.com/deals/summer?ad=" + id;
    ad.rank = i + 1;
    ad.clickTrackingUrl = "https://events.shop.example.com/aclick?uclid=" + id;
    ad.impressionTrackingUrl =
        "https://events.shop.example.com/events?event_name=funnel_impression&uclid=" + id;
    list.push_back(std::move(ad));
  }
  return tavik::encode(ads);
}

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

void BM_DecodeAds(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  const std::string text = document(count);
  if (tavik::decodeAds(text).ads.at("au_home_banner").size() != static_cast<std::size_t>(count)) {
    return state.SkipWithError("the document does not decode to its ads");
  }
  double sdkSeconds = 0, rawSeconds = 0;
  bool sdkFirst = false;
  for (auto _ : state) {
    double sdkThis = 0;
    for (int step = 0; step < 2; ++step) {
      const auto t0 = Clock::now();
      if (sdkFirst == (step == 0)) {
        auto decoded = tavik::decodeAds(text);
        benchmark::DoNotOptimize(decoded);
        sdkThis = secondsSince(t0);
      } else {
        auto parsed = nlohmann::json::parse(text);
        benchmark::DoNotOptimize(parsed);
        rawSeconds += secondsSince(t0);
      }
    }
    sdkFirst = !sdkFirst;
    sdkSeconds += sdkThis;
    state.SetIterationTime(sdkThis);
  }
  const double calls = static_cast<double>(state.iterations());
  state.counters["ads"] = count;
  state.counters["bytes"] = static_cast<double>(text.size());
  state.counters["sdk_ns_per_ad"] = 1e9 * sdkSeconds / calls / count;
  state.counters["raw_ns_per_ad"] = 1e9 * rawSeconds / calls / count;
  state.counters["ratio"] = sdkSeconds / rawSeconds;
}

BENCHMARK(BM_DecodeAds)
    ->Name("decode_ads")
    ->Arg(1)
    ->Arg(10)
    ->Arg(100)
    ->UseManualTime()
    ->MinTime(0.5)
    ->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
