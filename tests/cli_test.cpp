// The `tavik` tool, run as a child process against an in-process sandbox: what it prints,
// what reaches the wire, and its exit status. TAVIK_CLI_PATH comes from tools/CMakeLists.txt.

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <curl/curl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/sandbox_env.h"
#include "tavik/ads/ad_models.h"
#include "tavik/events/register_event.h"
#include "tavik/network/web_service.h"
#include "tavik/sandbox/sandbox.h"

extern char** environ;

namespace {

using nlohmann::json;
using namespace std::chrono_literals;

struct Result {
  int status = -1;
  std::string out;
  std::string err;
};

std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

void writeFile(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

// One run of the tool with stdin, stdout and stderr in files of its own.
class Child {
 public:
  Child(const std::vector<std::string>& args, const std::string& input,
        const std::vector<std::string>& env) {
    std::string pattern = tavik::test::privateTempDir() + "child-XXXXXX";
    dir_ = mkdtemp(pattern.data());
    writeFile(dir_ + "/in", input);

    std::vector<std::string> argv = {TAVIK_CLI_PATH};
    argv.insert(argv.end(), args.begin(), args.end());
    // The tool's environment fallbacks must not leak in from the test's environment.
    std::vector<std::string> envp;
    for (char** e = environ; *e != nullptr; ++e) {
      const std::string entry = *e;
      if (!entry.starts_with("TAVIK_HOST=") && !entry.starts_with("TAVIK_CA_BUNDLE=")) {
        envp.push_back(entry);
      }
    }
    envp.insert(envp.end(), env.begin(), env.end());

    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 0, (dir_ + "/in").c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, 1, (dir_ + "/out").c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&files, 2, (dir_ + "/err").c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int failed = posix_spawn(&pid_, argv[0].c_str(), &files, nullptr, pointers(argv).data(),
                                   pointers(envp).data());
    posix_spawn_file_actions_destroy(&files);
    if (failed != 0) {
      ADD_FAILURE() << "cannot start " << argv[0];
      pid_ = -1;
    }
  }
  ~Child() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    std::system(("rm -rf " + dir_).c_str());
  }

  std::string out() const { return readFile(dir_ + "/out"); }
  void signal(int number) const { kill(pid_, number); }

  // Waits for the exit; a tool that hangs is killed and fails the test.
  Result finish(std::chrono::seconds limit = 30s) {
    Result result;
    const auto deadline = std::chrono::steady_clock::now() + limit;
    int status = 0;
    while (pid_ > 0 && waitpid(pid_, &status, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() > deadline) {
        ADD_FAILURE() << "the tool did not exit within " << limit.count() << " s";
        kill(pid_, SIGKILL);
        waitpid(pid_, &status, 0);
        break;
      }
      std::this_thread::sleep_for(5ms);
    }
    pid_ = -1;
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    result.out = readFile(dir_ + "/out");
    result.err = readFile(dir_ + "/err");
    return result;
  }

 private:
  static std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> list;
    for (auto& s : strings) list.push_back(s.data());
    list.push_back(nullptr);
    return list;
  }

  std::string dir_;
  pid_t pid_ = -1;
};

tavik::sandbox::ScriptedAnswer reply(int status, std::string body = "") {
  tavik::sandbox::ScriptedAnswer answer;
  answer.status = status;
  answer.body = std::move(body);
  return answer;
}

Result run(const std::vector<std::string>& args, const std::string& input = "",
           const std::vector<std::string>& env = {}) {
  return Child(args, input, env).finish();
}

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

class CliTest : public ::testing::Test {
 protected:
  void SetUp() override { sandbox_.start(); }

  // The tool against the sandbox: the connection options go right after the command
  // name, so that the case's own last argument stays last.
  Result cli(std::vector<std::string> args, const std::string& input = "") {
    const std::vector<std::string> connection = {"--sandbox", sandbox_.baseUrl(), "--ca-bundle",
                                                 sandbox_.certPath()};
    args.insert(args.empty() ? args.end() : args.begin() + 1, connection.begin(), connection.end());
    return run(args, input);
  }

  json catalogueAds(const std::string& unit) {
    return sandbox_.catalogue()["display"]["ad_units"][unit];
  }
  std::string file(const std::string& name, const std::string& text) {
    const std::string path = ::testing::TempDir() + "cli_test_" + name;
    writeFile(path, text);
    return path;
  }

