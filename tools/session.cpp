#include "session.h"

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include "tavik/core/log.h"

namespace tavik::cli {

namespace {

constexpr std::string_view kRequestLinePrefix = "\"TAVIK: - Final URL = ";
constexpr std::size_t kMaxBodyShown = 400;

std::optional<std::string> environment(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr || *value == '\0') return std::nullopt;
  return std::string(value);
}

bool startsWithNoCase(std::string_view text, std::string_view prefix) {
  if (text.size() < prefix.size()) return false;
  for (std::size_t i = 0; i < prefix.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(text[i])) != prefix[i]) return false;
  }
  return true;
}

// The text of a debug line: without its enclosing quotes, with \" and \\ undone.
std::string unquote(std::string_view line) {
  if (line.size() >= 2 && line.front() == '"' && line.back() == '"') {
    line = line.substr(1, line.size() - 2);
  }
  std::string out;
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (line[i] == '\\' && i + 1 < line.size() && (line[i + 1] == '"' || line[i + 1] == '\\')) {
      ++i;
    }
    out += line[i];
  }
  return out;
}

TAVIK buildSdk(const Connection& connection) {
  TAVIK::Builder builder;
  builder.clientId(connection.clientId).debug(true);
  if (connection.productAdsHost) builder.productAdsHost(*connection.productAdsHost);
  if (connection.displayAdsHost) builder.displayAdsHost(*connection.displayAdsHost);
  if (connection.eventTrackingHost) builder.eventTrackingHost(*connection.eventTrackingHost);
  if (connection.caBundle) builder.trustedCaBundle(*connection.caBundle);
  return builder.build();
}

}  // namespace

const OptionList& connectionOptions() {
  static const OptionList options = {
      {"--host", "HOST[:PORT]", "host of all three services"},
      {"--pla-host", "HOST[:PORT]", "host of the product-ads service"},
      {"--display-host", "HOST[:PORT]", "host of the display-ads service"},
      {"--events-host", "HOST[:PORT]", "host of the event-tracking service"},
      {"--sandbox", "URL", "a running sandbox (https://127.0.0.1:PORT) for all three services"},
      {"--ca-bundle", "FILE", "PEM file of extra trusted certificates (the sandbox's)"},
      {"--client-id", "ID", "client id sent with every request (default demo-client)"},
      {"--cli-ubid", "ID", "shopper id sent as cli_ubid (default demo-shopper)"},
      {"--debug", "", "write the SDK's debug lines to stderr"},
  };
  return options;
}

const char* connectionNotes() {
  return "The tool talks only to the hosts it is given: pass --host or --sandbox (or set\n"
         "TAVIK_HOST); the production services are never contacted by default. Hosts are\n"
         "bare names with an optional port; the SDK always speaks HTTPS and verifies TLS.\n"
         "TAVIK_CA_BUNDLE stands in for --ca-bundle.\n";
}

std::string bareHost(const std::string& hostOrUrl, const std::string& what) {
  std::string host = hostOrUrl;
  const auto scheme = host.find("://");
  if (scheme != std::string::npos) {
    if (!startsWithNoCase(host, "https://")) {
      throw UsageError(what + ": the SDK only speaks https, not '" + hostOrUrl + "'");
    }
    host.erase(0, scheme + 3);
  }
  while (!host.empty() && host.back() == '/') host.pop_back();
  if (host.empty() || host.find_first_of("/?#@ ") != std::string::npos) {
    throw UsageError(what + " needs a host name with an optional port, not '" + hostOrUrl + "'");
  }
  return host;
}

