// The event store against the sandbox over real HTTPS: hosts killed with SIGKILL and run
// again, scripted failures, a corrupt, unwritable, full or shared database, bounds.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include "events/event_store.h"
#include "support/sandbox_env.h"
#include "tavik/tavik.h"

using namespace std::chrono_literals;
using namespace tavik;
using Clock = std::chrono::steady_clock;

namespace {

std::int64_t steadyMillis() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now().time_since_epoch())
      .count();
}

std::string storePath(const std::string& name) {
  return test::privateTempDir() + name;
}

// A child process whose standard output is read line by line.
class Child {
 public:
  explicit Child(const std::vector<std::string>& argv) {
    int fds[2];
    if (::pipe(fds) != 0) throw std::runtime_error("pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
    posix_spawn_file_actions_addclose(&actions, fds[0]);
    std::vector<char*> args;
    for (const auto& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    if (::posix_spawn(&pid_, args[0], &actions, nullptr, args.data(), environ) != 0) {
      throw std::runtime_error("spawn");
    }
    posix_spawn_file_actions_destroy(&actions);
    ::close(fds[1]);
    reader_ = std::thread([this, fd = fds[0]] {
      std::string partial;
      char buffer[4096];
      ssize_t n;
      while ((n = ::read(fd, buffer, sizeof buffer)) > 0) {
        partial.append(buffer, static_cast<std::size_t>(n));
        std::size_t end;
        while ((end = partial.find('\n')) != std::string::npos) {
          std::lock_guard lock(mutex_);
          lines_.push_back(partial.substr(0, end));
          partial.erase(0, end + 1);
        }
      }
      ::close(fd);
    });
  }
  ~Child() {
    kill();
    if (reader_.joinable()) reader_.join();
  }

  std::vector<std::string> lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
  }
  // Waits until `count` lines were read, or a line equals `last`; false on time-out.
  bool waitForLines(std::size_t count, const std::string& last, std::chrono::milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    while (Clock::now() < deadline) {
      {
        std::lock_guard lock(mutex_);
        if (lines_.size() >= count) return true;
        if (!lines_.empty() && lines_.back() == last) return true;
      }
      std::this_thread::sleep_for(1ms);
    }
    return false;
  }
  // SIGKILL; returns the steady clock's milliseconds just before it.
  std::int64_t kill() {
    if (pid_ <= 0) return 0;
    const auto at = steadyMillis();
    ::kill(pid_, SIGKILL);
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = 0;
    if (reader_.joinable()) reader_.join();
    return at;
  }
  // Waits for a child that ends by itself; its exit status, or -1 when it was killed.
  int wait() {
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = 0;
    if (reader_.joinable()) reader_.join();
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t pid_ = 0;
  std::thread reader_;
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

struct Returned {
  std::int64_t start = 0, end = 0, steady = 0;
};

std::map<int, Returned> returnedCalls(const std::vector<std::string>& lines) {
  std::map<int, Returned> calls;
  for (const auto& line : lines) {
    std::istringstream in(line);
    int index;
    Returned r;
    if (in >> index >> r.start >> r.end >> r.steady) calls[index] = r;
  }
  return calls;
}

// The "cli_ubid" values of the logged events, in arrival order.
std::vector<nlohmann::json> loggedEvents(const sandbox::Sandbox& server) {
  std::vector<nlohmann::json> events;
  for (const auto& entry : server.eventLog()) events.push_back(entry["params"]);
  return events;
}

// Kills a host that sends `count` events to a closed port after `killAfter` of its calls
// returned (or, with killAfter 0, `settle` after its last call), then runs a second host
// on the same store with the service up and checks what the service received.
void killAndRecover(int count, std::size_t killAfter, std::chrono::milliseconds settle,
                    const std::string& name) {
  test::SandboxEnv certificates;  // makes the certificate the later sandbox reuses
  const int port = test::closedPort();
  const std::string host = "127.0.0.1:" + std::to_string(port);
  const std::string store = storePath(name);
  std::int64_t killedAt = 0;
  std::map<int, Returned> calls;
  {
    Child burst({TAVIK_EVENT_STORE_CHILD, "burst", host, certificates.server().certPath(), store,
                 std::to_string(count)});
    if (killAfter > 0) {
      ASSERT_TRUE(burst.waitForLines(killAfter, "done", 30s));
    } else {
      ASSERT_TRUE(burst.waitForLines(static_cast<std::size_t>(count) + 1, "done", 30s));
      std::this_thread::sleep_for(settle);
    }
    killedAt = burst.kill();
    calls = returnedCalls(burst.lines());
  }
  sandbox::Options options;
  options.port = port;
  test::SandboxEnv service(options);
  Child deliver(
      {TAVIK_EVENT_STORE_CHILD, "deliver", host, service.server().certPath(), store, "serial"});
  ASSERT_EQ(deliver.wait(), 0) << (deliver.lines().empty() ? "" : deliver.lines().back());

  std::map<std::string, int> received;
  std::map<std::string, std::string> eventTimes;
  std::vector<int> order;
  for (const auto& params : loggedEvents(service.server())) {
    const std::string id = params.value("cli_ubid", "");
    ++received[id];
    eventTimes[id] = params.value("event_time", "");
    order.push_back(std::stoi(id.substr(1)));
  }
  std::size_t due = 0;
  for (const auto& [index, call] : calls) {
    const std::string id = "k" + std::to_string(index);
    if (call.steady < killedAt - 100) {
      ++due;
      EXPECT_EQ(received[id], 1) << id << " returned " << killedAt - call.steady
                                 << " ms before the kill";
      if (received[id] == 1) {
        const auto sent = std::stoll(eventTimes[id]);
        EXPECT_GE(sent, call.start) << id << ": event_time is not the original call's";
        EXPECT_LE(sent, call.end) << id << ": event_time is not the original call's";
      }
    }
  }
  for (const auto& [id, n] : received) EXPECT_EQ(n, 1) << id << " arrived " << n << " times";
  EXPECT_GT(due, 0u);
  // Oldest first: one request at a time, the backlog arrives in the order of the calls.
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end())) << [&] {
    std::string text;
    for (int i : order) text += std::to_string(i) + " ";
    return text;
  }();
}

struct LogCapture {
  LogCapture() {
    setLogSink([this](std::string_view line) {
      std::lock_guard lock(mutex);
      lines.emplace_back(line);
    });
  }
  ~LogCapture() { setLogSink(nullptr); }
  std::vector<std::string> matching(const std::string& text) const {
    std::lock_guard lock(mutex);
    std::vector<std::string> found;
    for (const auto& line : lines) {
      if (line.find(text) != std::string::npos) found.push_back(line);
    }
    return found;
  }
  mutable std::mutex mutex;
  std::vector<std::string> lines;
};

template <class Predicate>
bool eventually(Predicate predicate, std::chrono::milliseconds timeout = 15s) {
  const auto deadline = Clock::now() + timeout;
  while (!predicate()) {
    if (Clock::now() > deadline) return false;
    std::this_thread::sleep_for(10ms);
  }
  return true;
}

TAVIK storeSdk(const std::string& host, const std::string& store) {
  return TAVIK::Builder().clientId("store-test").eventTrackingHost(host).eventStore(store).build();
}

// Opens the store with short back-off so the retry tests take a second, not minutes.
detail::EventStoreOptions quickRetries(const std::string& store) {
  detail::EventStoreOptions options;
  options.path = store;
  options.retryDelay = 100ms;
  options.maxRetryDelay = 200ms;
  return options;
}

std::size_t requestsOf(const sandbox::Sandbox& server, const std::string& cliUbid) {
  std::size_t n = 0;
  for (const auto& request : server.requests("/events")) n += request.value("cli_ubid") == cliUbid;
  return n;
}

}  // namespace

