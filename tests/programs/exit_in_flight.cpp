// Fires a burst of requests at a sandbox and exits while they are still in flight.
//   exit_in_flight HOST:PORT CA_BUNDLE COUNT [SETTLE_MS]
// The caller checks that this exits with status 0, promptly: no hang, no crash during
// static destruction.
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <string>
#include <thread>

#include "tavik/tavik.h"

int main(int argc, char** argv) {
  if (argc < 4) {
    std::cerr << "usage: exit_in_flight HOST:PORT CA_BUNDLE COUNT [SETTLE_MS]\n";
    return 2;
  }
  using namespace tavik;
  const TAVIK sdk = TAVIK::Builder()
                        .clientId("exit-test")
                        .eventTrackingHost(argv[1])
                        .displayAdsHost(argv[1])
                        .trustedCaBundle(argv[2])
                        .build();
  const int count = std::atoi(argv[3]);
  for (int i = 0; i < count; ++i) {
    if (i % 2) {
      sdk.registerEvent()->registerAdClickEvent("s", std::to_string(i), nullptr,
                                                [](const TavikError&) {});
    } else {
      // A continuation that would touch the host's state if it ran during exit.
      sdk.adFetcher()
          ->fetchDisplayAdsWithPt("s", "HOME", 1)
          .then([](const std::optional<nlohmann::json>& answer) {
            std::cout << (answer ? "answer\n" : "none\n");
          });
    }
  }
  if (argc > 4) std::this_thread::sleep_for(std::chrono::milliseconds(std::atoi(argv[4])));
  std::exit(0);
}
