#include "support/sandbox_fixture.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QThread>

#include "tavik/core/tavik.h"
#include "tavik/views/creatives.h"

namespace tavik::test {

SandboxFixture::SandboxFixture() : env_(std::make_unique<SandboxEnv>()) {
  TAVIK::Builder()
      .clientId("client-1")
      .productAdsHost(env_->host())
      .displayAdsHost(env_->host())
      .eventTrackingHost(env_->host())
      .trustedCaBundle(env_->server().certPath())
      .buildGlobalInstance();
  // Videos are kept on disk in a folder of this process: none kept by an earlier run,
  // whose sandbox may have had the same port, answers for the sandbox of this one.
  static QTemporaryDir cache;
  if (cache.isValid()) {
    quick::CreativeCacheSettings settings = quick::creativeCacheSettings();
    settings.folder = cache.path().toStdString();
    quick::configureCreativeCache(settings);
  }
}

namespace {
// Never destroyed: the SDK installed against it lives for the whole process.
SandboxFixture* sharedFixture = nullptr;
}  // namespace

SandboxFixture& SandboxFixture::shared() {
  static SandboxFixture* fixture = sharedFixture = new SandboxFixture();
  return *fixture;
}

void SandboxFixture::stopShared() {
  if (!sharedFixture) return;
  // Requests still in flight end with their connection; the SDK reports nothing after
  // main() anyway.
  sharedFixture->env().server().stop();
}

QString SandboxFixture::baseUrl() const {
  return QString::fromStdString(env_->base());
}

QVariantList SandboxFixture::events() const {
  return eventsFor({});
}

QVariantList SandboxFixture::eventsFor(const QString& uclid, const QString& path) const {
  const auto log = env_->server().eventLog();
  QVariantList result;
  for (const auto& entry : log) {
    const QVariant value =
        QJsonDocument::fromJson(QByteArray::fromStdString(entry.dump())).toVariant();
    const QVariantMap map = value.toMap();
    if (!uclid.isEmpty() && map.value("params").toMap().value("uclid").toString() != uclid)
      continue;
    if (!path.isEmpty() && map.value("path").toString() != path) continue;
    result.append(value);
  }
  return result;
}

bool SandboxFixture::waitForEvents(int count, int timeoutMs) const {
  return spinUntil([&] { return env_->server().eventLog().size() >= static_cast<size_t>(count); },
                   timeoutMs);
}

void SandboxFixture::reset() {
  spinUntil([] {
    const auto stats = transport::stats();
    return stats.requestsFinished == stats.requestsStarted;
  });
  env_->server().reset();
}

QString SandboxFixture::adJson(const QString& adUnit, int index) const {
  const auto catalogue = env_->server().catalogue();
  const auto& ads = catalogue["display"]["ad_units"][adUnit.toStdString()];
  if (!ads.is_array() || index < 0 || index >= static_cast<int>(ads.size())) return {};
  return QString::fromStdString(ads[static_cast<size_t>(index)].dump());
}

bool spinUntil(const std::function<bool()>& done, int timeoutMs) {
  QDeadlineTimer deadline(timeoutMs);
  while (!done()) {
    if (deadline.hasExpired()) return false;
    QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    QThread::msleep(5);
  }
  return true;
}

}  // namespace tavik::test
