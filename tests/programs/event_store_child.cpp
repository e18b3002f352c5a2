// A host with the event store on, for the tests that kill it or run two of it at once.
//   event_store_child burst   HOST:PORT CA_BUNDLE STORE COUNT
//       sends COUNT events ("cli_ubid" k0, k1, ...), printing "I START END STEADY" once
//       event I's call returned (wall-clock milliseconds before and after the call, and
//       the steady clock's milliseconds after it), then "done", then waits to be killed.
//   event_store_child deliver HOST:PORT CA_BUNDLE STORE [serial]
//       waits (at most 30 s) until the store holds nothing, prints the stats, exits 0
//       when it holds nothing; "serial": one request in transfer at a time, so the
//       service sees the backlog in the order it is sent.
//   event_store_child accept-kill HOST:PORT CA_BUNDLE STORE COUNT KILL_ID
//       sends COUNT events one after another, each after the previous one's answer; the
//       process kills itself with SIGKILL once event KILL_ID was accepted, before its row
//       is removed.
//   event_store_child hold    HOST:PORT CA_BUNDLE STORE
//       opens the store, prints "ready" and waits to be killed.
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <string>
#include <thread>

#include "events/event_store.h"
#include "tavik/tavik.h"

using namespace tavik;
using namespace std::chrono;

namespace {

std::int64_t wallMillis() {
  return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

std::int64_t steadyMillis() {
  return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

[[noreturn]] void waitToBeKilled() {
  std::this_thread::sleep_for(60s);
  std::_Exit(3);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) {
    std::cerr << "usage: event_store_child MODE HOST:PORT CA_BUNDLE STORE [COUNT [KILL_ID]]\n";
    return 2;
  }
  const std::string mode = argv[1];
  const int count = argc > 5 && mode != "deliver" ? std::atoi(argv[5]) : 0;
  if (mode == "deliver" && argc > 5 && std::string(argv[5]) == "serial") {
    // Trusted before the store opens: it sends its backlog at once.
    transport::trustCaBundle(argv[3]);
    detail::EventStoreOptions options;
    options.path = argv[4];
    options.maxInFlight = 1;
    detail::openEventStore(options);
  }
  if (mode == "accept-kill") {
    detail::EventStoreOptions options;
    options.path = argv[4];
    const std::int64_t killId = argc > 6 ? std::atoll(argv[6]) : 1;
    options.beforeRemovingAccepted = [killId](std::int64_t id) {
      if (id == killId) std::raise(SIGKILL);
    };
    detail::openEventStore(options);
  }
  const TAVIK sdk = TAVIK::Builder()
                        .clientId("store-test")
                        .eventTrackingHost(argv[2])
                        .trustedCaBundle(argv[3])
                        .eventStore(argv[4])
                        .build();
  const auto registrar = sdk.registerEvent();
  if (mode == "burst" || mode == "accept-kill") {
    for (int i = 0; i < count; ++i) {
      const auto start = wallMillis();
      auto result = registrar->registerTrackingEvent("k" + std::to_string(i),
                                                     TavikEventName::funnelImpression, nullptr);
      const auto end = wallMillis();
      std::cout << i << ' ' << start << ' ' << end << ' ' << steadyMillis() << std::endl;
      if (mode == "accept-kill") {
        result.wait();
        std::this_thread::sleep_for(60ms);  // the row of the accepted event goes meanwhile
      } else {
        std::this_thread::sleep_for(1ms);  // a burst that lasts a few hundred milliseconds
      }
    }
    std::cout << "done" << std::endl;
    waitToBeKilled();
  }
  if (mode == "hold") {
    std::cout << (events::storeStats().active ? "ready" : "inactive") << std::endl;
    waitToBeKilled();
  }
  if (mode == "deliver") {
    const auto deadline = steady_clock::now() + 30s;
    auto stats = events::storeStats();
    while (stats.pending > 0 && steady_clock::now() < deadline) {
      std::this_thread::sleep_for(20ms);
      stats = events::storeStats();
    }
    std::this_thread::sleep_for(100ms);  // the last removals are committed
    std::cout << "pending " << stats.pending << " delivered " << stats.delivered << " retried "
              << stats.retried << std::endl;
    return stats.pending == 0 ? 0 : 1;
  }
  return 2;
}
