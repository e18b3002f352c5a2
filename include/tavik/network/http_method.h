#pragma once

#include <array>
#include <string_view>
#include <utility>

#include "tavik/core/raw_value.h"

namespace tavik {

/// HTTP methods the web service can send. `delete_` carries a trailing underscore
/// because `delete` is a C++ keyword; its raw value is "DELETE".
enum class HTTPMethod { get, post, put, delete_ };

template <>
/// Wire strings of `HTTPMethod`.
struct RawValueTable<HTTPMethod> {
  /// Each method and its wire string, in declaration order.
  static constexpr std::array<std::pair<HTTPMethod, std::string_view>, 4> entries{{
      {HTTPMethod::get, "GET"},
      {HTTPMethod::post, "POST"},
      {HTTPMethod::put, "PUT"},
      {HTTPMethod::delete_, "DELETE"},
  }};
  /// `allCases` lists the methods.
  static constexpr bool iterable = true;
  /// No `fromString`.
  static constexpr bool hasFromString = false;
};

}  // namespace tavik
