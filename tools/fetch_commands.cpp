// pla, display: the fetcher's answers as JSON. banner, carousel, multi: the renderer's
// decoded ads as a table or as the SDK's own JSON form.

#include <array>
#include <iostream>
#include <map>

#include "ad_table.h"
#include "commands.h"
#include "session.h"
#include "tavik/ads/ad_renderer.h"
#include "tavik/ads/page_type.h"
#include "tavik/ads/product_ads_filter.h"
#include "tavik/ads/targeting.h"

namespace tavik::cli {

namespace {

using nlohmann::json;

constexpr std::int64_t kMaxCount = 1000;

const OptionList& filterOptions() {
  static const OptionList options = {
      {"--category-id", "ID", "filter: category id"},
      {"--mcategory-id", "ID", "filter: merchant category id", true},
      {"--color", "COLOR", "filter: color", true},
      {"--size", "SIZE", "filter: size", true},
      {"--brand", "BRAND", "filter: brand", true},
      {"--brand-id", "ID", "filter: brand id", true},
      {"--store", "ID", "filter: store id", true},
      {"--network", "NAME", "filter: network", true},
      {"--udp", "VALUE", "filter: udp", true},
      {"--custom-label", "N:VALUE", "filter: custom label N (1-8)", true},
      {"--min-price", "PRICE", "filter: lowest price"},
      {"--max-price", "PRICE", "filter: highest price"},
      {"--device", "DEVICE", "filter: device"},
  };
  return options;
}

const OptionList& targetingOptions() {
  static const OptionList options = {
      {"--device", "DEVICE", "targeting: device"},
      {"--keyword", "TEXT", "targeting: keyword"},
      {"--sku", "SKU", "targeting: product SKU"},
      {"--category-id", "ID", "targeting: category id"},
      {"--category-l1", "NAME", "targeting: level-1 category"},
      {"--category-l2", "NAME", "targeting: level-2 category"},
      {"--category-l3", "NAME", "targeting: level-3 category"},
      {"--brand", "BRAND", "targeting: brand", true},
      {"--udp", "VALUE", "targeting: udp", true},
      {"--store", "ID", "targeting: store id", true},
      {"--network", "NAME", "targeting: network", true},
      {"--city", "CITY", "targeting: city"},
      {"--state", "STATE", "targeting: state"},
      {"--country", "COUNTRY", "targeting: country"},
      {"--custom-label", "N:VALUE", "targeting: custom label N (1-8)", true},
  };
  return options;
}

// "--custom-label 3:red --custom-label 3:blue" as {3: [red, blue]}.
std::map<int, StringList> customLabels(const Arguments& args) {
  std::map<int, StringList> labels;
  for (const auto& item : args.values("--custom-label")) {
    const auto colon = item.find(':');
    if (colon == std::string::npos) {
      throw UsageError("--custom-label needs N:VALUE with N from 1 to 8, not '" + item + "'");
    }
    const auto index =
        parseInteger(std::string_view(item).substr(0, colon), "--custom-label", 1, 8);
    labels[static_cast<int>(index)].push_back(item.substr(colon + 1));
  }
  return labels;
}

std::shared_ptr<ProductAdsFilter> filterFrom(const Arguments& args) {
  bool any = false;
  for (const auto& option : filterOptions()) any = any || args.has(option.name);
  if (!any) return nullptr;

  using ListSetter = ProductAdsFilter& (ProductAdsFilter::*)(const StringList&);
  static constexpr std::array<ListSetter, 8> labelSetters = {
      &ProductAdsFilter::customLabels1, &ProductAdsFilter::customLabels2,
      &ProductAdsFilter::customLabels3, &ProductAdsFilter::customLabels4,
      &ProductAdsFilter::customLabels5, &ProductAdsFilter::customLabels6,
      &ProductAdsFilter::customLabels7, &ProductAdsFilter::customLabels8};

  auto filter = std::make_shared<ProductAdsFilter>();
  if (auto v = args.value("--category-id")) filter->categoryId(*v);
  if (auto v = args.value("--min-price")) filter->minPrice(*v);
  if (auto v = args.value("--max-price")) filter->maxPrice(*v);
  if (auto v = args.value("--device")) filter->device(*v);
  filter->mcategoryIds(args.values("--mcategory-id"))
      .colors(args.values("--color"))
      .sizes(args.values("--size"))
      .brands(args.values("--brand"))
      .brandIds(args.values("--brand-id"))
      .storeIds(args.values("--store"))
      .networks(args.values("--network"))
      .udps(args.values("--udp"));
  for (const auto& [index, values] : customLabels(args)) {
    (filter.get()->*labelSetters[index - 1])(values);
  }
  return filter;
}

std::optional<TargetingList> targetingFrom(const Arguments& args) {
  TargetingList groups;
  if (auto device = args.value("--device")) {
    auto group = std::make_shared<PlatformTargeting>();
    group->device(*device);
    groups.push_back(group);
  }
  if (auto keyword = args.value("--keyword")) {
    auto group = std::make_shared<ContextTargeting>();
    group->keyword(*keyword);
    groups.push_back(group);
  }
  if (args.has("--sku") || args.has("--category-id") || args.has("--category-l1") ||
      args.has("--category-l2") || args.has("--category-l3") || args.has("--brand") ||
      args.has("--udp")) {
    auto group = std::make_shared<MerchandiseTargeting>();
    if (auto v = args.value("--sku")) group->skuId(*v);
    if (auto v = args.value("--category-id")) group->categoryId(*v);
    if (auto v = args.value("--category-l1")) group->categoryL1(*v);
    if (auto v = args.value("--category-l2")) group->categoryL2(*v);
    if (auto v = args.value("--category-l3")) group->categoryL3(*v);
    group->brands(args.values("--brand")).udps(args.values("--udp"));
    groups.push_back(group);
  }
  if (args.has("--store") || args.has("--network") || args.has("--city") || args.has("--state") ||
      args.has("--country")) {
    auto group = std::make_shared<GeoTargeting>();
    group->storeIds(args.values("--store")).networks(args.values("--network"));
    if (auto v = args.value("--city")) group->city(*v);
    if (auto v = args.value("--state")) group->state(*v);
    if (auto v = args.value("--country")) group->country(*v);
    groups.push_back(group);
  }
  if (const auto labels = customLabels(args); !labels.empty()) {
    using ListSetter = CustomLabelTargeting& (CustomLabelTargeting::*)(const StringList&);
    static constexpr std::array<ListSetter, 8> setters = {
        &CustomLabelTargeting::customLabels1, &CustomLabelTargeting::customLabels2,
        &CustomLabelTargeting::customLabels3, &CustomLabelTargeting::customLabels4,
        &CustomLabelTargeting::customLabels5, &CustomLabelTargeting::customLabels6,
        &CustomLabelTargeting::customLabels7, &CustomLabelTargeting::customLabels8};
    auto group = std::make_shared<CustomLabelTargeting>();
    for (const auto& [index, values] : labels) (group.get()->*setters[index - 1])(values);
    groups.push_back(group);
  }
  if (groups.empty()) return std::nullopt;
  return groups;
}

// The fetcher's answer: its "data" as indented JSON, or as received with --raw.
int printFetched(Session& session, const std::optional<json>& answer, bool raw) {
  if (session.printErrors()) return kExitFailure;
  if (!answer) {
    std::cerr << "error: the SDK returned no answer and reported no error\n";
    return kExitFailure;
  }
  const auto unwrapped = unwrapAnswer(*answer);
  if (!unwrapped) {
    std::cerr << "error: not a response dictionary: " << answer->dump() << "\n";
    return kExitFailure;
  }
  std::cout << (raw ? unwrapped->data : prettyJson(unwrapped->data)) << "\n";
  return kExitOk;
}

// Rejects an option that the chosen page type does not use, and requires one it does.
void requireFor(const Arguments& args, std::string_view option, bool used, bool required,
                std::string_view page) {
  if (!used && args.has(option)) {
    throw UsageError(std::string(option) + " does not apply to --page " + std::string(page));
  }
  if (used && required && !args.has(option)) {
    throw UsageError("--page " + std::string(page) + " needs " + std::string(option));
  }
}

template <class T>
int printRendered(Session& session, const std::optional<T>& result, bool asJson) {
  if (session.printErrors()) return kExitFailure;
  if (!result) {
    std::cerr << "error: the SDK returned no ads and reported no error\n";
    return kExitFailure;
  }
  if (asJson) {
    json document;
    if constexpr (std::is_same_v<T, std::vector<BannerAd>>) {
      document = json::array();
      for (const auto& ad : *result) document.push_back(toJson(ad));
    } else {
      document = toJson(*result);
    }
    std::cout << document.dump(2, ' ', false, json::error_handler_t::replace) << "\n";
    return kExitOk;
  }
  AdTable table;
  if constexpr (std::is_same_v<T, std::vector<BannerAd>>) {
    for (const auto& ad : *result) table.add(ad);
  } else {
    table.add(*result);
  }
  table.print(std::cout);
  return kExitOk;
}

// What the three renderer commands share. The options are read before the SDK is built,
// so that bad usage never reaches the network.
struct RendererCall {
  std::optional<TargetingList> targeting;
  std::string page;
  std::string adUnit;
  Session session;
  std::unique_ptr<AdRendererProtocol> renderer;