TEST(EventStoreKill, DuringTheBurst) {
  killAndRecover(300, 150, 0ms, "kill-early.db");
}

TEST(EventStoreKill, LateInTheBurst) {
  killAndRecover(300, 280, 0ms, "kill-late.db");
}

TEST(EventStoreKill, WhileRetrying) {
  killAndRecover(200, 0, 1500ms, "kill-retrying.db");
}

TEST(EventStoreKill, AnAcceptedEventWhoseRowWasNotRemovedYetIsTheOnlyDuplicate) {
  test::SandboxEnv env;
  // Slow answers: every event's row is committed before its answer arrives.
  env.server().script("/events", test::slow(150ms));
  const std::string store = storePath("accept-kill.db");
  const int killIndex = 5;
  {
    Child sender({TAVIK_EVENT_STORE_CHILD, "accept-kill", env.host(), env.server().certPath(),
                  store, "10", std::to_string(killIndex + 1)});
    EXPECT_EQ(sender.wait(), -1);  // it killed itself
  }
  env.server().clearScripts();
  Child deliver({TAVIK_EVENT_STORE_CHILD, "deliver", env.host(), env.server().certPath(), store});
  ASSERT_EQ(deliver.wait(), 0);
  for (int i = 0; i <= killIndex; ++i) {
    EXPECT_EQ(requestsOf(env.server(), "k" + std::to_string(i)), i == killIndex ? 2u : 1u)
        << "k" << i;
  }
  for (int i = killIndex + 1; i < 10; ++i) {
    EXPECT_EQ(requestsOf(env.server(), "k" + std::to_string(i)), 0u) << "k" << i;
  }
}

