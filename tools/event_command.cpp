// event: sends one tracking event through the SDK's registrar and shows the request as it
// went on the wire (taken from the SDK's own debug lines) and the service's answer.

#include <algorithm>
#include <iostream>
#include <limits>

#include "ad_table.h"
#include "commands.h"
#include "session.h"
#include "tavik/events/register_event.h"

namespace tavik::cli {

namespace {

struct EventKind {
  std::string_view name;
  std::vector<std::string_view> required;
  std::vector<std::string_view> optional;
};

const std::vector<EventKind>& eventKinds() {
  static const std::vector<EventKind> kinds = {
      {"impression", {"--uclid"}, {"--position"}},
      {"click", {"--uclid"}, {}},
      {"view-product", {"--sku"}, {"--price", "--merchant"}},
      {"add-to-cart", {"--sku"}, {"--price", "--merchant"}},
      {"purchase", {"--sales", "--order"}, {"--product"}},
      {"video-progress", {"--uclid", "--view-sec", "--duration-sec"}, {}},
      {"video-action", {"--uclid", "--view-sec", "--action"}, {}},
  };
  return kinds;
}

std::string kindNames() {
  std::string names;
  for (const auto& kind : eventKinds())
    names += (names.empty() ? "" : ", ") + std::string(kind.name);
  return names;
}

// Every event option must belong to the chosen kind, and the kind's required ones must be
// there; --param goes with all of them.
void checkOptions(const EventKind& kind, const Arguments& args) {
  const auto belongs = [&](std::string_view option) {
    return std::ranges::find(kind.required, option) != kind.required.end() ||
           std::ranges::find(kind.optional, option) != kind.optional.end();
  };
  for (const auto& option : eventOptions()) {
    if (option.name != "--param" && args.has(option.name) && !belongs(option.name)) {
      throw UsageError(std::string(option.name) + " does not apply to 'event " +
                       std::string(kind.name) + "'");
    }
  }
  for (const auto option : kind.required) {
    if (!args.has(option)) {
      throw UsageError("'event " + std::string(kind.name) + "' needs " + std::string(option));
    }
  }
}

// "SKU:PRICE:QUANTITY[:MERCHANT]"; the merchant may itself hold ':'.
Product parseProduct(const std::string& text) {
  std::vector<std::string> fields;
  std::size_t start = 0;
  while (fields.size() < 3) {
    const auto colon = text.find(':', start);
    if (colon == std::string::npos) break;
    fields.push_back(text.substr(start, colon - start));
    start = colon + 1;
  }
  if (fields.size() < 2) {
    throw UsageError("--product needs SKU:PRICE:QUANTITY[:MERCHANT], not '" + text + "'");
  }
  std::optional<std::string> merchant;
  if (fields.size() == 3) {
    merchant = text.substr(start);
  } else {
    fields.push_back(text.substr(start));
  }
  if (fields[0].empty()) throw UsageError("--product needs a SKU in '" + text + "'");
  return Product(fields[0], parseNumber(fields[1], "--product price"),
                 parseInteger(fields[2], "--product quantity", 0, 1'000'000'000), merchant);
}

std::shared_ptr<TrackingParams> trackingParamsFrom(const Arguments& args) {
  const auto items = args.values("--param");
  if (items.empty()) return nullptr;
  auto params = std::make_shared<TrackingParams>();
  for (const auto& item : items) {
    const auto equals = item.find('=');
    if (equals == std::string::npos || equals == 0) {
      throw UsageError("--param needs KEY=VALUE, not '" + item + "'");
    }
    params->add(item.substr(0, equals), item.substr(equals + 1));
  }
  return params;
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string percentDecode(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && hexDigit(text[i + 1]) >= 0 &&
        hexDigit(text[i + 2]) >= 0) {
      out += static_cast<char>(hexDigit(text[i + 1]) * 16 + hexDigit(text[i + 2]));
      i += 2;
    } else {
      out += text[i];
    }
  }
  return out;
}

// The request line and its query items, decoded, one per line in wire order.
void printSent(const std::string& url) {
  const auto question = url.find('?');
  std::cout << "sent: GET " << url.substr(0, question) << "\n";
  if (question == std::string::npos) return;
  std::vector<std::pair<std::string, std::string>> items;
  std::size_t width = 0;
  std::string_view query = std::string_view(url).substr(question + 1);
  while (!query.empty()) {
    const auto amp = query.find('&');
    const auto item = query.substr(0, amp);
    const auto equals = item.find('=');
    items.emplace_back(printable(percentDecode(item.substr(0, equals))),
                       equals == std::string_view::npos
                           ? std::string()
                           : printable(percentDecode(item.substr(equals + 1))));
    width = std::max(width, items.back().first.size());
    query = amp == std::string_view::npos ? std::string_view() : query.substr(amp + 1);
  }
  for (const auto& [name, value] : items) {
    std::cout << "  " << name << std::string(width - name.size() + 2, ' ') << value << "\n";
  }
}

}  // namespace

const OptionList& eventOptions() {
  static const OptionList options = {
      {"--uclid", "UCLID", "the ad's uclid (impression, click, video-*)"},
      {"--position", "N", "position of the ad on screen (impression)"},
      {"--sku", "SKU", "product SKU (view-product, add-to-cart)"},
      {"--price", "PRICE", "product price (view-product, add-to-cart)"},
      {"--merchant", "ID", "merchant id (view-product, add-to-cart)"},
      {"--sales", "AMOUNT", "order total (purchase)"},
      {"--order", "ID", "order id (purchase)"},
      {"--product", "SKU:PRICE:QTY[:MERCHANT]", "purchased line (purchase)", true},
      {"--view-sec", "SECONDS", "seconds of video watched (video-*)"},
      {"--duration-sec", "SECONDS", "video length (video-progress)"},
      {"--action", "ACTION", "mute, unmute, pause, play, fullscreen or minimize (video-action)"},
      {"--param", "KEY=VALUE", "extra tracking parameter", true},
  };
  return options;
}

int runEvent(const Arguments& args) {
  if (args.positionals().empty()) throw UsageError("which event? one of " + kindNames());
  const std::string& name = args.positionals().front();
  const auto kind = std::ranges::find(eventKinds(), name, &EventKind::name);
  if (kind == eventKinds().end()) {
    throw UsageError("unknown event '" + name + "'; one of " + kindNames());
  }
  checkOptions(*kind, args);

  // Every value is checked before anything is sent.
  const std::string uclid = args.valueOr("--uclid", "");
  const std::string sku = args.valueOr("--sku", "");
  const auto position =
      args.has("--position")
          ? std::optional(args.integer("--position", 0, std::numeric_limits<std::int64_t>::min(),
                                       std::numeric_limits<std::int64_t>::max()))
          : std::nullopt;
  const auto price = args.number("--price");
  const auto merchant = args.value("--merchant");
  const auto sales = args.number("--sales");
  const auto viewSec = args.number("--view-sec");
  const auto durationSec = args.number("--duration-sec");
  std::vector<Product> products;
  for (const auto& line : args.values("--product")) products.push_back(parseProduct(line));
  std::optional<TavikVideoActionType> action;
  if (auto text = args.value("--action")) {
    action = fromString<TavikVideoActionType>(*text);
    if (!action) {
      throw UsageError("--action needs mute, unmute, pause, play, fullscreen or minimize, not '" +
                       *text + "'");
    }
  }
  const auto params = trackingParamsFrom(args);

  Session session(connectionFrom(args, {Service::eventTracking}));
  const auto registrar = session.sdk().registerEvent();
  const auto& cliUbid = session.connection().cliUbid;
  const auto onError = session.errorHandler();
  RegisterEventProtocol::Result result;
  if (name == "impression") {
    result = registrar->registerAdImpressionEvent(cliUbid, uclid, position, params, onError);
  } else if (name == "click") {
    result = registrar->registerAdClickEvent(cliUbid, uclid, params, onError);
  } else if (name == "view-product") {
    result = registrar->registerViewProductEvent(cliUbid, sku, price, merchant, params, onError);
  } else if (name == "add-to-cart") {
    result = registrar->registerAdd2CartEvent(cliUbid, sku, price, merchant, params, onError);
  } else if (name == "purchase") {
    result = registrar->registerPurchaseEvent(cliUbid, *sales, *args.value("--order"), products,
                                              params, onError);
  } else if (name == "video-progress") {
    result = registrar->registerVideoProgressEvent(cliUbid, uclid, *viewSec, *durationSec, params,
                                                   onError);
  } else {
    result =
        registrar->registerVideoActionEvent(cliUbid, uclid, *viewSec, *action, params, onError);
  }
  const auto answer = session.await(result);

  if (const auto url = session.lastRequestUrl()) printSent(*url);
  if (session.printErrors()) return kExitFailure;
  const auto unwrapped = answer ? unwrapAnswer(*answer) : std::nullopt;
  if (!unwrapped) {
    std::cerr << "error: the SDK returned no answer dictionary\n";
    return kExitFailure;
  }
  std::cout << "answer: HTTP " << unwrapped->status << "\n" << prettyJson(unwrapped->data) << "\n";
  return kExitOk;
}

}  // namespace tavik::cli
