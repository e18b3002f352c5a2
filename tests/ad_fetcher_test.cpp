// The ad fetcher against the sandbox: exact requests on the wire, merges, error mapping
// and concurrency.
#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>

#include "support/sandbox_env.h"
#include "tavik/core/log.h"
#include "tavik/tavik.h"

using namespace tavik;
using namespace std::chrono_literals;
using Items = std::vector<std::pair<std::string, std::string>>;

namespace {

// Records every onError call.
struct Errors {
  std::shared_ptr<std::vector<TavikError>> seen = std::make_shared<std::vector<TavikError>>();
  ErrorHandler handler() {
    return [seen = seen](const TavikError& e) { seen->push_back(e); };
  }
  std::vector<TavikError::Case> cases() const {
    std::vector<TavikError::Case> out;
    for (const auto& e : *seen) out.push_back(e.kind());
    return out;
  }
};

std::optional<nlohmann::json> await(const AdFetcherProtocol::Result& future) {
  EXPECT_EQ(future.wait_for(30s), std::future_status::ready);
  return future.get();
}

Items osKeys() {
  return {{"os_version", sdkVersion()}, {"os_name", "iOS"}};
}

Items concat(Items a, const Items& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// A host-written targeting group that collides with the request's own keys.
class OverridingTargeting : public TargetingParams {
 public:
  Parameters toDictionary() const override { return Parameters{{"pt", "OVERRIDE"}, {"f.x", "1"}}; }
};

}  // namespace

class AdFetcherTest : public ::testing::Test {
 protected:
  test::SandboxEnv env;
  TAVIK sdk = env.sdk();
  std::unique_ptr<AdFetcherProtocol> fetcher = sdk.adFetcher();

