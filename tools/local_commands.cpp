// validate: an ads document checked with the SDK's decoders. sandbox: the local HTTPS
// stand-in for the three services, in the foreground. sandbox-log: its event log.

#include <cctype>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

#include "ad_table.h"
#include "commands.h"
#include "session.h"
#include "tavik/ads/ad_models.h"
#include "tavik/events/event_store.h"
#include "tavik/network/web_service.h"
#include "tavik/sandbox/sandbox.h"

namespace tavik::cli {

namespace {

using nlohmann::json;

// A banner document unless some ad's "crt" names the carousel template. Text that does
// not parse is left to the decoder, which says where it breaks.
std::string guessKind(const std::string& text) {
  const auto document = json::parse(text, nullptr, false);
  if (!document.is_object()) return "banner";
  const auto ads = document.find("ads");
  if (ads == document.end() || !ads->is_object()) return "banner";
  for (const auto& [unit, list] : ads->items()) {
    if (!list.is_array()) continue;
    for (const auto& ad : list) {
      if (!ad.is_object()) continue;
      const auto crt = ad.find("crt");
      if (crt != ad.end() && crt->is_string() && isCarouselCreative(crt->get<std::string>())) {
        return "carousel";
      }
    }
  }
  return "banner";
}

struct Counts {
  std::size_t units = 0;
  std::size_t ads = 0;
};

template <class Document>
Counts addAll(AdTable& table, const Document& document) {
  Counts counts{document.ads.size(), 0};
  for (const auto& [unit, ads] : document.ads) {
    for (const auto& ad : ads) table.add(ad);
    counts.ads += ads.size();
  }
  return counts;
}

std::string plural(std::size_t count, const char* noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

// Keys every tracking request carries; the log table leaves them out.
bool isCommonEventKey(const std::string& key) {
  return key == "cli_ubid" || key == "client_id" || key == "event_name" || key == "event_time" ||
         key == "os_name" || key == "os_version";
}

void printEventLog(const json& log) {
  AdTable::Rows rows = {{"SEQ", "PATH", "EVENT", "PARAMETERS"}};
  for (const auto& entry : log) {
    if (!entry.is_object()) continue;
    const auto text = [&](const char* key) {
      const auto found = entry.find(key);
      if (found == entry.end() || found->is_null()) return std::string("-");
      return printable(found->is_string() ? found->get<std::string>() : found->dump());
    };
    std::string details;
    if (const auto params = entry.find("params"); params != entry.end() && params->is_object()) {
      for (const auto& [key, value] : params->items()) {
        if (isCommonEventKey(key)) continue;
        if (!details.empty()) details += " ";
        details += printable(key) + "=" +
                   printable(value.is_string() ? value.get<std::string>() : value.dump());
      }
    }
    rows.push_back({text("seq"), text("path"), text("event_name"), details});
  }
  AdTable::printRows(std::cout, rows);
}

// The decoded items of a query string, in order.
std::vector<std::pair<std::string, std::string>> queryItems(std::string_view query) {
  const auto decode = [](std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
      if (text[i] == '%' && i + 2 < text.size() &&
          std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
          std::isxdigit(static_cast<unsigned char>(text[i + 2]))) {
        out += static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16));
        i += 2;
      } else {
        out += text[i];
      }
    }
    return out;
  };
  std::vector<std::pair<std::string, std::string>> items;
  while (!query.empty()) {
    const auto amp = query.find('&');
    const auto item = query.substr(0, amp);
    const auto eq = item.find('=');
    items.emplace_back(decode(item.substr(0, eq)),
                       eq == std::string_view::npos ? "" : decode(item.substr(eq + 1)));
    query = amp == std::string_view::npos ? std::string_view() : query.substr(amp + 1);
  }
  return items;
}

std::optional<std::string> readInput(const std::string& name) {
  std::ostringstream text;
  if (name == "-") {
    text << std::cin.rdbuf();
    if (std::cin.bad()) return std::nullopt;
    return text.str();
  }
  std::ifstream file(name, std::ios::binary);
  if (!file) return std::nullopt;
  text << file.rdbuf();
  return text.str();
}

}  // namespace

const OptionList& validateOptions() {
  static const OptionList options = {
      {"--kind", "KIND", "banner, carousel or multi (default: guessed from the ads' crt)"},
  };
  return options;
}

const OptionList& sandboxLogOptions() {
  static const OptionList options = {
      {"--json", "", "print the whole log as JSON instead of a table"},
  };
  return options;
}

const OptionList& storeOptions() {
  static const OptionList options = {
      {"--store", "FILE", "the event store's database file (Builder::eventStore)"},
      {"--json", "", "print the events as JSON instead of a table"},
  };
  return options;
}

const OptionList& sandboxOptions() {
  static const OptionList options = {
      {"--port", "N", "port to listen on (default 0: any free port)"},
      {"--cert-out", "FILE", "write the certificate that clients must trust to FILE"},
      {"--catalogue", "FILE", "serve this JSON catalogue instead of the built-in one"},
      {"--quiet", "", "print only the address, not every request"},
  };
  return options;
}

