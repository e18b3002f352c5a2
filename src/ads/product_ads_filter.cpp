#include "tavik/ads/product_ads_filter.h"

#include "ads/dictionary_entries.h"

namespace tavik {

using detail::appendAll;
using detail::putIfNotEmpty;
using detail::putIfPresent;

ProductAdsFilter& ProductAdsFilter::categoryId(std::string value) {
  categoryId_ = std::move(value);
  return *this;
}

ProductAdsFilter& ProductAdsFilter::categories(const StringList& values) {
  appendAll(categories_, values);
  return *this;
}

ProductAdsFilter& ProductAdsFilter::mcategoryIds(const StringList& values) {
  appendAll(mcategoryIds_, values);
  return *this;
}

ProductAdsFilter& ProductAdsFilter::skuIds(const StringList& values) {
  appendAll(skuIds_, values);
  return *this;
}

ProductAdsFilter& ProductAdsFilter::minPrice(std::string value) {
  minPrice_ = std::move(value);
  return *this;
}

ProductAdsFilter& ProductAdsFilter::maxPrice(std::string value) {
  maxPrice_ = std::move(value);
  return *this;
}

ProductAdsFilter& ProductAdsFilter::colors(const StringList& values) {
  appendAll(colors_, values);
  return *this;
}

ProductAdsFilter& ProductAdsFilter::sizes(const StringList& values) {
  appendAll(sizes_, values);
  return *this;
}

ProductAdsFilter& ProductAdsFilter::customLabels1(const StringList& values) {
  appendAll(customLabels1_, values);
  return *this;
}

ProductAdsFilter& ProductAdsFilter::customLabels2(const StringList& values) {
  appendAll(customLabels2_, values);
  return *this;
}

ProductAdsFilter& ProductAdsFilter::customLabels3(const StringList& values) {
  appendAll(customLabels3_, values);
  return *this;
}

ProductAdsFilter& ProductAdsFilter::customLabels4(const StringList& values) {
  appendAll(customLabels4_, values);
  return *this;
}

ProductAdsFilter& ProductAdsFilter::customLabels5(const StringList& values) {
  appendAll(customLabels5_, values);
  return *this;
}

ProductAdsFilter& ProductAdsFilter::customLabels6(const StringList& values) {
  appendAll(customLabels6_, values);
  return *this;
}

ProductAdsFilter& ProductAdsFilter::customLabels7(const StringList& values) {
  appendAll(customLabels7_, values);
  return *this;
}

ProductAdsFilter& ProductAdsFilter::customLabels8(const StringList& values) {
  appendAll(customLabels8_, values);
  return *this;
}

ProductAdsFilter& ProductAdsFilter::rtlCustomLabels0(const StringList& values) {
  appendAll(rtlCustomLabels0_, values);
  return *this;
}

ProductAdsFilter& ProductAdsFilter::brands(const StringList& values) {
  appendAll(brands_, values);
  return *this;
}

ProductAdsFilter& ProductAdsFilter::brandIds(const StringList& values) {
  appendAll(brandIds_, values);
  return *this;
}

ProductAdsFilter& ProductAdsFilter::storeIds(const StringList& values) {
  appendAll(storeIds_, values);
  return *this;
}

ProductAdsFilter& ProductAdsFilter::networks(const StringList& values) {
  appendAll(networks_, values);
  return *this;
}

ProductAdsFilter& ProductAdsFilter::udps(const StringList& values) {
  appendAll(udps_, values);
  return *this;
}

ProductAdsFilter& ProductAdsFilter::device(std::string value) {
  device_ = std::move(value);
  return *this;
}

Parameters ProductAdsFilter::toDictionary() const {
  Parameters dictionary;
  putIfPresent(dictionary, "category_id", categoryId_);
  putIfNotEmpty(dictionary, "categories", categories_);
  putIfNotEmpty(dictionary, "mcategory_ids", mcategoryIds_);
  putIfNotEmpty(dictionary, "sku_ids", skuIds_);
  putIfPresent(dictionary, "min_price", minPrice_);
  putIfPresent(dictionary, "max_price", maxPrice_);
  putIfNotEmpty(dictionary, "colors", colors_);
  putIfNotEmpty(dictionary, "sizes", sizes_);
  putIfNotEmpty(dictionary, "custom_label_1", customLabels1_);
  putIfNotEmpty(dictionary, "custom_label_2", customLabels2_);
  putIfNotEmpty(dictionary, "custom_label_3", customLabels3_);
  putIfNotEmpty(dictionary, "custom_label_4", customLabels4_);
  putIfNotEmpty(dictionary, "custom_label_5", customLabels5_);
  putIfNotEmpty(dictionary, "custom_label_6", customLabels6_);
  putIfNotEmpty(dictionary, "custom_label_7", customLabels7_);
  putIfNotEmpty(dictionary, "custom_label_8", customLabels8_);
  putIfNotEmpty(dictionary, "rtl_custom_label_0", rtlCustomLabels0_);
  putIfNotEmpty(dictionary, "brands", brands_);
  putIfNotEmpty(dictionary, "brand_ids", brandIds_);
  // Three plural fields go out under singular keys; the service expects exactly these.
  putIfNotEmpty(dictionary, "store_id", storeIds_);
  putIfNotEmpty(dictionary, "network", networks_);
  putIfNotEmpty(dictionary, "udp", udps_);
  putIfPresent(dictionary, "device", device_);
  return dictionary;
}

std::string ProductAdsFilter::description() const {
  return "ProductAdsFilter(" + toDictionary().description() + ")";
}

}  // namespace tavik