  sandbox::RecordedRequest onlyRequest() {
    auto requests = env.server().requests();
    EXPECT_EQ(requests.size(), 1u);
    return requests.empty() ? sandbox::RecordedRequest{} : requests.back();
  }
};

TEST_F(AdFetcherTest, DisplayByAdUnitSendsTheBaseItemsThenTheOsKeys) {
  Errors errors;
  auto answer = await(
      fetcher->fetchDisplayAdsWithAu("u", "HOME", 2, {"a1", "a2"}, std::nullopt, errors.handler()));
  ASSERT_TRUE(answer);
  EXPECT_EQ((*answer)["status"], true);
  EXPECT_EQ((*answer)["response"]["code"], 200);
  EXPECT_TRUE((*answer)["response"]["data"].is_string());
  EXPECT_TRUE((*answer)["error"].is_null());
  EXPECT_TRUE(errors.seen->empty());

  const auto request = onlyRequest();
  EXPECT_EQ(request.path, "/v2/bsda");
  EXPECT_EQ(request.query, concat({{"client_id", "client-1"},
                                   {"cli_ubid", "u"},
                                   {"pt", "HOME"},
                                   {"pcnt_au", "2"},
                                   {"au[]", "a1"},
                                   {"au[]", "a2"}},
                                  osKeys()));
}

TEST_F(AdFetcherTest, DisplayTargetingMergesLastGroupWinsAndReplacesBaseKeys) {
  auto geo = std::make_shared<GeoTargeting>();
  geo->city("Paris").storeIds({"s1", "s2"});
  auto later = std::make_shared<GeoTargeting>();
  later->city("Lyon");
  auto platform = std::make_shared<PlatformTargeting>();
  platform->device("mobile");
  ASSERT_TRUE(await(fetcher->fetchDisplayAdsWithPt(
      "u", "HOME", 3,
      TargetingList{geo, platform, later, std::make_shared<OverridingTargeting>()})));
  const auto request = onlyRequest();
  EXPECT_EQ(request.path, "/v2/bsda/pt");
  EXPECT_EQ(request.value("pt"), "OVERRIDE");
  EXPECT_EQ(request.values("f.city"), std::vector<std::string>{"Lyon"});
  EXPECT_EQ(request.values("f.store_id[]"), (std::vector<std::string>{"s1", "s2"}));
  EXPECT_EQ(request.value("f.device"), "mobile");
  EXPECT_EQ(request.value("f.x"), "1");
  EXPECT_FALSE(request.value("au[]"));
  EXPECT_EQ(request.query.back(), (std::pair<std::string, std::string>{"os_name", "iOS"}));
}

TEST_F(AdFetcherTest, ProductListingRequestsFollowTheTable) {
  ASSERT_TRUE(await(fetcher->fetchPlaAds("u", PlaPageType::home, 4)));
  EXPECT_EQ(
      onlyRequest().query,
      concat({{"client_id", "client-1"}, {"cli_ubid", "u"}, {"page_type", "HOME"}, {"pcnt", "4"}},
             osKeys()));
  EXPECT_EQ(onlyRequest().path, "/sda");
  env.server().clearRequests();

  // The keywords travel as one item whose name carries the brackets.
  ASSERT_TRUE(await(fetcher->fetchPlaSearchPageAds("u", 2, "red shoes & socks")));
  auto search = onlyRequest();
  EXPECT_EQ(search.values("keywords[]"), std::vector<std::string>{"red shoes & socks"});
  EXPECT_EQ(search.value("page_type"), "SEARCH");
  EXPECT_NE(search.rawQuery.find("keywords%5B%5D=red%20shoes%20%26%20socks"), std::string::npos);
  env.server().clearRequests();

  // TPA goes to /sda/v1, and a filter's SKUs replace the argument's.
  auto filter = std::make_shared<ProductAdsFilter>();
  filter->skuIds({"s2"}).minPrice("5").colors({"red"});
  ASSERT_TRUE(await(fetcher->fetchTpaPageAds("u", 1, {"s1"}, "tpa page", filter)));
  auto tpa = onlyRequest();
  EXPECT_EQ(tpa.path, "/sda/v1");
  EXPECT_EQ(tpa.value("page_type"), "TPA");
  EXPECT_EQ(tpa.values("sku_ids[]"), std::vector<std::string>{"s2"});
  EXPECT_EQ(tpa.value("min_price"), "5");
  EXPECT_EQ(tpa.values("colors[]"), std::vector<std::string>{"red"});
  EXPECT_FALSE(tpa.value("page_name")) << "the page name is only logged";
  env.server().clearRequests();

  ASSERT_TRUE(await(fetcher->fetchTpaPageAds("u", 1, {"s1", "s3"})));
  EXPECT_EQ(onlyRequest().values("sku_ids[]"), (std::vector<std::string>{"s1", "s3"}));
}

TEST_F(AdFetcherTest, PageFormsAppendToTheHostsSharedFilter) {
  auto filter = std::make_shared<ProductAdsFilter>();
  ASSERT_TRUE(await(fetcher->fetchPlaProductPageAds("u", 1, {"p1"}, std::nullopt, filter)));
  ASSERT_TRUE(await(fetcher->fetchPlaProductPageAds("u", 1, {"p2"}, std::nullopt, filter)));
  auto requests = env.server().requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].value("page_type"), "PRODUCT");
  EXPECT_EQ(requests[0].values("sku_ids[]"), std::vector<std::string>{"p1"});
  EXPECT_EQ(requests[1].values("sku_ids[]"), (std::vector<std::string>{"p1", "p2"}));
  EXPECT_EQ(*filter->toDictionary().find("sku_ids")->asList(), (StringList{"p1", "p2"}));
  env.server().clearRequests();

  ASSERT_TRUE(await(fetcher->fetchPlaCategoryPageAds("u", 1, {"c1", "c2"})));
  ASSERT_TRUE(await(fetcher->fetchPlaPurchasePageAds("u", 1, {"b1"})));
  ASSERT_TRUE(await(fetcher->fetchPlaHomePageAds("u", 1)));
  requests = env.server().requests();
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_EQ(requests[0].value("page_type"), "CATEGORY");
  EXPECT_EQ(requests[0].values("categories[]"), (std::vector<std::string>{"c1", "c2"}));
  EXPECT_EQ(requests[1].value("page_type"), "PURCHASE");
  EXPECT_EQ(requests[1].values("sku_ids[]"), std::vector<std::string>{"b1"});
  EXPECT_EQ(requests[2].value("page_type"), "HOME");
  EXPECT_FALSE(requests[2].value("sku_ids[]"));
}

