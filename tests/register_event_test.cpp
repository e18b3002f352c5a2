// The event registrar against the sandbox: exact keys and values of every event, the
// host's tracking parameters, purchase lists, failures and a burst from many threads.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <set>
#include <thread>

#include "support/sandbox_env.h"
#include "tavik/core/log.h"
#include "tavik/events/register_event.h"

using namespace tavik;
using namespace std::chrono_literals;
using Items = std::vector<std::pair<std::string, std::string>>;

namespace {

std::optional<nlohmann::json> await(const RegisterEventProtocol::Result& future) {
  EXPECT_EQ(future.wait_for(30s), std::future_status::ready);
  return future.get();
}

std::int64_t nowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

// The query items without the common keys whose values vary or are checked elsewhere.
Items eventItems(const sandbox::RecordedRequest& r) {
  Items out;
  for (const auto& item : r.query) {
    if (item.first != "event_time" && item.first != "client_id" && item.first != "os_version" &&
        item.first != "os_name") {
      out.push_back(item);
    }
  }
  return out;
}

Items sorted(Items items) {
  std::sort(items.begin(), items.end());
  return items;
}

}  // namespace

class RegisterEventTest : public ::testing::Test {
 protected:
  test::SandboxEnv env;
  TAVIK sdk = env.sdk();
  std::unique_ptr<RegisterEventProtocol> registrar = sdk.registerEvent();

  sandbox::RecordedRequest last() {
    auto requests = env.server().requests();
    EXPECT_FALSE(requests.empty());
    return requests.empty() ? sandbox::RecordedRequest{} : requests.back();
  }
};

TEST_F(RegisterEventTest, EveryEventCarriesTheCommonKeys) {
  const auto before = nowMs();
  auto answer = await(registrar->registerAdImpressionEvent("shopper", "uc-1", 3));
  ASSERT_TRUE(answer);
  EXPECT_EQ((*answer)["response"]["code"], 200);
  const auto request = last();
  EXPECT_EQ(request.path, "/events");
  EXPECT_EQ(request.value("client_id"), "client-1");
  EXPECT_EQ(request.value("cli_ubid"), "shopper");
  EXPECT_EQ(request.value("event_name"), "funnel_impression");
  const auto eventTime = std::stoll(request.value("event_time").value_or("0"));
  EXPECT_GE(eventTime, before);
  EXPECT_LE(eventTime, nowMs());
  ASSERT_GE(request.query.size(), 2u);
  EXPECT_EQ(request.query[request.query.size() - 2].first, "os_version");
  EXPECT_EQ(request.query.back(), (std::pair<std::string, std::string>{"os_name", "iOS"}));
}

TEST_F(RegisterEventTest, EachOperationSendsItsOwnKeys) {
  await(registrar->registerAdClickEvent("s", "uc-click"));
  auto r = last();
  EXPECT_EQ(r.path, "/aclick");
  EXPECT_EQ(sorted(eventItems(r)), sorted({{"uclid", "uc-click"}, {"cli_ubid", "s"}}));
  EXPECT_FALSE(r.value("event_name"));

  await(registrar->registerViewProductEvent("s", "sku-1"));
  EXPECT_EQ(sorted(eventItems(last())), sorted({{"sku_id", "sku-1"},
                                                {"product_prices", ""},
                                                {"product_quantities", "1"},
                                                {"cli_ubid", "s"},
                                                {"event_name", "viewproduct"}}));

  await(registrar->registerAdd2CartEvent("s", "sku-2", 10.0f, "m-1"));
  EXPECT_EQ(sorted(eventItems(last())), sorted({{"sku_id", "sku-2"},
                                                {"product_prices", "10.0"},
                                                {"seller_id", "m-1"},
                                                {"product_quantities", "1"},
                                                {"cli_ubid", "s"},
                                                {"event_name", "funnel_add2cart"}}));

  await(registrar->registerAdImpressionEvent("s", "uc-2"));
  EXPECT_EQ(sorted(eventItems(last())),
            sorted({{"uclid", "uc-2"}, {"cli_ubid", "s"}, {"event_name", "funnel_impression"}}));

  await(registrar->registerVideoProgressEvent("s", "uc-3", 2.5f, 30.0f));
  EXPECT_EQ(sorted(eventItems(last())), sorted({{"uclid", "uc-3"},
                                                {"video_view_sec", "2.5"},
                                                {"video_duration_sec", "30.0"},
                                                {"cli_ubid", "s"},
                                                {"event_name", "funnel_video_progress"}}));

  await(registrar->registerVideoActionEvent("s", "uc-4", 0.1f, TavikVideoActionType::minimize));
  EXPECT_EQ(sorted(eventItems(last())), sorted({{"uclid", "uc-4"},
                                                {"video_view_sec", "0.1"},
                                                {"action_type", "minimize"},
                                                {"cli_ubid", "s"},
                                                {"event_name", "funnel_video_action"}}));

  auto extra = std::make_shared<TrackingParams>();
  extra->source("home").add("flag", true);
  await(registrar->registerTrackingEvent("s", TavikEventName::funnelAddToCart, extra));
  EXPECT_EQ(sorted(eventItems(last())), sorted({{"source", "home"},
                                                {"flag", "true"},
                                                {"cli_ubid", "s"},
                                                {"event_name", "funnel_add2cart"}}));
  EXPECT_EQ(env.server().requests().size(), 7u);
}