  tavik::sandbox::Sandbox sandbox_;
};

std::vector<std::string> skus(const json& products) {
  std::vector<std::string> list;
  for (const auto& product : products) list.push_back(product["sku_id"]);
  return list;
}

// --- fetching -----------------------------------------------------------------------------

TEST_F(CliTest, PlaPicksTheOperationByPageAndPrintsTheAnswersData) {
  const auto home = cli({"pla", "--page", "HOME", "--count", "2"});
  ASSERT_EQ(home.status, 0) << home.err;
  const json pages = sandbox_.catalogue()["product_pages"];
  const std::vector<std::string> firstTwo = {pages["HOME"][0], pages["HOME"][1]};
  EXPECT_EQ(skus(json::parse(home.out)["products"]), firstTwo);
  EXPECT_FALSE(contains(home.err, "TAVIK: - ")) << "debug lines only with --debug";

  const auto search = cli({"pla", "--page", "search", "--keywords", "red shoes", "--color", "red",
                           "--min-price", "10", "--raw", "--debug"});
  ASSERT_EQ(search.status, 0) << search.err;
  EXPECT_EQ(std::count(search.out.begin(), search.out.end(), '\n'), 1) << "--raw: one line";
  EXPECT_TRUE(json::parse(search.out).is_object());
  EXPECT_TRUE(contains(search.err, "TAVIK: - Final URL = "));

  ASSERT_EQ(cli({"pla", "--page", "TPA", "--sku", "A", "--sku", "B"}).status, 0);
  ASSERT_EQ(cli({"pla", "--page", "CATEGORY", "--category", "shoes"}).status, 0);
  ASSERT_EQ(cli({"pla", "--page", "PURCHASE", "--sku", "C"}).status, 0);

  const auto requests = sandbox_.requests();
  ASSERT_EQ(requests.size(), 5u);
  EXPECT_EQ(requests[0].value("page_type"), "HOME");
  EXPECT_EQ(requests[0].value("pcnt"), "2");
  EXPECT_EQ(requests[0].value("client_id"), "demo-client");
  EXPECT_EQ(requests[0].value("cli_ubid"), "demo-shopper");
  EXPECT_EQ(requests[1].value("page_type"), "SEARCH");
  EXPECT_EQ(requests[1].values("keywords[]"), std::vector<std::string>{"red shoes"});
  EXPECT_EQ(requests[1].values("colors[]"), std::vector<std::string>{"red"});
  EXPECT_EQ(requests[1].value("min_price"), "10");
  EXPECT_EQ(requests[2].path, "/sda/v1");
  EXPECT_EQ(requests[2].values("sku_ids[]"), (std::vector<std::string>{"A", "B"}));
  EXPECT_EQ(requests[3].values("categories[]"), std::vector<std::string>{"shoes"});
  EXPECT_EQ(requests[4].value("page_type"), "PURCHASE");
  EXPECT_EQ(requests[4].values("sku_ids[]"), std::vector<std::string>{"C"});
}

TEST_F(CliTest, DisplayAsksByAdUnitOrPageTypeWithTargeting) {
  const auto byUnit = cli({"display", "--au", "au_home_banner", "--au", "au_multi", "--count", "1",
                           "--device", "ios", "--city", "Oslo", "--cli-ubid", "u-7"});
  ASSERT_EQ(byUnit.status, 0) << byUnit.err;
  const json ads = json::parse(byUnit.out)["ads"];
  ASSERT_EQ(ads.size(), 2u);
  EXPECT_EQ(ads["au_home_banner"], json::array({catalogueAds("au_home_banner")[0]}));
  EXPECT_EQ(ads["au_multi"].size(), 1u);

  const auto byPage = cli({"display", "--pt", "PRODUCT"});
  ASSERT_EQ(byPage.status, 0) << byPage.err;
  const json pageAds = json::parse(byPage.out)["ads"];
  std::vector<std::string> units;
  for (const auto& [unit, list] : pageAds.items()) units.push_back(unit);
  std::vector<std::string> expected = sandbox_.catalogue()["display"]["page_types"]["PRODUCT"];
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(units, expected);

  const auto requests = sandbox_.requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].path, "/v2/bsda");
  EXPECT_EQ(requests[0].values("au[]"), (std::vector<std::string>{"au_home_banner", "au_multi"}));
  EXPECT_EQ(requests[0].value("pcnt_au"), "1");
  EXPECT_EQ(requests[0].value("f.device"), "ios");
  EXPECT_EQ(requests[0].value("f.city"), "Oslo");
  EXPECT_EQ(requests[0].value("cli_ubid"), "u-7");
  EXPECT_EQ(requests[1].path, "/v2/bsda/pt");
  EXPECT_EQ(requests[1].value("pt"), "PRODUCT");
}

