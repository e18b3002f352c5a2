#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <utility>

#include "tavik/core/raw_value.h"

namespace tavik {

/// The events the tracking service knows; the wire string goes into "event_name".
enum class TavikEventName : std::uint8_t {
  viewProduct,
  funnelAddToCart,
  funnelSaleComplete,
  funnelImpression,
  funnelVideoProgress,
  funnelVideoAction,
};

/// What the viewer did to a video ad; the wire string goes into "action_type".
enum class TavikVideoActionType : std::uint8_t { mute, unmute, pause, play, fullscreen, minimize };

/// The two endpoint path words of the tracking service ("/aclick", "/events").
enum class TavikEventPath : std::uint8_t { adClick, events };

template <>
/// Wire strings of `TavikEventName`.
struct RawValueTable<TavikEventName> {
  /// Each event and its wire string, in declaration order.
  static constexpr std::array<std::pair<TavikEventName, std::string_view>, 6> entries{{
      {TavikEventName::viewProduct, "viewproduct"},
      {TavikEventName::funnelAddToCart, "funnel_add2cart"},
      {TavikEventName::funnelSaleComplete, "funnel_salecomplete"},
      {TavikEventName::funnelImpression, "funnel_impression"},
      {TavikEventName::funnelVideoProgress, "funnel_video_progress"},
      {TavikEventName::funnelVideoAction, "funnel_video_action"},
  }};
  /// `allCases` lists the events.
  static constexpr bool iterable = true;
  /// `fromString` is defined for this type (exact match).
  static constexpr bool hasFromString = true;
};
static_assert(rawValuesInDeclarationOrder<TavikEventName>());

template <>
/// Wire strings of `TavikVideoActionType`.
struct RawValueTable<TavikVideoActionType> {
  /// Each action and its wire string, in declaration order.
  static constexpr std::array<std::pair<TavikVideoActionType, std::string_view>, 6> entries{{
      {TavikVideoActionType::mute, "mute"},
      {TavikVideoActionType::unmute, "unmute"},
      {TavikVideoActionType::pause, "pause"},
      {TavikVideoActionType::play, "play"},
      {TavikVideoActionType::fullscreen, "fullscreen"},
      {TavikVideoActionType::minimize, "minimize"},
  }};
  /// `allCases` lists the actions.
  static constexpr bool iterable = true;
  /// `fromString` is defined for this type (exact match).
  static constexpr bool hasFromString = true;
};
static_assert(rawValuesInDeclarationOrder<TavikVideoActionType>());

template <>
/// Path words of `TavikEventPath`.
struct RawValueTable<TavikEventPath> {
  // "aclick" (no "d") is the path word of the click endpoint.
  /// Each path and its word, in declaration order.
  static constexpr std::array<std::pair<TavikEventPath, std::string_view>, 2> entries{{
      {TavikEventPath::adClick, "aclick"},
      {TavikEventPath::events, "events"},
  }};
  /// `allCases` lists the paths.
  static constexpr bool iterable = true;
  /// `fromString` is defined for this type (exact match).
  static constexpr bool hasFromString = true;
};
static_assert(rawValuesInDeclarationOrder<TavikEventPath>());

/// The wire strings under their readable names.
constexpr std::string_view eventName(TavikEventName name) {
  return rawValue(name);
}
/// The wire string of a video action ("mute", "fullscreen", ...).
constexpr std::string_view actionType(TavikVideoActionType type) {
  return rawValue(type);
}
/// The path word of an endpoint ("aclick" or "events").
constexpr std::string_view pathName(TavikEventPath path) {
  return rawValue(path);
}

namespace Tavik {

/// The same wire strings as `TavikEventName`, under the namespaced case names. Nothing
/// converts between the two families except their raw strings.
enum class EventName : std::uint8_t {
  viewProduct,
  add2Cart,
  purchase,
  impression,
  videoProgress,
  videoAction,
};

/// The same cases and wire strings as `TavikVideoActionType`.
enum class VideoActionType : std::uint8_t { mute, unmute, pause, play, fullscreen, minimize };

using tavik::operator<<;

}  // namespace Tavik

template <>
/// Wire strings of `Tavik::EventName`, the same as those of `TavikEventName`.
struct RawValueTable<Tavik::EventName> {
  /// Each event and its wire string, in declaration order.
  static constexpr std::array<std::pair<Tavik::EventName, std::string_view>, 6> entries{{
      {Tavik::EventName::viewProduct, "viewproduct"},
      {Tavik::EventName::add2Cart, "funnel_add2cart"},
      {Tavik::EventName::purchase, "funnel_salecomplete"},
      {Tavik::EventName::impression, "funnel_impression"},
      {Tavik::EventName::videoProgress, "funnel_video_progress"},
      {Tavik::EventName::videoAction, "funnel_video_action"},
  }};
  /// No `allCases`.
  static constexpr bool iterable = false;
  /// No `fromString`.
  static constexpr bool hasFromString = false;
};
static_assert(rawValuesInDeclarationOrder<Tavik::EventName>());

template <>
/// Wire strings of `Tavik::VideoActionType`, the same as those of `TavikVideoActionType`.
struct RawValueTable<Tavik::VideoActionType> {
  /// Each action and its wire string, in declaration order.
  static constexpr std::array<std::pair<Tavik::VideoActionType, std::string_view>, 6> entries{{
      {Tavik::VideoActionType::mute, "mute"},
      {Tavik::VideoActionType::unmute, "unmute"},
      {Tavik::VideoActionType::pause, "pause"},
      {Tavik::VideoActionType::play, "play"},
      {Tavik::VideoActionType::fullscreen, "fullscreen"},
      {Tavik::VideoActionType::minimize, "minimize"},
  }};
  /// No `allCases`.
  static constexpr bool iterable = false;
  /// No `fromString`.
  static constexpr bool hasFromString = false;
};
static_assert(rawValuesInDeclarationOrder<Tavik::VideoActionType>());

}  // namespace tavik

namespace std {
template <>
struct hash<tavik::TavikEventName> : tavik::RawValueHash<tavik::TavikEventName> {};
template <>
struct hash<tavik::TavikVideoActionType> : tavik::RawValueHash<tavik::TavikVideoActionType> {};
template <>
struct hash<tavik::TavikEventPath> : tavik::RawValueHash<tavik::TavikEventPath> {};
template <>
struct hash<tavik::Tavik::EventName> : tavik::RawValueHash<tavik::Tavik::EventName> {};
template <>
struct hash<tavik::Tavik::VideoActionType> : tavik::RawValueHash<tavik::Tavik::VideoActionType> {};
}  // namespace std