  explicit RendererCall(const Arguments& args)
      : targeting(targetingFrom(args)),
        page(args.valueOr("--page", "HOME")),
        adUnit(args.valueOr("--au", "")),
        session(connectionFrom(args, {Service::displayAds})),
        renderer(session.sdk().adRenderer()) {}
};

void requireAdUnit(const Arguments& args) {
  if (!args.has("--au")) throw UsageError("--au is required");
}

}  // namespace

const OptionList& plaOptions() {
  static const OptionList options = concat(
      {
          {"--page", "TYPE", "HOME, SEARCH, CATEGORY, PRODUCT, PURCHASE or TPA (required)"},
          {"--count", "N", "how many products to ask for (default 5)"},
          {"--keywords", "TEXT", "search words (SEARCH)"},
          {"--sku", "SKU", "SKU on the page (PRODUCT, PURCHASE, TPA)", true},
          {"--category", "NAME", "category of the page (CATEGORY)", true},
          {"--page-name", "NAME", "the host's name for the page"},
          {"--raw", "", "print the answer's data as received"},
      },
      filterOptions());
  return options;
}

const OptionList& displayOptions() {
  static const OptionList options = concat(
      {
          {"--au", "AD_UNIT", "ad unit to ask for", true},
          {"--pt", "PAGE_TYPE", "ask for the ad units of a page type instead"},
          {"--page", "PAGE_TYPE", "page type sent with --au (default HOME)"},
          {"--count", "N", "ads per ad unit (default 1)"},
          {"--raw", "", "print the answer's data as received"},
      },
      targetingOptions());
  return options;
}

const OptionList& rendererOptions() {
  static const OptionList options = concat(
      {
          {"--au", "AD_UNIT", "ad unit (required)"},
          {"--page", "PAGE_TYPE", "page type (default HOME)"},
          {"--json", "", "print the decoded ads as JSON instead of a table"},
      },
      targetingOptions());
  return options;
}

const OptionList& multiOptions() {
  static const OptionList options =
      concat({{"--count", "N", "how many ads to ask for (default 5)"}}, rendererOptions());
  return options;
}

int runPla(const Arguments& args) {
  const auto pageText = args.value("--page");
  if (!pageText) throw UsageError("--page is required");
  const auto page = fromString<PlaPageType>(*pageText);
  if (!page) {
    throw UsageError("--page needs HOME, SEARCH, CATEGORY, PRODUCT, PURCHASE or TPA, not '" +
                     *pageText + "'");
  }
  const std::string_view name = rawValue(*page);
  const bool bySku =
      *page == PlaPageType::product || *page == PlaPageType::purchase || *page == PlaPageType::tpa;
  requireFor(args, "--keywords", *page == PlaPageType::search, true, name);
  requireFor(args, "--sku", bySku, true, name);
  requireFor(args, "--category", *page == PlaPageType::category, true, name);
  const auto count = args.integer("--count", 5, 0, kMaxCount);
  const auto filter = filterFrom(args);

  Session session(connectionFrom(args, {Service::productAds}));
  const auto fetcher = session.sdk().adFetcher();
  const auto& cliUbid = session.connection().cliUbid;
  const auto pageName = args.value("--page-name");
  const auto onError = session.errorHandler();
  AdFetcherProtocol::Result result;
  switch (*page) {
    case PlaPageType::home:
      result = fetcher->fetchPlaHomePageAds(cliUbid, count, pageName, filter, onError);
      break;
    case PlaPageType::search:
      result = fetcher->fetchPlaSearchPageAds(cliUbid, count, *args.value("--keywords"), pageName,
                                              filter, onError);
      break;
    case PlaPageType::category:
      result = fetcher->fetchPlaCategoryPageAds(cliUbid, count, args.values("--category"), pageName,
                                                filter, onError);
      break;
    case PlaPageType::product:
      result = fetcher->fetchPlaProductPageAds(cliUbid, count, args.values("--sku"), pageName,
                                               filter, onError);
      break;
    case PlaPageType::purchase:
      result = fetcher->fetchPlaPurchasePageAds(cliUbid, count, args.values("--sku"), pageName,
                                                filter, onError);
      break;
    case PlaPageType::tpa:
      result =
          fetcher->fetchTpaPageAds(cliUbid, count, args.values("--sku"), pageName, filter, onError);
      break;
  }
  return printFetched(session, session.await(result), args.has("--raw"));
}

int runDisplay(const Arguments& args) {
  const bool byUnit = args.has("--au");
  if (byUnit == args.has("--pt")) throw UsageError("give either --au (repeatable) or --pt");
  if (!byUnit && args.has("--page")) throw UsageError("--page goes with --au; --pt names the page");
  const auto count = args.integer("--count", 1, 0, kMaxCount);
  const auto targeting = targetingFrom(args);

  Session session(connectionFrom(args, {Service::displayAds}));
  const auto fetcher = session.sdk().adFetcher();
  const auto& cliUbid = session.connection().cliUbid;
  const auto result = byUnit ? fetcher->fetchDisplayAdsWithAu(
                                   cliUbid, args.valueOr("--page", "HOME"), count,
                                   args.values("--au"), targeting, session.errorHandler())
                             : fetcher->fetchDisplayAdsWithPt(cliUbid, *args.value("--pt"), count,
                                                              targeting, session.errorHandler());
  return printFetched(session, session.await(result), args.has("--raw"));
}

int runBanner(const Arguments& args) {
  requireAdUnit(args);
  RendererCall call(args);
  const auto& cliUbid = call.session.connection().cliUbid;
  const auto ad = call.session.await(call.renderer->fetchBannerAdsWithAu(
      cliUbid, call.page, call.adUnit, call.targeting, call.session.errorHandler()));
  return printRendered(call.session, ad, args.has("--json"));
}

int runCarousel(const Arguments& args) {
  requireAdUnit(args);
  RendererCall call(args);
  const auto& cliUbid = call.session.connection().cliUbid;
  const auto ad = call.session.await(call.renderer->fetchCarouselAdWithAu(
      cliUbid, call.page, call.adUnit, call.targeting, call.session.errorHandler()));
  return printRendered(call.session, ad, args.has("--json"));
}

int runMulti(const Arguments& args) {
  requireAdUnit(args);
  const auto count = args.integer("--count", 5, 0, kMaxCount);
  RendererCall call(args);
  const auto& cliUbid = call.session.connection().cliUbid;
  const auto ads = call.session.await(call.renderer->fetchMultiAdCarouselWithAu(
      cliUbid, call.page, call.adUnit, count, call.targeting, call.session.errorHandler()));
  return printRendered(call.session, ads, args.has("--json"));
}

}  // namespace tavik::cli
