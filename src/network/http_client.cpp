#include "network/http_client.h"

#include <curl/curl.h>

#include <pthread.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <unordered_map>

#include "core/exit_deadline.h"
#include "network/request_observers.h"
#include "tavik/core/error.h"
#include "tavik/core/log.h"
#include "tavik/network/transport.h"

namespace tavik::detail {

void markTransportThread();

namespace {

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return {};
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

// The system trust store as one PEM text, so that an extra bundle can be added to it
// (libcurl's CA options replace the default store; they never extend it).
std::string systemCaBundle() {
  const curl_version_info_data* info = curl_version_info(CURLVERSION_NOW);
  if (info && info->cainfo) {
    std::string pem = readFile(info->cainfo);
    if (!pem.empty()) return pem;
  }
  for (const char* path : {"/etc/ssl/certs/ca-certificates.crt", "/etc/pki/tls/certs/ca-bundle.crt",
                           "/etc/ssl/cert.pem"}) {
    std::string pem = readFile(path);
    if (!pem.empty()) return pem;
  }
  return {};
}

// libcurl's own CA file when it can be read, else empty (libcurl's defaults then).
std::string systemCaFile() {
  const curl_version_info_data* info = curl_version_info(CURLVERSION_NOW);
  if (info && info->cainfo && ::access(info->cainfo, R_OK) == 0) return info->cainfo;
  return {};
}

// Immutable snapshot of the settings a transfer runs with.
struct EffectiveSettings {
  // Tells settings apart for the handle pool (an address could be reused once freed).
  std::uint64_t id = nextId();
  transport::Settings settings;
  // The CA file every connection verifies against alone: the system store plus the extra
  // bundles, or libcurl's own CA file when there are none; empty = libcurl's defaults
  // (no CA file found). A file, named alone, lets libcurl cache the parsed store instead
  // of parsing ~150 certificates for every new connection.
  std::string caFile;

  static std::uint64_t nextId() {
    static std::atomic<std::uint64_t> last{0};
    return ++last;
  }
};

using Clock = std::chrono::steady_clock;
class HttpClient;

// Requests of one origin that wait for their turn, counted where `send` can read it
// without asking the I/O thread.
using WaitingCount = std::atomic<std::size_t>;

struct Transfer {
  enum class State { incoming, waiting, active, done };

  HttpRequest request;
  std::string origin;  // scheme://host[:port]: what its waiting count is kept by
  std::string lane;    // the media or stored-events lane's name; empty: the origin's own lane
  const std::string& laneName() const { return lane.empty() ? origin : lane; }
  Promise<HttpResponse> promise;
  std::shared_ptr<const EffectiveSettings> settings;
  Clock::time_point called;               // when the host's call made it
  Clock::time_point deadline;             // called + the request time-out
  std::shared_ptr<WaitingCount> waiting;  // held while the transfer counts as waiting

