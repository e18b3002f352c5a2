#include "tavik/events/tracking_params.h"

namespace tavik {

TrackingParams& TrackingParams::skuId(std::string value) {
  parameters.set("sku_id", std::move(value));
  return *this;
}

TrackingParams& TrackingParams::productPrices(std::optional<std::string> value) {
  if (value) parameters.set("product_prices", std::move(*value));
  return *this;
}

TrackingParams& TrackingParams::productQuantities(ParamValue value) {
  parameters.set("product_quantities", std::move(value));
  return *this;
}

TrackingParams& TrackingParams::sellerId(std::optional<std::string> value) {
  if (value) parameters.set("seller_id", std::move(*value));
  return *this;
}

TrackingParams& TrackingParams::storeId(std::string value) {
  parameters.set("store_id", std::move(value));
  return *this;
}

TrackingParams& TrackingParams::uclid(std::string value) {
  parameters.set("uclid", std::move(value));
  return *this;
}

TrackingParams& TrackingParams::position(std::optional<std::int64_t> value) {
  if (value) parameters.set("position", *value);
  return *this;
}

TrackingParams& TrackingParams::videoViewSec(float seconds) {
  parameters.set("video_view_sec", seconds);
  return *this;
}

TrackingParams& TrackingParams::videoDurationSec(float seconds) {
  parameters.set("video_duration_sec", seconds);
  return *this;
}

TrackingParams& TrackingParams::actionType(TavikVideoActionType type) {
  parameters.set("action_type", std::string(rawValue(type)));
  return *this;
}

TrackingParams& TrackingParams::source(std::string value) {
  parameters.set("source", std::move(value));
  return *this;
}

TrackingParams& TrackingParams::add(std::string key, ParamValue value) {
  parameters.set(std::move(key), std::move(value));
  return *this;
}

TrackingParams& TrackingParams::merge(const Parameters& other) {
  parameters.merge(other);
  return *this;
}

}  // namespace tavik