TEST_F(CliTest, RendererCommandsListTheDecodedAds) {
  const json banners = catalogueAds("au_home_banner");
  const auto banner = cli({"banner", "--au", "au_home_banner"});
  ASSERT_EQ(banner.status, 0) << banner.err;
  const std::string size = std::to_string(banners[0]["elements"]["width"].get<int>()) + "x" +
                           std::to_string(banners[0]["elements"]["height"].get<int>());
  EXPECT_TRUE(contains(banner.out, "UCLID")) << banner.out;
  EXPECT_TRUE(contains(banner.out, banners[0]["uclid"].get<std::string>() + "  au_home_banner"));
  EXPECT_TRUE(contains(banner.out, "image")) << banner.out;
  EXPECT_TRUE(contains(banner.out, size)) << banner.out;
  EXPECT_FALSE(contains(banner.out, banners[1]["uclid"].get<std::string>()));

  const auto cards = catalogueAds("au_carousel")[0]["elements"]["carousel_cards"];
  const auto carousel = cli({"carousel", "--au", "au_carousel"});
  ASSERT_EQ(carousel.status, 0) << carousel.err;
  const std::string last =
      "card " + std::to_string(cards.size()) + "/" + std::to_string(cards.size());
  EXPECT_TRUE(contains(carousel.out, last)) << carousel.out;
  EXPECT_TRUE(contains(carousel.out, cards.back()["destination_url"].get<std::string>()));

  const json multis = catalogueAds("au_multi");
  ASSERT_GE(multis.size(), 3u);
  const auto multi = cli({"multi", "--au", "au_multi", "--count", "2"});
  ASSERT_EQ(multi.status, 0) << multi.err;
  EXPECT_TRUE(contains(multi.out, multis[1]["uclid"].get<std::string>() + "  au_multi  video"));
  EXPECT_FALSE(contains(multi.out, multis[2]["uclid"].get<std::string>()));

  // --json is the SDK's own encoding, stamped with the caller's shopper id.
  const auto asJson = cli({"banner", "--au", "au_home_banner", "--json", "--cli-ubid", "s-42"});
  ASSERT_EQ(asJson.status, 0) << asJson.err;
  tavik::BannerAd expected = tavik::decodeBannerAd(banners[0]);
  expected.cliUbid = "s-42";
  EXPECT_EQ(tavik::decodeBannerAd(asJson.out), expected);
}

// --- events -------------------------------------------------------------------------------

TEST_F(CliTest, EventsReachTheServiceAndTheToolShowsWhatWasSent) {
  const auto impression = cli({"event", "impression", "--uclid", "uc-1", "--position", "3",
                               "--param", "source=cli", "--param", "uclid=host-value"});
  ASSERT_EQ(impression.status, 0) << impression.err;
  EXPECT_TRUE(contains(impression.out, "sent: GET " + sandbox_.baseUrl() + "/events\n"));
  EXPECT_TRUE(contains(impression.out, "event_name  funnel_impression\n")) << impression.out;
  EXPECT_TRUE(contains(impression.out, "answer: HTTP 200")) << impression.out;

  ASSERT_EQ(cli({"event", "click", "--uclid", "uc 2&x"}).status, 0);
  const auto purchase = cli({"event", "purchase", "--sales", "12.5", "--order", "o-1", "--product",
                             "a:1.5:2:m", "--product", "b:3:1"});
  ASSERT_EQ(purchase.status, 0) << purchase.err;
  EXPECT_TRUE(contains(purchase.out, "sku_ids             a|b\n")) << purchase.out;
  ASSERT_EQ(
      cli({"event", "video-action", "--uclid", "v", "--view-sec", "2", "--action", "mute"}).status,
      0);

  const json log = sandbox_.eventLog();
  ASSERT_EQ(log.size(), 4u) << log.dump();
  EXPECT_EQ(log[0]["event_name"], "funnel_impression");
  EXPECT_EQ(log[0]["params"]["uclid"], "uc-1") << "the operation's uclid wins over --param";
  EXPECT_EQ(log[0]["params"]["position"], "3");
  EXPECT_EQ(log[0]["params"]["source"], "cli");
  EXPECT_EQ(log[1]["path"], "/aclick");
  EXPECT_EQ(log[1]["params"]["uclid"], "uc 2&x");
  EXPECT_EQ(log[2]["params"]["product_prices"], "1.5|3.0");
  EXPECT_EQ(log[2]["params"]["seller_id"], "m");
  EXPECT_EQ(log[2]["params"]["sales"], "12.5");
  EXPECT_EQ(log[3]["params"]["action_type"], "mute");

  const auto table = cli({"sandbox-log"});
  ASSERT_EQ(table.status, 0) << table.err;
  EXPECT_TRUE(contains(table.out, "funnel_salecomplete")) << table.out;
}

