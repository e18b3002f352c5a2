#pragma once

#include <cstddef>
#include <string_view>

#include <nlohmann/json.hpp>

namespace simdjson::dom {
class parser;
}

namespace tavik::detail {

/// Deepest nesting of arrays and objects the SDK accepts in an answer. Deeper text is
/// refused before parsing: serialising it again would recurse that deep.
inline constexpr std::size_t kMaxJsonDepth = 512;

/// What a linear pre-scan of JSON text finds that the parser would mishandle: nesting
/// deeper than the limit (parsing is iterative, but serialising or walking the value
/// again recurses) and NUL bytes (the parser takes one for the end of the input and
/// ignores what follows). The scan follows strings and escapes the way the parser's
/// lexer does. Offsets are `npos` when nothing was found.
struct JsonScan {
  static constexpr std::size_t npos = static_cast<std::size_t>(-1);
  std::size_t tooDeepAt = npos;
  std::size_t nulAt = npos;
  /// Deepest nesting seen before the scan stopped (at most `maxDepth` + 1).
  std::size_t deepest = 0;
  bool ok() const { return tooDeepAt == npos && nulAt == npos; }
};
JsonScan scanJson(std::string_view text, std::size_t maxDepth = kMaxJsonDepth);
/// Nesting depth of JSON text up to the first NUL byte, stopping early past `limit`.
std::size_t jsonDepth(std::string_view text, std::size_t limit = kMaxJsonDepth);

/// Parses an answer body that must be a JSON object or array. Throws
/// `nlohmann::json::parse_error` for malformed text, a bare scalar, too deep nesting or
/// a NUL byte.
nlohmann::json parseJsonContainer(std::string_view text);

/// simdjson's parser of the calling thread (it keeps its buffers between documents), with
/// the depth limit above. It parses several times faster than nlohmann, and everything it
/// accepts nlohmann accepts with the same values (it refuses a few documents nlohmann
/// takes: integers beyond 64 bits, a scalar at the deepest level); duplicate keys are
/// kept, where nlohmann keeps the last. A document it parsed stays valid until the
/// thread's next parse.
simdjson::dom::parser& fastJsonParser();

/// True when the fast parser takes `text` as a JSON object or array: `parseJsonContainer`
/// would then accept it too.
bool isJsonContainerText(std::string_view text);

}  // namespace tavik::detail
