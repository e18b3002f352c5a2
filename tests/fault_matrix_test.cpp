// Every public network operation family against every fault the sandbox can script: the
// documented error case, at most one onError per layer, and no hang.
#include <gtest/gtest.h>

#include <functional>
#include <mutex>

#include "support/sandbox_env.h"
#include "tavik/tavik.h"

using namespace tavik;
using namespace std::chrono_literals;
using Case = TavikError::Case;

namespace {

enum class Family { fetch, render, registerEvent };

const char* name(Family f) {
  switch (f) {
    case Family::fetch:
      return "fetch";
    case Family::render:
      return "render";
    case Family::registerEvent:
      return "register";
  }
  return "?";
}

struct Outcome {
  bool finished = false;
  bool hasResult = false;
  std::vector<Case> errors;
};

// Runs one operation of `family` against `sdk` and waits at most 30 s for it.
Outcome run(Family family, const TAVIK& sdk) {
  auto errors = std::make_shared<std::vector<Case>>();
  auto mutex = std::make_shared<std::mutex>();
  ErrorHandler onError = [errors, mutex](const TavikError& e) {
    std::lock_guard lock(*mutex);
    errors->push_back(e.kind());
  };
  Outcome outcome;
  const auto finish = [&](const auto& future) {
    outcome.finished = future.wait_for(30s) == std::future_status::ready;
    if (outcome.finished) outcome.hasResult = future.get().has_value();
  };
  switch (family) {
    case Family::fetch:
      finish(sdk.adFetcher()->fetchDisplayAdsWithAu("u", "HOME", 1, {"au_home_banner"},
                                                    std::nullopt, onError));
      break;
    case Family::render:
      finish(sdk.adRenderer()->fetchBannerAdsWithAu("u", "HOME", "au_home_banner", std::nullopt,
                                                    onError));
      break;
    case Family::registerEvent:
      finish(sdk.registerEvent()->registerAdImpressionEvent("u", "uc", 1, nullptr, onError));
      break;
  }
  std::lock_guard lock(*mutex);
  outcome.errors = *errors;
  return outcome;
}

// What the renderer adds when its fetch failed: the fetcher's error, then badResponse.
std::vector<Case> expected(Family family, std::vector<Case> fetchErrors) {
  if (family == Family::render && !fetchErrors.empty()) fetchErrors.push_back(Case::badResponse);
  return fetchErrors;
}

struct Fault {
  const char* name;
  // Arranges the fault on the sandbox (for the paths the families use) and returns the
  // SDK to run against.
  std::function<TAVIK(test::SandboxEnv&)> arrange;
  std::vector<Case> fetchErrors;                   // what the fetcher and registrar report
  std::vector<Case> renderOnSuccessfulFetch = {};  // renderer errors when the fetch succeeds
};

void scriptBoth(test::SandboxEnv& env, const sandbox::ScriptedAnswer& answer) {
  env.server().script("/v2/bsda", answer);
  env.server().script("/events", answer);
}

std::vector<Fault> faults(sandbox::Sandbox& untrusted, sandbox::Sandbox& misnamed) {
  const auto sdkOf = [](test::SandboxEnv& env) { return env.sdk(); };
  return {
      {"refused connection",
       [](test::SandboxEnv&) {
         const std::string host = "127.0.0.1:" + std::to_string(test::closedPort());
         return TAVIK::Builder()
             .clientId("c")
             .displayAdsHost(host)
             .eventTrackingHost(host)
             .productAdsHost(host)
             .build();
       },
       {Case::defaultError}},
      {"reset mid-answer",
       [=](test::SandboxEnv& env) {
         scriptBoth(env, test::cutMidAnswer(std::string(10000, 'x')));
         return sdkOf(env);
       },
       {Case::defaultError}},
      {"slower than the time-out",
       [=](test::SandboxEnv& env) {
         scriptBoth(env, test::slow(3s));
         return sdkOf(env);
       },
       {Case::defaultError}},
      {"redirect to http",
       [=](test::SandboxEnv& env) {
         scriptBoth(env, test::redirect(302, "http://" + env.host() + "/plain"));
         return sdkOf(env);
       },
       {Case::defaultError}},
      {"301 loop",
       [=](test::SandboxEnv& env) {
         env.server().script("/v2/bsda", test::redirect(301, "/v2/bsda"));
         env.server().script("/events", test::redirect(301, "/events"));
         return sdkOf(env);
       },
       {Case::defaultError}},
      {"4xx",
       [=](test::SandboxEnv& env) {
         scriptBoth(env, test::reply(403, "{\"error\":\"forbidden\"}"));
         return sdkOf(env);
       },
       {Case::badStatus}},
      {"5xx",
       [=](test::SandboxEnv& env) {
         scriptBoth(env, test::reply(502, "bad gateway", "text/plain"));
         return sdkOf(env);
       },
       {Case::badStatus}},
      {"oversized body",
       [=](test::SandboxEnv& env) {
         scriptBoth(env, test::reply(200, "[" + std::string(300 * 1024, ' ') + "]"));
         return sdkOf(env);
       },
       {Case::defaultError}},
      {"malformed JSON",
       [=](test::SandboxEnv& env) {
         scriptBoth(env, test::reply(200, "{\"ads\": {"));
         return sdkOf(env);
       },
       {Case::defaultError}},
      {"empty body",
       [=](test::SandboxEnv& env) {
         scriptBoth(env, test::reply(200, ""));
         return sdkOf(env);
       },
       {},
       {Case::defaultError}},
      {"untrusted certificate",
       [&untrusted](test::SandboxEnv&) {
         const std::string host = "127.0.0.1:" + std::to_string(untrusted.port());
         return TAVIK::Builder().clientId("c").displayAdsHost(host).eventTrackingHost(host).build();
       },
       {Case::defaultError}},
      {"wrong host name in the certificate",
       [&misnamed](test::SandboxEnv&) {
         const std::string host = "127.0.0.1:" + std::to_string(misnamed.port());
         return TAVIK::Builder().clientId("c").displayAdsHost(host).eventTrackingHost(host).build();
       },
       {Case::defaultError}},
  };
}

}  // namespace

