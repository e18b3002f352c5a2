#include "tavik/ads/ad_fetcher.h"

#include "tavik/core/log.h"
#include "tavik/core/tavik.h"

namespace tavik {

namespace detail {

void notify(const ErrorHandler& onError, const TavikError& error) {
  if (!onError) return;
  try {
    onError(error);
  } catch (...) {
    // A host callback must not take the SDK's threads down with it.
  }
}

void reportError(std::exception_ptr error, const ErrorHandler& onError) {
  if (onError) notify(onError, TavikError::fromException(std::move(error)));
}

void ErrorGate::report(const TavikError& error) {
  if (closed_.load()) return;
  std::lock_guard lock(mutex_);
  if (closed_.load()) return;
  caller_.store(std::this_thread::get_id());
  notify(handler_, error);
  caller_.store(std::thread::id());
}

void ErrorGate::report(std::exception_ptr error) {
  if (closed_.load()) return;
  report(TavikError::fromException(std::move(error)));
}

void ErrorGate::close() {
  closed_.store(true);
  if (caller_.load() == std::this_thread::get_id()) return;  // from inside the handler
  std::lock_guard wait(mutex_);  // lets a handler running on another thread finish
}

std::string describeOptional(const std::optional<std::string>& text) {
  return text ? "Optional(" + quoteText(*text) + ")" : "nil";
}

}  // namespace detail

namespace {

std::string describeList(const StringList& list) {
  return ParamValue(list).description();
}

std::string describeTargeting(const std::optional<TargetingList>& groups) {
  if (!groups) return "nil";
  std::string out = "Optional([";
  for (std::size_t i = 0; i < groups->size(); ++i) {
    if (i) out += ", ";
    out += (*groups)[i] ? (*groups)[i]->description() : "nil";
  }
  return out + "])";
}

std::string describeFilter(const std::shared_ptr<ProductAdsFilter>& filter) {
  return filter ? "Optional(" + filter->description() + ")" : "nil";
}

Parameters displayParameters(const Config& config, const std::string& cliUbid,
                             const std::string& pageType, std::int64_t productCount) {
  return Parameters{{"client_id", config.clientId},
                    {"cli_ubid", cliUbid},
                    {"pt", pageType},
                    {"pcnt_au", productCount}};
}

void mergeTargeting(Parameters& parameters, const std::optional<TargetingList>& groups) {
  if (!groups) return;
  TargetingParamsBuilder builder;
  for (const auto& group : *groups) builder.add(group);
  parameters.merge(builder.build());
}

void mergeFilter(Parameters& parameters, const std::shared_ptr<ProductAdsFilter>& filter) {
  if (filter) parameters.merge(filter->toDictionary());
}

}  // namespace

void AdFetcher::log(const std::string& text) const {
  if (config_.debug) detail::debugLine(text);
}

std::optional<Url> AdFetcher::prepare(Service service, const char* path,
                                      std::optional<Parameters> parameters,
                                      const ErrorHandler& onError) {
  try {
    const bool display = service == Service::display;
    const auto& endpoint = display ? (config_.displayAds ? &config_.displayAds->domainUri : nullptr)
                                   : (config_.plaAds ? &config_.plaAds->domainUri : nullptr);
    if (!endpoint || endpoint->empty()) {
      throw display ? TavikError::missingDisplayAdConfig() : TavikError::missingPlaAdConfig();
    }
    const ApiUrlResult apiUrl = webService_.generateApiUrl(*endpoint + path, parameters);
    if (display && config_.debug) log("Generated URL Response: " + apiUrl.description());
    if (!apiUrl.status || !apiUrl.apiUrl) {
      detail::notify(onError, TavikError::badUrl());
      return std::nullopt;
    }
    return apiUrl.apiUrl;
  } catch (...) {
    detail::reportError(std::current_exception(), onError);
    return std::nullopt;
  }
}

AdFetcher::Result AdFetcher::send(Service service, const char* path, Parameters parameters,
                                  ErrorHandler onError) {
  const auto url = prepare(service, path, std::move(parameters), onError);
  if (!url) return Result::ready(std::nullopt);
  return detail::settle(webService_.request(*url, HTTPMethod::get, std::nullopt, {}),
                        std::move(onError));
}

Parameters AdFetcher::displayByAdUnit(const std::string& cliUbid, const std::string& pageType,
                                      std::int64_t productCount, const StringList& adUnits,
                                      const std::optional<TargetingList>& targetingParams) const {
  if (config_.debug) {
    log("cliUbid = " + cliUbid);
    log("pageType = " + pageType);
    log("productCount = " + std::to_string(productCount));
    log("targetingParams = " + describeTargeting(targetingParams));
  }
  Parameters parameters = displayParameters(config_, cliUbid, pageType, productCount);
  parameters.set("au", adUnits);
  mergeTargeting(parameters, targetingParams);
  return parameters;
}

Future<std::optional<detail::Answer>> AdFetcher::fetchDisplayAdsWithAuAnswer(
    const std::string& cliUbid, const std::string& pageType, std::int64_t productCount,
    const StringList& adUnits, const std::optional<TargetingList>& targetingParams,
    ErrorHandler onError) {
  const auto url =
      prepare(Service::display, "/v2/bsda",
              displayByAdUnit(cliUbid, pageType, productCount, adUnits, targetingParams), onError);
  if (!url) return Future<std::optional<detail::Answer>>::ready(std::nullopt);
  return detail::settle(webService_.requestAnswer(*url, HTTPMethod::get, std::nullopt, {}),
                        std::move(onError));
}

AdFetcher::Result AdFetcher::fetchDisplayAdsWithAu(
    const std::string& cliUbid, const std::string& pageType, std::int64_t productCount,
    const StringList& adUnits, std::optional<TargetingList> targetingParams, ErrorHandler onError) {
  return send(Service::display, "/v2/bsda",
              displayByAdUnit(cliUbid, pageType, productCount, adUnits, targetingParams),
              std::move(onError));
}

AdFetcher::Result AdFetcher::fetchDisplayAdsWithPt(const std::string& cliUbid,
                                                   const std::string& pageType,
                                                   std::int64_t productCount,
                                                   std::optional<TargetingList> targetingParams,
                                                   ErrorHandler onError) {
  if (config_.debug) {
    log("cliUbid = " + cliUbid);
    log("pageType = " + pageType);
    log("productCount = " + std::to_string(productCount));
    log("targetingParams = " + describeTargeting(targetingParams));
  }
  Parameters parameters = displayParameters(config_, cliUbid, pageType, productCount);
  mergeTargeting(parameters, targetingParams);
  return send(Service::display, "/v2/bsda/pt", std::move(parameters), std::move(onError));
}

AdFetcher::Result AdFetcher::fetchPlaAds(const std::string& cliUbid, PlaPageType pageType,
                                         std::int64_t productCount,
                                         std::optional<std::string> pageName,
                                         std::shared_ptr<ProductAdsFilter> filters,
                                         ErrorHandler onError) {
  if (config_.debug) {
    log("cliUbid = " + cliUbid);
    log("pageType = " + std::string(rawValue(pageType)));
    log("productCount = " + std::to_string(productCount));
    log("pageName = " + detail::describeOptional(pageName));
    log("filters = " + describeFilter(filters));
  }
  Parameters parameters{{"client_id", config_.clientId},
                        {"cli_ubid", cliUbid},
                        {"page_type", std::string(rawValue(pageType))},
                        {"pcnt", productCount}};
  mergeFilter(parameters, filters);
  return send(Service::pla, "/sda", std::move(parameters), std::move(onError));
}

AdFetcher::Result AdFetcher::fetchPlaSearchPageAds(const std::string& cliUbid,
                                                   std::int64_t productCount,
                                                   const std::string& keywords,
                                                   std::optional<std::string> pageName,
                                                   std::shared_ptr<ProductAdsFilter> filters,
                                                   ErrorHandler onError) {
  if (config_.debug) {
    log("cliUbid = " + cliUbid);
    log("productCount = " + std::to_string(productCount));
    log("keywords = " + keywords);
    log("pageName = " + detail::describeOptional(pageName));
    log("filters = " + describeFilter(filters));
  }
  // One item whose name already carries the brackets: the keywords are one string.
  Parameters parameters{{"client_id", config_.clientId},
                        {"cli_ubid", cliUbid},
                        {"page_type", "SEARCH"},
                        {"pcnt", productCount},
                        {"keywords[]", keywords}};
  mergeFilter(parameters, filters);
  return send(Service::pla, "/sda", std::move(parameters), std::move(onError));
}

AdFetcher::Result AdFetcher::fetchTpaPageAds(const std::string& cliUbid, std::int64_t productCount,
                                             const StringList& skuIds,
                                             std::optional<std::string> pageName,
                                             std::shared_ptr<ProductAdsFilter> filters,
                                             ErrorHandler onError) {
  if (config_.debug) {
    log("cliUbid = " + cliUbid);
    log("productCount = " + std::to_string(productCount));
    log("skuIds = " + describeList(skuIds));
    log("pageName = " + detail::describeOptional(pageName));
    log("filters = " + describeFilter(filters));
  }
  // A filter's "sku_ids" replaces the argument's list: the merge lets it win.
  Parameters parameters{{"client_id", config_.clientId},
                        {"cli_ubid", cliUbid},
                        {"pcnt", productCount},
                        {"page_type", "TPA"},
                        {"sku_ids", skuIds}};
  mergeFilter(parameters, filters);
  return send(Service::pla, "/sda/v1", std::move(parameters), std::move(onError));
}

AdFetcher::Result AdFetcher::fetchPlaHomePageAds(const std::string& cliUbid,
                                                 std::int64_t productCount,
                                                 std::optional<std::string> pageName,
                                                 std::shared_ptr<ProductAdsFilter> filters,
                                                 ErrorHandler onError) {
  return fetchPlaAds(cliUbid, PlaPageType::home, productCount, std::move(pageName),
                     std::move(filters), std::move(onError));
}

// The product, purchase and category forms append to the host's own filter (or a new
// one), so the host sees the appended values afterwards.
AdFetcher::Result AdFetcher::appendAndFetch(
    const std::string& cliUbid, PlaPageType pageType, std::int64_t productCount,
    const StringList& values, ProductAdsFilter& (ProductAdsFilter::*append)(const StringList&),
    std::optional<std::string> pageName, std::shared_ptr<ProductAdsFilter> filters,
    ErrorHandler onError) {
  if (!filters) filters = std::make_shared<ProductAdsFilter>();
  ((*filters).*append)(values);
  return fetchPlaAds(cliUbid, pageType, productCount, std::move(pageName), std::move(filters),
                     std::move(onError));
}

AdFetcher::Result AdFetcher::fetchPlaProductPageAds(const std::string& cliUbid,
                                                    std::int64_t productCount,
                                                    const StringList& skuIds,
                                                    std::optional<std::string> pageName,
                                                    std::shared_ptr<ProductAdsFilter> filters,
                                                    ErrorHandler onError) {
  return appendAndFetch(cliUbid, PlaPageType::product, productCount, skuIds,
                        &ProductAdsFilter::skuIds, std::move(pageName), std::move(filters),
                        std::move(onError));
}

AdFetcher::Result AdFetcher::fetchPlaPurchasePageAds(const std::string& cliUbid,
                                                     std::int64_t productCount,
                                                     const StringList& skuIds,
                                                     std::optional<std::string> pageName,
                                                     std::shared_ptr<ProductAdsFilter> filters,
                                                     ErrorHandler onError) {
  return appendAndFetch(cliUbid, PlaPageType::purchase, productCount, skuIds,
                        &ProductAdsFilter::skuIds, std::move(pageName), std::move(filters),
                        std::move(onError));
}

AdFetcher::Result AdFetcher::fetchPlaCategoryPageAds(const std::string& cliUbid,
                                                     std::int64_t productCount,
                                                     const StringList& categories,
                                                     std::optional<std::string> pageName,
                                                     std::shared_ptr<ProductAdsFilter> filters,
                                                     ErrorHandler onError) {
  return appendAndFetch(cliUbid, PlaPageType::category, productCount, categories,
                        &ProductAdsFilter::categories, std::move(pageName), std::move(filters),
                        std::move(onError));
}

std::unique_ptr<AdFetcherProtocol> TAVIK::adFetcher() const {
  if (!configured()) return nullptr;
  return std::make_unique<AdFetcher>(*_config, WebService(_config->debug));
}

}  // namespace tavik
