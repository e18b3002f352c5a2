#pragma once

// The events the views and the video player report. Each call makes its own registrar
// with a new web service carrying the configuration's debug switch, starts the request
// and returns at once: nothing is awaited, nothing is cancelled when the view goes, and
// no error reaches the host.

#include <functional>

#include "tavik/ads/ad_models.h"
#include "tavik/core/config.h"
#include "tavik/events/register_event.h"

namespace tavik::quick::detail {

/// Runs `send(registrar)` with a fresh registrar for `config`; its result is dropped.
void withRegistrar(const Config& config, const std::function<void(RegisterEventProtocol&)>& send);

/// "/events" with "event_name" = "funnel_impression" and "uclid"; no "position".
void reportImpression(const Config& config, const std::string& cliUbid, const std::string& uclid);
/// "/aclick" with "uclid".
void reportClick(const Config& config, const std::string& cliUbid, const std::string& uclid);

/// Test hook: every event a view or player starts, counted per process.
std::size_t viewEventsStarted();

}  // namespace tavik::quick::detail
