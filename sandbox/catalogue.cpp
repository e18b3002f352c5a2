// The catalogue: what the sandbox's ad services answer.
//
// Shape of the catalogue JSON (sandbox/assets/catalogue.json is the built-in one; every
// section is optional, a missing one answers nothing):
//
//   {
//     "display": {
//       "ad_units":   { "<ad unit>": [ad, ...], ... },     // served as they stand
//       "page_types": { "<page type>": ["<ad unit>", ...], ... }   // for /v2/bsda/pt
//     },
//     "products": [ product, ... ],                         // product-listing ads
//     "product_pages": { "<page type>": ["<sku_id>", ...], ... }   // for /sda, /sda/v1
//   }
//
// Display ads are copied into the answer untouched, so a catalogue may hold deliberately
// malformed ads to exercise the SDK's decoding failures. Any string may contain the
// placeholder "{{base}}", which becomes the sandbox's base address ("https://127.0.0.1:PORT")
// when the sandbox starts, so media and tracking addresses point back at the sandbox.
//
// A product-listing answer (/sda and /sda/v1) is one JSON object:
//
//   {
//     "status": "ok",
//     "page_type": "SEARCH",            // as asked ("" when absent)
//     "pcnt": 3,                        // the count asked for, null when absent or not a number
//     "client_id": "...", "cli_ubid": "...",   // echoed when sent
//     "sku_ids": [...], "keywords": [...], "categories": [...],   // the list items received
//                                       // ("sku_ids[]", "keywords[]", "categories[]")
//     "params": { every query item; a repeated name holds an array },
//     "products": [                     // the page type's products, at most "pcnt"
//       { "sku_id": "SKU-1001", "name": "...", "brand": "...", "price": 89.99,
//         "currency": "EUR", "categories": [...], "image_url": "https://127.0.0.1:PORT/media/...",
//         "destination_url": "...", "rank": 1,                 // position in this answer
//         "uclid": "pla-search-sku-1001",                      // unless the product has one
//         "click_tracking_url": "https://127.0.0.1:PORT/aclick?uclid=...",
//         "impression_tracking_url":
//         "https://127.0.0.1:PORT/events?event_name=funnel_impression&uclid=..." }
//     ]
//   }

#include <cctype>
#include <charconv>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>

#include "sandbox_internal.h"