TEST_F(RegisterEventTest, PurchaseListsArePipeJoinedAndTrimmed) {
  await(registrar->registerPurchaseEvent("s", 7.5f, "order-1",
                                         {Product("a", 1.5f, 2, "m"), Product("b", 3.0f, 1)}));
  auto r = last();
  EXPECT_EQ(r.value("event_name"), "funnel_salecomplete");
  EXPECT_EQ(r.value("sales"), "7.5");
  EXPECT_EQ(r.value("order_id"), "order-1");
  EXPECT_EQ(r.value("product_prices"), "1.5|3.0");
  EXPECT_EQ(r.value("product_quantities"), "2|1");
  EXPECT_EQ(r.value("sku_ids"), "a|b");
  EXPECT_EQ(r.value("seller_id"), "m");

  await(registrar->registerPurchaseEvent(
      "s", 1.0f, "o2", {Product("x", 1, 1, "m"), Product("y", 2, 1), Product("z", 3, 1, "n")}));
  EXPECT_EQ(last().value("seller_id"), "m||n");

  await(registrar->registerPurchaseEvent(
      "s", 1.0f, "o3", {Product("x", 1, 1), Product("y", 2, 1, "m"), Product("z", 3, 1)}));
  EXPECT_EQ(last().value("seller_id"), "m");

  await(registrar->registerPurchaseEvent("s", 0.0f, "o4", {}));
  r = last();
  for (const char* key : {"product_prices", "product_quantities", "sku_ids", "seller_id"}) {
    EXPECT_EQ(r.value(key), "") << key;
  }
  EXPECT_EQ(r.value("sales"), "0.0");
}

TEST_F(RegisterEventTest, HostParametersAreWrittenButCommonKeysStayOnTheCopy) {
  auto params = std::make_shared<TrackingParams>();
  params->uclid("x").add("client_id", "forged").add("event_time", 1).storeId("st-1");
  await(registrar->registerAdImpressionEvent("s", "y", 4, params));
  const auto r = last();
  EXPECT_EQ(r.values("uclid"), std::vector<std::string>{"y"});
  EXPECT_EQ(r.values("client_id"), std::vector<std::string>{"client-1"});
  EXPECT_NE(r.value("event_time"), "1");
  EXPECT_EQ(r.value("store_id"), "st-1");
  EXPECT_EQ(r.value("position"), "4");

  // The host's object keeps what the event wrote, and nothing of the copy.
  const auto dictionary = params->toDictionary();
  EXPECT_EQ(*dictionary.find("uclid")->asString(), "y");
  EXPECT_EQ(*dictionary.find("position")->asInteger(), 4);
  EXPECT_EQ(*dictionary.find("client_id")->asString(), "forged");
  EXPECT_FALSE(dictionary.contains("cli_ubid"));
  EXPECT_FALSE(dictionary.contains("event_name"));

  // Reused for a click, it carries the earlier event's keys along.
  await(registrar->registerAdClickEvent("s", "z", params));
  EXPECT_EQ(last().value("position"), "4");
  EXPECT_EQ(last().value("uclid"), "z");
}

TEST_F(RegisterEventTest, AHostsNumbersGoOutWithTheirOwnPrecision) {
  auto params = std::make_shared<TrackingParams>();
  params->add("revenue", 12345678.9).add("ratio", 0.1).add("count", 7);
  await(registrar->registerAdImpressionEvent("s", "uc", std::nullopt, params, nullptr));
  const auto request = last();
  EXPECT_EQ(request.value("revenue"), "12345678.9");
  EXPECT_EQ(request.value("ratio"), "0.1");
  EXPECT_EQ(request.value("count"), "7");
  // The SDK's own float fields keep the float text.
  await(registrar->registerVideoProgressEvent("s", "uc", 1.1f, 30.0f, nullptr, nullptr));
  EXPECT_EQ(last().value("video_view_sec"), "1.1");
  EXPECT_EQ(last().value("video_duration_sec"), "30.0");
}

