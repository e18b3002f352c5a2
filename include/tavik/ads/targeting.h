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
  virtual Parameters toDictionary() const = 0;
  /// For debug lines; by default the dictionary's description.
  virtual std::string description() const;
};

// The five built-in groups. Setters of single values replace, list setters append
// (duplicates kept); a present empty string is sent, an empty list adds no key.

class PlatformTargeting : public TargetingParams {
 public:
  PlatformTargeting() = default;
  PlatformTargeting& device(std::string value);
  Parameters toDictionary() const override;
  std::string description() const override;

 private:
  std::optional<std::string> device_;
};

class ContextTargeting : public TargetingParams {
 public:
  ContextTargeting() = default;
  ContextTargeting& keyword(std::string value);
  Parameters toDictionary() const override;
  std::string description() const override;

 private:
  std::optional<std::string> keyword_;
};

class MerchandiseTargeting : public TargetingParams {
 public:
  MerchandiseTargeting() = default;
  MerchandiseTargeting& skuId(std::string value);
  MerchandiseTargeting& categoryId(std::string value);
  MerchandiseTargeting& brands(const StringList& values);
  MerchandiseTargeting& categoryL1(std::string value);
  MerchandiseTargeting& categoryL2(std::string value);
  MerchandiseTargeting& categoryL3(std::string value);
  MerchandiseTargeting& udps(const StringList& values);
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

class GeoTargeting : public TargetingParams {
 public:
  GeoTargeting() = default;
  GeoTargeting& storeIds(const StringList& values);
  GeoTargeting& networks(const StringList& values);
  GeoTargeting& city(std::string value);
  GeoTargeting& state(std::string value);
  GeoTargeting& country(std::string value);
  Parameters toDictionary() const override;
  std::string description() const override;

 private:
  StringList storeIds_;
  StringList networks_;
  std::optional<std::string> city_;
  std::optional<std::string> state_;
  std::optional<std::string> country_;
};

class CustomLabelTargeting : public TargetingParams {
 public:
  CustomLabelTargeting() = default;
  CustomLabelTargeting& customLabels1(const StringList& values);
  CustomLabelTargeting& customLabels2(const StringList& values);
  CustomLabelTargeting& customLabels3(const StringList& values);
  CustomLabelTargeting& customLabels4(const StringList& values);
  CustomLabelTargeting& customLabels5(const StringList& values);
  CustomLabelTargeting& customLabels6(const StringList& values);
  CustomLabelTargeting& customLabels7(const StringList& values);
  CustomLabelTargeting& customLabels8(const StringList& values);
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

  std::vector<std::shared_ptr<TargetingParams>> targetingParams;
};

}  // namespace tavik
