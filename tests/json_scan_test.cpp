// The pre-scan that refuses too deep or NUL-bearing JSON before parsing, against a
// byte-by-byte reference of the same rules, on hand-picked and random texts.

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "network/json_text.h"

namespace tavik::detail {
namespace {

// The rules, one byte at a time: a NUL anywhere stops the scan unless the byte after a
// backslash inside a string is it; brackets count outside strings only.
JsonScan reference(std::string_view text, std::size_t maxDepth) {
  JsonScan scan;
  std::size_t depth = 0;
  bool inString = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '\0') {
      scan.nulAt = i;
      return scan;
    }
    if (inString) {
      if (c == '\\') {
        ++i;
      } else if (c == '"') {
        inString = false;
      }
    } else if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      if (++depth > scan.deepest) scan.deepest = depth;
      if (depth > maxDepth) {
        scan.tooDeepAt = i;
        return scan;
      }
    } else if ((c == ']' || c == '}') && depth > 0) {
      --depth;
    }
  }
  return scan;
}

void expectSame(std::string_view text, std::size_t maxDepth) {
  const JsonScan want = reference(text, maxDepth);
  const JsonScan got = scanJson(text, maxDepth);
  EXPECT_EQ(got.nulAt, want.nulAt) << testing::PrintToString(std::string(text));
  EXPECT_EQ(got.tooDeepAt, want.tooDeepAt) << testing::PrintToString(std::string(text));
  EXPECT_EQ(got.deepest, want.deepest) << testing::PrintToString(std::string(text));
}

TEST(JsonScan, EscapesQuotesAndNulBytesInAndOutOfStrings) {
  using namespace std::string_literals;
  const std::string cases[] = {
      R"({"a":[1,2,{"b":"c"}]})",
      R"({"a":"[[[[","b":[]})",           // brackets inside a string do not count
      R"({"a":"x\"[[[","b":[[1]]})",      // an escaped quote does not end the string
      R"({"a":"x\\","b":[[[1]]]})",       // an escaped backslash does not escape the quote
      "{\"a\":\"x\0y\"}"s,                // NUL inside a string
      "{\"a\":\"x\\\0y\"}"s,              // NUL escaped by a backslash: skipped
      "{\"a\":\"x\\\0y\0\"}"s,            // the next NUL still counts
      "[[\0]]"s,                          // NUL outside strings
      "{\"a\":\"unterminated [[[",        // the rest is string
      "{\"a\":\"ends in a backslash \\",  // nothing after the backslash
      "\"\\\"\"[[",                       // escaped quote then the real one
      "",
  };
  for (const auto& text : cases) {
    expectSame(text, 2);
    expectSame(text, 512);
  }
  EXPECT_EQ(scanJson("[[[1]]]", 2).tooDeepAt, 2u);
  EXPECT_EQ(scanJson("{\"a\":\"x\0\"}"s, 512).nulAt, 7u);
}

TEST(JsonScan, AgreesWithTheByteByByteRulesOnRandomTexts) {
  // Texts drawn from the bytes that matter, so quotes, escapes, NULs and brackets meet
  // in every order.
  std::mt19937 random(20261124);
  const char alphabet[] = {'"', '\\', '\0', '[', ']', '{', '}', 'a', ',', ':'};
  std::uniform_int_distribution<std::size_t> pick(0, sizeof alphabet - 1);
  std::uniform_int_distribution<std::size_t> length(0, 40);
  for (int round = 0; round < 20'000; ++round) {
    std::string text(length(random), ' ');
    for (auto& c : text) c = alphabet[pick(random)];
    expectSame(text, 3);
    if (HasFailure()) return;
  }
}

}  // namespace
}  // namespace tavik::detail