TEST(EventStore, ServiceUnavailableWithRetryAfterIsRetriedAfterTheStatedDelay) {
  test::SandboxEnv env;
  auto answer = test::reply(503, "{}");
  answer.headers.emplace_back("Retry-After", "2");
  answer.times = 1;
  env.server().script("/events", answer);
  const std::string store = storePath("retry-after.db");
  detail::openEventStore(quickRetries(store));
  const TAVIK sdk = storeSdk(env.host(), store);
  std::atomic<int> errors{0};
  std::optional<int> status;
  auto result = sdk.registerEvent()->registerTrackingEvent("u1", TavikEventName::funnelImpression,
                                                           nullptr, [&](const TavikError& e) {
                                                             ++errors;
                                                             status = e.statusCode();
                                                           });
  // The first attempt's result, as without the store.
  EXPECT_FALSE(result.get().has_value());
  EXPECT_EQ(errors, 1);
  EXPECT_EQ(status, 503);
  ASSERT_TRUE(env.server().waitForEvents(1, 10s));
  std::this_thread::sleep_for(300ms);
  const auto requests = env.server().requests("/events");
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_GE(requests[1].timeMs - requests[0].timeMs, 2000);
  // The same bytes both times.
  EXPECT_EQ(requests[0].rawQuery, requests[1].rawQuery);
  EXPECT_EQ(env.server().eventLog().size(), 1u);
  const auto stats = events::storeStats();
  EXPECT_EQ(stats.delivered, 1u);
  EXPECT_EQ(stats.retried, 1u);
  EXPECT_EQ(stats.pending, 0u);
  EXPECT_EQ(errors, 1);  // the retry reports nothing
}

TEST(EventStore, AnAcceptedEventBringsTheEventsWaitingOutTheirBackOffForward) {
  test::SandboxEnv env;
  env.server().script("/events", test::reply(503, "{}"));
  const std::string store = storePath("forward.db");
  detail::EventStoreOptions options;
  options.path = store;
  options.retryDelay = 60s;  // the first retry somewhere in the next minute
  options.maxRetryDelay = 60s;
  detail::openEventStore(options);
  const TAVIK sdk = storeSdk(env.host(), store);
  const auto registrar = sdk.registerEvent();
  for (int i = 0; i < 5; ++i) {
    registrar->registerTrackingEvent("w" + std::to_string(i), TavikEventName::funnelImpression,
                                     nullptr);
  }
  ASSERT_TRUE(env.server().waitForRequests(5, 10s));
  env.server().clearScripts();  // the service is back
  registrar->registerTrackingEvent("w5", TavikEventName::funnelImpression, nullptr).wait();
  ASSERT_TRUE(env.server().waitForEvents(6, 3s)) << env.server().eventLog().size();
  EXPECT_TRUE(eventually([] { return events::storeStats().pending == 0; }, 2s));
}

TEST(EventStore, ABadRequestIsNotRetriedAndIsCounted) {
  test::SandboxEnv env;
  env.server().script("/events", test::reply(400, "{}"));
  const std::string store = storePath("rejected.db");
  detail::openEventStore(quickRetries(store));
  const TAVIK sdk = storeSdk(env.host(), store);
  sdk.registerEvent()
      ->registerTrackingEvent("u1", TavikEventName::funnelImpression, nullptr)
      .wait();
  ASSERT_TRUE(eventually([] { return events::storeStats().rejected == 1; }));
  std::this_thread::sleep_for(800ms);  // several back-off periods
  EXPECT_EQ(env.server().requests("/events").size(), 1u);
  EXPECT_EQ(events::storeStats().pending, 0u);
  EXPECT_EQ(events::storeStats().retried, 0u);
}

TEST(EventStore, RequestTimeoutAndTooManyRequestsAreRetried) {
  for (const int status : {408, 429}) {
    test::SandboxEnv env;
    auto failing = test::reply(status, "{}");
    failing.times = 2;
    env.server().script("/events", failing);
    const std::string store = storePath("retried-" + std::to_string(status) + ".db");
    detail::openEventStore(quickRetries(store));
    const TAVIK sdk = storeSdk(env.host(), store);
    sdk.registerEvent()->registerTrackingEvent("u1", TavikEventName::funnelImpression, nullptr);
    ASSERT_TRUE(env.server().waitForEvents(1, 10s)) << status;
    EXPECT_EQ(env.server().requests("/events").size(), 3u) << status;
    ASSERT_TRUE(eventually([] { return events::storeStats().delivered == 1; })) << status;
    EXPECT_EQ(events::storeStats().retried, 2u) << status;
    EXPECT_EQ(events::storeStats().rejected, 0u) << status;
  }
}

