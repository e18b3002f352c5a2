// Exits while a host continuation blocks the SDK's transport thread and a host task
// blocks its background thread. The caller checks that the exit still ends, promptly.
//   blocked_exit HOST:PORT CA_BUNDLE
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <thread>

#include "tavik/tavik.h"

int main(int argc, char** argv) {
  if (argc < 3) {
    std::cerr << "usage: blocked_exit HOST:PORT CA_BUNDLE\n";
    return 2;
  }
  using namespace tavik;
  auto settings = transport::settings();
  settings.exitTimeout = std::chrono::milliseconds(500);
  transport::configure(settings);
  const TAVIK sdk = TAVIK::Builder()
                        .clientId("exit-test")
                        .displayAdsHost(argv[1])
                        .trustedCaBundle(argv[2])
                        .build();
  static std::atomic<int> blocked{0};
  // A host continuation that never returns, on the transport thread.
  sdk.adFetcher()->fetchDisplayAdsWithPt("s", "HOME", 1).then([](const auto&) {
    ++blocked;
    while (true) std::this_thread::sleep_for(std::chrono::hours(1));
  });
  // And one on the background thread.
  Future<int>::ready(0).then(backgroundExecutor(), [](int) {
    ++blocked;
    while (true) std::this_thread::sleep_for(std::chrono::hours(1));
    return 0;
  });
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (blocked < 2 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  if (blocked < 2) {
    std::cerr << "the continuations did not start\n";
    return 3;
  }
  std::exit(0);
}