  // Owned by the I/O thread.
  State state = State::incoming;
  std::list<std::shared_ptr<Transfer>>::iterator inLane;
  std::multimap<Clock::time_point, Transfer*>::iterator inDeadlines;
  bool hasDeadline = false;
  std::string body;
  bool tooLarge = false;
  bool plain = false;  // a GET with no headers or body: its handle needs no reset after it
  std::size_t maxBodyBytes = 0;  // the limit in force for this transfer
  curl_slist* headerList = nullptr;
  char errorBuffer[CURL_ERROR_SIZE] = {0};
  CURL* easy = nullptr;
};

// "https://host:port" of an address: what connections are shared by.
std::string originOf(const std::string& url) {
  const auto scheme = url.find("://");
  if (scheme == std::string::npos) return url;
  return url.substr(0, url.find_first_of("/?#", scheme + 3));
}

// Creative downloads of an origin wait in a lane of their own, so that no number of them
// ever stands in front of an event or an ad fetch to the same origin.
std::string laneOf(const std::string& origin, RequestSource source) {
  switch (source) {
    case RequestSource::media:
      return origin + " (media)";
    case RequestSource::storedEvent:
      return origin + " (stored events)";
    default:
      return origin;
  }
}

// How many transfers of a lane may be inside libcurl at once. Media gets at most half of
// the origin's connections (one when there is a single one): with HTTP/1.1 a transfer
// holds its connection, so the other half stays free for events and fetches, which
// then start within one connection set-up however many creatives are in transfer.
// Stored events get one connection each, all but one when they spare one.
long laneCap(const Transfer& t) {
  const long connections = std::max(1L, t.settings->settings.maxConnectionsPerHost);
  if (t.request.source == RequestSource::media) return std::max(1L, connections / 2);
  if (t.request.source == RequestSource::storedEvent) {
    return t.request.sparesConnection ? std::max(1L, connections - 1) : connections;
  }
  return connections * 2;
}

bool isHttps(const std::string& url) {
  return url.size() >= 8 && strncasecmp(url.c_str(), "https://", 8) == 0;
}

size_t writeBody(char* data, size_t size, size_t count, void* user) {
  auto* transfer = static_cast<Transfer*>(user);
  const size_t bytes = size * count;
  if (transfer->body.size() + bytes > transfer->maxBodyBytes) {
    transfer->tooLarge = true;
    return 0;  // makes libcurl stop the transfer with CURLE_WRITE_ERROR
  }
  transfer->body.append(data, bytes);
  return bytes;
}

}  // namespace

TransportError::Kind transportErrorKind(int curlCode, const std::string& url) {
  const auto code = static_cast<CURLcode>(curlCode);
  using Kind = TransportError::Kind;
  switch (code) {
    case CURLE_OPERATION_TIMEDOUT:
      return Kind::timeout;
    case CURLE_COULDNT_CONNECT:
      return Kind::connectionFailed;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
      return Kind::nameResolution;
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
    case CURLE_SSL_INVALIDCERTSTATUS:
    case CURLE_SSL_CRL_BADFILE:
    case CURLE_SSL_SHUTDOWN_FAILED:
    case CURLE_SSL_ENGINE_NOTFOUND:
    case CURLE_SSL_ENGINE_SETFAILED:
    case CURLE_SSL_ENGINE_INITFAILED:
    case CURLE_USE_SSL_FAILED:
      return Kind::tls;
    case CURLE_FILESIZE_EXCEEDED:
      return Kind::answerTooLarge;
    case CURLE_TOO_MANY_REDIRECTS:
      return Kind::redirectRefused;
    case CURLE_UNSUPPORTED_PROTOCOL:
      // Only https is allowed: an https address that ends here was redirected elsewhere.
      return isHttps(url) ? Kind::redirectRefused : Kind::other;
    case CURLE_PARTIAL_FILE:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
      return Kind::connectionLost;
    default:
      return Kind::other;
  }
}

namespace {

long millisBetween(Clock::time_point from, Clock::time_point to) {
  return static_cast<long>(
      std::chrono::duration_cast<std::chrono::milliseconds>(to - from).count());
}

class HttpClient {
 public:
  explicit HttpClient(const HttpClient* parent = nullptr) : pid_(::getpid()) {
    curl_global_init(CURL_GLOBAL_DEFAULT);
    multi_ = curl_multi_init();
    share_ = curl_share_init();
    curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS);
    settings_ = std::make_shared<EffectiveSettings>();
    if (parent) {
      // A child made by fork(): same settings, but its own CA file, since the parent
      // removes its file when it exits.
      loadedBundles_ = parent->loadedBundles_;
      try {
        configure(parent->settings_->settings);
      } catch (const std::exception&) {
        settings_ = parent->settings_;
      }
    }
    applyMultiLimits(settings_->settings);
    thread_ = std::thread([this] { run(); });
  }

  Future<HttpResponse> send(HttpRequest request) {
    auto transfer = std::make_shared<Transfer>();
    transfer->called = Clock::now();
    transfer->request = std::move(request);
    transfer->origin = originOf(transfer->request.url);
    if (transfer->request.source == RequestSource::media ||
        transfer->request.source == RequestSource::storedEvent) {
      transfer->lane = laneOf(transfer->origin, transfer->request.source);
    }
    Future<HttpResponse> future = transfer->promise.get_future();
    std::size_t refusedAt = 0;
    bool accepted = false;
    bool wake = false;
    {
      std::lock_guard lock(mutex_);
      if (stopping_) {
        transfer->promise.abandon();
        return future;
      }
      transfer->settings = settings_;
      const auto& s = settings_->settings;
      transfer->deadline = transfer->called + s.requestTimeout;
      auto& waiting = waitingByOrigin_[transfer->origin];
      if (!waiting) waiting = std::make_shared<WaitingCount>(0);
      const std::size_t already = waiting->load(std::memory_order_relaxed);
      if (already >= s.maxQueuedPerOrigin) {
        ++stats_.requestsRefused;
        refusedAt = already;
      } else {
        waiting->fetch_add(1, std::memory_order_relaxed);
        stats_.peakWaiting = std::max<std::uint64_t>(stats_.peakWaiting, already + 1);
        transfer->waiting = waiting;
        // Only a request that finds the I/O thread asleep wakes it: a thread at work looks
        // at the queue before it sleeps again, so a burst costs no wake-up per batch.
        wake = sleeping_;
        sleeping_ = false;
        queue_.push_back(transfer);
        accepted = true;
        ++stats_.requestsStarted;
        if (waitingByOrigin_.size() > kOriginSweepSize) sweepOrigins();
      }
    }
    // From here on the transfer belongs to the I/O thread.
    if (!accepted) return refuse(transfer, refusedAt);
    if (transfer->request.cancellable) {
      future.onCancel([this, weak = std::weak_ptr<Transfer>(transfer)] { requestCancel(weak); });
    }
    if (wake) curl_multi_wakeup(multi_);
    return future;
  }

  transport::Settings settings() {
    std::lock_guard lock(mutex_);
    return settings_->settings;
  }

