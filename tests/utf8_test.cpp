// The one UTF-8 reader the SDK's decoders, renderer and page-type lookup share.
#include <gtest/gtest.h>

#include "core/utf8.h"

using namespace tavik::detail;

TEST(Utf8, AcceptsWellFormedSequencesOnly) {
  for (const char* good : {"", "abc", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80",
                           "\xED\x9F\xBF", "\xEE\x80\x80", "\xF4\x8F\xBF\xBF", "a\xC2\x80z"}) {
    EXPECT_TRUE(isValidUtf8(good)) << good;
  }
  const std::string nul("a\0b", 3);
  EXPECT_TRUE(isValidUtf8(nul));
  for (const char* bad : {"\x80",              // stray continuation byte
                          "\xC3",              // truncated
                          "\xE2\x82",          // truncated
                          "\xC0\xAF",          // overlong lead
                          "\xC1\xBF",          // overlong lead
                          "\xE0\x9F\xBF",      // overlong three-byte form
                          "\xF0\x8F\xBF\xBF",  // overlong four-byte form
                          "\xED\xA0\x80",      // surrogate
                          "\xF4\x90\x80\x80",  // beyond U+10FFFF
                          "\xF5\x80\x80\x80",  // lead byte beyond F4
                          "\xFF",              // never in UTF-8
                          "\xC3\x28",          // second byte not a continuation
                          "ok\xE2\x82\x28"}) {
    EXPECT_FALSE(isValidUtf8(bad)) << ::testing::PrintToString(std::string(bad));
  }
}

TEST(Utf8, DecodesCodePointsAndStopsAtIllFormedBytes) {
  const std::string text = "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\x80";
  std::size_t pos = 0;
  EXPECT_EQ(decodeUtf8(text, pos), U'A');
  EXPECT_EQ(decodeUtf8(text, pos), U'\u00E9');
  EXPECT_EQ(decodeUtf8(text, pos), U'\u20AC');
  EXPECT_EQ(decodeUtf8(text, pos), U'\U0001F600');
  EXPECT_EQ(pos, 10u);
  EXPECT_EQ(decodeUtf8(text, pos), std::nullopt);
  EXPECT_EQ(pos, 10u) << "an ill-formed sequence leaves the position";
  EXPECT_EQ(utf8SequenceLength(text, 1), 2u);
  EXPECT_EQ(utf8SequenceLength(text, 2), 0u) << "a continuation byte starts nothing";
  EXPECT_EQ(utf8SequenceLength(text, text.size()), 0u);
}
