#include "tavik/ads/ad_models.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

#include <nlohmann/json.hpp>

namespace tavik {
namespace {

using nlohmann::json;

json bannerJson(const std::string& uclid, std::int64_t rank = 1) {
  return {
      {"uclid", uclid},
      {"au", "au_home"},
      {"crt", "tavik_sdk/image/v1"},
      {"client_id", 42},
      {"elements",
       {{"value", "https://cdn.test/a.png"}, {"height", 250}, {"width", 300}, {"type", "image"}}},
      {"rank", rank},
      {"click_tracking_url", "https://t.test/c"},
      {"impression_tracking_url", "https://t.test/i"}};
}

json carouselJson(json cards) {
  json ad = bannerJson("c1");
  ad["crt"] = "tavik_sdk/carousel/v1";
  ad["elements"] = {{"carousel_cards", std::move(cards)}};
  return ad;
}

// Decodes `doc` and returns the DecodingError's message ("" if it decoded).
std::string adsError(const json& doc) {
  try {
    decodeAds(doc.dump());
  } catch (const DecodingError& e) {
    return e.what();
  }
  return "";
}

TEST(AdModelsDecode, RequiredAndOptionalFields) {
  json doc = {{"ads", {{"au_home", {bannerJson("u1"), bannerJson("u2")}}}}};
  doc["ads"]["au_home"][0]["cli_ubid"] = nullptr;
  doc["ads"]["au_home"][1]["cli_ubid"] = "shopper-7";
  doc["ads"]["au_home"][1]["elements"]["auto_close_sec"] = 5;
  doc["ads"]["au_home"][1]["unknown"] = {{"nested", {1, 2, 3}}};  // ignored

  const Ads ads = decodeAds(doc.dump());
  const auto& list = ads.ads.at("au_home");
  ASSERT_EQ(list.size(), 2u);
  const BannerAd& first = list[0];
  EXPECT_EQ(first.id(), "u1");
  EXPECT_EQ(first.clientId, 42);
  EXPECT_EQ(first.elements.width, 300);
  EXPECT_EQ(first.cliUbid, std::nullopt);  // null
  EXPECT_EQ(first.elements.destinationUrl, std::nullopt);
  EXPECT_EQ(first.elements.videoProgressSec, std::nullopt);
  EXPECT_EQ(first.elements.closeButtonSec, std::nullopt);
  EXPECT_EQ(first.elements.autoCloseSec, std::nullopt);
  EXPECT_EQ(list[1].cliUbid, "shopper-7");
  EXPECT_EQ(list[1].elements.autoCloseSec, 5);

  doc["ads"]["au_home"][0].erase("cli_ubid");  // missing
  EXPECT_EQ(decodeAds(doc).ads.at("au_home")[0].cliUbid, std::nullopt);
}

TEST(AdModelsDecode, UnitsAndOrderAreKept) {
  // Array order is the server's, not the rank's.
  const json doc = {{"ads",
                     {{"au_b", {bannerJson("b1", 9), bannerJson("b2", 1), bannerJson("b3", 5)}},
                      {"au_a", {bannerJson("a1")}},
                      {"au_empty", json::array()}}}};
  const MultiAdsCarousel multi = decodeMultiAdsCarousel(doc.dump());
  ASSERT_EQ(multi.ads.size(), 3u);
  const auto& b = multi.ads.at("au_b");
  ASSERT_EQ(b.size(), 3u);
  EXPECT_EQ(b[0].uclid + b[1].uclid + b[2].uclid, "b1b2b3");
  EXPECT_TRUE(multi.ads.at("au_empty").empty());
  static_assert(!std::is_same_v<Ads, MultiAdsCarousel>);
}

TEST(AdModelsDecode, CarouselCards) {
  const json cards = {
      {{"media", {{"value", "v1"}, {"height", 1}, {"width", 2}, {"type", "image"}}}},
      {{"media",
        {{"value", "v2"},
         {"height", 3},
         {"width", 4},
         {"type", "video"},
         {"video_progress_sec", 2}}},
       {"destination_url", "https://shop.test/p"}}};
  const CarouselAd ad = decodeCarouselAd(carouselJson(cards).dump());
  ASSERT_EQ(ad.elements.carouselCards.size(), 2u);
  EXPECT_EQ(ad.elements.carouselCards[0].destinationUrl, std::nullopt);
  EXPECT_EQ(ad.elements.carouselCards[1].media.videoProgressSec, 2);
  EXPECT_EQ(ad.elements.carouselCards[1].destinationUrl, "https://shop.test/p");

  EXPECT_TRUE(decodeCarouselAd(carouselJson(json::array())).elements.carouselCards.empty());
  const json doc = {{"ads", {{"au_c", {carouselJson(json::array())}}}}};
  EXPECT_EQ(decodeCarouselAds(doc.dump()).ads.at("au_c").size(), 1u);
}

TEST(AdModelsDecode, IntegerBoundaries) {
  const auto rankOf = [](const std::string& rank) {
    std::string text = bannerJson("u").dump();
    text.replace(text.find("\"rank\":1"), 8, "\"rank\":" + rank);
    return decodeBannerAd(text).rank;
  };
  EXPECT_EQ(rankOf("9223372036854775807"), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(rankOf("-9223372036854775808"), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(rankOf("0"), 0);
  // An integral value written with a fraction or an exponent is still an integer.
  EXPECT_EQ(rankOf("1.0"), 1);
  EXPECT_EQ(rankOf("1e2"), 100);
  EXPECT_EQ(rankOf("-2.0"), -2);
  for (const char* bad :
       {"9223372036854775808", "18446744073709551615", "99999999999999999999", "1e400", "-1e400",
        "9.3e18", "1.5", "1e-2", "\"1\"", "true", "[1]", "{}"}) {
    EXPECT_THROW(rankOf(bad), DecodingError) << bad;
  }
}

TEST(AdModelsErrors, MessagesNameProblemAndPath) {
  const auto withAd = [](json ad) {
    return json{{"ads", {{"au_home", {bannerJson("ok"), std::move(ad)}}}}};
  };
  json ad = bannerJson("x");
  ad.erase("rank");
  EXPECT_EQ(adsError(withAd(ad)), "missing required key \"rank\" at ads.au_home[1].rank");
  ad["rank"] = nullptr;
  EXPECT_EQ(adsError(withAd(ad)), "required key \"rank\" is null at ads.au_home[1].rank");
  ad["rank"] = "1";
  EXPECT_EQ(adsError(withAd(ad)),
            "expected an integer but found string \"1\" at ads.au_home[1].rank");
  ad["rank"] = 1.5;
  EXPECT_EQ(adsError(withAd(ad)),
            "expected an integer but found number 1.5 at ads.au_home[1].rank");
  ad["rank"] = 1e19;
  EXPECT_EQ(adsError(withAd(ad)),
            "expected an integer but found number 1e+19 (outside the 64-bit integer range) at "
            "ads.au_home[1].rank");
  ad["rank"] = 2;
  ad["elements"]["height"] = true;
  EXPECT_EQ(adsError(withAd(ad)),
            "expected an integer but found boolean true at ads.au_home[1].elements.height");
  ad["elements"]["height"] = 1;
  ad["elements"]["destination_url"] = 7;
  EXPECT_EQ(adsError(withAd(ad)),
            "expected a string but found number 7 at ads.au_home[1].elements.destination_url");

  // Unit names that are not plain words are quoted; the first bad field wins.
  const json weird = {{"ads", {{"home page.top", {bannerJson("u", 1), json::array()}}}}};
  EXPECT_EQ(adsError(weird), "expected an object but found an array at ads[\"home page.top\"][1]");

  json cards = carouselJson({{{"media", {{"value", "v"}, {"height", 1}, {"type", "image"}}}}});
  try {
    decodeCarouselAds(json{{"ads", {{"au_c", {cards}}}}}.dump());
    FAIL() << "decoded";
  } catch (const DecodingError& e) {
    EXPECT_EQ(e.path(), "ads.au_c[0].elements.carousel_cards[0].media.width");
    EXPECT_STREQ(e.what(), ("missing required key \"width\" at " + e.path()).c_str());
  }

  EXPECT_EQ(adsError(json::array()), "expected an object but found an array at $");
  EXPECT_EQ(adsError({{"ad", 1}}), "missing required key \"ads\" at ads");
  EXPECT_EQ(adsError({{"ads", {{"au", {{"k", 1}}}}}}),
            "expected an array of ads but found an object at ads.au");
  json extra = {{"ads", {{"au", json::array({bannerJson("u")})}}}};
  extra["x"] = 1;
  EXPECT_EQ(adsError(extra), "");
}

TEST(AdModelsErrors, OneBadAdFailsTheWholeDocument) {
  json bad = bannerJson("bad");
  bad["rank"] = "1";
  const json doc = {{"ads", {{"au_a", {bannerJson("a")}}, {"au_z", {bannerJson("z1"), bad}}}}};
  EXPECT_THROW(decodeAds(doc.dump()), DecodingError);
  EXPECT_THROW(decodeMultiAdsCarousel(doc), DecodingError);
}

// Whatever the text, decoding ends in a value or a DecodingError with a printable message.
void expectDecodingErrorOnly(const std::string& text) {
  for (int kind = 0; kind < 3; ++kind) {
    try {
      if (kind == 0) decodeAds(text);
      if (kind == 1) decodeCarouselAds(text);
      if (kind == 2) decodeBannerAd(text);
      ADD_FAILURE() << "decoded: " << text.substr(0, 80);
    } catch (const DecodingError& e) {
      EXPECT_NO_THROW(static_cast<void>(json(e.what()).dump())) << "message is not UTF-8";
    }
  }
}

TEST(AdModelsHostile, BadTextGivesDecodingError) {
  for (const char* text :
       {"", "   ", "null", "[]", "\"ads\"", "42", "{", "{\"ads\":", "{\"ads\":[]}",
        "{\"ads\":null}", "{\"ads\":{\"u\":null}}", "{\"ads\":{}} trailing",
        "{\"ads\":{\"u\":[1e400]}}", "{\"ads\":{\"u\":[99999999999999999999]}}"}) {
    expectDecodingErrorOnly(text);
  }
  expectDecodingErrorOnly(std::string(100000, '['));
  std::string objects;
  for (int i = 0; i < 100000; ++i) objects += "{\"a\":";
  expectDecodingErrorOnly(objects);
  expectDecodingErrorOnly("{\"ads\":{\"u\":[{\"uclid\":\"\xff\xfe\"}]}}");
  expectDecodingErrorOnly("{\"ads\":{\"\xc3\x28\":[]}}");
  expectDecodingErrorOnly(std::string("{\"ads\":{}}\0", 11));

  // Every truncation of a valid document fails cleanly.
  const std::string full = json{{"ads", {{"au", {bannerJson("u")}}}}}.dump();
  for (std::size_t n = 0; n < full.size(); ++n) expectDecodingErrorOnly(full.substr(0, n));
  EXPECT_NO_THROW(decodeAds(full));

  try {
    decodeAds("{\"ads\": {\"au\": [}");
    FAIL();
  } catch (const DecodingError& e) {
    EXPECT_EQ(std::string(e.what()).rfind("invalid JSON: parse error at line 1, column 17", 0), 0u)
        << e.what();
    EXPECT_EQ(e.path(), "");
  }
}

TEST(AdModelsHostile, NestingLimitAppliesEverywhere) {
  const auto nested = [](int depth) {
    json ad = bannerJson("u");
    std::string text = ad.dump();
    // Bury an ignored key `depth - 4` levels below the ad (document, ads, unit, ad).
    const std::string deep = std::string(depth - 4, '[') + std::string(depth - 4, ']');
    text.insert(1, "\"extra\":" + deep + ",");
    return "{\"ads\":{\"au\":[" + text + "]}}";
  };
  EXPECT_NO_THROW(decodeAds(nested(kMaxJsonNestingDepth)));
  expectDecodingErrorOnly(nested(kMaxJsonNestingDepth + 1));

  // A value parsed by the caller with invalid UTF-8 still gives a readable message.
  json doc = {{"ads", {{"au", {bannerJson("u")}}}}};
  doc["ads"]["au"][0]["rank"] = std::string("\xff\x01", 2);
  try {
    decodeAds(doc);
    FAIL();
  } catch (const DecodingError& e) {
    EXPECT_NO_THROW(static_cast<void>(json(e.what()).dump()));
    EXPECT_EQ(e.path(), "ads.au[0].rank");
  }
}

// Text is decoded by a faster parser than the one behind a caller's parsed value; both must
// give the same records, or the same error with the same path, for every document.
TEST(AdModelsDecode, TextAndParsedValueDecodeAlike) {
  const std::string ad = bannerJson("u").dump();
  const auto withAd = [](const std::string& adText) {
    return R"({"ads":{"b":[)" + adText + R"(],"a":[]}})";
  };
  const auto replace = [&](const std::string& from, const std::string& to) {
    std::string text = ad;
    text.replace(text.find(from), from.size(), to);
    return withAd(text);
  };
  const std::vector<std::string> documents = {
      withAd(ad),
      // Duplicate keys: the last one counts, for a field and for an ad unit.
      replace(R"("rank":1)", R"("rank":"one","rank":7)"),
      replace(R"("rank":1)", R"("rank":7,"rank":"one")"),
      R"({"ads":{"a":[1],"a":[]}})",
      R"({"ads":{"a":[],"a":[1]}})",
      // Numbers at and beyond the 64-bit integer range, integral floats, -0.
      replace(R"("rank":1)", R"("rank":9223372036854775807)"),
      replace(R"("rank":1)", R"("rank":9223372036854775808)"),
      replace(R"("rank":1)", R"("rank":18446744073709551616)"),
      replace(R"("rank":1)", R"("rank":-9223372036854775809)"),
      replace(R"("rank":1)", R"("rank":1e2)"),
      replace(R"("rank":1)", R"("rank":1.5)"),
      replace(R"("rank":1)", R"("rank":-0)"),
      replace(R"("rank":1)", R"("rank":1e400)"),
      // Escapes, a NUL by escape, surrogates, control characters, bad UTF-8.
      replace(R"("uclid":"u")", R"("uclid":"\u00e9\ud83d\ude00\u0000\"\\\/")"),
      replace(R"("uclid":"u")", R"("uclid":"\ud800")"),
      replace(R"("uclid":"u")", "\"uclid\":\"a\x01\""),
      replace(R"("uclid":"u")", "\"uclid\":\"\xff\""),
      // Nulls, wrong types, missing keys, trailing text, a byte-order mark.
      replace(R"("rank":1)", R"("rank":null)"),
      replace(R"("uclid":"u")", R"("uclid":["u"])"),
      replace(R"("elements":)", R"("elementz":)"),
      R"({"ads":[]})",
      R"({"ads":{"a":{}}})",
      withAd(ad) + " x",
      "\xEF\xBB\xBF" + withAd(ad),
      "",
  };
  for (const auto& text : documents) {
    std::string fromText, fromValue;
    try {
      fromText = encode(decodeAds(text));
    } catch (const DecodingError& e) {
      fromText = std::string("error at ") + e.path() + ": " + e.what();
    }
    try {
      fromValue = encode(decodeAds(json::parse(text)));
    } catch (const json::exception&) {
      // Not JSON at all: the text's error is the parser's own message.
      EXPECT_EQ(fromText.rfind("error at : invalid JSON: ", 0), 0u) << text << "\n" << fromText;
      continue;
    } catch (const DecodingError& e) {
      fromValue = std::string("error at ") + e.path() + ": " + e.what();
    }
    EXPECT_EQ(fromText, fromValue) << text;
  }
}

TEST(AdModelsEncode, RoundTripLeavesOutAbsentOptionals) {
  json full = bannerJson("u1");
  full["cli_ubid"] = "s";
  full["elements"].update({{"destination_url", "https://d.test"},
                           {"video_progress_sec", 3},
                           {"close_button_sec", 4},
                           {"auto_close_sec", std::numeric_limits<std::int64_t>::min()}});
  const json doc = {{"ads", {{"au_x", {full, bannerJson("u2")}}, {"au_y", {bannerJson("u3")}}}}};

  const Ads ads = decodeAds(doc.dump());
  EXPECT_EQ(decodeAds(encode(ads)), ads);
  EXPECT_EQ(json::parse(encode(ads)), doc);  // same keys, nothing added
  const MultiAdsCarousel multi = decodeMultiAdsCarousel(doc);
  EXPECT_EQ(decodeMultiAdsCarousel(encode(multi)), multi);

  const json minimal = toJson(ads.ads.at("au_x")[1]);
  EXPECT_FALSE(minimal.contains("cli_ubid"));
  EXPECT_EQ(minimal["elements"].size(), 4u);

  const json cards = {
      {{"media", {{"value", "v"}, {"height", 1}, {"width", 2}, {"type", "t"}}}},
      {{"media",
        {{"value", "w"}, {"height", 1}, {"width", 2}, {"type", "t"}, {"video_progress_sec", 9}}},
       {"destination_url", "d"}}};
  const CarouselAds carousels = decodeCarouselAds(
      json{{"ads", {{"c", {carouselJson(cards), carouselJson(json::array())}}}}}.dump());
  EXPECT_EQ(decodeCarouselAds(encode(carousels)), carousels);
  EXPECT_EQ(toJson(carousels.ads.at("c")[0]), carouselJson(cards));

  BannerAd handMade = ads.ads.at("au_x")[1];
  handMade.au = "\xff";  // never decodes like this, but encoding must not throw
  EXPECT_NO_THROW(encode(Ads{{{"au", {handMade}}}}));
}

TEST(AdModelsCreative, PrefixTests) {
  static_assert(isImageCreative("tavik_sdk/image/v1"));
  EXPECT_TRUE(isImageCreative("tavik_sdk/image/v1.2/wide"));
  EXPECT_TRUE(isVideoCreative("tavik_sdk/video/v1"));
  EXPECT_TRUE(isCarouselCreative("tavik_sdk/carousel/v1_x"));
  EXPECT_FALSE(isImageCreative("tavik_sdk/image/v"));
  EXPECT_FALSE(isImageCreative("Tavik_sdk/image/v1"));
  EXPECT_FALSE(isVideoCreative("tavik_sdk/image/v1"));
  EXPECT_FALSE(isCarouselCreative(""));
}

}  // namespace
}  // namespace tavik
