#pragma once

#include <QObject>
#include <QString>
#include <QVariant>
#include <memory>

#include "support/sandbox_env.h"

namespace tavik::test {

/// A sandbox for view tests, with the process's SDK installed against it, seen from QML
/// as the context property `sandbox`.
class SandboxFixture : public QObject {
  Q_OBJECT
  Q_PROPERTY(QString baseUrl READ baseUrl CONSTANT)

 public:
  /// Starts the sandbox and installs the global SDK against it (once per process).
  static SandboxFixture& shared();
  /// Stops the shared sandbox, if one was started, and joins its threads: called at the
  /// end of main(), so no server thread still runs while the process's statics are
  /// destroyed.
  static void stopShared();

  SandboxEnv& env() { return *env_; }
  QString baseUrl() const;

  /// The event log as QML values: [{path, event_name, params: {...}}, ...].
  Q_INVOKABLE QVariantList events() const;
  /// The events whose params carry "uclid" = `uclid` (all when empty) and, when given,
  /// whose path is `path`.
  Q_INVOKABLE QVariantList eventsFor(const QString& uclid, const QString& path = {}) const;
  /// Waits (running the event loop) until at least `count` events are logged.
  Q_INVOKABLE bool waitForEvents(int count, int timeoutMs = 5000) const;
  /// Waits until every request the SDK started has ended, then forgets every event and
  /// request so far (so a late event of an earlier test cannot land in the next one).
  Q_INVOKABLE void reset();
  /// The catalogue's ad `index` of `adUnit`, as JSON text (for `TavikAds.decodeBannerAd`).
  Q_INVOKABLE QString adJson(const QString& adUnit, int index = 0) const;

 private:
  SandboxFixture();
  std::unique_ptr<SandboxEnv> env_;
};

/// Runs the event loop until `done()` or the time-out; true when done.
bool spinUntil(const std::function<bool()>& done, int timeoutMs = 5000);

}  // namespace tavik::test
