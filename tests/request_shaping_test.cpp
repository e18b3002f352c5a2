#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tavik/ads/product_ads_filter.h"
#include "tavik/ads/targeting.h"
#include "tavik/events/tracking_params.h"

namespace tavik {
namespace {

std::vector<std::string> keysOf(const Parameters& dictionary) {
  std::vector<std::string> keys;
  for (const auto& [key, value] : dictionary) keys.push_back(key);
  return keys;
}

TEST(ProductAdsFilterTest, ListsAppendSinglesReplaceAndEmptyMeansAbsent) {
  EXPECT_TRUE(ProductAdsFilter().toDictionary().empty());

  ProductAdsFilter filter;
  filter.device("").colors({});
  EXPECT_EQ(filter.toDictionary(), (Parameters{{"device", ""}}));

  filter.skuIds({"a"})
      .skuIds({"b", "a"})
      .minPrice("5")
      .minPrice("7")
      .colors({"red"})
      .colors({"blue"});
  const Parameters dictionary = filter.toDictionary();
  EXPECT_EQ(dictionary, (Parameters{{"sku_ids", StringList{"a", "b", "a"}},
                                    {"min_price", "7"},
                                    {"colors", StringList{"red", "blue"}},
                                    {"device", ""}}));
  // A shared filter keeps what any holder appended.
  auto shared = std::make_shared<ProductAdsFilter>();
  shared->categories({"c1"});
  auto alias = shared;
  alias->categories({"c2"});
  EXPECT_EQ(shared->toDictionary(), (Parameters{{"categories", StringList{"c1", "c2"}}}));
  EXPECT_EQ(shared->description(), R"(ProductAdsFilter(["categories": ["c1", "c2"]]))");
}

TEST(ProductAdsFilterTest, EveryFieldHasItsWireKey) {
  ProductAdsFilter filter;
  // Set in reverse so that the dictionary order cannot come from the call order.
  filter.device("d")
      .udps({"u"})
      .networks({"n"})
      .storeIds({"s"})
      .brandIds({"bi"})
      .brands({"b"})
      .rtlCustomLabels0({"r"})
      .customLabels8({"8"})
      .customLabels7({"7"})
      .customLabels6({"6"})
      .customLabels5({"5"})
      .customLabels4({"4"})
      .customLabels3({"3"})
      .customLabels2({"2"})
      .customLabels1({"1"})
      .sizes({"m"})
      .colors({"red"})
      .maxPrice("9.99")
      .minPrice("1")
      .skuIds({"sku"})
      .mcategoryIds({"mc"})
      .categories({"c"})
      .categoryId("cid");
  const Parameters dictionary = filter.toDictionary();
  EXPECT_EQ(keysOf(dictionary), (std::vector<std::string>{"category_id",
                                                          "categories",
                                                          "mcategory_ids",
                                                          "sku_ids",
                                                          "min_price",
                                                          "max_price",
                                                          "colors",
                                                          "sizes",
                                                          "custom_label_1",
                                                          "custom_label_2",
                                                          "custom_label_3",
                                                          "custom_label_4",
                                                          "custom_label_5",
                                                          "custom_label_6",
                                                          "custom_label_7",
                                                          "custom_label_8",
                                                          "rtl_custom_label_0",
                                                          "brands",
                                                          "brand_ids",
                                                          "store_id",
                                                          "network",
                                                          "udp",
                                                          "device"}));
  // Each list lands under its own key, prices stay text.
  EXPECT_EQ(*dictionary.find("store_id"), ParamValue(StringList{"s"}));
  EXPECT_EQ(*dictionary.find("custom_label_8"), ParamValue(StringList{"8"}));
  EXPECT_EQ(*dictionary.find("rtl_custom_label_0"), ParamValue(StringList{"r"}));
  EXPECT_EQ(*dictionary.find("max_price"), ParamValue("9.99"));
}

TEST(TargetingTest, GroupsUseSingularPrefixedKeysAndOmitEmptyFields) {
  EXPECT_TRUE(TargetingParamsBuilder().build().empty());
  EXPECT_TRUE(TargetingParamsBuilder()
                  .add(std::make_shared<GeoTargeting>())
                  .add(std::make_shared<CustomLabelTargeting>())
                  .add(nullptr)
                  .build()
                  .empty());

  GeoTargeting geo;
  geo.city("").storeIds({});
  EXPECT_EQ(geo.toDictionary(), (Parameters{{"f.city", ""}}));
  geo.country("NO").networks({"n1"}).storeIds({"s1"}).state("Oslo").networks({"n2"});
  EXPECT_EQ(geo.toDictionary(), (Parameters{{"f.store_id", StringList{"s1"}},
                                            {"f.network", StringList{"n1", "n2"}},
                                            {"f.city", ""},
                                            {"f.state", "Oslo"},
                                            {"f.country", "NO"}}));

  MerchandiseTargeting merchandise;
  merchandise.udps({"u"}).categoryL3("l3").categoryL2("l2").categoryL1("l1").brands({"x"});
  merchandise.brands({"y"}).categoryId("c").skuId("s");
  EXPECT_EQ(merchandise.toDictionary(), (Parameters{{"f.sku_id", "s"},
                                                    {"f.category_id", "c"},
                                                    {"f.brand", StringList{"x", "y"}},
                                                    {"f.category_l1", "l1"},
                                                    {"f.category_l2", "l2"},
                                                    {"f.category_l3", "l3"},
                                                    {"f.udp", StringList{"u"}}}));

  ContextTargeting context;
  context.keyword("first").keyword("second");
  EXPECT_EQ(context.toDictionary(), (Parameters{{"f.keyword", "second"}}));
  EXPECT_EQ(PlatformTargeting().device("ios").toDictionary(), (Parameters{{"f.device", "ios"}}));

  CustomLabelTargeting labels;
  labels.customLabels8({"h"}).customLabels1({"a"});
  EXPECT_EQ(labels.toDictionary(), (Parameters{{"f.custom_label_1", StringList{"a"}},
                                               {"f.custom_label_8", StringList{"h"}}}));
  EXPECT_EQ(labels.description(),
            R"(CustomLabelTargeting(["f.custom_label_1": ["a"], "f.custom_label_8": ["h"]]))");
}

// A group written by a host rather than the SDK.
class SeasonTargeting : public TargetingParams {
 public:
  Parameters toDictionary() const override { return {{"f.season", "winter"}, {"f.brand", "z"}}; }
};

TEST(TargetingTest, BuilderMergesGroupsLastAddedWinsKeyByKey) {
  auto first = std::make_shared<MerchandiseTargeting>();
  first->brands({"x"}).skuId("only-first");
  auto second = std::make_shared<MerchandiseTargeting>();
  second->brands({"y"});
  TargetingParamsBuilder builder;
  builder.add(first).add(std::make_shared<PlatformTargeting>()).add(second);
  EXPECT_EQ(builder.build(),
            (Parameters{{"f.sku_id", "only-first"}, {"f.brand", StringList{"y"}}}));

  // Groups are held by reference: later changes show in the next build.
  first->skuId("changed");
  EXPECT_EQ(*builder.build().find("f.sku_id"), ParamValue("changed"));

  // A host's own group merges like any other; its scalar replaces the list before it.
  builder.add(std::make_shared<SeasonTargeting>());
  const Parameters merged = builder.build();
  EXPECT_EQ(*merged.find("f.brand"), ParamValue("z"));
  EXPECT_EQ(*merged.find("f.season"), ParamValue("winter"));
  EXPECT_EQ(SeasonTargeting().description(), R"(["f.season": "winter", "f.brand": "z"])");
}

TEST(TrackingParamsTest, SettersReplaceAbsentValuesKeepAndTypesStay) {
  EXPECT_TRUE(TrackingParams().toDictionary().empty());

  TrackingParams params;
  params.skuId("a").skuId("b");
  params.sellerId("m1").sellerId(std::nullopt);
  params.productPrices("1.5|2").productPrices(std::nullopt);
  params.position(4).position(std::nullopt);
  params.videoViewSec(2.5f).videoDurationSec(30.0f).actionType(TavikVideoActionType::minimize);
  params.productQuantities(std::int64_t{3});
  const Parameters dictionary = params.toDictionary();
  EXPECT_EQ(dictionary, (Parameters{{"sku_id", "b"},
                                    {"seller_id", "m1"},
                                    {"product_prices", "1.5|2"},
                                    {"position", std::int64_t{4}},
                                    {"video_view_sec", 2.5f},
                                    {"video_duration_sec", 30.0f},
                                    {"action_type", "minimize"},
                                    {"product_quantities", std::int64_t{3}}}));
  EXPECT_TRUE(dictionary.find("video_view_sec")->isFloat());
  EXPECT_TRUE(dictionary.find("position")->isInteger());

  // The text "3" added by key stays text; the position setter stores an integer.
  EXPECT_TRUE(TrackingParams().add("position", "3").toDictionary().find("position")->isString());
  EXPECT_EQ(*TrackingParams().position(3).toDictionary().find("position"),
            ParamValue(std::int64_t{3}));
  EXPECT_EQ(*TrackingParams().productQuantities("1|2").toDictionary().find("product_quantities"),
            ParamValue("1|2"));

  // toDictionary hands out a copy.
  params.skuId("c");
  EXPECT_EQ(*dictionary.find("sku_id"), ParamValue("b"));
}

TEST(TrackingParamsTest, MergeOverwritesSharedKeysAndKeepsTheRest) {
  TrackingParams params;
  params.source("y").storeId("s");
  params.merge({{"source", "x"}, {"extra", true}});
  EXPECT_EQ(params.toDictionary(),
            (Parameters{{"source", "x"}, {"store_id", "s"}, {"extra", true}}));

  // Writes through one shared handle are seen by every holder.
  auto shared = std::make_shared<TrackingParams>();
  auto registrarView = shared;
  registrarView->uclid("u1");
  EXPECT_EQ(*shared->toDictionary().find("uclid"), ParamValue("u1"));

  const Product own("sku", 9.5f, 2);
  EXPECT_EQ(own.merchantId, std::nullopt);
  EXPECT_EQ(Product("sku", 9.5f, 2, "m"), (Product{"sku", 9.5f, 2, std::string("m")}));
}

}  // namespace
}  // namespace tavik
