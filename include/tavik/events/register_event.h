#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "tavik/ads/ad_fetcher.h"
#include "tavik/core/tavik.h"
#include "tavik/events/event_vocabulary.h"
#include "tavik/events/tracking_params.h"
#include "tavik/network/web_service.h"

namespace tavik {

namespace detail {
class EventStore;
}  // namespace detail

/// Reports shopper and ad events to the event-tracking service: one GET to "/events"
/// (or "/aclick" for an ad click) with the event's keys, the host's tracking parameters,
/// "client_id" and "event_time". Every operation returns at once; its future holds the
/// service's response dictionary, or nothing after `onError` (when given) was called once.
///
/// The host's `TrackingParams` is shared, not copied: the event keys an operation writes
/// ("uclid", "sku_id", "position", ...) stay in it after the call. "cli_ubid",
/// "event_name", "client_id" and "event_time" go into a copy only. Do not share one
/// `TrackingParams` between calls that run at the same time.
class RegisterEventProtocol {
 public:
  /// The service's response dictionary, or nothing after a failure.
  using Result = Future<std::optional<nlohmann::json>>;
  /// The host's parameters, shared; null means none.
  using TrackingParamsPtr = std::shared_ptr<TrackingParams>;

  virtual ~RegisterEventProtocol() = default;

  /// GET "/aclick" for a click on ad `uclid`; writes "uclid" into the parameters.
  virtual Result registerAdClickEvent(const std::string& cliUbid, const std::string& uclid,
                                      TrackingParamsPtr trackingParams = nullptr,
                                      ErrorHandler onError = nullptr) = 0;
  /// Sends `eventName` with the host's parameters as they are (null counts as empty).
  virtual Result registerTrackingEvent(const std::string& cliUbid, TavikEventName eventName,
                                       TrackingParamsPtr trackingParams,
                                       ErrorHandler onError = nullptr) = 0;
  /// Sends "viewproduct" for `skuId`: writes "sku_id", "product_prices" (empty without a
  /// price), "seller_id" (when given) and "product_quantities" 1.
  virtual Result registerViewProductEvent(const std::string& cliUbid, const std::string& skuId,
                                          std::optional<float> price = std::nullopt,
                                          std::optional<std::string> merchantId = std::nullopt,
                                          TrackingParamsPtr trackingParams = nullptr,
                                          ErrorHandler onError = nullptr) = 0;
  /// Sends "funnel_add2cart" for `skuId`, with the same keys as `registerViewProductEvent`.
  virtual Result registerAdd2CartEvent(const std::string& cliUbid, const std::string& skuId,
                                       std::optional<float> price = std::nullopt,
                                       std::optional<std::string> merchantId = std::nullopt,
                                       TrackingParamsPtr trackingParams = nullptr,
                                       ErrorHandler onError = nullptr) = 0;
  /// Sends "funnel_salecomplete": "sales", "order_id", and per product "product_prices",
  /// "product_quantities", "sku_ids" and "seller_id", each joined with '|'.
  virtual Result registerPurchaseEvent(const std::string& cliUbid, float sales,
                                       const std::string& orderId,
                                       const std::vector<Product>& products,
                                       TrackingParamsPtr trackingParams = nullptr,
                                       ErrorHandler onError = nullptr) = 0;
  /// Sends "funnel_impression" for ad `uclid`; writes "uclid" and "position" (when given).
  virtual Result registerAdImpressionEvent(const std::string& cliUbid, const std::string& uclid,
                                           std::optional<std::int64_t> position = std::nullopt,
                                           TrackingParamsPtr trackingParams = nullptr,
                                           ErrorHandler onError = nullptr) = 0;
  /// Sends "funnel_video_progress" for ad `uclid`: "video_view_sec" seconds watched of
  /// "video_duration_sec".
  virtual Result registerVideoProgressEvent(const std::string& cliUbid, const std::string& uclid,
                                            float videoViewSec, float videoDurationSec,
                                            TrackingParamsPtr trackingParams = nullptr,
                                            ErrorHandler onError = nullptr) = 0;
  /// Sends "funnel_video_action" for ad `uclid`: "action_type" at "video_view_sec" seconds.
  virtual Result registerVideoActionEvent(const std::string& cliUbid, const std::string& uclid,
                                          float videoViewSec, TavikVideoActionType actionType,
                                          TrackingParamsPtr trackingParams = nullptr,
                                          ErrorHandler onError = nullptr) = 0;
};

/// The SDK's registrar. Use it through `RegisterEventProtocol` (`TAVIK::registerEvent()`).
class RegisterEvent : public TavikBase, public RegisterEventProtocol {
 public:
  /// Keeps `config` (from which the event endpoint and client id are read) and sends through
  /// `webService`. Needs a configuration: sending without one stops the process.
  RegisterEvent(std::optional<Config> config, WebService webService)
      : TavikBase(std::move(config)), webService(webService) {}

  Result registerAdClickEvent(const std::string& cliUbid, const std::string& uclid,
                              TrackingParamsPtr trackingParams, ErrorHandler onError) override;
  Result registerTrackingEvent(const std::string& cliUbid, TavikEventName eventName,
                               TrackingParamsPtr trackingParams, ErrorHandler onError) override;
  Result registerViewProductEvent(const std::string& cliUbid, const std::string& skuId,
                                  std::optional<float> price, std::optional<std::string> merchantId,
                                  TrackingParamsPtr trackingParams, ErrorHandler onError) override;
  Result registerAdd2CartEvent(const std::string& cliUbid, const std::string& skuId,
                               std::optional<float> price, std::optional<std::string> merchantId,
                               TrackingParamsPtr trackingParams, ErrorHandler onError) override;
  Result registerPurchaseEvent(const std::string& cliUbid, float sales, const std::string& orderId,
                               const std::vector<Product>& products,
                               TrackingParamsPtr trackingParams, ErrorHandler onError) override;
  Result registerAdImpressionEvent(const std::string& cliUbid, const std::string& uclid,
                                   std::optional<std::int64_t> position,
                                   TrackingParamsPtr trackingParams, ErrorHandler onError) override;
  Result registerVideoProgressEvent(const std::string& cliUbid, const std::string& uclid,
                                    float videoViewSec, float videoDurationSec,
                                    TrackingParamsPtr trackingParams,
                                    ErrorHandler onError) override;
  Result registerVideoActionEvent(const std::string& cliUbid, const std::string& uclid,
                                  float videoViewSec, TavikVideoActionType actionType,
                                  TrackingParamsPtr trackingParams, ErrorHandler onError) override;

  /// The HTTP layer the events go through.
  WebService webService;

 private:
  Result send(TavikEventPath path, Parameters parameters, const ErrorHandler& onError);
  Result sendKept(detail::EventStore& store, const Url& apiUrl, std::int64_t eventTime,
                  const ErrorHandler& onError);
};

}  // namespace tavik
