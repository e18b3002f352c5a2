#pragma once

// tavik-sandbox: a local HTTPS stand-in for the three services the SDK talks to (product
// ads, display ads, event tracking). Tests start it in-process, point the SDK's
// configuration at baseUrl(), trust certPath(), and afterwards look at exactly what
// arrived on the wire (requests(), eventLog()). Answers can be scripted per path to
// produce failures: status codes, slow answers, connections dropped mid-answer.
//
// Routes (all answers are JSON unless noted):
//   GET /sda, /sda/v1          product-listing ads for "page_type", at most "pcnt"
//   GET /v2/bsda               display ads for the repeated "au[]" items, "pcnt_au" per unit
//   GET /v2/bsda/pt            display ads for the ad units of page type "pt"
//   GET /events, /aclick       tracking events; appended to the event log
//   GET /media/<file>          images and video referenced by the catalogue (not JSON)
//   GET /shop/products         the shop's own product search ("q", "brand", "min_price",
//                              "max_price"), not an ad service: the sample shop's
//                              ordinary results and product pages
//   GET  /__sandbox/requests   the request record     (admin, never recorded)
//   GET  /__sandbox/events     the event log          (admin)
//   POST /__sandbox/reset      clears record, event log and scripts (admin)
//   POST /__sandbox/script     adds a scripted answer from a JSON body (admin)
//   anything else              404 with a JSON error body

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace tavik::sandbox {

/// One request as it arrived.
struct RecordedRequest {
  std::string method;    // "GET"
  std::string path;      // "/v2/bsda" (percent-decoded, without the query)
  std::string rawQuery;  // exactly as received, without '?'
  /// Decoded query items in wire order. Percent escapes are decoded; '+' stays '+'.
  std::vector<std::pair<std::string, std::string>> query;
  std::string connection;  // "127.0.0.1:54321": the client's TCP endpoint
  std::string body;
  std::int64_t timeMs = 0;  // arrival time, milliseconds since the epoch

  /// Every value of `key`, in wire order.
  std::vector<std::string> values(std::string_view key) const;
  /// The first value of `key`, or nullopt when it is absent.
  std::optional<std::string> value(std::string_view key) const;
  /// How many items are named `key`.
  std::size_t count(std::string_view key) const;
  /// The JSON form served by GET /__sandbox/requests: method, path, raw_query,
  /// query ([[name, value], ...]), connection, time_ms, body.
  nlohmann::json toJson() const;
};

/// An answer that replaces the built-in one for one exact path.
struct ScriptedAnswer {
  int status = 200;
  std::string body;
  std::string contentType = "application/json";
  std::vector<std::pair<std::string, std::string>> headers;  // e.g. {"Location", "http://..."}
  std::chrono::milliseconds delay{0};  // wait before answering (cut short when stopping)
  bool closeMidAnswer = false;  // send the headers and part of the body, then drop the connection
  int times = -1;               // how many requests it applies to; -1 = until cleared
};

struct Options {
  int port = 0;  // 0 = pick a free port
  // Where to write the PEM certificate; empty = a temporary file shared by every sandbox of
  // the process with the same certNames, removed when the process ends.
  std::string certOut;
  std::string catalogueFile;  // JSON file replacing the built-in catalogue; empty = built-in
  std::vector<std::string> certNames = {"localhost", "127.0.0.1"};  // SAN entries (DNS or IP)
  std::function<void(const RecordedRequest&)> onRequest;  // called for every recorded request
  std::string mediaDir;  // directory whose files are served under /media/ before the built-in
                         // ones; empty = built-in media only
};

class Sandbox {
 public:
  explicit Sandbox(Options options = {});
  ~Sandbox();  // stops and joins
  Sandbox(const Sandbox&) = delete;
  Sandbox& operator=(const Sandbox&) = delete;

  /// Loads the catalogue, makes (or reuses) the certificate, binds 127.0.0.1 and returns
  /// once the server accepts connections. Throws std::runtime_error with a clear message
  /// on failure. Does nothing when already running.
  void start();
  /// Stops listening, drops open keep-alive connections, cuts scripted delays short and
  /// joins the server threads. Safe to call more than once.
  void stop();
  bool running() const;

  int port() const;
  std::string baseUrl() const;   // "https://127.0.0.1:PORT"
  std::string certPath() const;  // PEM file clients must trust (set by start())

  /// Every request except the admin ones, in arrival order.
  std::vector<RecordedRequest> requests() const;
  /// The recorded requests whose path is `path`.
  std::vector<RecordedRequest> requests(std::string_view path) const;
  void clearRequests();
  /// Slow media: answers under /media/ go out in pieces of `pieceBytes`, each after a
  /// pause of `pausePerPiece` (0 = at once, the default). Applies to requests arriving
  /// from now on.
  void setMediaPace(std::chrono::milliseconds pausePerPiece, std::size_t pieceBytes = 4096);
  /// Media answers whose client went away (or the sandbox stopped) before their end;
  /// only slow answers can be seen being cut.
  std::size_t mediaAnswersCut() const;
  /// Distinct TCP connections among the recorded requests.
  std::size_t connectionCount() const;
  /// Waits until at least `count` requests are recorded; false on time-out.
  bool waitForRequests(std::size_t count, std::chrono::milliseconds timeout) const;

  /// Adds a scripted answer for `path` (the exact path, without query). Scripts of one
  /// path form a queue: a request takes the first one whose `times` is not used up.
  /// Adding a script removes the path's unlimited scripts (times = -1), which would
  /// otherwise shadow it, so "fail twice, then succeed" is script(times=2) followed by
  /// script(times=-1), and a second unlimited script replaces the first.
  void script(const std::string& path, ScriptedAnswer answer);
  void clearScripts();
  /// Clears the request record, the event log and the scripts (POST /__sandbox/reset).
  void reset();

  /// The event log: an array of {"seq", "path", "event_name", "params", "query",
  /// "time_ms"} in arrival order, one per /events or /aclick request answered by the
  /// built-in route (a scripted answer on those paths logs nothing).
  nlohmann::json eventLog() const;
  /// Waits until the event log holds at least `count` entries; false on time-out.
  bool waitForEvents(std::size_t count, std::chrono::milliseconds timeout) const;

  /// The catalogue in use, with "{{base}}" replaced by baseUrl(); null before start().
  nlohmann::json catalogue() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

/// Runs a sandbox in the foreground until SIGINT or SIGTERM, for programs that serve it
/// from a terminal or as a child process. The base address is the first line on stdout;
/// `announce` may then add lines of its own (on stderr); unless `requestLine` is empty,
/// each recorded request is printed as the line it returns. Returns 0 after a signal, or
/// 1 when the sandbox did not start (the reason on stderr, after `errorPrefix`).
int runInForeground(Options options, std::function<std::string(const RecordedRequest&)> requestLine,
                    const std::function<void(const Sandbox&)>& announce,
                    const std::string& errorPrefix);

}  // namespace tavik::sandbox
