// The web service: URL checks and query building, then real HTTPS exchanges with the
// sandbox, including every transport failure ending in its error without a hang.
#include <gtest/gtest.h>

#include <curl/curl.h>

#include <thread>

#include "network/web_service_internal.h"
#include "support/sandbox_env.h"
#include "tavik/core/error.h"
#include "tavik/core/log.h"
#include "tavik/network/transport.h"
#include "tavik/network/web_service.h"

using namespace tavik;
using namespace std::chrono_literals;
using tavik::sandbox::ScriptedAnswer;
using tavik::test::cutMidAnswer;
using tavik::test::redirect;
using tavik::test::reply;
using tavik::test::slow;
using Items = std::vector<std::pair<std::string, std::string>>;

namespace {

Url url(const std::string& text) {
  return *Url::parse(text);
}

// Waits for a request's outcome; fails the test instead of hanging.
template <class T>
T await(const Future<T>& future) {
  if (future.wait_for(30s) != std::future_status::ready) {
    ADD_FAILURE() << "request did not finish within 30 s";
    throw std::runtime_error("hang");
  }
  return future.get();
}

// The error a request ended with, as the public layers map it.
TavikError failureOf(const Future<nlohmann::json>& future) {
  try {
    await(future);
  } catch (...) {
    return TavikError::fromException(std::current_exception());
  }
  ADD_FAILURE() << "the request succeeded";
  return TavikError::badResponse();
}

sandbox::Options certFor(std::vector<std::string> names) {
  sandbox::Options options;
  options.certNames = std::move(names);
  return options;
}

int curlCodeOf(const TavikError& error) {
  const auto* transport = dynamic_cast<const TransportError*>(error.cause().get());
  return transport ? transport->curlCode() : -1;
}

}  // namespace

TEST(WebServiceUrls, OnlyAbsoluteHttpsAddressesWithAHostPass) {
  // An empty port is no port ("https://host:/"); only an empty port followed by "//" is
  // a doubled scheme.
  for (const char* good : {"https://a.example", "HTTPS://a.example/x",
                           "https://127.0.0.1:8443/v2?x=1", "https://a.example:/",
                           "https://a.example:", "https://[::1]:/x", "https://a.example/a/../b"}) {
    EXPECT_TRUE(WebService::isValidApiUrl(good)) << good;
  }
  for (const char* bad :
       {"", "   \n", "://a.example", "http://a.example", "ftp://a.example", "https://",
        "a.example/path", "https:///path", "https://https://a.example", "https:// a.example",
        "https://a.example:x/", "https://[::1]x/"}) {
    EXPECT_FALSE(WebService::isValidApiUrl(bad)) << bad;
  }
  const WebService service(false);
  EXPECT_THROW(service.generateApiUrl("http://a.example", std::nullopt), TavikError);
  try {
    service.generateApiUrl("  ", Parameters{});
    FAIL();
  } catch (const TavikError& e) {
    EXPECT_EQ(e.kind(), TavikError::Case::badUrl);
  }
}

TEST(WebServiceUrls, QueryItemsKeepTypesListsAndAnExistingQuery) {
  const WebService service(false);
  const auto result = service.generateApiUrl(
      "https://a.example/sda?keep=1",
      Parameters{{"pcnt", 5}, {"au", StringList{"a", "b"}}, {"price", 12.5f}, {"on", true}});
  ASSERT_TRUE(result.status && result.apiUrl);
  EXPECT_EQ(result.apiUrl->string(),
            "https://a.example/sda?keep=1&pcnt=5&au%5B%5D=a&au%5B%5D=b&price=12.5&on=true");
  // An empty list adds nothing, an empty string an empty value.
  EXPECT_EQ(WebService::makeQueryUrl(url("https://a.example/"),
                                     Parameters{{"none", StringList{}}, {"e", ""}})
                .string(),
            "https://a.example/?e=");
  EXPECT_EQ(percentEncode("a&b=c#d+e%f g/é~"), "a%26b%3Dc%23d%2Be%25f%20g%2F%C3%A9~");
  const auto enhanced = WebService::enhancedParameters(Parameters{{"os_name", "Linux"}, {"k", 1}});
  EXPECT_EQ(*enhanced.find("os_name")->asString(), "iOS");
  EXPECT_EQ(*enhanced.find("os_version")->asString(), sdkVersion());
  EXPECT_EQ(enhanced.size(), 3u);
}

