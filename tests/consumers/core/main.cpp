// Built against an installed SDK: fetches a banner from the sandbox given on the command
// line, reports its impression and exits 0 when both went through.
//   core_consumer HOST:PORT CA_FILE
#include <iostream>

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
      .buildGlobalInstance();
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
  std::cout << "core consumer (SDK " << kVersion << "): banner " << ad->uclid
            << ", impression sent\n";
  return 0;
}
