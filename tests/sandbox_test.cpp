// The sandbox itself, seen through a real TLS client (libcurl) on loopback.

#include <curl/curl.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tavik/sandbox/sandbox.h"

namespace {

using nlohmann::json;
using tavik::sandbox::Options;
using tavik::sandbox::Sandbox;
using tavik::sandbox::ScriptedAnswer;
using Clock = std::chrono::steady_clock;

struct Reply {
  CURLcode code = CURLE_OK;
  long status = 0;
  std::string body;
  std::string headers;
  std::string contentType;
  long localPort = 0;
};

size_t append(char* data, size_t size, size_t count, void* into) {
  static_cast<std::string*>(into)->append(data, size * count);
  return size * count;
}

// One curl easy handle: requests through the same Client reuse its connection.
class Client {
 public:
  explicit Client(const Sandbox& sandbox) : sandbox_(sandbox), curl_(curl_easy_init()) {}
  ~Client() { curl_easy_cleanup(curl_); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  Reply send(const std::string& target, const char* method = "GET", const std::string& body = "",
             long timeoutMs = 10000) {
    Reply reply;
    const std::string url = sandbox_.baseUrl() + target;
    curl_easy_setopt(curl_, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl_, CURLOPT_CAINFO, sandbox_.certPath().c_str());
    if (std::string(method) == "POST") {
      curl_easy_setopt(curl_, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
      curl_easy_setopt(curl_, CURLOPT_POSTFIELDS, body.c_str());
    } else {
      curl_easy_setopt(curl_, CURLOPT_HTTPGET, 1L);
    }
    curl_easy_setopt(curl_, CURLOPT_CUSTOMREQUEST, method);
    curl_easy_setopt(curl_, CURLOPT_TIMEOUT_MS, timeoutMs);
    curl_easy_setopt(curl_, CURLOPT_WRITEFUNCTION, append);
    curl_easy_setopt(curl_, CURLOPT_WRITEDATA, &reply.body);
    curl_easy_setopt(curl_, CURLOPT_HEADERFUNCTION, append);
    curl_easy_setopt(curl_, CURLOPT_HEADERDATA, &reply.headers);
    reply.code = curl_easy_perform(curl_);
    curl_easy_getinfo(curl_, CURLINFO_RESPONSE_CODE, &reply.status);
    curl_easy_getinfo(curl_, CURLINFO_LOCAL_PORT, &reply.localPort);
    char* type = nullptr;
    curl_easy_getinfo(curl_, CURLINFO_CONTENT_TYPE, &type);
    if (type != nullptr) reply.contentType = type;
    return reply;
  }

  json getJson(const std::string& target) {
    const Reply reply = send(target);
    EXPECT_EQ(reply.code, CURLE_OK) << curl_easy_strerror(reply.code);
    EXPECT_EQ(reply.status, 200) << reply.body;
    return json::parse(reply.body);
  }

 private:
  const Sandbox& sandbox_;
  CURL* curl_;
};

class SandboxTest : public ::testing::Test {
 protected:
  void SetUp() override { sandbox.start(); }
  Sandbox sandbox;
};

TEST_F(SandboxTest, RecordsQueryItemsInWireOrderDecodedExceptPlus) {
  Client client(sandbox);
  const std::string raw =
      "z=1&amp=a%26b%3Dc&hash=%23x&plus=a+b&pct=100%25&space=a%20b&utf8=%C3%A9%E2%82%AC"
      "&au%5B%5D=x&au[]=y&&bare&bad=%zz%4";
  const auto before = std::chrono::duration_cast<std::chrono::milliseconds>(
                          std::chrono::system_clock::now().time_since_epoch())
                          .count();
  const Reply reply = client.send("/v2/bsda?" + raw);
  ASSERT_EQ(reply.code, CURLE_OK) << curl_easy_strerror(reply.code);

  const auto recorded = sandbox.requests();
  ASSERT_EQ(recorded.size(), 1u);
  const auto& request = recorded.front();
  EXPECT_EQ(request.method, "GET");
  EXPECT_EQ(request.path, "/v2/bsda");
  EXPECT_EQ(request.rawQuery, raw);
  const std::vector<std::pair<std::string, std::string>> expected = {
      {"z", "1"},
      {"amp", "a&b=c"},
      {"hash", "#x"},
      {"plus", "a+b"},
      {"pct", "100%"},
      {"space", "a b"},
      {"utf8", "\xC3\xA9\xE2\x82\xAC"},
      {"au[]", "x"},
      {"au[]", "y"},
      {"bare", ""},
      {"bad", "%zz%4"}};
  EXPECT_EQ(request.query, expected);
  EXPECT_EQ(request.values("au[]"), (std::vector<std::string>{"x", "y"}));
  EXPECT_EQ(request.count("au[]"), 2u);
  EXPECT_EQ(request.value("missing"), std::nullopt);
  EXPECT_EQ(request.connection, "127.0.0.1:" + std::to_string(reply.localPort));
  EXPECT_GE(request.timeMs, before);
  EXPECT_LE(request.timeMs, before + 10000);
}

TEST_F(SandboxTest, ConnectionIdentityFollowsTheTcpConnection) {
  Client first(sandbox);
  Client second(sandbox);
  for (int i = 0; i < 8; ++i) ASSERT_EQ(first.send("/events?event_name=a").code, CURLE_OK);
  ASSERT_EQ(second.send("/events?event_name=b").code, CURLE_OK);

  const auto recorded = sandbox.requests();
  ASSERT_EQ(recorded.size(), 9u);
  // More requests than the HTTP library's default keep-alive limit, all on one connection.
  for (int i = 1; i < 8; ++i) EXPECT_EQ(recorded[i].connection, recorded[0].connection);
  EXPECT_NE(recorded[8].connection, recorded[0].connection);
  EXPECT_EQ(sandbox.connectionCount(), 2u);
}

TEST_F(SandboxTest, ScriptedAnswersOverrideForTheirTimesThenQueueUp) {
  Client client(sandbox);
  ScriptedAnswer busy;
  busy.status = 503;
  busy.body = R"({"error":"busy"})";
  busy.headers = {{"Retry-After", "7"}};
  busy.times = 2;
  sandbox.script("/sda", busy);
  ScriptedAnswer slowOk;
  slowOk.body = "{\"n\":1}";
  slowOk.delay = std::chrono::milliseconds(300);
  sandbox.script("/sda", slowOk);

  for (int i = 0; i < 2; ++i) {
    const Reply failed = client.send("/sda?page_type=HOME");
    EXPECT_EQ(failed.status, 503);
    EXPECT_EQ(failed.body, R"({"error":"busy"})");
    EXPECT_NE(failed.headers.find("Retry-After: 7"), std::string::npos);
  }
  const auto started = Clock::now();
  const Reply slow = client.send("/sda?page_type=HOME");
  EXPECT_GE(Clock::now() - started, std::chrono::milliseconds(300));
  EXPECT_EQ(slow.body, "{\"n\":1}");
  // Other paths keep their built-in answers; clearing brings the built-in one back.
  EXPECT_EQ(client.send("/sda/v1?page_type=TPA&pcnt=1").status, 200);
  sandbox.clearScripts();
  EXPECT_EQ(client.getJson("/sda?page_type=HOME&pcnt=1")["products"].size(), 1u);
  EXPECT_EQ(sandbox.requests("/sda").size(), 4u);
}

TEST_F(SandboxTest, CloseMidAnswerLeavesThePartialBody) {
  Client client(sandbox);
  ScriptedAnswer dropped;
  dropped.body = std::string(4000, 'x');
  dropped.closeMidAnswer = true;
  dropped.times = 1;
  sandbox.script("/v2/bsda", dropped);
  const Reply cut = client.send("/v2/bsda?au[]=au_pip");
  EXPECT_EQ(cut.code, CURLE_PARTIAL_FILE) << curl_easy_strerror(cut.code);
  EXPECT_EQ(cut.body.size(), 2000u);
  // The next request opens a new connection and gets the built-in answer.
  EXPECT_EQ(client.getJson("/v2/bsda?au[]=au_pip")["ads"].size(), 1u);
  EXPECT_EQ(sandbox.connectionCount(), 2u);
}

TEST_F(SandboxTest, DisplayAnswerHoldsOnlyRequestedKnownUnitsCutToCount) {
  Client client(sandbox);
  const json doc = client.getJson(
      "/v2/bsda?pt=HOME&pcnt_au=2&au[]=au_multi&au[]=au_nowhere&au[]=au_carousel&au[]=au_multi");
  ASSERT_EQ(doc.size(), 1u);
  const json& ads = doc.at("ads");
  EXPECT_EQ(ads.size(), 2u);
  EXPECT_EQ(ads.at("au_multi").size(), 2u);  // the catalogue has 4
  EXPECT_EQ(ads.at("au_carousel").size(), 1u);
  EXPECT_EQ(ads["au_carousel"][0]["elements"]["carousel_cards"].size(), 3u);

  std::set<std::string> uclids;
  for (const auto& [unit, list] : ads.items()) {
    for (const auto& ad : list) {
      for (const char* key : {"uclid", "au", "crt", "client_id", "elements", "rank",
                              "click_tracking_url", "impression_tracking_url"}) {
        EXPECT_TRUE(ad.contains(key)) << unit << " lacks " << key;
      }
      EXPECT_EQ(ad["au"], unit);
      EXPECT_TRUE(ad["client_id"].is_number_integer());
      EXPECT_EQ(ad["click_tracking_url"].get<std::string>().rfind(sandbox.baseUrl() + "/aclick", 0),
                0u);
      uclids.insert(ad["uclid"].get<std::string>());
    }
  }
  EXPECT_EQ(uclids.size(), 3u);
  EXPECT_EQ(ads.dump().find("{{base}}"), std::string::npos);

  EXPECT_TRUE(client.getJson("/v2/bsda?au[]=au_multi&pcnt_au=0")["ads"]["au_multi"].empty());
  EXPECT_TRUE(client.getJson("/v2/bsda?au[]=au_nowhere")["ads"].empty());
  const json byPage = client.getJson("/v2/bsda/pt?pt=PRODUCT&pcnt_au=1");
  EXPECT_EQ(byPage["ads"].size(), 2u);
  EXPECT_TRUE(byPage["ads"].contains("au_pip"));
}

TEST_F(SandboxTest, ProductAnswerFollowsPageTypeCountAndEchoesLists) {
  Client client(sandbox);
  const json answer = client.getJson(
      "/sda?client_id=c1&page_type=SEARCH&pcnt=2&keywords[]=red%20shoes&colors[]=red");
  EXPECT_EQ(answer["page_type"], "SEARCH");
  EXPECT_EQ(answer["keywords"], json::array({"red shoes"}));
  EXPECT_EQ(answer["params"]["colors[]"], "red");
  ASSERT_EQ(answer["products"].size(), 2u);
  const json& product = answer["products"][0];
  EXPECT_TRUE(product["price"].is_number());
  EXPECT_EQ(product["image_url"].get<std::string>().rfind(sandbox.baseUrl() + "/media/", 0), 0u);
  EXPECT_NE(product["uclid"], answer["products"][1]["uclid"]);
  EXPECT_TRUE(client.getJson("/sda?page_type=NOPE")["products"].empty());
}

TEST_F(SandboxTest, EventLogKeepsArrivalOrderUnderConcurrentLoad) {
  Client client(sandbox);
  ASSERT_EQ(
      client.send("/events?event_name=funnel_impression&uclid=u1&sku_ids[]=a&sku_ids[]=b").status,
      200);
  ASSERT_EQ(client.send("/aclick?uclid=u2").status, 200);
  json log = sandbox.eventLog();
  ASSERT_EQ(log.size(), 2u);
  EXPECT_EQ(log[0]["seq"], 1);
  EXPECT_EQ(log[0]["event_name"], "funnel_impression");
  EXPECT_EQ(log[0]["params"]["sku_ids[]"], json::array({"a", "b"}));
  EXPECT_EQ(log[0]["query"][1], json::array({"uclid", "u1"}));
  EXPECT_EQ(log[1]["path"], "/aclick");
  EXPECT_EQ(log[1]["event_name"], "click");

  constexpr int kThreads = 10, kEach = 100;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      Client own(sandbox);
      for (int i = 0; i < kEach; ++i) {
        own.send("/events?event_name=load&t=" + std::to_string(t) + "&i=" + std::to_string(i));
      }
    });
  }
  for (auto& thread : threads) thread.join();
  log = sandbox.eventLog();
  ASSERT_EQ(log.size(), 2u + kThreads * kEach);
  std::vector<int> next(kThreads, 0);
  for (std::size_t n = 0; n < log.size(); ++n) {
    EXPECT_EQ(log[n]["seq"], n + 1);
    if (n < 2) continue;
    const int t = std::stoi(log[n]["params"]["t"].get<std::string>());
    EXPECT_EQ(std::stoi(log[n]["params"]["i"].get<std::string>()),
              next[t]++);  // per-connection order
  }
}