  void configure(const transport::Settings& settings) {
    auto effective = std::make_shared<EffectiveSettings>();
    effective->settings = settings;
    if (!settings.extraCaBundles.empty()) {
      std::string blob = systemCaBundle();
      for (const auto& path : settings.extraCaBundles) {
        const std::string pem = loadBundle(path);
        if (!blob.empty() && blob.back() != '\n') blob += '\n';
        blob += pem;
      }
      effective->caFile = writeBundleFile(blob);
    } else {
      effective->caFile = systemCaFile();
    }
    std::lock_guard lock(mutex_);
    settings_ = std::move(effective);
    limitsChanged_ = true;
  }

  // Writes the combined store to a private temporary file, removed at exit.
  std::string writeBundleFile(const std::string& pem) {
    std::string path = (std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "/tmp");
    path += "/tavik-ca-XXXXXX";
    const int fd = ::mkstemp(path.data());
    if (fd < 0) throw std::runtime_error("tavik: cannot create a file for the CA bundle");
    const bool written = ::write(fd, pem.data(), pem.size()) == static_cast<ssize_t>(pem.size());
    ::close(fd);
    if (!written) throw std::runtime_error("tavik: cannot write the CA bundle file");
    std::lock_guard lock(mutex_);
    bundleFiles_.push_back(path);
    return path;
  }

  // A bundle is read once, when it is first trusted; later changes of the settings keep
  // trusting what was read even if the file has gone since.
  std::string loadBundle(const std::string& path) {
    std::lock_guard lock(mutex_);
    if (auto known = loadedBundles_.find(path); known != loadedBundles_.end()) return known->second;
    std::string pem = readFile(path);
    if (pem.find("-----BEGIN CERTIFICATE-----") == std::string::npos) {
      throw std::invalid_argument("tavik: cannot read a PEM certificate from \"" + path + "\"");
    }
    return loadedBundles_.emplace(path, std::move(pem)).first->second;
  }

  transport::Stats stats() {
    transport::Stats out;
    {
      std::lock_guard lock(mutex_);
      out = stats_;
    }
    // Kept by the I/O thread outside the mutex that every request's hand-over takes.
    out.requestsFinished = finished_.load();
    out.connectionsOpened = connectionsOpened_.load();
    out.requestsCancelled = cancelled_.load();
    out.timedOutWhileWaiting = timedOutWhileWaiting_.load();
    return out;
  }

  // Stops the I/O thread. Requests still queued or in flight are abandoned: their
  // futures wake with AbandonedError and no continuation runs, because at process exit
  // no host code may run any more. A continuation still running on the I/O thread is
  // waited for at most `exitTimeout`; after that the thread is left to end by itself.
  void shutdown() {
    std::chrono::milliseconds deadline;
    {
      std::lock_guard lock(mutex_);
      if (stopping_) return;
      stopping_ = true;
      deadline = settings_->settings.exitTimeout;
    }
    curl_multi_wakeup(multi_);
    if (!thread_.joinable()) return;
    if (thread_.get_id() == std::this_thread::get_id()) {
      thread_.detach();  // exit() called from a continuation: the loop ends on return
      return;
    }
    // The loop's own work (abandoning what is left, closing connections) is waited for;
    // the deadline only applies to a continuation that keeps the thread in host code.
    std::unique_lock lock(mutex_);
    while (!loopEnded_) {
      stopped_.wait_for(lock, std::chrono::milliseconds(10));
      const auto since = hostCodeSince_.load();
      if (!loopEnded_ && since != 0 &&
          Clock::now().time_since_epoch().count() - since > deadline / Clock::duration(1)) {
        gaveUp_.store(true);
        lock.unlock();
        thread_.detach();
        return;
      }
    }
    lock.unlock();
    thread_.join();
  }

  std::mutex& mutex() { return mutex_; }

 private:
  Future<HttpResponse> refuse(const std::shared_ptr<Transfer>& transfer, std::size_t waiting) {
    const auto refusedAt = Clock::now();
    std::string reason = std::to_string(waiting) + " requests already wait for " +
                         transfer->origin + " (transport maxQueuedPerOrigin)";
    const std::string message = "HTTP request to " + transfer->request.url + " refused: " + reason;
    if (transfer->request.debug) detail::debugLine(message);
    transfer->promise.set_exception(
        std::make_exception_ptr(TransportError(TransportError::Kind::queueFull, 0, message)));
    // Observers run on the I/O thread only, never on the caller's (maybe a UI) thread.
    if (requestObserversInstalled()) {
      bool wake = false;
      {
        std::lock_guard lock(mutex_);
        if (!stopping_) {
          wake = sleeping_;
          sleeping_ = false;
          refusals_.push_back(Refusal{transfer, refusedAt, std::move(reason)});
        }
      }
      if (wake) curl_multi_wakeup(multi_);
    }
    return transfer->promise.get_future();
  }

  // Shows a request that ended to the request observers (host code). Callers check
  // requestObserversInstalled() first, so nothing is built while nobody listens.
  void observe(const Transfer& t, const RequestOutcome& outcome,
               Clock::time_point ended = Clock::now()) {
    runHostCode([&] { reportRequest(t.request, t.called, ended, outcome); });
  }

  // Completes a future on the I/O thread. Its continuations are host code: the only part
  // of the loop that the exit deadline applies to.
  template <class Complete>
  void runHostCode(Complete&& complete) {
    hostCodeSince_.store(Clock::now().time_since_epoch().count());
    complete();
    hostCodeSince_.store(0);
  }

