#pragma once

#include <optional>
#include <string>

#include "tavik/core/value.h"

namespace tavik {

/// Narrows a product-listing-ad request. A host builds one with chained setters and may
/// share it (through a std::shared_ptr) with the ad fetcher, which appends to it in
/// place. Single-value setters replace; list setters append, keeping duplicates.
/// Fields can only be read back through `toDictionary()`.
class ProductAdsFilter {
 public:
  ProductAdsFilter() = default;

  ProductAdsFilter& categoryId(std::string value);
  ProductAdsFilter& categories(const StringList& values);
  ProductAdsFilter& mcategoryIds(const StringList& values);
  ProductAdsFilter& skuIds(const StringList& values);
  ProductAdsFilter& minPrice(std::string value);
  ProductAdsFilter& maxPrice(std::string value);
  ProductAdsFilter& colors(const StringList& values);
  ProductAdsFilter& sizes(const StringList& values);
  ProductAdsFilter& customLabels1(const StringList& values);
  ProductAdsFilter& customLabels2(const StringList& values);
  ProductAdsFilter& customLabels3(const StringList& values);
  ProductAdsFilter& customLabels4(const StringList& values);
  ProductAdsFilter& customLabels5(const StringList& values);
  ProductAdsFilter& customLabels6(const StringList& values);
  ProductAdsFilter& customLabels7(const StringList& values);
  ProductAdsFilter& customLabels8(const StringList& values);
  ProductAdsFilter& rtlCustomLabels0(const StringList& values);
  ProductAdsFilter& brands(const StringList& values);
  ProductAdsFilter& brandIds(const StringList& values);
  ProductAdsFilter& storeIds(const StringList& values);
  ProductAdsFilter& networks(const StringList& values);
  ProductAdsFilter& udps(const StringList& values);
  ProductAdsFilter& device(std::string value);

  /// One entry per field with content, under its wire key ("category_id", "sku_ids",
  /// "store_id", "network", "udp", ...). Lists stay lists; prices stay strings.
  Parameters toDictionary() const;

  /// `ProductAdsFilter(["key": value, ...])`, for debug lines.
  std::string description() const;

 private:
  std::optional<std::string> categoryId_;
  StringList categories_;
  StringList mcategoryIds_;
  StringList skuIds_;
  std::optional<std::string> minPrice_;
  std::optional<std::string> maxPrice_;
  StringList colors_;
  StringList sizes_;
  StringList customLabels1_;
  StringList customLabels2_;
  StringList customLabels3_;
  StringList customLabels4_;
  StringList customLabels5_;
  StringList customLabels6_;
  StringList customLabels7_;
  StringList customLabels8_;
  StringList rtlCustomLabels0_;
  StringList brands_;
  StringList brandIds_;
  StringList storeIds_;
  StringList networks_;
  StringList udps_;
  std::optional<std::string> device_;
};

}  // namespace tavik