TEST(EventStore, ACorruptDatabaseIsMovedAsideAndAFreshOneBegins) {
  test::SandboxEnv env;
  const std::string store = storePath("corrupt.db");
  {
    std::ofstream out(store, std::ios::binary);
    out << std::string(8192, 'x');
  }
  LogCapture log;
  const TAVIK sdk = storeSdk(env.host(), store);
  EXPECT_EQ(log.matching("corrupt").size(), 1u);
  EXPECT_TRUE(events::storeStats().active);
  bool movedAside = false;
  for (const auto& entry : std::filesystem::directory_iterator(test::privateTempDir())) {
    movedAside |= entry.path().filename().string().starts_with("corrupt.db.corrupt-");
  }
  EXPECT_TRUE(movedAside);
  sdk.registerEvent()
      ->registerTrackingEvent("u1", TavikEventName::funnelImpression, nullptr)
      .wait();
  ASSERT_TRUE(eventually([] { return events::storeStats().delivered == 1; }));
}

TEST(EventStore, AnUnwritablePathSendsWithoutTheStore) {
  test::SandboxEnv env;
  LogCapture log;
  // Nothing, root included, can make a file in /proc.
  const TAVIK sdk = storeSdk(env.host(), "/proc/tavik-events.db");
  EXPECT_EQ(log.matching("event store").size(), 1u);
  EXPECT_FALSE(events::storeStats().active);
  const auto result =
      sdk.registerEvent()->registerTrackingEvent("u1", TavikEventName::funnelImpression, nullptr);
  EXPECT_TRUE(result.get().has_value());
  EXPECT_EQ(env.server().eventLog().size(), 1u);
}

TEST(EventStore, AFullDiskFallsBackToSendingWithoutTheStore) {
  test::SandboxEnv env;
  env.server().script("/events", test::slow(100ms));
  const std::string store = storePath("full.db");
  auto options = quickRetries(store);
  options.maxPageCount = 4;  // a few KiB
  LogCapture log;
  detail::openEventStore(options);
  const TAVIK sdk = storeSdk(env.host(), store);
  const auto registrar = sdk.registerEvent();
  for (int i = 0; i < 200; ++i) {
    const auto start = Clock::now();
    registrar->registerTrackingEvent("f" + std::to_string(i), TavikEventName::funnelImpression,
                                     nullptr);
    EXPECT_LT(Clock::now() - start, 1s);  // never waits for the disk
    if (i % 20 == 19) std::this_thread::sleep_for(30ms);
  }
  ASSERT_TRUE(eventually([] { return !events::storeStats().active; }));
  EXPECT_EQ(log.matching("full").size(), 1u);
  // Every event still reached the service once or more; the later ones without the store.
  ASSERT_TRUE(env.server().waitForRequests(200, 20s));
  for (int i = 0; i < 200; ++i) EXPECT_GE(requestsOf(env.server(), "f" + std::to_string(i)), 1u);
}

TEST(EventStore, ASecondProcessOnTheSameStoreWorksWithoutIt) {
  test::SandboxEnv env;
  const std::string store = storePath("shared.db");
  Child holder({TAVIK_EVENT_STORE_CHILD, "hold", env.host(), env.server().certPath(), store});
  ASSERT_TRUE(holder.waitForLines(1, "", 20s));
  ASSERT_EQ(holder.lines().front(), "ready");
  LogCapture log;
  const auto start = Clock::now();
  const TAVIK sdk = storeSdk(env.host(), store);
  EXPECT_LT(Clock::now() - start, 1s);
  EXPECT_EQ(log.matching("in use by another process").size(), 1u);
  EXPECT_FALSE(events::storeStats().active);
  EXPECT_TRUE(sdk.registerEvent()
                  ->registerTrackingEvent("u1", TavikEventName::funnelImpression, nullptr)
                  .get()
                  .has_value());
  // Once the first process is gone, the store can be opened again.
  holder.kill();
  const TAVIK again = storeSdk(env.host(), store);
  EXPECT_TRUE(events::storeStats().active);
}