  // Drops the counters of origins nothing waits for. Called with mutex_ held.
  void sweepOrigins() {
    for (auto it = waitingByOrigin_.begin(); it != waitingByOrigin_.end();) {
      if (it->second.use_count() == 1 && it->second->load() == 0) {
        it = waitingByOrigin_.erase(it);
      } else {
        ++it;
      }
    }
  }

  void requestCancel(const std::weak_ptr<Transfer>& transfer) {
    // In a child made by fork() this client is the parent's: its thread and its wake-up
    // socket are not the child's to use.
    if (::getpid() != pid_) return;
    {
      std::lock_guard lock(mutex_);
      if (stopping_) return;
      cancels_.push_back(transfer);
    }
    curl_multi_wakeup(multi_);
  }

  void applyMultiLimits(const transport::Settings& settings) {
    curl_multi_setopt(multi_, CURLMOPT_MAX_HOST_CONNECTIONS, settings.maxConnectionsPerHost);
    curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS,
                      std::max(16L, settings.maxConnectionsPerHost * 4));
  }

  void countFinished(long connects) {
    connectionsOpened_.fetch_add(static_cast<std::uint64_t>(connects));
    finished_.fetch_add(1);
  }

  // The transfer no longer waits: its place in the origin's count is free.
  static void stopWaiting(Transfer& t) {
    if (t.waiting) {
      t.waiting->fetch_sub(1, std::memory_order_relaxed);
      t.waiting.reset();
    }
  }

  void setDeadline(Transfer& t, Clock::time_point when) {
    if (t.hasDeadline) deadlines_.erase(t.inDeadlines);
    t.inDeadlines = deadlines_.emplace(when, &t);
    t.hasDeadline = true;
  }

  // Takes a transfer out of every structure of the I/O thread before its future
  // completes, so that whatever its continuations do finds the books in order.
  void retire(Transfer& t) {
    if (t.hasDeadline) {
      deadlines_.erase(t.inDeadlines);
      t.hasDeadline = false;
    }
    if (t.state == Transfer::State::waiting) {
      if (t.request.source == RequestSource::storedEvent) --storedWaiting_;
      auto lane = lanes_.find(t.laneName());
      if (lane != lanes_.end()) {
        lane->second.waiting.erase(t.inLane);
        if (lane->second.active == 0 && lane->second.waiting.empty()) lanes_.erase(lane);
      }
    }
    stopWaiting(t);
    t.state = Transfer::State::done;
  }

  // Ends a transfer that is not in libcurl with `kind`.
  void failWaiting(const std::shared_ptr<Transfer>& t, TransportError::Kind kind,
                   const std::string& reason) {
    retire(*t);
    countFinished(0);
    if (kind == TransportError::Kind::cancelled) cancelled_.fetch_add(1);
    if (kind == TransportError::Kind::timeout) timedOutWhileWaiting_.fetch_add(1);
    if (requestObserversInstalled()) {
      observe(*t, RequestOutcome::failure(kind, reason));
    }
    const auto error = std::make_exception_ptr(
        TransportError(kind, 0, "HTTP request to " + t->request.url + " failed: " + reason));
    runHostCode([&] { t->promise.set_exception(error); });
  }

