// The SDK's messages in Qt's logging: the core's lines under tavik.core with their text
// unchanged, the views' under tavik.views, selectable by logging rules, and a host's own
// log sink still taking everything when it installs one.
#include <gtest/gtest.h>

#include <QLoggingCategory>
#include <QQuickItem>
#include <string>
#include <vector>

#include "support/message_log.h"
#include "support/sandbox_fixture.h"
#include "tavik/ads/ad_fetcher.h"
#include "tavik/core/log.h"
#include "tavik/core/tavik.h"
#include "tavik/views/views.h"

namespace tavik::test {
namespace {

// One display-ad request with debug on, waited for.
void fetchWithDebug(SandboxEnv& env) {
  const TAVIK sdk = env.sdk(/*debug=*/true);
  ASSERT_TRUE(
      sdk.adFetcher()->fetchDisplayAdsWithAu("shopper", "HOME", 1, {"au_home_banner"}).get());
}

std::vector<std::string> texts(const std::vector<MessageLog::Message>& messages) {
  std::vector<std::string> result;
  for (const auto& message : messages) result.push_back(message.text.toStdString());
  return result;
}

TEST(QtLogging, TheCoresDebugLinesAreTavikCoreDebugMessagesWordForWord) {
  SandboxEnv env;
  // The lines as a host's own sink receives them...
  std::vector<std::string> sunk;
  setLogSink([&](std::string_view line) { sunk.emplace_back(line); });
  fetchWithDebug(env);
  setLogSink(nullptr);
  ASSERT_FALSE(sunk.empty());
  env.server().clearRequests();

  // ...and, with no sink of the host's, the same request's lines in Qt's logging.
  MessageLog log;
  fetchWithDebug(env);
  const auto core = log.in(QStringLiteral("tavik.core"));
  EXPECT_EQ(texts(core), sunk);
  for (const auto& message : core) EXPECT_EQ(message.type, QtDebugMsg);
  EXPECT_EQ(sunk.front().rfind("\"TAVIK: - ", 0), 0u) << sunk.front();
}

TEST(QtLogging, WithDebugOffTheCoreSaysNothing) {
  SandboxEnv env;
  MessageLog log;
  const TAVIK quiet = env.sdk(/*debug=*/false);
  ASSERT_TRUE(
      quiet.adFetcher()->fetchDisplayAdsWithAu("shopper", "HOME", 1, {"au_home_banner"}).get());
  EXPECT_TRUE(log.in(QStringLiteral("tavik.core")).empty());
}

// Lines written whatever the debug switch are warnings.
TEST(QtLogging, ACaBundleThatCannotBeReadIsATavikCoreWarning) {
  MessageLog log;
  TAVIK::Builder().clientId("c").trustedCaBundle("/nonexistent/tavik-ca.pem").build();
  const auto core = log.in(QStringLiteral("tavik.core"));
  ASSERT_EQ(core.size(), 1u);
  EXPECT_EQ(core[0].type, QtWarningMsg);
  EXPECT_TRUE(core[0].text.startsWith("TAVIK: ")) << core[0].text.toStdString();
  EXPECT_TRUE(core[0].text.contains("/nonexistent/tavik-ca.pem")) << core[0].text.toStdString();
}

TEST(QtLogging, TheViewsLinesAreTavikViewsAndRulesSelectEachCategory) {
  SandboxEnv env;
  QQuickItem orphan;  // in no engine: showAd makes nothing and, with debug on, says why
  const BannerAd ad =
      decodeBannerAd(SandboxFixture::shared().adJson("au_home_banner").toStdString());
  {
    MessageLog log;
    BannerAdViewManager(env.config(/*debug=*/true)).showAd(ad, {}, &orphan);
    const auto views = log.in(QStringLiteral("tavik.views"));
    ASSERT_EQ(views.size(), 1u);
    EXPECT_EQ(views[0].type, QtDebugMsg);
    EXPECT_TRUE(views[0].text.startsWith("\"TAVIK: - BannerAdView: "))
        << views[0].text.toStdString();
    EXPECT_TRUE(log.in(QStringLiteral("tavik.core")).empty());
  }
  QLoggingCategory::setFilterRules(QStringLiteral("tavik.views.debug=false"));
  {
    MessageLog log;
    BannerAdViewManager(env.config(/*debug=*/true)).showAd(ad, {}, &orphan);
    fetchWithDebug(env);
    EXPECT_TRUE(log.in(QStringLiteral("tavik.views")).empty());
    EXPECT_FALSE(log.in(QStringLiteral("tavik.core")).empty()) << "only tavik.views is off";
  }
  QLoggingCategory::setFilterRules(QStringLiteral("tavik.*.debug=false"));
  {
    MessageLog log;
    fetchWithDebug(env);
    EXPECT_TRUE(log.in(QStringLiteral("tavik.core")).empty());
  }
  QLoggingCategory::setFilterRules(QString());
}

// A host that installs its own sink gets every line, the views' too, and Qt's logging
// none of them.
TEST(QtLogging, AHostsOwnSinkComesFirst) {
  SandboxEnv env;
  MessageLog log;
  std::vector<std::string> sunk;
  setLogSink([&](std::string_view line) { sunk.emplace_back(line); });
  fetchWithDebug(env);
  QQuickItem orphan;
  const BannerAd ad =
      decodeBannerAd(SandboxFixture::shared().adJson("au_home_banner").toStdString());
  BannerAdViewManager(env.config(/*debug=*/true)).showAd(ad, {}, &orphan);
  setLogSink(nullptr);
  EXPECT_TRUE(log.in(QStringLiteral("tavik.core")).empty());
  EXPECT_TRUE(log.in(QStringLiteral("tavik.views")).empty());
  ASSERT_GE(sunk.size(), 2u);
  EXPECT_EQ(sunk.back().rfind("\"TAVIK: - BannerAdView: ", 0), 0u) << sunk.back();
}

}  // namespace
}  // namespace tavik::test
