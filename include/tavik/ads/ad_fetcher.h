#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
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
  /// The response dictionary, or nothing after a failure.
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
  /// `fetchPlaAds` for a product page: appends `skuIds` to the filter's "sku_ids".
  virtual Result fetchPlaProductPageAds(const std::string& cliUbid, std::int64_t productCount,
                                        const StringList& skuIds,
                                        std::optional<std::string> pageName = std::nullopt,
                                        std::shared_ptr<ProductAdsFilter> filters = nullptr,
                                        ErrorHandler onError = nullptr) = 0;
  /// GET "/sda" for a search page: `keywords` is sent whole as one "keywords[]" item.
  virtual Result fetchPlaSearchPageAds(const std::string& cliUbid, std::int64_t productCount,
                                       const std::string& keywords,
                                       std::optional<std::string> pageName = std::nullopt,
                                       std::shared_ptr<ProductAdsFilter> filters = nullptr,
                                       ErrorHandler onError = nullptr) = 0;
  /// `fetchPlaAds` for the home page.
  virtual Result fetchPlaHomePageAds(const std::string& cliUbid, std::int64_t productCount,
                                     std::optional<std::string> pageName = std::nullopt,
                                     std::shared_ptr<ProductAdsFilter> filters = nullptr,
                                     ErrorHandler onError = nullptr) = 0;
  /// `fetchPlaAds` for a category page: appends `categories` to the filter's "categories".
  virtual Result fetchPlaCategoryPageAds(const std::string& cliUbid, std::int64_t productCount,
                                         const StringList& categories,
                                         std::optional<std::string> pageName = std::nullopt,
                                         std::shared_ptr<ProductAdsFilter> filters = nullptr,
                                         ErrorHandler onError = nullptr) = 0;
  /// `fetchPlaAds` for a purchase page: appends `skuIds` to the filter's "sku_ids".
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
  /// Keeps `config` (client id, endpoints, debug logging) and sends through `webService`.
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
  std::optional<Url> prepare(Service service, const char* path,
                             std::optional<Parameters> parameters, const ErrorHandler& onError);
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

/// The `onError` of one operation, closed when the operation's future is cancelled:
/// once `close()` has returned the handler is never called again. A handler running on
/// another thread at that moment is waited for; `close()` from inside the handler
/// itself returns at once.
class ErrorGate {
 public:
  explicit ErrorGate(ErrorHandler handler) : handler_(std::move(handler)) {}
  void report(const TavikError& error);
  void report(std::exception_ptr error);
  void close();

 private:
  std::mutex mutex_;
  std::atomic<bool> closed_{false};
  std::atomic<std::thread::id> caller_{};
  ErrorHandler handler_;
};

/// A gate for `onError` that cancelling `result` closes; nullptr without a handler.
template <class T>
std::shared_ptr<ErrorGate> gateFor(ErrorHandler onError, const Future<T>& result) {
  if (!onError) return nullptr;
  auto gate = std::make_shared<ErrorGate>(std::move(onError));
  result.onCancel([gate] { gate->close(); });
  return gate;
}

/// Whether the operation may be cancelled through its future: fetches may, events not.
enum class Cancellable { yes, no };

/// The public result of a request: its value, or nothing after the error went to
/// `reportError`. `request` must have no other consumer: its value is moved out. A cancelled
/// request ends the result with its `cancelled` error and reports nothing; cancelling the result
/// cancels the request (only when `cancellable`).
template <class T>
Future<std::optional<T>> settle(const Future<T>& request, ErrorHandler onError,
                                Cancellable cancellable = Cancellable::yes) {
  auto promise = std::make_shared<Promise<std::optional<T>>>();
  Future<std::optional<T>> result = promise->get_future();
  std::shared_ptr<ErrorGate> gate;
  if (onError) gate = std::make_shared<ErrorGate>(std::move(onError));
  if (cancellable == Cancellable::yes) {
    result.onCancel([gate, request] {
      if (gate) gate->close();
      request.cancel();
    });
  }
  request.whenReady([promise, gate](const Future<T>& answer) {
    try {
      // `request` is this function's own (made for it by the caller), so its value is
      // moved on rather than copied.
      promise->set_value(takeReadyValue(answer));
      return;
    } catch (const TransportError& e) {
      if (e.kind() == TransportError::Kind::cancelled) {
        promise->set_exception(std::current_exception());
        return;
      }
      if (gate) gate->report(std::current_exception());
    } catch (...) {
      if (gate) gate->report(std::current_exception());
    }
    promise->set_value(std::nullopt);
  });
  return result;
}
/// Calls `onError` (when given) with `error`, shielding the SDK from its exceptions.
void notify(const ErrorHandler& onError, const TavikError& error);
/// `Optional("text")` or `nil`, as the debug lines print optional strings.
std::string describeOptional(const std::optional<std::string>& text);
}  // namespace detail

}  // namespace tavik