TEST_F(SandboxTest, AdminEndpointsScriptInspectAndResetWithoutBeingRecorded) {
  Client client(sandbox);
  const json script = {{"path", "/events"},
                       {"status", 500},
                       {"body", {{"e", 1}}},
                       {"headers", {{"X-Test", "yes"}}},
                       {"times", 1}};
  EXPECT_EQ(client.send("/__sandbox/script", "POST", script.dump()).status, 200);
  EXPECT_EQ(client.send("/__sandbox/script", "POST", R"({"status":500})").status, 400);
  EXPECT_EQ(client.send("/__sandbox/script", "POST", "not json").status, 400);

  const Reply scripted = client.send("/events?event_name=x&k=%20v");
  EXPECT_EQ(scripted.status, 500);
  EXPECT_EQ(json::parse(scripted.body), json({{"e", 1}}));
  EXPECT_EQ(client.send("/events?event_name=y").status, 200);
  EXPECT_EQ(client.send("/nowhere").status, 404);

  const json recorded = client.getJson("/__sandbox/requests");
  ASSERT_EQ(recorded.size(), 3u);
  EXPECT_EQ(recorded[0]["path"], "/events");
  EXPECT_EQ(recorded[0]["raw_query"], "event_name=x&k=%20v");
  EXPECT_EQ(recorded[0]["query"][1], json::array({"k", " v"}));
  EXPECT_EQ(recorded[0]["connection"], sandbox.requests()[0].connection);
  const json events = client.getJson("/__sandbox/events");
  ASSERT_EQ(events.size(), 1u);  // the scripted answer logged no event
  EXPECT_EQ(events[0]["event_name"], "y");

  EXPECT_EQ(client.send("/__sandbox/reset", "POST").status, 200);
  EXPECT_TRUE(sandbox.requests().empty());
  EXPECT_TRUE(sandbox.eventLog().empty());
  EXPECT_EQ(client.send("/__sandbox/requests", "POST").status, 405);
}

