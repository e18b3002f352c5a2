// SDK entry, builder, configuration coding, errors and the parameter values.
#include <gtest/gtest.h>

#include <cstdlib>
#include <future>
#include <thread>

#include <nlohmann/json.hpp>

#include "tavik/core/config.h"
#include "tavik/core/error.h"
#include "tavik/core/log.h"
#include "tavik/core/tavik.h"
#include "tavik/core/value.h"
#include "tavik/tavik.h"

using namespace tavik;
using namespace std::chrono_literals;

TEST(BuilderDeathTest, MisuseStopsTheProcessWithTheFixedMessage) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(TAVIK::Builder().build(),
               "TAVIK.Builder: clientId is required. Call \\.clientId\\(\"your_client_id\"\\) "
               "before \\.build\\(\\)");
  EXPECT_DEATH(TAVIK::shared(),
               "TAVIK SDK not initialized. Please initialize TAVIK SDK using "
               "`TAVIK.buildGlobalInstance\\(\\)");
  EXPECT_DEATH(TAVIK::globalInstance(), "TAVIK SDK not initialized");
  EXPECT_DEATH(
      {
        TAVIK::Builder().clientId("c").buildGlobalInstance();
        TAVIK::Builder().clientId("c").buildGlobalInstance();
      },
      "TAVIK.Builder: TAVIK can only be built once. Call \\.buildSingleInstance\\(\\) before "
      "\\.build\\(\\)");
}

TEST(Builder, MapsHostNamesToEndpointsAsGiven) {
  const TAVIK sdk = TAVIK::Builder()
                        .clientId("client-1")
                        .productAdsHost("pla.example")
                        .displayAdsHost(" display.example/")
                        .eventTrackingHost("https://events.example")
                        .debug(true)
                        .build();
  ASSERT_TRUE(sdk.config());
  EXPECT_EQ(sdk.config()->clientId, "client-1");
  EXPECT_TRUE(sdk.config()->debug);
  EXPECT_EQ(sdk.config()->plaAds->domainUri, "https://pla.example");
  // No trimming and no checks: a bad host name surfaces later as a bad URL.
  EXPECT_EQ(sdk.config()->displayAds->domainUri, "https:// display.example/");
  EXPECT_EQ(sdk.config()->registerEvent->domainUri, "https://https://events.example");
  const TAVIK defaults = TAVIK::Builder().clientId("c").build();
  EXPECT_FALSE(defaults.config()->debug);
  EXPECT_TRUE(defaults.config()->plaAds->domainUri.starts_with("https://"));
}

TEST(Builder, SetUserIdOnlySpeaksBeforeSetUp) {
  std::vector<std::string> lines;
  setLogSink([&](std::string_view line) { lines.emplace_back(line); });
  TAVIK::Builder().clientId("c").build().setUserId("u1");
  EXPECT_TRUE(lines.empty());
  setLogSink(nullptr);
}

TEST(LogSink, ASinkMayLogAndReplaceTheSinkWithoutADeadlock) {
  // The sink used to be called with the SDK's lock held: a sink that logged, or that
  // replaced the sink, waited for itself forever.
  std::vector<std::string> first, second;
  std::promise<void> finished;
  auto done = finished.get_future();
  std::thread worker([&] {
    setLogSink([&](std::string_view line) {
      first.emplace_back(line);
      detail::debugLine("written from inside the sink");  // goes to standard error
      setLogSink([&](std::string_view next) { second.emplace_back(next); });
    });
    detail::debugLine("one");
    detail::debugLine("two");
    setLogSink(nullptr);
    finished.set_value();
  });
  if (done.wait_for(10s) != std::future_status::ready) {
    ADD_FAILURE() << "the sink deadlocked";
    std::_Exit(1);
  }
  worker.join();
  EXPECT_EQ(first, (std::vector<std::string>{R"("TAVIK: - one")"}));
  EXPECT_EQ(second, (std::vector<std::string>{R"("TAVIK: - two")"}));
}

// The fallback sink (tavik::quick's bridge to Qt's logging) takes the lines only while the
// host has no sink of its own, whichever was installed first.
TEST(LogSink, TheHostsSinkComesBeforeTheFallback) {
  std::vector<std::string> host, fallback;
  detail::setFallbackLogSink([&](std::string_view line) { fallback.emplace_back(line); });
  detail::debugLine("one");
  setLogSink([&](std::string_view line) { host.emplace_back(line); });
  detail::debugLine("two");
  detail::setFallbackLogSink([&](std::string_view line) { fallback.emplace_back(line); });
  detail::debugLine("three");
  setLogSink(nullptr);
  detail::debugLine("four");
  detail::setFallbackLogSink(nullptr);
  detail::debugLine("to standard error");
  EXPECT_EQ(fallback, (std::vector<std::string>{R"("TAVIK: - one")", R"("TAVIK: - four")"}));
  EXPECT_EQ(host, (std::vector<std::string>{R"("TAVIK: - two")", R"("TAVIK: - three")"}));
  EXPECT_EQ(detail::debugLineText("a \"b\""), R"("TAVIK: - a \"b\"")");
}