// A GET's address is written as text without an address object; it must be exactly the
// text the address builder makes, whatever shape the address has.
TEST(WebServiceUrls, AGetsAddressTextIsTheBuildersText) {
  const Parameters some{{"os_version", "1.0.0"}, {"au", StringList{"a b", "c"}}, {"n", 3}};
  const Parameters nothing{{"none", StringList{}}};
  const Parameters none;
  for (const char* address :
       {"https://a.example/", "https://a.example/x?keep=1", "https://a.example/x?",
        "https://a.example/x#frag", "https://a.example/x?k=v#frag", "https://a.example:/x/../y",
        "https://a.example/x?#"}) {
    SCOPED_TRACE(address);
    const Url base = url(address);
    for (const Parameters* parameters : {&some, &nothing, &none}) {
      EXPECT_EQ(detail::queryUrlText(base, *parameters),
                WebService::makeQueryUrl(base, *parameters).string());
    }
  }
}

TEST(WebServiceUrls, DebugLinesFollowTheRequestSteps) {
  std::vector<std::string> lines;
  setLogSink([&](std::string_view line) { lines.emplace_back(line); });
  WebService(true).generateApiUrl("https://a.example/x", Parameters{{"k", "v"}});
  WebService(false).generateApiUrl("https://a.example/x", Parameters{{"k", "v"}});
  setLogSink(nullptr);
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0], R"("TAVIK: - Api string = https://a.example/x")");
  EXPECT_EQ(lines[1], R"x("TAVIK: - Api parameters = Optional([\"k\": \"v\"])")x");
  EXPECT_EQ(lines[2], R"("TAVIK: - Preprared Api URL = https://a.example/x?k=v")");
}

class WebServiceHttps : public ::testing::Test {
 protected:
  test::SandboxEnv env;
  WebService service{false};

  Future<nlohmann::json> get(const std::string& path, std::optional<Parameters> p = std::nullopt) {
    return service.request(url(env.base() + path), HTTPMethod::get, std::move(p), {});
  }
};

TEST_F(WebServiceHttps, GetSendsEncodedItemsInOrderWithTheOsKeysLast) {
  env.server().script("/echo", reply(200, "{}"));
  const std::string tricky = "a&b=c#d+e%f g é";
  const auto apiUrl =
      service.generateApiUrl(env.base() + "/echo?first=1",
                             Parameters{{"q", tricky}, {"au", StringList{"x y", "z"}}, {"n", -3}});
  const auto answer = await(service.request(*apiUrl.apiUrl, HTTPMethod::get, std::nullopt));
  EXPECT_EQ(answer["status"], true);
  EXPECT_TRUE(answer["error"].is_null());

  const auto requests = env.server().requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].method, "GET");
  EXPECT_EQ(requests[0].path, "/echo");
  EXPECT_EQ(requests[0].query, (Items{{"first", "1"},
                                      {"q", tricky},
                                      {"au[]", "x y"},
                                      {"au[]", "z"},
                                      {"n", "-3"},
                                      {"os_version", sdkVersion()},
                                      {"os_name", "iOS"}}));
}

TEST_F(WebServiceHttps, AddressesGoOutAsWrittenDotSegmentsIncluded) {
  env.server().script("/v2/../x/./events", reply(200, "{}"));
  const auto apiUrl =
      service.generateApiUrl(env.base() + "/v2/../x/./events", Parameters{{"k", 1}});
  ASSERT_TRUE(apiUrl.apiUrl);
  EXPECT_EQ(apiUrl.apiUrl->string(), env.base() + "/v2/../x/./events?k=1");
  EXPECT_EQ(
      await(service.request(*apiUrl.apiUrl, HTTPMethod::get, std::nullopt))["response"]["code"],
      200);
  // An empty port: the address has no port and is sent to the default one, so here only
  // its acceptance and its text are checked.
  const auto emptyPort = service.generateApiUrl("https://a.example:/events", std::nullopt);
  ASSERT_TRUE(emptyPort.apiUrl);
  EXPECT_EQ(emptyPort.apiUrl->host(), "a.example");
  const auto requests = env.server().requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].path, "/v2/../x/./events");
}