TEST_F(SandboxTest, ShopProductSearchMatchesTextBrandsAndPriceRangeAndLogsNoEvent) {
  Client client(sandbox);
  const auto skus = [&](const std::string& target) {
    const json answer = client.getJson(target);
    std::vector<std::string> found;
    for (const auto& product : answer["products"]) {
      found.push_back(product["sku_id"].get<std::string>());
    }
    return found;
  };
  using List = std::vector<std::string>;
  // Name, brand or category, case-insensitively; catalogue order.
  EXPECT_EQ(skus("/shop/products?q=RUNNING"), (List{"SKU-1001", "SKU-1005"}));
  EXPECT_EQ(skus("/shop/products?q=stormline"), (List{"SKU-1004", "SKU-1006"}));
  EXPECT_EQ(skus("/shop/products").size(), sandbox.catalogue()["products"].size());
  // Any of the brands; both price bounds inclusive.
  EXPECT_EQ(skus("/shop/products?q=outdoor&brand=Northpeak&brand=aquora&max_price=24.5"),
            (List{"SKU-1002", "SKU-1003"}));
  EXPECT_EQ(skus("/shop/products?min_price=59&max_price=129"),
            (List{"SKU-1001", "SKU-1004", "SKU-1006"}));
  // A price that is not a number bounds nothing.
  EXPECT_EQ(skus("/shop/products?q=daypack&max_price=cheap"), (List{"SKU-1006"}));
  EXPECT_TRUE(skus("/shop/products?q=nothing-like-this").empty());
  // The images point back at the sandbox; it is not an ad service, so no event is logged.
  const json all = client.getJson("/shop/products");
  EXPECT_EQ(all["products"][0]["image_url"].get<std::string>().rfind(sandbox.baseUrl(), 0), 0u);
  EXPECT_EQ(client.send("/shop/products", "POST").status, 405);
  EXPECT_TRUE(sandbox.eventLog().empty());
}

