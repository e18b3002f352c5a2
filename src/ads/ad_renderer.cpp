#include "tavik/ads/ad_renderer.h"

#include "core/utf8.h"

#include "tavik/core/tavik.h"

namespace tavik {

namespace detail {

const std::string* unwrapEnvelope(const std::optional<nlohmann::json>& answer) {
  return answer ? unwrapEnvelope(*answer) : nullptr;
}

const std::string* unwrapEnvelope(const nlohmann::json& answer) {
  if (!answer.is_object()) return nullptr;
  const auto status = answer.find("status");
  if (status == answer.end() || !status->is_boolean() || !status->get<bool>()) return nullptr;
  const auto response = answer.find("response");
  if (response == answer.end() || !response->is_object()) return nullptr;
  const auto data = response->find("data");
  if (data == response->end() || !data->is_string()) return nullptr;
  const auto* text = data->get_ptr<const std::string*>();
  return isValidUtf8(*text) ? text : nullptr;
}

}  // namespace detail

namespace {

// The steps all three operations share: fetch, unwrap, decode with `decode`, look up the
// ad unit, then let `pick` stamp and choose what is returned.
template <class Result, class Decode, class Pick>
Future<std::optional<Result>> render(const Config& config, const std::string& cliUbid,
                                     const std::string& pageType, const std::string& adUnit,
                                     std::int64_t productCount,
                                     std::optional<TargetingList> targetingParams,
                                     ErrorHandler onError, Decode decode, Pick pick) {
  AdFetcher fetcher(config, WebService(config.debug));
  auto answer = fetcher.fetchDisplayAdsWithAuAnswer(cliUbid, pageType, productCount, {adUnit},
                                                    targetingParams, onError);
  // The renderer's own errors go through a gate that cancelling the result closes.
  auto gate = std::make_shared<detail::ErrorGate>(std::move(onError));
  auto result =
      answer.then([gate, adUnit, cliUbid, decode,
                   pick](const std::optional<detail::Answer>& answer) -> std::optional<Result> {
        const std::string* data = answer ? detail::unwrapEnvelope(answer->dictionary) : nullptr;
        if (!data) {
          gate->report(TavikError::badResponse());
          return std::nullopt;
        }
        // The answer holds the body as checked text or as a parsed value (an empty body as
        // neither: "data" is empty then too).
        decltype(decode(*data)) document;
        try {
          document = !answer->text.empty()    ? decode(answer->text)
                     : answer->body.is_null() ? decode(*data)
                                              : decode(answer->body);
        } catch (const DecodingError& e) {
          gate->report(TavikError::defaultError(std::make_shared<DecodingError>(e)));
          return std::nullopt;
        }
        auto ads = document.ads.find(adUnit);
        if (ads == document.ads.end() || ads->second.empty()) {
          gate->report(TavikError::failedToDecode());
          return std::nullopt;
        }
        for (auto& ad : ads->second) ad.cliUbid = cliUbid;
        return pick(std::move(ads->second));
      });
  result.onCancel([gate] { gate->close(); });
  return result;
}

}  // namespace

Future<std::optional<BannerAd>> AdRenderer::fetchBannerAdsWithAu(
    const std::string& cliUbid, const std::string& pageType, const std::string& adUnit,
    std::optional<TargetingList> targetingParams, ErrorHandler onError) {
  return render<BannerAd>(
      config_, cliUbid, pageType, adUnit, 1, std::move(targetingParams), std::move(onError),
      [](const auto& source) { return decodeAds(source); },
      [](std::vector<BannerAd> ads) { return std::move(ads.front()); });
}

Future<std::optional<CarouselAd>> AdRenderer::fetchCarouselAdWithAu(
    const std::string& cliUbid, const std::string& pageType, const std::string& adUnit,
    std::optional<TargetingList> targetingParams, ErrorHandler onError) {
  return render<CarouselAd>(
      config_, cliUbid, pageType, adUnit, 1, std::move(targetingParams), std::move(onError),
      [](const auto& source) { return decodeCarouselAds(source); },
      [](std::vector<CarouselAd> ads) { return std::move(ads.front()); });
}

Future<std::optional<std::vector<BannerAd>>> AdRenderer::fetchMultiAdCarouselWithAu(
    const std::string& cliUbid, const std::string& pageType, const std::string& adUnit,
    std::int64_t productCount, std::optional<TargetingList> targetingParams, ErrorHandler onError) {
  return render<std::vector<BannerAd>>(
      config_, cliUbid, pageType, adUnit, productCount, std::move(targetingParams),
      std::move(onError), [](const auto& source) { return decodeMultiAdsCarousel(source); },
      [](std::vector<BannerAd> ads) { return ads; });
}

std::unique_ptr<AdRendererProtocol> TAVIK::adRenderer() const {
  if (!configured()) return nullptr;
  return std::make_unique<AdRenderer>(*_config);
}

}  // namespace tavik
