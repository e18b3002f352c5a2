#include "tavik/events/register_event.h"

#include <chrono>

#include "events/event_store.h"
#include "network/web_service_internal.h"
#include "tavik/core/log.h"

namespace tavik {

namespace {

std::shared_ptr<TrackingParams> orNew(std::shared_ptr<TrackingParams> params) {
  return params ? std::move(params) : std::make_shared<TrackingParams>();
}

// Milliseconds since the epoch, truncated toward zero.
std::int64_t nowMillis() {
  const double seconds =
      std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  return static_cast<std::int64_t>(seconds * 1000.0);
}

std::string trimPipes(std::string text) {
  const auto first = text.find_first_not_of('|');
  if (first == std::string::npos) return {};
  const auto last = text.find_last_not_of('|');
  return text.substr(first, last - first + 1);
}

// The keys view-product and add-to-cart events share.
void writeProductKeys(TrackingParams& params, const std::string& skuId,
                      const std::optional<float>& price,
                      const std::optional<std::string>& merchantId) {
  params.skuId(skuId);
  params.productPrices(price ? floatText(*price) : std::string());
  params.sellerId(merchantId);
  params.productQuantities(1);
}

// The public result of an event, made in one step from the HTTP answer: the response
// dictionary, or nothing once the error went to `onError`. Events are never cancelled, so
// no cancel link is made; one continuation and one shared state per event is all it costs.
// `seen` is called with the answer first (the store's bookkeeping), in the same step.
template <class Seen>
RegisterEvent::Result settleEvent(const Future<detail::HttpResponse>& attempt,
                                  const ErrorHandler& onError, Seen seen) {
  auto promise = std::make_shared<Promise<std::optional<nlohmann::json>>>();
  RegisterEvent::Result result = promise->get_future();
  std::shared_ptr<detail::ErrorGate> gate;
  if (onError) gate = std::make_shared<detail::ErrorGate>(onError);
  attempt.whenReady(
      [promise, gate, seen = std::move(seen)](const Future<detail::HttpResponse>& answer) mutable {
        seen(answer);
        try {
          // The attempt is this continuation's alone (`seen` has looked at it already).
          promise->set_value(detail::responseDictionary(detail::takeReadyValue(answer)));
          return;
        } catch (...) {
          if (gate) gate->report(std::current_exception());
        }
        promise->set_value(std::nullopt);
      });
  return result;
}

}  // namespace

// The first attempt goes out at once, exactly as without the store, and its future and
// `onError` tell its own result; the store keeps the event until an attempt was accepted.
RegisterEvent::Result RegisterEvent::sendKept(detail::EventStore& store, const Url& apiUrl,
                                              std::int64_t eventTime, const ErrorHandler& onError) {
  std::string sentUrl;
  auto attempt = detail::exchangeGet(webService, apiUrl, &sentUrl, false);
  const auto id = store.add(std::move(sentUrl), eventTime);
  if (id == 0) return settleEvent(attempt, onError, [](const auto&) {});
  return settleEvent(attempt, onError, [store = store.shared_from_this(), id](const auto& answer) {
    store->answered(id, detail::outcomeOf(answer));
  });
}

RegisterEvent::Result RegisterEvent::send(TavikEventPath path, Parameters parameters,
                                          const ErrorHandler& onError) {
  if (!SDKconfig) {
    detail::fatalError(
        "RegisterEvent used without a configuration; get it from TAVIK::registerEvent()");
  }
  const Config& config = *SDKconfig;
  if (!config.registerEvent || config.registerEvent->domainUri.empty()) {
    detail::notify(onError, TavikError::missingRegisterEventConfig());
    return Result::ready(std::nullopt);
  }
  if (config.debug) detail::debugLine(parameters.description());
  parameters.set("client_id", config.clientId);
  const std::int64_t eventTime = nowMillis();
  parameters.set("event_time", eventTime);
  try {
    // The dictionary is not read again: it moves into the address's builder uncopied.
    const ApiUrlResult apiUrl = webService.generateApiUrl(
        config.registerEvent->domainUri + "/" + std::string(pathName(path)),
        std::optional<Parameters>(std::move(parameters)));
    if (!apiUrl.status || !apiUrl.apiUrl) {
      detail::notify(onError, TavikError::badUrl());
      return Result::ready(std::nullopt);
    }
    if (!config.eventStore.empty()) {
      if (auto store = detail::eventStoreAt(config.eventStore)) {
        return sendKept(*store, *apiUrl.apiUrl, eventTime, onError);
      }
    }
    // Events are never cancelled: cancelling their future changes nothing.
    return settleEvent(detail::exchangeGet(webService, *apiUrl.apiUrl, nullptr, false), onError,
                       [](const auto&) {});
  } catch (...) {
    detail::reportError(std::current_exception(), onError);
    return Result::ready(std::nullopt);
  }
}

RegisterEvent::Result RegisterEvent::registerAdClickEvent(const std::string& cliUbid,
                                                          const std::string& uclid,
                                                          TrackingParamsPtr trackingParams,
                                                          ErrorHandler onError) {
  auto params = orNew(std::move(trackingParams));
  params->uclid(uclid);
  Parameters parameters = params->toDictionary();
  parameters.set("cli_ubid", cliUbid);
  return send(TavikEventPath::adClick, std::move(parameters), onError);
}

RegisterEvent::Result RegisterEvent::registerTrackingEvent(const std::string& cliUbid,
                                                           TavikEventName eventName,
                                                           TrackingParamsPtr trackingParams,
                                                           ErrorHandler onError) {
  Parameters parameters = trackingParams ? trackingParams->toDictionary() : Parameters{};
  parameters.set("cli_ubid", cliUbid);
  parameters.set("event_name", std::string(tavik::eventName(eventName)));
  return send(TavikEventPath::events, std::move(parameters), onError);
}

RegisterEvent::Result RegisterEvent::registerViewProductEvent(
    const std::string& cliUbid, const std::string& skuId, std::optional<float> price,
    std::optional<std::string> merchantId, TrackingParamsPtr trackingParams, ErrorHandler onError) {
  auto params = orNew(std::move(trackingParams));
  writeProductKeys(*params, skuId, price, merchantId);
  return registerTrackingEvent(cliUbid, TavikEventName::viewProduct, params, std::move(onError));
}

RegisterEvent::Result RegisterEvent::registerAdd2CartEvent(
    const std::string& cliUbid, const std::string& skuId, std::optional<float> price,
    std::optional<std::string> merchantId, TrackingParamsPtr trackingParams, ErrorHandler onError) {
  auto params = orNew(std::move(trackingParams));
  writeProductKeys(*params, skuId, price, merchantId);
  return registerTrackingEvent(cliUbid, TavikEventName::funnelAddToCart, params,
                               std::move(onError));
}

RegisterEvent::Result RegisterEvent::registerPurchaseEvent(const std::string& cliUbid, float sales,
                                                           const std::string& orderId,
                                                           const std::vector<Product>& products,
                                                           TrackingParamsPtr trackingParams,
                                                           ErrorHandler onError) {
  std::string prices, quantities, skus, sellers;
  for (const auto& product : products) {
    prices += floatText(product.price) + "|";
    quantities += std::to_string(product.quantity) + "|";
    skus += product.skuId + "|";
    sellers += product.merchantId.value_or("") + "|";
  }
  auto params = orNew(std::move(trackingParams));
  params->add("sales", sales);
  params->add("order_id", orderId);
  params->productPrices(trimPipes(std::move(prices)));
  params->productQuantities(trimPipes(std::move(quantities)));
  params->add("sku_ids", trimPipes(std::move(skus)));
  params->sellerId(trimPipes(std::move(sellers)));
  return registerTrackingEvent(cliUbid, TavikEventName::funnelSaleComplete, params,
                               std::move(onError));
}

RegisterEvent::Result RegisterEvent::registerAdImpressionEvent(const std::string& cliUbid,
                                                               const std::string& uclid,
                                                               std::optional<std::int64_t> position,
                                                               TrackingParamsPtr trackingParams,
                                                               ErrorHandler onError) {
  auto params = orNew(std::move(trackingParams));
  params->uclid(uclid);
  params->position(position);
  return registerTrackingEvent(cliUbid, TavikEventName::funnelImpression, params,
                               std::move(onError));
}

RegisterEvent::Result RegisterEvent::registerVideoProgressEvent(
    const std::string& cliUbid, const std::string& uclid, float videoViewSec,
    float videoDurationSec, TrackingParamsPtr trackingParams, ErrorHandler onError) {
  auto params = orNew(std::move(trackingParams));
  params->uclid(uclid);
  params->videoViewSec(videoViewSec);
  params->videoDurationSec(videoDurationSec);
  return registerTrackingEvent(cliUbid, TavikEventName::funnelVideoProgress, params,
                               std::move(onError));
}

RegisterEvent::Result RegisterEvent::registerVideoActionEvent(
    const std::string& cliUbid, const std::string& uclid, float videoViewSec,
    TavikVideoActionType actionType, TrackingParamsPtr trackingParams, ErrorHandler onError) {
  auto params = orNew(std::move(trackingParams));
  params->uclid(uclid);
  params->videoViewSec(videoViewSec);
  params->actionType(actionType);
  return registerTrackingEvent(cliUbid, TavikEventName::funnelVideoAction, params,
                               std::move(onError));
}

std::unique_ptr<RegisterEventProtocol> TAVIK::registerEvent() const {
  if (!configured()) return nullptr;
  return std::make_unique<RegisterEvent>(*_config, WebService(_config->debug));
}

}  // namespace tavik
