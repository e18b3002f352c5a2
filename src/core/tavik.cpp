#include "tavik/core/tavik.h"

#include <atomic>

#include "events/event_store.h"
#include "tavik/core/future.h"
#include "tavik/core/log.h"
#include "tavik/network/transport.h"

namespace tavik {

namespace {
// Written once by buildGlobalInstance() and never cleared; the instance is never freed.
std::atomic<TAVIK*> globalSlot{nullptr};
}  // namespace

TAVIK& TAVIK::shared() {
  TAVIK* instance = globalSlot.load(std::memory_order_acquire);
  if (!instance) {
    detail::fatalError(
        "TAVIK SDK not initialized. Please initialize TAVIK SDK using "
        "`TAVIK.buildGlobalInstance()");
  }
  return *instance;
}

const TAVIK* TAVIK::installed() {
  return globalSlot.load(std::memory_order_acquire);
}

void TAVIK::setUserId(const std::string& /*userId*/) const {
  if (!_config) detail::writeLogLine("TAVIK: In order to set a userId, initialize the SDK first.");
}

TAVIK::Builder& TAVIK::Builder::clientId(std::string value) {
  clientId_ = std::move(value);
  return *this;
}
TAVIK::Builder& TAVIK::Builder::productAdsHost(std::string value) {
  productAdsHost_ = std::move(value);
  return *this;
}
TAVIK::Builder& TAVIK::Builder::displayAdsHost(std::string value) {
  displayAdsHost_ = std::move(value);
  return *this;
}
TAVIK::Builder& TAVIK::Builder::eventTrackingHost(std::string value) {
  eventTrackingHost_ = std::move(value);
  return *this;
}
TAVIK::Builder& TAVIK::Builder::debug(bool value) {
  debug_ = value;
  return *this;
}
TAVIK::Builder& TAVIK::Builder::impressionOnViewable(bool value) {
  impressionOnViewable_ = value;
  return *this;
}
TAVIK::Builder& TAVIK::Builder::trustedCaBundle(std::string pemFile) {
  trustedCaBundle_ = std::move(pemFile);
  return *this;
}

TAVIK::Builder& TAVIK::Builder::eventStore(std::string path) {
  eventStore_ = std::move(path);
  return *this;
}
TAVIK::Builder& TAVIK::Builder::eventStoreLimits(EventStoreLimits limits) {
  eventStoreLimits_ = limits;
  return *this;
}

TAVIK TAVIK::Builder::build() const {
  if (!clientId_) {
    detail::fatalError(
        "TAVIK.Builder: clientId is required. Call .clientId(\"your_client_id\") before .build()");
  }
  if (trustedCaBundle_) {
    // A missing bundle must not take the host down: say so once, and let the requests
    // that needed it fail their TLS verification with a clear error.
    try {
      transport::trustCaBundle(*trustedCaBundle_);
    } catch (const std::exception& e) {
      detail::writeLogLine(std::string("TAVIK: ") + e.what() +
                           "; requests to hosts it should vouch for will fail TLS verification.");
    }
  }
  Config config;
  config.clientId = *clientId_;
  config.debug = debug_;
  config.impressionOnViewable = impressionOnViewable_;
  config.registerEvent = RegisterEventConfig{"https://" + eventTrackingHost_};
  config.displayAds = DisplayAdsConfig{"https://" + displayAdsHost_};
  config.plaAds = PlaAdsConfig{"https://" + productAdsHost_};
  if (!eventStore_.empty()) {
    detail::EventStoreOptions options;
    options.path = eventStore_;
    options.limits = eventStoreLimits_;
    options.debug = debug_;
    options.adOrigins = {config.displayAds->domainUri, config.plaAds->domainUri};
    detail::openEventStore(options);
    config.eventStore = eventStore_;
  }
  return TAVIK(std::move(config));
}

TAVIK& TAVIK::Builder::buildGlobalInstance() const {
  if (globalSlot.load(std::memory_order_acquire)) {
    detail::fatalError(
        "TAVIK.Builder: TAVIK can only be built once. Call .buildSingleInstance() before .build()");
  }
  auto* instance = new TAVIK(build());
  globalSlot.store(instance, std::memory_order_release);
  return *instance;
}

}  // namespace tavik