TEST_F(AdFetcherTest, MissingEndpointFailsItsFamilyOnlyAndSendsNothing) {
  Config config = env.config();
  config.plaAds.reset();
  config.displayAds->domainUri.clear();
  AdFetcher fetcher(config, WebService(false));
  Errors errors;
  const auto h = errors.handler();
  EXPECT_FALSE(await(fetcher.fetchPlaAds("u", PlaPageType::home, 1, std::nullopt, nullptr, h)));
  EXPECT_FALSE(await(fetcher.fetchPlaHomePageAds("u", 1, std::nullopt, nullptr, h)));
  EXPECT_FALSE(await(fetcher.fetchPlaSearchPageAds("u", 1, "k", std::nullopt, nullptr, h)));
  EXPECT_FALSE(await(fetcher.fetchPlaProductPageAds("u", 1, {"s"}, std::nullopt, nullptr, h)));
  EXPECT_FALSE(await(fetcher.fetchPlaCategoryPageAds("u", 1, {"c"}, std::nullopt, nullptr, h)));
  EXPECT_FALSE(await(fetcher.fetchPlaPurchasePageAds("u", 1, {"s"}, std::nullopt, nullptr, h)));
  EXPECT_FALSE(await(fetcher.fetchTpaPageAds("u", 1, {"s"}, std::nullopt, nullptr, h)));
  EXPECT_EQ(errors.cases(), std::vector<TavikError::Case>(7, TavikError::Case::missingPlaAdConfig));
  errors.seen->clear();
  EXPECT_FALSE(await(fetcher.fetchDisplayAdsWithAu("u", "HOME", 1, {"a"}, std::nullopt, h)));
  EXPECT_FALSE(await(fetcher.fetchDisplayAdsWithPt("u", "HOME", 1, std::nullopt, h)));
  EXPECT_EQ(errors.cases(),
            std::vector<TavikError::Case>(2, TavikError::Case::missingDisplayAdConfig));
  EXPECT_TRUE(env.server().requests().empty());

  // The other family still works on the same configuration.
  Config displayOnly = env.config();
  displayOnly.plaAds.reset();
  AdFetcher displayFetcher(displayOnly, WebService(false));
  EXPECT_TRUE(await(displayFetcher.fetchDisplayAdsWithAu("u", "HOME", 1, {"au_home_banner"},
                                                         std::nullopt, nullptr)));
  EXPECT_EQ(env.server().requests().size(), 1u);
}

TEST_F(AdFetcherTest, FailuresReachOnErrorOnceWithTheirMappedCase) {
  Errors errors;
  // A host name given with its own scheme doubles the scheme and fails the URL check.
  const TAVIK doubled =
      TAVIK::Builder().clientId("c").productAdsHost("https://" + env.host()).build();
  EXPECT_FALSE(await(
      doubled.adFetcher()->fetchPlaHomePageAds("u", 1, std::nullopt, nullptr, errors.handler())));
  EXPECT_EQ(errors.cases(), std::vector<TavikError::Case>{TavikError::Case::badUrl});
  EXPECT_TRUE(env.server().requests().empty());

  errors.seen->clear();
  env.server().script("/sda", test::reply(503, "{\"down\":true}"));
  EXPECT_FALSE(
      await(fetcher->fetchPlaHomePageAds("u", 1, std::nullopt, nullptr, errors.handler())));
  ASSERT_EQ(errors.seen->size(), 1u);
  EXPECT_EQ(errors.seen->at(0).kind(), TavikError::Case::badStatus);
  EXPECT_EQ(errors.seen->at(0).statusCode(), 503);
  EXPECT_EQ(errors.seen->at(0).body(), "{\"down\":true}");

  errors.seen->clear();
  env.server().script("/v2/bsda", test::reply(200, "<html>", "text/html"));
  EXPECT_FALSE(
      await(fetcher->fetchDisplayAdsWithAu("u", "HOME", 1, {"a"}, std::nullopt, errors.handler())));
  EXPECT_EQ(errors.cases(), std::vector<TavikError::Case>{TavikError::Case::defaultError});

  errors.seen->clear();
  const TAVIK nowhere = TAVIK::Builder()
                            .clientId("c")
                            .displayAdsHost("127.0.0.1:" + std::to_string(test::closedPort()))
                            .build();
  EXPECT_FALSE(await(
      nowhere.adFetcher()->fetchDisplayAdsWithPt("u", "HOME", 1, std::nullopt, errors.handler())));
  ASSERT_EQ(errors.cases(), std::vector<TavikError::Case>{TavikError::Case::defaultError});
  EXPECT_NE(dynamic_cast<const TransportError*>(errors.seen->at(0).cause().get()), nullptr);

  // No handler: the failure is silent, the result still empty.
  EXPECT_FALSE(await(fetcher->fetchPlaHomePageAds("u", 1)));
}