namespace tavik::sandbox::detail {

namespace {

using nlohmann::json;

[[noreturn]] void badCatalogue(const std::string& source, const std::string& what) {
  throw std::runtime_error("tavik-sandbox: catalogue " + source + ": " + what);
}

void requireStringArrays(const json& object, const std::string& where, const std::string& source) {
  if (!object.is_object()) badCatalogue(source, "\"" + where + "\" must be an object");
  for (const auto& [key, list] : object.items()) {
    if (!list.is_array()) badCatalogue(source, "\"" + where + "." + key + "\" must be an array");
    for (const auto& item : list) {
      if (!item.is_string()) {
        badCatalogue(source, "\"" + where + "." + key + "\" must hold strings only");
      }
    }
  }
}

void validate(const json& catalogue, const std::string& source) {
  if (!catalogue.is_object()) badCatalogue(source, "the top level must be a JSON object");
  if (catalogue.contains("display")) {
    const json& display = catalogue["display"];
    if (!display.is_object()) badCatalogue(source, "\"display\" must be an object");
    if (display.contains("ad_units")) {
      const json& units = display["ad_units"];
      if (!units.is_object()) badCatalogue(source, "\"display.ad_units\" must be an object");
      for (const auto& [unit, ads] : units.items()) {
        if (!ads.is_array()) {
          badCatalogue(source, "\"display.ad_units." + unit + "\" must be an array of ads");
        }
      }
    }
    if (display.contains("page_types")) {
      requireStringArrays(display["page_types"], "display.page_types", source);
    }
  }
  std::set<std::string> skus;
  if (catalogue.contains("products")) {
    const json& products = catalogue["products"];
    if (!products.is_array()) badCatalogue(source, "\"products\" must be an array");
    for (const auto& product : products) {
      if (!product.is_object() || !product.contains("sku_id") || !product["sku_id"].is_string()) {
        badCatalogue(source, "every product must be an object with a string \"sku_id\"");
      }
      skus.insert(product["sku_id"].get<std::string>());
    }
  }
  if (catalogue.contains("product_pages")) {
    requireStringArrays(catalogue["product_pages"], "product_pages", source);
    for (const auto& [page, list] : catalogue["product_pages"].items()) {
      for (const auto& sku : list) {
        if (!skus.count(sku.get<std::string>())) {
          badCatalogue(source, "\"product_pages." + page + "\" names the unknown product \"" +
                                   sku.get<std::string>() + "\"");
        }
      }
    }
  }
}

/// A count parameter: the number when the whole text is a decimal integer (negative
/// counts give 0), nullopt when absent or not a number.
std::optional<std::size_t> countParameter(const RecordedRequest& request, std::string_view key) {
  const auto text = request.value(key);
  if (!text || text->empty()) return std::nullopt;
  long long number = 0;
  const char* begin = text->data();
  const char* end = begin + text->size();
  const auto [rest, error] = std::from_chars(begin, end, number);
  if (error != std::errc() || rest != end) return std::nullopt;
  return number < 0 ? 0 : static_cast<std::size_t>(number);
}

std::string encodeQueryValue(std::string_view value) {
  static const char* hex = "0123456789ABCDEF";
  std::string out;
  for (const unsigned char c : value) {
    if (std::isalnum(c) || c == '-' || c == '_' || c == '.' || c == '~') {
      out.push_back(static_cast<char>(c));
    } else {
      out.push_back('%');
      out.push_back(hex[c >> 4]);
      out.push_back(hex[c & 15]);
    }
  }
  return out;
}

std::string lower(std::string text) {
  for (auto& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

const json* member(const json& object, std::initializer_list<const char*> path) {
  const json* at = &object;
  for (const char* key : path) {
    if (!at->is_object()) return nullptr;
    auto found = at->find(key);
    if (found == at->end()) return nullptr;
    at = &*found;
  }
  return at;
}

}  // namespace

json loadCatalogue(const std::string& path) {
  std::string text;
  std::string source = path;
  if (path.empty()) {
    source = "(built-in)";
    const auto embedded = embeddedAsset("catalogue.json");
    if (!embedded) badCatalogue(source, "missing from the build");
    text.assign(*embedded);
  } else {
    std::ifstream in(path, std::ios::binary);
    if (!in) badCatalogue(source, "cannot be opened");
    std::ostringstream buffer;
    buffer << in.rdbuf();
    text = buffer.str();
  }
  json catalogue = json::parse(text, nullptr, false);
  if (catalogue.is_discarded()) badCatalogue(source, "is not valid JSON");
  validate(catalogue, source);
  return catalogue;
}

json substituteBase(const json& value, const std::string& baseUrl) {
  static const std::string placeholder = "{{base}}";
  if (value.is_string()) {
    std::string text = value.get<std::string>();
    for (std::size_t at = text.find(placeholder); at != std::string::npos;
         at = text.find(placeholder, at + baseUrl.size())) {
      text.replace(at, placeholder.size(), baseUrl);
    }
    return text;
  }
  if (value.is_array()) {
    json out = json::array();
    for (const auto& item : value) out.push_back(substituteBase(item, baseUrl));
    return out;
  }
  if (value.is_object()) {
    json out = json::object();
    for (const auto& [key, item] : value.items()) out[key] = substituteBase(item, baseUrl);
    return out;
  }
  return value;
}

json productAdsAnswer(const json& catalogue, const RecordedRequest& request,
                      const std::string& baseUrl) {
  const std::string pageType = request.value("page_type").value_or("");
  const auto limit = countParameter(request, "pcnt");

  json answer = {{"status", "ok"}, {"page_type", pageType}};
  answer["pcnt"] = limit ? json(*limit) : json(nullptr);
  for (const char* key : {"client_id", "cli_ubid"}) {
    if (auto value = request.value(key)) answer[key] = *value;
  }
  answer["sku_ids"] = request.values("sku_ids[]");
  answer["keywords"] = request.values("keywords[]");
  answer["categories"] = request.values("categories[]");
  answer["params"] = queryObject(request.query);

  json products = json::array();
  const json* page = member(catalogue, {"product_pages", pageType.c_str()});
  const json* all = member(catalogue, {"products"});
  if (page != nullptr && all != nullptr) {
    for (const auto& sku : *page) {
      if (limit && products.size() >= *limit) break;
      for (const auto& product : *all) {
        if (product["sku_id"] != sku) continue;
        json item = product;
        item["rank"] = products.size() + 1;
        if (!item.contains("uclid")) {
          item["uclid"] = "pla-" + lower(pageType) + "-" + lower(sku.get<std::string>());
        }
        const std::string uclid = encodeQueryValue(
            item["uclid"].is_string() ? item["uclid"].get<std::string>() : item["uclid"].dump());
        if (!item.contains("click_tracking_url")) {
          item["click_tracking_url"] = baseUrl + "/aclick?uclid=" + uclid;
        }
        if (!item.contains("impression_tracking_url")) {
          item["impression_tracking_url"] =
              baseUrl + "/events?event_name=funnel_impression&uclid=" + uclid;
        }
        products.push_back(std::move(item));
        break;
      }
    }
  }
  answer["products"] = std::move(products);
  return answer;
}

json displayAdsAnswer(const json& catalogue, const RecordedRequest& request, bool byPageType) {
  std::vector<std::string> wanted;
  if (byPageType) {
    const std::string pageType = request.value("pt").value_or("");
    if (const json* units = member(catalogue, {"display", "page_types", pageType.c_str()})) {
      for (const auto& unit : *units) wanted.push_back(unit.get<std::string>());
    }
  } else {
    wanted = request.values("au[]");
    for (auto& unit : request.values("au")) wanted.push_back(std::move(unit));
  }
  const auto limit = countParameter(request, "pcnt_au");

  json ads = json::object();
  const json* known = member(catalogue, {"display", "ad_units"});
  for (const auto& unit : wanted) {
    if (known == nullptr || ads.contains(unit)) continue;
    auto found = known->find(unit);
    if (found == known->end()) continue;
    json list = json::array();
    for (const auto& ad : *found) {
      if (limit && list.size() >= *limit) break;
      list.push_back(ad);
    }
    ads[unit] = std::move(list);
  }
  return {{"ads", std::move(ads)}};
}

}  // namespace tavik::sandbox::detail
