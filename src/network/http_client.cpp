#include "network/http_client.h"

#include <curl/curl.h>

#include <unistd.h>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <unordered_map>
#include <unordered_set>

#include "tavik/core/error.h"
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

// Immutable snapshot of the settings a transfer runs with.
struct EffectiveSettings {
  transport::Settings settings;
  // A file holding the system store plus the extra bundles; empty = libcurl's default
  // store. A file rather than an in-memory blob lets libcurl cache the parsed store
  // instead of parsing ~150 certificates for every new connection.
  std::string caFile;
};

struct Transfer {
  HttpRequest request;
  std::string origin;  // scheme://host[:port], the lane it waits in
  Promise<HttpResponse> promise;
  std::shared_ptr<const EffectiveSettings> settings;
  std::string body;
  bool tooLarge = false;
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

class HttpClient {
 public:
  HttpClient() {
    curl_global_init(CURL_GLOBAL_DEFAULT);
    multi_ = curl_multi_init();
    share_ = curl_share_init();
    curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS);
    settings_ = std::make_shared<EffectiveSettings>();
    applyMultiLimits(settings_->settings);
    thread_ = std::thread([this] { run(); });
  }

  Future<HttpResponse> send(HttpRequest request) {
    auto transfer = std::make_unique<Transfer>();
    transfer->request = std::move(request);
    transfer->origin = originOf(transfer->request.url);
    Future<HttpResponse> future = transfer->promise.get_future();
    {
      std::lock_guard lock(mutex_);
      if (stopping_) {
        transfer->promise.abandon();
        return future;
      }
      transfer->settings = settings_;
      queue_.push_back(std::move(transfer));
      ++stats_.requestsStarted;
    }
    curl_multi_wakeup(multi_);
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
    std::lock_guard lock(mutex_);
    return stats_;
  }

  // Stops the I/O thread. Requests still queued or in flight are abandoned: their
  // futures wake with AbandonedError and no continuation runs, because at process exit
  // no host code may run any more.
  void shutdown() {
    {
      std::lock_guard lock(mutex_);
      if (stopping_) return;
      stopping_ = true;
    }
    curl_multi_wakeup(multi_);
    if (thread_.joinable()) {
      if (thread_.get_id() == std::this_thread::get_id()) {
        thread_.detach();  // exit() called from a continuation: the loop ends on return
      } else {
        thread_.join();
      }
    }
  }

