// Quick start: the SDK against a local sandbox, printing every request it sent and the
// answer it got. A real app does the same against its production hosts, without the
// sandbox and without `trustedCaBundle`.
#include <iostream>

#include "tavik/sandbox/sandbox.h"
#include "tavik/tavik.h"

using namespace tavik;

namespace {

// Shows what went over the wire since the last call.
void printTraffic(sandbox::Sandbox& server) {
  for (const auto& request : server.requests()) {
    std::cout << "  sent    " << request.method << " " << request.path << "?" << request.rawQuery
              << "\n";
  }
  server.clearRequests();
}

void printError(const TavikError& error) {
  std::cout << "  error   " << error.get().code << ": " << error.description() << "\n";
}

}  // namespace

int main() {
  // 1. A local stand-in for the three ad services on a free loopback port.
  sandbox::Sandbox server;
  server.start();
  const std::string host = "127.0.0.1:" + std::to_string(server.port());
  std::cout << "sandbox at " << server.baseUrl() << "\n\n";

  // 2. Configure the SDK once, at start-up.
  TAVIK::Builder()
      .clientId("quickstart-client")
      .productAdsHost(host)
      .displayAdsHost(host)
      .eventTrackingHost(host)
      .trustedCaBundle(server.certPath())
      .buildGlobalInstance();
  TAVIK& sdk = TAVIK::shared();

  // 3. Sponsored products for the home page. Every call returns a future at once; a UI
  //    app would use .then(...) instead of blocking with get().
  std::cout << "product ads for the home page\n";
  auto products =
      sdk.adFetcher()->fetchPlaHomePageAds("shopper-42", 2, "home", nullptr, printError);
  if (auto answer = products.get()) {
    std::cout << "  answer  " << (*answer)["response"]["data"].get<std::string>().substr(0, 160)
              << "...\n";
  }
  printTraffic(server);

  // 4. A display banner, decoded into a typed record.
  std::cout << "\nbanner for ad unit au_home_banner\n";
  auto banner = sdk.adRenderer()->fetchBannerAdsWithAu("shopper-42", "HOME", "au_home_banner",
                                                       std::nullopt, printError);
  std::optional<BannerAd> ad = banner.get();
  if (ad) {
    std::cout << "  answer  uclid=" << ad->uclid << " crt=" << ad->crt << " " << ad->elements.width
              << "x" << ad->elements.height << " " << ad->elements.value << "\n";
  }
  printTraffic(server);

  // 5. Report what the shopper did.
  if (ad) {
    std::cout << "\nimpression and click for " << ad->uclid << "\n";
    auto events = sdk.registerEvent();
    events->registerAdImpressionEvent("shopper-42", ad->uclid, 1, nullptr, printError).get();
    auto click = events->registerAdClickEvent("shopper-42", ad->uclid, nullptr, printError).get();
    if (click) std::cout << "  answer  " << (*click)["response"]["data"].get<std::string>() << "\n";
    printTraffic(server);
  }
  std::cout << "\nevent log of the sandbox:\n";
  for (const auto& event : server.eventLog()) {
    std::cout << "  " << event["path"].get<std::string>() << " "
              << event["event_name"].get<std::string>() << " " << event["params"].dump() << "\n";
  }
  return ad ? 0 : 1;
}
