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
  /// Sets "sku_id".
  TrackingParams& skuId(std::string value);
  /// Sets "product_prices"; nothing when absent.
  TrackingParams& productPrices(std::optional<std::string> value);
  /// Sets "product_quantities" to the value as given.
  TrackingParams& productQuantities(ParamValue value);
  /// Sets "seller_id"; nothing when absent.
  TrackingParams& sellerId(std::optional<std::string> value);
  /// Sets "store_id".
  TrackingParams& storeId(std::string value);
  /// Sets "uclid", the ad's identifier.
  TrackingParams& uclid(std::string value);
  /// Sets "position" (an integer); nothing when absent.
  TrackingParams& position(std::optional<std::int64_t> value);
  /// Sets "video_view_sec", seconds of video watched.
  TrackingParams& videoViewSec(float seconds);
  /// Sets "video_duration_sec", the video's length in seconds.
  TrackingParams& videoDurationSec(float seconds);
  /// Sets "action_type" to the action's wire string.
  TrackingParams& actionType(TavikVideoActionType type);
  /// Sets "source".
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
  /// A line of `quantity` units of `skuId` at `price` each.
  Product(std::string skuId, float price, std::int64_t quantity,
          std::optional<std::string> merchantId = std::nullopt)
      : skuId(std::move(skuId)),
        price(price),
        quantity(quantity),
        merchantId(std::move(merchantId)) {}

  /// The product's SKU.
  std::string skuId;
  /// Unit price, in the store's currency.
  float price;
  /// Number of units bought.
  std::int64_t quantity;
  /// Absent for the host's own stock.
  std::optional<std::string> merchantId;

  /// Field-wise equality.
  friend bool operator==(const Product&, const Product&) = default;
};

}  // namespace tavik