TEST_F(WebServiceHttps, AnswersBecomeTheResponseDictionaryOrTheirError) {
  env.server().script("/ok", reply(200, "{ \"a\" : [1, 2.5, \"x\"] }"));
  env.server().script("/empty", reply(204));
  env.server().script("/text", reply(200, "OK", "text/plain"));
  env.server().script("/scalar", reply(200, "42"));
  env.server().script("/fail", reply(500, "{\"e\":1}"));

  const auto ok = await(get("/ok"));
  EXPECT_EQ(ok["response"]["code"], 200);
  EXPECT_EQ(nlohmann::json::parse(ok["response"]["data"].get<std::string>()),
            nlohmann::json::parse(R"({"a":[1,2.5,"x"]})"));
  EXPECT_EQ(ok.size(), 3u);

  const auto empty = await(get("/empty"));
  EXPECT_EQ(empty["response"]["code"], 204);
  EXPECT_EQ(empty["response"]["data"], "");

  for (const char* path : {"/text", "/scalar"}) {
    const auto error = failureOf(get(path));
    EXPECT_EQ(error.kind(), TavikError::Case::defaultError) << path;
    EXPECT_NE(dynamic_cast<const nlohmann::json::parse_error*>(error.cause().get()), nullptr)
        << error.description();
  }

  const auto status = failureOf(get("/fail"));
  EXPECT_EQ(status.kind(), TavikError::Case::badStatus);
  EXPECT_EQ(status.statusCode(), 500);
  EXPECT_EQ(status.body(), "{\"e\":1}");
}

TEST_F(WebServiceHttps, PostCarriesParametersAsJsonAndDeleteCarriesNone) {
  env.server().script("/p", reply(200, "{}"));
  env.server().script("/d", reply(204));
  await(service.request(url(env.base() + "/p?keep=1"), HTTPMethod::post,
                        Parameters{{"price", 0.1f}, {"n", 2}}, {{"X-Test", "1"}}));
  await(service.request(url(env.base() + "/d"), HTTPMethod::delete_, Parameters{{"n", 2}}));
  const auto requests = env.server().requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].method, "POST");
  EXPECT_EQ(requests[0].query, (Items{{"keep", "1"}}));
  EXPECT_EQ(nlohmann::json::parse(requests[0].body),
            nlohmann::json::parse(R"({"price":0.1,"n":2,"os_version":")" +
                                  std::string(sdkVersion()) + R"(","os_name":"iOS"})"));
  EXPECT_EQ(requests[1].method, "DELETE");
  EXPECT_TRUE(requests[1].query.empty());
  EXPECT_TRUE(requests[1].body.empty());
}

TEST_F(WebServiceHttps, HundredServicesShareAFewWarmConnections) {
  const auto opened = transport::stats().connectionsOpened;
  std::vector<Future<nlohmann::json>> inflight;
  for (int i = 0; i < 100; ++i) {
    WebService own(false);  // a new service per request, as the registrar does
    inflight.push_back(own.request(url(env.base() + "/events?i=" + std::to_string(i)),
                                   HTTPMethod::get, std::nullopt));
  }
  for (auto& f : inflight) EXPECT_EQ(await(f)["response"]["code"], 200);
  EXPECT_EQ(env.server().requests().size(), 100u);
  EXPECT_LE(env.server().connectionCount(), 6u);
  EXPECT_LE(transport::stats().connectionsOpened - opened, 6u);

  // Sequential requests after the burst reuse what is already open.
  const auto before = transport::stats().connectionsOpened;
  for (int i = 0; i < 20; ++i) await(get("/events"));
  EXPECT_EQ(transport::stats().connectionsOpened, before);
}

