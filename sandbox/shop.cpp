// The shop's own catalogue: GET /shop/products, what a store's product search answers.
// It is not one of the ad services: the sample shop uses it for its ordinary
// (non-sponsored) results and its product pages, and nothing the SDK sends goes there.
//
//   GET /shop/products?q=TEXT&brand=B&brand=C&min_price=10&max_price=100
//
// Every item is optional. "q" matches, case-insensitively, a part of the name, the brand
// or a category; a repeated "brand" keeps products of any of those brands; the prices
// bound the range inclusively (a price that is not a number is ignored). The answer is
// {"products": [product, ...]} in catalogue order, each product as the catalogue holds
// it (with the sandbox's address in its image_url).

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "sandbox_internal.h"

namespace tavik::sandbox::detail {

namespace {

using nlohmann::json;

std::string folded(std::string text) {
  for (auto& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

bool containsText(const json& value, const std::string& needle) {
  return value.is_string() && folded(value.get<std::string>()).find(needle) != std::string::npos;
}

bool matchesQuery(const json& product, const std::string& query) {
  if (query.empty()) return true;
  if (containsText(product.value("name", json()), query)) return true;
  if (containsText(product.value("brand", json()), query)) return true;
  const json categories = product.value("categories", json::array());
  return std::any_of(categories.begin(), categories.end(),
                     [&](const json& category) { return containsText(category, query); });
}

std::optional<double> priceParameter(const RecordedRequest& request, std::string_view key) {
  const auto text = request.value(key);
  if (!text || text->empty()) return std::nullopt;
  char* end = nullptr;
  const double number = std::strtod(text->c_str(), &end);
  if (end != text->c_str() + text->size()) return std::nullopt;
  return number;
}

}  // namespace

json shopProductsAnswer(const json& catalogue, const RecordedRequest& request) {
  const std::string query = folded(request.value("q").value_or(""));
  std::vector<std::string> brands = request.values("brand");
  for (auto& brand : brands) brand = folded(brand);
  const auto minPrice = priceParameter(request, "min_price");
  const auto maxPrice = priceParameter(request, "max_price");

  json products = json::array();
  if (!catalogue.is_object() || !catalogue.contains("products")) return {{"products", products}};
  for (const auto& product : catalogue["products"]) {
    if (!matchesQuery(product, query)) continue;
    if (!brands.empty()) {
      const json brand = product.value("brand", json());
      if (!brand.is_string() || std::find(brands.begin(), brands.end(),
                                          folded(brand.get<std::string>())) == brands.end()) {
        continue;
      }
    }
    const json price = product.value("price", json());
    if ((minPrice || maxPrice) && !price.is_number()) continue;
    if (minPrice && price.get<double>() < *minPrice) continue;
    if (maxPrice && price.get<double>() > *maxPrice) continue;
    products.push_back(product);
  }
  return {{"products", std::move(products)}};
}

}  // namespace tavik::sandbox::detail
