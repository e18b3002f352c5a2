// main() of the tavik::quick gtest binaries: a QGuiApplication (offscreen unless the
// test runs under Xvfb), so views, timers and queued continuations work. The shared
// sandbox stops before main() returns.
#include <gtest/gtest.h>

#include <QGuiApplication>
#include <cstdlib>

#include "support/sandbox_fixture.h"

int main(int argc, char** argv) {
  if (!std::getenv("QT_QPA_PLATFORM")) setenv("QT_QPA_PLATFORM", "offscreen", 1);
  QGuiApplication app(argc, argv);
  testing::InitGoogleTest(&argc, argv);
  const int result = RUN_ALL_TESTS();
  tavik::test::SandboxFixture::stopShared();
  return result;
}