TEST_F(RegisterEventTest, MissingEndpointAndFailuresReachOnErrorOnce) {
  Config config = env.config();
  config.registerEvent->domainUri.clear();
  RegisterEvent unconfigured(config, WebService(false));
  std::vector<TavikError::Case> cases;
  const ErrorHandler record = [&](const TavikError& e) { cases.push_back(e.kind()); };
  EXPECT_FALSE(await(unconfigured.registerAdClickEvent("s", "u", nullptr, record)));
  EXPECT_FALSE(await(unconfigured.registerPurchaseEvent("s", 1, "o", {}, nullptr, record)));
  EXPECT_FALSE(
      await(unconfigured.registerTrackingEvent("s", TavikEventName::viewProduct, nullptr, record)));
  config.registerEvent.reset();
  RegisterEvent absent(config, WebService(false));
  EXPECT_FALSE(await(absent.registerAdImpressionEvent("s", "u", std::nullopt, nullptr, record)));
  EXPECT_EQ(cases, std::vector<TavikError::Case>(4, TavikError::Case::missingRegisterEventConfig));
  EXPECT_TRUE(env.server().requests().empty());

  cases.clear();
  env.server().script("/events", test::reply(500, "{}"));
  EXPECT_FALSE(
      await(registrar->registerAdImpressionEvent("s", "u", std::nullopt, nullptr, record)));
  EXPECT_EQ(cases, std::vector<TavikError::Case>{TavikError::Case::badStatus});

  cases.clear();
  const TAVIK doubled =
      TAVIK::Builder().clientId("c").eventTrackingHost("https://" + env.host()).build();
  EXPECT_FALSE(await(doubled.registerEvent()->registerAdClickEvent("s", "u", nullptr, record)));
  EXPECT_EQ(cases, std::vector<TavikError::Case>{TavikError::Case::badUrl});

  cases.clear();
  const TAVIK nowhere = TAVIK::Builder()
                            .clientId("c")
                            .eventTrackingHost("127.0.0.1:" + std::to_string(test::closedPort()))
                            .build();
  EXPECT_FALSE(await(nowhere.registerEvent()->registerAdClickEvent("s", "u", nullptr, record)));
  EXPECT_EQ(cases, std::vector<TavikError::Case>{TavikError::Case::defaultError});
}

TEST_F(RegisterEventTest, DebugLinePrintsTheDictionaryBeforeTheCommonKeys) {
  std::vector<std::string> lines;
  setLogSink([&](std::string_view line) { lines.emplace_back(line); });
  await(env.sdk(true).registerEvent()->registerAdClickEvent("s", "u"));
  setLogSink(nullptr);
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines[0], R"x("TAVIK: - [\"uclid\": \"u\", \"cli_ubid\": \"s\"]")x");
}

TEST_F(RegisterEventTest, BurstFromManyThreadsArrivesExactlyOnceOverFewConnections) {
  constexpr int kThreads = 8;
  constexpr int kPerThread = 125;
  std::atomic<int> errors{0};
  std::vector<std::thread> threads;
  std::vector<RegisterEventProtocol::Result> results[kThreads];
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kPerThread; ++i) {
        // A new registrar per event, fired and not awaited, as the views do it.
        results[t].push_back(sdk.registerEvent()->registerAdImpressionEvent(
            "s", "uc-" + std::to_string(t) + "-" + std::to_string(i), i, nullptr,
            [&](const TavikError&) { ++errors; }));
      }
    });
  }
  for (auto& t : threads) t.join();
  for (auto& list : results) {
    for (auto& f : list) EXPECT_TRUE(await(f));
  }
  EXPECT_EQ(errors, 0);
  const auto requests = env.server().requests();
  ASSERT_EQ(requests.size(), static_cast<std::size_t>(kThreads * kPerThread));
  std::set<std::string> uclids;
  for (const auto& r : requests) uclids.insert(r.value("uclid").value_or(""));
  EXPECT_EQ(uclids.size(), requests.size());
  EXPECT_EQ(env.server().eventLog().size(), requests.size());
  EXPECT_LE(env.server().connectionCount(), 6u);
}