TEST_F(SandboxTest, ServesEmbeddedMedia) {
  Client client(sandbox);
  const Reply png = client.send("/media/card_2.png");
  EXPECT_EQ(png.contentType, "image/png");
  EXPECT_EQ(png.body.substr(0, 8), "\x89PNG\r\n\x1a\n");
  const Reply video = client.send("/media/video_320x180.mp4");
  EXPECT_EQ(video.contentType, "video/mp4");
  EXPECT_EQ(video.body.substr(4, 4), "ftyp");
  EXPECT_EQ(client.send("/media/..%2Fcatalogue.json").status, 404);
  EXPECT_EQ(client.send("/media/none.png").status, 404);
}

TEST(SandboxLifecycle, StopDoesNotWaitForIdleConnectionsOrDelayedAnswers) {
  Sandbox sandbox;
  sandbox.start();
  Client idle(sandbox);
  ASSERT_EQ(idle.send("/events").code, CURLE_OK);  // stays open (keep-alive)
  ScriptedAnswer stuck;
  stuck.delay = std::chrono::seconds(20);
  sandbox.script("/v2/bsda", stuck);
  std::atomic<bool> answered{false};
  std::thread slow([&] {
    Client client(sandbox);
    client.send("/v2/bsda", "GET", "", 30000);
    answered = true;
  });
  ASSERT_TRUE(sandbox.waitForRequests(2, std::chrono::seconds(5)));
  const auto started = Clock::now();
  sandbox.stop();
  EXPECT_LT(Clock::now() - started, std::chrono::seconds(3));
  slow.join();
  EXPECT_TRUE(answered);
  EXPECT_FALSE(sandbox.running());
}

TEST(SandboxLifecycle, CertificateIsSharedPerNameSetAndNamesAreChecked) {
  auto first = std::make_unique<Sandbox>();
  Sandbox second;
  Options otherName;
  otherName.certNames = {"sandbox.invalid"};
  Sandbox misnamed(otherName);
  first->start();
  second.start();
  misnamed.start();
  EXPECT_EQ(first->certPath(), second.certPath());  // one bundle to trust
  EXPECT_NE(first->certPath(), misnamed.certPath());
  first.reset();  // the shared bundle outlives the sandbox that wrote it

  Client client(second);
  EXPECT_EQ(client.send("/events").code, CURLE_OK) << second.certPath();
  Client mismatch(misnamed);  // trusted, but not issued for 127.0.0.1
  EXPECT_EQ(mismatch.send("/events").code, CURLE_PEER_FAILED_VERIFICATION);

  Options samePort;
  samePort.port = second.port();
  Sandbox clash(samePort);
  EXPECT_THROW(clash.start(), std::runtime_error);
  Options missingFile;
  missingFile.catalogueFile = "/nonexistent/catalogue.json";
  Sandbox badCatalogue(missingFile);
  EXPECT_THROW(badCatalogue.start(), std::runtime_error);
}

}  // namespace
