// Request observers against the sandbox: every request seen once with its outcome and
// its exact wire items, from many threads; nothing after removal; removal from inside an
// observer; no record built while nobody observes.
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <mutex>
#include <thread>

#include "network/http_client.h"
#include "network/request_observers.h"
#include "support/sandbox_env.h"
#include "tavik/network/request_observer.h"
#include "tavik/tavik.h"

using namespace tavik;
using namespace std::chrono_literals;
using transport::ObservedRequest;

namespace {

// Collects what an observer sees, and whether each call came on the transport thread.
struct Recorder {
  std::mutex mutex;
  std::vector<ObservedRequest> seen;
  bool allOnTransportThread = true;

  transport::RequestObserverFn fn() {
    return [this](const ObservedRequest& r) {
      std::lock_guard lock(mutex);
      seen.push_back(r);
      allOnTransportThread &= detail::onTransportThread();
    };
  }
  std::size_t size() {
    std::lock_guard lock(mutex);
    return seen.size();
  }
  ObservedRequest last() {
    std::lock_guard lock(mutex);
    return seen.empty() ? ObservedRequest{} : seen.back();
  }
  std::vector<ObservedRequest> all() {
    std::lock_guard lock(mutex);
    return seen;
  }
};

template <class T>
void await(const Future<T>& future) {
  ASSERT_EQ(future.wait_for(30s), std::future_status::ready);
}

void setTransport(std::chrono::milliseconds timeout, long connections, std::size_t maxQueued) {
  auto settings = transport::settings();
  settings.requestTimeout = timeout;
  settings.maxConnectionsPerHost = connections;
  settings.maxQueuedPerOrigin = maxQueued;
  transport::configure(settings);
}

// Waits until every request started has ended.
void waitForTransportIdle() {
  for (int i = 0; i < 3000; ++i) {
    const auto s = transport::stats();
    if (s.requestsStarted == s.requestsFinished) return;
    std::this_thread::sleep_for(10ms);
  }
  ADD_FAILURE() << "the transport did not finish";
}

}  // namespace

