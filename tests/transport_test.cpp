// The transport under faults: time-outs counted from the call, the bounded queue,
// cancelling a waiting or running request, error kinds, and where answers complete.
#include <gtest/gtest.h>

#include <curl/curl.h>

#include <atomic>
#include <mutex>

#include "network/http_client.h"
#include "support/sandbox_env.h"
#include "tavik/tavik.h"

using namespace tavik;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Kind = TransportError::Kind;

namespace {

// The kind of transport error a future failed with; fails the test on success or hang.
template <class T>
Kind failureKind(const Future<T>& future) {
  if (future.wait_for(30s) != std::future_status::ready) {
    ADD_FAILURE() << "did not finish within 30 s";
    return Kind::other;
  }
  try {
    future.get();
  } catch (const TransportError& e) {
    return e.kind();
  } catch (const std::exception& e) {
    ADD_FAILURE() << "unexpected error: " << e.what();
    return Kind::other;
  }
  ADD_FAILURE() << "the request succeeded";
  return Kind::other;
}

detail::HttpRequest get(const std::string& url) {
  detail::HttpRequest request;
  request.url = url;
  return request;
}

void setTransport(std::chrono::milliseconds timeout, long connections, std::size_t maxQueued) {
  auto settings = transport::settings();
  settings.requestTimeout = timeout;
  settings.maxConnectionsPerHost = connections;
  settings.maxQueuedPerOrigin = maxQueued;
  transport::configure(settings);
}

}  // namespace

TEST(TransportDeadline, QueuedEventsEndWithinTheirTimeOutCountedFromTheCall) {
  // A server that never answers in time, a 1 s time-out and 48 events fired together:
  // only a dozen fit into the transport at once, and each of the others must still end
  // about 1 s after its own call, not after the dozens ahead of it timed out in turn.
  test::SandboxEnv env;
  env.server().script("/events", test::slow(30s));
  setTransport(1s, 6, 20'000);
  const TAVIK sdk = env.sdk();

  constexpr int kEvents = 48;
  std::mutex mutex;
  std::vector<std::chrono::milliseconds> took;
  std::vector<Kind> kinds;
  std::vector<RegisterEventProtocol::Result> results;
  for (int i = 0; i < kEvents; ++i) {
    const auto called = Clock::now();
    results.push_back(sdk.registerEvent()->registerAdImpressionEvent(
        "s", "uc-" + std::to_string(i), i, nullptr, [&, called](const TavikError& error) {
          const auto* transport = transportErrorOf(error);
          std::lock_guard lock(mutex);
          took.push_back(
              std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - called));
          kinds.push_back(transport ? transport->kind() : Kind::other);
        }));
  }
  for (auto& result : results) {
    ASSERT_EQ(result.wait_for(30s), std::future_status::ready);
    EXPECT_FALSE(result.get());
  }
  std::lock_guard lock(mutex);
  ASSERT_EQ(took.size(), static_cast<std::size_t>(kEvents));
  for (int i = 0; i < kEvents; ++i) {
    EXPECT_EQ(kinds[i], Kind::timeout) << i;
    // A generous margin for loaded and sanitised runs; counted from admission instead,
    // the last of them would end after four rounds of time-outs, more than 4 s.
    EXPECT_LE(took[i], 2500ms) << "event " << i << " ended " << took[i].count()
                               << " ms after its call";
  }
  EXPECT_GT(transport::stats().timedOutWhileWaiting, 0u);
}

