#include "network/json_text.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string>

#include <simdjson.h>

namespace tavik::detail {

namespace {

std::size_t find(std::string_view text, char c, std::size_t from, std::size_t to) {
  if (from >= to) return to;
  const void* at = std::memchr(text.data() + from, c, to - from);
  return at ? static_cast<std::size_t>(static_cast<const char*>(at) - text.data()) : to;
}

}  // namespace

// Outside strings the text is structure, numbers and literals, read byte by byte. Inside
// a string (most of an ad's bytes: addresses, names) the scan jumps with memchr to the
// next quote, backslash or NUL, each range searched once, so the cost stays linear
// however many escapes a string holds.
JsonScan scanJson(std::string_view text, std::size_t maxDepth) {
  JsonScan scan;
  const std::size_t n = text.size();
  std::size_t depth = 0;
  std::size_t i = 0;
  while (i < n) {
    const char c = text[i];
    if (c == '\0') {
      scan.nulAt = i;
      return scan;
    }
    if (c == '"') {
      // The string's body: the next quote that no backslash escapes ends it. A NUL in it
      // counts unless a backslash skips it, as the byte after a backslash always is.
      std::size_t at = i + 1;
      std::size_t quote = find(text, '"', at, n);
      std::size_t nul = find(text, '\0', at, quote);
      while (true) {
        const std::size_t bound = std::min(quote, nul);
        const std::size_t escape = find(text, '\\', at, bound);
        if (escape == bound) {  // nothing escaped before the quote or the NUL
          if (nul < quote) {
            scan.nulAt = nul;
            return scan;
          }
          break;
        }
        at = escape + 2;   // the escaped byte, whatever it is, is skipped
        if (at > quote) {  // the quote itself was escaped: find the next one
          quote = find(text, '"', at, n);
          nul = find(text, '\0', at, quote);
        } else if (nul < at) {  // the NUL was the escaped byte: look further
          nul = find(text, '\0', at, quote);
        }
      }
      i = quote + 1;
      continue;
    }
    if (c == '[' || c == '{') {
      if (++depth > scan.deepest) scan.deepest = depth;
      if (depth > maxDepth) {
        scan.tooDeepAt = i;
        return scan;
      }
    } else if ((c == ']' || c == '}') && depth > 0) {
      --depth;
    }
    ++i;
  }
  return scan;
}

std::size_t jsonDepth(std::string_view text, std::size_t limit) {
  return scanJson(text, limit).deepest;
}

nlohmann::json parseJsonContainer(std::string_view text) {
  using parse_error = nlohmann::json::parse_error;
  const JsonScan scan = scanJson(text);
  if (scan.tooDeepAt != JsonScan::npos) {
    throw parse_error::create(
        101, scan.tooDeepAt,
        "syntax error: JSON nested deeper than " + std::to_string(kMaxJsonDepth) + " levels",
        nullptr);
  }
  if (scan.nulAt != JsonScan::npos) {
    throw parse_error::create(101, scan.nulAt, "syntax error: NUL byte in JSON text", nullptr);
  }
  nlohmann::json parsed;
  try {
    parsed = nlohmann::json::parse(text.begin(), text.end());
  } catch (const nlohmann::json::out_of_range& e) {
    // A number beyond a double's range: malformed for this purpose, reported as such.
    throw parse_error::create(101, 0, std::string("syntax error: ") + e.what(), nullptr);
  }
  if (!parsed.is_object() && !parsed.is_array()) {
    throw parse_error::create(101, 0,
                              std::string("syntax error: the answer is a JSON ") +
                                  parsed.type_name() + ", not an object or array",
                              nullptr);
  }
  return parsed;
}

simdjson::dom::parser& fastJsonParser() {
  thread_local simdjson::dom::parser parser = [] {
    simdjson::dom::parser made;
    if (made.allocate(4096, kMaxJsonDepth) != simdjson::SUCCESS) throw std::bad_alloc();
    return made;
  }();
  return parser;
}

bool isJsonContainerText(std::string_view text) {
  simdjson::dom::element root;
  if (fastJsonParser().parse(text.data(), text.size()).get(root) != simdjson::SUCCESS) {
    return false;
  }
  return root.is_object() || root.is_array();
}

}  // namespace tavik::detail