TEST(RequestObserver, EachAnswerAndFailureIsSeenOnceWithItsRequestAndOutcome) {
  test::SandboxEnv env;
  env.server().script("/v2/bsda/pt", test::reply(503, R"({"error":"busy"})"));
  env.server().script("/sda/v1", test::cutMidAnswer(R"({"ads":[)" + std::string(4000, ' ')));
  const TAVIK sdk = env.sdk();
  Recorder recorder;
  const auto observation = transport::observeRequests(recorder.fn());
  ASSERT_TRUE(observation.active());

  // Each future is ready only after the observers saw its request.
  const auto before = std::chrono::system_clock::now();
  await(sdk.adFetcher()->fetchDisplayAdsWithAu("u", "HOME", 1, {"au_home_banner", "au_pip"},
                                               std::nullopt));
  const auto after = std::chrono::system_clock::now();
  ASSERT_EQ(recorder.size(), 1u);
  const ObservedRequest ads = recorder.last();
  const auto wire = env.server().requests("/v2/bsda").at(0);
  EXPECT_EQ(ads.service, "ads");
  EXPECT_EQ(ads.method, "GET");
  EXPECT_EQ(ads.path, "/v2/bsda");
  EXPECT_EQ(ads.url, env.base() + "/v2/bsda?" + wire.rawQuery);
  EXPECT_EQ(ads.query, wire.query);  // decoded, in wire order, "au[]" twice
  EXPECT_EQ(wire.count("au[]"), 2u);
  EXPECT_EQ(ads.status, 200);
  EXPECT_EQ(ads.error, "");
  EXPECT_GT(ads.bodyBytes, 100u);
  EXPECT_GE(ads.sentAt, before - 5ms);  // the wall time is derived from the monotonic one
  EXPECT_LE(ads.sentAt + ads.elapsed, after + 5ms);

  await(sdk.adFetcher()->fetchPlaHomePageAds("u", 2));
  EXPECT_EQ(recorder.last().service, "products");
  EXPECT_EQ(recorder.last().path, "/sda");
  await(sdk.registerEvent()->registerAdClickEvent("u", "uc-1"));
  EXPECT_EQ(recorder.last().service, "events");
  EXPECT_EQ(recorder.last().path, "/aclick");
  EXPECT_EQ(recorder.last().query, env.server().requests("/aclick").at(0).query);
  // A scripted error status is an answer: a status, no transport error.
  await(sdk.adFetcher()->fetchDisplayAdsWithPt("u", "HOME", 1));
  EXPECT_EQ(recorder.last().service, "ads");
  EXPECT_EQ(recorder.last().status, 503);
  EXPECT_EQ(recorder.last().error, "");
  // An answer cut off after its headers: both its status and the error.
  await(sdk.adFetcher()->fetchTpaPageAds("u", 1, {"sku-1"}));
  EXPECT_EQ(recorder.last().service, "products");
  EXPECT_EQ(recorder.last().status, 200);
  EXPECT_EQ(recorder.last().errorKind, "connectionLost");
  EXPECT_EQ(recorder.last().error.rfind("connectionLost: ", 0), 0u) << recorder.last().error;

  // Creatives go to the transport directly, marked as media.
  detail::HttpRequest image;
  image.url = env.base() + "/media/product_1.png";
  image.maxBodyBytes = transport::settings().maxMediaBytes;
  image.source = detail::RequestSource::media;
  auto download = detail::sendHttpRequest(image);
  await(download);
  EXPECT_EQ(recorder.last().service, "media");
  EXPECT_EQ(recorder.last().bodyBytes, download.get().body.size());

  // Nothing listens on the port: no status, the kind and why.
  const Url closed = *Url::parse("https://127.0.0.1:" + std::to_string(test::closedPort()) +
                                 "/events?a=b%20c&empty=&flag");
  auto refused = WebService(false).request(closed, HTTPMethod::get, std::nullopt);
  ASSERT_EQ(refused.wait_for(30s), std::future_status::ready);
  EXPECT_EQ(recorder.last().service, "events");
  EXPECT_EQ(recorder.last().status, 0);
  EXPECT_EQ(recorder.last().errorKind, "connectionFailed");
  EXPECT_EQ(recorder.last().error.rfind("connectionFailed: ", 0), 0u) << recorder.last().error;
  const auto items = recorder.last().query;
  ASSERT_GE(items.size(), 3u);
  EXPECT_EQ(std::vector(items.begin(), items.begin() + 3),
            (std::vector<std::pair<std::string, std::string>>{
                {"a", "b c"}, {"empty", ""}, {"flag", ""}}));

  // Cancelled during the transfer, then one that times out.
  env.server().script("/v2/bsda", test::slow(30s));
  auto cancelled = sdk.adFetcher()->fetchDisplayAdsWithAu("u", "HOME", 1, {"au_home_banner"});
  ASSERT_TRUE(env.server().waitForRequests(7, 10s));
  cancelled.cancel();
  await(cancelled);
  EXPECT_EQ(recorder.last().errorKind, "cancelled");
  setTransport(500ms, 6, 20'000);
  await(sdk.adFetcher()->fetchDisplayAdsWithAu("u", "HOME", 1, {"au_home_banner"}));
  EXPECT_EQ(recorder.last().errorKind, "timeout");
  EXPECT_GE(recorder.last().elapsed, 450ms);
  EXPECT_LT(recorder.last().elapsed, 5s);

  waitForTransportIdle();
  EXPECT_EQ(recorder.size(), 9u) << "each request exactly once";
  EXPECT_TRUE(recorder.allOnTransportThread);
}

TEST(RequestObserver, WaitingAndRefusedRequestsAreReportedOnceOnTheTransportThread) {
  test::SandboxEnv env;
  env.server().script("/events", test::slow(30s));
  setTransport(5s, 1, 2);  // two requests in transfer, two waiting, then refusal
  Recorder recorder;
  const auto observation = transport::observeRequests(recorder.fn());
  detail::HttpRequest event;
  event.url = env.base() + "/events";
  std::vector<Future<detail::HttpResponse>> futures;
  for (int i = 0; i < 2; ++i) futures.push_back(detail::sendHttpRequest(event));
  ASSERT_TRUE(env.server().waitForRequests(1, 10s));
  std::this_thread::sleep_for(200ms);
  for (int i = 0; i < 2; ++i) futures.push_back(detail::sendHttpRequest(event));
  auto refused = detail::sendHttpRequest(event);
  EXPECT_TRUE(refused.is_ready()) << "refused inside the call";
  for (auto& f : futures) await(f);
  waitForTransportIdle();
  std::this_thread::sleep_for(100ms);
  std::map<std::string, int> kinds;
  for (const auto& r : recorder.all()) ++kinds[r.errorKind];
  EXPECT_EQ(kinds, (std::map<std::string, int>{{"queueFull", 1}, {"timeout", 4}}));
  EXPECT_TRUE(recorder.allOnTransportThread) << "the refusal was reported on the caller's thread";
}

TEST(RequestObserver, EveryObserverSeesEachEventOfManyThreadsExactlyOnce) {
  test::SandboxEnv env;
  const TAVIK sdk = env.sdk();
  Recorder first, second;
  const auto a = transport::observeRequests(first.fn());
  const auto b = transport::observeRequests(second.fn());
  constexpr int kThreads = 8, kEvents = 50;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      const auto registrar = sdk.registerEvent();
      std::vector<RegisterEventProtocol::Result> results;
      for (int i = 0; i < kEvents; ++i) {
        results.push_back(registrar->registerAdImpressionEvent(
            "u", "uc-" + std::to_string(t) + "-" + std::to_string(i), i));
      }
      for (auto& r : results) await(r);
    });
  }
  for (auto& thread : threads) thread.join();
  // Every event's future is ready, so every observer call is done.
  ASSERT_EQ(first.size(), std::size_t{kThreads * kEvents});
  ASSERT_EQ(second.size(), std::size_t{kThreads * kEvents});
  std::map<std::string, sandbox::RecordedRequest> wire;
  for (const auto& r : env.server().requests("/events")) wire[r.value("uclid").value_or("")] = r;
  ASSERT_EQ(wire.size(), std::size_t{kThreads * kEvents});
  for (Recorder* recorder : {&first, &second}) {
    std::map<std::string, int> seen;
    for (const auto& r : recorder->all()) {
      std::string uclid;
      for (const auto& [name, value] : r.query) uclid = name == "uclid" ? value : uclid;
      ++seen[uclid];
      ASSERT_EQ(wire.count(uclid), 1u) << uclid;
      EXPECT_EQ(r.query, wire[uclid].query);
      EXPECT_EQ(r.path, "/events");
      EXPECT_EQ(r.service, "events");
      EXPECT_EQ(r.status, 200);
    }
    EXPECT_EQ(seen.size(), wire.size());
  }
}

