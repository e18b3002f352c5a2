#include "bench_support.h"

#include <benchmark/benchmark.h>

#include <malloc.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <future>
#include <iostream>
#include <memory>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "tavik/ads/ad_renderer.h"
#include "tavik/events/register_event.h"
#include "tavik/network/transport.h"
#include "tavik/sandbox/sandbox.h"

namespace tavik::bench {

namespace {

std::string envOr(const char* name, const std::string& fallback) {
  const char* value = std::getenv(name);
  return value && *value ? std::string(value) : fallback;
}

std::vector<pid_t> parsePids(const std::string& text) {
  std::vector<pid_t> pids;
  std::stringstream in(text);
  std::string item;
  while (std::getline(in, item, ',')) {
    if (!item.empty()) pids.push_back(static_cast<pid_t>(std::stol(item)));
  }
  return pids;
}

size_t appendBody(char* data, size_t size, size_t count, void* user) {
  static_cast<std::string*>(user)->append(data, size * count);
  return size * count;
}

// One GET with a fresh easy handle; throws on any failure.
std::string rawGet(const std::string& url, const std::string& caFile) {
  std::string body;
  CURL* easy = curl_easy_init();
  curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
  curl_easy_setopt(easy, CURLOPT_CAINFO, caFile.c_str());
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, appendBody);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, &body);
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  const CURLcode code = curl_easy_perform(easy);
  long status = 0;
  curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
  curl_easy_cleanup(easy);
  if (code != CURLE_OK || status != 200) {
    throw std::runtime_error("GET " + url + " failed: " + curl_easy_strerror(code) + ", status " +
                             std::to_string(status));
  }
  return body;
}

void replaceAll(std::string& text, const std::string& from, const std::string& to) {
  for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
}

// Drives the SDK through its public API against `box` and records what went on the wire.
WireForm capture(sandbox::Sandbox& box) {
  const std::string hostPort = "127.0.0.1:" + std::to_string(box.port());
  const TAVIK local = TAVIK::Builder()
                          .clientId(kClientId)
                          .productAdsHost(hostPort)
                          .displayAdsHost(hostPort)
                          .eventTrackingHost(hostPort)
                          .trustedCaBundle(box.certPath())
                          .build();
  std::string problem;
  const auto onError = [&problem](const TavikError& error) {
    problem = error.code() + ": " + error.what();
  };
  const auto banner =
      local.adRenderer()
          ->fetchBannerAdsWithAu(kCliUbid, kPageType, kAdUnit, std::nullopt, onError)
          .get();
  if (!banner) throw std::runtime_error("the SDK fetched no banner from the sandbox: " + problem);
  const auto event = local.registerEvent()
                         ->registerAdImpressionEvent(kCliUbid, kUclid, kPosition, nullptr, onError)
                         .get();
  if (!event) throw std::runtime_error("the SDK registered no event on the sandbox: " + problem);

  const auto banners = box.requests("/v2/bsda");
  const auto events = box.requests("/events");
  if (banners.size() != 1 || events.size() != 1) {
    throw std::runtime_error("the sandbox did not record exactly one banner and one event");
  }
  WireForm form;
  form.bannerQuery = banners[0].rawQuery;
  form.eventQuery = events[0].rawQuery;
  if (form.eventQuery.find("event_time=") == std::string::npos) {
    throw std::runtime_error("the captured event has no event_time: " + form.eventQuery);
  }
  form.bannerBody = rawGet(box.baseUrl() + "/v2/bsda?" + form.bannerQuery, box.certPath());
  form.eventBody = rawGet(box.baseUrl() + "/events?" + form.eventQuery, box.certPath());
  return form;
}

sandbox::Sandbox* inProcessSandbox = nullptr;

}  // namespace

const Server& server() {
  static const Server instance = [] {
    Server s;
    s.hostPort = envOr("TAVIK_BENCH_SERVER", "");
    if (!s.hostPort.empty()) {
      s.caFile = envOr("TAVIK_BENCH_CA", "");
      s.kind = envOr("TAVIK_BENCH_SERVER_KIND", "external");
      s.pids = parsePids(envOr("TAVIK_BENCH_SERVER_PIDS", ""));
      if (s.caFile.empty()) throw std::runtime_error("TAVIK_BENCH_SERVER needs TAVIK_BENCH_CA");
      return s;
    }
    // Lives for the whole process; never destroyed, so no exit-time ordering matters.
    inProcessSandbox = new sandbox::Sandbox();
    inProcessSandbox->start();
    s.kind = "sandbox-in-process";
    s.hostPort = "127.0.0.1:" + std::to_string(inProcessSandbox->port());
    s.caFile = inProcessSandbox->certPath();
    return s;
  }();
  return instance;
}

const WireForm& wireForm() {
  static const WireForm form = [] {
    const Server& target = server();
    if (inProcessSandbox) {
      WireForm captured = capture(*inProcessSandbox);
      inProcessSandbox->clearRequests();
      return captured;
    }
    sandbox::Sandbox box;
    box.start();
    WireForm captured = capture(box);
    // The answer is served from elsewhere: its links name the server that serves it.
    replaceAll(captured.bannerBody, box.baseUrl(), target.baseUrl());
    box.stop();
    return captured;
  }();
  return form;
}