 private:
  void applyMultiLimits(const transport::Settings& settings) {
    curl_multi_setopt(multi_, CURLMOPT_MAX_HOST_CONNECTIONS, settings.maxConnectionsPerHost);
    curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS,
                      std::max(16L, settings.maxConnectionsPerHost * 4));
  }

  // Hands a transfer to libcurl. On failure the transfer is completed with its error
  // and false is returned.
  bool start(std::unique_ptr<Transfer> transfer) {
    CURL* easy = acquireEasy();
    if (!easy) {
      transfer->promise.set_exception(
          std::make_exception_ptr(TransportError(CURLE_OUT_OF_MEMORY, "cannot create a request")));
      return false;
    }
    Transfer* t = transfer.get();
    t->easy = easy;
    const auto& s = t->settings->settings;
    const auto& r = t->request;
    t->maxBodyBytes = r.maxBodyBytes ? r.maxBodyBytes : s.maxBodyBytes;
    curl_easy_setopt(easy, CURLOPT_URL, r.url.c_str());
    curl_easy_setopt(easy, CURLOPT_PRIVATE, t);
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, t->errorBuffer);
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_SHARE, share_);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, writeBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, t);
    curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, static_cast<long>(s.requestTimeout.count()));
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(s.connectTimeout.count()));
    curl_easy_setopt(easy, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(t->maxBodyBytes));
    // Only https leaves the SDK, redirects included, and TLS is always verified.
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "https");
    curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, "https");
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(easy, CURLOPT_MAXREDIRS, s.maxRedirects);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
    if (!t->settings->caFile.empty()) {
      curl_easy_setopt(easy, CURLOPT_CAINFO, t->settings->caFile.c_str());
    }
    curl_easy_setopt(easy, CURLOPT_TCP_KEEPALIVE, 1L);
    // Wait for a connection that can multiplex instead of opening another one.
    curl_easy_setopt(easy, CURLOPT_PIPEWAIT, 1L);
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
      finish(std::move(transfer), CURLE_FAILED_INIT);
      return false;
    }
    active_.insert(transfer.release());
    return true;
  }

  // Easy handles are reused: resetting one is much cheaper than making a new one, and
  // the pool never holds more than the transfers that can be in libcurl at once.
  CURL* acquireEasy() {
    if (easyPool_.empty()) return curl_easy_init();
    CURL* easy = easyPool_.back();
    easyPool_.pop_back();
    return easy;
  }

  void recycleEasy(CURL* easy) {
    if (easyPool_.size() >= kMaxPooledHandles) {
      curl_easy_cleanup(easy);
      return;
    }
    curl_easy_reset(easy);
    easyPool_.push_back(easy);
  }

  // Each origin admits at most twice its connection limit into the multi handle; the
  // rest wait in its lane. Thousands of transfers inside libcurl at once cost far more
  // CPU and memory per request than a short queue in front of it, and keeping a few
  // more than the connections keeps every connection busy.
  void admit(std::unique_ptr<Transfer> transfer) {
    Lane& lane = lanes_[transfer->origin];
    const long cap = std::max(1L, transfer->settings->settings.maxConnectionsPerHost * 2);
    if (lane.active < cap) {
      if (start(std::move(transfer))) ++lane.active;
    } else {
      lane.waiting.push_back(std::move(transfer));
    }
  }

  // A transfer of `origin` ended: let the next waiting one of that lane in.
  void release(const std::string& origin) {
    auto it = lanes_.find(origin);
    if (it == lanes_.end()) return;
    Lane& lane = it->second;
    --lane.active;
    while (!lane.waiting.empty()) {
      auto next = std::move(lane.waiting.front());
      lane.waiting.pop_front();
      if (start(std::move(next))) {
        ++lane.active;
        break;
      }
    }
    if (lane.active == 0 && lane.waiting.empty()) lanes_.erase(it);
  }

  void finish(std::unique_ptr<Transfer> t, CURLcode code) {
    long status = 0;
    long connects = 0;
    curl_easy_getinfo(t->easy, CURLINFO_RESPONSE_CODE, &status);
    curl_easy_getinfo(t->easy, CURLINFO_NUM_CONNECTS, &connects);
    recycleEasy(t->easy);
    t->easy = nullptr;
    curl_slist_free_all(t->headerList);
    t->headerList = nullptr;
    {
      std::lock_guard lock(mutex_);
      ++stats_.requestsFinished;
      stats_.connectionsOpened += static_cast<std::uint64_t>(connects);
    }
    if (code == CURLE_OK) {
      t->promise.set_value(HttpResponse{status, std::move(t->body)});
      return;
    }
    std::string message;
    if (t->tooLarge || code == CURLE_FILESIZE_EXCEEDED) {
      code = CURLE_FILESIZE_EXCEEDED;
      message = "the answer's body is larger than the limit of " +
                std::to_string(t->maxBodyBytes) + " bytes";
    } else {
      message = curl_easy_strerror(code);
      if (t->errorBuffer[0] != '\0') message += std::string(": ") + t->errorBuffer;
    }
    t->promise.set_exception(std::make_exception_ptr(TransportError(
        static_cast<int>(code), "HTTP request to " + t->request.url + " failed: " + message)));
  }

  void run() {
    markTransportThread();
    while (true) {
      std::deque<std::unique_ptr<Transfer>> incoming;
      {
        std::lock_guard lock(mutex_);
        if (stopping_) break;
        incoming.swap(queue_);
        if (limitsChanged_) {
          applyMultiLimits(settings_->settings);
          limitsChanged_ = false;
        }
      }
      for (auto& transfer : incoming) admit(std::move(transfer));

      int running = 0;
      curl_multi_perform(multi_, &running);
      int pending = 0;
      while (CURLMsg* message = curl_multi_info_read(multi_, &pending)) {
        if (message->msg != CURLMSG_DONE) continue;
        CURL* easy = message->easy_handle;
        const CURLcode code = message->data.result;
        Transfer* raw = nullptr;
        curl_easy_getinfo(easy, CURLINFO_PRIVATE, &raw);
        curl_multi_remove_handle(multi_, easy);
        active_.erase(raw);
        const std::string origin = raw->origin;
        finish(std::unique_ptr<Transfer>(raw), code);
        release(origin);
      }
      curl_multi_poll(multi_, nullptr, 0, 1000, nullptr);
    }
    // Shutting down: abandon everything, run no continuation.
    for (Transfer* raw : active_) {
      std::unique_ptr<Transfer> t(raw);
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
    for (CURL* easy : easyPool_) curl_easy_cleanup(easy);
    easyPool_.clear();
    std::deque<std::unique_ptr<Transfer>> queued;
    {
      std::lock_guard lock(mutex_);
      queued.swap(queue_);
    }
    for (auto& t : queued) t->promise.abandon();
    for (const auto& file : bundleFiles_) ::unlink(file.c_str());
  }

  CURLM* multi_ = nullptr;
  CURLSH* share_ = nullptr;
  std::thread thread_;

  std::mutex mutex_;
  bool stopping_ = false;
  bool limitsChanged_ = false;
  std::shared_ptr<const EffectiveSettings> settings_;
  std::deque<std::unique_ptr<Transfer>> queue_;
  transport::Stats stats_;
  std::map<std::string, std::string> loadedBundles_;
  std::vector<std::string> bundleFiles_;

  // Owned by the I/O thread.
  struct Lane {
    long active = 0;
    std::deque<std::unique_ptr<Transfer>> waiting;
  };
  std::unordered_set<Transfer*> active_;
  std::unordered_map<std::string, Lane> lanes_;
  static constexpr std::size_t kMaxPooledHandles = 64;
  std::vector<CURL*> easyPool_;
};

// The client lives for the whole process and is never destroyed, so that host threads
// still sending during exit touch valid memory. A static guard stops its thread at exit,
// before libcurl's and OpenSSL's own exit handlers run.
HttpClient& client() {
  static HttpClient* instance = new HttpClient();
  static struct Guard {
    ~Guard() { instance->shutdown(); }
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

}  // namespace tavik::transport
