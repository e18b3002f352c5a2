// Load: many threads firing events and fetches together; every operation ends, nothing
// is lost, and the process can exit right after with requests still in flight.
#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>

#include "support/sandbox_env.h"
#include "tavik/tavik.h"

using namespace tavik;
using namespace std::chrono_literals;

TEST(Load, SixteenThreadsOfEventsAndFetchesAllEndAndNothingIsLost) {
  constexpr int kThreads = 16;
  constexpr int kEvents = 10'000;
  constexpr int kFetches = 1'000;
  test::SandboxEnv env;
  const TAVIK sdk = env.sdk();
  const auto opened = transport::stats().connectionsOpened;

  std::atomic<int> results{0}, errors{0}, unfinished{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      std::vector<RegisterEventProtocol::Result> mine;
      const ErrorHandler onError = [&](const TavikError&) { ++errors; };
      for (int i = t; i < kEvents + kFetches; i += kThreads) {
        if (i < kEvents) {
          mine.push_back(sdk.registerEvent()->registerAdImpressionEvent(
              "s", "uc-" + std::to_string(i), i, nullptr, onError));
        } else {
          mine.push_back(sdk.adFetcher()->fetchDisplayAdsWithAu(
              "s-" + std::to_string(i), "HOME", 1, {"au_home_banner"}, std::nullopt, onError));
        }
      }
      for (auto& f : mine) {
        if (f.wait_for(120s) != std::future_status::ready) {
          ++unfinished;
        } else if (f.get()) {
          ++results;
        }
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(unfinished, 0);
  EXPECT_EQ(errors, 0);
  EXPECT_EQ(results, kEvents + kFetches);

  const auto log = env.server().eventLog();
  std::set<std::string> uclids;
  for (const auto& event : log) uclids.insert(event["params"].value("uclid", ""));
  EXPECT_EQ(log.size(), static_cast<std::size_t>(kEvents));
  EXPECT_EQ(uclids.size(), static_cast<std::size_t>(kEvents)) << "every event exactly once";
  EXPECT_EQ(env.server().requests().size(), static_cast<std::size_t>(kEvents + kFetches));
  EXPECT_LE(transport::stats().connectionsOpened - opened, 6u);
}

TEST(Load, ProcessExitsCleanlyWithABurstStillInFlight) {
  // A host process fires a burst and exits at once, most of it still queued or in flight.
  test::SandboxEnv env;
  EXPECT_EQ(
      test::runProgram({TAVIK_EXIT_IN_FLIGHT, env.host(), env.server().certPath(), "2000"}, 20s),
      0);
}
