// Inputs the fuzz targets (fuzz/) found to break a contract, each kept as a test so the
// fault cannot come back. The byte strings are the fuzzer's own inputs where they are
// short; the smaller forms next to them fail for the same reason.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "network/json_text.h"
#include "tavik/ads/ad_models.h"
#include "tavik/core/config.h"
#include "tavik/core/error.h"
#include "tavik/network/url.h"
#include "tavik/network/web_service.h"

namespace tavik {
namespace {

using namespace std::string_view_literals;

// fuzz_envelope, crash-9d0383478786cfb0a3a4643f15594a23b4aaa0af: a number too large for
// a double.
constexpr std::string_view kOverflowingBody =
    "-922e34407370955123334370955123\0\0\0\0\0\0\0\x15"
    "095512334407370344073704073709551233440737034407370"sv;
static_assert(kOverflowingBody.size() == 90);

// What Url::parse made of `text`, for messages that show it.
std::string parsedAs(std::string_view text) {
  const auto url = Url::parse(text);
  return url ? url->string() : "(refused)";
}

// Reads `text` as an answer body and names the exception type that came out.
std::string parseOutcome(std::string_view text) {
  try {
    detail::parseJsonContainer(text);
    return "parsed";
  } catch (const nlohmann::json::parse_error&) {
    return "parse_error";
  } catch (const nlohmann::json::exception& e) {
    return std::string("other JSON exception: ") + e.what();
  } catch (const std::exception& e) {
    return std::string("other exception: ") + e.what();
  }
}

// parseJsonContainer let the parser's out_of_range.406 ("number overflow parsing ...")
// escape, while it promises parse_error for every text it refuses.
TEST(FuzzRegressionAnswerBody, NumberOverflowIsRefusedAsAParseError) {
  for (const std::string_view body :
       {kOverflowingBody, "[1e400]"sv, "{\"rank\":-1e309}"sv, "[0, [1, 2E+999]]"sv}) {
    EXPECT_EQ(parseOutcome(body), "parse_error") << "body: " << body;
  }
  // Large but finite numbers and integers beyond 64 bits still parse.
  EXPECT_EQ(parseOutcome("[1.7976931348623157e308, -1e308]"), "parsed");
  EXPECT_EQ(parseOutcome("[123456789012345678901234567890]"), "parsed");
}

// The ads decoders already turn the same overflow into a DecodingError of their own.
TEST(FuzzRegressionAnswerBody, AdsDecodersReportNumberOverflowAsInvalidJson) {
  for (const std::string_view text :
       {"{\"ads\":{\"u\":[{\"rank\":1e400}]}}"sv, "[1e400]"sv, "-1e400"sv}) {
    try {
      decodeAds(text);
      ADD_FAILURE() << "decoded: " << text;
    } catch (const DecodingError& e) {
      EXPECT_TRUE(std::string_view(e.what()).starts_with("invalid JSON: ")) << e.what();
      EXPECT_EQ(e.path(), "");
    }
  }
}

// fuzz_config, crash-33497ec48f492221583ac4fc952d2c477f9c802b: a whole configuration
// followed by NUL bytes decoded. The JSON parser takes a NUL for the end of the input, so
// whatever follows one was never looked at.
// decodeConfig now refuses text with a NUL byte (no JSON text has one) like any other
// malformed text.
TEST(FuzzRegressionConfig, TextAfterANulByteIsNotIgnored) {
  for (const std::string_view text : {"{\"clientId\":\"c\",\"debug\":false}\0\0\0"sv,
                                      "{\"clientId\":\"c\",\"debug\":false}\0,\"plaAds\":[]}"sv,
                                      "{\"clientId\":\"c\",\"debug\":false}\0this is not JSON"sv}) {
    EXPECT_THROW(decodeConfig(std::string(text)), DecodingError)
        << "text of " << text.size() << " bytes";
  }
  // A NUL written as an escape is data, not an end.
  const Config config = decodeConfig(R"({"clientId":"a\u0000b","debug":true})");
  EXPECT_EQ(config.clientId, std::string("a\0b"sv));
}

// fuzz_url, crash-2eba62dcc3066a9910c957bacb052b0227213b5d: "hts://l\0\0\0" "0s" parsed
// as "hts://l/". The address text went to libcurl as a C string, so everything after a
// NUL byte was dropped and the rest validated on its own.
// Url::parse must refuse text with a NUL byte rather than read only the part before it.
TEST(FuzzRegressionUrl, NulByteDoesNotCutTheAddressShort) {
  EXPECT_EQ(parsedAs("hts://l\0\0\0"
                     "0s"sv),
            "(refused)");

  // The same cut hides what the authority check sees: it reads the whole string (host
  // "b.example" after the '@'), while the request would go to "a.example".
  const std::string hidden("https://a.example\0@b.example/v2/bsda"sv);
  EXPECT_EQ(parsedAs(hidden), "(refused)");
  EXPECT_FALSE(WebService::isValidApiUrl(hidden));
  EXPECT_THROW(WebService(false).generateApiUrl(hidden, Parameters{{"a", "b"}}), TavikError);

  // A NUL inside a value is data, not an end: it is percent-encoded like any byte.
  const auto base = Url::parse("https://a.example/x");
  ASSERT_TRUE(base.has_value());
  const Url withNul = WebService::makeQueryUrl(*base, Parameters{{"k", std::string("a\0b", 3)}});
  EXPECT_EQ(withNul.query(), "k=a%00b");
}

}  // namespace
}  // namespace tavik
