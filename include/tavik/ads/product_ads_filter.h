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

  /// Sets "category_id".
  ProductAdsFilter& categoryId(std::string value);
  /// Appends to "categories".
  ProductAdsFilter& categories(const StringList& values);
  /// Appends to "mcategory_ids".
  ProductAdsFilter& mcategoryIds(const StringList& values);
  /// Appends to "sku_ids".
  ProductAdsFilter& skuIds(const StringList& values);
  /// Sets "min_price", kept as the caller's string.
  ProductAdsFilter& minPrice(std::string value);
  /// Sets "max_price", kept as the caller's string.
  ProductAdsFilter& maxPrice(std::string value);
  /// Appends to "colors".
  ProductAdsFilter& colors(const StringList& values);
  /// Appends to "sizes".
  ProductAdsFilter& sizes(const StringList& values);
  /// Appends to "custom_label_1".
  ProductAdsFilter& customLabels1(const StringList& values);
  /// Appends to "custom_label_2".
  ProductAdsFilter& customLabels2(const StringList& values);
  /// Appends to "custom_label_3".
  ProductAdsFilter& customLabels3(const StringList& values);
  /// Appends to "custom_label_4".
  ProductAdsFilter& customLabels4(const StringList& values);
  /// Appends to "custom_label_5".
  ProductAdsFilter& customLabels5(const StringList& values);
  /// Appends to "custom_label_6".
  ProductAdsFilter& customLabels6(const StringList& values);
  /// Appends to "custom_label_7".
  ProductAdsFilter& customLabels7(const StringList& values);
  /// Appends to "custom_label_8".
  ProductAdsFilter& customLabels8(const StringList& values);
  /// Appends to "rtl_custom_label_0".
  ProductAdsFilter& rtlCustomLabels0(const StringList& values);
  /// Appends to "brands".
  ProductAdsFilter& brands(const StringList& values);
  /// Appends to "brand_ids".
  ProductAdsFilter& brandIds(const StringList& values);
  /// Appends to "store_id".
  ProductAdsFilter& storeIds(const StringList& values);
  /// Appends to "network".
  ProductAdsFilter& networks(const StringList& values);
  /// Appends to "udp".
  ProductAdsFilter& udps(const StringList& values);
  /// Sets "device".
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