TEST_F(WebServiceHttps, OnlyHttpsLeavesTheSdkRedirectsIncluded) {
  const auto plain = failureOf(
      service.request(url("http://127.0.0.1:" + std::to_string(env.server().port()) + "/x"),
                      HTTPMethod::get, std::nullopt));
  EXPECT_EQ(curlCodeOf(plain), CURLE_UNSUPPORTED_PROTOCOL);

  env.server().script("/to-http", redirect(302, "http://127.0.0.1:1/x"));
  EXPECT_EQ(curlCodeOf(failureOf(get("/to-http"))), CURLE_UNSUPPORTED_PROTOCOL);

  env.server().script("/moved", redirect(301, "/landed"));
  env.server().script("/landed", reply(200, "[]"));
  EXPECT_EQ(await(get("/moved"))["response"]["data"], "[]");

  env.server().script("/loop", redirect(301, "/loop"));
  EXPECT_EQ(curlCodeOf(failureOf(get("/loop"))), CURLE_TOO_MANY_REDIRECTS);
}

TEST_F(WebServiceHttps, TransportFailuresEndInTheirErrorWithoutAHang) {
  const auto defaults = transport::settings();
  auto settings = defaults;
  settings.requestTimeout = 500ms;
  transport::configure(settings);
  env.server().script("/slow", slow(3s));
  EXPECT_EQ(curlCodeOf(failureOf(get("/slow"))), CURLE_OPERATION_TIMEDOUT);

  settings = defaults;
  settings.maxBodyBytes = 64 * 1024;
  transport::configure(settings);

  env.server().script("/cut", cutMidAnswer(std::string(4000, 'x')));
  EXPECT_EQ(curlCodeOf(failureOf(get("/cut"))), CURLE_PARTIAL_FILE);

  env.server().script("/huge", reply(200, std::string(65 * 1024, ' ')));
  const auto huge = failureOf(get("/huge"));
  EXPECT_EQ(curlCodeOf(huge), CURLE_FILESIZE_EXCEEDED);
  EXPECT_NE(huge.description().find("limit"), std::string::npos);

  const auto refused = failureOf(
      service.request(url("https://127.0.0.1:" + std::to_string(test::closedPort()) + "/"),
                      HTTPMethod::get, std::nullopt));
  EXPECT_EQ(curlCodeOf(refused), CURLE_COULDNT_CONNECT);

  // The client keeps working after all that.
  EXPECT_EQ(await(get("/events"))["response"]["code"], 200);
}

TEST(WebServiceTls, UntrustedOrMisnamedCertificatesAreRefused) {
  // Trusted sandbox, so the process has an extra bundle and a working client.
  test::SandboxEnv trusted;
  // A certificate this process never trusted.
  sandbox::Sandbox untrusted(certFor({"127.0.0.1", "localhost", "untrusted.test"}));
  untrusted.start();
  const WebService service(false);
  EXPECT_EQ(curlCodeOf(failureOf(
                service.request(url(untrusted.baseUrl() + "/x"), HTTPMethod::get, std::nullopt))),
            CURLE_PEER_FAILED_VERIFICATION);

  // A trusted certificate that names another host.
  sandbox::Sandbox misnamed(certFor({"wrong.example"}));
  misnamed.start();
  transport::trustCaBundle(misnamed.certPath());
  EXPECT_EQ(curlCodeOf(failureOf(
                service.request(url(misnamed.baseUrl() + "/x"), HTTPMethod::get, std::nullopt))),
            CURLE_PEER_FAILED_VERIFICATION);
  EXPECT_TRUE(untrusted.requests().empty());
  EXPECT_TRUE(misnamed.requests().empty());
}

TEST(WebServiceExit, ExitingWithRequestsInFlightNeitherHangsNorCrashes) {
  // A host process exits while its requests wait for the sandbox's delayed answers.
  test::SandboxEnv env;
  env.server().script("/events", slow(3s));
  env.server().script("/v2/bsda/pt", slow(3s));
  EXPECT_EQ(test::runProgram(
                {TAVIK_EXIT_IN_FLIGHT, env.host(), env.server().certPath(), "50", "200"}, 10s),
            0);
}