std::int64_t nowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

std::string eventQueryAt(std::int64_t timeMs) {
  std::string query = wireForm().eventQuery;
  const auto start = query.find("event_time=") + std::string("event_time=").size();
  auto end = query.find('&', start);
  if (end == std::string::npos) end = query.size();
  query.replace(start, end - start, std::to_string(timeMs));
  return query;
}

TAVIK& sdk() {
  static TAVIK& instance = []() -> TAVIK& {
    wireForm();
    // Trust exactly the server under test from here on (the capture trusted its own).
    transport::Settings settings = transport::settings();
    settings.extraCaBundles.clear();
    transport::configure(settings);
    const std::string hostPort = server().hostPort;
    return TAVIK::Builder()
        .clientId(kClientId)
        .productAdsHost(hostPort)
        .displayAdsHost(hostPort)
        .eventTrackingHost(hostPort)
        .trustedCaBundle(server().caFile)
        .buildGlobalInstance();
  }();
  return instance;
}

bool dumpFixtures(const std::string& dir) {
  try {
    const WireForm& form = wireForm();
    for (const auto& [name, body] :
         {std::pair{"bsda.json", &form.bannerBody}, std::pair{"events.json", &form.eventBody}}) {
      std::ofstream out(dir + "/" + name, std::ios::binary);
      out << *body;
      if (!out) throw std::runtime_error("cannot write " + dir + "/" + name);
    }
    std::cout << "banner query: " << form.bannerQuery << "\nevent query:  " << form.eventQuery
              << "\n";
    return true;
  } catch (const std::exception& e) {
    std::cerr << "tavik_bench: " << e.what() << "\n";
    return false;
  }
}

bool http2() {
  static const bool on = [] {
    const char* value = std::getenv("TAVIK_BENCH_HTTP2");
    return value && std::string(value) == "1";
  }();
  return on;
}

void setRawOptions(CURL* easy, const std::string& url, std::string* body) {
  curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
  curl_easy_setopt(easy, CURLOPT_CAINFO, server().caFile.c_str());
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, appendBody);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, body);
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  if (http2()) {
    // The best raw use of HTTP/2: negotiated over TLS, and transfers wait for the
    // connection that can multiplex them instead of opening more (as the SDK's do).
    curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_2TLS));
    curl_easy_setopt(easy, CURLOPT_PIPEWAIT, 1L);
  }
}

namespace {
struct RawTransfer {
  CURL* easy = nullptr;
  std::string body;
};
}  // namespace

RawMulti::RawMulti(std::function<void(CURL*)> configure) : configure_(std::move(configure)) {
  multi_ = curl_multi_init();
  curl_multi_setopt(multi_, CURLMOPT_MAX_HOST_CONNECTIONS,
                    transport::settings().maxConnectionsPerHost);
}

RawMulti::~RawMulti() {
  curl_multi_cleanup(multi_);
}

void RawMulti::addEvents(std::size_t count) {
  const std::string prefix = server().baseUrl() + "/events?";
  for (std::size_t i = 0; i < count; ++i) {
    auto* transfer = new RawTransfer;
    transfer->easy = curl_easy_init();
    setRawOptions(transfer->easy, prefix + eventQueryAt(nowMs()), &transfer->body);
    if (configure_) configure_(transfer->easy);
    curl_easy_setopt(transfer->easy, CURLOPT_PRIVATE, transfer);
    curl_multi_add_handle(multi_, transfer->easy);
  }
}

std::size_t RawMulti::reap(Result& result) {
  std::size_t finished = 0;
  int pending = 0;
  while (CURLMsg* message = curl_multi_info_read(multi_, &pending)) {
    if (message->msg != CURLMSG_DONE) continue;
    RawTransfer* transfer = nullptr;
    curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &transfer);
    long status = 0;
    long connects = 0;
    curl_easy_getinfo(transfer->easy, CURLINFO_RESPONSE_CODE, &status);
    curl_easy_getinfo(transfer->easy, CURLINFO_NUM_CONNECTS, &connects);
    long version = 0;
    curl_easy_getinfo(transfer->easy, CURLINFO_HTTP_VERSION, &version);
    if (version == CURL_HTTP_VERSION_2_0) ++result.http2;
    const bool ok = message->data.result == CURLE_OK && status == 200;
    (ok ? result.ok : result.failed) += 1;
    result.connects += connects;
    curl_multi_remove_handle(multi_, transfer->easy);
    curl_easy_cleanup(transfer->easy);
    delete transfer;
    ++finished;
  }
  return finished;
}

RawMulti::Result RawMulti::drive() {
  Result result;
  int running = 1;
  while (running > 0) {
    curl_multi_perform(multi_, &running);
    reap(result);
    if (running > 0) curl_multi_poll(multi_, nullptr, 0, 1000, nullptr);
  }
  return result;
}