TEST(TransportQueue, ARequestBeyondTheLimitFailsAtOnceAndIsNeverSent) {
  test::SandboxEnv env;
  env.server().script("/events", test::slow(30s));
  // One connection: two requests in transfer, the rest wait.
  setTransport(20s, 1, 5);
  std::vector<Future<detail::HttpResponse>> running;
  for (int i = 0; i < 2; ++i)
    running.push_back(detail::sendHttpRequest(get(env.base() + "/events")));
  ASSERT_TRUE(env.server().waitForRequests(1, 10s));
  // The second is in libcurl, waiting for the one connection; give the I/O thread a
  // moment to have taken both in before filling the queue.
  std::this_thread::sleep_for(200ms);
  std::vector<Future<detail::HttpResponse>> waiting;
  for (int i = 0; i < 5; ++i)
    waiting.push_back(detail::sendHttpRequest(get(env.base() + "/events")));
  for (auto& f : waiting) EXPECT_FALSE(f.is_ready());

  // Through the public layer: onError inside the call, with a debug line that says why.
  std::vector<std::string> lines;
  std::mutex linesMutex;
  setLogSink([&](std::string_view line) {
    std::lock_guard lock(linesMutex);
    lines.emplace_back(line);
  });
  std::vector<TavikError> errors;
  const TAVIK sdk = env.sdk(/*debug=*/true);
  auto refused = sdk.registerEvent()->registerAdClickEvent(
      "s", "uc", nullptr, [&](const TavikError& error) { errors.push_back(error); });
  setLogSink(nullptr);
  ASSERT_EQ(errors.size(), 1u) << "onError is called inside the call";
  ASSERT_TRUE(refused.is_ready());
  EXPECT_FALSE(refused.get());
  EXPECT_EQ(errors[0].kind(), TavikError::Case::defaultError);
  ASSERT_NE(transportErrorOf(errors[0]), nullptr);
  EXPECT_EQ(transportErrorOf(errors[0])->kind(), Kind::queueFull);
  EXPECT_EQ(transportErrorOf(errors[0])->kindName(), "queueFull");
  bool explained = false;
  for (const auto& line : lines) {
    explained |=
        line.find("refused: 5 requests already wait for " + env.base()) != std::string::npos;
  }
  EXPECT_TRUE(explained) << "no debug line says why";
  EXPECT_EQ(transport::stats().requestsRefused, 1u);

  // Cancelling frees the places: a new request is taken again.
  for (auto& f : running) f.cancel();
  for (auto& f : waiting) f.cancel();
  for (auto& f : waiting) EXPECT_EQ(failureKind(f), Kind::cancelled);
  env.server().clearScripts();
  auto later = detail::sendHttpRequest(get(env.base() + "/events"));
  ASSERT_EQ(later.wait_for(30s), std::future_status::ready);
  EXPECT_EQ(later.get().status, 200);
  EXPECT_EQ(env.server().requests("/aclick").size(), 0u) << "the refused request was sent";
}

TEST(TransportCancel, AWaitingRequestIsRemovedAndARunningOneStopped) {
  test::SandboxEnv env;
  env.server().script("/stall", test::slow(30s));
  env.server().script("/fast", test::reply(200, R"({"id":"fast"})"));
  setTransport(60s, 1, 20'000);
  auto first = detail::sendHttpRequest(get(env.base() + "/stall?n=1"));
  auto second = detail::sendHttpRequest(get(env.base() + "/stall?n=2"));
  auto third = detail::sendHttpRequest(get(env.base() + "/stall?n=3"));  // waits in the queue
  ASSERT_TRUE(env.server().waitForRequests(1, 10s));

  const auto started = Clock::now();
  EXPECT_TRUE(third.cancel());
  EXPECT_FALSE(third.cancel()) << "a second cancel changes nothing";
  EXPECT_EQ(failureKind(third), Kind::cancelled);
  EXPECT_TRUE(first.cancel());
  EXPECT_EQ(failureKind(first), Kind::cancelled);
  EXPECT_TRUE(second.cancel());
  EXPECT_EQ(failureKind(second), Kind::cancelled);
  EXPECT_LT(Clock::now() - started, 10s);

  // The stopped transfer's connection is not reused half-read: the next answer is its own.
  auto next = detail::sendHttpRequest(get(env.base() + "/fast"));
  ASSERT_EQ(next.wait_for(30s), std::future_status::ready);
  EXPECT_EQ(next.get().status, 200);
  EXPECT_EQ(next.get().body, R"({"id":"fast"})");
  for (const auto& request : env.server().requests("/stall")) {
    EXPECT_NE(request.value("n"), "3") << "the cancelled waiting request was sent";
  }
  EXPECT_EQ(transport::stats().requestsCancelled, 3u);
  EXPECT_FALSE(next.cancel()) << "nothing to cancel once the answer is there";
}

TEST(TransportCancel, CancellingAChainedFutureReachesTheRequest) {
  test::SandboxEnv env;
  env.server().script("/stall", test::slow(30s));
  auto request = detail::sendHttpRequest(get(env.base() + "/stall"));
  std::atomic<bool> ran{false};
  auto chained =
      request.then([](const detail::HttpResponse& r) { return r.status; }).then([&](long status) {
        ran = true;
        return status;
      });
  ASSERT_TRUE(env.server().waitForRequests(1, 10s));
  EXPECT_TRUE(chained.cancel());
  EXPECT_EQ(failureKind(request), Kind::cancelled);
  EXPECT_EQ(failureKind(chained), Kind::cancelled);
  EXPECT_FALSE(ran);
}

TEST(TransportErrors, FailuresCarryAStableKind) {
  test::SandboxEnv env;
  auto settings = transport::settings();
  settings.requestTimeout = 500ms;
  settings.maxBodyBytes = 64 * 1024;
  transport::configure(settings);
  env.server().script("/slow", test::slow(3s));
  env.server().script("/huge", test::reply(200, std::string(65 * 1024, ' ')));
  env.server().script("/cut", test::cutMidAnswer(std::string(4000, 'x')));
  env.server().script("/to-http", test::redirect(302, "http://" + env.host() + "/x"));
  env.server().script("/loop", test::redirect(301, "/loop"));
  const auto kindOf = [&](const std::string& url) {
    return failureKind(detail::sendHttpRequest(get(url)));
  };
  EXPECT_EQ(kindOf(env.base() + "/slow"), Kind::timeout);
  // The rest with time to spare for TLS handshakes on a slow (sanitised) build.
  settings.requestTimeout = 20s;
  transport::configure(settings);
  EXPECT_EQ(kindOf(env.base() + "/huge"), Kind::answerTooLarge);
  EXPECT_EQ(kindOf(env.base() + "/cut"), Kind::connectionLost);
  EXPECT_EQ(kindOf(env.base() + "/to-http"), Kind::redirectRefused);
  EXPECT_EQ(kindOf(env.base() + "/loop"), Kind::redirectRefused);
  EXPECT_EQ(kindOf("https://127.0.0.1:" + std::to_string(test::closedPort()) + "/"),
            Kind::connectionFailed);
  EXPECT_EQ(kindOf("http://" + env.host() + "/x"), Kind::other);

  sandbox::Options untrustedOptions;
  untrustedOptions.certNames = {"127.0.0.1", "never-trusted.test"};
  sandbox::Sandbox untrusted(untrustedOptions);
  untrusted.start();
  EXPECT_EQ(kindOf(untrusted.baseUrl() + "/x"), Kind::tls);

  // Name resolution is mapped from libcurl's code (no lookup leaves this machine).
  EXPECT_EQ(detail::transportErrorKind(CURLE_COULDNT_RESOLVE_HOST, "https://a.example/"),
            Kind::nameResolution);
  EXPECT_EQ(detail::transportErrorKind(CURLE_SSL_CACERT_BADFILE, "https://a.example/"), Kind::tls);

  // Through the public layer the kind rides inside defaultError, and the old code stays.
  std::vector<TavikError> errors;
  settings.requestTimeout = 500ms;
  transport::configure(settings);
  env.server().script("/aclick", test::slow(3s));
  env.sdk()
      .registerEvent()
      ->registerAdClickEvent("s", "uc", nullptr, [&](const TavikError& e) { errors.push_back(e); })
      .wait();
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].kind(), TavikError::Case::defaultError);
  ASSERT_NE(transportErrorOf(errors[0]), nullptr);
  EXPECT_EQ(transportErrorOf(errors[0])->kind(), Kind::timeout);
  EXPECT_EQ(transportErrorOf(errors[0])->curlCode(), CURLE_OPERATION_TIMEDOUT);
}

