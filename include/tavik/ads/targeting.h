#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tavik/core/value.h"

namespace tavik {

/// One group of display-ad targeting: turns itself into "f."-prefixed keys whose values
/// are strings or lists of strings. Hosts may implement their own groups.
class TargetingParams {
 public:
  virtual ~TargetingParams();
  /// This group's "f."-prefixed keys and their values; empty when nothing is set.
  virtual Parameters toDictionary() const = 0;
  /// For debug lines; by default the dictionary's description.
  virtual std::string description() const;
};

// The five built-in groups. Setters of single values replace, list setters append
// (duplicates kept); a present empty string is sent, an empty list adds no key.

/// Platform group: the device ("f.device").
class PlatformTargeting : public TargetingParams {
 public:
  PlatformTargeting() = default;
  /// Sets "f.device", the kind of device the ad is shown on.
  PlatformTargeting& device(std::string value);
  /// "f.device" when set.
  Parameters toDictionary() const override;
  std::string description() const override;

 private:
  std::optional<std::string> device_;
};

/// Context group: the page's search keyword ("f.keyword").
class ContextTargeting : public TargetingParams {
 public:
  ContextTargeting() = default;
  /// Sets "f.keyword".
  ContextTargeting& keyword(std::string value);
  /// "f.keyword" when set.
  Parameters toDictionary() const override;
  std::string description() const override;

 private:
  std::optional<std::string> keyword_;
};

/// Merchandise group: product, category, brand and UDP keys.
class MerchandiseTargeting : public TargetingParams {
 public:
  MerchandiseTargeting() = default;
  /// Sets "f.sku_id".
  MerchandiseTargeting& skuId(std::string value);
  /// Sets "f.category_id".
  MerchandiseTargeting& categoryId(std::string value);
  /// Appends to "f.brand".
  MerchandiseTargeting& brands(const StringList& values);
  /// Sets "f.category_l1", the top category level.
  MerchandiseTargeting& categoryL1(std::string value);
  /// Sets "f.category_l2", the second category level.
  MerchandiseTargeting& categoryL2(std::string value);
  /// Sets "f.category_l3", the third category level.
  MerchandiseTargeting& categoryL3(std::string value);
  /// Appends to "f.udp".
  MerchandiseTargeting& udps(const StringList& values);
  /// The keys that are set or non-empty.
  Parameters toDictionary() const override;
  std::string description() const override;

 private:
  std::optional<std::string> skuId_;
  std::optional<std::string> categoryId_;
  StringList brands_;
  std::optional<std::string> categoryL1_;
  std::optional<std::string> categoryL2_;
  std::optional<std::string> categoryL3_;
  StringList udps_;
};

/// Geography group: stores, networks and location.
class GeoTargeting : public TargetingParams {
 public:
  GeoTargeting() = default;
  /// Appends to "f.store_id".
  GeoTargeting& storeIds(const StringList& values);
  /// Appends to "f.network".
  GeoTargeting& networks(const StringList& values);
  /// Sets "f.city".
  GeoTargeting& city(std::string value);
  /// Sets "f.state".
  GeoTargeting& state(std::string value);
  /// Sets "f.country".
  GeoTargeting& country(std::string value);
  /// The keys that are set or non-empty.
  Parameters toDictionary() const override;
  std::string description() const override;

 private:
  StringList storeIds_;
  StringList networks_;
  std::optional<std::string> city_;
  std::optional<std::string> state_;
  std::optional<std::string> country_;
};

/// Custom-label group: eight lists of host-defined labels.
class CustomLabelTargeting : public TargetingParams {
 public:
  CustomLabelTargeting() = default;
  /// Appends to "f.custom_label_1".
  CustomLabelTargeting& customLabels1(const StringList& values);
  /// Appends to "f.custom_label_2".
  CustomLabelTargeting& customLabels2(const StringList& values);
  /// Appends to "f.custom_label_3".
  CustomLabelTargeting& customLabels3(const StringList& values);
  /// Appends to "f.custom_label_4".
  CustomLabelTargeting& customLabels4(const StringList& values);
  /// Appends to "f.custom_label_5".
  CustomLabelTargeting& customLabels5(const StringList& values);
  /// Appends to "f.custom_label_6".
  CustomLabelTargeting& customLabels6(const StringList& values);
  /// Appends to "f.custom_label_7".
  CustomLabelTargeting& customLabels7(const StringList& values);
  /// Appends to "f.custom_label_8".
  CustomLabelTargeting& customLabels8(const StringList& values);
  /// The non-empty "f.custom_label_N" lists.
  Parameters toDictionary() const override;
  std::string description() const override;

 private:
  StringList customLabels1_;
  StringList customLabels2_;
  StringList customLabels3_;
  StringList customLabels4_;
  StringList customLabels5_;
  StringList customLabels6_;
  StringList customLabels7_;
  StringList customLabels8_;
};

/// Merges targeting groups into one dictionary. Groups are held by shared reference, so
/// changes a host makes to a group after adding it still show in `build()`.
class TargetingParamsBuilder {
 public:
  TargetingParamsBuilder() = default;

  /// Appends one group (a null pointer contributes nothing to `build()`).
  TargetingParamsBuilder& add(std::shared_ptr<TargetingParams> params);

  /// Every group's dictionary merged in the order added; where two groups set the same
  /// key the later one wins (lists are not concatenated across groups).
  Parameters build() const;

  /// The groups in the order added; null entries are skipped by `build()`.
  std::vector<std::shared_ptr<TargetingParams>> targetingParams;
};

}  // namespace tavik
