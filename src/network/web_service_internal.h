#pragma once

#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "network/http_client.h"
#include "tavik/network/web_service.h"

// What the event store needs of the web service beyond its public surface: the raw
// exchange of a GET (so the answer's status and "Retry-After" can be looked at before the
// answer becomes a dictionary or an error), and the address such a GET goes to.
namespace tavik::detail {

/// `WebService::request(url, GET, nullopt)` up to the HTTP exchange: the same debug lines
/// and the same request, answered with the raw response. `sentUrl` receives the address
/// it went to ("os_version" and "os_name" appended). Events pass `cancellable` false:
/// nobody cancels them, so the transport keeps no cancel hook for them.
Future<HttpResponse> exchangeGet(const WebService& service, const Url& url, std::string* sentUrl,
                                 bool cancellable = true);

/// `text` (an address) with its query replaced by `encodedQuery` (none when empty), its
/// fragment kept: the text of `Url::withQuery`.
std::string spliceQuery(std::string_view text, std::string_view encodedQuery);

/// The text of `WebService::makeQueryUrl(url, parameters)`, written straight into one
/// string (no address object is made).
std::string queryUrlText(const Url& url, const Parameters& parameters);

/// What `WebService::request` makes of a raw response (the response dictionary), or the
/// error it throws for it.
nlohmann::json responseDictionary(const HttpResponse& response);

}  // namespace tavik::detail
