#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "tavik/ads/page_type.h"
#include "tavik/ads/product_ads_filter.h"
#include "tavik/ads/targeting.h"
#include "tavik/core/config.h"
#include "tavik/core/error.h"
#include "tavik/core/future.h"
#include "tavik/network/web_service.h"

namespace tavik {

/// Receives the one error of a failed operation.
using ErrorHandler = std::function<void(const TavikError&)>;
/// A list of targeting groups, shared with the host.
using TargetingList = std::vector<std::shared_ptr<TargetingParams>>;

/// Fetches product-listing ads and display ads. Every operation returns at once; its
/// future holds the response dictionary
/// `{"status": true, "response": {"code": ..., "data": "<answer as JSON text>"}, "error": null}`
/// or, on failure, nothing, after `onError` (when given) was called once with the error.
/// `onError` runs on the thread that detects the failure: the caller's for a missing
/// endpoint or a bad address, the SDK's transport thread for network failures.
///
/// A filter is shared, not copied: the product, purchase and category forms append their
/// SKUs or categories to the host's filter, and a filter reused for a second call sends
/// them again.
class AdFetcherProtocol {
 public:
  using Result = Future<std::optional<nlohmann::json>>;

  virtual ~AdFetcherProtocol() = default;

  /// GET "/v2/bsda": display ads for the given ad units.
  virtual Result fetchDisplayAdsWithAu(const std::string& cliUbid, const std::string& pageType,
                                       std::int64_t productCount, const StringList& adUnits,
                                       std::optional<TargetingList> targetingParams = std::nullopt,
                                       ErrorHandler onError = nullptr) = 0;
  /// GET "/v2/bsda/pt": display ads for a page type.
  virtual Result fetchDisplayAdsWithPt(const std::string& cliUbid, const std::string& pageType,
                                       std::int64_t productCount,
                                       std::optional<TargetingList> targetingParams = std::nullopt,
                                       ErrorHandler onError = nullptr) = 0;
  /// GET "/sda": product-listing ads for a page type.
  virtual Result fetchPlaAds(const std::string& cliUbid, PlaPageType pageType,
                             std::int64_t productCount,
                             std::optional<std::string> pageName = std::nullopt,
                             std::shared_ptr<ProductAdsFilter> filters = nullptr,
                             ErrorHandler onError = nullptr) = 0;
  virtual Result fetchPlaProductPageAds(const std::string& cliUbid, std::int64_t productCount,
                                        const StringList& skuIds,
                                        std::optional<std::string> pageName = std::nullopt,
                                        std::shared_ptr<ProductAdsFilter> filters = nullptr,
                                        ErrorHandler onError = nullptr) = 0;
  virtual Result fetchPlaSearchPageAds(const std::string& cliUbid, std::int64_t productCount,
                                       const std::string& keywords,
                                       std::optional<std::string> pageName = std::nullopt,
                                       std::shared_ptr<ProductAdsFilter> filters = nullptr,
                                       ErrorHandler onError = nullptr) = 0;
  virtual Result fetchPlaHomePageAds(const std::string& cliUbid, std::int64_t productCount,
                                     std::optional<std::string> pageName = std::nullopt,
                                     std::shared_ptr<ProductAdsFilter> filters = nullptr,
                                     ErrorHandler onError = nullptr) = 0;
  virtual Result fetchPlaCategoryPageAds(const std::string& cliUbid, std::int64_t productCount,
                                         const StringList& categories,
                                         std::optional<std::string> pageName = std::nullopt,
                                         std::shared_ptr<ProductAdsFilter> filters = nullptr,
                                         ErrorHandler onError = nullptr) = 0;
  virtual Result fetchPlaPurchasePageAds(const std::string& cliUbid, std::int64_t productCount,
                                         const StringList& skuIds,
                                         std::optional<std::string> pageName = std::nullopt,
                                         std::shared_ptr<ProductAdsFilter> filters = nullptr,
                                         ErrorHandler onError = nullptr) = 0;
  /// GET "/sda/v1": third-party-page ads for a list of SKUs.
  virtual Result fetchTpaPageAds(const std::string& cliUbid, std::int64_t productCount,
                                 const StringList& skuIds,
                                 std::optional<std::string> pageName = std::nullopt,
                                 std::shared_ptr<ProductAdsFilter> filters = nullptr,
                                 ErrorHandler onError = nullptr) = 0;
};

/// The SDK's fetcher: a copy of the configuration and a web service. Use it through
/// `AdFetcherProtocol` (`TAVIK::adFetcher()`), which gives the optional arguments.
class AdFetcher : public AdFetcherProtocol {
 public:
  AdFetcher(Config config, WebService webService)
      : config_(std::move(config)), webService_(webService) {}