// libcurl keeps the parsed trust store between connections; a bundle trusted later must
// still reach the next connection, and a server nobody trusted must still be refused by it.
TEST(TransportTrust, ABundleTrustedAfterConnectionsWereMadeTrustsTheNextConnection) {
  test::SandboxEnv env;
  const auto ok = [](const std::string& url) {
    auto future = detail::sendHttpRequest(get(url));
    if (future.wait_for(30s) != std::future_status::ready) return false;
    try {
      return future.get().status == 200;
    } catch (const std::exception&) {
      return false;
    }
  };
  env.server().script("/x", test::reply(200, "{}"));
  ASSERT_TRUE(ok(env.base() + "/x"));  // the store is parsed and kept from here on

  sandbox::Options laterOptions;
  laterOptions.certNames = {"127.0.0.1", "trusted-later.test"};
  sandbox::Sandbox later(laterOptions);
  later.start();
  later.script("/x", test::reply(200, "{}"));
  EXPECT_EQ(failureKind(detail::sendHttpRequest(get(later.baseUrl() + "/x"))), Kind::tls);

  transport::trustCaBundle(later.certPath());
  EXPECT_TRUE(ok(later.baseUrl() + "/x"));
  EXPECT_TRUE(ok(env.base() + "/x"));  // the bundles trusted before still count

  sandbox::Options neverOptions;
  neverOptions.certNames = {"127.0.0.1", "never-trusted.test"};
  sandbox::Sandbox never(neverOptions);
  never.start();
  EXPECT_EQ(failureKind(detail::sendHttpRequest(get(never.baseUrl() + "/x"))), Kind::tls);
}

