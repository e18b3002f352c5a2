// Setting the SDK up from QML (TavikConfiguration): the example app with the stock
// main.cpp against the sandbox, the configuration the builder makes from it, the content
// made only once the SDK is set up, and the builder's errors.
#include <gtest/gtest.h>

#include <QLoggingCategory>
#include <QProcess>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <memory>

#include "support/message_log.h"
#include "support/sandbox_fixture.h"
#include "tavik/core/tavik.h"
#include "tavik/views/qml_records.h"

using namespace tavik;
using tavik::test::MessageLog;
using tavik::test::spinUntil;

namespace {

std::unique_ptr<QObject> load(QQmlEngine& engine, const QByteArray& qml) {
  engine.addImportPath(QStringLiteral(TAVIK_QML_DIR));
  QQmlComponent component(&engine);
  component.setData(qml, QUrl());
  std::unique_ptr<QObject> root(component.create());
  EXPECT_TRUE(root) << component.errorString().toStdString();
  return root;
}

}  // namespace

// The example is a complete app whose C++ knows nothing of the SDK: run as it is, it is set
// up from its QML, fetches its banner from the sandbox and reports the impression there
// under the client id written in the QML.
TEST(QmlSetUp, TheStockMainAppShowsAnAdConfiguredInQml) {
#ifndef TAVIK_QML_ONLY_EXAMPLE
  GTEST_SKIP() << "the examples are not built (TAVIK_BUILD_TOOLS=OFF)";
#else
  test::SandboxEnv env;
  QProcess app;
  QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
  environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
  environment.insert(QStringLiteral("QML_IMPORT_PATH"), QStringLiteral(TAVIK_QML_DIR));
  app.setProcessEnvironment(environment);
  app.start(QStringLiteral(TAVIK_QML_ONLY_EXAMPLE),
            {QString::fromStdString(env.host()), QString::fromStdString(env.server().certPath())});
  ASSERT_TRUE(app.waitForStarted());
  const auto impressions = [&] {
    std::vector<nlohmann::json> found;
    for (const auto& event : env.server().eventLog()) {
      if (event["params"].value("uclid", "") == "uc-home-banner-1" &&
          event["params"].value("event_name", "") == "funnel_impression") {
        found.push_back(event);
      }
    }
    return found;
  };
  const bool shown = spinUntil([&] { return !impressions().empty(); }, 30000);
  app.terminate();
  app.waitForFinished(5000);
  const QString output = QString::fromUtf8(app.readAllStandardError());
  ASSERT_TRUE(shown) << output.toStdString();
  EXPECT_EQ(impressions()[0]["params"]["client_id"], "qml-only-example");
  const auto fetches = env.server().requests("/v2/bsda");
  ASSERT_EQ(fetches.size(), 1u);
  EXPECT_EQ(fetches[0].value("client_id"), "qml-only-example");
  EXPECT_EQ(fetches[0].value("cli_ubid"), "qml-only-shopper");
  EXPECT_TRUE(output.contains("banner uc-home-banner-1 on screen, impression reported"))
      << output.toStdString();
#endif
}

// What the QML sets is what the builder makes of the same values; a view made before the
// set-up has no configuration, the content made after it has the SDK's; later changes are
// refused with a warning.
TEST(QmlSetUp, TheBuilderMakesTheConfigurationAndTheContentComesAfter) {
  MessageLog log;
  QQmlEngine engine;
  auto root = load(engine, R"(
    import QtQuick
    import Tavik
    Item {
      TavikConfiguration {
        objectName: "setup"
        clientId: "qml-client"
        productAdsHost: "pla.example.test"
        displayAdsHost: "display.example.test"
        eventTrackingHost: "events.example.test"
        debug: true
        impressionOnViewable: true
        BannerAdView { objectName: "inside" }
      }
      BannerAdView { objectName: "outside" }
    })");
  ASSERT_TRUE(root);
  const TAVIK* sdk = TAVIK::installed();
  ASSERT_NE(sdk, nullptr);
  const TAVIK expected = TAVIK::Builder()
                             .clientId("qml-client")
                             .productAdsHost("pla.example.test")
                             .displayAdsHost("display.example.test")
                             .eventTrackingHost("events.example.test")
                             .debug(true)
                             .impressionOnViewable(true)
                             .build();
  EXPECT_TRUE(sdk->config() == expected.config());

  auto* setup = root->findChild<QQuickItem*>(QStringLiteral("setup"));
  auto* inside = root->findChild<QQuickItem*>(QStringLiteral("inside"));
  auto* outside = root->findChild<QQuickItem*>(QStringLiteral("outside"));
  ASSERT_TRUE(setup && inside && outside);
  EXPECT_TRUE(setup->property("ready").toBool());
  EXPECT_EQ(setup->property("contentItem").value<QQuickItem*>(), inside);
  EXPECT_EQ(inside->parentItem(), setup);
  const auto inner = inside->property("config").value<quick::QmlConfig>();
  EXPECT_TRUE(inner.valid());
  EXPECT_EQ(inner.clientId(), "qml-client");
  EXPECT_FALSE(outside->property("config").value<quick::QmlConfig>().valid())
      << "a view made before the set-up has no configuration";

  setup->setProperty("clientId", QStringLiteral("changed"));
  EXPECT_EQ(setup->property("clientId").toString(), "qml-client");
  EXPECT_EQ(sdk->config()->clientId, "qml-client");
  const auto warnings = log.in(QStringLiteral("tavik.views"));
  ASSERT_EQ(warnings.size(), 1u);
  EXPECT_EQ(warnings[0].type, QtWarningMsg);
  EXPECT_TRUE(warnings[0].text.contains("clientId changed after the SDK was set up"));
}

// Properties left out keep the builder's defaults; a file: URL names the CA bundle file.
TEST(QmlSetUp, UnsetPropertiesKeepTheBuildersDefaults) {
  test::SandboxEnv env;
  QQmlEngine engine;
  auto root = load(
      engine,
      QByteArray(R"(
    import Tavik
    TavikConfiguration { clientId: "only-client"; trustedCaBundle: ")") +
          QUrl::fromLocalFile(QString::fromStdString(env.server().certPath())).toString().toUtf8() +
          "\" }");
  ASSERT_TRUE(root);
  ASSERT_NE(TAVIK::installed(), nullptr);
  EXPECT_TRUE(TAVIK::installed()->config() ==
              TAVIK::Builder().clientId("only-client").build().config());
}

// The builder's set-up mistakes stop the process with its own messages.
TEST(QmlSetUpDeathTest, WithoutAClientIdTheProcessStopsAsTheBuilderDoes) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        QQmlEngine engine;
        load(engine, "import Tavik\nTavikConfiguration { displayAdsHost: \"h.test\" }\n");
      },
      "TAVIK.Builder: clientId is required");
}

TEST(QmlSetUpDeathTest, ASecondSetUpStopsTheProcessAsTheBuilderDoes) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        TAVIK::Builder().clientId("from-cpp").buildGlobalInstance();
        QQmlEngine engine;
        load(engine, "import Tavik\nTavikConfiguration { clientId: \"from-qml\" }\n");
      },
      "TAVIK can only be built once");
}
