// Where the time of one HTTPS request goes, in raw libcurl only: each variant adds one
// thing the SDK's transport does to the plain reused-handle request, so the difference
// between two neighbours is the cost of that one thing on this machine:
//
//   reused_easy        curl_easy_perform on one reused easy handle (the fetch baseline)
//   multi_new_easy     a new easy handle per request on a long-lived multi handle
//   multi_ca_blob      the same with the trust store passed as CURLOPT_CAINFO_BLOB
//                      (system bundle + the server's certificate, as the SDK passes it
//                      once a CA bundle is trusted) instead of a CA file
//   io_thread_handoff  multi_new_easy driven by another thread: hand-over and wake-up
//
// then bursts of 10,000 GETs fed to the multi handle all at once (CA file, CA blob) or a
// few at a time from a queue of the caller's, and finally the cost of opening a connection (TLS
// handshake included) with the system store as a blob, as a file beside libcurl's default CA
// folder, and as a file alone, which is the only one whose parsed store libcurl caches.

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <future>
#include <mutex>
#include <sstream>
#include <thread>

#include "bench_support.h"
#include "tavik/network/transport.h"

namespace tavik::bench {

namespace {

using Clock = std::chrono::steady_clock;

double microsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

// The trust store as the SDK builds it when a bundle is added: the system store's PEM
// text followed by the extra certificate.
const std::string& caBlob() {
  static const std::string blob = [] {
    const curl_version_info_data* info = curl_version_info(CURLVERSION_NOW);
    std::string pem =
        readFile(info && info->cainfo ? info->cainfo : "/etc/ssl/certs/ca-certificates.crt");
    if (!pem.empty() && pem.back() != '\n') pem += '\n';
    return pem + readFile(server().caFile);
  }();
  return blob;
}

void useCaBlob(CURL* easy) {
  curl_blob blob{const_cast<char*>(caBlob().data()), caBlob().size(), CURL_BLOB_NOCOPY};
  curl_easy_setopt(easy, CURLOPT_CAINFO_BLOB, &blob);
}

std::string bannerUrl() {
  return server().baseUrl() + "/v2/bsda?" + wireForm().bannerQuery;
}

// Runs one transfer to completion on `multi` from the calling thread.
bool runOnMulti(CURLM* multi, CURL* easy) {
  curl_multi_add_handle(multi, easy);
  bool ok = false;
  for (int running = 1; running > 0;) {
    curl_multi_perform(multi, &running);
    int pending = 0;
    while (CURLMsg* message = curl_multi_info_read(multi, &pending)) {
      if (message->msg == CURLMSG_DONE) ok = message->data.result == CURLE_OK;
    }
    if (running > 0) curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
  }
  curl_multi_remove_handle(multi, easy);
  return ok;
}

void BM_RequestParts(benchmark::State& state) {
  const std::string url = bannerUrl();
  std::string body;
  CURL* reused = curl_easy_init();
  setRawOptions(reused, url, &body);
  CURLM* fileMulti = curl_multi_init();
  CURLM* blobMulti = curl_multi_init();
  IoThread ioThread;

  const auto fresh = [&](bool blob) {
    CURL* easy = curl_easy_init();
    setRawOptions(easy, url, &body);
    if (blob) useCaBlob(easy);
    return easy;
  };
  const auto once = [&](int variant) {
    body.clear();
    switch (variant) {
      case 0:
        return curl_easy_perform(reused) == CURLE_OK;
      case 3: {
        CURL* easy = fresh(false);
        const bool ok = ioThread.perform(easy);
        curl_easy_cleanup(easy);
        return ok;
      }
      default: {
        CURL* easy = fresh(variant == 2);
        const bool ok = runOnMulti(variant == 2 ? blobMulti : fileMulti, easy);
        curl_easy_cleanup(easy);
        return ok;
      }
    }
  };

  bool ok = true;
  for (int i = 0; i < 30; ++i) {
    for (int variant = 0; variant < 4; ++variant) ok = ok && once(variant);
  }
  std::vector<double> times[4];
  std::size_t iteration = 0;
  for (auto _ : state) {
    for (int step = 0; step < 4; ++step) {
      const int variant = static_cast<int>((iteration + step) % 4);
      const auto t0 = Clock::now();
      ok = once(variant) && ok;
      times[variant].push_back(microsSince(t0));
    }
    ++iteration;
    state.SetIterationTime(times[0].back() / 1e6);
  }
  curl_easy_cleanup(reused);
  curl_multi_cleanup(fileMulti);
  curl_multi_cleanup(blobMulti);
  if (!ok) state.SkipWithError("a request failed");
  const char* names[] = {"reused_easy_us", "multi_new_easy_us", "multi_ca_blob_us",
                         "io_thread_handoff_us"};
  for (int variant = 0; variant < 4; ++variant)
    state.counters[names[variant]] = median(times[variant]);
  state.counters["ca_blob_cost_us"] = median(times[2]) - median(times[1]);
  state.counters["handoff_cost_us"] = median(times[3]) - median(times[1]);
}

// The same trust store as a file (the SDK's: system store + the extra certificate).
const std::string& caBundleFile() {
  static const std::string path = [] {
    std::string file = (std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "/tmp");
    file += "/tavik-bench-ca-" + std::to_string(::getpid()) + ".pem";
    std::ofstream(file, std::ios::binary) << caBlob();
    std::atexit([] { std::remove(caBundleFile().c_str()); });
    return file;
  }();
  return path;
}

// Opening a connection (TLS handshake included) with the whole system store three ways:
// as a blob (parsed for every connection), as a CA file beside libcurl's default CA
// folder (also parsed for every connection: libcurl caches a store only when it comes
// from a file alone) and as a CA file alone (parsed once, then cached in the multi handle).
void BM_NewConnection(benchmark::State& state) {
  const std::string url = bannerUrl();
  std::string body;
  // One multi handle per kind: libcurl keeps its cache of the parsed CA file there.
  CURLM* multis[3] = {curl_multi_init(), curl_multi_init(), curl_multi_init()};
  std::vector<double> times[3];
  bool ok = true;
  std::size_t iteration = 0;
  for (auto _ : state) {
    for (int step = 0; step < 3; ++step) {
      const int kind = static_cast<int>((iteration + step) % 3);
      CURL* easy = curl_easy_init();
      setRawOptions(easy, url, &body);
      curl_easy_setopt(easy, CURLOPT_FORBID_REUSE, 1L);  // a new connection every time
      if (kind == 0) useCaBlob(easy);
      if (kind > 0) curl_easy_setopt(easy, CURLOPT_CAINFO, caBundleFile().c_str());
      if (kind == 2) curl_easy_setopt(easy, CURLOPT_CAPATH, nullptr);
      const auto t0 = Clock::now();
      ok = runOnMulti(multis[kind], easy) && ok;
      times[kind].push_back(microsSince(t0));
      curl_easy_cleanup(easy);
    }
    ++iteration;
    state.SetIterationTime(times[2].back() / 1e6);
  }
  for (CURLM* multi : multis) curl_multi_cleanup(multi);
  if (!ok) state.SkipWithError("a request failed");
  state.counters["ca_blob_ms"] = median(times[0]) / 1e3;
  state.counters["ca_file_and_dir_ms"] = median(times[1]) / 1e3;
  state.counters["ca_file_alone_ms"] = median(times[2]) / 1e3;
  state.counters["blob_pem_kib"] = static_cast<double>(caBlob().size()) / 1024.0;
}

// Bursts of 10,000 GETs on a raw multi handle, rotating between three ways of feeding it:
// all at once with a CA file (the benchmark's raw baseline), all at once with the CA blob,
// and with a CA file but at most two transfers per allowed connection in the multi handle
// at any time, the rest waiting in a queue of the caller's.
void BM_BurstFeeding(benchmark::State& state) {
  constexpr std::size_t kEvents = 10'000;
  const auto cap = static_cast<std::size_t>(2 * transport::settings().maxConnectionsPerHost);
  RawMulti withFile, withBlob(useCaBlob), capped;
  double cpu[3] = {0, 0, 0}, wall[3] = {0, 0, 0};
  std::size_t failed = 0;
  std::size_t iteration = 0;
  for (auto _ : state) {
    for (int step = 0; step < 3; ++step) {
      const int variant = static_cast<int>((iteration + step) % 3);
      const double cpu0 = processCpuSeconds();
      const auto t0 = Clock::now();
      const auto result = variant == 0   ? withFile.burst(kEvents)
                          : variant == 1 ? withBlob.burst(kEvents)
                                         : capped.burstCapped(kEvents, cap);
      wall[variant] += microsSince(t0) / 1e6;
      cpu[variant] += processCpuSeconds() - cpu0;
      failed += result.failed;
      if (variant == 0) state.SetIterationTime(microsSince(t0) / 1e6);
    }
    ++iteration;
  }
  if (failed > 0) state.SkipWithError("some requests failed");
  const double events = static_cast<double>(state.iterations()) * kEvents;
  const char* names[] = {"all_ca_file", "all_ca_blob", "capped_ca_file"};
  for (int variant = 0; variant < 3; ++variant) {
    state.counters[std::string(names[variant]) + "_cpu_us_per_event"] = 1e6 * cpu[variant] / events;
    state.counters[std::string(names[variant]) + "_events_per_s"] = events / wall[variant];
  }
  state.counters["cap"] = static_cast<double>(cap);
}

}  // namespace

void registerTransportPartBenchmarks() {
  benchmark::RegisterBenchmark("request_parts", BM_RequestParts)
      ->Iterations(2000)
      ->UseManualTime()
      ->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark("burst_feeding_10000", BM_BurstFeeding)
      ->Iterations(2)
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("new_connection", BM_NewConnection)
      ->Iterations(30)
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond);
}

}  // namespace tavik::bench

int main(int argc, char** argv) {
  tavik::bench::registerTransportPartBenchmarks();
  return tavik::bench::benchMain(argc, argv);
}
