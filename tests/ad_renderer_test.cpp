// The ad renderer end to end against the sandbox's catalogue and scripted documents,
// with every failure path and the errors it reports.
#include <gtest/gtest.h>

#include "support/sandbox_env.h"
#include "tavik/ads/ad_renderer.h"

using namespace tavik;
using namespace std::chrono_literals;
using Case = TavikError::Case;

namespace {

struct Errors {
  std::shared_ptr<std::vector<TavikError>> seen = std::make_shared<std::vector<TavikError>>();
  ErrorHandler handler() {
    return [seen = seen](const TavikError& e) { seen->push_back(e); };
  }
  std::vector<Case> cases() const {
    std::vector<Case> out;
    for (const auto& e : *seen) out.push_back(e.kind());
    return out;
  }
};

template <class T>
T await(const Future<T>& future) {
  EXPECT_EQ(future.wait_for(30s), std::future_status::ready);
  return future.get();
}

std::string ad(const std::string& uclid, const std::string& au, const std::string& rank,
               const std::string& cliUbid = "") {
  return R"({"uclid":")" + uclid + R"(","au":")" + au +
         R"(","crt":"tavik_sdk/image/v1","client_id":7,"rank":)" + rank +
         R"(,"click_tracking_url":"https://c","impression_tracking_url":"https://i",)" +
         (cliUbid.empty() ? "" : R"("cli_ubid":")" + cliUbid + R"(",)") +
         R"("elements":{"value":"https://img","height":50,"width":320,"type":"image"}})";
}

}  // namespace

class AdRendererTest : public ::testing::Test {
 protected:
  test::SandboxEnv env;
  TAVIK sdk = env.sdk();
  std::unique_ptr<AdRendererProtocol> renderer = sdk.adRenderer();

  void serve(const std::string& document) {
    env.server().script("/v2/bsda", test::reply(200, document));
  }
};

TEST_F(AdRendererTest, CatalogueAdsComeBackDecodedAndStamped) {
  Errors errors;
  auto banner = await(renderer->fetchBannerAdsWithAu("shopper-9", "HOME", "au_home_banner",
                                                     std::nullopt, errors.handler()));
  ASSERT_TRUE(banner) << (errors.seen->empty() ? "" : errors.seen->at(0).description());
  EXPECT_EQ(banner->au, "au_home_banner");
  EXPECT_TRUE(isImageCreative(banner->crt));
  EXPECT_EQ(banner->cliUbid, "shopper-9");
  EXPECT_EQ(banner->id(), banner->uclid);
  auto request = env.server().requests().back();
  EXPECT_EQ(request.path, "/v2/bsda");
  EXPECT_EQ(request.value("pcnt_au"), "1");
  EXPECT_EQ(request.values("au[]"), std::vector<std::string>{"au_home_banner"});
  EXPECT_EQ(request.value("cli_ubid"), "shopper-9");

  auto carousel = await(renderer->fetchCarouselAdWithAu("shopper-9", "HOME", "au_carousel"));
  ASSERT_TRUE(carousel);
  EXPECT_TRUE(isCarouselCreative(carousel->crt));
  EXPECT_EQ(carousel->elements.carouselCards.size(), 3u);
  EXPECT_EQ(carousel->cliUbid, "shopper-9");

  auto multi = await(renderer->fetchMultiAdCarouselWithAu("shopper-9", "HOME", "au_multi", 4));
  ASSERT_TRUE(multi);
  EXPECT_EQ(multi->size(), 4u);
  for (const auto& each : *multi) EXPECT_EQ(each.cliUbid, "shopper-9");
  EXPECT_EQ(env.server().requests().back().value("pcnt_au"), "4");
  EXPECT_TRUE(errors.seen->empty());
}

TEST_F(AdRendererTest, FirstAdInServerOrderWinsAndCliUbidIsReplaced) {
  serve(R"({"ads":{"au":[)" + ad("second-rank", "au", "2", "theirs") + "," +
        ad("first-rank", "au", "1") + "]}}");
  auto banner = await(renderer->fetchBannerAdsWithAu("mine", "HOME", "au"));
  ASSERT_TRUE(banner);
  EXPECT_EQ(banner->uclid, "second-rank");
  EXPECT_EQ(banner->cliUbid, "mine");

  auto all = await(renderer->fetchMultiAdCarouselWithAu("mine", "HOME", "au", 2));
  ASSERT_TRUE(all);
  ASSERT_EQ(all->size(), 2u);
  EXPECT_EQ((*all)[0].uclid, "second-rank");
  EXPECT_EQ((*all)[1].uclid, "first-rank");
  EXPECT_EQ((*all)[1].cliUbid, "mine");
}