  // Hands a transfer to libcurl. On failure the transfer is completed with its error
  // and false is returned.
  bool start(const std::shared_ptr<Transfer>& transfer) {
    Transfer* t = transfer.get();
    const auto now = Clock::now();
    const long remaining = millisBetween(now, t->deadline);
    if (remaining <= 0) {
      failWaiting(transfer, TransportError::Kind::timeout,
                  "no answer within the time-out of " +
                      std::to_string(millisBetween(t->called, t->deadline)) +
                      " ms, all of it spent waiting for a free connection");
      return false;
    }
    const auto& r = t->request;
    // A plain GET (no headers, no body, no other method) leaves nothing on its handle
    // that the next request must not inherit, so its handle keeps the options that are
    // the same for every request and the next one sets only its own.
    t->plain = r.method == "GET" && !r.hasBody && r.headers.empty();
    CURL* easy = acquireEasy(*t->settings);
    if (!easy) {
      failWaiting(transfer, TransportError::Kind::other, "cannot create a request");
      return false;
    }
    t->easy = easy;
    const auto& s = t->settings->settings;
    t->maxBodyBytes = r.maxBodyBytes ? r.maxBodyBytes : s.maxBodyBytes;
    curl_easy_setopt(easy, CURLOPT_URL, r.url.c_str());
    curl_easy_setopt(easy, CURLOPT_PRIVATE, t);
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, t->errorBuffer);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, t);
    // What is left of the time-out counted from the call; connecting counts against it
    // (the connection time-out is the same, so libcurl's own default never applies).
    curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, remaining);
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, remaining);
    curl_easy_setopt(easy, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(t->maxBodyBytes));
    for (const auto& [name, value] : r.headers) {
      t->headerList = curl_slist_append(t->headerList, (name + ": " + value).c_str());
    }
    if (t->headerList) curl_easy_setopt(easy, CURLOPT_HTTPHEADER, t->headerList);
    if (r.method == "POST" || r.hasBody) {
      curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(r.body.size()));
      curl_easy_setopt(easy, CURLOPT_POSTFIELDS, r.body.data());
    }
    if (r.method == "HEAD") {
      curl_easy_setopt(easy, CURLOPT_NOBODY, 1L);
    } else if (r.method != "GET" && r.method != "POST") {
      curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, r.method.c_str());
    }
    if (curl_multi_add_handle(multi_, easy) != CURLM_OK) {
      retire(*t);
      finish(transfer, CURLE_FAILED_INIT);
      return false;
    }
    stopWaiting(*t);
    t->state = Transfer::State::active;
    active_.emplace(t, transfer);
    // libcurl's own time-out normally ends the transfer first; this one also covers the
    // time a transfer may spend inside libcurl waiting for a connection.
    setDeadline(*t, t->deadline + kDeadlineGrace);
    return true;
  }

  // The options every request of one set of settings shares, set once per handle.
  void setCommonOptions(CURL* easy, const EffectiveSettings& effective) {
    const auto& s = effective.settings;
    // The path goes out as written: "/a/../b" is not folded to "/b".
    curl_easy_setopt(easy, CURLOPT_PATH_AS_IS, 1L);
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_SHARE, share_);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, writeBody);
    // Only https leaves the SDK, redirects included, and TLS is always verified.
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "https");
    curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, "https");
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(easy, CURLOPT_MAXREDIRS, s.maxRedirects);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
    if (!effective.caFile.empty()) {
      curl_easy_setopt(easy, CURLOPT_CAINFO, effective.caFile.c_str());
      // libcurl keeps the parsed store of a CA file for the next connections, but only
      // when no CA folder is named as well; Debian's libcurl names /etc/ssl/certs by
      // default, and the store is then parsed again (~150 certificates, tens of
      // milliseconds of CPU) for every new TLS connection. The file already holds the
      // whole system store.
      curl_easy_setopt(easy, CURLOPT_CAPATH, nullptr);
    }
    curl_easy_setopt(easy, CURLOPT_TCP_KEEPALIVE, 1L);
    // Wait for a connection that can multiplex instead of opening another one.
    curl_easy_setopt(easy, CURLOPT_PIPEWAIT, 1L);
  }

  // Easy handles are reused: a handle whose last request was a plain GET under the same
  // settings keeps its common options; any other is reset and set up again. The pool
  // never holds more than the transfers that can be in libcurl at once.
  CURL* acquireEasy(const EffectiveSettings& effective) {
    while (!easyPool_.empty()) {
      PooledEasy pooled = easyPool_.back();
      easyPool_.pop_back();
      if (pooled.configuredFor == effective.id) return pooled.easy;
      curl_easy_reset(pooled.easy);
      setCommonOptions(pooled.easy, effective);
      return pooled.easy;
    }
    CURL* easy = curl_easy_init();
    if (easy) setCommonOptions(easy, effective);
    return easy;
  }

  void recycleEasy(CURL* easy, const Transfer& t) {
    if (easyPool_.size() >= kMaxPooledHandles) {
      curl_easy_cleanup(easy);
      return;
    }
    if (t.plain) {
      // Nothing of the finished transfer may be reached through the handle any more.
      curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, nullptr);
      curl_easy_setopt(easy, CURLOPT_PRIVATE, nullptr);
      curl_easy_setopt(easy, CURLOPT_WRITEDATA, nullptr);
      easyPool_.push_back({easy, t.settings->id});
      return;
    }
    curl_easy_reset(easy);
    easyPool_.push_back({easy, 0});
  }

  // Each origin admits at most twice its connection limit into the multi handle; the
  // rest wait in its lane. Thousands of transfers inside libcurl at once cost far more
  // CPU and memory per request than a short queue in front of it, and keeping a few
  // more than the connections keeps every connection busy.
  void admit(const std::shared_ptr<Transfer>& transfer) {
    Lane& lane = lanes_[transfer->laneName()];
    if (lane.origin.empty()) lane.origin = transfer->origin;
    if (lane.active < laneCap(*transfer) && lane.waiting.empty() &&
        roomFor(*transfer, lane.active)) {
      if (start(transfer)) ++lanes_[transfer->laneName()].active;
      auto it = lanes_.find(transfer->laneName());
      if (it != lanes_.end() && it->second.active == 0 && it->second.waiting.empty()) {
        lanes_.erase(it);
      }
    } else {
      transfer->inLane = lane.waiting.insert(lane.waiting.end(), transfer);
      transfer->state = Transfer::State::waiting;
      if (transfer->request.source == RequestSource::storedEvent) ++storedWaiting_;
      setDeadline(*transfer, transfer->deadline);
    }
  }

  // Stored events are sent again only on a connection the origin's own requests do not
  // want: nothing of its own lane waits, and one goes only onto a connection nobody else
  // holds. One that spares a connection also leaves one free after it, so a fetch or a new
  // event never waits behind the store (with a single connection, such a stored event goes
  // only while the origin has nothing else in transfer); one to a host of its own may take
  // the last, and the host's next request waits for at most one exchange.
  bool roomFor(const Transfer& t, long laneActive) const {
    if (t.request.source != RequestSource::storedEvent) return true;
    const auto own = lanes_.find(t.origin);
    if (own != lanes_.end() && !own->second.waiting.empty()) return false;
    const long ownActive = own == lanes_.end() ? 0 : own->second.active;
    const long connections = std::max(1L, t.settings->settings.maxConnectionsPerHost);
    const long busy = ownActive + laneActive;
    if (!t.request.sparesConnection) return busy < connections;
    if (connections == 1) return busy == 0;
    return busy + 1 < connections;
  }

  // A transfer of `lane` left libcurl: let the next waiting one of that lane in, and
  // stored events of the origin when its own lane freed a connection.
  void release(const std::string& laneName) {
    auto it = lanes_.find(laneName);
    if (it == lanes_.end()) return;
    --it->second.active;
    // Only an origin's own lane hands a freed connection on to its stored events.
    const bool handsOn = storedWaiting_ > 0 && it->second.origin == laneName;
    startWaiting(laneName);  // may erase the lane
    if (handsOn) startWaiting(laneOf(laneName, RequestSource::storedEvent));
  }

  // Starts the waiting transfers of a lane, oldest first, while its cap allows.
  void startWaiting(const std::string& laneName) {
    while (true) {
      auto it = lanes_.find(laneName);  // a failed start may have changed the lanes
      if (it == lanes_.end()) return;
      Lane& lane = it->second;
      if (lane.waiting.empty()) {
        if (lane.active == 0) lanes_.erase(it);
        return;
      }
      auto next = lane.waiting.front();
      if (lane.active >= laneCap(*next) || !roomFor(*next, lane.active)) return;
      lane.waiting.pop_front();
      if (next->request.source == RequestSource::storedEvent) --storedWaiting_;
      next->state = Transfer::State::incoming;  // out of the lane, not yet in libcurl
      if (start(next)) ++lanes_[laneName].active;
    }
  }

  // Takes a transfer out of libcurl (its connection is closed there if the exchange
  // was cut short) and frees what it held there.
  void detach(Transfer& t, long& status, long& connects) {
    curl_easy_getinfo(t.easy, CURLINFO_RESPONSE_CODE, &status);
    curl_easy_getinfo(t.easy, CURLINFO_NUM_CONNECTS, &connects);
    curl_multi_remove_handle(multi_, t.easy);
    recycleEasy(t.easy, t);
    t.easy = nullptr;
    curl_slist_free_all(t.headerList);
    t.headerList = nullptr;
  }

  // Ends a transfer that libcurl was running (or refused to take) with `code`.
  void finish(const std::shared_ptr<Transfer>& transfer, CURLcode code) {
    Transfer* t = transfer.get();
    long status = 0;
    long connects = 0;
    curl_off_t retryAfter = 0;
    if (t->easy) curl_easy_getinfo(t->easy, CURLINFO_RETRY_AFTER, &retryAfter);
    if (t->easy) detach(*t, status, connects);
    active_.erase(t);
    retire(*t);
    countFinished(connects);
    if (code == CURLE_OK) {
      if (requestObserversInstalled()) {
        observe(*t, RequestOutcome::answer(status, t->body.size()));
      }
      HttpResponse response{status, std::move(t->body), static_cast<std::int64_t>(retryAfter)};
      if (response.body.size() > kInlineCompletionBytes) {
        // Parsing and decoding a large answer takes milliseconds, which every other
        // transfer would wait for: its continuations run on the background thread.
        backgroundExecutor()([transfer, response = std::move(response)]() mutable {
          transfer->promise.set_value(std::move(response));
        });
      } else {
        runHostCode([&] { t->promise.set_value(std::move(response)); });
      }
      return;
    }
    std::string message;
    if (t->tooLarge || code == CURLE_FILESIZE_EXCEEDED) {
      code = CURLE_FILESIZE_EXCEEDED;
      message = "the answer's body is larger than the limit of " + std::to_string(t->maxBodyBytes) +
                " bytes";
    } else {
      message = curl_easy_strerror(code);
      if (t->errorBuffer[0] != '\0') message += std::string(": ") + t->errorBuffer;
    }
    t->body.clear();
    const auto kind = transportErrorKind(code, t->request.url);
    if (requestObserversInstalled()) {
      observe(*t, RequestOutcome::failure(kind, message, status));
    }
    const auto error = std::make_exception_ptr(TransportError(
        kind, static_cast<int>(code), "HTTP request to " + t->request.url + " failed: " + message));
    runHostCode([&] { t->promise.set_exception(error); });
  }

  // Ends an active transfer before libcurl did: cancelled, or past its deadline.
  void stopActive(const std::shared_ptr<Transfer>& transfer, TransportError::Kind kind,
                  const std::string& reason) {
    Transfer* t = transfer.get();
    long status = 0;
    long connects = 0;
    detach(*t, status, connects);
    active_.erase(t);
    retire(*t);
    countFinished(connects);
    if (kind == TransportError::Kind::cancelled) cancelled_.fetch_add(1);
    t->body.clear();
    if (requestObserversInstalled()) {
      observe(*t, RequestOutcome::failure(kind, reason, status));
    }
    const int code = kind == TransportError::Kind::timeout ? CURLE_OPERATION_TIMEDOUT : 0;
    const auto error = std::make_exception_ptr(
        TransportError(kind, code, "HTTP request to " + t->request.url + " failed: " + reason));
    runHostCode([&] { t->promise.set_exception(error); });
    release(t->laneName());
  }

  void cancel(const std::shared_ptr<Transfer>& t) {
    switch (t->state) {
      case Transfer::State::waiting:
        failWaiting(t, TransportError::Kind::cancelled, "cancelled while waiting for its turn");
        break;
      case Transfer::State::active:
        stopActive(t, TransportError::Kind::cancelled, "cancelled during the transfer");
        break;
      case Transfer::State::incoming:
      case Transfer::State::done:
        break;
    }
  }

  // Ends every transfer whose deadline has passed.
  void expire(Clock::time_point now) {
    while (!deadlines_.empty() && deadlines_.begin()->first <= now) {
      Transfer* raw = deadlines_.begin()->second;
      std::shared_ptr<Transfer> t;
      const std::string limit = std::to_string(millisBetween(raw->called, raw->deadline)) + " ms";
      if (raw->state == Transfer::State::waiting) {
        t = *raw->inLane;
        failWaiting(t, TransportError::Kind::timeout,
                    "no answer within the time-out of " + limit +
                        ", all of it spent waiting for a free connection");
      } else {
        t = active_.at(raw);
        stopActive(t, TransportError::Kind::timeout, "no answer within the time-out of " + limit);
      }
      if (gaveUp_.load()) return;
    }
  }

  // How long the loop may sleep: until the next deadline, at most a second.
  int pollTimeout() const {
    if (deadlines_.empty()) return 1000;
    const auto wait = deadlines_.begin()->first - Clock::now();
    const auto ms = std::chrono::ceil<std::chrono::milliseconds>(wait).count();
    return static_cast<int>(std::clamp<long long>(ms, 0, 1000));
  }

  void run() {
    markTransportThread();
    while (true) {
      std::deque<std::shared_ptr<Transfer>> incoming;
      std::vector<std::weak_ptr<Transfer>> cancels;
      std::vector<Refusal> refusals;
      {
        std::lock_guard lock(mutex_);
        if (stopping_) break;
        sleeping_ = false;
        incoming.swap(queue_);
        cancels.swap(cancels_);
        refusals.swap(refusals_);
        if (limitsChanged_) {
          applyMultiLimits(settings_->settings);
          limitsChanged_ = false;
        }
      }
      for (auto& transfer : incoming) admit(transfer);
      for (auto& weak : cancels) {
        if (auto transfer = weak.lock()) cancel(transfer);
        if (gaveUp_.load()) return;
      }
      for (const auto& refusal : refusals) {
        if (!requestObserversInstalled()) break;
        observe(*refusal.transfer,
                RequestOutcome::failure(TransportError::Kind::queueFull, refusal.reason),
                refusal.at);
        if (gaveUp_.load()) return;
      }

      int running = 0;
      curl_multi_perform(multi_, &running);
      int pending = 0;
      while (CURLMsg* message = curl_multi_info_read(multi_, &pending)) {
        if (message->msg != CURLMSG_DONE) continue;
        const CURLcode code = message->data.result;
        Transfer* raw = nullptr;
        curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &raw);
        auto transfer = active_.at(raw);
        finish(transfer, code);
        release(transfer->laneName());
        if (gaveUp_.load()) return;
      }
      expire(Clock::now());
      if (gaveUp_.load()) return;
      {
        // Sleeps only with nothing handed over meanwhile; whoever hands something over
        // from now on wakes the thread.
        std::lock_guard lock(mutex_);
        if (stopping_ || !queue_.empty() || !cancels_.empty() || !refusals_.empty()) continue;
        sleeping_ = true;
      }
      curl_multi_poll(multi_, nullptr, 0, pollTimeout(), nullptr);
    }
    // Shutting down: abandon everything, run no continuation.
    for (auto& [raw, t] : active_) {
      curl_multi_remove_handle(multi_, t->easy);
      curl_easy_cleanup(t->easy);
      curl_slist_free_all(t->headerList);
      t->promise.abandon();
    }
    active_.clear();
    for (auto& [origin, lane] : lanes_) {
      for (auto& t : lane.waiting) t->promise.abandon();
    }
    lanes_.clear();
    deadlines_.clear();
    for (const auto& pooled : easyPool_) curl_easy_cleanup(pooled.easy);
    easyPool_.clear();
    std::deque<std::shared_ptr<Transfer>> queued;
    {
      std::lock_guard lock(mutex_);
      queued.swap(queue_);
      refusals_.clear();  // no host code runs any more, observers included
    }
    for (auto& t : queued) t->promise.abandon();
    for (const auto& file : bundleFiles_) ::unlink(file.c_str());
    std::lock_guard lock(mutex_);
    loopEnded_ = true;
    stopped_.notify_all();
  }

  const pid_t pid_;
  CURLM* multi_ = nullptr;
  CURLSH* share_ = nullptr;
  std::thread thread_;

  std::mutex mutex_;
  std::condition_variable stopped_;
  bool stopping_ = false;
  bool loopEnded_ = false;
  std::atomic<bool> gaveUp_{false};
  // When the I/O thread entered host code (Clock ticks), 0 while it runs its own.
  std::atomic<Clock::rep> hostCodeSince_{0};
  bool limitsChanged_ = false;
  bool sleeping_ = false;  // the I/O thread is in (or about to enter) curl_multi_poll
  std::shared_ptr<const EffectiveSettings> settings_;
  std::deque<std::shared_ptr<Transfer>> queue_;
  std::vector<std::weak_ptr<Transfer>> cancels_;
  // Requests refused at the call, waiting to be shown to the request observers.
  struct Refusal {
    std::shared_ptr<Transfer> transfer;
    Clock::time_point at;
    std::string reason;
  };
  std::vector<Refusal> refusals_;
  std::unordered_map<std::string, std::shared_ptr<WaitingCount>> waitingByOrigin_;
  transport::Stats stats_;  // what the callers' side counts, under mutex_
  std::atomic<std::uint64_t> finished_{0};
  std::atomic<std::uint64_t> connectionsOpened_{0};
  std::atomic<std::uint64_t> cancelled_{0};
  std::atomic<std::uint64_t> timedOutWhileWaiting_{0};
  std::map<std::string, std::string> loadedBundles_;
  std::vector<std::string> bundleFiles_;

  // Owned by the I/O thread.
  struct Lane {
    std::string origin;
    long active = 0;
    std::list<std::shared_ptr<Transfer>> waiting;
  };
  std::size_t storedWaiting_ = 0;  // stored events waiting in any lane
  std::unordered_map<Transfer*, std::shared_ptr<Transfer>> active_;
  std::unordered_map<std::string, Lane> lanes_;
  std::multimap<Clock::time_point, Transfer*> deadlines_;
  static constexpr std::size_t kMaxPooledHandles = 64;
  static constexpr std::size_t kOriginSweepSize = 64;
  static constexpr std::chrono::milliseconds kDeadlineGrace{50};
  // Answers larger than this complete on the background thread (see finish()).
  static constexpr std::size_t kInlineCompletionBytes = 64 * 1024;
  // A pooled handle and the id of the settings its common options were set for (0: none).
  struct PooledEasy {
    CURL* easy;
    std::uint64_t configuredFor;
  };
  std::vector<PooledEasy> easyPool_;
};

