#include "tavik/ads/targeting.h"

#include "ads/dictionary_entries.h"

namespace tavik {

using detail::appendAll;
using detail::putIfNotEmpty;
using detail::putIfPresent;

namespace {

std::string describeGroup(const char* name, const Parameters& dictionary) {
  return std::string(name) + "(" + dictionary.description() + ")";
}

}  // namespace

TargetingParams::~TargetingParams() = default;

std::string TargetingParams::description() const {
  return toDictionary().description();
}

// Platform

PlatformTargeting& PlatformTargeting::device(std::string value) {
  device_ = std::move(value);
  return *this;
}

Parameters PlatformTargeting::toDictionary() const {
  Parameters dictionary;
  putIfPresent(dictionary, "f.device", device_);
  return dictionary;
}

std::string PlatformTargeting::description() const {
  return describeGroup("PlatformTargeting", toDictionary());
}

// Context

ContextTargeting& ContextTargeting::keyword(std::string value) {
  keyword_ = std::move(value);
  return *this;
}

Parameters ContextTargeting::toDictionary() const {
  Parameters dictionary;
  putIfPresent(dictionary, "f.keyword", keyword_);
  return dictionary;
}

std::string ContextTargeting::description() const {
  return describeGroup("ContextTargeting", toDictionary());
}

// Merchandise

MerchandiseTargeting& MerchandiseTargeting::skuId(std::string value) {
  skuId_ = std::move(value);
  return *this;
}

MerchandiseTargeting& MerchandiseTargeting::categoryId(std::string value) {
  categoryId_ = std::move(value);
  return *this;
}

MerchandiseTargeting& MerchandiseTargeting::brands(const StringList& values) {
  appendAll(brands_, values);
  return *this;
}

MerchandiseTargeting& MerchandiseTargeting::categoryL1(std::string value) {
  categoryL1_ = std::move(value);
  return *this;
}

MerchandiseTargeting& MerchandiseTargeting::categoryL2(std::string value) {
  categoryL2_ = std::move(value);
  return *this;
}

MerchandiseTargeting& MerchandiseTargeting::categoryL3(std::string value) {
  categoryL3_ = std::move(value);
  return *this;
}

MerchandiseTargeting& MerchandiseTargeting::udps(const StringList& values) {
  appendAll(udps_, values);
  return *this;
}

Parameters MerchandiseTargeting::toDictionary() const {
  Parameters dictionary;
  putIfPresent(dictionary, "f.sku_id", skuId_);
  putIfPresent(dictionary, "f.category_id", categoryId_);
  putIfNotEmpty(dictionary, "f.brand", brands_);
  putIfPresent(dictionary, "f.category_l1", categoryL1_);
  putIfPresent(dictionary, "f.category_l2", categoryL2_);
  putIfPresent(dictionary, "f.category_l3", categoryL3_);
  putIfNotEmpty(dictionary, "f.udp", udps_);
  return dictionary;
}

std::string MerchandiseTargeting::description() const {
  return describeGroup("MerchandiseTargeting", toDictionary());
}

// Geography

GeoTargeting& GeoTargeting::storeIds(const StringList& values) {
  appendAll(storeIds_, values);
  return *this;
}

GeoTargeting& GeoTargeting::networks(const StringList& values) {
  appendAll(networks_, values);
  return *this;
}

GeoTargeting& GeoTargeting::city(std::string value) {
  city_ = std::move(value);
  return *this;
}

GeoTargeting& GeoTargeting::state(std::string value) {
  state_ = std::move(value);
  return *this;
}

GeoTargeting& GeoTargeting::country(std::string value) {
  country_ = std::move(value);
  return *this;
}

Parameters GeoTargeting::toDictionary() const {
  Parameters dictionary;
  putIfNotEmpty(dictionary, "f.store_id", storeIds_);
  putIfNotEmpty(dictionary, "f.network", networks_);
  putIfPresent(dictionary, "f.city", city_);
  putIfPresent(dictionary, "f.state", state_);
  putIfPresent(dictionary, "f.country", country_);
  return dictionary;
}

std::string GeoTargeting::description() const {
  return describeGroup("GeoTargeting", toDictionary());
}

// Custom labels

CustomLabelTargeting& CustomLabelTargeting::customLabels1(const StringList& values) {
  appendAll(customLabels1_, values);
  return *this;
}

CustomLabelTargeting& CustomLabelTargeting::customLabels2(const StringList& values) {
  appendAll(customLabels2_, values);
  return *this;
}

CustomLabelTargeting& CustomLabelTargeting::customLabels3(const StringList& values) {
  appendAll(customLabels3_, values);
  return *this;
}

CustomLabelTargeting& CustomLabelTargeting::customLabels4(const StringList& values) {
  appendAll(customLabels4_, values);
  return *this;
}

CustomLabelTargeting& CustomLabelTargeting::customLabels5(const StringList& values) {
  appendAll(customLabels5_, values);
  return *this;
}

CustomLabelTargeting& CustomLabelTargeting::customLabels6(const StringList& values) {
  appendAll(customLabels6_, values);
  return *this;
}

CustomLabelTargeting& CustomLabelTargeting::customLabels7(const StringList& values) {
  appendAll(customLabels7_, values);
  return *this;
}

CustomLabelTargeting& CustomLabelTargeting::customLabels8(const StringList& values) {
  appendAll(customLabels8_, values);
  return *this;
}

Parameters CustomLabelTargeting::toDictionary() const {
  Parameters dictionary;
  putIfNotEmpty(dictionary, "f.custom_label_1", customLabels1_);
  putIfNotEmpty(dictionary, "f.custom_label_2", customLabels2_);
  putIfNotEmpty(dictionary, "f.custom_label_3", customLabels3_);
  putIfNotEmpty(dictionary, "f.custom_label_4", customLabels4_);
  putIfNotEmpty(dictionary, "f.custom_label_5", customLabels5_);
  putIfNotEmpty(dictionary, "f.custom_label_6", customLabels6_);
  putIfNotEmpty(dictionary, "f.custom_label_7", customLabels7_);
  putIfNotEmpty(dictionary, "f.custom_label_8", customLabels8_);
  return dictionary;
}

std::string CustomLabelTargeting::description() const {
  return describeGroup("CustomLabelTargeting", toDictionary());
}

// Builder

TargetingParamsBuilder& TargetingParamsBuilder::add(std::shared_ptr<TargetingParams> params) {
  targetingParams.push_back(std::move(params));
  return *this;
}

Parameters TargetingParamsBuilder::build() const {
  Parameters merged;
  for (const auto& group : targetingParams) {
    if (group) merged.merge(group->toDictionary());
  }
  return merged;
}

}  // namespace tavik