TEST(FaultMatrix, EveryFamilyEndsInItsDocumentedErrorOnceWithoutAHang) {
  auto settings = transport::settings();
  settings.requestTimeout = 1s;
  settings.maxBodyBytes = 256 * 1024;
  transport::configure(settings);

  sandbox::Options untrustedOptions;
  untrustedOptions.certNames = {"127.0.0.1", "localhost", "never-trusted.test"};
  sandbox::Sandbox untrusted(untrustedOptions);
  untrusted.start();
  sandbox::Options misnamedOptions;
  misnamedOptions.certNames = {"wrong.example"};
  sandbox::Sandbox misnamed(misnamedOptions);
  misnamed.start();
  transport::trustCaBundle(misnamed.certPath());

  for (const auto& fault : faults(untrusted, misnamed)) {
    for (Family family : {Family::fetch, Family::render, Family::registerEvent}) {
      SCOPED_TRACE(std::string(fault.name) + " / " + name(family));
      test::SandboxEnv env;
      const TAVIK sdk = fault.arrange(env);
      const Outcome outcome = run(family, sdk);
      ASSERT_TRUE(outcome.finished) << "hang";
      std::vector<Case> want = expected(family, fault.fetchErrors);
      if (family == Family::render && fault.fetchErrors.empty())
        want = fault.renderOnSuccessfulFetch;
      EXPECT_EQ(outcome.errors, want);
      EXPECT_EQ(outcome.hasResult, want.empty());
    }
  }
  // The transport is still healthy after the whole matrix.
  test::SandboxEnv env;
  EXPECT_TRUE(run(Family::render, env.sdk()).hasResult);
}