int runValidate(const Arguments& args) {
  if (args.positionals().empty()) throw UsageError("which document? give a FILE, or - for stdin");
  const std::string& name = args.positionals().front();
  std::string kind;
  if (auto given = args.value("--kind")) {
    if (*given != "banner" && *given != "carousel" && *given != "multi") {
      throw UsageError("--kind needs banner, carousel or multi, not '" + *given + "'");
    }
    kind = *given;
  }

  const auto text = readInput(name);
  if (!text) {
    std::cerr << "error: cannot read '" << name << "'\n";
    return kExitFailure;
  }
  const bool guessed = kind.empty();
  if (guessed) kind = guessKind(*text);

  AdTable table;
  Counts counts;
  try {
    if (kind == "carousel") {
      counts = addAll(table, decodeCarouselAds(*text));
    } else if (kind == "multi") {
      counts = addAll(table, decodeMultiAdsCarousel(*text));
    } else {
      counts = addAll(table, decodeAds(*text));
    }
  } catch (const DecodingError& error) {
    // The message names the offending key's path ("... at ads.au_home[1].rank").
    std::cerr << "error: not a valid " << kind << " document" << (guessed ? " (guessed)" : "")
              << ": " << error.what() << "\n";
    return kExitFailure;
  }
  std::cout << "valid " << kind << " document" << (guessed ? " (guessed)" : "") << ": "
            << plural(counts.units, "ad unit") << ", " << plural(counts.ads, "ad") << "\n";
  if (table.rows() > 0) table.print(std::cout);
  return kExitOk;
}

int runSandbox(const Arguments& args) {
  sandbox::Options options;
  options.port = static_cast<int>(args.integer("--port", 0, 0, 65535));
  options.certOut = args.valueOr("--cert-out", "");
  options.catalogueFile = args.valueOr("--catalogue", "");

  std::function<std::string(const sandbox::RecordedRequest&)> line;
  if (!args.has("--quiet")) {
    line = [](const sandbox::RecordedRequest& request) {
      return request.method + " " + printable(request.path) +
             (request.rawQuery.empty() ? "" : "?") + printable(request.rawQuery);
    };
  }
  const int status = sandbox::runInForeground(
      options, line,
      [](const sandbox::Sandbox& server) {
        std::cerr << "tavik: sandbox running; clients must trust " << server.certPath() << "\n"
                  << "  try: tavik pla --page HOME --sandbox " << server.baseUrl()
                  << " --ca-bundle " << server.certPath() << "\n"
                  << "  stop it with Ctrl-C\n";
      },
      "error: the sandbox did not start: ");
  return status == 0 ? kExitOk : kExitFailure;
}

int runSandboxLog(const Arguments& args) {
  Session session(connectionFrom(args, {Service::eventTracking}));
  const auto url =
      Url::parse("https://" + *session.connection().eventTrackingHost + "/__sandbox/events");
  if (!url) throw UsageError("not a usable sandbox address");
  try {
    const json answer = WebService(true).request(*url, HTTPMethod::get, std::nullopt).get();
    const auto unwrapped = unwrapAnswer(answer);
    if (!unwrapped) {
      std::cerr << "error: not a response dictionary: " << answer.dump() << "\n";
      return kExitFailure;
    }
    if (args.has("--json")) {
      std::cout << prettyJson(unwrapped->data) << "\n";
      return kExitOk;
    }
    const auto log = json::parse(unwrapped->data, nullptr, false);
    if (!log.is_array()) {
      std::cerr << "error: not an event log: " << unwrapped->data << "\n";
      return kExitFailure;
    }
    printEventLog(log);
    return kExitOk;
  } catch (...) {
    printError(TavikError::fromException(std::current_exception()));
    return kExitFailure;
  }
}

int runStore(const Arguments& args) {
  const auto path = args.value("--store");
  if (!path) throw UsageError("which store? give --store FILE");
  std::vector<StoredEvent> stored;
  try {
    stored = events::readStore(*path);
  } catch (const std::exception& e) {
    std::cerr << "error: " << e.what() << "\n";
    return kExitFailure;
  }
  if (args.has("--json")) {
    json list = json::array();
    for (const auto& event : stored) {
      list.push_back({{"id", event.id},
                      {"event_time", event.eventTime},
                      {"stored_at", event.storedAt},
                      {"url", event.url}});
    }
    std::cout << list.dump(2) << "\n";
    return kExitOk;
  }
  AdTable::Rows rows = {{"ID", "EVENT_TIME", "PATH", "EVENT", "CLI_UBID", "PARAMETERS"}};
  for (const auto& event : stored) {
    const auto url = Url::parse(event.url);
    std::string name = "-", user = "-", details;
    for (const auto& [key, value] : queryItems(url ? url->query() : "")) {
      if (key == "event_name") name = printable(value);
      if (key == "cli_ubid") user = printable(value);
      if (isCommonEventKey(key)) continue;
      if (!details.empty()) details += " ";
      details += printable(key) + "=" + printable(value);
    }
    // The path: from the first '/' after the authority up to the query.
    const auto authority = event.url.find("://");
    const auto slash = event.url.find('/', authority == std::string::npos ? 0 : authority + 3);
    const std::string path = slash == std::string::npos
                                 ? "/"
                                 : event.url.substr(slash, event.url.find('?', slash) - slash);
    rows.push_back({std::to_string(event.id), std::to_string(event.eventTime), printable(path),
                    name, user, details});
  }
  AdTable::printRows(std::cout, rows);
  std::cout << plural(stored.size(), "event") << " pending\n";
  return kExitOk;
}

}  // namespace tavik::cli