// The client of this process. It lives for the whole process and is never destroyed,
// so that host threads still sending during exit touch valid memory. A static guard
// stops its thread at exit, before libcurl's and OpenSSL's own exit handlers run.
//
// A child made by fork() without exec has no I/O thread, and the parent's client holds
// the parent's connections and wake-up socket: the child leaves that client alone and
// makes its own on first use.
std::atomic<HttpClient*> current{nullptr};
HttpClient* forkedFrom = nullptr;
std::mutex creation;

void prepareFork() {
  creation.lock();
  if (auto* client = current.load()) client->mutex().lock();
}
void parentAfterFork() {
  if (auto* client = current.load()) client->mutex().unlock();
  creation.unlock();
}
void childAfterFork() {
  if (auto* client = current.load()) {
    client->mutex().unlock();
    forkedFrom = client;
  }
  current.store(nullptr);
  creation.unlock();
}

HttpClient& client() {
  if (auto* instance = current.load(std::memory_order_acquire)) return *instance;
  HttpClient* instance = nullptr;
  {
    std::lock_guard lock(creation);
    instance = current.load();
    if (!instance) {
      instance = new HttpClient(forkedFrom);
      current.store(instance, std::memory_order_release);
    }
  }
  // Made after the first client, whose curl_global_init registers OpenSSL's exit
  // handlers, so that the guard is destroyed (and the thread stopped) before they run.
  static struct Guard {
    Guard() { ::pthread_atfork(prepareFork, parentAfterFork, childAfterFork); }
    ~Guard() {
      if (auto* instance = current.load()) instance->shutdown();
    }
  } guard;
  return *instance;
}

}  // namespace

Future<HttpResponse> sendHttpRequest(HttpRequest request) {
  return client().send(std::move(request));
}

}  // namespace tavik::detail

namespace tavik::transport {

Settings settings() {
  return detail::client().settings();
}

void configure(const Settings& settings) {
  detail::client().configure(settings);
  detail::setExitDeadline(settings.exitTimeout);
}

void trustCaBundle(const std::string& pemFile) {
  Settings current = settings();
  for (const auto& existing : current.extraCaBundles) {
    if (existing == pemFile) return;
  }
  current.extraCaBundles.push_back(pemFile);
  configure(current);
}

Stats stats() {
  return detail::client().stats();
}

void shutdown() {
  detail::client().shutdown();
}

}  // namespace tavik::transport
