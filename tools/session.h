#pragma once

// What every network command shares: the connection options, the SDK built from them,
// the SDK's debug lines (captured, and echoed with --debug) and the errors its
// operations report.

#include <initializer_list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "cli_options.h"
#include "tavik/ads/ad_fetcher.h"
#include "tavik/core/error.h"
#include "tavik/core/tavik.h"

namespace tavik::cli {

/// --host, --sandbox, --client-id, --cli-ubid, --ca-bundle, --debug and the per-service
/// host options.
const OptionList& connectionOptions();
/// Help text on where the hosts and the CA bundle come from.
const char* connectionNotes();

enum class Service { productAds, displayAds, eventTracking };

/// The SDK's configuration as the options (and TAVIK_HOST / TAVIK_CA_BUNDLE) give it.
struct Connection {
  std::optional<std::string> productAdsHost;
  std::optional<std::string> displayAdsHost;
  std::optional<std::string> eventTrackingHost;
  std::string clientId;
  std::string cliUbid;
  std::optional<std::string> caBundle;
  bool debug = false;
};

/// Reads the connection options. Throws UsageError when a host that one of `needed`
/// requires is not given: the tool never falls back to the production services.
Connection connectionFrom(const Arguments& args, std::initializer_list<Service> needed);

/// "127.0.0.1:8443" from "127.0.0.1:8443", "https://127.0.0.1:8443/" and the like.
/// Throws UsageError for another scheme or a path.
std::string bareHost(const std::string& hostOrUrl, const std::string& what);

/// An SDK built for one command. The SDK always runs with its debug lines on, so that
/// the tool can show exactly what went on the wire; they reach stderr only with --debug.
class Session {
 public:
  explicit Session(const Connection& connection);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  const TAVIK& sdk() const { return sdk_; }
  const Connection& connection() const { return connection_; }

  /// An `onError` that records every error an operation reports.
  ErrorHandler errorHandler();
  /// Prints the recorded errors to stderr; true when there were any.
  bool printErrors() const;

  /// The address of the last request the SDK sent, from its debug lines.
  std::optional<std::string> lastRequestUrl() const;

  /// Waits for an SDK operation. A future that ends with an exception (the operation was
  /// abandoned) prints it and counts as no answer.
  template <class T>
  std::optional<T> await(const Future<std::optional<T>>& future) {
    try {
      return future.get();
    } catch (const std::exception& error) {
      recordFailure(error.what());
      return std::nullopt;
    }
  }

 private:
  struct Log;
  void recordFailure(const std::string& message);

  Connection connection_;
  std::shared_ptr<Log> log_;
  TAVIK sdk_;
  mutable std::mutex mutex_;
  std::vector<TavikError> errors_;
  std::vector<std::string> failures_;
};

/// "error: <code> <caseName>: <message>" (and the body of a bad status) on stderr.
void printError(const TavikError& error);

/// The "response" part of a response dictionary: HTTP status and "data" text.
struct Answer {
  int status = 0;
  std::string data;
};
/// nullopt when `dictionary` is not a response dictionary.
std::optional<Answer> unwrapAnswer(const nlohmann::json& dictionary);

/// JSON text re-indented for reading; text that is not JSON comes back unchanged.
std::string prettyJson(const std::string& text);

}  // namespace tavik::cli