TEST(EventStore, CapAndAgeEvictTheOldestFirstAndTheCountsMatchTheService) {
  const int port = test::closedPort();
  const std::string host = "127.0.0.1:" + std::to_string(port);
  const std::string store = storePath("bounds.db");
  std::atomic<std::int64_t> now{1'000'000'000'000};
  auto options = quickRetries(store);
  options.clock = [&now] { return now.load(); };
  options.limits.maxEvents = 5;
  options.limits.maxAge = std::chrono::hours(1);
  detail::openEventStore(options);
  const TAVIK sdk = storeSdk(host, store);
  const auto registrar = sdk.registerEvent();
  const auto send = [&](int from, int to) {
    for (int i = from; i < to; ++i) {
      registrar->registerTrackingEvent("b" + std::to_string(i), TavikEventName::funnelImpression,
                                       nullptr);
    }
  };
  send(0, 10);
  ASSERT_TRUE(eventually([] { return events::storeStats().evictedByCap == 5; }));
  now += 30 * 60 * 1000;
  send(10, 12);  // b5 and b6 make room
  ASSERT_TRUE(eventually([] { return events::storeStats().evictedByCap == 7; }));
  now += 31 * 60 * 1000;  // b7 to b9 are older than an hour, b10 and b11 are not
  ASSERT_TRUE(eventually([] { return events::storeStats().evictedByAge == 3; }));
  EXPECT_EQ(events::storeStats().pending, 2u);

  sandbox::Options up;
  up.port = port;
  test::SandboxEnv service(up);
  // Back-off is counted on the store's clock too: let it run.
  ASSERT_TRUE(eventually([&now] {
    now += 100;
    return events::storeStats().delivered == 2;
  }));
  std::this_thread::sleep_for(300ms);
  std::vector<std::string> received;
  for (const auto& params : loggedEvents(service.server())) {
    received.push_back(params.value("cli_ubid", ""));
  }
  std::sort(received.begin(), received.end());  // retries go in the order of their jitter
  EXPECT_EQ(received, (std::vector<std::string>{"b10", "b11"}));
  const auto stats = events::storeStats();
  EXPECT_EQ(stats.delivered, received.size());
  EXPECT_EQ(stats.pending, 0u);
  EXPECT_EQ(stats.evictedByCap + stats.evictedByAge + stats.delivered, 12u);
}

namespace {

// Eight stored events meet a service that answers them after 30 s, with three connections
// per host: how many of the host's connections the backlog holds at once.
std::size_t connectionsTakenByABacklog(bool hostServesAds, const std::string& name) {
  test::SandboxEnv certificates;  // makes the certificate the later sandbox reuses
  const int port = test::closedPort();
  const std::string host = "127.0.0.1:" + std::to_string(port);
  auto settings = transport::settings();
  settings.maxConnectionsPerHost = 3;
  transport::configure(settings);
  TAVIK::Builder builder;
  builder.clientId("store-test").eventTrackingHost(host).eventStore(storePath(name));
  if (hostServesAds) builder.displayAdsHost(host);
  const TAVIK sdk = builder.build();
  const auto registrar = sdk.registerEvent();
  std::vector<RegisterEventProtocol::Result> first;
  for (int i = 0; i < 8; ++i) {
    first.push_back(registrar->registerTrackingEvent("c" + std::to_string(i),
                                                     TavikEventName::funnelImpression, nullptr));
  }
  for (auto& result : first) EXPECT_FALSE(result.get()) << "the service was down";

  sandbox::Options up;
  up.port = port;
  sandbox::Sandbox service(up);
  service.script("/events", test::slow(30s));
  service.start();
  EXPECT_TRUE(service.waitForRequests(2, 10s));
  std::this_thread::sleep_for(1500ms);  // the back-off of every retry has run out
  const std::size_t taken = service.requests("/events").size();
  if (hostServesAds) {
    // The connection left free serves a fetch at once.
    const auto fetched = sdk.adRenderer()->fetchBannerAdsWithAu("shopper", "home", "banner-1",
                                                                std::nullopt, nullptr);
    EXPECT_EQ(fetched.wait_for(10s), std::future_status::ready) << "a fetch waited behind it";
  }
  service.stop();
  return taken;
}

}  // namespace

TEST(EventStore, ABacklogTakesEveryConnectionOfAnEventHostOfItsOwn) {
  EXPECT_EQ(connectionsTakenByABacklog(false, "own-host.db"), 3u);
}

TEST(EventStore, ABacklogLeavesAConnectionFreeOnAHostThatAlsoServesTheAds) {
  EXPECT_EQ(connectionsTakenByABacklog(true, "shared-host.db"), 2u);
}
