#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tavik/ads/ad_fetcher.h"
#include "tavik/ads/ad_models.h"

namespace tavik {

/// Fetches the display ads of one ad unit and hands them back decoded, stamped with the
/// caller's `cliUbid`. Every operation returns at once; on failure its future holds
/// nothing and `onError` (when given) was called: a failing fetch reports the fetcher's
/// own error and then `badResponse`; an answer without the expected envelope gives
/// `badResponse`; a document that does not decode gives `defaultError` carrying a
/// `DecodingError` that names the offending key; a missing or empty ad unit gives
/// `failedToDecode`.
class AdRendererProtocol {
 public:
  virtual ~AdRendererProtocol() = default;

  /// The first ad of `adUnit` (the server's order; `rank` is not consulted).
  virtual Future<std::optional<BannerAd>> fetchBannerAdsWithAu(
      const std::string& cliUbid, const std::string& pageType, const std::string& adUnit,
      std::optional<TargetingList> targetingParams = std::nullopt,
      ErrorHandler onError = nullptr) = 0;
  /// The first carousel ad of `adUnit`.
  virtual Future<std::optional<CarouselAd>> fetchCarouselAdWithAu(
      const std::string& cliUbid, const std::string& pageType, const std::string& adUnit,
      std::optional<TargetingList> targetingParams = std::nullopt,
      ErrorHandler onError = nullptr) = 0;
  /// Every ad of `adUnit`, in the server's order; asks for `productCount` ads.
  virtual Future<std::optional<std::vector<BannerAd>>> fetchMultiAdCarouselWithAu(
      const std::string& cliUbid, const std::string& pageType, const std::string& adUnit,
      std::int64_t productCount, std::optional<TargetingList> targetingParams = std::nullopt,
      ErrorHandler onError = nullptr) = 0;
};

/// The SDK's renderer: holds a copy of the configuration and makes a new fetcher for
/// every call. Use it through `AdRendererProtocol` (`TAVIK::adRenderer()`).
class AdRenderer : public AdRendererProtocol {
 public:
  /// Keeps `config`; each call makes a fetcher from it.
  explicit AdRenderer(Config config) : config_(std::move(config)) {}

  Future<std::optional<BannerAd>> fetchBannerAdsWithAu(const std::string& cliUbid,
                                                       const std::string& pageType,
                                                       const std::string& adUnit,
                                                       std::optional<TargetingList> targetingParams,
                                                       ErrorHandler onError) override;
  Future<std::optional<CarouselAd>> fetchCarouselAdWithAu(
      const std::string& cliUbid, const std::string& pageType, const std::string& adUnit,
      std::optional<TargetingList> targetingParams, ErrorHandler onError) override;
  Future<std::optional<std::vector<BannerAd>>> fetchMultiAdCarouselWithAu(
      const std::string& cliUbid, const std::string& pageType, const std::string& adUnit,
      std::int64_t productCount, std::optional<TargetingList> targetingParams,
      ErrorHandler onError) override;

 private:
  Config config_;
};

namespace detail {
/// The ads document inside a response dictionary: "status" must be the boolean true,
/// "response" an object and its "data" a string of valid UTF-8. nullptr otherwise.
const std::string* unwrapEnvelope(const std::optional<nlohmann::json>& answer);
const std::string* unwrapEnvelope(const nlohmann::json& answer);
/// The result points into `answer`, so a temporary answer is refused.
const std::string* unwrapEnvelope(std::optional<nlohmann::json>&& answer) = delete;
}  // namespace detail

}  // namespace tavik