TEST_F(CliTest, EventsListsWhatAnEventStoreHoldsWhileItsHostRuns) {
  // A host whose event service is down keeps its events; the tool reads them meanwhile.
  const std::string store = tavik::test::privateTempDir() + "cli.db";
  const auto sdk = tavik::TAVIK::Builder()
                       .clientId("cli-store")
                       .eventTrackingHost("127.0.0.1:" + std::to_string(tavik::test::closedPort()))
                       .eventStore(store)
                       .build();
  const auto registrar = sdk.registerEvent();
  registrar->registerAdClickEvent("shopper-1", "uc-9").wait();
  registrar->registerViewProductEvent("shopper-2", "sku 7").wait();
  std::this_thread::sleep_for(300ms);  // committed
  ASSERT_EQ(tavik::events::storeStats().pending, 2u);

  const auto table = run({"events", "--store", store});
  ASSERT_EQ(table.status, 0) << table.err;
  EXPECT_TRUE(contains(table.out, "/aclick")) << table.out;
  EXPECT_TRUE(contains(table.out, "shopper-1")) << table.out;
  EXPECT_TRUE(contains(table.out, "uclid=uc-9")) << table.out;
  EXPECT_TRUE(contains(table.out, "viewproduct")) << table.out;
  EXPECT_TRUE(contains(table.out, "sku_id=sku 7")) << table.out;
  EXPECT_TRUE(contains(table.out, "2 events pending\n")) << table.out;
  EXPECT_LT(table.out.find("shopper-1"), table.out.find("shopper-2")) << "oldest first";

  const auto list = run({"events", "--store", store, "--json"});
  ASSERT_EQ(list.status, 0) << list.err;
  const json events = json::parse(list.out);
  ASSERT_EQ(events.size(), 2u);
  EXPECT_LT(events[0]["id"], events[1]["id"]);

  const auto missing = run({"events", "--store", tavik::test::privateTempDir() + "none/x.db"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_TRUE(contains(missing.err, "cannot read the event store")) << missing.err;
  EXPECT_EQ(run({"events"}).status, 2);
}

TEST_F(CliTest, EventArgumentsAreCheckedBeforeAnythingIsSent) {
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"event"},
           {"event", "bounce", "--uclid", "u"},
           {"event", "impression"},
           {"event", "impression", "--uclid", "u", "--price", "1"},
           {"event", "impression", "--uclid", "u", "--position", "first"},
           {"event", "video-action", "--uclid", "u", "--view-sec", "1", "--action", "rewind"},
           {"event", "purchase", "--sales", "1", "--order", "o", "--product", "a:1"},
           {"event", "purchase", "--sales", "1", "--order", "o", "--product", "a:x:1"},
           {"event", "click", "--uclid", "u", "--param", "novalue"},
       }) {
    const auto result = cli(args);
    EXPECT_EQ(result.status, 2) << args.back() << ": " << result.err;
    EXPECT_TRUE(contains(result.err, "usage: tavik event")) << result.err;
  }
  EXPECT_TRUE(sandbox_.requests().empty());
}

// --- validate -----------------------------------------------------------------------------

