// The SDK in a host process's life: fork() without exec, and exit while host code blocks
// one of the SDK's threads. Each runs a real host program as a child process.
#include <gtest/gtest.h>

#include "support/sandbox_env.h"

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

TEST(Process, AChildMadeByForkGetsAWorkingSdkOfItsOwn) {
#if defined(__SANITIZE_THREAD__)
  // ThreadSanitizer keeps the parent's threads registered in a forked child and stops
  // it when the child starts threads of its own ("dup thread with used id").
  GTEST_SKIP() << "fork() without exec of a threaded process is not supported by TSan";
#elif defined(__SANITIZE_ADDRESS__)
  // This AddressSanitizer's allocator takes no lock around fork(): a child can inherit
  // it locked by another thread of the parent and wait forever in its own malloc.
  GTEST_SKIP() << "the AddressSanitizer allocator is not fork-safe in threaded processes";
#endif
  tavik::test::SandboxEnv env;
  EXPECT_EQ(tavik::test::runProgram({TAVIK_FORK_CHILD, env.host(), env.server().certPath()}, 60s),
            0);
  // The parent's events and the child's both arrived.
  std::size_t child = 0;
  for (const auto& request : env.server().requests("/aclick")) {
    child += request.value("cli_ubid") == "child";
  }
  EXPECT_EQ(child, 1u);
}

TEST(Process, ExitEndsPromptlyWhileHostCodeBlocksTheSdksThreads) {
  tavik::test::SandboxEnv env;
  const auto started = Clock::now();
  EXPECT_EQ(tavik::test::runProgram({TAVIK_BLOCKED_EXIT, env.host(), env.server().certPath()}, 30s),
            0);
  EXPECT_LT(Clock::now() - started, 20s);
}
