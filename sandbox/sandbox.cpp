// The sandbox server: one cpp-httplib SSLServer on 127.0.0.1 whose every request goes
// through Impl::handle, which records it, then answers from a script or a built-in route.

#include <netinet/in.h>
#include <openssl/ssl.h>
#include <signal.h>
#include <sys/socket.h>

#include <httplib.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <map>
#include <set>
#include <stdexcept>
#include <thread>

#include "sandbox_internal.h"

namespace tavik::sandbox {

namespace {

using nlohmann::json;

constexpr const char* kAdminPrefix = "/__sandbox/";
constexpr std::size_t kWorkerThreads = 64;           // one per open keep-alive connection
constexpr std::size_t kKeepAliveMaxCount = 1000000;  // requests per connection
constexpr time_t kKeepAliveTimeoutSec = 30;

std::int64_t nowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

std::string dumpJson(const json& value) {
  // Query values may hold bytes that are not UTF-8; never let that fail an answer.
  return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

void answerJson(httplib::Response& res, int status, const json& body) {
  res.status = status;
  res.set_content(dumpJson(body), "application/json");
}

void answerError(httplib::Response& res, int status, const std::string& message,
                 const std::string& path) {
  answerJson(res, status, {{"error", message}, {"path", path}});
}

// Keeps the process alive when a client hangs up while an answer is being written:
// OpenSSL writes to the socket with write(), which raises SIGPIPE.
void ignoreSigpipe() {
  struct sigaction current {};
  if (sigaction(SIGPIPE, nullptr, &current) == 0 && current.sa_handler == SIG_DFL) {
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigemptyset(&ignore.sa_mask);
    sigaction(SIGPIPE, &ignore, nullptr);
  }
}

int localPort(int fd) {
  sockaddr_storage address{};
  socklen_t length = sizeof address;
  if (getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) return -1;
  if (address.ss_family == AF_INET) {
    return ntohs(reinterpret_cast<const sockaddr_in*>(&address)->sin_port);
  }
  if (address.ss_family == AF_INET6) {
    return ntohs(reinterpret_cast<const sockaddr_in6*>(&address)->sin6_port);
  }
  return -1;
}

bool isConnected(int fd) {
  sockaddr_storage address{};
  socklen_t length = sizeof address;
  return getpeername(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0;
}

}  // namespace

struct Sandbox::Impl {
  explicit Impl(Options opts) : options(std::move(opts)) {}

  Options options;

  // Record and scripts.
  mutable std::mutex mutex;
  mutable std::condition_variable recordChanged;
  std::vector<RecordedRequest> record;
  std::map<std::string, std::deque<ScriptedAnswer>> scripts;
  detail::EventLog events;

  // Set by start(), read by the handlers while the server runs.
  json catalogue;
  std::string baseUrl;
  int port = 0;
  std::shared_ptr<const detail::Certificate> certificate;
  std::string certPath;

  // Server lifecycle; `lifecycle` serialises start() and stop().
  std::mutex lifecycle;
  std::unique_ptr<httplib::SSLServer> server;
  std::thread thread;
  std::atomic<bool> stopping{false};
  std::atomic<bool> running{false};

  // Slow media (setMediaPace): a pause before each piece of a media answer.
  std::atomic<std::int64_t> mediaChunkDelayMs{0};
  std::atomic<std::size_t> mediaChunkBytes{16 * 1024};
  std::atomic<std::size_t> mediaAnswersCut{0};

  // Sockets of the TLS connections, so stop() can end idle keep-alive connections that
  // would otherwise hold a worker (and the join) for the whole keep-alive time-out.
  std::mutex socketsMutex;
  std::set<int> sockets;

  static void onTlsInfo(const SSL* ssl, int where, int /*ret*/) {
    if ((where & SSL_CB_HANDSHAKE_START) == 0) return;
    auto* self = static_cast<Impl*>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(ssl)));
    const int fd = SSL_get_fd(ssl);
    if (self == nullptr || fd < 0) return;
    std::lock_guard lock(self->socketsMutex);
    self->sockets.insert(fd);
  }