TEST_F(CliTest, ValidateListsTheAdsOfAGoodDocumentAndNamesWhereABrokenOneFails) {
  json document = {{"ads",
                    {{"au_home_banner", catalogueAds("au_home_banner")},
                     {"au_multi", catalogueAds("au_multi")}}}};
  const std::size_t adCount =
      document["ads"]["au_home_banner"].size() + document["ads"]["au_multi"].size();
  const auto good = run({"validate", file("good.json", document.dump())});
  ASSERT_EQ(good.status, 0) << good.err;
  EXPECT_TRUE(contains(good.out, "2 ad units, " + std::to_string(adCount) + " ads")) << good.out;
  for (const auto& ad : document["ads"]["au_multi"]) {
    EXPECT_TRUE(contains(good.out, ad["uclid"].get<std::string>())) << good.out;
  }

  const json carousels = {{"ads", {{"au_carousel", catalogueAds("au_carousel")}}}};
  const auto carousel = run({"validate", "-"}, carousels.dump());
  ASSERT_EQ(carousel.status, 0) << carousel.err;
  EXPECT_TRUE(contains(carousel.out, "valid carousel document (guessed)")) << carousel.out;

  json noRank = document;
  noRank["ads"]["au_multi"][1].erase("rank");
  json badWidth = document;
  badWidth["ads"]["au_home_banner"][0]["elements"]["width"] = "320";
  const std::vector<std::pair<std::vector<std::string>, std::string>> broken = {
      {{"validate", file("no_rank.json", noRank.dump())}, "ads.au_multi[1].rank"},
      {{"validate", file("bad_width.json", badWidth.dump())},
       "ads.au_home_banner[0].elements.width"},
      {{"validate", file("good_as_carousel.json", document.dump()), "--kind", "carousel"},
       "ads.au_home_banner[0].elements.carousel_cards"},
      {{"validate", file("truncated.json", document.dump().substr(0, 40))}, "invalid JSON"},
      {{"validate", ::testing::TempDir() + "cli_test_missing.json"}, "cannot read"},
  };
  for (const auto& [args, named] : broken) {
    const auto result = run(args);
    EXPECT_EQ(result.status, 1) << named;
    EXPECT_TRUE(contains(result.err, named)) << result.err;
    EXPECT_TRUE(result.out.empty()) << result.out;
  }

  // The answer of a fetch, piped in as it came from the service.
  const auto raw = cli({"display", "--au", "au_multi", "--count", "9", "--raw"});
  ASSERT_EQ(raw.status, 0) << raw.err;
  const auto piped = run({"validate", "-", "--kind", "multi"}, raw.out);
  EXPECT_EQ(piped.status, 0) << piped.err;
  EXPECT_TRUE(contains(piped.out, "1 ad unit, " + std::to_string(catalogueAds("au_multi").size())))
      << piped.out;
}

// --- usage and failures -------------------------------------------------------------------

