// Built against an installed SDK: fetches a banner from the sandbox given on the command
// line, reports its impression through the event store (SQLite, linked into the SDK, not
// into this program) and exits 0 when both went through and the store is empty again.
//   core_consumer HOST:PORT CA_FILE
#include <chrono>
#include <cstdio>
#include <iostream>
#include <thread>

#include "tavik/tavik.h"
#include "tavik/version.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: core_consumer HOST:PORT CA_FILE\n";
    return 2;
  }
  using namespace tavik;
  TAVIK::Builder()
      .clientId("consumer-client")
      .productAdsHost(argv[1])
      .displayAdsHost(argv[1])
      .eventTrackingHost(argv[1])
      .trustedCaBundle(argv[2])
      .eventStore("core_consumer_events.db")
      .buildGlobalInstance();
  if (!events::storeStats().active) return 1;
  int failures = 0;
  const auto onError = [&](const TavikError& error) {
    std::cerr << "core consumer: " << error.get().code << ": " << error.description() << "\n";
    ++failures;
  };
  std::optional<BannerAd> ad = TAVIK::shared()
                                   .adRenderer()
                                   ->fetchBannerAdsWithAu("consumer-shopper", "HOME",
                                                          "au_home_banner", std::nullopt, onError)
                                   .get();
  if (!ad || ad->uclid.empty()) return 1;
  auto sent = TAVIK::shared()
                  .registerEvent()
                  ->registerAdImpressionEvent("consumer-shopper", ad->uclid, 1, nullptr, onError)
                  .get();
  if (!sent || failures != 0) return 1;
  for (int i = 0; i < 100 && events::storeStats().delivered == 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  if (events::storeStats().delivered != 1 || events::storeStats().pending != 0) return 1;
  std::cout << "core consumer (SDK " << kVersion << "): banner " << ad->uclid
            << ", impression sent\n";
  return 0;
}