TEST(TransportThreads, LargeAnswersCompleteOffTheTransportThread) {
  test::SandboxEnv env;
  std::string big = "[";
  for (int i = 0; i < 20'000; ++i) big += (i ? ",\"" : "\"") + std::to_string(i) + "\"";
  big += "]";
  ASSERT_GT(big.size(), 100'000u);
  // Answers that come after the continuation is in place.
  auto bigAnswer = test::reply(200, big);
  bigAnswer.delay = 200ms;
  env.server().script("/big", bigAnswer);
  env.server().script("/small", test::slow(200ms, "[1]"));
  struct Where {
    bool transport = false;
    bool background = false;
  };
  const auto where = [&](const std::string& path) {
    return WebService(false)
        .request(*Url::parse(env.base() + path), HTTPMethod::get, std::nullopt)
        .then([](const nlohmann::json&) {
          return Where{detail::onTransportThread(), detail::onBackgroundThread()};
        })
        .get();
  };
  const Where big_ = where("/big");
  EXPECT_FALSE(big_.transport) << "a large answer was parsed on the transport thread";
  EXPECT_TRUE(big_.background);
  const Where small = where("/small");
  EXPECT_TRUE(small.transport) << "a small answer is handed over for nothing";
}

TEST(TransportLanes, CreativesNeverStandInFrontOfAnEventToTheSameOrigin) {
  // Thirty creatives answered after 30 s, then an event to the same host: the event is
  // answered while every creative is still in transfer or waiting, and the creatives
  // never held more than half of the host's connections.
  test::SandboxEnv env;
  env.server().script("/media/slow.png", test::slow(30s));
  setTransport(60s, 6, 20'000);
  std::vector<Future<detail::HttpResponse>> creatives;
  for (int i = 0; i < 30; ++i) {
    auto request = get(env.base() + "/media/slow.png?n=" + std::to_string(i));
    request.source = detail::RequestSource::media;
    creatives.push_back(detail::sendHttpRequest(std::move(request)));
  }
  ASSERT_TRUE(env.server().waitForRequests(3, 10s));
  std::this_thread::sleep_for(300ms);  // time for more to go out, if more could
  EXPECT_EQ(env.server().requests("/media/slow.png").size(), 3u) << "media took more than half";

  auto event = detail::sendHttpRequest(get(env.base() + "/events?event_name=funnel_impression"));
  ASSERT_EQ(event.wait_for(20s), std::future_status::ready) << "the event waited behind media";
  EXPECT_EQ(event.get().status, 200);
  for (const auto& creative : creatives) EXPECT_FALSE(creative.is_ready());

  for (auto& creative : creatives) creative.cancel();
  for (auto& creative : creatives) EXPECT_EQ(failureKind(creative), Kind::cancelled);
}

TEST(TransportLanes, StoredEventsLeaveAConnectionFreeAndYieldToTheOriginsOwnRequests) {
  // Three connections per host. A backlog of stored events (answered after 30 s) takes at
  // most two of them and a fetch goes out at once. When the host's own request takes the
  // last free connection, a stored event that ends leaves its connection free instead of
  // passing it on to the next stored one, until the host's own request is done.
  test::SandboxEnv env;
  env.server().script("/stored", test::slow(30s));
  env.server().script("/own", test::slow(1500ms));
  setTransport(60s, 3, 20'000);
  std::vector<Future<detail::HttpResponse>> stored;
  for (int i = 0; i < 10; ++i) {
    auto request = get(env.base() + "/stored?n=" + std::to_string(i));
    request.source = detail::RequestSource::storedEvent;
    stored.push_back(detail::sendHttpRequest(std::move(request)));
  }
  ASSERT_TRUE(env.server().waitForRequests(2, 10s));
  std::this_thread::sleep_for(300ms);  // time for more to go out, if more could
  EXPECT_EQ(env.server().requests("/stored").size(), 2u) << "stored events took every connection";

  auto fetch = detail::sendHttpRequest(get(env.base() + "/v2/bsda?pt=home"));
  ASSERT_EQ(fetch.wait_for(10s), std::future_status::ready) << "a fetch waited behind the store";
  EXPECT_EQ(fetch.get().status, 200);

  auto own = detail::sendHttpRequest(get(env.base() + "/own"));
  ASSERT_TRUE(env.server().waitForRequests(4, 10s));
  stored[0].cancel();
  EXPECT_EQ(failureKind(stored[0]), Kind::cancelled);
  std::this_thread::sleep_for(500ms);
  EXPECT_EQ(env.server().requests("/stored").size(), 2u)
      << "a stored event took the last free connection";
  ASSERT_EQ(own.wait_for(20s), std::future_status::ready);
  EXPECT_EQ(own.get().status, 200);
  // With the host's own request done, the backlog goes on.
  EXPECT_TRUE(env.server().waitForRequests(5, 10s));
  EXPECT_EQ(env.server().requests("/stored").size(), 3u);
  for (auto& request : stored) request.cancel();
}