  void shutdownConnections() {
    std::lock_guard lock(socketsMutex);
    for (const int fd : sockets) {
      // The descriptor may have been closed and reused since; only touch it while it is
      // still a connected socket on this server's port.
      if (localPort(fd) == port && isConnected(fd)) ::shutdown(fd, SHUT_RDWR);
    }
    sockets.clear();
  }

  void sleepUnlessStopping(std::chrono::milliseconds delay) const {
    const auto deadline = std::chrono::steady_clock::now() + delay;
    while (!stopping.load() && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }

  RecordedRequest recordRequest(const httplib::Request& req) {
    RecordedRequest recorded;
    recorded.timeMs = nowMs();
    recorded.method = req.method;
    recorded.path = req.path;
    const auto mark = req.target.find('?');
    if (mark != std::string::npos) recorded.rawQuery = req.target.substr(mark + 1);
    recorded.query = detail::parseQuery(recorded.rawQuery);
    recorded.connection = req.remote_addr + ":" + std::to_string(req.remote_port);
    recorded.body = req.body;
    {
      std::lock_guard lock(mutex);
      record.push_back(recorded);
    }
    recordChanged.notify_all();
    return recorded;
  }

  std::optional<ScriptedAnswer> takeScript(const std::string& path) {
    std::lock_guard lock(mutex);
    auto found = scripts.find(path);
    if (found == scripts.end() || found->second.empty()) return std::nullopt;
    auto& queue = found->second;
    ScriptedAnswer answer = queue.front();
    if (queue.front().times > 0 && --queue.front().times == 0) queue.pop_front();
    if (queue.empty()) scripts.erase(found);
    return answer;
  }

  void addScript(const std::string& path, ScriptedAnswer answer) {
    if (answer.times < -1) answer.times = -1;
    std::lock_guard lock(mutex);
    auto& queue = scripts[path];
    std::erase_if(queue, [](const ScriptedAnswer& queued) { return queued.times < 0; });
    if (answer.times != 0) queue.push_back(std::move(answer));
    if (queue.empty()) scripts.erase(path);
  }

  void reset() {
    {
      std::lock_guard lock(mutex);
      record.clear();
      scripts.clear();
    }
    events.clear();
  }

  void answerScripted(const ScriptedAnswer& answer, httplib::Response& res) {
    sleepUnlessStopping(answer.delay);
    res.status = answer.status;
    for (const auto& [name, value] : answer.headers) res.set_header(name, value);
    if (!answer.closeMidAnswer) {
      res.set_content(answer.body, answer.contentType);
      return;
    }
    // Promise the whole body (or 64 bytes when there is none), send about half of it,
    // then fail the provider: the server drops the connection and the client is left
    // with a short body.
    auto body = std::make_shared<std::string>(answer.body);
    const std::size_t promised = body->empty() ? 64 : body->size();
    const std::size_t sent = body->size() / 2;
    res.set_content_provider(
        promised, answer.contentType,
        [body, sent](std::size_t offset, std::size_t, httplib::DataSink& sink) {
          if (offset == 0 && sent > 0) sink.write(body->data(), sent);
          return false;
        });
  }

  void answerBuiltIn(const RecordedRequest& request, httplib::Response& res) {
    const std::string& path = request.path;
    const bool readOnly = request.method == "GET" || request.method == "HEAD";
    const bool known = path == "/sda" || path == "/sda/v1" || path == "/v2/bsda" ||
                       path == "/v2/bsda/pt" || path == "/events" || path == "/aclick" ||
                       path == "/shop/products" || path.rfind("/media/", 0) == 0;
    if (!known) return answerError(res, 404, "not found", path);
    if (!readOnly) return answerError(res, 405, "method not allowed", path);

    if (path == "/sda" || path == "/sda/v1") {
      return answerJson(res, 200, detail::productAdsAnswer(catalogue, request, baseUrl));
    }
    if (path == "/v2/bsda" || path == "/v2/bsda/pt") {
      return answerJson(res, 200, detail::displayAdsAnswer(catalogue, request, path != "/v2/bsda"));
    }
    if (path == "/shop/products") {
      return answerJson(res, 200, detail::shopProductsAnswer(catalogue, request));
    }
    if (path == "/events" || path == "/aclick") {
      const json entry = events.append(request);
      return answerJson(res, 200, {{"status", "ok"}, {"seq", entry["seq"]}});
    }
    const std::string file = path.substr(std::string("/media/").size());
    auto bytes = detail::loadMedia(file, options.mediaDir);
    if (!bytes) return answerError(res, 404, "no such media file", path);
    const auto pause = std::chrono::milliseconds(mediaChunkDelayMs.load());
    if (pause.count() > 0) return answerSlowly(std::move(*bytes), file, pause, res);
    // Status left unset: the library answers 206 itself when the client asked for a range
    // (video players do).
    res.set_content(std::move(*bytes), detail::mediaContentType(file));
  }

  // A media answer in pieces with a pause before each; a client that leaves before the
  // end shows as a failed write, and the answer is counted as cut.
  void answerSlowly(std::string bytes, const std::string& file, std::chrono::milliseconds pause,
                    httplib::Response& res) {
    auto body = std::make_shared<std::string>(std::move(bytes));
    const std::size_t piece = std::max<std::size_t>(1, mediaChunkBytes.load());
    res.set_content_provider(
        body->size(), detail::mediaContentType(file),
        [this, body, piece, pause](std::size_t offset, std::size_t length,
                                   httplib::DataSink& sink) {
          sleepUnlessStopping(pause);
          const std::size_t n = std::min({piece, length, body->size() - offset});
          if (stopping.load() || !sink.is_writable() || !sink.write(body->data() + offset, n)) {
            ++mediaAnswersCut;
            return false;
          }
          return true;
        });
  }

  void answerAdmin(const httplib::Request& req, httplib::Response& res) {
    const std::string& path = req.path;
    if (path == "/__sandbox/requests" || path == "/__sandbox/events") {
      if (req.method != "GET") return answerError(res, 405, "use GET", path);
      if (path == "/__sandbox/events") return answerJson(res, 200, events.snapshot());
      json all = json::array();
      std::lock_guard lock(mutex);
      for (const auto& recorded : record) all.push_back(recorded.toJson());
      return answerJson(res, 200, all);
    }
    if (path == "/__sandbox/reset") {
      if (req.method != "POST") return answerError(res, 405, "use POST", path);
      reset();
      return answerJson(res, 200, {{"status", "ok"}});
    }
    if (path == "/__sandbox/script") {
      if (req.method != "POST") return answerError(res, 405, "use POST", path);
      std::string problem;
      auto scripted = parseScript(req.body, problem);
      if (!scripted) return answerError(res, 400, problem, path);
      addScript(scripted->first, std::move(scripted->second));
      return answerJson(res, 200, {{"status", "ok"}});
    }
    answerError(res, 404, "unknown admin path", path);
  }

  // {"path":..., "status":..., "body":..., "content_type":..., "headers": {...},
  //  "delay_ms":..., "close_mid_answer": bool, "times": n}; only "path" is required.
  static std::optional<std::pair<std::string, ScriptedAnswer>> parseScript(const std::string& text,
                                                                           std::string& problem) {
    const json body = json::parse(text, nullptr, false);
    if (body.is_discarded() || !body.is_object()) {
      problem = "the body must be a JSON object";
      return std::nullopt;
    }
    auto fieldIs = [&](const char* key, auto check, const char* what) {
      if (!body.contains(key) || check(body[key])) return true;
      problem = std::string("\"") + key + "\" must be " + what;
      return false;
    };
    const auto isInt = [](const json& v) { return v.is_number_integer(); };
    const auto isString = [](const json& v) { return v.is_string(); };
    const auto isBool = [](const json& v) { return v.is_boolean(); };
    const auto isHeaders = [](const json& v) {
      if (!v.is_object()) return false;
      for (const auto& item : v) {
        if (!item.is_string()) return false;
      }
      return true;
    };
    if (!body.contains("path") || !body["path"].is_string() ||
        body["path"].get<std::string>().rfind('/', 0) != 0) {
      problem = "\"path\" must be a string starting with '/'";
      return std::nullopt;
    }
    if (!fieldIs("status", isInt, "an integer") || !fieldIs("content_type", isString, "a string") ||
        !fieldIs("headers", isHeaders, "an object of strings") ||
        !fieldIs("delay_ms", isInt, "an integer") ||
        !fieldIs("close_mid_answer", isBool, "a boolean") ||
        !fieldIs("times", isInt, "an integer")) {
      return std::nullopt;
    }
    ScriptedAnswer answer;
    answer.status = body.value("status", 200);
    if (answer.status < 100 || answer.status > 599) {
      problem = "\"status\" must be between 100 and 599";
      return std::nullopt;
    }
    if (body.contains("body")) {
      answer.body =
          body["body"].is_string() ? body["body"].get<std::string>() : dumpJson(body["body"]);
    }
    answer.contentType = body.value("content_type", answer.contentType);
    if (body.contains("headers")) {
      for (const auto& [name, value] : body["headers"].items()) {
        answer.headers.emplace_back(name, value.get<std::string>());
      }
    }
    answer.delay = std::chrono::milliseconds(
        std::max<std::int64_t>(0, body.value("delay_ms", std::int64_t{0})));
    answer.closeMidAnswer = body.value("close_mid_answer", false);
    answer.times = body.value("times", -1);
    return std::make_pair(body["path"].get<std::string>(), std::move(answer));
  }

  void handle(const httplib::Request& req, httplib::Response& res) {
    try {
      if (req.path.rfind(kAdminPrefix, 0) == 0) return answerAdmin(req, res);
      const RecordedRequest recorded = recordRequest(req);
      if (options.onRequest) {
        try {
          options.onRequest(recorded);
        } catch (...) {
          // A failing observer must not change the answer.
        }
      }
      if (auto scripted = takeScript(recorded.path)) return answerScripted(*scripted, res);
      answerBuiltIn(recorded, res);
    } catch (const std::exception& error) {
      answerError(res, 500, std::string("sandbox failure: ") + error.what(), req.path);
    }
  }

  void writeCertificate() {
    if (options.certOut.empty()) {
      // The process-wide file of this certificate: every sandbox with the same names
      // reports the same path, and it stays valid until the process ends.
      if (certificate->pemFile.empty()) {
        throw std::runtime_error("tavik-sandbox: cannot write a temporary certificate file: " +
                                 certificate->pemFileError);
      }
      certPath = certificate->pemFile;
      return;
    }
    certPath = options.certOut;
    std::ofstream out(certPath, std::ios::binary | std::ios::trunc);
    out << certificate->pem;
    out.close();
    if (!out)
      throw std::runtime_error("tavik-sandbox: cannot write the certificate to " + certPath);
  }

  void start() {
    std::lock_guard guard(lifecycle);
    if (running.load()) return;
    if (options.port < 0 || options.port > 65535) {
      throw std::runtime_error("tavik-sandbox: port " + std::to_string(options.port) +
                               " is outside 0..65535");
    }
    const json raw = detail::loadCatalogue(options.catalogueFile);
    certificate = detail::certificateFor(options.certNames);
    writeCertificate();
    ignoreSigpipe();

    auto made = std::make_unique<httplib::SSLServer>(certificate->cert, certificate->key);
    if (!made->is_valid()) {
      throw std::runtime_error("tavik-sandbox: cannot set up TLS with the generated certificate");
    }
    SSL_CTX_set_app_data(made->ssl_context(), this);
    SSL_CTX_set_info_callback(made->ssl_context(), &Impl::onTlsInfo);
    made->new_task_queue = [] { return new httplib::ThreadPool(kWorkerThreads); };
    made->set_keep_alive_max_count(kKeepAliveMaxCount);
    made->set_keep_alive_timeout(kKeepAliveTimeoutSec);
    // Headers and body go out in separate writes; without TCP_NODELAY every answer on a
    // kept-alive connection waits for the client's delayed ACK (about 40 ms).
    made->set_tcp_nodelay(true);
    // Plain SO_REUSEADDR: the library's default also sets SO_REUSEPORT, which would let a
    // second server bind a port that is already taken instead of failing.
    made->set_socket_options([](socket_t sock) {
      int yes = 1;
      setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    const auto handler = [this](const httplib::Request& req, httplib::Response& res) {
      handle(req, res);
    };
    made->Get(".*", handler);
    made->Post(".*", handler);
    made->Put(".*", handler);
    made->Patch(".*", handler);
    made->Delete(".*", handler);
    made->Options(".*", handler);

    int bound = -1;
    if (options.port == 0) {
      bound = made->bind_to_any_port("127.0.0.1");
    } else if (made->bind_to_port("127.0.0.1", options.port)) {
      bound = options.port;
    }
    if (bound <= 0) {
      const std::string why = std::strerror(errno);
      throw std::runtime_error("tavik-sandbox: cannot listen on 127.0.0.1:" +
                               std::to_string(options.port) + " (" + why + ")");
    }

    port = bound;
    baseUrl = "https://127.0.0.1:" + std::to_string(port);
    catalogue = detail::substituteBase(raw, baseUrl);
    stopping = false;
    server = std::move(made);
    httplib::SSLServer* listening = server.get();
    thread = std::thread([listening] { listening->listen_after_bind(); });

    // listen_after_bind() only honours stop() once it runs; wait for that.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!server->is_running() && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    if (!server->is_running()) {
      stopLocked();
      throw std::runtime_error("tavik-sandbox: the server did not start listening");
    }
    running = true;
  }

  void stopLocked() {
    if (!server) return;
    stopping = true;
    server->stop();
    shutdownConnections();
    if (thread.joinable()) thread.join();
    server.reset();
    running = false;
  }

  void stop() {
    std::lock_guard guard(lifecycle);
    stopLocked();
  }
};

Sandbox::Sandbox(Options options) : impl_(std::make_unique<Impl>(std::move(options))) {}

Sandbox::~Sandbox() {
  try {
    impl_->stop();
  } catch (...) {
  }
}

void Sandbox::start() {
  impl_->start();
}
void Sandbox::stop() {
  impl_->stop();
}
bool Sandbox::running() const {
  return impl_->running.load();
}

int Sandbox::port() const {
  return impl_->port;
}
std::string Sandbox::baseUrl() const {
  return impl_->baseUrl;
}
std::string Sandbox::certPath() const {
  return impl_->certPath;
}

std::vector<RecordedRequest> Sandbox::requests() const {
  std::lock_guard lock(impl_->mutex);
  return impl_->record;
}

std::vector<RecordedRequest> Sandbox::requests(std::string_view path) const {
  std::vector<RecordedRequest> matching;
  std::lock_guard lock(impl_->mutex);
  for (const auto& recorded : impl_->record) {
    if (recorded.path == path) matching.push_back(recorded);
  }
  return matching;
}

void Sandbox::clearRequests() {
  std::lock_guard lock(impl_->mutex);
  impl_->record.clear();
}

void Sandbox::setMediaPace(std::chrono::milliseconds pausePerPiece, std::size_t pieceBytes) {
  impl_->mediaChunkBytes = pieceBytes;
  impl_->mediaChunkDelayMs = pausePerPiece.count();
}

std::size_t Sandbox::mediaAnswersCut() const {
  return impl_->mediaAnswersCut.load();
}

std::size_t Sandbox::connectionCount() const {
  std::set<std::string> connections;
  std::lock_guard lock(impl_->mutex);
  for (const auto& recorded : impl_->record) connections.insert(recorded.connection);
  return connections.size();
}

bool Sandbox::waitForRequests(std::size_t count, std::chrono::milliseconds timeout) const {
  std::unique_lock lock(impl_->mutex);
  return impl_->recordChanged.wait_for(lock, timeout,
                                       [&] { return impl_->record.size() >= count; });
}

void Sandbox::script(const std::string& path, ScriptedAnswer answer) {
  impl_->addScript(path, std::move(answer));
}

void Sandbox::clearScripts() {
  std::lock_guard lock(impl_->mutex);
  impl_->scripts.clear();
}

void Sandbox::reset() {
  impl_->reset();
}

nlohmann::json Sandbox::eventLog() const {
  return impl_->events.snapshot();
}

bool Sandbox::waitForEvents(std::size_t count, std::chrono::milliseconds timeout) const {
  return impl_->events.waitFor(count, timeout);
}

nlohmann::json Sandbox::catalogue() const {
  std::lock_guard guard(impl_->lifecycle);
  return impl_->catalogue;
}

}  // namespace tavik::sandbox