TEST_F(AdRendererTest, DocumentProblemsMapToTheirErrors) {
  struct Row {
    const char* name;
    std::string body;
    Case expected;
  };
  const std::vector<Row> rows = {
      {"unit missing", R"({"ads":{"other":[)" + ad("x", "other", "1") + "]}}",
       Case::failedToDecode},
      {"unit empty", R"({"ads":{"au":[]}})", Case::failedToDecode},
      {"unit case differs", R"({"ads":{"AU":[)" + ad("x", "AU", "1") + "]}}", Case::failedToDecode},
      {"bad ad elsewhere",
       R"({"ads":{"au":[)" + ad("x", "au", "1") + R"(],"other":[)" + ad("y", "other", "\"1\"") +
           "]}}",
       Case::defaultError},
      {"no ads key", R"({"data":[]})", Case::defaultError},
      {"ads is a list", R"({"ads":[]})", Case::defaultError},
  };
  for (const auto& row : rows) {
    serve(row.body);
    Errors errors;
    EXPECT_FALSE(
        await(renderer->fetchBannerAdsWithAu("u", "HOME", "au", std::nullopt, errors.handler())))
        << row.name;
    EXPECT_EQ(errors.cases(), std::vector<Case>{row.expected}) << row.name;
  }

  // A decoding failure names the key and where it is.
  serve(R"({"ads":{"au":[)" + ad("x", "au", "1") + "," + ad("y", "au", "\"1\"") + "]}}");
  Errors errors;
  await(renderer->fetchMultiAdCarouselWithAu("u", "HOME", "au", 2, std::nullopt, errors.handler()));
  ASSERT_EQ(errors.cases(), std::vector<Case>{Case::defaultError});
  const auto* decoding = dynamic_cast<const DecodingError*>(errors.seen->at(0).cause().get());
  ASSERT_NE(decoding, nullptr);
  EXPECT_NE(decoding->path().find("au[1].rank"), std::string::npos) << decoding->what();
  EXPECT_NE(errors.seen->at(0).description().find("rank"), std::string::npos);

  // A banner document is not a carousel document.
  serve(R"({"ads":{"au":[)" + ad("x", "au", "1") + "]}}");
  Errors carouselErrors;
  EXPECT_FALSE(await(
      renderer->fetchCarouselAdWithAu("u", "HOME", "au", std::nullopt, carouselErrors.handler())));
  EXPECT_EQ(carouselErrors.cases(), std::vector<Case>{Case::defaultError});
}

TEST_F(AdRendererTest, AFailedFetchReportsTheFetchersErrorThenBadResponse) {
  env.server().script("/v2/bsda", test::reply(404, "{}"));
  Errors errors;
  EXPECT_FALSE(
      await(renderer->fetchBannerAdsWithAu("u", "HOME", "au", std::nullopt, errors.handler())));
  EXPECT_EQ(errors.cases(), (std::vector<Case>{Case::badStatus, Case::badResponse}));
  EXPECT_EQ(errors.seen->at(0).statusCode(), 404);

  env.server().script("/v2/bsda", test::reply(200, "not json", "text/plain"));
  Errors parse;
  EXPECT_FALSE(
      await(renderer->fetchCarouselAdWithAu("u", "HOME", "au", std::nullopt, parse.handler())));
  EXPECT_EQ(parse.cases(), (std::vector<Case>{Case::defaultError, Case::badResponse}));

  Config config = env.config();
  config.displayAds.reset();
  Errors missing;
  EXPECT_FALSE(await(AdRenderer(config).fetchMultiAdCarouselWithAu(
      "u", "HOME", "au", 3, std::nullopt, missing.handler())));
  EXPECT_EQ(missing.cases(), (std::vector<Case>{Case::missingDisplayAdConfig, Case::badResponse}));

  // Without a handler every failure is silent.
  AdRenderer silent(config);
  EXPECT_FALSE(
      await(static_cast<AdRendererProtocol&>(silent).fetchBannerAdsWithAu("u", "HOME", "au")));
}

TEST(AdRendererEnvelope, OnlyAStatusTrueResponseWithStringDataUnwraps) {
  const auto envelope = [](nlohmann::json j) {
    return std::optional<nlohmann::json>(std::move(j));
  };
  const auto good = envelope(
      {{"status", true}, {"response", {{"code", 200}, {"data", "{}"}}}, {"error", nullptr}});
  const std::string* data = detail::unwrapEnvelope(good);
  ASSERT_NE(data, nullptr);
  EXPECT_EQ(*data, "{}");
  const std::optional<nlohmann::json> none;
  EXPECT_EQ(detail::unwrapEnvelope(none), nullptr);
  for (const auto& bad : {
           nlohmann::json{{"status", false}, {"response", {{"data", "{\"ads\":{}}"}}}},
           nlohmann::json{{"status", "true"}, {"response", {{"data", "{}"}}}},
           nlohmann::json{{"response", {{"data", "{}"}}}},
           nlohmann::json{{"status", true},
                          {"response", {{"data", {{"ads", nlohmann::json::object()}}}}}},
           nlohmann::json{{"status", true}, {"response", "text"}},
           nlohmann::json{{"status", true}, {"response", {{"code", 200}}}},
           nlohmann::json{{"status", true}, {"response", {{"data", "\xff\xfe"}}}},
           nlohmann::json::array(),
       }) {
    const auto answer = envelope(bad);
    EXPECT_EQ(detail::unwrapEnvelope(answer), nullptr)
        << bad.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  }
}