  Result fetchDisplayAdsWithAu(const std::string& cliUbid, const std::string& pageType,
                               std::int64_t productCount, const StringList& adUnits,
                               std::optional<TargetingList> targetingParams,
                               ErrorHandler onError) override;
  Result fetchDisplayAdsWithPt(const std::string& cliUbid, const std::string& pageType,
                               std::int64_t productCount,
                               std::optional<TargetingList> targetingParams,
                               ErrorHandler onError) override;
  Result fetchPlaAds(const std::string& cliUbid, PlaPageType pageType, std::int64_t productCount,
                     std::optional<std::string> pageName, std::shared_ptr<ProductAdsFilter> filters,
                     ErrorHandler onError) override;
  Result fetchPlaProductPageAds(const std::string& cliUbid, std::int64_t productCount,
                                const StringList& skuIds, std::optional<std::string> pageName,
                                std::shared_ptr<ProductAdsFilter> filters,
                                ErrorHandler onError) override;
  Result fetchPlaSearchPageAds(const std::string& cliUbid, std::int64_t productCount,
                               const std::string& keywords, std::optional<std::string> pageName,
                               std::shared_ptr<ProductAdsFilter> filters,
                               ErrorHandler onError) override;
  Result fetchPlaHomePageAds(const std::string& cliUbid, std::int64_t productCount,
                             std::optional<std::string> pageName,
                             std::shared_ptr<ProductAdsFilter> filters,
                             ErrorHandler onError) override;
  Result fetchPlaCategoryPageAds(const std::string& cliUbid, std::int64_t productCount,
                                 const StringList& categories, std::optional<std::string> pageName,
                                 std::shared_ptr<ProductAdsFilter> filters,
                                 ErrorHandler onError) override;
  Result fetchPlaPurchasePageAds(const std::string& cliUbid, std::int64_t productCount,
                                 const StringList& skuIds, std::optional<std::string> pageName,
                                 std::shared_ptr<ProductAdsFilter> filters,
                                 ErrorHandler onError) override;
  Result fetchTpaPageAds(const std::string& cliUbid, std::int64_t productCount,
                         const StringList& skuIds, std::optional<std::string> pageName,
                         std::shared_ptr<ProductAdsFilter> filters, ErrorHandler onError) override;

  /// `fetchDisplayAdsWithAu` for the renderer: also hands back the parsed body, so the
  /// ads document is not parsed a second time from the dictionary's text.
  Future<std::optional<detail::Answer>> fetchDisplayAdsWithAuAnswer(
      const std::string& cliUbid, const std::string& pageType, std::int64_t productCount,
      const StringList& adUnits, const std::optional<TargetingList>& targetingParams,
      ErrorHandler onError);

 private:
  enum class Service { display, pla };
  /// Checks the endpoint and builds the address; on failure reports through `onError`
  /// and returns nothing.
  std::optional<Url> prepare(Service service, const char* path, const Parameters& parameters,
                             const ErrorHandler& onError);
  Result send(Service service, const char* path, Parameters parameters, ErrorHandler onError);
  Parameters displayByAdUnit(const std::string& cliUbid, const std::string& pageType,
                             std::int64_t productCount, const StringList& adUnits,
                             const std::optional<TargetingList>& targetingParams) const;
  Result appendAndFetch(const std::string& cliUbid, PlaPageType pageType, std::int64_t productCount,
                        const StringList& values,
                        ProductAdsFilter& (ProductAdsFilter::*append)(const StringList&),
                        std::optional<std::string> pageName,
                        std::shared_ptr<ProductAdsFilter> filters, ErrorHandler onError);
  void log(const std::string& text) const;

  Config config_;
  WebService webService_;
};

namespace detail {
/// Calls `onError` (when given) with the public form of a caught error: badStatus,
/// badUrl, badResponse and the missing-endpoint cases as they are, anything else as
/// `defaultError`. An exception thrown by the host's handler is swallowed.
void reportError(std::exception_ptr error, const ErrorHandler& onError);
/// The public result of a request: its value, or nothing after the error went to
/// `reportError`.
template <class T>
Future<std::optional<T>> settle(const Future<T>& request, ErrorHandler onError) {
  return request.whenReady(
      [onError = std::move(onError)](const Future<T>& answer) -> std::optional<T> {
        try {
          return answer.get();
        } catch (...) {
          reportError(std::current_exception(), onError);
          return std::nullopt;
        }
      });
}
/// Calls `onError` (when given) with `error`, shielding the SDK from its exceptions.
void notify(const ErrorHandler& onError, const TavikError& error);
/// `Optional("text")` or `nil`, as the debug lines print optional strings.
std::string describeOptional(const std::optional<std::string>& text);
}  // namespace detail

}  // namespace tavik