TEST(RequestObserver, AfterRemovalNothingIsCalledAndRemovalWaitsForARunningCall) {
  test::SandboxEnv env;
  const TAVIK sdk = env.sdk();
  const auto registrar = sdk.registerEvent();
  const auto send = [&](int n) {
    for (int i = 0; i < n; ++i) await(registrar->registerAdClickEvent("u", "uc"));
  };
  Recorder recorder;
  {
    auto observation = transport::observeRequests(recorder.fn());
    send(5);
    auto moved = std::move(observation);
    observation.reset();  // empty after the move: removes nothing
    send(5);
  }
  send(5);
  waitForTransportIdle();
  EXPECT_EQ(recorder.size(), 10u);

  // A call in progress on the transport thread ends before reset() returns.
  std::atomic<bool> entered{false}, finished{false};
  std::atomic<int> calls{0};
  auto slow = transport::observeRequests([&](const ObservedRequest&) {
    ++calls;
    entered = true;
    std::this_thread::sleep_for(300ms);
    finished = true;
  });
  auto pending = registrar->registerAdClickEvent("u", "uc");
  for (int i = 0; i < 10'000 && !entered; ++i) std::this_thread::sleep_for(1ms);
  ASSERT_TRUE(entered);
  slow.reset();
  EXPECT_TRUE(finished) << "reset() returned while the observer still ran";
  await(pending);
  send(3);
  EXPECT_EQ(calls, 1);
}

TEST(RequestObserver, AnObserverMayRemoveItselfOrAnotherWithoutDeadlock) {
  test::SandboxEnv env;
  const TAVIK sdk = env.sdk();
  const auto registrar = sdk.registerEvent();
  std::atomic<int> selfCalls{0}, otherCalls{0}, removedCalls{0};
  transport::RequestObservation self, other, removed;
  self = transport::observeRequests([&](const ObservedRequest&) {
    ++selfCalls;
    self.reset();
  });
  other = transport::observeRequests([&](const ObservedRequest&) {
    ++otherCalls;
    removed.reset();
  });
  removed = transport::observeRequests([&](const ObservedRequest&) { ++removedCalls; });
  // A deadlock would stop the transport thread: the events would never end.
  for (int i = 0; i < 3; ++i) await(registrar->registerAdClickEvent("u", "uc"));
  EXPECT_EQ(selfCalls, 1);
  EXPECT_EQ(otherCalls, 3);
  EXPECT_EQ(removedCalls, 0) << "removed before its turn in the first request";
  EXPECT_FALSE(self.active());
}

TEST(RequestObserver, WithoutObserversNoRecordIsBuiltAndRequestsWork) {
  test::SandboxEnv env;
  const TAVIK sdk = env.sdk();
  EXPECT_FALSE(transport::observeRequests(nullptr).active());
  {
    auto briefly = transport::observeRequests([](const ObservedRequest&) {});
  }
  auto ads = sdk.adFetcher()->fetchPlaHomePageAds("u", 1);
  auto event = sdk.registerEvent()->registerAdClickEvent("u", "uc");
  await(ads);
  await(event);
  EXPECT_TRUE(ads.get().has_value());
  EXPECT_TRUE(event.get().has_value());
  EXPECT_EQ(env.server().requests().size(), 2u);
  EXPECT_EQ(detail::requestRecordsBuilt(), 0u);
}