TEST_F(CliTest, BadUsageExitsWithTwoAndTheUsageText) {
  const char* const commandNames[] = {"pla",   "display",  "banner",  "carousel",   "multi",
                                      "event", "validate", "sandbox", "sandbox-log"};
  const auto none = run({});
  EXPECT_EQ(none.status, 2);
  for (const char* name : commandNames) {
    EXPECT_TRUE(contains(none.err, std::string("  ") + name + " ")) << name;
  }
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"fetch"},
           {"--verbose"},
           {"pla", "--page"},
           {"pla", "--page", "HOME", "--count", "x"},
           {"pla", "--page", "HOME", "--count", "-1"},
           {"pla", "--page", "LANDING"},
           {"pla", "--page", "HOME", "--keywords", "k"},
           {"pla", "--page", "SEARCH"},
           {"pla", "--page", "HOME", "--shade", "red"},
           {"pla", "--page", "HOME", "--count", "1", "--count", "2"},
           {"display", "--au", "a", "--pt", "HOME"},
           {"banner"},
           {"banner", "--au", "a", "--custom-label", "9:x"},
       }) {
    const auto result = cli(args);
    EXPECT_EQ(result.status, 2) << args.back() << ": " << result.err;
    EXPECT_TRUE(contains(result.err, "usage: tavik")) << result.err;
    EXPECT_TRUE(contains(result.err, "sandbox-log")) << "lists every command: " << result.err;
  }
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"validate"},
           {"validate", "a.json", "--kind", "video"},
           {"validate", "a.json", "b.json"},
           {"sandbox", "--port", "70000"},
           {"sandbox", "--sandbox", "https://127.0.0.1:1"},
       }) {
    const auto result = run(args);
    EXPECT_EQ(result.status, 2) << args.back() << ": " << result.err;
    EXPECT_TRUE(contains(result.err, "usage: tavik")) << result.err;
    EXPECT_TRUE(contains(result.err, "sandbox-log")) << "lists every command: " << result.err;
  }
  EXPECT_TRUE(sandbox_.requests().empty());

  // Without a host the tool refuses, instead of talking to the production services.
  const auto noHost = run({"banner", "--au", "au_home_banner"});
  EXPECT_EQ(noHost.status, 2);
  EXPECT_TRUE(contains(noHost.err, "--host")) << noHost.err;
  EXPECT_TRUE(contains(noHost.err, "--sandbox")) << noHost.err;

  const auto help = run({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_TRUE(help.err.empty());
  for (const char* name : commandNames) EXPECT_TRUE(contains(help.out, name)) << name;
  const auto commandHelp = run({"help", "event"});
  EXPECT_EQ(commandHelp.status, 0);
  EXPECT_TRUE(contains(commandHelp.out, "--duration-sec")) << commandHelp.out;
  const auto version = run({"--version"});
  EXPECT_EQ(version.status, 0);
  EXPECT_EQ(version.out, std::string("tavik ") + tavik::sdkVersion() + "\n");
}

TEST_F(CliTest, ServiceFailuresExitWithOneAndTheErrorCode) {
  sandbox_.script("/sda", reply(500, R"({"error":"boom"})"));
  const auto pla = cli({"pla", "--page", "HOME"});
  EXPECT_EQ(pla.status, 1);
  EXPECT_TRUE(pla.out.empty()) << pla.out;
  EXPECT_TRUE(contains(pla.err, "error: ERROR_BAD_STATUS badStatus: ")) << pla.err;
  EXPECT_TRUE(contains(pla.err, "500")) << pla.err;
  EXPECT_TRUE(contains(pla.err, "boom")) << "the body is shown: " << pla.err;

  // The renderer reports the fetcher's error, then its own.
  sandbox_.script("/v2/bsda", reply(503));
  const auto banner = cli({"banner", "--au", "au_home_banner"});
  EXPECT_EQ(banner.status, 1);
  EXPECT_TRUE(contains(banner.err, "error: ERROR_BAD_STATUS badStatus")) << banner.err;
  EXPECT_TRUE(contains(banner.err, "error: ERROR_BAD_RESPONSE badResponse")) << banner.err;

  sandbox_.clearScripts();
  const auto unknownUnit = cli({"banner", "--au", "au_nowhere"});
  EXPECT_EQ(unknownUnit.status, 1);
  EXPECT_TRUE(contains(unknownUnit.err, "failedToDecode")) << unknownUnit.err;

  // What was sent is shown even when the service refuses it.
  sandbox_.script("/events", reply(400, "{}"));
  const auto event = cli({"event", "view-product", "--sku", "s-1", "--price", "9.5"});
  EXPECT_EQ(event.status, 1);
  EXPECT_TRUE(contains(event.out, "product_prices      9.5\n")) << event.out;
  EXPECT_TRUE(contains(event.err, "ERROR_BAD_STATUS")) << event.err;

  // TLS verification stays on: without the sandbox's certificate nothing is accepted.
  const auto untrusted = run({"pla", "--page", "HOME", "--sandbox", sandbox_.baseUrl()});
  EXPECT_EQ(untrusted.status, 1);
  EXPECT_TRUE(contains(untrusted.err, "error: UNKNOWN_ERROR defaultError: ")) << untrusted.err;
  EXPECT_TRUE(contains(untrusted.err, "\n  transport: tls\n")) << untrusted.err;
}

// --- the sandbox command ------------------------------------------------------------------

TEST(CliSandbox, RunsUntilTerminatedAndPrintsItsAddressThenEachRequest) {
  const std::string cert = tavik::test::privateTempDir() + "sandbox.pem";
  Child server({"sandbox", "--port", "0", "--cert-out", cert}, "", {});
  std::string base;
  const auto deadline = std::chrono::steady_clock::now() + 20s;
  while (std::chrono::steady_clock::now() < deadline) {
    const std::string out = server.out();
    if (const auto end = out.find('\n'); end != std::string::npos) {
      base = out.substr(0, end);
      break;
    }
    std::this_thread::sleep_for(10ms);
  }
  ASSERT_TRUE(base.starts_with("https://127.0.0.1:")) << base;

  // The environment stands in for --sandbox and --ca-bundle.
  const auto pla =
      run({"pla", "--page", "HOME"}, "", {"TAVIK_HOST=" + base, "TAVIK_CA_BUNDLE=" + cert});
  EXPECT_EQ(pla.status, 0) << pla.err;

  server.signal(SIGTERM);
  const auto stopped = server.finish();
  EXPECT_EQ(stopped.status, 0) << stopped.err;
  EXPECT_TRUE(contains(stopped.out, "GET /sda?")) << stopped.out;
  EXPECT_TRUE(contains(stopped.out, "page_type=HOME")) << stopped.out;
}

}  // namespace

