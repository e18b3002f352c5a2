#include "views/view_events.h"

#include <atomic>
#include <memory>

#include "tavik/events/tracking_params.h"
#include "tavik/network/web_service.h"

namespace tavik::quick::detail {

namespace {
std::atomic<std::size_t> started{0};
}

void withRegistrar(const Config& config, const std::function<void(RegisterEventProtocol&)>& send) {
  ++started;
  RegisterEvent registrar(config, WebService(config.debug));
  send(registrar);
}

void reportImpression(const Config& config, const std::string& cliUbid, const std::string& uclid) {
  withRegistrar(config, [&](RegisterEventProtocol& registrar) {
    auto params = std::make_shared<TrackingParams>();
    params->uclid(uclid);
    registrar.registerTrackingEvent(cliUbid, TavikEventName::funnelImpression, params);
  });
}

void reportClick(const Config& config, const std::string& cliUbid, const std::string& uclid) {
  withRegistrar(config, [&](RegisterEventProtocol& registrar) {
    registrar.registerAdClickEvent(cliUbid, uclid);
  });
}

std::size_t viewEventsStarted() {
  return started.load();
}

}  // namespace tavik::quick::detail