TEST_F(AdFetcherTest, ManyFetchesInFlightFromSeveralThreads) {
  constexpr int kThreads = 8;
  constexpr int kPerThread = 25;
  std::atomic<int> succeeded{0};
  std::atomic<int> failed{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      auto own = sdk.adFetcher();
      std::vector<AdFetcherProtocol::Result> mine;
      for (int i = 0; i < kPerThread; ++i) {
        const std::string id = std::to_string(t) + "-" + std::to_string(i);
        mine.push_back(i % 2 ? own->fetchPlaHomePageAds(id, 1)
                             : own->fetchDisplayAdsWithAu(id, "HOME", 1, {"au_home_banner"},
                                                          std::nullopt,
                                                          [&](const TavikError&) { ++failed; }));
      }
      for (auto& f : mine) {
        if (f.wait_for(30s) == std::future_status::ready && f.get()) ++succeeded;
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(succeeded, kThreads * kPerThread);
  EXPECT_EQ(failed, 0);
  const auto requests = env.server().requests();
  EXPECT_EQ(requests.size(), static_cast<std::size_t>(kThreads * kPerThread));
  std::set<std::string> shoppers;
  for (const auto& r : requests) shoppers.insert(r.value("cli_ubid").value_or(""));
  EXPECT_EQ(shoppers.size(), requests.size()) << "every fetch arrives exactly once";
  EXPECT_LE(env.server().connectionCount(), 6u);
}

TEST_F(AdFetcherTest, DebugLinesDescribeTheCallThenTheRequest) {
  std::vector<std::string> lines;
  setLogSink([&](std::string_view line) { lines.emplace_back(line); });
  const TAVIK debugSdk = env.sdk(true);
  await(debugSdk.adFetcher()->fetchDisplayAdsWithAu("u", "HOME", 2, {"a1"}));
  await(sdk.adFetcher()->fetchDisplayAdsWithAu("u", "HOME", 2, {"a1"}));  // debug off: silent
  setLogSink(nullptr);
  ASSERT_GE(lines.size(), 8u);
  EXPECT_EQ(lines[0], R"("TAVIK: - cliUbid = u")");
  EXPECT_EQ(lines[1], R"("TAVIK: - pageType = HOME")");
  EXPECT_EQ(lines[2], R"("TAVIK: - productCount = 2")");
  EXPECT_EQ(lines[3], R"("TAVIK: - targetingParams = nil")");
  EXPECT_EQ(lines[4], "\"TAVIK: - Api string = " + env.base() + "/v2/bsda\"");
  EXPECT_TRUE(lines[7].starts_with(
      R"("TAVIK: - Generated URL Response: [\"status\": true, \"apiUrl\": https://)"))
      << lines[7];
  for (const auto& line : lines) EXPECT_TRUE(line.starts_with("\"TAVIK: - ")) << line;
  const auto finalUrl = std::find_if(lines.begin(), lines.end(), [](const std::string& l) {
    return l.find("Final URL = ") != std::string::npos;
  });
  ASSERT_NE(finalUrl, lines.end());
  EXPECT_NE(finalUrl->find("os_name=iOS"), std::string::npos);
}

TEST(AdFetcherAccessor, NewObjectPerCallAndNoneWithoutAClientId) {
  const TAVIK sdk = TAVIK::Builder().clientId("c").build();
  auto a = sdk.adFetcher();
  auto b = sdk.adFetcher();
  ASSERT_TRUE(a && b);
  EXPECT_NE(a.get(), b.get());
  const TAVIK empty = TAVIK::Builder().clientId("").build();
  EXPECT_EQ(empty.adFetcher(), nullptr);
  EXPECT_EQ(empty.adRenderer(), nullptr);
  EXPECT_EQ(empty.registerEvent(), nullptr);
}
