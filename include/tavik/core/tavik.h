#pragma once

#include <memory>
#include <optional>
#include <string>

#include "tavik/core/config.h"
#include "tavik/events/event_store.h"

namespace tavik {

class AdFetcherProtocol;
class AdRendererProtocol;
class RegisterEventProtocol;

/// The SDK's entry object. Configure it once at start-up:
///
///   TAVIK::Builder().clientId("my-client").buildGlobalInstance();
///   auto fetcher = TAVIK::shared().adFetcher();
///
/// and from then on ask it for working objects. Each accessor makes a new object holding
/// a copy of the configuration; it returns nullptr when the SDK has no configuration or
/// the client id is empty.
class TAVIK {
 public:
  class Builder;
  /// An empty serial executor type; nothing in the public surface runs on it.
  class TavikActor {};

  /// The process-wide instance. Stops the process when it was never built.
  static TAVIK& shared();
  /// The same as `shared()`.
  static TAVIK& globalInstance() { return shared(); }
  /// The process-wide instance, or nullptr before `buildGlobalInstance()`. For code that
  /// must not stop the process, such as a view declared in QML before set-up.
  static const TAVIK* installed();

  /// Does nothing on a configured SDK; before set-up it prints a notice. The user id is
  /// not stored and never sent.
  void setUserId(const std::string& userId) const;

  /// A new fetcher with a copy of the configuration, or nullptr when not configured.
  std::unique_ptr<AdFetcherProtocol> adFetcher() const;
  /// A new renderer with a copy of the configuration, or nullptr when not configured.
  std::unique_ptr<AdRendererProtocol> adRenderer() const;
  /// A new event reporter with a copy of the configuration, or nullptr when not configured.
  std::unique_ptr<RegisterEventProtocol> registerEvent() const;

  /// The configuration this instance hands out.
  const std::optional<Config>& config() const { return _config; }

 private:
  explicit TAVIK(std::optional<Config> config) : _config(std::move(config)) {}
  /// Whether accessors may hand out objects: a configuration with a client id.
  bool configured() const { return _config && !_config->clientId.empty(); }

  std::optional<Config> _config;
};

/// Builds the SDK. Setters store their argument and return the builder, so calls chain.
class TAVIK::Builder {
 public:
  Builder() = default;

  /// Required: the client id sent with every request.
  Builder& clientId(std::string value);
  /// Bare host names: "https://" is put in front of them.
  Builder& productAdsHost(std::string value);
  /// Bare host name of the display-ads service.
  Builder& displayAdsHost(std::string value);
  /// Bare host name of the event-tracking service.
  Builder& eventTrackingHost(std::string value);
  /// Writes debug lines to the log sink; off by default.
  Builder& debug(bool value);
  /// The views send each impression when the ad becomes viewable rather than when it
  /// first appears (off by default; see `Config::impressionOnViewable`).
  Builder& impressionOnViewable(bool value);
  /// A PEM file whose certificates the SDK trusts in addition to the system's (a private
  /// deployment, the local sandbox). It adds trust; TLS verification always stays on.
  /// Applies process-wide from `build()` on. A file that cannot be read is reported once
  /// on the log sink, whatever the debug switch; requests then fail TLS verification.
  Builder& trustedCaBundle(std::string pemFile);

  /// Keeps every event the SDK is asked to send in an SQLite database at `path` until
  /// the event service accepted it: failures that can pass are retried with back-off,
  /// and events left by an earlier run go out at `build()`. Off by default (events are
  /// sent once). Opened by `build()` for the whole process; a store that cannot be used
  /// (in use by another process, a read-only folder) is reported once on the log sink
  /// and the SDK sends without it. See "Event store" in the README.
  Builder& eventStore(std::string path);
  /// Bounds of the event store (defaults: 100,000 events, 32 MiB, a week).
  Builder& eventStoreLimits(EventStoreLimits limits);

  /// A new SDK object; the process-wide slot is not touched. Stops the process when no
  /// client id was given.
  TAVIK build() const;
  /// Builds and installs the process-wide instance. Stops the process when called twice.
  TAVIK& buildGlobalInstance() const;

 private:
  std::optional<std::string> clientId_;
  bool debug_ = false;
  bool impressionOnViewable_ = false;
  std::string productAdsHost_ = "pla.ads.tavik.io";
  std::string displayAdsHost_ = "display.ads.tavik.io";
  std::string eventTrackingHost_ = "events.tavik.io";
  std::optional<std::string> trustedCaBundle_;
  std::string eventStore_;
  EventStoreLimits eventStoreLimits_;
};

/// Base of the objects that hold a configuration.
class TavikBase {
 public:
  /// Keeps `config`; absent means the object was made without a configuration.
  explicit TavikBase(std::optional<Config> config = std::nullopt) : SDKconfig(std::move(config)) {}
  virtual ~TavikBase() = default;

  /// The configuration the object works with; absent when it has none.
  std::optional<Config> SDKconfig;
};

}  // namespace tavik