namespace {

// A POST of `body` to the running sandbox at `url`, trusting `cert`; the HTTP status.
long postJson(const std::string& url, const std::string& body, const std::string& cert) {
  CURL* easy = curl_easy_init();
  curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
  curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
  curl_easy_setopt(easy, CURLOPT_CAINFO, cert.c_str());
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.c_str());
  curl_easy_setopt(
      easy, CURLOPT_WRITEFUNCTION,
      +[](char*, size_t size, size_t count, void*) { return size * count; });
  curl_easy_setopt(easy, CURLOPT_TIMEOUT, 20L);
  long status = 0;
  if (curl_easy_perform(easy) == CURLE_OK) curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
  curl_slist_free_all(headers);
  curl_easy_cleanup(easy);
  return status;
}

// The first line the sandbox printed (its address), waiting for it at most 20 s.
std::string addressLine(const Child& server) {
  const auto deadline = std::chrono::steady_clock::now() + 20s;
  while (std::chrono::steady_clock::now() < deadline) {
    const std::string out = server.out();
    if (const auto end = out.find('\n'); end != std::string::npos) return out.substr(0, end);
    std::this_thread::sleep_for(10ms);
  }
  return {};
}

}  // namespace

// Stopping while workers still hold requests (answers held back by a scripted delay) cuts
// the delays short, joins every worker and exits 0: nothing runs on after main returns
// (under AddressSanitizer a worker touching freed memory at exit fails this test).
TEST(CliSandbox, StopsCleanlyWithRequestsInFlight) {
  const std::string cert = tavik::test::privateTempDir() + "inflight.pem";
  Child server({"sandbox", "--port", "0", "--cert-out", cert}, "", {});
  const std::string base = addressLine(server);
  ASSERT_TRUE(base.starts_with("https://127.0.0.1:")) << base;
  ASSERT_EQ(postJson(base + "/__sandbox/script",
                     R"({"path": "/events", "status": 200, "body": "{}", "delay_ms": 60000,
                         "times": 8})",
                     cert),
            200);

  std::vector<std::unique_ptr<Child>> clients;
  for (int i = 0; i < 8; ++i) {
    clients.push_back(std::make_unique<Child>(
        std::vector<std::string>{"event", "impression", "--uclid", "u-" + std::to_string(i)}, "",
        std::vector<std::string>{"TAVIK_HOST=" + base, "TAVIK_CA_BUNDLE=" + cert}));
  }
  // Every request has reached a worker and waits there.
  const auto deadline = std::chrono::steady_clock::now() + 30s;
  auto arrived = [&] {
    const std::string out = server.out();
    std::size_t count = 0;
    for (auto at = out.find("GET /events?"); at != std::string::npos;
         at = out.find("GET /events?", at + 1)) {
      ++count;
    }
    return count;
  };
  while (arrived() < 8 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(10ms);
  }
  ASSERT_EQ(arrived(), 8u) << server.out();

  const auto stopAt = std::chrono::steady_clock::now();
  server.signal(SIGTERM);
  const auto stopped = server.finish(20s);
  EXPECT_EQ(stopped.status, 0) << stopped.err;
  EXPECT_LT(std::chrono::steady_clock::now() - stopAt, 10s);
  // The clients are not left hanging on the held answers either: each ends well before
  // its 60 s time-out.
  for (auto& client : clients) client->finish(20s);
}