Connection connectionFrom(const Arguments& args, std::initializer_list<Service> needed) {
  if (args.has("--host") && args.has("--sandbox")) {
    throw UsageError("--host and --sandbox both name all three services; give only one");
  }
  std::optional<std::string> all;
  if (auto sandbox = args.value("--sandbox")) {
    all = bareHost(*sandbox, "--sandbox");
  } else if (auto host = args.value("--host")) {
    all = bareHost(*host, "--host");
  } else if (auto fromEnvironment = environment("TAVIK_HOST")) {
    all = bareHost(*fromEnvironment, "TAVIK_HOST");
  }
  const auto hostOf = [&](const char* option) -> std::optional<std::string> {
    if (auto host = args.value(option)) return bareHost(*host, option);
    return all;
  };

  Connection connection;
  connection.productAdsHost = hostOf("--pla-host");
  connection.displayAdsHost = hostOf("--display-host");
  connection.eventTrackingHost = hostOf("--events-host");
  for (const Service service : needed) {
    const auto& [host, option, name] =
        service == Service::productAds
            ? std::tuple(connection.productAdsHost, "--pla-host", "product-ads")
        : service == Service::displayAds
            ? std::tuple(connection.displayAdsHost, "--display-host", "display-ads")
            : std::tuple(connection.eventTrackingHost, "--events-host", "event-tracking");
    if (!host) {
      throw UsageError(std::string("no ") + name + " service given: pass --host HOST[:PORT], " +
                       "--sandbox URL or " + option + " (or set TAVIK_HOST)");
    }
  }

  connection.clientId = args.valueOr("--client-id", "demo-client");
  if (connection.clientId.empty()) throw UsageError("--client-id must not be empty");
  connection.cliUbid = args.valueOr("--cli-ubid", "demo-shopper");
  connection.caBundle = args.value("--ca-bundle");
  if (!connection.caBundle) connection.caBundle = environment("TAVIK_CA_BUNDLE");
  if (connection.caBundle && !std::ifstream(*connection.caBundle)) {
    throw std::runtime_error("cannot read the CA bundle '" + *connection.caBundle + "'");
  }
  connection.debug = args.has("--debug");
  return connection;
}

struct Session::Log {
  std::mutex mutex;
  bool echo = false;
  std::optional<std::string> lastRequestUrl;
};

Session::Session(const Connection& connection)
    : connection_(connection),
      log_([&] {
        auto log = std::make_shared<Log>();
        log->echo = connection.debug;
        setLogSink([log](std::string_view line) {
          std::lock_guard lock(log->mutex);
          if (line.starts_with(kRequestLinePrefix)) {
            log->lastRequestUrl = unquote(line).substr(kRequestLinePrefix.size() - 1);
          }
          if (log->echo) std::cerr << line << "\n";
        });
        return log;
      }()),
      sdk_(buildSdk(connection)) {}

Session::~Session() {
  setLogSink(nullptr);
}

ErrorHandler Session::errorHandler() {
  return [this](const TavikError& error) {
    std::lock_guard lock(mutex_);
    errors_.push_back(error);
  };
}

void Session::recordFailure(const std::string& message) {
  std::lock_guard lock(mutex_);
  failures_.push_back(message);
}

bool Session::printErrors() const {
  std::lock_guard lock(mutex_);
  for (const auto& error : errors_) printError(error);
  for (const auto& failure : failures_) std::cerr << "error: " << failure << "\n";
  return !errors_.empty() || !failures_.empty();
}

std::optional<std::string> Session::lastRequestUrl() const {
  std::lock_guard lock(log_->mutex);
  return log_->lastRequestUrl;
}

void printError(const TavikError& error) {
  const auto info = error.get();
  std::cerr << "error: " << info.code << " " << error.caseName() << ": " << error.description()
            << "\n";
  // A transport failure says what happened in the SDK's stable terms.
  if (const auto* transport = transportErrorOf(error)) {
    std::cerr << "  transport: " << transport->kindName() << "\n";
  }
  if (error.kind() == TavikError::Case::badStatus && !error.body().empty()) {
    std::string body = error.body().substr(0, kMaxBodyShown);
    if (error.body().size() > kMaxBodyShown) body += "...";
    std::cerr << "  body: " << body << "\n";
  }
}

std::optional<Answer> unwrapAnswer(const nlohmann::json& dictionary) {
  if (!dictionary.is_object()) return std::nullopt;
  const auto response = dictionary.find("response");
  if (response == dictionary.end() || !response->is_object()) return std::nullopt;
  const auto data = response->find("data");
  const auto code = response->find("code");
  if (data == response->end() || !data->is_string()) return std::nullopt;
  Answer answer;
  answer.data = data->get<std::string>();
  if (code != response->end() && code->is_number_integer()) answer.status = code->get<int>();
  return answer;
}

std::string prettyJson(const std::string& text) {
  const auto parsed = nlohmann::json::parse(text, nullptr, false);
  if (parsed.is_discarded()) return text;
  return parsed.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace tavik::cli
