#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "tavik/core/value.h"
#include "tavik/events/event_vocabulary.h"

namespace tavik {

/// Extra key/value pairs that ride along with a tracking event. Shared by reference
/// (std::shared_ptr): the registration operations write their event keys into the host's
/// own object. Setting a key again replaces its value; values keep their types (a float
/// stays a float, an integer an integer). Not synchronised: one task at a time.
class TrackingParams {
 public:
  TrackingParams() = default;

  // Each setter writes its wire key: "sku_id", "product_prices", "product_quantities"
  // (the value as given), "seller_id", "store_id", "uclid", "position" (an integer),
  // "video_view_sec", "video_duration_sec", "action_type" (the wire string), "source".
  TrackingParams& skuId(std::string value);
  TrackingParams& productPrices(std::optional<std::string> value);
  TrackingParams& productQuantities(ParamValue value);
  TrackingParams& sellerId(std::optional<std::string> value);
  TrackingParams& storeId(std::string value);
  TrackingParams& uclid(std::string value);
  TrackingParams& position(std::optional<std::int64_t> value);
  TrackingParams& videoViewSec(float seconds);
  TrackingParams& videoDurationSec(float seconds);
  TrackingParams& actionType(TavikVideoActionType type);
  TrackingParams& source(std::string value);
  // The optional setters write nothing when given no value, leaving any earlier one.

  /// Any key with any value.
  TrackingParams& add(std::string key, ParamValue value);
  /// Copies every pair in; where a key exists on both sides, `other`'s value wins.
  TrackingParams& merge(const Parameters& other);

  /// A copy of the pairs, in the order first set.
  Parameters toDictionary() const { return parameters; }

 private:
  Parameters parameters;
};

/// One purchased line of a purchase event.
struct Product {
  Product(std::string skuId, float price, std::int64_t quantity,
          std::optional<std::string> merchantId = std::nullopt)
      : skuId(std::move(skuId)),
        price(price),
        quantity(quantity),
        merchantId(std::move(merchantId)) {}

  std::string skuId;
  float price;
  std::int64_t quantity;
  /// Absent for the host's own stock.
  std::optional<std::string> merchantId;

  friend bool operator==(const Product&, const Product&) = default;
};

}  // namespace tavik
