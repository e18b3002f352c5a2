// Cancelling public operations: a fetch or render a view no longer needs stops, ends
// with the cancelled kind and never calls the host's onError afterwards; events are
// never cancelled.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "support/sandbox_env.h"
#include "tavik/tavik.h"

using namespace tavik;
using namespace std::chrono_literals;

namespace {

// The transport error kind a cancelled public future ends with.
template <class T>
std::optional<TransportError::Kind> endedWith(const Future<T>& future) {
  if (future.wait_for(30s) != std::future_status::ready) {
    ADD_FAILURE() << "did not finish within 30 s";
    return std::nullopt;
  }
  try {
    future.get();
  } catch (const TransportError& e) {
    return e.kind();
  }
  return std::nullopt;
}

}  // namespace

TEST(Cancellation, ACancelledRenderStopsItsRequestAndReportsNothing) {
  test::SandboxEnv env;
  env.server().script("/v2/bsda", test::slow(30s));
  const TAVIK sdk = env.sdk();
  std::atomic<int> errors{0};
  auto banner = sdk.adRenderer()->fetchBannerAdsWithAu("s", "HOME", "au_home_banner", std::nullopt,
                                                       [&](const TavikError&) { ++errors; });
  ASSERT_TRUE(env.server().waitForRequests(1, 10s));
  EXPECT_TRUE(banner.cancel());
  EXPECT_EQ(endedWith(banner), TransportError::Kind::cancelled);
  EXPECT_EQ(errors, 0) << "onError after the host cancelled";
  EXPECT_EQ(transport::stats().requestsCancelled, 1u);
}

TEST(Cancellation, ACancelledFetchReportsNothingEvenWhenItFailsAtTheSameTime) {
  test::SandboxEnv env;
  // Answers that fail (a 500) right around the moment the host cancels.
  env.server().script("/v2/bsda", test::reply(500, "{}"));
  const TAVIK sdk = env.sdk();
  for (int round = 0; round < 50; ++round) {
    std::atomic<int> errors{0};
    std::atomic<bool> cancelled{false};
    std::atomic<int> afterCancel{0};
    auto ads = sdk.adFetcher()->fetchDisplayAdsWithAu("s", "HOME", 1, {"au_home_banner"},
                                                      std::nullopt, [&](const TavikError&) {
                                                        ++errors;
                                                        if (cancelled) ++afterCancel;
                                                      });
    std::this_thread::sleep_for(std::chrono::microseconds(200 * (round % 10)));
    const bool asked = ads.cancel();
    cancelled = asked;
    ASSERT_EQ(ads.wait_for(30s), std::future_status::ready);
    EXPECT_EQ(afterCancel, 0) << "round " << round;
    if (asked) {
      EXPECT_LE(errors, 1);
    } else {
      EXPECT_EQ(errors, 1) << "an uncancelled failure is reported";
    }
  }
}

TEST(Cancellation, EventsAreNeverCancelled) {
  test::SandboxEnv env;
  env.server().script("/events", test::slow(300ms));
  const TAVIK sdk = env.sdk();
  std::atomic<int> errors{0};
  auto event = sdk.registerEvent()->registerAdImpressionEvent("s", "uc-1", 1, nullptr,
                                                              [&](const TavikError&) { ++errors; });
  event.cancel();
  ASSERT_EQ(event.wait_for(30s), std::future_status::ready);
  EXPECT_TRUE(event.get().has_value()) << "the event's request was stopped";
  EXPECT_EQ(errors, 0);
  EXPECT_EQ(env.server().requests("/events").size(), 1u);
  EXPECT_EQ(transport::stats().requestsCancelled, 0u);
}

TEST(ErrorGate, CloseWaitsForAHandlerRunningElsewhereAndNeverCallsItAgain) {
  std::atomic<bool> inHandler{false};
  std::atomic<bool> release{false};
  std::atomic<int> calls{0};
  auto gate = std::make_shared<detail::ErrorGate>([&](const TavikError&) {
    ++calls;
    inHandler = true;
    while (!release) std::this_thread::sleep_for(1ms);
    inHandler = false;
  });
  std::thread reporter([&] { gate->report(TavikError::badResponse()); });
  while (!inHandler) std::this_thread::sleep_for(1ms);
  std::atomic<bool> closed{false};
  std::thread closer([&] {
    gate->close();
    closed = true;
  });
  std::this_thread::sleep_for(50ms);
  EXPECT_FALSE(closed) << "close() returned while the handler still ran";
  release = true;
  closer.join();
  reporter.join();
  EXPECT_FALSE(inHandler);
  gate->report(TavikError::badResponse());
  EXPECT_EQ(calls, 1);

  // Closing from inside the handler itself does not wait for itself.
  std::shared_ptr<detail::ErrorGate> self;
  int selfCalls = 0;
  self = std::make_shared<detail::ErrorGate>([&](const TavikError&) {
    ++selfCalls;
    self->close();
  });
  self->report(TavikError::badUrl());
  self->report(TavikError::badUrl());
  EXPECT_EQ(selfCalls, 1);
}