TEST(Builder, AnUnreadableCaBundleIsReportedNotThrown) {
  std::vector<std::string> lines;
  setLogSink([&](std::string_view line) { lines.emplace_back(line); });
  const TAVIK sdk = TAVIK::Builder().clientId("c").trustedCaBundle("/nonexistent/ca.pem").build();
  setLogSink(nullptr);
  EXPECT_TRUE(sdk.adFetcher());
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_NE(lines[0].find("/nonexistent/ca.pem"), std::string::npos) << lines[0];
}

TEST(Config, JsonCodingUsesFieldNamesAndOmitsAbsentEndpoints) {
  Config config;
  config.clientId = "c";
  config.debug = true;
  config.displayAds = DisplayAdsConfig{"https://d.example"};
  const auto json = nlohmann::json::parse(encodeConfig(config));
  EXPECT_EQ(json,
            nlohmann::json::parse(
                R"({"clientId":"c","debug":true,"displayAds":{"domainUri":"https://d.example"}})"));

  const Config minimal = decodeConfig(R"({"clientId":"c","debug":false})");
  EXPECT_FALSE(minimal.registerEvent || minimal.displayAds || minimal.plaAds);
  const Config full =
      decodeConfig(encodeConfig(TAVIK::Builder().clientId("x").build().config().value()));
  EXPECT_EQ(full.plaAds->domainUri, "https://pla.ads.tavik.io");
  EXPECT_EQ(decodeConfig(R"({"clientId":"c","debug":false,"plaAds":null})").plaAds, std::nullopt);
}

TEST(Config, DecodingFailuresNameTheKey) {
  const auto failure = [](const std::string& text) {
    try {
      decodeConfig(text);
    } catch (const DecodingError& e) {
      return std::string(e.what());
    }
    return std::string("decoded");
  };
  EXPECT_NE(failure(R"({"debug":false})").find("clientId"), std::string::npos);
  EXPECT_NE(failure(R"({"clientId":"c"})").find("debug"), std::string::npos);
  EXPECT_NE(failure(R"({"clientId":"c","debug":"yes"})").find("debug"), std::string::npos);
  EXPECT_NE(failure(R"({"clientId":"c","debug":true,"plaAds":{}})").find("plaAds.domainUri"),
            std::string::npos);
  EXPECT_NE(failure("{not json").find("invalid JSON"), std::string::npos);
  EXPECT_NE(failure("[1]").find("expected an object"), std::string::npos);
}

TEST(TavikError, CodesMessagesAndUnderlyingErrors) {
  EXPECT_EQ(TavikError::badStatus(404, "").description(),
            "The server returned an unsuccessful HTTP status code 404.");
  const auto pla = TavikError::missingPlaAdConfig().get();
  EXPECT_EQ(pla.code, "ERROR_CONFIGURATION");
  EXPECT_EQ(pla.message, "PLA Ads parameters not configured at time of SDK initialization.");
  for (auto e : {TavikError::missingConfiguration(), TavikError::missingDisplayAdConfig(),
                 TavikError::missingRegisterEventConfig()}) {
    EXPECT_EQ(e.get().code, "ERROR_CONFIGURATION");
  }

  // invalidRequest without a cause hands back itself; with one, the cause.
  const auto bare = TavikError::invalidRequest().get();
  const auto* self = dynamic_cast<const TavikError*>(bare.error.get());
  ASSERT_NE(self, nullptr);
  EXPECT_EQ(self->kind(), TavikError::Case::invalidRequest);
  auto cause = std::make_shared<std::runtime_error>("socket closed");
  EXPECT_EQ(TavikError::invalidRequest(cause).get().error, cause);

  // defaultError speaks with its wrapped error's voice.
  const auto wrapped = TavikError::defaultError(cause);
  EXPECT_EQ(wrapped.description(), "socket closed");
  EXPECT_EQ(wrapped.get().code, "UNKNOWN_ERROR");
  EXPECT_EQ(wrapped.get().message, "socket closed");
  EXPECT_EQ(wrapped.get().error, cause);
  EXPECT_EQ(wrapped.errorDescription(), "socket closed");
  EXPECT_EQ(wrapped.failureReason(), std::nullopt);
  EXPECT_STREQ(TavikError::failedToEncode().what(), "Failed to encode the data");
}

TEST(TavikError, MappingPassesSomeCasesAndWrapsTheRest) {
  const auto map = [](auto error) {
    return TavikError::fromException(std::make_exception_ptr(error));
  };
  EXPECT_EQ(map(TavikError::badStatus(500, "x")).statusCode(), 500);
  EXPECT_EQ(map(TavikError::badUrl()).kind(), TavikError::Case::badUrl);
  EXPECT_EQ(map(TavikError::missingPlaAdConfig()).kind(), TavikError::Case::missingPlaAdConfig);
  const auto encode = map(TavikError::failedToEncode());
  EXPECT_EQ(encode.kind(), TavikError::Case::defaultError);
  EXPECT_EQ(encode.description(), "Failed to encode the data");
  const auto transport = map(TransportError(7, "Couldn't connect"));
  EXPECT_EQ(transport.kind(), TavikError::Case::defaultError);
  ASSERT_NE(dynamic_cast<const TransportError*>(transport.cause().get()), nullptr);
  EXPECT_EQ(map(std::runtime_error("boom")).description(), "boom");
}

TEST(ParamValue, FloatTextIsShortestRoundTripWithAFraction) {
  EXPECT_EQ(floatText(12.5f), "12.5");
  EXPECT_EQ(floatText(10.0f), "10.0");
  EXPECT_EQ(floatText(0.1f), "0.1");
  EXPECT_EQ(floatText(-3.0f), "-3.0");
  EXPECT_EQ(floatText(0.0f), "0.0");
  EXPECT_EQ(floatText(1.0f / 3.0f), "0.33333334");
  EXPECT_EQ(floatText(16777216.0f), "1.6777216e+07");
  EXPECT_EQ(floatText(1e-5f), "1e-05");
  EXPECT_EQ(std::stof(floatText(1234567.9f)), 1234567.9f);
  EXPECT_EQ(ParamValue(5).text(), "5");
  EXPECT_EQ(ParamValue(std::int64_t{-9007199254740993}).text(), "-9007199254740993");
  EXPECT_EQ(ParamValue(true).text(), "true");
  EXPECT_EQ(ParamValue(2.5).text(), "2.5");
}

TEST(ParamValue, AHostsDoubleKeepsItsPrecisionAndType) {
  // A double used to be narrowed to a 32-bit float: 12345678.9 went out as 12345679.0.
  const ParamValue revenue(12345678.9);
  EXPECT_TRUE(revenue.isDouble());
  EXPECT_FALSE(revenue.isFloat());
  EXPECT_EQ(*revenue.asDouble(), 12345678.9);
  EXPECT_EQ(revenue.text(), "12345678.9");
  EXPECT_EQ(revenue.description(), "12345678.9");
  EXPECT_EQ(ParamValue(3.0).text(), "3.0");
  EXPECT_EQ(ParamValue(0.1).text(), "0.1");
  EXPECT_EQ(ParamValue(-2.0 / 3.0).text(), "-0.6666666666666666");
  EXPECT_EQ(doubleText(9007199254740992.0), "9.007199254740992e+15");
  EXPECT_EQ(doubleText(1e-5), "1e-05");
  EXPECT_NE(ParamValue(0.1), ParamValue(0.1f));
  // The SDK's own fields stay 32-bit floats with their float text.
  EXPECT_EQ(ParamValue(0.1f).text(), "0.1");
  EXPECT_TRUE(ParamValue(12.5f).isFloat());
}

TEST(Parameters, KeepInsertionOrderReplaceInPlaceAndDescribe) {
  Parameters p{{"pt", "HOME"}, {"pcnt", 2}};
  p.set("au", StringList{"a", "b\"c"});
  p.set("pt", "SEARCH");
  std::vector<std::string> keys;
  for (const auto& [key, value] : p) keys.push_back(key);
  EXPECT_EQ(keys, (std::vector<std::string>{"pt", "pcnt", "au"}));
  EXPECT_EQ(p.description(), R"(["pt": "SEARCH", "pcnt": 2, "au": ["a", "b\"c"]])");
  EXPECT_EQ(Parameters{}.description(), "[:]");
  EXPECT_EQ(describeOptional(nullptr), "nil");
  EXPECT_EQ(describeOptional(&p).rfind("Optional([", 0), 0u);
  p.merge(Parameters{{"pcnt", 3}, {"x", false}});
  EXPECT_EQ(*p.find("pcnt")->asInteger(), 3);
  EXPECT_EQ(p.size(), 4u);
}

TEST(LogSink, DebugLinesAreQuotedAndEscaped) {
  std::vector<std::string> lines;
  setLogSink([&](std::string_view line) { lines.emplace_back(line); });
  detail::debugLine("a \"b\" \\ c\nd");
  detail::debugLine(std::string("it's\t\r\x1b\x7f\x01\0 \xc3\xa9", 13));
  setLogSink(nullptr);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], R"("TAVIK: - a \"b\" \\ c\nd")");
  // Apostrophes are escaped too; other control characters as two upper-case hex digits;
  // non-ASCII text stays as it is.
  EXPECT_EQ(lines[1], R"("TAVIK: - it\'s\t\r\u{1B}\u{7F}\u{01}\0 é")");
}