struct IoThread::Impl {
  struct Job {
    CURL* easy = nullptr;
    std::promise<bool> done;
  };

  Impl() : multi(curl_multi_init()), thread([this] { run(); }) {}

  void run() {
    std::deque<std::unique_ptr<Job>> active;
    while (true) {
      {
        std::lock_guard lock(mutex);
        if (stopping) return;
        for (auto& job : queue) {
          curl_easy_setopt(job->easy, CURLOPT_PRIVATE, job.get());
          curl_multi_add_handle(multi, job->easy);
          active.push_back(std::move(job));
        }
        queue.clear();
      }
      int running = 0;
      curl_multi_perform(multi, &running);
      int pending = 0;
      while (CURLMsg* message = curl_multi_info_read(multi, &pending)) {
        if (message->msg != CURLMSG_DONE) continue;
        Job* job = nullptr;
        curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &job);
        curl_multi_remove_handle(multi, job->easy);
        job->done.set_value(message->data.result == CURLE_OK);
        std::erase_if(active, [job](const auto& owned) { return owned.get() == job; });
      }
      curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
    }
  }

  CURLM* multi;
  std::mutex mutex;
  bool stopping = false;
  std::deque<std::unique_ptr<Job>> queue;
  std::thread thread;
};

IoThread::IoThread() : impl_(std::make_unique<Impl>()) {}

IoThread::~IoThread() {
  {
    std::lock_guard lock(impl_->mutex);
    impl_->stopping = true;
  }
  curl_multi_wakeup(impl_->multi);
  impl_->thread.join();
  curl_multi_cleanup(impl_->multi);
}

bool IoThread::perform(CURL* easy) {
  auto job = std::make_unique<Impl::Job>();
  job->easy = easy;
  auto done = job->done.get_future();
  {
    std::lock_guard lock(impl_->mutex);
    impl_->queue.push_back(std::move(job));
  }
  curl_multi_wakeup(impl_->multi);
  return done.get();
}

RawMulti::Result RawMulti::burstCapped(std::size_t count, std::size_t maxInMulti) {
  Result result;
  std::size_t added = 0, inMulti = 0;
  while (added < count || inMulti > 0) {
    const std::size_t room = std::min(count - added, maxInMulti - std::min(maxInMulti, inMulti));
    addEvents(room);
    added += room;
    inMulti += room;
    int running = 0;
    curl_multi_perform(multi_, &running);
    inMulti -= reap(result);
    if (inMulti > 0) curl_multi_poll(multi_, nullptr, 0, 1000, nullptr);
  }
  return result;
}

namespace {
long statusField(const char* name) {
  std::ifstream in("/proc/self/status");
  std::string line;
  const std::string prefix = std::string(name) + ":";
  while (std::getline(in, line)) {
    if (line.rfind(prefix, 0) == 0) return std::stol(line.substr(prefix.size()));
  }
  return -1;
}

double cpuSecondsOf(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  // The command name may hold spaces; fields are counted after its closing parenthesis.
  const auto close = text.rfind(')');
  if (close == std::string::npos) return 0;
  std::stringstream fields(text.substr(close + 2));
  std::string field;
  unsigned long long utime = 0, stime = 0;
  for (int index = 3; fields >> field; ++index) {
    if (index == 14) utime = std::stoull(field);
    if (index == 15) {
      stime = std::stoull(field);
      break;
    }
  }
  return static_cast<double>(utime + stime) / static_cast<double>(sysconf(_SC_CLK_TCK));
}
}  // namespace

long rssKiB() {
  return statusField("VmRSS");
}
long peakRssKiB() {
  return statusField("VmHWM");
}

bool resetPeakRss() {
  std::ofstream out("/proc/self/clear_refs");
  out << "5";
  out.flush();
  return static_cast<bool>(out);
}

double processCpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& t) { return t.tv_sec + t.tv_usec / 1e6; };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double threadCpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

double liveHeapMiB() {
  const struct mallinfo2 info = mallinfo2();
  return static_cast<double>(info.uordblks + info.hblkhd) / (1024.0 * 1024.0);
}

double serverCpuSeconds() {
  const auto& pids = server().pids;
  if (pids.empty()) return processCpuSeconds();
  double total = 0;
  for (pid_t pid : pids) total += cpuSecondsOf(pid);
  return total;
}

double median(std::vector<double> values) {
  if (values.empty()) return 0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

int benchMain(int argc, char** argv) {
  if (argc == 3 && std::string(argv[1]) == "--dump-fixtures") return dumpFixtures(argv[2]) ? 0 : 1;
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  try {
    sdk();
  } catch (const std::exception& e) {
    std::cerr << "tavik_bench: cannot set up: " << e.what() << "\n";
    return 1;
  }
  benchmark::AddCustomContext("server", server().kind + " at " + server().baseUrl());
  benchmark::AddCustomContext("libcurl", curl_version());
  benchmark::AddCustomContext("http", http2() ? "HTTP/2 (raw: 2TLS, PIPEWAIT)" : "HTTP/1.1");
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}

}  // namespace tavik::bench
